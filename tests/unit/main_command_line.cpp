// The command line.
#include <string>
#include <unistd.h>
#include <vector>

#include "shell_test_support.h"
#include "base/files.h"
#include "base/output.h"
#include "search/strength.h"
#include "main/command_line.h"

struct CommandLineTest : ShellTest {
    static inline CommandLine line;

    static RunMode read(std::vector<std::string> words)
    {
        words.insert(words.begin(), "vesk");
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        read_command_line(&dialogue, static_cast<i32>(words.size()), argv.data(), &line);
        return line.mode;
    }
};

TEST_F(CommandLineTest, WithoutArgumentsTheEngineThinks)
{
    EXPECT_EQ(read({}), ModeThink);
    EXPECT_EQ(load(uci_mode), 1);
}

TEST_F(CommandLineTest, ChoosesTheDialogue)
{
    EXPECT_EQ(read({ "-c" }), ModeThink);
    EXPECT_EQ(load(uci_mode), 0);
    read({ "-c", "-uci" });
    EXPECT_EQ(load(uci_mode), 1);
}

TEST_F(CommandLineTest, EveryModeHasItsNumber)
{
    const struct {
        std::vector<std::string> words;
        i32 mode;
    } rows[] = {
        { { "-anepd", "f" }, 2 },
        { { "-scan_pgn1", "f" }, 3 },
        { { "-scan_pgn2", "f" }, 4 },
        { { "-scan_pgn3", "f" }, 5 },
        { { "-scan_pgn4", "f" }, 6 },
        { { "-match", "f" }, 7 },
        { { "-bench" }, 8 },
        { { "-bench2" }, 9 },
        { { "-pbench" }, 10 },
        { { "-mkbook", "f" }, 11 },
        { { "-mkconfig" }, 12 },
        { { "-mktune", "f" }, 13 },
    };
    for (const auto& row : rows) {
        EXPECT_EQ(read(row.words), row.mode) << row.words[0];
    }
}

TEST_F(CommandLineTest, ALaterModeReplacesAnEarlierOne)
{
    EXPECT_EQ(read({ "-bench", "-d", "12", "-mkconfig" }), ModeMakeConfig);
    EXPECT_EQ(load(dialogue.limits.depth_limit), 12);
    EXPECT_EQ(read({ "-d", "12", "-bench" }), ModeBench);
    EXPECT_EQ(load(dialogue.limits.depth_limit), 12);
}

TEST_F(CommandLineTest, TheScannersOptionIsFoundAnywhereInTheArgument)
{
    EXPECT_EQ(read({ "-scan_pgn", "x.pgn" }), ModeThink);
    EXPECT_STREQ(line.tool_file, "x.pgn");
    EXPECT_EQ(read({ "-bench", "my-scan_pgn7", "y.pgn" }), ModeBench);
    EXPECT_STREQ(line.tool_file, "y.pgn");
    EXPECT_EQ(read({ "-scan_pgn12", "z.pgn" }), ModeThink);
    EXPECT_STREQ(line.tool_file, "z.pgn");
    EXPECT_EQ(read({ "-scan_pgn5", "a.pgn" }), ModeThink);
}

TEST_F(CommandLineTest, FilesGoToTheirTools)
{
    read({ "-anepd", "a.epd" });
    EXPECT_STREQ(line.epd_file, "a.epd");
    read({ "-mktune", "b.epd" });
    EXPECT_STREQ(line.epd_file, "b.epd");
    read({ "-mkbook", "c.pgn" });
    EXPECT_STREQ(line.tool_file, "c.pgn");
    read({ "-match", "d.pgn" });
    EXPECT_STREQ(line.tool_file, "d.pgn");
}

TEST_F(CommandLineTest, LongTextsAreCutToTheirFields)
{
    const std::string path(5000, 'p');
    const std::string errors = capture_errors([&] {
        read({ "-cfg", path, "-book", path, "-tbpath", path, "-anepd", path, "-mkbook", path });
    });
    EXPECT_EQ(dialogue.engine_options.config_file_path, std::string(143, 'p'));
    EXPECT_EQ(dialogue.engine_options.own_book_file, std::string(143, 'p'));
    EXPECT_EQ(dialogue.engine_options.syzygy_path, std::string(143, 'p'));
    EXPECT_EQ(line.epd_file, std::string(139, 'p'));
    EXPECT_EQ(line.tool_file, std::string(143, 'p'));
    EXPECT_EQ(dialogue.engine_options.own_book, 0);
    // A tool that reads a file of a cut name says so.
    EXPECT_EQ(errors,
        path + ": only the first 139 characters of a name are read\n" + path
            + ": only the first 143 characters of a name are read\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(CommandLineTest, TheExamplePathFillsItsField)
{
    read({ "-tbpath", std::string(143, 'x'), "-tbx" });
    EXPECT_STREQ(
        dialogue.engine_options.syzygy_path, "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece");
    EXPECT_EQ(dialogue.engine_options.syzygy_path[142], '\0');
}

TEST_F(CommandLineTest, HashIsHeldToItsRange)
{
    const struct {
        const char* text;
        i32 hash;
    } rows[] = { { "99999", 16384 }, { "16384", 16384 }, { "-5", 0 }, { "0", 0 }, { "17", 17 },
        { "x", 0 }, { "999999999999999999999", 16384 }, { "-999999999999999999999", 0 } };
    for (const auto& row : rows) {
        read({ "-hash", row.text });
        EXPECT_EQ(dialogue.engine_options.hash, row.hash) << row.text;
    }
}

TEST_F(CommandLineTest, ThreadsAreHeldToTheirRangeAsAShortNumber)
{
    const struct {
        const char* text;
        i32 threads;
    } rows[] = { { "0", 1 }, { "500", 128 }, { "128", 128 }, { "-1", 1 }, { "3", 3 },
        { "65540", 4 }, { "40000", 1 } };
    for (const auto& row : rows) {
        read({ "-threads", row.text });
        EXPECT_EQ(dialogue.engine_options.threads, row.threads) << row.text;
    }
}

TEST_F(CommandLineTest, DepthIsReadAsASignedByte)
{
    const struct {
        const char* text;
        i32 depth;
    } rows[] = { { "12", 12 }, { "66", 66 }, { "67", 66 }, { "127", 66 }, { "128", -128 },
        { "300", 44 }, { "0", 0 }, { "-1", -1 }, { "x", 0 } };
    for (const auto& row : rows) {
        store(dialogue.limits.tc_moves, 0);
        read({ "-d", row.text });
        EXPECT_EQ(load(dialogue.limits.depth_limit), row.depth) << row.text;
        EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
        EXPECT_EQ(dialogue.limits.tc_seconds, 10000.0);
    }
}

TEST_F(CommandLineTest, TimeAndNodesFixTheTimePerMove)
{
    store(dialogue.limits.tc_moves, 0);
    read({ "-t", "2.5" });
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_seconds, 2.5);
    store(dialogue.limits.tc_moves, 0);
    read({ "-n", "5000000000" });
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_seconds, 1000.0);
    EXPECT_EQ(dialogue.limits.node_limit_total, 5000000000);
}

TEST_F(CommandLineTest, ANodeRateGivesItsElo)
{
    EXPECT_EQ(capture_output([] { read({ "-nps", "100000" }); }), "Elo= 2671\n");
    EXPECT_EQ(load(strength.target_nps), 100000.0);
    EXPECT_EQ(dialogue.engine_options.limit_strength, 1);
    EXPECT_EQ(dialogue.engine_options.elo, 2671);
}

TEST_F(CommandLineTest, AbsurdNodeRatesAreHarmless)
{
    for (const char* text : { "0", "-1", "-5", "-inf", "1e308", "nan", "inf", "x" }) {
        const std::string said = capture_output([text] { read({ "-nps", text }); });
        EXPECT_EQ(said, "Elo= " + std::to_string(dialogue.engine_options.elo) + "\n") << text;
        EXPECT_GE(load(strength.target_nps), 0.0) << text;
    }
}

TEST_F(CommandLineTest, NoiseAndQuiet)
{
    read({ "-noise", "1.5" });
    EXPECT_EQ(load(noise), 1.5);
    read({ "-log" });
    EXPECT_EQ(dialogue.engine_options.log, 1);
    EXPECT_TRUE(is_logging());
    read({ "-quiet" });
    EXPECT_EQ(dialogue.engine_options.log, 0);
    EXPECT_EQ(load(noise), 9999.0);
    read({ "-numa" });
    EXPECT_EQ(dialogue.numa, 1);
}

TEST_F(CommandLineTest, OptionsMatchExactlyAndOthersAreIgnored)
{
    EXPECT_EQ(read({ "-C", "c", "--c", "-cc", "-benchx", "bench", "", "-", "-D", "7" }), ModeThink);
    EXPECT_EQ(load(uci_mode), 1);
    EXPECT_EQ(load(dialogue.limits.depth_limit), 66);
}

TEST_F(CommandLineTest, AValueIsSeenByTheOptionsBehindItInTheList)
{
    store(noise, 0.0);
    dialogue.engine_options.log = 1;
    read({ "-noise", "-quiet" });
    EXPECT_EQ(load(noise), 9999.0);
    EXPECT_EQ(dialogue.engine_options.log, 0);
    // An option ahead of it in the list does not see it.
    read({ "-mkbook", "-c" });
    EXPECT_EQ(load(uci_mode), 1);
    EXPECT_STREQ(line.tool_file, "-c");
    EXPECT_EQ(read({ "-mkbook", "-mktune", "x" }), ModeMakeTune);
    EXPECT_STREQ(line.tool_file, "-mktune");
    EXPECT_STREQ(line.epd_file, "x");
    EXPECT_EQ(read({ "-book", "-bench" }), ModeBench);
    EXPECT_STREQ(dialogue.engine_options.own_book_file, "-bench");
}

TEST_F(CommandLineTest, AMissingValueEndsTheProcessAndNamesTheOption)
{
    for (const char* option :
        { "-noise", "-cfg", "-d", "-t", "-n", "-nps", "-hash", "-threads", "-book", "-tbpath",
            "-anepd", "-scan_pgn", "-scan_pgn1", "-scan_pgn4", "-match", "-mkbook", "-mktune" }) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(read({ "-c", option }), ModeEnd) << option;
        const std::string message = testing::internal::GetCapturedStderr();
        EXPECT_NE(message.find(option), std::string::npos) << message;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(read({ "-mkbook", "-mktune" }), ModeEnd);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("-mktune"), std::string::npos);
}

TEST_F(CommandLineTest, TuneEndsTheProcess)
{
    EXPECT_EQ(capture_output([] { EXPECT_EQ(read({ "-tune" }), ModeEnd); }), "");
    EXPECT_EQ(capture_output([] { EXPECT_EQ(read({ "-tune", "1" }), ModeEnd); }), "");
    EXPECT_EQ(capture_output([] {
        EXPECT_EQ(read({ "-tune", "1", "2" }), ModeEnd);
    }),
        "Need to compile with 'make ttune'\n");
}

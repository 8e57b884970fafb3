// Options by name: ranges, replies, announcement and the configuration file.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "shell_test_support.h"
#include "base/output.h"
#include "base/text.h"
#include "eval/evaluate.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/strength.h"
#include "search/thread.h"
#include "shell/options.h"

struct OptionsTest : ShellTest {
    static std::string set(const char* name, const std::string& value)
    {
        std::string text = value;
        return capture_output([&] { set_option(&dialogue, name, text.data()); });
    }

    static std::string load_config(const std::string& text)
    {
        write_file("test.cfg", text);
        copy_text(dialogue.engine_options.config_file_path, file_option_size, "test.cfg");
        return capture_output([] { EXPECT_EQ(load_config_file(&dialogue), 1); });
    }

    // The reply to loading a file, without its first line.
    static std::string replies(const std::string& text)
    {
        const std::string output = load_config(text);
        return output.substr(output.find('\n') + 1);
    }
};

TEST_F(OptionsTest, SpinOptionsAreHeldToTheirRange)
{
    const struct {
        const char* name;
        i16 EngineOptions::*field;
        i32 lowest;
        i32 highest;
    } rows[] = {
        { "OwnBook_Depth", &EngineOptions::own_book_depth, 0, 60 },
        { "OwnBook2_Depth", &EngineOptions::own_book2_depth, 0, 60 },
        { "OwnBook_Variety", &EngineOptions::own_book_variety, 0, 100 },
        { "SyzygyProbeDepth5", &EngineOptions::syzygy_probe_depth5, -5, 100 },
        { "SyzygyProbeDepth6", &EngineOptions::syzygy_probe_depth6, -5, 100 },
        { "MultiPV", &EngineOptions::multi_pv, 1, 255 },
        { "MoveOverhead", &EngineOptions::move_overhead, 0, 5000 },
        { "UCI_Elo", &EngineOptions::elo, 1500, 3300 },
        { "Contempt", &EngineOptions::contempt, -150, 150 },
        { "Selectivity", &EngineOptions::selectivity, 0, 200 },
    };
    for (const auto& row : rows) {
        const auto check = [&row](const std::string& value, i32 wanted) {
            EXPECT_EQ(set(row.name, value),
                std::string("info string ") + row.name + " set to " + std::to_string(wanted)
                    + "\n");
            EXPECT_EQ(dialogue.engine_options.*row.field, wanted) << row.name << " " << value;
        };
        check(std::to_string(row.lowest), row.lowest);
        check(std::to_string(row.lowest - 1), row.lowest);
        check(std::to_string(row.highest), row.highest);
        check(std::to_string(row.highest + 1), row.highest);
        check(std::to_string(row.lowest + 1) + "abc", row.lowest + 1);
        check("99999999999999999999999", row.highest);
        check("-99999999999999999999999", row.lowest);
        check("4294967297", row.highest);
        check("", row.lowest > 0 ? row.lowest : 0);
        check("xyz", row.lowest > 0 ? row.lowest : 0);
        check(std::string(5000, '9'), row.highest);
    }
}

TEST_F(OptionsTest, HashIsHeldToItsRangeAndReallocates)
{
    EXPECT_EQ(set("Hash", "2"),
        "info string Hash set to 2\ninfo string allocated 2 Mbytes for hash table\n\n");
    EXPECT_EQ(hash.megabytes, 2);
    EXPECT_EQ(set("Hash", "2"), "info string Hash set to 2\n");
    EXPECT_EQ(set("Hash", "-7"),
        "info string Hash set to 0\ninfo string allocated 0 Mbytes for hash table\n\n");
    EXPECT_EQ(hash.slots, 0u);
    EXPECT_NE(hash.table, nullptr);
}

TEST_F(OptionsTest, ThreadsTakesZeroAndRestartsTheWorkers)
{
    EXPECT_EQ(set("Threads", "3"), "info string Threads set to 3\n");
    EXPECT_EQ(num_threads, 3);
    EXPECT_NE(load_acquire(workers[2]), nullptr);
    EXPECT_EQ(set("Threads", "0"), "info string Threads set to 0\n");
    EXPECT_EQ(num_threads, 0);
    EXPECT_EQ(dialogue.engine_options.threads, 0);
    EXPECT_EQ(set("Threads", "-3"), "info string Threads set to 0\n");
    EXPECT_EQ(set("Threads", "500"), "info string Threads set to 128\n");
    EXPECT_EQ(num_threads, 128);
}

TEST_F(OptionsTest, RestartingWorkersKeepsAResultThatIsNotReportedYet)
{
    set_workers(1);
    store(engine_state, EngineState::Thinking);
    store(stop_code, StopCode::Report);
    set("Threads", "2");
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_EQ(load(engine_state), EngineState::Thinking);
}

TEST_F(OptionsTest, ChecksLookForTrueAnywhereInLowerCase)
{
    const struct {
        const char* name;
        i16 EngineOptions::*field;
    } rows[] = {
        { "Ponder", &EngineOptions::ponder },
        { "OwnBook", &EngineOptions::own_book },
        { "UCI_LimitStrength", &EngineOptions::limit_strength },
    };
    for (const auto& row : rows) {
        const std::string reply = std::string("info string ") + row.name + " set to ";
        EXPECT_EQ(set(row.name, "true"), reply + "1\n");
        EXPECT_EQ(dialogue.engine_options.*row.field, 1);
        EXPECT_EQ(set(row.name, "TRUE"), reply + "0\n");
        EXPECT_EQ(dialogue.engine_options.*row.field, 0);
        EXPECT_EQ(set(row.name, "untrue"), reply + "1\n");
        EXPECT_EQ(dialogue.engine_options.*row.field, 1);
        EXPECT_EQ(set(row.name, ""), reply + "0\n");
        EXPECT_EQ(set(row.name, "1"), reply + "0\n");
        EXPECT_EQ(dialogue.engine_options.*row.field, 0);
    }
}

TEST_F(OptionsTest, WeightPairsKeepTheNumberThatIsMissing)
{
    const struct {
        const char* text;
        i32 first;
        i32 second;
    } rows[] = {
        { "300,10", 200, 20 },
        { "90", 90, 20 },
        { "100,110", 100, 110 },
        { "50,", 50, 110 },
        { ",70", 50, 70 },
        { "", 50, 70 },
        { ",", 50, 70 },
        { "60, 80", 60, 80 },
        { "61,81 90", 61, 81 },
        { "x,y", 20, 20 },
        { "-5,99999999999999999999", 20, 200 },
        { "120,130,140", 120, 130 },
        { "19,201", 20, 200 },
        { "20,200", 20, 200 },
    };
    for (const auto& row : rows) {
        EXPECT_EQ(set("Mtl_Pawn", row.text),
            "info string Mtl_Pawn set to " + std::to_string(row.first) + ","
                + std::to_string(row.second) + "\n")
            << row.text;
        EXPECT_EQ(dialogue.engine_options.scales.Mtl_Pawn[0], row.first) << row.text;
        EXPECT_EQ(dialogue.engine_options.scales.Mtl_Pawn[1], row.second) << row.text;
    }
}

TEST_F(OptionsTest, EveryWeightPairHasItsField)
{
    const struct {
        const char* name;
        WeightScale WeightScales::*field;
    } rows[] = {
        { "Mtl_Pawn", &WeightScales::Mtl_Pawn },
        { "Mtl_Knight", &WeightScales::Mtl_Knight },
        { "Mtl_Bishop", &WeightScales::Mtl_Bishop },
        { "Mtl_Rook", &WeightScales::Mtl_Rook },
        { "Mtl_Queen", &WeightScales::Mtl_Queen },
        { "Activity_Knight", &WeightScales::Activity_Knight },
        { "Activity_Bishop", &WeightScales::Activity_Bishop },
        { "Activity_Rook", &WeightScales::Activity_Rook },
        { "Activity_Queen", &WeightScales::Activity_Queen },
        { "Pawn_Structure", &WeightScales::Pawn_Structure },
        { "Passed_Pawns", &WeightScales::Passed_Pawns },
        { "King_Safety", &WeightScales::King_Safety },
        { "Threats", &WeightScales::Threats },
    };
    i32 value = 30;
    for (const auto& row : rows) {
        set(row.name, std::to_string(value) + "," + std::to_string(value + 1));
        EXPECT_EQ((dialogue.engine_options.scales.*row.field)[0], value) << row.name;
        EXPECT_EQ((dialogue.engine_options.scales.*row.field)[1], value + 1) << row.name;
        value += 2;
    }
}

TEST_F(OptionsTest, TextsAreCutToTheirField)
{
    const struct {
        const char* name;
        char (EngineOptions::*field)[file_option_size];
        const char* effect; // printed when the text is not empty
    } rows[] = {
        { "OwnBook_File", &EngineOptions::own_book_file, "" },
        { "OwnBook2_File", &EngineOptions::own_book2_file, "" },
        { "SyzygyPath", &EngineOptions::syzygy_path, "info string found 0 tablebases\n" },
        { "ConfigFilePath", &EngineOptions::config_file_path, "" },
    };
    for (const auto& row : rows) {
        for (const size_t length : { 0u, 1u, 143u, 144u, 200u, 5000u }) {
            const std::string value(length, 'n');
            const std::string kept = value.substr(0, 143);
            EXPECT_EQ(set(row.name, value),
                std::string("info string ") + row.name + " set to '" + kept + "'\n"
                    + (length > 0 ? row.effect : ""));
            EXPECT_EQ(dialogue.engine_options.*row.field, kept);
        }
    }
    EXPECT_EQ(dialogue.engine_options.syzygy_probe_depth5, 0);
}

TEST_F(OptionsTest, UnknownNamesDoNothing)
{
    const EngineOptions before = dialogue.engine_options;
    for (const char* name : { "", "hash", "HASH", "Hash ", " Hash", "Has", "Hashs", "Clear Hash",
             "value", "NMP_depth" }) {
        EXPECT_EQ(set(name, "7"), "") << name;
    }
    EXPECT_EQ(memcmp(&before, &dialogue.engine_options, sizeof before), 0);
}

TEST_F(OptionsTest, ClearHashEmptiesTheTable)
{
    set_workers(1);
    Position* pos = set_position(start_position);
    store_hash(pos, 1, 5, move_of("e2e4"), 10, -100, 100);
    EXPECT_EQ(set("Clear_Hash", ""), "info string Hash table cleared\n");
    HashEntry entry {};
    entry.depth = HashNotFound;
    probe_hash(pos, &entry);
    EXPECT_EQ(entry.depth, HashNotFound);
}

TEST_F(OptionsTest, LogOpensOnceAndStaysOpen)
{
    write_file("vesk.log", "old\n");
    EXPECT_EQ(set("Log", "true"), "info string Log set to 1\n");
    EXPECT_EQ(dialogue.engine_options.log, 1);
    EXPECT_EQ(set("Contempt", "3"), "info string Contempt set to 3\n");
    EXPECT_EQ(set("Log", "no"), "info string Log set to 0\n");
    log_line("it is still open");
    set("Contempt", "4");
    set("Log", "true");
    set("Contempt", "5");
    EXPECT_EQ(read_file("vesk.log"),
        "info string Contempt set to 3\ninfo string Log set to 0\n"
        "it is still open\ninfo string Contempt set to 5\n");
}

TEST_F(OptionsTest, ALogThatCannotBeReplacedSwitchesLoggingOff)
{
    ASSERT_EQ(system("mkdir vesk.log"), 0);
    EXPECT_EQ(set("Log", "true"), "info string Log set to 1\nlog file in use.\n");
    EXPECT_EQ(dialogue.engine_options.log, 0);
    EXPECT_FALSE(is_logging());
}

TEST_F(OptionsTest, WorkersSeeWhatWasSet)
{
    set("Contempt", "33");
    set("MultiPV", "4");
    set("SyzygyProbeDepth6", "9");
    EXPECT_EQ(load(contempt_rule.contempt), 33);
    EXPECT_EQ(load(search_settings.multi_pv), 4);
    EXPECT_EQ(load(search_settings.tb_depths.six), 9);
}

TEST_F(OptionsTest, ARunningSearchKeepsWhatItStartedWithButLogsAtOnce)
{
    set("Contempt", "33");
    SearchThread* busy = new_thread_record(0);
    ASSERT_NE(busy, nullptr);
    SearchThread* const old_worker = load(workers[0]);
    const i32 old_count = num_threads;
    store(busy->command, CommandSearch);
    store(workers[0], busy);
    num_threads = 1;
    set("Contempt", "44");
    dialogue.engine_options.log = 1;
    publish_options(&dialogue);
    EXPECT_EQ(load(contempt_rule.contempt), 33);
    EXPECT_TRUE(is_logging());

    store(busy->command, CommandIdle);
    dialogue.engine_options.log = 0;
    publish_options(&dialogue);
    EXPECT_EQ(load(contempt_rule.contempt), 44);
    store(workers[0], old_worker);
    num_threads = old_count;
    delete_thread_record(busy);
}

TEST_F(OptionsTest, AnnouncementShowsTheSavedValues)
{
    dialogue.saved_options.hash = 77;
    dialogue.saved_options.ponder = 0;
    dialogue.saved_options.scales.Threats[1] = 55;
    copy_text(dialogue.saved_options.own_book2_file, file_option_size, "b.bin");
    strength.estimated_elo = 2789.9;
    const std::string output = capture_output([] { announce_options(&dialogue); });
    for (const char* line : { "option name Hash type spin default 77 min 0 max 16384\n",
             "option name Ponder type check default false\n",
             "option name Threats type string default 100,55\n",
             "option name OwnBook2_File type string default b.bin\n",
             "option name OwnBook_File type string default \n",
             "option name Clear_Hash type button\n",
             "option name UCI_Elo type spin default 2789 min 1500 max 2789\n" }) {
        EXPECT_NE(output.find(line), std::string::npos) << line;
    }
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 34);
    EXPECT_EQ(dialogue.saved_options.elo, 2789);
    strength.estimated_elo = 2900.0;
    EXPECT_NE(capture_output([] {
        announce_options(&dialogue);
    }).find("UCI_Elo type spin default 2789 min 1500 max 2900\n"),
        std::string::npos);
}

TEST_F(OptionsTest, ConfigurationLines)
{
    const struct {
        const char* line;
        const char* reply;
    } rows[] = {
        { "Contempt = 5\n", "info string Contempt set to 5\n" },
        { "Contempt=5\n", "info string Contempt set to 5\n" },
        { "Contempt   =   16  # comment\n", "info string Contempt set to 16\n" },
        { " Contempt = 5\n", "" },
        { "Contempt\t=\t5\n", "" },
        { "# Contempt = 5\n", "" },
        { "Contempt # = 5\n", "" },
        { "Contempt 5\n", "" },
        { "=\n", "" },
        { "====\n", "" },
        { " = Contempt\n", "" },
        { "\n\n\n", "" },
        { "contempt = 5\n", "" },
        { "Contempt = \n", "info string Contempt set to 0\n" },
        { "Contempt = 5\nContempt = 6\n",
            "info string Contempt set to 5\ninfo string Contempt set to 6\n" },
        // The last character is taken for the line feed, even when it is none.
        { "Contempt = 56", "info string Contempt set to 5\n" },
        { "Ponder = true\n", "info string Ponder set to 1\n" },
        { "Mtl_Pawn = 100,110\n", "info string Mtl_Pawn set to 100,110\n" },
        { "OwnBook_File = a b = c\n", "info string OwnBook_File set to 'a b = c'\n" },
        // The comment is cut off a text too, and what is behind it is no part of the name.
        { "OwnBook_File = a.bin # b.bin\n", "info string OwnBook_File set to 'a.bin '\n" },
        { "OwnBook_File = a#b\n", "info string OwnBook_File set to 'a'\n" },
        // Blanks behind the value stay.
        { "OwnBook_File = a  \n", "info string OwnBook_File set to 'a  '\n" },
    };
    for (const auto& row : rows) {
        EXPECT_EQ(replies(row.line), row.reply) << row.line;
    }
}

TEST_F(OptionsTest, LinesOfThreeCharactersAreSkipped)
{
    // With a name so short nothing could be set, so what counts is that neither is an error.
    EXPECT_EQ(replies("a=1\na=\n=\n\nContempt = 4\n"), "info string Contempt set to 4\n");
}

TEST_F(OptionsTest, LongConfigurationLinesAreReadInPieces)
{
    // The piece of 254 characters loses its last one; what follows is a line of its own.
    const std::string value(254 - 15, 'v');
    EXPECT_EQ(replies("OwnBook_File = " + value + "Contempt = 9\n"),
        "info string OwnBook_File set to '" + value.substr(0, 143)
            + "'\ninfo string Contempt set to 9\n");
    EXPECT_EQ(replies(std::string(100000, 'x') + "\n"), "");
    EXPECT_EQ(replies(std::string(120, 'n') + " = " + std::string(230, 'v') + "\n"), "");
}

TEST_F(OptionsTest, BinaryConfigurationIsHarmless)
{
    std::string bytes;
    u64 state = 5;
    for (i32 i = 0; i < 20000; ++i) {
        bytes += static_cast<char>(next_random(&state, 256));
    }
    replies(bytes);
    EXPECT_EQ(replies(std::string("Contempt = 7\0junk\nContempt = 8\n", 31)),
        "info string Contempt set to 0\ninfo string Contempt set to 8\n");
}

TEST_F(OptionsTest, LoadingAFileSavesAndAsksForNewTables)
{
    dialogue.engine_options.params_changed = 0;
    EXPECT_EQ(load_config("Contempt = 21\n"),
        "info string loading parameters from test.cfg\ninfo string Contempt set to 21\n");
    EXPECT_EQ(dialogue.engine_options.params_changed, 1);
    EXPECT_EQ(dialogue.saved_options.contempt, 21);
    EXPECT_EQ(dialogue.saved_options.params_changed, 1);
    EXPECT_STREQ(dialogue.saved_options.config_file_path, "test.cfg");
}

TEST_F(OptionsTest, AFileThatCannotBeReadIsPassedOver)
{
    EXPECT_EQ(set("ConfigFilePath", "no/such/file"),
        "info string ConfigFilePath set to 'no/such/file'\n");
    EXPECT_STREQ(dialogue.engine_options.config_file_path, "no/such/file");
    EXPECT_EQ(dialogue.engine_options.params_changed, 0);
    EXPECT_EQ(load_config_file(&dialogue), 0);
    ASSERT_EQ(system("mkfifo pipe.cfg"), 0);
    EXPECT_EQ(set("ConfigFilePath", "pipe.cfg"), "info string ConfigFilePath set to 'pipe.cfg'\n");
    EXPECT_EQ(set("ConfigFilePath", "."), "info string ConfigFilePath set to '.'\n");
}

TEST_F(OptionsTest, AFileMayLoadAnother)
{
    write_file("inner.cfg", "Contempt = 31\n");
    EXPECT_EQ(replies("ConfigFilePath = inner.cfg\nSelectivity = 50\n"),
        "info string ConfigFilePath set to 'inner.cfg'\n"
        "info string loading parameters from inner.cfg\n"
        "info string Contempt set to 31\n"
        "info string Selectivity set to 50\n");
}

TEST_F(OptionsTest, AFileThatLoadsItselfComesToAnEnd)
{
    const std::string output = load_config("ConfigFilePath = test.cfg\nContempt = 2\n");
    size_t loads = 0;
    for (size_t at = 0; (at = output.find("loading", at)) != std::string::npos; ++at) {
        ++loads;
    }
    EXPECT_EQ(loads, 8u);
    // The next one loads as ever.
    EXPECT_EQ(replies("Contempt = 3\n"), "info string Contempt set to 3\n");
}

TEST_F(OptionsTest, FilesThatNameEachOtherOnManyLinesComeToAnEnd)
{
    std::string lines;
    for (int i = 0; i < 30; ++i) {
        lines += "ConfigFilePath = test.cfg\n";
    }
    const std::string output = load_config(lines.c_str());
    size_t loads = 0;
    for (size_t at = 0; (at = output.find("loading", at)) != std::string::npos; ++at) {
        ++loads;
    }
    EXPECT_EQ(loads, 64u);
}

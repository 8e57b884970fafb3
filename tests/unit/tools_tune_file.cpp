// Making a training file: which lines are used, what is written for them, and damaged input.
#include <cstdio>
#include <string>

#include "tools_support.h"
#include "base/files.h"
#include "base/output.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/result.h"
#include "shell/weights_file.h"

struct TuneFileTest : ToolTest {
    void SetUp() override
    {
        ToolTest::SetUp();
        set_workers(1);
        store(noise, silent_noise);
        store(dialogue.limits.depth_limit, 0); // the quiescence search alone
    }

    static ToolRun make_file(const std::string& text)
    {
        write_file("games.epd", text);
        return run_tool([] { make_tune_file(&dialogue, "games.epd"); });
    }

    static std::string written(const std::string& text)
    {
        make_file(text);
        return read_file("tune_new.epd");
    }

    // Whether a quiet, level position with these operations is written as it stands.
    static bool is_used(const std::string& operations)
    {
        const std::string lines = written(quiet + (" bm e4; " + operations) + "\n");
        EXPECT_TRUE(lines.empty() || lines.rfind(std::string(quiet) + " ce ", 0) == 0) << lines;
        return !lines.empty();
    }

    static constexpr const char* quiet = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
};

TEST_F(TuneFileTest, FileWithoutResultsGivesAnEmptyOne)
{
    const ToolRun run = make_file(repeat(3, std::string(quiet) + " bm e4; ce 10;\n"));
    EXPECT_EQ(run.out, "Creating file tune_new.epd\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(exists("tune_new.epd"));
    EXPECT_EQ(read_file("tune_new.epd"), "");
    EXPECT_EQ(exit_status, 0);
}

TEST_F(TuneFileTest, ScoresThatContradictTheResultAreSkipped)
{
    EXPECT_FALSE(is_used("ce 300; gr 0.5;"));
    EXPECT_TRUE(is_used("ce 200; gr 0.5;"));
    EXPECT_TRUE(is_used("ce 250; gr 0.5;"));
    EXPECT_FALSE(is_used("ce 251; gr 0.5;"));
    EXPECT_TRUE(is_used("ce -250; gr 0.5;"));
    EXPECT_FALSE(is_used("ce -251; gr 0.5;"));
    EXPECT_TRUE(is_used("ce -100; gr 1.0;"));
    EXPECT_FALSE(is_used("ce -101; gr 1.0;"));
    EXPECT_TRUE(is_used("ce 100; gr 0.0;"));
    EXPECT_FALSE(is_used("ce 101; gr 0.0;"));
    EXPECT_TRUE(is_used("ce 1200; gr 1.0;"));
    EXPECT_FALSE(is_used("ce 1201; gr 1.0;"));
    EXPECT_TRUE(is_used("ce -1200; gr 0.0;"));
    EXPECT_FALSE(is_used("ce -1201; gr 0.0;"));
    EXPECT_TRUE(is_used("ce 1200; gr 0.4;")); // the score is judged at a whole result only
    EXPECT_EQ(exit_status, 0);
}

TEST_F(TuneFileTest, ResultsOutOfRangeAreSkipped)
{
    EXPECT_FALSE(is_used("ce 0; gr 1.1;"));
    EXPECT_FALSE(is_used("ce 0; gr -0.1;"));
    EXPECT_FALSE(is_used("ce 0; gr inf;"));
    EXPECT_TRUE(is_used("ce 0; gr 0.7;"));
    EXPECT_TRUE(is_used("gr 0.5;"));    // no score is 0
    EXPECT_TRUE(is_used("ce 0; gr ;")); // no number is 0
    EXPECT_TRUE(is_used("ce 0; gr nan;"));
    EXPECT_TRUE(is_used("ce 0; gr 0.5"));
    EXPECT_FALSE(is_used("ce 0;gr 0.5;")); // a blank must stand in front
    // Fifteen characters count: what is cut to 0 is a loss, which a score of 200 contradicts.
    EXPECT_TRUE(is_used("ce 200; gr 0.0000000000001;"));
    EXPECT_FALSE(is_used("ce 200; gr 0.00000000000001;"));
}

TEST_F(TuneFileTest, LineIsWrittenWithTheScoreAndResultOfTheSource)
{
    EXPECT_EQ(written(std::string(quiet) + " bm e4; ce 17; gr 0.5;\n"),
        std::string(quiet) + " ce 17; gr 0.5;\n");
    EXPECT_EQ(written(std::string(quiet) + " ce 17; gr 0.25;\n"),
        std::string(quiet) + " ce 17; gr 0.2;\n");
}

TEST_F(TuneFileTest, LineOfOneMoveTurnsScoreAndResult)
{
    EXPECT_EQ(written("k7/7p/8/3q4/4P3/8/7P/K7 w - - ce 30; gr 1.0;\n"),
        "k7/7p/8/3P4/8/8/7P/K7 b - - ce -30; gr 0.0;\n");
    EXPECT_EQ(written("k7/7p/8/3q4/4P3/8/7P/K7 w - - ce 0; gr 0.7;\n"),
        "k7/7p/8/3P4/8/8/7P/K7 b - - ce 0; gr 0.3;\n");
}

TEST_F(TuneFileTest, LineOfTwoMovesKeepsScoreAndResult)
{
    EXPECT_EQ(written("k7/7p/4p3/3q4/8/8/7P/K2R4 w - - ce 30; gr 1.0;\n"),
        "k7/7p/8/3p4/8/8/7P/K7 w - - ce 30; gr 1.0;\n");
}

TEST_F(TuneFileTest, MateScoresAreNotWritten)
{
    store(dialogue.limits.depth_limit, 3);
    EXPECT_EQ(written("6k1/5ppp/8/8/8/8/8/K2R4 w - - ce 10; gr 1.0;\n"), "");
    EXPECT_EQ(written("7k/5KQ1/8/8/8/8/8/8 b - - ce 10; gr 0.0;\n"), ""); // mated already
}

TEST_F(TuneFileTest, PositionInCheckIsNotWrittenWithoutDepth)
{
    EXPECT_EQ(written("4k3/4r3/8/8/8/8/8/4K2R w - - ce 10; gr 0.5;\n"), "");
    store(dialogue.limits.depth_limit, 1);
    EXPECT_NE(written("4k3/4r3/8/8/8/8/8/4K2R w - - ce 10; gr 0.5;\n"), "");
}

TEST_F(TuneFileTest, LostSearchScoresAreNotWritten)
{
    EXPECT_EQ(written("qqqqk3/8/8/8/8/8/8/4K3 w - - ce 0; gr 0.5;\n"), "");
}

// The start position is worth its right to move alone, so the search gives that weight.
TEST_F(TuneFileTest, SearchScoresUpToTheLargestAreUsed)
{
    const auto is_used_at = [](i32 score) {
        set_weight(stm_bonus, score, score);
        EXPECT_EQ(save_params_file(params_file), 0);
        const bool used = is_used("ce 0; gr 0.5;");
        EXPECT_EQ(load(search_result.result_score), score);
        return used;
    };
    EXPECT_TRUE(is_used_at(1200));
    EXPECT_FALSE(is_used_at(1201));
    EXPECT_TRUE(is_used_at(-1200));
    EXPECT_FALSE(is_used_at(-1201));
    remove(params_file);
    build_weights(NormalWeights);
}

TEST_F(TuneFileTest, HashTableIsNotUsed)
{
    make_file("");
    EXPECT_EQ(load(hash.mode), 0);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
}

TEST_F(TuneFileTest, CommentsAreSkipped)
{
    const std::string line = std::string(quiet) + " ce 17; gr 0.5;\n";
    EXPECT_EQ(written("#" + line + ";" + line + " " + line + "\n"), "");
    EXPECT_EQ(written("#" + line + line), line);
}

TEST_F(TuneFileTest, ProgressIsPrintedEvery4096Positions)
{
    const std::string line = std::string(quiet) + " ce 17; gr 0.5;\n";
    EXPECT_EQ(make_file(line).out, "Creating file tune_new.epd\n n= 0\n");
    EXPECT_EQ(make_file(repeat(4096, line)).out, "Creating file tune_new.epd\n n= 0\n");
    EXPECT_EQ(make_file(repeat(4097, line)).out, "Creating file tune_new.epd\n n= 0\n n= 4096\n");
}

TEST_F(TuneFileTest, QuitIsReadEvery256Positions)
{
    const std::string line = std::string(quiet) + " ce 17; gr 0.5;\n";
    write_file("games.epd", repeat(300, line));
    const FedInput input;
    input.feed("quit\n");
    capture_output([] { make_tune_file(&dialogue, "games.epd"); });
    EXPECT_EQ(count_lines(read_file("tune_new.epd")), 255);
}

TEST_F(TuneFileTest, CommandsTypedMeanwhileDoNotChangeTheLimits)
{
    write_file("games.epd", repeat(300, std::string(quiet) + " ce 17; gr 0.5;\n"));
    const FedInput input;
    input.feed("go depth 4\n");
    const f64 seconds = dialogue.limits.tc_seconds;
    capture_output([] { make_tune_file(&dialogue, "games.epd"); });
    EXPECT_EQ(load(dialogue.limits.depth_limit), 0);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_seconds, seconds);
    EXPECT_EQ(read_file("tune_new.epd"), repeat(300, std::string(quiet) + " ce 17; gr 0.5;\n"));
}

TEST_F(TuneFileTest, CommandThatSetsUpAPositionDoesNotChangeTheLines)
{
    const std::string line = "k7/7p/8/3q4/4P3/8/7P/K7 w - - ce 30; gr 1.0;\n";
    write_file("games.epd", repeat(300, line));
    const FedInput input;
    input.feed("position startpos\n");
    capture_output([] { make_tune_file(&dialogue, "games.epd"); });
    EXPECT_EQ(
        read_file("tune_new.epd"), repeat(300, "k7/7p/8/3P4/8/8/7P/K7 b - - ce -30; gr 0.0;\n"));
}

TEST_F(TuneFileTest, CastlingRightWithoutItsRookEndsTheReading)
{
    const std::string good = std::string(quiet) + " ce 17; gr 0.5;\n";
    const std::string bad = "4k3/8/8/8/8/8/8/4K3 w K - ce 0; gr 0.5;";
    const ToolRun run = make_file(good + bad + "\n" + good);
    EXPECT_EQ(run.out, "Creating file tune_new.epd\n n= 0\nIllegal EPD - \n" + bad + "\n");
    EXPECT_EQ(run.errors,
        "games.epd:2: a castling right has no king or rook at home, the file is not read on\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("tune_new.epd"), good);
    // Lines without a result are looked at too.
    EXPECT_EQ(written("4k3/8/8/8/8/8/8/4K3 w K - ce 0;\n" + good), "");
}

TEST_F(TuneFileTest, PositionThatCannotBeSearchedIsRefused)
{
    const std::string good = std::string(quiet) + " ce 17; gr 0.5;\n";
    const ToolRun run = make_file("8/8/8/8/8/8/8/K7 w - - ce 0; gr 0.5;\n" + good);
    EXPECT_EQ(run.errors, "games.epd:1: each side needs exactly one king\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("tune_new.epd"), good);
}

TEST_F(TuneFileTest, CarriageReturnsChangeNothing)
{
    EXPECT_EQ(written(std::string("\xef\xbb\xbf") + quiet + " ce 17; gr 0.5;\r\n"),
        std::string(quiet) + " ce 17; gr 0.5;\n");
}

TEST_F(TuneFileTest, RestOfALongLineIsLeftOut)
{
    const std::string good = std::string(quiet) + " ce 17; gr 0.5;";
    const ToolRun run = make_file(good + std::string(1000000, 'x') + " w K -\n" + good + "\n");
    EXPECT_EQ(run.errors, "games.epd:1: only the first 254 characters of a line are read\n");
    EXPECT_EQ(count_lines(read_file("tune_new.epd")), 2);
}

TEST_F(TuneFileTest, RandomBytesEndSafely)
{
    u64 state = 17;
    for (i32 round = 0; round < 50; ++round) {
        std::string bytes = std::string(quiet) + " ce 17; gr 0.5;";
        for (u32 count = next_random(&state, 20); count > 0; --count) {
            bytes[next_random(&state, static_cast<u32>(bytes.size()))] =
                static_cast<char>(next_random(&state, 256));
        }
        EXPECT_TRUE(contains(make_file(bytes + "\n").out, "Creating file"));
    }
}

// ---- Files

TEST_F(TuneFileTest, MissingFileEndsWithStatusZero)
{
    const ToolRun run = run_tool([] { make_tune_file(&dialogue, "missing.epd"); });
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.errors, "missing.epd: cannot be opened: No such file or directory\n");
    EXPECT_EQ(exit_status, 0);
    EXPECT_FALSE(exists("tune_new.epd"));
}

TEST_F(TuneFileTest, OutputThatCannotBeOpenedEndsTheRun)
{
    block("tune_new.epd.part");
    const ToolRun run = make_file(quiet);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.errors, "tune_new.epd: cannot be opened for writing: File exists\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(TuneFileTest, FullDiskLeavesTheOldFile)
{
    write_file("tune_new.epd", "old");
    write_file("games.epd", repeat(100, std::string(quiet) + " ce 17; gr 0.5;\n"));
    const ToolRun run = run_on_full_disk([] { make_tune_file(&dialogue, "games.epd"); });
    EXPECT_EQ(run.errors, "tune_new.epd: cannot be written: File too large\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("tune_new.epd"), "old");
    EXPECT_FALSE(exists("tune_new.epd.part"));
}

// The runner of test suites: which lines are positions, how the engine's move is judged, which
// search runs, the table of totals, and damaged input.
#include <cmath>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <sstream>
#include <string>

#include "tools_support.h"
#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"

// Takes a while even at little depth; the best move mates.
static const char* const busy = "1k1r4/pp1b1R2/3q2pp/4p3/2B5/4Q3/PPP2B2/2K5 b - - bm Qd1+;";

// White mates by Rd8+ and nothing else is as good.
static const char* const mate = "6k1/5ppp/8/8/8/8/8/K2R4 w - -";

struct EpdRunnerTest : ToolTest {
    void SetUp() override
    {
        ToolTest::SetUp();
        set_workers(1);
        store(noise, silent_noise);
        store(dialogue.limits.depth_limit, 3);
    }

    static ToolRun run_file(const std::string& name)
    {
        return run_tool([&] { run_epd_test(&dialogue, name.c_str()); });
    }

    static ToolRun run(const std::string& text)
    {
        write_file("suite.epd", text);
        return run_file("suite.epd");
    }

    // The line of the report with the correct moves, of one position with these operations.
    static std::string judged(const std::string& operations)
    {
        return line_of(run(std::string(mate) + " " + operations + "\n").out, 1);
    }

    // The line with the points.
    static std::string points(const std::string& operations)
    {
        return line_of(run(std::string(mate) + " " + operations + "\n").out, 8);
    }

    static std::string line_of(const std::string& text, i32 index)
    {
        std::istringstream lines(text);
        std::string line;
        for (i32 i = 0; i <= index; ++i) {
            std::getline(lines, line);
        }
        return line;
    }

    static f64 cpu_seconds(clockid_t clock)
    {
        timespec now = {};
        EXPECT_EQ(clock_gettime(clock, &now), 0);
        return static_cast<f64>(now.tv_sec) + 1e-9 * static_cast<f64>(now.tv_nsec);
    }

    // Whether another thread than this one did most of the work. Processor time tells that on a
    // busy machine too, where whole searches may pass before this thread looks at anything.
    static bool runs_on_workers()
    {
        write_file("suite.epd", repeat(20, std::string(busy) + "\n"));
        const f64 own = cpu_seconds(CLOCK_THREAD_CPUTIME_ID);
        const f64 all = cpu_seconds(CLOCK_PROCESS_CPUTIME_ID);
        run_file("suite.epd");
        const f64 share = (cpu_seconds(CLOCK_THREAD_CPUTIME_ID) - own)
            / (cpu_seconds(CLOCK_PROCESS_CPUTIME_ID) - all);
        return share < 0.5;
    }
};

// ---- Judging

TEST_F(EpdRunnerTest, AnyOfSeveralBestMovesCounts)
{
    EXPECT_EQ(judged("bm Rd8+;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm Kb1;"), "0 / 1 correct best moves");
    EXPECT_EQ(judged("bm Kb1 Rd8;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm Rd8 Kb1;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm Kb1,Rd8;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm Kb1, Rd8+, Rd2;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm \"Kb1 Rd8\";"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm d1d8;"), "1 / 1 correct best moves");
    EXPECT_EQ(exit_status, 0);
}

TEST_F(EpdRunnerTest, MoveThatIsListedTwiceCountsOnce)
{
    EXPECT_EQ(judged("bm Rd8 d1d8;"), "1 / 1 correct best moves");
}

TEST_F(EpdRunnerTest, AvoidingIsCorrect)
{
    EXPECT_EQ(judged("am Kb1;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("am Rd8;"), "0 / 1 correct best moves");
    EXPECT_EQ(judged("am Kb1 Rd2;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("am Kb1, Rd8;"), "0 / 1 correct best moves");
    EXPECT_EQ(judged("am Kb1 xx;"), "0 / 1 correct best moves");
}

TEST_F(EpdRunnerTest, BestMovesHideMovesToAvoid)
{
    EXPECT_EQ(judged("bm Kb1; am Kb1;"), "0 / 1 correct best moves");
    EXPECT_EQ(judged("am Rd8; bm Rd8;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm ; am Kb1;"), "1 / 1 correct best moves");
}

TEST_F(EpdRunnerTest, LineWithoutAMoveIsSearchedAndNotCorrect)
{
    EXPECT_EQ(judged(""), "0 / 1 correct best moves");
    EXPECT_EQ(judged("id \"a\";"), "0 / 1 correct best moves");
    EXPECT_EQ(judged("0 1 bm Rd8;"), "1 / 1 correct best moves");
    EXPECT_EQ(judged("bm Rd8"), "0 / 1 correct best moves"); // never closed
}

TEST_F(EpdRunnerTest, UnreadableBestMoveIsNotFoundAndIsNamed)
{
    const ToolRun run_with = run(std::string("# comment\n") + mate + " bm Rd9, Rd8;\n");
    EXPECT_EQ(line_of(run_with.out, 1), "1 / 1 correct best moves");
    EXPECT_EQ(run_with.errors, "suite.epd:2: move 'Rd9' of bm cannot be read\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(EpdRunnerTest, PointsOfAListAreAdded)
{
    EXPECT_EQ(points("c0 \"Kb1=10, Rd8=5\";"), "score= 5 / 10");
    EXPECT_EQ(points("c0 \"Kb1=10,Rd8+=10,Rd2=3\";"), "score= 10 / 10");
    EXPECT_EQ(points("c0 Kb1=10 Rd8=7;"), "score= 7 / 10");
    EXPECT_EQ(points("c0 \"Rd8\";"), "score= 0 / 0");
    EXPECT_EQ(points("c0 \"a comment, Rd8=4\";"), "score= 4 / 4");
    EXPECT_EQ(points("c0 \"Rd8=\";"), "score= 0 / 0");
    EXPECT_EQ(points("c0 \"Rd8=2147483647\";"), "score= 2147483647 / 2147483647");
    EXPECT_EQ(line_of(run(repeat(2, std::string(mate) + " c0 \"Rd8=99999999999\";\n")).out, 8),
        "score= 4294967294 / 4294967294");
}

TEST_F(EpdRunnerTest, PointsOfAPromotionStandBehindTheLastEqualsSign)
{
    const ToolRun promotion =
        run("6k1/P4ppp/8/8/8/8/8/K7 w - - c0 \"a8=Q=8, a8=R=8, a8=N=1, Kb1=9\";\n");
    EXPECT_EQ(line_of(promotion.out, 8), "score= 8 / 9");
    EXPECT_EQ(promotion.errors, "");
}

// ---- Lines

TEST_F(EpdRunnerTest, CommentsAndShortLinesAreNoPositions)
{
    const std::string line = std::string(mate) + " bm Rd8;\n";
    EXPECT_EQ(line_of(run(" " + line + "#" + line + ";" + line + "\n12345678\n" + line).out, 1),
        "1 / 1 correct best moves");
    EXPECT_EQ(exit_status, 0);
    // Nine characters with the line feed are too few, ten are taken for a position.
    EXPECT_EQ(run("123456789\n").errors, "suite.epd:1: each side needs exactly one king\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(EpdRunnerTest, CarriageReturnsAndByteOrderMarkChangeNothing)
{
    const ToolRun with_marks =
        run(std::string("\xef\xbb\xbf") + mate + " bm Rd8;\r\n" + mate + "\r\n");
    EXPECT_EQ(line_of(with_marks.out, 1), "1 / 2 correct best moves");
    EXPECT_EQ(with_marks.errors, "");
    EXPECT_EQ(read_file("analysis.epd"),
        std::string(mate) + " bm d1d8; ce 9998;\n" + mate + " bm d1d8; ce 9998;\n");
}

TEST_F(EpdRunnerTest, RestOfALongLineIsLeftOut)
{
    const std::string line =
        std::string(mate) + " bm Rd8; id \"" + std::string(1000000, 'x') + "\";\n";
    const ToolRun run_with = run(line + mate + " bm Kb1;\n");
    EXPECT_EQ(line_of(run_with.out, 1), "1 / 2 correct best moves");
    EXPECT_EQ(run_with.errors, "suite.epd:1: only the first 511 characters of a line are read\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(EpdRunnerTest, LineThatJustFitsIsNoLongLine)
{
    const std::string start = std::string(mate) + " bm Rd8; id \"";
    const std::string filler(511 - start.size() - 2, 'x');
    EXPECT_EQ(run(start + filler + "\";\n").errors, "");
    EXPECT_EQ(run(start + filler + "\";\r\n").errors, "");
    EXPECT_NE(run(start + filler + "x\";\n").errors, "");
}

TEST_F(EpdRunnerTest, PositionThatCannotBeSearchedIsRefused)
{
    const ToolRun run_with = run("8/8/8/8/8/8/8/K7 w - - bm Kb1;\n" + std::string(mate)
        + " bm Rd8;\nnot a position at all\n");
    EXPECT_EQ(line_of(run_with.out, 1), "1 / 1 correct best moves");
    EXPECT_EQ(run_with.errors,
        "suite.epd:1: each side needs exactly one king\n"
        "suite.epd:3: each side needs exactly one king\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(EpdRunnerTest, MatedAndStalematedSidesAreCountedWithoutAMove)
{
    const ToolRun run_with = run("7k/5KQ1/8/8/8/8/8/8 b - - bm Kh7;\n7k/5Q2/6K1/8/8/8/8/8 b - -\n");
    EXPECT_EQ(line_of(run_with.out, 1), "0 / 2 correct best moves");
    EXPECT_EQ(read_file("analysis.epd"), "");
}

TEST_F(EpdRunnerTest, BinaryFileEndsSafely)
{
    u64 state = 5;
    for (i32 round = 0; round < 50; ++round) {
        std::string bytes;
        for (u32 size = next_random(&state, 5000); size > 0; --size) {
            bytes += static_cast<char>(next_random(&state, 256));
        }
        EXPECT_TRUE(contains(run(bytes).out, " correct best moves\n"));
    }
}

TEST_F(EpdRunnerTest, UnclosedQuotesAndOperationsEndSafely)
{
    const std::string line =
        std::string(mate) + " bm \"Rd8; am \"Kb1; c0 \"Rd8=5, id \"x; ce 12; c9";
    for (size_t size = 0; size <= line.size(); ++size) {
        EXPECT_TRUE(contains(run(line.substr(0, size)).out, " correct best moves\n"));
    }
    EXPECT_EQ(line_of(run(line).out, 1), "1 / 1 correct best moves");
}

// ---- The search

TEST_F(EpdRunnerTest, DepthOfSixRunsOnTheWorkersAndFiveDoesNot)
{
    store(dialogue.limits.depth_limit, 5);
    EXPECT_FALSE(runs_on_workers());
    store(dialogue.limits.depth_limit, 6);
    EXPECT_TRUE(runs_on_workers());
}

TEST_F(EpdRunnerTest, FewNodesRunWithoutTheWorkers)
{
    store(dialogue.limits.depth_limit, 7);
    dialogue.limits.node_limit_total = 1;
    EXPECT_FALSE(runs_on_workers());
    dialogue.limits.node_limit_total = 99999;
    EXPECT_FALSE(runs_on_workers());
    dialogue.limits.node_limit_total = 100000;
    EXPECT_TRUE(runs_on_workers());
    dialogue.limits.node_limit_total = 0;
    EXPECT_TRUE(runs_on_workers());
}

TEST_F(EpdRunnerTest, InputIsReadWhileTheWorkersSearch)
{
    store(dialogue.limits.depth_limit, deepest_limit); // the five seconds of a move end it
    write_file("suite.epd", repeat(2, std::string(start_position) + "\n"));
    const FedInput input;
    input.feed("quit\n");
    const std::string out = capture_output([] { run_epd_test(&dialogue, "suite.epd"); });
    dialogue.quit_flag = false;
    EXPECT_EQ(line_of(out, 1), "0 / 1 correct best moves");
}

TEST_F(EpdRunnerTest, ShortSearchesLookAtTheInputEvery256thPosition)
{
    store(dialogue.limits.depth_limit, 1);
    write_file("suite.epd", repeat(300, std::string(mate) + " bm Rd8;\n"));
    const FedInput input;
    input.feed("quit\n");
    const std::string out = capture_output([] { run_epd_test(&dialogue, "suite.epd"); });
    EXPECT_EQ(line_of(out, 1), "255 / 255 correct best moves");
}

TEST_F(EpdRunnerTest, DepthOfTwoSwitchesTheHashTableOff)
{
    store(dialogue.limits.depth_limit, 3);
    run(std::string(mate) + "\n");
    EXPECT_EQ(load(hash.mode), 1);
    store(dialogue.limits.depth_limit, 2);
    run("");
    EXPECT_EQ(load(hash.mode), 0);
}

TEST_F(EpdRunnerTest, EachPositionStartsFromAnEmptyHashTable)
{
    const std::string line = std::string(busy) + "\n";
    for (const i8 depth : { i8 { 5 }, i8 { 8 } }) {
        store(dialogue.limits.depth_limit, depth);
        const std::string once = line_of(run(line).out, 2);
        const std::string twice = line_of(run(line + line).out, 2);
        i64 nodes = 0;
        EXPECT_EQ(sscanf(once.c_str(), "total nodes= %ld", &nodes), 1);
        EXPECT_EQ(twice, "total nodes= " + std::to_string(2 * nodes));
    }
}

TEST_F(EpdRunnerTest, ShortSearchOfSeveralLinesTellsTheScoreOfTheLastOne)
{
    // The calling thread's last score counts, and that is the last line's. The workers' result is
    // that of the best line.
    dialogue.engine_options.multi_pv = 2;
    publish_options(&dialogue);
    store(noise, 0.0);
    const auto scores = [](i32 line, const std::string& out) {
        i32 depth = load(dialogue.limits.depth_limit);
        i32 score = -1;
        i32 told = -2;
        const std::string start =
            "info multipv " + std::to_string(line) + " depth " + std::to_string(depth) + " ";
        const size_t at = out.find(start);
        EXPECT_NE(at, std::string::npos);
        sscanf(out.c_str() + out.find("score cp ", at), "score cp %d", &score);
        sscanf(out.c_str() + out.find("score= ", at), "score= %d", &told);
        EXPECT_EQ(told, score) << out;
        EXPECT_EQ(out.rfind("info multipv 1 "), out.rfind("info ")) << out;
        return score;
    };
    const std::string line =
        "r1bq1rk1/2p1bppp/p1np1n2/1p2p3/4P3/1BP2N2/PP1P1PPP/RNBQR1K1 w - - bm a4;\n";
    store(dialogue.limits.depth_limit, 4);
    scores(2, run(line).out);
    store(dialogue.limits.depth_limit, 6);
    scores(1, run(line).out);
    dialogue.engine_options.multi_pv = 1;
    publish_options(&dialogue);
}

TEST_F(EpdRunnerTest, DepthThatIsReachedCounts)
{
    // A mate that is proven ends the search before the limit.
    store(dialogue.limits.depth_limit, 5);
    const std::string out = run(std::string(mate) + "\n").out;
    EXPECT_GT(search_result.result_depth, 0);
    EXPECT_LT(search_result.result_depth, 5);
    EXPECT_EQ(line_of(out, 4), "avg depth= " + std::to_string(search_result.result_depth) + ".0");
}

TEST_F(EpdRunnerTest, TimeOfAPositionIsItsLimit)
{
    store(dialogue.limits.depth_limit, 66);
    dialogue.limits.tc_seconds = 0.2;
    const ToolRun run_with =
        run("r1bq1rk1/2p1bppp/p1np1n2/1p2p3/4P3/1BP2N2/PP1P1PPP/RNBQR1K1 w - -\n");
    f64 seconds = 0.0;
    ASSERT_EQ(sscanf(line_of(run_with.out, 3).c_str(), "total time= %lf", &seconds), 1);
    EXPECT_GE(seconds, 0.2);
    EXPECT_LT(seconds, 2.0);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
}

TEST_F(EpdRunnerTest, CommandsDuringASearchDoNotChangeTheJudgement)
{
    store(dialogue.limits.depth_limit, 6);
    write_file("suite.epd", repeat(3, std::string(busy) + " c0 \"Qd1=2\";\n"));
    const FedInput input;
    input.feed("position startpos\nposition startpos moves e2e4\nisready\n");
    const std::string out = capture_output([] { run_epd_test(&dialogue, "suite.epd"); });
    EXPECT_TRUE(contains(out, "3 / 3 correct best moves\n")) << out;
    EXPECT_TRUE(contains(out, "score= 6 / 6\n")) << out;
}

TEST_F(EpdRunnerTest, CommandsDuringASearchChangeTheLimitsOfNoOtherPosition)
{
    store(dialogue.limits.depth_limit, 7);
    dialogue.limits.node_limit_total = 200000;
    const f64 seconds = dialogue.limits.tc_seconds;
    write_file("suite.epd", repeat(3, std::string(busy) + "\n"));
    const FedInput input;
    input.feed("go infinite winc 1000\nucinewgame\n");
    capture_output([] { run_epd_test(&dialogue, "suite.epd"); });
    EXPECT_EQ(load(dialogue.limits.depth_limit), 7);
    EXPECT_EQ(dialogue.limits.node_limit_total, 200000);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_seconds, seconds);
    EXPECT_EQ(dialogue.limits.tc_increment, 0.0);
}

// ---- Output

TEST_F(EpdRunnerTest, QuietRunPrintsHeaderAndTableAlone)
{
    const ToolRun quiet = run(std::string(mate) + " bm Rd8;\n");
    const std::string head = "Analyzing suite.epd...\n1 / 1 correct best moves\ntotal nodes= ";
    EXPECT_EQ(quiet.out.substr(0, head.size()), head);
    EXPECT_EQ(count_lines(quiet.out), 10);
    EXPECT_EQ(quiet.out.substr(quiet.out.size() - 14), "score= 0 / 0\n\n");
    EXPECT_EQ(read_file("analysis.epd"), std::string(mate) + " bm d1d8; ce 9998;\n");
}

TEST_F(EpdRunnerTest, TableWithoutAPosition)
{
    EXPECT_EQ(run("").out,
        "Analyzing suite.epd...\n0 / 0 correct best moves\ntotal nodes= 0\n"
        "total time= 0.00 seconds\navg depth= 0.0\navg nodes= 0.0\nnode_rate= 0\navg bf= 0.00\n"
        "score= 0 / 0\n\n");
    EXPECT_EQ(exit_status, 0);
    EXPECT_TRUE(exists("analysis.epd"));
}

TEST_F(EpdRunnerTest, TableAddsUpThePositions)
{
    // Without an output threshold each position tells its own figures.
    store(noise, 0.0);
    store(dialogue.limits.depth_limit, 4);
    const std::string line =
        "r1bq1rk1/2p1bppp/p1np1n2/1p2p3/4P3/1BP2N2/PP1P1PPP/RNBQR1K1 w - - bm a4;";
    const std::string second = busy;
    const std::string out = run(line + "\n" + second + "\n").out;
    EXPECT_TRUE(contains(out, "Analyzing suite.epd...\n"));
    EXPECT_TRUE(contains(out, "\npos= 1\n" + line + "\n"));
    EXPECT_TRUE(contains(out, "\npos= 2\n" + second + "\n"));
    f64 nodes = 0;
    i32 moves = 0;
    for (size_t at = 0; (at = out.find("\nmove= ", at)) != std::string::npos; ++at) {
        f64 seconds = 0;
        f64 own_nodes = 0;
        f64 rate = 0;
        i32 score = 0;
        char move[8];
        char unit[8];
        ASSERT_EQ(sscanf(out.c_str() + at,
                      "\nmove= %5[a-h1-8], time= %lf, score= %d, nodes= %lf, %lfK %3s", move,
                      &seconds, &score, &own_nodes, &rate, unit),
            6);
        EXPECT_GE(rate, floor(0.001 * own_nodes / (seconds + 0.0015)));
        EXPECT_LE(rate, ceil(0.001 * own_nodes / (seconds + 0.0005)));
        nodes += own_nodes;
        ++moves;
    }
    EXPECT_EQ(moves, 2);
    EXPECT_GT(load(search_clock.elapsed), 0.0);
    char expected[64];
    snprintf(expected, sizeof expected, "\ntotal nodes= %0.0f\n", nodes);
    EXPECT_TRUE(contains(out, expected)) << expected;
    snprintf(expected, sizeof expected, "\navg nodes= %0.0f.0\n",
        static_cast<f64>(static_cast<i64>(nodes) / 2));
    EXPECT_TRUE(contains(out, expected)) << expected;
    EXPECT_TRUE(contains(out, "\navg depth= 4.0\n"));
    EXPECT_TRUE(contains(out, "\navg bf= 2.00\n")); // below depth 6 the growth is taken as 2
    EXPECT_TRUE(contains(out, "K nps\n\n"));
}

TEST_F(EpdRunnerTest, SuitesRunToTheirEnd)
{
    store(dialogue.limits.depth_limit, 5);
    const ToolRun bratko = run_file(data_path("bk.epd"));
    EXPECT_TRUE(contains(line_of(bratko.out, 1), " / 24 correct best moves")) << bratko.out;
    EXPECT_EQ(bratko.errors, "");
    EXPECT_EQ(count_lines(read_file("analysis.epd")), 24);
    store(dialogue.limits.depth_limit, 6);
    const ToolRun mates = run_file(data_path("mates.epd"));
    EXPECT_EQ(line_of(mates.out, 1), "60 / 60 correct best moves");
    EXPECT_EQ(mates.errors, "");
    EXPECT_EQ(exit_status, 0);
}

// ---- Files

TEST_F(EpdRunnerTest, MissingFileEndsWithStatusZero)
{
    const ToolRun missing = run_file("missing.epd");
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.errors, "missing.epd: cannot be opened: No such file or directory\n");
    EXPECT_EQ(exit_status, 0);
    EXPECT_FALSE(exists("analysis.epd"));
}

TEST_F(EpdRunnerTest, FolderIsNoSuite)
{
    EXPECT_EQ(run_file(".").errors, ".: cannot be opened: not a regular file\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(EpdRunnerTest, OutputThatCannotBeOpenedEndsTheRun)
{
    block("analysis.epd.part");
    const ToolRun run_with = run(std::string(mate) + "\n");
    EXPECT_EQ(run_with.out, "");
    EXPECT_EQ(run_with.errors, "analysis.epd: cannot be opened for writing: File exists\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(EpdRunnerTest, FullDiskStillPrintsTheTable)
{
    write_file("analysis.epd", "old");
    write_file("suite.epd", repeat(120, std::string(mate) + "\n"));
    store(dialogue.limits.depth_limit, 1);
    const ToolRun full = run_on_full_disk([] { run_epd_test(&dialogue, "suite.epd"); });
    EXPECT_EQ(line_of(full.out, 1), "0 / 120 correct best moves");
    EXPECT_EQ(full.errors, "analysis.epd: cannot be written: File too large\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("analysis.epd"), "old");
    EXPECT_FALSE(exists("analysis.epd.part"));
}

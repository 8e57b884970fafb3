// The main loop: what it starts, what it reports, and when it keeps silent.
#include <algorithm>
#include <cstdio>
#include <string>

#include "shell_test_support.h"
#include "base/clock.h"
#include "base/output.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "shell/prepare_search.h"
#include "shell/think_loop.h"

static const std::string mate_in_one = "position fen 6k1/5ppp/8/8/8/8/8/R5K1 w - -\n";

// Unknown commands for half a second: the loop takes one in a pass of a millisecond.
static const std::string half_a_second = [] {
    std::string text;
    for (i32 i = 0; i < 500; ++i) {
        text += "x@";
    }
    return text + "\n";
}();

struct ThinkLoopTest : ShellTest {
    // What the loop prints for lines that end with "quit".
    static std::string run(const std::string& lines)
    {
        FedInput input;
        input.feed(lines);
        return capture_output([] { think_loop(&dialogue); });
    }
};

TEST_F(ThinkLoopTest, BranchingIsTheFourthRootOfFourDepths)
{
    search_result.last_iter_depth = 8;
    search_totals.nodes_by_depth[8] = 81000;
    search_totals.nodes_by_depth[4] = 1000;
    EXPECT_NEAR(effective_branching(), 3.0, 1e-12);
    search_totals.nodes_by_depth[4] = 0;
    EXPECT_EQ(effective_branching(), 2.0);
    search_totals.nodes_by_depth[4] = 1000;
    search_totals.nodes_by_depth[8] = 0;
    EXPECT_EQ(effective_branching(), 2.0);
    search_totals.nodes_by_depth[8] = 81000;
    search_result.last_iter_depth = 5;
    search_totals.nodes_by_depth[5] = 16;
    search_totals.nodes_by_depth[1] = 1;
    EXPECT_EQ(effective_branching(), 2.0);
    search_result.last_iter_depth = 6;
    search_totals.nodes_by_depth[6] = 16;
    search_totals.nodes_by_depth[2] = 1;
    EXPECT_NEAR(effective_branching(), 2.0, 1e-12);
    search_totals.nodes_by_depth[6] = 256;
    EXPECT_NEAR(effective_branching(), 4.0, 1e-12);
}

TEST_F(ThinkLoopTest, TheLoopStartsFromTheStartPosition)
{
    set_position("k7/8/8/8/8/8/8/K7 w - -");
    store(engine_state, EngineState::Thinking);
    EXPECT_EQ(run("quit\n"), "");
    EXPECT_EQ(fen_of(&dialogue.game->pos), start_position);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
    EXPECT_EQ(dialogue.quit_flag, 1);
}

TEST_F(ThinkLoopTest, TheConsoleShowsTheBoardFirst)
{
    store(uci_mode, 0);
    const std::string output = run("quit\n");
    EXPECT_EQ(output.rfind("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -\n", 0), 0u);
    EXPECT_EQ(output.substr(output.size() - 7), "white\n\n");
}

TEST_F(ThinkLoopTest, AGoIsAnswered)
{
    set_workers(1);
    const std::string output = run(mate_in_one + "go depth 2\n" + half_a_second + "quit\n");
    EXPECT_NE(output.find("bestmove a1a8\n"), std::string::npos) << output;
    EXPECT_EQ(load(engine_state), EngineState::Idle);
}

TEST_F(ThinkLoopTest, APonderingSearchIsNotAnswered)
{
    set_workers(1);
    store(noise, silent_noise);
    EXPECT_EQ(
        run(mate_in_one + "go ponder depth 2\n" + half_a_second + "isready\nquit\n"), "readyok\n");
    EXPECT_EQ(load(engine_state), EngineState::Pondering);
    EXPECT_EQ(
        run(mate_in_one + "go ponder depth 2\n" + half_a_second + "ponderhit\nisready\nquit\n"),
        "bestmove a1a8\nreadyok\n");
}

TEST_F(ThinkLoopTest, APositionThatCannotBeSearchedIsAnsweredAtOnce)
{
    set_workers(1);
    const std::string output =
        run("position fen 8/8/8/8/8/8/8/K7 w - -\ngo infinite\nisready\nquit\n");
    EXPECT_EQ(output.rfind("info string ", 0), 0u);
    const std::string rest = output.substr(output.find('\n') + 1);
    EXPECT_EQ(rest, "bestmove null\nreadyok\n");
}

TEST_F(ThinkLoopTest, WithoutWorkersOnlyStopIsAnswered)
{
    EXPECT_EQ(run("go depth 1\nisready\nisready\nstop\nisready\nquit\n"),
        "readyok\nreadyok\nbestmove null\nreadyok\n");
}

TEST_F(ThinkLoopTest, AHundredQuietHalfMovesAreSearchedAndNoMore)
{
    set_workers(1);
    store(noise, silent_noise);
    const char* shuffle[] = { " g1f3", " g8f6", " f3g1", " f6g8" };
    std::string position = "position startpos moves";
    for (i32 i = 0; i < 100; ++i) {
        position += shuffle[i % 4];
    }
    const std::string search = "go depth 1\n" + half_a_second + "isready\nquit\n";
    EXPECT_EQ(run(position + "\n" + search).substr(0, 9), "bestmove ");
    EXPECT_EQ(run(position + shuffle[0] + "\n" + search), "readyok\n");
}

// ---- The statistics of the console

static f64 percent(i64 hits, i64 probes)
{
    return 100.0 * static_cast<f64>(hits) / static_cast<f64>(probes + 1);
}

TEST_F(ThinkLoopTest, TheStatisticsTellTheRatesOfTheCounters)
{
    set_workers(1);
    store(uci_mode, 0);
    store(noise, silent_noise);
    const std::string output = run("go 5\n" + half_a_second + half_a_second + "quit\n");
    char expected[256];
    snprintf(expected, sizeof expected,
        "\nHash fill= %.1f%%, Hash hits: main= %0.1f%%, pawn= %0.1f%%, eval= %0.1f%%, TB=0K\n\n",
        100.0 * hash.fill,
        percent(search_totals.counters[CountHashHits], search_totals.counters[CountHashProbes]),
        percent(search_totals.eval_counters[CountPawnHits],
            search_totals.eval_counters[CountPawnProbes]),
        percent(
            search_totals.eval_counters[CountEvalHits], search_totals.eval_counters[CountEvals]));
    EXPECT_NE(output.find(expected), std::string::npos) << expected << output;
}

TEST_F(ThinkLoopTest, TheNodeRateCountsAMillisecondMore)
{
    set_workers(1);
    store(uci_mode, 0);
    store(noise, silent_noise);
    const std::string output = run("go 1\n" + half_a_second + "quit\n");
    f64 seconds = 0.0;
    f64 nodes = 0.0;
    f64 rate = 0.0;
    const size_t line = output.find("move= ");
    ASSERT_NE(line, std::string::npos) << output;
    const i32 read = sscanf(output.c_str() + line,
        "move= %*[^,], time= %lf, score= %*d, nodes= %lf, nps= %lfK", &seconds, &nodes, &rate);
    ASSERT_EQ(read, 3) << output;
    // The seconds are printed to the millisecond, the rate to the thousand.
    EXPECT_LE(rate, 0.001 * nodes / (std::max(seconds - 0.0005, 0.0) + 0.001) + 0.5);
    EXPECT_GE(rate, 0.001 * nodes / (seconds + 0.0015) - 0.5);
}

TEST_F(ThinkLoopTest, EndingASearchSilentlyWaitsForTheWorkers)
{
    set_workers(1);
    Position* pos = set_position(start_position);
    store(noise, silent_noise);
    prepare_search(&dialogue);
    store(engine_state, EngineState::Thinking);
    wake_workers(dialogue.game);
    EXPECT_EQ(busy_workers(), 1);
    end_search_silently();
    EXPECT_EQ(busy_workers(), 0);
    EXPECT_EQ(load(stop_code), StopCode::Silent);
    // The "stop" that its sender owes the search must find it.
    EXPECT_EQ(load(engine_state), EngineState::Thinking);
    // Without a running search the result that waits is left alone.
    store(stop_code, StopCode::Report);
    end_search_silently();
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_EQ(pos->stm, White);
}

TEST_F(ThinkLoopTest, DroppingASearchForgetsIt)
{
    set_workers(1);
    set_position(start_position);
    store(noise, silent_noise);
    prepare_search(&dialogue);
    store(engine_state, EngineState::Thinking);
    wake_workers(dialogue.game);
    drop_search();
    EXPECT_EQ(busy_workers(), 0);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
    // Without a running search the result that waits is left alone.
    store(engine_state, EngineState::Pondering);
    store(stop_code, StopCode::Report);
    drop_search();
    EXPECT_EQ(load(engine_state), EngineState::Pondering);
    EXPECT_EQ(load(stop_code), StopCode::Report);
}

TEST_F(ThinkLoopTest, SelfPlayChargesTheClockAndEndsWithTheGame)
{
    set_workers(1);
    dialogue.self_play = 1;
    dialogue.limits.tc_increment = 2.0;
    store(noise, silent_noise);
    const std::string output = run(mate_in_one + "go depth 3\n" + half_a_second + "quit\n");
    EXPECT_EQ(output.rfind("bestmove a1a8\nR5k1/5ppp/8/8/8/8/8/6K1 b - -\n", 0), 0u) << output;
    EXPECT_NE(output.find("\nblack\n\nbestmove null\n"), std::string::npos) << output;
    EXPECT_EQ(dialogue.self_play, 0);
    // Both sides had the limit of a fixed depth, spent next to nothing and got the increment.
    EXPECT_GT(load(dialogue.limits.clock_left[White]), 10000001.0);
    EXPECT_LE(load(dialogue.limits.clock_left[White]), 10000002.0);
    EXPECT_GT(load(dialogue.limits.clock_left[Black]), 10000001.0);
    EXPECT_LE(load(dialogue.limits.clock_left[Black]), 10000002.0);
}

TEST_F(ThinkLoopTest, TickingTellsWhoseClockRuns)
{
    set_position("k7/8/8/8/8/8/8/K7 b - -");
    search_clock.start_time = monotonic_seconds() - 1.0;
    tick_clock(&dialogue);
    EXPECT_EQ(load(search_clock.clock_side), Black);
    EXPECT_GE(load(search_clock.elapsed), 1.0);
}

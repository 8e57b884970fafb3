// The console's words.
#include "shell/console.h"

#include "shell_test_support.h"

struct ConsoleTest : ShellTest {
    void SetUp() override
    {
        ShellTest::SetUp();
        store(uci_mode, 0);
    }

    static std::string say(const std::string& line)
    {
        std::string text = line;
        return capture_output([&] { console_command(text.data()); });
    }

    static std::string fen()
    {
        return fen_of(&console_thread->pos);
    }
};

TEST_F(ConsoleTest, AMoveIsMadeAndShown)
{
    const std::string output = say("e2e4");
    EXPECT_EQ(
        output.rfind("1. move e2e4\nrnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3\n", 0),
        0u)
        << output;
    EXPECT_EQ(load(stop_code), StopSilent);
    EXPECT_EQ(say("move e7e5").rfind("1. move e7e5\n", 0), 0u);
    EXPECT_EQ(say("  Nf3  ").rfind("2. move Nf3\n", 0), 0u);
    EXPECT_EQ(console_thread->undo_count, 3);
    EXPECT_EQ(load(engine_state), EngineIdle);
}

TEST_F(ConsoleTest, WhatIsNoMoveIsDropped)
{
    for (const char* line :
        { "", " ", "hello", "e2e5", "move", "move x", "isready", "stop", "+", "e4 e5 x", "O-O" }) {
        say("fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq -");
        EXPECT_EQ(say(line), "") << line;
        EXPECT_EQ(console_thread->undo_count, 0) << line;
    }
    EXPECT_EQ(say(std::string(4999, 'e')), "");
}

TEST_F(ConsoleTest, TheBoardAndAFen)
{
    EXPECT_EQ(say("bd").rfind(std::string(start_position) + "\n", 0), 0u);
    EXPECT_EQ(say("fen k7/8/8/8/8/8/8/7K b - -").rfind("k7/8/8/8/8/8/8/7K b - -\n", 0), 0u);
    EXPECT_EQ(load(stop_code), StopReportGame);
    EXPECT_EQ(say("fen").rfind("8/8/8/8/8/8/8/8 ", 0), 0u);
}

TEST_F(ConsoleTest, QuitDoesNotWait)
{
    EXPECT_EQ(say("quit"), "");
    EXPECT_EQ(quit_flag, 1);
    EXPECT_EQ(load(stop_code), StopSilent);
}

TEST_F(ConsoleTest, PerftCountsOnTheFirstWorker)
{
    set_workers(1);
    store(noise, silent_noise);
    EXPECT_EQ(say("perft 3").rfind("visited 8902 nodes in ", 0), 0u);
    EXPECT_EQ(load(engine_state), EngineThinking);
    EXPECT_EQ(load(stop_code), StopNone);
    EXPECT_EQ(say("perft 4").rfind("visited 197281 nodes in ", 0), 0u);
    EXPECT_EQ(say("perft").rfind("visited 0 nodes in ", 0), 0u);
    EXPECT_EQ(say("perft -3").rfind("visited 0 nodes in ", 0), 0u);
    EXPECT_EQ(fen(), start_position);
}

TEST_F(ConsoleTest, PerftWorksWithoutWorkers)
{
    store(noise, silent_noise);
    EXPECT_EQ(say("perft 3").rfind("visited 8902 nodes in ", 0), 0u);
    EXPECT_EQ(say("perft 3").rfind("visited 8902 nodes in ", 0), 0u);
    EXPECT_EQ(fen(), start_position);
}

TEST_F(ConsoleTest, PerftStopsAtDepthTwenty)
{
    store(noise, silent_noise);
    say("fen k7/8/8/8/8/p1p5/P1P5/1K6 w - -");
    const std::string deep = say("perft 5");
    say("fen 7k/5Q2/6K1/8/8/8/8/8 b - -");
    EXPECT_EQ(say("perft 25").rfind("visited 0 nodes in ", 0), 0u);
    EXPECT_EQ(deep.rfind("visited ", 0), 0u);
}

TEST_F(ConsoleTest, PerftRefusesABoardThatCannotBeSearched)
{
    say("fen 8/8/8/8/8/8/8/K7 w - -");
    const std::string output = say("perft 2");
    EXPECT_EQ(output.find("visited"), std::string::npos);
    EXPECT_NE(output, "");
}

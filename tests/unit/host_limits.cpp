// The limits of one "go", and how the engine is told of them.
#include "host/limits.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "board/types.h"

static GoLimits read(const char* words)
{
    std::string remark;
    const GoLimits limits = read_limits(words, &remark);
    EXPECT_EQ(remark, "") << words;
    return limits;
}

// The engine's words for a "go" at the start of a game, after others have left what left says.
static std::string told(const char* words, LeftLimits left = {}, i32 plies = 0)
{
    const GoLimits limits = read(words);
    return words_for_engine(&limits, plies, plies, &left);
}

TEST(HostLimits, WhatIsSaidIsPassedOn)
{
    EXPECT_EQ(told("depth 5"), "go depth 5");
    EXPECT_EQ(told("nodes 3000"), "go nodes 3000");
    EXPECT_EQ(told("movetime 250"), "go movetime 250");
    EXPECT_EQ(told("infinite"), "go infinite");
    EXPECT_EQ(told("depth 5 nodes 100"), "go depth 5 nodes 100");
    EXPECT_EQ(
        told("wtime 1000 btime 2000 winc 10 binc 20"), "go wtime 1000 btime 2000 winc 10 binc 20");
    EXPECT_EQ(told("wtime 1000 btime 2000 movestogo 7"),
        "go wtime 1000 btime 2000 winc 0 binc 0 movestogo 7");
}

TEST(HostLimits, AGoWithoutWordsIsAnAnalysis)
{
    EXPECT_EQ(told(""), "go infinite");
    EXPECT_EQ(told("ponder"), "go infinite ponder");
    EXPECT_EQ(told("mate 3"), "go infinite");
}

TEST(HostLimits, WhatAnEarlierGoHasLeftIsLifted)
{
    LeftLimits left;
    const GoLimits depth = read("depth 5");
    (void)words_for_engine(&depth, 0, 0, &left);
    EXPECT_TRUE(left.depth);
    EXPECT_EQ(told("nodes 100", left), "go depth 66 nodes 100");
    EXPECT_EQ(told("movetime 100", left), "go depth 66 movetime 100");
    // As many moves as the engine reckons with by itself.
    EXPECT_EQ(
        told("wtime 1000 btime 1000", left), "go wtime 1000 btime 1000 winc 0 binc 0 movestogo 32");
    EXPECT_EQ(told("wtime 1000 btime 1000", left, 19),
        "go wtime 1000 btime 1000 winc 0 binc 0 movestogo 23");
    EXPECT_EQ(told("wtime 1000 btime 1000", left, 18),
        "go wtime 1000 btime 1000 winc 0 binc 0 movestogo 23");
    EXPECT_EQ(told("wtime 1000 btime 1000", left, 20),
        "go wtime 1000 btime 1000 winc 0 binc 0 movestogo 23");
    const GoLimits clock = read("wtime 1000 btime 1000");
    (void)words_for_engine(&clock, 0, 0, &left);
    EXPECT_FALSE(left.depth);
    EXPECT_EQ(told("wtime 1000 btime 1000", left), "go wtime 1000 btime 1000 winc 0 binc 0");
    const GoLimits nodes = read("nodes 100");
    (void)words_for_engine(&nodes, 0, 0, &left);
    EXPECT_EQ(told("depth 4", left), "go depth 4 nodes 0");
}

// A long game is given to the engine in part, and must not be taken for one that has just begun.
TEST(HostLimits, ALongGameKeepsItsShareOfTheClock)
{
    LeftLimits left;
    const GoLimits limits = read("wtime 1000 btime 1000");
    EXPECT_EQ(words_for_engine(&limits, 1200, 4, &left),
        "go wtime 1000 btime 1000 winc 0 binc 0 movestogo 23");
    EXPECT_EQ(words_for_engine(&limits, 1200, 40, &left), "go wtime 1000 btime 1000 winc 0 binc 0");
}

TEST(HostLimits, NumbersAreKeptInRange)
{
    EXPECT_EQ(told("depth 200"), "go depth 66");
    EXPECT_EQ(told("depth -3"), "go depth 1");
    EXPECT_EQ(told("wtime -50 btime 100"), "go wtime 0 btime 100 winc 0 binc 0");
    EXPECT_EQ(told("movetime 0"), "go movetime 1");
    EXPECT_EQ(told("depth 99999999999999999999"), "go depth 66");
    // The clock of the opponent alone.
    EXPECT_EQ(told("btime 300"), "go wtime 300 btime 300 winc 0 binc 0");
}

TEST(HostLimits, WhatCannotBeToldIsWatched)
{
    GoLimits limits = read("nodes 4000000000");
    EXPECT_EQ(nodes_to_watch(&limits), 4000000000);
    EXPECT_EQ(told("nodes 4000000000"), "go infinite");
    limits = read("nodes 50000000");
    EXPECT_FALSE(nodes_to_watch(&limits));
    limits = read("wtime 1000 btime 1000 depth 4 nodes 500");
    EXPECT_EQ(nodes_to_watch(&limits), 500);
    EXPECT_EQ(depth_to_watch(&limits), 4);
    limits = read("depth 4");
    EXPECT_FALSE(depth_to_watch(&limits));
}

TEST(HostLimits, ShortClocksAreWatchedFromOutside)
{
    GoLimits limits = read("wtime 5 btime 60000 winc 10");
    ASSERT_TRUE(stop_after(&limits, White));
    EXPECT_LT(*stop_after(&limits, White), 2.5);
    EXPECT_LT(*answer_within(&limits, White), 5.0);
    EXPECT_GT(*answer_within(&limits, White), *stop_after(&limits, White));
    EXPECT_FALSE(stop_after(&limits, Black));
    limits = read("wtime 0 btime 0");
    EXPECT_GT(*stop_after(&limits, White), 0.0);
    limits = read("movetime 10");
    EXPECT_LT(*stop_after(&limits, White), 10.0);
    limits = read("movetime 1000");
    EXPECT_FALSE(stop_after(&limits, White));
    EXPECT_GT(*answer_within(&limits, White), 1000.0);
    limits = read("infinite");
    EXPECT_FALSE(stop_after(&limits, White));
    EXPECT_FALSE(answer_within(&limits, White));
}

TEST(HostLimits, SearchmovesEndAtTheNextWordOfGo)
{
    const GoLimits limits = read("searchmoves e2e4 d2d4 depth 3");
    EXPECT_EQ(limits.search_moves, (std::vector<std::string> { "e2e4", "d2d4" }));
    EXPECT_EQ(limits.depth, 3);
    EXPECT_TRUE(read("searchmoves").searches_some);
    EXPECT_FALSE(read("depth 3").searches_some);
}

TEST(HostLimits, WhatIsNotKnownIsNamed)
{
    std::string remark;
    GoLimits limits = read_limits("deep 5 depth 3", &remark);
    EXPECT_EQ(limits.depth, 3);
    EXPECT_EQ(remark, "go: '5' is not known");
    remark.clear();
    limits = read_limits("depth nodes 7", &remark);
    EXPECT_EQ(remark, "go: depth needs a number");
    EXPECT_EQ(limits.nodes, 7);
    EXPECT_FALSE(limits.depth);
}

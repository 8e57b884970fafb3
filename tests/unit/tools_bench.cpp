// The benchmark's rules about depth, time and output. Node limits keep it short.
#include <algorithm>
#include <cstdio>
#include <string>

#include "shell_test_support.h"
#include "base/output.h"
#include "search/control.h"
#include "tools/tools.h"

struct BenchTest : ShellTest {
    void SetUp() override
    {
        ShellTest::SetUp();
        set_workers(1);
        dialogue.limits.node_limit_total = 200;
    }

    static std::string run(i32 count, bool single = false)
    {
        const FedInput input;
        return capture_output([=] { run_benchmark(&dialogue, count, single); });
    }

    // The depth limit in force after a run that was given depth.
    static i32 depth_after(i32 depth, bool single = false)
    {
        store(dialogue.limits.depth_limit, depth);
        run(1, single);
        return load(dialogue.limits.depth_limit);
    }
};

TEST_F(BenchTest, PrintsALineForEachPositionAndATotal)
{
    const std::string output = run(20);
    EXPECT_EQ(output.rfind("Vesk 4.50 running benchmark using 1 threads\npos  0:   ", 0), 0u);
    EXPECT_NE(output.find("\npos 19:   0."), std::string::npos);
    EXPECT_NE(output.find("\ntotal time= "), std::string::npos);
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 22);
    EXPECT_EQ(dialogue.quit_flag, 1);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
    EXPECT_EQ(dialogue.limits.tc_seconds, 99.0);
    EXPECT_EQ(load(noise), 9999.0);
}

TEST_F(BenchTest, ADepthAboveFortyBecomesSeventeen)
{
    EXPECT_EQ(depth_after(66), 17);
    EXPECT_EQ(depth_after(50), 17);
    EXPECT_EQ(depth_after(41), 17);
    EXPECT_EQ(depth_after(40), 40);
    EXPECT_EQ(depth_after(12), 12);
}

TEST_F(BenchTest, TheSingleFormSearchesToSeventeenInAnyCase)
{
    EXPECT_EQ(depth_after(12, true), 17);
    const std::string output = run(10, true);
    EXPECT_NE(output.find("\npos  9: "), std::string::npos);
    EXPECT_EQ(output.find("\npos 10: "), std::string::npos);
}

TEST_F(BenchTest, NodeLimitsHold)
{
    dialogue.limits.node_limit_total = 5000;
    const std::string output = run(20);
    f64 seconds = 0;
    f64 nodes = 0;
    const size_t at = output.find("total time= ");
    ASSERT_EQ(
        sscanf(output.c_str() + at, "total time= %lf seconds, nodes= %lf", &seconds, &nodes), 2);
    EXPECT_GE(nodes, 90000);
    EXPECT_LE(nodes, 120000);
}

TEST_F(BenchTest, CommandsTypedMeanwhileDoNotChangeTheLimits)
{
    dialogue.limits.node_limit_total = 100000;
    const FedInput input;
    input.feed("go depth 1 nodes 1\nucinewgame\n");
    capture_output([] { run_benchmark(&dialogue, 3, false); });
    EXPECT_EQ(load(dialogue.limits.depth_limit), 17);
    EXPECT_EQ(dialogue.limits.node_limit_total, 100000);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_seconds, 99.0);
}

TEST_F(BenchTest, SearchesTheFirstPositionsFromAnEmptyTable)
{
    dialogue.limits.node_limit_total = 0;
    store(dialogue.limits.depth_limit, 6);
    const std::string once = run(3);
    const std::string again = run(3);
    const auto nodes = [](const std::string& output) {
        const size_t at = output.find("nodes= ");
        return output.substr(at, output.find(',', at) - at);
    };
    EXPECT_EQ(nodes(once), nodes(again));
}

TEST_F(BenchTest, WithoutWorkersItRunsThroughEmpty)
{
    set_workers(0);
    EXPECT_NE(run(3).find("nodes= 0, "), std::string::npos);
    EXPECT_NE(run(3, true).find("nodes= 0, "), std::string::npos);
}

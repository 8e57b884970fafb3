// The working tables of the pruning rules, and their printed form.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "search_support.h"
#include "search/strength.h"
#include "shell/prepare_search.h"

struct Params : SearchTest {
    static void set_with_selectivity(i32 selectivity)
    {
        dialogue.engine_options.selectivity = static_cast<i16>(selectivity);
        rebuild_search_tables(&dialogue);
    }

    static u32 level_at(i32 elo, f64 nps)
    {
        dialogue.engine_options.elo = static_cast<i16>(elo);
        store(strength.target_nps, nps);
        rebuild_search_tables(&dialogue);
        return strength.strength_level;
    }

    static void expect_row(const u8 (&table)[32][32], i32 depth, const i32 (&expected)[8])
    {
        static constexpr i32 columns[8] = { 1, 2, 3, 5, 8, 12, 20, 31 };
        for (i32 i = 0; i < 8; ++i) {
            EXPECT_EQ(table[depth][columns[i]], expected[i])
                << "depth " << depth << " moves " << columns[i];
        }
    }
};

TEST_F(Params, DefaultsAreCopied)
{
    EXPECT_EQ(pruning.BP_margin, 15);
    EXPECT_EQ(pruning.FP_depth, 3);
    EXPECT_EQ(pruning.SEP_depth, 3);
    EXPECT_EQ(pruning.NMP_depth, 3);
    EXPECT_EQ(pruning.ProbCut_depth, 3);
    EXPECT_EQ(pruning.ProbCut_reduction, 3);
    EXPECT_EQ(pruning.ProbCut_margin, 100);
    EXPECT_EQ(pruning.LMP_depth, 6);
    EXPECT_EQ(pruning.LMR_depth, 3);
}

TEST_F(Params, MarginsGrowByTheirStepWithDepth)
{
    dialogue.engine_options.search.FP_margin = 110;
    dialogue.engine_options.search.SEP_margin = 60;
    dialogue.engine_options.search.LMP_count = 3;
    rebuild_search_tables(&dialogue);
    for (i32 d = 0; d < 12; ++d) {
        EXPECT_EQ(pruning.fp_margin[d], 50 + 110 * d);
        EXPECT_EQ(pruning.sep_margin[d], 60 * d);
        EXPECT_EQ(pruning.lmp_count[d], 1 + 3 * d);
    }
}

TEST_F(Params, BasesAndReductionsFollowTheirInputs)
{
    dialogue.engine_options.search.BP_margin = -30;
    dialogue.engine_options.search.FP_base = 70;
    dialogue.engine_options.search.LMP_base = 4;
    dialogue.engine_options.search.LMR_pv_factor = 0;
    dialogue.engine_options.search.LMR_pv_offset = 200;
    dialogue.engine_options.search.LMR_nonpv_factor = 150;
    dialogue.engine_options.search.LMR_nonpv_offset = -149;
    rebuild_search_tables(&dialogue);
    EXPECT_EQ(pruning.BP_margin, -30);
    EXPECT_EQ(pruning.fp_margin[2], 70 + 2 * 125);
    EXPECT_EQ(pruning.lmp_count[2], 4 + 2 * 2);
    expect_row(pruning.lmr_pv, 8, { 2, 2, 2, 2, 2, 2, 2, 2 });
    // 1.5 ln(8) ln(2) - 1.49 is 0.67, ln(3) in its place gives 1.94.
    expect_row(pruning.lmr_nonpv, 8, { 0, 1, 2, 4, 5, 5, 5, 5 });
}

TEST_F(Params, ReductionRowsAtFullSelectivity)
{
    expect_row(pruning.lmr_pv, 8, { 0, 0, 0, 1, 1, 2, 2, 3 });
    expect_row(pruning.lmr_nonpv, 8, { 1, 1, 2, 2, 3, 3, 3, 4 });
    expect_row(pruning.lmr_pv, 31, { 0, 0, 1, 2, 3, 3, 4, 4 });
    expect_row(pruning.lmr_nonpv, 31, { 1, 2, 2, 3, 4, 5, 5, 5 });
}

TEST_F(Params, FirstRowsAndColumnDoNotReduce)
{
    for (i32 i = 0; i < 32; ++i) {
        for (i32 d = 0; d < 3; ++d) {
            EXPECT_EQ(pruning.lmr_pv[d][i] + pruning.lmr_nonpv[d][i], 0);
        }
        EXPECT_EQ(pruning.lmr_pv[i][0] + pruning.lmr_nonpv[i][0], 0);
    }
}

TEST_F(Params, EveryLaterMoveOfANonPvNodeIsReducedFromDepthThreeOn)
{
    for (i32 d = 3; d < 32; ++d) {
        for (i32 m = 1; m < 32; ++m) {
            EXPECT_GE(pruning.lmr_nonpv[d][m], 1);
            EXPECT_LE(pruning.lmr_nonpv[d][m], std::min(d - 1, 5));
            EXPECT_LE(pruning.lmr_pv[d][m], std::min(d - 2, 4));
        }
    }
    EXPECT_EQ(pruning.lmr_pv[3][31], 1) << "at most depth - 2";
    EXPECT_EQ(pruning.lmr_nonpv[3][31], 2) << "at most depth - 1";
}

TEST_F(Params, HalfSelectivityHalvesReductionsAndWidensTheGateAlone)
{
    set_with_selectivity(50);
    EXPECT_EQ(pruning.BP_margin, 40);
    EXPECT_EQ(pruning.fp_margin[2], 300);
    EXPECT_EQ(pruning.sep_margin[2], 150);
    EXPECT_EQ(pruning.lmp_count[2], 5);
    EXPECT_EQ(pruning.NMP_depth, 3);
    expect_row(pruning.lmr_pv, 8, { 0, 0, 0, 0, 1, 1, 1, 1 });
    expect_row(pruning.lmr_nonpv, 8, { 0, 1, 1, 1, 1, 1, 2, 2 });
}

TEST_F(Params, DoubleSelectivityDoublesReductionsUpToTheirLimits)
{
    set_with_selectivity(200);
    EXPECT_EQ(pruning.BP_margin, 15);
    expect_row(pruning.lmr_pv, 8, { 0, 0, 1, 2, 3, 3, 4, 4 });
    expect_row(pruning.lmr_nonpv, 8, { 1, 3, 3, 4, 5, 5, 5, 5 });
}

TEST_F(Params, GateMarginIsRoundedDown)
{
    set_with_selectivity(99);
    EXPECT_EQ(pruning.BP_margin, 15);
    set_with_selectivity(97);
    EXPECT_EQ(pruning.BP_margin, 16);
    set_with_selectivity(150);
    EXPECT_EQ(pruning.BP_margin, 15);
}

TEST_F(Params, NoSelectivityTurnsEverythingThatPrunesOff)
{
    set_with_selectivity(0);
    EXPECT_EQ(pruning.ProbCut_depth, 100);
    EXPECT_EQ(pruning.LMR_depth, 100);
    EXPECT_EQ(pruning.NMP_depth, 100);
    EXPECT_EQ(pruning.LMP_depth, 0);
    EXPECT_EQ(pruning.SEP_depth, 0);
    EXPECT_EQ(pruning.FP_depth, 0);
    EXPECT_EQ(pruning.BP_margin, 5000);
    for (i32 d = 0; d < 32; ++d) {
        for (i32 m = 0; m < 32; ++m) {
            EXPECT_EQ(pruning.lmr_pv[d][m] + pruning.lmr_nonpv[d][m], 0);
        }
    }
}

TEST_F(Params, StrengthLevelGrowsAsTheSpeedFalls)
{
    EXPECT_EQ(level_at(2199, 2999), 1u);
    EXPECT_EQ(level_at(2199, 3000), 0u);
    EXPECT_EQ(level_at(1500, 99), 30u);
    EXPECT_EQ(level_at(1, 1), 150u) << "limited";
    EXPECT_EQ(level_at(1500, 20), 142u) << "truncated";
}

TEST_F(Params, NoStrengthLevelWithoutALimit)
{
    EXPECT_EQ(level_at(2200, 1), 0u);
    EXPECT_EQ(level_at(3000, 1), 0u);
    EXPECT_EQ(level_at(0, 1), 0u);
    EXPECT_EQ(level_at(-5, 1), 0u);
}

TEST_F(Params, SpeedIsHeldOnlyBelowTheMachinesOwn)
{
    strength.calibration_nps = 100000.0;
    store(strength.target_nps, 99980.0);
    rebuild_search_tables(&dialogue);
    EXPECT_FALSE(load(strength.nps_limited));
    store(strength.target_nps, 99979.0);
    rebuild_search_tables(&dialogue);
    EXPECT_TRUE(load(strength.nps_limited));
}

TEST_F(Params, PrintedFormShowsMarginsUpToTheirDepth)
{
    const std::string text = capture_output([] { print_search_params(); });
    std::istringstream lines(text);
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) {
        rows.push_back(line);
    }
    ASSERT_EQ(rows.size(), 8u + 31 + 2 + 31);
    EXPECT_EQ(rows[0], "BP_margin= 15");
    EXPECT_EQ(rows[1], "FP_depth= 3, margins= 175 300 425");
    EXPECT_EQ(rows[2], "SEP_depth= 3, margins= 75 150 225");
    EXPECT_EQ(rows[3], "PC: depth= 3, Red= 3, Margin= 100");
    EXPECT_EQ(rows[4], "NMP_depth= 3");
    EXPECT_EQ(rows[5], "LMP_depth= 6, count= 3 5 7 9 11 13");
    EXPECT_EQ(rows[6], "LMR_depth= 3");
    EXPECT_EQ(rows[7], "LMR table:");
    EXPECT_EQ(rows[8], " 1  0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 ");
    EXPECT_EQ(rows[15].substr(0, 14), " 8  0 0 0 0 1 ");
    EXPECT_EQ(rows[39], "");
    EXPECT_EQ(rows[40], "");
    EXPECT_EQ(rows[48].substr(0, 14), " 8  0 1 1 2 2 ");
    EXPECT_EQ(rows[71].substr(0, 4), "31  ");
}

TEST_F(Params, DepthsBeyondTheTablesAreNotReadOutsideThem)
{
    dialogue.engine_options.search.FP_depth = 40;
    dialogue.engine_options.search.SEP_depth = 40;
    dialogue.engine_options.search.LMP_depth = 40;
    rebuild_search_tables(&dialogue);
    EXPECT_NE(capture_output([] {
        print_search_params();
    }).find("LMP_depth= 40, count= 3 5 7 9 11 13 15 17 19 21 23\n"),
        std::string::npos);
    run_search_to(start_position, 14);
    EXPECT_NE(search_result.result_pv[1], NoMove);
}

// Start values of the run state and of the options, and the clock.

#include "shell_test_support.h"
#include "base/clock.h"
#include "base/output.h"
#include "board/trace.h"
#include "eval/evaluate.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/strength.h"
#include "shell/weights_file.h"

struct RunStateTest : ShellTest {
};

TEST_F(RunStateTest, StartValuesAreThoseOfTheDefaultDialogue)
{
    store(uci_mode, 0);
    dialogue.quit_flag = true;
    dialogue.limits.tc_seconds = 77.0;
    search_totals.debug_counters[3] = 9;
    reset_run_state();
    EXPECT_EQ(load(uci_mode), 1);
    EXPECT_FALSE(dialogue.quit_flag);
    EXPECT_EQ(load(noise), 0.0);
    EXPECT_EQ(load(hash.mode), 1);
    EXPECT_EQ(hash.age, 0);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
    EXPECT_EQ(load(stop_code), StopCode::None);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_seconds, 5.0);
    EXPECT_EQ(dialogue.limits.tc_increment, 0.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 5.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 5.0);
    EXPECT_EQ(search_clock.target_time, 1.0);
    EXPECT_EQ(load(dialogue.limits.depth_limit), 66);
    EXPECT_EQ(dialogue.limits.node_limit_total, 0);
    EXPECT_EQ(strength.calibration_nps, 0.0);
    EXPECT_EQ(load(strength.target_nps), 0.0);
    EXPECT_EQ(load(search_settings.debug_flag), 0);
    EXPECT_EQ(load(trace_level), 0);
    EXPECT_EQ(dialogue.numa, 0);
    EXPECT_TRUE(dialogue.log_cmd);
    EXPECT_EQ(search_totals.debug_counters[3], 0);
    EXPECT_STREQ(params_file, "params.txt");
}

TEST_F(RunStateTest, OptionsStartAtTheirDefaults)
{
    init_dialogue(&dialogue);
    const EngineOptions& o = dialogue.saved_options;
    EXPECT_EQ(o.params_changed, 1);
    EXPECT_EQ(o.hash, 64);
    EXPECT_EQ(o.threads, 1);
    EXPECT_EQ(o.move_overhead, 50);
    EXPECT_EQ(o.ponder, 1);
    EXPECT_EQ(o.multi_pv, 1);
    EXPECT_EQ(o.limit_strength, 0);
    EXPECT_EQ(o.elo, 0);
    EXPECT_EQ(o.log, 0);
    EXPECT_EQ(o.own_book, 0);
    EXPECT_EQ(o.own_book_variety, 25);
    EXPECT_EQ(o.own_book_depth, 24);
    EXPECT_EQ(o.own_book2_depth, 0);
    EXPECT_STREQ(o.config_file_path, "");
    EXPECT_STREQ(o.own_book_file, "");
    EXPECT_STREQ(o.own_book2_file, "");
    EXPECT_STREQ(o.syzygy_path, "");
    EXPECT_EQ(o.syzygy_probe_depth5, 0);
    EXPECT_EQ(o.syzygy_probe_depth6, 1);
    EXPECT_EQ(o.contempt, 0);
    EXPECT_EQ(o.selectivity, 100);
    EXPECT_EQ(o.search.SEP_depth, 3);
    EXPECT_EQ(o.search.SEP_margin, 75);
    EXPECT_EQ(o.search.NMP_depth, 3);
    EXPECT_EQ(o.search.FP_depth, 3);
    EXPECT_EQ(o.search.FP_margin, 125);
    EXPECT_EQ(o.search.ProbCut_depth, 3);
    EXPECT_EQ(o.search.ProbCut_reduction, 3);
    EXPECT_EQ(o.search.ProbCut_margin, 100);
    EXPECT_EQ(o.search.LMP_depth, 6);
    EXPECT_EQ(o.search.LMP_count, 2);
    EXPECT_EQ(o.search.LMR_depth, 3);
    for (const WeightScale* scale :
        { &o.scales.Mtl_Pawn, &o.scales.Mtl_Knight, &o.scales.Mtl_Bishop, &o.scales.Mtl_Rook,
            &o.scales.Mtl_Queen, &o.scales.Activity_Knight, &o.scales.Activity_Bishop,
            &o.scales.Activity_Rook, &o.scales.Activity_Queen, &o.scales.Pawn_Structure,
            &o.scales.Passed_Pawns, &o.scales.King_Safety, &o.scales.Threats }) {
        EXPECT_EQ((*scale)[0], 100);
        EXPECT_EQ((*scale)[1], 100);
    }
}

TEST_F(RunStateTest, ElapsedCountsFromTheStartTime)
{
    search_clock.start_time = monotonic_seconds() - 2.5;
    update_elapsed();
    EXPECT_GE(load(search_clock.elapsed), 2.5);
    EXPECT_LT(load(search_clock.elapsed), 3.5);
}

TEST_F(RunStateTest, PublishingHandsTheWorkersTheirCopies)
{
    dialogue.engine_options.contempt = 11;
    dialogue.engine_options.multi_pv = 12;
    dialogue.engine_options.log = 1;
    dialogue.engine_options.syzygy_probe_depth5 = -4;
    dialogue.engine_options.syzygy_probe_depth6 = 15;
    publish_options(&dialogue);
    EXPECT_EQ(load(contempt_rule.contempt), 11);
    EXPECT_EQ(load(search_settings.multi_pv), 12);
    EXPECT_TRUE(is_logging());
    EXPECT_EQ(load(search_settings.tb_depths.five), -4);
    EXPECT_EQ(load(search_settings.tb_depths.six), 15);
}

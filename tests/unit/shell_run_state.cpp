// Start values of the run state and of the options, and the clock.
#include "shell/run_state.h"

#include "shell_test_support.h"

struct RunStateTest : ShellTest {
};

TEST_F(RunStateTest, StartValuesAreThoseOfTheDefaultDialogue)
{
    store(uci_mode, 0);
    quit_flag = 1;
    tc_seconds = 77.0;
    epd_file[0] = 'x';
    debug_counters[3] = 9;
    init_run_state();
    EXPECT_EQ(load(uci_mode), 1);
    EXPECT_EQ(quit_flag, 0);
    EXPECT_EQ(load(noise), 0.0);
    EXPECT_EQ(load(hash_mode), 1);
    EXPECT_EQ(hash_age, 0);
    EXPECT_EQ(load(engine_state), EngineIdle);
    EXPECT_EQ(load(stop_code), StopNone);
    EXPECT_EQ(load(tc_moves), 1);
    EXPECT_EQ(tc_seconds, 5.0);
    EXPECT_EQ(tc_increment, 0.0);
    EXPECT_EQ(load(clock_left[White]), 5.0);
    EXPECT_EQ(load(clock_left[Black]), 5.0);
    EXPECT_EQ(target_time, 1.0);
    EXPECT_EQ(load(depth_limit), 66);
    EXPECT_EQ(node_limit_total, 0);
    EXPECT_EQ(calibration_nps, 0.0);
    EXPECT_EQ(load(target_nps), 0.0);
    EXPECT_EQ(load(debug_flag), 0);
    EXPECT_EQ(load(trace_level), 0);
    EXPECT_EQ(numa, 0);
    EXPECT_EQ(log_cmd, 1u);
    EXPECT_EQ(debug_counters[3], 0);
    EXPECT_STREQ(params_file, "params.txt");
    EXPECT_STREQ(epd_file, "");
    EXPECT_STREQ(tool_file, "");
}

TEST_F(RunStateTest, OptionsStartAtTheirDefaults)
{
    init_default_options();
    const EngineOptions& o = saved_options;
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
    const i16 search[11] = { 3, 75, 3, 3, 125, 3, 3, 100, 6, 2, 3 };
    EXPECT_EQ(memcmp(&o.search, search, sizeof search), 0);
    for (const WeightScale* scale : { &o.Mtl_Pawn, &o.Mtl_Knight, &o.Mtl_Bishop, &o.Mtl_Rook,
             &o.Mtl_Queen, &o.Activity_Knight, &o.Activity_Bishop, &o.Activity_Rook,
             &o.Activity_Queen, &o.Pawn_Structure, &o.Passed_Pawns, &o.King_Safety, &o.Threats }) {
        EXPECT_EQ((*scale)[0], 100);
        EXPECT_EQ((*scale)[1], 100);
    }
}

TEST_F(RunStateTest, ElapsedCountsFromTheStartTime)
{
    start_time = monotonic_seconds() - 2.5;
    update_elapsed();
    EXPECT_GE(load(elapsed), 2.5);
    EXPECT_LT(load(elapsed), 3.5);
}

TEST_F(RunStateTest, PublishingHandsTheWorkersTheirCopies)
{
    engine_options.contempt = 11;
    engine_options.multi_pv = 12;
    engine_options.log = 1;
    engine_options.syzygy_probe_depth5 = -4;
    engine_options.syzygy_probe_depth6 = 15;
    publish_options();
    EXPECT_EQ(load(worker_options.contempt), 11);
    EXPECT_EQ(load(worker_options.multi_pv), 12);
    EXPECT_EQ(load(worker_options.log), 1);
    EXPECT_EQ(load(worker_options.syzygy_probe_depth5), -4);
    EXPECT_EQ(load(worker_options.syzygy_probe_depth6), 15);
}

// The time for a move, the strength limit, and what a search starts from.

#include <cmath>
#include <initializer_list>
#include <string>

#include "shell_test_support.h"
#include "base/output.h"
#include "eval/evaluate.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/limits.h"
#include "search/strength.h"
#include "shell/prepare_search.h"
#include "shell/uci.h"

struct TimeControlTest : ShellTest {
    void SetUp() override
    {
        ShellTest::SetUp();
        strength.estimated_elo = 2800.0;
        strength.calibration_nps = 1000000.0;
        dialogue.engine_options.ponder = 0;
    }

    // Target time for a UCI "go" in the start position with so many plies played.
    static f64 target(const std::string& go, i16 plies = 0)
    {
        std::string text = go;
        uci_command(&dialogue, text.data());
        dialogue.game->undo_count = plies;
        prepare_search(&dialogue);
        store(engine_state, EngineState::Idle);
        return search_clock.target_time;
    }
};

static const std::string minute = "go wtime 60000 btime 60000";

TEST_F(TimeControlTest, SuddenDeathSharesTheClock)
{
    EXPECT_NEAR(target(minute), 60.0 / 33, 1e-9);
    dialogue.engine_options.ponder = 1;
    EXPECT_NEAR(target(minute), 60.0 / 33 * 1.3, 1e-9);
}

TEST_F(TimeControlTest, TheShareGrowsUntilTheTenthMove)
{
    EXPECT_NEAR(target(minute, 1), 60.0 / 33, 1e-9);
    EXPECT_NEAR(target(minute, 2), 60.0 / 32, 1e-9);
    EXPECT_NEAR(target(minute, 19), 60.0 / 24, 1e-9);
    EXPECT_EQ(dialogue.limits.moves_to_go, 23);
    EXPECT_NEAR(target(minute, 20), 60.0 / 24, 1e-9);
    EXPECT_NEAR(target(minute, 200), 60.0 / 24, 1e-9);
    dialogue.engine_options.ponder = 1;
    EXPECT_NEAR(target(minute, 20), 60.0 / 24 * 1.3, 1e-9);
}

TEST_F(TimeControlTest, TheIncrementIsAddedByTheClock)
{
    EXPECT_NEAR(target(minute + " winc 1000 binc 1000"), 60.0 / 33 + 60.0 / 62, 1e-9);
    EXPECT_NEAR(search_clock.target_time, 2.7859, 1e-4);
}

TEST_F(TimeControlTest, MovesToGoDivideTheClock)
{
    EXPECT_NEAR(target(minute + " movestogo 1"), 30.0, 1e-9);
    EXPECT_NEAR(target(minute + " movestogo 2"), 20.0, 1e-9);
    EXPECT_NEAR(target(minute + " movestogo 3"), 15.0, 1e-9);
    dialogue.engine_options.ponder = 1;
    EXPECT_NEAR(target(minute + " movestogo 1"), 30.0, 1e-9);
    EXPECT_NEAR(target(minute + " movestogo 2"), 20.0, 1e-9);
    EXPECT_NEAR(target(minute + " movestogo 3"), 15.0 * 1.3, 1e-9);
}

TEST_F(TimeControlTest, AFixedTimeIsTakenAsItStands)
{
    EXPECT_EQ(target("go movetime 5000"), 5.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 5.0);
    dialogue.engine_options.ponder = 1;
    EXPECT_EQ(target("go movetime 1"), 0.001);
    EXPECT_EQ(target("go movetime 0"), 0.0);
}

TEST_F(TimeControlTest, ALowClockEndsAtTheFloor)
{
    EXPECT_EQ(target("go wtime 100 btime 100"), 0.002);
    EXPECT_EQ(target("go wtime 0 btime 0"), 0.002);
    EXPECT_EQ(target("go wtime 0 btime 0 movestogo -1"), 0.002);
    EXPECT_EQ(target("go wtime 60000 btime 60000 movestogo -5"), 0.002);
}

TEST_F(TimeControlTest, TheCeilingIsAShareOfTheClockLessFiveOverheads)
{
    EXPECT_NEAR(target("go wtime 60000 btime 60000 movestogo 0"), 0.65 * 60 - 0.25, 1e-9);
    dialogue.engine_options.move_overhead = 1000;
    EXPECT_NEAR(target("go wtime 60000 btime 60000 movestogo 0"), 0.65 * 60 - 5.0, 1e-9);
    EXPECT_EQ(search_clock.overhead_seconds, 1.0);
}

TEST_F(TimeControlTest, AWeakSettingHurries)
{
    strength.estimated_elo = 2399.9;
    EXPECT_NEAR(target(minute), 60.0 / 33 * 0.85, 1e-9);
    strength.estimated_elo = 2400.0;
    EXPECT_NEAR(target(minute), 60.0 / 33, 1e-9);
}

TEST_F(TimeControlTest, TheClockIsThatOfTheSideToMove)
{
    std::string line = "position startpos moves e2e4";
    uci_command(&dialogue, line.data());
    EXPECT_NEAR(target("go wtime 60000 btime 33000", 1), 1.0, 1e-9);
    EXPECT_EQ(contempt_rule.root_side, Black);
    EXPECT_EQ(load(search_clock.clock_side), Black);
}

TEST_F(TimeControlTest, UntilAClockIsSetEachMoveHasFiveSeconds)
{
    SearchLimits* limits = &dialogue.limits;
    store(limits->tc_moves, 40);
    limits->tc_seconds = limits->tc_increment = 60.0;
    store(limits->clock_left[White], 60.0);
    store(limits->clock_left[Black], 60.0);
    store(limits->depth_limit, 3);
    limits->moves_to_go = 10;
    limits->node_limit_total = 1000;
    init_limits(limits);
    EXPECT_EQ(load(limits->tc_moves), FixedTime);
    EXPECT_EQ(limits->tc_seconds, 5.0);
    EXPECT_EQ(limits->tc_increment, 0.0);
    EXPECT_EQ(load(limits->clock_left[White]), 5.0);
    EXPECT_EQ(load(limits->clock_left[Black]), 5.0);
    EXPECT_EQ(load(limits->depth_limit), deepest_limit);
    EXPECT_EQ(limits->moves_to_go, 0);
    EXPECT_EQ(limits->node_limit_total, 0);
}

TEST_F(TimeControlTest, TheConsoleCountsMovesPerControlByTheGame)
{
    store(uci_mode, 0);
    store(noise, silent_noise);
    store(dialogue.limits.tc_moves, 40);
    store(dialogue.limits.clock_left[White], 82.0);
    dialogue.game->undo_count = 0;
    prepare_search(&dialogue);
    EXPECT_EQ(dialogue.limits.moves_to_go, 40);
    EXPECT_NEAR(search_clock.target_time, 2.0, 1e-9);
    dialogue.game->undo_count = 78;
    prepare_search(&dialogue);
    EXPECT_EQ(dialogue.limits.moves_to_go, 1);
    EXPECT_NEAR(search_clock.target_time, 41.0, 1e-9);
    dialogue.game->undo_count = 80;
    prepare_search(&dialogue);
    EXPECT_EQ(dialogue.limits.moves_to_go, 40);
}

TEST_F(TimeControlTest, AllThatASearchWritesIsReset)
{
    store(stop_code, StopCode::Report);
    store(iter_depth, 9);
    search_result.result_depth = 5;
    search_result.result_pv[1] = move_of("e2e4");
    search_result.result_pv[2] = move_of("e7e5");
    search_result.last_iter_depth = 7;
    store(search_result.last_change_depth, 7);
    store(search_result.single_reply, 1);
    store(search_result.score_by_depth[69], 5);
    search_result.move_by_depth[69] = 5;
    search_totals.nodes_by_depth[69] = 5;
    search_totals.debug_counters[0] = 5;
    dialogue.engine_options.ponder = 1;
    dialogue.engine_options.multi_pv = 255;
    prepare_search(&dialogue);
    EXPECT_EQ(load(stop_code), StopCode::None);
    EXPECT_EQ(load(iter_depth), 0);
    EXPECT_EQ(load(search_result.result_score), -10000);
    EXPECT_EQ(search_result.result_depth, 0);
    EXPECT_EQ(search_result.result_pv[1], 0);
    EXPECT_EQ(search_result.result_pv[2], 0);
    EXPECT_EQ(search_result.last_iter_depth, 0);
    EXPECT_EQ(load(search_result.last_change_depth), 0);
    EXPECT_EQ(load(search_result.single_reply), 0);
    EXPECT_EQ(load(search_result.score_by_depth[69]), -10001);
    EXPECT_EQ(search_result.move_by_depth[69], 0);
    EXPECT_EQ(search_totals.nodes_by_depth[69], 0u);
    EXPECT_EQ(search_totals.debug_counters[0], 0);
    EXPECT_EQ(search_settings.ponder, 1);
    EXPECT_EQ(search_settings.lines, 255);
    EXPECT_EQ(dialogue.game->ply, 1);
    dialogue.game->pos.cnt50 = 100;
    prepare_search(&dialogue);
    EXPECT_EQ(load(search_result.result_score), -10000);
    dialogue.game->pos.cnt50 = 101;
    prepare_search(&dialogue);
    EXPECT_EQ(load(search_result.result_score), 0);
}

TEST_F(TimeControlTest, HashAgeRunsFromOneToFifteen)
{
    hash.age = 0;
    for (i32 age = 1; age <= 15; ++age) {
        prepare_search(&dialogue);
        EXPECT_EQ(hash.age, age);
    }
    prepare_search(&dialogue);
    EXPECT_EQ(hash.age, 1);
}

TEST_F(TimeControlTest, WithoutATableTheHashIsOffForGood)
{
    hash.megabytes = 0;
    prepare_search(&dialogue);
    EXPECT_EQ(load(hash.mode), 0);
    hash.megabytes = 1;
    prepare_search(&dialogue);
    EXPECT_EQ(load(hash.mode), 0);
}

TEST_F(TimeControlTest, ChangedOptionsRebuildTheTablesOnce)
{
    dialogue.engine_options.params_changed = 1;
    dialogue.engine_options.selectivity = 50;
    EXPECT_EQ(capture_output([] { prepare_search(&dialogue); }),
        "info string setting search and eval params...\n");
    EXPECT_EQ(pruning.BP_margin, 40);
    EXPECT_EQ(dialogue.engine_options.params_changed, 0);
    EXPECT_EQ(capture_output([] { prepare_search(&dialogue); }), "");
}

TEST_F(TimeControlTest, TheConsoleReportsTheAllotment)
{
    store(uci_mode, 0);
    EXPECT_EQ(capture_output([] { prepare_search(&dialogue); }),
        "fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -\n"
        "Ply= 0, cnt50= 0, Clock= 5.00s, Target time= 5.00s\n");
    store(noise, silent_noise);
    EXPECT_EQ(capture_output([] { prepare_search(&dialogue); }), "");
}

TEST_F(TimeControlTest, UciReportsTheAllotmentToTheLogAlone)
{
    dialogue.engine_options.log = 1;
    publish_options(&dialogue);
    ASSERT_EQ(open_log(), 1);
    EXPECT_EQ(capture_output([] { prepare_search(&dialogue); }), "");
    EXPECT_EQ(read_file("vesk.log"),
        "info string fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -\n"
        "info string ply= 0, trg_time= 5.000 sec\n");
}

TEST_F(TimeControlTest, TheEloCurve)
{
    EXPECT_NEAR(elo_of_nps(100000.0), 2671.8, 0.1);
    EXPECT_NEAR(elo_of_nps(10.0), 1072.8, 0.1);
    EXPECT_NEAR(elo_of_nps(1.0), -486.0, 1e-9);
}

TEST_F(TimeControlTest, WithoutALimitTheMachinesEstimateStands)
{
    dialogue.engine_options.elo = 1600;
    prepare_search(&dialogue);
    EXPECT_EQ(dialogue.engine_options.elo, 2800);
    EXPECT_EQ(load(strength.target_nps), 1000000.0);
}

TEST_F(TimeControlTest, ALimitGivesTheRateOfItsElo)
{
    for (const i16 elo : { 1500, 1800, 2100, 2199, 2200, 2500, 2700 }) {
        dialogue.engine_options.limit_strength = 1;
        dialogue.engine_options.elo = elo;
        prepare_search(&dialogue);
        EXPECT_EQ(dialogue.engine_options.limit_strength, 1) << elo;
        EXPECT_EQ(dialogue.engine_options.elo, elo);
        EXPECT_NEAR(elo_of_nps(load(strength.target_nps)), elo, 0.5) << elo;
    }
}

TEST_F(TimeControlTest, ALimitOutOfReachLiftsItself)
{
    dialogue.engine_options.limit_strength = 1;
    dialogue.engine_options.elo = 3300;
    prepare_search(&dialogue);
    EXPECT_EQ(dialogue.engine_options.limit_strength, 0);
    EXPECT_EQ(dialogue.engine_options.elo, 2800);
    EXPECT_EQ(load(strength.target_nps), 1000000.0);
}

TEST_F(TimeControlTest, ALimitWithoutAnEloChangesNothing)
{
    dialogue.engine_options.limit_strength = 1;
    dialogue.engine_options.elo = 0;
    store(strength.target_nps, 123.0);
    prepare_search(&dialogue);
    EXPECT_EQ(dialogue.engine_options.limit_strength, 1);
    EXPECT_EQ(dialogue.engine_options.elo, 0);
    EXPECT_EQ(load(strength.target_nps), 123.0);
}

TEST_F(TimeControlTest, AnEloOutsideTheCurveComesToAnEnd)
{
    dialogue.engine_options.limit_strength = 1;
    dialogue.engine_options.elo = 1;
    prepare_search(&dialogue);
    EXPECT_NEAR(load(strength.target_nps), 10.0, 1e-6);
    dialogue.engine_options.elo = 32767;
    prepare_search(&dialogue);
    EXPECT_EQ(dialogue.engine_options.limit_strength, 0);
}

TEST_F(TimeControlTest, TheRateOfTheCommandLineComesBackFromItsElo)
{
    dialogue.engine_options.limit_strength = 1;
    dialogue.engine_options.elo = static_cast<i16>(elo_of_nps(50000.0));
    prepare_search(&dialogue);
    EXPECT_NEAR(load(strength.target_nps), 50000.0, 700.0);
}

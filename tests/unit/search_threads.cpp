// The workers, what they copy and share, the rules of the secondary ones, and the clock.
#include <string>

#include "search_support.h"
#include "base/clock.h"
#include "base/output.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/thread.h"

// ---- Records without threads

struct Records : SearchTest {
    // Runs the search of worker 1 on the calling thread, as if worker 0 had finished depth 1.
    static void run_secondary(i32 limit)
    {
        begin_search("4k3/ppp5/8/8/8/8/PPP5/4K3 w - -");
        store(dialogue.limits.depth_limit, limit);
        sync_workers(dialogue.game);
        store(iter_depth, 2);
        run_search(load(workers[1]), nullptr);
    }

    // The same with three other workers that stand at the depths given.
    static void run_secondary_among(i32 limit, const i32 (&depths)[3])
    {
        begin_search("4k3/ppp5/8/8/8/8/PPP5/4K3 w - -");
        store(dialogue.limits.depth_limit, limit);
        sync_workers(dialogue.game);
        store(load(workers[0])->depth, depths[0]);
        store(load(workers[2])->depth, depths[1]);
        store(load(workers[3])->depth, depths[2]);
        store(iter_depth, 2);
        run_search(load(workers[1]), nullptr);
    }

    // The iterations that were searched, as digits apart by blanks.
    static std::string iterations()
    {
        std::string text;
        for (i32 d = 1; d < ply_count; ++d) {
            if (search_totals.nodes_by_depth[d] != 0) {
                text += (text.empty() ? "" : " ") + std::to_string(d);
            }
        }
        return text;
    }
};

TEST_F(Records, SyncCopiesTheGameAndResetsTheSearch)
{
    use_records(2);
    Position* pos = set_position(start_position);
    play_moves(pos, "e2e4 e7e5 g1f3");
    for (i32 i = 0; i < 2; ++i) {
        SearchThread* thread = load(workers[i]);
        thread->pv[1] = thread->pv[69] = 7;
        thread->completed_depth = thread->seldepth = 5;
        thread->score = 5;
        thread->null_depth = 1;
        thread->undo[3].move = 7;
        thread->ply_rec[0].node_type = thread->ply_rec[1].node_type = 1;
        store(thread->depth, 5);
        store(thread->fail_state, 2);
        for (Shared<u64>& counter : thread->counters) {
            store(counter, 5);
        }
    }
    dialogue.limits.node_limit_total = 0;
    sync_workers(dialogue.game);
    for (i32 i = 0; i < 2; ++i) {
        SearchThread* thread = load(workers[i]);
        EXPECT_EQ(thread->pos.thread, thread);
        EXPECT_EQ(fen_of(&thread->pos), fen_of(pos));
        EXPECT_EQ(thread->pos.key, pos->key);
        EXPECT_EQ(thread->undo_count, 3);
        EXPECT_EQ(thread->undo[1].move, move_of("e7e5"));
        EXPECT_EQ(thread->undo[1].key, dialogue.game->undo[1].key);
        EXPECT_EQ(thread->undo[3].move, NoMove);
        EXPECT_EQ(thread->last_move, move_of("g1f3"));
        EXPECT_EQ(thread->ply, 1);
        for (i32 ply = 0; ply < 2; ++ply) {
            EXPECT_EQ(thread->ply_rec[ply].list_start, thread->move_store + ply);
            EXPECT_EQ(thread->ply_rec[ply].list_cursor, thread->move_store + ply);
            EXPECT_EQ(thread->ply_rec[ply].list_start->move, EndOfList);
            EXPECT_EQ(thread->ply_rec[ply].node_type, 0);
        }
        EXPECT_EQ(thread->node_limit, 1ULL << 62);
        EXPECT_EQ(thread->pv[1] | thread->pv[69], 0);
        EXPECT_EQ(thread->completed_depth | thread->seldepth | thread->score, 0);
        EXPECT_EQ(thread->null_depth, 0);
        EXPECT_EQ(load(thread->depth) | load(thread->fail_state), 0);
        for (const Shared<u64>& counter : thread->counters) {
            EXPECT_EQ(load(counter), 0u);
        }
        EXPECT_EQ(thread->root_phase[White], 32);
        EXPECT_EQ(thread->root_phase[Black], 32);
    }
    dialogue.limits.node_limit_total = 1234;
    sync_workers(dialogue.game);
    EXPECT_EQ(record()->node_limit, 1234u);
}

TEST_F(Records, TotalsAreSummedAnew)
{
    use_records(3);
    for (i32 i = 0; i < 3; ++i) {
        for (i32 k = 0; k < CounterCount; ++k) {
            store(load(workers[i])->counters[k], (i + 1) * 100 + k);
        }
    }
    collect_stats();
    collect_stats();
    for (i32 k = 0; k < CounterCount; ++k) {
        EXPECT_EQ(search_totals.counters[k], static_cast<u64>(600 + 3 * k));
    }
}

TEST_F(Records, WorkersWithACommandAreBusy)
{
    use_records(3);
    EXPECT_EQ(busy_workers(), 0);
    store(load(workers[1])->command, CommandSearch);
    store(load(workers[2])->command, CommandClearHash);
    EXPECT_EQ(busy_workers(), 2);
}

TEST_F(Records, WithoutWorkersNothingIsWokenOrBusy)
{
    use_records(0);
    wake_workers(dialogue.game);
    EXPECT_EQ(busy_workers(), 0);
    wait_for_workers();
    sync_workers(dialogue.game);
    search_sync(dialogue.game);
    collect_stats();
    EXPECT_EQ(search_totals.counters[CountNodes], 0u);
}

TEST_F(Records, SecondaryWorkerSearchesFromDepthOneAndPublishesNothing)
{
    use_records(2);
    run_secondary(6);
    EXPECT_EQ(iterations(), "1 2 3 4 5 6");
    EXPECT_EQ(search_result.result_pv[1], NoMove);
    EXPECT_EQ(search_result.result_depth, 0);
    EXPECT_EQ(load(search_result.result_score), -10000);
    EXPECT_EQ(search_result.last_iter_depth, 0);
    EXPECT_EQ(load(iter_depth), 2);
    EXPECT_EQ(load(stop_code), StopCode::None) << "worker 0 goes on alone";
    EXPECT_NE(load(workers[1])->pv[1], NoMove);
    EXPECT_EQ(load(workers[1])->completed_depth, 6);
}

TEST_F(Records, SecondaryWorkerPrintsNothing)
{
    use_records(2);
    begin_search("4k3/ppp5/8/8/8/8/PPP5/4K3 w - -");
    store(noise, 0.0);
    store(search_clock.elapsed, 5.0);
    store(dialogue.limits.depth_limit, 5);
    sync_workers(dialogue.game);
    store(iter_depth, 2);
    EXPECT_EQ(capture_output([] { run_search(load(workers[1]), nullptr); }), "");
}

TEST_F(Records, SecondaryWorkerLeavesIfTheSearchEndsWithinDepthOne)
{
    use_records(2);
    begin_search(start_position);
    sync_workers(dialogue.game);
    store(iter_depth, 1);
    store(stop_code, StopCode::Report);
    run_search(load(workers[1]), nullptr);
    EXPECT_EQ(load(load(workers[1])->eval_counters[CountEvals]), 0u);
}

TEST_F(Records, SecondaryWorkerLeavesATableRootAtOnce)
{
    use_records(2);
    search_result.tb_root_result = 2;
    run_secondary(6);
    EXPECT_EQ(iterations(), "");
    EXPECT_EQ(load(stop_code), StopCode::None);
}

TEST_F(Records, SecondaryWorkerSkipsADepthThatMoreThanHalfHaveReached)
{
    use_records(4);
    run_secondary_among(8, { 6, 6, 5 });
    EXPECT_EQ(iterations(), "1 2 3 4 5 7 8") << "three of four stand at six";
    run_secondary_among(8, { 6, 5, 5 });
    EXPECT_EQ(iterations(), "1 2 3 4 5 6 7 8") << "two of four";
    run_secondary_among(9, { 7, 7, 60 });
    EXPECT_EQ(iterations(), "1 2 3 4 5 7 8 9");
    EXPECT_EQ(load(load(workers[1])->depth), 9);
}

TEST_F(Records, SecondaryWorkerSkipsNothingBelowDepthSixOrAtTheLimit)
{
    use_records(4);
    run_secondary_among(10, { 60, 60, 60 });
    EXPECT_EQ(iterations(), "1 2 3 4 5 7 9 10");
    run_secondary_among(6, { 60, 60, 60 });
    EXPECT_EQ(iterations(), "1 2 3 4 5 6");
}

TEST_F(Records, SecondaryWorkerSkipsNothingWithSeveralLines)
{
    use_records(4);
    dialogue.engine_options.multi_pv = 2;
    publish_options(&dialogue);
    run_secondary_among(7, { 60, 60, 60 });
    EXPECT_EQ(iterations(), "1 2 3 4 5 6 7");
}

TEST_F(Records, SecondaryWorkerShufflesAllMovesButTheFirstInEveryIteration)
{
    use_records(2);
    run_secondary(4);
    const SearchThread* thread = load(workers[1]);
    const size_t moves = legal_moves(&dialogue.game->pos).size();
    u32 word = thread->strength_key;
    for (size_t i = 0; i < 4 * (moves - 1); ++i) {
        word = word * 19375 + 987654321;
    }
    EXPECT_EQ(thread->rand_state, word);
}

TEST_F(Records, WorkerZeroHasNoNoise)
{
    use_records(2);
    begin_search(start_position);
    store(dialogue.limits.depth_limit, 4);
    search_sync(dialogue.game);
    EXPECT_EQ(record()->rand_state, record()->strength_key);
}

// ---- The clock

struct Clock : SearchTest {
    f64 left = 100.0;
    f64 target = 10.0;

    void SetUp() override
    {
        SearchTest::SetUp();
        begin_search(start_position);
        store(engine_state, EngineState::Thinking);
        store(dialogue.limits.tc_moves, 0);
        search_clock.overhead_seconds = 0.05;
        set_iteration(2, 2);
    }

    static void set_iteration(i32 d, i32 last_change)
    {
        store(iter_depth, d);
        store(search_result.last_change_depth, last_change);
    }

    // Whether the search is stopped so many seconds after its start, with left on the clock then.
    bool stops_after(f64 seconds)
    {
        store(stop_code, StopCode::None);
        search_clock.target_time = target;
        store(search_clock.clock_side, White);
        store(dialogue.limits.clock_left[White], left + seconds);
        store(dialogue.limits.clock_left[Black], 0.0);
        search_clock.start_time = monotonic_seconds() - seconds;
        check_time();
        return load(stop_code) == StopCode::Report;
    }

    // Whether the limit lies at the given time, within what a slow machine may take to ask.
    void expect_limit(f64 seconds)
    {
        EXPECT_FALSE(stops_after(seconds - 0.8)) << seconds;
        EXPECT_TRUE(stops_after(seconds + 0.002)) << seconds;
    }
};

TEST_F(Clock, ElapsedIsRefreshedWhateverHappens)
{
    store(engine_state, EngineState::Idle);
    search_clock.start_time = monotonic_seconds() - 3.0;
    check_time();
    EXPECT_GE(load(search_clock.elapsed), 3.0);
    EXPECT_LT(load(search_clock.elapsed), 5.0);
}

TEST_F(Clock, TargetLessTheMarginIsTheLimit)
{
    expect_limit(10.0 - 0.025);
    search_clock.overhead_seconds = 0.01;
    EXPECT_FALSE(stops_after(10.0 - 0.7));
    EXPECT_TRUE(stops_after(10.0 - 0.009));
}

TEST_F(Clock, NoSearchIsStoppedInItsFirstMilliseconds)
{
    // The limit less its margin lies before the start.
    target = 0.002;
    EXPECT_FALSE(stops_after(-0.02));
    EXPECT_TRUE(stops_after(0.016));
}

TEST_F(Clock, OnlyAThinkingSearchBeyondDepthOneIsStopped)
{
    set_iteration(1, 1);
    EXPECT_FALSE(stops_after(50.0));
    set_iteration(2, 1);
    store(engine_state, EngineState::Pondering);
    EXPECT_FALSE(stops_after(50.0));
    store(engine_state, EngineState::Thinking);
    EXPECT_TRUE(stops_after(50.0));
}

TEST_F(Clock, StopThatWasGivenStands)
{
    search_clock.target_time = 0.002;
    store(stop_code, StopCode::Silent);
    search_clock.start_time = monotonic_seconds() - 50.0;
    check_time();
    EXPECT_EQ(load(stop_code), StopCode::Silent);
}

TEST_F(Clock, FixedTimeHasNeitherMarginNorExtension)
{
    store(dialogue.limits.tc_moves, 1);
    store(record()->fail_state, 1);
    expect_limit(10.0);
}

TEST_F(Clock, FailingLowAddsAQuarterOfTheTimeLeft)
{
    store(record()->fail_state, 1);
    expect_limit(35.0 - 0.025);
}

TEST_F(Clock, FailingHighAddsATenthOfTheTimeLeft)
{
    store(record()->fail_state, 2);
    expect_limit(20.0 - 0.025);
}

TEST_F(Clock, FallingScoreAddsAShareForEachOfTwoDepths)
{
    set_iteration(5, 5);
    store(search_result.result_score, 0);
    store(search_result.score_by_depth[4], 20);
    store(search_result.score_by_depth[3], 20);
    expect_limit(16.0 - 0.025);
    store(search_result.score_by_depth[4], 19);
    expect_limit(13.0 - 0.025);
    store(search_result.score_by_depth[3], 19);
    expect_limit(10.0 - 0.025);
}

TEST_F(Clock, LargeScoresMustFallBySixteenths)
{
    set_iteration(5, 5);
    store(search_result.result_score, 352);
    store(search_result.score_by_depth[4], 352 + 21);
    store(search_result.score_by_depth[3], 352 + 22);
    expect_limit(13.0 - 0.025);
    store(search_result.result_score, 336);
    store(search_result.score_by_depth[4], 336 + 20);
    store(search_result.score_by_depth[3], 336 + 21);
    expect_limit(13.0 - 0.025);
    store(search_result.result_score, 335);
    store(search_result.score_by_depth[4], 335 + 20);
    store(search_result.score_by_depth[3], 335 + 19);
    expect_limit(13.0 - 0.025);
    store(search_result.result_score, -352);
    store(search_result.score_by_depth[4], -352 + 22);
    store(search_result.score_by_depth[3], -352 + 21);
    expect_limit(13.0 - 0.025);
}

TEST_F(Clock, ShallowIterationsDoNotLookAtTheScores)
{
    set_iteration(3, 3);
    store(search_result.result_score, 0);
    store(search_result.score_by_depth[2], 500);
    store(search_result.score_by_depth[1], 500);
    expect_limit(10.0 - 0.025);
}

TEST_F(Clock, StableBestMoveSavesAQuarterOfTheTarget)
{
    set_iteration(6, 2);
    expect_limit(10.0 - 0.025);
    set_iteration(6, 1);
    expect_limit(7.5 - 0.025);
}

TEST_F(Clock, LessThanFiveMarginsLeftStopAtOnce)
{
    left = 0.05;
    EXPECT_TRUE(stops_after(1.0));
    left = 1.0;
    EXPECT_FALSE(stops_after(1.0));
    left = -3.0;
    EXPECT_TRUE(stops_after(4.0)) << "less than nothing counts as nothing";
}

TEST_F(Clock, SingleReplyIsPlayedFromDepthSixOn)
{
    store(search_result.single_reply, 1);
    set_iteration(5, 5);
    EXPECT_FALSE(stops_after(0.5));
    set_iteration(6, 5);
    EXPECT_TRUE(stops_after(0.5));
}

// ---- Workers with threads

struct Workers : SearchTest {
    void start(i32 count)
    {
        use_records(0);
        num_threads = count;
        ASSERT_EQ(create_workers(count), 0);
        store(stop_code, StopCode::None);
    }

    void end()
    {
        destroy_workers(num_threads);
        num_threads = 0;
        store(stop_code, StopCode::None);
    }

    void TearDown() override
    {
        if (num_threads != 0) {
            end();
        }
        SearchTest::TearDown();
    }

    static u64 search_with_workers(const char* fen, i32 depth)
    {
        begin_search(fen);
        store(dialogue.limits.depth_limit, depth);
        wake_workers(dialogue.game);
        wait_for_workers();
        collect_stats();
        return search_totals.counters[CountNodes];
    }
};

TEST_F(Workers, RecordsArePublishedAndTakenBack)
{
    start(3);
    for (i32 i = 0; i < 3; ++i) {
        const SearchThread* thread = load(workers[i]);
        ASSERT_NE(thread, nullptr);
        EXPECT_EQ(thread->thread_id, i);
        EXPECT_EQ(thread->rand_state, static_cast<u32>(i) * 123);
        EXPECT_EQ(thread->pos.thread, thread);
    }
    EXPECT_EQ(busy_workers(), 0);
    destroy_workers(3);
    EXPECT_EQ(load(stop_code), StopCode::WorkersLeave);
    for (i32 i = 0; i < 3; ++i) {
        EXPECT_EQ(load(workers[i]), nullptr);
    }
    num_threads = 0;
}

TEST_F(Workers, CountOfNoneIsCreatedAndDestroyed)
{
    use_records(0);
    EXPECT_EQ(create_workers(0), 0);
    destroy_workers(0);
    EXPECT_EQ(load(stop_code), StopCode::WorkersLeave);
}

TEST_F(Workers, OneWorkerSearchesAsTheCallingThreadDoes)
{
    const char* fen = "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -";
    run_search_to(fen, 7);
    const u64 nodes = node_count();
    const i32 score = load(search_result.result_score);
    start(1);
    EXPECT_EQ(search_with_workers(fen, 7), nodes);
    EXPECT_EQ(load(search_result.result_score), score);
    EXPECT_EQ(search_with_workers(fen, 7), nodes) << "and again";
}

TEST_F(Workers, SeveralWorkersReachTheDepthAndReportTheMoveOfTheFirst)
{
    start(4);
    const u64 nodes = search_with_workers(start_position, 8);
    EXPECT_EQ(busy_workers(), 0);
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_EQ(search_result.last_iter_depth, 8);
    EXPECT_EQ(search_result.result_pv[1], load(workers[0])->pv[1]);
    EXPECT_TRUE(is_legal_text(&dialogue.game->pos, text_of(search_result.result_pv[1]).c_str()));
    EXPECT_GE(nodes, load(load(workers[0])->counters[CountNodes]));
}

TEST_F(Workers, WakingReturnsWhenTheGameHasBeenCopied)
{
    start(2);
    for (i32 round = 0; round < 20; ++round) {
        begin_search(start_position);
        store(dialogue.limits.depth_limit, 4);
        wake_workers(dialogue.game);
        // The console's record may change at once.
        set_position("4k3/8/8/8/8/8/8/4K3 w - -");
        wait_for_workers();
        EXPECT_EQ(fen_of(&load(workers[0])->pos), start_position);
        EXPECT_EQ(load(workers[1])->pos.key, load(workers[0])->pos.key);
    }
}

TEST_F(Workers, StopEndsALongSearch)
{
    start(2);
    begin_search(start_position);
    store(dialogue.limits.depth_limit, 66);
    wake_workers(dialogue.game);
    EXPECT_GE(busy_workers(), 1);
    while (load(iter_depth) < 3) {
        sleep_microseconds(1000);
    }
    store(stop_code, StopCode::Report);
    wait_for_workers();
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_NE(search_result.result_pv[1], NoMove);
}

TEST_F(Workers, ThreeWorkersClearAllButTheSlotsLeftOverByTheDivision)
{
    start(3);
    const u32 all = hash.slots + 16;
    ASSERT_EQ(all % 3, 2u);
    for (u32 i = 0; i < all; ++i) {
        store(hash.table[i].word[1], 1);
    }
    store(hash.written, 1);
    clear_hash();
    EXPECT_EQ(busy_workers(), 0);
    for (u32 i = 0; i < all; ++i) {
        ASSERT_EQ(load(hash.table[i].word[1]), i < all - 2 ? 0u : 1u) << i;
    }
}

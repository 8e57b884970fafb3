// The worker threads: their life, what they copy at the start of a search, and the decision to
// stop a timed search. Between searches a worker touches nothing but its command word; command
// hands the plain data over (see the release and acquire calls).
#include "search/threads.h"

#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "board/position.h"
#include "search/hash.h"
#include "search/search.h"
#include "shell/run_state.h"

SpinLock info_lock;
SpinLock stats_lock;
u64 total_counters[CounterCount];
Shared<u8> records_synced;

// Rules of the clock, in seconds or as shares of the time left.
static constexpr struct {
    f64 no_stop_before = 0.015; // a search runs at least this long
    f64 largest_margin = 0.025; // of the overhead, taken off the limit
    f64 fail_low_share = 0.25;  // of the time left, while the root fails low
    f64 fail_high_share = 0.1;
    f64 score_drop_share = 0.03; // for each of two depths that the score fell behind
    f64 stable_share = 0.25;     // of the target, given back when the best move is stable
    i32 stable_depths = 4;
    i32 small_score_fall = 20; // centipawns that count as a fall
    i32 large_score = 336;     // from here on a sixteenth of the score counts
    i32 single_reply_depth = 6;
    f64 flag_guard = 5.0; // margins that must be left on the clock
} clock_rules;

static i32 worker_index[max_workers];

// Sleeps for a millisecond between two looks at a value that another thread will change.
static void short_sleep()
{
    sleep_microseconds(1000);
}

// One worker, from its start to its command to quit. Idle, it sleeps until it gets a command.
static void* worker_main(void* arg)
{
    const i32 index = *static_cast<i32*>(arg);
    SearchThread* thread = new_thread_record(index);
    if (thread == nullptr) {
        exit(0);
    }
    thread->rand_state = static_cast<u32>(index) * 123;
    store_release(workers[index], thread);

    for (;;) {
        thread->command.value.wait(CommandIdle, std::memory_order_acquire);
        const u8 command = load_acquire(thread->command);
        if (command > 90) {
            store_release(thread->command, CommandHasQuit);
            return nullptr;
        }
        if (command == CommandSearch) {
            run_search(thread, false);
        } else if (command == CommandClearHash) {
            clear_hash_share(index);
        }
        store_release(thread->command, CommandIdle);
    }
}

void post_command(SearchThread* thread, WorkerCommand command)
{
    store_release(thread->command, command);
    thread->command.value.notify_one();
}

i32 create_workers(i32 count)
{
    pthread_attr_t attributes;
    i32 error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    error = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    for (i32 i = 0; i < count && error == 0; ++i) {
        store(workers[i], nullptr);
        worker_index[i] = i;
        pthread_t handle;
        error = pthread_create(&handle, &attributes, worker_main, &worker_index[i]);
    }
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        return error;
    }
    for (i32 i = 0; i < count; ++i) {
        while (load_acquire(workers[i]) == nullptr) {
            sleep_microseconds(0);
        }
    }
    return 0;
}

void destroy_workers(i32 count)
{
    store(stop_code, StopWorkersLeave);
    wait_for_workers();
    for (i32 i = 0; i < count; ++i) {
        SearchThread* thread = load(workers[i]);
        post_command(thread, CommandQuit);
        while (load_acquire(thread->command) != CommandHasQuit) {
            sleep_microseconds(0);
        }
    }
    for (i32 i = 0; i < count; ++i) {
        delete load(workers[i]);
        store(workers[i], nullptr);
    }
}

void wake_workers()
{
    if (num_threads < 1) {
        return;
    }
    store(records_synced, 0);
    post_command(load(workers[0]), CommandSearch);
    // Worker 0 copies the console's record into all records; nobody else may run or change the
    // console's record before that is done.
    while (load_acquire(records_synced) == 0) {
        sleep_microseconds(50);
    }
    for (i32 i = 1; i < num_threads; ++i) {
        post_command(load(workers[i]), CommandSearch);
    }
}

void end_search(StopCode code)
{
    u8 running = StopNone;
    stop_code.value.compare_exchange_strong(running, code, std::memory_order_relaxed);
}

i32 busy_workers()
{
    i32 busy = 0;
    for (i32 i = 0; i < num_threads; ++i) {
        const SearchThread* thread = load(workers[i]);
        if (thread != nullptr && load_acquire(thread->command) != CommandIdle) {
            ++busy;
        }
    }
    return busy;
}

void wait_for_workers()
{
    while (busy_workers() != 0) {
        short_sleep();
    }
}

// Resets what a search counts and reports.
static void reset_search_state(SearchThread* thread)
{
    memset(thread->pv, 0, sizeof thread->pv);
    store(thread->depth, 0);
    store(thread->fail_state, 0);
    thread->completed_depth = 0;
    thread->seldepth = 0;
    thread->score = 0;
    thread->null_depth = 0;
    for (Shared<u64>& counter : thread->counters) {
        store(counter, 0);
    }
}

// Copies the game of the console's record into one worker's record.
static void sync_worker(SearchThread* thread, const SearchThread* console)
{
    thread->pos = console->pos;
    thread->pos.thread = thread;
    const i32 count = console->undo_count;
    memcpy(thread->undo, console->undo, sizeof(UndoRecord) * static_cast<size_t>(count));
    thread->undo[count].move = 0;
    thread->undo_count = console->undo_count;
    thread->last_move = console->last_move;
    thread->ply = 1;
    init_move_lists(thread);
    for (i32 ply = 0; ply < 2; ++ply) {
        PlyRecord* ply_rec = &thread->ply_rec[ply];
        ply_rec->list_cursor = ply_rec->list_start;
        ply_rec->node_type = 0;
    }
    thread->node_limit = node_limit_total != 0 ? static_cast<u64>(node_limit_total) : 1ULL << 62;
    reset_search_state(thread);
    for (i32 side = White; side <= Black; ++side) {
        thread->root_phase[side] = static_cast<u8>(thread->pos.phase_mtl[side]);
    }
}

void sync_workers()
{
    for (i32 i = 0; i < num_threads; ++i) {
        sync_worker(load(workers[i]), console_thread);
    }
}

void collect_stats()
{
    memset(total_counters, 0, sizeof total_counters);
    for (i32 i = 0; i < num_threads; ++i) {
        const SearchThread* thread = load(workers[i]);
        if (thread == nullptr) {
            continue;
        }
        for (i32 k = 0; k < CounterCount; ++k) {
            total_counters[k] += load(thread->counters[k]);
        }
    }
}

// Seconds to add to the target, from what the root of worker 0 and the last iterations say.
// left: seconds on the clock, limit: the target, d: the iteration that runs.
static f64 extra_time(f64 left, f64 limit, i32 d)
{
    const SearchThread* master = load(workers[0]);
    const u8 fail_state = master != nullptr ? load(master->fail_state) : 0;
    if (fail_state == 1) {
        return left * clock_rules.fail_low_share;
    }
    if (fail_state == 2) {
        return left * clock_rules.fail_high_share;
    }
    f64 extra = 0.0;
    if (d > 3) {
        const i32 score = load(search_result.result_score);
        const i32 size = abs(score);
        const i32 fall = size >= clock_rules.large_score ? size / 16 : clock_rules.small_score_fall;
        for (i32 back = 1; back <= 2; ++back) {
            if (score <= load(search_result.score_by_depth[d - back]) - fall) {
                extra += left * clock_rules.score_drop_share;
            }
        }
        if (d - load(search_result.last_change_depth) > clock_rules.stable_depths) {
            extra -= limit * clock_rules.stable_share;
        }
    }
    return extra;
}

void check_time()
{
    update_elapsed();
    const f64 now = load(elapsed);
    const i32 d = load(iter_depth);
    if (load(stop_code) != StopNone || load(engine_state) != EngineThinking || d < 2
        || now < clock_rules.no_stop_before) {
        return;
    }
    const f64 left = std::max(0.0, load(clock_left[load(clock_side)]) - now);
    f64 limit = target_time;
    f64 margin = 0.0;
    if (load(tc_moves) != 1) {
        margin = std::min(overhead_seconds, clock_rules.largest_margin);
        limit += extra_time(left, limit, d);
    }
    limit -= margin;
    const bool forced =
        load(search_result.single_reply) != 0 && d >= clock_rules.single_reply_depth;
    if (forced || clock_rules.flag_guard * margin > left || now >= limit) {
        end_search(StopReport);
    }
}

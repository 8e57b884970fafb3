// The worker threads: their life, and what they copy at the start of a search. Between searches a
// worker touches nothing but its command word; command hands the plain data over: what was written
// before a release of the word is there for whoever acquires it, in both directions. Plain fields
// of a record are therefore the worker's while its command stands, and the main thread's otherwise.
#include "search/threads.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>

#include "base/clock.h"
#include "base/wakeup.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/search.h"

constinit SpinLock info_lock {};
constinit SpinLock stats_lock {};
constinit SearchTotals search_totals {};

// The game that worker 0 is to copy, and whether it has done so.
static constinit const SearchThread* game_to_sync = nullptr;
static constinit Shared<u8> records_synced {};

// The arguments of the threads, which must live as long as they do.
static i32 worker_index[max_workers];

// Microseconds between two looks at a thread that ends: it cannot call when it has gone. Asleep,
// not spinning: under a fixed priority on one processor the thread would never get its turn.
static constexpr i32 look_microseconds = 20;

static constexpr u8 first_quit_command = 91;
static constexpr u64 no_node_limit = 1ULL << 62; // nodes; no search comes near

// One worker, from its start to its command to quit. Idle, it sleeps until it gets a command.
// It makes its record itself, so that the memory is near the processor that will work on it; the
// release hands it to the main thread, which waits for that. Without memory there is no worker to
// tell anybody, and half a team is not what was set up: the program ends.
static void* worker_main(void* arg)
{
    const i32 index = *static_cast<i32*>(arg);
    SearchThread* thread = new_thread_record(index);
    if (thread == nullptr) {
        fprintf(stderr, "no memory for worker %d\n", index);
        exit(0);
    }
    // Until the first search replaces it.
    thread->rand_state = static_cast<u32>(index) * 123;
    store_release(workers[index], thread);
    workers[index].value.notify_one();

    for (;;) {
        thread->command.value.wait(CommandIdle, std::memory_order_acquire);
        const u8 command = load_acquire(thread->command);
        if (command >= first_quit_command) {
            store_release(thread->command, CommandHasQuit);
            return nullptr;
        }
        if (command == CommandSearch) {
            run_search(thread, index == 0 ? game_to_sync : nullptr);
        } else if (command == CommandClearHash) {
            clear_hash_share(index);
        } else if (command == CommandTouchHash) {
            touch_hash_share(index);
        }
        // What the search has left in the record is the main thread's from here on. It may wait for
        // this very word, or for anything that happens.
        store_release(thread->command, CommandIdle);
        thread->command.value.notify_all();
        wake_main_loop();
    }
}

// Detached: a worker says by its command word that it has gone, so nobody needs to join it.
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
        workers[i].value.wait(nullptr, std::memory_order_acquire);
    }
    return 0;
}

void destroy_workers(i32 count)
{
    // Over any other reason: a search that is being torn down must not report.
    store(stop_code, StopCode::WorkersLeave);
    wait_for_workers();
    for (i32 i = 0; i < count; ++i) {
        SearchThread* thread = load(workers[i]);
        post_command(thread, CommandQuit);
        while (load_acquire(thread->command) != CommandHasQuit) {
            sleep_microseconds(look_microseconds);
        }
    }
    for (i32 i = 0; i < count; ++i) {
        delete_thread_record(load(workers[i]));
        store(workers[i], nullptr);
    }
}

void wake_workers(const SearchThread* game)
{
    if (num_threads < 1) {
        return;
    }
    game_to_sync = game;
    store(records_synced, 0);
    post_command(load(workers[0]), CommandSearch);
    // Worker 0 copies the game into all records; nobody else may run or change the game before
    // that is done.
    records_synced.value.wait(0, std::memory_order_acquire);
    for (i32 i = 1; i < num_threads; ++i) {
        post_command(load(workers[i]), CommandSearch);
    }
}

void end_search_silently()
{
    if (busy_workers() == 0) {
        return;
    }
    store(stop_code, StopCode::Silent);
    wait_for_workers();
}

void drop_search()
{
    if (busy_workers() != 0) {
        end_search_silently();
        store(engine_state, EngineState::Idle);
    }
}

// Resets what a search counts and reports.
static void reset_search_state(SearchThread* thread)
{
    memset(thread->pv, 0, sizeof thread->pv);
    store(thread->depth, 0);
    store(thread->fail_state, InWindow);
    thread->completed_depth = 0;
    thread->seldepth = 0;
    thread->score = 0;
    thread->null_depth = 0;
    for (Shared<u64>& counter : thread->counters) {
        store(counter, 0);
    }
    for (Shared<u64>& counter : thread->eval_counters) {
        store(counter, 0);
    }
}

// Copies a game into one worker's record. Of the undo stack only the part in use goes over, most
// of it is room. The worker's caches hold what is true in any game and stay.
static void sync_worker(SearchThread* thread, const SearchThread* game)
{
    // The copied board still belongs to the game's record.
    thread->pos = game->pos;
    thread->pos.thread = thread;
    thread->pos.stack = thread;
    const i32 count = game->undo_count;
    memcpy(thread->undo, game->undo, sizeof(UndoRecord) * static_cast<size_t>(count));
    // A move that the user has taken back stands there in the game; it is not part of the line.
    thread->undo[count].move = NoMove;
    thread->undo_count = game->undo_count;
    thread->last_move = game->last_move;
    thread->ply = 1;
    init_move_lists(thread);
    // Ply 0 is no node, but the root's children look two plies back.
    for (i32 ply = 0; ply < 2; ++ply) {
        PlyRecord* ply_rec = &thread->ply_rec[ply];
        ply_rec->list_cursor = ply_rec->list_start;
        ply_rec->node_type = PvNode;
    }
    const i64 node_limit = search_clock.limits->node_limit_total;
    thread->node_limit = node_limit != 0 ? static_cast<u64>(node_limit) : no_node_limit;
    reset_search_state(thread);
    for (i32 side = White; side <= Black; ++side) {
        thread->root_phase[side] = static_cast<u8>(thread->pos.phase_mtl[side]);
    }
}

void sync_workers(const SearchThread* game)
{
    for (i32 i = 0; i < num_threads; ++i) {
        sync_worker(load(workers[i]), game);
    }
    store_release(records_synced, 1);
    records_synced.value.notify_one();
}

// The counters go on while they are added up: each is a number that its worker has had.
void collect_stats()
{
    memset(search_totals.counters, 0, sizeof search_totals.counters);
    memset(search_totals.eval_counters, 0, sizeof search_totals.eval_counters);
    for (i32 i = 0; i < num_threads; ++i) {
        const SearchThread* thread = load(workers[i]);
        if (thread == nullptr) {
            continue;
        }
        for (i32 k = 0; k < CounterCount; ++k) {
            search_totals.counters[k] += load(thread->counters[k]);
        }
        for (i32 k = 0; k < EvalCounterCount; ++k) {
            search_totals.eval_counters[k] += load(thread->eval_counters[k]);
        }
    }
}

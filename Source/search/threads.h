// The worker threads and what they share with the main thread.
#pragma once

#include "base/lock.h"
#include "search/control.h"
#include "search/workers.h"

// Needed only while a search runs: between searches the main thread is alone with what they guard.
// info_lock is taken before the lock of the output, never after.
// Taken by whoever prints or sums, workers and main thread alike.
extern SpinLock info_lock;  // the making of a search line, the sums and the fill that it shows
extern SpinLock stats_lock; // nodes_by_depth

// What the search has counted, summed over the workers.
struct SearchTotals {
    u64 counters[CounterCount];          // filled by collect_stats, under info_lock
    u64 eval_counters[EvalCounterCount]; // the same
    u64 nodes_by_depth[ply_count];       // each worker adds its own, under stats_lock
    i32 debug_counters[4];               // free for a developer's counting, printed when not all 0
};
extern SearchTotals search_totals;

// Starts count workers and waits until all records exist. Returns 0, or the error number of the
// call that failed; workers made before a failure stay.
[[nodiscard]] i32 create_workers(i32 count);

// Stops and ends the workers and frees their records. All count of them must exist.
void destroy_workers(i32 count);

// Wakes all workers for a search of a game: worker 0 first, the others when it has copied the game
// into all records. Returns after that; does nothing without workers.
void wake_workers(const SearchThread* game);

// Ends a running search without a report and waits for the workers. The state stays: whoever asked
// for the search may still ask for its end, and gets what it has found. Does nothing while no
// worker is busy: a result that waits for its report stays.
void end_search_silently();

// The same for good: the search is forgotten, and the state is idle if one ran.
void drop_search();

// Copies the position and the undo stack of a game into all workers and resets their search state.
void sync_workers(const SearchThread* game);

// Sums the counters of all workers into search_totals.
void collect_stats();

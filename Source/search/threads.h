// The worker threads, what they share with the main thread, and the clock's decision to stop.
#pragma once

#include "board/position.h"
#include "base/output.h"
#include "shell/run_state.h"

extern SpinLock info_lock;               // building of a search line and the shared totals
extern SpinLock stats_lock;              // nodes_by_depth
extern u64 total_counters[CounterCount]; // filled by collect_stats, under info_lock
extern Shared<u8> records_synced;        // worker 0 has copied the console's record

// Starts count workers and waits until all records exist. Returns 0, or the error number of the
// call that failed; workers made before a failure stay.
i32 create_workers(i32 count);

// Stops and ends the workers and frees their records.
void destroy_workers(i32 count);

// Gives an idle worker a command and wakes it.
void post_command(SearchThread* thread, WorkerCommand command);

// Wakes all workers for a search: worker 0 first, the others when it has copied the console's
// record. Returns after that; does nothing without workers.
void wake_workers();

// The number of workers that have a command.
i32 busy_workers();

// Waits until no worker is busy, asleep between looks.
void wait_for_workers();

// Copies the console's position and undo stack into all workers and resets their search state.
void sync_workers();

// Sums the counters of all workers into total_counters.
void collect_stats();

// Sets stop_code while the search runs. A code that is set already stands, so that a silent end
// never turns into a report.
void end_search(StopCode code);

// Refreshes elapsed and sets stop_code when the time for this move is used up.
void check_time();

// The records of the workers and the word by which each is commanded.
#pragma once

#include "search/thread.h"

// The workers' records; null where there is none. Each worker publishes its own, destroy_workers
// takes them back. num_threads is how many exist; the main thread sets it while none searches.
extern Shared<SearchThread*> workers[max_workers];
extern i32 num_threads;

// Gives an idle worker a command and wakes it. What the caller has written before is seen by the
// worker from then on.
void post_command(SearchThread* thread, WorkerCommand command);

// The number of workers that have a command. At 0 all that they have written is seen by the caller.
i32 busy_workers();

// Waits until no worker is busy, asleep between looks.
void wait_for_workers();

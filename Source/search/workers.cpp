// Commanding the workers. A command word hands plain data over: what was written before it was set
// is seen by the worker, and the other way round when the worker clears it.
#include "search/workers.h"

#include "base/clock.h"

// Between two looks at workers that search: nobody is in a hurry.
static constexpr i32 look_microseconds = 1000;

constinit Shared<SearchThread*> workers[max_workers] {};
constinit i32 num_threads = 0;

void post_command(SearchThread* thread, WorkerCommand command)
{
    store_release(thread->command, command);
    thread->command.value.notify_one();
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
        sleep_microseconds(look_microseconds);
    }
}

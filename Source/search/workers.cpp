// Commanding the workers. A command word hands plain data over: what was written before it was set
// is seen by the worker, and the other way round when the worker clears it.
#include "search/workers.h"

#include <atomic>

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
    for (i32 i = 0; i < num_threads; ++i) {
        const SearchThread* thread = load(workers[i]);
        u8 command = CommandIdle;
        while (thread != nullptr && (command = load_acquire(thread->command)) != CommandIdle) {
            thread->command.value.wait(command, std::memory_order_acquire);
        }
    }
}

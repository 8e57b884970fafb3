// Waiting for a lock: a holder that runs is done after some spins; one whose processor was taken
// away needs it back, so a waiter yields, and then sleeps.
#include "base/lock.h"

#include <ctime>
#include <sched.h>

// How often, and how long, one after the other.
static constexpr i32 spins_before_yield = 300;
static constexpr i32 yields_before_sleep = 50;
static constexpr i64 lock_sleep_nanoseconds = 100000;

// The exchange acquires: what the last holder wrote is there for the next.
void lock_spin(SpinLock* lock)
{
    for (i32 tries = 0; lock->taken.exchange(true, std::memory_order_acquire); ++tries) {
        if (tries < spins_before_yield) {
            // Tells the processor that nothing is to be guessed ahead, and leaves the core to its
            // other thread.
#if defined(__x86_64__)
            __builtin_ia32_pause();
#endif
        } else if (tries < spins_before_yield + yields_before_sleep) {
            sched_yield();
        } else {
            const timespec pause = { 0, lock_sleep_nanoseconds };
            nanosleep(&pause, nullptr);
        }
    }
}

void unlock_spin(SpinLock* lock)
{
    lock->taken.store(false, std::memory_order_release);
}

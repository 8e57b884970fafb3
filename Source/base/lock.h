// The lock of short moments: it spins for a moment, then yields, then sleeps. Held only while a
// line is built or written, or a sum is taken.
#pragma once

#include <atomic>

#include "base/types.h"

struct SpinLock {
    std::atomic<bool> taken;
};

// For SpinGuard, which cannot forget the second. A thread must not take a lock that it holds.
void lock_spin(SpinLock* lock);
void unlock_spin(SpinLock* lock);

// Holds a lock from its definition to the end of the block, by whatever way the block is left.
struct SpinGuard {
    explicit SpinGuard(SpinLock* held)
        : lock(held)
    {
        lock_spin(lock);
    }
    ~SpinGuard()
    {
        unlock_spin(lock);
    }
    SpinGuard(const SpinGuard&) = delete;
    SpinGuard& operator=(const SpinGuard&) = delete;

    SpinLock* lock;
};

// What this machine has: memory, processors, and how late it wakes a program up. Nothing here
// prints. Files of the system are looked for below a folder, "" for the system's own, so that a
// test can stand in for it; a file that is not there is a value that is not known.
#pragma once

#include "base/types.h"

inline constexpr u64 no_limit = ~u64 { 0 };

// Whether the system gives out large pages to a program that wants them.
enum class HugePages : u8 { Unknown, Never, OnWish, Always };
[[nodiscard]] HugePages read_huge_pages(const char* root);

// Bytes that a program may take without another one being pushed out: no_limit if unknown.
struct MemoryLeft {
    u64 machine; // what the system says
    u64 group;   // under the limit of a container
    u64 process; // under the limit of the process's own address space
};
[[nodiscard]] MemoryLeft read_memory_left(const char* root);
[[nodiscard]] u64 least_of(const MemoryLeft* left);

// Megabytes of a hash table for play, and the largest sensible one, where so many bytes are left:
// a quarter, as two engines may play each other, and half of it, as powers of two; the first
// at most 1024. 0 if there is not enough for the smallest.
inline constexpr i32 smallest_hash = 16;
inline constexpr i32 largest_hash = 16384;
inline constexpr i32 enough_hash = 1024;
[[nodiscard]] i32 hash_for_play(u64 bytes);
[[nodiscard]] i32 hash_for_analysis(u64 bytes);

// Processors that this process may use.
struct Processors {
    i32 threads; // as the system counts them
    i32 cores;   // with two threads of one core counted once
    f64 quota;   // how many a container may keep busy; 0 for no limit
};
[[nodiscard]] Processors read_processors(const char* root);

// Search threads for a machine like that: 1 to 128.
[[nodiscard]] i32 threads_for(const Processors* processors);

// Seconds by which this machine came too late, when it was to wake a program after a millisecond.
struct WakeDelays {
    i32 count;
    f64 median;
    f64 most; // 99 of 100 were no longer
    f64 maximum;
};
// Measures for about so many seconds.
[[nodiscard]] WakeDelays measure_wake_delays(f64 seconds);
// From samples, which are put in order; count is at least 1.
[[nodiscard]] WakeDelays sum_up_delays(f64* samples, i32 count);

// Milliseconds of Move Overhead for such a machine: at least usual_overhead, and twice the longest
// delay beside what the engine and the chess program need themselves.
inline constexpr i32 usual_overhead = 50;
[[nodiscard]] i32 overhead_for(const WakeDelays* delays);

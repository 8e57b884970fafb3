// Fixed-width numbers, the one kind of value that two threads may share, and the developers' check.
// Everything in the program may include this file.
#pragma once

#include <atomic>
#include <cfloat>
#include <cstddef>
#include <cstdint>

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i8 = std::int8_t;
using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;
using f32 = float;
using f64 = double;

// The evaluation's rounding rules need every float step rounded to its own type.
static_assert(FLT_EVAL_METHOD == 0);

// A value that several threads read or write. It has no operators on purpose: a careless
// assignment would cost a locked instruction; the helpers below are plain loads and stores.
template <typename T>
struct Shared {
    std::atomic<T> value;
};

template <typename T>
inline T load(const Shared<T>& shared)
{
    return shared.value.load(std::memory_order_relaxed);
}

template <typename T, typename U>
inline void store(Shared<T>& shared, U value)
{
    shared.value.store(static_cast<T>(value), std::memory_order_relaxed);
}

// Adds without a locked instruction: for values with a single writer.
template <typename T, typename U>
inline void add(Shared<T>& shared, U value)
{
    store(shared, load(shared) + static_cast<T>(value));
}

// The pair for values that hand other data over from one thread to another.
template <typename T>
inline T load_acquire(const Shared<T>& shared)
{
    return shared.value.load(std::memory_order_acquire);
}

template <typename T, typename U>
inline void store_release(Shared<T>& shared, U value)
{
    shared.value.store(static_cast<T>(value), std::memory_order_release);
}

// Whether this is the tuning build, in which the evaluation notes how often each weight counts.
#if defined(VESK_TUNE)
inline constexpr bool tuning = true;
#else
inline constexpr bool tuning = false;
#endif

// A check for developers; the debug and fuzz builds define VESK_DEBUG. The sanitized builds run the
// tests of the debug build, and take long enough without.
#if defined(VESK_DEBUG)
[[noreturn]] void debug_check_failed(const char* condition, const char* file, int line);
#define debug_check(condition)                                                                     \
    ((condition) ? static_cast<void>(0) : debug_check_failed(#condition, __FILE__, __LINE__))
#else
#define debug_check(condition) static_cast<void>(0)
#endif

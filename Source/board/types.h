// Numbers, squares, pieces, bit helpers and the one kind of value that two threads may share.
// Everything in the program may include this file; it includes nothing of the program.
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

// A move: to-square in bits 0-5, from-square in bits 8-13, promotion flags below.
// Castling is a king's move of two squares, en passant a pawn's move to ep_square.
using Move = u16;

enum : Move {
    NoMove = 0,        // also what a null move writes into the undo stack
    EndOfList = 65535, // closes a move list
    PromoteQueen = 64,
    PromoteKnight = 128,
    PromoteBishop = 16384,
    PromoteRook = 32768,
    PromotionMask = 0xc0c0,
};

enum : i32 { White = 0, Black = 1 };

// Piece types. A piece code is type + 8 * side; code 0 is an empty square.
enum : i32 { NoPiece, Pawn, Knight, Bishop, Rook, Queen, King };

enum : i32 { NoSquare = 64 };

inline i32 to_square(Move move)
{
    return move & 63;
}

inline i32 from_square(Move move)
{
    return (move >> 8) & 63;
}

inline Move make_move_code(i32 from, i32 to)
{
    return static_cast<Move>((from << 8) | to);
}

// The step of a pawn of each side, in squares.
inline constexpr i32 pawn_step[2] = { 8, -8 };

inline u64 bit(i32 square)
{
    return 1ULL << square;
}

// Number of set bits, 0 to 64.
inline i32 popcount(u64 set)
{
#if defined(__POPCNT__)
    return __builtin_popcountll(set);
#else
    set -= (set >> 1) & 0x5555555555555555ULL;
    set = (set & 0x3333333333333333ULL) + ((set >> 2) & 0x3333333333333333ULL);
    set = (set + (set >> 4)) & 0x0f0f0f0f0f0f0f0fULL;
    return static_cast<i32>((set * 0x0101010101010101ULL) >> 56);
#endif
}

// Index of the lowest set bit; the set must not be empty.
inline i32 lowest(u64 set)
{
    return __builtin_ctzll(set);
}

// Index of the highest set bit; the set must not be empty.
inline i32 highest(u64 set)
{
    return 63 ^ __builtin_clzll(set);
}

// Takes the lowest square out of a set that is not empty, and returns it.
inline i32 pop_lowest(u64* set)
{
    const i32 square = lowest(*set);
    *set &= *set - 1;
    return square;
}

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

// A check for developers; the debug and sanitizer builds define VESK_DEBUG.
#if defined(VESK_DEBUG)
[[noreturn]] void debug_check_failed(const char* condition, const char* file, int line);
#define debug_check(condition)                                                                     \
    ((condition) ? static_cast<void>(0) : debug_check_failed(#condition, __FILE__, __LINE__))
#else
#define debug_check(condition) static_cast<void>(0)
#endif

// Moves, squares, pieces, and sets of squares: the words of the board. How a piece, a square or a
// move is packed into its number is known to the routines of this file alone; all others ask them,
// and pay nothing for it.
#pragma once

#include "base/types.h"

// A move: to-square in bits 0-5, from-square in bits 8-13, promotion flags below.
// Castling is a king's move of two squares, en passant a pawn's move to ep_square: the board tells
// them, so the number needs no mark for either. The flags take the two spare bits of each byte.
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

// The sides; the other side is side ^ 1.
enum : i32 { White = 0, Black = 1 };

// Piece types. A piece code is type + 8 * side; code 0 is an empty square. The order is that of
// worth, by which the exchange takes the least piece first, and that of every table by type.
enum : i32 { NoPiece, Pawn, Knight, Bishop, Rook, Queen, King };

// The type of a piece code, NoPiece for an empty square.
inline constexpr i32 type_of(i32 code)
{
    return code & 7;
}

// The side of a piece code that is not 0.
inline constexpr i32 side_of(i32 code)
{
    return code >> 3;
}

inline constexpr i32 piece_code(i32 side, i32 type)
{
    return 8 * side + type;
}

// Squares are numbered 0 for a1, 1 for b1, to 63 for h8.
enum : i32 { NoSquare = 64 };

inline constexpr i32 file_of(i32 square)
{
    return square & 7;
}

inline constexpr i32 rank_of(i32 square)
{
    return square >> 3;
}

// The square of a file and a rank, 0 to 7 each; neither is checked.
inline constexpr i32 square_at(i32 file, i32 rank)
{
    return 8 * rank + file;
}

// The rank as side counts it: 0 is its own first rank.
inline constexpr i32 relative_rank(i32 side, i32 square)
{
    return side == White ? rank_of(square) : 7 - rank_of(square);
}

inline constexpr i32 to_square(Move move)
{
    return move & 63;
}

inline constexpr i32 from_square(Move move)
{
    return (move >> 8) & 63;
}

// A move without flags.
inline constexpr Move make_move_code(i32 from, i32 to)
{
    return static_cast<Move>((from << 8) | to);
}

// The step of a pawn of each side, in squares.
inline constexpr i32 pawn_step[2] = { 8, -8 };

// Where a king stands that may castle, e1 and e8.
inline constexpr i32 king_home[2] = { 4, 60 };

// Castling rights as bits of Position.castle. Black's are white's, two bits up.
enum CastleRight : u8 {
    WhiteShort = 1,
    WhiteLong = 2,
    BlackShort = 4,
    BlackLong = 8,
    AllCastling = 15,
};

// Sets of squares that have a name; those by side are seen from its own edge of the board.
inline constexpr u64 file_a = 0x0101010101010101ULL;
inline constexpr u64 file_h = 0x8080808080808080ULL;
inline constexpr u64 light_squares = 0x55aa55aa55aa55aaULL;
inline constexpr u64 dark_squares = ~light_squares;
inline constexpr u64 outer_ranks = 0xff000000000000ffULL; // the first and the last
inline constexpr u64 double_step_rank[2] = { 0xff000000ULL, 0xff00000000ULL }; // where one ends
inline constexpr u64 seventh_rank[2] = { 0x00ff000000000000ULL, 0xff00ULL };

// The set of one square, which must be on the board.
inline constexpr u64 bit(i32 square)
{
    return 1ULL << square;
}

// Number of set bits, 0 to 64. Without the processor's instruction the sums are made in pairs,
// fours and bytes: the compiler would call a routine of its library instead.
inline constexpr i32 popcount(u64 set)
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
inline constexpr i32 lowest(u64 set)
{
    return __builtin_ctzll(set);
}

// Index of the highest set bit; the set must not be empty.
inline constexpr i32 highest(u64 set)
{
    return 63 ^ __builtin_clzll(set);
}

// Takes the lowest square out of a set that is not empty, and returns it.
inline constexpr i32 pop_lowest(u64* set)
{
    const i32 square = lowest(*set);
    *set &= *set - 1;
    return square;
}

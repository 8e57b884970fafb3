// Read-only tables of the board, made by the compiler, and slider attacks. Sets of squares are
// bitboards, bit 0 for a1; a table by square has one entry for each of the 64.
#pragma once

#ifdef __BMI2__
#include <immintrin.h>
#endif

#include "board/types.h"

// All of them in one block, so that one base address serves for a routine that reads several.
struct ConstantTables {
    u64 pawn_attacks[2][64]; // squares attacked by a pawn of that side
    u64 knight_attacks[64];
    u64 king_attacks[64];
    u64 ray_n[64], ray_e[64], ray_nw[64], ray_ne[64]; // towards higher squares
    u64 ray_s[64], ray_w[64], ray_sw[64], ray_se[64]; // towards lower squares
    u64 bishop_rays[64];                              // a bishop's moves on an empty board
    u64 rook_rays[64];
    // The same by piece code, of all pieces, for whoever has a code and would have to ask its type.
    u64 empty_attacks[16][64];
    u64 between[64][64];    // squares strictly between two squares of one line
    u64 passed_mask[2][64]; // own and neighbouring files in front of the square
    u64 adjacent_files[8];
    u64 ranks_above[8];
    u64 ranks_below[8];
    // Keys by piece code and square. Row NoPiece serves the en-passant squares and, at the first
    // sixteen, the values of castle: no double step passes over the squares of those numbers.
    u64 zobrist[16][64];
};
extern const ConstantTables board_tables;

// The names by which the program knows them.
inline constexpr const auto& pawn_attacks = board_tables.pawn_attacks;
inline constexpr const auto& knight_attacks = board_tables.knight_attacks;
inline constexpr const auto& king_attacks = board_tables.king_attacks;
inline constexpr const auto& ray_n = board_tables.ray_n;
inline constexpr const auto& ray_e = board_tables.ray_e;
inline constexpr const auto& ray_nw = board_tables.ray_nw;
inline constexpr const auto& ray_ne = board_tables.ray_ne;
inline constexpr const auto& ray_s = board_tables.ray_s;
inline constexpr const auto& ray_w = board_tables.ray_w;
inline constexpr const auto& ray_sw = board_tables.ray_sw;
inline constexpr const auto& ray_se = board_tables.ray_se;
inline constexpr const auto& bishop_rays = board_tables.bishop_rays;
inline constexpr const auto& rook_rays = board_tables.rook_rays;
inline constexpr const auto& empty_attacks = board_tables.empty_attacks;
inline constexpr const auto& between = board_tables.between;
inline constexpr const auto& passed_mask = board_tables.passed_mask;
inline constexpr const auto& adjacent_files = board_tables.adjacent_files;
inline constexpr const auto& ranks_above = board_tables.ranks_above;
inline constexpr const auto& ranks_below = board_tables.ranks_below;
inline constexpr const auto& zobrist = board_tables.zobrist;

// The tables below are written once, by init_board_tables, which main calls before any thread
// exists: the compiler would take minutes for them, and only a running processor shows whether it
// has a use for the last ones.
void init_board_tables();

// King and pawn against king.
// [lone side to move][file + 4 * rank of the pawn, files a to d][pawn side's king][lone king]
extern u8 kpk_table[2][32][64][64];
inline constexpr u8 kpk_win = 2; // the pawn side wins; any other value is no win
void init_kpk();

// Attack sets including the first blocker in each direction, whatever its colour: of each ray the
// part behind its first blocker is taken off again.
// The guard bits 63 and 0 stand for "no blocker": their rays are empty, and the sets are never
// empty, so that no direction needs a branch.
inline u64 bishop_attacks_by_rays(i32 square, u64 occupied)
{
    const u64 nw = (occupied & ray_nw[square]) | (1ULL << 63);
    const u64 ne = (occupied & ray_ne[square]) | (1ULL << 63);
    const u64 sw = (occupied & ray_sw[square]) | 1;
    const u64 se = (occupied & ray_se[square]) | 1;
    return bishop_rays[square] ^ ray_nw[lowest(nw)] ^ ray_ne[lowest(ne)] ^ ray_sw[highest(sw)]
        ^ ray_se[highest(se)];
}

inline u64 rook_attacks_by_rays(i32 square, u64 occupied)
{
    const u64 n = (occupied & ray_n[square]) | (1ULL << 63);
    const u64 e = (occupied & ray_e[square]) | (1ULL << 63);
    const u64 s = (occupied & ray_s[square]) | 1;
    const u64 w = (occupied & ray_w[square]) | 1;
    return rook_rays[square] ^ ray_n[lowest(n)] ^ ray_e[lowest(e)] ^ ray_s[highest(s)]
        ^ ray_w[highest(w)];
}

#ifdef __BMI2__
// The same sets looked up. One instruction gathers what stands on the lines of a slider into an
// index, another spreads the entry over the lines again: kept so, in 16 bits each, all sets of all
// squares fit the second cache.
struct SliderLines {
    u64 inner;        // the squares of the lines whose occupation matters: not the last of each
    u64 all;          // all squares of the lines
    const u16* reach; // by the gathered occupation: the attacked squares, gathered too
};
extern SliderLines bishop_lines[64];
extern SliderLines rook_lines[64];

// Whether the tables are filled. Some processors have the two instructions but take hundreds of
// cycles for them: there the rays are faster.
extern bool sliders_by_table;
void init_sliders();

inline u64 look_up(const SliderLines& lines, u64 occupied)
{
    return _pdep_u64(lines.reach[_pext_u64(occupied, lines.inner)], lines.all);
}

inline u64 bishop_attacks(i32 square, u64 occupied)
{
    return sliders_by_table ? look_up(bishop_lines[square], occupied)
                            : bishop_attacks_by_rays(square, occupied);
}

inline u64 rook_attacks(i32 square, u64 occupied)
{
    return sliders_by_table ? look_up(rook_lines[square], occupied)
                            : rook_attacks_by_rays(square, occupied);
}
#else
inline constexpr bool sliders_by_table = false;

inline u64 bishop_attacks(i32 square, u64 occupied)
{
    return bishop_attacks_by_rays(square, occupied);
}

inline u64 rook_attacks(i32 square, u64 occupied)
{
    return rook_attacks_by_rays(square, occupied);
}
#endif

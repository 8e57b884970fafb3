// Read-only tables of the board, built once before any thread exists, and slider attacks.
#pragma once

#include "board/types.h"

extern u64 pawn_attacks[2][64]; // squares attacked by a pawn of that side
extern u64 knight_attacks[64];
extern u64 king_attacks[64];
extern u64 ray_n[64], ray_e[64], ray_nw[64], ray_ne[64]; // towards higher squares
extern u64 ray_s[64], ray_w[64], ray_sw[64], ray_se[64]; // towards lower squares
extern u64 bishop_rays[64];                              // a bishop's moves on an empty board
extern u64 rook_rays[64];
extern u64 between[64][64];    // squares strictly between two squares of one line
extern u64 passed_mask[2][64]; // own and neighbouring files in front of the square
extern u64 adjacent_files[8];
extern u64 ranks_above[8];
extern u64 ranks_below[8];
extern u64 zobrist[16][64]; // row 0: en-passant squares and castling values
// [lone side to move][file + 4 * rank of the pawn, files a to d][pawn side's king][lone king]
extern u8 kpk_table[2][32][64][64];

// Square maps of the evaluation: identity, 63 - s, s ^ 7, s ^ 56.
extern const u8 map_identity[64], map_rotate[64], map_mirror_file[64], map_mirror_rank[64];

// Builds every table of this file except zobrist.
void init_tables();

// Builds kpk_table; called by init_tables, which has built king_attacks before.
void init_kpk();

// Fills zobrist at the first call, from Marsaglia's multiply-with-carry generator with fixed
// seeds; later calls do nothing.
void init_zobrist();

// Attack sets including the first blocker in each direction, whatever its colour.
// The guard bits 63 and 0 stand for "no blocker": their rays are empty.
inline u64 bishop_attacks(i32 square, u64 occupied)
{
    const u64 nw = (occupied & ray_nw[square]) | (1ULL << 63);
    const u64 ne = (occupied & ray_ne[square]) | (1ULL << 63);
    const u64 sw = (occupied & ray_sw[square]) | 1;
    const u64 se = (occupied & ray_se[square]) | 1;
    return bishop_rays[square] ^ ray_nw[lowest(nw)] ^ ray_ne[lowest(ne)] ^ ray_sw[highest(sw)]
        ^ ray_se[highest(se)];
}

inline u64 rook_attacks(i32 square, u64 occupied)
{
    const u64 n = (occupied & ray_n[square]) | (1ULL << 63);
    const u64 e = (occupied & ray_e[square]) | (1ULL << 63);
    const u64 s = (occupied & ray_s[square]) | 1;
    const u64 w = (occupied & ray_w[square]) | 1;
    return rook_rays[square] ^ ray_n[lowest(n)] ^ ray_e[lowest(e)] ^ ray_s[highest(s)]
        ^ ray_w[highest(w)];
}

// The read-only tables of the board: attack sets, rays, masks, lines between squares, Zobrist keys.
// Every table is written once, before the first worker exists, and only read from then on.
#include "board/tables.h"

#include "base/output.h"

u64 pawn_attacks[2][64];
u64 knight_attacks[64];
u64 king_attacks[64];
u64 ray_n[64], ray_e[64], ray_nw[64], ray_ne[64];
u64 ray_s[64], ray_w[64], ray_sw[64], ray_se[64];
u64 bishop_rays[64];
u64 rook_rays[64];
u64 between[64][64];
u64 passed_mask[2][64];
u64 adjacent_files[8];
u64 ranks_above[8];
u64 ranks_below[8];
u64 zobrist[16][64];

// clang-format off
const u8 map_identity[64] = {
     0,  1,  2,  3,  4,  5,  6,  7,
     8,  9, 10, 11, 12, 13, 14, 15,
    16, 17, 18, 19, 20, 21, 22, 23,
    24, 25, 26, 27, 28, 29, 30, 31,
    32, 33, 34, 35, 36, 37, 38, 39,
    40, 41, 42, 43, 44, 45, 46, 47,
    48, 49, 50, 51, 52, 53, 54, 55,
    56, 57, 58, 59, 60, 61, 62, 63,
};
// clang-format on

// clang-format off
const u8 map_rotate[64] = {
    63, 62, 61, 60, 59, 58, 57, 56,
    55, 54, 53, 52, 51, 50, 49, 48,
    47, 46, 45, 44, 43, 42, 41, 40,
    39, 38, 37, 36, 35, 34, 33, 32,
    31, 30, 29, 28, 27, 26, 25, 24,
    23, 22, 21, 20, 19, 18, 17, 16,
    15, 14, 13, 12, 11, 10,  9,  8,
     7,  6,  5,  4,  3,  2,  1,  0,
};
// clang-format on

// clang-format off
const u8 map_mirror_file[64] = {
     7,  6,  5,  4,  3,  2,  1,  0,
    15, 14, 13, 12, 11, 10,  9,  8,
    23, 22, 21, 20, 19, 18, 17, 16,
    31, 30, 29, 28, 27, 26, 25, 24,
    39, 38, 37, 36, 35, 34, 33, 32,
    47, 46, 45, 44, 43, 42, 41, 40,
    55, 54, 53, 52, 51, 50, 49, 48,
    63, 62, 61, 60, 59, 58, 57, 56,
};
// clang-format on

// clang-format off
const u8 map_mirror_rank[64] = {
    56, 57, 58, 59, 60, 61, 62, 63,
    48, 49, 50, 51, 52, 53, 54, 55,
    40, 41, 42, 43, 44, 45, 46, 47,
    32, 33, 34, 35, 36, 37, 38, 39,
    24, 25, 26, 27, 28, 29, 30, 31,
    16, 17, 18, 19, 20, 21, 22, 23,
     8,  9, 10, 11, 12, 13, 14, 15,
     0,  1,  2,  3,  4,  5,  6,  7,
};
// clang-format on

// A step on the board, counted in files and ranks so that the edges stop it.
struct Step {
    i32 file;
    i32 rank;
};

static constexpr Step knight_steps[8] = { { 1, 2 }, { 2, 1 }, { 2, -1 }, { 1, -2 }, { -1, -2 },
    { -2, -1 }, { -2, 1 }, { -1, 2 } };
static constexpr Step king_steps[8] = { { 0, 1 }, { 1, 1 }, { 1, 0 }, { 1, -1 }, { 0, -1 },
    { -1, -1 }, { -1, 0 }, { -1, 1 } };

static constexpr u64 file_a = 0x0101010101010101ULL;

// Keys with fewer set bits than this are not used: they would mix badly.
static constexpr i32 min_key_bits = 24;
// Two keys that differ in fewer bits than this are reported.
static constexpr i32 min_key_distance = 6;

// The square one step away, or NoSquare beyond the edge.
static i32 step_from(i32 square, Step step)
{
    const i32 file = (square & 7) + step.file;
    const i32 rank = (square >> 3) + step.rank;
    if (file < 0 || file > 7 || rank < 0 || rank > 7) {
        return NoSquare;
    }
    return rank * 8 + file;
}

static u64 square_bit(i32 square)
{
    return square == NoSquare ? 0 : bit(square);
}

static u64 walk_ray(i32 square, Step step)
{
    u64 ray = 0;
    for (i32 s = step_from(square, step); s != NoSquare; s = step_from(s, step)) {
        ray |= bit(s);
    }
    return ray;
}

static void init_file_and_rank_masks()
{
    for (i32 i = 0; i < 8; ++i) {
        adjacent_files[i] = (i > 0 ? file_a << (i - 1) : 0) | (i < 7 ? file_a << (i + 1) : 0);
        ranks_above[i] = i < 7 ? ~0ULL << (8 * (i + 1)) : 0;
        ranks_below[i] = (1ULL << (8 * i)) - 1;
    }
}

static void init_square_tables(i32 square)
{
    pawn_attacks[White][square] =
        square_bit(step_from(square, { -1, 1 })) | square_bit(step_from(square, { 1, 1 }));
    pawn_attacks[Black][square] =
        square_bit(step_from(square, { -1, -1 })) | square_bit(step_from(square, { 1, -1 }));
    for (i32 i = 0; i < 8; ++i) {
        knight_attacks[square] |= square_bit(step_from(square, knight_steps[i]));
        king_attacks[square] |= square_bit(step_from(square, king_steps[i]));
    }

    ray_n[square] = walk_ray(square, { 0, 1 });
    ray_e[square] = walk_ray(square, { 1, 0 });
    ray_nw[square] = walk_ray(square, { -1, 1 });
    ray_ne[square] = walk_ray(square, { 1, 1 });
    ray_s[square] = walk_ray(square, { 0, -1 });
    ray_w[square] = walk_ray(square, { -1, 0 });
    ray_sw[square] = walk_ray(square, { -1, -1 });
    ray_se[square] = walk_ray(square, { 1, -1 });
    bishop_rays[square] = ray_nw[square] | ray_ne[square] | ray_sw[square] | ray_se[square];
    rook_rays[square] = ray_n[square] | ray_e[square] | ray_s[square] | ray_w[square];

    const u64 files = (file_a << (square & 7)) | adjacent_files[square & 7];
    passed_mask[White][square] = files & ranks_above[square >> 3];
    passed_mask[Black][square] = files & ranks_below[square >> 3];
}

static void init_between(i32 square)
{
    for (i32 i = 0; i < 8; ++i) {
        u64 walked = 0;
        for (i32 s = step_from(square, king_steps[i]); s != NoSquare;
             s = step_from(s, king_steps[i])) {
            between[square][s] = walked;
            walked |= bit(s);
        }
    }
}

void init_tables()
{
    init_file_and_rank_masks();
    for (i32 square = 0; square < 64; ++square) {
        knight_attacks[square] = 0;
        king_attacks[square] = 0;
        init_square_tables(square);
    }
    for (i32 square = 0; square < 64; ++square) {
        init_between(square);
    }
    init_kpk();
}

// Marsaglia's pair of multiply-with-carry generators.
struct CarryPair {
    u32 z;
    u32 w;
};

static u32 next_random(CarryPair* pair)
{
    pair->z = 36969 * (pair->z & 65535) + (pair->z >> 16);
    pair->w = 18000 * (pair->w & 65535) + (pair->w >> 16);
    return (pair->z << 16) + pair->w;
}

static u64 next_key(CarryPair* pair)
{
    for (;;) {
        const u64 high = next_random(pair);
        const u64 key = (high << 32) | next_random(pair);
        if (popcount(key) >= min_key_bits) {
            return key;
        }
    }
}

void init_zobrist()
{
    static bool made = false;
    if (made) {
        return;
    }
    made = true;

    CarryPair pair = { 1, 1 };
    u64* keys = &zobrist[0][0];
    for (i32 i = 0; i < 16 * 64; ++i) {
        keys[i] = next_key(&pair);
        bool too_close = false;
        for (i32 k = 0; k < i; ++k) {
            too_close |= popcount(keys[k] ^ keys[i]) < min_key_distance;
        }
        if (too_close) {
            print_line("bad hashcode");
        }
    }
}

// The read-only tables of the board: attack sets, rays, masks, lines between squares, Zobrist keys.
// All of them are constants: no thread ever waits for them and none can spoil them.
#include "board/tables.h"

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

// The square one step away, or NoSquare beyond the edge.
static constexpr i32 step_from(i32 square, Step step)
{
    const i32 file = (square & 7) + step.file;
    const i32 rank = (square >> 3) + step.rank;
    if (file < 0 || file > 7 || rank < 0 || rank > 7) {
        return NoSquare;
    }
    return rank * 8 + file;
}

static constexpr u64 square_bit(i32 square)
{
    return square == NoSquare ? 0 : bit(square);
}

static constexpr u64 walk_ray(i32 square, Step step)
{
    u64 ray = 0;
    for (i32 s = step_from(square, step); s != NoSquare; s = step_from(s, step)) {
        ray |= bit(s);
    }
    return ray;
}

static constexpr void make_file_and_rank_masks(ConstantTables* tables)
{
    for (i32 i = 0; i < 8; ++i) {
        tables->adjacent_files[i] =
            (i > 0 ? file_a << (i - 1) : 0) | (i < 7 ? file_a << (i + 1) : 0);
        tables->ranks_above[i] = i < 7 ? ~0ULL << (8 * (i + 1)) : 0;
        tables->ranks_below[i] = (1ULL << (8 * i)) - 1;
    }
}

static constexpr void make_square_tables(ConstantTables* tables, i32 square)
{
    tables->pawn_attacks[White][square] =
        square_bit(step_from(square, { -1, 1 })) | square_bit(step_from(square, { 1, 1 }));
    tables->pawn_attacks[Black][square] =
        square_bit(step_from(square, { -1, -1 })) | square_bit(step_from(square, { 1, -1 }));
    for (i32 i = 0; i < 8; ++i) {
        tables->knight_attacks[square] |= square_bit(step_from(square, knight_steps[i]));
        tables->king_attacks[square] |= square_bit(step_from(square, king_steps[i]));
    }

    tables->ray_n[square] = walk_ray(square, { 0, 1 });
    tables->ray_e[square] = walk_ray(square, { 1, 0 });
    tables->ray_nw[square] = walk_ray(square, { -1, 1 });
    tables->ray_ne[square] = walk_ray(square, { 1, 1 });
    tables->ray_s[square] = walk_ray(square, { 0, -1 });
    tables->ray_w[square] = walk_ray(square, { -1, 0 });
    tables->ray_sw[square] = walk_ray(square, { -1, -1 });
    tables->ray_se[square] = walk_ray(square, { 1, -1 });
    tables->bishop_rays[square] = tables->ray_nw[square] | tables->ray_ne[square]
        | tables->ray_sw[square] | tables->ray_se[square];
    tables->rook_rays[square] = tables->ray_n[square] | tables->ray_e[square]
        | tables->ray_s[square] | tables->ray_w[square];

    const u64 files = (file_a << (square & 7)) | tables->adjacent_files[square & 7];
    tables->passed_mask[White][square] = files & tables->ranks_above[square >> 3];
    tables->passed_mask[Black][square] = files & tables->ranks_below[square >> 3];
}

static constexpr void make_between(ConstantTables* tables, i32 square)
{
    for (i32 i = 0; i < 8; ++i) {
        u64 walked = 0;
        for (i32 s = step_from(square, king_steps[i]); s != NoSquare;
             s = step_from(s, king_steps[i])) {
            tables->between[square][s] = walked;
            walked |= bit(s);
        }
    }
}

static constexpr void make_square_maps(ConstantTables* tables)
{
    for (i32 square = 0; square < 64; ++square) {
        tables->map_identity[square] = static_cast<u8>(square);
        tables->map_rotate[square] = static_cast<u8>(63 - square);
        tables->map_mirror_file[square] = static_cast<u8>(square ^ 7);
        tables->map_mirror_rank[square] = static_cast<u8>(square ^ 56);
    }
}

// Marsaglia's pair of multiply-with-carry generators.
struct CarryPair {
    u32 z;
    u32 w;
};

static constexpr u32 next_random(CarryPair* pair)
{
    pair->z = 36969 * (pair->z & 65535) + (pair->z >> 16);
    pair->w = 18000 * (pair->w & 65535) + (pair->w >> 16);
    return (pair->z << 16) + pair->w;
}

static constexpr u64 next_key(CarryPair* pair)
{
    for (;;) {
        const u64 high = next_random(pair);
        const u64 key = (high << 32) | next_random(pair);
        if (popcount(key) >= min_key_bits) {
            return key;
        }
    }
}

// Fixed seeds: the keys are the same in every run and build.
static constexpr void make_zobrist(ConstantTables* tables)
{
    CarryPair pair = { 1, 1 };
    for (auto& row : tables->zobrist) {
        for (u64& key : row) {
            key = next_key(&pair);
        }
    }
}

static constexpr ConstantTables make_tables()
{
    ConstantTables tables = {};
    make_file_and_rank_masks(&tables);
    for (i32 square = 0; square < 64; ++square) {
        make_square_tables(&tables, square);
        make_between(&tables, square);
    }
    make_square_maps(&tables);
    make_zobrist(&tables);
    return tables;
}

constinit const ConstantTables board_tables = make_tables();

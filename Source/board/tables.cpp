// The read-only tables of the board: attack sets, rays, masks, lines between squares, Zobrist keys.
// All of them are constants: no thread ever waits for them and none can spoil them. The compiler
// makes them by walking the board step by step, as one would on paper: nothing here has to be fast,
// and a walk that stops at the edge cannot be wrong by a file.
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

// Keys with fewer set bits than this are not used: they would mix badly.
static constexpr i32 min_key_bits = 24;

// The square one step away, or NoSquare beyond the edge.
static constexpr i32 step_from(i32 square, Step step)
{
    const i32 file = file_of(square) + step.file;
    const i32 rank = rank_of(square) + step.rank;
    if (file < 0 || file > 7 || rank < 0 || rank > 7) {
        return NoSquare;
    }
    return square_at(file, rank);
}

// The set of a square, empty for NoSquare.
static constexpr u64 square_bit(i32 square)
{
    return square == NoSquare ? 0 : bit(square);
}

// All squares from a square to the edge, without itself.
static constexpr u64 walk_ray(i32 square, Step step)
{
    u64 ray = 0;
    for (i32 s = step_from(square, step); s != NoSquare; s = step_from(s, step)) {
        ray |= bit(s);
    }
    return ray;
}

// A shift by all 64 bits is no empty set but undefined, so the edges are told apart.
static constexpr void make_file_and_rank_masks(ConstantTables* tables)
{
    for (i32 i = 0; i < 8; ++i) {
        tables->adjacent_files[i] =
            (i > 0 ? file_a << (i - 1) : 0) | (i < 7 ? file_a << (i + 1) : 0);
        tables->ranks_above[i] = i < 7 ? ~0ULL << (8 * (i + 1)) : 0;
        tables->ranks_below[i] = (1ULL << (8 * i)) - 1;
    }
}

// Everything that hangs on one square. The masks of the files must have been made.
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

    for (i32 side = White; side <= Black; ++side) {
        const auto attacks = [&](i32 type) -> u64& {
            return tables->empty_attacks[piece_code(side, type)][square];
        };
        attacks(Pawn) = tables->pawn_attacks[side][square];
        attacks(Knight) = tables->knight_attacks[square];
        attacks(Bishop) = tables->bishop_rays[square];
        attacks(Rook) = tables->rook_rays[square];
        attacks(Queen) = tables->bishop_rays[square] | tables->rook_rays[square];
        attacks(King) = tables->king_attacks[square];
    }

    const u64 files = (file_a << file_of(square)) | tables->adjacent_files[file_of(square)];
    tables->passed_mask[White][square] = files & tables->ranks_above[rank_of(square)];
    tables->passed_mask[Black][square] = files & tables->ranks_below[rank_of(square)];
}

// Walks from a square in all directions and leaves at each square what was passed on the way.
// Between squares of no common line nothing is written: the set is empty, as it is of neighbours.
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

// A key of few bits would leave most of a position's key as it is, and two such moves may meet.
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

// Fixed seeds: the keys are the same in every run and build, and with them which positions share a
// slot, so that a search can be repeated move for move.
static constexpr void make_zobrist(ConstantTables* tables)
{
    CarryPair pair = { 1, 1 };
    for (auto& row : tables->zobrist) {
        for (u64& key : row) {
            key = next_key(&pair);
        }
    }
}

// The masks come first, the passed pawns' masks are made of them.
static constexpr ConstantTables make_tables()
{
    ConstantTables tables = {};
    make_file_and_rank_masks(&tables);
    for (i32 square = 0; square < 64; ++square) {
        make_square_tables(&tables, square);
        make_between(&tables, square);
    }
    make_zobrist(&tables);
    return tables;
}

constinit const ConstantTables board_tables = make_tables();

void init_board_tables()
{
#ifdef __BMI2__
    init_sliders();
#endif
    init_kpk();
}

// The sets that a slider attacks, for processors that look them up: see board/tables.h.
#include "board/tables.h"

#ifdef __BMI2__

constinit SliderLines bishop_lines[64] = {};
constinit SliderLines rook_lines[64] = {};
constinit bool sliders_by_table = false;

// Sums over all squares of the number of occupations of their inner lines.
static constexpr i32 bishop_sets = 5248;
static constexpr i32 rook_sets = 102400;

static u16 bishop_reach[bishop_sets];
static u16 rook_reach[rook_sets];

// AMD's processors before Zen 3 do the two instructions in microcode, bit by bit, as do those of
// other makers that were derived from them. What is not known counts as slow: the rays are good
// everywhere.
static bool spreads_bits_fast()
{
    if (__builtin_cpu_is("intel")) {
        return true;
    }
    return __builtin_cpu_is("amd") && !__builtin_cpu_is("bdver4") && !__builtin_cpu_is("znver1")
        && !__builtin_cpu_is("znver2");
}

// A blocker on the last square of a line hides nothing, so it need not be looked at.
static u64 without_ends(i32 square, u64 lines)
{
    const u64 end_files = file_a | (file_a << 7);
    const u64 end_ranks = ~(ranks_above[0] & ranks_below[7]);
    const u64 own_file = file_a << file_of(square);
    const u64 own_rank = ~(ranks_above[rank_of(square)] | ranks_below[rank_of(square)]);
    return lines & ~((end_files & ~own_file) | (end_ranks & ~own_rank));
}

// Fills the sets of one square from reach on, and returns where those of the next begin.
static u16* fill_lines(
    SliderLines* lines, i32 square, u64 all, u64 (*attacks)(i32, u64), u16* reach)
{
    const u64 inner = without_ends(square, all);
    *lines = { .inner = inner, .all = all, .reach = reach };
    const u64 count = 1ULL << popcount(inner);
    for (u64 i = 0; i < count; ++i) {
        *reach++ = static_cast<u16>(_pext_u64(attacks(square, _pdep_u64(i, inner)), all));
    }
    return reach;
}

void init_sliders()
{
    if (!spreads_bits_fast()) {
        return;
    }
    u16* bishop = bishop_reach;
    u16* rook = rook_reach;
    for (i32 square = 0; square < 64; ++square) {
        bishop = fill_lines(
            &bishop_lines[square], square, bishop_rays[square], bishop_attacks_by_rays, bishop);
        rook =
            fill_lines(&rook_lines[square], square, rook_rays[square], rook_attacks_by_rays, rook);
    }
    debug_check(bishop == bishop_reach + bishop_sets && rook == rook_reach + rook_sets);
    sliders_by_table = true;
}

#endif

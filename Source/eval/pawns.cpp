// Everything that the evaluation draws from the pawns: the pawn sets, the structure terms (which
// the pawn cache keeps), candidates and passed pawns.
// Only what depends on nothing but the pawns and the wings of the kings may go into the cache.
#include <cmath>

#include "board/moves.h"
#include "board/tables.h"
#include "eval/terms.h"

// Outposts: files b to g of the fifth and sixth rank of the side.
static constexpr u64 outpost_zone[2] = { 0x7e7e00000000ULL, 0x7e7e0000ULL };

// Candidates: the fourth to sixth rank of the side.
static constexpr u64 candidate_zone[2] = { 0xffffff000000ULL, 0xffffff0000ULL };

// A pawn on the side's last rank (a set-up board may hold one) has no square to go to.
static constexpr u64 last_rank[2] = { 0xff00000000000000ULL, 0xffULL };

// Attack points of a pawn whose stop square lies in the enemy king's zone.
static constexpr i32 pawn_attack_points = 3;

// XORed into the pawn key for each side whose map mirrors files: the cached squares differ then.
static constexpr u64 wing_key[2] = { 0x5555555555555555ULL, 0xaaaaaaaaaaaaaaaaULL };

// Weight of the king distances by relative rank index, one rank further for a mobile pawn.
static constexpr f32 distance_factor[8] = { 0.0f, 0.0f, 0.0f, 0.2f, 0.4f, 0.6f, 0.8f, 1.0f };
static constexpr f32 connected_factor[8] = { 0.0f, 0.0f, 0.0f, 0.15f, 0.3f, 0.6f, 1.0f, 0.0f };

// What a passed pawn threatens, by relative rank index: for the enemy's danger.
static constexpr i32 passer_danger[8] = { 0, 0, 0, 150, 300, 600, 1200, 0 };

// Squares strictly in front of the pawns of side on their files.
template <i32 side>
static u64 front_of(u64 pawns)
{
    pawns |= forward<side>(pawns);
    pawns |= forward<side>(pawns, 2);
    pawns |= forward<side>(pawns, 4);
    return forward<side>(pawns);
}

template <i32 side>
static void init_pawn_attacks(EvalWork* work)
{
    const u64 pawns = work->pos->bb[side][Pawn];
    const u64 left = forward<side>((pawns & ~file_a) >> 1);
    const u64 right = forward<side>((pawns & ~file_h) << 1);
    const u64 attacks = left | right;
    const u64 king = work->attacks[side][King];
    work->attacks[side][Pawn] = attacks;
    work->pawn_cover[side] = attacks;
    work->attacks[side][0] = attacks | king;
    work->double_attacks[side] = (left & right) | (attacks & king);
}

// Pawns with no enemy pawn in front that could become passed: the stop square is free and not
// the enemy's, and behind it no enemy pawn can bear on the way. enemy_front and enemy_span are
// the squares in front of the enemy's pawns and those on the files beside.
template <i32 side>
static u64 find_candidates(const EvalWork* work, u64 enemy_front, u64 enemy_span)
{
    constexpr i32 enemy = side ^ 1;
    const u64 lost = (work->attacks[enemy][Pawn] & ~work->attacks[side][Pawn])
        | (work->double_attacks[enemy] & ~work->double_attacks[side]);
    const u64 barred = backward<side>(work->occupied | lost) | backward<side>(enemy_span, 2);
    return work->pos->bb[side][Pawn] & candidate_zone[side] & ~(enemy_front | barred);
}

void init_pawn_sets(EvalWork* work)
{
    const u64 white = work->pos->bb[White][Pawn];
    const u64 black = work->pos->bb[Black][Pawn];
    init_pawn_attacks<White>(work);
    init_pawn_attacks<Black>(work);
    const u64 front_white = front_of<White>(white);
    const u64 front_black = front_of<Black>(black);
    const u64 span_white = sideways(front_white);
    const u64 span_black = sideways(front_black);
    work->all_pawns = white | black;
    work->outposts[White] = work->attacks[White][Pawn] & outpost_zone[White] & ~span_black;
    work->outposts[Black] = work->attacks[Black][Pawn] & outpost_zone[Black] & ~span_white;
    work->passed = (white & ~(front_black | span_black)) | (black & ~(front_white | span_white));
    work->candidates = (find_candidates<White>(work, front_black, span_black)
                           | find_candidates<Black>(work, front_white, span_white))
        & ~work->passed;
    work->king_attack[White] =
        static_cast<i16>(pawn_attack_points * popcount((black >> 8) & work->king_zone[White]));
    work->king_attack[Black] =
        static_cast<i16>(pawn_attack_points * popcount((white << 8) & work->king_zone[Black]));
}

template <i32 side>
static void eval_structure(EvalWork* work)
{
    const u64 pawns = work->pos->bb[side][Pawn];
    const u64 defended = work->attacks[side][Pawn];
    const u64 beside = backward<side>(defended);
    const i32 table = work->same_wing ? PST_P1 : PST_P2;
    add_weight(work, side, mtl_pawn, popcount(pawns));
    u64 left = pawns;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        const i32 index = work->pst_map[side][square];
        add_weight(work, side, table + index);
        if (defended & bit(square)) {
            add_weight(work, side, PST_DP + index);
        }
        if (beside & bit(square)) {
            add_weight(work, side, PST_CP + index);
        }
    }
    const u64 front = front_of<side>(pawns);
    const u64 span = sideways(front);
    const u64 back = front_of<side ^ 1>(pawns);
    const u64 isolated = pawns & ~sideways(front | pawns | back);
    const u64 weak = pawns & ~isolated & ~backward<side>(span);
    add_weight(work, side, pawn_isolated, popcount(isolated));
    add_weight(work, side, pawn_weak, popcount(weak));
    add_weight(work, side, pawn_doubled, popcount(pawns & front));
}

void eval_pawns(EvalWork* work)
{
    const Position* pos = work->pos;
    EvalState* state = work->state;
    u64 key = pos->pawn_key;
    for (i32 side = White; side <= Black; ++side) {
        if ((pos->king_sq[side] & 7) < 4) {
            key ^= wing_key[side];
        }
    }
    PawnCacheEntry* slot = &state->pawn_cache[key & (pawn_cache_size - 1)];
    add(state->eval_counters[CountPawnProbes], 1);
    if (slot->key == key && work->ply >= 2) {
        add(state->eval_counters[CountPawnHits], 1);
        work->score[White] = slot->score[White];
        work->score[Black] = slot->score[Black];
    } else {
        eval_structure<White>(work);
        eval_structure<Black>(work);
        slot->key = key;
        slot->score[White] = work->score[White];
        slot->score[Black] = work->score[Black];
    }
    const u64 white_blocked = (pos->bb[White][Pawn] << 8) & work->occupied;
    const u64 black_blocked = (pos->bb[Black][Pawn] >> 8) & work->occupied;
    add_weight(work, White, pawn_blocked, popcount(white_blocked));
    add_weight(work, Black, pawn_blocked, popcount(black_blocked));
}

void eval_candidates(EvalWork* work)
{
    const Position* pos = work->pos;
    u64 left = work->candidates;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        const i32 side = (pos->bb[White][Pawn] & bit(square)) ? White : Black;
        const i32 stop = square + pawn_step[side];
        const f64 rank = static_cast<f64>(relative_rank(side, square) - 1);
        const f64 distance = static_cast<f64>(king_steps(stop, pos->king_sq[side ^ 1]));
        add_fraction(
            work, side, candidate_passer, static_cast<f32>(std::fma(0.15, rank, 0.1 * distance)));
    }
}

// Whether the pawn of side on square can step to goal and lose nothing there.
static bool is_safe_step(const EvalWork* work, i32 side, i32 square, i32 goal)
{
    if (work->occupied & bit(goal)) {
        return false;
    }
    // An exchange needs an enemy who attacks the goal, or who will from behind the pawn.
    const u64 enemy_attacks = work->attacks[side ^ 1][0];
    return (enemy_attacks & (bit(goal) | bit(square))) == 0
        || swapoff(work->pos, side, square, goal) == 0;
}

// Whether nothing of the enemy holds up the pawn of side on its way: no pawn or minor piece bears
// on the squares ahead, and what else stands there or attacks them is attacked by side.
static bool is_free_path(const EvalWork* work, i32 side, u64 ahead)
{
    const i32 enemy = side ^ 1;
    const u64 held = work->attacks[enemy][0] | work->pos->bb[enemy][0];
    return (ahead & work->attacks_pnb[enemy]) == 0 && (ahead & held & ~work->attacks[side][0]) == 0;
}

static void eval_king_distances(EvalWork* work, i32 side, i32 target, f32 factor)
{
    const Position* pos = work->pos;
    const i32 own = king_steps(target, pos->king_sq[side]);
    const i32 far = king_steps(target, pos->king_sq[side ^ 1]);
    add_fraction(work, side, ppawn_eking_dist, static_cast<f32>(far) * factor);
    add_fraction(work, side, ppawn_fking_dist, static_cast<f32>(own > 1 ? own : 1) * factor);
}

static void eval_passed_pawn(EvalWork* work, i32 side, i32 square)
{
    const i32 step = pawn_step[side];
    const i32 rank = relative_rank(side, square);
    i32 goal = square + step;
    if (rank == 1 && (work->occupied & bit(goal)) == 0) {
        goal += step;
    }
    const u64 ahead = side == White ? ray_n[square] : ray_s[square];
    if (ahead & work->pos->bb[side][Pawn]) {
        return; // only the front pawn of a doubled passed pawn counts
    }
    i32 danger = passer_danger[rank];
    const bool mobile = is_safe_step(work, side, square, goal);
    if (mobile && rank > 2 && is_free_path(work, side, ahead)) {
        add_weight(work, side, ppawn_free + rank);
        work->free_passers |= bit(square);
    } else if (mobile) {
        add_weight(work, side, ppawn_mobile + rank);
        danger /= 2;
    } else {
        add_weight(work, side, ppawn + rank);
        danger /= 4;
    }
    const i32 target = rank < 6 ? goal + step : goal;
    eval_king_distances(work, side, target, distance_factor[mobile ? rank + 1 : rank]);
    if (work->attacks[side][Pawn] & bit(goal)) {
        add_fraction(work, side, ppawn_connected, connected_factor[rank]);
    }
    add_danger(work, side ^ 1, danger);
}

void eval_passed_pawns(EvalWork* work)
{
    const Position* pos = work->pos;
    const u64 no_way =
        (pos->bb[White][Pawn] & last_rank[White]) | (pos->bb[Black][Pawn] & last_rank[Black]);
    u64 left = work->passed & ~no_way;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        eval_passed_pawn(work, (pos->bb[White][Pawn] & bit(square)) ? White : Black, square);
    }
}

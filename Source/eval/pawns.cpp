// Everything that the evaluation draws from the pawns: the pawn sets, the structure terms (which
// the pawn cache keeps), candidates and passed pawns.
// Only what depends on nothing but the pawns and the wings of the kings may go into the cache.
// Scores are in centipawns and go to the side of the pawn; what a passed pawn threatens goes to the
// danger of the other side.
#include "board/moves.h"
#include "board/tables.h"
#include "eval/terms.h"

// Outposts: files b to g of the fifth and sixth rank of the side. Nearer home a piece threatens
// little, on the edge it has half its squares.
static constexpr u64 outpost_zone[2] = { 0x7e7e00000000ULL, 0x7e7e0000ULL };

// Candidates: the fourth to sixth rank of the side. Behind them it is too early to tell.
static constexpr u64 candidate_zone[2] = { 0xffffff000000ULL, 0xffffff0000ULL };

// A pawn on the side's last rank (a set-up board may hold one) has no square to go to.
static constexpr u64 last_rank[2] = { 0xff00000000000000ULL, 0xffULL };

// Attack points of a pawn whose stop square lies in the enemy king's zone: it opens lines there or
// stands in the king's way.
static constexpr i32 pawn_attack_points = 3;

// What a passed pawn with a free path threatens the enemy with, in centipawns: close to a queen on
// the seventh rank, half of it for each step that is missing. Half and a quarter of that for a pawn
// that can only step, or not even that.
static constexpr i32 passer_danger[8] = { 0, 0, 0, 150, 300, 600, 1200, 0 };
static constexpr i32 mobile_danger_part = 2;
static constexpr i32 stopped_danger_part = 4;

// A path is called free from the fourth rank on only: before it, too much can still come in
// between.
static constexpr i32 free_path_rank = 3;

// On the seventh rank no square is left beyond the next one.
static constexpr i32 last_but_one_rank = 6;

// Squares strictly in front of the pawns of side on their files. Each step doubles the reach: one,
// three, seven ranks.
template <i32 side>
static u64 front_of(u64 pawns)
{
    pawns |= forward<side>(pawns);
    pawns |= forward<side>(pawns, 2);
    pawns |= forward<side>(pawns, 4);
    return forward<side>(pawns);
}

// The first of the attack sets: pawns and king, which need no lines. A square is attacked doubly by
// two pawns, or by a pawn and the king; the pieces add to both sets when their turn comes.
template <i32 side>
static void init_pawn_attacks(EvalWork* work)
{
    const u64 pawns = work->pos->bb[side][Pawn];
    const u64 left = forward<side>((pawns & ~file_a) >> 1);
    const u64 right = forward<side>((pawns & ~file_h) << 1);
    const u64 attacks = left | right;
    const u64 king = work->attacks[side][King];
    work->attacks[side][Pawn] = attacks;
    work->attacks[side][0] = attacks | king;
    work->double_attacks[side] = (left & right) | (attacks & king);
}

// Pawns with no enemy pawn in front that one step could make passed pawns: the stop square is free,
// the enemy's pawns and king do not hold it against those of side, and no enemy pawn can attack the
// square beyond it. enemy_front and enemy_span are the squares in front of the enemy's pawns and
// those on the files beside.
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
    // Front is where a side's pawns may still stand, span what they may still attack. A piece out
    // of the enemy's span is safe from his pawns, a pawn out of his front and span is passed.
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

// All that the cache keeps. Squares count by the wings of the kings: pawns are a shield on the own
// king's side and a weapon on the other's.
template <i32 side>
static void eval_structure(EvalWork* work)
{
    const u64 pawns = work->pos->bb[side][Pawn];
    const u64 defended = work->attacks[side][Pawn];
    const u64 beside = backward<side>(defended);
    const i32 table = work->pst_shift == 0 ? PST_P1 : PST_P2;
    add_weight(work, side, mtl_pawn, popcount(pawns));
    u64 left = pawns;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        const i32 index = pst_index(work, side, square);
        add_weight(work, side, table + index);
        // A chain stands by itself; two abreast control the squares in front of each other. Both
        // are worth the more the further they have come.
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
    // An isolated pawn has no neighbour on either file; only pieces can defend it, and the square
    // in front of it is the enemy's. A weak one has neighbours, but all have gone ahead. Of doubled
    // pawns each one with another behind it counts: they cannot defend each other, and the one in
    // front stops the other. Each per pawn.
    const u64 isolated = pawns & ~sideways(front | pawns | back);
    const u64 weak = pawns & ~isolated & ~backward<side>(span);
    add_weight(work, side, pawn_isolated, popcount(isolated));
    add_weight(work, side, pawn_weak, popcount(weak));
    add_weight(work, side, pawn_doubled, popcount(pawns & front));
}

// A slot holds the accounts of both sides as they stand behind the structure, the first thing that
// goes into them. At the root the terms run all the same, for the tuning build's notes.
void eval_pawns(EvalWork* work)
{
    const Position* pos = work->pos;
    const u64 key = pawn_cache_key(pos);
    const PawnCacheEntry* slot = pawn_slot(work->state, key);
    work->pawns_cached = slot->key == key && work->ply >= first_cached_ply;
    if (work->pawns_cached) {
        work->score[White] = slot->score[White];
        work->score[Black] = slot->score[Black];
    } else {
        eval_structure<White>(work);
        eval_structure<Black>(work);
        work->pawns = { key, { work->score[White], work->score[Black] } };
    }
    // A pawn that cannot step, whoever stands there, is a target and no threat. It depends on the
    // pieces, so it stays out of the cache.
    const u64 white_blocked = (pos->bb[White][Pawn] << 8) & work->occupied;
    const u64 black_blocked = (pos->bb[Black][Pawn] >> 8) & work->occupied;
    add_weight(work, White, pawn_blocked, popcount(white_blocked));
    add_weight(work, Black, pawn_blocked, popcount(black_blocked));
}

// A candidate is worth the more the further it has come and the longer the enemy king takes to its
// stop square.
void eval_candidates(EvalWork* work)
{
    const Position* pos = work->pos;
    u64 left = work->candidates;
    while (left != 0) {
        const i32 square = pop_lowest(&left);
        const i32 side = (pos->bb[White][Pawn] & bit(square)) ? White : Black;
        const i32 stop = square + pawn_step[side];
        const i32 distance = king_steps(stop, pos->king_sq[side ^ 1]);
        add_fraction(work, side, candidate_passer, step_of(relative_rank(side, square), distance));
    }
}

// Whether the pawn of side on square can step to goal and lose nothing there: the exchange on goal,
// begun by the step itself, costs nothing.
static bool is_safe_step(const EvalWork* work, i32 side, i32 square, i32 goal)
{
    if (work->occupied & bit(goal)) {
        return false;
    }
    // An exchange needs an enemy who attacks the goal, or a slider that attacks the pawn from
    // behind and follows it. Without one the costly count is spared.
    const u64 enemy_attacks = work->attacks[side ^ 1][0];
    return (enemy_attacks & (bit(goal) | bit(square))) == 0
        || swaps_at_least(work->pos, side, square, goal, 0);
}

// Whether nothing of the enemy holds up the pawn of side on its way: no pawn or minor piece bears
// on the squares ahead, and what else stands there or attacks them is attacked by side.
static bool is_free_path(const EvalWork* work, i32 side, u64 ahead)
{
    const i32 enemy = side ^ 1;
    const u64 held = work->attacks[enemy][0] | pieces_of(work->pos, enemy);
    return (ahead & work->attacks_pnb[enemy]) == 0 && (ahead & held & ~work->attacks[side][0]) == 0;
}

// Steps of each king to target, the enemy's to be far away, the own to be near; rank says how much
// they count. The own king is counted from one step on, since on the square itself he would stand
// in the pawn's way.
static void eval_king_distances(EvalWork* work, i32 side, i32 target, i32 rank)
{
    const Position* pos = work->pos;
    const i32 own_steps = king_steps(target, pos->king_sq[side]);
    const i32 enemy_steps = king_steps(target, pos->king_sq[side ^ 1]);
    add_fraction(work, side, ppawn_eking_dist, step_of(rank, enemy_steps));
    add_fraction(work, side, ppawn_fking_dist, step_of(rank, own_steps > 1 ? own_steps : 1));
}

// A passed pawn gets one weight of its rank: the largest if nothing holds up its whole way, less if
// it can make its next step, least if not. Then come the kings and a neighbour that helps it.
static void eval_passed_pawn(EvalWork* work, i32 side, i32 square)
{
    const i32 step = pawn_step[side];
    const i32 rank = relative_rank(side, square);
    i32 goal = square + step;
    // From the second rank the next step is the double one, as long as its first half is free.
    if (rank == 1 && (work->occupied & bit(goal)) == 0) {
        goal += step;
    }
    const u64 ahead = side == White ? ray_n[square] : ray_s[square];
    if (ahead & work->pos->bb[side][Pawn]) {
        return; // only the front pawn of a doubled passed pawn counts
    }
    i32 danger = passer_danger[rank];
    const bool mobile = is_safe_step(work, side, square, goal);
    if (mobile && rank >= free_path_rank && is_free_path(work, side, ahead)) {
        add_weight(work, side, ppawn_free + rank);
        work->free_passers |= bit(square);
    } else if (mobile) {
        add_weight(work, side, ppawn_mobile + rank);
        danger /= mobile_danger_part;
    } else {
        add_weight(work, side, ppawn + rank);
        danger /= stopped_danger_part;
    }
    // The kings fight for the square beyond the next one: who stands there first decides whether
    // the pawn goes on.
    const i32 target = rank < last_but_one_rank ? goal + step : goal;
    // One rank further for a pawn that can step.
    eval_king_distances(work, side, target, mobile ? rank + 1 : rank);
    if (work->attacks[side][Pawn] & bit(goal)) {
        add_fraction(work, side, ppawn_connected, rank);
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

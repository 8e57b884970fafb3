// Threats: pieces that hang or are attacked, safe pawn pushes that would attack something, pins.
// Every term goes to the side that suffers. hung is complete before the pushes are looked at,
// since a hanging piece is not counted again.
#include "board/tables.h"
#include "eval/terms.h"

static constexpr i32 hung_pawn_danger = 64;
static constexpr i32 hung_piece_danger = 256;

// The rank that a double step reaches.
static constexpr u64 double_step_rank[2] = { 0xff000000ULL, 0xff00000000ULL };

// Squares where the enemy of side is ahead: attacked by him twice and by side neither twice nor
// with a pawn, or attacked by him alone.
template <i32 side>
static u64 enemy_ahead(const EvalWork* work)
{
    constexpr i32 enemy = side ^ 1;
    const u64 held = work->attacks[side][Pawn] | work->double_attacks[side];
    return (work->double_attacks[enemy] & ~held)
        | (work->attacks[enemy][0] & ~work->attacks[side][0]);
}

// A pawn counts only where no pawn of either side bears on it; those are left to the pawn terms.
// Returns the hanging pawns.
template <i32 side>
static u64 eval_attacked_pawns(EvalWork* work, u64 ahead)
{
    const u64 pawn_attacks_all = work->attacks[White][Pawn] | work->attacks[Black][Pawn];
    const u64 targets = work->pos->bb[side][Pawn] & work->attacks[side ^ 1][0] & ~pawn_attacks_all;
    if (targets == 0) {
        return 0;
    }
    const u64 hanging = targets & ahead;
    const i32 count = popcount(hanging);
    add_weight(work, side, hung_pawn, count);
    add_danger(work, side, hung_pawn_danger * count);
    add_weight(work, side, attacked_pawn, popcount(targets & ~ahead));
    return hanging;
}

// Minor pieces hang where a pawn attacks them and rooks and queens where a pawn or minor does,
// whatever defends them; lesser[side] is that set of attacks. What a lesser own piece guards is
// merely attacked and gets no term. Returns the hanging pieces.
template <i32 side>
static u64 eval_attacked_pieces(
    EvalWork* work, u64 pieces, u64 ahead, const u64* lesser, i32 hung_weight, i32 attacked_weight)
{
    const u64 targets = pieces & work->attacks[side ^ 1][0];
    if (targets == 0) {
        return 0;
    }
    const u64 hanging = targets & (ahead | lesser[side ^ 1]);
    const i32 count = popcount(hanging);
    add_weight(work, side, hung_weight, count);
    add_danger(work, side, hung_piece_danger * count);
    add_weight(work, side, attacked_weight, popcount(targets & ~(hanging | lesser[side])));
    return hanging;
}

template <i32 side>
static u64 eval_attacked(EvalWork* work)
{
    const u64* own = work->pos->bb[side];
    const u64 ahead = enemy_ahead<side>(work);
    const u64 minors = own[Knight] | own[Bishop];
    const u64 majors = own[Rook] | own[Queen];
    return eval_attacked_pawns<side>(work, ahead)
        | eval_attacked_pieces<side>(
            work, minors, ahead, work->pawn_cover, hung_minor, attacked_minor)
        | eval_attacked_pieces<side>(
            work, majors, ahead, work->attacks_pnb, hung_major, attacked_major);
}

// Pieces of the enemy, the king among them, that a pawn of side would attack after a safe step.
template <i32 side>
static void eval_pawn_pushes(EvalWork* work)
{
    constexpr i32 enemy = side ^ 1;
    const Position* pos = work->pos;
    const u64 empty = ~work->occupied;
    const u64 unsafe =
        (work->attacks[enemy][0] & ~work->attacks[side][Pawn]) | work->attacks[enemy][Pawn];
    const u64 one = forward<side>(pos->bb[side][Pawn]) & empty;
    const u64 two = forward<side>(one) & empty & double_step_rank[side];
    const u64 stand = (one | two) & ~unsafe;
    const u64 targets = pos->bb[enemy][0] & ~pos->bb[enemy][Pawn] & ~work->hung;
    add_weight(work, enemy, ppush_threat, popcount(sideways(forward<side>(stand)) & targets));
}

// Squares that stand alone between square and one of the pieces of snipers.
static u64 lone_blockers(const EvalWork* work, i32 square, u64 snipers)
{
    u64 found = 0;
    while (snipers != 0) {
        const u64 blockers = between[pop_lowest(&snipers)][square] & work->occupied;
        if ((blockers & (blockers - 1)) == 0) {
            found |= blockers;
        }
    }
    return found;
}

// Own pieces in front of the king, or of the (lowest) queen on the line of a lesser piece.
template <i32 side>
static void eval_pins(EvalWork* work)
{
    const Position* pos = work->pos;
    const u64* enemy = pos->bb[side ^ 1];
    const i32 king = pos->king_sq[side];
    u64 pinned = lone_blockers(work, king,
        ((enemy[Bishop] | enemy[Queen]) & bishop_rays[king])
            | ((enemy[Rook] | enemy[Queen]) & rook_rays[king]));
    if (pos->bb[side][Queen] != 0) {
        const i32 queen = lowest(pos->bb[side][Queen]);
        pinned |= lone_blockers(
            work, queen, (enemy[Bishop] & bishop_rays[queen]) | (enemy[Rook] & rook_rays[queen]));
    }
    pinned &= pos->bb[side][0];
    if (pinned != 0) {
        add_weight(work, side, pinned_piece, popcount(pinned & ~pos->bb[side][Pawn]));
        add_weight(work, side, pinned_pawn, popcount(pinned & pos->bb[side][Pawn]));
    }
}

void eval_threats(EvalWork* work)
{
    work->hung = eval_attacked<White>(work) | eval_attacked<Black>(work);
    eval_pawn_pushes<White>(work);
    eval_pawn_pushes<Black>(work);
    eval_pins<White>(work);
    eval_pins<Black>(work);
}

// Threats: pieces that hang or are attacked, safe pawn pushes that would attack something, pins.
// They are guesses at what the next moves may win, cheap enough for every position; an exchange is
// counted out by the search alone. All in centipawns per piece.
// Every term goes to the side that suffers. hung is complete before the pushes are looked at,
// since a hanging piece is not counted again.
#include "board/tables.h"
#include "eval/terms.h"

// What the search should fear for each hanging pawn or piece, in centipawns: less than its worth,
// since it may be defended or move away in time.
static constexpr i32 hung_pawn_danger = 64;
static constexpr i32 hung_piece_danger = 256;

// Squares where the enemy of side would come out ahead of a fight: attacked by him twice and by
// side neither twice nor with a pawn, or attacked by him alone. A pawn counts as two: no piece
// takes what a pawn takes back.
template <i32 side>
static u64 enemy_ahead(const EvalWork* work)
{
    constexpr i32 enemy = side ^ 1;
    const u64 held = work->attacks[side][Pawn] | work->double_attacks[side];
    return (work->double_attacks[enemy] & ~held)
        | (work->attacks[enemy][0] & ~work->attacks[side][0]);
}

// Returns all that hangs. A pawn counts only where no pawn of either side bears on it; those are
// left to the pawn terms. Minor pieces hang where a pawn attacks them and rooks and queens where a
// pawn or minor does, whatever defends them: they have to move. What a lesser own piece guards is
// merely attacked and gets no term. A rook that attacks a queen is no lesser attacker.
// Nothing is asked about empty sets, which add nothing: whether a piece of a kind is attacked is
// guessed wrong too often.
template <i32 side>
static u64 eval_attacked(EvalWork* work)
{
    constexpr i32 enemy = side ^ 1;
    const u64* pieces = work->pos->bb[side];
    const u64 ahead = enemy_ahead<side>(work);
    const u64 attacked = work->attacks[enemy][0];
    const u64 pawn_attacks_all = work->attacks[White][Pawn] | work->attacks[Black][Pawn];
    const u64 pawns = pieces[Pawn] & attacked & ~pawn_attacks_all;
    const u64 minors = (pieces[Knight] | pieces[Bishop]) & attacked;
    const u64 majors = (pieces[Rook] | pieces[Queen]) & attacked;
    // What can be won now.
    const u64 hung_pawns = pawns & ahead;
    const u64 hung_minors = minors & (ahead | work->attacks[enemy][Pawn]);
    const u64 hung_majors = majors & (ahead | work->attacks_pnb[enemy]);
    const i32 hung[3] = { popcount(hung_pawns), popcount(hung_minors), popcount(hung_majors) };
    // What ties a defender: nothing is lost, but somebody has to stay where he is.
    const u64 held_minors = minors & ~(hung_minors | work->attacks[side][Pawn]);
    const u64 held_majors = majors & ~(hung_majors | work->attacks_pnb[side]);
    u32 score = weight_word(work, side, hung_pawn, hung[0]);
    score += weight_word(work, side, attacked_pawn, popcount(pawns & ~ahead));
    score += weight_word(work, side, hung_minor, hung[1]);
    score += weight_word(work, side, attacked_minor, popcount(held_minors));
    score += weight_word(work, side, hung_major, hung[2]);
    score += weight_word(work, side, attacked_major, popcount(held_majors));
    add_word(work, side, score);
    add_danger(work, side, hung_pawn_danger * hung[0] + hung_piece_danger * (hung[1] + hung[2]));
    return hung_pawns | hung_minors | hung_majors;
}

// Pieces of the enemy, the king among them, that a pawn of side would attack after a safe step: he
// will have to spend a move on each. Safe is a square that he does not attack, or attacks only with
// pieces while an own pawn defends it.
template <i32 side>
static void eval_pawn_pushes(EvalWork* work)
{
    constexpr i32 enemy = side ^ 1;
    const Position* pos = work->pos;
    const u64 empty = ~work->occupied;
    const u64 unsafe =
        (work->attacks[enemy][0] & ~work->attacks[side][Pawn]) | work->attacks[enemy][Pawn];
    // One step, or two from the second rank where both squares are empty.
    const u64 one = forward<side>(pos->bb[side][Pawn]) & empty;
    const u64 two = forward<side>(one) & empty & double_step_rank[side];
    const u64 stand = (one | two) & ~unsafe;
    const u64 targets = pieces_of(pos, enemy) & ~pos->bb[enemy][Pawn] & ~work->hung;
    add_weight(work, enemy, ppush_threat, popcount(sideways(forward<side>(stand)) & targets));
}

// Squares of pieces that stand alone between square and one of the pieces of snipers.
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

// Own pieces in front of the king, who may not be left in check, or of the (lowest) queen on the
// line of a lesser piece, who would be lost. Such a piece defends nothing in earnest and can be
// attacked again. A pinned pawn matters less: it seldom wants to leave its file.
template <i32 side>
static void eval_pins(EvalWork* work)
{
    const Position* pos = work->pos;
    const u64* enemy = pos->bb[side ^ 1];
    const i32 king = pos->king_sq[side];
    // Every line piece that would reach the king on an empty board, blocked by exactly one piece.
    u64 pinned = lone_blockers(work, king,
        ((enemy[Bishop] | enemy[Queen]) & bishop_rays[king])
            | ((enemy[Rook] | enemy[Queen]) & rook_rays[king]));
    // The queen fears bishops and rooks alone: another queen would only be exchanged for her.
    if (pos->bb[side][Queen] != 0) {
        const i32 queen = lowest(pos->bb[side][Queen]);
        pinned |= lone_blockers(
            work, queen, (enemy[Bishop] & bishop_rays[queen]) | (enemy[Rook] & rook_rays[queen]));
    }
    // An enemy piece in between is no pin but a discovered attack in waiting: not counted.
    pinned &= pieces_of(pos, side);
    if (pinned != 0) {
        add_weight(work, side, pinned_piece, popcount(pinned & ~pos->bb[side][Pawn]));
        add_weight(work, side, pinned_pawn, popcount(pinned & pos->bb[side][Pawn]));
    }
}

// Both sides' hanging pieces come first, since a push that attacks one of them is no new threat.
void eval_threats(EvalWork* work)
{
    work->hung = eval_attacked<White>(work) | eval_attacked<Black>(work);
    eval_pawn_pushes<White>(work);
    eval_pawn_pushes<Black>(work);
    eval_pins<White>(work);
    eval_pins<Black>(work);
}

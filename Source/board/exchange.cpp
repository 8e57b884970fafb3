// Attackers of a square, and what an exchange on it yields.
// Attackers are found from the square outwards; whether a slider reaches it is a matter of the
// squares between, so no attack set is ever computed. Nothing here changes the position, but
// adds_king_pressure lifts a piece off two bitboards and puts it back.
#include "board/moves.h"
#include "board/tables.h"

// What the capture of a king is worth, centipawns: below the king's own value, so that a king that
// captures a defended piece loses by it.
static constexpr i32 king_capture_value = 9999;

// The lowest of the sliders that no piece of occ separates from square, or NoSquare.
static inline i32 first_unblocked(const u64* lines, u64 sliders, u64 occ)
{
    while (sliders != 0) {
        const i32 from = lowest(sliders);
        if ((lines[from] & occ) == 0) {
            return from;
        }
        sliders &= sliders - 1;
    }
    return NoSquare;
}

// The least valuable piece of side among present that attacks square, sliders blocked by occ. From
// the cheapest type up, so that the usual answer, a pawn or none, is found without the sliders.
static inline i32 least_attacker(const Position* pos, i32 square, i32 side, u64 occ, u64 present)
{
    const u64* bb = pos->bb[side];
    u64 set = pawn_attacks[side ^ 1][square] & bb[Pawn] & present;
    if (set != 0) {
        return lowest(set);
    }
    set = knight_attacks[square] & bb[Knight] & present;
    if (set != 0) {
        return lowest(set);
    }

    const u64* lines = between[square];
    const u64 diagonals = bishop_rays[square] & present;
    const u64 straights = rook_rays[square] & present;
    i32 from = first_unblocked(lines, diagonals & bb[Bishop], occ);
    if (from != NoSquare) {
        return from;
    }
    from = first_unblocked(lines, straights & bb[Rook], occ);
    if (from != NoSquare) {
        return from;
    }
    from = first_unblocked(lines, (diagonals | straights) & bb[Queen], occ);
    if (from != NoSquare) {
        return from;
    }

    set = king_attacks[square] & bb[King] & present;
    return set != 0 ? lowest(set) : static_cast<i32>(NoSquare);
}

bool is_attacked(const Position* pos, i32 square, i32 side)
{
    // The cheap tests first: the sliders need a look at the squares between.
    const u64* bb = pos->bb[side];
    if ((pawn_attacks[side ^ 1][square] & bb[Pawn]) | (knight_attacks[square] & bb[Knight])
        | (king_attacks[square] & bb[King])) {
        return true;
    }

    const u64 sliders = (bishop_rays[square] & (bb[Bishop] | bb[Queen]))
        | (rook_rays[square] & (bb[Rook] | bb[Queen]));
    const u64 occ = occupied(pos);
    return first_unblocked(between[square], sliders, occ) != NoSquare;
}

i32 find_attacker(const Position* pos, i32 square, i32 side, u64 occ)
{
    return least_attacker(pos, square, side, occ, occ);
}

i32 find_checker(const Position* pos, i32 square, i32 side, u64 occ)
{
    return least_attacker(pos, square, side, occ, ~0ULL);
}

// What side gains at most by capturing on square, where a piece of the given type stands and only
// the pieces of occ exist; it may decline. The captures alternate, least valuable attacker first,
// until one side has no attacker or a king would be taken, and are then settled from the end:
// each side stops where going on would lose.
static i32 swap_gain(const Position* pos, i32 side, i32 square, i32 type, u64 occ)
{
    i32 taken[64];
    i32 count = 0;
    i32 gain = 0;
    for (;;) {
        const i32 from = least_attacker(pos, square, side, occ, occ);
        if (from == NoSquare) {
            break;
        }
        if (type == King) {
            gain = king_capture_value;
            break;
        }
        // The capturer stands on the square next, and what it uncovers may capture after it.
        taken[count++] = exchange_value[type];
        type = type_of(pos->board[from]);
        occ ^= bit(from);
        side ^= 1;
    }
    while (count > 0) {
        gain = taken[--count] - gain;
        if (gain < 0) {
            gain = 0;
        }
    }
    return gain;
}

// Whether swap_gain would give least or more; least is 1 or more. The captures of both sides are
// followed as there, but only as long as the answer is open: a side gains at most what stands on
// the square, and gains least if what the other side then gains is small enough.
static bool gains_at_least(const Position* pos, i32 side, i32 square, i32 type, u64 occ, i32 least)
{
    // Whether a yes of the side to capture is a yes to the question.
    bool asked = true;
    for (;;) {
        if (type != King && exchange_value[type] < least) {
            return !asked;
        }
        const i32 from = least_attacker(pos, square, side, occ, occ);
        if (from == NoSquare) {
            return !asked;
        }
        if (type == King) {
            return (king_capture_value >= least) == asked;
        }
        least = exchange_value[type] - least + 1;
        asked = !asked;
        type = type_of(pos->board[from]);
        occ ^= bit(from);
        side ^= 1;
    }
}

i32 swapoff(const Position* pos, i32 side, i32 from, i32 to)
{
    const u64 occ = occupied(pos);
    const i32 target = type_of(pos->board[to]);
    if (from == NoSquare) {
        return swap_gain(pos, side, to, target, occ);
    }
    return exchange_value[target]
        - swap_gain(pos, side ^ 1, to, type_of(pos->board[from]), occ & ~bit(from));
}

bool swaps_at_least(const Position* pos, i32 side, i32 from, i32 to, i32 least)
{
    const u64 occ = occupied(pos);
    const i32 target = type_of(pos->board[to]);
    if (from == NoSquare) {
        return least <= 0 || gains_at_least(pos, side, to, target, occ, least);
    }
    // The other side must not gain more than this.
    const i32 spare = exchange_value[target] - least;
    return spare >= 0
        && !gains_at_least(
            pos, side ^ 1, to, type_of(pos->board[from]), occ & ~bit(from), spare + 1);
}

// Whether side would still attack square if its piece of the given type were gone from from.
static bool is_attacked_without(Position* pos, i32 square, i32 side, i32 type, i32 from)
{
    pos->bb[side][type] ^= bit(from);
    pos->bb[side][0] ^= bit(from);
    const bool attacked = is_attacked(pos, square, side);
    pos->bb[side][type] ^= bit(from);
    pos->bb[side][0] ^= bit(from);
    return attacked;
}

bool adds_king_pressure(Position* pos, i32 type, i32 from, i32 to, u64 zone)
{
    const i32 side = pos->stm;
    const u64 occ = occupied(pos);
    for (i32 mover = Rook; mover >= Bishop; --mover) {
        if (type != mover && type != Queen) {
            continue;
        }
        const u64* rays = mover == Rook ? rook_rays : bishop_rays;
        // Own pieces that move alike do not block: they stand in the same battery.
        const u64 blockers = occ & ~(pos->bb[side][mover] | pos->bb[side][Queen]);
        u64 squares = rays[to] & zone & ~rays[from] & ~bit(from);
        while (squares != 0) {
            const i32 square = pop_lowest(&squares);
            if ((between[to][square] & blockers) == 0
                && is_attacked_without(pos, square, side, type, from)) {
                return true;
            }
        }
    }
    return false;
}

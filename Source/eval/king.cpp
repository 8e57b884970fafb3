// King safety: pawn shield, safe checks and the curve of attack points while the enemy has the
// pieces for an attack; a trapped king and the way to the pawns always.
// All additions go to the side whose king it is; the weights carry the sign.
// The unit of an attack is the attack point: one for a square from which a piece could check, three
// to five for a piece or a square near the king, four for a check by the queen. Points go through a
// curve, since one attacker is a nuisance and four together are mate.
#include "board/tables.h"
#include "eval/terms.h"

// With no more pieces than these points of phase_mtl (a rook and a minor, say) nobody is mated in
// the middle of the board, and the king may walk.
static constexpr i32 attack_material = 8;

// Each square of the shield takes an attack point away, up to the limit.
static constexpr i32 shield_points_limit = 8;

// A queen that gets a safe check right beside the king often mates or wins a piece, in centipawns.
static constexpr i32 queen_check_danger = 800;

// Attack points per square that bears a piece's attack. A bishop's count less: it sees one colour
// only and the next square is safe from it.
static constexpr i32 pawn_square_points = 4;
static constexpr i32 knight_square_points = 4;
static constexpr i32 bishop_square_points = 3;
static constexpr i32 rook_square_points = 4;
static constexpr i32 queen_square_points = 4;
static constexpr i32 check_points = 4; // of a kind of queen check: diagonal or line

// One point is no attack.
static constexpr i32 least_curve_points = 2;

// The squares from which the king can be checked on the board as it stands: the same lines seen
// from the king's end.
struct CheckLines {
    u64 diagonals;
    u64 lines;
    u64 knights;
};

// The shielded squares: those of the zone moved one rank on, where the attackers come from, with an
// own pawn on them or up to two ranks behind them; a pawn behind still keeps the file closed.
// Returns their number, 0 to 9.
template <i32 side>
static i32 count_shield(const EvalWork* work)
{
    const u64 pawns = work->pos->bb[side][Pawn];
    const u64 covered = pawns | forward<side>(pawns) | forward<side>(pawns, 2);
    return popcount(forward<side>(work->king_zone[side]) & covered);
}

// Squares that the attacker of side's king can use: not held by a pawn, minor piece or rook of
// side, nor by any two of its pieces, nor by king or queen alone unless the attacker bears on them
// twice and so can take back, nor his own.
template <i32 side>
static u64 safe_squares(const EvalWork* work)
{
    constexpr i32 enemy = side ^ 1;
    const u64 guarded = work->attacks_pnbr[side] | work->double_attacks[side]
        | pieces_of(work->pos, enemy) | (work->attacks[side][0] & ~work->double_attacks[enemy]);
    return ~guarded;
}

// Attack points of the enemy's pieces on and around the king's zone: for each square of the zone
// that no piece of side worth as little as the attacker holds, and for each square of a safe check.
// The queen's checks are counted elsewhere: she has so many squares that their number says little.
template <i32 side>
static i32 count_attack_points(const EvalWork* work, u64 safe, const CheckLines* from)
{
    constexpr i32 enemy = side ^ 1;
    const u64 zone = work->king_zone[side];
    const u64* attacks = work->attacks[enemy];
    const u64 weak = zone & ~work->attacks_pnb[side];
    const u64 weak_for_rooks = zone & ~work->attacks_pnbr[side];
    const u64 knights = attacks[Knight] & (weak | (from->knights & safe));
    const u64 bishops = attacks[Bishop] & (weak | (from->diagonals & safe));
    const u64 rooks = attacks[Rook] & (weak_for_rooks | (from->lines & safe));
    const u64 queens = attacks[Queen] & zone & ~work->attacks_pnbrq[side];
    // A pawn's attack opens the position only if a piece stands behind it.
    const u64 pawns = zone & work->double_attacks[enemy] & attacks[Pawn];
    return pawn_square_points * popcount(pawns) + knight_square_points * popcount(knights)
        + bishop_square_points * popcount(bishops) + rook_square_points * popcount(rooks)
        + queen_square_points * popcount(queens);
}

// The attack as a whole. It rises with the square of the points; without a queen it is half as
// strong, for an attack without her runs dry.
template <i32 side>
static u32 attack_word(EvalWork* work, i32 points)
{
    if (points < least_curve_points) {
        return 0;
    }
    const i32 step = points < attack_curve_limit ? points : attack_curve_limit;
    const bool queen = count_of(work->pos, side ^ 1, Queen) != 0;
    return queen ? fraction_word(work, side, king_danger1, step)
                 : fraction_word(work, side, king_danger2, step);
}

// The points of all sources together: pieces that reach the zone (king_attack, filled with the
// attack sets), less the shield, squares of the zone, and checks. Returns what they add.
template <i32 side>
static u32 eval_king_attack(EvalWork* work, i32 king_square)
{
    constexpr i32 enemy = side ^ 1;
    const u64* attacks = work->attacks[enemy];
    const i32 shield = count_shield<side>(work);
    i32 points =
        work->king_attack[side] - (shield < shield_points_limit ? shield : shield_points_limit);

    const u64 safe = safe_squares<side>(work);
    const CheckLines from = {
        bishop_attacks(king_square, work->occupied),
        rook_attacks(king_square, work->occupied),
        knight_attacks[king_square],
    };
    // A check that the queen can give on the next move, beside the king: what follows it the static
    // score cannot see, so the search is warned off pruning.
    const u64 queen_diagonal = attacks[Queen] & from.diagonals & safe;
    const u64 queen_line = attacks[Queen] & from.lines & safe;
    const bool beside = ((queen_diagonal | queen_line) & work->king_zone[side]) != 0;
    add_danger(work, side, beside ? queen_check_danger : 0);
    const i32 queen_checks = (queen_diagonal != 0) + (queen_line != 0);
    points += count_attack_points<side>(work, safe, &from) + check_points * queen_checks;

    // A safe check costs the king a move and often his place: enemy_checks each, and a point.
    const u64 other_checks = safe
        & ((attacks[Bishop] & from.diagonals) | (attacks[Rook] & from.lines)
            | (attacks[Knight] & from.knights));
    const i32 checks = queen_checks + popcount(other_checks);
    return fraction_word(work, side, pawn_shield, shield)
        + weight_word(work, side, enemy_checks, checks) + attack_word<side>(work, points + checks);
}

// Steps from the king to the nearest pawn of either colour beyond its first surroundings, which
// are three files by five ranks; there must be pawns, or the rings would grow for ever.
static i32 pawn_distance(u64 pawns, i32 king_square)
{
    u64 ring = king_attacks[king_square] | bit(king_square);
    ring |= (ring << 8) | (ring >> 8);
    i32 distance = 0;
    while ((ring & pawns) == 0) {
        ring |= sideways(ring);
        ring |= (ring << 8) | (ring >> 8);
        ++distance;
    }
    return distance;
}

template <i32 side>
static void eval_king_of(EvalWork* work, i32 king_square)
{
    constexpr i32 enemy = side ^ 1;
    const Position* pos = work->pos;
    // Where a king feels at home: the corner in the middle game, the centre in the end game.
    u32 score = weight_word(work, side, PST_K + pst_index(work, side, king_square));
    if (pos->phase_mtl[enemy] > attack_material) {
        score += eval_king_attack<side>(work, king_square);
    }
    // A king without a square to go to is mated by the first check that nobody can answer.
    const u64 barred = work->attacks[enemy][0] | pieces_of(pos, side);
    score += weight_word(work, side, king_trapped, (work->attacks[side][King] & ~barred) == 0);
    // In the end game the king belongs to the pawns, his own to guard and the others' to win; per
    // step that he is away from them.
    if (work->all_pawns != 0) {
        const i32 distance = pawn_distance(work->all_pawns, king_square);
        score += weight_word(work, side, king_pawn_prox, distance);
    }
    add_word(work, side, score);
    work->tally[TallyKing][side] = work->score[side];
}

// The side is made a constant here, so that each direction of the pawns is compiled once.
void eval_king(EvalWork* work, i32 side, i32 king_square)
{
    if (side == White) {
        eval_king_of<White>(work, king_square);
    } else {
        eval_king_of<Black>(work, king_square);
    }
}

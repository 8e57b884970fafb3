// King safety: pawn shield, safe checks and the curve of attack points while the enemy has the
// pieces for an attack; a trapped king and the way to the pawns always.
// All additions go to the side whose king it is; the weights carry the sign.
#include "board/tables.h"
#include "eval/terms.h"

// With no more pieces than this (two minors, say) there is no attack on the king.
static constexpr i32 attack_material = 8;

static constexpr i32 full_shield = 9;         // squares of a king's zone
static constexpr f64 shield_step = 0.111;     // part of pawn_shield per missing square
static constexpr i32 shield_points_limit = 8; // attack points that a shield takes away
static constexpr i32 queen_check_danger = 800;
static constexpr i32 check_points = 4; // attack points of a kind of queen check
static constexpr i32 curve_limit = 39; // attack points; the curve is flat above
static constexpr f64 curve_factor = 0.0018;
static constexpr u32 queen_count_mask = 0xf0000;

// The squares from which the king can be checked on the board as it stands.
struct CheckLines {
    u64 diagonals;
    u64 lines;
    u64 knights;
};

// Counts the shielded squares: those in front of the zone with an own pawn on them or up to two
// ranks behind them. Returns their number, 0 to 9.
template <i32 side>
static i32 eval_shield(EvalWork* work)
{
    const u64 pawns = work->pos->bb[side][Pawn];
    const u64 covered = pawns | forward<side>(pawns) | forward<side>(pawns, 2);
    const i32 shield = popcount(forward<side>(work->king_zone[side]) & covered);
    const f64 fraction = static_cast<f64>(shield - full_shield) * shield_step;
    add_fraction(work, side, pawn_shield, static_cast<f32>(fraction));
    return shield;
}

// Squares that the attacker of side's king can use: not held by a lesser piece of side, nor
// twice, nor by king or queen alone unless the attacker bears on them twice, nor his own.
template <i32 side>
static u64 safe_squares(const EvalWork* work)
{
    constexpr i32 enemy = side ^ 1;
    const u64 guarded = work->attacks_pnbr[side] | work->double_attacks[side]
        | work->pos->bb[enemy][0] | (work->attacks[side][0] & ~work->double_attacks[enemy]);
    return ~guarded;
}

// Attack points of the enemy's pieces on and around the king's zone.
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
    return 4 * popcount(zone & work->double_attacks[enemy] & attacks[Pawn]) + 4 * popcount(knights)
        + 3 * popcount(bishops) + 4 * popcount(rooks) + 4 * popcount(queens);
}

template <i32 side>
static void eval_attack_curve(EvalWork* work, i32 points)
{
    if (points <= 1) {
        return;
    }
    const f64 x = static_cast<f64>(points < curve_limit ? points : curve_limit);
    const f32 height = static_cast<f32>(x * curve_factor * x);
    const bool queen = (work->pos->piece_count[side ^ 1] & queen_count_mask) != 0;
    add_fraction(work, side, queen ? king_danger1 : king_danger2, height);
}

template <i32 side>
static void eval_king_attack(EvalWork* work, i32 king_square)
{
    constexpr i32 enemy = side ^ 1;
    const u64* attacks = work->attacks[enemy];
    const i32 shield = eval_shield<side>(work);
    i32 points =
        work->king_attack[side] - (shield < shield_points_limit ? shield : shield_points_limit);

    const u64 safe = safe_squares<side>(work);
    const CheckLines from = {
        bishop_attacks(king_square, work->occupied),
        rook_attacks(king_square, work->occupied),
        knight_attacks[king_square],
    };
    const u64 queen_diagonal = attacks[Queen] & from.diagonals & safe;
    const u64 queen_line = attacks[Queen] & from.lines & safe;
    if ((queen_diagonal | queen_line) & work->king_zone[side]) {
        add_danger(work, side, queen_check_danger);
    }
    const i32 queen_checks = (queen_diagonal != 0) + (queen_line != 0);
    points += count_attack_points<side>(work, safe, &from) + check_points * queen_checks;

    const u64 other_checks = safe
        & ((attacks[Bishop] & from.diagonals) | (attacks[Rook] & from.lines)
            | (attacks[Knight] & from.knights));
    const i32 checks = queen_checks + popcount(other_checks);
    points += checks;
    add_weight(work, side, enemy_checks, checks);
    eval_attack_curve<side>(work, points);
}

// Steps from the king to the nearest pawn of either colour beyond its first surroundings, which
// are three files by five ranks; there must be pawns.
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
    add_weight(work, side, PST_K + work->pst_map[side][king_square]);
    if (pos->phase_mtl[enemy] > attack_material) {
        eval_king_attack<side>(work, king_square);
    }
    const u64 barred = work->attacks[enemy][0] | pos->bb[side][0];
    if ((work->attacks[side][King] & ~barred) == 0) {
        add_weight(work, side, king_trapped);
    }
    if (work->all_pawns != 0) {
        add_weight(work, side, king_pawn_prox, pawn_distance(work->all_pawns, king_square));
    }
    work->tally[TallyKing][side] = work->score[side];
}

void eval_king(EvalWork* work, i32 side, i32 king_square)
{
    if (side == White) {
        eval_king_of<White>(work, king_square);
    } else {
        eval_king_of<Black>(work, king_square);
    }
}

// Endings that the terms do not judge: drawn material, a lone king, and material that is hard to
// win. Nothing here writes to the caches or to danger.
// Material is compared as a whole word of piece_count: one comparison for all types. Scores are in
// centipawns, material without pawns in points of phase_mtl.
#include "base/rounding.h"
#include "board/tables.h"
#include "eval/terms.h"

// The counts of some types in a word of piece_count.
static constexpr u32 knight_counts = 15 * count_step[Knight];
static constexpr u32 minor_counts = knight_counts | 15 * count_step[Bishop];
static constexpr u32 heavy_counts = 15 * (count_step[Rook] | count_step[Queen]);

// The whole words of a king with these pieces.
static constexpr u32 one_pawn = count_step[Pawn];
static constexpr u32 one_knight = count_step[Knight];
static constexpr u32 bishop_and_knight = count_step[Bishop] | count_step[Knight];
static constexpr u32 two_bishops = 2 * count_step[Bishop];

// Taken as numbers, the words up to this one have a bishop and nothing else, or no bishop at all,
// and never a rook or queen. How many knights then stand there is asked apart.
static constexpr u32 most_drawn_material = count_step[Bishop] | 15 * count_step[Pawn];
static constexpr u32 most_drawn_knights = 2 * count_step[Knight];

// Scores of endings against a lone king: about the worth of the material for a win, next to nothing
// for a draw, and a few centipawns more for each step of headway, so that the search finds its way
// where the mate is still beyond its sight.
static constexpr i32 won_pawn_score = 800;
static constexpr i32 pawn_rank_step = 4;
static constexpr i32 knight_bishop_score = 740;
static constexpr i32 corner_step = 8;
static constexpr i32 king_centre_step = 10;
static constexpr i32 king_distance_step = 6;
static constexpr i32 heavy_mate_score = 200;
static constexpr i32 heavy_point_score = 100; // per point of phase_mtl
static constexpr i32 edge_step = 10;
static constexpr i32 heavy_distance_step = 8;
static constexpr i32 heavy_drive_weight = 2; // of edge and distance together

// Scale factors. What is left of the score: all if it is like any other, a twentieth if it is a
// draw but for a blunder.
// Constants of f32 are factors themselves, those of f64 are multiplied into one.
static constexpr f32 full_scale = 1.0f;
static constexpr f32 bishops_against_knight_scale = 0.75f;
static constexpr f32 pawnless_scale = 0.15f;
static constexpr f32 wrong_corner_scale = 0.05f;
static constexpr f64 close_opposite_bishops = 0.65; // a lead of a pawn or none
static constexpr f64 clear_opposite_bishops = 0.8;  // a lead of two pawns
static constexpr f64 bare_opposite_bishops = 0.65;  // times that, with no other pieces
static constexpr f64 last_pawn_against_minor = 0.5;
static constexpr f64 last_pawn_against_major = 0.75;
static constexpr f64 no_free_pawn = 0.85;

// In points of phase_mtl. Only endings are scaled: sides of at most a queen or two rooks that
// differ by a minor piece or less. Whoever has more than that wins with it.
static constexpr i32 most_scaled_material = 10;
static constexpr i32 most_scaled_gap = 3;
static constexpr i32 minor_points = 3;
static constexpr i32 most_opposite_lead = 2;  // pawns; with more the bishop cannot stop them all
static constexpr i32 close_lead = 1;          // pawns
static constexpr i32 few_pawns = 2;           // of the side ahead
static constexpr i32 most_few_pawns_lead = 1; // points and pawns together

// Neither side can force mate, whoever is to move. Two knights can only if the other side helps.
bool is_drawn_material(const Position* pos)
{
    return (pos->bb[White][Pawn] | pos->bb[Black][Pawn]) == 0
        && pos->piece_count[White] <= most_drawn_material
        && pos->piece_count[Black] <= most_drawn_material
        && (pos->piece_count[White] & knight_counts) <= most_drawn_knights
        && (pos->piece_count[Black] & knight_counts) <= most_drawn_knights;
}

// 0 to 3 for a file or a rank.
static i32 distance_to_edge(i32 coordinate)
{
    return coordinate < 4 ? coordinate : 7 - coordinate;
}

// 0 on the edge of the board, 1 on the next ring, 2 on the inner sixteen squares.
static i32 centre_value(i32 square)
{
    const i32 file = distance_to_edge(file_of(square));
    const i32 rank = distance_to_edge(rank_of(square));
    const i32 ring = file < rank ? file : rank;
    return ring < 2 ? ring : 2;
}

// 60 in a corner, 0 on the four centre squares.
static i32 edge_value(i32 square)
{
    return edge_step * (6 - distance_to_edge(file_of(square)) - distance_to_edge(rank_of(square)));
}

// 7 in the corners a1 and h8, falling to 0 on the diagonal between the other two.
static i32 dark_corner_value(i32 square)
{
    const i32 value = file_of(square) + rank_of(square) - 7;
    return value < 0 ? -value : value;
}

// The corner of the a file on the last rank of side, where its pawns become queens.
static i32 last_rank_corner(i32 side)
{
    return side == White ? 56 : 0;
}

// Whether the pawn's side wins, by the table of all such positions, which knows white pawns on
// files a to d: a black pawn's board is turned round, one on the other wing mirrored.
static bool is_won_pawn_ending(const Position* pos, i32 strong, i32 side, i32 pawn)
{
    i32 flip = strong == White ? 0 : 63;
    if (!is_on_queen_wing(pawn ^ flip)) {
        flip ^= 7;
    }
    const i32 pawn_square = pawn ^ flip;
    const i32 pawn_index = file_of(pawn_square) + 4 * rank_of(pawn_square);
    const i32 king = pos->king_sq[strong] ^ flip;
    const i32 lone_king = pos->king_sq[strong ^ 1] ^ flip;
    return kpk_table[side == strong ? 0 : 1][pawn_index][king][lone_king] == kpk_win;
}

// Won or not, the pawn is to go on and the kings to its goal: one step of a king is a centipawn,
// one of the pawn four, so that the winner makes headway and the loser stays in the way.
static i32 eval_single_pawn(const Position* pos, i32 strong, i32 side)
{
    const i32 pawn = lowest(pos->bb[strong][Pawn]);
    const i32 rank = relative_rank(strong, pawn);
    const i32 goal = file_of(pawn) + last_rank_corner(strong);
    const i32 score = king_steps(pos->king_sq[strong ^ 1], goal) + pawn_rank_step * rank
        - king_steps(pos->king_sq[strong], goal);
    return score + (is_won_pawn_ending(pos, strong, side, pawn) ? won_pawn_score : 0);
}

// The lone king is driven to a corner that the bishop can cover; in the other two no mate is
// forced. The corner weighs most, and the strong king comes along through the centre.
static i32 eval_bishop_and_knight(const Position* pos, i32 strong)
{
    const i32 king = pos->king_sq[strong];
    const i32 lone_king = pos->king_sq[strong ^ 1];
    // Both corners of the bishop's colour will do; a light bishop's board is mirrored.
    const bool dark_bishop = (pos->bb[strong][Bishop] & dark_squares) != 0;
    const i32 corner = dark_corner_value(dark_bishop ? lone_king : lone_king ^ 7);
    return knight_bishop_score + corner_step * corner + king_centre_step * centre_value(king)
        - king_distance_step * king_steps(king, lone_king);
}

// A rook or more mates on any edge: drive the king there and bring the own one near. Material
// counts in full, so that nothing is given away on the way and a pawn queens when it can.
static i32 eval_heavy_mate(const Position* pos, i32 strong)
{
    const i32 king = pos->king_sq[strong];
    const i32 lone_king = pos->king_sq[strong ^ 1];
    return heavy_point_score * pos->phase_mtl[strong] + heavy_mate_score
        + heavy_drive_weight
        * (edge_value(lone_king) - heavy_distance_step * king_steps(king, lone_king));
}

LoneKingRule find_lone_king_rule(const Position* pos, i32* strong)
{
    const bool lone_white = pos->piece_count[White] == 0;
    const bool lone_black = pos->piece_count[Black] == 0;
    // Two lone kings have been drawn before; with pieces on both sides the terms judge.
    if (lone_white == lone_black) {
        return LoneKingRule::None;
    }
    *strong = lone_white ? Black : White;
    // Exactly one pawn, exactly bishop and knight, or any rook or queen with whatever else. Other
    // material, two bishops or several pawns, is left to the terms.
    const u32 material = pos->piece_count[*strong];
    if (material == one_pawn) {
        return LoneKingRule::SinglePawn;
    }
    if (material == bishop_and_knight) {
        return LoneKingRule::BishopAndKnight;
    }
    return (material & heavy_counts) != 0 ? LoneKingRule::HeavyMate : LoneKingRule::None;
}

bool eval_lone_king(const Position* pos, i32 side, i32* score)
{
    i32 strong = White;
    i32 value = 0;
    switch (find_lone_king_rule(pos, &strong)) {
    case LoneKingRule::SinglePawn:
        value = eval_single_pawn(pos, strong, side);
        break;
    case LoneKingRule::BishopAndKnight:
        value = eval_bishop_and_knight(pos, strong);
        break;
    case LoneKingRule::HeavyMate:
        value = eval_heavy_mate(pos, strong);
        break;
    case LoneKingRule::None:
        return false;
    }
    *score = side == strong ? value : -value;
    return true;
}

// Each factor is applied in f64 and rounded back to f32 before the next: the last bit of a scale
// can move a score by a centipawn.
static f32 scaled(f32 scale, f64 factor)
{
    return to_f32(static_cast<f64>(scale) * factor);
}

// Whether all pawns of strong stand on one rook's file, the enemy king holds its corner, and no
// bishop of strong is of the corner's colour: nothing can drive him out, however many pawns come.
[[gnu::always_inline]] static inline bool is_wrong_rook_pawn(const Position* pos, i32 strong)
{
    const u64 pawns = pos->bb[strong][Pawn];
    if (pawns == 0 || (pos->piece_count[strong] & (knight_counts | heavy_counts)) != 0) {
        return false;
    }
    // All on the h file, or else all on the a file: pawns on both would draw the king away.
    i32 corner = last_rank_corner(strong);
    if ((pawns & ~file_h) == 0) {
        corner += 7;
    } else if ((pawns & ~file_a) != 0) {
        return false;
    }
    // A bishop of the corner's colour drives the king out, and then the pawn goes through.
    const u64 corner_colour = (bit(corner) & light_squares) ? light_squares : dark_squares;
    return king_steps(pos->king_sq[strong ^ 1], corner) <= 1
        && (pos->bb[strong][Bishop] & corner_colour) == 0;
}

// The factor and the reasons for it. A search asks for the factor alone: the compiler drops the
// rest.
struct Scaling {
    f32 factor;
    u32 reasons; // ScaleReason bits
};

// The factor of opposite bishops, 1 if they are not there. lead is how many pawns white is ahead.
// Each bishop holds the squares of its colour and nobody contests them: a pawn or two more do not
// get through, least of all where no other pieces help.
static inline Scaling opposite_bishops_scale(const Position* pos, i32 lead)
{
    const bool one_each = count_of(pos, White, Bishop) == 1 && count_of(pos, Black, Bishop) == 1;
    if (!one_each || pos->phase_mtl[White] != pos->phase_mtl[Black] || lead < -most_opposite_lead
        || lead > most_opposite_lead) {
        return { full_scale, 0 };
    }
    // One bishop each, but they may still run on the same colour and then they do fight.
    const bool light_white = (pos->bb[White][Bishop] & light_squares) != 0;
    const bool light_black = (pos->bb[Black][Bishop] & light_squares) != 0;
    if (light_white == light_black) {
        return { full_scale, 0 };
    }
    // Rooks or knights that are left give the side ahead something to attack with.
    const bool is_close = lead >= -close_lead && lead <= close_lead;
    const f32 scale =
        scaled(full_scale, is_close ? close_opposite_bishops : clear_opposite_bishops);
    const bool bishops_only = pos->phase_mtl[White] == minor_points;
    if (bishops_only) {
        return { scaled(scale, bare_opposite_bishops),
            ScaleOppositeBishops | ScaleBareOppositeBishops };
    }
    return { scale, ScaleOppositeBishops };
}

// The side ahead has one or two pawns left, and the enemy a piece that may be given for the last.
// A minor piece is soon given for it, a rook costs more. A pawn whose path is free will not wait
// for the sacrifice; without one there is time for it.
static inline Scaling few_pawns_scale(const EvalWork* work, i32 strong, Scaling scale)
{
    const Position* pos = work->pos;
    const i32 weak = strong ^ 1;
    const i32 pawns = count_of(pos, strong, Pawn);
    const i32 weak_pawns = count_of(pos, weak, Pawn);
    // Material in points with a pawn counted as one.
    const i32 lead = pos->phase_mtl[strong] + pawns - (pos->phase_mtl[weak] + weak_pawns);
    if (pawns > few_pawns || lead > most_few_pawns_lead || pos->phase_mtl[weak] == 0) {
        return scale;
    }
    if (pawns == 1) {
        const bool minor = (pos->piece_count[weak] & minor_counts) != 0;
        scale.factor =
            scaled(scale.factor, minor ? last_pawn_against_minor : last_pawn_against_major);
        scale.reasons |= ScaleLastPawn;
    }
    // Of either number of pawns: without a free path each of them can still be stopped.
    if ((work->free_passers & pos->bb[strong][Pawn]) == 0) {
        scale.factor = scaled(scale.factor, no_free_pawn);
        scale.reasons |= ScaleNoFreePawn;
    }
    return scale;
}

// The conditions go from what decides alone to what adds up. A score of 0 has no side ahead, and
// only the bishops can be asked about. All of it is compiled into both of its callers, so that the
// one of the search is as short as if there were no reasons.
[[gnu::always_inline]] static inline Scaling find_scaling(const EvalWork* work, i32 value)
{
    const Position* pos = work->pos;
    const i32 white_material = pos->phase_mtl[White];
    const i32 black_material = pos->phase_mtl[Black];
    const i32 gap = white_material - black_material;
    if (white_material > most_scaled_material || black_material > most_scaled_material
        || gap > most_scaled_gap || gap < -most_scaled_gap) {
        return { full_scale, 0 };
    }
    // Whoever is ahead by the terms, not by material: he is the one who has to win.
    const i32 strong = value > 0 ? White : Black;
    if (value != 0) {
        // Without pawns a minor piece more does not win; only two bishops trouble a lone knight.
        if (count_of(pos, strong, Pawn) == 0) {
            const bool bishops_against_knight = pos->piece_count[strong] == two_bishops
                && pos->piece_count[strong ^ 1] == one_knight;
            return bishops_against_knight
                ? Scaling { bishops_against_knight_scale, ScaleBishopsAgainstKnight }
                : Scaling { pawnless_scale, ScalePawnless };
        }
        // The enemy king in front of a rook's pawn goes in and out of the corner, or is stalemated.
        if (is_wrong_rook_pawn(pos, strong)) {
            return { wrong_corner_scale, ScaleWrongCorner };
        }
    }
    // The factors of opposite bishops and of few pawns go on top of each other.
    const i32 lead = count_of(pos, White, Pawn) - count_of(pos, Black, Pawn);
    const Scaling scale = opposite_bishops_scale(pos, lead);
    return value != 0 ? few_pawns_scale(work, strong, scale) : scale;
}

f32 scale_factor(const EvalWork* work, i32 value)
{
    return find_scaling(work, value).factor;
}

u32 scale_reasons(const EvalWork* work, i32 value)
{
    return find_scaling(work, value).reasons;
}

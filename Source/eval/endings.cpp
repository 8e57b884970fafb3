// Endings that the terms do not judge: drawn material, a lone king, and material that is hard to
// win. Nothing here writes to the caches or to danger.
// The words of piece_count are nibbles: pawns, knights, bishops, rooks, queens from bit 0.
#include "board/tables.h"
#include "eval/terms.h"

static constexpr u32 knight_count_mask = 0xf0;
static constexpr u32 minor_count_mask = 0xff0;
static constexpr u32 bishop_count_mask = 0xf00;
static constexpr u32 heavy_count_mask = 0xff000; // rooks and queens
static constexpr u32 knight_or_heavy_mask = 0xff0f0;

static constexpr u32 one_pawn = 0x1;
static constexpr u32 one_knight = 0x10;
static constexpr u32 one_bishop = 0x100;
static constexpr u32 bishop_and_knight = 0x110;
static constexpr u32 two_bishops = 0x200;

bool is_drawn_material(const Position* pos)
{
    return (pos->bb[White][Pawn] | pos->bb[Black][Pawn]) == 0 && pos->piece_count[White] <= 0x10f
        && pos->piece_count[Black] <= 0x10f && (pos->piece_count[White] & knight_count_mask) <= 0x20
        && (pos->piece_count[Black] & knight_count_mask) <= 0x20;
}

static i32 distance_to_edge(i32 coordinate)
{
    return coordinate < 4 ? coordinate : 7 - coordinate;
}

// 0 on the edge of the board, 1 on the next ring, 2 on the inner sixteen squares.
static i32 centre_value(i32 square)
{
    const i32 file = distance_to_edge(square & 7);
    const i32 rank = distance_to_edge(square >> 3);
    const i32 ring = file < rank ? file : rank;
    return ring < 2 ? ring : 2;
}

// 60 in a corner, 0 on the four centre squares.
static i32 edge_value(i32 square)
{
    return 10 * (6 - distance_to_edge(square & 7) - distance_to_edge(square >> 3));
}

// 7 in the corners a1 and h8, falling to 0 on the diagonal between the other two.
static i32 dark_corner_value(i32 square)
{
    const i32 value = (square & 7) + (square >> 3) - 7;
    return value < 0 ? -value : value;
}

// Whether the pawn's side wins; the table knows white pawns on files a to d.
static bool is_won_pawn_ending(const Position* pos, i32 strong, i32 side, i32 pawn)
{
    i32 flip = strong == White ? 0 : 63;
    if (((pawn ^ flip) & 7) > 3) {
        flip ^= 7;
    }
    const i32 pawn_square = pawn ^ flip;
    const i32 pawn_index = (pawn_square & 7) + 4 * (pawn_square >> 3);
    const i32 king = pos->king_sq[strong] ^ flip;
    const i32 lone_king = pos->king_sq[strong ^ 1] ^ flip;
    return kpk_table[side == strong ? 0 : 1][pawn_index][king][lone_king] == 2;
}

static i32 eval_single_pawn(const Position* pos, i32 strong, i32 side)
{
    const i32 pawn = lowest(pos->bb[strong][Pawn]);
    const i32 rank = strong == White ? pawn >> 3 : 7 - (pawn >> 3);
    const i32 goal = (pawn & 7) + (strong == White ? 56 : 0);
    const i32 score = king_steps(pos->king_sq[strong ^ 1], goal) + 4 * rank
        - king_steps(pos->king_sq[strong], goal);
    return score + (is_won_pawn_ending(pos, strong, side, pawn) ? 800 : 0);
}

// The lone king is driven to a corner that the bishop can cover.
static i32 eval_bishop_and_knight(const Position* pos, i32 strong)
{
    const i32 king = pos->king_sq[strong];
    const i32 lone_king = pos->king_sq[strong ^ 1];
    const bool dark_bishop = (pos->bb[strong][Bishop] & dark_squares) != 0;
    const i32 corner = dark_corner_value(dark_bishop ? lone_king : lone_king ^ 7);
    return 740 + 8 * corner + 10 * centre_value(king) - 6 * king_steps(king, lone_king);
}

static i32 eval_heavy_mate(const Position* pos, i32 strong)
{
    const i32 king = pos->king_sq[strong];
    const i32 lone_king = pos->king_sq[strong ^ 1];
    return 100 * pos->phase_mtl[strong] + 200
        + 2 * (edge_value(lone_king) - 8 * king_steps(king, lone_king));
}

bool eval_lone_king(const Position* pos, i32 side, i32* score)
{
    const bool lone_white = pos->piece_count[White] == 0;
    const bool lone_black = pos->piece_count[Black] == 0;
    if (lone_white == lone_black) {
        return false;
    }
    const i32 strong = lone_white ? Black : White;
    const u32 material = pos->piece_count[strong];
    i32 value = 0;
    if (material == one_pawn) {
        value = eval_single_pawn(pos, strong, side);
    } else if (material == bishop_and_knight) {
        value = eval_bishop_and_knight(pos, strong);
    } else if (material & heavy_count_mask) {
        value = eval_heavy_mate(pos, strong);
    } else {
        return false;
    }
    *score = side == strong ? value : -value;
    return true;
}

// Each factor is applied in double and rounded back.
static f32 scaled(f32 scale, f64 factor)
{
    return static_cast<f32>(static_cast<f64>(scale) * factor);
}

// Whether all pawns of strong stand on one rook's file, the enemy king holds its corner, and no
// bishop of strong is of the corner's colour.
static bool is_wrong_rook_pawn(const Position* pos, i32 strong)
{
    const u64 pawns = pos->bb[strong][Pawn];
    if (pawns == 0 || (pos->piece_count[strong] & knight_or_heavy_mask) != 0) {
        return false;
    }
    i32 corner = strong == White ? 56 : 0;
    if ((pawns & ~file_h) == 0) {
        corner += 7;
    } else if ((pawns & ~file_a) != 0) {
        return false;
    }
    const u64 corner_colour = (bit(corner) & light_squares) ? light_squares : dark_squares;
    return king_steps(pos->king_sq[strong ^ 1], corner) <= 1
        && (pos->bb[strong][Bishop] & corner_colour) == 0;
}

// The factor of opposite bishops, 1 if they are not there. lead is how many pawns white is ahead.
static f32 opposite_bishops_scale(const Position* pos, i32 lead)
{
    const bool one_each = (pos->piece_count[White] & bishop_count_mask) == one_bishop
        && (pos->piece_count[Black] & bishop_count_mask) == one_bishop;
    if (!one_each || pos->phase_mtl[White] != pos->phase_mtl[Black] || lead < -2 || lead > 2) {
        return 1.0f;
    }
    const bool light_white = (pos->bb[White][Bishop] & light_squares) != 0;
    const bool light_black = (pos->bb[Black][Bishop] & light_squares) != 0;
    if (light_white == light_black) {
        return 1.0f;
    }
    const f32 scale = scaled(1.0f, lead >= -1 && lead <= 1 ? 0.65 : 0.8);
    const bool bishops_only = pos->phase_mtl[White] == 3;
    return bishops_only ? scaled(scale, 0.65) : scale;
}

// The side ahead has one or two pawns left, and the enemy a piece that may be given for the last.
static f32 few_pawns_scale(const EvalWork* work, i32 strong, f32 scale)
{
    const Position* pos = work->pos;
    const i32 weak = strong ^ 1;
    const i32 pawns = static_cast<i32>(pos->piece_count[strong] & 15);
    const i32 weak_pawns = static_cast<i32>(pos->piece_count[weak] & 15);
    const i32 lead = pos->phase_mtl[strong] + pawns - (pos->phase_mtl[weak] + weak_pawns);
    if (pawns > 2 || lead > 1 || pos->phase_mtl[weak] < 1) {
        return scale;
    }
    if (pawns == 1) {
        scale = scaled(scale, (pos->piece_count[weak] & minor_count_mask) ? 0.5 : 0.75);
    }
    if ((work->free_passers & pos->bb[strong][Pawn]) == 0) {
        scale = scaled(scale, 0.85);
    }
    return scale;
}

f32 scale_factor(const EvalWork* work, i32 value)
{
    const Position* pos = work->pos;
    const i32 white_material = pos->phase_mtl[White];
    const i32 black_material = pos->phase_mtl[Black];
    const i32 gap = white_material - black_material;
    if (white_material > 10 || black_material > 10 || gap > 3 || gap < -3) {
        return 1.0f;
    }
    const i32 strong = value > 0 ? White : Black;
    if (value != 0) {
        if ((pos->piece_count[strong] & 15) == 0) {
            const bool bishops_against_knight = pos->piece_count[strong] == two_bishops
                && pos->piece_count[strong ^ 1] == one_knight;
            return bishops_against_knight ? 0.75f : 0.15f;
        }
        if (is_wrong_rook_pawn(pos, strong)) {
            return 0.05f;
        }
    }
    const i32 lead = static_cast<i32>(pos->piece_count[White] & 15)
        - static_cast<i32>(pos->piece_count[Black] & 15);
    const f32 scale = opposite_bishops_scale(pos, lead);
    return value != 0 ? few_pawns_scale(work, strong, scale) : scale;
}

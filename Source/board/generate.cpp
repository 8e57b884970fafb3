// The move generators. All moves are pseudo-legal: the own king may be left in check.
// The order of the moves settles ties in the search, so it is part of what these routines promise:
// pawns, knights, bishops, rooks, queens, king; squares rising, targets rising. Entries get move,
// moved and captured; score keeps what the slot held, as the search fills it in where it is needed.
// Each routine gives a part of the moves, so that a search that is content with the captures never
// pays for the rest; no move comes out of two parts.
#include "board/moves.h"
#include "board/tables.h"

static constexpr u64 inner_ranks = 0x00ffffffffffff00ULL; // ranks 2 to 7

// Squares that must be empty between king and rook, as a set that is shifted to the first of them.
static constexpr u64 short_castling_path = 3; // two, from the first on the king's right
static constexpr u64 long_castling_path = 7;  // three, up to the first on its left

static constexpr Move under_promotions[3] = { PromoteKnight, PromoteBishop, PromoteRook };

// All squares of a set one rank on, as side sees it. What leaves the board is gone.
static inline u64 shift_forward(u64 set, i32 side)
{
    return side == White ? set << 8 : set >> 8;
}

static inline MoveEntry* add_move(MoveEntry* out, i32 from, i32 to, i32 moved, i32 captured)
{
    out->move = make_move_code(from, to);
    out->moved = static_cast<u8>(moved);
    out->captured = static_cast<u8>(captured);
    return out + 1;
}

// Pawn moves whose from-square lies a fixed step behind each target: a whole set of pawns moves at
// once, and only what arrives is listed.
static inline MoveEntry* add_pawn_moves(
    const Position* pos, MoveEntry* out, u64 targets, i32 step, i32 pawn)
{
    while (targets != 0) {
        const i32 to = pop_lowest(&targets);
        out = add_move(out, to - step, to, pawn, pos->board[to]);
    }
    return out;
}

// Moves of one piece onto a set of squares.
static inline MoveEntry* add_targets(
    const Position* pos, MoveEntry* out, i32 from, u64 targets, i32 moved)
{
    while (targets != 0) {
        const i32 to = pop_lowest(&targets);
        out = add_move(out, from, to, moved, pos->board[to]);
    }
    return out;
}

// Moves of knights, bishops, rooks and queens onto targets, in this order.
static inline MoveEntry* add_piece_moves(const Position* pos, i32 side, MoveEntry* out, u64 targets)
{
    const u64 occ = occupied(pos);
    for (u64 set = pos->bb[side][Knight]; set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_targets(pos, out, from, knight_attacks[from] & targets, piece_code(side, Knight));
    }
    for (u64 set = pos->bb[side][Bishop]; set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_targets(
            pos, out, from, bishop_attacks(from, occ) & targets, piece_code(side, Bishop));
    }
    for (u64 set = pos->bb[side][Rook]; set != 0;) {
        const i32 from = pop_lowest(&set);
        out =
            add_targets(pos, out, from, rook_attacks(from, occ) & targets, piece_code(side, Rook));
    }
    for (u64 set = pos->bb[side][Queen]; set != 0;) {
        const i32 from = pop_lowest(&set);
        const u64 attacks = bishop_attacks(from, occ) | rook_attacks(from, occ);
        out = add_targets(pos, out, from, attacks & targets, piece_code(side, Queen));
    }
    return out;
}

// By the bitboard, not king_sq: a board without a king, set up to look at, has no moves of one.
static inline MoveEntry* add_king_moves(const Position* pos, i32 side, MoveEntry* out, u64 targets)
{
    for (u64 set = pos->bb[side][King]; set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_targets(pos, out, from, king_attacks[from] & targets, piece_code(side, King));
    }
    return out;
}

MoveEntry* gen_captures(const Position* pos, i32 side, MoveEntry* out, i32 check_sq)
{
    const u64 enemies = pieces_of(pos, side ^ 1);
    // The only capture that answers a check is that of the checking piece, but for the king's own:
    // any piece beside it may be what it escapes to. A double check is left to the legality test.
    const u64 targets = check_sq == NoSquare ? enemies : bit(check_sq);

    // Captures on the last rank are promotions. Without an en-passant square its bit falls on a1,
    // and the limit to the inner ranks takes it out. The square counts in a check too: the pawn
    // that can be taken in passing may be the one that gives it.
    const u64 pawns = pos->bb[side][Pawn];
    const u64 pawn_targets = (targets | bit(pos->ep_square & 63)) & inner_ranks;
    // A shift along the rank would wrap from one edge of the board to the other.
    const u64 not_a = pawns & ~file_a;
    const u64 not_h = pawns & ~file_h;
    const i32 pawn = piece_code(side, Pawn);
    if (side == White) {
        out = add_pawn_moves(pos, out, (not_a << 7) & pawn_targets, 7, pawn);
        out = add_pawn_moves(pos, out, (not_h << 9) & pawn_targets, 9, pawn);
    } else {
        out = add_pawn_moves(pos, out, (not_a >> 9) & pawn_targets, -9, pawn);
        out = add_pawn_moves(pos, out, (not_h >> 7) & pawn_targets, -7, pawn);
    }

    out = add_piece_moves(pos, side, out, targets);
    return add_king_moves(pos, side, out, enemies);
}

// The queen first: she is nearly always the one. A knight gives checks that she does not, rook and
// bishop avoid a stalemate.
static inline MoveEntry* add_promotions(
    MoveEntry* out, i32 from, i32 to, i32 pawn, i32 captured, i32 under)
{
    const Move move = make_move_code(from, to);
    out = add_move(out, from, to, pawn, captured);
    out[-1].move = move | PromoteQueen;
    if (under == 0) {
        return out;
    }
    for (const Move flag : under_promotions) {
        out = add_move(out, from, to, pawn, captured);
        out[-1].move = move | flag;
    }
    return out;
}

MoveEntry* gen_promotions(const Position* pos, i32 side, i32 under, MoveEntry* out)
{
    const u64 enemies = pieces_of(pos, side ^ 1);
    const i32 pawn = piece_code(side, Pawn);
    for (u64 set = pos->bb[side][Pawn] & seventh_rank[side]; set != 0;) {
        const i32 from = pop_lowest(&set);
        const i32 ahead = from + pawn_step[side];
        if (pos->board[ahead] == NoPiece) {
            out = add_promotions(out, from, ahead, pawn, 0, under);
        }
        for (u64 targets = pawn_attacks[side][from] & enemies; targets != 0;) {
            const i32 to = pop_lowest(&targets);
            out = add_promotions(out, from, to, pawn, pos->board[to], under);
        }
    }
    return out;
}

// The squares between king and rook must be empty, the rook's own neighbour too. Whether the king
// would pass an attacked square is for the legality test to say. The rook is not looked at: the
// right is given up with its first move or its capture.
static MoveEntry* add_castling(const Position* pos, i32 side, MoveEntry* out, u64 occ)
{
    const i32 home = king_home[side];
    const i32 king = piece_code(side, King);
    const i32 rights = side == White ? pos->castle : pos->castle >> 2; // as white's
    if (pos->king_sq[side] != home || pos->board[home] != king) {
        return out;
    }
    if ((rights & WhiteShort) && (occ & (short_castling_path << (home + 1))) == 0) {
        out = add_move(out, home, home + 2, king, 0);
    }
    if ((rights & WhiteLong) && (occ & (long_castling_path << (home - 3))) == 0) {
        out = add_move(out, home, home - 2, king, 0);
    }
    return out;
}

MoveEntry* gen_quiets(const Position* pos, i32 side, MoveEntry* out, i32 check_sq)
{
    const u64 occ = occupied(pos);
    const u64 empty = ~occ;
    // In check only a move between the checker and the king helps, besides one of the king. Beside
    // a knight or a neighbour nothing lies between, and the set is empty.
    u64 targets = empty;
    if (check_sq != NoSquare) {
        targets &= between[check_sq][pos->king_sq[side]];
    }

    // The first square of a double step need only be empty, it is no target.
    const i32 pawn = piece_code(side, Pawn);
    const i32 step = pawn_step[side];
    const u64 single = shift_forward(pos->bb[side][Pawn], side) & empty & inner_ranks;
    const u64 twice = shift_forward(single, side) & double_step_rank[side];
    out = add_pawn_moves(pos, out, single & targets, step, pawn);
    out = add_pawn_moves(pos, out, twice & targets, 2 * step, pawn);

    out = add_piece_moves(pos, side, out, targets);
    out = add_king_moves(pos, side, out, empty);
    return add_castling(pos, side, out, occ);
}

MoveEntry* gen_moves_into(const Position* pos, MoveEntry* out)
{
    out = gen_captures(pos, pos->stm, out, NoSquare);
    out = gen_promotions(pos, pos->stm, 1, out);
    return gen_quiets(pos, pos->stm, out, NoSquare);
}

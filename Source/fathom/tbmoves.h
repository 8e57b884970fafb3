// The position of the table code and its moves. It knows no castling and no game, only what a
// table knows: pieces, side to move, half-move clock and en-passant square. A probe makes its moves
// by copying such a position, so that it touches neither the undo stack nor the keys of the
// search's board and needs no unmaking.
//
// Everything here takes a sound board: one king a side and no pawn on the first and last rank. The
// root's probe tests that; the search has no other boards.
#pragma once

#include "board/types.h"

// All pieces by side and, for both sides together, by type.
//
// Beware of the sides: turn counts them the other way round than the board does, 1 being white (the
// board's White is 0), and so do all parameters named white. It reads as a truth: "is it white's
// turn?". An index into a table of the board must be made by tb_side_to_move.
struct TbPos {
    u64 white, black;
    u64 kings, queens, rooks, bishops, knights, pawns;
    u8 rule50; // half-move clock; stops at 255
    u8 ep;     // en-passant square, 0 if none: nobody passes a1
    u8 turn;   // 1 white to move, 0 black to move
};

// The side to move as the board numbers it, for its tables.
inline i32 tb_side_to_move(const TbPos* pos)
{
    return pos->turn ? White : Black;
}

// A move of the table code: to-square in bits 0-5, from-square in bits 6-11, promotion in 12-14.
// Unlike the board's moves it keeps the promotion in one number, in the order of generation.
using tb_move = u16;

// The order matters: of equally good promotions at the root the first one is played.
enum TbPromotion : i32 {
    TbPromoteNone,
    TbPromoteQueen,
    TbPromoteRook,
    TbPromoteBishop,
    TbPromoteKnight
};

inline i32 tb_to(tb_move move)
{
    return move & 63;
}

inline i32 tb_from(tb_move move)
{
    return (move >> 6) & 63;
}

inline i32 tb_promotion(tb_move move)
{
    return (move >> 12) & 7;
}

// Room for the moves of any board with one king a side.
inline constexpr i32 tb_max_moves = 256;

// The pieces of type (Pawn to King) of the side, white being 1 as in TbPos.turn.
[[nodiscard]] u64 tb_pieces_of(const TbPos* pos, i32 type, i32 white);

// All pseudo-legal moves of the side to move, and parts of them: captures without en passant,
// en-passant captures, pawn moves straight ahead (with their promotions). Each writes from out on,
// where there must be room for tb_max_moves, and returns the next free entry. The order is fixed,
// since the root plays the first of the best: king, queens, rooks, bishops and knights, squares
// rising, then the pawns' captures, en passant and steps; promotions queen first.
[[nodiscard]] tb_move* tb_gen_moves(const TbPos* pos, tb_move* out);
[[nodiscard]] tb_move* tb_gen_captures(const TbPos* pos, tb_move* out);
[[nodiscard]] tb_move* tb_gen_en_passant(const TbPos* pos, tb_move* out);
[[nodiscard]] tb_move* tb_gen_pawn_steps(const TbPos* pos, tb_move* out);

// Fills out with pos after a pseudo-legal move. Returns false, with out of no use, if the mover's
// king is left attacked. ep is set only where an enemy pawn can answer a double step by it, and
// rule50 is 0 exactly after a capture or a pawn's move.
[[nodiscard]] bool tb_do_move(TbPos* out, const TbPos* pos, tb_move move);

// Whether the king of the side (1 white) stands attacked; each side must have its king.
[[nodiscard]] bool tb_in_check(const TbPos* pos, i32 white);

// Whether the side to move has a legal move; without_ep leaves en-passant captures out.
[[nodiscard]] bool tb_has_legal_move(const TbPos* pos, bool without_ep);

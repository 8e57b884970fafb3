// The position of the table code and its moves. It knows no castling and no game, only what a
// table knows: pieces, side to move, half-move clock and en-passant square.
#pragma once

#include "board/types.h"

// All pieces by side and, for both sides together, by type.
struct TbPos {
    u64 white, black;
    u64 kings, queens, rooks, bishops, knights, pawns;
    u8 rule50; // half-move clock; stops at 255
    u8 ep;     // en-passant square, 0 if none
    u8 turn;   // 1 white to move, 0 black to move
};

// A move of the table code: to-square in bits 0-5, from-square in bits 6-11, promotion in 12-14.
using tb_move = u16;

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
u64 tb_pieces_of(const TbPos* pos, i32 type, i32 white);

// All pseudo-legal moves of the side to move, and parts of them: captures without en passant,
// en-passant captures, pawn moves straight ahead. Each writes from out on, in a fixed order, and
// returns the next free entry. tb_gen_moves hands out king, queens, rooks, bishops and knights,
// squares rising, then the pawns' captures, en passant and steps; promotions queen first.
tb_move* tb_gen_moves(const TbPos* pos, tb_move* out);
tb_move* tb_gen_captures(const TbPos* pos, tb_move* out);
tb_move* tb_gen_en_passant(const TbPos* pos, tb_move* out);
tb_move* tb_gen_pawn_steps(const TbPos* pos, tb_move* out);

// Fills out with pos after a pseudo-legal move. Returns false, with out of no use, if the mover's
// king is left attacked. ep is set only where an enemy pawn can answer a double step by it.
bool tb_do_move(TbPos* out, const TbPos* pos, tb_move move);

// Whether the king of the side (1 white) stands attacked; each side must have its king.
bool tb_in_check(const TbPos* pos, i32 white);

// Whether the side to move has a legal move; without_ep leaves en-passant captures out.
bool tb_has_legal_move(const TbPos* pos, bool without_ep);

// Whether a move may be played, and whether a position is drawn by the rules of the game.
// is_legal_move works out the attacks on the king's square after the move, from bitboards alone;
// it walks no list and keeps no state, so it may be asked about any move with a piece to move.
#include "board/moves.h"
#include "board/tables.h"

static constexpr i32 first_rank[2] = { 0, 7 };
static constexpr i32 pawn_home_rank[2] = { 1, 6 };
static constexpr i32 fifty_move_plies = 100;

// The king must not be in check, cross an attacked square or arrive on one.
static bool is_legal_castling(const Position* pos, i32 side, i32 from, i32 to)
{
    const i32 enemy = side ^ 1;
    return !is_attacked(pos, from, enemy) && !is_attacked(pos, to, enemy)
        && !is_attacked(pos, (from + to) / 2, enemy);
}

bool is_legal_move(Position* pos, i32 side, Move move)
{
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 type = pos->board[from] & 7;
    const i32 ksq = type == King ? to : pos->king_sq[side];
    if (to == ksq && (to == from + 2 || to == from - 2)) {
        return is_legal_castling(pos, side, from, to);
    }

    // The board after the move. What stood on the to-square is gone, though something stands
    // there: it blocks and does not attack.
    u64 occ = ((pos->bb[White][0] | pos->bb[Black][0]) ^ bit(from)) | bit(to);
    u64 attackers = occ & ~bit(to);
    if (type == Pawn && to == pos->ep_square) {
        const u64 victim = bit((to - pawn_step[side]) & 63);
        occ &= ~victim;
        attackers &= ~victim;
    }

    const u64* enemy = pos->bb[side ^ 1];
    if (((pawn_attacks[side][ksq] & enemy[Pawn]) | (knight_attacks[ksq] & enemy[Knight]))
        & attackers) {
        return false;
    }
    u64 sliders = ((bishop_rays[ksq] & (enemy[Bishop] | enemy[Queen]))
                      | (rook_rays[ksq] & (enemy[Rook] | enemy[Queen])))
        & attackers;
    const u64* lines = between[ksq];
    while (sliders != 0) {
        if ((lines[lowest(sliders)] & occ) == 0) {
            return false;
        }
        sliders &= sliders - 1;
    }
    return (king_attacks[ksq] & enemy[King] & attackers) == 0;
}

// A king's move of two squares along its first rank towards an own rook in its place. The rights
// are not asked: a move out of the hash table was made in a position of the same key.
static bool castling_fits_board(const Position* pos, i32 from, i32 to)
{
    const i32 side = pos->stm;
    const i32 file = from & 7;
    if (from >> 3 != first_rank[side] || to >> 3 != from >> 3) {
        return false;
    }
    if ((between[from][to] & (pos->bb[White][0] | pos->bb[Black][0])) != 0) {
        return false;
    }
    const i32 rook = Rook + 8 * side;
    if (to == from + 2) {
        return file + 3 <= 7 && pos->board[from + 3] == rook;
    }
    return to == from - 2 && file - 4 >= 0 && pos->board[from - 4] == rook;
}

static bool pawn_move_fits_board(const Position* pos, i32 from, i32 to)
{
    const i32 side = pos->stm;
    const i32 step = pawn_step[side];
    if (pawn_attacks[side][from] & bit(to)) {
        if (to == pos->ep_square) {
            const i32 behind = to - step;
            return pos->board[to] == 0 && pos->board[behind] == Pawn + 8 * (side ^ 1);
        }
        return pos->board[to] != 0;
    }
    if (pos->board[to] != 0) {
        return false;
    }
    if (to == from + step) {
        return true;
    }
    return to == from + 2 * step && from >> 3 == pawn_home_rank[side]
        && pos->board[from + step] == 0;
}

bool move_fits_board(const Position* pos, Move move)
{
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 side = pos->stm;
    const i32 moved = pos->board[from];
    const i32 type = moved & 7;
    if (from == to || moved >> 3 != side || type < Pawn || type > King) {
        return false;
    }
    if ((pos->bb[side][0] | pos->bb[side ^ 1][King]) & bit(to)) {
        return false;
    }

    // A pawn on its last rank has exactly one flag; no other move has any.
    const i32 flags = move & PromotionMask;
    if (type == Pawn && to >> 3 == first_rank[side ^ 1]) {
        if (popcount(static_cast<u64>(flags)) != 1) {
            return false;
        }
    } else if (flags != 0) {
        return false;
    }

    const u64 occ = pos->bb[White][0] | pos->bb[Black][0];
    switch (type) {
    case Pawn:
        return pawn_move_fits_board(pos, from, to);
    case Knight:
        return (knight_attacks[from] & bit(to)) != 0;
    case Bishop:
        return (bishop_rays[from] & bit(to)) != 0 && (between[from][to] & occ) == 0;
    case Rook:
        return (rook_rays[from] & bit(to)) != 0 && (between[from][to] & occ) == 0;
    case Queen:
        return ((bishop_rays[from] | rook_rays[from]) & bit(to)) != 0
            && (between[from][to] & occ) == 0;
    default:
        return (king_attacks[from] & bit(to)) != 0 || castling_fits_board(pos, from, to);
    }
}

// Generates into a list of its own: the position may stand at any ply of the game.
static bool has_legal_move(Position* pos)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (is_legal_move(pos, pos->stm, entry->move)) {
            return true;
        }
    }
    return false;
}

bool is_playable(Position* pos, Move move)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (entry->move == move) {
            return is_legal_move(pos, pos->stm, move);
        }
    }
    return false;
}

bool is_draw_by_rule(Position* pos, i32 plies)
{
    const i32 reach = pos->cnt50;
    if (reach < 4) {
        return false;
    }
    if (reach > fifty_move_plies) {
        if (plies > 0) {
            return true;
        }
        if (!has_legal_move(pos)) {
            return true;
        }
    }

    // After a new game without a new position the clock may reach below the stack.
    const i32 count = pos->stack->undo_count;
    const i32 last = reach < count ? reach : count;
    const UndoRecord* top = &pos->stack->undo[count];
    const u64 key = pos->key;
    bool seen_before = false;
    for (i32 back = 4; back <= last; back += 2) {
        if (top[-back].key != key) {
            continue;
        }
        if (back <= plies || seen_before) {
            return true;
        }
        seen_before = true;
    }
    return false;
}

// Whether a move may be played, and whether a position is drawn by the rules of the game.
// is_legal_move works out the attacks on the king's square after the move, from bitboards alone;
// it walks no list and keeps no state, so it may be asked about any move with a piece to move.
#include "board/moves.h"
#include "board/tables.h"

// Ranks as the side counts them that moves.
static constexpr i32 first_rank = 0;
static constexpr i32 pawn_home_rank = 1;
static constexpr i32 last_rank = 7;

static constexpr i32 shortest_repetition = 4; // half-moves: each side goes and comes back

// The king must not be in check, cross an attacked square or arrive on one.
static bool is_legal_castling(const Position* pos, i32 side, i32 from, i32 to)
{
    const i32 enemy = side ^ 1;
    return !is_attacked(pos, from, enemy) && !is_attacked(pos, to, enemy)
        && !is_attacked(pos, (from + to) / 2, enemy);
}

// Every node asks this of every move it searches, so it looks at the four ways to attack a king
// and nothing else. A pawn's attack is symmetric: enemy pawns that attack the square stand where a
// pawn of the own side on it would attack.
bool is_legal_move(Position* pos, i32 side, Move move)
{
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 type = type_of(pos->board[from]);
    const i32 ksq = type == King ? to : pos->king_sq[side];
    if (to == ksq && (to == from + 2 || to == from - 2)) {
        return is_legal_castling(pos, side, from, to);
    }

    // The board after the move. What stood on the to-square is gone, though something stands
    // there: it blocks and does not attack.
    u64 occ = (occupied(pos) ^ bit(from)) | bit(to);
    u64 attackers = occ & ~bit(to);
    // En passant opens two lines at once, the victim's and the mover's. A loose text may name a
    // square on the edge: the mask keeps the shift defined.
    if (type == Pawn && to == pos->ep_square) {
        const u64 victim = bit((to - pawn_step[side]) & 63);
        occ &= ~victim;
        attackers &= ~victim;
    }

    // Steppers first: they need no line. Of the sliders only those that have the king on an open
    // board are looked at, one by one: there seldom is more than one.
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
    if (relative_rank(side, from) != first_rank || rank_of(to) != rank_of(from)) {
        return false;
    }
    if ((between[from][to] & occupied(pos)) != 0) {
        return false;
    }
    const i32 rook = piece_code(side, Rook);
    if (to == from + 2) {
        return file_of(from) + 3 <= 7 && pos->board[from + 3] == rook;
    }
    return to == from - 2 && file_of(from) - 4 >= 0 && pos->board[from - 4] == rook;
}

static bool pawn_move_fits_board(const Position* pos, i32 from, i32 to)
{
    const i32 side = pos->stm;
    const i32 step = pawn_step[side];
    if (pawn_attacks[side][from] & bit(to)) {
        if (to == pos->ep_square) {
            const i32 behind = to - step;
            return pos->board[to] == 0 && pos->board[behind] == piece_code(side ^ 1, Pawn);
        }
        return pos->board[to] != 0;
    }
    if (pos->board[to] != 0) {
        return false;
    }
    if (to == from + step) {
        return true;
    }
    return to == from + 2 * step && relative_rank(side, from) == pawn_home_rank
        && pos->board[from + step] == 0;
}

// A number out of the hash table may be any: what passes here can be made and taken back without
// spoiling the board.
bool move_fits_board(const Position* pos, Move move)
{
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 side = pos->stm;
    const i32 moved = pos->board[from];
    const i32 type = type_of(moved);
    if (from == to || side_of(moved) != side || type < Pawn || type > King) {
        return false;
    }
    if ((pieces_of(pos, side) | pos->bb[side ^ 1][King]) & bit(to)) {
        return false;
    }

    // A pawn on its last rank has exactly one flag; no other move has any.
    const i32 flags = move & PromotionMask;
    if (type == Pawn && relative_rank(side, to) == last_rank) {
        if (popcount(static_cast<u64>(flags)) != 1) {
            return false;
        }
    } else if (flags != 0) {
        return false;
    }

    const u64 occ = occupied(pos);
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

// Generates into a list of its own: the position may stand at any ply of the game, and the lists of
// its thread may be in use.
bool has_legal_move(Position* pos)
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

// The lists of a position are small, and nobody asks this in a search: looking through all moves is
// surer than a second account of the rules.
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
    // No position returns across a capture or a pawn move, so the clock says how far back to look.
    const i32 reach = pos->cnt50;
    if (reach < shortest_repetition) {
        return false;
    }
    // In a search the count alone decides, a half-move late so that a mate by the hundredth stands.
    // In the game the count alone is no draw: that is for the players to claim.
    if (reach > fifty_move_plies) {
        if (plies > 0) {
            return true;
        }
        if (!has_legal_move(pos)) {
            return true;
        }
    }

    // Within the search one repetition is enough: whoever could avoid it the second time could have
    // done so the first. A repetition of the game has to happen twice, as the rule says.
    // After a new game without a new position the clock may reach below the stack.
    const i32 count = pos->stack->undo_count;
    const i32 last = reach < count ? reach : count;
    const UndoRecord* top = &pos->stack->undo[count];
    const u64 key = pos->key;
    bool seen_before = false;
    for (i32 back = shortest_repetition; back <= last; back += 2) {
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

// Making moves and taking them back. Every field of Position that is derived from the board, the
// keys, the undo stack, ply and last_move change here together and nowhere else during a search.
// Nothing is checked: a move that the board does not bear out spoils it for good, so whoever takes
// one from outside asks is_makeable first, and the hash table's are tried by move_fits_board.
#include <cstring>

#include "board/moves.h"
#include "board/tables.h"
#include "board/trace.h"

// Castling rights that die when a piece leaves or reaches a square: both of a side with its king's
// home square, one with each corner. Masking both squares of every move needs no case for a rook
// that moves or is taken, or for castling itself.
// clang-format off
static constexpr u8 castle_mask[64] = {
    WhiteLong, 0, 0, 0, WhiteShort | WhiteLong, 0, 0, WhiteShort,
    0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0,
    BlackLong, 0, 0, 0, BlackShort | BlackLong, 0, 0, BlackShort,
};
// clang-format on

static constexpr i32 max_cnt50 = 255; // what its byte can hold; a console game may go on for longer

// The type that a promotion flag stands for. A number with several flags counts as one of them.
static inline i32 promoted_type(Move move)
{
    if (move & PromoteKnight) {
        return Knight;
    }
    if (move & PromoteBishop) {
        return Bishop;
    }
    return move & PromoteRook ? Rook : Queen;
}

// Adds (sign 1) or takes off (sign -1) a piece's share in the counts of its side.
static inline void count_piece(Position* pos, i32 side, i32 type, i32 sign)
{
    pos->piece_count[side] += sign > 0 ? count_step[type] : 0U - count_step[type];
    pos->phase_mtl[side] = static_cast<i16>(pos->phase_mtl[side] + sign * phase_weight[type]);
}

// Stops at its end: a count that began anew would hide every repetition.
static inline u8 next_cnt50(u8 cnt50)
{
    return static_cast<u8>(cnt50 < max_cnt50 ? cnt50 + 1 : max_cnt50);
}

// Writes the undo record and moves the stack and the ply on. A null move leaves pawn_key alone. The
// record holds what the way back cannot tell: rights, counts and keys as they were before.
static inline void push_undo(Position* pos, Move move, i32 captured)
{
    UndoStack* stack = pos->stack;
    debug_check(stack->undo_count >= 0 && stack->undo_count < undo_size);
    UndoRecord* undo = &stack->undo[stack->undo_count];
    undo->key = pos->key;
    if (move != NoMove) {
        undo->pawn_key = pos->pawn_key;
    }
    undo->move = move;
    undo->captured = static_cast<u8>(captured);
    undo->ep_square = pos->ep_square;
    undo->cnt50 = pos->cnt50;
    undo->castle = pos->castle;
    ++stack->undo_count;
    ++stack->ply;
    stack->last_move = move;
}

// Takes the top record off the stack, sets last_move to the one below and restores the fields
// that no piece's way back would tell.
static inline const UndoRecord* pop_undo(Position* pos)
{
    UndoStack* stack = pos->stack;
    debug_check(stack->undo_count > 0);
    --stack->ply;
    --stack->undo_count;
    const UndoRecord* undo = &stack->undo[stack->undo_count];
    stack->last_move = stack->undo_count > 0 ? undo[-1].move : static_cast<Move>(NoMove);
    pos->ep_square = undo->ep_square;
    pos->castle = undo->castle;
    pos->cnt50 = undo->cnt50;
    // The keys are the caller's: a null move has no pawn key of its own to give back.
    pos->stm ^= 1;
    return undo;
}

// The squares of the rook when a king castles from from to to.
static inline i32 castling_rook_from(i32 from, i32 to)
{
    return to > from ? from + 3 : from - 4;
}

// The king passes over it.
static inline i32 castling_rook_to(i32 from, i32 to)
{
    return to > from ? from + 1 : from - 1;
}

// Of a king's move: no other move of his goes two squares.
static inline bool is_castling_step(i32 from, i32 to)
{
    return to == from + 2 || to == from - 2;
}

// The rook's half of castling, or its way back. Counts do not change.
static inline void shift_rook(Position* pos, i32 side, i32 from, i32 to)
{
    const u64 squares = bit(from) | bit(to);
    pos->board[to] = pos->board[from];
    pos->board[from] = 0;
    pos->bb[side][0] ^= squares;
    pos->bb[side][Rook] ^= squares;
}

// Takes a piece off the to-square of a move, all but its entry of board, which the mover
// overwrites. Returns what is to be XORed into the key.
static inline u64 take_piece(Position* pos, i32 square, i32 captured)
{
    const i32 owner = side_of(captured);
    const i32 type = type_of(captured);
    const u64 key = zobrist[captured][square];
    count_piece(pos, owner, type, -1);
    pos->bb[owner][0] &= ~bit(square);
    pos->bb[owner][type] &= ~bit(square);
    if (type == Pawn) {
        pos->pawn_key ^= key;
    }
    pos->cnt50 = 0;
    return key;
}

// The pawn's share of a move: its own key, the double step, en passant and promotion. Returns
// what is to be XORed into the key beyond the from-square.
static inline u64 finish_pawn_move(Position* pos, Move move, i32 side, i32 old_ep_square)
{
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 pawn = piece_code(side, Pawn);
    const u64 to_key = zobrist[pawn][to];
    pos->pawn_key ^= zobrist[pawn][from] ^ to_key;
    pos->cnt50 = 0;

    // The square is noted after every double step, whether a pawn could use it or not.
    if (to == from + 2 * pawn_step[side]) {
        pos->ep_square = static_cast<u8>(from + pawn_step[side]);
        return to_key ^ zobrist[NoPiece][pos->ep_square];
    }
    if (to == old_ep_square) {
        const i32 enemy = side ^ 1;
        const i32 victim = to - pawn_step[side];
        const u64 victim_key = zobrist[piece_code(enemy, Pawn)][victim];
        pos->board[victim] = 0;
        count_piece(pos, enemy, Pawn, -1);
        pos->bb[enemy][0] &= ~bit(victim);
        pos->bb[enemy][Pawn] &= ~bit(victim);
        pos->pawn_key ^= victim_key;
        return to_key ^ victim_key;
    }
    // The pawn has arrived in step 3 already: it is taken off again, key and all.
    if (move & PromotionMask) {
        const i32 type = promoted_type(move);
        pos->board[to] = static_cast<u8>(piece_code(side, type));
        count_piece(pos, side, Pawn, -1);
        count_piece(pos, side, type, 1);
        pos->bb[side][Pawn] ^= bit(to);
        pos->bb[side][type] |= bit(to);
        pos->pawn_key ^= to_key;
        return zobrist[piece_code(side, type)][to];
    }
    return to_key;
}

// The king's share of a move: where he stands now, and his rook if he castles. Returns what is to
// be XORed into the key for the rook.
static inline u64 finish_king_move(Position* pos, i32 side, i32 from, i32 to)
{
    pos->king_sq[side] = static_cast<u8>(to);
    if (!is_castling_step(from, to)) {
        return 0;
    }
    const i32 rook_from = castling_rook_from(from, to);
    const i32 rook_to = castling_rook_to(from, to);
    const i32 rook = piece_code(side, Rook);
    shift_rook(pos, side, rook_from, rook_to);
    // The clock starts anew, although castling takes nothing and moves no pawn: no position before
    // it can come back, so the draw scan need not look there.
    pos->cnt50 = 0;
    return zobrist[rook][rook_from] ^ zobrist[rook][rook_to];
}

// Its steps are in the order of what they need: the undo record before anything changes, the victim
// before its square is taken.
void make_move(Position* pos, Move move)
{
    if (load(trace_level) != 0) {
        trace_move(pos, move);
    }

    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 side = pos->stm;
    const i32 moved = pos->board[from];
    const i32 captured = pos->board[to];
    const i32 old_ep_square = pos->ep_square;
    const u8 old_castle = pos->castle;
    push_undo(pos, move, type_of(captured));

    // 1. The state of the game. A key's bit 0 may be disturbed by any XOR; the last step sets it.
    u64 key = pos->key;
    pos->cnt50 = next_cnt50(pos->cnt50);
    pos->ep_square = NoSquare;
    pos->stm = static_cast<u8>(side ^ 1);
    if (old_ep_square != NoSquare) {
        key ^= zobrist[NoPiece][old_ep_square];
    }
    const u8 castle = static_cast<u8>(old_castle & ~(castle_mask[from] | castle_mask[to]));
    if (castle != old_castle) {
        key ^= zobrist[NoPiece][old_castle] ^ zobrist[NoPiece][castle];
        pos->castle = castle;
    }

    // 2. The piece that is taken.
    if (captured != NoPiece) {
        key ^= take_piece(pos, to, captured);
    }

    // 3. The piece that moves.
    const i32 type = type_of(moved);
    const u64 squares = bit(from) | bit(to);
    pos->board[to] = static_cast<u8>(moved);
    pos->board[from] = 0;
    pos->bb[side][0] ^= squares;
    pos->bb[side][type] ^= squares;
    key ^= zobrist[moved][from];

    // 4. What only pawns and kings do.
    if (type == Pawn) {
        key ^= finish_pawn_move(pos, move, side, old_ep_square);
    } else {
        key ^= zobrist[moved][to];
        if (type == King) {
            key ^= finish_king_move(pos, side, from, to);
        }
    }

    pos->key = (key & ~1ULL) + pos->stm;
    debug_check(fields_agree(pos));
}

// The keys are copied from the record, not XORed back: it is cheaper, and an error in make_move
// then stays visible as a key that parse_epd would not give.
void unmake_move(Position* pos)
{
    const UndoRecord* undo = pop_undo(pos);
    const Move move = undo->move;
    const i32 from = from_square(move);
    const i32 to = to_square(move);
    const i32 side = pos->stm;
    const i32 enemy = side ^ 1;
    const i32 type = type_of(pos->board[to]);
    const u64 squares = bit(from) | bit(to);

    // What stands on the to-square goes back, whatever it has become on the way.
    pos->board[from] = pos->board[to];
    pos->board[to] = 0;
    pos->bb[side][0] ^= squares;
    pos->bb[side][type] ^= squares;

    if (undo->captured != 0) {
        const i32 captured = undo->captured;
        pos->board[to] = static_cast<u8>(piece_code(enemy, captured));
        count_piece(pos, enemy, captured, 1);
        pos->bb[enemy][0] |= bit(to);
        pos->bb[enemy][captured] |= bit(to);
        if (captured == King) {
            pos->king_sq[enemy] = static_cast<u8>(to);
        }
    }

    if (type == Pawn) {
        // A double step takes nothing, even where it ends on the en-passant square of a text.
        if (to == undo->ep_square && to != from + 2 * pawn_step[side]) {
            const i32 victim = to - pawn_step[side];
            pos->board[victim] = static_cast<u8>(piece_code(enemy, Pawn));
            count_piece(pos, enemy, Pawn, 1);
            pos->bb[enemy][0] |= bit(victim);
            pos->bb[enemy][Pawn] |= bit(victim);
        }
    } else if (type == King) {
        if (is_castling_step(from, to)) {
            shift_rook(pos, side, castling_rook_to(from, to), castling_rook_from(from, to));
        }
        pos->king_sq[side] = static_cast<u8>(from);
    }

    // So far the promoted piece has gone back to the from-square.
    if (move & PromotionMask) {
        count_piece(pos, side, type, -1);
        count_piece(pos, side, Pawn, 1);
        pos->board[from] = static_cast<u8>(piece_code(side, Pawn));
        pos->bb[side][type] ^= bit(from);
        pos->bb[side][Pawn] |= bit(from);
    }

    pos->key = undo->key;
    pos->pawn_key = undo->pawn_key;
    debug_check(fields_agree(pos));
}

// The opponent moves again. The right to take in passing is lost, as it would be after any move.
void make_null_move(Position* pos)
{
    if (load(trace_level) != 0) {
        trace_move(pos, NoMove);
    }

    const i32 old_ep_square = pos->ep_square;
    push_undo(pos, NoMove, NoPiece);
    // The draw scan goes no further back than cnt50: so it never reaches across a null move.
    pos->cnt50 = 0;
    pos->ep_square = NoSquare;
    pos->stm ^= 1;
    if (old_ep_square != NoSquare) {
        pos->key ^= zobrist[NoPiece][old_ep_square];
    }
    pos->key = (pos->key & ~1ULL) + pos->stm;
}

// Of the keys only the position's own has changed: no pawn has moved.
void unmake_null_move(Position* pos)
{
    pos->key = pop_undo(pos)->key;
}

// A game can be longer than the stack. Dropping old entries costs repetitions that lie further back
// than game_keep plies, which the half-move clock does not reach.
void make_game_move(Position* pos, Move move)
{
    UndoStack* stack = pos->stack;
    if (stack->undo_count >= game_limit) {
        // An even number goes, so that move numbers keep their side.
        const i32 dropped = (stack->undo_count - game_keep + 1) & ~1;
        const i32 kept = stack->undo_count - dropped;
        memmove(stack->undo, stack->undo + dropped, static_cast<size_t>(kept) * sizeof(UndoRecord));
        stack->undo_count = static_cast<i16>(kept);
    }
    make_move(pos, move);
    // A move that was taken back cannot be made again once the game has gone another way.
    stack->undo[stack->undo_count].move = NoMove;
}

// A castling without its rook, or through pieces, would invent or lose a piece.
static bool is_makeable_king_move(const Position* pos, i32 from, i32 to)
{
    if (!is_castling_step(from, to)) {
        return true;
    }
    const i32 side = pos->stm;
    return from == king_home[side] && pos->board[to] == 0
        && pos->board[castling_rook_to(from, to)] == 0
        && pos->board[castling_rook_from(from, to)] == piece_code(side, Rook);
}

// What make_move takes for a double step, a capture in passing or a promotion has to be one.
static bool is_makeable_pawn_move(const Position* pos, i32 from, i32 to, Move promotion)
{
    const i32 side = pos->stm;
    const i32 behind = to - pawn_step[side];
    if (to == from + 2 * pawn_step[side]) {
        // The square passed becomes the en-passant square: it has to be empty.
        return promotion == 0 && pos->board[behind] == 0;
    }
    if (to == pos->ep_square) {
        return promotion == 0 && behind >= 0 && behind < 64
            && pos->board[behind] == piece_code(side ^ 1, Pawn);
    }
    return promotion == 0 || relative_rank(side, to) == 7;
}

bool is_makeable(const Position* pos, i32 from, i32 to, Move promotion)
{
    if (from < 0 || from > 63 || to < 0 || to > 63 || from == to) {
        return false;
    }
    // At most one flag.
    if ((promotion & ~PromotionMask) != 0 || (promotion & (promotion - 1)) != 0) {
        return false;
    }
    const i32 side = pos->stm;
    const i32 moved = pos->board[from];
    const i32 captured = pos->board[to];
    if (moved == NoPiece || side_of(moved) != side) {
        return false;
    }
    if (captured != NoPiece && (side_of(captured) == side || type_of(captured) == King)) {
        return false;
    }
    if (type_of(moved) == Pawn) {
        return is_makeable_pawn_move(pos, from, to, promotion);
    }
    if (promotion != 0) {
        return false;
    }
    return type_of(moved) != King || is_makeable_king_move(pos, from, to);
}

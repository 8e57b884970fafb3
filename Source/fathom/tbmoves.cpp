// Moves on the table code's own position: generation, making, and check. With six pieces there are
// few moves, so the routines are plain: whether one is legal is found by making it and looking at
// the king.
#include "fathom/tbmoves.h"

#include "board/tables.h"

// The set of each type, by the board's numbers; an empty square has none.
static constexpr u64 TbPos::*type_set[7] = { nullptr, &TbPos::pawns, &TbPos::knights,
    &TbPos::bishops, &TbPos::rooks, &TbPos::queens, &TbPos::kings };

// By TbPromotion; a move without one leaves the type as it is.
static constexpr i32 promoted_type[5] = { NoPiece, Queen, Rook, Bishop, Knight };

// The clock of a position stops here: going on to 0 it would make a quiet move look like a capture.
static constexpr u8 highest_clock = 255;

// Of the side to move, and of the other.
static u64 own_pieces(const TbPos* pos)
{
    return pos->turn ? pos->white : pos->black;
}

static u64 enemy_pieces(const TbPos* pos)
{
    return pos->turn ? pos->black : pos->white;
}

u64 tb_pieces_of(const TbPos* pos, i32 type, i32 white)
{
    return pos->*type_set[type] & (white ? pos->white : pos->black);
}

// ---- Generation

static tb_move* add_moves(tb_move* out, i32 from, u64 targets)
{
    while (targets != 0) {
        *out++ = static_cast<tb_move>(from << 6 | pop_lowest(&targets));
    }
    return out;
}

// All four pieces of a square before the next square, the queen first.
static tb_move* add_promotions(tb_move* out, i32 from, u64 targets)
{
    while (targets != 0) {
        const i32 squares = from << 6 | pop_lowest(&targets);
        for (i32 code = TbPromoteQueen; code <= TbPromoteKnight; ++code) {
            *out++ = static_cast<tb_move>(code << 12 | squares);
        }
    }
    return out;
}

// A pawn on the seventh rank has promotions only and any other none, so one of the two is empty.
static tb_move* add_pawn_moves(tb_move* out, i32 from, u64 targets)
{
    out = add_promotions(out, from, targets & outer_ranks);
    return add_moves(out, from, targets & ~outer_ranks);
}

// Moves of all pieces but pawns to squares of targets: the enemy's for captures, all that are not
// the mover's own for everything.
static tb_move* gen_piece_moves(const TbPos* pos, u64 targets, tb_move* out)
{
    const u64 own = own_pieces(pos);
    const u64 occupied = pos->white | pos->black;
    for (u64 set = pos->kings & own; set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_moves(out, from, king_attacks[from] & targets);
    }
    for (u64 set = pos->queens & own; set != 0;) {
        const i32 from = pop_lowest(&set);
        const u64 attacks = rook_attacks(from, occupied) | bishop_attacks(from, occupied);
        out = add_moves(out, from, attacks & targets);
    }
    for (u64 set = pos->rooks & own; set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_moves(out, from, rook_attacks(from, occupied) & targets);
    }
    for (u64 set = pos->bishops & own; set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_moves(out, from, bishop_attacks(from, occupied) & targets);
    }
    for (u64 set = pos->knights & own; set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_moves(out, from, knight_attacks[from] & targets);
    }
    return out;
}

static tb_move* gen_pawn_captures(const TbPos* pos, tb_move* out)
{
    const u64 enemy = enemy_pieces(pos);
    for (u64 set = pos->pawns & own_pieces(pos); set != 0;) {
        const i32 from = pop_lowest(&set);
        out = add_pawn_moves(out, from, pawn_attacks[tb_side_to_move(pos)][from] & enemy);
    }
    return out;
}

tb_move* tb_gen_en_passant(const TbPos* pos, tb_move* out)
{
    if (pos->ep == 0) {
        return out;
    }
    // Seen from the passed square, the takers stand where an enemy pawn on it would attack.
    u64 set = pawn_attacks[tb_side_to_move(pos) ^ 1][pos->ep] & pos->pawns & own_pieces(pos);
    while (set != 0) {
        out = add_moves(out, pop_lowest(&set), bit(pos->ep));
    }
    return out;
}

tb_move* tb_gen_pawn_steps(const TbPos* pos, tb_move* out)
{
    const u64 free_squares = ~(pos->white | pos->black);
    const i32 side = tb_side_to_move(pos);
    const i32 step = pawn_step[side];
    // A pawn on its last rank, which only an unsound board has, stays where it is: the square in
    // front of it would be none of the board, and bit() of it undefined.
    u64 set = pos->pawns & own_pieces(pos) & (pos->turn ? ~0ULL >> 8 : ~0ULL << 8);
    while (set != 0) {
        const i32 from = pop_lowest(&set);
        u64 targets = bit(from + step) & free_squares;
        if (targets != 0 && relative_rank(side, from) == 1) {
            targets |= bit(from + 2 * step) & free_squares;
        }
        out = add_pawn_moves(out, from, targets);
    }
    return out;
}

// Without en passant, which probes weigh apart: the tables do not know of it.
tb_move* tb_gen_captures(const TbPos* pos, tb_move* out)
{
    return gen_pawn_captures(pos, gen_piece_moves(pos, enemy_pieces(pos), out));
}

tb_move* tb_gen_moves(const TbPos* pos, tb_move* out)
{
    out = gen_piece_moves(pos, ~own_pieces(pos), out);
    out = gen_pawn_captures(pos, out);
    out = tb_gen_en_passant(pos, out);
    return tb_gen_pawn_steps(pos, out);
}

// ---- Making

// Looks from the king: whatever it would attack as a piece of that type attacks it. The empty-board
// rays spare the sliders' attack sets where no slider stands on a line with the king.
bool tb_in_check(const TbPos* pos, i32 white)
{
    const i32 king = lowest(tb_pieces_of(pos, King, white));
    const u64 occupied = pos->white | pos->black;
    const u64 enemy = white ? pos->black : pos->white;
    const u64 diagonal = (pos->bishops | pos->queens) & enemy;
    const u64 straight = (pos->rooks | pos->queens) & enemy;
    return (knight_attacks[king] & pos->knights & enemy) != 0
        || (king_attacks[king] & pos->kings & enemy) != 0
        || (pawn_attacks[white ? White : Black][king] & pos->pawns & enemy) != 0
        || ((bishop_rays[king] & diagonal) != 0 && (bishop_attacks(king, occupied) & diagonal) != 0)
        || ((rook_rays[king] & straight) != 0 && (rook_attacks(king, occupied) & straight) != 0);
}

// Takes off whatever stands on the squares, of either side: a move clears its target without having
// to know what it takes.
static void remove_pieces(TbPos* pos, u64 squares)
{
    const u64 kept = ~squares;
    pos->white &= kept;
    pos->black &= kept;
    for (i32 type = Pawn; type <= King; ++type) {
        pos->*type_set[type] &= kept;
    }
}

// The type of the piece on a square, NoPiece if it is empty.
static i32 type_on(const TbPos* pos, i32 square)
{
    i32 type = King;
    while (type != NoPiece && (pos->*type_set[type] & bit(square)) == 0) {
        --type;
    }
    return type;
}

// What a pawn's move does besides moving: the double step's right, and the pawn taken by one. A
// right that nobody can use is not set: probes would search captures for it that there are not.
static void finish_pawn_move(TbPos* out, const TbPos* pos, i32 from, i32 to)
{
    const i32 side = tb_side_to_move(pos);
    // The passed square is also reached by a step straight ahead, if a board sets it so.
    if (to == pos->ep && pos->ep != 0 && file_of(from) != file_of(to)) {
        remove_pieces(out, bit(to - pawn_step[side]));
    } else if (to - from == 2 * pawn_step[side]) {
        const i32 passed = from + pawn_step[side];
        const u64 takers = pawn_attacks[side][passed] & pos->pawns & enemy_pieces(pos);
        out->ep = takers != 0 ? static_cast<u8>(passed) : 0;
    }
}

// The mover's square and its target are cleared first, so a capture needs no case of its own. Check
// is looked at last, as what it depends on, an en-passant pawn too, has gone by then.
bool tb_do_move(TbPos* out, const TbPos* pos, tb_move move)
{
    const i32 from = tb_from(move);
    const i32 to = tb_to(move);
    const bool capture = (enemy_pieces(pos) & bit(to)) != 0;
    const i32 type = type_on(pos, from);
    *out = *pos;
    remove_pieces(out, bit(from) | bit(to));
    (pos->turn ? out->white : out->black) |= bit(to);
    const i32 promotion = tb_promotion(move);
    out->*type_set[promotion != TbPromoteNone ? promoted_type[promotion] : type] |= bit(to);
    out->ep = 0;
    out->turn = !pos->turn;
    if (capture || type == Pawn) {
        out->rule50 = 0;
    } else if (out->rule50 < highest_clock) {
        ++out->rule50;
    }
    if (type == Pawn) {
        finish_pawn_move(out, pos, from, to);
    }
    return !tb_in_check(out, pos->turn);
}

// Ends at the first legal move: most positions have one among their king's.
bool tb_has_legal_move(const TbPos* pos, bool without_ep)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(pos, list);
    TbPos next;
    for (const tb_move* move = list; move < end; ++move) {
        const bool by_ep =
            pos->ep != 0 && tb_to(*move) == pos->ep && (pos->pawns & bit(tb_from(*move))) != 0;
        if (!(without_ep && by_ep) && tb_do_move(&next, pos, *move)) {
            return true;
        }
    }
    return false;
}

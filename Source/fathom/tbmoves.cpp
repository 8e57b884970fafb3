// Moves on the table code's own position: generation, making, and check.
#include "fathom/tbmoves.h"

#include "board/tables.h"

static constexpr u64 first_and_last_rank = 0xff000000000000ffULL;
static constexpr u64 TbPos::*type_set[7] = { nullptr, &TbPos::pawns, &TbPos::knights,
    &TbPos::bishops, &TbPos::rooks, &TbPos::queens, &TbPos::kings };
static constexpr i32 promoted_type[5] = { Pawn, Queen, Rook, Bishop, Knight };

static u64 own_pieces(const TbPos* pos)
{
    return pos->turn ? pos->white : pos->black;
}

static u64 enemy_pieces(const TbPos* pos)
{
    return pos->turn ? pos->black : pos->white;
}

// The board's number of the side to move.
static i32 side_of(const TbPos* pos)
{
    return pos->turn ? White : Black;
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

static tb_move* add_pawn_moves(tb_move* out, i32 from, u64 targets)
{
    out = add_promotions(out, from, targets & first_and_last_rank);
    return add_moves(out, from, targets & ~first_and_last_rank);
}

// Moves of all pieces but pawns to squares of targets.
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
        out = add_pawn_moves(out, from, pawn_attacks[side_of(pos)][from] & enemy);
    }
    return out;
}

tb_move* tb_gen_en_passant(const TbPos* pos, tb_move* out)
{
    if (pos->ep == 0) {
        return out;
    }
    u64 set = pawn_attacks[side_of(pos) ^ 1][pos->ep] & pos->pawns & own_pieces(pos);
    while (set != 0) {
        out = add_moves(out, pop_lowest(&set), bit(pos->ep));
    }
    return out;
}

tb_move* tb_gen_pawn_steps(const TbPos* pos, tb_move* out)
{
    const u64 free_squares = ~(pos->white | pos->black);
    const i32 step = pawn_step[side_of(pos)];
    const i32 home_rank = pos->turn ? 1 : 6;
    // A pawn on its last rank, which only an unsound board has, stays where it is.
    u64 set = pos->pawns & own_pieces(pos) & (pos->turn ? ~0ULL >> 8 : ~0ULL << 8);
    while (set != 0) {
        const i32 from = pop_lowest(&set);
        u64 targets = bit(from + step) & free_squares;
        if (targets != 0 && from >> 3 == home_rank) {
            targets |= bit(from + 2 * step) & free_squares;
        }
        out = add_pawn_moves(out, from, targets);
    }
    return out;
}

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

// What a pawn's move does besides moving: the double step's right, and the pawn taken by one.
static void finish_pawn_move(TbPos* out, const TbPos* pos, i32 from, i32 to)
{
    const i32 side = side_of(pos);
    if (to == pos->ep && pos->ep != 0 && ((from ^ to) & 7) != 0) {
        remove_pieces(out, bit(to - pawn_step[side]));
    } else if (to - from == 2 * pawn_step[side]) {
        const i32 passed = from + pawn_step[side];
        const u64 takers = pawn_attacks[side][passed] & pos->pawns & enemy_pieces(pos);
        out->ep = takers != 0 ? static_cast<u8>(passed) : 0;
    }
}

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
    } else if (out->rule50 < 255) {
        ++out->rule50;
    }
    if (type == Pawn) {
        finish_pawn_move(out, pos, from, to);
    }
    return !tb_in_check(out, pos->turn);
}

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

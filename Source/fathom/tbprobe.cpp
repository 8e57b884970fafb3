// Probing: what a table's value means in a position with captures and an en-passant right, and
// what the search and the root make of it.
#include "fathom/tbprobe.h"

#include <algorithm>
#include <cstdlib>

#include "fathom/tbcore.h"
#include "fathom/tbmoves.h"
#include "fathom/tbread.h"
#include "fathom/tbtable.h"

static constexpr i32 loss = -2;
static constexpr i32 cursed_win = 1; // spoiled by the fifty-move rule
static constexpr i32 win = 2;
static constexpr i32 worst = -3;              // below all values
static constexpr i32 cursed_distance = 100;   // distances beyond it are not won in time
static constexpr i32 pieces_always_small = 5; // up to here the depth option for 5 decides
static constexpr i32 depth_never = 100;

// The distance of a position whose next move already zeroes the clock, by WDL value.
static i32 zeroing_distance(i32 wdl)
{
    static constexpr i32 distances[5] = { -1, -101, 0, 101, 1 };
    return distances[wdl + 2];
}

// ---- Win, draw, loss

i32 tb_probe_ab(const TbPos* pos, i32 alpha, i32 beta, i32* success)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_captures(pos, list);
    TbPos next;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        const i32 value = -tb_probe_ab(&next, -beta, -alpha, success);
        if (*success == 0) {
            return 0;
        }
        if (value > alpha) {
            if (value >= beta) {
                *success = 2;
                return value;
            }
            alpha = value;
        }
    }
    const i32 stored = tb_read_wdl(pos, success);
    if (*success == 0) {
        return 0;
    }
    *success = alpha >= stored && alpha > 0 ? 2 : 1;
    return std::max(alpha, stored);
}

// The best value of the legal en-passant captures, worst if there is none. *success is 0 if one has
// no answer, and stays as it is without captures.
static i32 best_en_passant(const TbPos* pos, i32* success)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_en_passant(pos, list);
    TbPos next;
    i32 best = worst;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        const i32 value = -tb_probe_ab(&next, loss, win, success);
        if (*success == 0) {
            return worst;
        }
        best = std::max(best, value);
    }
    return best;
}

i32 tb_probe_wdl(const TbPos* pos, i32* success)
{
    const i32 value = tb_probe_ab(pos, loss, win, success);
    if (*success == 0 || pos->ep == 0) {
        return value;
    }
    const i32 taking = best_en_passant(pos, success);
    if (*success == 0) {
        return 0;
    }
    if (taking >= value) {
        return taking;
    }
    // The table sees a stalemate where the pawn must take.
    const bool must_take = value == 0 && taking != worst && !tb_has_legal_move(pos, true);
    return must_take ? taking : value;
}

// ---- Distances

// Whether a pawn's step reaches the value wdl, which is above 0. *success becomes 0 if a probe has
// no answer.
static bool pawn_step_wins(const TbPos* pos, i32 wdl, i32* success)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_pawn_steps(pos, list);
    TbPos next;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        const i32 value = next.ep != 0 ? tb_probe_wdl(&next, success)
                                       : tb_probe_ab(&next, loss, 1 - wdl, success);
        if (*success == 0) {
            return false;
        }
        if (value == -wdl) {
            return true;
        }
    }
    return false;
}

// The distance that a move of the losing side leads to, as that side sees it.
static i32 distance_after_losing_move(const TbPos* next, i32 wdl, i32* success)
{
    if (next->rule50 > 0) {
        return -tb_probe_dtz(next, success) - 1;
    }
    if (wdl == loss) {
        return -1;
    }
    return tb_probe_ab(next, cursed_win, win, success) == win ? 0 : -101;
}

// The distance of a lost position, by trying all moves.
static i32 search_lost(const TbPos* pos, i32 wdl, i32* success)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(pos, list);
    TbPos next;
    i32 best = -1;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        *success = 1;
        const i32 value = distance_after_losing_move(&next, wdl, success);
        if (*success == 0) {
            return 0;
        }
        best = std::min(best, value);
    }
    return best;
}

// The distance of a won position whose win starts with a quiet move, by trying these. Only a
// damaged table has none that wins; then there is no answer.
static i32 search_won(const TbPos* pos, i32* success)
{
    static constexpr i32 BEST_NONE = 65535;
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(pos, list);
    TbPos next;
    i32 best = BEST_NONE;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move) || next.rule50 == 0) {
            continue;
        }
        const i32 value = tb_probe_dtz(&next, success);
        if (*success == 0) {
            return 0;
        }
        if (value < 0) {
            best = std::min(best, 1 - value);
        }
    }
    *success = best != BEST_NONE;
    return best;
}

// The distance without the en-passant right. The order of the tests matters: where a capture or a
// pawn's step wins, what the table holds means nothing.
static i32 probe_dtz_no_ep(const TbPos* pos, i32* success)
{
    const i32 wdl = tb_probe_ab(pos, loss, win, success);
    if (*success == 0 || wdl == 0) {
        return 0;
    }
    if (*success == 2) {
        return zeroing_distance(wdl);
    }
    if (wdl > 0) {
        const bool wins = pawn_step_wins(pos, wdl, success);
        if (*success == 0 || wins) {
            return zeroing_distance(wdl);
        }
    }
    const i32 distance = tb_read_dtz(pos, wdl, success);
    if (*success >= 0) {
        return *success == 1 ? distance : zeroing_distance(wdl);
    }
    *success = 1;
    return wdl < 0 ? search_lost(pos, wdl, success) : search_won(pos, success);
}

// The distance that the right changes to where taking is worth the distance taken.
static i32 distance_with_en_passant(const TbPos* pos, i32 distance, i32 taken)
{
    if (distance < -cursed_distance) {
        return taken >= 0 ? taken : distance;
    }
    if (distance < 0) {
        return taken >= 0 || taken < -cursed_distance ? taken : distance;
    }
    if (distance > cursed_distance) {
        return taken > 0 ? taken : distance;
    }
    if (distance > 0) {
        return taken == 1 ? taken : distance;
    }
    return taken < 0 && tb_has_legal_move(pos, true) ? 0 : taken;
}

i32 tb_probe_dtz(const TbPos* pos, i32* success)
{
    const i32 distance = probe_dtz_no_ep(pos, success);
    if (*success == 0 || pos->ep == 0) {
        return distance;
    }
    const i32 taking = best_en_passant(pos, success);
    if (*success == 0 || taking == worst) {
        return distance;
    }
    return distance_with_en_passant(pos, distance, zeroing_distance(taking));
}

// ---- The search

void tb_set_pos(TbPos* out, const Position* pos, i32 rule50)
{
    const u64(*bb)[8] = pos->bb;
    out->white = bb[White][0];
    out->black = bb[Black][0];
    out->kings = bb[White][King] | bb[Black][King];
    out->queens = bb[White][Queen] | bb[Black][Queen];
    out->rooks = bb[White][Rook] | bb[Black][Rook];
    out->bishops = bb[White][Bishop] | bb[Black][Bishop];
    out->knights = bb[White][Knight] | bb[Black][Knight];
    out->pawns = bb[White][Pawn] | bb[Black][Pawn];
    out->rule50 = static_cast<u8>(rule50);
    out->ep = pos->ep_square == NoSquare ? 0 : pos->ep_square;
    out->turn = !pos->stm;
}

static i32 piece_total(const Position* pos)
{
    return popcount(pos->bb[White][0] | pos->bb[Black][0]);
}

i32 tb_probe_search(const Position* pos, i32 depth, const TbDepths* least)
{
    if (depth < load(least->five)) {
        return -1;
    }
    const i32 pieces = piece_total(pos);
    if (pieces > tb_largest) {
        return -1;
    }
    if (pieces > pieces_always_small) {
        const i32 needed = pieces == tb_max_pieces ? load(least->six) : depth_never;
        if (depth < needed) {
            return -1;
        }
    }
    if (pos->castle != 0) {
        return -1;
    }
    TbPos tb_pos;
    tb_set_pos(&tb_pos, pos, 0);
    i32 success = 0;
    const i32 wdl = tb_probe_wdl(&tb_pos, &success);
    return success != 0 ? wdl + 2 : -1;
}

// ---- The root

static bool is_sound(const TbPos* pos)
{
    const u64 sets[] = { pos->kings, pos->queens, pos->rooks, pos->bishops, pos->knights,
        pos->pawns };
    u64 all = 0;
    for (const u64 set : sets) {
        if ((all & set) != 0) {
            return false;
        }
        all |= set;
    }
    return (pos->white & pos->black) == 0 && (pos->white | pos->black) == all
        && popcount(pos->kings & pos->white) == 1 && popcount(pos->kings & pos->black) == 1
        && (pos->pawns & 0xff000000000000ffULL) == 0 && !tb_in_check(pos, !pos->turn);
}

static bool is_mate(const TbPos* pos)
{
    return tb_in_check(pos, pos->turn) && !tb_has_legal_move(pos, false);
}

static constexpr i32 not_legal = 32767;

// The distance of the root, whose own is distance, by way of the position after a move.
static i32 distance_by_move(const TbPos* next, i32 distance, i32* success)
{
    if (distance > 0 && is_mate(next)) {
        *success = 1;
        return 1;
    }
    if (next->rule50 == 0) {
        const i32 wdl = -tb_probe_wdl(next, success);
        return *success != 0 ? zeroing_distance(wdl) : 0;
    }
    const i32 value = -tb_probe_dtz(next, success);
    return value > 0 ? value + 1 : value < 0 ? value - 1 : 0;
}

// Whether a move's value keeps what the root's distance says.
static bool keeps_result(i32 distance, i32 value)
{
    return value != not_legal && (distance > 0 ? value > 0 : distance < 0 ? value < 0 : value == 0);
}

// The place of the move to play among count values, or -1 if none keeps the result. The fastest
// win, the slowest loss; in a draw one that hangs on the material alone, so that it stays the same.
static i32 choose_move(const TbPos* pos, i32 distance, const i32* values, i32 count)
{
    i32 best = -1;
    i32 keeping = 0;
    for (i32 i = 0; i < count; ++i) {
        if (keeps_result(distance, values[i])) {
            ++keeping;
            if (best < 0 || values[i] < values[best]) {
                best = i;
            }
        }
    }
    if (distance != 0 || keeping == 0) {
        return best;
    }
    u64 skip = tb_material_key(pos, !pos->turn) % static_cast<u64>(keeping);
    for (best = 0; !keeps_result(0, values[best]) || skip-- > 0;) {
        ++best;
    }
    return best;
}

static Move engine_move(tb_move move)
{
    static constexpr Move promotions[8] = { 0, PromoteQueen, PromoteRook, PromoteBishop,
        PromoteKnight, 0, 0, 0 };
    return make_move_code(tb_from(move), tb_to(move)) | promotions[tb_promotion(move)];
}

// The result class of a distance when so much of the fifty-move clock has run.
static i32 class_of(i32 distance, i32 rule50)
{
    if (distance > 0) {
        return distance + rule50 <= cursed_distance ? 4 : 3;
    }
    if (distance < 0) {
        return rule50 - distance <= cursed_distance ? 0 : 1;
    }
    return 2;
}

i32 tb_probe_root(const Position* pos, u32* wdl, u32* dtz, u16* move)
{
    TbPos root;
    tb_set_pos(&root, pos, pos->cnt50);
    if (piece_total(pos) > tb_largest || pos->castle != 0 || !is_sound(&root)) {
        return -1;
    }
    i32 success = 0;
    const i32 distance = tb_probe_dtz(&root, &success);
    if (success == 0) {
        return -1;
    }
    tb_move list[tb_max_moves];
    i32 values[tb_max_moves];
    const i32 count = static_cast<i32>(tb_gen_moves(&root, list) - list);
    for (i32 i = 0; i < count; ++i) {
        TbPos next;
        values[i] = not_legal;
        if (tb_do_move(&next, &root, list[i])) {
            values[i] = distance_by_move(&next, distance, &success);
            if (success == 0) {
                return -1;
            }
        }
    }
    const i32 chosen = choose_move(&root, distance, values, count);
    if (chosen < 0) {
        return -1;
    }
    const i32 result = class_of(distance, root.rule50);
    *wdl = static_cast<u32>(result);
    *dtz = static_cast<u32>(abs(distance));
    *move = engine_move(list[chosen]);
    return result;
}

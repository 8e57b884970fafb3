// Probing: what a table's value means in a position with captures and an en-passant right, and
// what the search and the root make of it.
//
// A stored value is right only where no capture decides: a win/draw/loss table may hold anything
// not better than the best capture, and a distance table anything at all where a capture or a
// pawn's step keeps the win, since such values were chosen to compress well. Of en passant no table
// knows. So the moves in question are tried first, and the tables are asked for the rest.
//
// In this file *answer is TbNoAnswer as soon as one table fails: every routine then returns at
// once, and its value means nothing. A result from half of the moves would be worse than none.
#include "fathom/tbprobe.h"

#include <algorithm>
#include <cstdlib>
#include <span>

#include "fathom/tbcore.h"
#include "fathom/tbmoves.h"
#include "fathom/tbread.h"
#include "fathom/tbtable.h"

static constexpr i32 no_capture = WdlLoss - 1; // below all values
static constexpr i32 pieces_always_small = 5;  // up to here the depth option for 5 decides
static constexpr i32 depth_never = 100;        // above all depths

// The distance of a position whose next move already zeroes the clock, by WDL value: one ply, or
// one beyond what the fifty-move rule allows.
static i32 zeroing_distance(i32 wdl)
{
    static constexpr i32 spoiled = tb_rule50_plies + 1;
    static constexpr i32 by_result[] = { -1, -spoiled, 0, spoiled, 1 };
    return by_result[tb_result_of(wdl)];
}

// ---- Win, draw, loss

// Captures end by themselves: each takes a piece off. The table is asked last, as the captures may
// already have reached beta.
i32 tb_probe_ab(const TbPos* pos, i32 alpha, i32 beta, i32* answer)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_captures(pos, list);
    TbPos next;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        const i32 value = -tb_probe_ab(&next, -beta, -alpha, answer);
        if (*answer == TbNoAnswer) {
            return WdlDraw;
        }
        if (value > alpha) {
            if (value >= beta) {
                *answer = TbByCapture;
                return value;
            }
            alpha = value;
        }
    }
    const i32 stored = tb_read_wdl(pos, answer);
    if (*answer == TbNoAnswer) {
        return WdlDraw;
    }
    // A capture that wins as well as the table says makes the win one of the next move: the
    // distance stored for it means nothing then. Losing captures say nothing of the kind.
    *answer = alpha >= stored && alpha > WdlDraw ? TbByCapture : TbAnswered;
    return std::max(alpha, stored);
}

// The best value of the legal en-passant captures, no_capture if there is none. *answer stays as it
// is without captures.
static i32 best_en_passant(const TbPos* pos, i32* answer)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_en_passant(pos, list);
    TbPos next;
    i32 best = no_capture;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        // No right can follow a capture, so the value without it is the value.
        const i32 value = -tb_probe_ab(&next, WdlLoss, WdlWin, answer);
        if (*answer == TbNoAnswer) {
            return no_capture;
        }
        best = std::max(best, value);
    }
    return best;
}

i32 tb_probe_wdl(const TbPos* pos, i32* answer)
{
    const i32 value = tb_probe_ab(pos, WdlLoss, WdlWin, answer);
    if (*answer == TbNoAnswer || pos->ep == 0) {
        return value;
    }
    const i32 taking = best_en_passant(pos, answer);
    if (*answer == TbNoAnswer) {
        return WdlDraw;
    }
    if (taking >= value) {
        return taking;
    }
    // The table sees a stalemate where the pawn must take. The moves are generated last: only a
    // draw with a worse capture needs them.
    const bool must_take =
        value == WdlDraw && taking != no_capture && !tb_has_legal_move(pos, true);
    return must_take ? taking : value;
}

// ---- Distances

// Whether a pawn's step reaches the value wdl, which is above a draw.
static bool pawn_step_wins(const TbPos* pos, i32 wdl, i32* answer)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_pawn_steps(pos, list);
    TbPos next;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        // A double step gives a right, which may spoil the win. Else it is enough to know whether
        // the value is -wdl, so whatever is above may come out as the bound.
        const i32 value = next.ep != 0 ? tb_probe_wdl(&next, answer)
                                       : tb_probe_ab(&next, WdlLoss, 1 - wdl, answer);
        if (*answer == TbNoAnswer) {
            return false;
        }
        if (value == -wdl) {
            return true;
        }
    }
    return false;
}

// The distance that a move of the losing side leads to, as that side sees it. rule50 is above 0
// after quiet moves alone. Where all moves lose, a zeroing one does so at once. Of a loss that the
// fifty-move rule saves, a zeroing move either keeps the saving or gives it away; the latter counts
// 0, which the caller's least value leaves out, as nobody need play it.
static i32 distance_after_losing_move(const TbPos* next, i32 wdl, i32* answer)
{
    if (next->rule50 > 0) {
        return -tb_probe_dtz(next, answer) - 1;
    }
    if (wdl == WdlLoss) {
        return zeroing_distance(WdlLoss);
    }
    const i32 reply = tb_probe_ab(next, WdlSpoiltWin, WdlWin, answer);
    return reply == WdlWin ? 0 : zeroing_distance(WdlSavedLoss);
}

// The distance of a lost position, by trying all moves: the loser holds out as long as it can,
// which is the lowest of the values. A mated side has no move and keeps the first one.
static i32 search_lost(const TbPos* pos, i32 wdl, i32* answer)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(pos, list);
    TbPos next;
    i32 best = zeroing_distance(WdlLoss);
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move)) {
            continue;
        }
        *answer = TbAnswered;
        const i32 value = distance_after_losing_move(&next, wdl, answer);
        if (*answer == TbNoAnswer) {
            return 0;
        }
        best = std::min(best, value);
    }
    return best;
}

// The distance of a won position whose win starts with a quiet move, by trying these: the zeroing
// moves have been found not to win. Only a damaged table has none that wins; then there is no
// answer.
static i32 search_won(const TbPos* pos, i32* answer)
{
    static constexpr i32 none_wins = 65535; // above all distances
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(pos, list);
    TbPos next;
    i32 best = none_wins;
    for (const tb_move* move = list; move < end; ++move) {
        if (!tb_do_move(&next, pos, *move) || next.rule50 == 0) {
            continue;
        }
        const i32 value = tb_probe_dtz(&next, answer);
        if (*answer == TbNoAnswer) {
            return 0;
        }
        if (value < 0) {
            best = std::min(best, 1 - value);
        }
    }
    *answer = best != none_wins ? TbAnswered : TbNoAnswer;
    return best;
}

i32 tb_dtz_by_moves(const TbPos* pos, i32 wdl, i32* answer)
{
    *answer = TbAnswered;
    return wdl < WdlDraw ? search_lost(pos, wdl, answer) : search_won(pos, answer);
}

// The distance without the en-passant right. The order of the tests matters: where a capture or a
// pawn's step wins, what the table holds means nothing, and a draw has no distance at all. A file
// with the other side's moves costs one ply of search: after a quiet move the other side is to move
// and is answered for, so this comes back at most once.
static i32 probe_dtz_no_ep(const TbPos* pos, i32* answer)
{
    const i32 wdl = tb_probe_ab(pos, WdlLoss, WdlWin, answer);
    if (*answer == TbNoAnswer || wdl == WdlDraw) {
        return 0;
    }
    if (*answer == TbByCapture) {
        return zeroing_distance(wdl);
    }
    if (wdl > WdlDraw) {
        const bool wins = pawn_step_wins(pos, wdl, answer);
        if (*answer == TbNoAnswer || wins) {
            return zeroing_distance(wdl);
        }
    }
    const i32 distance = tb_read_dtz(pos, wdl, answer);
    if (*answer != TbOtherSide) {
        return *answer == TbAnswered ? distance : zeroing_distance(wdl);
    }
    return tb_dtz_by_moves(pos, wdl, answer);
}

// The distance that the right changes to where taking is worth the distance taken. In a loss, saved
// or not, taking is chosen where it has a better result; in a win where its own result, zeroing at
// once, is no worse. In a draw a losing capture is left alone, if there is any other move: the
// table may have seen a stalemate.
static i32 distance_with_en_passant(const TbPos* pos, i32 distance, i32 taken)
{
    if (distance < -tb_rule50_plies) {
        return taken >= 0 ? taken : distance;
    }
    if (distance < 0) {
        return taken >= 0 || taken < -tb_rule50_plies ? taken : distance;
    }
    if (distance > tb_rule50_plies) {
        return taken > 0 ? taken : distance;
    }
    if (distance > 0) {
        return taken == 1 ? taken : distance;
    }
    return taken < 0 && tb_has_legal_move(pos, true) ? 0 : taken;
}

i32 tb_probe_dtz(const TbPos* pos, i32* answer)
{
    const i32 distance = probe_dtz_no_ep(pos, answer);
    if (*answer == TbNoAnswer || pos->ep == 0) {
        return distance;
    }
    const i32 taking = best_en_passant(pos, answer);
    if (*answer == TbNoAnswer || taking == no_capture) {
        return distance;
    }
    return distance_with_en_passant(pos, distance, zeroing_distance(taking));
}

// ---- The search

void tb_set_pos(TbPos* out, const Position* pos, i32 rule50)
{
    const auto both = [pos](i32 type) { return pos->bb[White][type] | pos->bb[Black][type]; };
    out->white = pieces_of(pos, White);
    out->black = pieces_of(pos, Black);
    out->kings = both(King);
    out->queens = both(Queen);
    out->rooks = both(Rook);
    out->bishops = both(Bishop);
    out->knights = both(Knight);
    out->pawns = both(Pawn);
    out->rule50 = static_cast<u8>(rule50);
    out->ep = pos->ep_square == NoSquare ? 0 : pos->ep_square;
    // The other way round than the board: see TbPos.
    out->turn = pos->stm == White;
}

static i32 piece_total(const Position* pos)
{
    return popcount(occupied(pos));
}

// Apart from the conditions, which nearly every node of a search fails: only a node that asks pays
// for the room that the tables' board takes.
[[gnu::noinline]] static TbResult ask_tables(const Position* pos)
{
    TbPos tb_pos;
    tb_set_pos(&tb_pos, pos, 0);
    i32 answer = TbNoAnswer;
    const i32 wdl = tb_probe_wdl(&tb_pos, &answer);
    return answer != TbNoAnswer ? tb_result_of(wdl) : TbNone;
}

// The cheap tests come first: most nodes have too many pieces or too little depth, and leave before
// a position is copied. The depth for five pieces holds for six as well, besides their own.
TbResult tb_probe_search(const Position* pos, i32 depth, const TbDepths* least)
{
    if (depth < load(least->five)) {
        return TbNone;
    }
    const i32 pieces = piece_total(pos);
    if (pieces > tb_largest) {
        return TbNone;
    }
    if (pieces > pieces_always_small) {
        const i32 needed = pieces == tb_max_pieces ? load(least->six) : depth_never;
        if (depth < needed) {
            return TbNone;
        }
    }
    // No table knows of castling.
    return pos->castle != 0 ? TbNone : ask_tables(pos);
}

// ---- The root

// Whether the table code may take the board as its own: every square has one piece at most, of one
// side, both have their king, no pawn stands where it cannot, and the side that has just moved is
// not in check. What comes from a user's text is not always so.
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
        && (pos->pawns & outer_ranks) == 0 && !tb_in_check(pos, !pos->turn);
}

// Whether the side to move is mated.
static bool is_mate(const TbPos* pos)
{
    return tb_in_check(pos, pos->turn) && !tb_has_legal_move(pos, false);
}

static constexpr i32 not_legal = 32767; // as a move's value

// The distance of the root, whose own is distance, by way of the position after a move. A mate wins
// at once, though it may zero no clock: by the tables a quiet one counts 2, and a capture that wins
// in the end would be played instead.
static i32 distance_by_move(const TbPos* next, i32 distance, i32* answer)
{
    if (distance > 0 && is_mate(next)) {
        *answer = TbAnswered;
        return 1;
    }
    if (next->rule50 == 0) {
        const i32 wdl = -tb_probe_wdl(next, answer);
        return *answer != TbNoAnswer ? zeroing_distance(wdl) : 0;
    }
    const i32 value = -tb_probe_dtz(next, answer);
    return value > 0 ? value + 1 : value < 0 ? value - 1 : 0;
}

// Whether a move's value keeps what the root's distance says: its sign. A win that the fifty-move
// rule spoils counts as a win here; among those the fastest is still taken.
static bool keeps_result(i32 distance, i32 value)
{
    return value != not_legal && (distance > 0 ? value > 0 : distance < 0 ? value < 0 : value == 0);
}

static constexpr size_t no_choice = tb_max_moves;

// The place of the move to play among the values, or no_choice if none keeps the result. The
// fastest win, the slowest loss: both are the lowest value, and of equal ones the first. In a draw
// all moves that keep it are equal, and the one taken hangs on the material alone, so that it stays
// the same.
static size_t choose_move(const TbPos* pos, i32 distance, std::span<const i32> values)
{
    size_t best = no_choice;
    u64 keeping = 0;
    for (size_t i = 0; i < values.size(); ++i) {
        if (keeps_result(distance, values[i])) {
            ++keeping;
            if (best == no_choice || values[i] < values[best]) {
                best = i;
            }
        }
    }
    if (distance != 0 || keeping == 0) {
        return best;
    }
    u64 skip = tb_material_key(pos, !pos->turn) % keeping;
    for (best = 0; !keeps_result(0, values[best]) || skip-- > 0;) {
        ++best;
    }
    return best;
}

// The move in the board's form.
static Move engine_move(tb_move move)
{
    // By TbPromotion; the three bits have room for eight.
    static constexpr Move promotions[8] = { 0, PromoteQueen, PromoteRook, PromoteBishop,
        PromoteKnight, 0, 0, 0 };
    return make_move_code(tb_from(move), tb_to(move)) | promotions[tb_promotion(move)];
}

// The result of a distance when so many plies of the fifty-move clock have run.
static TbResult result_of(i32 distance, i32 rule50)
{
    if (distance > 0) {
        return distance + rule50 <= tb_rule50_plies ? TbWin : TbSpoiltWin;
    }
    if (distance < 0) {
        return rule50 - distance <= tb_rule50_plies ? TbLoss : TbSavedLoss;
    }
    return TbDraw;
}

// The move is the tables' own choice: going by the result alone, a search could shuffle in a won
// position without ever coming nearer to the win. One move without an answer leaves the root
// without any, since it might have been the best.
TbResult tb_probe_root(const Position* pos, u32* wdl, u32* dtz, u16* move)
{
    TbPos root;
    tb_set_pos(&root, pos, pos->cnt50);
    if (piece_total(pos) > tb_largest || pos->castle != 0 || !is_sound(&root)) {
        return TbNone;
    }
    i32 answer = TbNoAnswer;
    const i32 distance = tb_probe_dtz(&root, &answer);
    if (answer == TbNoAnswer) {
        return TbNone;
    }
    tb_move list[tb_max_moves];
    i32 values[tb_max_moves];
    const size_t count = static_cast<size_t>(tb_gen_moves(&root, list) - list);
    for (size_t i = 0; i < count; ++i) {
        TbPos next;
        values[i] = not_legal;
        if (tb_do_move(&next, &root, list[i])) {
            values[i] = distance_by_move(&next, distance, &answer);
            if (answer == TbNoAnswer) {
                return TbNone;
            }
        }
    }
    const size_t chosen = choose_move(&root, distance, { values, count });
    if (chosen == no_choice) {
        return TbNone;
    }
    const TbResult result = result_of(distance, root.rule50);
    *wdl = static_cast<u32>(result);
    *dtz = static_cast<u32>(abs(distance));
    *move = engine_move(list[chosen]);
    return result;
}

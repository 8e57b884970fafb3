// What the move order learns: history, killers, counter moves; and the first order of the root
// list. All of it belongs to one thread and is forgotten at the start of a search. Captures learn
// nothing: their worth is on the board.
#include <algorithm>
#include <cstring>

#include "search/node.h"
#include "search/search.h"

// History cells lie in 0 to full. Every update covers a share of the way that is left to one of the
// limits, so that no cell can leave them and late news outweighs old: a success at the depth limit
// a sixteenth of the way up, a failure less than half as much of the way down, since most moves
// fail most of the time.
static constexpr struct {
    i16 start = 2048; // an eighth: a move nobody has tried stands behind those that succeed
    i32 full = 16384;
    i32 gain = 16; // share for each ply of depth, in parts of divisor
    i32 loss = 6;  // the same
    i32 divisor = 2048;
    i32 depth_limit = 8; // plies; a deeper search proves no more about other positions
} history_rule;

// Ordering scores of the root list, on the scale of next_move.cpp.
static constexpr struct {
    i32 hash_move = 255;
    i32 killer[2] = { 60, 50 };
    i32 losing_exchange = -50; // centipawns; below it a capture stands among the quiet moves
} root_order;

void reset_ordering(SearchThread* thread)
{
    for (PlyRecord& ply_rec : thread->ply_rec) {
        ply_rec.hash_move = NoMove;
        ply_rec.killer[0] = ply_rec.killer[1] = NoMove;
        ply_rec.evasion_killer = NoMove;
    }
    // Zeros are NoMove.
    memset(thread->counter_move, 0, sizeof thread->counter_move);
    memset(thread->counter_move2, 0, sizeof thread->counter_move2);
    memset(thread->follow_move, 0, sizeof thread->follow_move);
    std::fill_n(
        &thread->history[0][0][0], sizeof thread->history / sizeof(i16), history_rule.start);
}

// Notes a quiet move that raised alpha: where the next nodes will look first. In PV nodes it may be
// one of several, and the last of them, the best, stays noted.
static void note_success(SearchThread* thread, i32 ply, Move move)
{
    // A killer refutes what the siblings try, whatever it is; two, the later one first. A reply to
    // a check is of no use elsewhere and has a place of its own.
    PlyRecord* ply_rec = &thread->ply_rec[ply];
    if (ply_rec->in_check) {
        ply_rec->evasion_killer = move;
    } else if (ply_rec->killer[0] != move) {
        ply_rec->killer[1] = ply_rec->killer[0];
        ply_rec->killer[0] = move;
    }
    // A counter move answers one move wherever in the tree it is played, by piece and square.
    // Behind a null move there is nothing to answer.
    const MoveEntry* previous = thread->ply_rec[ply - 1].list_cursor;
    if (previous->move == NoMove) {
        return;
    }
    const i32 to = to_square(previous->move);
    // Two of them, the later first: a move has more than one good answer.
    u16* counter = &thread->counter_move[previous->moved][to];
    if (*counter != move) {
        thread->counter_move2[previous->moved][to] = *counter;
        *counter = move;
    }
    // A follow-up goes on with the plan of one's own last move.
    const MoveEntry* followed = thread->ply_rec[ply - 2].list_cursor;
    if (followed->move != NoMove) {
        thread->follow_move[followed->moved][to_square(followed->move)] = move;
    }
}

void update_history(SearchThread* thread, i32 ply, i32 depth, const MoveEntry* entry, bool success)
{
    // Two cells: how the move fares on the whole, and in answer to a piece of this type. The
    // previous entry of a null move keeps the piece of its last use.
    const i32 d = std::min(depth, history_rule.depth_limit);
    const i32 to = to_square(entry->move);
    const i32 previous_type = type_of(thread->ply_rec[ply - 1].list_cursor->moved);
    i16* plain = &thread->history[0][entry->moved][to];
    i16* replying = &thread->history[previous_type][entry->moved][to];
    const i32 h1 = *plain;
    const i32 h2 = *replying;
    // A success weighs more than a failure, and both the more the deeper the search that found it.
    if (success) {
        const i32 share = history_rule.gain * d;
        *plain = static_cast<i16>(h1 + (history_rule.full - h1) * share / history_rule.divisor);
        *replying = static_cast<i16>(h2 + (history_rule.full - h2) * share / history_rule.divisor);
        note_success(thread, ply, entry->move);
    } else {
        // It may have failed only because an earlier move was better still; hence the small share.
        const i32 share = history_rule.loss * d;
        *plain = static_cast<i16>(h1 - h1 * share / history_rule.divisor);
        *replying = static_cast<i16>(h2 - h2 * share / history_rule.divisor);
    }
}

// The score of a root move, as next_move.cpp gives it but without counter moves. At the start of a
// search the history is even and there are no killers, so that captures and promotions decide; from
// then on the root is ordered by the scores that its moves get.
static i32 root_move_score(Position* pos, const PlyRecord* ply_rec, const MoveEntry* entry)
{
    const i32 to = to_square(entry->move);
    if (entry->move == ply_rec->hash_move) {
        return root_order.hash_move;
    }
    // An under-promotion without capture is left to the quiet moves, as it wins nothing at once.
    if (entry->captured != NoPiece || (entry->move & PromoteQueen)) {
        if (!swaps_at_least(
                pos, pos->stm, from_square(entry->move), to, root_order.losing_exchange)) {
            return losing_capture_score(entry);
        }
        return capture_score(entry);
    }
    const SearchThread* thread = pos->thread;
    const i32 previous_type = type_of(thread->ply_rec[thread->ply - 1].list_cursor->moved);
    const i32 base = history_base(
        thread->history[previous_type][entry->moved][to], thread->history[0][entry->moved][to]);
    const i32 bonus = entry->move == ply_rec->killer[0] ? root_order.killer[0]
        : entry->move == ply_rec->killer[1]             ? root_order.killer[1]
                                                        : 0;
    return base + bonus;
}

// Once a search: its cost does not matter, so every capture gets its exchange.
void order_root_moves(Position* pos, MoveEntry* list)
{
    const PlyRecord* ply_rec = &pos->thread->ply_rec[pos->thread->ply];
    for (MoveEntry* entry = list; entry->move != EndOfList; ++entry) {
        entry->score = static_cast<i16>(root_move_score(pos, ply_rec, entry));
    }
}

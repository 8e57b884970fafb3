// What the move order is made from: history, killers, counter moves, and the root list.
// All of it belongs to one thread and is forgotten at the start of a search.
#include <algorithm>
#include <cstring>

#include "search/node.h"
#include "search/search.h"

// History cells lie in 0 to full; both updates cover a share of the distance to a limit.
static constexpr struct {
    i16 start = 2048;
    i32 full = 16384;
    i32 gain = 16;
    i32 loss = 6;
    i32 divisor = 2048;
    i32 depth_limit = 8;
} history_rule;

void reset_ordering(SearchThread* thread)
{
    for (PlyRecord& ply_rec : thread->ply_rec) {
        ply_rec.hash_move = NoMove;
        ply_rec.killer[0] = ply_rec.killer[1] = NoMove;
        ply_rec.evasion_killer = NoMove;
    }
    memset(thread->counter_move, 0, sizeof thread->counter_move);
    memset(thread->counter_move2, 0, sizeof thread->counter_move2);
    memset(thread->follow_move, 0, sizeof thread->follow_move);
    std::fill_n(
        &thread->history[0][0][0], sizeof thread->history / sizeof(i16), history_rule.start);
}

static void note_success(SearchThread* thread, i32 ply, Move move)
{
    PlyRecord* ply_rec = &thread->ply_rec[ply];
    if (ply_rec->in_check) {
        ply_rec->evasion_killer = move;
    } else if (ply_rec->killer[0] != move) {
        ply_rec->killer[1] = ply_rec->killer[0];
        ply_rec->killer[0] = move;
    }
    const MoveEntry* previous = thread->ply_rec[ply - 1].list_cursor;
    if (previous->move == NoMove) {
        return;
    }
    const i32 to = to_square(previous->move);
    u16* counter = &thread->counter_move[previous->moved][to];
    if (*counter != move) {
        thread->counter_move2[previous->moved][to] = *counter;
        *counter = move;
    }
    const MoveEntry* own = thread->ply_rec[ply - 2].list_cursor;
    if (own->move != NoMove) {
        thread->follow_move[own->moved][to_square(own->move)] = move;
    }
}

void update_history(SearchThread* thread, i32 ply, i32 depth, const MoveEntry* entry, bool success)
{
    const i32 d = std::min(depth, history_rule.depth_limit);
    const i32 to = to_square(entry->move);
    const i32 previous_type = thread->ply_rec[ply - 1].list_cursor->moved & 7;
    i16* plain = &thread->history[0][entry->moved][to];
    i16* replying = &thread->history[previous_type][entry->moved][to];
    const i32 h1 = *plain;
    const i32 h2 = *replying;
    if (success) {
        const i32 share = history_rule.gain * d;
        *plain = static_cast<i16>(h1 + (history_rule.full - h1) * share / history_rule.divisor);
        *replying = static_cast<i16>(h2 + (history_rule.full - h2) * share / history_rule.divisor);
        note_success(thread, ply, entry->move);
    } else {
        const i32 share = history_rule.loss * d;
        *plain = static_cast<i16>(h1 - h1 * share / history_rule.divisor);
        *replying = static_cast<i16>(h2 - h2 * share / history_rule.divisor);
    }
}

static i32 root_move_score(Position* pos, const PlyRecord* ply_rec, const MoveEntry* entry)
{
    const i32 to = to_square(entry->move);
    if (entry->move == ply_rec->hash_move) {
        return 255;
    }
    if (entry->captured != 0 || (entry->move & PromoteQueen)) {
        if (swapoff(pos, pos->stm, from_square(entry->move), to) < -50) {
            return (entry->captured & 7) + 4;
        }
        return mvv_score[entry->captured] - (entry->moved & 7);
    }
    const SearchThread* thread = pos->thread;
    const i32 previous_type = thread->ply_rec[thread->ply - 1].list_cursor->moved & 7;
    const i32 base = history_base(
        thread->history[previous_type][entry->moved][to], thread->history[0][entry->moved][to]);
    const i32 bonus = entry->move == ply_rec->killer[0] ? 60
        : entry->move == ply_rec->killer[1]             ? 50
                                                        : 0;
    return base + bonus;
}

void order_root_moves(Position* pos, MoveEntry* list)
{
    const PlyRecord* ply_rec = &pos->thread->ply_rec[pos->thread->ply];
    for (MoveEntry* entry = list; entry->move != EndOfList; ++entry) {
        entry->score = static_cast<i16>(root_move_score(pos, ply_rec, entry));
    }
}

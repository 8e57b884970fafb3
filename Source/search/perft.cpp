// Counts the leaves of the legal move tree, with the search's own staged selection: so the count
// checks selection, generators, make and unmake together. Leaves are counted as legal moves of the
// ply above and not made.
#include "search/move_lists.h"

// Full search: no move may be kept back. The hash move is not tried, as there is none.
static constexpr u16 perft_stage = UnreadStageFlag | FullSearch;

void perft(SearchThread* thread, i32 side, i32 ply_index, i32 depth)
{
    Position* pos = &thread->pos;
    PlyRecord* rec = &thread->ply_rec[ply_index];
    // What a node would have written into its record before it asks for a move.
    rec->check_sq = static_cast<u8>(find_checker(pos, pos->king_sq[side], side ^ 1, occupied(pos)));
    rec->in_check = rec->check_sq != NoSquare;
    rec->hash_move = NoMove;
    rec->stage = perft_stage;

    while (MoveEntry* entry = next_move(pos)) {
        if (entry->move == NoMove || !is_legal_move(pos, side, entry->move)) {
            continue;
        }
        rec->list_cursor = entry;
        if (depth == 1) {
            add(thread->counters[CountNodes], 1);
            continue;
        }
        make_move(pos, entry->move);
        perft(thread, side ^ 1, ply_index + 1, depth - 1);
        unmake_move(pos);
    }
}

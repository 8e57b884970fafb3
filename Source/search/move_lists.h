// The move lists of a thread: one for each ply, handed out move by move.
// All lists lie in one store. The list of a ply always ends in a closing entry, and the list of the
// next ply starts behind it, so that a list may only grow while it is the last one.
#pragma once

#include "search/thread.h"

// Flags in bits 4 to 7 of PlyRecord.stage; the low four bits are the stage, 0 at the start.
enum StageFlag : u16 {
    TryHashMove = 16,     // the hash move comes first, before anything is generated
    UnreadStageFlag = 32, // kept for the record's shape; nobody reads it
    FullSearch = 64,      // quiet moves and under-promotions too
    GenChecks = 128,      // without FullSearch: quiet checks behind the captures
};

// Ordering value of a capture by the captured piece code; 0, an empty square, stands for en passant
// and for a promotion. The victim counts tens and the capturer ones: take the most, with the least.
// Scores of one list, not centipawns: they must lie above all quiet moves (see order_rule).
inline constexpr i16 mvv_score[16] = {
    210, 220, 230, 230, 240, 250, 0, 0, // none, and white's pawn to queen
    0, 220, 230, 230, 240, 250, 0, 0,   // black's
};

// Ordering score of a capture or promotion that does not lose.
inline i32 capture_score(const MoveEntry* entry)
{
    return mvv_score[entry->captured] - type_of(entry->moved);
}

// The same of one that loses: among quiet moves without merit, the larger victim first.
inline i32 losing_capture_score(const MoveEntry* entry)
{
    return type_of(entry->captured) + 4;
}

// Hands out the next move of the current ply, generating and scoring as late as it can; the stage
// and the flags are in the ply's record, whose list_cursor is the move handed out last. The moves
// are pseudo-legal; the hash move comes a second time where it is generated.
// Returns null when the list is finished.
[[nodiscard]] MoveEntry* next_move(Position* pos);

// Closes a list of the current ply at end and publishes where those of the next two plies start.
void publish_list(SearchThread* thread, MoveEntry* end);

// Swaps the entry of highest score (the earliest of equals) between cursor and the closing
// entry to the cursor. Most nodes need a few moves only, so no list is ever sorted as a whole.
// Reads up to seven entries behind the closing one, which a list outside of the store must have
// room for; they do not count. Faster where the caller knows end, the closing entry.
void pick_best(MoveEntry* cursor);
void pick_best(MoveEntry* cursor, const MoveEntry* end);

// The base of a quiet move's score, 0 to 64, from its two history values: the one in answer to the
// type of the previous piece, and the one of all times.
i32 history_base(i32 replying, i32 plain);

// Publishes a list of one null entry at the current ply, so that children see a previous move 0.
void set_null_list(Position* pos);

// All moves of the side to move at the current ply, closed and published.
void gen_all_moves(Position* pos);

// Adds the number of leaves of the legal move tree of the given depth (1 and up) to the
// thread's node counter.
void perft(SearchThread* thread, i32 side, i32 ply_index, i32 depth);

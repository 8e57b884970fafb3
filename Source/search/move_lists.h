// The move lists of a thread: one for each ply, handed out move by move.
// The list of a ply always ends in a closing entry, and the list of the next ply starts behind it.
#pragma once

#include "search/thread.h"

// Flags in bits 4 to 7 of PlyRecord.stage; the low four bits are the stage, 0 at the start.
enum StageFlag : u16 {
    TryHashMove = 16,
    UnreadStageFlag = 32,
    FullSearch = 64,
    GenChecks = 128,
};

// Ordering value of a capture by the captured piece code.
extern const i16 mvv_score[16];

// Hands out the next move of the current ply, generating and scoring as late as it can.
// Returns null when the list is finished.
MoveEntry* next_move(Position* pos);

// Closes a list at end and publishes the list starts of the next two plies.
void publish_list(SearchThread* thread, MoveEntry* end);

// Swaps the entry of highest score (the earliest of equals) between cursor and the closing
// entry to the cursor.
void pick_best(MoveEntry* cursor);

// The base of a quiet move's score from the two history values, 0 to 64.
i32 history_base(i32 h1, i32 h2);

// Publishes a list of one null entry at the current ply, so that children see a previous move 0.
void set_null_list(Position* pos);

// All moves of the side to move at the current ply, closed and published.
void gen_all_moves(Position* pos);

// Adds the number of leaves of the legal move tree of the given depth (1 and up) to the
// thread's node counter.
void perft(SearchThread* thread, i32 side, i32 ply_index, i32 depth);

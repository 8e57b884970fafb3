// The search from the iteration loop down to a leaf.
// Scores are in centipawns from the view of the side to move; depths count the plies that are left,
// plies the way from the root, which is ply 1. A routine that makes moves takes them back before it
// returns, also when the search is stopped under it.
#pragma once

#include "search/control.h"
#include "search/move_lists.h"
#include "search/result.h"

// The search node: everything before the first move (steps 1 to 9). side is pos->stm; depth may be
// below 1, then only captures, checks and evasions follow; alpha < beta.
// pv has ply_count entries and is indexed by ply. From pv[ply] on it becomes the line of the node,
// closed by NoMove: the whole line if the score lies inside the window, else its best move at most.
// Returns the score from side's view inside the window, and outside of it a bound on that side; 0
// at once when stop_code is set, and then it must not be used.
[[nodiscard]] i32 search(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, NodeType node_type, u16* pv);

// The move loop of interior nodes and of check evasions at any depth (steps 10 to 16). Arguments
// and result as above; the record of the ply must hold what steps 3 to 6 put there. in_check is the
// record's.
i32 search_moves(Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, bool in_check,
    NodeType node_type, u16* pv);

// The move loop of quiescence nodes; the static evaluation stands in the ply's record, and side is
// not in check. Arguments and result as above. Returns beta at once where the evaluation reaches
// it, and else never less than the evaluation.
[[nodiscard]] i32 qsearch(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, NodeType node_type, u16* pv);

// Step 8c: whether a shallow search of winning captures beats beta by a margin. Uses the list of
// the ply. False when stop_code is set.
bool probcut(Position* pos, i32 ply, i32 depth, i32 beta);

// Step 8b: whether no piece of side can be taken at once for so much that eval would come near
// beta.
bool threats_harmless(Position* pos, i32 side, i32 eval, i32 beta);

// Sets the ordering scores of a closed list of legal root moves.
void order_root_moves(Position* pos, MoveEntry* list);

// Updates the two history cells of a quiet move searched at ply with depth 1 or more, after a
// success (it raised alpha) killers, counter moves and the follow-up move too.
void update_history(SearchThread* thread, i32 ply, i32 depth, const MoveEntry* entry, bool success);

// Clears history, killers and counter moves of a thread.
void reset_ordering(SearchThread* thread);

// One pass over the root moves from list entry pv_index on. Returns the best score, or 0 when
// stop_code is set.
i32 root_search(Position* pos, i32 side, i32 depth, i32 alpha, i32 beta, i32 pv_index);

// Writes the thread's line, score and depth into search_result, and prints them when due.
void publish_result(SearchThread* thread, bool print);

// The whole search of one thread: preparation and iteration loop. game: the record whose game
// worker 0 copies into all workers first; null in the other workers, which publish nothing.
void run_search(SearchThread* thread, const SearchThread* game);

// The whole search of a game on the calling thread, on worker 0's record, for the offline tools.
// Does nothing without workers.
void search_sync(const SearchThread* game);

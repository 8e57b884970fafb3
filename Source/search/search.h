// The search from the iteration loop down to a leaf, and the record of its result.
#pragma once

#include "search/control.h"
#include "search/move_lists.h"

// The score scale. Scores are from the side to move's view.
enum Score : i32 {
    ScoreInfinite = 10001,
    ScoreMate = 10000,   // minus the ply of the mate
    ScoreTbWin = 9800,   // minus the ply
    ScoreTbLoss = -9801, // plus the ply
    ScorePrintsAsMate = 9900,
    ScoreStoreLimit = 9699, // from here on a score is made independent of ply when stored
    ScoreProbeLimit = 9599, // from here on it is made relative when read; pruning is off
    ScoreHashMate = 9000,   // beyond this a hash score may be taken in a PV node
    ScoreDraw = 0,
};

inline constexpr i32 max_search_ply = 66;

// What worker 0 publishes. Plain fields are read by the main thread when no worker is busy.
struct SearchResult {
    u16 result_pv[ply_count]; // [1] is the best move, [2] the ponder move
    Shared<i16> result_score;
    i8 result_depth;
    Shared<i16> score_by_depth[ply_count];
    u16 move_by_depth[ply_count];
    Shared<i8> last_change_depth; // depth at which the best move last changed
    Shared<u8> single_reply;      // the root has one legal move
    i8 last_iter_depth;
    f64 last_iter_time;
    i16 root_eval;
    i32 tb_root_result = TbNone; // TbResult
    u16 tb_root_move;
    i16 tb_root_score[2];
};
extern SearchResult search_result;

// The search node: everything before the first move. side is pos->stm. pv is indexed by ply.
// Returns the score from side's view, or 0 at once when stop_code is set.
i32 search(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, NodeType node_type, u16* pv);

// The move loop of interior nodes and of check evasions at any depth.
i32 search_moves(Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, bool in_check,
    NodeType node_type, u16* pv);

// The move loop of quiescence nodes; the static evaluation stands in the ply's record.
i32 qsearch(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, NodeType node_type, u16* pv);

// Whether a shallow search of winning captures beats beta by a margin.
bool probcut(Position* pos, i32 ply, i32 depth, i32 beta);

// Whether no piece of side can be taken at once for more than the surplus of eval over beta.
bool threats_harmless(Position* pos, i32 side, i32 eval, i32 beta);

// Sets the ordering scores of a closed list of legal root moves.
void order_root_moves(Position* pos, MoveEntry* list);

// Updates the two history cells of a quiet move and, after a success, killers, counter moves
// and the follow-up move. s and alpha decide which; entry is the move searched at ply.
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

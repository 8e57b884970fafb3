// The scale of scores, and the record of a search's result.
#pragma once

#include "board/position.h"
#include "fathom/tbresult.h"

// The score scale. Mates are counted in plies from the root and wins of the endgame tables in plies
// to the first position in the tables, so that the sooner is the better.
enum Score : i32 {
    ScoreInfinite = 10001,
    ScoreMate = 10000,        // minus the ply of the mate
    ScoreTbWin = 9800,        // minus the ply
    ScoreTbLoss = -9801,      // plus the ply
    ScorePrintsAsMate = 9900, // from here on a score is shown as moves to mate
    ScoreStoreLimit = 9699,   // from here on a score is made independent of ply when stored
    ScoreProbeLimit = 9599,   // from here on it is made relative when read; pruning is off
    ScoreHashMate = 9000,     // beyond this a hash score may be taken in a PV node
    ScoreDraw = 0,
};

// Nodes of this ply make no moves. Lines and records reach a little further, to ply_count, so that
// a node may write to the plies behind its own.
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
    i8 last_iter_depth;           // the last iteration that was finished
    f64 last_iter_time;           // seconds since the start when it was
    i16 root_eval;
    i32 tb_root_result = TbNone; // TbResult
    u16 tb_root_move;
    i16 tb_root_score[2]; // by side
};
extern SearchResult search_result;

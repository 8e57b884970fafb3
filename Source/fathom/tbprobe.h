// Endgame tables: answers for the search and the root. Any position may be asked about; where there
// is no table for it, or none that can be read, there is no answer, and the caller goes on as
// without tables.
//
// Results are TbResult or TbWdl, but travel as numbers: the search bounds, compares and negates
// them like scores. Distances count plies.
#pragma once

#include "board/position.h"

struct TbPos;

// What a table says for the side to move, on the scale of the search: 0 to 4, for arithmetic.
enum TbResult : i32 {
    TbNone = -1, // no answer
    TbLoss = 0,
    TbSavedLoss = 1, // saved by the fifty-move rule
    TbDraw = 2,
    TbSpoiltWin = 3, // spoiled by the fifty-move rule
    TbWin = 4,
};

// The same on the scale of the Syzygy format: TbResult less TbDraw.
enum TbWdl : i32 {
    WdlLoss = -2,
    WdlSavedLoss = -1,
    WdlDraw = 0,
    WdlSpoiltWin = 1,
    WdlWin = 2,
};

inline constexpr TbResult tb_result_of(i32 wdl)
{
    return static_cast<TbResult>(wdl + TbDraw);
}

inline constexpr i32 tb_wdl_of(TbResult result)
{
    return result - TbDraw;
}

// How a value came about: what the probes report beside it, as a number that starts as TbNoAnswer.
enum TbAnswer : i32 {
    TbOtherSide = -1, // a distance table has only the other side's moves
    TbNoAnswer = 0,   // no table, or a damaged one; the value means nothing
    TbAnswered = 1,   // a table's
    TbByCapture = 2,  // a capture's: it wins or reaches the upper bound, and the table adds nothing
};

// The fifty-move rule in plies: a win or loss whose distance is greater is none any more.
inline constexpr i32 tb_rule50_plies = 100;

// The least remaining depth at which tables are asked, by their number of pieces. The main thread
// sets them by the options while workers search.
struct TbDepths {
    Shared<i16> five; // and less
    Shared<i16> six;
};

// Result for the side to move; TbNone if there is no answer, also where depth is below the least of
// its pieces. The half-move clock is taken for 0: the result is that of a fresh count.
[[nodiscard]] TbResult tb_probe_search(const Position* pos, i32 depth, const TbDepths* least);

// The root's probe: result as above, but with the half-move clock as it stands; also stored in wdl,
// with the distance without its sign and a legal move that keeps the result. TbNone, with nothing
// stored, if there is no answer, for a root that is mated or stalemated, and for an unsound board.
// Worker 0 only.
[[nodiscard]] TbResult tb_probe_root(const Position* pos, u32* wdl, u32* dtz, u16* move);

// The WDL value of a sound position. *answer becomes TbNoAnswer if there is none, else above it.
i32 tb_probe_wdl(const TbPos* pos, i32* answer);

// The distance to the next capture or pawn move, with the sign of the WDL value; beyond
// tb_rule50_plies if the fifty-move rule changes the result, 0 for a draw. A mated side has -1.
// *answer as above. Worker 0 only.
i32 tb_probe_dtz(const TbPos* pos, i32* answer);

// The WDL value without the en-passant right, by a search of the captures between alpha and beta;
// at least alpha. *answer becomes TbNoAnswer, TbByCapture or TbAnswered.
[[nodiscard]] i32 tb_probe_ab(const TbPos* pos, i32 alpha, i32 beta, i32* answer);

// A position in the form of the tables, with its en-passant square and the half-move clock given,
// 0 to 255. Castling rights are left out: positions that have any must not be probed.
void tb_set_pos(TbPos* out, const Position* pos, i32 rule50);

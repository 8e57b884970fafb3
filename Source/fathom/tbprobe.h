// Endgame tables: answers for the search and the root. Any position may be asked about; where there
// is no table for it, or none that can be read, there is no answer, and the caller goes on as
// without tables.
//
// Results are TbResult or TbWdl, but travel as numbers: the search bounds, compares and negates
// them like scores. Distances count plies.
#pragma once

#include "board/position.h"
#include "fathom/tbresult.h"

struct TbPos;

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

// The distance of a position without en-passant right, whose WDL value is wdl (not WdlDraw), by way
// of those that its moves lead to: what stands in the table for the position itself is not looked
// at. Of a won position it is that of a win that begins with a quiet move; no answer if there is
// none. *answer as above. Worker 0 only.
[[nodiscard]] i32 tb_dtz_by_moves(const TbPos* pos, i32 wdl, i32* answer);

// The WDL value without the en-passant right, by a search of the captures between alpha and beta;
// at least alpha. *answer becomes TbNoAnswer, TbByCapture or TbAnswered.
[[nodiscard]] i32 tb_probe_ab(const TbPos* pos, i32 alpha, i32 beta, i32* answer);

// A position in the form of the tables, with its en-passant square and the half-move clock given,
// 0 to 255. Castling rights are left out: positions that have any must not be probed.
void tb_set_pos(TbPos* out, const Position* pos, i32 rule50);

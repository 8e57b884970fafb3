// Endgame tables: answers for the search and the root. WDL values are those of the Syzygy format:
// -2 loss, -1 loss saved by the fifty-move rule, 0 draw, 1 win spoiled by it, 2 win.
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

// The least remaining depth at which tables are asked, by their number of pieces.
struct TbDepths {
    Shared<i16> five; // and less
    Shared<i16> six;
};

// Result for the side to move: 0 loss, 1 loss saved by the fifty-move rule, 2 draw, 3 win
// spoiled by it, 4 win; -1 if there is no answer, also where depth is below the least of its
// pieces.
i32 tb_probe_search(const Position* pos, i32 depth, const TbDepths* least);

// The root's probe: result as above, also stored in wdl, with distance and a move; -1 if none.
// Worker 0 only.
i32 tb_probe_root(const Position* pos, u32* wdl, u32* dtz, u16* move);

// The WDL value of a sound position. *success becomes 0 if there is no answer.
i32 tb_probe_wdl(const TbPos* pos, i32* success);

// The distance to the next capture or pawn move, with the sign of the WDL value; beyond 100 if the
// fifty-move rule changes the result. *success becomes 0 if there is no answer. Worker 0 only.
i32 tb_probe_dtz(const TbPos* pos, i32* success);

// The WDL value without the en-passant right, by a search of the captures between alpha and beta.
// *success becomes 0 if there is no answer, 2 if a capture wins, else 1.
i32 tb_probe_ab(const TbPos* pos, i32 alpha, i32 beta, i32* success);

// A position in the form of the tables, with its en-passant square and the half-move clock given.
void tb_set_pos(TbPos* out, const Position* pos, i32 rule50);

// The results of the endgame tables: two scales and how a value came about.
#pragma once

#include "board/types.h"

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

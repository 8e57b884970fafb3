// The values that the tables hold for a position, as they stand: the position's captures and its
// en-passant right are the prober's business. Where one of these decides, the tables may hold any
// value that compresses well.
#pragma once

#include "fathom/tbmoves.h"

// The stored value, a TbWdl, of the win/draw/loss table. *answer becomes TbAnswered, or TbNoAnswer
// with WdlDraw for the value. Bare kings are a draw without a table. Any worker may call it.
[[nodiscard]] i32 tb_read_wdl(const TbPos* pos, i32* answer);

// The stored distance of a position whose value, with no en-passant right, is wdl (not WdlDraw); of
// the same sign. *answer becomes TbAnswered, TbNoAnswer, or TbOtherSide if the table holds the
// moves of the other side. Worker 0 only.
[[nodiscard]] i32 tb_read_dtz(const TbPos* pos, i32 wdl, i32* answer);

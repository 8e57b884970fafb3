// The values that the tables hold for a position, as they stand: the position's captures and its
// en-passant right are the prober's business.
#pragma once

#include "fathom/tbmoves.h"

// The stored value, -2 to 2, of the win/draw/loss table. *success becomes 1, or 0 if there is no
// answer. Bare kings are a draw without a table.
i32 tb_read_wdl(const TbPos* pos, i32* success);

// The stored distance of a position whose value, with no en-passant right, is wdl (not 0); of the
// same sign. *success becomes 1, 0 if there is no answer, or -1 if the table holds the moves of
// the other side.
i32 tb_read_dtz(const TbPos* pos, i32 wdl, i32* success);

// The default values of the piece-square tables, as numbers; weights.cpp puts them into the
// weight table.
#pragma once

#include "board/types.h"

inline constexpr i32 pst_count = 13;

// [table in the order of weights.def][piece-square index][0 middle game, 1 end game], centipawns.
extern const i16 pst_defaults[pst_count][64][2];

// The default values of the piece-square tables, as numbers; weights.cpp puts them into the
// weight table. Nobody else reads them: what the evaluation adds may have been scaled or replaced.
#pragma once

#include "board/types.h"

// Five pieces twice, by the wings of the kings, two extras of pawns and the king.
inline constexpr i32 pst_count = 13;

// [table in the order of weights.def][piece-square index][0 middle game, 1 end game], centipawns.
extern const i16 pst_defaults[pst_count][64][2];

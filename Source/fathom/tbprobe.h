// Endgame tables: answers for the search and the root.
#pragma once

#include "board/position.h"

// Result for the side to move: 0 loss, 1 loss saved by the fifty-move rule, 2 draw, 3 win
// spoiled by it, 4 win; -1 if there is no answer. Applies the piece and depth limits itself.
i32 tb_probe_search(Position* pos, i32 depth);

// The root's probe: result as above, also stored in wdl, with distance and a move; -1 if none.
i32 tb_probe_root(Position* pos, u32* wdl, u32* dtz, u16* move);

// The static evaluation.
#pragma once

#include "board/position.h"

// Returned for a side to move in check: no score.
inline constexpr i32 no_eval = -10001;

// Evaluates thread->pos in centipawns, positive when side stands better; every caller passes the
// side to move. ply (1 to ply_count - 1): where danger is written; the caches answer only from
// ply 2 on. in_check nonzero returns no_eval and touches nothing but the call counter. trace 1
// prints the score table, 2 also all weights. Plain material (drawn, or a lone king with a rule
// of its own) is judged without touching danger or the caches.
i32 evaluate(SearchThread* thread, i32 side, i32 ply, i32 in_check, i32 trace);

// Prints how the score of the evaluation just made came about. tapered is the score from white's
// view before contempt, scale the scale factor.
void print_eval_trace(const EvalWork* work, i32 tapered, f32 scale);

// Blends the halves of a score pair by phase (0 middle game, 1 end game), truncated toward zero.
i32 taper(i32 word, f32 phase);

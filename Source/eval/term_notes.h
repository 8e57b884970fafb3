// What the tuning build learns from an evaluation: how often each weight counts in the position.
// All of it is nothing in the normal build.
#pragma once

#include "eval/eval_state.h"

// From this ply on the caches answer, so that an evaluation may not run all of its terms.
inline constexpr i32 first_cached_ply = 2;

// Notes that the account of side gets weight count times, or that part of it.
inline void note_term([[maybe_unused]] EvalWork* work, [[maybe_unused]] i32 side,
    [[maybe_unused]] i32 weight, [[maybe_unused]] f32 count, [[maybe_unused]] bool is_fraction)
{
#if defined(VESK_TUNE)
    TermNotes* notes = &work->notes;
    if (work->ply < first_cached_ply && count != 0.0f && notes->count < most_term_notes) {
        notes->list[notes->count++] = { weight, side == White ? count : -count };
        notes->fractions += is_fraction;
    }
#endif
}

// Empties the notes; an evaluation of the console's record also empties coef of all weights.
void clear_notes(EvalWork* work);

// Adds the scale factors to the notes: the one that was taken, and those with white or black ahead.
// An evaluation of the console's record also fills coef: the derivative of its score from white's
// view by the weight, to be multiplied by the share of the phase: 1 - phase for mg and phase for
// eg. scale is the factor that was taken; it counts as constant, though it jumps where a change of
// the weights turns the sign of the score.
void publish_notes(EvalWork* work, f32 scale, const f32 scale_ahead[2]);

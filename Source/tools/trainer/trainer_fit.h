// The factor of the logistic that fits the results best: how much a centipawn of this evaluation is
// worth in these games.
#pragma once

#include "tools/trainer/trainer_steps.h"

// Results by the score that the evaluation gives, in whole centipawns from white's view. Counts are
// in units of a fixed size, so that their sums are the same in whatever order they are made.
inline constexpr i32 largest_fitted_score = 4000; // beyond it a game is as good as decided
struct ScoreCounts {
    i64 all[2 * largest_fitted_score + 1]; // emphasis of the positions
    i64 won[2 * largest_fitted_score + 1]; // the share of it that white has won
};

// The factor for which the results are most likely; 0 if there is none from the least to the
// largest that makes sense.
[[nodiscard]] f32 fit_factor(const ScoreCounts* counts);

// Counts the results of the training part by the scores of the start weights. Returns the factor,
// or 0 after a message and with exit_status 1 if there is none; 0 without a message if the sweep
// was broken off, by goes_on or for a reason that the data tells.
[[nodiscard]] f32 fit_to_results(Trainer* trainer, bool (*goes_on)());

// The factor of the logistic that fits results best: how much a centipawn is worth in the games
// that they are of.
#pragma once

#include "base/types.h"

// Results by score, in whole centipawns, both from the same view. Counts are in units of a fixed
// size, so that their sums are the same in whatever order they are made.
inline constexpr i32 largest_fitted_score = 4000; // beyond it a game is as good as decided
struct ScoreCounts {
    i64 all[2 * largest_fitted_score + 1]; // emphasis of the positions
    i64 won[2 * largest_fitted_score + 1]; // the share of it that is won
};

// The counts of a position with this emphasis, or with this share of a win.
[[nodiscard]] i64 score_units(f64 value);

// The factor for which the results are most likely; 0 if there is none from the least to the
// largest that makes sense.
[[nodiscard]] f32 fit_factor(const ScoreCounts* counts);

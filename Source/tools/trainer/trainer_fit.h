// The factor of the logistic that fits the results best: how much a centipawn of this evaluation is
// worth in these games.
#pragma once

#include "tools/score_fit.h"
#include "tools/trainer/trainer_steps.h"

// Counts the results of the training part by the scores of the start weights. Returns the factor,
// or 0 after a message and with exit_status 1 if there is none; 0 without a message if the sweep
// was broken off, by goes_on or for a reason that the data tells.
[[nodiscard]] f32 fit_to_results(Trainer* trainer, bool (*goes_on)());

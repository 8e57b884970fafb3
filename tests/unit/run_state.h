// The state of a process that tests and fuzz targets set anew before each case.
#pragma once

#include "shell/dialogue.h"

// The dialogue of all tests.
extern Dialogue dialogue;

// Sets the dialogue and everything that a search is told to what they are in a new process. The
// game, the workers and the tables stay.
void reset_run_state();

// Builds the weights from the options, as before a search: empties all evaluation caches. mode is
// that of init_eval_params.
void build_weights(WeightMode mode);

// Evaluates the position of a thread for side as a node at ply does, which gets the danger.
i32 evaluate_at(SearchThread* thread, i32 side, i32 ply, i32 in_check);

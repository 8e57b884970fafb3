// The state of a training, as its report needs it.
#pragma once

#include "tools/trainer/training_data.h"

// What belongs to one weight while it is trained: mg first, then eg.
struct TrainedWeight {
    f64 value[2];
    f64 old[2];      // before the training
    f64 best[2];     // at the pass with the least error
    f64 mean[2];     // running mean of the gradient
    f64 square[2];   // running mean of its square
    f64 gradient[2]; // of the last batch in which the weight counted
};

// Writes tune_report.txt and tune_report.csv: each weight's old and new value, in how many
// positions it counted, and its last gradient. Tells standard error and exit_status if that fails.
void write_tune_reports(const TrainedWeight* weights, const i64* counts);

// Whether the reports could be written now and would not replace the input. Returns false after a
// message and with exit_status 1.
bool reports_can_be_written(const ToolInput* input);

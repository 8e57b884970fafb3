// What a training has done to the weights, for people and for programs.
#pragma once

#include "tools/trainer/trainer_steps.h"

// Writes tune_report.txt and tune_report.csv: each weight's old and new value, in how many
// positions it counted, and its last gradient. Tells standard error and exit_status if that fails.
// counts holds the positions in which each weight counted. The new values are those of the table,
// so set_weight comes first.
void write_tune_reports(const TrainedWeight* weights, const i64* counts);

// Whether the reports could be written now and would not replace the input. Returns false after a
// message and with exit_status 1. Leaves no file behind.
[[nodiscard]] bool reports_can_be_written(const ToolInput* input);

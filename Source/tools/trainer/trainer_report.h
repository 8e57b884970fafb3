// What a training has done to the weights, for people and for programs.
#pragma once

#include "tools/tool_input.h"
#include "tools/trainer/trainer_prior.h"

// The errors of the passes as a table, written while the training goes on.
struct ErrorTable {
    OutputFile out;
    bool is_open;
};

// One row of it.
struct PassErrors {
    i64 pass;
    f64 rate;
    f64 training;
    f64 validation; // that of training where has_validation is false
    bool has_validation;
    bool is_best; // so far
};

// Begins tune_errors.csv under its unfinished name. Without it the training goes on, and standard
// error and exit_status tell.
void begin_errors(ErrorTable* table);

// Adds a row. counts as for write_tune_reports: the change of the weights that count is told too.
void add_errors(
    ErrorTable* table, const PassErrors* row, const TrainedWeight* weights, const i64* counts);

// Gives the table its name, or tells what kept it from being whole.
void finish_errors(ErrorTable* table);

// Writes tune_report.txt and tune_report.csv: each weight's old and new value, in how many
// positions it counted, and its last gradient. Tells standard error and exit_status if that fails.
// counts holds the positions in which each weight counted. The new values are those of the table,
// so set_weight comes first.
void write_tune_reports(const TrainedWeight* weights, const i64* counts);

// Whether the reports could be written now and would not replace the input. Returns false after a
// message and with exit_status 1. Leaves no file behind.
[[nodiscard]] bool reports_can_be_written(const ToolInput* input);

// What the tuner is asked for, and what a training has done to the weights, as its report needs it.
#pragma once

#include "shell/dialogue.h"
#include "tools/trainer/training_data.h"

// What belongs to one weight while it is trained: mg first, then eg. Values are centipawns and stay
// unrounded until they are written: a step is a fraction of one. Gradients are means over a batch.
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
// counts holds the positions in which each weight counted. The new values are those of the table,
// so set_weight comes first.
void write_tune_reports(const TrainedWeight* weights, const i64* counts);

// Whether the reports could be written now and would not replace the input. Returns false after a
// message and with exit_status 1. Leaves no file behind.
[[nodiscard]] bool reports_can_be_written(const ToolInput* input);

// What vesk-tune is asked for. Names of weights to train go to tune_names; without any all are
// trained. Written while the command line is read, read by the training.
struct TuneOptions {
    const char* file; // the training file; null if no training was asked for
    f64 rate;         // greatest change of a weight by one step, centipawns
    i64 passes;       // over the file, at most
    i64 validation;   // per cent of the lines that only measure the error
    i64 patience;     // passes without a better validation error before the end; 0 never
    i64 seed;         // chooses the validation lines
    i64 memory;       // megabytes for positions; beyond it the file is read again
    i64 save_every;   // positions between two writings of the weights file; 0 never
    bool resume;      // go on from the weights file that is there
};
extern TuneOptions tune_options;

// Takes what belongs to the tuner from the start of count arguments: an option with its value, or
// -tune with its file and all names behind it. Returns how many arguments were taken, 0 if the
// first is not the tuner's, or -1 after telling standard error what is wrong. Changes tune_options
// and tune_names at once, so what stands before an error has been applied.
[[nodiscard]] i32 take_tune_arguments(char* const* arguments, i32 count);

// Trains the weights as tune_options say and writes the weights file and the reports. Sets
// exit_status to 1 if input was refused or something could not be written. Main thread; no worker
// may be searching, as their records are used for the evaluations.
void run_trainer(Dialogue* dialogue);

// What the trainer is asked for on the command line.
#pragma once

#include "base/types.h"

// What vesk-tune is asked for. Names of weights to train go to tune_names; without any all are
// trained. Written while the command line is read, read by the training.
struct TuneOptions {
    const char* file; // the training file, or the one that shards are merged into; null for neither
    char* const* shards; // files to be merged; null for a training
    i32 shard_count;
    bool replaces;   // a merge may take the place of an older file
    f64 rate;        // greatest change of a weight by one step, centipawns
    f64 decay;       // per cent by which the rate falls from pass to pass
    f64 pull;        // positions that a weight's start value is worth; 0 for none
    f64 smooth;      // positions that the likeness of neighbouring squares is worth; 0 for none
    f64 score_share; // of the target, where a line has both score and result
    f64 late;        // how much the barest ending counts; the fullest board counts 1
    f64 near_draw;   // score at which a position counts half, centipawns; 0: all alike
    bool fits_scale; // the factor of the logistic is fitted to the results first
    i64 passes;      // over the file, at most
    i64 validation;  // per cent of the lines that only measure the error
    i64 patience;    // passes without a better validation error before the end; 0 never
    i64 seed;        // chooses the validation lines
    i64 memory;      // megabytes for positions; beyond it the file is read again
    i64 save_every;  // positions between two writings of the weights file; 0 never
    bool resume;     // go on from the weights file that is there
};
extern TuneOptions tune_options;

// Tells the settings of the training to standard output, in words.
void print_tune_settings();

// Takes what belongs to the tuner from the start of count arguments: an option with its value, or
// -tune with its file and all names behind it. Returns how many arguments were taken, 0 if the
// first is not the tuner's, or -1 after telling standard error what is wrong. Changes tune_options
// and tune_names at once, so what stands before an error has been applied.
[[nodiscard]] i32 take_tune_arguments(char* const* arguments, i32 count);

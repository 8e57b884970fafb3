// The line on a terminal that tells how far a run has come.
#pragma once

#include <string>
#include <vector>

#include "base/types.h"
#include "data/arguments.h"

// How far a run has come. Kept by one thread.
struct RunProgress {
    bool on = false;
    bool visible = false; // a line is to be taken away before others are printed
    f64 started = 0.0;    // of the stage, monotonic seconds
    f64 due = 0.0;        // when the line is to be shown again
    i64 total = 0;        // of the stage, in the unit of its positions; 0 where it is not known
};

// Starts it, and its first stage. It shows nothing where standard error is no terminal, the user
// wants none, or what the run writes comes to a terminal at the same time: writes tells whether it
// writes anything before its end. total: bytes of all inputs, or whatever else the positions count;
// 0 where that is not known.
void start_run_progress(RunProgress* progress, const CommonOptions& common, i64 total, bool writes);

// Starts the next stage of a run that works in several, each with a rate, a share and an end of its
// own, since nothing tells how long a stage takes beside the one before.
void start_progress_stage(RunProgress* progress, i64 total);

// Shows "WHAT count, rate, share, time left" a few times a second; position tells how much of the
// stage's total is done.
void show_run_progress(RunProgress* progress, const char* what, i64 count, i64 position);

// The same in a stage whose total counts what is told: entries, positions.
void show_stage_progress(RunProgress* progress, const char* what, u64 done);

// Takes the line away, before others are printed and at the end.
void hide_run_progress(RunProgress* progress);

// Bytes of all these files, of standard input what is still to be read; 0 if one is no regular
// file. A file that is not there has none: it will be told of, and the others are read.
[[nodiscard]] i64 total_size(const std::vector<std::string>& files);

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
    f64 started = 0.0;    // monotonic seconds
    f64 due = 0.0;        // when the line is to be shown again
    i64 total = 0;        // bytes of all files; 0 where that is not known
};

// Starts it. It shows nothing where standard error is no terminal or the user wants none. total is
// the number of bytes of all inputs, 0 where one of them is not known.
void start_run_progress(RunProgress* progress, const CommonOptions& common, i64 total);

// Shows "WHAT count, rate, share, time left" a few times a second; position counts the bytes of the
// inputs that are done.
void show_run_progress(RunProgress* progress, const char* what, i64 count, i64 position);

// Takes the line away, before others are printed and at the end.
void hide_run_progress(RunProgress* progress);

// Bytes of all these files, 0 if one is not a regular file.
[[nodiscard]] i64 total_size(const std::vector<std::string>& files);

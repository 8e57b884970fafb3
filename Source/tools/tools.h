// Entry points of the offline tools, for the run modes and the console.
#pragma once

#include "board/types.h"

struct Position;

// Searches the first count (at most 20) benchmark positions and prints time and node totals.
void run_benchmark(i32 count);

// Runs the test positions of epd_file.
void run_epd_test();

// Turns a PGN file into positions, in one of the forms 1 to 4.
void scan_pgn(const char* file_name, i32 form);

// Writes tuning data made from the positions of path.
void make_tune_file(const char* path);

// One gradient step of the tuner at pos. target is the wanted result in 0..1 from the side to
// move's view. Returns the evaluation before the step.
i32 tune_step(Position* pos, f32 target, f32 rate);

// Trains the weights on the positions of path.
void train_epd(const char* path, i32 method, i64 limit, f64 rate);

// Entry points of the offline tools, for the run modes and the console. All of them work on
// the main thread and on the console's game. Files that they write lie in the current folder.
#pragma once

#include <span>

#include "shell/console.h"

// Searches the first count (at most 20) benchmark positions and prints time and node totals; the
// program is to end then. single: on the calling thread, all to one depth, for a profile.
void run_benchmark(Dialogue* dialogue, i32 count, bool single);

// Runs the test positions of a file, and writes the engine's own findings to analysis.epd.
void run_epd_test(Dialogue* dialogue, const char* file_name);

// Turns a PGN file into positions, in one of the forms 1 to 4 of ScanForm: tmp.pgn or tmp.epd, and
// tmpX.epd.
void scan_pgn(Dialogue* dialogue, const char* file_name, i32 form);

// Writes tuning data made from the positions of path to tune_new.epd.
void make_tune_file(Dialogue* dialogue, const char* path);

// Positions that were trained on, and the sum of their errors, from the start of train_epd on.
// Written by the step tuner and train_epd, read by its reports; both on the main thread.
extern i64 samples;
extern f64 err_sum;

// One gradient step of the step tuner at pos, which must be the position of its thread. target is
// the wanted result in 0..1 from the side to move's view. Returns the evaluation before the step.
i32 tune_step(Position* pos, f32 target, f32 rate);

// The same, counted in samples and err_sum.
i32 tune_sampled_step(Position* pos, f32 target, f32 rate);

// Takes steps along one random line of at most depth moves from pos, each towards the position's
// own evaluation. index is the ply of the move list, 1 at the root, as thread->ply. Returns the
// score of the line's end from the side to move's view, 0 if the material has become one-sided,
// 1 - ScoreMate where there is no legal move.
i32 tune_sample(Position* pos, i32 index, u32 depth, f32 rate);

// Walks the training file path pass by pass until the user quits. With method 1 it
// trains: it measures the error of the evaluation, takes a step per position and writes the weights
// file, and ends when samples has reached limit. A missing file ends it without a word. Leaves
// dialogue->limits.depth_limit, noise and the option Hash changed. Console's position, main thread,
// workers idle.
void train_epd(Dialogue* dialogue, const char* path, i32 method, i64 limit, f64 rate);

// Writes the weights to a file. Returns whether that went well; if not it is told to standard error
// and exit_status is 1.
bool write_weights(const char* file_name);

// The words that the tools add to the console's.
std::span<const ConsoleWord> console_tool_words();

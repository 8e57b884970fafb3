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

// Positions that were trained on, and the sum of their errors; they live as long as the process.
extern i64 samples;
extern f64 err_sum;

// One gradient step of the tuner at pos, which must be the position of its thread. target is the
// wanted result in 0..1 from the side to move's view. Returns the evaluation before the step.
i32 tune_step(Position* pos, f32 target, f32 rate);

// The same, counted in samples and err_sum.
i32 tune_sampled_step(Position* pos, f32 target, f32 rate);

// Takes steps along one random line of at most depth moves from pos, each towards the position's
// own evaluation. index is the ply of the move list, 1 at the root, as thread->ply. Returns the
// score of the line's end from the side to move's view, 0 if the material has become one-sided,
// -9999 where there is no legal move.
i32 tune_sample(Position* pos, i32 index, u32 depth, f32 rate);

// Walks the training file path pass by pass until quit_flag is set. With method 1 it trains: it
// measures the error of the evaluation, takes a step per position and writes the weights file, and
// ends when samples has reached limit. A missing file ends it without a word. Leaves depth_limit,
// noise and the option Hash changed. Console's position, main thread, workers idle.
void train_epd(const char* path, i32 method, i64 limit, f64 rate);

// Writes the weights file. Returns whether that went well; if not it is told to standard error and
// exit_status is 1.
bool write_weights();

// ---- The trainer of the tuning build

// What vesk-tune is asked for. Names of weights to train go to tune_list.
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
// first is not the tuner's, or -1 after telling standard error what is wrong.
i32 take_tune_arguments(char* const* arguments, i32 count);

// Trains the weights as tune_options say and writes the weights file and the reports. Sets
// exit_status to 1 if input was refused or something could not be written.
void run_trainer();

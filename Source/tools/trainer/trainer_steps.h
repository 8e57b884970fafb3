// The state of a training and its steps. A step reads the sums of one batch in the order of its
// chunks, so that it is the same whatever thread summed which.
#pragma once

#include "tools/trainer/team.h"
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

// Both values of a weight, or both halves of its gradient, as the sums over positions need them:
// narrow, since a pass reads them for each term of each position.
struct FloatPair {
    f32 mg;
    f32 eg;
};

// What one chunk adds to the step of its batch. The error is a sum of squares, wide, as it is added
// up over a whole pass.
struct ChunkSums {
    f64 error;
    FloatPair gradient[weight_count];
};

// One training. Written by the main thread; while a team runs, each part writes its own sums and
// nothing else.
struct Trainer {
    TrainingData data;
    Team team;
    // Indexed as eval_params.
    TrainedWeight weights[weight_count];
    FloatPair values[weight_count]; // of the weights, for the sums
    ChunkSums sums[batch_chunks];
    i64 counts[weight_count]; // positions in which a weight counts
    // Taken since the start, for the running means.
    i64 steps;
    // The one that runs, from 0 on.
    i64 pass;
    i64 unsaved; // positions trained on since the weights were written
    // Of the pass best_pass, by which others are measured.
    f64 best_error;
    i64 best_pass;
    f64 pass_seconds; // of the last whole pass
    // What sum_chunk works on: the batch, its part, and whether the gradient is wanted too.
    const Chunk* batch;
    Part part;
    bool learns;
    bool failed;              // a sweep lacked positions
    bool has_file;            // the weights file is this training's to replace
    const char* weights_name; // of the file that the weights go to
};

// The job of a team: sums up chunk number index of the trainer's batch, into the sums of the same
// number. context is the trainer.
void sum_chunk(void* context, i32 worker, i32 index);

// Makes the values for the sums of those that the weights have.
void copy_values(Trainer* trainer);

// One step of all weights by the batch just summed up, which has so many positions (not 0).
void take_step(Trainer* trainer, i64 positions);

// The state of a training and its steps. A step reads the sums of one batch in the order of its
// chunks, so that it is the same whatever thread summed which.
#pragma once

#include "tools/trainer/team.h"
#include "tools/trainer/trainer_prior.h"
#include "tools/trainer/trainer_report.h"
#include "tools/trainer/training_data.h"

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
    f64 emphasis; // sum over the positions
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
    Prior prior;
    f32 factor; // of the logistic, per centipawn
    f64 rate;   // of the pass that runs, centipawns
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
    ErrorTable errors;
    bool failed;              // a sweep lacked positions
    bool has_file;            // the weights file is this training's to replace
    const char* weights_name; // of the file that the weights go to
};

// The job of a team: sums up chunk number index of the trainer's batch, into the sums of the same
// number. context is the trainer.
void sum_chunk(void* context, i32 worker, i32 index);

// The score before its scale, centipawns from white's view. Two sums for each half, since one would
// wait for its own last term.
inline f32 unscaled_score(
    const TrainingPosition* position, const u32* terms, const FloatPair* values)
{
    FloatPair sums[2] = {};
    for (u32 i = 0; i < position->terms; ++i) {
        const FloatPair* value = &values[term_weight(terms[i])];
        const f32 coef = term_coef(terms[i]);
        sums[i & 1].mg += coef * value->mg;
        sums[i & 1].eg += coef * value->eg;
    }
    return position->fixed + (1.0f - position->phase) * (sums[0].mg + sums[1].mg)
        + position->phase * (sums[0].eg + sums[1].eg);
}

// The scale of such a score. The side ahead before scaling chooses it: a factor never turns the
// score round.
inline f32 scale_of(const TrainingPosition* position, f32 unscaled)
{
    return position->scale[unscaled > 0.0f ? White : Black];
}

// Makes the values for the sums of those that the weights have.
void copy_values(Trainer* trainer);

// One step of all weights by the batch just summed up, whose positions count so much together (not
// 0).
void take_step(Trainer* trainer, f64 emphasis);

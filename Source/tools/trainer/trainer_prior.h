// What is believed of the weights before a game is seen: that they lie near their start, and that
// neighbours of a table move alike. Both are worth a number of positions, so that a weight which
// counts often goes where the games want it, and one which rarely counts stays.
#pragma once

#include "eval/weights.h"

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

// Two weights that lie beside each other.
struct Neighbours {
    i16 first;
    i16 second;
};

// Of a table each square has one to the right and one above, of an array each rank the next.
inline constexpr i32 most_neighbours = 2 * weight_count;

struct Prior {
    // Gradients of a centipawn's distance, in the unit of those of a batch.
    f64 pull;
    f64 smooth;
    i32 count;
    Neighbours list[most_neighbours];
    f64 gradient[weight_count][2]; // of the whole, by weight
};

// Sets up a prior in which the start of a weight is worth pull positions and the likeness of two
// neighbours smooth of them, among so many positions that train. A position has the worth of one in
// which the weight counts once, with a factor of the logistic, at an even score: with more it would
// take more of them to move the weight. Weights that no position of counts has are neither moved
// nor anybody's neighbours.
void init_prior(Prior* prior, f64 pull, f64 smooth, f64 factor, i64 positions, const i64* counts);

// Works out the gradient for the values that the weights have.
void sum_prior(Prior* prior, const TrainedWeight* weights);

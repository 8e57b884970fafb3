// One step of a training: the sums over the chunks of a batch, and the change of the weights by
// them. Every sum has a fixed order, so that a training can be repeated to the last digit.
#include "tools/trainer/trainer_steps.h"

#include <cmath>
#include <cstring>

#include "base/rounding.h"
#include "board/types.h"

// Of the steps: how much of the running means a step keeps. The last one slows down weights that
// count less than once in a batch, whose mean square would be near nothing.
static constexpr f64 mean_decay = 0.9;
static constexpr f64 square_decay = 0.999;
static constexpr f64 least_gradient = 1e-4;

static constexpr f64 largest_weight = 9999.0; // centipawns; keeps sums within 16 bits

// ---- The sum over a chunk

// Adds a position's part of the gradient; slope is the error times scale and
// emphasis. The slope of the
// sigmoid itself is left out, as in the gradient of the likelihood: positions that are judged
// wholly wrong then pull hardest.
static void add_gradient(
    const TrainingPosition* position, const u32* terms, f32 slope, FloatPair* gradient)
{
    const f32 mg = slope * (1.0f - position->phase);
    const f32 eg = slope * position->phase;
    for (u32 i = 0; i < position->terms; ++i) {
        FloatPair* sum = &gradient[term_weight(terms[i])];
        const f32 coef = term_coef(terms[i]);
        sum->mg += coef * mg;
        sum->eg += coef * eg;
    }
}

// Reads the records of one part, one behind the other.
void sum_chunk(void* context, i32, i32 index)
{
    Trainer* trainer = static_cast<Trainer*>(context);
    const Chunk* chunk = &trainer->batch[index];
    ChunkSums* sums = &trainer->sums[index];
    *sums = {};
    const u32* words = chunk->words[trainer->part];
    for (i32 i = 0; i < chunk->positions[trainer->part]; ++i) {
        TrainingPosition position;
        memcpy(&position, words, sizeof position);
        const u32* terms = words + position_words;
        words = terms + position.terms;
        const f32 unscaled = unscaled_score(&position, terms, trainer->values);
        const f32 scale = scale_of(&position, unscaled);
        const f32 error = sigmoid(unscaled * scale, trainer->factor) - position.target;
        const f64 emphasis = static_cast<f64>(position.emphasis);
        sums->error += static_cast<f64>(error) * static_cast<f64>(error) * emphasis;
        sums->emphasis += emphasis;
        if (trainer->learns) {
            add_gradient(&position, terms, error * scale * position.emphasis, sums->gradient);
        }
    }
}

// ---- Steps

// Moves one half of a weight against its gradient. correction makes up for the running means having
// begun at 0. No weight leaves the range in which sums of weights fit.
static void move_half(
    TrainedWeight* weight, i32 half, f64 gradient, const f64* correction, f64 rate)
{
    f64* mean = &weight->mean[half];
    f64* square = &weight->square[half];
    *mean = mean_decay * *mean + (1.0 - mean_decay) * gradient;
    *square = square_decay * *square + (1.0 - square_decay) * gradient * gradient;
    const f64 step = *mean * correction[0] / (std::sqrt(*square * correction[1]) + least_gradient);
    const f64 moved = weight->value[half] - rate * step;
    weight->value[half] = std::fmin(std::fmax(moved, -largest_weight), largest_weight);
}

// The gradient of a weight over the batch, chunk by chunk. Wide, since some thousand positions may
// cancel out.
static void sum_gradient(const Trainer* trainer, i32 weight, f64* gradient)
{
    gradient[0] = 0.0;
    gradient[1] = 0.0;
    for (const ChunkSums& sums : trainer->sums) {
        gradient[0] += static_cast<f64>(sums.gradient[weight].mg);
        gradient[1] += static_cast<f64>(sums.gradient[weight].eg);
    }
}

// Once a step: the sums read narrow values.
void copy_values(Trainer* trainer)
{
    for (i32 i = 0; i < weight_count; ++i) {
        trainer->values[i] = { to_f32(trainer->weights[i].value[0]),
            to_f32(trainer->weights[i].value[1]) };
    }
}

// One step of all weights by the batch just summed up, by its mean gradient: a short last batch
// steps as far as a full one. Entry 0 anchors the scale. Weights that no position has met rest; one
// that was met goes on with its running mean through batches without it. What the weights owe to
// their start is taken before any of them moves; reports know nothing of it.
void take_step(Trainer* trainer, f64 emphasis)
{
    ++trainer->steps;
    sum_prior(&trainer->prior, trainer->weights);
    const f64 count = static_cast<f64>(trainer->steps);
    const f64 correction[2] = { 1.0 / (1.0 - std::pow(mean_decay, count)),
        1.0 / (1.0 - std::pow(square_decay, count)) };
    for (i32 i = 1; i < weight_count; ++i) {
        TrainedWeight* weight = &trainer->weights[i];
        f64 gradient[2];
        sum_gradient(trainer, i, gradient);
        for (i32 half = 0; half < 2; ++half) {
            gradient[half] /= emphasis;
            if (gradient[half] != 0.0) {
                weight->gradient[half] = gradient[half];
            }
            if (weight->gradient[half] != 0.0) {
                move_half(weight, half, gradient[half] + trainer->prior.gradient[i][half],
                    correction, trainer->rate);
            }
        }
    }
    copy_values(trainer);
}

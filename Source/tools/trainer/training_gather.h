// From a training line to a position of the trainer: what the evaluation does with the weights
// there, as a short list of numbers, so that the score for any weights is a sum.
#pragma once

#include "board/position.h"
#include "eval/weights.h"
#include "tools/line_judge.h"
#include "tools/training_line.h"

// A position, followed by its terms. The score from white's view is
//   scale * (fixed + sum of coef * ((1 - phase) * mg + phase * eg))
// with the scale of the side that this puts ahead. It leaves out that the evaluation cuts off the
// fractions of parts of weights and of the blend.
struct TrainingPosition {
    u16 terms;    // words behind this record, one for each trained weight that counts
    i16 score;    // of the line, centipawns from white's view; no_score if it has no part in the
                  // target
    f32 target;   // wanted result from white's view, 0 to 1; before settle_target the game's alone
    f32 emphasis; // how much the position counts
    f32 phase;
    f32 fixed;    // what the weights that are not trained add
    f32 scale[2]; // with white or with black ahead
};
inline constexpr u32 position_words = sizeof(TrainingPosition) / sizeof(u32);

// A term: the weight in the low ten bits, above them coef in steps of 2^-14, up to +-128.
inline constexpr i32 weight_bits = 10;
inline constexpr f32 coef_step = 1.0f / 16384;
static_assert(weight_count <= 1 << weight_bits && weight_count < 65536);

inline constexpr i32 term_weight(u32 term)
{
    return static_cast<i32>(term & ((1u << weight_bits) - 1));
}

inline constexpr f32 term_coef(u32 term)
{
    return static_cast<f32>(static_cast<i32>(term) >> weight_bits) * coef_step;
}

// How far scores that are rebuilt from coefficients lie from those of the evaluation.
struct RebuiltCheck {
    i64 positions;
    f64 largest; // difference, centipawns
    f64 bound;   // what was allowed where it was largest
    bool failed; // one was beyond its bound
};

// What the operands of a line make up of a target, and how much its position counts.
struct TargetRule {
    f64 score_share; // of the target, where a line has both score and result
    f64 late;        // emphasis of the barest ending; the fullest board has 1
    f64 near_draw;   // score that halves the emphasis, centipawns; 0: none does
    f32 factor;      // of the logistic, per centipawn
    bool fits;       // the factor is fitted first
    bool is_raw;     // and is not known yet: records keep score and result apart
};

// What a user gets who sets nothing.
inline constexpr TargetRule usual_rule = { score_share, 1.0, 0.0, usual_factor, false, false };

// One gatherer's means; each thread has its own.
struct Gatherer {
    TargetRule rule;
    SearchThread* thread;
    f32 sums[weight_count];
    bool is_touched[weight_count];
    i32 touched[weight_count];
    i64 counts[weight_count]; // positions in which a weight counts
    RebuiltCheck check;
};

// The most words that a position can take.
inline constexpr u32 most_position_words = position_words + weight_count;

// Makes the target of a raw record out of its score and its result.
void settle_target(TrainingPosition* position, const TargetRule* rule);

// Turns a line (NUL at its end, no line feed) into a record with its terms at out, which holds
// most_position_words. Returns LineUsed, or why there is none. words gets the number of words
// written. check compares the score with that of the evaluation.
LineVerdict gather_line(Gatherer* gatherer, const char* line, bool check, u32* out, u32* words);

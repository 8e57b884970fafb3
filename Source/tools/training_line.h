// Lines of training files: EPD with a score (ce) and the result of the game, in one of three forms:
//   gr 0.5;         from the view of the side to move, 0 to 1
//   c9 "1-0";       from white's view; also 0-1 and 1/2
//   [1.0]           from white's view; also [0.0], anything else is a draw
// Source of the line format: Extended Position Description.
#pragma once

#include <cmath>

#include "base/rounding.h"
#include "board/types.h"

inline constexpr i32 training_line_length = 254;    // longer lines are none
inline constexpr i32 largest_training_score = 5000; // of ce, either sign
inline constexpr f64 no_result = -9.0;

// What the game's result and its expectation by the score make up of a target.
inline constexpr f64 result_share = 0.9;
inline constexpr f64 score_share = 0.1;

// How steeply the expected result rises with the score, per centipawn.
inline constexpr f32 usual_factor = 0.007f;

// The expected result, 0 to 1, of a score in centipawns: with the usual factor 0.67 for a pawn,
// 0.94 for four. The product is taken in float: with double the last digits of trained weights
// would differ.
inline f32 sigmoid(f32 score, f32 factor = usual_factor)
{
    return to_f32(1.0 / (1.0 + std::exp(static_cast<f64>(-factor * score))));
}

// The mean of a result and of the expectation that a score stands for, by their shares. Fused, on
// every machine: whether a compiler fuses by itself depends on the processor.
inline f32 blend_target(f64 result, f32 expected)
{
    return to_f32(std::fma(result_share, result, score_share * static_cast<f64>(expected)));
}

// The result that gr or c9 tell, c9 before gr, from the view of side, the side to move. A c9 of
// no known result is what gr left, but turned all the same. no_result if neither is there.
[[nodiscard]] f64 read_result(const char* line, i32 side);

// Whether c9 is there and names a result.
[[nodiscard]] bool names_result(const char* line);

// The result in brackets from the view of side. Returns false if there is no bracket.
[[nodiscard]] bool read_bracket_result(const char* line, i32 side, f64* result);

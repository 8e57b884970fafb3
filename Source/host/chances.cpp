// The curve of the chances and its two numbers.
#include "host/chances.h"

#include <cmath>

// The chance of a win at a score is a logistic curve around the score at which half the games are
// won. Both numbers are centipawns, fitted by bench/fit_chances.py to 31,450 positions of 300 games
// of the engine against itself at 8000 nodes a move.
static constexpr f64 even_chance_score = 134.0;
static constexpr f64 spread = 134.0;

static i32 chance_of_win(f64 score)
{
    return static_cast<i32>(lround(1000.0 / (1.0 + exp((even_chance_score - score) / spread))));
}

Chances chances_of_score(i64 centipawns)
{
    const f64 score = static_cast<f64>(centipawns);
    const i32 win = chance_of_win(score);
    const i32 loss = chance_of_win(-score);
    return { win, 1000 - win - loss, loss };
}

Chances chances_of_mate(i64 moves)
{
    return moves > 0 ? Chances { 1000, 0, 0 } : Chances { 0, 0, 1000 };
}

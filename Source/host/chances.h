// What a score says about the result of a game.
#pragma once

#include "base/types.h"

// Per mille; they add up to 1000.
struct Chances {
    i32 win;
    i32 draw;
    i32 loss;
};

// Chances of the side that a score, in centipawns, is from the view of.
[[nodiscard]] Chances chances_of_score(i64 centipawns);

// Chances of the side that mates in so many moves, or is mated for a negative number.
[[nodiscard]] Chances chances_of_mate(i64 moves);

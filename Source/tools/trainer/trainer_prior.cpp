// Gaussian priors as gradients. The likelihood of one position with an even score curves by a
// quarter of the factor for each centipawn, in the unit in which the trainer sums gradients; a
// prior of n positions curves n times as much. Smoothness speaks of the changes, not of the values:
// what the start knows of a single square is kept.
#include "tools/trainer/trainer_prior.h"

#include <cstring>
#include <initializer_list>

static constexpr f64 even_curvature = 0.25; // of the logistic, times its factor

// Whether a weight is one that games can move. Entry 0 anchors the scale.
static bool can_move(i32 weight, const i64* counts)
{
    return weight != mtl_pawn && eval_params[weight].frozen == 0 && counts[weight] > 0;
}

static void add_neighbours(Prior* prior, i32 first, i32 second, const i64* counts)
{
    if (can_move(first, counts) && can_move(second, counts)) {
        prior->list[prior->count++] = { static_cast<i16>(first), static_cast<i16>(second) };
    }
}

// Squares of the piece-square tables, and ranks of passed pawns.
static void list_neighbours(Prior* prior, const i64* counts)
{
    for (i32 weight = PST_P1; weight < weight_count; ++weight) {
        const i32 square = (weight - PST_P1) & 63;
        if ((square & 7) < 7) {
            add_neighbours(prior, weight, weight + 1, counts);
        }
        if (square < 56) {
            add_neighbours(prior, weight, weight + 8, counts);
        }
    }
    for (const i32 array : { ppawn, ppawn_mobile, ppawn_free }) {
        for (i32 rank = 0; rank < 7; ++rank) {
            add_neighbours(prior, array + rank, array + rank + 1, counts);
        }
    }
}

void init_prior(Prior* prior, f64 pull, f64 smooth, f64 factor, i64 positions, const i64* counts)
{
    *prior = {};
    const f64 worth = even_curvature * factor / static_cast<f64>(positions);
    prior->pull = pull * worth;
    prior->smooth = smooth * worth;
    if (smooth > 0.0) {
        list_neighbours(prior, counts);
    }
}

// How far one half of a weight has come.
static f64 change_of(const TrainedWeight* weight, i32 half)
{
    return weight->value[half] - weight->old[half];
}

void sum_prior(Prior* prior, const TrainedWeight* weights)
{
    if (prior->pull == 0.0 && prior->count == 0) {
        return;
    }
    for (i32 i = 0; i < weight_count; ++i) {
        for (i32 half = 0; half < 2; ++half) {
            prior->gradient[i][half] = prior->pull * change_of(&weights[i], half);
        }
    }
    for (i32 i = 0; i < prior->count; ++i) {
        const Neighbours pair = prior->list[i];
        for (i32 half = 0; half < 2; ++half) {
            const f64 apart = prior->smooth
                * (change_of(&weights[pair.first], half) - change_of(&weights[pair.second], half));
            prior->gradient[pair.first][half] += apart;
            prior->gradient[pair.second][half] -= apart;
        }
    }
}

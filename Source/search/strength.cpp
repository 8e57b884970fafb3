// A limit of strength is a limit of speed: fewer nodes a second play weaker, and the Elo of a rate
// is known from matches at fixed rates. The curve is a logarithm, since each doubling of the speed
// adds about the same, less a term that matters below some hundred nodes a second, where play falls
// apart faster than that.
#include "search/strength.h"

#include <cmath>

constinit StrengthLimit strength {};

// The search of a node rate by its Elo.
static constexpr struct {
    f64 lowest_nps = 10.0; // nodes a second
    f64 highest_nps = 10000000.0;
    f64 tolerance = 0.5;  // Elo
    i32 most_steps = 100; // an Elo outside the bounds never comes within tolerance
} strength_rules;

// The curve: Elo for each factor e of the node rate, Elo at a rate of one, and the loss at the slow
// end.
static constexpr struct {
    f64 elo_per_e = 144.0;
    f64 elo_at_one = 1014.0;
    f64 slow_loss = 3000.0;
} strength_curve;

f64 elo_of_nps(f64 nps)
{
    return strength_curve.elo_per_e * log(nps) + strength_curve.elo_at_one
        - strength_curve.slow_loss / (nps + 1.0);
}

// By halving: the curve only rises, and has no inverse that could be written down.
f64 nps_of_elo(i32 elo)
{
    f64 low = strength_rules.lowest_nps;
    f64 high = strength_rules.highest_nps;
    f64 nps = (low + high) / 2;
    for (i32 step = 0; step < strength_rules.most_steps; ++step) {
        nps = (low + high) / 2;
        const f64 difference = elo_of_nps(nps) - elo;
        if (fabs(difference) < strength_rules.tolerance) {
            break;
        }
        if (difference < 0) {
            low = nps;
        } else {
            high = nps;
        }
    }
    return nps;
}

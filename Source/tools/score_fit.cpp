// The likelihood of the results has one maximum, where its slope, which falls all the way, is zero.
#include "tools/score_fit.h"

#include <cmath>

#include "base/rounding.h"

static constexpr f64 count_unit = 1048576.0; // counts of one position with emphasis 1
static constexpr f64 least_factor = 0.0002;
static constexpr f64 largest_factor = 0.1;
static constexpr i32 halvings = 60; // to the last digit

i64 score_units(f64 value)
{
    return std::llround(value * count_unit);
}

// How the likelihood changes with the factor, up to a positive constant.
static f64 slope_at(const ScoreCounts* counts, f64 factor)
{
    f64 slope = 0.0;
    for (i32 i = 0; i <= 2 * largest_fitted_score; ++i) {
        const f64 score = i - largest_fitted_score;
        const f64 expected = 1.0 / (1.0 + std::exp(-factor * score));
        slope += score
            * (static_cast<f64>(counts->won[i]) - expected * static_cast<f64>(counts->all[i]));
    }
    return slope;
}

// A slope that does not change its sign between the ends has no zero there: results that are not
// of these scores, or too few.
f32 fit_factor(const ScoreCounts* counts)
{
    f64 low = least_factor;
    f64 high = largest_factor;
    if (slope_at(counts, low) <= 0.0 || slope_at(counts, high) >= 0.0) {
        return 0.0f;
    }
    for (i32 i = 0; i < halvings; ++i) {
        const f64 middle = 0.5 * (low + high);
        (slope_at(counts, middle) > 0.0 ? low : high) = middle;
    }
    return to_f32(low);
}

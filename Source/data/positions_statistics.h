// What positions are like as a whole: how far the games have gone, scores, and results, with the
// logistic that fits them.
#pragma once

#include <string>

#include "base/types.h"
#include "data/positions_line.h"
#include "tools/score_fit.h"

// Scores by steps of so many centipawns, up to a largest one; what lies beyond is counted apart.
inline constexpr i32 score_step = 50;
inline constexpr i32 largest_shown_score = 1000;
inline constexpr i32 score_bins = 2 * largest_shown_score / score_step;

// Sums over lines; all zero before the first.
struct LineStatistics {
    i64 lines;
    i64 scored;
    i64 marked;   // tell their game
    i64 held_out; // for validation
    i64 sides[2]; // to move
    i64 phases[full_phase + 1];
    i64 outcomes[phase_bands][NoOutcome + 1];
    i64 scores[score_bins];  // for the side to move
    i64 beyond[2];           // below and above the shown scores
    i64 judged[score_bins];  // of those with a score: that have a result too
    f64 results[score_bins]; // sums of their results
    ScoreCounts counts;      // for the fit
};

// Adds a line.
void add_to_statistics(LineStatistics* statistics, const LineFacts& facts);

// The lowest score of a bin, centipawns.
inline constexpr i32 bin_start(i32 bin)
{
    return bin * score_step - largest_shown_score;
}

// Members of a JSON object: counts, the factor of the logistic (null where none fits), and the
// histograms.
[[nodiscard]] std::string statistics_as_json(const LineStatistics& statistics);

// ---- positions_page.cpp

// A picture of four histograms (SVG 1.1), light or dark as the reader has it.
[[nodiscard]] std::string statistics_as_svg(const LineStatistics& statistics);

// A page with that picture and the figures as a table (HTML 5); it needs no other file. source is
// what the lines come from, in words.
[[nodiscard]] std::string statistics_as_page(
    const LineStatistics& statistics, const std::string& source);

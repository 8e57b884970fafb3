// Counting of positions.
#include "data/positions_statistics.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "tools/line_judge.h"

static void add_score(LineStatistics* statistics, const LineFacts& facts)
{
    const i32 score = facts.score;
    ++statistics->scored;
    const bool has_result = facts.outcome != NoOutcome;
    if (has_result) {
        const i32 fitted = std::clamp(score, -largest_fitted_score, largest_fitted_score);
        statistics->counts.all[largest_fitted_score + fitted] += score_units(1.0);
        statistics->counts.won[largest_fitted_score + fitted] +=
            score_units(static_cast<f64>(facts.result));
    }
    if (score < -largest_shown_score || score >= largest_shown_score) {
        ++statistics->beyond[score > 0];
        return;
    }
    const i32 bin = (score + largest_shown_score) / score_step;
    ++statistics->scores[bin];
    if (has_result) {
        ++statistics->judged[bin];
        statistics->results[bin] += static_cast<f64>(facts.result);
    }
}

void add_to_statistics(LineStatistics* statistics, const LineFacts& facts)
{
    ++statistics->lines;
    statistics->marked += facts.is_marked;
    statistics->held_out += facts.held_out;
    ++statistics->sides[facts.side];
    ++statistics->phases[facts.phase];
    ++statistics->outcomes[band_of(facts.phase)][facts.outcome];
    if (facts.score != no_score) {
        add_score(statistics, facts);
    }
}

static void append_list(std::string* json, const char* name, std::span<const i64> counts)
{
    *json += std::string(",\"") + name + "\":[";
    for (const i64 count : counts) {
        if (json->back() != '[') {
            *json += ',';
        }
        *json += std::to_string(count);
    }
    *json += ']';
}

std::string statistics_as_json(const LineStatistics& statistics)
{
    const f32 factor = fit_factor(&statistics.counts);
    char text[32];
    snprintf(text, sizeof text, "%.6f", static_cast<f64>(factor));
    std::string json = std::string("\"factor\":") + (factor > 0.0f ? text : "null");
    i64 outcomes[NoOutcome + 1] = {};
    for (const auto& band : statistics.outcomes) {
        for (i32 i = 0; i <= NoOutcome; ++i) {
            outcomes[i] += band[i];
        }
    }
    append_list(&json, "black_won_drawn_white_won_none", outcomes);
    append_list(&json, "white_black_to_move", statistics.sides);
    append_list(&json, "phases", statistics.phases);
    append_list(&json, "scores_by_50_from_minus_1000", statistics.scores);
    append_list(&json, "scores_below_and_above", statistics.beyond);
    return json;
}

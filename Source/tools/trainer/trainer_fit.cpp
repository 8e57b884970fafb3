// Fitting the factor of the logistic. The results are counted by score in one sweep over the
// training part; the fit works on these counts alone, so that it costs no further pass.
#include "tools/trainer/trainer_fit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/files.h"

// What the sweep works on.
struct FitSweep {
    Trainer* trainer;
    ScoreCounts* counts; // of each thread
};

// A job of the team: adds the positions of one chunk to the counts of its thread. Raw records have
// the game's result for a target, or a number below 0.
static void count_chunk(void* context, i32 worker, i32 index)
{
    const FitSweep* sweep = static_cast<FitSweep*>(context);
    const Trainer* trainer = sweep->trainer;
    ScoreCounts* counts = &sweep->counts[worker];
    const Chunk* chunk = &trainer->batch[index];
    const u32* words = chunk->words[TrainingPart];
    for (i32 i = 0; i < chunk->positions[TrainingPart]; ++i) {
        TrainingPosition position;
        memcpy(&position, words, sizeof position);
        const u32* terms = words + position_words;
        words = terms + position.terms;
        if (position.target < 0.0f) {
            continue;
        }
        const f32 unscaled = unscaled_score(&position, terms, trainer->values);
        const i32 score = static_cast<i32>(std::lround(unscaled * scale_of(&position, unscaled)));
        const i32 bin =
            largest_fitted_score + std::clamp(score, -largest_fitted_score, largest_fitted_score);
        const f64 emphasis = static_cast<f64>(position.emphasis);
        counts->all[bin] += score_units(emphasis);
        counts->won[bin] += score_units(emphasis * static_cast<f64>(position.target));
    }
}

// Adds the counts of all threads to those of the first.
static void join_counts(ScoreCounts* counts, i32 threads)
{
    for (i32 worker = 1; worker < threads; ++worker) {
        for (i32 i = 0; i <= 2 * largest_fitted_score; ++i) {
            counts->all[i] += counts[worker].all[i];
            counts->won[i] += counts[worker].won[i];
        }
    }
}

static void refuse_fit(const Trainer* trainer, const char* text)
{
    fprintf(stderr, "%s: %s\n", trainer->data.input.name, text);
    exit_status = 1;
}

f32 fit_to_results(Trainer* trainer, bool (*goes_on)())
{
    FitSweep sweep = { trainer,
        static_cast<ScoreCounts*>(
            calloc(static_cast<size_t>(trainer->team.size), sizeof(ScoreCounts))) };
    if (sweep.counts == nullptr) {
        refuse_fit(trainer, "no memory for its results");
        return 0.0f;
    }
    i32 count = 0;
    start_sweep(&trainer->data, TrainingPart);
    while (goes_on() && (trainer->batch = next_batch(&trainer->data, &count)) != nullptr) {
        run_team(&trainer->team, count, count_chunk, &sweep);
    }
    f32 factor = 0.0f;
    if (trainer->data.out_of_memory) {
        refuse_fit(trainer, "no memory for its positions");
    } else if (goes_on()) {
        join_counts(sweep.counts, trainer->team.size);
        factor = fit_factor(sweep.counts);
        if (factor == 0.0f) {
            refuse_fit(trainer, "its results fit no factor of the logistic");
        }
    }
    free(sweep.counts);
    return factor;
}

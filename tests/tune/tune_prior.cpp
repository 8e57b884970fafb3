// What the trainer believes before a game is seen, the factor of the logistic, and the gradients:
// each against what the function does whose gradient it is.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "test_support.h"
#include "tools/trainer/trainer_fit.h"
#include "tools/trainer/trainer_options.h"

struct TunePrior : testing::Test {
    void SetUp() override
    {
        set_position(start_position);
        build_weights(PlainWeights);
        for (i32 i = 0; i < weight_count; ++i) {
            counts[static_cast<size_t>(i)] = 100;
            for (i32 half = 0; half < 2; ++half) {
                weights[static_cast<size_t>(i)].old[half] = 10.0 * half;
                weights[static_cast<size_t>(i)].value[half] = 10.0 * half;
            }
        }
    }

    void TearDown() override
    {
        tune_names.count = 0;
        build_weights(PlainWeights);
    }

    void init(f64 pull, f64 smooth)
    {
        init_prior(&prior, pull, smooth, 0.007, 1000, counts.data());
    }

    // What the prior takes away for the values that the weights have.
    f64 penalty() const
    {
        f64 sum = 0.0;
        for (size_t i = 0; i < weight_count; ++i) {
            sum += 0.5 * prior.pull * (square(i, 0) + square(i, 1));
        }
        for (i32 i = 0; i < prior.count; ++i) {
            const Neighbours pair = prior.list[i];
            for (i32 half = 0; half < 2; ++half) {
                const f64 apart = change(pair.first, half) - change(pair.second, half);
                sum += 0.5 * prior.smooth * apart * apart;
            }
        }
        return sum;
    }

    f64 change(i32 i, i32 half) const
    {
        const TrainedWeight& weight = weights[static_cast<size_t>(i)];
        return weight.value[half] - weight.old[half];
    }

    f64 square(size_t i, i32 half) const
    {
        return change(static_cast<i32>(i), half) * change(static_cast<i32>(i), half);
    }

    Prior prior = {};
    std::vector<TrainedWeight> weights = std::vector<TrainedWeight>(weight_count);
    std::vector<i64> counts = std::vector<i64>(weight_count);
};

TEST_F(TunePrior, ItsGradientsAgreeWithFiniteDifferences)
{
    init(300.0, 70.0);
    u64 state = 3;
    for (TrainedWeight& weight : weights) {
        for (f64& value : weight.value) {
            value += 0.1 * next_random(&state, 1000) - 50.0;
        }
    }
    sum_prior(&prior, weights.data());
    i32 checked = 0;
    for (size_t i = 0; i < weight_count; ++i) {
        for (i32 half = 0; half < 2; ++half) {
            f64* value = &weights[i].value[half];
            const f64 gradient = prior.gradient[i][half];
            *value += 0.5;
            const f64 above = penalty();
            *value -= 1.0;
            const f64 below = penalty();
            *value += 0.5;
            EXPECT_NEAR(gradient, above - below, 1e-9) << i;
            checked += gradient != 0.0;
        }
    }
    EXPECT_GT(checked, 1800);
}

// A quarter of the factor for each of so many positions in a thousand.
TEST_F(TunePrior, AStartValueIsWorthSoManyPositions)
{
    init(500.0, 0.0);
    weights[bishop_pair].value[1] += 8.0;
    sum_prior(&prior, weights.data());
    EXPECT_NEAR(prior.gradient[bishop_pair][1], 500.0 / 1000.0 * 0.25 * 0.007 * 8.0, 1e-12);
    EXPECT_EQ(prior.gradient[bishop_pair][0], 0.0);
    EXPECT_EQ(prior.gradient[mtl_rook][1], 0.0);
}

TEST_F(TunePrior, NoneChangesNoGradient)
{
    init(0.0, 0.0);
    weights[bishop_pair].value[1] += 8.0;
    sum_prior(&prior, weights.data());
    for (const auto& gradient : prior.gradient) {
        EXPECT_EQ(gradient[0], 0.0);
        EXPECT_EQ(gradient[1], 0.0);
    }
}

TEST_F(TunePrior, NeighboursLieInOneTableAndCount)
{
    init(0.0, 1.0);
    // 13 tables of 112 pairs and three arrays of seven.
    EXPECT_EQ(prior.count, 13 * 112 + 3 * 7);
    for (i32 i = 0; i < prior.count; ++i) {
        const Neighbours pair = prior.list[i];
        if (pair.first >= PST_P1) {
            EXPECT_EQ((pair.first - PST_P1) / 64, (pair.second - PST_P1) / 64);
            const i32 step = pair.second - pair.first;
            EXPECT_TRUE(step == 8 || (step == 1 && (pair.first - PST_P1) % 8 < 7)) << pair.first;
        }
    }
    counts[PST_N1 + 9] = 0; // a square in the middle has four
    init(0.0, 1.0);
    EXPECT_EQ(prior.count, 13 * 112 + 3 * 7 - 4);
    tune_names = { { "PST_N1" }, 1 };
    build_weights(PlainWeights);
    init(0.0, 1.0);
    EXPECT_EQ(prior.count, 112 - 4);
}

// One square of a table is wanted elsewhere by many positions, and the others by few: descending,
// its neighbours follow it, the nearer the more, and what no position has met stays.
TEST_F(TunePrior, NeighboursFollowWhatManyPositionsSay)
{
    const i32 center = PST_N1 + 27;
    counts[center + 8] = 0;
    init(2.0, 50.0);
    const f64 worth = 0.25 * 0.007 / 1000.0;
    for (i32 step = 0; step < 20000; ++step) {
        sum_prior(&prior, weights.data());
        for (i32 i = PST_N1; i < PST_N1 + 64; ++i) {
            const f64 wanted = i == center ? 20.0 : 0.0;
            const f64 data = (i == center ? 1000.0 : 1.0) * worth * (change(i, 0) - wanted);
            const f64 slope = data * (counts[static_cast<size_t>(i)] > 0) + prior.gradient[i][0];
            weights[static_cast<size_t>(i)].value[0] -= 0.0005 / worth * slope;
        }
    }
    EXPECT_GT(change(center, 0), 15.0);
    EXPECT_GT(change(center + 1, 0), 5.0);
    EXPECT_GT(change(center + 1, 0), change(center + 2, 0) + 1.0);
    EXPECT_GT(change(center + 2, 0), change(center + 4, 0));
    EXPECT_GT(change(center + 4, 0), 0.0);
    EXPECT_EQ(change(center + 8, 0), 0.0);
}

// ---- The factor of the logistic

struct TuneFit : testing::Test {
    // So many positions of each score, won as the factor makes likely.
    void fill(f64 factor, i32 widest)
    {
        *counts = {};
        for (i32 score = -widest; score <= widest; ++score) {
            counts->all[score + largest_fitted_score] = 1000000;
            counts->won[score + largest_fitted_score] =
                std::llround(1000000.0 / (1.0 + std::exp(-factor * score)));
        }
    }

    std::unique_ptr<ScoreCounts> counts = std::make_unique<ScoreCounts>();
};

TEST_F(TuneFit, FindsTheFactorThatTheResultsComeFrom)
{
    for (const f64 factor : { 0.001, 0.004, 0.007, 0.012, 0.05 }) {
        fill(factor, 400);
        EXPECT_NEAR(static_cast<f64>(fit_factor(counts.get())), factor, 2e-5 * factor + 1e-7);
    }
}

TEST_F(TuneFit, ResultsOfNoFactorAreTold)
{
    *counts = {};
    EXPECT_EQ(fit_factor(counts.get()), 0.0f);
    fill(-0.004, 400); // the side ahead loses
    EXPECT_EQ(fit_factor(counts.get()), 0.0f);
    fill(10.0, 400); // and here it wins each time
    EXPECT_EQ(fit_factor(counts.get()), 0.0f);
    fill(0.0, 400);
    EXPECT_EQ(fit_factor(counts.get()), 0.0f);
}

// ---- The sum over a chunk

struct TuneSums : testing::Test {
    void SetUp() override
    {
        set_position(start_position);
        build_weights(PlainWeights);
        gatherer.thread = dialogue.game;
        gatherer.rule = usual_rule;
        gatherer.rule.late = 2.5;
        gatherer.rule.near_draw = 200.0;
        trainer->factor = 0.0045f;
        for (const char* line : lines) {
            u32 words = 0;
            ASSERT_EQ(gather_line(&gatherer, line, false, records + size, &words), LineUsed);
            size += words;
        }
        chunk.words[TrainingPart] = records;
        chunk.size[TrainingPart] = size;
        chunk.positions[TrainingPart] = static_cast<i32>(std::size(lines));
        trainer->batch = &chunk;
        trainer->part = TrainingPart;
        trainer->learns = true;
        for (i32 i = 0; i < weight_count; ++i) {
            trainer->weights[i].value[0] = eval_params[i].mg;
            trainer->weights[i].value[1] = eval_params[i].eg;
        }
        copy_values(trainer.get());
    }

    // The likelihood's logarithm, turned round and divided by the factor, as the records and the
    // values of the trainer give it; and the sum of squares, by how much each position counts.
    f64 loss(f64* squares) const
    {
        const u32* words = records;
        f64 sum = 0.0;
        *squares = 0.0;
        for (size_t n = 0; n < std::size(lines); ++n) {
            TrainingPosition position;
            memcpy(&position, words, sizeof position);
            f64 score = static_cast<f64>(position.fixed);
            const f64 phase = static_cast<f64>(position.phase);
            for (u32 i = 0; i < position.terms; ++i) {
                const u32 term = words[position_words + i];
                const TrainedWeight& weight = trainer->weights[term_weight(term)];
                score += static_cast<f64>(term_coef(term))
                    * ((1.0 - phase) * weight.value[0] + phase * weight.value[1]);
            }
            score *= static_cast<f64>(position.scale[score > 0.0 ? White : Black]);
            const f64 factor = static_cast<f64>(trainer->factor);
            const f64 expected = 1.0 / (1.0 + std::exp(-factor * score));
            const f64 target = static_cast<f64>(position.target);
            const f64 emphasis = static_cast<f64>(position.emphasis);
            sum -= emphasis / factor
                * (target * std::log(expected) + (1.0 - target) * std::log(1.0 - expected));
            *squares += emphasis * (expected - target) * (expected - target);
            words += position_words + position.terms;
        }
        return sum;
    }

    static constexpr const char* lines[] = {
        "r1bqk2r/pp2ppbp/n5p1/1N6/4P3/2Pp4/PP1B1PPP/R1Q1KB1R w KQkq - ce -47; gr 0.5;",
        "r1bqr1k1/pp3p1p/2n2np1/3p4/1b1P4/2NB1N2/PPQ2PPP/R1B2RK1 w - - ce 12; gr 1.0;",
        "8/5pk1/4b1p1/p6p/2P4P/3R2P1/5PK1/8 w - - ce 150; gr 0.0;",
        "2r3k1/1p3p2/2n3p1/8/2P5/2N5/1P1R1PP1/4K3 b - - gr 0.0;",
    };
    Gatherer gatherer = {};
    std::unique_ptr<Trainer> trainer = std::make_unique<Trainer>();
    u32 records[4 * most_position_words] = {};
    u32 size = 0;
    Chunk chunk = {};
};

TEST_F(TuneSums, GradientsAgreeWithFiniteDifferences)
{
    sum_chunk(trainer.get(), 0, 0);
    const ChunkSums sums = trainer->sums[0];
    f64 squares = 0.0;
    loss(&squares);
    EXPECT_NEAR(sums.error, squares, 1e-5);
    i32 checked = 0;
    for (i32 i = 1; i < weight_count; ++i) {
        for (i32 half = 0; half < 2; ++half) {
            f64* value = &trainer->weights[i].value[half];
            *value += 0.1;
            const f64 above = loss(&squares);
            *value -= 0.2;
            const f64 below = loss(&squares);
            *value += 0.1;
            const f64 gradient =
                static_cast<f64>(half == 0 ? sums.gradient[i].mg : sums.gradient[i].eg);
            EXPECT_NEAR(gradient, (above - below) / 0.2, 1e-4 + 1e-3 * std::fabs(gradient)) << i;
            checked += gradient != 0.0;
        }
    }
    EXPECT_GT(checked, 100);
}

TEST_F(TuneSums, PositionsCountByTheirEmphasis)
{
    sum_chunk(trainer.get(), 0, 0);
    f64 sum = 0.0;
    const u32* words = records;
    for (size_t n = 0; n < std::size(lines); ++n) {
        TrainingPosition position;
        memcpy(&position, words, sizeof position);
        EXPECT_NE(position.emphasis, 1.0f);
        sum += static_cast<f64>(position.emphasis);
        words += position_words + position.terms;
    }
    EXPECT_NEAR(trainer->sums[0].emphasis, sum, 1e-9);
}

// The pull alone brings a weight back that no position speaks of any more.
TEST_F(TuneSums, AStepGoesBackToTheStart)
{
    i64 counts[weight_count];
    for (i64& count : counts) {
        count = 1;
    }
    init_prior(&trainer->prior, 1e6, 0.0, 0.007, 1000, counts);
    trainer->rate = 0.5;
    TrainedWeight* weight = &trainer->weights[bishop_pair];
    weight->old[0] = weight->value[0] - 20.0;
    weight->gradient[0] = 1e-9; // it was met once
    for (i32 step = 0; step < 100; ++step) {
        trainer->sums[0] = {};
        take_step(trainer.get(), 4.0);
    }
    EXPECT_NEAR(weight->value[0], weight->old[0], 2.0);
    EXPECT_EQ(trainer->weights[mtl_rook].value[0], eval_params[mtl_rook].mg);
}

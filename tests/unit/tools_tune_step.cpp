// One step of the tuner: its arithmetic with coefficients set by hand, and the sampler of lines.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "shell_test_support.h"
#include "board/moves.h"
#include "eval/evaluate.h"
#include "tools/tools.h"
#include "tools/training_line.h"

struct TuneStep : ShellTest {
    void SetUp() override
    {
        ShellTest::SetUp();
        build_weights(NormalWeights);
        samples = 0;
        err_sum = 0.0;
    }

    void TearDown() override
    {
        tune_names.count = 0;
        ShellTest::TearDown();
    }

    static i32 evaluate_now()
    {
        Position* pos = &dialogue.game->pos;
        return evaluate_at(pos->thread, pos->stm, 1, 0);
    }
};

static const char middle_game[] = "r1bq1rk1/pp3ppp/2n1pn2/3p4/3P4/2N1PN2/PP3PPP/R2Q1RK1 w - -";
static const char end_game[] = "4k3/1p3p2/2n5/8/8/2N5/1P3PP1/4K3 b - -";

static std::string table_text()
{
    std::string text;
    for (const EvalParam& entry : eval_params) {
        text += std::string(entry.name) + " " + std::to_string(entry.mg) + " "
            + std::to_string(entry.eg) + " " + std::to_string(entry.packed) + "\n";
    }
    return text;
}

TEST_F(TuneStep, SigmoidIsTheExpectedResult)
{
    EXPECT_EQ(sigmoid(0.0f), 0.5f);
    EXPECT_NEAR(static_cast<f64>(sigmoid(100.0f)), 1.0 / (1.0 + exp(-0.7)), 1e-7);
    EXPECT_NEAR(static_cast<f64>(sigmoid(-100.0f)), 1.0 / (1.0 + exp(0.7)), 1e-7);
    EXPECT_EQ(sigmoid(30000.0f), 1.0f);
    EXPECT_EQ(sigmoid(-30000.0f), 0.0f);
}

// Scores for which a product in double, or all of it in float, would give another number.
TEST_F(TuneStep, SigmoidMultipliesInFloatAndDividesInDouble)
{
    EXPECT_EQ(sigmoid(-392.0f), 0x1.ef0354p-5f);
    EXPECT_EQ(sigmoid(-385.0f), 0x1.032662p-4f);
    EXPECT_EQ(sigmoid(-315.0f), 0x1.96be16p-4f);
    EXPECT_EQ(sigmoid(-307.0f), 0x1.abb93ap-4f);
}

// The tuning build fills coef by itself; its own tests look at it.
TEST_F(TuneStep, WithoutCoefficientsNoWeightChanges)
{
    const std::string before = table_text();
    Position* pos = set_position(middle_game);
    const i32 value = evaluate_now();
    EXPECT_EQ(tune_step(pos, 0.0f, 5.0f), value);
    EXPECT_EQ(table_text(), before);
}

TEST_F(TuneStep, MovesWeightsAgainstTheErrorByPhase)
{
    Position* pos = set_position(end_game);
    const i32 value = evaluate_now();
    const f32 phase = dialogue.game->eval_work.phase;
    ASSERT_GT(phase, 0.5f);
    eval_params[mtl_pawn].coef = 2.0f;
    eval_params[bishop_pair].coef = -1.5f;
    const f32 target = 0.9f;
    const f32 rate = 40.0f;
    EXPECT_EQ(tune_step(pos, target, rate), value);

    // Black is to move, and weights work from white's view.
    const f32 error = -(sigmoid(static_cast<f32>(value)) - target);
    const f32 mg_error =
        static_cast<f32>((1.0 - static_cast<f64>(phase)) * static_cast<f64>(error));
    const f64 mg = 29.0 - static_cast<f64>(-1.5f * rate * mg_error);
    const f64 eg = 54.0 - static_cast<f64>(-1.5f * rate * (phase * error));
    EXPECT_EQ(eval_params[bishop_pair].mg, mg);
    EXPECT_EQ(eval_params[bishop_pair].eg, eg);
    EXPECT_GT(eg, 60.0);
    EXPECT_EQ(score_mg(eval_params[bishop_pair].packed), llround(mg));
    EXPECT_EQ(score_eg(eval_params[bishop_pair].packed), llround(eg));
    EXPECT_EQ(eval_params[bishop_pair].coef, 0.0f);

    // Entry 0 anchors the scale: neither moved nor looked at.
    EXPECT_EQ(eval_params[mtl_pawn].mg, 100.0);
    EXPECT_EQ(eval_params[mtl_pawn].coef, 2.0f);
    EXPECT_EQ(eval_params[mtl_knight].mg, 361.0);
    eval_params[mtl_pawn].coef = 0.0f;
}

// Twenty steps of odd numbers: any other width or order of the products would show.
TEST_F(TuneStep, TheProductsOfAStepAreFloatsButOne)
{
    for (i32 i = 1; i <= 20; ++i) {
        Position* pos = set_position(middle_game);
        build_weights(NormalWeights);
        const f32 coef = 0.37f * static_cast<f32>(i);
        const f32 rate = 0.7f + static_cast<f32>(i);
        const f32 target = 0.047f * static_cast<f32>(i);
        const f32 error = sigmoid(static_cast<f32>(evaluate_now())) - target;
        const f32 phase = dialogue.game->eval_work.phase;
        eval_params[bishop_pair].coef = coef;
        tune_step(pos, target, rate);
        const f32 mg_error =
            static_cast<f32>((1.0 - static_cast<f64>(phase)) * static_cast<f64>(error));
        const f32 mg_step = (coef * rate) * mg_error;
        const f32 eg_step = (coef * rate) * (phase * error);
        EXPECT_EQ(eval_params[bishop_pair].mg, 29.0 - static_cast<f64>(mg_step));
        EXPECT_EQ(eval_params[bishop_pair].eg, 54.0 - static_cast<f64>(eg_step));
    }
}

TEST_F(TuneStep, RoundsHalvesAwayFromZero)
{
    set_weight(tmp0, 2.5, -2.5);
    EXPECT_EQ(score_mg(eval_params[tmp0].packed), 3);
    EXPECT_EQ(score_eg(eval_params[tmp0].packed), -3);
}

TEST_F(TuneStep, FrozenEntriesStay)
{
    snprintf(tune_names.name[0], sizeof tune_names.name[0], "knight_outpost");
    tune_names.count = 1;
    build_weights(NormalWeights);
    EXPECT_EQ(eval_params[knight_outpost].frozen, 0);
    EXPECT_EQ(eval_params[knight_outpost_atk].frozen, 1);
    Position* pos = set_position(middle_game);
    eval_params[knight_outpost].coef = 1.0f;
    eval_params[knight_outpost_atk].coef = 1.0f;
    tune_step(pos, 1.0f, 50.0f);
    EXPECT_GT(eval_params[knight_outpost].mg, 15.0);
    EXPECT_EQ(eval_params[knight_outpost_atk].mg, 16.0);
    eval_params[knight_outpost_atk].coef = 0.0f;
}

TEST_F(TuneStep, NoCacheAnswers)
{
    Position* pos = set_position(middle_game);
    const i32 value = tune_step(pos, 0.5f, 1.0f);
    set_weight(stm_bonus, 114, 115);
    EXPECT_EQ(tune_step(pos, 0.5f, 1.0f), value + 100);
}

TEST_F(TuneStep, SampledStepsAreCounted)
{
    Position* pos = set_position(start_position);
    const f32 expected = sigmoid(static_cast<f32>(evaluate_now()));
    tune_sampled_step(pos, 1.0f, 1.0f);
    tune_sampled_step(pos, 0.0f, 1.0f);
    EXPECT_EQ(samples, 2);
    EXPECT_NEAR(err_sum, 1.0, 1e-6);
    tune_sampled_step(pos, expected, 1.0f);
    EXPECT_NEAR(err_sum, 1.0, 1e-6);
}

// ---- Lines

TEST_F(TuneStep, ALineOfNoMovesIsTheEvaluation)
{
    Position* pos = set_position(middle_game);
    const i32 value = evaluate_now();
    EXPECT_EQ(tune_sample(pos, 1, 0, 1.0f), value);
    EXPECT_EQ(samples, 1);
    EXPECT_EQ(err_sum, 0.0);
}

TEST_F(TuneStep, ALineEndsWhereTheMaterialIsOneSided)
{
    EXPECT_EQ(tune_sample(set_position("4k3/8/8/8/8/8/4P3/3QKN2 w - -"), 1, 4, 1.0f), 0);
    EXPECT_EQ(samples, 0);
    EXPECT_NE(tune_sample(set_position("4k3/4p3/8/8/8/8/4P3/3QK3 w - -"), 1, 0, 1.0f), 0);
    EXPECT_EQ(samples, 1);
}

TEST_F(TuneStep, ALineWithoutMovesIsLost)
{
    const char mated[] = "7k/6Q1/6K1/8/8/8/8/8 b - -";
    const char stalemated[] = "7k/5Q2/6K1/8/8/8/8/8 b - -";
    EXPECT_EQ(tune_sample(set_position(mated), 1, 1, 1.0f), -9999);
    EXPECT_EQ(samples, 0); // in check nothing is evaluated
    EXPECT_EQ(tune_sample(set_position(mated), 1, 0, 1.0f), 0);
    EXPECT_EQ(tune_sample(set_position(stalemated), 1, 1, 1.0f), -9999);
    EXPECT_EQ(samples, 1);
}

TEST_F(TuneStep, ALineTakesOneMoveAtEachPlyAndGoesBack)
{
    Position* pos = set_position(middle_game);
    const std::string before = fen_of(pos);
    srand(5);
    const i32 score = tune_sample(pos, 1, 6, 1.0f);
    EXPECT_GE(samples, 4);
    EXPECT_LE(samples, 7);
    EXPECT_EQ(fen_of(pos), before);
    EXPECT_EQ(dialogue.game->undo_count, 0);
    EXPECT_TRUE(fields_agree(pos));
    EXPECT_GE(score, -9999);
    // No deeper than the records of a line go.
    set_position("4k3/4p3/8/8/8/8/4P3/4K3 w - -");
    tune_sample(pos, 1, 100000, 1.0f);
    EXPECT_EQ(dialogue.game->undo_count, 0);
}

TEST_F(TuneStep, EachPlyOfALineHasTheRecordOfItsNumber)
{
    Position* pos = set_position(middle_game);
    PlyRecord* rec = pos->thread->ply_rec;
    for (i32 ply = 1; ply <= 8; ++ply) {
        rec[ply].list_cursor = nullptr;
    }
    srand(5);
    tune_sample(pos, 1, 3, 1.0f);
    for (i32 ply = 1; ply <= 8; ++ply) {
        EXPECT_EQ(rec[ply].list_cursor != nullptr, ply <= 3) << ply;
    }
}

TEST_F(TuneStep, ALineOfOneMoveIsOneDrawnByChance)
{
    const char fen[] = "r1bq1rk1/pp3ppp/2n1pn2/3p4/3P4/2N1PN2/PP1Q1PPP/R4RK1 b - -";
    Position* pos = set_position(fen);
    std::set<i32> possible;
    for (const Move move : legal_moves(pos)) {
        make_move(pos, move);
        const bool in_check = is_attacked(pos, pos->king_sq[White], Black);
        possible.insert(in_check ? 0 : -evaluate_now());
        unmake_move(pos);
    }
    std::set<i32> taken;
    for (u32 seed = 0; seed < 100; ++seed) {
        srand(seed);
        taken.insert(tune_sample(pos, 1, 1, 1.0f));
    }
    EXPECT_TRUE(std::includes(possible.begin(), possible.end(), taken.begin(), taken.end()));
    EXPECT_GT(taken.size(), 8u);
}

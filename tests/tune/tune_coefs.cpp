// The coefficients that the evaluation of the tuning build gives: each is compared with what the
// score does when the weight changes, and all together with the score.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "test_support.h"
#include "board/defect.h"
#include "board/moves.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "tools/tools.h"

static_assert(tuning);

// Puts the weights right again, however a test ends.
struct TuneCoefs : testing::Test {
    void SetUp() override
    {
        set_position(start_fen);
        build_weights(PlainWeights);
    }

    void TearDown() override
    {
        tune_names.count = 0;
        build_weights(PlainWeights);
    }

    static constexpr char start_fen[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
};

static const TermNotes* notes()
{
    return &dialogue.game->eval_work.notes;
}

static i32 evaluate_for_white()
{
    return evaluate_at(dialogue.game, White, 1, 0);
}

static std::vector<f32> coefs()
{
    std::vector<f32> list;
    for (const EvalParam& entry : eval_params) {
        list.push_back(entry.coef);
    }
    return list;
}

// ---- Positions

// Rows of empty squares as numbers.
static std::string fen_of_board(const char* board, bool white)
{
    std::string text;
    for (i32 rank = 7; rank >= 0; --rank) {
        i32 empty = 0;
        for (i32 file = 0; file < 8; ++file) {
            const char piece = board[rank * 8 + file];
            if (piece == '\0') {
                ++empty;
                continue;
            }
            text += empty > 0 ? std::to_string(empty) : "";
            text += piece;
            empty = 0;
        }
        text += empty > 0 ? std::to_string(empty) : "";
        text += rank > 0 ? "/" : "";
    }
    return text + (white ? " w - -" : " b - -");
}

// Pieces put on the board by chance; pawns on their ranks.
static std::string random_fen(u64* state)
{
    char board[64] = "";
    const auto put = [&](char piece, i32 first, i32 last) {
        const i32 span = last - first + 1;
        const i32 square = first + static_cast<i32>(next_random(state, static_cast<u32>(span)));
        if (board[square] == '\0') {
            board[square] = piece;
        }
    };
    put('K', 0, 63);
    put('k', 0, 63);
    const u32 fullness = 1 + next_random(state, 3);
    for (const char* piece = "NBRQnbrq"; *piece != '\0'; ++piece) {
        for (u32 i = next_random(state, fullness + 1); i > 0; --i) {
            put(*piece, 0, 63);
        }
    }
    const u32 pawns = next_random(state, 8);
    for (u32 i = 0; i < pawns; ++i) {
        put('P', 8, 55);
        put('p', 8, 55);
    }
    return fen_of_board(board, next_random(state, 2) == 0);
}

// Sets a position that can come about and is not in check, and that the weights judge.
static bool set_usable(const std::string& fen)
{
    Position* pos = set_position(fen);
    if (position_defect(pos) != nullptr || is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1)) {
        return false;
    }
    evaluate_for_white();
    return notes()->count > 0;
}

// Positions by chance, with the same sequence each time, and some in which rare terms count.
static std::vector<std::string> test_positions()
{
    std::vector<std::string> list = {
        "4k3/pp6/8/2b5/8/3R4/PP3P2/6K1 w - -",
        "6k1/pp3p2/3r4/8/2B5/8/PP6/4K3 b - -",
        "r5k1/1R3ppp/8/8/8/8/5PPP/6K1 w - -",
    };
    u64 state = 7;
    for (i32 i = 0; i < 30000; ++i) {
        list.push_back(random_fen(&state));
    }
    return list;
}

// ---- Which weights can count

// Weights that no position of a game can reach, by what they stand for.
static std::set<i32> unreachable_weights()
{
    std::set<i32> list;
    for (const i32 table : { PST_P1, PST_CP, PST_DP, PST_P2 }) {
        for (i32 file = 0; file < 8; ++file) {
            list.insert(table + file); // no pawn stands on the first and the last rank
            list.insert(table + 56 + file);
        }
    }
    for (i32 file = 0; file < 8; ++file) {
        list.insert(PST_DP + 8 + file); // nor behind the second to defend one there
    }
    for (i32 square = 0; square < 64; ++square) {
        if ((square & 7) < 4) {
            list.insert(PST_K + square); // the map puts every king on files e to h
        }
    }
    for (const i32 ranks : { ppawn, ppawn_mobile, ppawn_free }) {
        list.insert(ranks);
        list.insert(ranks + 7);
    }
    list.insert(ppawn_free + 1); // free from the fourth rank on
    list.insert(ppawn_free + 2);
    for (i32 spare = tmp0; spare <= tmp8; ++spare) {
        list.insert(spare); // read by no term
    }
    return list;
}

// ---- Finite differences

static constexpr i32 wanted_checks = 3; // positions for each weight and half
static constexpr f64 largest_change = 20000;

// How often the notes take a part of the weight, each of which is cut off by itself.
static i32 parts_of(i32 weight)
{
    i32 parts = 0;
    for (i32 i = 0; i < notes()->count; ++i) {
        parts += notes()->list[i].weight == weight;
    }
    return parts;
}

// What the score does when one half of the weight is raised. changed_scale tells that the scale
// factor has jumped with the sign of the score.
static i32 score_with_change(i32 weight, i32 half, i32 change, bool* changed_scale)
{
    const EvalParam entry = eval_params[weight];
    const f32 scale = notes()->scale;
    set_weight(weight, entry.mg + (half == 0 ? change : 0), entry.eg + (half == 1 ? change : 0));
    const i32 score = evaluate_for_white();
    *changed_scale = notes()->scale != scale;
    set_weight(weight, entry.mg, entry.eg);
    return score;
}

// Compares the coefficient with the difference that a large change makes, in one direction or the
// other. Returns whether the position was good for it: the weight must count for enough.
static bool check_half(i32 weight, i32 half, f64 coef, f64 phase, const std::string& fen)
{
    const i32 score = evaluate_for_white();
    const f64 slope = coef * (half == 0 ? 1.0 - phase : phase);
    const f64 tolerance = parts_of(weight) + 3;
    const i32 change = static_cast<i32>(std::fmin(3000 / std::fabs(coef), largest_change));
    if (std::fabs(slope) * change < 20 * tolerance) {
        return false;
    }
    for (const i32 step : { change, -change }) {
        bool changed_scale = false;
        const i32 changed = score_with_change(weight, half, step, &changed_scale);
        if (!changed_scale) {
            EXPECT_NEAR(changed - score, slope * step, tolerance)
                << eval_params[weight].name << " (" << weight << ") half " << half << " " << fen;
            return true;
        }
        evaluate_for_white();
    }
    return false;
}

TEST_F(TuneCoefs, EveryWeightAgreesWithFiniteDifferencesInBothPhases)
{
    const std::set<i32> unreachable = unreachable_weights();
    EXPECT_EQ(unreachable.size(), 121u);
    i32 checks[weight_count][2] = {};
    for (const std::string& fen : test_positions()) {
        if (!set_usable(fen)) {
            continue;
        }
        const std::vector<f32> derivatives = coefs();
        const f64 phase = static_cast<f64>(dialogue.game->eval_work.phase);
        for (i32 weight = 0; weight < weight_count; ++weight) {
            const f64 coef = static_cast<f64>(derivatives[static_cast<size_t>(weight)]);
            if (coef == 0.0) {
                continue;
            }
            EXPECT_EQ(unreachable.count(weight), 0u) << weight << " " << fen;
            for (i32 half = 0; half < 2; ++half) {
                if (checks[weight][half] < wanted_checks) {
                    checks[weight][half] += check_half(weight, half, coef, phase, fen);
                }
            }
        }
    }
    for (i32 weight = 0; weight < weight_count; ++weight) {
        const i32 wanted = unreachable.count(weight) != 0 ? 0 : wanted_checks;
        EXPECT_EQ(checks[weight][0], wanted) << eval_params[weight].name << " " << weight;
        EXPECT_EQ(checks[weight][1], wanted) << eval_params[weight].name << " " << weight;
    }
}

// ---- All together

// The score without any cutting off, and how far that may lie from the evaluation.
static f64 rebuilt_score(f64* bound)
{
    const f64 phase = static_cast<f64>(dialogue.game->eval_work.phase);
    f64 sum = 0.0;
    for (const EvalParam& entry : eval_params) {
        sum += static_cast<f64>(entry.coef) * ((1.0 - phase) * entry.mg + phase * entry.eg);
    }
    *bound = static_cast<f64>(notes()->scale) * (notes()->fractions + 1) + 1.05;
    return sum;
}

TEST_F(TuneCoefs, TogetherTheyGiveTheScore)
{
    i32 scaled = 0;
    i32 tested = 0;
    for (const std::string& fen : test_positions()) {
        if (!set_usable(fen)) {
            continue;
        }
        const i32 score = evaluate_for_white();
        f64 bound = 0.0;
        const f64 rebuilt = rebuilt_score(&bound);
        ASSERT_NEAR(rebuilt, score, bound) << fen;
        scaled += notes()->scale != 1.0f;
        ++tested;
    }
    EXPECT_GT(tested, 5000);
    EXPECT_GT(scaled, 100);
}

TEST_F(TuneCoefs, TheStartPositionHasTheSideToMoveAlone)
{
    evaluate_for_white();
    for (i32 weight = 0; weight < weight_count; ++weight) {
        EXPECT_EQ(eval_params[weight].coef, weight == stm_bonus ? 1.0f : 0.0f) << weight;
    }
}

TEST_F(TuneCoefs, TermsAreCountedWhiteMinusBlack)
{
    set_position("4k3/pp1n4/8/8/8/8/PPPP4/1NN1K3 b - -");
    evaluate_for_white();
    EXPECT_EQ(eval_params[mtl_pawn].coef, 2.0f * notes()->scale);
    EXPECT_EQ(eval_params[mtl_knight].coef, 1.0f * notes()->scale);
    EXPECT_EQ(eval_params[stm_bonus].coef, -1.0f * notes()->scale);
}

TEST_F(TuneCoefs, CachesLoseNothing)
{
    set_position("r1bq1rk1/pp3ppp/2n1pn2/3p4/3P4/2N1PN2/PP3PPP/R2Q1RK1 w - -");
    evaluate_for_white();
    const std::vector<f32> fresh = coefs();
    for (i32 i = 0; i < 2; ++i) {
        evaluate_at(dialogue.game, White, 5, 0);
        EXPECT_EQ(coefs(), fresh); // from ply 2 on nothing is filled or emptied
    }
    evaluate_for_white();
    EXPECT_EQ(coefs(), fresh);
}

TEST_F(TuneCoefs, RulesWithoutWeightsHaveNone)
{
    const std::vector<f32> none(weight_count, 0.0f);
    for (const char* fen : { "4k3/8/8/8/8/8/8/Q3K3 w - -", "4k3/8/8/8/8/8/4P3/4K3 b - -",
             "4k3/8/8/8/8/8/8/2B1K3 w - -" }) {
        set_position(start_fen);
        evaluate_for_white();
        set_position(fen);
        evaluate_for_white();
        EXPECT_EQ(coefs(), none) << fen;
        EXPECT_EQ(notes()->count, 0);
    }
}

TEST_F(TuneCoefs, ABoardFullOfPiecesIsNotedToTheEnd)
{
    set_position("kPPPPPPP/PPPPPPPP/PPPPPPPP/PPPPPPPP/RRRRRRRR/RRRRRRRR/RRRRRRRR/KRRRRRRR w - -");
    const i32 score = evaluate_for_white();
    EXPECT_LT(notes()->count, most_term_notes);
    EXPECT_NE(score, 0);
}

// ---- Steps

TEST_F(TuneCoefs, AStepMovesTheScoreTowardsTheTarget)
{
    Position* pos = set_position("r1bq1rk1/pp3ppp/2n1pn2/3p4/3P4/2N1PN2/PP3PPP/R1BQ1RK1 b - -");
    const i32 before = tune_step(pos, 1.0f, 10.0f);
    const f64 anchor = eval_params[mtl_pawn].mg;
    i32 after = before;
    for (i32 i = 0; i < 20; ++i) {
        after = tune_step(pos, 1.0f, 10.0f);
    }
    EXPECT_GT(after, before + 20);
    EXPECT_EQ(eval_params[mtl_pawn].mg, anchor);
    EXPECT_EQ(eval_params[bishop_pair].mg, 29.0); // does not count there
    EXPECT_NE(eval_params[stm_bonus].mg, 14.0);
    EXPECT_EQ(eval_params[stm_bonus].coef, 0.0f);
}

TEST_F(TuneCoefs, AStepLeavesFrozenWeights)
{
    snprintf(tune_names.name[0], sizeof tune_names.name[0], "stm_bonus");
    tune_names.count = 1;
    build_weights(PlainWeights);
    Position* pos = set_position("r1bq1rk1/pp3ppp/2n1pn2/3p4/3P4/2N1PN2/PP3PPP/R1BQ1RK1 b - -");
    tune_step(pos, 1.0f, 100.0f);
    for (i32 weight = 0; weight < weight_count; ++weight) {
        const bool is_moved = eval_params[weight].mg != std::round(eval_params[weight].mg);
        EXPECT_EQ(is_moved, weight == stm_bonus) << weight;
    }
}

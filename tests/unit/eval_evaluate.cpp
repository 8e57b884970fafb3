// The frame of the evaluation: golden scores, caches, closing terms, contempt, taper.
#include <array>
#include <string>
#include <vector>

#include "eval_test_support.h"
#include "eval/evaluate.h"
#include "search/clock.h"
#include "search/thread.h"

static constexpr char open_game[] = "r1bqkbnr/pppp1ppp/2n5/4p3/2B1P3/5N2/PPPP1PPP/RNBQK2R b KQkq -";

// One line of tests/data/eval.tsv.
struct GoldenEval {
    std::string text;
    i32 score;
    i32 danger[2];
    bool full;
    f64 phase;
    f64 scale;
    i32 tapered;
};

static std::vector<GoldenEval> read_golden_evals()
{
    std::vector<GoldenEval> evals;
    for (const std::vector<std::string>& row : read_tsv("eval.tsv")) {
        evals.push_back({ row.at(0), std::stoi(row.at(1)),
            { std::stoi(row.at(2)), std::stoi(row.at(3)) }, row.at(4) == "1", std::stod(row.at(5)),
            std::stod(row.at(6)), std::stoi(row.at(7)) });
    }
    return evals;
}

// Sets contempt, a fixed time for the move and the side at the root for one test.
struct SearchState {
    SearchState(i32 contempt, f64 seconds, i32 root)
    {
        set_position(start_position);
        store(contempt_rule.contempt, contempt);
        store(limits.tc_moves, 1);
        limits.tc_seconds = seconds;
        start_clock(&limits, 0.0);
        const MoveTerms terms = {
            .side = root, .plies = 0, .elo = 0, .ponder = false, .counts = false
        };
        set_target_time(&limits, &terms);
        contempt_rule.root_side = static_cast<u8>(root);
    }

    ~SearchState()
    {
        store(contempt_rule.contempt, 0);
        contempt_rule.off = false;
        search_clock.limits = &dialogue.limits;
        contempt_rule.root_side = old_root_side;
    }

    SearchLimits limits {};
    u8 old_root_side = contempt_rule.root_side;
};

static EvalCacheEntry* eval_slot(Position* pos)
{
    return &pos->thread->eval_cache[pos->key & (eval_cache_size - 1)];
}

// The value from white's view.
static i32 white_value(const char* text)
{
    const i32 value = evaluate_text(text);
    return dialogue.game->pos.stm == White ? value : -value;
}

static u64 counter(EvalCounter number)
{
    return load(dialogue.game->eval_counters[number]);
}

TEST(Evaluate, GoldenScoresAndDangers)
{
    const std::vector<GoldenEval> evals = read_golden_evals();
    ASSERT_EQ(evals.size(), 300u);
    for (const GoldenEval& golden : evals) {
        u16* danger = set_position(golden.text)->thread->ply_rec[1].danger;
        danger[White] = 0;
        danger[Black] = 0;
        EXPECT_EQ(evaluate_text(golden.text.c_str()), golden.score) << golden.text;
        EXPECT_EQ(danger[White], golden.danger[White]) << golden.text;
        EXPECT_EQ(danger[Black], golden.danger[Black]) << golden.text;
        if (golden.full && golden.score != no_eval) {
            const EvalWork* work = last_work();
            const i32 tapered = taper(work->score[White] - work->score[Black], work->phase);
            EXPECT_EQ(tapered, golden.tapered) << golden.text;
            EXPECT_NEAR(static_cast<f64>(work->phase), golden.phase, 1e-6) << golden.text;
            EXPECT_NEAR(static_cast<f64>(scale_factor(work, tapered)), golden.scale, 1e-6)
                << golden.text;
        }
    }
}

TEST(Evaluate, ColoursExchangedGiveTheSameScoreAndTheExchangedDangers)
{
    for (const GoldenEval& golden : read_golden_evals()) {
        const Position* pos = set_position(golden.text);
        const bool many_queens =
            popcount(pos->bb[White][Queen]) > 1 || popcount(pos->bb[Black][Queen]) > 1;
        if (many_queens) {
            continue; // these go by rising square, whatever the colour
        }
        const std::string flipped = flip_colours(golden.text);
        u16* danger = set_position(flipped)->thread->ply_rec[1].danger;
        danger[White] = 0;
        danger[Black] = 0;
        EXPECT_EQ(evaluate_text(flipped.c_str()), golden.score) << flipped;
        EXPECT_EQ(danger[White], golden.danger[Black]) << flipped;
        EXPECT_EQ(danger[Black], golden.danger[White]) << flipped;
    }
}

TEST(Evaluate, CachesGiveTheSameScoresAsAFreshComputation)
{
    set_position(start_position);
    build_weights(NormalWeights);
    for (i32 pass = 0; pass < 2; ++pass) {
        for (const GoldenEval& golden : read_golden_evals()) {
            if (golden.score == no_eval || !golden.full) {
                continue;
            }
            Position* pos = set_position(golden.text);
            const u16* danger = pos->thread->ply_rec[2].danger;
            EXPECT_EQ(evaluate_at(pos->thread, pos->stm, 2, 0), golden.score) << golden.text;
            EXPECT_EQ(danger[White], golden.danger[White]) << golden.text;
            EXPECT_EQ(danger[Black], golden.danger[Black]) << golden.text;
        }
    }
}

TEST(Evaluate, InCheckGivesNoScoreAndTouchesNothing)
{
    Position* pos = set_position("4k3/8/8/8/8/8/4r3/4K3 w - -");
    SearchThread* thread = pos->thread;
    EvalCacheEntry* slot = eval_slot(pos);
    slot->key = 77;
    thread->ply_rec[3].danger[White] = 11;
    thread->ply_rec[3].danger[Black] = 12;
    const u64 calls = counter(CountEvals);
    EXPECT_EQ(evaluate_at(thread, White, 3, 1), no_eval);
    EXPECT_EQ(counter(CountEvals), calls + 1);
    EXPECT_EQ(slot->key, 77u);
    EXPECT_EQ(thread->ply_rec[3].danger[White], 11);
    EXPECT_EQ(thread->ply_rec[3].danger[Black], 12);
    slot->key = 0;
}

TEST(Evaluate, TheScoreIsTheMoversAndGoesIntoTheCache)
{
    Position* pos = set_position(open_game);
    const i32 score = evaluate_at(pos->thread, pos->stm, 1, 0);
    EXPECT_NE(score, 0);
    EXPECT_EQ(eval_slot(pos)->score, score);
    EXPECT_EQ(eval_slot(pos)->key, pos->key);
}

TEST(Evaluate, EvalCacheAnswersFromPlyTwoOn)
{
    Position* pos = set_position(open_game);
    SearchThread* thread = pos->thread;
    const i32 score = evaluate_at(thread, pos->stm, 1, 0);
    EvalCacheEntry* slot = eval_slot(pos);
    slot->score = 1234;
    slot->danger[White] = 7;
    slot->danger[Black] = 9;
    const u64 hits = counter(CountEvalHits);
    EXPECT_EQ(evaluate_at(thread, pos->stm, 2, 0), 1234);
    EXPECT_EQ(thread->ply_rec[2].danger[White], 7);
    EXPECT_EQ(thread->ply_rec[2].danger[Black], 9);
    EXPECT_EQ(counter(CountEvalHits), hits + 1);
    EXPECT_EQ(evaluate_at(thread, pos->stm, 1, 0), score);
    EXPECT_EQ(counter(CountEvalHits), hits + 1);
    EXPECT_EQ(slot->score, score);
}

TEST(Evaluate, ADraftLeavesNothingBehindUntilItIsAccepted)
{
    Position* pos = set_position(open_game);
    SearchThread* thread = pos->thread;
    clear_eval_caches(thread);
    const auto counts = [] {
        return std::array { counter(CountEvals), counter(CountEvalHits), counter(CountPawnProbes),
            counter(CountPawnHits) };
    };
    const auto before = counts();
    EvalDraft draft;
    draft_evaluation(thread, pos, 2, false, &draft);
    EXPECT_EQ(counts(), before);
    EXPECT_EQ(eval_slot(pos)->key, 0u);
    for (const PawnCacheEntry& entry : thread->pawn_cache) {
        ASSERT_EQ(entry.key, 0u);
    }
    // The second finds nothing of the first.
    EvalDraft again;
    draft_evaluation(thread, pos, 2, false, &again);
    EXPECT_EQ(again.source, EvalDraft::Terms);
    EXPECT_FALSE(again.pawns_cached);
    u16 danger[2] = { 1, 1 };
    EXPECT_EQ(accept_evaluation(thread, &again, danger), draft.score);
    EXPECT_EQ(danger[White], draft.danger[White]);
    EXPECT_EQ(danger[Black], draft.danger[Black]);
    EXPECT_EQ(counts(), (std::array { before[0] + 1, before[1], before[2] + 1, before[3] }));
    draft_evaluation(thread, pos, 2, false, &again);
    EXPECT_EQ(again.source, EvalDraft::Cache);
    accept_evaluation(thread, &again, danger);
    EXPECT_EQ(counts(), (std::array { before[0] + 2, before[1] + 1, before[2] + 1, before[3] }));
    // Another position with the same pawns.
    pos = set_position(open_game);
    eval_slot(pos)->key = 0;
    draft_evaluation(thread, pos, 2, false, &again);
    EXPECT_EQ(again.source, EvalDraft::Terms);
    EXPECT_TRUE(again.pawns_cached);
    accept_evaluation(thread, &again, danger);
    EXPECT_EQ(
        counts(), (std::array { before[0] + 3, before[1] + 1, before[2] + 2, before[3] + 1 }));
}

TEST(Evaluate, EvalCacheIsPassedOverWhenItHoldsAnotherKey)
{
    Position* pos = set_position(open_game);
    const i32 score = evaluate_at(pos->thread, pos->stm, 1, 0);
    eval_slot(pos)->key ^= 1ULL << 40;
    eval_slot(pos)->score = 1234;
    EXPECT_EQ(evaluate_at(pos->thread, pos->stm, 2, 0), score);
    EXPECT_EQ(eval_slot(pos)->key, pos->key);
}

TEST(Evaluate, FullMaterialHasPhaseZero)
{
    EXPECT_EQ(work_of(start_position)->phase, 0.0f);
}

TEST(Evaluate, PhaseStartsToRiseAtSixtyTwoPoints)
{
    // 63 points: two knights less and a rook more; 62: a knight in the place of a rook.
    EXPECT_EQ(work_of("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/R1BQKBRR w kq -")->phase, 0.0f);
    EXPECT_EQ(work_of("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/NNBQKBNR w kq -")->phase,
        1.0f - static_cast<f32>(62 * 0.016));
}

TEST(Evaluate, QueensOffHavePhaseOf296Thousandths)
{
    const f32 phase = work_of("rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNB1KBNR w KQkq -")->phase;
    EXPECT_EQ(phase, 1.0f - static_cast<f32>(44 * 0.016));
    EXPECT_NEAR(static_cast<f64>(phase), 0.296, 1e-6);
}

TEST(Evaluate, TaperBlendsAndTruncatesTowardZero)
{
    EXPECT_EQ(taper(pair(101, 55), 0.0f), 101);
    EXPECT_EQ(taper(pair(101, 55), 1.0f), 55);
    EXPECT_EQ(taper(pair(-101, -54), 0.5f), -77);
    EXPECT_EQ(taper(pair(101, 54), 0.5f), 77);
    EXPECT_EQ(taper(pair(-1, 0), 0.5f), 0);
    EXPECT_EQ(taper(pair(-1, 1), 0.5f), 0);
}

TEST(Evaluate, ContemptIsItsValueAtFullMaterial)
{
    const char* const black_to_move = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq -";
    const i32 white_to_move_plain = white_value(start_position);
    const i32 black_to_move_plain = white_value(black_to_move);
    {
        const SearchState state(41, 10.0, White);
        EXPECT_EQ(white_value(start_position), white_to_move_plain + 41);
        EXPECT_EQ(white_value(black_to_move), black_to_move_plain + 41);
    }
    {
        const SearchState state(41, 10.0, Black);
        EXPECT_EQ(white_value(start_position), white_to_move_plain - 41);
    }
    {
        const SearchState state(41, 90000.0, White);
        EXPECT_EQ(white_value(start_position), white_to_move_plain + 41);
    }
    {
        const SearchState state(41, 90000.5, White);
        EXPECT_EQ(white_value(start_position), white_to_move_plain);
    }
}

TEST(Evaluate, PositiveContemptMeltsWithTheMaterialOfTheRootSide)
{
    // White has 22 points and 7 pawns of which 6 count; black is at full material.
    const char* const text = "rnbqkbnr/pppppppp/8/8/8/8/1PPPPPPP/RNB1KBNR w KQkq -";
    const i32 plain = white_value(text);
    const SearchState state(100, 10.0, White);
    EXPECT_EQ(white_value(text), plain + (19 + 12) * 100 / 41);
}

TEST(Evaluate, NegativeContemptMeasuresTheOtherSide)
{
    const i32 plain = white_value(start_position);
    const char* const no_black_queen = "rnb1kbnr/pppp4/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
    const i32 plain_without = white_value(no_black_queen);
    const SearchState state(-20, 10.0, White);
    EXPECT_EQ(white_value(start_position), plain - 20);
    // 19 points and 4 pawns: 27 * -20 / 41 is -13, truncated toward zero.
    EXPECT_EQ(white_value(no_black_queen), plain_without - 13);
}

TEST(Evaluate, MoveBonusGoesToTheSideToMove)
{
    const WeightsRestored restored;
    Position* pos = set_position(open_game);
    clear_weights();
    set_weight(stm_bonus, 10, 10);
    ASSERT_EQ(pos->stm, Black);
    EXPECT_EQ(evaluate_at(pos->thread, Black, 1, 0), 10);
}

TEST(Evaluate, BishopPairNeedsTwoBishopsOfAnyColour)
{
    EXPECT_EQ(count_uses("4k3/7p/8/8/8/8/7P/2B1KB2 w - -", White, bishop_pair), 1);
    EXPECT_EQ(count_uses("4k3/7p/8/8/8/B7/7P/2B1K3 w - -", White, bishop_pair), 1);
    EXPECT_EQ(count_uses("4k3/7p/8/8/8/B3B3/7P/2B1K3 w - -", White, bishop_pair), 1);
    EXPECT_EQ(count_uses("4k3/7p/8/8/8/8/7P/2B1K3 w - -", White, bishop_pair), 0);
    EXPECT_EQ(count_uses("2b1kb2/7p/8/8/8/8/7P/2B1K3 w - -", Black, bishop_pair), 1);
}

TEST(Evaluate, RammedPawnsCountOnTheColourOfABishop)
{
    // Rammed: a4 (never counted), c4 on a light square, d4 and f4 on dark ones.
    const char* const dark = "4k3/8/8/p1pp1p2/P1PP1P2/8/8/2B1K3 w - -";
    const char* const light = "4k3/8/8/p1pp1p2/P1PP1P2/8/8/4KB2 w - -";
    const char* const both = "4k3/8/8/p1pp1p2/P1PP1P2/8/8/2B1KB2 w - -";
    EXPECT_EQ(count_uses(dark, White, bishop_rampawns), 2);
    EXPECT_EQ(count_uses(light, White, bishop_rampawns), 1);
    EXPECT_EQ(count_uses(both, White, bishop_rampawns), 3);
    EXPECT_EQ(count_uses(both, Black, bishop_rampawns), 0);
    // Black's pawns of the pairs stand on the other colours: d5 and f5 light, c5 dark.
    EXPECT_EQ(count_uses("2b1k3/8/8/p1pp1p2/P1PP1P2/8/8/4K3 w - -", Black, bishop_rampawns), 2);
    EXPECT_EQ(count_uses("4kb2/8/8/p1pp1p2/P1PP1P2/8/8/4K3 w - -", Black, bishop_rampawns), 1);
    EXPECT_EQ(count_uses("4kb2/8/8/p6p/P6P/8/8/2B1K3 w - -", White, bishop_rampawns), 0);
    EXPECT_EQ(count_uses("4kb2/8/8/p6p/P6P/8/8/2B1K3 w - -", Black, bishop_rampawns), 0);
}

TEST(Evaluate, RookAgainstMinorNeedsTwoPawns)
{
    EXPECT_EQ(count_uses("2b1k3/7p/8/8/8/8/6PP/R3K3 w - -", White, mtl_RvB), 1);
    EXPECT_EQ(count_uses("2n1k3/7p/8/8/8/8/6PP/R3K3 w - -", White, mtl_RvB), 1);
    EXPECT_EQ(count_uses("2b1k3/7p/8/8/8/8/7P/R3K3 w - -", White, mtl_RvB), 0);
    EXPECT_EQ(count_uses("2b1k3/7p/8/8/8/8/6PP/RN2K3 w - -", White, mtl_RvB), 0);
    EXPECT_EQ(count_uses("r3k3/6pp/8/8/8/8/7P/2B1K3 w - -", Black, mtl_RvB), 1);
    EXPECT_EQ(count_uses("r3k3/6pp/8/8/8/8/7P/2B1K3 w - -", White, mtl_RvB), 0);
}

TEST(Evaluate, WingsOfTheKingsChooseMapAndTables)
{
    struct Case {
        const char* text;
        i32 same_wing;
        i32 white_index; // of the knight on b1
        i32 black_index; // of the knight on b8
    };
    const Case cases[] = {
        { "1n4k1/7p/8/8/8/8/7P/1N4K1 w - -", 1, 1, 1 },
        { "1nk5/7p/8/8/8/8/7P/1NK5 w - -", 1, 6, 6 },
        { "1n4k1/7p/8/8/8/8/7P/1N1K4 w - -", 0, 6, 1 },
        { "1n1k4/7p/8/8/8/8/7P/1N2K3 w - -", 0, 1, 6 },
    };
    for (const Case& one : cases) {
        const i32 used = one.same_wing ? PST_N1 : PST_N2;
        const i32 unused = one.same_wing ? PST_N2 : PST_N1;
        EXPECT_EQ(count_uses(one.text, White, used + one.white_index), 1) << one.text;
        EXPECT_EQ(count_uses(one.text, Black, used + one.black_index), 1) << one.text;
        EXPECT_EQ(count_uses(one.text, White, unused + one.white_index), 0) << one.text;
        EXPECT_EQ(last_work()->pst_shift == 0, one.same_wing != 0) << one.text;
    }
}

TEST(Evaluate, TalliesFollowTheGroupsOfTerms)
{
    const WeightsRestored restored;
    set_position(open_game);
    clear_weights();
    set_weight(mtl_pawn, 1, 0);
    set_weight(mtl_knight, 10, 0);
    set_weight(mtl_bishop, 100, 0);
    set_weight(mtl_rook, 1000, 0);
    set_weight(mtl_queen, 5000, 0);
    set_weight(PST_K + 4, 2, 0);
    const EvalWork* work = work_of(open_game);
    EXPECT_EQ(work->tally[TallyPawns][White], 8);
    EXPECT_EQ(work->tally[TallyKnights][White], 28);
    EXPECT_EQ(work->tally[TallyBishops][White], 228);
    EXPECT_EQ(work->tally[TallyRooks][White], 2228);
    EXPECT_EQ(work->tally[TallyQueens][White], 7228);
    EXPECT_EQ(work->tally[TallyKing][White], 7230);
    EXPECT_EQ(work->tally[TallyPassed][White], 7230);
    EXPECT_EQ(work->tally[TallyKing][Black], 7230);
    EXPECT_EQ(work->score[Black], 7230);
}

TEST(Evaluate, KingZoneHasNineSquaresEverywhere)
{
    for (i32 square = 0; square < 64; ++square) {
        const i32 enemy = square == 63 ? 0 : 63;
        const bool near = (square & 7) >= 6 && (square >> 3) >= 6;
        Position* pos = set_position("8/8/8/8/8/8/8/8 w - -");
        std::string board(64, '1');
        board[static_cast<size_t>(square)] = 'K';
        board[static_cast<size_t>(near ? 0 : enemy)] = 'k';
        board[27] = board[27] == '1' ? 'P' : board[27];
        board[35] = board[35] == '1' ? 'p' : board[35];
        std::string text;
        for (i32 rank = 7; rank >= 0; --rank) {
            text += board.substr(static_cast<size_t>(rank) * 8, 8) + (rank > 0 ? "/" : " w - -");
        }
        pos = set_position(text);
        evaluate_at(pos->thread, White, 1, 0);
        const u64 zone = last_work()->king_zone[White];
        EXPECT_EQ(popcount(zone), 9) << text;
        EXPECT_NE(zone & bit(square), 0u) << text;
    }
}

// The square of the tables is the own one seen from the side's first rank, mirrored with the king
// on the queen's wing.
TEST(Evaluate, TablesAreReadFromTheOwnSideAndItsKingsWing)
{
    const std::string kings[2][2] = { { "2K5", "5K2" }, { "2k5", "5k2" } };
    for (i32 wings = 0; wings < 4; ++wings) {
        const bool right[2] = { (wings & 1) != 0, (wings & 2) != 0 };
        const std::string text = kings[Black][right[Black]] + "/8/8/3p4/3P4/8/1N4n1/"
            + kings[White][right[White]] + " w - -";
        const EvalWork* work = work_of(text.c_str());
        for (i32 square = 0; square < 64; ++square) {
            for (i32 side = White; side <= Black; ++side) {
                const i32 rank = side == White ? square / 8 : 7 - square / 8;
                const i32 file = right[side] ? square % 8 : 7 - square % 8;
                EXPECT_EQ(pst_index(work, side, square), 8 * rank + file) << text;
            }
        }
        const i32 table = right[White] == right[Black] ? PST_N1 : PST_N2;
        EXPECT_EQ(PST_N1 + work->pst_shift, table) << text;
        EXPECT_EQ(work->pst_words + PST_N1, eval_words + table) << text;
    }
}

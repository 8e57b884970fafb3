// Pawn sets, structure, the pawn cache, candidates and passed pawns.
#include <string>
#include <vector>

#include "eval_test_support.h"

static constexpr f64 connected_parts[8] = { 0, 0, 0, 0.15, 0.3, 0.6, 1.0, 0 };

// Which kind the passed pawn of side at the relative rank index is taken for: 1 stuck, 2 mobile,
// 3 free, 0 none of them.
static i32 passer_kind(const char* text, i32 side, i32 rank)
{
    const i32 kind = count_uses(text, side, ppawn + rank)
        + 2 * count_uses(text, side, ppawn_mobile + rank)
        + 3 * count_uses(text, side, ppawn_free + rank);
    return kind;
}

static constexpr i32 Stuck = 1;
static constexpr i32 Mobile = 2;
static constexpr i32 Free = 3;

TEST(EvalPawns, StructureTerms)
{
    // a2 isolated; c2, c3, c4 on one file with d4 beside: c4 is supported, two pay for doubling.
    const char* const text = "4k3/7p/8/8/2PP4/2P5/P1P5/4K3 w - -";
    EXPECT_EQ(count_uses(text, White, mtl_pawn), 5);
    EXPECT_EQ(count_uses(text, White, pawn_isolated), 1);
    EXPECT_EQ(count_uses(text, White, pawn_doubled), 2);
    // c2 and c3 stand behind d4 with no friend beside or behind; d4 has c4, c3 and c2.
    EXPECT_EQ(count_uses(text, White, pawn_weak), 2);
    EXPECT_EQ(count_uses(text, Black, pawn_isolated), 1);
    EXPECT_EQ(count_uses(text, Black, pawn_weak), 0);
    EXPECT_EQ(count_uses(text, Black, pawn_doubled), 0);
}

TEST(EvalPawns, StructureTermsOfBlack)
{
    const char* const text = "4k3/p1p5/2p5/2pp4/8/8/7P/4K3 w - -";
    EXPECT_EQ(count_uses(text, Black, pawn_isolated), 1);
    EXPECT_EQ(count_uses(text, Black, pawn_doubled), 2);
    EXPECT_EQ(count_uses(text, Black, pawn_weak), 2);
    EXPECT_EQ(count_uses(text, White, pawn_isolated), 1);
}

TEST(EvalPawns, FilesAAndHAreNoNeighbours)
{
    EXPECT_EQ(count_uses("4k3/6p1/8/8/8/8/P6P/4K3 w - -", White, pawn_isolated), 2);
    EXPECT_EQ(count_uses("4k3/6p1/8/8/7P/8/P7/4K3 w - -", White, pawn_weak), 0);
}

TEST(EvalPawns, BlockedByAnyPiece)
{
    const char* const text = "4k3/p7/n1p5/2P5/4p3/4K3/1P4P1/6N1 w - -";
    EXPECT_EQ(count_uses(text, White, pawn_blocked), 1); // c5; b2 and g2 are free
    EXPECT_EQ(count_uses(text, Black, pawn_blocked), 3); // a7 by the knight, c6, e4 by the king
}

TEST(EvalPawns, ExtraValuesForPawnsBesideAndDefended)
{
    // d4 and e4 stand side by side, f5 is defended by e4 alone.
    const char* const text = "4k3/7p/8/5P2/3PP3/8/8/4K3 w - -";
    EXPECT_EQ(count_uses(text, White, PST_CP + square_of("d4")), 1);
    EXPECT_EQ(count_uses(text, White, PST_CP + square_of("e4")), 1);
    EXPECT_EQ(count_uses(text, White, PST_CP + square_of("f5")), 0);
    EXPECT_EQ(count_uses(text, White, PST_DP + square_of("f5")), 1);
    EXPECT_EQ(count_uses(text, White, PST_DP + square_of("d4")), 0);
    EXPECT_EQ(count_uses(text, White, PST_P1 + square_of("d4")), 1);
    EXPECT_EQ(count_uses(text, Black, PST_P1 + square_of("h2")), 1);
}

TEST(EvalPawns, OutpostsAreDefendedAndOutOfReachOfEnemyPawns)
{
    const EvalWork* work = work_of("4k3/p6p/8/8/1PP2P1P/8/8/4K3 w - -");
    // b4 and c4 cover a5, b5, c5, d5; f4 covers e5 and g5; h4 covers g5.
    // a7 can come to attack b-squares down from b6, h7 the g-squares: b5 and g5 fall out.
    EXPECT_EQ(work->outposts[White], squares_of("c5 d5 e5"));
    EXPECT_EQ(work->outposts[Black], 0u);
    EXPECT_EQ(work_of("4k3/8/8/3p4/8/8/P6P/4K3 w - -")->outposts[Black], squares_of("c4 e4"));
    EXPECT_EQ(work_of("4k3/8/3p4/8/8/8/P6P/4K3 w - -")->outposts[Black], 0u);
}

TEST(EvalPawns, OutpostsLieOnTheFifthAndSixthRank)
{
    // d5 covers c6 and e6; one rank further on and one nearer home there are none.
    EXPECT_EQ(work_of("4k3/7p/8/3P4/8/8/8/4K3 w - -")->outposts[White], squares_of("c6 e6"));
    EXPECT_EQ(work_of("4k3/7p/3P4/8/8/8/8/4K3 w - -")->outposts[White], 0u);
    EXPECT_EQ(work_of("4k3/7p/8/8/8/3P4/8/4K3 w - -")->outposts[White], 0u);
    EXPECT_EQ(work_of("4k3/8/8/8/3p4/8/7P/4K3 w - -")->outposts[Black], squares_of("c3 e3"));
    EXPECT_EQ(work_of("4k3/8/8/8/8/3p4/7P/4K3 w - -")->outposts[Black], 0u);
}

TEST(EvalPawns, FirstKingAttackPointsOfPawns)
{
    // White pawns stepping to f6 and g7's neighbour h6; the black king's zone is f8 to h6.
    const EvalWork* work = work_of("6k1/8/8/5P1P/P7/8/8/4K3 b - -");
    EXPECT_EQ(work->king_attack[Black], 6);
    EXPECT_EQ(work->king_attack[White], 0);
    EXPECT_EQ(work_of("6k1/7P/8/8/4p3/8/8/4K3 w - -")->king_attack[White], 3);
}

TEST(EvalPawns, DoubleStepSquareJudgesAPawnOnItsSecondRank)
{
    EXPECT_EQ(passer_kind("4k3/7p/8/8/8/8/P7/4K3 w - -", White, 1), Mobile);
    // a3 is safe, a4 is not.
    EXPECT_EQ(passer_kind("4k3/3b3p/8/8/8/8/P7/4K3 w - -", White, 1), Stuck);
    // a3 is attacked, a4 is not: only the double step is asked.
    EXPECT_EQ(passer_kind("4k3/7p/3b4/8/8/8/P7/4K3 w - -", White, 1), Mobile);
    EXPECT_EQ(passer_kind("4k3/7p/8/8/8/n7/P7/4K3 w - -", White, 1), Stuck);
    EXPECT_EQ(passer_kind("4k3/7p/8/8/n7/8/P7/4K3 w - -", White, 1), Stuck);
    EXPECT_EQ(passer_kind("4k3/p7/8/8/8/8/7P/4K3 w - -", Black, 1), Mobile);
    EXPECT_EQ(passer_kind("4k3/p7/8/N7/8/8/7P/4K3 w - -", Black, 1), Stuck);
}

TEST(EvalPawns, PromotionSquareIsTheTargetOnTheSeventhRank)
{
    // The black king is six steps from b8, the own king seven.
    const char* const free = "8/1P6/8/7k/7p/8/8/K7 w - -";
    EXPECT_EQ(passer_kind(free, White, 6), Free);
    EXPECT_EQ(thousandths(free, White, ppawn_eking_dist), 6000);
    EXPECT_EQ(thousandths(free, White, ppawn_fking_dist), 7000);
    // The knight covers b8: 0.8 instead of 1.0.
    const char* const stuck = "8/1P1n4/8/7k/7p/8/8/K7 w - -";
    EXPECT_EQ(passer_kind(stuck, White, 6), Stuck);
    EXPECT_EQ(thousandths(stuck, White, ppawn_eking_dist), 4800);
    EXPECT_EQ(thousandths(stuck, White, ppawn_fking_dist), 5599); // 7 * 0.8 in single precision
}

TEST(EvalPawns, KingDistancesAreTakenTwoRanksAhead)
{
    // Mobile on the fourth rank: factor 0.4, target b6; the kings are four and one steps away.
    const char* const text = "8/8/1K6/8/1P3k2/7p/8/8 w - -";
    EXPECT_EQ(passer_kind(text, White, 3), Free);
    EXPECT_EQ(thousandths(text, White, ppawn_eking_dist), 1600);
    EXPECT_EQ(thousandths(text, White, ppawn_fking_dist), 400); // on the target, but at least 1
    // h3 can step: factor 0.8, target h1; the white king is six steps away, the black one three.
    EXPECT_EQ(thousandths(text, Black, ppawn_eking_dist), 4800);
    EXPECT_EQ(thousandths(text, Black, ppawn_fking_dist), 2400);
}

TEST(EvalPawns, KingDistancesBeginWithAStepFromTheThirdRank)
{
    // Mobile on the third rank or stuck on the fourth: factor 0.2, targets b5 and b6.
    const char* const mobile = "8/8/8/7k/7p/1P6/8/K7 w - -";
    EXPECT_EQ(passer_kind(mobile, White, 2), Mobile);
    EXPECT_EQ(thousandths(mobile, White, ppawn_eking_dist), 1200);
    EXPECT_EQ(thousandths(mobile, White, ppawn_fking_dist), 800);
    const char* const fourth = "8/8/8/1n5k/1P5p/8/8/K7 w - -";
    EXPECT_EQ(passer_kind(fourth, White, 3), Stuck);
    EXPECT_EQ(thousandths(fourth, White, ppawn_eking_dist), 1200);
    EXPECT_EQ(thousandths(fourth, White, ppawn_fking_dist), 1000);
    const char* const third = "8/8/8/7k/1n5p/1P6/8/K7 w - -";
    EXPECT_EQ(passer_kind(third, White, 2), Stuck);
    EXPECT_EQ(thousandths(third, White, ppawn_eking_dist), 0);
}

TEST(EvalPawns, FactorsAreTruncatedByThemselves)
{
    // 44 * 6.0 and 7 * 4.8 = 33.6, -19 * 5.6 = -106.4, -5 * 5.6 = -28.
    const char* const stuck = "8/1P1n4/8/7k/7p/8/8/K7 w - -";
    const i32 far = isolated_pair(stuck, White, ppawn_eking_dist, 7, 44);
    EXPECT_EQ(score_mg(far), 33);
    EXPECT_EQ(score_eg(far), 211);
    const i32 own = isolated_pair(stuck, White, ppawn_fking_dist, -3, -19);
    EXPECT_EQ(score_mg(own), -16);
    EXPECT_EQ(score_eg(own), -106);
}

TEST(EvalPawns, RearPawnOfADoubledPassedPawnGetsNothing)
{
    const char* const text = "8/8/8/1P5k/1P5p/8/8/K7 w - -";
    EXPECT_EQ(passer_kind(text, White, 3), 0);
    EXPECT_EQ(passer_kind(text, White, 4), Free);
    EXPECT_EQ(count_uses(text, White, pawn_doubled), 1);
    // One pawn's distances: factor 0.6 for a mobile pawn on the fifth rank.
    EXPECT_EQ(thousandths(text, White, ppawn_fking_dist), 3600);
}

TEST(EvalPawns, MobilePawnsAreFreeFromTheFourthRankOn)
{
    EXPECT_EQ(passer_kind("8/8/8/7k/7p/1P6/8/K7 w - -", White, 2), Mobile);
    EXPECT_EQ(passer_kind("8/8/8/7k/1P5p/8/8/K7 w - -", White, 3), Free);
    EXPECT_EQ(passer_kind("k7/8/1p6/7P/7K/8/8/8 w - -", Black, 2), Mobile);
    EXPECT_EQ(passer_kind("k7/8/8/1p5P/7K/8/8/8 w - -", Black, 3), Free);
}

TEST(EvalPawns, PathIsFreeUnlessTheEnemyHoldsItAlone)
{
    // A minor piece that bears on the way bars it.
    EXPECT_EQ(passer_kind("8/2n5/8/7k/1P5p/8/8/KR6 w - -", White, 3), Mobile);
    // A rook attacks b8: free if an own piece attacks it too.
    EXPECT_EQ(passer_kind("7r/8/8/7k/1P5p/8/8/K7 w - -", White, 3), Mobile);
    EXPECT_EQ(passer_kind("R6r/8/8/7k/1P5p/8/8/K7 w - -", White, 3), Free);
    // The same with a bishop that stands on the way and bears on none of its squares.
    EXPECT_EQ(passer_kind("8/1b6/8/7k/1P5p/8/8/K7 w - -", White, 3), Mobile);
    EXPECT_EQ(passer_kind("8/Rb6/8/7k/1P5p/8/8/K7 w - -", White, 3), Free);
    // Free pawns are kept for the scale factor.
    EXPECT_EQ(work_of("8/8/8/7k/1P5p/8/8/K7 w - -")->free_passers, squares_of("b4 h4"));
    EXPECT_EQ(work_of("7r/8/8/7k/1P5p/8/8/K7 w - -")->free_passers & squares_of("b4"), 0u);
}

TEST(EvalPawns, StepIsJudgedByTheExchange)
{
    // The rook behind the pawn attacks the square in front once the pawn has gone.
    EXPECT_EQ(passer_kind("8/8/8/1P5k/3K3p/8/8/1r6 w - -", White, 4), Stuck);
    EXPECT_EQ(passer_kind("8/8/8/1P5k/7p/8/1R6/K7 w - -", White, 4), Free);
    // Attacked by a rook and defended by a rook: nothing is lost.
    EXPECT_EQ(passer_kind("8/8/1r6/8/1P5k/7p/8/KR6 w - -", White, 3), Mobile);
    EXPECT_EQ(passer_kind("8/8/7r/1P5k/7p/8/8/KR6 w - -", White, 4), Mobile);
    EXPECT_EQ(passer_kind("8/8/7r/1P5k/7p/8/8/K7 w - -", White, 4), Stuck);
}

TEST(EvalPawns, ConnectedPassedPawnByRank)
{
    // The pawn beside defends the square in front.
    const char* const texts[8] = { nullptr, nullptr, nullptr, "8/8/8/7k/PP5p/8/8/K7 w - -",
        "8/8/8/PP5k/7p/8/8/K7 w - -", "8/8/PP6/7k/7p/8/8/K7 w - -", "8/PP6/8/7k/7p/8/8/K7 w - -",
        nullptr };
    for (i32 rank = 3; rank < 7; ++rank) {
        const i32 each = static_cast<i32>(1000 * connected_parts[rank] + 0.001);
        EXPECT_EQ(thousandths(texts[rank], White, ppawn_connected), 2 * each) << rank;
    }
}

TEST(EvalPawns, DangerOfPassedPawnsGoesToTheEnemy)
{
    struct Case {
        const char* text;
        i32 danger;
    };
    const Case cases[] = {
        { "8/8/8/7k/1P5p/7P/8/K7 w - -", 150 },
        { "8/8/8/1P5k/7p/7P/8/K7 w - -", 300 },
        { "8/8/1P6/7k/7p/7P/8/K7 w - -", 600 },
        { "8/1P6/8/7k/7p/7P/8/K7 w - -", 1200 },
        { "8/8/8/7k/7p/1P5P/8/K7 w - -", 0 },
        { "7r/8/8/7k/1P5p/7P/8/K7 w - -", 75 },  // mobile
        { "8/8/8/1n5k/1P5p/7P/8/K7 w - -", 37 }, // stuck: 150 / 4
        { "8/1P1n4/8/7k/7p/7P/8/K7 w - -", 300 },
    };
    for (const Case& one : cases) {
        EXPECT_EQ(work_of(one.text)->danger[Black], one.danger) << one.text;
    }
    EXPECT_EQ(work_of("k7/7p/7P/7K/8/8/1p6/8 w - -")->danger[White], 1200);
}

TEST(EvalPawns, CandidatesStandOnTheMiddleRanks)
{
    // e4 beside d4 against d6: no pawn in front, support where d6 bears, free two ranks on.
    EXPECT_EQ(work_of("4k3/8/3p4/8/3PP3/8/8/4K3 w - -")->candidates, squares_of("e4"));
    EXPECT_EQ(work_of("4k3/8/8/3p4/8/3PP3/8/4K3 w - -")->candidates, 0u);
    EXPECT_EQ(work_of("4k3/3pp3/8/3P4/8/8/8/4K3 w - -")->candidates, 0u);
    EXPECT_EQ(work_of("4k3/8/8/3pp3/8/3P4/8/4K3 w - -")->candidates, squares_of("e5"));
    EXPECT_EQ(work_of("4k3/8/3pp3/8/3P4/8/8/4K3 w - -")->candidates, 0u);
}

TEST(EvalPawns, WhatBarsACandidate)
{
    // Stop square occupied.
    EXPECT_EQ(work_of("4k3/8/3p4/4n3/3PP3/8/8/4K3 w - -")->candidates, 0u);
    // Stop square attacked by a pawn with no own pawn to help.
    EXPECT_EQ(work_of("4k3/8/3p4/8/4P3/3P4/8/4K3 w - -")->candidates, 0u);
    // Attacked by two pawns, defended by one.
    EXPECT_EQ(work_of("4k3/8/3p1p2/8/3PP3/8/8/4K3 w - -")->candidates, 0u);
    EXPECT_EQ(work_of("4k3/8/3p1p2/8/3PPP2/8/8/4K3 w - -")->candidates, squares_of("e4"));
    // A pawn that can come to bear two ranks on.
    EXPECT_EQ(work_of("4k3/3p4/8/8/3PP3/8/8/4K3 w - -")->candidates, 0u);
    // An enemy pawn in front.
    EXPECT_EQ(work_of("4k3/4p3/3p4/8/3PP3/8/8/4K3 w - -")->candidates, 0u);
}

TEST(EvalPawns, KingsHoldACandidatesStopSquareTogetherWithAPawn)
{
    // The black king and d6 hold e5 against d4 alone, and not against d4 with f4 or the own king.
    EXPECT_EQ(work_of("8/8/3pk3/8/3PP3/8/8/4K3 w - -")->candidates, 0u);
    EXPECT_EQ(work_of("8/8/3pk3/8/3PPP2/8/8/4K3 w - -")->candidates, squares_of("e4"));
    EXPECT_EQ(work_of("4k3/8/3p1p2/8/3PPK2/8/8/8 w - -")->candidates, squares_of("e4"));
}

TEST(EvalPawns, CandidateFactorGrowsWithRankAndEnemyKingDistance)
{
    // Rank index 3, the enemy king three steps from e5: 0.15 * 2 + 0.1 * 3.
    EXPECT_EQ(thousandths("4k3/8/3p4/8/3PP3/8/8/4K3 w - -", White, candidate_passer), 600);
    EXPECT_EQ(thousandths("8/8/3p4/8/3PP2k/8/8/4K3 w - -", White, candidate_passer), 600);
    EXPECT_EQ(thousandths("4k3/3p4/8/3PP3/8/8/8/4K3 w - -", White, candidate_passer), 649);
    EXPECT_EQ(thousandths("4k3/8/8/3pp3/8/3P4/8/4K3 w - -", Black, candidate_passer), 600);
    const i32 word =
        isolated_pair("4k3/8/3p4/8/3PP3/8/8/4K3 w - -", White, candidate_passer, -6, 76);
    EXPECT_EQ(score_mg(word), -3); // -3.6
    EXPECT_EQ(score_eg(word), 45); // 45.6
}

TEST(EvalPawns, NoPassedPawnIsACandidateAndRanksAreKept)
{
    for (const std::vector<std::string>& row : read_tsv("eval.tsv")) {
        if (row.at(4) != "1" || row.at(1) == "-10001") {
            continue;
        }
        const EvalWork* work = work_of(row[0].c_str());
        const Position* pos = work->pos;
        EXPECT_EQ(work->candidates & work->passed, 0u) << row[0];
        EXPECT_EQ(work->candidates & pos->bb[White][Pawn] & ~0xffffff000000ULL, 0u) << row[0];
        EXPECT_EQ(work->candidates & pos->bb[Black][Pawn] & ~0xffffff0000ULL, 0u) << row[0];
        u64 passed = 0;
        for (i32 side = White; side <= Black; ++side) {
            u64 left = pos->bb[side][Pawn];
            while (left != 0) {
                const i32 square = pop_lowest(&left);
                if ((passed_mask[side][square] & pos->bb[side ^ 1][Pawn]) == 0) {
                    passed |= bit(square);
                }
            }
        }
        EXPECT_EQ(work->passed, passed) << row[0];
    }
}

// The slot of the pawn cache for the position's pawns with the given wings.
static PawnCacheEntry* pawn_slot(Position* pos, bool white_mirrored, bool black_mirrored)
{
    u64 key = pos->pawn_key;
    key ^= white_mirrored ? 0x5555555555555555ULL : 0;
    key ^= black_mirrored ? 0xaaaaaaaaaaaaaaaaULL : 0;
    PawnCacheEntry* slot = &pos->thread->pawn_cache[key & (pawn_cache_size - 1)];
    return slot->key == key ? slot : nullptr;
}

TEST(EvalPawns, CacheKeyTellsTheWingsOfTheKings)
{
    set_position("6k1/pp3ppp/8/3p4/3P4/8/PP3PPP/6K1 w - -");
    build_weights(NormalWeights);
    Position* pos = set_position("6k1/pp3ppp/8/3p4/3P4/8/PP3PPP/6K1 w - -");
    evaluate_at(pos->thread, White, 1, 0);
    ASSERT_NE(pawn_slot(pos, false, false), nullptr);
    EXPECT_EQ(pawn_slot(pos, true, false), nullptr);
    const i32 same_wing_score = pawn_slot(pos, false, false)->score[White];
    pos = set_position("6k1/pp3ppp/8/3p4/3P4/8/PP3PPP/2K5 w - -");
    evaluate_at(pos->thread, White, 1, 0);
    ASSERT_NE(pawn_slot(pos, true, false), nullptr);
    EXPECT_NE(pawn_slot(pos, true, false)->score[White], same_wing_score);
    pos = set_position("2k5/pp3ppp/8/3p4/3P4/8/PP3PPP/6K1 w - -");
    evaluate_at(pos->thread, White, 1, 0);
    EXPECT_NE(pawn_slot(pos, false, true), nullptr);
    pos = set_position("2k5/pp3ppp/8/3p4/3P4/8/PP3PPP/2K5 w - -");
    evaluate_at(pos->thread, White, 1, 0);
    EXPECT_NE(pawn_slot(pos, true, true), nullptr);
}

TEST(EvalPawns, PawnCacheAnswersFromPlyTwoOnAndIsWrittenAtPlyOne)
{
    Position* pos = set_position("6k1/pp3ppp/8/3p4/3P4/8/PP3PPP/6K1 w - -");
    SearchThread* thread = pos->thread;
    const i32 score = evaluate_at(thread, White, 1, 0);
    PawnCacheEntry* slot = pawn_slot(pos, false, false);
    ASSERT_NE(slot, nullptr);
    const i32 kept = slot->score[White];
    slot->score[White] += pair(40, 40);
    const u64 probes = load(thread->eval_counters[CountPawnProbes]);
    const u64 hits = load(thread->eval_counters[CountPawnHits]);
    thread->eval_cache[pos->key & (eval_cache_size - 1)].key = 0;
    EXPECT_EQ(evaluate_at(thread, White, 2, 0), score + 40);
    EXPECT_EQ(load(thread->eval_counters[CountPawnProbes]), probes + 1);
    EXPECT_EQ(load(thread->eval_counters[CountPawnHits]), hits + 1);
    EXPECT_EQ(evaluate_at(thread, White, 1, 0), score);
    EXPECT_EQ(load(thread->eval_counters[CountPawnProbes]), probes + 2);
    EXPECT_EQ(load(thread->eval_counters[CountPawnHits]), hits + 1);
    EXPECT_EQ(slot->score[White], kept);
}

TEST(EvalPawns, PawnsOnTheFirstAndLastRankAreHarmless)
{
    evaluate_text("P3k3/7p/8/8/8/8/7P/p3K3 w - -");
    EXPECT_EQ(last_work()->danger[White], 0);
    evaluate_text("PPPPkPPP/pppppppp/8/8/8/8/PPPPPPPP/ppppKppp b - -");
    evaluate_text("p3k3/7p/8/8/8/8/7P/P3K3 b - -");
}

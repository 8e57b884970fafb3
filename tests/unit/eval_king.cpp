// The king: shield, checks, the attack curve, trapped kings and the way to the pawns.
#include "eval_test_support.h"

TEST(EvalKing, NoAttackWithEightPointsOfMaterial)
{
    // Rook and minor make eight points, rook and rook ten.
    const char* const little = "6k1/8/8/p7/8/5N2/8/K6R w - -";
    EXPECT_EQ(thousandths(little, Black, pawn_shield), 0);
    EXPECT_EQ(count_uses(little, Black, enemy_checks), 0);
    EXPECT_EQ(thousandths(little, Black, king_danger2), 0);
    EXPECT_EQ(count_uses(little, Black, PST_K + 6), 1);
    const char* const enough = "6k1/8/8/p7/8/5N2/5N2/K6R w - -";
    EXPECT_EQ(thousandths(enough, Black, pawn_shield), -999);
    EXPECT_NE(count_uses(enough, Black, enemy_checks), 0);
}

TEST(EvalKing, ShieldCountsSquaresInFrontOfTheZone)
{
    // Zone f1 to h3, moved up: f2 to h4. Pawns on f2, g2, h2 cover all nine.
    EXPECT_EQ(thousandths("qk6/8/8/8/8/8/5PPP/6K1 w - -", White, pawn_shield), 0);
    EXPECT_EQ(thousandths("qk6/8/8/8/8/7P/5PP1/6K1 w - -", White, pawn_shield), -111);
    EXPECT_EQ(thousandths("qk6/8/8/8/8/8/6PP/6K1 w - -", White, pawn_shield), -333);
    EXPECT_EQ(thousandths("qk6/8/8/8/5PPP/8/8/6K1 w - -", White, pawn_shield), -666);
    EXPECT_EQ(thousandths("qk6/8/8/5PPP/8/8/8/6K1 w - -", White, pawn_shield), -999);
    EXPECT_EQ(thousandths("6k1/5pp1/7p/8/8/8/8/QK6 w - -", Black, pawn_shield), -111);
    const i32 word = isolated_pair("qk6/8/8/5PPP/8/8/8/6K1 w - -", White, pawn_shield, 27, -9);
    EXPECT_EQ(score_mg(word), -26); // -26.97
    EXPECT_EQ(score_eg(word), 8);   // 8.99
}

TEST(EvalKing, SafeQueenCheckNextToTheKingIsADanger)
{
    // h7 is attacked by queen and bishop and held by the king alone.
    const char* const mate = "r4rk1/5pp1/8/7Q/8/3B4/5PPP/6K1 w - -";
    EXPECT_EQ(work_of(mate)->danger[Black] / 800, 1);
    EXPECT_GE(count_uses(mate, Black, enemy_checks), 1);
    // Without the bishop the king guards h7.
    EXPECT_EQ(work_of("r4rk1/5pp1/8/7Q/8/8/5PPP/6K1 w - -")->danger[Black], 0);
    // A distant check counts as a check, not as this danger: d5 on the diagonal to g8.
    const char* const distant = "6k1/6pp/8/8/8/8/5PPP/3Q2K1 w - -";
    EXPECT_EQ(work_of(distant)->danger[Black], 0);
    EXPECT_EQ(count_uses(distant, Black, enemy_checks), 2);
}

TEST(EvalKing, ChecksAreCountedByKindAndSquare)
{
    // Two knights and a queen's worth of material. The knight on e4 checks from f6 alone, which
    // nothing guards; the one on b1 from nowhere.
    const char* const text = "6k1/7p/8/8/4N3/8/1R6/KN2B3 w - -";
    // Rook checks on b8 and g2, knight check on f6.
    EXPECT_EQ(count_uses(text, Black, enemy_checks), 3);
    EXPECT_EQ(work_of(text)->danger[Black], 0);
}

// The height of the curve in thousandths as seen through a weight of 1000.
static i32 curve(i32 points)
{
    const f64 x = points;
    return static_cast<i32>(static_cast<f64>(static_cast<f32>(x * 0.0018 * x)) * 1000);
}

TEST(EvalKing, CurveIsNothingBelowTwoPoints)
{
    // A full shield takes eight points away, the far queen brings none.
    const char* const quiet = "6k1/5ppp/8/8/8/8/5PPP/1QB3K1 w - -";
    EXPECT_EQ(thousandths(quiet, White, king_danger1), 0);
    EXPECT_EQ(thousandths(quiet, White, king_danger2), 0);
}

TEST(EvalKing, CurveWeightDependsOnTheAttackersQueen)
{
    // Rooks on the f and h files before a bare king: four points each for the pieces, then the
    // squares they hold.
    const char* const rooks = "6k1/p7/8/8/8/8/8/K4R1R b - -";
    EXPECT_EQ(thousandths(rooks, Black, king_danger1), 0);
    EXPECT_GT(thousandths(rooks, Black, king_danger2), 0);
    const char* const queens = "6k1/p7/8/8/8/8/8/K6Q b - -";
    EXPECT_GT(thousandths(queens, Black, king_danger1), 0);
    EXPECT_EQ(thousandths(queens, Black, king_danger2), 0);
}

TEST(EvalKing, CurveIsFlatFromThirtyNinePointsOn)
{
    const char* const storm = "6k1/p7/8/6NN/3BB3/8/8/K4QRR b - -";
    EXPECT_EQ(thousandths(storm, Black, king_danger1), curve(39));
    EXPECT_EQ(curve(39), 2737);
}

TEST(EvalKing, SingleRookPoints)
{
    // Rook a7 and knight, knight far away: eleven points of material. The rook reaches the zone
    // f8 to h6 on the seventh rank (4 points) and holds f7, g7, h7 there, all of it weak for
    // rooks (4 each); of the checks a8 is safe, and g7, which the king guards, is not (4 and 1).
    const char* const text = "6k1/R7/8/8/8/p7/8/KNN5 w - -";
    EXPECT_EQ(thousandths(text, Black, king_danger2), curve(4 + 12 + 4 + 1));
    EXPECT_EQ(count_uses(text, Black, enemy_checks), 1);
}

// In the next five the king stands bare on g8, with f6 to h8 as his zone, and two knights far away
// make up the material that an attack needs.
TEST(EvalKing, SingleKnightPoints)
{
    // The knight reaches the zone (4), holds f6 and g7 there (4 each) and checks from f6 (1).
    const char* const text = "6k1/8/8/7N/8/p7/8/KNN5 w - -";
    EXPECT_EQ(thousandths(text, Black, king_danger2), curve(4 + 8 + 1));
}

TEST(EvalKing, SingleBishopPoints)
{
    // The bishop reaches the zone (3) and holds f6, g7 and h8 (3 each); it never checks.
    const char* const text = "6k1/8/8/4B3/8/p7/8/KNN5 w - -";
    EXPECT_EQ(thousandths(text, Black, king_danger2), curve(3 + 9));
}

TEST(EvalKing, SingleQueenPoints)
{
    // The queen reaches the zone (5) and holds f6, g7 and h8 (4 each); she checks on a diagonal and
    // on a line, each from several squares that count once (4 and 1).
    const char* const text = "6k1/8/8/4Q3/8/p7/8/K7 w - -";
    EXPECT_EQ(thousandths(text, Black, king_danger1), curve(5 + 12 + 8 + 2));
    EXPECT_EQ(count_uses(text, Black, enemy_checks), 2);
}

TEST(EvalKing, PawnsAttackCountsWithAPieceBehindIt)
{
    // The pawn stands before the zone (3), and f6, which it attacks with the knight, counts for it
    // (4); h6, which it attacks alone, does not.
    const char* const alone = "6k1/8/8/7N/8/p7/8/KNN5 w - -";
    const char* const with_pawn = "6k1/8/8/6PN/8/p7/8/KNN5 w - -";
    EXPECT_EQ(thousandths(alone, Black, king_danger2), curve(13));
    EXPECT_EQ(thousandths(with_pawn, Black, king_danger2), curve(13 + 3 + 4));
}

TEST(EvalKing, FullShieldTakesEightPoints)
{
    // The queen reaches the zone (5), holds g7, which the king alone guards (4), and checks on the
    // last rank (4 and 1). Nine squares of the shield take eight points.
    const char* const text = "6k1/5ppp/8/4Q3/8/8/8/K7 w - -";
    EXPECT_EQ(thousandths(text, Black, pawn_shield), 0);
    EXPECT_EQ(thousandths(text, Black, king_danger1), curve(5 + 4 + 4 + 1 - 8));
}

TEST(EvalKing, TrappedKingInAnyPhase)
{
    EXPECT_EQ(count_uses("7k/7p/6P1/8/8/8/8/K7 b - -", Black, king_trapped), 0);
    EXPECT_EQ(count_uses("7k/7P/6K1/8/8/8/p7/8 w - -", Black, king_trapped), 1);
    // In mid-board: the rooks leave e4 and e6, the queens cover them.
    EXPECT_EQ(count_uses("3R1R2/8/8/4k3/8/7p/8/1K6 b - -", Black, king_trapped), 0);
    EXPECT_EQ(count_uses("3R1R2/8/Q7/4k3/7Q/8/8/1K5p w - -", Black, king_trapped), 1);
}

TEST(EvalKing, WayToTheNearestPawn)
{
    // Around a1 lie files a and b up to the third rank; each step adds a file and a rank.
    EXPECT_EQ(count_uses("7k/8/8/8/8/8/7p/KN6 w - -", White, king_pawn_prox), 6);
    EXPECT_EQ(count_uses("7k/8/8/8/8/1P6/7p/K7 w - -", White, king_pawn_prox), 0);
    EXPECT_EQ(count_uses("7k/8/8/8/1P6/8/7p/K7 w - -", White, king_pawn_prox), 1);
    EXPECT_EQ(count_uses("7k/8/8/8/8/2p5/7P/K7 w - -", White, king_pawn_prox), 1);
    EXPECT_EQ(count_uses("8/P7/8/7k/8/8/p7/7K w - -", White, king_pawn_prox), 6);
    EXPECT_EQ(count_uses("8/P7/8/7k/8/8/p7/7K w - -", Black, king_pawn_prox), 6);
    // No pawns, no term.
    EXPECT_EQ(count_uses("7k/8/8/8/8/8/7r/KR6 w - -", White, king_pawn_prox), 0);
}

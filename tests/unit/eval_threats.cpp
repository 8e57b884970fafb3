// Hanging and attacked pieces, threats by pawn pushes, pins.
#include "eval_test_support.h"

TEST(EvalThreats, RookAttackedByAMinorHangsThoughDefended)
{
    const char* const text = "4k3/7p/8/5n2/3R4/2P5/8/4K3 w - -";
    EXPECT_EQ(count_uses(text, White, hung_major), 1);
    EXPECT_EQ(count_uses(text, White, attacked_major), 0);
    EXPECT_EQ(work_of(text)->danger[White], 256);
    EXPECT_EQ(work_of(text)->hung, squares_of("d4"));
}

TEST(EvalThreats, MinorAttackedAndDefendedOnceIsMerelyAttacked)
{
    const char* const text = "3rk3/7p/8/8/3B4/8/8/3QK3 w - -";
    EXPECT_EQ(count_uses(text, White, hung_minor), 0);
    EXPECT_EQ(count_uses(text, White, attacked_minor), 1);
    EXPECT_EQ(work_of(text)->danger[White], 0);
    // With a pawn to guard it there is no term at all.
    const char* const guarded = "3rk3/7p/8/8/3B4/2P5/8/3QK3 w - -";
    EXPECT_EQ(count_uses(guarded, White, hung_minor), 0);
    EXPECT_EQ(count_uses(guarded, White, attacked_minor), 0);
}

TEST(EvalThreats, QueenAttackedByAQueenAloneHangs)
{
    const char* const text = "3qk3/7p/8/8/3Q4/8/8/7K w - -";
    EXPECT_EQ(count_uses(text, White, hung_major), 1);
    EXPECT_NE(work_of(text)->hung & squares_of("d4"), 0u);
    // Defended by the king she is attacked only.
    EXPECT_EQ(count_uses("3qk3/7p/8/8/3Q4/3K4/8/8 w - -", White, hung_major), 0);
    EXPECT_EQ(count_uses("3qk3/7p/8/8/3Q4/3K4/8/8 w - -", White, attacked_major), 1);
    // A minor piece that guards her takes the term away.
    EXPECT_EQ(count_uses("3qk3/7p/8/8/3Q4/8/1B6/7K w - -", White, attacked_major), 0);
}

TEST(EvalThreats, MinorAttackedByAPawnHangsThoughDefended)
{
    const char* const text = "4k3/8/8/2p5/3N4/2P5/8/4K3 w - -";
    EXPECT_EQ(count_uses(text, White, hung_minor), 1);
    EXPECT_EQ(work_of(text)->danger[White], 256);
    const char* const black = "4k3/8/2p5/3n4/2P5/8/8/4K3 w - -";
    EXPECT_EQ(count_uses(black, Black, hung_minor), 1);
    EXPECT_EQ(work_of(black)->danger[Black], 256);
}

TEST(EvalThreats, PiecesOfBlack)
{
    const char* const text = "4k3/8/3p4/4r3/2N5/8/7P/6K1 w - -";
    EXPECT_EQ(count_uses(text, Black, hung_major), 1);
    EXPECT_EQ(work_of(text)->danger[Black], 256 + 64); // the pawn on d6 hangs too
    const char* const attacked = "3qk3/8/8/3b4/8/8/7P/3RK3 w - -";
    EXPECT_EQ(count_uses(attacked, Black, hung_minor), 0);
    EXPECT_EQ(count_uses(attacked, Black, attacked_minor), 1);
}

TEST(EvalThreats, AttackedTwiceAndHeldOnceHangs)
{
    // Rooks through each other on the d file against one defender.
    EXPECT_EQ(count_uses("3r1k2/3r3p/8/8/3B4/8/8/3Q2K1 w - -", White, hung_minor), 1);
    EXPECT_EQ(count_uses("3r1k2/3r3p/8/8/3B4/4K3/8/3Q4 w - -", White, hung_minor), 0);
}

TEST(EvalThreats, PawnsCountOnlyOutOfReachOfAllPawns)
{
    // The pawn on d4 is attacked by a rook and defended by nobody, by the king, by a pawn.
    const char* const hanging = "3rk3/7p/8/8/3P4/8/8/7K w - -";
    EXPECT_EQ(count_uses(hanging, White, hung_pawn), 1);
    EXPECT_EQ(count_uses(hanging, White, attacked_pawn), 0);
    EXPECT_EQ(work_of(hanging)->danger[White], 64);
    const char* const held = "3rk3/7p/8/8/3P4/4K3/8/8 w - -";
    EXPECT_EQ(count_uses(held, White, hung_pawn), 0);
    EXPECT_EQ(count_uses(held, White, attacked_pawn), 1);
    const char* const guarded = "3rk3/7p/8/8/3P4/4P3/8/7K w - -";
    EXPECT_EQ(count_uses(guarded, White, hung_pawn) + count_uses(guarded, White, attacked_pawn), 0);
    const char* const bitten = "3rk3/8/8/4p3/3P4/8/8/7K w - -";
    EXPECT_EQ(count_uses(bitten, White, hung_pawn) + count_uses(bitten, White, attacked_pawn), 0);
    const char* const black = "7k/8/8/3p4/8/8/7P/3RK3 w - -";
    EXPECT_EQ(count_uses(black, Black, hung_pawn), 1);
    EXPECT_EQ(work_of(black)->danger[Black], 64);
}

TEST(EvalThreats, SafePawnPushesThatAttack)
{
    // e4-e5 attacks the knights on d6 and f6, both defended.
    EXPECT_EQ(count_uses("4k3/2p3p1/3n1n2/8/4P3/8/8/4K3 w - -", Black, ppush_threat), 2);
    // The double step e2-e4 attacks d5; not from the fourth rank on.
    EXPECT_EQ(count_uses("4k3/2p5/2p5/3n4/8/8/4P3/4K3 w - -", Black, ppush_threat), 1);
    EXPECT_EQ(count_uses("4k3/2p5/3n4/8/8/4P3/8/4K3 w - -", Black, ppush_threat), 0);
    // A blocked pawn does not step, nor over a piece.
    EXPECT_EQ(count_uses("4k3/2p5/2p5/3n4/8/4N3/4P3/4K3 w - -", Black, ppush_threat), 0);
    // A step that gives check counts where a pawn guards it: e4-e5 with the king on d6.
    EXPECT_EQ(count_uses("8/8/3k4/8/3PP3/8/7p/K7 w - -", Black, ppush_threat), 1);
    EXPECT_EQ(count_uses("8/8/3k4/8/4P3/8/7p/K3R3 w - -", Black, ppush_threat), 0);
    // Black's double step.
    EXPECT_EQ(count_uses("4k3/4p3/8/8/3N4/2P5/8/4K3 w - -", White, ppush_threat), 1);
}

TEST(EvalThreats, UnsafePushesAndHangingPiecesDoNotCount)
{
    // e5 is attacked by a pawn.
    EXPECT_EQ(count_uses("4k3/2pp4/5n2/8/4P3/8/8/4K3 w - -", Black, ppush_threat), 1);
    EXPECT_EQ(count_uses("4k3/6p1/3p1n2/8/4P3/8/8/4K3 w - -", Black, ppush_threat), 0);
    // The knight hangs to the rook already.
    const char* const hanging = "4k3/2p5/5n2/8/4P3/8/8/4KR2 w - -";
    EXPECT_NE(work_of(hanging)->hung & squares_of("f6"), 0u);
    EXPECT_EQ(count_uses(hanging, Black, ppush_threat), 0);
}

TEST(EvalThreats, PinsToTheKing)
{
    const char* const piece = "4r1k1/7p/8/8/4N3/8/8/4K3 w - -";
    EXPECT_EQ(count_uses(piece, White, pinned_piece), 1);
    EXPECT_EQ(count_uses(piece, White, pinned_pawn), 0);
    EXPECT_EQ(count_uses("4r1k1/7p/8/8/4P3/8/8/4K3 w - -", White, pinned_pawn), 1);
    EXPECT_EQ(count_uses("4r1k1/7p/8/8/4P3/8/8/4K3 w - -", White, pinned_piece), 0);
    // Two pieces between are no pin.
    EXPECT_EQ(count_uses("4r1k1/7p/8/4N3/4N3/8/8/4K3 w - -", White, pinned_piece), 0);
    // An enemy piece alone between is none either.
    EXPECT_EQ(count_uses("4r1k1/7p/8/8/4n3/8/8/4K3 w - -", White, pinned_piece), 0);
    EXPECT_EQ(count_uses("4r1k1/7p/8/8/4n3/8/8/4K3 w - -", Black, pinned_piece), 0);
    // Diagonals, queens, and a wrong kind of slider.
    EXPECT_EQ(count_uses("6k1/7p/8/b7/8/2N5/8/4K3 w - -", White, pinned_piece), 1);
    EXPECT_EQ(count_uses("6k1/7p/8/q7/8/2N5/8/4K3 w - -", White, pinned_piece), 1);
    EXPECT_EQ(count_uses("6k1/7p/8/r7/8/2N5/8/4K3 w - -", White, pinned_piece), 0);
    EXPECT_EQ(count_uses("4k3/8/4n3/8/8/8/7P/4R1K1 w - -", Black, pinned_piece), 1);
}

TEST(EvalThreats, PinsToTheQueenByLesserPieces)
{
    const char* const bishop = "6k1/7p/5b2/8/3N4/8/1Q6/6K1 w - -";
    EXPECT_EQ(count_uses(bishop, White, pinned_piece), 1);
    EXPECT_EQ(count_uses("1r4k1/7p/8/8/1N6/8/1Q6/6K1 w - -", White, pinned_piece), 1);
    EXPECT_EQ(count_uses("1q4k1/7p/8/8/1N6/8/1Q6/6K1 w - -", White, pinned_piece), 0);
    // Without an own queen there is nothing to shield.
    EXPECT_EQ(count_uses("1r4k1/7p/8/8/1N6/8/1R6/6K1 w - -", White, pinned_piece), 0);
    EXPECT_EQ(count_uses("1q4k1/8/8/8/1n6/8/7P/1R4K1 w - -", Black, pinned_piece), 1);
}

TEST(EvalThreats, OnlyTheLowestQueenIsLookedAt)
{
    EXPECT_EQ(count_uses("r5k1/7p/N7/8/8/8/Q7/5Q1K w - -", White, pinned_piece), 0);
    EXPECT_EQ(count_uses("r5k1/7p/N7/8/8/8/Q7/7K w - -", White, pinned_piece), 1);
    // The lowest square for black too.
    EXPECT_EQ(count_uses("k7/q7/n7/8/8/6q1/7P/R6K w - -", Black, pinned_piece), 0);
}

TEST(EvalThreats, PieceShieldingKingAndQueenCountsOnce)
{
    EXPECT_EQ(count_uses("4r1k1/7p/8/8/8/4N3/4Q3/4K3 w - -", White, pinned_piece), 1);
}

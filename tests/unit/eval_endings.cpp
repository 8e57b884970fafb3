// Endings judged by rules of their own, and the scale factor.
#include <string>

#include "eval_test_support.h"
#include "search/thread.h"

// A rule of its own leaves danger and the cache alone.
static i32 evaluate_early(const char* text)
{
    Position* pos = set_position(text);
    SearchThread* thread = pos->thread;
    EvalCacheEntry* slot = &thread->eval_cache[pos->key & (eval_cache_size - 1)];
    slot->key = 5;
    thread->ply_rec[2].danger[White] = 21;
    thread->ply_rec[2].danger[Black] = 22;
    const i32 score = evaluate_at(thread, pos->stm, 2, 0);
    EXPECT_EQ(slot->key, 5u) << text;
    EXPECT_EQ(thread->ply_rec[2].danger[White], 21) << text;
    EXPECT_EQ(thread->ply_rec[2].danger[Black], 22) << text;
    slot->key = 0;
    return score;
}

// The scale factor of a position for a score from white's view.
static f32 scale_of(const char* text, i32 value)
{
    return scale_factor(work_of(text), value);
}

static f32 product(f64 a, f64 b)
{
    return static_cast<f32>(static_cast<f64>(static_cast<f32>(a)) * b);
}

TEST(EvalEndings, DrawnMaterial)
{
    const char* const texts[] = {
        "4k3/8/8/8/8/8/8/4K3 w - -",
        "4k3/8/8/8/8/8/8/2B1K3 w - -",
        "2b1k3/8/8/8/8/8/8/2B1K3 w - -", // bishops on opposite colours
        "4kb2/8/8/8/8/8/8/2B1K3 b - -",  // and on the same colour
        "4k3/8/8/8/8/8/8/1N2K1N1 w - -",
        "4k1n1/8/8/8/8/8/8/1N2K1N1 w - -",
        "1n2k1n1/8/8/8/8/8/8/1N2K1N1 b - -",
        "2b1k3/8/8/8/8/8/8/1N2K1N1 b - -",
    };
    for (const char* text : texts) {
        EXPECT_EQ(evaluate_early(text), 0) << text;
    }
}

TEST(EvalEndings, OtherMaterialIsNotDrawn)
{
    const char* const texts[] = {
        "4k3/8/8/8/8/8/8/1NB1K3 w - -",
        "4k3/8/8/8/8/8/8/1NN1K1N1 w - -",
        "4k3/8/8/8/8/8/8/2B1KB2 w - -",
        "2b1k3/8/8/8/8/8/8/1NB1K3 w - -",
        "4k3/8/8/8/8/8/8/R3K3 w - -",
        "4k3/8/8/8/8/8/P7/2B1K3 w - -",
    };
    for (const char* text : texts) {
        EXPECT_FALSE(is_drawn_material(set_position(text))) << text;
    }
}

TEST(EvalEndings, LonePawnAgainstKing)
{
    // King distances to the promotion square, four a rank, 800 for a win.
    EXPECT_EQ(evaluate_early("3k4/8/3K4/3P4/8/8/8/8 w - -"), 0 + 16 - 2 + 800);
    EXPECT_EQ(evaluate_early("3k4/8/3K4/3P4/8/8/8/8 b - -"), -(0 + 16 - 2 + 800));
    EXPECT_EQ(evaluate_early("4k3/8/4K3/4P3/8/8/8/8 w - -"), 814);
    EXPECT_EQ(evaluate_early("k7/8/K7/P7/8/8/8/8 w - -"), 14);
    EXPECT_EQ(evaluate_early("7k/8/7K/7P/8/8/8/8 b - -"), -14);
    EXPECT_EQ(evaluate_early("3k4/3P4/3K4/8/8/8/8/8 w - -"), 0 + 24 - 2 + 800);
    EXPECT_EQ(evaluate_early("3k4/3P4/3K4/8/8/8/8/8 b - -"), -22); // stalemate
    EXPECT_EQ(evaluate_early("8/8/8/8/P7/8/8/K6k w - -"), 7 + 12 - 7 + 800);
}

TEST(EvalEndings, LonePawnOfBlack)
{
    EXPECT_EQ(evaluate_early("8/8/8/8/3p4/3k4/8/3K4 b - -"), 814);
    EXPECT_EQ(evaluate_early("8/8/8/8/3p4/3k4/8/3K4 w - -"), -814);
    EXPECT_EQ(evaluate_early("8/8/8/8/4p3/4k3/8/4K3 w - -"), -814);
    EXPECT_EQ(evaluate_early("8/8/8/8/7p/7k/8/7K b - -"), 14);
    EXPECT_EQ(evaluate_early("8/8/8/8/8/3k4/3p4/3K4 w - -"), -22);
}

TEST(EvalEndings, BishopAndKnightDriveTheKingToTheBishopsCorner)
{
    // Dark bishop: corner 7 at a1, own king on the inner squares, two steps apart.
    EXPECT_EQ(evaluate_early("8/8/8/8/8/2K5/8/k1B1N3 w - -"), 740 + 56 + 20 - 12);
    EXPECT_EQ(evaluate_early("8/8/8/8/8/2K5/8/k1B1N3 b - -"), -804);
    // The same bishop with the king in the wrong corner.
    EXPECT_EQ(evaluate_early("k7/8/2K5/8/8/8/8/2B1N3 w - -"), 740 + 0 + 20 - 12);
    // A light bishop covers a8.
    EXPECT_EQ(evaluate_early("k7/8/2K5/8/8/8/8/4NB2 w - -"), 804);
    // Own king on the edge and on the second ring.
    EXPECT_EQ(evaluate_early("7k/8/8/8/8/8/8/2B1N1K1 w - -"), 740 + 56 + 0 - 42);
    EXPECT_EQ(evaluate_early("7k/8/8/8/8/8/6K1/2B1N3 w - -"), 740 + 56 + 10 - 36);
    EXPECT_EQ(evaluate_early("2b1n3/8/8/8/8/5k2/8/7K b - -"), 804);
}

TEST(EvalEndings, HeavyPiecesAgainstLoneKing)
{
    // h8 is worth 60 at the edge; the kings are five steps apart.
    EXPECT_EQ(evaluate_early("7k/8/8/8/8/4K3/8/3Q4 w - -"), 1200 + 2 * (60 - 40));
    EXPECT_EQ(evaluate_early("7k/8/8/8/8/4K3/P7/3Q4 w - -"), 1200 + 2 * (60 - 40));
    EXPECT_EQ(evaluate_early("7k/8/8/8/8/4K3/8/3R4 b - -"), -(700 + 2 * (60 - 40)));
    EXPECT_EQ(evaluate_early("8/8/8/4k3/8/4K3/8/3R4 w - -"), 700 + 2 * (0 - 16));
    EXPECT_EQ(evaluate_early("8/5k2/8/8/8/4K3/8/3RB3 w - -"), 1000 + 2 * (30 - 32));
    EXPECT_EQ(evaluate_early("3r4/8/4k3/8/8/8/8/7K w - -"), -(700 + 2 * (60 - 40)));
}

TEST(EvalEndings, OtherMaterialAgainstLoneKingIsEvaluatedInFull)
{
    const char* const texts[] = {
        "4k3/8/8/8/8/8/8/2B1KB2 w - -",
        "4k3/8/8/8/8/8/6PP/4K3 w - -",
        "4k3/8/8/8/8/8/7P/2B1K3 w - -",
        "4k3/8/8/8/8/8/7P/1NB1K3 w - -",
    };
    for (const char* text : texts) {
        i32 score = 0;
        EXPECT_FALSE(eval_lone_king(set_position(text), White, &score)) << text;
    }
}

TEST(EvalScale, MuchMaterialOrALargeGapIsNotScaled)
{
    // Eleven points against ten; four points of difference.
    EXPECT_EQ(scale_of("q3k3/8/8/8/8/8/8/RBB1K3 w - -", 100), 1.0f);
    EXPECT_EQ(scale_of("2nnk3/8/8/8/8/8/8/RR2K3 w - -", 100), 1.0f);
    EXPECT_EQ(scale_of("2nnk3/8/8/8/8/8/8/RR2K3 w - -", -100), 1.0f);
    EXPECT_EQ(scale_of("rnk5/8/8/8/8/8/8/RR2K3 w - -", 100), 0.15f);
}

TEST(EvalScale, NoPawnsOfTheBetterSide)
{
    EXPECT_EQ(scale_of("2b1k3/8/8/8/8/8/8/R3K3 w - -", 100), 0.15f);
    EXPECT_EQ(scale_of("2b1k3/8/8/8/8/8/8/R3K3 w - -", -100), 0.15f);
    EXPECT_EQ(scale_of("2n1k3/8/8/8/8/8/8/2B1KB2 w - -", 100), 0.75f);
    EXPECT_EQ(scale_of("2n1k3/7p/8/8/8/8/8/2B1KB2 w - -", 100), 0.15f);
    EXPECT_EQ(scale_of("2b1k3/8/8/8/8/8/8/2B1KB2 w - -", 100), 0.15f);
    EXPECT_EQ(scale_of("2n1k3/8/8/8/8/8/8/2B1KB2 w - -", -100), 0.15f);
    EXPECT_EQ(scale_of("2b1kb2/8/8/8/8/8/8/2N1K3 w - -", -100), 0.75f);
    EXPECT_EQ(scale_of("2b1k3/8/8/8/8/8/8/R3K3 w - -", 0), 1.0f);
}

TEST(EvalScale, WrongRookPawn)
{
    // The light bishop does not cover h8, the dark one does not cover a8.
    EXPECT_EQ(scale_of("7k/8/8/8/8/8/7P/4KB2 w - -", 100), 0.05f);
    EXPECT_EQ(scale_of("8/6k1/8/8/7P/8/7P/4KB2 w - -", 100), 0.05f);
    EXPECT_NE(scale_of("8/5k2/8/8/8/8/7P/4KB2 w - -", 100), 0.05f);
    EXPECT_NE(scale_of("7k/8/8/8/8/8/7P/2B1K3 w - -", 100), 0.05f);
    EXPECT_EQ(scale_of("k7/8/8/8/8/8/P7/2B1K3 w - -", 100), 0.05f);
    EXPECT_NE(scale_of("k7/8/8/8/8/8/P7/4KB2 w - -", 100), 0.05f);
    EXPECT_NE(scale_of("7k/8/8/8/8/8/6PP/4KB2 w - -", 100), 0.05f);
    EXPECT_NE(scale_of("7k/8/8/8/8/8/7P/4KN2 w - -", 100), 0.05f);
    EXPECT_NE(scale_of("7k/8/8/8/8/8/7P/4KB2 w - -", -100), 0.05f);
    // No bishop at all is no bishop of the corner's colour.
    EXPECT_EQ(scale_of("7k/8/8/8/7P/8/7P/4K3 w - -", 100), 0.05f);
    EXPECT_EQ(scale_of("7k/p7/8/8/7P/8/7P/4K3 w - -", 100), 0.05f);
}

TEST(EvalScale, WrongRookPawnOfBlack)
{
    EXPECT_EQ(scale_of("4kb2/7p/8/8/8/8/8/7K w - -", -100), 0.05f); // dark bishop, h1 light
    EXPECT_NE(scale_of("2b1k3/7p/8/8/8/8/8/7K w - -", -100), 0.05f);
    EXPECT_EQ(scale_of("2b1k3/p7/8/8/8/8/1K6/8 w - -", -100), 0.05f);
    EXPECT_NE(scale_of("4kb2/p7/8/8/8/8/1K6/8 w - -", -100), 0.05f);
    EXPECT_NE(scale_of("2b1k3/p7/8/8/8/8/1K6/8 w - -", 100), 0.05f);
}

TEST(EvalScale, BishopAndWrongRookPawnNearlyDraw)
{
    const i32 value = evaluate_text("7k/8/8/8/8/8/7P/4KB2 w - -");
    EXPECT_GT(value, 0);
    EXPECT_LT(value, 50);
}

TEST(EvalScale, OppositeBishops)
{
    // Bishops alone: 0.65 twice with at most one pawn more, 0.8 first with two.
    for (const i32 value : { -50, 0, 50 }) {
        EXPECT_EQ(scale_of("2b1k3/5ppp/8/8/8/8/5PPP/2B1K3 w - -", value), product(0.65, 0.65));
        EXPECT_EQ(scale_of("2b1k3/5ppp/8/8/8/8/4PPPP/2B1K3 w - -", value), product(0.65, 0.65));
        EXPECT_EQ(scale_of("2b1k3/5ppp/8/8/8/8/3PPPPP/2B1K3 w - -", value), product(0.8, 0.65));
        EXPECT_EQ(scale_of("2b1k3/3ppppp/8/8/8/8/5PPP/2B1K3 w - -", value), product(0.8, 0.65));
        EXPECT_EQ(scale_of("2b1k3/5ppp/8/8/8/8/2PPPPPP/2B1K3 w - -", value), 1.0f);
        EXPECT_EQ(scale_of("r1b1k3/5ppp/8/8/8/8/5PPP/R1B1K3 w - -", value), 0.65f);
        EXPECT_EQ(scale_of("r1b1k3/5ppp/8/8/8/8/3PPPPP/R1B1K3 w - -", value), 0.8f);
        // Same colour; two bishops; another balance of pieces.
        EXPECT_EQ(scale_of("4kb2/5ppp/8/8/8/8/5PPP/2B1K3 w - -", value), 1.0f);
        EXPECT_EQ(scale_of("2b1k3/5ppp/8/8/8/8/5PPP/2BBK3 w - -", value), 1.0f);
        EXPECT_EQ(scale_of("2b1k3/5ppp/8/8/8/8/5PPP/1NB1K3 w - -", value), 1.0f);
    }
}

TEST(EvalScale, FewPawns)
{
    // Rooks, two pawns against one; no free passed pawn.
    EXPECT_EQ(scale_of("r3k3/6p1/8/8/8/8/6PP/R3K3 w - -", 100), 0.85f);
    EXPECT_EQ(scale_of("r3k3/8/8/8/8/8/6PP/R3K3 w - -", 100), 1.0f);
    EXPECT_EQ(scale_of("r3k3/5ppp/8/8/8/8/5PPP/R3K3 w - -", 100), 1.0f);
    EXPECT_EQ(scale_of("r3k3/6pp/8/8/8/8/6PP/R3K3 w - -", 0), 1.0f);
    // One pawn: against a minor piece or without.
    EXPECT_EQ(scale_of("2n1k3/6p1/8/8/8/8/6P1/2N1K3 w - -", 100), product(0.5, 0.85));
    EXPECT_EQ(scale_of("r3k3/6p1/8/8/8/8/6P1/R3K3 w - -", 100), product(0.75, 0.85));
    // The enemy has no piece.
    EXPECT_EQ(scale_of("4k3/5ppp/8/8/8/8/6PP/4K3 w - -", 100), 1.0f);
    // Black.
    EXPECT_EQ(scale_of("r3k3/6pp/8/8/8/8/6P1/R3K3 w - -", -100), 0.85f);
    EXPECT_EQ(scale_of("2n1k3/6p1/8/8/8/8/6P1/2N1K3 w - -", -100), product(0.5, 0.85));
    EXPECT_EQ(scale_of("r3k3/6p1/8/8/8/8/6P1/R3K3 w - -", -100), product(0.75, 0.85));
}

TEST(EvalScale, FreePassedPawnSparesTheLastFactor)
{
    const char* const text = "8/8/1P6/8/7k/6p1/6P1/n3K3 w - -";
    EXPECT_NE(work_of(text)->free_passers, 0u);
    EXPECT_EQ(scale_of(text, 100), 1.0f);
    EXPECT_EQ(scale_of("8/8/8/8/7k/5pp1/1P4P1/n3K3 w - -", 100), 0.85f);
}

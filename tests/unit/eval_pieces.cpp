// Mobility, outposts and special terms of the pieces, and their attack sets.
#include <string>
#include <vector>

#include "eval_test_support.h"

// Parts of the mobility weights in hundredths, by number of squares.
static const std::vector<f32> knight_parts = { -0.40f, -0.17f, -0.02f, 0.10f, 0.22f, 0.32f, 0.42f,
    0.51f, 0.60f };
static const std::vector<f32> bishop_parts = { -0.40f, -0.23f, -0.13f, -0.04f, 0.04f, 0.11f, 0.18f,
    0.25f, 0.31f, 0.37f, 0.43f, 0.49f, 0.55f, 0.60f };
static const std::vector<f32> rook_parts = { -0.40f, -0.24f, -0.14f, -0.06f, 0.02f, 0.09f, 0.15f,
    0.22f, 0.28f, 0.33f, 0.39f, 0.44f, 0.50f, 0.55f, 0.60f };
static const std::vector<f32> queen_parts = { -0.40f, -0.25f, -0.17f, -0.10f, -0.04f, 0.02f, 0.07f,
    0.12f, 0.17f, 0.22f, 0.26f, 0.30f, 0.34f, 0.38f, 0.42f, 0.46f, 0.49f, 0.52f, 0.55f, 0.58f,
    0.60f, 0.60f, 0.60f, 0.60f, 0.60f, 0.60f, 0.60f, 0.60f };

static i32 expected_mobility(const std::vector<f32>& parts, u64 squares)
{
    const f64 part = static_cast<f64>(parts.at(static_cast<size_t>(popcount(squares))));
    return static_cast<i32>(part * 1000);
}

TEST(EvalPieces, KnightMobilityByNumberOfSquares)
{
    struct Case {
        const char* text;
        size_t squares;
    };
    // The knight on e4 has eight squares; own pawns, then black pawns' guards take them away.
    const Case cases[] = {
        { "7k/8/8/8/4N3/8/8/K6p w - -", 8 }, { "7k/8/3P4/8/4N3/8/8/K6p w - -", 7 },
        { "7k/8/3P1P2/8/4N3/8/8/K6p w - -", 6 }, { "7k/8/3P1P2/2P5/4N3/8/8/K6p w - -", 5 },
        { "7k/8/3P1P2/2P3P1/4N3/8/8/K6p w - -", 4 }, { "7k/8/3P1P2/2P3P1/4N3/2P5/8/K6p w - -", 3 },
        { "7k/8/3P1P2/2P3P1/4N3/2P3P1/8/K6p w - -", 2 },
        { "7k/8/3P1P2/2P3P1/4N3/2P3P1/3P4/K6p w - -", 1 },
        { "7k/8/3P1P2/2P3P1/4N3/2P3P1/3P1P2/K6p w - -", 0 }, { "7k/4p3/8/8/4N3/8/8/K6p w - -", 6 },
        { "7k/8/3p1p2/8/4N3/8/8/K7 w - -", 6 }, // guarded: c5 and g5
    };
    for (const Case& one : cases) {
        const f64 part = static_cast<f64>(knight_parts[one.squares]);
        EXPECT_EQ(thousandths(one.text, White, knight_mobility), static_cast<i32>(part * 1000))
            << one.text;
    }
}

TEST(EvalPieces, MobilityOfAllPiecesFollowsTheCurves)
{
    for (const std::vector<std::string>& row : read_tsv("eval.tsv")) {
        if (row.at(4) != "1" || row.at(1) == "-10001") {
            continue;
        }
        const char* const text = row[0].c_str();
        const EvalWork* work = work_of(text);
        const Position* pos = work->pos;
        for (i32 side = White; side <= Black; ++side) {
            const u64* own = pos->bb[side];
            const u64 pnb = work->attacks_pnb[side ^ 1];
            const u64 pnbr = work->attacks_pnbr[side ^ 1];
            const u64 pawn_guard = work->attacks[side ^ 1][Pawn];
            i32 expected[4] = { 0, 0, 0, 0 };
            for (i32 square = 0; square < 64; ++square) {
                const u64 occupied = work->occupied;
                if (own[Knight] & bit(square)) {
                    expected[0] += expected_mobility(
                        knight_parts, knight_attacks[square] & ~own[0] & ~pawn_guard);
                } else if (own[Bishop] & bit(square)) {
                    expected[1] += expected_mobility(bishop_parts,
                        bishop_attacks(square, occupied & ~own[Queen]) & ~own[0] & ~pawn_guard);
                } else if (own[Rook] & bit(square)) {
                    expected[2] += expected_mobility(rook_parts,
                        rook_attacks(square, occupied & ~own[Queen] & ~own[Rook]) & ~own[0] & ~pnb);
                } else if (own[Queen] & bit(square)) {
                    expected[3] += expected_mobility(queen_parts,
                        (bishop_attacks(square, occupied) | rook_attacks(square, occupied))
                            & ~own[0] & ~pnbr);
                }
            }
            EXPECT_EQ(thousandths(text, side, knight_mobility), expected[0]) << text;
            EXPECT_EQ(thousandths(text, side, bishop_mobility), expected[1]) << text;
            EXPECT_EQ(thousandths(text, side, rook_mobility), expected[2]) << text;
            EXPECT_EQ(thousandths(text, side, queen_mobility), expected[3]) << text;
        }
    }
}

TEST(EvalPieces, MobilityTakesTheRealWeightAndTruncatesEachHalf)
{
    // 51.7 * 0.6 and -9.9 * 0.6.
    const WeightsRestored restored;
    const char* const text = "7k/8/8/8/4N3/8/8/K6p w - -";
    set_position(text);
    clear_weights();
    set_weight(knight_mobility, 51.7, -9.9);
    const i32 word = work_of(text)->score[White];
    EXPECT_EQ(score_mg(word), 31);
    EXPECT_EQ(score_eg(word), -5);
}

TEST(EvalPieces, TrappedKnightIsADangerOnlyOnTheFarRanks)
{
    // c7 is taken by a pawn, b6 guarded by one.
    const char* const far = "N7/p1P5/8/8/8/6k1/8/4K3 w - -";
    EXPECT_EQ(count_uses(far, White, knight_trapped), 1);
    EXPECT_EQ(work_of(far)->danger[White], 250);
    const char* const home = "4k3/8/8/8/p7/8/1PP5/N3K3 w - -";
    EXPECT_EQ(count_uses(home, White, knight_trapped), 1);
    EXPECT_EQ(work_of(home)->danger[White], 0);
    const char* const black = "4k3/8/6K1/8/8/8/P1p5/n7 b - -";
    EXPECT_EQ(count_uses(black, Black, knight_trapped), 1);
    EXPECT_EQ(work_of(black)->danger[Black], 250);
    EXPECT_EQ(count_uses("4k3/8/8/8/p7/8/1P6/N3K3 w - -", White, knight_trapped), 0);
}

TEST(EvalPieces, TrappedBishopIsADangerOnlyOnTheFarRanks)
{
    const char* const far = "1B6/P1P4p/8/8/8/6k1/8/4K3 w - -";
    EXPECT_EQ(count_uses(far, White, bishop_trapped), 1);
    EXPECT_EQ(work_of(far)->danger[White], 250);
    const char* const home = "4k3/8/8/8/8/7p/1P1P3P/2B1K3 w - -";
    EXPECT_EQ(count_uses(home, White, bishop_trapped), 1);
    EXPECT_EQ(work_of(home)->danger[White], 0);
}

TEST(EvalPieces, TrappedRookAndQueenAreNoDanger)
{
    // The rook sees own pieces only; the queen's way out is guarded by the knight.
    const char* const rook = "RN5k/P7/8/8/8/8/8/K6p w - -";
    EXPECT_EQ(count_uses(rook, White, rook_trapped), 1);
    EXPECT_EQ(work_of(rook)->danger[White], 0);
    const char* const queen = "QN5k/PP6/8/8/8/8/8/K6p w - -";
    EXPECT_EQ(count_uses(queen, White, queen_trapped), 1);
    EXPECT_EQ(work_of(queen)->danger[White], 0);
}

TEST(EvalPieces, OutpostAndAttackOnAnOutpostApplyTogether)
{
    // Pawns on c4 and e4 cover b5, d5 and f5; the knight on d5 attacks none of them, on b5 d6 no.
    EXPECT_EQ(count_uses("4k3/8/8/3N4/2P5/8/8/4K3 w - -", White, knight_outpost), 1);
    EXPECT_EQ(count_uses("4k3/8/8/3N4/2P5/8/8/4K3 w - -", White, knight_outpost_atk), 0);
    // The knight on d5 attacks b6, which the pawn on a5 defends.
    const char* const both = "4k3/8/8/P2N4/2P5/8/8/4K3 w - -";
    EXPECT_EQ(count_uses(both, White, knight_outpost), 1);
    EXPECT_EQ(count_uses(both, White, knight_outpost_atk), 1);
    // Two outposts attacked count once: c3 attacks b5 and d5.
    const char* const attack = "4k3/8/8/8/2P5/2N5/8/4K3 w - -";
    EXPECT_EQ(count_uses(attack, White, knight_outpost), 0);
    EXPECT_EQ(count_uses(attack, White, knight_outpost_atk), 1);
    EXPECT_EQ(count_uses("4k3/8/8/3B4/2P5/8/8/4K3 w - -", White, bishop_outpost), 1);
    EXPECT_EQ(count_uses("4k3/8/8/8/2P5/8/8/3K1B2 w - -", White, bishop_outpost_atk), 0);
    EXPECT_EQ(count_uses("4k3/8/8/8/2P5/8/6B1/3K4 w - -", White, bishop_outpost_atk), 1);
    EXPECT_EQ(count_uses("4k3/8/8/2p5/3n4/8/8/4K3 w - -", Black, knight_outpost), 1);
}

TEST(EvalPieces, BishopsCountCentralSquares)
{
    // From g2 with a clear board: f3, e4, d5, c6.
    EXPECT_EQ(count_uses("6k1/7p/8/8/8/8/6B1/K7 w - -", White, bishop_mob2), 4);
    EXPECT_EQ(count_uses("6k1/7p/8/3p4/8/8/6B1/K7 w - -", White, bishop_mob2), 3);
    EXPECT_EQ(count_uses("6k1/6b1/8/8/8/8/7P/1K6 w - -", Black, bishop_mob2), 4);
}

TEST(EvalPieces, BishopLooksThroughTheOwnQueen)
{
    const char* const text = "k7/p7/8/8/3Q4/8/1B6/K7 w - -";
    const EvalWork* work = work_of(text);
    const u64 beyond = squares_of("e5 f6 g7 h8");
    EXPECT_EQ(work->attacks[White][Bishop] & beyond, beyond);
    EXPECT_EQ(work->double_attacks[White] & beyond, beyond);
    // a3, c1, c3, e5 to h8; not a1, not the queen's square.
    EXPECT_EQ(thousandths(text, White, bishop_mobility), expected_mobility(bishop_parts, 0x7f));
    // The enemy's queen is in the way.
    EXPECT_EQ(work_of("k7/p7/8/8/3q4/8/1B6/1K6 w - -")->attacks[White][Bishop] & beyond, 0u);
}

TEST(EvalPieces, RooksSeeThroughEachOther)
{
    const char* const text = "7k/7p/8/8/8/8/R7/R6K w - -";
    const EvalWork* work = work_of(text);
    EXPECT_NE(work->double_attacks[White] & squares_of("a8"), 0u);
    EXPECT_EQ(count_uses(text, White, rook_mob2), 8);
    EXPECT_EQ(count_uses(text, White, rook_openfile), 2);
    // A rook behind the own queen; the black half for black.
    EXPECT_EQ(count_uses("7k/7p/8/8/8/8/Q7/R6K w - -", White, rook_mob2), 4);
    EXPECT_EQ(count_uses("r6k/7p/8/8/8/8/7P/7K w - -", Black, rook_mob2), 4);
    EXPECT_EQ(count_uses("7k/p6p/8/8/8/8/8/R6K w - -", White, rook_mob2), 3);
}

TEST(EvalPieces, OpenFileHasNoPawnOfEitherColour)
{
    EXPECT_EQ(count_uses("4k3/1p6/8/8/8/8/8/RR2K3 w - -", White, rook_openfile), 1);
    EXPECT_EQ(count_uses("4k3/8/8/8/8/8/1P5p/RR2K3 w - -", White, rook_openfile), 1);
    EXPECT_EQ(count_uses("rr2k3/8/8/8/8/8/1P6/4K3 w - -", Black, rook_openfile), 1);
}

TEST(EvalPieces, SeventhRankNeedsTheEnemyKingThereOrBehind)
{
    EXPECT_EQ(count_uses("7k/R6p/8/8/8/8/8/K7 w - -", White, rook_7th), 1);
    EXPECT_EQ(count_uses("8/R2p2k1/8/8/8/8/8/K7 w - -", White, rook_7th), 1);
    EXPECT_EQ(count_uses("8/R6p/7k/8/8/8/8/K7 w - -", White, rook_7th), 0);
    EXPECT_EQ(count_uses("7k/7p/R7/8/8/8/8/K7 w - -", White, rook_7th), 0);
    EXPECT_EQ(count_uses("8/k7/8/8/8/8/r6P/7K w - -", Black, rook_7th), 1);
    EXPECT_EQ(count_uses("8/k7/8/8/8/7K/r6P/8 w - -", Black, rook_7th), 0);
}

TEST(EvalPieces, MinorGuardsTakeSquaresFromRooksButNotFromMinors)
{
    // d4 attacks b3, c2, e2, f3, b5, c6, e6, f5: on the rook's lines from c1 that is c2 and c6.
    const char* const text = "7k/7p/8/8/3n4/8/8/K1R5 w - -";
    set_position(text);
    const u64 seen = rook_attacks(square_of("c1"), squares_of("a1 c1"));
    const i32 open = popcount(seen & ~squares_of("a1"));
    EXPECT_EQ(thousandths(text, White, rook_mobility),
        expected_mobility(rook_parts, (1ULL << (open - 2)) - 1));
    // The knight on e4 guards c3 and d2, to which the other one may go all the same, and c3, which
    // the bishop looks at.
    EXPECT_EQ(thousandths("7k/7p/8/8/4n3/8/8/KN6 w - -", White, knight_mobility),
        expected_mobility(knight_parts, squares_of("a3 c3 d2")));
    EXPECT_EQ(thousandths("7k/7p/8/8/4n3/8/1P6/K3B3 w - -", White, bishop_mobility),
        expected_mobility(bishop_parts, squares_of("d2 c3 b4 a5 f2 g3 h4")));
}

TEST(EvalPieces, QueenMayMoveToAnEnemyPieceUnlessALesserOneGuardsIt)
{
    // Both positions differ by the guard of d7 alone; its own squares are off the queen's lines.
    const i32 loose = thousandths("k7/3p4/8/8/8/3Q4/8/K7 w - -", White, queen_mobility);
    const EvalWork* work = work_of("k7/3p4/8/8/8/3Q4/8/K7 w - -");
    const u64 squares = work->attacks[White][Queen] & ~work->attacks_pnbr[Black];
    EXPECT_NE(squares & squares_of("d7"), 0u);
    EXPECT_EQ(loose, expected_mobility(queen_parts, squares));
    const EvalWork* guarded = work_of("k7/3p4/1n6/8/8/3Q4/8/K7 w - -");
    EXPECT_NE(guarded->attacks[White][Queen] & squares_of("d7"), 0u);
    EXPECT_NE(guarded->attacks_pnbr[Black] & squares_of("d7"), 0u);
}

TEST(EvalPieces, MostSquaresAreWithinTheCurves)
{
    EXPECT_EQ(thousandths("7k/7p/8/8/3R4/8/8/K7 w - -", White, rook_mobility), 600);
    EXPECT_EQ(thousandths("1k6/7p/8/8/3Q4/8/8/1K6 w - -", White, queen_mobility), 600);
    EXPECT_EQ(thousandths("1k6/7p/8/8/3B4/8/8/1K6 w - -", White, bishop_mobility), 600);
}

TEST(EvalPieces, QueenReachesThroughOwnBishopAndRook)
{
    // Behind the bishop on b2 the queen does not attack, but counts for double attacks.
    const EvalWork* work = work_of("k7/p7/8/8/8/8/1B6/QK6 w - -");
    EXPECT_EQ(work->attacks[White][Queen] & squares_of("c3 d4"), 0u);
    EXPECT_EQ(work->double_attacks[White] & squares_of("c3 d4"), squares_of("c3 d4"));
    const EvalWork* lines = work_of("k7/7p/8/8/8/8/R7/QK6 w - -");
    EXPECT_EQ(lines->attacks[White][Queen] & squares_of("a3"), 0u);
    EXPECT_EQ(lines->double_attacks[White] & squares_of("a3 a7"), squares_of("a3 a7"));
}

TEST(EvalPieces, AttackPointsOncePerPiece)
{
    // The zone of g8 and h8 is f8 to h6. Knight 4, bishop 3, rook 4, queen 5; pawns ahead none.
    EXPECT_EQ(work_of("7k/p7/8/5N2/8/8/8/K7 w - -")->king_attack[Black], 4);
    EXPECT_EQ(work_of("6k1/p7/8/8/8/8/1B6/1K6 b - -")->king_attack[Black], 3);
    EXPECT_EQ(work_of("7k/p7/8/8/8/8/8/K5R1 w - -")->king_attack[Black], 4);
    EXPECT_EQ(work_of("7k/p7/8/8/8/8/8/K5Q1 w - -")->king_attack[Black], 5);
    EXPECT_EQ(work_of("7k/p7/8/8/8/8/6R1/K5R1 w - -")->king_attack[Black], 8);
    EXPECT_EQ(work_of("7k/p7/8/8/8/8/8/KR6 w - -")->king_attack[Black], 0);
    // The queen on d1 reaches h5 through the bishop on e2.
    EXPECT_EQ(work_of("8/p7/7k/8/8/8/4B3/K2Q4 w - -")->king_attack[Black], 8);
}

TEST(EvalPieces, UnionsOfAttacks)
{
    const EvalWork* work =
        work_of("r1bqkb1r/pp3ppp/2n1pn2/2pp4/3P4/2N1PN2/PPPB1PPP/R2QKB1R w KQkq -");
    for (i32 side = White; side <= Black; ++side) {
        const u64* attacks = work->attacks[side];
        EXPECT_EQ(work->attacks_pnb[side], attacks[Pawn] | attacks[Knight] | attacks[Bishop]);
        EXPECT_EQ(work->attacks_pnbr[side], work->attacks_pnb[side] | attacks[Rook]);
        EXPECT_EQ(work->attacks_pnbrq[side], work->attacks_pnbr[side] | attacks[Queen]);
        EXPECT_EQ(attacks[0], work->attacks_pnbrq[side] | attacks[King]);
    }
}

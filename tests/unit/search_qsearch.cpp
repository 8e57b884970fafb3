// The quiescence search: standing pat, the filters in front of a move, and what is stored.
// Nodes stand at the last ply that makes moves, so that each searched move is one node.
#include <string>

#include "search_support.h"
#include "search/control.h"

// A window that no position here reaches.
static constexpr i32 alpha = 2500;
static constexpr i32 beta = 2600;

struct Quiescence : SearchTest {
    // The moves searched at depth with the given static evaluation.
    static std::string searched(const char* fen, i32 depth, i32 eval, Move last_move = NoMove)
    {
        Node node = make_node(fen, last_moving_ply);
        node.thread->last_move = last_move;
        return sorted_moves_made([&] { run_qsearch(&node, depth, alpha, beta, eval); });
    }
};

TEST_F(Quiescence, StandingPatFailsHard)
{
    Node node = make_node(start_position, 5);
    EXPECT_EQ(run_qsearch(&node, 0, 10, 50, 50), 50);
    EXPECT_EQ(run_qsearch(&node, 0, 10, 50, 51), 50);
    EXPECT_EQ(run_qsearch(&node, 0, 10, 50, 700), 50);
    EXPECT_EQ(node_count(), 0u);
    EXPECT_EQ(probe(node.pos).depth, HashNotFound) << "nothing is stored";
}

TEST_F(Quiescence, WithoutACaptureTheBetterOfEvaluationAndAlphaIsTheScore)
{
    Node node = make_node("4k3/8/8/8/8/8/4P3/4K3 w - -", 5);
    EXPECT_EQ(run_qsearch(&node, -1, 10, 90, 40), 40);
    EXPECT_EQ(run_qsearch(&node, -1, 10, 90, -40), 10);
    EXPECT_EQ(node_count(), 0u);
    EXPECT_EQ(node.pv[5], NoMove);
}

TEST_F(Quiescence, CaptureThatCanNotReachAlphaIsSkipped)
{
    // White takes a queen and a pawn, both for nothing.
    const char* fen = "4k3/8/8/3q4/Rp2P3/8/7P/4K3 w - -";
    EXPECT_EQ(searched(fen, -1, alpha - 500), "e4d5");
    EXPECT_EQ(searched(fen, -1, alpha - 200), "a4b4 e4d5");
}

TEST_F(Quiescence, DeltaTestLeavesTheMarginAsItsLimit)
{
    // A rook promises 535. At depth 0 a check is tried too, whatever it promises.
    const char* fen = "4k3/p6r/8/8/8/8/P6R/4K3 w - -";
    EXPECT_EQ(searched(fen, -1, alpha - 150 - 535), "");
    EXPECT_EQ(searched(fen, -1, alpha - 150 - 534), "h2h7");
    EXPECT_EQ(searched(fen, 0, alpha - 150 - 535), "h2e2");
    EXPECT_EQ(searched(fen, 0, alpha - 150 - 534), "h2e2 h2h7");
}

TEST_F(Quiescence, NodesThatDropInFromAPositiveDepthPruneLess)
{
    const char* fen = "4k3/p6r/8/8/8/8/P6R/4K3 w - -";
    EXPECT_EQ(searched(fen, 1, alpha - 450 - 535), "h2e2");
    EXPECT_EQ(searched(fen, 1, alpha - 450 - 534), "h2e2 h2h7");
}

TEST_F(Quiescence, DeltaTestFollowsTheBestScore)
{
    // The first capture, of the queen, lifts the score beyond what the pawn can bring.
    Node node = make_node("4k3/8/8/3q4/Rp2P3/8/7P/4K3 w - -", last_moving_ply);
    i32 score = 0;
    EXPECT_EQ(sorted_moves_made([&] { score = run_qsearch(&node, -1, -100, 3000, -100); }), "e4d5");
    EXPECT_GT(score, 200);
}

TEST_F(Quiescence, FarBelowTheHorizonOnlyRecapturesGoOn)
{
    const char* fen = "4k3/8/8/3q4/Rp2P3/8/7P/4K3 w - -";
    EXPECT_EQ(searched(fen, -4, alpha - 100, move_of("b5b4")), "a4b4");
    EXPECT_EQ(searched(fen, -3, alpha - 100, move_of("b5b4")), "a4b4 e4d5");
}

TEST_F(Quiescence, BehindANullMoveTheRecaptureSquareIsA1)
{
    const char* fen = "4k3/8/8/3q4/4P3/8/1K6/r7 w - -";
    EXPECT_EQ(searched(fen, -4, alpha - 100, NoMove), "b2a1");
}

TEST_F(Quiescence, QuietCheckIsSearchedHoweverFarTheEvaluationLiesBelow)
{
    const char* fen = "4k3/8/8/8/8/8/6K1/R7 w - -";
    EXPECT_EQ(searched(fen, 0, alpha - 3000), "a1a8 a1e1");
    EXPECT_EQ(searched(fen, -1, alpha - 3000), "");
}

TEST_F(Quiescence, QuietCheckThatLosesIsSkipped)
{
    // On a8 the rook is taken by a bishop, on e1 it is safe.
    EXPECT_EQ(searched("4k3/8/8/3b4/8/8/8/R5K1 w - -", 0, alpha - 3000), "a1e1");
}

TEST_F(Quiescence, PushToTheSeventhRankIsTriedWithTheChecks)
{
    const char* fen = "7k/8/P7/8/8/8/8/4K3 w - -";
    EXPECT_EQ(searched(fen, 0, alpha - 1000), "a6a7");
    EXPECT_EQ(searched(fen, 0, alpha - 150 - 1500), "");
    EXPECT_EQ(searched(fen, 0, alpha - 150 - 1499), "a6a7");
}

TEST_F(Quiescence, PawnReachingItsSeventhRankCountsTheSameWhateverItTakes)
{
    const char* white = "7k/1p5p/P7/8/8/8/8/4K3 w - -";
    EXPECT_EQ(searched(white, -1, alpha - 150 - 1499), "a6b7");
    EXPECT_EQ(searched(white, -1, alpha - 150 - 1500), "");
    const char* black = "4k3/8/8/8/8/p7/1P5P/7K b - -";
    EXPECT_EQ(searched(black, -1, alpha - 150 - 1499), "a3b2");
    EXPECT_EQ(searched(black, -1, alpha - 150 - 1500), "");
    const char* promotion = "7k/P7/8/8/8/8/8/4K3 w - -";
    EXPECT_EQ(searched(promotion, -1, alpha - 3000), "a7a8q") << "a check";
    EXPECT_EQ(searched("8/P6k/8/8/8/8/8/4K3 w - -", -1, alpha - 150 - 1499), "a7a8q");
    EXPECT_EQ(searched("8/P6k/8/8/8/8/8/4K3 w - -", -1, alpha - 150 - 1500), "");
}

TEST_F(Quiescence, CaptureOfTheLastPieceCountsFiveThousand)
{
    EXPECT_EQ(searched("8/7k/8/8/3n4/4K3/7P/8 w - -", -1, alpha - 4800), "e3d4");
    // With a pawn left the knight is worth 335.
    EXPECT_EQ(searched("8/p6k/8/8/3n4/4K3/7P/8 w - -", -1, alpha - 600), "");
    // The last pawn, with a minor piece or a rook left.
    EXPECT_EQ(searched("b7/7k/8/8/3p4/4K3/7P/8 w - -", -1, alpha - 4800), "e3d4");
    EXPECT_EQ(searched("r7/7k/8/8/3p4/4K3/7P/8 w - -", -1, alpha - 600), "");
}

TEST_F(Quiescence, EnPassantPromisesNothingAndIsNotAskedForALoss)
{
    const char* fen = "8/7k/8/3pP3/8/8/8/4K3 w - d6";
    EXPECT_EQ(searched(fen, -1, alpha - 150), "");
    EXPECT_EQ(searched(fen, -1, alpha - 149), "e5d6");
}

TEST_F(Quiescence, EnPassantVictimDoesNotBlockTheCheckItUncovers)
{
    // Both pawns leave the diagonal from a2 to g8; only without the victim is it a check.
    const char* fen = "6k1/8/8/2Pp4/8/8/B7/4K3 w - d6";
    EXPECT_EQ(searched(fen, -1, alpha - 3000), "a2d5 c5d6");
    EXPECT_EQ(searched("6k1/8/8/2Pp4/8/8/8/B3K3 w - d6", -1, alpha - 3000), "");
}

TEST_F(Quiescence, LosingCaptureIsSkipped)
{
    // The queen takes a guarded pawn.
    EXPECT_EQ(searched("7k/8/2p5/3p4/8/8/P7/3QK3 w - -", -1, alpha), "");
    EXPECT_EQ(searched("7k/8/8/3p4/8/8/P7/3QK3 w - -", -1, alpha), "d1d5");
}

TEST_F(Quiescence, OnlyQueenPromotionsAreTried)
{
    EXPECT_EQ(searched("8/P6k/8/8/8/8/8/4K3 w - -", 0, alpha), "a7a8q");
}

TEST_F(Quiescence, HashMoveIsNotTriedByItself)
{
    Node node = make_node("4k3/8/8/8/8/8/4P3/4K3 w - -", last_moving_ply);
    node.rec->hash_move = move_of("e2e4");
    run_qsearch(&node, 0, alpha, beta, 0);
    EXPECT_EQ(node_count(), 0u);
}

TEST_F(Quiescence, IllegalCaptureIsSkipped)
{
    EXPECT_EQ(searched("4r2k/8/8/8/8/3p4/4B3/4K3 w - -", -1, alpha), "");
}

TEST_F(Quiescence, FailHighAtTheHorizonIsStoredAsALowerBound)
{
    Node node = make_node("4k3/8/8/p2q4/R3P3/8/P7/4K3 w - -", 5);
    const i32 score = run_qsearch(&node, 0, -100, 100, -100);
    EXPECT_GE(score, 100);
    const HashEntry entry = probe(node.pos);
    EXPECT_EQ(entry.depth, 0);
    EXPECT_EQ(entry.bound, BoundLower);
    EXPECT_EQ(entry.move, move_of("e4d5"));
    EXPECT_EQ(entry.score, score);
    EXPECT_EQ(node.pv[5], move_of("e4d5"));
    EXPECT_EQ(node.pv[6], NoMove);
}

TEST_F(Quiescence, FailHighBelowTheHorizonStoresNothing)
{
    Node node = make_node("4k3/8/8/p2q4/R3P3/8/P7/4K3 w - -", 5);
    EXPECT_GE(run_qsearch(&node, -1, -100, 100, -100), 100);
    EXPECT_EQ(probe(node.pos).depth, HashNotFound);
}

TEST_F(Quiescence, NeitherAnExactScoreNorAFailLowIsStored)
{
    Node node = make_node("4k3/8/8/p2q4/R3P3/8/P7/4K3 w - -", 5);
    const i32 score = run_qsearch(&node, 0, -100, 5000, -100);
    EXPECT_GT(score, -100);
    EXPECT_LT(score, 5000);
    EXPECT_EQ(probe(node.pos).depth, HashNotFound);
    EXPECT_EQ(run_qsearch(&node, 0, 5000, 5001, -100), 5000);
    EXPECT_EQ(probe(node.pos).depth, HashNotFound);
}

TEST_F(Quiescence, BestLineIsCopiedFromTheChild)
{
    // Two exchanges on d5 that each side is glad to make.
    Node node = make_node("6k1/8/4p3/3q4/4P3/8/8/4K2R w K -", 5);
    const i32 score = run_qsearch(&node, -1, -3000, 3000, -2000);
    EXPECT_GT(score, -2000);
    EXPECT_EQ(node.pv[5], move_of("e4d5"));
    EXPECT_EQ(node.pv[6], move_of("e6d5"));
    EXPECT_EQ(node.pv[7], NoMove);
}

TEST_F(Quiescence, StoppedNodeReturnsZeroAndStoresNothing)
{
    Node node = make_node("4k3/8/8/p2q4/R3P3/8/P7/4K3 w - -", 5);
    store(stop_code, StopCode::Report);
    EXPECT_EQ(run_qsearch(&node, 0, -100, 100, -100), 0);
    EXPECT_EQ(node_count(), 1u);
    EXPECT_EQ(fen_of(node.pos), "4k3/8/8/p2q4/R3P3/8/P7/4K3 w - -");
    EXPECT_EQ(probe(node.pos).depth, HashNotFound);
}

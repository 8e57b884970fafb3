// History, killers, counter moves, and the first order of the root list.
#include <algorithm>
#include <map>
#include <string>

#include "search_support.h"
#include "search/move_lists.h"
#include "search/thread.h"

static constexpr i32 full_history = 16384;
static constexpr i32 start_history = 2048;

struct Ordering : SearchTest {
    // A node at ply 4 whose previous move was a black knight's to f6 and the own one before it a
    // white pawn's to e4.
    static Node node_with_moves_before(const char* fen = start_position)
    {
        Node node = make_node(fen, 4);
        *node.rec[-1].list_cursor = { move_of("g8f6"), 0, 10, 0 };
        *node.rec[-2].list_cursor = { move_of("e2e4"), 0, 1, 0 };
        return node;
    }

    // Ordering scores of the quiet moves by text, as next_move gives them.
    static std::map<std::string, i32> quiet_scores(Node* node)
    {
        open_node(node, 5, -100, 100, PvNode);
        node->rec->stage = FullSearch;
        std::map<std::string, i32> scores;
        while (MoveEntry* entry = next_move(node->pos)) {
            node->rec->list_cursor = entry;
            scores[text_of(entry->move)] = entry->score;
        }
        return scores;
    }

    static std::map<std::string, i32> root_scores(const char* fen)
    {
        Node node = make_node(fen, 1);
        gen_all_moves(node.pos);
        order_root_moves(node.pos, node.rec->list_start);
        std::map<std::string, i32> scores;
        for (const MoveEntry& entry : entries_of(node.rec->list_start)) {
            scores[text_of(entry.move)] = entry.score;
        }
        return scores;
    }
};

TEST_F(Ordering, ResetForgetsEverythingLearned)
{
    SearchThread* thread = record();
    for (PlyRecord& rec : thread->ply_rec) {
        rec.hash_move = rec.killer[0] = rec.killer[1] = rec.evasion_killer = 7;
    }
    thread->counter_move[1][2] = thread->counter_move2[3][4] = thread->follow_move[15][63] = 7;
    thread->history[7][15][63] = 5;
    reset_ordering(thread);
    for (const PlyRecord& rec : thread->ply_rec) {
        EXPECT_EQ(rec.hash_move | rec.killer[0] | rec.killer[1] | rec.evasion_killer, 0);
    }
    for (i32 piece = 0; piece < 16; ++piece) {
        for (i32 to = 0; to < 64; ++to) {
            EXPECT_EQ(thread->counter_move[piece][to] | thread->counter_move2[piece][to]
                    | thread->follow_move[piece][to],
                0);
            for (i32 type = 0; type < 8; ++type) {
                ASSERT_EQ(thread->history[type][piece][to], start_history);
            }
        }
    }
}

TEST_F(Ordering, CaptureValuesGrowWithTheCapturedPiece)
{
    const i32 expected[7] = { 210, 220, 230, 230, 240, 250, 0 };
    for (i32 type = 0; type < 7; ++type) {
        EXPECT_EQ(mvv_score[type], expected[type]);
        if (type != 0) {
            EXPECT_EQ(mvv_score[type + 8], expected[type]);
        }
    }
}

TEST_F(Ordering, HundredSuccessesBringACellJustBelowFull)
{
    Node node = node_with_moves_before();
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    for (i32 i = 0; i < 100; ++i) {
        update_history(node.thread, 4, 8, &entry, true);
    }
    const i32 to = square_of("c3");
    const i32 plain = node.thread->history[0][Knight][to];
    const i32 replying = node.thread->history[Knight][Knight][to];
    EXPECT_EQ(plain, replying);
    EXPECT_LT(plain, full_history);
    EXPECT_GT(plain, full_history - 32);
    EXPECT_EQ(history_base(plain, replying), 63);
}

TEST_F(Ordering, BaseOfAFreshTableIsEight)
{
    EXPECT_EQ(history_base(start_history, start_history), 8);
    EXPECT_EQ(history_base(full_history, full_history), 64);
    EXPECT_EQ(history_base(255, 255), 0) << "each is divided by itself";
    EXPECT_EQ(history_base(511, 767), 1) << "and the halved sum truncated";
}

TEST_F(Ordering, LossOfATinyCellRoundsToNothing)
{
    Node node = node_with_moves_before();
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    i16* cell = &node.thread->history[0][Knight][square_of("c3")];
    *cell = 1;
    update_history(node.thread, 4, 8, &entry, false);
    EXPECT_EQ(*cell, 1);
    *cell = 0;
    update_history(node.thread, 4, 8, &entry, false);
    EXPECT_EQ(*cell, 0);
}

TEST_F(Ordering, CellsMoveByAShareOfTheDistanceThatGrowsWithDepthUpToEight)
{
    for (i32 depth = 1; depth <= 12; ++depth) {
        Node node = node_with_moves_before();
        const MoveEntry good = entry_of(node.pos, "b1c3");
        const MoveEntry bad = entry_of(node.pos, "b1a3");
        i16* plain = &node.thread->history[0][Knight][square_of("c3")];
        i16* replying = &node.thread->history[Knight][Knight][square_of("c3")];
        *plain = 3001;
        *replying = 77;
        update_history(node.thread, 4, depth, &good, true);
        update_history(node.thread, 4, depth, &bad, false);
        const i32 d = std::min(depth, 8);
        EXPECT_EQ(*plain, 3001 + (16384 - 3001) * 16 * d / 2048);
        EXPECT_EQ(*replying, 77 + (16384 - 77) * 16 * d / 2048);
        const i32 lost = 2048 - 2048 * 6 * d / 2048;
        EXPECT_EQ(node.thread->history[0][Knight][square_of("a3")], lost);
        EXPECT_EQ(node.thread->history[Knight][Knight][square_of("a3")], lost);
    }
}

TEST_F(Ordering, BehindANullMoveTheIndexIsThePieceLeftInItsSlot)
{
    Node node = node_with_moves_before();
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    *node.rec[-1].list_cursor = { NoMove, 0, 12, 0 };
    update_history(node.thread, 4, 8, &entry, true);
    EXPECT_GT(node.thread->history[Rook][Knight][square_of("c3")], start_history);
}

TEST_F(Ordering, OneCellForBothIsRaisedOnce)
{
    Node node = node_with_moves_before();
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    node.rec[-1].list_cursor->moved = 0;
    update_history(node.thread, 4, 8, &entry, true);
    EXPECT_EQ(node.thread->history[0][Knight][square_of("c3")],
        start_history + (full_history - start_history) / 16);
}

TEST_F(Ordering, SuccessShiftsTheKillers)
{
    Node node = node_with_moves_before();
    const MoveEntry first = entry_of(node.pos, "b1c3");
    const MoveEntry second = entry_of(node.pos, "g1f3");
    update_history(node.thread, 4, 3, &first, true);
    update_history(node.thread, 4, 3, &first, true);
    EXPECT_EQ(node.rec->killer[0], first.move);
    EXPECT_EQ(node.rec->killer[1], NoMove);
    update_history(node.thread, 4, 3, &second, true);
    EXPECT_EQ(node.rec->killer[0], second.move);
    EXPECT_EQ(node.rec->killer[1], first.move);
    EXPECT_EQ(node.rec->evasion_killer, NoMove);
}

TEST_F(Ordering, SuccessInCheckSetsTheEvasionKillerAlone)
{
    Node node = node_with_moves_before();
    node.rec->in_check = 1;
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    update_history(node.thread, 4, 3, &entry, true);
    EXPECT_EQ(node.rec->evasion_killer, entry.move);
    EXPECT_EQ(node.rec->killer[0], NoMove);
}

TEST_F(Ordering, SuccessSetsCounterMovesAndTheFollowUp)
{
    Node node = node_with_moves_before();
    const MoveEntry first = entry_of(node.pos, "b1c3");
    const MoveEntry second = entry_of(node.pos, "d2d3");
    update_history(node.thread, 4, 3, &first, true);
    update_history(node.thread, 4, 3, &first, true);
    const i32 to = square_of("f6");
    EXPECT_EQ(node.thread->counter_move[10][to], first.move);
    EXPECT_EQ(node.thread->counter_move2[10][to], NoMove);
    EXPECT_EQ(node.thread->follow_move[1][square_of("e4")], first.move);
    update_history(node.thread, 4, 3, &second, true);
    EXPECT_EQ(node.thread->counter_move[10][to], second.move);
    EXPECT_EQ(node.thread->counter_move2[10][to], first.move);
    EXPECT_EQ(node.thread->follow_move[1][square_of("e4")], second.move);
}

TEST_F(Ordering, BehindANullMoveNeitherCounterMoveNorFollowUpIsSet)
{
    Node node = node_with_moves_before();
    node.rec[-1].list_cursor->move = NoMove;
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    update_history(node.thread, 4, 3, &entry, true);
    EXPECT_EQ(node.thread->counter_move[10][square_of("f6")], NoMove);
    EXPECT_EQ(node.thread->follow_move[1][square_of("e4")], NoMove);
    EXPECT_EQ(node.rec->killer[0], entry.move);
}

TEST_F(Ordering, OwnNullMoveGetsNoFollowUp)
{
    Node node = node_with_moves_before();
    node.rec[-2].list_cursor->move = NoMove;
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    update_history(node.thread, 4, 3, &entry, true);
    EXPECT_EQ(node.thread->counter_move[10][square_of("f6")], entry.move);
    EXPECT_EQ(node.thread->follow_move[1][square_of("e4")], NoMove);
}

TEST_F(Ordering, FailureTouchesHistoryAlone)
{
    Node node = node_with_moves_before();
    const MoveEntry entry = entry_of(node.pos, "b1c3");
    update_history(node.thread, 4, 3, &entry, false);
    EXPECT_EQ(node.rec->killer[0], NoMove);
    EXPECT_EQ(node.thread->counter_move[10][square_of("f6")], NoMove);
    EXPECT_EQ(node.thread->follow_move[1][square_of("e4")], NoMove);
}

TEST_F(Ordering, BonusesOfAQuietMoveDoNotAdd)
{
    Node node = node_with_moves_before();
    node.rec->killer[0] = move_of("b1c3");
    node.rec->killer[1] = move_of("g1f3");
    node.thread->counter_move[10][square_of("f6")] = move_of("b1c3");
    node.thread->counter_move2[10][square_of("f6")] = move_of("d2d4");
    node.thread->follow_move[1][square_of("e4")] = move_of("a2a3");
    std::map<std::string, i32> scores = quiet_scores(&node);
    EXPECT_EQ(scores["b1c3"], 8 + 60);
    EXPECT_EQ(scores["g1f3"], 8 + 55);
    EXPECT_EQ(scores["d2d4"], 8 + 45);
    EXPECT_EQ(scores["a2a3"], 8 + 40);
    EXPECT_EQ(scores["h2h4"], 8);
    EXPECT_EQ(scores.size(), 20u);
}

TEST_F(Ordering, RootStartsWithCapturesThatDoNotLose)
{
    // White takes a rook, a guarded pawn, an unguarded pawn; the rest is quiet.
    std::map<std::string, i32> scores = root_scores("4k3/1p4r1/p6P/1p6/2R4B/8/8/3QK3 w - -");
    EXPECT_EQ(scores["h6g7"], 240 - Pawn);
    EXPECT_EQ(scores["c4c8"], 8);
    scores = root_scores("4k3/1p6/p7/1pR5/8/8/8/3QK3 w - -");
    EXPECT_EQ(scores["c5b5"], Pawn + 4) << "guarded";
    scores = root_scores("4k3/1p6/8/1pR5/8/8/8/3QK3 w - -");
    EXPECT_EQ(scores["c5b5"], 220 - Rook);
    EXPECT_EQ(scores["d1d7"], 8) << "a quiet move that loses is not asked";
}

TEST_F(Ordering, RootScoresQueenPromotionsLikeCapturesAndOthersLikeQuietMoves)
{
    std::map<std::string, i32> scores = root_scores("8/P3k3/8/8/8/8/8/4K3 w - -");
    EXPECT_EQ(scores["a7a8q"], 210 - Pawn);
    EXPECT_EQ(scores["a7a8n"], 8);
    scores = root_scores("1n6/P3k3/8/8/8/8/8/4K3 w - -");
    EXPECT_EQ(scores["a7b8q"], 230 - Pawn);
    EXPECT_EQ(scores["a7b8r"], 230 - Pawn) << "an under-promotion that captures";
}

TEST_F(Ordering, RootCaptureThatLosesAPawnScoresByWhatItTakes)
{
    // Queen takes a pawn that a pawn guards, and a promotion onto a guarded square.
    std::map<std::string, i32> scores = root_scores("4k3/8/2p5/3p4/8/8/8/3QK3 w - -");
    EXPECT_EQ(scores["d1d5"], Pawn + 4);
    scores = root_scores("4k3/P1n5/8/8/8/8/8/4K3 w - -");
    EXPECT_EQ(scores["a7a8q"], NoPiece + 4);
}

TEST_F(Ordering, RootTakesEnPassantForAQuietMove)
{
    std::map<std::string, i32> scores = root_scores("4k3/8/8/3pP3/8/8/8/4K3 w - d6");
    EXPECT_EQ(scores["e5d6"], 8);
}

TEST_F(Ordering, RootPutsAHashMoveFirstAndKillersBeforeOtherQuietMoves)
{
    Node node = make_node(start_position, 1);
    gen_all_moves(node.pos);
    node.rec->hash_move = move_of("a2a3");
    node.rec->killer[0] = move_of("b2b3");
    node.rec->killer[1] = move_of("c2c3");
    order_root_moves(node.pos, node.rec->list_start);
    std::map<std::string, i32> scores;
    for (const MoveEntry& entry : entries_of(node.rec->list_start)) {
        scores[text_of(entry.move)] = entry.score;
    }
    EXPECT_EQ(scores["a2a3"], 255);
    EXPECT_EQ(scores["b2b3"], 68);
    EXPECT_EQ(scores["c2c3"], 58);
    EXPECT_EQ(scores["d2d3"], 8);
}

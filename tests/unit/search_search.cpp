// The node: what ends it before its first move, extension, pruning, null move, internal deepening.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "search_support.h"
#include "base/clock.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/node.h"
#include "search/strength.h"
#include "search/thread.h"
#include "shell/prepare_search.h"

// A pawn up with nothing hanging; static evaluation between 0 and 1000.
static const char* const pawn_up = "4k1n1/ppp5/8/8/8/8/PPPP4/4K1N1 w - -";

struct Search : SearchTest {
    // The depth of the entry that a node has stored for its own position.
    static i32 stored_depth(Node* node)
    {
        return probe(node->pos).depth;
    }

    static void close_gate()
    {
        pruning.BP_margin = 20000;
    }
};

// ---- Limits

TEST_F(Search, StoppedNodeReturnsZeroWithAnEmptyLine)
{
    Node node = make_node(start_position, 3);
    node.pv[3] = node.pv[4] = move_of("e2e4");
    store(stop_code, StopCode::Report);
    EXPECT_EQ(run_node(&node, 3, -50, -40, CutNode), 0);
    EXPECT_EQ(node_count(), 1u);
    EXPECT_EQ(node.pv[3], NoMove);
    EXPECT_EQ(load(node.thread->counters[CountHashProbes]), 0u);
}

TEST_F(Search, NodeLimitStopsTheSearchOnceDepthTwoHasAResult)
{
    Node node = make_node(start_position, 3);
    node.thread->node_limit = 5;
    node.thread->completed_depth = 1;
    run_node(&node, 2, -50, 50, PvNode);
    EXPECT_GT(node_count(), 6u);
    EXPECT_EQ(load(stop_code), StopCode::None);

    node = make_node(start_position, 3);
    node.thread->node_limit = 5;
    node.thread->completed_depth = 2;
    run_node(&node, 2, -50, 50, PvNode);
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_LE(node_count(), 10u) << "only calls that return at once follow the sixth node";
}

TEST_F(Search, SelectiveDepthIsTheHighestPly)
{
    Node node = make_node(start_position, max_search_ply);
    node.thread->seldepth = 3;
    run_node(&node, 0, -50, 50, PvNode);
    EXPECT_EQ(node.thread->seldepth, max_search_ply);
    node.ply = 5;
    node.thread->ply = 5;
    run_node(&node, 0, -50, -49, CutNode);
    EXPECT_EQ(node.thread->seldepth, max_search_ply);
}

TEST_F(Search, SpeedLimitSleepsWhileTheThreadIsTooFast)
{
    Node node = make_node(start_position, max_search_ply);
    store(strength.nps_limited, 1);
    store(iter_depth, 2);
    store(strength.target_nps, 1000.0);
    search_clock.start_time = monotonic_seconds();
    store(node.thread->counters[CountNodes], 30);
    run_node(&node, 0, -50, 50, PvNode);
    EXPECT_GE(monotonic_seconds() - search_clock.start_time, 31 / 1000.0);
    EXPECT_GE(load(search_clock.elapsed), 31 / 1000.0);
}

TEST_F(Search, SpeedLimitWaitsForTheSecondIterationAndEndsWithAStop)
{
    Node node = make_node(start_position, max_search_ply);
    store(strength.nps_limited, 1);
    store(strength.target_nps, 0.001);
    store(iter_depth, 1);
    search_clock.start_time = monotonic_seconds();
    EXPECT_NE(run_node(&node, 0, -50, 50, PvNode), 12345);
    store(iter_depth, 2);
    store(stop_code, StopCode::Report);
    EXPECT_EQ(run_node(&node, 0, -50, 50, PvNode), 0);
    EXPECT_EQ(node_count(), 2u);
}

// ---- Ends before the first move

TEST_F(Search, AtTheLastPlyTheEvaluationIsTheScore)
{
    Node node = make_node(pawn_up, max_search_ply);
    EXPECT_EQ(run_node(&node, 5, -5, 5, CutNode), eval_of(&node));
    EXPECT_NE(eval_of(&node), 0);
    EXPECT_EQ(node_count(), 1u);

    node = make_node("4k3/ppp5/8/8/8/8/PPPPr3/4K3 w - -", max_search_ply);
    EXPECT_EQ(run_node(&node, 5, -5, 5, CutNode), 0) << "in check";
    EXPECT_EQ(node_count(), 1u);
}

TEST_F(Search, WindowBeyondTheNearestMateEndsTheNode)
{
    Node node = make_node(start_position, 5);
    EXPECT_EQ(run_node(&node, 5, 9994, 10001, PvNode), 9994);
    EXPECT_EQ(run_node(&node, 5, -10001, -9995, PvNode), -9995);
    EXPECT_EQ(node_count(), 2u);
    EXPECT_EQ(node.rec->moves_searched, 0u);
    run_node(&node, 0, -infinite_score, infinite_score, PvNode);
    EXPECT_EQ(node.rec->alpha, 5 - 10000);
    EXPECT_EQ(node.rec->beta, 9999 - 5);
}

TEST_F(Search, DrawComesBeforeTheHashTable)
{
    Node node = make_node(pawn_up, 5);
    put_entry(node.pos, NoMove, 500, 20, BoundExact);
    node.pos->cnt50 = 101;
    EXPECT_EQ(run_node(&node, 5, -50, -49, CutNode), 0);
    EXPECT_EQ(load(node.thread->counters[CountHashProbes]), 0u);
    EXPECT_EQ(load(node.thread->eval_counters[CountEvals]), 0u);
}

TEST_F(Search, EntryOfTheRecordIsReset)
{
    Node node = make_node(start_position, 5);
    PlyRecord* rec = node.rec;
    rec->hash_move = rec->killer[0] = rec[1].killer[0] = rec[1].killer[1] = rec[1].evasion_killer =
        move_of("a2a3");
    rec->reduction = 3;
    rec->in_iid = rec->extend_hash_move = rec->razored = 1;
    rec->danger[0] = rec->danger[1] = 77;
    rec->tb_result = 2;
    rec->moves_searched = 4;
    node.pos->cnt50 = 101;
    run_node(&node, 5, -50, 60, AllNode);
    EXPECT_EQ(rec->hash_move, NoMove);
    EXPECT_EQ(rec->killer[0], move_of("a2a3")) << "left by its siblings";
    EXPECT_EQ(rec[1].killer[0] | rec[1].killer[1] | rec[1].evasion_killer, 0);
    EXPECT_EQ(rec->reduction | rec->in_iid | rec->extend_hash_move | rec->razored, 0);
    EXPECT_EQ(rec->danger[0] | rec->danger[1], 0);
    EXPECT_EQ(rec->tb_result, -1);
    EXPECT_EQ(rec->moves_searched, 0);
    EXPECT_EQ(rec->node_type, AllNode);
    EXPECT_EQ(rec->alpha, -50);
    EXPECT_EQ(rec->beta, 60);
    EXPECT_EQ(rec->check_sq, NoSquare);
}

// ---- Check extension

TEST_F(Search, CheckExtendsByOnePlyWithinSevenPliesOfTheIteration)
{
    const char* fen = "4k3/8/8/8/8/8/4r3/4K3 w - -";
    Node node = make_node(fen, 12);
    store(node.thread->depth, 5);
    run_node(&node, 3, -50, 50, PvNode);
    EXPECT_EQ(node.thread->node_depth[node.ply], 4);
    EXPECT_EQ(node.rec->check_sq, square_of("e2"));

    node = make_node(fen, 13);
    store(node.thread->depth, 5);
    run_node(&node, 3, -50, 50, PvNode);
    EXPECT_EQ(node.thread->node_depth[node.ply], 3);
}

TEST_F(Search, CheckAtDepthMinusOneReadsTheHashTable)
{
    Node node = make_node("4k3/8/8/8/8/8/4r3/4K3 w - -", 4);
    run_node(&node, -1, -50, 50, PvNode);
    EXPECT_GE(load(node.thread->counters[CountHashProbes]), 1u);
    node = make_node("4k3/8/8/8/8/8/4P3/4K3 w - -", 4);
    run_node(&node, -1, -50, 50, PvNode);
    EXPECT_EQ(load(node.thread->counters[CountHashProbes]), 0u);
}

TEST_F(Search, NodesInCheckDoNotPrune)
{
    // The window lies far below; every gate would be open without the check.
    Node node = make_node("4k3/8/8/8/4r3/8/QQ6/4K3 w - -", last_moving_ply);
    run_node(&node, 2, -3000, -2999, CutNode);
    EXPECT_EQ(node.rec->moves_searched, 1u);
}

// ---- Hash cut-offs

TEST_F(Search, EntryDeepEnoughEndsAZeroWindowNodeWithTheWindowsBound)
{
    const struct {
        i32 score;
        HashBound bound;
        i32 depth;
        bool ends;
        i32 value;
    } rows[] = {
        { 30, BoundExact, 4, true, 20 },
        { 30, BoundLower, 4, true, 20 },
        { 30, BoundUpper, 4, false, 0 },
        { 20, BoundLower, 4, true, 20 },
        { 10, BoundExact, 4, true, 19 },
        { 10, BoundUpper, 4, true, 19 },
        { 10, BoundLower, 4, false, 0 },
        { 19, BoundUpper, 4, true, 19 },
        { 30, BoundExact, 3, false, 0 },
    };
    for (const auto& row : rows) {
        for (const NodeType type : { CutNode, AllNode }) {
            Node node = make_node(pawn_up, 5);
            put_entry(node.pos, NoMove, row.score, row.depth, row.bound);
            const i32 score = run_node(&node, 4, 19, 20, type);
            EXPECT_EQ(node_count() == 1, row.ends) << row.score << " bound " << row.bound;
            if (row.ends) {
                EXPECT_EQ(score, row.value) << row.score << " bound " << row.bound;
            }
        }
    }
}

TEST_F(Search, NoEntryOutsideTheWindowEndsAPvNode)
{
    const struct {
        i32 score;
        HashBound bound;
    } rows[] = { { 300, BoundExact }, { 300, BoundLower }, { -300, BoundExact },
        { -300, BoundUpper } };
    for (const auto& row : rows) {
        for (const i32 ply : { 5, 12 }) {
            Node node = make_node(pawn_up, ply);
            put_entry(node.pos, NoMove, row.score, 20, row.bound);
            run_node(&node, 3, -200, 200, PvNode);
            EXPECT_GT(node_count(), 1u) << row.score << " at ply " << ply;

            node = make_node(pawn_up, ply);
            put_entry(node.pos, NoMove, row.score, 20, row.bound);
            run_node(&node, 3, -200, 200, CutNode);
            EXPECT_EQ(node_count(), 1u) << row.score << " at ply " << ply;
        }
    }
}

TEST_F(Search, MateLikeEntryBelowPlyEightCutsZeroWindowNodesOutsideTheirWindowOnly)
{
    Node node = make_node(pawn_up, 7);
    put_entry(node.pos, NoMove, 9500, 20, BoundExact);
    run_node(&node, 3, 0, 9600, PvNode);
    EXPECT_GT(node_count(), 1u);

    node = make_node(pawn_up, 7);
    put_entry(node.pos, NoMove, 9500, 20, BoundExact);
    EXPECT_EQ(run_node(&node, 3, 0, 1, CutNode), 1);
    EXPECT_EQ(node_count(), 1u);

    node = make_node(pawn_up, 7);
    put_entry(node.pos, NoMove, 9500, 20, BoundExact);
    run_node(&node, 3, 0, 9600, CutNode);
    EXPECT_GT(node_count(), 1u);
}

TEST_F(Search, ExactMateScoreIsTakenFromPlyEightOnInAnyNode)
{
    for (const i32 score : { 9990, -9990, 9001, -9001 }) {
        for (const NodeType type : { PvNode, CutNode, AllNode }) {
            Node node = make_node(pawn_up, 8);
            put_entry(node.pos, NoMove, score, 20, BoundExact);
            const i32 adjust = std::abs(score) < 9599 ? 0 : score > 0 ? -8 : 8;
            EXPECT_EQ(run_node(&node, 3, -infinite_score, infinite_score, type), score + adjust);
            EXPECT_EQ(node_count(), 1u);
        }
        Node node = make_node(pawn_up, 7);
        put_entry(node.pos, NoMove, score, 20, BoundExact);
        run_node(&node, 3, -infinite_score, infinite_score, PvNode);
        EXPECT_GT(node_count(), 1u) << "at ply seven";
    }
}

TEST_F(Search, SmallerShallowerOrOneSidedMateScoresAreNotTakenInPvNodes)
{
    const struct {
        i32 score, depth;
        HashBound bound;
    } rows[] = { { 9000, 20, BoundExact }, { -9000, 20, BoundExact }, { 9990, 2, BoundExact },
        { 9990, 20, BoundLower } };
    for (const auto& row : rows) {
        Node node = make_node(pawn_up, 8);
        put_entry(node.pos, NoMove, row.score, row.depth, row.bound);
        run_node(&node, 3, -infinite_score, infinite_score, PvNode);
        EXPECT_GT(node_count(), 1u) << row.score;
    }
}

TEST_F(Search, HashMoveIsSearchedFirst)
{
    Node node = make_node(pawn_up, last_moving_ply);
    put_entry(node.pos, move_of("b2b3"), 0, 1, BoundExact);
    const std::vector<std::string> moves =
        moves_made([&] { run_node(&node, 2, -1000, 1000, PvNode); });
    ASSERT_FALSE(moves.empty());
    EXPECT_EQ(moves[0], "b2b3");
    EXPECT_EQ(std::count(moves.begin(), moves.end(), "b2b3"), 1);
}

// ---- The drop into quiescence

TEST_F(Search, NodeFarBelowAlphaDropsIntoQuiescence)
{
    Node node = make_node(pawn_up, 5);
    const i32 eval = eval_of(&node);
    for (i32 depth = 1; depth <= 3; ++depth) {
        node = make_node(pawn_up, 5);
        const i32 alpha = eval + 50 + 125 * depth;
        EXPECT_EQ(run_node(&node, depth, alpha, alpha + 1, CutNode), alpha);
        EXPECT_EQ(node.rec->razored, 1);
        EXPECT_EQ(node_count(), 1u);

        node = make_node(pawn_up, 5);
        run_node(&node, depth, alpha - 1, alpha, CutNode);
        EXPECT_EQ(node.rec->razored, 0) << "one short of the margin";
        EXPECT_GT(node_count(), 1u);
    }
    node = make_node(pawn_up, 5);
    run_node(&node, 4, eval + 3000, eval + 3001, CutNode);
    EXPECT_EQ(node.rec->razored, 0) << "too deep";
}

TEST_F(Search, PvNodesMateWindowsAndAPromisingEntryDoNotDrop)
{
    Node node = make_node(pawn_up, 5);
    run_node(&node, 1, 3000, 3001, PvNode);
    EXPECT_EQ(node.rec->razored, 0);
    node = make_node(pawn_up, 5);
    run_node(&node, 1, 9599, 9600, CutNode);
    EXPECT_EQ(node.rec->razored, 0);
    node = make_node(pawn_up, 5);
    run_node(&node, 1, 9598, 9599, CutNode);
    EXPECT_EQ(node.rec->razored, 1);
    // Too shallow to cut, the entry still holds the node above.
    node = make_node(pawn_up, 5);
    put_entry(node.pos, NoMove, 3100, 0, BoundLower);
    run_node(&node, 1, 3000, 3001, CutNode);
    EXPECT_EQ(node.rec->razored, 0);
}

// ---- The gate and static pruning

TEST_F(Search, StaticPruningReturnsBetaWithoutAMove)
{
    Node node = make_node(pawn_up, 3);
    const i32 eval = eval_of(&node);
    ASSERT_EQ(node.rec->danger[White], 0);
    for (i32 depth = 1; depth <= 3; ++depth) {
        node = make_node(pawn_up, 3);
        const i32 beta = eval - 75 * depth;
        EXPECT_EQ(run_node(&node, depth, beta - 1, beta, CutNode), beta);
        EXPECT_EQ(node_count(), 1u) << depth;
    }
    // One less, and depth 3 has only the null move.
    node = make_node(pawn_up, 3);
    run_node(&node, 3, eval - 225, eval - 224, CutNode);
    EXPECT_GT(node_count(), 1u);
}

TEST_F(Search, StaticPruningNeedsASurplusThatCoversTheDanger)
{
    // A pawn attacks a knight.
    const char* fen = "4k1n1/ppp5/8/3p1p2/4N3/8/PPPPP3/4K2R w - -";
    pruning.NMP_depth = 100;
    Node node = make_node(fen, 3);
    const i32 eval = eval_of(&node);
    const i32 danger = node.rec->danger[White];
    ASSERT_GT(danger, 75);
    node = make_node(fen, 3);
    EXPECT_EQ(run_node(&node, 1, eval - danger - 1, eval - danger, CutNode), eval - danger);
    EXPECT_EQ(node_count(), 1u);
    node = make_node(fen, 3);
    run_node(&node, 1, eval - danger, eval - danger + 1, CutNode);
    EXPECT_GT(node_count(), 1u);
}

TEST_F(Search, HarmlessThreatsPruneShallowNodes)
{
    // Above beta by the gate's margin only: no SEP at depth 2, but nothing can be taken.
    Node node = make_node(pawn_up, 3);
    const i32 beta = eval_of(&node) - pruning.BP_margin;
    node = make_node(pawn_up, 3);
    EXPECT_EQ(run_node(&node, 2, beta - 1, beta, CutNode), beta);
    EXPECT_EQ(node_count(), 1u);
    node = make_node(pawn_up, 3);
    run_node(&node, 2, beta, beta + 1, CutNode);
    EXPECT_GT(node_count(), 1u) << "within the gate's margin";
}

TEST_F(Search, OnlyExpectedCutNodesPrune)
{
    for (const NodeType type : { PvNode, AllNode }) {
        Node node = make_node(pawn_up, 3);
        run_node(&node, 1, -1001, -1000, type);
        EXPECT_GT(node_count(), 1u);
    }
}

TEST_F(Search, GateIsClosedAfterTheEvaluationFell)
{
    Node node = make_node(pawn_up, 5);
    const i32 eval = eval_of(&node);
    node = make_node(pawn_up, 5);
    node.rec[-2].eval = static_cast<i16>(eval + 75);
    run_node(&node, 1, -1001, -1000, CutNode);
    EXPECT_EQ(node_count(), 1u);
    node = make_node(pawn_up, 5);
    node.rec[-2].eval = static_cast<i16>(eval + 76);
    run_node(&node, 1, -1001, -1000, CutNode);
    EXPECT_GT(node_count(), 1u);
}

TEST_F(Search, GateIsClosedByAnEntryThatFailsLow)
{
    Node node = make_node(pawn_up, 5);
    const i32 beta = eval_of(&node) - 400;
    node = make_node(pawn_up, 5);
    put_entry(node.pos, NoMove, beta - 100, 0, BoundUpper);
    run_node(&node, 1, beta - 1, beta, CutNode);
    EXPECT_GT(node_count(), 1u) << "too shallow to cut, it still counts";
}

TEST_F(Search, GateIsClosedBelowAMatedBeta)
{
    Node node = make_node(pawn_up, 5);
    run_node(&node, 1, -9600, -9599, CutNode);
    EXPECT_EQ(node_count(), 1u);
    node = make_node(pawn_up, 5);
    run_node(&node, 1, -9601, -9600, CutNode);
    EXPECT_GT(node_count(), 1u);
}

TEST_F(Search, SideWithoutPawnsNeverPrunesForward)
{
    // A queen ahead, without a pawn and with one.
    const char* bare = "6k1/5ppp/8/8/8/8/8/3QK3 w - -";
    const char* with_pawn = "6k1/5ppp/8/8/8/8/7P/3QK3 w - -";
    for (i32 depth = 1; depth <= 6; ++depth) {
        Node node = make_node(bare, 5);
        run_node(&node, depth, -1001, -1000, CutNode);
        EXPECT_GT(node.rec->moves_searched, 0u) << depth;
    }
    for (i32 depth = 1; depth <= 4; ++depth) {
        Node node = make_node(with_pawn, 5);
        EXPECT_EQ(run_node(&node, depth, -1001, -1000, CutNode), -1000);
        EXPECT_EQ(node.rec->moves_searched, 0u) << depth;
    }
}

TEST_F(Search, SideWithPawnsAloneNeverPrunesForward)
{
    Node node = make_node("4k3/pp6/8/8/8/8/PPP5/4K3 w - -", 5);
    ASSERT_EQ(node.pos->phase_mtl[White], 0);
    run_node(&node, 1, -1001, -1000, CutNode);
    EXPECT_GT(node_count(), 1u);
}

TEST_F(Search, WithoutSelectivityOnlyExtensionHashAndInternalDeepeningAct)
{
    dialogue.engine_options.selectivity = 0;
    rebuild_search_tables(&dialogue);
    for (i32 depth = 1; depth <= 5; ++depth) {
        Node node = make_node(pawn_up, 5);
        run_node(&node, depth, -1001, -1000, CutNode);
        EXPECT_GT(node.rec->moves_searched, 0u) << "the gate, depth " << depth;
        node = make_node(pawn_up, 5);
        run_node(&node, depth, 3000, 3001, CutNode);
        EXPECT_EQ(node.rec->razored, 0) << depth;
        EXPECT_EQ(node.rec->moves_searched, legal_moves(node.pos).size()) << depth;
        EXPECT_EQ(node.rec->reduction, 0);
    }
    Node node = make_node(pawn_up, 5);
    put_entry(node.pos, NoMove, 3100, 9, BoundLower);
    EXPECT_EQ(run_node(&node, 4, 3000, 3001, CutNode), 3001);
}

TEST_F(Search, ThreatsAreHarmlessIfNoCaptureCostsMoreThanTheSurplus)
{
    Position* pos = set_position("4k3/8/8/8/8/8/8/4K3 w - -");
    EXPECT_TRUE(threats_harmless(pos, White, 0, 5000)) << "a king alone";
    // A knight hangs to a pawn: 335.
    pos = set_position("4k3/8/2p5/3N4/8/8/8/4K3 w - -");
    EXPECT_TRUE(threats_harmless(pos, White, 1000 + 335 + 125, 1000));
    EXPECT_FALSE(threats_harmless(pos, White, 1000 + 335 + 124, 1000));
    // Nothing hangs: the surplus does not matter.
    pos = set_position("4k3/8/8/3N4/8/8/8/4K3 w - -");
    EXPECT_TRUE(threats_harmless(pos, White, 0, 1000));
    // Of several the worst counts.
    pos = set_position("4k3/8/p1p5/1P1N4/8/8/8/4K3 b - -");
    EXPECT_TRUE(threats_harmless(pos, White, 335 + 125, 0));
    EXPECT_FALSE(threats_harmless(pos, White, 335 + 124, 0));
    EXPECT_FALSE(threats_harmless(pos, White, 100 + 125, 0));
}

// ---- ProbCut

TEST_F(Search, ProbCutIsProvedByACaptureThatWins)
{
    Node node = make_node("4k3/ppp5/8/3q4/4P3/8/PPP5/4K3 w - -", 5);
    open_node(&node, 4, -201, -200, CutNode);
    EXPECT_TRUE(probcut(node.pos, 5, 4, -200));
    EXPECT_EQ(node.rec->list_cursor->move, move_of("e4d5"));
    EXPECT_EQ(fen_of(node.pos), "4k3/ppp5/8/3q4/4P3/8/PPP5/4K3 w - -");
}

TEST_F(Search, ProbCutChildIsAnExpectedAllNodeWithARaisedWindow)
{
    Node node = make_node("4k3/ppp5/8/3q4/4P3/8/PPP5/4K3 w - -", 5);
    open_node(&node, 7, 49, 50, CutNode);
    probcut(node.pos, 5, 7, 50);
    EXPECT_EQ(node.rec[1].node_type, AllNode);
    EXPECT_EQ(node.rec[1].alpha, -150);
    EXPECT_EQ(node.rec[1].beta, -149);
    EXPECT_EQ(node.thread->node_depth[node.ply + 1], 3);

    probcut(node.pos, 5, 3, 50);
    EXPECT_EQ(node.thread->node_depth[node.ply + 1], 0) << "at least depth one before the move";
}

TEST_F(Search, ProbCutTriesNoCaptureOfLessThanAPawn)
{
    // A bishop takes a guarded knight, which is even.
    Node node = make_node("4k3/2p5/3p4/4n3/8/2B5/PP6/4K3 w - -", 5);
    open_node(&node, 5, -5001, -5000, CutNode);
    const u64 before = node_count();
    EXPECT_FALSE(probcut(node.pos, 5, 5, -5000));
    EXPECT_EQ(node_count(), before);
}

TEST_F(Search, ProbCutIsOffForMateWindows)
{
    Node node = make_node("4k3/ppp5/8/3q4/4P3/8/PPP5/4K3 w - -", 5);
    open_node(&node, 5, 9000, 9001, CutNode);
    EXPECT_FALSE(probcut(node.pos, 5, 5, 9001));
    EXPECT_EQ(node_count(), 0u);
}

TEST_F(Search, ProbCutSkipsIllegalCapturesAndEndsOnAStop)
{
    Node node = make_node("4r1k1/ppp5/8/3q4/4B3/8/PPP5/4K3 w - -", 5);
    open_node(&node, 5, -5001, -5000, CutNode);
    EXPECT_FALSE(probcut(node.pos, 5, 5, -5000)) << "pinned";
    EXPECT_EQ(node_count(), 0u);
    node = make_node("6k1/ppp5/8/3q4/4B3/8/PPP5/4K3 w - -", 5);
    open_node(&node, 5, -5001, -5000, CutNode);
    store(stop_code, StopCode::Report);
    EXPECT_FALSE(probcut(node.pos, 5, 5, -5000));
    EXPECT_EQ(node_count(), 1u);
}

// ---- Null move

// White is a rook and a pawn ahead, nothing can be captured by either side.
static const char* const rook_up = "6k1/5ppp/8/8/8/8/5PPP/R5K1 w - -";

TEST_F(Search, NullMoveThatHoldsReturnsBetaBelowDepthFive)
{
    Node node = make_node(rook_up, 3);
    pruning.SEP_depth = 0;
    const std::vector<std::string> moves =
        moves_made([&] { EXPECT_EQ(run_node(&node, 4, -101, -100, CutNode), -100); });
    ASSERT_FALSE(moves.empty());
    EXPECT_EQ(moves[0], "null");
    EXPECT_EQ(node.rec->moves_searched, 0u);
    EXPECT_EQ(node.thread->null_depth, 0);
    EXPECT_EQ(stored_depth(&node), HashNotFound);
}

TEST_F(Search, NullMoveThatHoldsLowersTheDepthFromFiveOn)
{
    Node node = make_node(rook_up, 3);
    EXPECT_GE(run_node(&node, 5, -101, -100, CutNode), -100);
    EXPECT_GT(node.rec->moves_searched, 0u);
    EXPECT_EQ(stored_depth(&node), 1);

    node = make_node(rook_up, 3);
    run_node(&node, 7, -101, -100, CutNode);
    EXPECT_EQ(stored_depth(&node), 3);

    node = make_node(rook_up, 3);
    run_node(&node, 10, -101, -100, CutNode);
    EXPECT_EQ(stored_depth(&node), 5) << "by five from depth ten on, with a rook";
}

TEST_F(Search, NullMoveIsReducedByThreeWithAMinorPieceAlone)
{
    Node node = make_node("6k1/5ppp/8/8/8/8/1N3PPP/6K1 w - -", 3);
    ASSERT_EQ(node.pos->phase_mtl[White], 3);
    run_node(&node, 10, -101, -100, CutNode);
    EXPECT_EQ(stored_depth(&node), 6);
}

TEST_F(Search, NullMoveKeepsTheWindowOfTheNode)
{
    // At the last ply but one the reply is searched at ply 66 and returns at once.
    Node node = make_node(rook_up, last_moving_ply);
    pruning.SEP_depth = 0;
    pruning.ProbCut_depth = 100;
    EXPECT_EQ(run_node(&node, 4, -500, -100, CutNode), -100);
    EXPECT_EQ(node.rec[1].alpha, 100);
    EXPECT_EQ(node.rec[1].beta, 500);
    EXPECT_EQ(node.rec[1].node_type, CutNode);
    EXPECT_EQ(node.thread->node_depth[node.ply + 1], 0);
    EXPECT_EQ(node.rec->list_cursor->move, NoMove);
}

TEST_F(Search, NoNullMoveFollowsANullMove)
{
    for (const i32 back : { 1, 2 }) {
        Node node = make_node(rook_up, 3);
        pruning.SEP_depth = 0;
        node.rec[-back].list_cursor->move = NoMove;
        const std::vector<std::string> moves =
            moves_made([&] { run_node(&node, 4, -101, -100, CutNode); });
        EXPECT_NE(moves[0], "null") << back;
        EXPECT_GT(node.rec->moves_searched, 0u);
    }
}

TEST_F(Search, NullMovesNestToATenthOfTheIteration)
{
    const auto passes = [](i32 iteration, i32 nested) {
        Node node = make_node(rook_up, 3);
        pruning.SEP_depth = 0;
        store(node.thread->depth, iteration);
        node.thread->null_depth = static_cast<i8>(nested);
        const std::vector<std::string> moves =
            moves_made([&] { run_node(&node, 4, -101, -100, CutNode); });
        EXPECT_EQ(node.thread->null_depth, nested);
        return moves[0] == "null";
    };
    EXPECT_TRUE(passes(9, 0));
    EXPECT_FALSE(passes(9, 1));
    EXPECT_TRUE(passes(10, 1));
    EXPECT_FALSE(passes(19, 2));
    EXPECT_TRUE(passes(20, 2));
    EXPECT_TRUE(passes(66, 6));
    EXPECT_FALSE(passes(66, 7));
}

TEST_F(Search, ShallowNodesDoNotPass)
{
    Node node = make_node(rook_up, 3);
    pruning.SEP_depth = 0;
    pruning.NMP_depth = 5;
    const std::vector<std::string> moves =
        moves_made([&] { run_node(&node, 4, -101, -100, CutNode); });
    EXPECT_NE(moves[0], "null");
}

// ---- Strength limit

TEST_F(Search, StrengthLimitShortensTheNodesThatItsKeyPicks)
{
    close_gate();
    pruning.FP_depth = 0;
    const auto searched_depth = [](i32 depth, u32 offset, NodeType type, i32 alpha, i32 beta) {
        Node node = make_node(pawn_up, 5);
        node.thread->strength_key = static_cast<u32>(node.pos->key) ^ offset;
        run_node(&node, depth, alpha, beta, type);
        return stored_depth(&node);
    };
    strength.strength_level = 10;
    EXPECT_EQ(searched_depth(4, 14, CutNode, -1, 0), 1);
    EXPECT_EQ(searched_depth(4, 15, CutNode, -1, 0), 4) << "not below 10 * 3 / 2";
    EXPECT_EQ(searched_depth(5, 0, CutNode, -1, 0), 2) << "half";
    EXPECT_EQ(searched_depth(6, 0, AllNode, -1, 0), 3);
    EXPECT_EQ(searched_depth(4, 512, AllNode, -1, 0), 1) << "nine bits count";
    EXPECT_EQ(searched_depth(4, 0, PvNode, -1, 0), 4);
    EXPECT_EQ(searched_depth(4, 0, CutNode, -9600, -9599), 4);
    EXPECT_EQ(searched_depth(4, 0, CutNode, 9598, 9599), 4);
    strength.strength_level = 0;
    EXPECT_EQ(searched_depth(4, 0, CutNode, -1, 0), 4);
}

// ---- Internal deepening

TEST_F(Search, InternalDeepeningGivesAMoveBeforeTheNodeIsSearched)
{
    close_gate();
    const auto deepens = [](i32 depth, NodeType type, i32 entry_depth, i32 surplus) {
        Node node = make_node(pawn_up, last_moving_ply);
        const i32 alpha = eval_of(&node) + surplus;
        node = make_node(pawn_up, last_moving_ply);
        if (entry_depth >= 0) {
            put_entry(node.pos, NoMove, 0, entry_depth, BoundUpper);
        }
        const u64 legal = legal_moves(node.pos).size();
        const std::vector<std::string> moves =
            moves_made([&] { run_node(&node, depth, alpha, alpha + 1000, type); });
        EXPECT_EQ(node.rec->in_iid, 0);
        if (moves.size() > legal) {
            EXPECT_NE(node.rec->hash_move, NoMove);
        }
        return moves.size() > legal;
    };
    EXPECT_FALSE(deepens(3, PvNode, -1, 0));
    EXPECT_TRUE(deepens(4, PvNode, -1, 0));
    EXPECT_TRUE(deepens(8, PvNode, 4, 0));
    EXPECT_FALSE(deepens(8, PvNode, 5, 0)) << "the entry is as deep";
    EXPECT_TRUE(deepens(8, AllNode, 3, 0));
    EXPECT_FALSE(deepens(8, AllNode, 4, 0));
    EXPECT_TRUE(deepens(9, AllNode, 3, 0));
    EXPECT_FALSE(deepens(9, AllNode, 4, 0)) << "five less from depth nine on";
    EXPECT_TRUE(deepens(8, PvNode, -1, 199));
    EXPECT_FALSE(deepens(8, PvNode, -1, 200));
}

TEST_F(Search, InternalDeepeningMoveIsSearchedFirst)
{
    Node node = make_node(pawn_up, last_moving_ply);
    put_entry(node.pos, move_of("d2d3"), 0, 0, BoundUpper);
    const std::vector<std::string> moves =
        moves_made([&] { run_node(&node, 6, -1000, 1000, PvNode); });
    const size_t legal = legal_moves(node.pos).size();
    ASSERT_EQ(moves.size(), 2 * legal);
    EXPECT_EQ(moves[0], "d2d3") << "a shallow entry's move leads the deepening";
    EXPECT_EQ(moves[legal], text_of(node.rec->hash_move));
}

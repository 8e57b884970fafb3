// The iteration loop and the root: whole searches on the calling thread, and single passes.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "search_support.h"
#include "base/output.h"
#include "eval/evaluate.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/move_lists.h"
#include "search/thread.h"

static const char* const mated = "7k/8/8/8/8/8/r7/1r5K w - -";
static const char* const stalemated = "7k/8/8/8/8/1q6/8/K7 w - -";
static const char* const two_moves = "7k/8/8/8/8/p7/8/K7 w - -";

struct Root : SearchTest {
    static Move best_move()
    {
        return search_result.result_pv[1];
    }

    static std::string result_line()
    {
        std::string texts;
        for (i32 i = 1; i < ply_count && search_result.result_pv[i] != NoMove; ++i) {
            texts += (i > 1 ? " " : "") + text_of(search_result.result_pv[i]);
        }
        return texts;
    }

    // A root as the preparation of a search leaves it.
    static Node make_root(const char* fen)
    {
        Node node = make_node(fen, 1);
        SearchThread* thread = node.thread;
        init_move_lists(thread);
        gen_all_moves(node.pos);
        MoveEntry* kept = node.rec->list_start;
        for (const MoveEntry& entry : entries_of(node.rec->list_start)) {
            if (is_legal_move(node.pos, node.pos->stm, entry.move)) {
                *kept++ = entry;
            }
        }
        kept->move = EndOfList;
        order_root_moves(node.pos, node.rec->list_start);
        thread->score = static_cast<i16>(eval_of(&node));
        return node;
    }

    // Gives the entries from first on the score of moves that did badly.
    static void put_behind(Node* root, i32 first)
    {
        MoveEntry* entry = root->rec->list_start + first;
        for (; entry->move != EndOfList; ++entry) {
            entry->score = -12000;
        }
    }

    static i32 run_pass(Node* root, i32 depth, i32 alpha, i32 beta, i32 pv_index = 0)
    {
        return root_search(root->pos, root->pos->stm, depth, alpha, beta, pv_index);
    }

    // What a search prints without silence and with a number of lines.
    static std::string printed(const char* fen, i32 depth, i32 lines)
    {
        dialogue.engine_options.multi_pv = static_cast<i16>(lines);
        publish_options(&dialogue);
        return capture_output([&] {
            begin_search(fen);
            store(noise, 0.0);
            store(dialogue.limits.depth_limit, depth);
            search_sync(dialogue.game);
        });
    }
};

// ---- Roots without a search

TEST_F(Root, MatedRootEndsAtOnceWithoutAMove)
{
    run_search_to(mated, 10);
    EXPECT_EQ(load(search_result.result_score), -9999);
    EXPECT_EQ(search_result.result_depth, 1);
    EXPECT_EQ(best_move(), NoMove);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    EXPECT_EQ(record()->score, -9999);
    EXPECT_EQ(load(record()->depth), 1);
    EXPECT_EQ(record()->completed_depth, 1);
    EXPECT_EQ(record()->seldepth, 1);
    EXPECT_EQ(load(search_result.score_by_depth[1]), -9999);
    EXPECT_EQ(node_count(), 0u);
}

TEST_F(Root, StalematedRootScoresZero)
{
    run_search_to(stalemated, 10);
    EXPECT_EQ(load(search_result.result_score), 0);
    EXPECT_EQ(search_result.result_depth, 1);
    EXPECT_EQ(best_move(), NoMove);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
}

TEST_F(Root, OnlyMoveIsNotedAsASingleReply)
{
    run_search_to("7k/8/8/8/8/8/1r6/K7 w - -", 3);
    EXPECT_EQ(load(search_result.single_reply), 1);
    run_search_to(two_moves, 3);
    EXPECT_EQ(load(search_result.single_reply), 0);
}

TEST_F(Root, DepthZeroGivesTheQuiescenceScoreAndItsLine)
{
    run_search_to("4k3/ppp5/8/3q4/4P3/8/PPP5/4K3 w - -", 0);
    EXPECT_EQ(result_line(), "e4d5");
    EXPECT_GT(load(search_result.result_score), -100);
    EXPECT_EQ(load(search_result.result_score), record()->score);
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_GT(node_count(), 0u);

    run_search_to(start_position, 0);
    EXPECT_EQ(load(search_result.result_score), search_result.root_eval);
    EXPECT_EQ(best_move(), NoMove);
}

TEST_F(Root, DepthZeroInCheckGivesNoMove)
{
    run_search_to("4k3/8/8/8/8/8/4r3/4K3 w - -", 0);
    EXPECT_EQ(best_move(), NoMove);
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_EQ(node_count(), 0u);
}

// ---- Preparation

TEST_F(Root, PreparationForgetsTheLastSearchAndSeedsTheRandomWords)
{
    run_search_to(start_position, 5);
    record()->history[3][4][5] = 77;
    record()->counter_move[1][20] = 7;
    record()->ply_rec[40].killer[0] = 7;
    const u32 before = static_cast<u32>(time(nullptr)) * 19375 + 987654321;
    repeat_search(0);
    const u32 after = static_cast<u32>(time(nullptr)) * 19375 + 987654321;
    EXPECT_EQ(record()->history[3][4][5], 2048);
    EXPECT_EQ(record()->counter_move[1][20], NoMove);
    EXPECT_EQ(record()->ply_rec[40].killer[0], NoMove);
    EXPECT_TRUE(record()->strength_key == before || record()->strength_key == after);
    EXPECT_EQ(record()->rand_state, record()->strength_key);
}

TEST_F(Root, RootIsEvaluatedForBothSidesBelowIt)
{
    run_search_to("4k3/pppp4/8/8/8/8/8/R3K3 w - -", 0);
    const i32 eval = search_result.root_eval;
    EXPECT_GT(eval, 0);
    EXPECT_EQ(record()->ply_rec[1].eval, eval);
    EXPECT_EQ(record()->ply_rec[0].eval, -eval);
    EXPECT_EQ(record()->prev_score, eval);

    run_search_to("4k3/8/8/8/8/8/4r3/4K3 w - -", 0);
    EXPECT_EQ(search_result.root_eval, -10001) << "in check";
    EXPECT_EQ(record()->ply_rec[0].eval, 10001);
}

// ---- The iteration loop

TEST_F(Root, SearchEndsAtItsDepthLimit)
{
    run_search_to(start_position, 7);
    EXPECT_EQ(search_result.last_iter_depth, 7);
    EXPECT_EQ(load(iter_depth), 7);
    EXPECT_EQ(load(record()->depth), 7);
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_TRUE(is_legal_text(&dialogue.game->pos, text_of(best_move()).c_str()));
}

TEST_F(Root, SearchEndsWhenItsDepthProvesTheMate)
{
    const struct {
        const char* fen;
        i32 score, depth;
    } rows[] = {
        // In one: at once. In three, seen at depth 1: by depth 5. Mated in two: by depth 5.
        { "6k1/5ppp/8/8/8/8/5PPP/R5K1 w - -", 9998, 1 },
        { "r5rk/5p1p/5R2/4B3/8/8/7P/7K w - -", 9994, 5 },
        { "3r3k/5Npp/8/3Q4/8/8/5PPP/6K1 b - -", -9995, 5 },
    };
    for (const auto& row : rows) {
        run_search_to(row.fen, 20);
        EXPECT_EQ(load(search_result.result_score), row.score) << row.fen;
        EXPECT_EQ(load(search_result.score_by_depth[row.depth]), row.score) << row.fen;
        EXPECT_EQ(search_result.last_iter_depth, row.depth) << row.fen;
        EXPECT_EQ(load(stop_code), StopCode::Report);
    }
    EXPECT_EQ(load(search_result.score_by_depth[4]), -9995) << "seen before it was proved";
}

TEST_F(Root, SearchEndsBeforeTheUndoStackIsFull)
{
    set_position(start_position);
    const char* shuffle[] = { "g1f3", "g8f6", "f3g1", "f6g8" };
    for (i32 i = 0; i < 872; ++i) {
        make_game_move(&dialogue.game->pos, move_of(shuffle[i % 4]));
    }
    EXPECT_EQ(dialogue.game->undo_count, 872);
    repeat_search(40);
    EXPECT_EQ(search_result.last_iter_depth, 12) << "872 + 12 is above 883";
    EXPECT_EQ(load(stop_code), StopCode::Report);
}

TEST_F(Root, NodesAreNotedPerIteration)
{
    run_search_to(start_position, 6);
    EXPECT_EQ(search_totals.nodes_by_depth[6], node_count());
    for (i32 d = 2; d <= 6; ++d) {
        EXPECT_GT(search_totals.nodes_by_depth[d], search_totals.nodes_by_depth[d - 1]);
        EXPECT_NE(search_result.move_by_depth[d], NoMove);
        EXPECT_NE(load(search_result.score_by_depth[d]), -10001);
    }
    EXPECT_EQ(search_totals.nodes_by_depth[7], 0u);
    EXPECT_EQ(load(search_result.score_by_depth[7]), -10001);
}

TEST_F(Root, NodeLimitLeavesDepthOneWhole)
{
    begin_search(start_position);
    dialogue.limits.node_limit_total = 1;
    store(dialogue.limits.depth_limit, 20);
    search_sync(dialogue.game);
    dialogue.limits.node_limit_total = 0;
    EXPECT_EQ(load(stop_code), StopCode::Report);
    EXPECT_EQ(search_result.result_depth, 2);
    EXPECT_EQ(search_result.last_iter_depth, 1);
    EXPECT_NE(best_move(), NoMove);
}

TEST_F(Root, StopBeforeAnyMoveIsSearchedStillLeavesAMove)
{
    begin_search(start_position);
    store(dialogue.limits.depth_limit, 20);
    store(stop_code, StopCode::Report);
    search_sync(dialogue.game);
    EXPECT_TRUE(is_playable(&dialogue.game->pos, best_move()));
    EXPECT_EQ(search_result.result_pv[2], NoMove);
    EXPECT_EQ(load(search_result.result_score), search_result.root_eval);
    EXPECT_EQ(search_result.result_depth, 0);
    EXPECT_EQ(search_result.last_iter_depth, 0);
    EXPECT_EQ(load(stop_code), StopCode::Report);
}

TEST_F(Root, StoppedSearchKeepsItsReason)
{
    begin_search(start_position);
    store(dialogue.limits.depth_limit, 20);
    store(stop_code, StopCode::Silent);
    search_sync(dialogue.game);
    EXPECT_EQ(load(stop_code), StopCode::Silent);
}

TEST_F(Root, SameSearchTwiceIsTheSame)
{
    for (const char* fen :
        { start_position, "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
            "8/8/1p1r1k2/p1pPN1p1/P3KnP1/1P6/8/3R4 b - -",
            "1r3b2/3R2pk/6q1/3Q1p2/p6P/4B2P/1P3P1K/8 w - -" }) {
        run_search_to(fen, 9);
        const u64 nodes = node_count();
        const i32 score = load(search_result.result_score);
        const std::string line = result_line();
        EXPECT_GT(nodes, 100u);
        run_search_to(fen, 9);
        EXPECT_EQ(node_count(), nodes) << fen;
        EXPECT_EQ(load(search_result.result_score), score) << fen;
        EXPECT_EQ(result_line(), line) << fen;
    }
}

TEST_F(Root, LineOfTheResultIsLegal)
{
    u64 state = 3;
    for (i32 game = 0; game < 20; ++game) {
        Position* pos = set_position(start_position);
        play_random_moves(pos, &state, 8 + game);
        run_search_to(fen_of(pos).c_str(), 6);
        const std::vector<u16> line(
            search_result.result_pv + 1, search_result.result_pv + ply_count);
        pos = &dialogue.game->pos;
        for (size_t i = 0; i < line.size() && line[i] != NoMove; ++i) {
            ASSERT_TRUE(is_legal_text(pos, text_of(line[i]).c_str())) << fen_of(pos);
            make_move(pos, line[i]);
        }
    }
}

// ---- Several lines

TEST_F(Root, LinesEndWithTheMovesOfTheRoot)
{
    const std::string text = printed(two_moves, 3, 3);
    EXPECT_NE(text.find("info multipv 1 depth 3 "), std::string::npos);
    EXPECT_NE(text.find("info multipv 2 depth 3 "), std::string::npos);
    EXPECT_EQ(text.find("multipv 3"), std::string::npos);
}

TEST_F(Root, LinesArePrintedAtTheEndOfTheirPassFromDepthOneOn)
{
    const std::string text = printed(start_position, 2, 2);
    const char* order[] = { "multipv 1 depth 1 ", "multipv 2 depth 1 ", "multipv 1 depth 2 ",
        "multipv 2 depth 2 " };
    size_t at = 0;
    for (const char* part : order) {
        at = text.find(part, at);
        ASSERT_NE(at, std::string::npos) << part;
    }
    EXPECT_EQ(text.find("multipv 0"), std::string::npos);
}

TEST_F(Root, SecondLineStartsItsWindowFromTheScoreOfTheFirst)
{
    // Taking the queen wins, the other move is mated: the second pass fails low until its lower
    // bound is open. Its upper bound never moves, and the last child has it as its alpha.
    const std::string text = printed("7k/8/8/7p/8/pq5P/P7/K7 w - -", 2, 2);
    const size_t at = text.find("multipv 1 depth 2 ");
    ASSERT_NE(at, std::string::npos) << text;
    const i32 first = atoi(text.c_str() + text.find("score cp ", at) + 9);
    const i32 width = (std::abs(first) >> 4) + 25 + 40;
    EXPECT_NE(text.find("multipv 2 depth 2 "), std::string::npos) << text;
    EXPECT_EQ(text_of(record()->pv[1]), "h3h4");
    EXPECT_EQ(record()->ply_rec[2].alpha, -(first + width)) << text;
    EXPECT_EQ(record()->ply_rec[2].beta, 9999 - 2);
}

// ---- One pass

TEST_F(Root, PassSortsTheListByItsScores)
{
    Node root = make_root("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -");
    const i32 best = run_pass(&root, 2, -infinite_score, infinite_score);
    const std::vector<MoveEntry> list = entries_of(root.rec->list_start);
    EXPECT_EQ(list.size(), 48u);
    EXPECT_EQ(list[0].score, best);
    EXPECT_EQ(list[0].move, root.thread->pv[1]);
    for (size_t i = 1; i < list.size(); ++i) {
        EXPECT_GE(list[i - 1].score, list[i].score);
        EXPECT_GT(list[i].score, -11000) << "every move beat the alpha of the call";
    }
    EXPECT_EQ(load(root.thread->fail_state), 0);
    EXPECT_EQ(root.thread->score, best);
    EXPECT_EQ(root.thread->completed_depth, 2);
}

TEST_F(Root, FailLowKeepsTheOrder)
{
    Node root = make_root(start_position);
    // The first move to be searched is the first of equals.
    const std::vector<MoveEntry> before = entries_of(root.rec->list_start);
    const i32 best = run_pass(&root, 2, 5000, 5100);
    EXPECT_LE(best, 5000);
    EXPECT_EQ(load(root.thread->fail_state), 1);
    const std::vector<MoveEntry> after = entries_of(root.rec->list_start);
    for (size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(after[i].move, before[i].move) << i;
        if (i > 0) {
            EXPECT_EQ(after[i].score, -11000 - static_cast<i32>(i)) << i;
        }
    }
    EXPECT_GT(after[0].score, -11000) << "the first move has its own score";
    EXPECT_EQ(root.thread->score, best);
    EXPECT_EQ(best_move(), root.thread->pv[1]) << "published all the same";
}

TEST_F(Root, FailHighEndsThePassAndKeepsTheOtherMovesBehind)
{
    Node root = make_root(start_position);
    put_behind(&root, 1);
    const std::vector<MoveEntry> before = entries_of(root.rec->list_start);
    const i32 best = run_pass(&root, 2, -5100, -5000);
    EXPECT_GE(best, -5000);
    EXPECT_EQ(load(root.thread->fail_state), 2);
    const std::vector<MoveEntry> after = entries_of(root.rec->list_start);
    EXPECT_EQ(after[0].score, best);
    for (size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(after[i].move, before[i].move) << i;
        if (i > 0) {
            EXPECT_EQ(after[i].score, -11000 - static_cast<i32>(i)) << i;
        }
    }
    EXPECT_EQ(root.rec->moves_searched, before.size()) << "the numbering goes on";
}

TEST_F(Root, MoveThatWasNotSearchedComesAheadIfItsScoreIsHigher)
{
    Node root = make_root(start_position);
    MoveEntry* list = root.rec->list_start;
    const Move second = list[1].move;
    const Move last = list[19].move;
    put_behind(&root, 1);
    list[19].score = 7;
    run_pass(&root, 2, -5100, -5000);
    EXPECT_EQ(list[0].move, last);
    EXPECT_EQ(list[1].move, second);
}

TEST_F(Root, MoveOfHighestScoreIsSearchedNext)
{
    Node root = make_root(start_position);
    put_behind(&root, 0);
    MoveEntry* list = root.rec->list_start;
    const Move last = list[19].move;
    list[19].score = 99;
    run_pass(&root, 2, -5100, -5000);
    EXPECT_EQ(list[0].move, last);
}

TEST_F(Root, ResultIsPublished)
{
    Node root = make_root(start_position);
    const i32 best = run_pass(&root, 3, -infinite_score, infinite_score);
    EXPECT_EQ(load(search_result.result_score), best);
    EXPECT_EQ(search_result.result_depth, 3);
    EXPECT_EQ(best_move(), root.thread->pv[1]);
    EXPECT_EQ(memcmp(search_result.result_pv, root.thread->pv, sizeof root.thread->pv), 0);
    EXPECT_EQ(load(search_result.score_by_depth[3]), best);
    EXPECT_EQ(search_result.move_by_depth[3], best_move());
    EXPECT_EQ(load(search_result.last_change_depth), 3);
}

TEST_F(Root, ChangeIsNotedForANewMoveOrAScoutThatFailsHigh)
{
    // One move is far better than all others.
    const char* fen = "4k3/ppp5/8/3q4/4P3/8/PPP5/4K3 w - -";
    Node root = make_root(fen);
    run_pass(&root, 2, -infinite_score, infinite_score);
    EXPECT_EQ(load(search_result.last_change_depth), 2);
    EXPECT_EQ(text_of(best_move()), "e4d5");
    run_pass(&root, 3, -infinite_score, infinite_score);
    EXPECT_EQ(load(search_result.last_change_depth), 2) << "the same move, searched first";

    // Searched last it fails high in its scout.
    MoveEntry* list = root.rec->list_start;
    EXPECT_EQ(text_of(list[0].move), "e4d5");
    list[0].score = -12000;
    run_pass(&root, 4, -infinite_score, infinite_score);
    EXPECT_EQ(load(search_result.last_change_depth), 4);
}

TEST_F(Root, SecondLinePassLeavesTheFirstEntryAndTheResult)
{
    Node root = make_root(start_position);
    MoveEntry* list = root.rec->list_start;
    list[0].score = 1234;
    const Move first = list[0].move;
    run_pass(&root, 2, -infinite_score, infinite_score, 1);
    EXPECT_EQ(list[0].move, first);
    EXPECT_EQ(list[0].score, 1234);
    EXPECT_EQ(best_move(), NoMove);
    EXPECT_EQ(root.rec->moves_searched, 19);
    EXPECT_EQ(root.thread->pv[1], list[1].move);
}

TEST_F(Root, OtherWorkersPublishNothing)
{
    use_records(2);
    begin_search(start_position);
    sync_workers(dialogue.game);
    SearchThread* other = load(workers[1]);
    reset_ordering(other);
    other->ply_rec[1].tb_result = -1;
    gen_all_moves(&other->pos);
    root_search(&other->pos, White, 2, -infinite_score, infinite_score, 0);
    EXPECT_NE(other->pv[1], NoMove);
    EXPECT_EQ(best_move(), NoMove);
    EXPECT_EQ(search_result.result_depth, 0);
}

TEST_F(Root, StoppedPassReturnsZeroAndPublishesNothing)
{
    Node root = make_root(start_position);
    store(stop_code, StopCode::Report);
    EXPECT_EQ(run_pass(&root, 2, -infinite_score, infinite_score), 0);
    EXPECT_EQ(best_move(), NoMove);
    EXPECT_EQ(root.thread->pv[1], NoMove);
    EXPECT_EQ(node_count(), 1u);
    EXPECT_EQ(fen_of(root.pos), start_position);
}

TEST_F(Root, LateQuietMovesAreReducedByOnePly)
{
    // The depth of the last move's child in a pass that fails low throughout.
    const auto last_child_depth = [](const char* fen, i32 depth, i32 previous_score) {
        Node root = make_root(fen);
        root.thread->score = static_cast<i16>(previous_score);
        run_pass(&root, depth, 5000, 5100);
        EXPECT_EQ(root.rec->check_sq == NoSquare, root.rec->in_check == 0);
        return i32 { root.thread->node_depth[2] };
    };
    const char* fen = "6k1/5p1p/6p1/8/8/8/5PPP/R5K1 w - -";
    EXPECT_EQ(last_child_depth(fen, 6, -9000), 4);
    EXPECT_EQ(last_child_depth(fen, 5, -9000), 4) << "too shallow";
    EXPECT_EQ(last_child_depth(fen, 6, 9000), 5) << "the score has fallen";
    EXPECT_EQ(last_child_depth("6k1/5p1p/6p1/8/8/8/8/R5K1 w - -", 6, -9000), 5) << "no pawn";
    EXPECT_EQ(last_child_depth("6k1/5ppp/8/8/8/8/5PPP/6K1 w - -", 6, -9000), 5) << "no piece";
    EXPECT_EQ(last_child_depth("6k1/5p1p/6p1/8/8/p7/P7/K6N w - -", 6, -9000), 5) << "few moves";
    EXPECT_EQ(last_child_depth("6k1/5p1p/6p1/8/4K3/2n5/7P/R7 w - -", 6, -9000), 5) << "in check";
}

// ---- Lines printed by the root

TEST_F(Root, LongSearchTellsTheMoveItSearches)
{
    const auto pass = [](f64 seconds, i32 lines, i32 pv_index) {
        Node root = make_root("8/P6k/8/8/8/8/8/K7 w - -");
        store(search_settings.multi_pv, lines);
        store(noise, 0.0);
        store(search_clock.elapsed, seconds);
        store(iter_depth, 9);
        return capture_output([&] { run_pass(&root, 1, -5100, -5000, pv_index); });
    };
    EXPECT_EQ(pass(4.0, 1, 0),
        "info depth 9 time 4000 nodes 0 nps 0 hashfull 0\n"
        "info currmove a7a8 currmovenumber 1\n");
    EXPECT_EQ(pass(4.0, 2, 0), "info depth 9 time 4000 nodes 0 nps 0 hashfull 0\n");
    EXPECT_EQ(pass(4.0, 1, 1), "");
    EXPECT_EQ(pass(3.5, 1, 0), "");
    store(noise, 5.0);
    Node root = make_root(start_position);
    store(noise, 5.0);
    store(search_clock.elapsed, 4.0);
    EXPECT_EQ(capture_output([&] { run_pass(&root, 1, -5100, -5000); }), "");
    store(uci_mode, 0);
    store(noise, 0.0);
    EXPECT_EQ(capture_output([&] { run_pass(&root, 1, -5100, -5000); }), "");
}

TEST_F(Root, MovesAreNumberedAndTheFirstLineTellsTheSpeed)
{
    Node root = make_root(start_position);
    store(noise, 0.0);
    store(search_clock.elapsed, 4.0);
    store(root.thread->counters[CountNodes], 8000);
    const std::string text =
        capture_output([&] { run_pass(&root, 1, -infinite_score, infinite_score); });
    EXPECT_EQ(text.find("info depth 0 time 4000 nodes 8000 nps 2000 hashfull 0\n"), 0u);
    EXPECT_NE(text.find(" currmovenumber 20\n"), std::string::npos);
    EXPECT_EQ(text.find("info depth", 10), std::string::npos);
}

TEST_F(Root, ResultIsPrintedFromDepthTwoOnWithOneLineAndAMove)
{
    Node root = make_root(start_position);
    SearchThread* thread = root.thread;
    thread->pv[1] = move_of("e2e4");
    thread->score = 20;
    thread->completed_depth = 2;
    store(noise, 0.0);
    const auto print = [&] { return capture_output([&] { publish_result(thread, true); }); };
    EXPECT_NE(print(), "");
    EXPECT_EQ(capture_output([&] { publish_result(thread, false); }), "");
    thread->completed_depth = 1;
    EXPECT_EQ(print(), "");
    thread->completed_depth = 2;
    search_settings.lines = 2;
    EXPECT_EQ(print(), "");
    search_settings.lines = 1;
    store(search_clock.elapsed, 1.0);
    store(noise, 2.0);
    EXPECT_EQ(print(), "");
    store(stop_code, StopCode::Report);
    EXPECT_NE(print(), "") << "a stopped search speaks";
    store(noise, silent_noise);
    EXPECT_EQ(print(), "");
}

TEST_F(Root, DepthOfATableMoveIsOutsideTheTables)
{
    Node root = make_root(start_position);
    root.thread->completed_depth = 99;
    root.thread->score = 9799;
    root.thread->pv[1] = move_of("e2e4");
    publish_result(root.thread, false);
    EXPECT_EQ(search_result.result_depth, 99);
    EXPECT_EQ(load(search_result.result_score), 9799);
}

// ---- The score table of the root

TEST_F(Root, TheDebugLevelChoosesWhatIsPrintedOfTheRoot)
{
    const auto printed = [](i32 level) {
        store(search_settings.debug_flag, level);
        const std::string text = capture_output([] { run_search_to(start_position, 1); });
        store(search_settings.debug_flag, 0);
        return text;
    };
    EXPECT_EQ(printed(0).find("white  black"), std::string::npos);
    const std::string table = printed(1);
    EXPECT_NE(table.find("white  black"), std::string::npos) << table;
    EXPECT_EQ(table.find("stm_bonus"), std::string::npos) << table;
    // Only a level of 1 keeps the weights away.
    EXPECT_NE(printed(2).find("stm_bonus"), std::string::npos);
    EXPECT_EQ(printed(3), printed(2));
}

// ---- Mates

// The moves of a bm operand, as parse_move reads them.
static std::vector<Move> best_moves(const std::string& operand)
{
    std::vector<Move> moves;
    std::string rest = operand;
    while (!rest.empty()) {
        const size_t end = rest.find(',');
        char text[64];
        snprintf(text, sizeof text, "%s", rest.substr(0, end).c_str());
        Move move = NoMove;
        EXPECT_EQ(parse_move(&dialogue.game->pos, text, &move), 1) << operand;
        moves.push_back(move);
        rest = end == std::string::npos ? "" : rest.substr(end + 1);
    }
    return moves;
}

TEST_F(Root, MatesAreFound)
{
    i32 positions = 0;
    for (const std::string& line : read_lines("mates.epd")) {
        char fen[epd_pos_size], bm[epd_operand_size], am[epd_operand_size], id[epd_operand_size],
            ce[epd_operand_size], c0[epd_operand_size];
        read_epd_ops(line.c_str(), fen, bm, am, id, ce, c0);
        const i32 length = atoi(line.c_str() + line.find(" dm ") + 4);
        run_search_to(fen, 4 * length);
        set_position(fen);
        bool found = false;
        for (const Move move : best_moves(bm)) {
            found = found || move == best_move();
        }
        EXPECT_TRUE(found) << line << " not " << text_of(best_move());
        EXPECT_EQ(load(search_result.result_score), 10000 - 2 * length) << line;
        ++positions;
    }
    EXPECT_EQ(positions, 60);
}

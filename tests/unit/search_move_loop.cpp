// The move loop: what is dropped, how far moves are reduced, scout and re-search, and the store.
// Most nodes stand at the last ply that makes moves, so that each searched move is one node and
// its depth can be read from the record of the ply below.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "search_support.h"
#include "search/control.h"
#include "search/node.h"
#include "search/thread.h"

static constexpr i32 high = 5000; // an alpha that no ordinary position reaches

struct MoveLoop : SearchTest {
    static void fill_reductions(u8 (&table)[32][32], u8 value)
    {
        std::fill_n(&table[0][0], 32 * 32, value);
    }

    static void make_all_moves_late()
    {
        std::fill_n(pruning.lmp_count, 12, static_cast<i16>(-1000));
    }

    // The ordering score that every quiet move of the node gets from its history.
    static void set_base(Node* node, i32 base)
    {
        std::fill_n(&node->thread->history[0][0][0], 8 * 16 * 64, static_cast<i16>(base * 256));
    }

    // The moves searched at a node of type 1 whose window lies far above.
    static std::string searched_at(const char* fen, i32 depth)
    {
        Node node = make_node(fen, last_moving_ply);
        return sorted_moves_made([&] { run_moves(&node, depth, high, high + 1, CutNode); });
    }

    // Whether the late-move rules keep the move in the position, with another one searched first.
    static bool is_kept(const char* fen, const char* first, const char* move)
    {
        make_all_moves_late();
        Node node = make_node(fen, last_moving_ply);
        node.rec->hash_move = move_of(first);
        const std::string searched =
            sorted_moves_made([&] { run_moves(&node, 2, high, high + 1, CutNode); });
        EXPECT_NE(searched.find(first), std::string::npos) << fen;
        return searched.find(move) != std::string::npos;
    }

    static u16 class_of(const char* fen, const char* move)
    {
        Position* pos = set_position(fen);
        const MoveEntry entry = entry_of(pos, move);
        return class_of_move(pos, pos->stm, &entry);
    }

    // The reduction that the last move of the node got.
    static i32 last_reduction_at(
        const char* fen, i32 depth, i32 base, NodeType type, i32 parent_reduction = 0)
    {
        Node node = make_node(fen, last_moving_ply);
        set_base(&node, base);
        node.rec[-1].reduction = static_cast<i8>(parent_reduction);
        run_moves(&node, depth, high, high + 1, type);
        EXPECT_EQ(node.thread->node_depth[node.ply + 1], depth - 1 - node.rec->reduction) << fen;
        return node.rec->reduction;
    }
};

// Two king moves and nothing else.
static const char* const two_kings = "7k/8/8/8/8/p7/8/K7 w - -";
// Kings and blocked pawns: all moves are quiet king moves without a threat.
static const char* const quiet_kings = "4k3/8/p7/P7/8/8/8/4K3 w - -";

// ---- Classes of moves

TEST_F(MoveLoop, MoveClasses)
{
    const struct {
        const char* fen;
        const char* move;
        i32 flags;
    } rows[] = {
        { start_position, "e2e4", 0 },
        { start_position, "g1f3", 0 },
        { "4k3/8/8/3p4/4P3/8/8/4K3 w - -", "e4d5", 0x21 },
        { "4k3/2p5/8/3p4/4P3/8/8/4K3 w - -", "e4d5", 1 },
        { "4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5d6", 0x21 },
        { "4k3/8/8/8/8/8/8/R3K3 w - -", "a1a8", 2 },
        { "4k3/8/8/8/8/8/4B3/K3R3 w - -", "e2d3", 2 },
        { "r3k3/8/8/8/8/8/8/R3K3 w - -", "a1a8", 3 },
        { "8/P6k/8/8/8/8/8/4K3 w - -", "a7a8q", 0x30 },
        { "8/P6k/8/8/8/8/8/4K3 w - -", "a7a8r", 0x20 },
        { "8/P6k/8/8/8/8/8/4K3 w - -", "a7a8n", 0x20 },
        { "7k/P7/8/8/8/8/8/4K3 w - -", "a7a8q", 0x32 },
        { "5k2/3P4/8/8/8/8/8/4K3 w - -", "d7d8n", 0x20 },
        { "4k3/8/P7/8/8/8/8/4K3 w - -", "a6a7", 0x28 },
        { "4k3/1p6/P7/8/8/8/8/4K3 w - -", "a6b7", 0x29 },
        { "4k3/8/8/8/8/p7/8/4K3 b - -", "a3a2", 0x28 },
        { "4k3/8/8/8/P7/8/8/4K3 w - -", "a4a5", 0x20 },
        { "4k3/8/8/P7/8/8/8/4K3 w - -", "a5a6", 0x20 },
        { "4k3/8/8/8/8/P7/8/4K3 w - -", "a3a4", 0 },
        { "4k3/1p6/8/8/P7/8/8/4K3 w - -", "a4a5", 0 },
        { "4k3/1p6/8/P7/8/8/8/4K3 w - -", "a5a6", 0 },
        { "4k3/8/8/8/p7/8/8/4K3 b - -", "a4a3", 0x20 },
        { "4k3/8/8/p7/8/8/8/4K3 b - -", "a5a4", 0x20 },
        { "4k3/8/p7/8/8/8/8/4K3 b - -", "a6a5", 0 },
    };
    for (const auto& row : rows) {
        EXPECT_EQ(class_of(row.fen, row.move), row.flags) << row.fen << " " << row.move;
    }
}

TEST_F(MoveLoop, EnPassantVictimStillBlocksTheCheckItUncovers)
{
    EXPECT_EQ(class_of("6k1/8/8/2Pp4/8/8/B7/4K3 w - d6", "c5d6") & FlagCheck, 0);
    EXPECT_EQ(class_of("3k4/8/8/3Pp3/8/8/3R4/4K3 w - e6", "d5e6") & FlagCheck, FlagCheck)
        << "the pawn itself uncovers it";
}

TEST_F(MoveLoop, CheckByACastlingRookIsNotSeen)
{
    EXPECT_EQ(class_of("5k2/8/8/8/8/8/8/4K2R w K -", "e1g1") & FlagCheck, 0);
    EXPECT_EQ(class_of("8/8/8/8/8/8/8/R3K2k w Q -", "e1d2") & FlagCheck, FlagCheck);
}

TEST_F(MoveLoop, CheckClassAgreesWithTheBoardAfterTheMove)
{
    u64 state = 11;
    for (i32 game = 0; game < 30; ++game) {
        Position* pos = set_position(start_position);
        for (i32 ply = 0; ply < 100; ++ply) {
            const std::vector<Move> moves = legal_moves(pos);
            if (moves.empty()) {
                break;
            }
            for (const Move move : moves) {
                const MoveEntry entry = entry_of(pos, text_of(move).c_str());
                const u16 flags = class_of_move(pos, pos->stm, &entry);
                const bool flagged = (flags & FlagCheck) != 0;
                const bool surely_none = is_surely_no_check(pos, flags, &entry);
                const bool king_jump =
                    (entry.moved & 7) == King && std::abs(to_square(move) - from_square(move)) == 2;
                const bool en_passant = is_en_passant(pos, &entry);
                const std::string fen = fen_of(pos);
                make_move(pos, move);
                const bool checked = is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
                unmake_move(pos);
                ASSERT_FALSE(surely_none && checked) << fen << " " << text_of(move);
                if (king_jump || en_passant) {
                    ASSERT_FALSE(surely_none) << fen << " " << text_of(move);
                    continue;
                }
                ASSERT_TRUE(surely_none || flagged || (move & PromotionMask)) << text_of(move);
                ASSERT_EQ(flagged, checked) << fen << " " << text_of(move);
            }
            make_move(pos, moves[next_random(&state, static_cast<u32>(moves.size()))]);
        }
    }
}

TEST_F(MoveLoop, SafeMovesAreThoseThatAreLegal)
{
    u64 state = 12;
    MoveEntry list[max_list_moves];
    for (i32 game = 0; game < 30; ++game) {
        Position* pos = set_position(start_position);
        for (i32 ply = 0; ply < 100; ++ply) {
            const i32 side = pos->stm;
            const bool in_check = is_attacked(pos, pos->king_sq[side], side ^ 1);
            const MoveEntry* end = gen_moves_into(pos, list);
            for (const MoveEntry* entry = list; entry < end; ++entry) {
                ASSERT_EQ(
                    is_safe_move(pos, side, entry, in_check), is_legal_move(pos, side, entry->move))
                    << fen_of(pos) << " " << text_of(entry->move);
            }
            const std::vector<Move> moves = legal_moves(pos);
            if (moves.empty()) {
                break;
            }
            make_move(pos, moves[next_random(&state, static_cast<u32>(moves.size()))]);
        }
    }
    // The pawn and its victim both leave the king's rank.
    Position* pos = set_position("8/8/8/K2pP2r/8/8/8/4k3 w - d6");
    const MoveEntry entry = entry_of(pos, "e5d6");
    EXPECT_FALSE(is_safe_move(pos, White, &entry, false));
}

// ---- No moves

TEST_F(MoveLoop, StalemateStoresAnExactZeroWithoutAMove)
{
    Node node = make_node("7k/5Q2/8/8/8/8/8/4K3 b - -", 5);
    EXPECT_EQ(run_moves(&node, 3, 50, 60, CutNode), 0);
    const HashEntry entry = probe(node.pos);
    EXPECT_EQ(entry.score, 0);
    EXPECT_EQ(entry.bound, BoundExact);
    EXPECT_EQ(entry.depth, 3);
    EXPECT_EQ(entry.move, NoMove);
}

TEST_F(MoveLoop, MateIsStoredExactAsTheLowestScore)
{
    Node node = make_node("7k/6Q1/5K2/8/8/8/8/8 b - -", 5);
    EXPECT_EQ(run_moves(&node, 3, 50, 60, CutNode), 5 - 10000);
    const HashEntry entry = probe(node.pos);
    EXPECT_EQ(entry.score, -10000);
    EXPECT_EQ(entry.bound, BoundExact);
    EXPECT_EQ(entry.move, NoMove);
}

TEST_F(MoveLoop, MateIsToldByTheArgumentNotByTheRecord)
{
    Node node = make_node("7k/6Q1/5K2/8/8/8/8/8 b - -", 5);
    open_node(&node, 3, 50, 60, CutNode);
    EXPECT_EQ(search_moves(node.pos, node.side, 5, 3, 50, 60, 0, CutNode, node.pv), 0);
}

// ---- Evasions below the horizon

TEST_F(MoveLoop, EvasionsBelowTheHorizonAreAllSearchedAndLeaveNoTrace)
{
    Node node = make_node("4k3/8/8/8/8/2N5/4r3/2B1K1R1 w - -", last_moving_ply);
    const i32 score = run_moves(&node, -2, high, high + 1, CutNode);
    EXPECT_LT(score, high);
    const size_t legal = legal_moves(node.pos).size();
    EXPECT_EQ(node.rec->moves_searched, legal);
    EXPECT_EQ(node_count(), legal);
    EXPECT_EQ(probe(node.pos).depth, HashNotFound);
    for (i32 piece = 0; piece < 16; ++piece) {
        for (i32 to = 0; to < 64; ++to) {
            ASSERT_EQ(node.thread->history[0][piece][to], 2048);
        }
    }
}

// ---- Hash move

TEST_F(MoveLoop, HashMoveIsSearchedFirstAndOnce)
{
    Node node = make_node(quiet_kings, last_moving_ply);
    node.rec->hash_move = move_of("e1d1");
    run_moves(&node, 2, -high, high, PvNode);
    const size_t legal = legal_moves(node.pos).size();
    EXPECT_EQ(node.rec->moves_searched, legal);
    EXPECT_EQ(node.thread->ply_rec[last_moving_ply].list_start->move, move_of("e1d1"));
}

// ---- Dropped moves

TEST_F(MoveLoop, FirstLegalMoveIsNeverDroppedOrReduced)
{
    make_all_moves_late();
    fill_reductions(pruning.lmr_nonpv, 3);
    Node node = make_node("7k/8/8/8/8/8/8/K7 w - -", last_moving_ply);
    run_moves(&node, 6, high, high + 1, CutNode);
    EXPECT_EQ(node.rec->moves_searched, 1u) << "a late king move is always dropped";
    EXPECT_EQ(node.rec->reduction, 0);
    EXPECT_EQ(node.thread->node_depth[node.ply + 1], 5);
}

TEST_F(MoveLoop, NothingIsDroppedWhileTheBestScoreIsAMate)
{
    // Every move is answered by mate at once; the children are cut to that score by their window.
    make_all_moves_late();
    fill_reductions(pruning.lmr_nonpv, 3);
    Node node = make_node(quiet_kings, last_moving_ply);
    for (const Move move : legal_moves(node.pos)) {
        make_move(node.pos, move);
        put_entry(node.pos, NoMove, 9990, 20, BoundExact);
        unmake_move(node.pos);
    }
    EXPECT_LT(run_moves(&node, 6, -infinite_score, infinite_score, CutNode), -9599);
    EXPECT_EQ(node.rec->moves_searched, legal_moves(node.pos).size());
}

TEST_F(MoveLoop, QuietMovesAreLateByCountAndScore)
{
    // Twelve king and bishop moves that threaten nothing; each has base 8, a quarter of it 2.
    const char* fen = "7k/8/p7/P7/8/8/8/1B2K3 w - -";
    for (i32 depth = 1; depth <= 3; ++depth) {
        Node node = make_node(fen, last_moving_ply);
        run_moves(&node, depth, high, high + 1, CutNode);
        EXPECT_EQ(node.rec->moves_searched, pruning.lmp_count[depth] + 2) << depth;
    }
    Node node = make_node(fen, last_moving_ply);
    set_base(&node, 15);
    run_moves(&node, 1, high, high + 1, CutNode);
    EXPECT_EQ(node.rec->moves_searched, 3 + 3);
}

TEST_F(MoveLoop, PvNodesEvasionsDeepNodesAndIidPassesDropNothing)
{
    make_all_moves_late();
    const size_t legal = 5;
    Node node = make_node(quiet_kings, last_moving_ply);
    run_moves(&node, 2, high, high + 1, PvNode);
    EXPECT_EQ(node.rec->moves_searched, legal);

    node = make_node(quiet_kings, last_moving_ply);
    run_moves(&node, pruning.LMP_depth + 1, high, high + 1, CutNode);
    EXPECT_EQ(node.rec->moves_searched, legal);

    node = make_node(quiet_kings, last_moving_ply);
    node.rec->in_iid = 1;
    run_moves(&node, 2, high, high + 1, CutNode);
    EXPECT_EQ(node.rec->moves_searched, legal);

    node = make_node(quiet_kings, last_moving_ply);
    run_moves(&node, 0, high, high + 1, CutNode);
    EXPECT_EQ(node.rec->moves_searched, legal);

    node = make_node("4k3/8/8/8/8/4r3/8/4K3 w - -", last_moving_ply);
    run_moves(&node, 2, high, high + 1, AllNode);
    EXPECT_EQ(node.rec->moves_searched, legal_moves(node.pos).size());

    node = make_node(quiet_kings, last_moving_ply);
    run_moves(&node, 2, high, high + 1, AllNode);
    EXPECT_EQ(node.rec->moves_searched, 1u) << "an all node does";
}

TEST_F(MoveLoop, LateKingMovesAreAlwaysDropped)
{
    EXPECT_FALSE(is_kept("7k/8/8/8/8/8/7P/1K6 w - -", "h2h3", "b1b2"));
    EXPECT_FALSE(is_kept("k7/8/8/8/8/8/7P/4K2R w K -", "h2h3", "e1g1"));
}

TEST_F(MoveLoop, LatePawnMovesStayIfTheyAttackAPieceOrBesideTheKing)
{
    EXPECT_FALSE(is_kept("7k/8/8/8/8/4P3/7P/4K3 w - -", "h2h3", "e3e4"));
    EXPECT_TRUE(is_kept("7k/8/8/3n4/8/4P3/7P/4K3 w - -", "h2h3", "e3e4")) << "a knight";
    EXPECT_TRUE(is_kept("4k3/7p/4pp2/8/3B4/8/8/4K3 b - -", "h7h6", "e6e5")) << "a bishop";
    EXPECT_TRUE(is_kept("8/5p2/7k/8/5P2/8/P7/4K3 w - -", "a2a3", "f4f5")) << "beside the king";
    EXPECT_FALSE(is_kept("k7/5p2/8/8/5P2/8/P7/4K3 w - -", "a2a3", "f4f5"));
}

TEST_F(MoveLoop, LateKnightMovesStayIfTheyAttackARookAQueenOrBesideTheKing)
{
    EXPECT_TRUE(is_kept("7k/8/8/2r5/8/2N5/7P/4K3 w - -", "h2h3", "c3a4"));
    EXPECT_TRUE(is_kept("7k/8/8/2q5/8/2N5/7P/4K3 w - -", "h2h3", "c3a4"));
    EXPECT_FALSE(is_kept("7k/8/8/2b5/8/2N5/7P/4K3 w - -", "h2h3", "c3a4"));
    EXPECT_TRUE(is_kept("k7/8/8/8/8/2N5/7P/4K3 w - -", "h2h3", "c3b5")) << "beside the king";
    EXPECT_FALSE(is_kept("k7/8/8/8/8/2N5/7P/4K3 w - -", "h2h3", "c3e4"));
}

TEST_F(MoveLoop, LateBishopMovesStayIfANewRayReachesARookOrAQueen)
{
    EXPECT_TRUE(is_kept("7k/8/r7/8/8/8/6B1/4K1N1 w - -", "g1h3", "g2f1"));
    EXPECT_FALSE(is_kept("7k/8/r7/1p6/8/8/6B1/4K1N1 w - -", "g1h3", "g2f1")) << "blocked";
    EXPECT_FALSE(is_kept("7k/8/n7/8/8/8/6B1/4K1N1 w - -", "g1h3", "g2f1")) << "a knight";
    EXPECT_FALSE(is_kept("7k/8/r7/8/8/8/4B3/4K1N1 w - -", "g1h3", "e2f1"))
        << "the rook stood on a ray before";
}

TEST_F(MoveLoop, LateRookMovesStayIfANewRayReachesAQueen)
{
    EXPECT_TRUE(is_kept("7k/8/1p6/8/q7/1P2P3/8/4KRN1 w - -", "g1h3", "f1f4"));
    EXPECT_FALSE(is_kept("7k/8/1p6/8/r7/1P2P3/8/4KRN1 w - -", "g1h3", "f1f4")) << "a rook";
    EXPECT_FALSE(is_kept("7k/8/1p6/8/q2p4/1P2P3/8/4KRN1 w - -", "g1h3", "f1f4")) << "blocked";
}

TEST_F(MoveLoop, LateSliderMovesStayIfTheyJoinAnAttackBesideTheKing)
{
    // The bishop sees g7 and h8; a rook or queen on h1 sees h8 too, on f1 nothing of the bishop's.
    EXPECT_TRUE(is_kept("6k1/8/8/8/3B4/8/P7/K2R4 w - -", "a2a3", "d1h1"));
    EXPECT_FALSE(is_kept("6k1/8/8/8/3B4/8/P7/K2R4 w - -", "a2a3", "d1f1"));
    EXPECT_TRUE(is_kept("6k1/8/8/8/3B4/8/P7/K2Q4 w - -", "a2a3", "d1h1"));
    EXPECT_FALSE(is_kept("6k1/8/8/8/3B4/8/P7/K2Q4 w - -", "a2a3", "d1f1"));
    // The same for a bishop that joins a rook.
    EXPECT_TRUE(is_kept("6k1/8/8/8/8/8/P2B4/K6R w - -", "a2a3", "d2c3"));
    EXPECT_FALSE(is_kept("6k1/8/8/8/8/8/P2B4/K6R w - -", "a2a3", "d2e3"));
}

TEST_F(MoveLoop, QuietMoveThatLosesIsDroppedThoughItIsNotLate)
{
    // The knight moves into a pawn's attack on d5; few moves have been searched.
    std::fill_n(pruning.lmp_count, 12, static_cast<i16>(1000));
    const char* fen = "7k/8/2p5/8/5N2/8/8/K7 w - -";
    const std::string searched = searched_at(fen, 2);
    EXPECT_EQ(searched.find("f4d5"), std::string::npos);
    EXPECT_NE(searched.find("f4d3"), std::string::npos);
    EXPECT_NE(searched.find("a1b1"), std::string::npos);
}

TEST_F(MoveLoop, LosingCaptureIsDroppedAtDepthOneOnly)
{
    const char* fen = "7k/8/2p5/3p4/1N6/8/8/K7 w - -";
    EXPECT_EQ(searched_at(fen, 1).find("b4d5"), std::string::npos);
    EXPECT_NE(searched_at(fen, 2).find("b4d5"), std::string::npos);
}

TEST_F(MoveLoop, LosingCheckIsDroppedUpToAnOrderingScoreOfForty)
{
    // The knight gives check on d5, where the pawn takes it.
    const char* fen = "8/4k3/2p5/8/1N6/8/8/K7 w - -";
    for (const i32 score : { 40, 41 }) {
        Node node = make_node(fen, last_moving_ply);
        node.rec->hash_move = move_of("a1b1");
        set_base(&node, score);
        const std::string searched =
            sorted_moves_made([&] { run_moves(&node, 1, high, high + 1, CutNode); });
        EXPECT_EQ(searched.find("b4d5") == std::string::npos, score == 40) << searched;
    }
}

TEST_F(MoveLoop, LosingCaptureThatGivesCheckIsKept)
{
    // The knight takes a guarded pawn on d5; with the king on e7 that is a check.
    EXPECT_EQ(searched_at("8/8/2p4k/3p4/1N6/8/8/K7 w - -", 1).find("b4d5"), std::string::npos);
    EXPECT_NE(searched_at("8/4k3/2p5/3p4/1N6/8/8/K7 w - -", 1).find("b4d5"), std::string::npos);
}

// ---- Reductions

TEST_F(MoveLoop, TableValueIsTheReductionOfAPoorlyOrderedQuietMove)
{
    for (u8 value = 0; value <= 5; ++value) {
        fill_reductions(pruning.lmr_nonpv, value);
        fill_reductions(pruning.lmr_pv, static_cast<u8>(5 - value));
        EXPECT_EQ(last_reduction_at(two_kings, 9, 31, AllNode), value);
        EXPECT_EQ(last_reduction_at(two_kings, 9, 31, PvNode), 5 - value);
    }
}

TEST_F(MoveLoop, WellOrderedQuietMoveIsReducedLess)
{
    const i32 expected[6] = { 0, 0, 1, 2, 2, 2 };
    for (u8 value = 0; value <= 5; ++value) {
        fill_reductions(pruning.lmr_nonpv, value);
        EXPECT_EQ(last_reduction_at(two_kings, 9, 32, AllNode), expected[value]);
    }
}

TEST_F(MoveLoop, LineThatWasReducedByThreeAlreadyIsReducedLess)
{
    fill_reductions(pruning.lmr_nonpv, 3);
    EXPECT_EQ(last_reduction_at(two_kings, 9, 8, AllNode, 2), 3);
    EXPECT_EQ(last_reduction_at(two_kings, 9, 8, AllNode, 3), 2);
    EXPECT_EQ(last_reduction_at(two_kings, 9, 32, AllNode, 3), 1);
    fill_reductions(pruning.lmr_nonpv, 1);
    EXPECT_EQ(last_reduction_at(two_kings, 9, 32, AllNode, 3), 0);
    fill_reductions(pruning.lmr_nonpv, 0);
    EXPECT_EQ(last_reduction_at(two_kings, 9, 8, AllNode, 3), 0);
}

TEST_F(MoveLoop, ReductionLeavesADepthOfOne)
{
    fill_reductions(pruning.lmr_nonpv, 5);
    EXPECT_EQ(last_reduction_at(two_kings, 5, 8, AllNode), 4);
    EXPECT_EQ(last_reduction_at(two_kings, 3, 8, AllNode), 2);
    EXPECT_EQ(last_reduction_at(two_kings, 6, 8, AllNode), 5);
}

TEST_F(MoveLoop, ShallowNodesDoNotReduce)
{
    fill_reductions(pruning.lmr_pv, 2);
    EXPECT_EQ(last_reduction_at(two_kings, 2, 8, PvNode), 0);
    pruning.LMR_depth = 4;
    EXPECT_EQ(last_reduction_at(two_kings, 3, 8, PvNode), 0);
    EXPECT_EQ(last_reduction_at(two_kings, 4, 8, PvNode), 2);
}

TEST_F(MoveLoop, MoveThatLosesIsReducedOneMore)
{
    fill_reductions(pruning.lmr_pv, 0);
    Node node = make_node("7k/8/2p5/3p4/1N6/1p6/1P6/1K6 w - -", last_moving_ply);
    run_moves(&node, 5, high, high + 1, PvNode);
    // In stored order the knight's losing capture is worth 5, behind the quiet moves with 8.
    EXPECT_EQ(node.rec->list_cursor[-1].move, move_of("b4d5"));
    EXPECT_EQ(node.rec->reduction, 1) << "a table value of 0 is raised too";
    fill_reductions(pruning.lmr_pv, 1);
    run_moves(&node, 5, high, high + 1, PvNode);
    EXPECT_EQ(node.rec->reduction, 2);
}

TEST_F(MoveLoop, MovesWithAClassAreReducedByOneAtMost)
{
    // The knight's losing capture again: an ordering score of 5, and one more since it loses.
    fill_reductions(pruning.lmr_pv, 4);
    Node node = make_node("7k/8/2p5/3p4/1N6/1p6/1P6/1K6 w - -", last_moving_ply);
    run_moves(&node, 9, high, high + 1, PvNode);
    EXPECT_EQ(node.rec->list_cursor[-1].move, move_of("b4d5"));
    EXPECT_EQ(node.rec->reduction, 2);

    // The second of two safe captures is well ordered: no reduction, whatever the table says.
    node = make_node("1r5k/8/8/3ppp2/4P3/8/7r/K7 w - -", last_moving_ply);
    node.rec->hash_move = move_of("e4f5");
    run_moves(&node, 9, high, high + 1, PvNode);
    EXPECT_EQ(node.rec->moves_searched, 2u) << "the king cannot move";
    EXPECT_EQ(node.rec->reduction, 0);
    fill_reductions(pruning.lmr_pv, 1);
    run_moves(&node, 9, high, high + 1, PvNode);
    EXPECT_EQ(node.rec->reduction, 0) << "a value of 1 goes the way of quiet moves";
}

TEST_F(MoveLoop, MoveCountsBeyondTheTableReadItsLastColumn)
{
    fill_reductions(pruning.lmr_pv, 0);
    for (i32 depth = 0; depth < 32; ++depth) {
        pruning.lmr_pv[depth][31] = 3;
    }
    Node node = make_node("1k6/8/8/8/3Q4/2B5/8/K6R w - -", last_moving_ply);
    run_moves(&node, 9, high, high + 1, PvNode);
    EXPECT_GT(node.rec->moves_searched, 40u);
    EXPECT_EQ(node.rec->list_cursor[-1].moved, King) << "a quiet move that does not lose";
    EXPECT_EQ(node.rec->reduction, 3);
}

TEST_F(MoveLoop, DepthsBeyondTheTableReadItsLastRow)
{
    fill_reductions(pruning.lmr_pv, 0);
    for (i32 column = 0; column < 32; ++column) {
        pruning.lmr_pv[31][column] = 2;
    }
    EXPECT_EQ(last_reduction_at(two_kings, 30, 8, PvNode), 0);
    EXPECT_EQ(last_reduction_at(two_kings, 31, 8, PvNode), 2);
    EXPECT_EQ(last_reduction_at(two_kings, 50, 8, PvNode), 2);
}

// ---- Scout and re-search

TEST_F(MoveLoop, SecondMoveIsScoutedAndSearchedAgainIfItBeatsAlpha)
{
    // The window admits every score: each move better than all before it is searched twice.
    Node node = make_node(quiet_kings, last_moving_ply);
    run_moves(&node, 2, -high, high, PvNode);
    const u64 nodes = node_count();
    const std::vector<MoveEntry> order = entries_of(node.rec->list_start);
    i32 best = -high;
    u64 expected = 0;
    for (const MoveEntry& entry : order) {
        make_move(node.pos, entry.move);
        Node child = node;
        ++child.ply;
        child.side ^= 1;
        const i32 score = -eval_of(&child);
        unmake_move(node.pos);
        expected += expected != 0 && score > best ? 2 : 1;
        best = std::max(best, score);
    }
    EXPECT_EQ(nodes, expected);
    EXPECT_GT(nodes, order.size()) << "at least one is better than the first";
    EXPECT_EQ(node.thread->node_depth[node.ply + 1], 1);
}

TEST_F(MoveLoop, FirstMovePassesTheNodesTypeOnNegated)
{
    for (const NodeType type : { PvNode, CutNode, AllNode }) {
        Node node = make_node("7k/8/8/8/8/8/1r6/K7 w - -", last_moving_ply);
        ASSERT_EQ(legal_moves(node.pos).size(), 1u);
        run_moves(&node, 3, -high, high, type);
        EXPECT_EQ(node.rec[1].node_type, -type);
        EXPECT_EQ(node.rec[1].alpha, -high);
        EXPECT_EQ(node.rec[1].beta, high);
    }
}

TEST_F(MoveLoop, LaterMovesAreScoutedAsCutNodesWithANullWindow)
{
    Node node = make_node(two_kings, last_moving_ply);
    ASSERT_EQ(legal_moves(node.pos).size(), 2u);
    run_moves(&node, 3, high, high + 100, AllNode);
    EXPECT_EQ(node.rec[1].node_type, CutNode);
    EXPECT_EQ(node.rec[1].alpha, -high - 1);
    EXPECT_EQ(node.rec[1].beta, -high);
}

TEST_F(MoveLoop, AtDepthOneEveryMoveHasTheWholeWindow)
{
    Node node = make_node(two_kings, last_moving_ply);
    run_moves(&node, 1, high, high + 100, PvNode);
    EXPECT_EQ(node.rec[1].node_type, PvNode);
    EXPECT_EQ(node.rec[1].alpha, -high - 100);
    EXPECT_EQ(node.rec[1].beta, -high);
    EXPECT_EQ(node_count(), 2u);
}

// ---- Results

TEST_F(MoveLoop, FailLowStoresItsBestMoveAsAnUpperBound)
{
    Node node = make_node(quiet_kings, last_moving_ply);
    const i32 score = run_moves(&node, 2, high, high + 1, PvNode);
    EXPECT_LT(score, high) << "below the window";
    const HashEntry entry = probe(node.pos);
    EXPECT_EQ(entry.bound, BoundUpper);
    EXPECT_EQ(entry.score, score);
    EXPECT_EQ(entry.depth, 2);
    EXPECT_NE(entry.move, NoMove);
    EXPECT_EQ(node.pv[last_moving_ply], entry.move);
}

TEST_F(MoveLoop, FailHighEndsTheLoopAndStoresALowerBound)
{
    Node node = make_node(quiet_kings, last_moving_ply);
    const i32 score = run_moves(&node, 2, -high, -high + 1, CutNode);
    EXPECT_GT(score, -high + 1) << "above the window";
    EXPECT_EQ(node.rec->moves_searched, 1u);
    const HashEntry entry = probe(node.pos);
    EXPECT_EQ(entry.bound, BoundLower);
    EXPECT_EQ(entry.score, score);
    EXPECT_EQ(node.rec->killer[0], entry.move);
    EXPECT_EQ(node.pv[last_moving_ply + 1], NoMove);
}

TEST_F(MoveLoop, ExactScoreIsStoredAgainstTheAlphaOfTheCall)
{
    Node node = make_node(quiet_kings, last_moving_ply);
    run_moves(&node, 2, -high, high, PvNode);
    EXPECT_EQ(probe(node.pos).bound, BoundExact);
}

TEST_F(MoveLoop, EveryMoveThatRaisesAlphaCountsAsASuccess)
{
    Node node = make_node(quiet_kings, last_moving_ply);
    run_moves(&node, 2, -high, high, PvNode);
    i32 raised = 0;
    i32 lowered = 0;
    for (const Move move : legal_moves(node.pos)) {
        const i32 cell = node.thread->history[0][King][to_square(move)];
        raised += cell > 2048;
        lowered += cell < 2048;
    }
    EXPECT_GE(raised, 2);
    EXPECT_EQ(raised + lowered, static_cast<i32>(legal_moves(node.pos).size()));
}

TEST_F(MoveLoop, CapturesLeaveTheHistoryAlone)
{
    Node node = make_node("7k/8/8/3p4/4P3/8/8/K7 w - -", last_moving_ply);
    node.rec->hash_move = move_of("e4d5");
    run_moves(&node, 3, -high, -high + 1, CutNode);
    EXPECT_EQ(node.rec->moves_searched, 1u);
    EXPECT_EQ(node.thread->history[0][Pawn][square_of("d5")], 2048);
    EXPECT_EQ(node.rec->killer[0], NoMove);
}

TEST_F(MoveLoop, EnPassantAndPromotionsToAnEmptySquareTakePart)
{
    Node node = make_node("7k/8/8/3pP3/8/8/8/K7 w - d6", last_moving_ply);
    node.rec->hash_move = move_of("e5d6");
    run_moves(&node, 3, -high, -high + 1, CutNode);
    EXPECT_GT(node.thread->history[0][Pawn][square_of("d6")], 2048);

    node = make_node("8/P6k/8/8/8/8/8/K7 w - -", last_moving_ply);
    node.rec->hash_move = move_of("a7a8q");
    run_moves(&node, 3, -high, -high + 1, CutNode);
    EXPECT_GT(node.thread->history[0][Pawn][square_of("a8")], 2048);
}

TEST_F(MoveLoop, StoppedLoopReturnsZeroAndStoresNothing)
{
    Node node = make_node(quiet_kings, last_moving_ply);
    store(stop_code, StopCode::Report);
    EXPECT_EQ(run_moves(&node, 3, -high, high, PvNode), 0);
    EXPECT_EQ(node_count(), 1u);
    EXPECT_EQ(probe(node.pos).depth, HashNotFound);
    EXPECT_EQ(fen_of(node.pos), std::string(quiet_kings));
    EXPECT_EQ(node.thread->history[0][King][square_of("d1")], 2048);
}

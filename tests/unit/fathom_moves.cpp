// The table code's own moves, against those of the board.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fathom_support.h"
#include "search/thread.h"

static const char* const starts[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w - -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w - -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "r2q1rk1/pP1p2pp/Q4n2/bbp1p3/Np6/1B3NBn/pPPP1PPP/R3K2R b - -",
    "n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - -",
};

static Move board_move(tb_move move)
{
    static const Move promotions[5] = { 0, PromoteQueen, PromoteRook, PromoteBishop,
        PromoteKnight };
    return make_move_code(tb_from(move), tb_to(move)) | promotions[tb_promotion(move)];
}

static std::vector<tb_move> tb_legal_moves(const TbPos* pos)
{
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(pos, list);
    std::vector<tb_move> legal;
    TbPos next;
    for (const tb_move* move = list; move < end; ++move) {
        if (tb_do_move(&next, pos, *move)) {
            legal.push_back(*move);
        }
    }
    return legal;
}

// A visit of positions by random play from the starts.
static void for_random_positions(const std::function<void(Position*)>& visit)
{
    u64 state = 11;
    for (const char* fen : starts) {
        for (i32 game = 0; game < 8; ++game) {
            Position* pos = set_position(fen);
            while (pos->thread->undo_count < 80) {
                visit(pos);
                if (play_random_moves(pos, &state, 1) == 0) {
                    break;
                }
            }
        }
    }
}

TEST(TableMoves, AreTheLegalMovesOfTheBoard)
{
    for_random_positions([](Position* pos) {
        TbPos tb_pos;
        tb_set_pos(&tb_pos, pos, 0);
        std::vector<Move> found;
        for (const tb_move move : tb_legal_moves(&tb_pos)) {
            found.push_back(board_move(move));
        }
        std::vector<Move> expected = legal_moves(pos);
        std::sort(found.begin(), found.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(found, expected) << fen_of(pos);
        EXPECT_EQ(tb_has_legal_move(&tb_pos, false), !expected.empty());
    });
}

TEST(TableMoves, MakeTheBoardThatTheEngineMakes)
{
    for_random_positions([](Position* pos) {
        TbPos before;
        tb_set_pos(&before, pos, 7);
        for (const tb_move move : tb_legal_moves(&before)) {
            const i32 passed = (tb_from(move) + tb_to(move)) / 2;
            const bool resets = (before.pawns & bit(tb_from(move)))
                || ((before.white | before.black) & bit(tb_to(move)));
            TbPos after;
            ASSERT_TRUE(tb_do_move(&after, &before, move));
            make_move(pos, board_move(move));
            TbPos expected;
            tb_set_pos(&expected, pos, resets ? 0 : 8);
            const i32 side = pos->stm;
            if (expected.ep != 0) {
                EXPECT_EQ(expected.ep, passed);
                if ((pawn_attacks[side ^ 1][passed] & pos->bb[side][Pawn]) == 0) {
                    expected.ep = 0;
                }
            }
            unmake_move(pos);
            EXPECT_EQ(memcmp(&after, &expected, offsetof(TbPos, rule50)), 0) << fen_of(pos);
            EXPECT_EQ(after.rule50, expected.rule50);
            EXPECT_EQ(after.ep, expected.ep) << fen_of(pos) << text_of(board_move(move));
            EXPECT_EQ(after.turn, expected.turn);
        }
    });
}

static std::string moves_text_of(const tb_move* move, const tb_move* end)
{
    std::string text;
    for (; move < end; ++move) {
        text += (text.empty() ? "" : " ") + text_of(board_move(*move));
    }
    return text;
}

TEST(TableMoves, ComeInOneFixedOrder)
{
    const TbPos pos = tb_pos_of("1n1k4/P7/8/2pP4/8/6B1/4P3/K5NR w - c6 0 1");
    tb_move list[tb_max_moves];
    EXPECT_EQ(moves_text_of(list, tb_gen_moves(&pos, list)),
        "a1b1 a1a2 a1b2 h1h2 h1h3 h1h4 h1h5 h1h6 h1h7 h1h8 g3e1 g3f2 g3h2 g3f4 g3h4 g3e5 g3d6 "
        "g3c7 g3b8 g1f3 g1h3 a7b8q a7b8r a7b8b a7b8n d5c6 e2e3 e2e4 d5d6 a7a8q a7a8r a7a8b a7a8n");
    EXPECT_EQ(moves_text_of(list, tb_gen_captures(&pos, list)), "g3b8 a7b8q a7b8r a7b8b a7b8n");
    EXPECT_EQ(moves_text_of(list, tb_gen_en_passant(&pos, list)), "d5c6");
    EXPECT_EQ(moves_text_of(list, tb_gen_pawn_steps(&pos, list)),
        "e2e3 e2e4 d5d6 a7a8q a7a8r a7a8b a7a8n");
}

static TbPos after_move(const char* fen, const char* move)
{
    const TbPos pos = tb_pos_of(fen);
    tb_move list[tb_max_moves];
    const tb_move* end = tb_gen_moves(&pos, list);
    TbPos next = {};
    for (const tb_move* entry = list; entry < end; ++entry) {
        if (text_of(board_move(*entry)) == move) {
            EXPECT_TRUE(tb_do_move(&next, &pos, *entry));
            return next;
        }
    }
    ADD_FAILURE() << move;
    return next;
}

TEST(TableMoves, DoubleStepGivesARightOnlyWhereAPawnCanAnswer)
{
    EXPECT_EQ(after_move("4k3/8/8/8/3p4/8/4P3/4K3 w - - 0 1", "e2e4").ep, square_of("e3"));
    EXPECT_EQ(after_move("4k3/8/8/8/2p5/8/4P3/4K3 w - - 0 1", "e2e4").ep, 0);
    EXPECT_EQ(after_move("4k3/8/8/8/3P4/8/4P3/4K3 w - - 0 1", "e2e4").ep, 0);
    EXPECT_EQ(after_move("4k3/8/8/8/3p4/8/4P3/4K3 w - - 0 1", "e2e3").ep, 0);
    EXPECT_EQ(after_move("4k3/p7/8/1P6/8/8/8/4K3 b - - 0 1", "a7a5").ep, square_of("a6"));
    EXPECT_EQ(after_move("4k3/p7/8/7P/8/8/8/4K3 b - - 0 1", "a7a5").ep, 0)
        << "no pawn beyond the edge";
}

TEST(TableMoves, HalfMoveClockStartsAgainAndStopsAtItsEnd)
{
    EXPECT_EQ(after_move("4k3/8/8/8/8/8/4P2r/4K2R w - - 30 1", "e1f1").rule50, 31);
    EXPECT_EQ(after_move("4k3/8/8/8/8/8/4P2r/4K2R w - - 30 1", "h1h2").rule50, 0);
    EXPECT_EQ(after_move("4k3/8/8/8/8/8/4P2r/4K2R w - - 30 1", "e2e3").rule50, 0);
    EXPECT_EQ(after_move("4k3/P7/8/8/8/8/8/4K3 w - - 30 1", "a7a8r").rule50, 0);
    EXPECT_EQ(after_move("4k3/8/8/8/8/8/4P2r/4K2R w - - 255 1", "e1f1").rule50, 255);
}

TEST(TableMoves, MoveThatLeavesTheKingAttackedIsRefused)
{
    const TbPos pos = tb_pos_of("4k3/8/8/K1pP3r/8/8/8/8 w - c6 0 1");
    TbPos next;
    const auto code = [](const char* from, const char* to) {
        return static_cast<tb_move>(square_of(from) << 6 | square_of(to));
    };
    EXPECT_FALSE(tb_do_move(&next, &pos, code("d5", "c6"))) << "both pawns leave the rank";
    EXPECT_TRUE(tb_do_move(&next, &pos, code("d5", "d6")));
    EXPECT_FALSE(tb_do_move(&next, &pos, code("a5", "b4")));
    EXPECT_TRUE(tb_in_check(&next, 1) || next.turn == 0);
}

TEST(TableMoves, EnPassantCanBeLeftOutOfTheQuestionForAMove)
{
    const TbPos forced = tb_pos_of("7K/5q2/3k4/3Pp3/8/8/8/8 w - e6 0 1");
    EXPECT_TRUE(tb_has_legal_move(&forced, false));
    EXPECT_FALSE(tb_has_legal_move(&forced, true));
    const TbPos stalemate = tb_pos_of("7K/5q2/3k4/3Pp3/8/8/8/8 w - - 0 1");
    EXPECT_FALSE(tb_has_legal_move(&stalemate, false));
}

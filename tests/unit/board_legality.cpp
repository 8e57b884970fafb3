// Legal moves, moves out of the hash table, and draws by the rules.
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

#include <cstring>

#include "test_support.h"

static bool legal(const char* fen, const char* move)
{
    Position* pos = set_position(fen);
    return is_legal_move(pos, pos->stm, move_of(move));
}

static bool fits(const char* fen, Move move)
{
    return move_fits_board(set_position(fen), move);
}

static bool fits(const char* fen, const char* move)
{
    return fits(fen, move_of(move));
}

static const MoveEntry* all_moves(Position* pos, MoveEntry* list)
{
    MoveEntry* end = gen_captures(pos, pos->stm, list, NoSquare);
    end = gen_promotions(pos, pos->stm, 1, end);
    return gen_quiets(pos, pos->stm, end, NoSquare);
}

static bool is_castling(const Position* pos, Move move)
{
    const i32 step = to_square(move) - from_square(move);
    return (pos->board[from_square(move)] & 7) == King && (step == 2 || step == -2);
}

// ---- Legal moves

TEST(BoardLegality, CastlingOutOfCheckIsRejected)
{
    EXPECT_FALSE(legal("4k3/8/8/8/8/8/4r3/R3K2R w KQ -", "e1g1"));
    EXPECT_FALSE(legal("4k3/8/8/8/8/8/4r3/R3K2R w KQ -", "e1c1"));
    EXPECT_FALSE(legal("r3k2r/8/8/8/7B/8/3N4/4K3 b kq -", "e8c8"));
    EXPECT_FALSE(legal("r3k2r/8/8/8/B7/8/8/4K3 b kq -", "e8g8"));
}

TEST(BoardLegality, CastlingThroughCheckIsRejected)
{
    EXPECT_FALSE(legal("4k3/8/8/8/8/8/5r2/R3K2R w KQ -", "e1g1"));
    EXPECT_TRUE(legal("4kr2/8/8/8/8/8/8/R3K2R w KQ -", "e1c1"));
    EXPECT_FALSE(legal("3rk3/8/8/8/8/8/8/R3K2R w KQ -", "e1c1"));
    EXPECT_TRUE(legal("3rk3/8/8/8/8/8/8/R3K2R w KQ -", "e1g1"));
    EXPECT_FALSE(legal("r3k2r/8/8/8/8/8/8/3RK3 b kq -", "e8c8"));
}

TEST(BoardLegality, CastlingIntoCheckIsRejected)
{
    EXPECT_FALSE(legal("4k1r1/8/8/8/8/8/8/R3K2R w KQ -", "e1g1"));
    EXPECT_FALSE(legal("2r1k3/8/8/8/8/8/8/R3K2R w KQ -", "e1c1"));
    EXPECT_FALSE(legal("4k3/8/8/8/8/8/7p/R3K2R w KQ -", "e1g1"));
    EXPECT_FALSE(legal("r3k2r/8/8/8/8/8/8/4K1R1 b kq -", "e8g8"));
}

TEST(BoardLegality, CastlingWithAnAttackedRookIsAccepted)
{
    EXPECT_TRUE(legal("4k2r/8/8/8/8/8/8/R3K2R w KQ -", "e1g1"));
    EXPECT_TRUE(legal("r3k3/8/8/8/8/8/8/R3K2R w KQ -", "e1c1"));
}

TEST(BoardLegality, LongCastlingPastAnAttackedKnightsSquareIsAccepted)
{
    EXPECT_TRUE(legal("1r2k3/8/8/8/8/8/8/R3K2R w KQ -", "e1c1"));
    EXPECT_TRUE(legal("r3k2r/8/8/8/8/8/8/1R2K3 b kq -", "e8c8"));
}

TEST(BoardLegality, EnPassantThatOpensTheRankIsRejected)
{
    EXPECT_FALSE(legal("4k3/8/8/K2pP2r/8/8/8/8 w - d6", "e5d6"));
    EXPECT_TRUE(legal("4k3/8/8/K2pP2b/8/8/8/8 w - d6", "e5d6"));
    EXPECT_TRUE(legal("4k3/8/8/K1NpP2r/8/8/8/8 w - d6", "e5d6"));
    EXPECT_FALSE(legal("8/8/8/8/R2pP2k/8/8/4K3 b - e3", "d4e3"));
}

TEST(BoardLegality, EnPassantThatOpensALineThroughTheVictimIsRejected)
{
    EXPECT_FALSE(legal("7k/8/8/8/3Pp3/8/1B6/4K3 b - d3", "e4d3"));
    EXPECT_FALSE(legal("4k3/8/b7/1Pp5/8/3K4/8/8 w - c6", "b5c6"));
    EXPECT_FALSE(legal("4k3/b7/8/2pP4/8/4K3/8/8 w - c6", "d5c6"));
    EXPECT_TRUE(legal("4k3/8/8/2pP4/8/4K3/8/8 w - c6", "d5c6"));
}

TEST(BoardLegality, EnPassantTakesTheCheckingPawn)
{
    EXPECT_TRUE(legal("4k3/8/8/3pP3/4K3/8/8/8 w - d6", "e5d6"));
    EXPECT_TRUE(legal("8/8/8/2k5/3Pp3/8/8/4K3 b - d3", "e4d3"));
    // Any other capture leaves the check.
    EXPECT_FALSE(legal("4k3/8/5p2/3pP3/4K3/8/8/8 w - d6", "e5f6"));
}

TEST(BoardLegality, PawnPinnedOnItsFileMayPush)
{
    const char* const fen = "4r1k1/8/8/8/8/3p4/4P3/4K3 w - -";
    EXPECT_TRUE(legal(fen, "e2e3"));
    EXPECT_TRUE(legal(fen, "e2e4"));
    EXPECT_FALSE(legal(fen, "e2d3"));
}

TEST(BoardLegality, PinnedKnightMayNotMove)
{
    const char* const fen = "4r1k1/8/8/8/8/8/4N3/4K3 w - -";
    EXPECT_FALSE(legal(fen, "e2c3"));
    EXPECT_FALSE(legal(fen, "e2g1"));
}

TEST(BoardLegality, PinnedSliderMayMoveAlongThePin)
{
    const char* const fen = "4r1k1/8/8/8/8/8/4R3/4K3 w - -";
    EXPECT_TRUE(legal(fen, "e2e8"));
    EXPECT_TRUE(legal(fen, "e2e5"));
    EXPECT_FALSE(legal(fen, "e2d2"));
}

TEST(BoardLegality, CaptureOfOneOfTwoCheckersIsRejected)
{
    const char* const fen = "4r1k1/8/8/8/8/3n4/2P5/4K3 w - -";
    EXPECT_FALSE(legal(fen, "c2d3"));
    EXPECT_TRUE(legal(fen, "e1d1"));
    EXPECT_TRUE(legal("6k1/4r3/8/8/4n3/3P4/8/K7 w - -", "d3e4"));
}

TEST(BoardLegality, CheckIsParriedByCaptureOrInterposition)
{
    const char* const fen = "4r1k1/8/8/1B6/8/8/3N4/4K3 w - -";
    EXPECT_TRUE(legal(fen, "b5e8"));
    EXPECT_TRUE(legal(fen, "b5e2"));
    EXPECT_TRUE(legal(fen, "d2e4"));
    EXPECT_FALSE(legal(fen, "d2f3"));
    EXPECT_FALSE(legal(fen, "b5c4"));
}

TEST(BoardLegality, KingMayNotStepBackOnTheLineOfItsChecker)
{
    const char* const fen = "8/8/8/8/4r3/4K3/8/6k1 w - -";
    EXPECT_FALSE(legal(fen, "e3e2"));
    EXPECT_TRUE(legal(fen, "e3e4"));
    EXPECT_TRUE(legal(fen, "e3d3"));
}

TEST(BoardLegality, KingMayNotTakeADefendedPieceOrTouchTheOtherKing)
{
    EXPECT_FALSE(legal("6k1/8/8/8/8/2p5/3n4/4K3 w - -", "e1d2"));
    EXPECT_TRUE(legal("6k1/8/8/8/8/8/3n4/4K3 w - -", "e1d2"));
    EXPECT_FALSE(legal("8/8/8/8/8/4k3/8/4K3 w - -", "e1e2"));
    EXPECT_FALSE(legal("8/8/8/8/8/4k3/8/4K3 w - -", "e1d2"));
    EXPECT_TRUE(legal("8/8/8/8/8/4k3/8/4K3 w - -", "e1d1"));
}

TEST(BoardLegality, MoveOfTwoSquaresOntoTheOwnKingIsJudgedAsCastling)
{
    EXPECT_TRUE(legal("6k1/8/8/8/8/8/8/2R1K3 w - -", "c1e1"));
    EXPECT_FALSE(legal("3r2k1/8/8/8/8/8/8/2R1K3 w - -", "c1e1"));
    EXPECT_FALSE(legal("2r3k1/8/8/8/8/8/8/2R1K3 w - -", "c1e1"));
}

static constexpr const char* game_starts[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq -",
    "4k3/pppppppp/8/8/8/8/PPPPPPPP/4K3 w - -",
};

// A castling move is legal if none of the king's three squares is attacked, any other move if
// the king is not attacked once it is made.
static bool is_legal_by_making(Position* pos, Move move)
{
    const i32 side = pos->stm;
    if (is_castling(pos, move)) {
        const i32 from = from_square(move);
        const i32 to = to_square(move);
        return !is_attacked(pos, from, side ^ 1) && !is_attacked(pos, (from + to) / 2, side ^ 1)
            && !is_attacked(pos, to, side ^ 1);
    }
    make_move(pos, move);
    const bool attacked = is_attacked(pos, pos->king_sq[side], side ^ 1);
    unmake_move(pos);
    return !attacked;
}

TEST(BoardLegality, AgreesWithMakingTheMoveInRandomGames)
{
    static MoveEntry list[1200];
    u64 state = 16;
    i32 count[2] = { 0, 0 };
    for (const char* start : game_starts) {
        for (i32 game = 0; game < 12; ++game) {
            Position* pos = set_position(start);
            do {
                const MoveEntry* end = all_moves(pos, list);
                for (const MoveEntry* entry = list; entry < end; ++entry) {
                    const bool expected = is_legal_by_making(pos, entry->move);
                    ASSERT_EQ(is_legal_move(pos, pos->stm, entry->move), expected)
                        << fen_of(pos) << ' ' << text_of(entry->move);
                    ++count[expected];
                }
            } while (dialogue.game->undo_count < 100 && play_random_moves(pos, &state, 1) == 1);
        }
    }
    EXPECT_GT(count[0], 2000);
    EXPECT_GT(count[1], 50000);
}

TEST(BoardLegality, AnyMoveWithAPieceToMoveCanBeJudgedAndChangesNothing)
{
    u64 state = 3;
    for (const char* start : game_starts) {
        Position* pos = set_position(start);
        play_random_moves(pos, &state, 20);
        unsigned char before[sizeof(Position)];
        memcpy(before, static_cast<const void*>(pos), sizeof before);
        for (i32 code = 0; code < 65536; ++code) {
            const Move move = static_cast<Move>(code);
            const i32 moved = pos->board[from_square(move)];
            if (moved != 0) {
                is_legal_move(pos, moved >> 3, move);
            }
        }
        EXPECT_EQ(memcmp(before, static_cast<const void*>(pos), sizeof before), 0) << start;
    }
}

// ---- Moves that can exist on the board

TEST(BoardLegality, MoveNeedsTwoSquaresAndAnOwnPiece)
{
    const char* const fen = "4k3/8/8/8/8/8/4P3/R3K3 w - -";
    EXPECT_TRUE(fits(fen, "a1a8"));
    EXPECT_FALSE(fits(fen, "a1a1"));
    EXPECT_FALSE(fits(fen, NoMove));
    EXPECT_FALSE(fits(fen, EndOfList));
    EXPECT_FALSE(fits(fen, "b2b3"));
    EXPECT_FALSE(fits(fen, "e8e7"));
}

TEST(BoardLegality, MoveMayNotTakeAnOwnPieceOrAKing)
{
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/4P3/R3K3 w - -", "a1e1"));
    EXPECT_FALSE(fits("k7/8/8/8/8/8/8/R3K3 w - -", "a1a8"));
    EXPECT_TRUE(fits("k7/8/8/r7/8/8/8/R3K3 w - -", "a1a5"));
}

TEST(BoardLegality, OnlyAPawnOnItsLastRankPromotes)
{
    const char* const fen = "3rk3/4P3/8/8/8/8/P7/R3K3 w - -";
    for (const char* flag : { "q", "n", "b", "r" }) {
        EXPECT_TRUE(fits(fen, move_of(std::string("e7d8") + flag)));
        EXPECT_FALSE(fits(fen, move_of(std::string("a2a3") + flag)));
        EXPECT_FALSE(fits(fen, move_of(std::string("a1b1") + flag)));
        EXPECT_FALSE(fits(fen, move_of(std::string("e1d1") + flag)));
    }
    EXPECT_FALSE(fits(fen, "e7d8"));
    EXPECT_FALSE(fits(fen, static_cast<Move>(move_of("e7d8q") | PromoteRook)));
    EXPECT_FALSE(fits(fen, "e7e8q"));
    EXPECT_TRUE(fits("4k3/8/8/8/8/8/p7/1R2K3 b - -", "a2a1n"));
    EXPECT_TRUE(fits("4k3/8/8/8/8/8/p7/1R2K3 b - -", "a2b1q"));
}

TEST(BoardLegality, PiecesMoveByTheirPatternAndSlidersAreBlocked)
{
    const char* const fen = "4k3/8/8/8/1P1P4/2N5/1B1Q4/R3K3 w - -";
    EXPECT_TRUE(fits(fen, "c3d5"));
    EXPECT_FALSE(fits(fen, "c3c5"));
    EXPECT_TRUE(fits(fen, "b2a3"));
    EXPECT_FALSE(fits(fen, "b2d4"));
    EXPECT_FALSE(fits(fen, "b2e5"));
    EXPECT_FALSE(fits(fen, "b2b3"));
    EXPECT_TRUE(fits(fen, "a1a8"));
    EXPECT_TRUE(fits(fen, "a1d1"));
    EXPECT_FALSE(fits(fen, "a1f1"));
    EXPECT_FALSE(fits(fen, "a1b3"));
    EXPECT_TRUE(fits(fen, "d2h6"));
    EXPECT_TRUE(fits(fen, "d2d3"));
    EXPECT_FALSE(fits(fen, "d2d5"));
    EXPECT_FALSE(fits(fen, "d2e4"));
    EXPECT_TRUE(fits(fen, "e1f2"));
    EXPECT_FALSE(fits(fen, "e1e3"));
}

TEST(BoardLegality, CastlingFitsWithoutTheRight)
{
    EXPECT_TRUE(fits("4k3/8/8/8/8/8/8/R3K2R w - -", "e1g1"));
    EXPECT_TRUE(fits("4k3/8/8/8/8/8/8/R3K2R w - -", "e1c1"));
    EXPECT_TRUE(fits("r3k2r/8/8/8/8/8/8/4K3 b - -", "e8g8"));
    EXPECT_TRUE(fits("r3k2r/8/8/8/8/8/8/4K3 b - -", "e8c8"));
}

TEST(BoardLegality, CastlingFitsFromTheFirstRankOnly)
{
    EXPECT_FALSE(fits("8/8/8/8/k7/8/R3K2R/8 w - -", "e2g2"));
    EXPECT_FALSE(fits("R3K2R/8/8/8/k7/8/8/8 w - -", "e8g8"));
    EXPECT_FALSE(fits("8/8/8/8/K7/8/8/r3k2r b - -", "e1g1"));
}

TEST(BoardLegality, CastlingNeedsTheOwnRookInItsPlace)
{
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/4K1R1 w - -", "e1g1"));
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/4K2r w - -", "e1g1"));
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/4K2Q w - -", "e1g1"));
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/1R2K3 w - -", "e1c1"));
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/4K3 w - -", "e1c1"));
    // A rook three or four squares on, but round the edge of the board.
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/R7/5K2 w - -", "f1h1"));
    EXPECT_FALSE(fits("2k4r/7r/8/8/8/8/8/4K3 b - -", "c8a8"));
}

TEST(BoardLegality, CastlingNeedsTheKingsWayEmpty)
{
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/R3KB1R w - -", "e1g1"));
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/R2QK2R w - -", "e1c1"));
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/R3K1NR w - -", "e1g1"));
    EXPECT_FALSE(fits("4k3/8/8/8/8/8/8/R2nK2R w - -", "e1c1"));
}

TEST(BoardLegality, PawnCapturesNeedAVictim)
{
    const char* const fen = "4k3/8/8/3p1P2/4P3/8/8/4K3 w - -";
    EXPECT_TRUE(fits(fen, "e4d5"));
    EXPECT_FALSE(fits(fen, "e4f5"));
    EXPECT_FALSE(fits("4k3/8/8/5P2/4P3/8/8/4K3 w - -", "e4d5"));
    EXPECT_FALSE(fits("4k3/8/8/p7/7P/8/8/4K3 w - -", "h4a6"));
    EXPECT_FALSE(fits("4k3/8/8/8/4P3/3p4/8/4K3 w - -", "e4d3"));
}

TEST(BoardLegality, EnPassantNeedsAnEnemyPawnBehindAnEmptySquare)
{
    EXPECT_TRUE(fits("4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5d6"));
    EXPECT_TRUE(fits("4k3/8/8/8/3pP3/8/8/4K3 b - e3", "d4e3"));
    EXPECT_FALSE(fits("4k3/8/8/3pP3/8/8/8/4K3 w - -", "e5d6"));
    EXPECT_FALSE(fits("4k3/8/8/4P3/8/8/8/4K3 w - d6", "e5d6"));
    EXPECT_FALSE(fits("4k3/8/8/3nP3/8/8/8/4K3 w - d6", "e5d6"));
    EXPECT_FALSE(fits("4k3/8/8/3PP3/8/8/8/4K3 w - d6", "e5d6"));
    EXPECT_FALSE(fits("4k3/8/3n4/3pP3/8/8/8/4K3 w - d6", "e5d6"));
}

TEST(BoardLegality, PawnPushesNeedEmptySquares)
{
    const char* const fen = "4k3/8/8/8/2p5/p5P1/P1P3P1/4K3 w - -";
    EXPECT_FALSE(fits(fen, "a2a3"));
    EXPECT_FALSE(fits(fen, "a2a4"));
    EXPECT_TRUE(fits(fen, "c2c3"));
    EXPECT_FALSE(fits(fen, "c2c4"));
    EXPECT_FALSE(fits(fen, "g2g4"));
    EXPECT_TRUE(fits(fen, "g3g4"));
    EXPECT_FALSE(fits(fen, "g3g5"));
    EXPECT_FALSE(fits(fen, "g3g2"));
    EXPECT_FALSE(fits(fen, "c2c5"));
    EXPECT_TRUE(fits("4k3/p7/8/8/8/8/8/4K3 b - -", "a7a5"));
    EXPECT_FALSE(fits("4k3/p7/8/8/8/8/8/4K3 b - -", "a7a8"));
}

// The two castling moves that pieces and squares allow, without a look at the rights.
static bool castling_is_possible(const Position* pos, i32 from, i32 step)
{
    const i32 side = pos->stm;
    if (from >> 3 != (side == White ? 0 : 7) || (from & 7) + step < 0 || (from & 7) + step > 7) {
        return false;
    }
    const i32 rook_file = step > 0 ? (from & 7) + 3 : (from & 7) - 4;
    if (rook_file < 0 || rook_file > 7) {
        return false;
    }
    const i32 target = pos->board[from + step];
    const bool target_is_free = target == 0 || (target >> 3 != side && (target & 7) != King);
    return target_is_free && pos->board[from + step / 2] == 0
        && pos->board[(from & 56) + rook_file] == Rook + 8 * side;
}

static void expect_fitting_codes(Position* pos)
{
    static MoveEntry list[1200];
    std::vector<bool> expected(65536);
    const MoveEntry* end = all_moves(pos, list);
    for (const MoveEntry* entry = list; entry < end; ++entry) {
        expected[entry->move] = true;
    }
    const i32 king = pos->king_sq[pos->stm];
    for (const i32 step : { 2, -2 }) {
        if (castling_is_possible(pos, king, step)) {
            expected[make_move_code(king, king + step)] = true;
        }
    }
    for (u32 code = 0; code < 65536; ++code) {
        ASSERT_EQ(move_fits_board(pos, static_cast<Move>(code)), expected[code])
            << fen_of(pos) << ' ' << text_of(static_cast<Move>(code)) << ' ' << code;
    }
}

TEST(BoardLegality, FittingCodesAreThePseudoLegalMovesAndCastling)
{
    for (const auto& row : read_tsv("perft.tsv")) {
        expect_fitting_codes(set_position(row[0]));
    }
}

TEST(BoardLegality, FittingCodesInRandomGames)
{
    u64 state = 9;
    for (const char* start : game_starts) {
        Position* pos = set_position(start);
        while (play_random_moves(pos, &state, 9) == 9 && dialogue.game->undo_count < 120) {
            expect_fitting_codes(pos);
        }
    }
}

// ---- Any number as a move

TEST(BoardLegality, PlayableMovesAreExactlyTheLegalOnes)
{
    const char* const fens[] = {
        "r3k2r/pPppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
        "8/8/8/K2pP2q/8/8/8/7k w - d6",
        "4r1k1/8/8/8/8/8/4N3/4K2R w K -",
        "R6k/8/6K1/8/8/8/8/8 b - -",
    };
    for (const char* fen : fens) {
        Position* pos = set_position(fen);
        const std::vector<Move> legal = legal_moves(pos);
        size_t count = 0;
        for (u32 code = 0; code <= 65535; ++code) {
            count += is_playable(pos, static_cast<Move>(code));
        }
        EXPECT_EQ(count, legal.size()) << fen;
        for (const Move move : legal) {
            EXPECT_TRUE(is_playable(pos, move)) << fen << ' ' << text_of(move);
        }
        EXPECT_TRUE(fields_agree(pos));
    }
}

// ---- Draws by the rules

static constexpr const char* draw_fen = "4k3/8/8/8/8/8/4P3/R3K3 w - -";

// A position with a game of so many plies behind it that none of its keys occurs again, and the
// given half-move clock.
static Position* aged_position(const char* fen, i32 plies, i32 clock)
{
    Position* pos = set_position(fen);
    for (i32 i = 0; i < plies; ++i) {
        dialogue.game->undo[i].key = ~pos->key - 2 * static_cast<u64>(i);
    }
    dialogue.game->undo_count = static_cast<i16>(plies);
    pos->cnt50 = static_cast<u8>(clock);
    return pos;
}

// The same position stood on the board so many plies ago.
static void occurred(const Position* pos, i32 back)
{
    dialogue.game->undo[dialogue.game->undo_count - back].key = pos->key;
}

TEST(BoardLegality, ClockBelowFourIsNoDraw)
{
    Position* pos = aged_position(draw_fen, 20, 3);
    for (i32 back = 1; back <= 20; ++back) {
        occurred(pos, back);
    }
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
    EXPECT_FALSE(is_draw_by_rule(pos, 20));
}

TEST(BoardLegality, RepetitionFourPliesBackIsFoundWithAClockOfFour)
{
    Position* pos = aged_position(draw_fen, 20, 4);
    occurred(pos, 4);
    EXPECT_TRUE(is_draw_by_rule(pos, 4));
    EXPECT_FALSE(is_draw_by_rule(pos, 3));
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
}

TEST(BoardLegality, OneEarlierOccurrenceInTheGameIsNoDrawAndTwoAre)
{
    Position* pos = aged_position(draw_fen, 30, 20);
    occurred(pos, 8);
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
    occurred(pos, 14);
    EXPECT_TRUE(is_draw_by_rule(pos, 0));
}

TEST(BoardLegality, OneOccurrenceInsideTheSearchIsADraw)
{
    Position* pos = aged_position(draw_fen, 30, 20);
    occurred(pos, 6);
    EXPECT_TRUE(is_draw_by_rule(pos, 6));
    EXPECT_FALSE(is_draw_by_rule(pos, 5));

    pos = aged_position(draw_fen, 30, 20);
    occurred(pos, 8);
    EXPECT_FALSE(is_draw_by_rule(pos, 6));
    occurred(pos, 12);
    EXPECT_TRUE(is_draw_by_rule(pos, 6));
}

TEST(BoardLegality, ScanComparesEverySecondPlyFromTheFourth)
{
    Position* pos = aged_position(draw_fen, 30, 20);
    for (const i32 back : { 1, 2, 3, 5, 7, 9, 11 }) {
        occurred(pos, back);
    }
    EXPECT_FALSE(is_draw_by_rule(pos, 30));
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
}

TEST(BoardLegality, ScanGoesBackAsFarAsTheClock)
{
    Position* pos = aged_position(draw_fen, 30, 9);
    occurred(pos, 10);
    EXPECT_FALSE(is_draw_by_rule(pos, 20));
    pos->cnt50 = 10;
    EXPECT_TRUE(is_draw_by_rule(pos, 20));
}

TEST(BoardLegality, ScanEndsAtTheFirstRecord)
{
    Position* pos = aged_position(draw_fen, 2, 90);
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
    EXPECT_FALSE(is_draw_by_rule(pos, 50));
    pos = aged_position(draw_fen, 4, 90);
    occurred(pos, 4);
    EXPECT_TRUE(is_draw_by_rule(pos, 4));
}

TEST(BoardLegality, RepetitionByMovesOfAGame)
{
    Position* pos = set_position("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
    play_moves(pos, "g1f3 g8f6 f3g1 f6g8");
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
    EXPECT_TRUE(is_draw_by_rule(pos, 4));
    play_moves(pos, "b1c3 b8c6 c3b1 c6b8");
    EXPECT_TRUE(is_draw_by_rule(pos, 0));
    play_moves(pos, "e2e4");
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
}

TEST(BoardLegality, NullMoveEndsTheScan)
{
    Position* pos = set_position("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
    play_moves(pos, "g1f3 g8f6");
    make_null_move(pos);
    make_null_move(pos);
    play_moves(pos, "f3g1 f6g8");
    EXPECT_FALSE(is_draw_by_rule(pos, 6));
}

TEST(BoardLegality, ClockAbove100IsADrawInTheSearch)
{
    EXPECT_FALSE(is_draw_by_rule(aged_position(draw_fen, 120, 100), 1));
    EXPECT_TRUE(is_draw_by_rule(aged_position(draw_fen, 120, 101), 1));
    EXPECT_TRUE(is_draw_by_rule(aged_position(draw_fen, 120, 255), 1));
    // A mate in one, and a mate on the board.
    EXPECT_TRUE(is_draw_by_rule(aged_position("7k/8/6K1/8/8/8/8/R7 w - -", 120, 101), 1));
    EXPECT_TRUE(is_draw_by_rule(aged_position("R6k/8/6K1/8/8/8/8/8 b - -", 120, 101), 1));
}

TEST(BoardLegality, ClockAbove100InTheGameLeavesTheScanToDecide)
{
    Position* pos = aged_position(draw_fen, 120, 101);
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
    occurred(pos, 40);
    EXPECT_FALSE(is_draw_by_rule(pos, 0));
    occurred(pos, 80);
    EXPECT_TRUE(is_draw_by_rule(pos, 0));
}

TEST(BoardLegality, ClockAbove100InTheGameIsADrawWithoutALegalMove)
{
    const char* const mate = "R6k/8/6K1/8/8/8/8/8 b - -";
    const char* const stalemate = "7k/5Q2/6K1/8/8/8/8/8 b - -";
    for (const char* fen : { mate, stalemate }) {
        EXPECT_FALSE(is_draw_by_rule(aged_position(fen, 120, 100), 0)) << fen;
        EXPECT_TRUE(is_draw_by_rule(aged_position(fen, 120, 101), 0)) << fen;
    }
}

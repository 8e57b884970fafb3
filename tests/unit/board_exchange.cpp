// Attackers of a square and the value of exchanges, beside plain versions that walk the board
// square by square.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "test_support.h"

static constexpr i32 plain_value[7] = { 0, 100, 335, 335, 535, 1035, 10000 };
static constexpr i32 plain_king_capture = 9999;

static u64 all_pieces(const Position* pos)
{
    return pos->bb[White][0] | pos->bb[Black][0];
}

static i32 swap_of(const char* fen, const char* from, const char* to)
{
    Position* pos = set_position(fen);
    return swapoff(pos, pos->stm, square_of(from), square_of(to));
}

static i32 open_swap_of(const char* fen, i32 side, const char* to)
{
    return swapoff(set_position(fen), side, NoSquare, square_of(to));
}

// Whether a and b share a rank or file (straight) or a diagonal, and are not the same square.
static bool on_line(i32 a, i32 b, bool straight)
{
    const i32 files = (b & 7) - (a & 7);
    const i32 ranks = (b >> 3) - (a >> 3);
    if (a == b) {
        return false;
    }
    return straight ? files == 0 || ranks == 0 : abs(files) == abs(ranks);
}

// Squares strictly between two squares of one line.
static u64 plain_between(i32 a, i32 b)
{
    const auto sign = [](i32 value) { return (value > 0) - (value < 0); };
    const i32 step = sign((b & 7) - (a & 7)) + 8 * sign((b >> 3) - (a >> 3));
    u64 set = 0;
    for (i32 square = a + step; square != b; square += step) {
        set |= bit(square);
    }
    return set;
}

// Whether the piece that stands on from attacks square, its lines blocked by occ.
static bool plain_attacks(const Position* pos, i32 from, i32 square, u64 occ)
{
    const i32 files = abs((square & 7) - (from & 7));
    const i32 ranks = (square >> 3) - (from >> 3);
    const i32 type = pos->board[from] & 7;
    switch (type) {
    case Pawn:
        return files == 1 && ranks == (pos->board[from] >> 3 == White ? 1 : -1);
    case Knight:
        return files * abs(ranks) == 2;
    case King:
        return from != square && files <= 1 && abs(ranks) <= 1;
    default:
        break;
    }
    const bool straight = type != Bishop && on_line(from, square, true);
    const bool diagonal = type != Rook && on_line(from, square, false);
    return (straight || diagonal) && (plain_between(from, square) & occ) == 0;
}

// The cheapest piece of side among present that attacks square, the lowest square of a type first.
static i32 plain_attacker(const Position* pos, i32 square, i32 side, u64 present, u64 occ)
{
    for (i32 type = Pawn; type <= King; ++type) {
        for (i32 from = 0; from < 64; ++from) {
            if (pos->board[from] == type + 8 * side && (present & bit(from)) != 0
                && plain_attacks(pos, from, square, occ)) {
                return from;
            }
        }
    }
    return NoSquare;
}

// What side gains at most on square, where a piece of the given type stands.
static i32 plain_gain(const Position* pos, i32 side, i32 square, i32 type, u64 occ)
{
    const i32 from = plain_attacker(pos, square, side, occ, occ);
    if (from == NoSquare) {
        return 0;
    }
    if (type == King) {
        return plain_king_capture;
    }
    const i32 answer = plain_gain(pos, side ^ 1, square, pos->board[from] & 7, occ & ~bit(from));
    return std::max(plain_value[type] - answer, 0);
}

static i32 plain_swap(const Position* pos, i32 side, i32 from, i32 to)
{
    const u64 occ = all_pieces(pos);
    const i32 target = pos->board[to] & 7;
    if (from == NoSquare) {
        return plain_gain(pos, side, to, target, occ);
    }
    return plain_value[target]
        - plain_gain(pos, side ^ 1, to, pos->board[from] & 7, occ & ~bit(from));
}

// A position text with one king each and other pieces strewn over all squares.
static std::string scattered_fen(u64* state, u32 pieces)
{
    char board[64];
    for (char& square : board) {
        square = '1';
    }
    for (u32 i = 0; i < pieces; ++i) {
        board[next_random(state, 64)] = "PNBRQpnbrqRQrq"[next_random(state, 14)];
    }
    const u32 white_king = next_random(state, 64);
    board[white_king] = 'K';
    board[(white_king + 1 + next_random(state, 63)) & 63] = 'k';
    std::string text;
    for (i32 i = 0; i < 64; ++i) {
        text += board[i];
        if (i % 8 == 7 && i < 63) {
            text += '/';
        }
    }
    return text + (next_random(state, 2) != 0 ? " w - -" : " b - -");
}

static constexpr const char* game_starts[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq -",
};

// Calls check on positions of random games and on strewn ones.
template <typename Check>
static void for_random_positions(i32 games, i32 scattered, Check check)
{
    u64 state = 20;
    for (const char* start : game_starts) {
        for (i32 game = 0; game < games; ++game) {
            Position* pos = set_position(start);
            while (play_random_moves(pos, &state, 7) == 7 && dialogue.game->undo_count < 60) {
                check(pos);
            }
        }
    }
    for (i32 i = 0; i < scattered; ++i) {
        check(set_position(scattered_fen(&state, 8 + next_random(&state, 40))));
    }
}

// ---- Attackers

TEST(BoardExchange, AttackersComeFromTheCheapestTypeToTheKing)
{
    // Pawn, knight, bishop, rook and king attack e4; they are taken away one by one.
    Position* pos = set_position("4r3/1b6/3n4/3p3q/8/4k3/8/8 w - -");
    const i32 target = square_of("e4");
    u64 occ = all_pieces(pos);
    for (const char* expected : { "d5", "d6" }) {
        const i32 from = find_attacker(pos, target, Black, occ);
        EXPECT_EQ(from, square_of(expected));
        occ &= ~bit(from);
    }
    // With the pawn on d5 gone the bishop sees e4.
    for (const char* expected : { "b7", "e8", "e3" }) {
        const i32 from = find_attacker(pos, target, Black, occ);
        EXPECT_EQ(from, square_of(expected));
        occ &= ~bit(from);
    }
    EXPECT_EQ(find_attacker(pos, target, Black, occ), NoSquare);
}

TEST(BoardExchange, QueenComesAfterRookAndBeforeKing)
{
    Position* pos = set_position("4r3/8/8/8/4q3/3k4/8/8 w - -");
    const i32 target = square_of("e3");
    u64 occ = all_pieces(pos);
    EXPECT_EQ(find_attacker(pos, target, Black, occ), square_of("e4"));
    pos = set_position("8/8/8/8/8/q7/4k3/4r3 w - -");
    occ = all_pieces(pos);
    const i32 between_them = square_of("d1");
    EXPECT_EQ(find_attacker(pos, between_them, Black, occ), square_of("e1"));
    EXPECT_EQ(find_attacker(pos, target, Black, occ), square_of("a3"));
    EXPECT_EQ(find_attacker(pos, target, Black, occ & ~squares_of("a3")), square_of("e2"));
}

TEST(BoardExchange, OfEqualTypesTheLowestSquareComesFirst)
{
    Position* pos = set_position("4k3/8/8/2P1P3/8/8/8/4K3 w - -");
    EXPECT_EQ(find_attacker(pos, square_of("d6"), White, all_pieces(pos)), square_of("c5"));
    pos = set_position("R3k3/8/8/8/8/8/8/R3K3 w - -");
    EXPECT_EQ(find_attacker(pos, square_of("a4"), White, all_pieces(pos)), square_of("a1"));
}

TEST(BoardExchange, BlockedSliderDoesNotHideTheNextOfItsType)
{
    Position* pos = set_position("R3k3/8/8/8/p7/P7/8/R3K3 w - -");
    EXPECT_EQ(find_attacker(pos, square_of("a4"), White, all_pieces(pos)), square_of("a8"));
    EXPECT_EQ(find_checker(pos, square_of("a4"), White, all_pieces(pos)), square_of("a8"));
}

TEST(BoardExchange, AttackerMustBeAmongTheOccupied)
{
    Position* pos = set_position("4k3/8/8/8/8/2N5/8/4K3 w - -");
    const i32 target = square_of("d5");
    const u64 occ = all_pieces(pos);
    EXPECT_EQ(find_attacker(pos, target, White, occ), square_of("c3"));
    EXPECT_EQ(find_attacker(pos, target, White, occ & ~squares_of("c3")), NoSquare);
    EXPECT_EQ(find_checker(pos, target, White, occ & ~squares_of("c3")), square_of("c3"));
}

TEST(BoardExchange, OccupiedSquaresBlockCheckersAndNothingElse)
{
    Position* pos = set_position("4k3/8/8/8/4P3/8/8/4R1K1 w - -");
    const i32 king = square_of("e8");
    const u64 occ = all_pieces(pos);
    EXPECT_EQ(find_checker(pos, king, White, occ), NoSquare);
    EXPECT_EQ(find_checker(pos, king, White, occ & ~squares_of("e4")), square_of("e1"));
    EXPECT_EQ(find_checker(pos, king, White, squares_of("e6")), NoSquare);
}

TEST(BoardExchange, OfTwoCheckersTheCheaperIsFound)
{
    Position* pos = set_position("4k3/3P4/8/8/B7/8/8/4K3 b - -");
    EXPECT_EQ(find_checker(pos, square_of("e8"), White, all_pieces(pos)), square_of("d7"));
    pos = set_position("4k3/8/3N4/8/8/8/8/4R1K1 b - -");
    EXPECT_EQ(find_checker(pos, square_of("e8"), White, all_pieces(pos)), square_of("d6"));
    pos = set_position("4k3/3P4/8/7B/8/8/8/4K3 b - -");
    EXPECT_EQ(find_checker(pos, square_of("e8"), White, all_pieces(pos)), square_of("d7"));
}

TEST(BoardExchange, NoCheckerGivesNoSquare)
{
    Position* pos = set_position(game_starts[0]);
    EXPECT_EQ(find_checker(pos, square_of("e1"), Black, all_pieces(pos)), NoSquare);
    EXPECT_EQ(find_attacker(pos, square_of("e4"), Black, all_pieces(pos)), NoSquare);
}

TEST(BoardExchange, PawnsAttackForwardsAndNotRoundTheEdge)
{
    Position* pos = set_position("4k3/8/8/p7/7P/8/8/4K3 w - -");
    EXPECT_TRUE(is_attacked(pos, square_of("g5"), White));
    EXPECT_FALSE(is_attacked(pos, square_of("g3"), White));
    EXPECT_FALSE(is_attacked(pos, square_of("a6"), White));
    EXPECT_FALSE(is_attacked(pos, square_of("a5"), White));
    EXPECT_TRUE(is_attacked(pos, square_of("b4"), Black));
    EXPECT_FALSE(is_attacked(pos, square_of("h3"), Black));
    EXPECT_FALSE(is_attacked(pos, square_of("h4"), Black));
}

TEST(BoardExchange, AttackThroughAPieceNeedsItGoneFromTheBitboards)
{
    Position* pos = set_position("r3k3/8/8/8/P7/8/8/4K3 w - -");
    const i32 target = square_of("a1");
    EXPECT_FALSE(is_attacked(pos, target, Black));
    pos->bb[White][0] ^= squares_of("a4");
    pos->bb[White][Pawn] ^= squares_of("a4");
    EXPECT_TRUE(is_attacked(pos, target, Black));
}

TEST(BoardExchange, AttackersAgreeWithThoseOfAWalkOverTheBoard)
{
    u64 state = 7;
    for_random_positions(6, 60, [&state](Position* pos) {
        const u64 occ = all_pieces(pos);
        u64 fewer = occ;
        for (i32 i = 0; i < 6; ++i) {
            fewer &= ~bit(static_cast<i32>(next_random(&state, 64)));
        }
        for (i32 square = 0; square < 64; ++square) {
            for (i32 side = White; side <= Black; ++side) {
                const i32 first = plain_attacker(pos, square, side, occ, occ);
                ASSERT_EQ(find_attacker(pos, square, side, occ), first) << fen_of(pos);
                ASSERT_EQ(is_attacked(pos, square, side), first != NoSquare) << fen_of(pos);
                ASSERT_EQ(find_attacker(pos, square, side, fewer),
                    plain_attacker(pos, square, side, fewer, fewer))
                    << fen_of(pos);
                ASSERT_EQ(find_checker(pos, square, side, fewer),
                    plain_attacker(pos, square, side, ~0ULL, fewer))
                    << fen_of(pos);
            }
        }
    });
}

// ---- Exchanges

TEST(BoardExchange, UndefendedPieceIsWorthItsTableValue)
{
    const struct {
        char letter;
        i32 value;
    } cases[] = { { 'p', 100 }, { 'n', 335 }, { 'b', 335 }, { 'r', 535 }, { 'q', 1035 } };
    for (const auto& row : cases) {
        const std::string fen = std::string("7k/8/8/") + row.letter + "7/8/8/8/R3K3 w - -";
        EXPECT_EQ(swap_of(fen.c_str(), "a1", "a5"), row.value) << row.letter;
        EXPECT_EQ(open_swap_of(fen.c_str(), White, "a5"), row.value) << row.letter;
    }
    EXPECT_EQ(swap_of("7k/8/8/8/8/8/8/R3K3 w - -", "a1", "a5"), 0);
    EXPECT_EQ(swap_of("k7/8/8/8/8/8/8/R3K3 w - -", "a1", "a8"), 10000);
}

TEST(BoardExchange, PawnTakesDefendedKnight)
{
    EXPECT_EQ(swap_of("4k3/8/2p5/3n4/4P3/8/8/4K3 w - -", "e4", "d5"), 235);
}

TEST(BoardExchange, QueenTakesPawnDefendedByPawn)
{
    EXPECT_EQ(swap_of("4k3/8/2p5/3p4/8/8/8/3QK3 w - -", "d1", "d5"), -935);
    // A rook behind her takes the pawn back.
    EXPECT_EQ(swap_of("4k3/8/2p5/3p4/8/8/3Q4/3RK3 w - -", "d2", "d5"), -835);
}

TEST(BoardExchange, PiecesBehindTheFirstOnesTakePart)
{
    EXPECT_EQ(swap_of("3q2k1/3r4/8/8/8/8/3R4/3R2K1 w - -", "d2", "d7"), 535);
    EXPECT_EQ(swap_of("3q2k1/3r4/8/8/8/8/3R4/6K1 w - -", "d2", "d7"), 0);
    EXPECT_EQ(swap_of("3q2k1/3r4/8/8/8/8/3Q4/3R2K1 w - -", "d2", "d7"), 535 - 1035 + 535 + 500);
    EXPECT_EQ(swap_of("3q2k1/1r1r4/8/8/8/8/3Q4/3R2K1 w - -", "d2", "d7"), 535 - 1035);
}

TEST(BoardExchange, KingThatTakesADefendedPieceLoses)
{
    EXPECT_EQ(swap_of("4k3/8/8/8/8/2p5/3n4/4K3 w - -", "e1", "d2"), 335 - 9999);
    EXPECT_EQ(swap_of("4k3/8/8/8/8/8/3n4/4K3 w - -", "e1", "d2"), 335);
    // Left to choose, the king does not take.
    EXPECT_EQ(open_swap_of("4k3/8/8/8/8/2p5/3n4/4K3 w - -", White, "d2"), 0);
}

TEST(BoardExchange, KingTakesOnlyWhenNobodyIsLeftToTakeBack)
{
    // Knight takes a pawn held by the king; a second knight keeps the king away.
    EXPECT_EQ(swap_of("8/8/3k4/4p3/8/3N4/8/4K3 w - -", "d3", "e5"), 100 - 335);
    EXPECT_EQ(swap_of("8/8/3k4/4p3/8/3N1N2/8/4K3 w - -", "d3", "e5"), 100);
}

TEST(BoardExchange, OpenExchangeOnASquareOutOfReachIsNothing)
{
    EXPECT_EQ(open_swap_of("4k3/8/8/3q4/8/8/8/R3K3 w - -", White, "d5"), 0);
    EXPECT_EQ(open_swap_of("4k3/8/8/8/8/8/8/R3K3 w - -", White, "a5"), 0);
}

TEST(BoardExchange, OpenExchangeMayBeDeclined)
{
    EXPECT_EQ(open_swap_of("4k3/8/2p5/3p4/8/8/8/3QK3 w - -", White, "d5"), 0);
    EXPECT_EQ(open_swap_of("4k3/8/2p5/3n4/4P3/8/8/3QK3 w - -", White, "d5"), 335);
}

TEST(BoardExchange, AttackedKingsSquareGivesTheKingCaptureValue)
{
    EXPECT_EQ(open_swap_of("k7/8/8/8/8/8/8/R3K3 w - -", White, "a8"), 9999);
    EXPECT_EQ(open_swap_of("k7/8/8/8/8/8/8/1R2K3 w - -", White, "a8"), 0);
}

TEST(BoardExchange, PinnedPiecesTakePartAllTheSame)
{
    // The knight that defends d5 is pinned on the e file.
    EXPECT_EQ(swap_of("4k3/4n3/8/3p4/2B5/8/8/4R1K1 w - -", "c4", "d5"), 100 - 335);
}

TEST(BoardExchange, PawnThatPromotesByCaptureCountsAsPawn)
{
    EXPECT_EQ(swap_of("3rk3/4P3/8/8/8/8/8/4K3 w - -", "e7", "d8"), 535 - 100);
}

TEST(BoardExchange, EnPassantCaptureTakesNothing)
{
    EXPECT_EQ(swap_of("4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5", "d6"), 0);
    EXPECT_EQ(swap_of("4k3/2p5/8/3pP3/8/8/8/4K3 w - d6", "e5", "d6"), -100);
}

TEST(BoardExchange, QuietMoveOntoAnAttackedSquareLosesThePiece)
{
    EXPECT_EQ(swap_of("4k3/8/2p5/8/8/8/8/3RK3 w - -", "d1", "d5"), -535);
    EXPECT_EQ(swap_of("4k3/8/8/8/8/8/8/3RK3 w - -", "d1", "d5"), 0);
}

TEST(BoardExchange, BlackMeasuresAsWhiteDoes)
{
    EXPECT_EQ(swap_of("4k3/8/8/4p3/3N4/2P5/8/4K3 b - -", "e5", "d4"), 235);
    EXPECT_EQ(open_swap_of("4k3/8/8/4p3/3N4/2P5/8/4K3 b - -", Black, "d4"), 235);
}

TEST(BoardExchange, ValuesAgreeWithAPlainRecursion)
{
    static MoveEntry list[1200];
    for_random_positions(8, 150, [](Position* pos) {
        MoveEntry* end = gen_captures(pos, pos->stm, list, NoSquare);
        end = gen_promotions(pos, pos->stm, 1, end);
        end = gen_quiets(pos, pos->stm, end, NoSquare);
        for (const MoveEntry* entry = list; entry < end; ++entry) {
            const i32 from = from_square(entry->move);
            const i32 to = to_square(entry->move);
            ASSERT_EQ(swapoff(pos, pos->stm, from, to), plain_swap(pos, pos->stm, from, to))
                << fen_of(pos) << ' ' << text_of(entry->move);
        }
        for (i32 square = 0; square < 64; ++square) {
            for (i32 side = White; side <= Black; ++side) {
                ASSERT_EQ(
                    swapoff(pos, side, NoSquare, square), plain_swap(pos, side, NoSquare, square))
                    << fen_of(pos) << ' ' << square_name[square];
            }
        }
    });
}

TEST(BoardExchange, ThresholdsAgreeWithTheValues)
{
    static MoveEntry list[1200];
    const i32 thresholds[] = { -10000, -9999, -536, -70, -49, -1, 0, 1, 50, 75, 100, 335, 1035,
        9999, 10000 };
    for_random_positions(9, 100, [&](Position* pos) {
        MoveEntry* end = gen_captures(pos, pos->stm, list, NoSquare);
        end = gen_promotions(pos, pos->stm, 1, end);
        end = gen_quiets(pos, pos->stm, end, NoSquare);
        const auto expect_agreement = [&](i32 side, i32 from, i32 to) {
            const i32 value = swapoff(pos, side, from, to);
            for (const i32 least : thresholds) {
                ASSERT_EQ(swaps_at_least(pos, side, from, to, least), value >= least)
                    << fen_of(pos) << ' ' << from << ' ' << square_name[to] << ' ' << least;
            }
            ASSERT_TRUE(swaps_at_least(pos, side, from, to, value)) << fen_of(pos);
            ASSERT_FALSE(swaps_at_least(pos, side, from, to, value + 1)) << fen_of(pos);
        };
        for (const MoveEntry* entry = list; entry < end; ++entry) {
            expect_agreement(pos->stm, from_square(entry->move), to_square(entry->move));
        }
        for (i32 square = 0; square < 64; ++square) {
            expect_agreement(White, NoSquare, square);
            expect_agreement(Black, NoSquare, square);
        }
    });
}

// ---- Pressure on a king's squares

static bool pressure(const char* fen, i32 type, const char* from, const char* to, const char* zone)
{
    return adds_king_pressure(
        set_position(fen), type, square_of(from), square_of(to), squares_of(zone));
}

TEST(BoardExchange, PressureNeedsAnotherAttackerOfTheSquare)
{
    EXPECT_TRUE(pressure("6k1/8/8/6N1/8/8/8/R3K3 w - -", Rook, "a1", "a7", "f7 g7 h7"));
    EXPECT_FALSE(pressure("6k1/8/8/8/6N1/8/8/R3K3 w - -", Rook, "a1", "a7", "f7 g7 h7"));
}

TEST(BoardExchange, PressureNeedsASquareOfTheZone)
{
    EXPECT_FALSE(pressure("6k1/8/8/6N1/8/8/8/R3K3 w - -", Rook, "a1", "a7", "f8 h8"));
    EXPECT_FALSE(adds_king_pressure(
        set_position("6k1/8/8/6N1/8/8/8/R3K3 w - -"), Rook, square_of("a1"), square_of("a7"), 0));
}

TEST(BoardExchange, PressureOnASquareOfTheOldLineIsNotNew)
{
    EXPECT_FALSE(pressure("6k1/8/8/6N1/8/8/8/4K2R w - -", Rook, "h1", "h4", "h7"));
    // Even where the old line was blocked.
    EXPECT_FALSE(pressure("6k1/8/8/6N1/8/7P/8/4K2R w - -", Rook, "h1", "h4", "h7"));
    EXPECT_TRUE(pressure("6k1/8/8/6N1/8/8/8/4K1R1 w - -", Rook, "g1", "h1", "h7"));
}

TEST(BoardExchange, PressureOnTheSquareJustLeftDoesNotCount)
{
    EXPECT_FALSE(pressure("6k1/7R/8/6N1/8/8/8/4K3 w - -", Rook, "h7", "h4", "h7"));
}

TEST(BoardExchange, OnlyRooksAndQueensOfTheSideMayStandOnTheStraightLine)
{
    EXPECT_TRUE(pressure("6k1/2R5/8/6N1/8/8/8/R3K3 w - -", Rook, "a1", "a7", "h7"));
    EXPECT_TRUE(pressure("6k1/2Q5/8/6N1/8/8/8/R3K3 w - -", Rook, "a1", "a7", "h7"));
    EXPECT_FALSE(pressure("6k1/2B5/8/6N1/8/8/8/R3K3 w - -", Rook, "a1", "a7", "h7"));
    EXPECT_FALSE(pressure("6k1/2r5/8/6N1/8/8/8/R3K3 w - -", Rook, "a1", "a7", "h7"));
}

TEST(BoardExchange, OnlyBishopsAndQueensOfTheSideMayStandOnTheDiagonal)
{
    EXPECT_TRUE(pressure("6k1/8/5B2/8/5N2/8/3B4/4K3 w - -", Bishop, "d2", "c3", "g7 h8"));
    EXPECT_TRUE(pressure("6k1/8/5Q2/8/8/8/3B4/4K3 w - -", Bishop, "d2", "c3", "g7"));
    EXPECT_FALSE(pressure("6k1/8/5R2/5N2/8/8/3B4/4K3 w - -", Bishop, "d2", "c3", "g7"));
    EXPECT_TRUE(pressure("6k1/8/8/5N2/8/8/3B4/4K3 w - -", Bishop, "d2", "c3", "g7"));
    EXPECT_FALSE(pressure("6k1/8/5b2/5N2/8/8/3B4/4K3 w - -", Bishop, "d2", "c3", "g7"));
}

TEST(BoardExchange, QueenPressesAlongBothKindsOfLine)
{
    const char* const fen = "6k1/8/8/6N1/5N2/8/8/Q3K3 w - -";
    EXPECT_TRUE(pressure(fen, Queen, "a1", "a7", "h7"));
    EXPECT_TRUE(pressure(fen, Queen, "a1", "d3", "h7"));
    EXPECT_FALSE(pressure(fen, Rook, "a1", "d3", "h7"));
    EXPECT_FALSE(pressure(fen, Bishop, "a1", "a7", "h7"));
    EXPECT_FALSE(pressure(fen, Knight, "a1", "a7", "h7"));
}

TEST(BoardExchange, PieceBehindTheMoverCountsAsTheOtherAttacker)
{
    // The rook leaves the bishop's diagonal to g7.
    EXPECT_TRUE(pressure("6k1/8/8/8/3R4/8/8/B3K3 w - -", Rook, "d4", "a7", "g7"));
    EXPECT_FALSE(pressure("6k1/8/8/8/3R4/2P5/8/B3K3 w - -", Rook, "d4", "a7", "g7"));
}

// The same question answered square by square.
static bool plain_pressure(const Position* pos, i32 type, i32 from, i32 to, u64 zone)
{
    const i32 side = pos->stm;
    const u64 occ = all_pieces(pos);
    for (const bool straight : { true, false }) {
        const i32 mover = straight ? Rook : Bishop;
        if (type != mover && type != Queen) {
            continue;
        }
        for (i32 square = 0; square < 64; ++square) {
            if ((zone & bit(square)) == 0 || square == from || !on_line(to, square, straight)
                || on_line(from, square, straight)) {
                continue;
            }
            bool blocked = false;
            for (i32 other = 0; other < 64; ++other) {
                const i32 code = pos->board[other];
                if ((plain_between(square, to) & bit(other)) != 0 && code != 0
                    && code != mover + 8 * side && code != Queen + 8 * side) {
                    blocked = true;
                }
            }
            const u64 rest = occ & ~bit(from);
            if (!blocked && plain_attacker(pos, square, side, rest, rest) != NoSquare) {
                return true;
            }
        }
    }
    return false;
}

TEST(BoardExchange, PressureAgreesWithAPlainCheckAndLeavesTheBoardAlone)
{
    static MoveEntry list[1200];
    i32 count[2] = { 0, 0 };
    for_random_positions(8, 150, [&count](Position* pos) {
        const u64 zone = king_attacks[pos->king_sq[pos->stm ^ 1]];
        const MoveEntry* end = gen_quiets(pos, pos->stm, list, NoSquare);
        for (const MoveEntry* entry = list; entry < end; ++entry) {
            const i32 type = entry->moved & 7;
            const i32 from = from_square(entry->move);
            const i32 to = to_square(entry->move);
            const bool expected = plain_pressure(pos, type, from, to, zone);
            ASSERT_EQ(adds_king_pressure(pos, type, from, to, zone), expected)
                << fen_of(pos) << ' ' << text_of(entry->move);
            ++count[expected];
        }
        ASSERT_TRUE(fields_agree(pos));
    });
    EXPECT_GT(count[0], 1000);
    EXPECT_GT(count[1], 100);
}

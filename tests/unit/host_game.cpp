// The host's game: what cannot be is refused, and what the engine cannot take is given otherwise.
#include "host/game.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>

#include "board/moves.h"

static std::unique_ptr<HostGame> game_of(std::string_view words)
{
    auto game = std::make_unique<HostGame>();
    set_up_game(game.get(), words);
    return game;
}

static std::string defect_of(std::string_view words)
{
    return game_of(words)->defect;
}

TEST(HostGame, IsGivenToTheEngineAsItIs)
{
    EXPECT_EQ(position_line(game_of("startpos").get()).text, "position startpos");
    const auto game = game_of("startpos moves e2e4 e7e5");
    const PositionLine line = position_line(game.get());
    EXPECT_EQ(line.text, "position startpos moves e2e4 e7e5");
    EXPECT_EQ(line.plies, 2);
    EXPECT_EQ(position_line(game_of("fen 7k/P7/8/8/8/8/8/K7 w - - 3 40 moves a7a8Q").get()).text,
        "position fen 7k/P7/8/8/8/8/8/K7 w - - moves a7a8q");
}

TEST(HostGame, RefusesWhatIsNoPosition)
{
    EXPECT_EQ(defect_of(""), "a position begins with startpos or fen");
    EXPECT_EQ(defect_of("fen hello"), "the board is not eight ranks of eight squares");
    EXPECT_EQ(defect_of("fen 8/8/8/8/8/8/8/8"), "the side to move is neither w nor b");
    EXPECT_EQ(defect_of("fen 8/8/8/8/8/8/8/8 w - -"), "each side needs exactly one king");
    EXPECT_EQ(
        defect_of("fen 9/8/8/8/8/8/8/Kk6 w - -"), "the board is not eight ranks of eight squares");
    EXPECT_EQ(defect_of("fen k1R5/8/8/8/8/8/8/K7 w - -"), "the side not to move is in check");
    EXPECT_EQ(defect_of("startpos moves e2e4 e2e4"), "move 2, e2e4, is not legal");
    EXPECT_EQ(defect_of("startpos moves e1e2"), "move 1, e1e2, is not legal");
    EXPECT_EQ(defect_of("startpos moves 0000"), "move 1, 0000, is not legal");
}

TEST(HostGame, RefusesChess960)
{
    EXPECT_EQ(defect_of("fen bqnb1rkr/pp3ppp/3ppn2/2p5/5P2/P2P4/NPP1P1PP/BQ1BNRKR w HFhf - 2 9"),
        "Chess960 is not supported");
    EXPECT_EQ(defect_of("fen r3k1r1/8/8/8/8/8/8/R3K1R1 w KQkq - 0 1"), "Chess960 is not supported");
    EXPECT_EQ(defect_of("fen 1r2k2r/8/8/8/8/8/8/1R2K2R w KQkq - 0 1"), "Chess960 is not supported");
    // No rook on that side at all: a slip.
    const auto game = game_of("fen 4k3/8/8/8/8/8/8/4K2R w KQkq - 0 1");
    EXPECT_EQ(game->defect, "");
    EXPECT_NE(game->remark, "");
    EXPECT_EQ(position_line(game.get()).text, "position fen 4k3/8/8/8/8/8/8/4K2R w K -");
}

TEST(HostGame, ShowsItsWholeFen)
{
    EXPECT_EQ(whole_fen(game_of("startpos moves e2e4 e7e5 g1f3").get()),
        "rnbqkbnr/pppp1ppp/8/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 1 2");
    EXPECT_EQ(whole_fen(game_of("fen 4k3/8/8/8/8/8/8/4K2R b - - 7 30 moves e8e7").get()),
        "8/4k3/8/8/8/8/8/4K2R w - - 8 31");
}

// Knights go to and fro for a long time, with a pawn's step now and then.
static std::string long_game(i32 plies)
{
    static const char* const pawn_steps[] = { "a2a3", "a7a6", "b2b3", "b7b6", "c2c3", "c7c6",
        "d2d3", "d7d6", "e2e3", "e7e6", "f2f3", "f7f6", "g2g3", "g7g6", "h2h3", "h7h6", "a3a4",
        "a6a5", "b3b4", "b6b5", "d3d4", "d6d5", "e3e4", "e6e5", "f3f4", "f6f5", "g3g4", "g6g5",
        "h3h4", "h6h5" };
    static const char* const knight_steps[] = { "b1d2", "b8d7", "d2b1", "d7b8" };
    static const char* const first_steps[] = { "g1h3", "g8h6", "h3g1", "h6g8" };
    std::string words = "startpos moves";
    size_t pawns = 0;
    for (i32 ply = 0; ply < plies; ++ply) {
        const i32 part = ply % 82; // two pawns' steps, and twenty times the knights' four
        const bool pair = part < 2 && pawns < std::size(pawn_steps);
        const i32 step = (part + 2) % 4;
        const char* const* knights = pawns < 8 ? first_steps : knight_steps;
        words += ' ';
        words += pair ? pawn_steps[pawns++] : knights[step];
    }
    return words;
}

TEST(HostGame, ALongGameKeepsWhatCanRepeat)
{
    const auto game = game_of(long_game(1190));
    ASSERT_EQ(game->defect, "");
    ASSERT_LE(game->pos.cnt50, fifty_move_plies);
    const PositionLine line = position_line(game.get());
    EXPECT_LT(line.text.size(), 1000u);
    EXPECT_EQ(line.plies, game->pos.cnt50);
    const auto again = game_of(std::string_view(line.text).substr(sizeof "position"));
    EXPECT_EQ(again->pos.key, game->pos.key);
    EXPECT_EQ(again->pos.cnt50, game->pos.cnt50);
    EXPECT_EQ(is_draw_by_rule(&again->pos, 0), is_draw_by_rule(&game->pos, 0));
}

TEST(HostGame, TheNextLineOfAGameIsAsIfItWereTheFirst)
{
    const auto game = game_of("startpos moves e2e4");
    for (const std::string_view words : {
             "startpos moves e2e4",
             "startpos moves e2e4 e7e5 g1f3",
             "startpos moves e2e4 e7e5 g1f3 e7e5", // the last is not legal
             "startpos moves e2e4 e7e5 g1f3 e7e5 b8c6",
             "startpos moves e2e4 e7e5 g1f3 b8c6",
             "startpos moves e2e4 e7e5",
             "startpos",
             "startpos moves",
             "startpos moves a2a3",
             "fen 4k3/8/8/8/8/8/8/4K2R w KQkq - 7 40 moves h1h8",
             "fen 4k3/8/8/8/8/8/8/4K2R w KQkq - 7 40 moves h1h8 e8e7",
             "fen 4k3/8/8/8/8/8/8/4K2R w KQkq - 7 40 moves h1h8 e8e7 h8h1",
             "fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1 moves a7a8",
             "fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1 moves a7a8q e8e7",
         }) {
        SCOPED_TRACE(words);
        set_up_game(game.get(), words);
        const auto first = game_of(words);
        EXPECT_EQ(game->defect, first->defect);
        EXPECT_EQ(game->remark, first->remark);
        EXPECT_EQ(game->plies, first->plies);
        EXPECT_EQ(game->pos.key, first->pos.key);
        EXPECT_EQ(whole_fen(game.get()), whole_fen(first.get()));
        EXPECT_EQ(position_line(game.get()).text, position_line(first.get()).text);
    }
}

TEST(HostGame, MoreThanFiftyMovesWithoutProgressAreGivenAsABoard)
{
    std::string words = "startpos moves";
    for (i32 i = 0; i < 26; ++i) {
        words += " g1f3 g8f6 f3g1 f6g8";
    }
    const auto game = game_of(words);
    EXPECT_EQ(position_line(game.get()).text,
        "position fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
}

TEST(HostGame, ItsOwnMoveIsSensible)
{
    const auto own_move = [](std::string_view words) {
        return text_of_move(choose_own_move(game_of(words).get()));
    };
    EXPECT_EQ(own_move("fen 6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1"), "a1a8");     // mates
    EXPECT_EQ(own_move("fen 7k/P7/8/8/8/8/8/K7 w - - 0 1"), "a7a8q");         // promotes
    EXPECT_EQ(own_move("fen 7k/8/8/3q4/4P3/8/8/K7 w - - 0 1"), "e4d5");       // takes
    EXPECT_EQ(own_move("fen 7k/8/4p3/3p4/8/8/8/K2Q4 w - - 0 1").substr(0, 2), // keeps the queen
        "d1");
    EXPECT_NE(own_move("fen 7k/8/4p3/3p4/8/8/8/K2Q4 w - - 0 1"), "d1d5");
}

TEST(HostGame, MovesAreFoundInEitherCase)
{
    const auto game = game_of("startpos");
    EXPECT_EQ(text_of_move(find_legal_move(game.get(), "E2E4")), "e2e4");
    EXPECT_EQ(find_legal_move(game.get(), "e2e5"), NoMove);
    EXPECT_EQ(find_legal_move(game.get(), ""), NoMove);
    EXPECT_EQ(legal_moves(game.get()).size(), 20u);
}

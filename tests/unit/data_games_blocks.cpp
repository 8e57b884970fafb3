// Files of games in pieces.
#include "data/games_blocks.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

// The file in pieces; a game that is too long as "...".
static std::vector<std::string> pieces_of(const std::string& text, std::vector<i64>* lines)
{
    FILE* file = fopen("pieces.pgn", "wb");
    EXPECT_NE(file, nullptr);
    fwrite(text.data(), 1, text.size(), file);
    fclose(file);
    const std::vector<std::string> files = { "pieces.pgn" };
    Report report = start_report("games", CommonOptions());
    GamesReader reader;
    reader.files = &files;
    reader.report = &report;
    std::vector<std::string> pieces;
    GamesPiece piece;
    while (take_piece(&reader, &piece)) {
        pieces.push_back(piece.is_too_long ? "..." : piece.text);
        lines->push_back(piece.first_line);
    }
    return pieces;
}

static std::string game(i32 number, size_t comment = 0)
{
    const std::string name = std::to_string(number);
    return "[Event \"" + name + "\"]\n[Result \"1-0\"]\n\n1. e4 {" + std::string(comment, 'x')
        + "} e5 1-0\n\n";
}

TEST(DataGamesBlocks, AreCutBetweenGames)
{
    std::string text;
    for (i32 i = 0; i < 20000; ++i) {
        text += game(i);
    }
    std::vector<i64> lines;
    const std::vector<std::string> pieces = pieces_of(text, &lines);
    EXPECT_GT(pieces.size(), 2u);
    std::string joined;
    for (size_t i = 0; i < pieces.size(); ++i) {
        EXPECT_TRUE(pieces[i].starts_with("[Event \"")) << pieces[i].substr(0, 30);
        EXPECT_EQ(lines[i] % 5, 1);
        joined += pieces[i];
    }
    EXPECT_EQ(joined == text, true);
}

TEST(DataGamesBlocks, SkipAGameThatIsTooLong)
{
    for (const char* line_end : { "", "\n" }) {
        const std::string text = game(1) + "[Event \"long\"]\n[Site \"?\"]\n\n1. e4 {" + line_end
            + std::string(3 << 20, 'x') + "\n" + game(2) + game(3);
        std::vector<i64> lines;
        const std::vector<std::string> pieces = pieces_of(text, &lines);
        ASSERT_EQ(pieces.size(), 4u);
        EXPECT_EQ(pieces[0], game(1));
        EXPECT_EQ(pieces[1], "...");
        EXPECT_EQ(lines[1], 6);
        EXPECT_EQ(pieces[2], game(2));
        EXPECT_EQ(pieces[3], game(3));
        EXPECT_EQ(lines[2], *line_end != '\0' ? 11 : 10);
    }
}

TEST(DataGamesBlocks, FindTheLastGame)
{
    const std::string first = game(1);
    EXPECT_EQ(find_last_game(first + game(2)), first.size());
    EXPECT_EQ(find_last_game(first), 0u);
    EXPECT_EQ(find_last_game(""), 0u);
    EXPECT_EQ(find_last_game(first + "[Event \"2\"]\n[Si"), first.size());
    // Two events without a move, games without tags, and what may stand among tags.
    EXPECT_EQ(find_last_game("[Event \"1\"]\n[Event \"2\"]\n"), 12u);
    EXPECT_EQ(find_last_game("1. e4 1-0\n\n1. d4 0-1\n"), 11u);
    EXPECT_EQ(find_last_game("[Event \"1\"]\n; x\n  [ Site \"?\"]\n[Odd]\n[Result \"1-0\"]\n"), 0u);
}

TEST(DataGamesBlocks, TellsTheViewByTheFirstGames)
{
    std::string text = "[Event \"a\"]\n\n";
    for (i32 i = 0; i < 10; ++i) {
        text += "a {(eval) 100} b {(eval) -100} c {[%eval 1.0]} d {[%eval 1.0]} ";
    }
    const ViewTable views = judge_views(text);
    EXPECT_EQ(views[EvalMark], ScoreView::Mover);
    EXPECT_EQ(views[PawnEval], ScoreView::White);
    EXPECT_EQ(views[SlashScore], ScoreView::Unknown);
}

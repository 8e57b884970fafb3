// Games as they are written, or why they are not.
#include "data/games_write.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "board/tables.h"

struct Written {
    GameOutcome outcome;
    std::string text;
};

static Written rewrite(const std::string& text, const GameRules& rules = {})
{
    init_board_tables();
    Written written;
    GameText game;
    EXPECT_NE(read_game(text.data(), text.data() + text.size(), &game), nullptr);
    const std::unique_ptr<GameBoard> board = make_game_board();
    write_game(game, rules, rules.first_views, board.get(), &written.text, &written.outcome);
    EXPECT_EQ(written.outcome.fate == GameFate::Used, !written.text.empty());
    return written;
}

static std::string why(const std::string& text, const GameRules& rules = {})
{
    const Written written = rewrite(text, rules);
    return written.outcome.reason != nullptr ? written.outcome.reason : "";
}

TEST(DataGamesWrite, LinesAreShortAndHoldWholeMoves)
{
    std::string text = "1. Nf3 {[%eval 0.25,10]} Nf6 2. Ng1 Ng8";
    for (i32 i = 0; i < 50; ++i) {
        text += " Nf3 {[%eval 0.25,10]} Nf6 Ng1 {[%eval -12.25,10]} Ng8";
    }
    const std::string out = rewrite(text + " 1/2-1/2").text;
    size_t longest = 0;
    for (std::string_view rest = out; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() + 1);
        longest = std::max(longest, line.size());
        EXPECT_FALSE(line.starts_with(' '));
        EXPECT_EQ(std::ranges::count(line, '{'), std::ranges::count(line, '}'));
    }
    EXPECT_LE(longest, 80u);
    EXPECT_GT(longest, 70u);
}

TEST(DataGamesWrite, ResultsMustAgree)
{
    EXPECT_EQ(why("[Result \"1-0\"]\n\n1. e4 0-1"), "two results");
    EXPECT_EQ(why("[Result \"1-0\"]\n[Result \"0-1\"]\n\n1. e4"), "two results");
    EXPECT_EQ(why("[Result \"*\"]\n\n1. e4 *"), "game without a result");
    EXPECT_EQ(why("1. e4"), "game without a result");
    EXPECT_EQ(why("[Result \"*\"]\n\n1. e4 1-0"), "");
    EXPECT_EQ(why("[Result \"1-0\"]\n\n1. e4 *"), "");
    EXPECT_EQ(why("[Result \"?\"]\n\n1. e4 1/2"), "");
    GameRules rules;
    rules.filter.results = { "*" };
    EXPECT_NE(
        rewrite("1. e4", rules).text.find("[Result \"*\"]\n\n1. e4 *\n\n"), std::string::npos);
    EXPECT_EQ(why("1. e4 1-0", rules), "result");
}

TEST(DataGamesWrite, StartsAreOfChess)
{
    const std::string usual = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";
    EXPECT_EQ(why("[FEN \"" + usual + "\"]\n\n1. e4 1-0"), "");
    EXPECT_EQ(rewrite("[SetUp \"1\"]\n[FEN \"" + usual + "\"]\n\n1. e4 1-0").text.find("FEN"),
        std::string::npos);
    EXPECT_EQ(why("[Variant \"crazyhouse\"]\n\n1. e4 1-0"), "variant of chess");
    EXPECT_EQ(why("[Variant \"Standard\"]\n\n1. e4 1-0"), "");
    EXPECT_EQ(why("[SetUp \"1\"]\n\n1. e4 1-0"), "start position that is not told");
    EXPECT_EQ(why("[SetUp \"0\"]\n\n1. e4 1-0"), "");
    const std::string other = "[FEN \"4k3/8/8/8/8/8/4P3/4K3 b - - 0 7\"]\n\n7... Kd8 8. e4 1-0";
    EXPECT_EQ(why(other), "start from a position");
    GameRules rules;
    rules.keeps_fen = true;
    EXPECT_NE(rewrite(other, rules).text.find("\n\n7... Kd8 8. e4 1-0\n\n"), std::string::npos);
    EXPECT_EQ(why("[FEN \"8/8/8/8/8/8/8/8 w - - 0 1\"]\n\n1. e4 1-0", rules),
        "start that is no position");
    EXPECT_EQ(why("[FEN \"nonsense\"]\n\n1. e4 1-0", rules), "start that is no position");
    EXPECT_EQ(why("[FEN \"bqnrkrnb/pppppppp/8/8/8/8/PPPPPPPP/BQNRKRNB w KQkq - 0 1\"]\n\n1. e4 1-0",
                  rules),
        "castling of Chess960");
}

TEST(DataGamesWrite, KeysAreOfStartAndMoves)
{
    const auto same = [](const std::string& a, const std::string& b) {
        GameRules rules;
        rules.keeps_fen = true;
        const GameOutcome one = rewrite(a, rules).outcome;
        const GameOutcome two = rewrite(b, rules).outcome;
        EXPECT_EQ(one.key[0] == two.key[0], one.key[1] == two.key[1]);
        return one.key[0] == two.key[0];
    };
    EXPECT_TRUE(same("[White \"a\"]\n1. e4 e5 1-0", "1.e2e4 {x} e7e5 0-1"));
    EXPECT_FALSE(same("1. e4 e5 1-0", "1. e4 1-0"));
    EXPECT_FALSE(same("1. e4 e5 2. d4 1-0", "1. d4 e5 2. e4 1-0"));
    EXPECT_FALSE(same("1. e4 1-0", "[FEN \"4k3/8/8/8/8/8/4P3/4K3 w - - 0 1\"]\n\n1. e4 1-0"));
}

TEST(DataGamesWrite, ScoresWithoutAViewAreDropped)
{
    GameRules rules;
    rules.first_views = views_of_forms(ScoreView::Unknown);
    const Written written = rewrite("1. e4 {(eval) 20} e5 {+0.10/7} 1-0", rules);
    EXPECT_TRUE(written.outcome.lacks_view);
    EXPECT_NE(written.text.find("1. e4 e5 {+0.10/7} 1-0"), std::string::npos);
    EXPECT_TRUE(written.outcome.takes_view);
    EXPECT_EQ(written.outcome.tally.scores_of_taken_view, 1);
    EXPECT_FALSE(rewrite("1. e4 {+0.10/7} e5 {0.00/7} 1-0", rules).outcome.takes_view);
    rules.first_views = views_of_forms(ScoreView::Mover);
    EXPECT_FALSE(rewrite("1. e4 e5 {+0.10/7} 1-0", rules).outcome.takes_view);
    EXPECT_NE(rewrite("1. e4 e5 {(eval) 20} 1-0", rules).text.find("1. e4 e5 {eval -20} 1-0"),
        std::string::npos);
}

TEST(DataGamesWrite, BrokenOffGamesMayBeLeftOut)
{
    const std::string game = "[Termination \"Time forfeit\"]\n\n1. e4 1-0";
    GameRules rules;
    EXPECT_EQ(why(game, rules), "");
    EXPECT_EQ(rewrite(game).outcome.tally.broken_off, 1);
    rules.broken_off = BrokenOff::LeftOut;
    EXPECT_EQ(why(game, rules), "broken off");
}

TEST(DataGamesWrite, WhatIsNotWantedIsNotRefusedToo)
{
    GameRules rules;
    rules.filter.min_rating = 1600;
    rules.broken_off = BrokenOff::LeftOut;
    const std::string weak = "[WhiteElo \"900\"]\n[BlackElo \"900\"]\n";
    for (const char* text : { "[Variant \"Atomic\"]\n\n1. e4 1-0", "\n1. e4 *", "\n1-0",
             "[FEN \"4k3/8/8/8/8/8/4P3/4K3 w - - 0 1\"]\n\n1. e4 1-0" }) {
        EXPECT_EQ(rewrite(weak + text, rules).outcome.fate, GameFate::LeftOut) << text;
        EXPECT_EQ(rewrite(weak + text).outcome.fate, GameFate::Refused) << text;
    }
    const std::string off = "[WhiteElo \"1900\"]\n[BlackElo \"1900\"]\n"
                            "[Termination \"Abandoned\"]\n\n*";
    EXPECT_EQ(why(off, rules), "broken off");
    EXPECT_EQ(why(weak + "\n1. e4 {", rules), "comment without an end");
    EXPECT_EQ(why(weak + "[Result \"0-1\"]\n\n1. e4 1-0", rules), "two results");
}

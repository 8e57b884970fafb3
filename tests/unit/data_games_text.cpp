// Games taken apart.
#include "data/games_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

struct Parts {
    std::string moves; // with blanks between them
    GameEnd end;
    std::string problem;
};

// All games of a text. They hold no views of it: it ends with the call.
static std::vector<Parts> games_of(const std::string& text)
{
    std::vector<Parts> games;
    GameText game;
    const char* end = text.data() + text.size();
    for (const char* p = text.data(); (p = read_game(p, end, &game)) != nullptr;) {
        Parts parts = { {}, game.end, game.problem != nullptr ? game.problem : "" };
        for (const MoveText& move : game.moves) {
            parts.moves += (parts.moves.empty() ? "" : " ") + std::string(move.text);
        }
        games.push_back(parts);
        EXPECT_LE(p, end);
    }
    return games;
}

static std::string moves_of(const std::string& text)
{
    const std::vector<Parts> games = games_of(text);
    EXPECT_EQ(games.size(), 1u) << text;
    return games.empty() ? "nothing" : games[0].problem + games[0].moves;
}

TEST(DataGamesText, MovesAreLeftOver)
{
    for (const char* text : { "1. e4 e5 2. Nf3 1-0", "1.e4 e5 2.Nf3", "1 e4 e5 2 Nf3",
             "1. e4 1... e5 2. Nf3", "1.e4! e5?? 2.Nf3!?", "1.e4$1$2 e5 $10 2.Nf3 $146",
             "1.e4{a}e5{b (c}2.Nf3;d", "1.e4(1.d4(1.c4{)})d5)e5 2.Nf3", "1. e4 += e5 N 2. Nf3 +-",
             "%x\n1. e4\n% Nc3\ne5 2. Nf3",
             "1\xe2\x80\xa6 e4 1\xe2\x80\xa6"
             "e5 2. Nf3",
             "1. e4 e5\r\n2. Nf3\r\n1-0\r\n", "1e4 e5 2Nf3", "1. e4 e5 (a ; )\n) 2. Nf3" }) {
        EXPECT_EQ(moves_of(text), "e4 e5 Nf3") << text;
    }
    EXPECT_EQ(moves_of("7. exd6e.p. 8. cxb6 e.p. gxh3ep"), "exd6 cxb6 gxh3");
    EXPECT_EQ(moves_of("8. e8(Q)+ (8. e8(N)) a1(R)"), "e8(Q)+ a1(R)");
    EXPECT_EQ(moves_of("5. 0-0 0-0-0 -- 0000"), "0-0 0-0-0 -- 0000");
}

TEST(DataGamesText, ResultsEndGames)
{
    EXPECT_EQ(games_of("1. e4 1/2")[0].end, GameEnd::Draw);
    EXPECT_EQ(games_of("1. e4 *")[0].end, GameEnd::Unfinished);
    EXPECT_EQ(games_of("1. e4 0-1")[0].end, GameEnd::BlackWins);
    EXPECT_EQ(games_of("1. e4")[0].end, GameEnd::None);
    EXPECT_EQ(moves_of("1. e4 1-0 1-0"), "e4");
    EXPECT_EQ(moves_of("1. e4 1-0 0-1").substr(0, 11), "two results");
    EXPECT_EQ(moves_of("1. e4 1-0 e5").substr(0, 22), "text behind the result");
    EXPECT_EQ(games_of("1. e4 1-0 {x} 1. d4 0-1\n1.c4 *").size(), 3u);
}

TEST(DataGamesText, TagsBeginGamesWhereverTheyStand)
{
    const std::string next = "\n[Event \"b\"]\n\n1. d4 0-1\n";
    const struct {
        const char* text;
        const char* problem;
    } rows[] = { { "1. e4 {open", "comment without an end" },
        { "1. e4 (1. d4", "variation without an end" }, { "1. e4", "" },
        { "1. e4 } e5", "brace that closes nothing" },
        { "1. e4 ) e5", "parenthesis that closes nothing" },
        { "1. e4 < e5", "character that belongs to no move" }, { "[Event \"a\"]", "" } };
    for (const auto& row : rows) {
        const std::vector<Parts> games = games_of(row.text + next);
        ASSERT_EQ(games.size(), 2u) << row.text;
        EXPECT_EQ(games[0].problem, row.problem);
        EXPECT_EQ(games[1].moves, "d4");
    }
    EXPECT_EQ(moves_of("1. e4 {a\n[%clk 0:01:00]\n[b]\n} e5"), "e4 e5");
}

TEST(DataGamesText, ZeroBytesAreDamage)
{
    EXPECT_EQ(games_of(std::string("1. e4 \0 e5", 10))[0].problem, "NUL byte");
    EXPECT_EQ(games_of(std::string("1. e4 (\0) e5", 12))[0].problem, "NUL byte");
    EXPECT_EQ(moves_of(std::string("1. e4 {\0} e5", 12)), "e4 e5");
}

static std::string tag_of(const char* text, const char* name)
{
    GameText game;
    const std::string copy = text;
    EXPECT_NE(read_game(copy.data(), copy.data() + copy.size(), &game), nullptr);
    return std::string(tag_value(game, name));
}

TEST(DataGamesText, ALetterTornOffItsMoveIsNoMark)
{
    for (const char* text :
        { "1. N f3 d5", "1 N f3", "1. e4 e5 2. N.f3", "1. e4 1... N\nxd5", "1. e4 e5 2.\nD 1d7" }) {
        EXPECT_EQ(games_of(text)[0].problem, "letter of a piece without its move") << text;
    }
    for (const char* text :
        { "1. e4 N Nf6", "1. e4 D", "1. e4 e5 N 2. Nf3", "1. e4 N d5", "e4 N e5" }) {
        EXPECT_EQ(games_of(text)[0].problem, "") << text;
    }
}

TEST(DataGamesText, TagsMayBeOdd)
{
    EXPECT_EQ(tag_of("[A \"b\"]\n", "A"), "b");
    EXPECT_EQ(tag_of("  [ A   \"b\" ] [C \"d\"]", "C"), "d");
    EXPECT_EQ(tag_of("[A \"b \"c\" d\"]", "A"), "b \"c\" d");
    EXPECT_EQ(tag_of("[A \"b \\\"]\\\" d\"]", "A"), "b \\\"]\\\" d");
    EXPECT_EQ(tag_of("[A \"b\n[C \"d\"]", "A"), "b");
    EXPECT_EQ(tag_of("[A b]\n[C \"d\"]", "A"), "b");
    EXPECT_EQ(tag_of("[A]\n[]\n[ \"x\"]\n[C \"d\"]", "C"), "d");
    EXPECT_EQ(tag_of("[A \"\"]", "A"), "");
    EXPECT_EQ(tag_of("[", "A"), "");
}

TEST(DataGamesText, WholeNumbersAreCentipawnsUnlessTheGameHasPawns)
{
    const auto form_of_second = [](const std::string& text) {
        GameText game;
        EXPECT_NE(read_game(text.data(), text.data() + text.size(), &game), nullptr);
        return game.moves[1].score.form == PawnEval ? game.moves[1].score.size
                                                    : -game.moves[1].score.size;
    };
    EXPECT_EQ(form_of_second("1. e4 {[%eval 20,10]} e5 {[%eval 3,11]}"), -3);
    EXPECT_EQ(form_of_second("1. e4 {[%eval 0.2]} e5 {[%eval 3]}"), 300);
    EXPECT_EQ(form_of_second("1. e4 {[%eval 0.2]} e5 {[%eval 320]}"), 9999);
}

// Each of these took minutes where something was looked through again and again.
TEST(DataGamesText, TextsMadeToTakeLongDoNot)
{
    const auto repeated = [](const char* text, i32 times) {
        std::string all;
        for (i32 i = 0; i < times; ++i) {
            all += text;
        }
        return all;
    };
    EXPECT_EQ(moves_of("1. e4 {" + std::string(1 << 20, '/') + "} e5"), "e4 e5");
    EXPECT_EQ(moves_of("1. e4 " + repeated("(", 1 << 20)).substr(0, 9), "variation");
    EXPECT_EQ(moves_of(repeated("[A \"b\"]", 1 << 17) + "\n\n1. e4 e5"), "e4 e5");
    EXPECT_EQ(moves_of(repeated("[A \"b\"]\n", 1 << 17) + "\n\n1. e4 e5"), "e4 e5");
    EXPECT_EQ(games_of(repeated("1. e4 {\n[Event \"a\"]\n", 1 << 15)).size(), 1u + (1 << 15));
    EXPECT_EQ(moves_of("1. e4 " + repeated("{[%eval ", 1 << 17) + "} e5"), "e4 e5");
}

// Tags that the tools take for what they are.
#include "data/games_tags.h"

#include <gtest/gtest.h>

#include <string>

static std::string tags_of(const std::string& text, const GameRules& rules = {})
{
    GameText game;
    EXPECT_NE(read_game(text.data(), text.data() + text.size(), &game), nullptr);
    std::string out;
    GameTally tally;
    write_tags(game, rules, GameEnd::WhiteWins, tag_value(game, "FEN"), &out, &tally);
    return out;
}

// The last tag written for one.
static std::string tag_of(const std::string& tag, const GameRules& rules = {})
{
    const std::string tags = tags_of(tag, rules);
    const size_t end = tags.find_last_not_of('\n');
    return tags.substr(tags.rfind('\n', end) + 1, end - tags.rfind('\n', end));
}

TEST(DataGamesTags, EveryGameHasSeven)
{
    EXPECT_EQ(tags_of("[White \"a\"]\n[ECO \"A00\"]\n[Event \"b\"]"),
        "[Event \"b\"]\n[Site \"?\"]\n[Date \"????.??.??\"]\n[Round \"?\"]\n[White \"a\"]\n"
        "[Black \"?\"]\n[Result \"1-0\"]\n[ECO \"A00\"]\n\n");
    GameRules rules;
    rules.only_roster = true;
    EXPECT_EQ(tags_of("[ECO \"A00\"]", rules).find("ECO"), std::string::npos);
    EXPECT_NE(tags_of("[FEN \"x\"]", rules).find("[SetUp \"1\"]\n[FEN \"x\"]"), std::string::npos);
}

TEST(DataGamesTags, AreNotTakenForOthers)
{
    EXPECT_EQ(tag_of("[ResultDecision \"x\"]"), "[_ResultDecision \"x\"]");
    EXPECT_EQ(tag_of("[GameResult \"0-1\"]"), "[GameResult_ \"0-1\"]");
    EXPECT_EQ(tag_of("[BigEvent \"x\"]"), "[BigEvent_ \"x\"]");
    EXPECT_EQ(tag_of("[Opening \"Event [Result \"]"), "[Opening \"event (result \"]");
    EXPECT_EQ(tag_of("[Place \"abandoned time forfeit\"]"), "[Place \"Abandoned Time forfeit\"]");
}

TEST(DataGamesTags, AreQuoted)
{
    EXPECT_EQ(tag_of("[A \"b \"c\" \\\\ \\x\"]"), "[A \"b \\\"c\\\" \\\\ \\\\x\"]");
    EXPECT_EQ(tag_of("[A \"b\tc\"]"), "[A \"b c\"]");
}

TEST(DataGamesTags, FitTheScannersLine)
{
    const std::string long_tag = tag_of("[A \"" + std::string(400, '\\') + "\"]");
    EXPECT_LE(long_tag.size(), 250u);
    EXPECT_TRUE(long_tag.ends_with("\\\\\"]"));
    const std::string letters = "\xc3\xa9";
    std::string value;
    for (i32 i = 0; i < 200; ++i) {
        value += letters;
    }
    for (const char* name : { "A", "AB" }) {
        const std::string tag = tag_of("[" + std::string(name) + " \"" + value + "\"]");
        EXPECT_LE(tag.size(), 250u);
        EXPECT_TRUE(tag.ends_with(letters + "\"]")) << name;
    }
    EXPECT_LE(tag_of("[" + std::string(300, 'n') + " \"x\"]").size(), 250u);
}

TEST(DataGamesTags, TellBrokenOffGamesInTheScannersWords)
{
    const struct {
        const char* value;
        const char* marked;
        const char* kept;
    } rows[] = {
        { "Time forfeit", "time forfeit", "Time forfeit" },
        { "time forfeit", "time forfeit", "Time forfeit" },
        { "bob won on time", "bob won on time (time forfeit)", "bob won on time" },
        { "Abandoned", "abandoned", "Abandoned" },
        { "White won - game abandoned", "white won - game abandoned",
            "white won - game Abandoned" },
        { "Rules infraction", "Rules infraction (abandoned)", "Rules infraction" },
        { "normal", "normal", "normal" },
        { "adjudication", "adjudication", "adjudication" },
    };
    GameRules keeps;
    keeps.broken_off = BrokenOff::Kept;
    for (const auto& row : rows) {
        const std::string tag = std::string("[Termination \"") + row.value + "\"]";
        EXPECT_EQ(tag_of(tag), std::string("[Termination \"") + row.marked + "\"]");
        EXPECT_EQ(tag_of(tag, keeps), std::string("[Termination \"") + row.kept + "\"]");
    }
}

static bool is_broken_off(const char* white, const char* black, const std::string& termination)
{
    const std::string text = std::string("[White \"") + white + "\"]\n[Black \"" + black
        + "\"]\n[Termination \"" + termination + "\"]\n\n1. e4 1-0\n";
    GameText game;
    EXPECT_NE(read_game(text.data(), text.data() + text.size(), &game), nullptr);
    return is_broken_off(game);
}

TEST(DataGamesTags, NamesOfPlayersBreakNoGameOff)
{
    EXPECT_FALSE(is_broken_off("DeathStroke", "b", "DeathStroke won by checkmate"));
    EXPECT_FALSE(is_broken_off("a", "Dr_Death", "dr_death won by resignation"));
    EXPECT_FALSE(is_broken_off("Death", "b", "Death won by checkmate"));
    EXPECT_FALSE(is_broken_off("death-1", "b", "death-1 won by resignation"));
    EXPECT_FALSE(is_broken_off("Death", "Dr Death", "Dr Death won by resignation"));
    EXPECT_FALSE(is_broken_off("abandoned", "b", "abandoned won by checkmate"));
    EXPECT_FALSE(is_broken_off("a", "b", "Installed_2 won by checkmate"));
    EXPECT_FALSE(is_broken_off("a", "b", "Deathly won by resignation"));
    EXPECT_TRUE(is_broken_off("DeathStroke", "b", "DeathStroke won on time"));
    EXPECT_TRUE(is_broken_off("time", "b", "time won on time"));
    EXPECT_TRUE(is_broken_off("a", "Forfeit", "Time forfeit"));
    EXPECT_TRUE(is_broken_off("death", "b", "death"));
    EXPECT_TRUE(is_broken_off("a", "b", "a won - game abandoned"));
    EXPECT_TRUE(is_broken_off("de", "abandon", "game abandoned by de"));
    EXPECT_TRUE(is_broken_off("", "", "abandoned"));
    // The scanner looks for its words anywhere.
    const std::string text =
        "[White \"abandoned\"]\n[Termination \"abandoned won by checkmate\"]\n\n1. e4 1-0\n";
    EXPECT_TRUE(tags_of(text).ends_with("[Termination \"Abandoned won by checkmate\"]\n\n"));
}

TEST(DataGamesTags, WordsOfAllProgramsBreakGamesOff)
{
    for (const char* words : { "time forfeit", "Time forfeits", "bob won on time", "timeout",
             "Game drawn by timeout vs insufficient material", "time out", "abandoned",
             "Abandonment", "White abandons", "unterminated", "forfeit", "White forfeits",
             "win by forfeiture", "rules infraction", "illegal move", "illegal moves", "disconnect",
             "White disconnects", "disconnection", "disconnected", "stalled connection",
             "emergency", "death", "Death of a player", "game-abandoned" }) {
        EXPECT_TRUE(is_broken_off("a", "b", words)) << words;
    }
    for (const char* words : { "", "normal", "adjudication", "stalemate", "a won by checkmate",
             "Game drawn by repetition", "TCEC win rule", "SyzygyTB" }) {
        EXPECT_FALSE(is_broken_off("a", "b", words)) << words;
    }
}

TEST(DataGamesTags, TheMarkOfABrokenOffGameIsNotCutOff)
{
    std::string value = "lost on time ";
    for (i32 i = 0; i < 200; ++i) {
        value += "\xc3\xa9"; // where it is cut, one of them may lie
    }
    for (const char* start : { "", "a ", "ab " }) {
        const std::string tag = tag_of("[Termination \"" + (start + value) + "\"]");
        EXPECT_TRUE(tag.ends_with("\xa9 (time forfeit)\"]")) << tag;
        EXPECT_LE(tag.size(), 250u);
        EXPECT_EQ(tag_of(tag), tag);
    }
}

// Which games are wanted.
#include "data/games_filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// Why a game with these tags and 40 half-moves is not wanted.
static std::string why(const GameFilter& filter, const std::string& tags)
{
    GameText game;
    const std::string text = tags + "\n\n1. e4";
    EXPECT_NE(read_game(text.data(), text.data() + text.size(), &game), nullptr);
    game.moves.resize(40);
    const char* reason = unwanted_by(filter, game, GameEnd::Draw);
    return reason != nullptr ? reason : "";
}

static std::string class_of_tag(const char* tag)
{
    return std::string(class_of(read_time_control(tag)));
}

TEST(DataGamesFilter, TimeControlsHaveClasses)
{
    EXPECT_EQ(class_of_tag("15+0"), "ultrabullet");
    EXPECT_EQ(class_of_tag("60+1"), "bullet");
    EXPECT_EQ(class_of_tag("180+0"), "blitz");
    EXPECT_EQ(class_of_tag("10+0.1"), "ultrabullet");
    EXPECT_EQ(class_of_tag("600+5"), "rapid");
    EXPECT_EQ(class_of_tag("40/7200:3600"), "classical");
    EXPECT_EQ(class_of_tag("1/86400"), "correspondence");
    EXPECT_EQ(class_of_tag("-"), "correspondence");
    for (const char* tag : { "", "?", "*180", "x", "180+", "+2", "1/", "180+-2", "inf", "nan" }) {
        EXPECT_EQ(class_of_tag(tag), "") << tag;
    }
}

TEST(DataGamesFilter, TimeControlsAreCompared)
{
    const GameFilter filter = { .min_base = 60.0, .max_base = 180.0, .min_increment = 1.0 };
    EXPECT_EQ(why(filter, "[TimeControl \"180+1\"]"), "");
    EXPECT_EQ(why(filter, "[TimeControl \"180+0\"]"), "time control");
    EXPECT_EQ(why(filter, "[TimeControl \"181+1\"]"), "time control");
    EXPECT_EQ(why(filter, "[TimeControl \"?\"]"), "time control");
    EXPECT_EQ(why(filter, ""), "time control");
    EXPECT_EQ(why({ .classes = { "blitz", "rapid" } }, "[TimeControl \"300+3\"]"), "");
    EXPECT_EQ(why({ .classes = { "blitz" } }, "[TimeControl \"600+5\"]"), "time control");
}

TEST(DataGamesFilter, RatingsAreOfBoth)
{
    const GameFilter filter = { .min_rating = 1800, .max_rating = 2400 };
    EXPECT_EQ(why(filter, "[WhiteElo \"1800\"]\n[BlackElo \"2400?\"]"), "");
    EXPECT_EQ(why(filter, "[WhiteElo \"1799\"]\n[BlackElo \"2400\"]"), "rating");
    EXPECT_EQ(why(filter, "[WhiteElo \"1800\"]\n[BlackElo \"2401\"]"), "rating");
    EXPECT_EQ(why(filter, "[WhiteElo \"1800\"]\n[BlackElo \"?\"]"), "rating");
    EXPECT_EQ(why(filter, ""), "rating");
}

TEST(DataGamesFilter, DatesMayBeKnownInPart)
{
    const GameFilter filter = { .from = "2024.05", .to = "2024.06.15" };
    EXPECT_EQ(why(filter, "[Date \"2024.05.01\"]"), "");
    EXPECT_EQ(why(filter, "[Date \"2024.05.??\"]"), "");
    EXPECT_EQ(why(filter, "[Date \"2024.06.15\"]"), "");
    EXPECT_EQ(why(filter, "[Date \"2024.06.16\"]"), "date");
    EXPECT_EQ(why(filter, "[Date \"2024.06.??\"]"), "date");
    EXPECT_EQ(why(filter, "[Date \"2024.??.??\"]"), "date");
    EXPECT_EQ(why(filter, "[Date \"????.??.??\"]\n[UTCDate \"2024.05.02\"]"), "");
    EXPECT_EQ(why(filter, "[Date \"soon\"]"), "date");
    EXPECT_EQ(why({ .from = "2024" }, "[Date \"2024.01.01\"]"), "");
    EXPECT_EQ(why({ .from = "2024" }, "[Date \"2023.12.31\"]"), "date");
}

TEST(DataGamesFilter, DatesAreChecked)
{
    for (const char* text : { "2024", "2024.05", "2024.05.17", "2024-05-17" }) {
        EXPECT_TRUE(is_date(text)) << text;
    }
    for (const char* text :
        { "", "24", "2024.13", "2024.5", "2024.05.32", "2024.05.17x", "x2024", "2024.05.17.18" }) {
        EXPECT_FALSE(is_date(text)) << text;
    }
}

TEST(DataGamesFilter, LengthsAndResultsAreCompared)
{
    EXPECT_EQ(why({ .min_length = 40, .max_length = 40 }, ""), "");
    EXPECT_EQ(why({ .min_length = 41 }, ""), "length");
    EXPECT_EQ(why({ .max_length = 39 }, ""), "length");
    EXPECT_EQ(why({ .results = { "1/2-1/2", "1-0" } }, ""), "");
    EXPECT_EQ(why({ .results = { "1-0" } }, ""), "result");
}

TEST(DataGamesFilter, ListsAreChecked)
{
    std::vector<std::string> names;
    EXPECT_EQ(read_name_list("blitz,rapid", time_class_names, &names), "");
    EXPECT_EQ(names, (std::vector<std::string> { "blitz", "rapid" }));
    EXPECT_EQ(read_name_list("blitz,slow", time_class_names, &names), "slow");
    EXPECT_EQ(read_name_list(",", time_class_names, &names), ",");
}

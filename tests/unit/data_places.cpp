// Names that files are written under.
#include "data/places.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

static void put(const std::string& name)
{
    FILE* file = fopen(name.c_str(), "w");
    ASSERT_NE(file, nullptr);
    fputs("text", file);
    fclose(file);
}

struct DataPlaces : testing::Test {
    void SetUp() override
    {
        fs::remove_all("places");
        fs::create_directories("places/inner");
        put("places/a");
    }
};

TEST_F(DataPlaces, OfOneFileAreOneByWhateverName)
{
    fs::create_symlink("a", "places/link");
    fs::create_hard_link("places/a", "places/second");
    EXPECT_TRUE(is_same_place("places/a", "places/inner/../a"));
    EXPECT_TRUE(is_same_place("places/a", "places/link"));
    EXPECT_TRUE(is_same_place("places/a", "places/second"));
    EXPECT_TRUE(is_same_place("places/new", fs::absolute("places").string() + "/./new"));
    EXPECT_FALSE(is_same_place("places/new", "places/inner/new"));
    EXPECT_FALSE(is_same_place("places/a", "places/new"));
    EXPECT_FALSE(is_same_place("nowhere/a", "nowhere/a"));
    EXPECT_TRUE(is_same_place("new", "./new"));
}

TEST_F(DataPlaces, ThatTakeNoFileAreNamed)
{
    EXPECT_STREQ(place_problem(""), "is no name");
    EXPECT_STREQ(place_problem("places"), "is a folder");
    EXPECT_STREQ(place_problem("nowhere/a"), "lies in a folder that is not there");
    EXPECT_STREQ(place_problem("places/a/b"), "lies in a folder that takes no files");
    EXPECT_EQ(place_problem("places/new"), nullptr);
    EXPECT_EQ(place_problem("new"), nullptr);
    EXPECT_EQ(place_problem("/dev/full"), nullptr);
}

// A file behind the name of an open one is neither replaced nor cut.
TEST_F(DataPlaces, OfTheSystemAreWrittenWhereTheyStand)
{
    EXPECT_TRUE(is_plain_place("places/a"));
    EXPECT_TRUE(is_plain_place("places/new"));
    EXPECT_FALSE(is_plain_place("/dev/null"));
    EXPECT_FALSE(is_plain_place("/dev/stdout"));
    FILE* old = fopen("places/a", "a");
    ASSERT_NE(old, nullptr);
    const std::string name = "/dev/fd/" + std::to_string(fileno(old));
    EXPECT_FALSE(is_plain_place(name));
    FILE* file = open_place(name);
    ASSERT_NE(file, nullptr);
    fputs(" more", file);
    fclose(file);
    fclose(old);
    EXPECT_EQ(fs::file_size("places/a"), 9u);
    EXPECT_EQ(open_place("/dev/fd/999999"), nullptr);
}

TEST_F(DataPlaces, OfUnfinishedFilesAreClearedWhenTheProcessIsEnded)
{
    put("places/kept");
    EXPECT_EXIT(
        {
            OutputFile kept;
            OutputFile lost;
            EXPECT_EQ(open_unfinished(&kept, "places/never", "places/kept"), 0);
            EXPECT_EQ(open_unfinished(&lost, "places/never", "places/a"), 0);
            forget_unfinished("places/kept");
            raise(SIGTERM);
        },
        testing::KilledBySignal(SIGTERM), "");
    EXPECT_FALSE(fs::exists("places/a"));
    EXPECT_TRUE(fs::exists("places/kept"));
}

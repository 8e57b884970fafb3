// The command line of vesk-data's words.
#include "data/arguments.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "test_support.h"

// What a command line has set.
struct Settings {
    CommonOptions common;
    std::vector<std::string> files;
    std::vector<std::string> names;
    std::string view;
    i64 least = 3;
    f64 share = 0.5;
    bool unique = false;
};

static bool read_words(Settings* settings, std::vector<std::string> words)
{
    static constexpr std::string_view views[] = { "white", "mover" };
    const WordOption options[] = {
        { .name = "--unique", .flag = &settings->unique },
        { .name = "--least", .whole = &settings->least, .greatest = 10.0 },
        { .name = "--share", .real = &settings->share, .greatest = 1.0 },
        { .name = "--view", .text = &settings->view, .choices = views },
        { .name = "--name", .texts = &settings->names },
    };
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    return read_arguments(pointers, options, &settings->common, &settings->files);
}

TEST(DataArguments, AreReadInAnyOrder)
{
    Settings settings;
    ASSERT_TRUE(read_words(&settings,
        { "a.pgn", "--unique", "--least", "4", "--share=0.25", "-", "--view=white", "--jobs", "2",
            "--name", "x", "--name=y", "--max-messages", "0", "--json", "--output=o", "--",
            "-z" }));
    EXPECT_EQ(settings.files, (std::vector<std::string> { "a.pgn", "-", "-z" }));
    EXPECT_TRUE(settings.unique);
    EXPECT_EQ(settings.least, 4);
    EXPECT_EQ(settings.share, 0.25);
    EXPECT_EQ(settings.view, "white");
    EXPECT_EQ(settings.names, (std::vector<std::string> { "x", "y" }));
    EXPECT_EQ(settings.common.jobs, 2);
    EXPECT_EQ(settings.common.max_messages, 0);
    EXPECT_TRUE(settings.common.json);
    EXPECT_EQ(settings.common.output, "o");
}

TEST(DataArguments, KeepTheirDefaults)
{
    Settings settings;
    ASSERT_TRUE(read_words(&settings, {}));
    EXPECT_TRUE(settings.files.empty());
    EXPECT_EQ(settings.least, 3);
    EXPECT_EQ(settings.common.output, "-");
    EXPECT_EQ(settings.common.jobs, 1);
}

TEST(DataArguments, AreRefusedWithAReason)
{
    const std::vector<std::vector<std::string>> lines = { { "--unik" }, { "--least" },
        { "--least", "x" }, { "--least", "11" }, { "--least=1.5" }, { "--share", "2" },
        { "--view", "black" }, { "--unique=yes" }, { "--jobs", "0" }, { "--jobs=257" }, { "-x" },
        { "--name" } };
    for (const std::vector<std::string>& words : lines) {
        Settings settings;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(read_words(&settings, words)) << words[0];
        EXPECT_NE(testing::internal::GetCapturedStderr(), "") << words[0];
    }
}

TEST(DataArguments, GuessWhatWasMeant)
{
    Settings settings;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(read_words(&settings, { "--uniqe" }));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "vesk-data: there is no option '--uniqe'; '--unique' may be meant\n");
}

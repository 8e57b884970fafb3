// The options of the tuning program: the parameters of the pruning rules, by the names that the
// console knows.
#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "test_support.h"
#include "search/params.h"
#include "shell/console.h"
#include "shell/options.h"
#include "shell/prepare_search.h"
#include "shell/search_fields.h"

struct TuneOptions : testing::Test {
    void SetUp() override
    {
        set_position(start_position);
        reset_run_state();
    }

    void TearDown() override
    {
        reset_run_state();
        rebuild_search_tables(&dialogue);
    }

    static std::string set(const char* name, std::string value)
    {
        return capture_output([&] { set_option(&dialogue, name, value.data()); });
    }

    static std::string say(std::string line)
    {
        return capture_output([&] { console_command(&dialogue, line.data()); });
    }
};

TEST_F(TuneOptions, EachIsHeldToItsRange)
{
    for (const SearchField& row : search_fields) {
        const i16& value = dialogue.engine_options.search.*row.param;
        const std::string start = std::string("info string ") + row.name + " set to ";
        EXPECT_EQ(set(row.name, "32767"), start + std::to_string(row.highest) + "\n");
        EXPECT_EQ(value, row.highest) << row.name;
        EXPECT_EQ(set(row.name, "-32768"), start + std::to_string(row.lowest) + "\n");
        EXPECT_EQ(value, row.lowest) << row.name;
    }
    EXPECT_EQ(set("FP_Margin", "3"), "");
}

TEST_F(TuneOptions, AllAreAnnouncedBehindTheOthersWithDefaultsInTheirRange)
{
    const std::string output = capture_output([] { announce_options(&dialogue); });
    std::string lines;
    for (const SearchField& row : search_fields) {
        const i16 value = dialogue.saved_options.search.*row.param;
        EXPECT_GE(value, row.lowest) << row.name;
        EXPECT_LE(value, row.highest) << row.name;
        lines += std::string("option name ") + row.name + " type spin default "
            + std::to_string(value) + " min " + std::to_string(row.lowest) + " max "
            + std::to_string(row.highest) + "\n";
    }
    ASSERT_GT(output.size(), lines.size());
    EXPECT_EQ(output.substr(output.size() - lines.size()), lines);
}

TEST_F(TuneOptions, TheConsoleSetsAllOfThemWithoutARange)
{
    for (const SearchField& row : search_fields) {
        const std::string name = row.name;
        EXPECT_EQ(say("set " + name + " 32767"), name + " set to 32767\n");
        EXPECT_EQ(dialogue.engine_options.search.*row.param, 32767) << name;
    }
}

TEST_F(TuneOptions, TheNextSearchUsesThem)
{
    set("FP_base", "70");
    set("FP_margin", "11");
    set("LMR_pv_offset", "200");
    set("LMR_pv_factor", "0");
    rebuild_search_tables(&dialogue);
    EXPECT_EQ(pruning.fp_margin[3], 70 + 3 * 11);
    EXPECT_EQ(pruning.lmr_pv[9][4], 2);
}

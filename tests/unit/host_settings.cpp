// Options by any spelling, and what of them the engine hears.
#include "host/settings.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

static HostSettings known_settings()
{
    HostSettings settings;
    for (const char* line : { "option name ConfigFilePath type string default ",
             "option name Hash type spin default 64 min 0 max 16384",
             "option name Clear_Hash type button", "option name OwnBook type check default false",
             "option name OwnBook_File type string default ",
             "option name Log type check default false",
             "option name MultiPV type spin default 1 min 1 max 255",
             "option name MoveOverhead type spin default 50 min 0 max 5000",
             "option name UCI_LimitStrength type check default false",
             "option name UCI_Elo type spin default 2950 min 1500 max 2950",
             "option name Contempt type spin default 0 min -150 max 150",
             "option name Mtl_Pawn type string default 100,100" }) {
        learn_option(&settings, line);
    }
    add_own_options(&settings);
    return settings;
}

using Lines = std::vector<std::string>;

// Applies settings, which must all be taken, and returns what the engine then hears.
static Lines told(HostSettings* settings, std::initializer_list<const char*> words)
{
    for (const char* text : words) {
        const SettingResult result = change_setting(settings, text);
        EXPECT_EQ(result.remark, "") << text;
        EXPECT_NE(result.changed, nullptr) << text;
    }
    return lines_for_engine(settings, 0);
}

TEST(HostSettings, NamesAreTakenAsHostsWriteThem)
{
    HostSettings settings = known_settings();
    EXPECT_EQ(
        told(&settings, { "name hash value 128" }), Lines { "setoption name Hash value 128" });
    EXPECT_EQ(
        told(&settings, { "name multi pv value 3" }), Lines { "setoption name MultiPV value 3" });
    EXPECT_EQ(told(&settings, { "name OWNBOOK FILE value /a  b/name value.bin" }),
        Lines { "setoption name OwnBook_File value /a  b/name value.bin" });
    EXPECT_EQ(change_setting(&settings, "name clear hash").changed->kind, SettingKind::Button);
    EXPECT_EQ(change_setting(&settings, "name Clear_Hash").changed->kind, SettingKind::Button);
}

TEST(HostSettings, TheEngineHearsOnlyWhatChanges)
{
    HostSettings settings = known_settings();
    EXPECT_EQ(told(&settings, { "name Hash value 64", "name Contempt value 0" }), Lines {});
    EXPECT_EQ(told(&settings, { "name Hash value 32" }).size(), 1u);
    EXPECT_EQ(told(&settings, { "name Hash value 32" }), Lines {});
}

TEST(HostSettings, ValuesAreKeptInRangeOrRefused)
{
    HostSettings settings = known_settings();
    EXPECT_EQ(told(&settings, { "name Hash value 0" }), Lines { "setoption name Hash value 1" });
    EXPECT_EQ(
        told(&settings, { "name Hash value 999999" }), Lines { "setoption name Hash value 16384" });
    EXPECT_EQ(told(&settings, { "name OwnBook value TRUE" }),
        Lines { "setoption name OwnBook value true" });
    for (const char* words : { "name Hash value many", "name Hash", "name OwnBook value untrue",
             "name OwnBook_File value a@b", "name Nosuch value 1", "", "value 3" }) {
        const SettingResult result = change_setting(&settings, words);
        EXPECT_NE(result.remark, "") << words;
        EXPECT_EQ(result.changed, nullptr) << words;
    }
    const std::string long_path = "name OwnBook_File value " + std::string(144, 'a');
    EXPECT_NE(change_setting(&settings, long_path).remark, "");
    EXPECT_EQ(lines_for_engine(&settings, 0), Lines {});
}

TEST(HostSettings, TwoNamesOfOneOptionDoNotUndoEachOther)
{
    HostSettings settings = known_settings();
    EXPECT_EQ(told(&settings, { "name Move Overhead value 300", "name MoveOverhead value 50" }),
        Lines { "setoption name MoveOverhead value 300" });
    EXPECT_EQ(told(&settings, { "name MoveOverhead value 20" }),
        Lines { "setoption name MoveOverhead value 20" });
    EXPECT_EQ(told(&settings, { "name Move Overhead value 10" }),
        Lines { "setoption name MoveOverhead value 10" });
}

TEST(HostSettings, ALimitOfStrengthIsToldAnewAndOnlyWhereItCanBeMet)
{
    HostSettings settings = known_settings();
    EXPECT_EQ(told(&settings, { "name UCI_Elo value 1800" }), Lines {});
    EXPECT_EQ(told(&settings, { "name UCI_LimitStrength value true" }),
        (Lines {
            "setoption name UCI_LimitStrength value true", "setoption name UCI_Elo value 1800" }));
    EXPECT_EQ(told(&settings, { "name UCI_Elo value 2990" }),
        Lines { "setoption name UCI_LimitStrength value false" });
    EXPECT_EQ(told(&settings, { "name UCI_Elo value 1800" }),
        (Lines {
            "setoption name UCI_LimitStrength value true", "setoption name UCI_Elo value 1800" }));
}

TEST(HostSettings, AnalysisHasNoBookAndNoContempt)
{
    HostSettings settings = known_settings();
    (void)told(&settings, { "name OwnBook value true", "name Contempt value 30" });
    EXPECT_EQ(told(&settings, { "name UCI_AnalyseMode value true" }),
        (Lines { "setoption name OwnBook value false", "setoption name Contempt value 0" }));
    EXPECT_EQ(told(&settings, { "name UCI_AnalyseMode value false" }),
        (Lines { "setoption name OwnBook value true", "setoption name Contempt value 30" }));
}

TEST(HostSettings, WhatTheEngineDiesOfGoesBack)
{
    HostSettings settings = known_settings();
    (void)told(&settings, { "name Contempt value 30" });
    confirm_sent(&settings);
    (void)told(&settings, { "name Hash value 16000" });
    EXPECT_EQ(take_back_unconfirmed(&settings), "Hash 16000");
    forget_sent(&settings);
    EXPECT_EQ(lines_for_engine(&settings, 0), Lines { "setoption name Contempt value 30" });
}

TEST(HostSettings, AnnouncesAFixedEloAndItsOwnOptions)
{
    const HostSettings settings = known_settings();
    const Lines lines = option_lines(&settings);
    const auto has = [&lines](std::string_view line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    };
    EXPECT_TRUE(has("option name UCI_Elo type spin default 3000 min 1500 max 3000"));
    EXPECT_TRUE(has("option name Move Overhead type spin default 50 min 0 max 5000"));
    EXPECT_TRUE(has("option name Clear Hash type button"));
    EXPECT_TRUE(has("option name Hash type spin default 64 min 1 max 16384"));
    EXPECT_TRUE(has("option name OwnBook_File type string default <empty>"));
    EXPECT_TRUE(has("option name Debug Log File type string default <empty>"));
}

TEST(HostSettings, SomeLinesForAnAnalysisOfChosenMoves)
{
    HostSettings settings = known_settings();
    EXPECT_EQ(lines_for_engine(&settings, 20), Lines { "setoption name MultiPV value 20" });
    EXPECT_EQ(lines_for_engine(&settings, 0), Lines { "setoption name MultiPV value 1" });
}

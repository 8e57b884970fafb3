// Processor levels: features out of the processor's words, levels out of features, and the sentence
// for a user of an older processor.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "host/level.h"
#include "host/version.h"

// Words of processors that were sold, as their makers publish them.
static constexpr ProcessorWords core_2 = { 0x0008e3fd, 0, 0x1, 0 };
static constexpr ProcessorWords nehalem = { 0x0098e3fd, 0, 0x1, 0 };
static constexpr ProcessorWords haswell = { 0x7ffafbff, 0x000027ab, 0x21, 7 };

TEST(Level, ComesFromTheWordsOfTheProcessor)
{
    EXPECT_STREQ(level_of(features_of(&core_2)), "x86-64");
    EXPECT_STREQ(level_of(features_of(&nehalem)), "x86-64-v2");
    EXPECT_STREQ(level_of(features_of(&haswell)), "x86-64-v3");
    EXPECT_STREQ(level_of(0), "x86-64");
}

TEST(Level, WideRegistersCountOnlyWhereTheSystemKeepsThem)
{
    ProcessorWords words = haswell;
    words.kept_state = 3; // the narrow ones alone
    EXPECT_STREQ(level_of(features_of(&words)), "x86-64-v2");
    EXPECT_EQ(features_of(&words) & (FeatureAvx | FeatureAvx2 | FeatureFma | FeatureF16c), 0U);
    EXPECT_NE(features_of(&words) & FeatureBmi2, 0U);
    words.kept_state = 7;
    words.leaf7_ebx |= 0xd0030000; // the widest, which this system does not keep
    EXPECT_EQ(features_of(&words) & FeatureAvx512F, 0U);
    words.kept_state = 0xe7;
    EXPECT_EQ(features_of(&words)
            & (FeatureAvx512F | FeatureAvx512Bw | FeatureAvx512Cd | FeatureAvx512Dq
                | FeatureAvx512Vl),
        FeatureAvx512F | FeatureAvx512Bw | FeatureAvx512Cd | FeatureAvx512Dq | FeatureAvx512Vl);
}

TEST(Level, EachFeatureOfALevelIsNeededForIt)
{
    const u32 third = features_of(&haswell);
    for (u32 feature = FeatureCx16; feature <= FeatureMovbe; feature *= 2) {
        ASSERT_NE(third & feature, 0U) << feature;
        EXPECT_STREQ(level_of(third & ~feature), feature <= FeaturePopcnt ? "x86-64" : "x86-64-v2")
            << feature;
    }
}

TEST(Level, LackIsToldByTheSystemsNames)
{
    const u32 present = features_of(&nehalem);
    char text[512];
    explain_lack(FeatureAvx2 | FeatureBmi2, present, text, sizeof text);
    EXPECT_STREQ(text,
        "vesk-uci: this program is built for newer processors than this one, which lacks: avx2 "
        "bmi2. Take the program for x86-64-v2, or build it here with: make ARCH=x86-64-v2");
    list_features(0, text, sizeof text);
    EXPECT_STREQ(text, "");
    list_features(~0U, text, 8); // what does not fit is cut
    EXPECT_STREQ(text, "cx16 la");
}

// The names that the system has for its flags; it calls two of them otherwise.
TEST(Level, OfThisProcessorAgreesWithTheSystem)
{
    std::ifstream file("/proc/cpuinfo");
    std::string flags;
    for (std::string line; std::getline(file, line) && flags.empty();) {
        flags = line.compare(0, 5, "flags") == 0 ? line.substr(line.find(':')) + " " : "";
    }
    if (flags.empty()) {
        GTEST_SKIP() << "the system does not list its processor's flags";
    }
    for (u32 feature = FeatureCx16; feature <= FeatureAvx512Vl; feature *= 2) {
        char name[32];
        list_features(feature, name, sizeof name);
        std::string flag = name;
        flag = flag == "sse3" ? "pni" : flag == "lzcnt" ? "abm" : flag;
        EXPECT_EQ((processor_features() & feature) != 0,
            flags.find(" " + flag + " ") != std::string::npos)
            << name;
    }
}

TEST(Level, ThisBuildRunsHere)
{
    EXPECT_EQ(needed_features & ~processor_features(), 0U);
    if (std::string(build_level) == "x86-64-v3") {
        EXPECT_STREQ(level_of(needed_features | FeatureCx16 | FeatureLahf), "x86-64-v3");
    }
    EXPECT_NE(std::string(build_commit), "");
    EXPECT_NE(std::string(build_compiler), "unknown");
}

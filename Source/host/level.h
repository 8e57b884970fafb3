// Processor levels: what the build needs, and what this processor has.
#pragma once

#include "base/types.h"

// What an x86-64 processor may have beyond the oldest of its kind, as bits: what its levels are
// made of, and what a build for one very processor may use beside them.
enum ProcessorFeature : u32 {
    FeatureCx16 = 1U << 0, // the second level, up to popcnt
    FeatureLahf = 1U << 1,
    FeatureSse3 = 1U << 2,
    FeatureSsse3 = 1U << 3,
    FeatureSse41 = 1U << 4,
    FeatureSse42 = 1U << 5,
    FeaturePopcnt = 1U << 6,
    FeatureAvx = 1U << 7, // the third, up to movbe
    FeatureAvx2 = 1U << 8,
    FeatureBmi1 = 1U << 9,
    FeatureBmi2 = 1U << 10,
    FeatureF16c = 1U << 11,
    FeatureFma = 1U << 12,
    FeatureLzcnt = 1U << 13,
    FeatureMovbe = 1U << 14,
    FeatureAvx512F = 1U << 15,
    FeatureAvx512Bw = 1U << 16,
    FeatureAvx512Cd = 1U << 17,
    FeatureAvx512Dq = 1U << 18,
    FeatureAvx512Vl = 1U << 19,
};

// Words that the processor gives of itself, and the state that the system keeps for programs.
struct ProcessorWords {
    u32 leaf1_ecx;
    u32 leaf7_ebx;
    u32 extended_ecx; // of leaf 0x80000001
    u64 kept_state;   // XCR0, 0 where the system does not tell
};

// The features behind such words. Wide registers count only where the system keeps them.
[[nodiscard]] u32 features_of(const ProcessorWords* words);

// The features of this processor; 0 on another kind than x86-64.
[[nodiscard]] u32 processor_features();

// The highest level with a build of its own that has all its features among these: "x86-64",
// "x86-64-v2" or "x86-64-v3", the words that ARCH takes.
[[nodiscard]] const char* level_of(u32 features);

// Writes the names of features, with a blank between them.
void list_features(u32 features, char* text, size_t size);

// The features without which code of this build may not run. Defined beside the build's flags.
extern const u32 needed_features;

// Writes a sentence for a user whose processor lacks these features of the build's.
void explain_lack(u32 lacking, u32 present, char* text, size_t size);

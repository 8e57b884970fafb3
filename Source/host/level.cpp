// The only file of the program that runs on every x86-64 processor: the build compiles it for the
// oldest one and leaves it out of optimising at link time. It looks at the processor before
// anything else runs, so that a user of an old one is told so; without it the program would die at
// the first instruction that is not there, in a chess program without a word. It must call nothing
// of the others' and no inline function of a header: the copy that the linker keeps may be one for
// newer processors.
#include "host/level.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#ifdef __x86_64__
#include <cpuid.h>
#endif

struct FeatureRow {
    u32 feature;
    const char* name; // as the system and the compilers call it
};

static constexpr FeatureRow feature_rows[] = {
    { FeatureCx16, "cx16" },
    { FeatureLahf, "lahf_lm" },
    { FeatureSse3, "sse3" },
    { FeatureSsse3, "ssse3" },
    { FeatureSse41, "sse4_1" },
    { FeatureSse42, "sse4_2" },
    { FeaturePopcnt, "popcnt" },
    { FeatureAvx, "avx" },
    { FeatureAvx2, "avx2" },
    { FeatureBmi1, "bmi1" },
    { FeatureBmi2, "bmi2" },
    { FeatureF16c, "f16c" },
    { FeatureFma, "fma" },
    { FeatureLzcnt, "lzcnt" },
    { FeatureMovbe, "movbe" },
    { FeatureAvx512F, "avx512f" },
    { FeatureAvx512Bw, "avx512bw" },
    { FeatureAvx512Cd, "avx512cd" },
    { FeatureAvx512Dq, "avx512dq" },
    { FeatureAvx512Vl, "avx512vl" },
};

static constexpr u32 second_level = 2 * FeaturePopcnt - 1;
static constexpr u32 third_level = 2 * FeatureMovbe - 1;
// State that the system must keep for a program to use the registers: XMM and YMM, and what the
// widest ones have beside these.
static constexpr u64 avx_state = 0x06;
static constexpr u64 avx512_state = 0xe6;

struct BitRow {
    u32 bit;
    u32 feature;
};

static constexpr BitRow leaf1_rows[] = {
    { 0, FeatureSse3 },
    { 9, FeatureSsse3 },
    { 12, FeatureFma },
    { 13, FeatureCx16 },
    { 19, FeatureSse41 },
    { 20, FeatureSse42 },
    { 22, FeatureMovbe },
    { 23, FeaturePopcnt },
    { 28, FeatureAvx },
    { 29, FeatureF16c },
};
static constexpr BitRow leaf7_rows[] = {
    { 3, FeatureBmi1 },
    { 5, FeatureAvx2 },
    { 8, FeatureBmi2 },
    { 16, FeatureAvx512F },
    { 17, FeatureAvx512Dq },
    { 28, FeatureAvx512Cd },
    { 30, FeatureAvx512Bw },
    { 31, FeatureAvx512Vl },
};
static constexpr BitRow extended_rows[] = {
    { 0, FeatureLahf },
    { 5, FeatureLzcnt },
};

u32 features_of(const ProcessorWords* words)
{
    u32 features = 0;
    for (const BitRow& row : leaf1_rows) {
        features |= (words->leaf1_ecx >> row.bit & 1) != 0 ? row.feature : 0;
    }
    for (const BitRow& row : leaf7_rows) {
        features |= (words->leaf7_ebx >> row.bit & 1) != 0 ? row.feature : 0;
    }
    for (const BitRow& row : extended_rows) {
        features |= (words->extended_ecx >> row.bit & 1) != 0 ? row.feature : 0;
    }
    constexpr u32 narrow_avx = FeatureAvx | FeatureAvx2 | FeatureF16c | FeatureFma;
    constexpr u32 wide_avx =
        FeatureAvx512F | FeatureAvx512Bw | FeatureAvx512Cd | FeatureAvx512Dq | FeatureAvx512Vl;
    if ((words->kept_state & avx_state) != avx_state) {
        features &= ~(narrow_avx | wide_avx);
    }
    if ((words->kept_state & avx512_state) != avx512_state) {
        features &= ~wide_avx;
    }
    return features;
}

u32 processor_features()
{
#ifdef __x86_64__
    ProcessorWords words = {};
    u32 eax = 0;
    u32 ebx = 0;
    u32 ecx = 0;
    u32 edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0) {
        words.leaf1_ecx = ecx;
    }
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0) {
        words.leaf7_ebx = ebx;
    }
    if (__get_cpuid(0x80000001, &eax, &ebx, &ecx, &edx) != 0) {
        words.extended_ecx = ecx;
    }
    constexpr u32 state_is_told = 1U << 27; // in leaf 1: the instruction may be used
    if ((words.leaf1_ecx & state_is_told) != 0) {
        u32 low = 0;
        u32 high = 0;
        asm("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
        words.kept_state = (static_cast<u64>(high) << 32) | low;
    }
    return features_of(&words);
#else
    return 0;
#endif
}

const char* level_of(u32 features)
{
    if ((features & third_level) == third_level) {
        return "x86-64-v3";
    }
    return (features & second_level) == second_level ? "x86-64-v2" : "x86-64";
}

void list_features(u32 features, char* text, size_t size)
{
    text[0] = '\0';
    for (const FeatureRow& row : feature_rows) {
        if ((features & row.feature) != 0) {
            const size_t used = strlen(text);
            snprintf(text + used, size - used, "%s%s", used > 0 ? " " : "", row.name);
        }
    }
}

void explain_lack(u32 lacking, u32 present, char* text, size_t size)
{
    char names[256];
    list_features(lacking, names, sizeof names);
    snprintf(text, size,
        "vesk-uci: this program is built for newer processors than this one, which lacks: %s. "
        "Take the program for %s, or build it here with: make ARCH=%s",
        names, level_of(present), level_of(present));
}

// Nobody may come before it, neither main nor what other files do at the start: hence the lowest
// number that programs may use. A chess program shows its user what comes by standard output, if
// anything, so the sentence goes there too where no user sits.
[[gnu::constructor(101)]] static void refuse_old_processor()
{
    const u32 present = processor_features();
    const u32 lacking = needed_features & ~present;
    if (lacking == 0) {
        return;
    }
    char text[512];
    explain_lack(lacking, present, text, sizeof text);
    dprintf(STDERR_FILENO, "%s\n", text);
    if (isatty(STDOUT_FILENO) == 0) {
        dprintf(STDOUT_FILENO, "info string %s\n", text);
    }
    _exit(EXIT_FAILURE);
}

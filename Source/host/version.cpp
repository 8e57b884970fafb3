// What the compiler tells of the build. Nothing here is code, so that it may be read on any
// processor.
#include "host/version.h"

#include "host/level.h"

#if defined(__clang__)
const char build_compiler[] = "Clang " __clang_version__;
#elif defined(__GNUC__)
const char build_compiler[] = "GCC " __VERSION__;
#else
const char build_compiler[] = "unknown";
#endif

const char build_level[] = VESK_LEVEL;

// By what the compiler says that it may use, not by the name of a level: a build for one very
// processor has none. Two features of the second level are left out: no code comes to need them
// unasked, and some virtual machines hide them.
const u32 needed_features = 0
#ifdef __SSE3__
    | FeatureSse3
#endif
#ifdef __SSSE3__
    | FeatureSsse3
#endif
#ifdef __SSE4_1__
    | FeatureSse41
#endif
#ifdef __SSE4_2__
    | FeatureSse42
#endif
#ifdef __POPCNT__
    | FeaturePopcnt
#endif
#ifdef __AVX__
    | FeatureAvx
#endif
#ifdef __AVX2__
    | FeatureAvx2
#endif
#ifdef __BMI__
    | FeatureBmi1
#endif
#ifdef __BMI2__
    | FeatureBmi2
#endif
#ifdef __F16C__
    | FeatureF16c
#endif
#ifdef __FMA__
    | FeatureFma
#endif
#ifdef __LZCNT__
    | FeatureLzcnt
#endif
#ifdef __MOVBE__
    | FeatureMovbe
#endif
#ifdef __AVX512F__
    | FeatureAvx512F
#endif
#ifdef __AVX512BW__
    | FeatureAvx512Bw
#endif
#ifdef __AVX512CD__
    | FeatureAvx512Cd
#endif
#ifdef __AVX512DQ__
    | FeatureAvx512Dq
#endif
#ifdef __AVX512VL__
    | FeatureAvx512Vl
#endif
    ;

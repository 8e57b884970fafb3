// Rounding that no optimiser undoes. Scores are the same on every build because each step of their
// arithmetic is rounded to the type that it names.
#pragma once

#include "base/types.h"

// The f32 nearest to value; every f64 that is narrowed goes through here. A plain cast is not
// enough: at -O3, GCC 12 merges two that stand side by side into one vector and, where the results
// are widened again, computes on with the f64 that were never rounded. The empty statement takes
// the result in a register and may have changed it for all that the compiler knows, so that the
// rounded value has to be made; it is no instruction. Elsewhere memory does the same.
inline f32 to_f32(f64 value)
{
    f32 narrowed = static_cast<f32>(value);
#if defined(__x86_64__)
    asm("" : "+x"(narrowed));
#elif defined(__aarch64__)
    asm("" : "+w"(narrowed));
#else
    volatile f32 kept = narrowed;
    narrowed = kept;
#endif
    return narrowed;
}

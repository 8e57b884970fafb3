// The benchmark: the engine's own, with a last line of the form that test systems read.
#pragma once

#include "base/types.h"

// Plies. The engine's signature is that of the first.
inline constexpr i32 default_bench_depth = 10;
inline constexpr i32 deepest_bench = 40;

// Runs the engine's benchmark to a depth of 1 to deepest_bench on one thread and prints its lines
// to standard output, each as it comes; the last one is "NUMBER nodes NUMBER nps". Before it a line
// tells of a file of weights in the folder, which changes the nodes. Returns 0, or 1 if the engine
// did not come to its end, which standard error is told. The engine runs in a process of its own,
// which ends with this one, so any process may call it, also several times.
[[nodiscard]] int print_benchmark(i32 depth);

// The words of vesk-uci's command line. Each runs to its end and returns the status of the process:
// 0, 1 where something was wanting or failed, 2 for a command line that cannot be understood.
#pragma once

#include <span>

// What stands behind the word, the word itself not among it.
using Arguments = std::span<char* const>;

// Says how the program is called: on standard output with status 0 if that was asked for.
[[nodiscard]] int run_help(Arguments arguments);

// Version, compiler, processor level and commit, a line each.
[[nodiscard]] int run_version(Arguments arguments);

// The benchmark: "bench [depth]". The last line is "NUMBER nodes NUMBER nps".
[[nodiscard]] int run_bench(Arguments arguments);

// Checks this machine and folder against the build and the usual settings, and says what to put
// into a chess program.
[[nodiscard]] int run_doctor(Arguments arguments);

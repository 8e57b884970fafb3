// The words of vesk-uci's command line. Each runs to its end and returns the status of the process:
// 0, 1 where something was wanting or failed, 2 for a command line that cannot be understood, of
// which standard error is told and nothing is run.
#pragma once

#include <span>

// What stands behind the word, the word itself not among it.
using Arguments = std::span<char* const>;

// Runs the word that stands first among these, which are not empty.
[[nodiscard]] int run_word(Arguments words);

// Says how the program is called.
[[nodiscard]] int run_help(Arguments arguments);

// Version, compiler, processor level and commit, a line each.
[[nodiscard]] int run_version(Arguments arguments);

// The benchmark: "bench [depth]". The last line is "NUMBER nodes NUMBER nps".
[[nodiscard]] int run_bench(Arguments arguments);

// Checks this machine and folder against the build and the usual settings, and says what to put
// into a chess program: "doctor [--tables PATH] [--book FILE]...".
[[nodiscard]] int run_doctor(Arguments arguments);

// For the words themselves. Says on standard error what is wrong with the command line, and where
// to look; returns 2.
[[gnu::format(printf, 1, 2)]] int refuse_words(const char* format, ...);

// What a word that has run to its end returns: its status, or 1 if standard output did not take all
// that was printed.
[[nodiscard]] int finish_output(int status);

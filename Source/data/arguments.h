// The options and files of a word's command line.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"

// What stands behind a word, the word itself not among it.
using Arguments = std::span<char* const>;

// The status of a command line that cannot be understood.
inline constexpr int usage_status = 2;

// What every word can be asked for.
struct CommonOptions {
    bool help = false;        // --help: the word's own page
    bool json = false;        // --json: a report for scripts instead of one for people
    bool quiet = false;       // --quiet: no progress
    i64 jobs = 1;             // --jobs N: threads; the output is the same for any number
    i64 max_messages = 20;    // --max-messages N: refusals told singly; all are counted
    std::string output = "-"; // --output FILE; "-" is standard output
    std::string report;       // --report FILE: where the report goes, "-" is standard output;
                              // empty: standard error, or standard output where that is free
};

// One option: its name with both dashes, and where its value goes. One of the targets is set; a
// flag takes no value. Numbers are read strictly, as a whole and within their range.
struct WordOption {
    std::string_view name;
    bool* flag = nullptr;
    i64* whole = nullptr;
    f64* real = nullptr;
    std::string* text = nullptr;
    std::vector<std::string>* texts = nullptr; // may be given several times
    f64 least = 0.0;
    f64 greatest = 0.0;
    std::span<const std::string_view> choices = {}; // the texts that are allowed; empty: any
};

// Reads the command line of a word: its own options, those of CommonOptions, and files, which are
// everything else ("-" among them; behind "--" all is a file). A value stands behind its option or
// is joined to it by "=". Names that nothing can be written under, and a report in the place of an
// input or of the output, are refused before anything is lost. Returns false after telling standard
// error what cannot be understood.
[[nodiscard]] bool read_arguments(Arguments arguments, std::span<const WordOption> options,
    CommonOptions* common, std::vector<std::string>* files);

// Says on standard error what is wrong with the command line, and where to look; returns
// usage_status. word may be null.
[[gnu::format(printf, 2, 3)]] int refuse_data_words(const char* word, const char* format, ...);

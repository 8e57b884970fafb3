// The table of words, and what is said of a wrong one.
#include "data/words.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/nearest_word.h"
#include "base/version.h"
#include "data/arguments.h"
#include "data/streams.h"

static int run_data_version(Arguments arguments);

struct CommandWord {
    std::string_view word;
    int (*run)(Arguments arguments);
};

static constexpr CommandWord command_words[] = {
    { "book", run_book },
    { "explain", run_explain },
    { "games", run_games },
    { "positions", run_positions },
    { "tables", run_tables },
    { "--version", run_data_version },
    { "--help", run_data_help },
    { "help", run_data_help },
    { "-h", run_data_help },
};

int run_data_word(Arguments words)
{
    const std::string_view word = words.front();
    const auto* row = std::ranges::find(command_words, word, &CommandWord::word);
    if (row != std::end(command_words)) {
        return row->run(words.subspan(1));
    }
    std::array<std::string_view, std::size(command_words)> names;
    std::ranges::transform(command_words, names.begin(), &CommandWord::word);
    const std::string_view near = nearest_word(word, names);
    if (!near.empty()) {
        return refuse_data_words(
            nullptr, "there is no word '%s'; '%s' may be meant", words.front(), near.data());
    }
    return refuse_data_words(nullptr, "there is no word '%s'", words.front());
}

int run_data_help(Arguments arguments)
{
    if (arguments.size() == 1 && arguments[0][0] != '-') {
        char option[] = "--help";
        char* words[] = { arguments[0], option };
        return run_data_word(words);
    }
    if (!arguments.empty()) {
        return refuse_data_words(nullptr, "--help takes one word at most");
    }
    puts("vesk-data, what is in games, positions, books and tables\n"
         "\n"
         "  vesk-data WORD [OPTIONS] FILES\n"
         "\n"
         "Words; each has a page of its own: vesk-data WORD --help\n"
         "\n"
         "  book        opening books: check, dump, play, diff, merge, prune\n"
         "  explain     why the evaluation judges a position as it does\n"
         "  games       PGN of any program for the scanner and the book builder\n"
         "  positions   lines for training and for test suites: checked, mixed, counted\n"
         "  tables      whether endgame tables are sound\n"
         "  --version   version, and which packed files can be read\n"
         "\n"
         "For all words but tables FILES may be - for standard input, and packed as .gz or .zst.\n"
         "For all words:\n"
         "\n"
         "  --output FILE      where what is made goes; - is standard output, the default\n"
         "  --json             the report for scripts, with what was refused\n"
         "  --report FILE      the report goes there\n"
         "  --jobs N           threads; the output is the same for any number\n"
         "  --max-messages N   how many refusals, and notes, are told singly; all are counted\n"
         "  --quiet            no progress\n"
         "\n"
         "Status: 0 all was used, 1 something was refused or failed, 2 wrong command line.");
    return 0;
}

static int run_data_version(Arguments arguments)
{
    if (!arguments.empty()) {
        return refuse_data_words(nullptr, "--version takes nothing behind it");
    }
    printf("%s\npacked files  %s\n", version_string, packed_forms);
    return 0;
}

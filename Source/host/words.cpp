// The table of words, what is said of a wrong one, and the words that are short to say. A chess
// program starts its engine without a word, so whoever writes one sits at a shell: a mistake is
// told, with the word that was probably meant, and never taken for something else.
#include "host/words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <system_error>

#include "base/files.h"
#include "base/nearest_word.h"
#include "base/types.h"
#include "base/version.h"
#include "host/bench_word.h"
#include "host/version.h"

struct CommandWord {
    std::string_view word;
    int (*run)(Arguments arguments);
};

static constexpr CommandWord command_words[] = {
    { "bench", run_bench },
    { "doctor", run_doctor },
    { "--version", run_version },
    { "--help", run_help },
    { "-h", run_help },
};

// The word that was probably meant; null if none is near.
static const char* guess_word(std::string_view word)
{
    std::array<std::string_view, std::size(command_words)> names;
    std::ranges::transform(command_words, names.begin(), &CommandWord::word);
    const std::string_view near = nearest_word(word, names);
    return near.empty() ? nullptr : near.data();
}

int refuse_words(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fputs("vesk-uci: ", stderr);
    vfprintf(stderr, format, arguments);
    fputs("\nTry: vesk-uci --help\n", stderr);
    va_end(arguments);
    return 2;
}

int finish_output(int status)
{
    if (const int error = flush_written_file(stdout); error != 0) {
        complain("standard output", "cannot be written", error);
        return 1;
    }
    return status;
}

int run_word(Arguments words)
{
    const std::string_view word = words.front();
    for (const CommandWord& row : command_words) {
        if (row.word == word) {
            return row.run(words.subspan(1));
        }
    }
    if (const char* near = guess_word(word)) {
        return refuse_words("there is no word '%s'; '%s' may be meant", words.front(), near);
    }
    if (word.starts_with('-')) {
        return refuse_words("there is no option '%s'; those of vesk, the engine alone, are not "
                            "vesk-uci's",
            words.front());
    }
    return refuse_words(
        "there is no word '%s'; a chess program starts vesk-uci without any", words.front());
}

int run_help(Arguments arguments)
{
    if (!arguments.empty()) {
        return refuse_words("--help takes nothing behind it, and there is '%s'", arguments[0]);
    }
    puts(
        "vesk-uci, the chess engine Vesk for chess programs (UCI)\n"
        "\n"
        "  vesk-uci                 the dialogue with a chess program\n"
        "  vesk-uci bench [DEPTH]   the benchmark: twenty positions on one thread, to depth 10\n"
        "  vesk-uci doctor          checks this machine, and tells what to set in a chess program\n"
        "      --tables PATH        and the endgame tables there (folders, a colon between them)\n"
        "      --book FILE          and an opening book\n"
        "  vesk-uci --version       version, compiler, processor level, commit\n"
        "  vesk-uci --help          this page\n"
        "\n"
        "A chess program needs the path of this program and no words. The dialogue can be tried\n"
        "by hand: start it, type \"help\", and \"quit\" to end it.");
    return finish_output(0);
}

int run_version(Arguments arguments)
{
    if (!arguments.empty()) {
        return refuse_words("--version takes nothing behind it, and there is '%s'", arguments[0]);
    }
    printf("%s\ncompiler         %s\nprocessor level  %s\ncommit           %s\n", version_string,
        build_compiler, build_level, build_commit);
    return finish_output(0);
}

int run_bench(Arguments arguments)
{
    if (arguments.size() > 1) {
        return refuse_words(
            "bench takes a depth at most, and behind it there is '%s'", arguments[1]);
    }
    i32 depth = default_bench_depth;
    if (!arguments.empty()) {
        const std::string_view text = arguments[0];
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), depth);
        if (error != std::errc {} || end != text.data() + text.size() || depth < 1
            || depth > deepest_bench) {
            return refuse_words(
                "bench takes a depth from 1 to %d, not '%s'", deepest_bench, arguments[0]);
        }
    }
    return finish_output(print_benchmark(depth));
}

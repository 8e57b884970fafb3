// The program vesk-uci: the engine with the manners of a chess program's guest around it. Without a
// word on the command line it is the UCI dialogue.
#include <cstdio>
#include <string_view>

#include "host/relay.h"
#include "host/words.h"

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

int main(int argc, char** argv)
{
    if (argc < 2) {
        return run_relay();
    }
    const Arguments arguments(argv + 2, static_cast<size_t>(argc - 2));
    for (const CommandWord& row : command_words) {
        if (row.word == argv[1]) {
            return row.run(arguments);
        }
    }
    fprintf(
        stderr, "vesk-uci: '%s' is no word of its command line; try vesk-uci --help\n", argv[1]);
    return 2;
}

// The words of a run of games against itself on the command line. All begin with -selfplay; a word
// of that form that is none is refused rather than ignored, since the games of a night with other
// settings than those meant are lost.
#include "tools/selfplay/selfplay_options.h"

#include <cstdio>
#include <string_view>

#include "tools/number_option.h"

// What a user gets who sets nothing; the units stand at the fields. Searches of 5000 nodes are deep
// enough to see tactics and short enough for a hundred thousand games in a night. Games end when
// both sides have agreed on the result for some moves, as what follows teaches nothing.
constinit SelfplayOptions selfplay_options = {
    .games = 0,
    .out = nullptr,
    .lines = nullptr,
    .openings = nullptr,
    .first = 1,
    .seed = 1,
    .nodes = 5000,
    .depth = 0,
    .spread = 20,
    .random = -1,
    .balance = 100,
    .resign = 1000,
    .draw = 5,
    .hash = 8,
    .resume = false,
};

// Ranges keep nonsense out, not bad choices.
static constexpr NumberOption number_options[] = {
    { "-selfplay", 1.0, 1e9, nullptr, &selfplay_options.games },
    { "-selfplay-first", 1.0, 1e12, nullptr, &selfplay_options.first },
    { "-selfplay-seed", 0.0, 1e15, nullptr, &selfplay_options.seed },
    { "-selfplay-nodes", 100.0, 1e9, nullptr, &selfplay_options.nodes },
    { "-selfplay-depth", 1.0, 60.0, nullptr, &selfplay_options.depth },
    { "-selfplay-spread", 0.0, 90.0, nullptr, &selfplay_options.spread },
    { "-selfplay-random", 0.0, 40.0, nullptr, &selfplay_options.random },
    { "-selfplay-balance", 0.0, 5000.0, nullptr, &selfplay_options.balance },
    { "-selfplay-resign", 0.0, 9000.0, nullptr, &selfplay_options.resign },
    { "-selfplay-draw", -1.0, 1000.0, nullptr, &selfplay_options.draw },
    { "-selfplay-hash", 1.0, 1024.0, nullptr, &selfplay_options.hash },
};

// An option that names a file.
struct FileOption {
    std::string_view name;
    const char** file;
};

static constexpr FileOption file_options[] = {
    { "-selfplay-out", &selfplay_options.out },
    { "-selfplay-lines", &selfplay_options.lines },
    { "-selfplay-openings", &selfplay_options.openings },
};

static constexpr i32 refused = -1;

i32 take_selfplay_arguments(char* const* arguments, i32 count)
{
    const std::string_view name = arguments[0];
    if (!name.starts_with("-selfplay")) {
        return 0;
    }
    const char* value = count > 1 ? arguments[1] : nullptr;
    if (name == "-selfplay-resume") {
        selfplay_options.resume = true;
        return 1;
    }
    for (const NumberOption& option : number_options) {
        if (name == option.name) {
            return set_number(option, value) ? 2 : refused;
        }
    }
    for (const FileOption& option : file_options) {
        if (name == option.name) {
            if (value == nullptr || value[0] == '\0' || value[0] == '-') {
                fprintf(stderr, "option %s needs a file\n", arguments[0]);
                return refused;
            }
            *option.file = value;
            return 2;
        }
    }
    fprintf(stderr, "there is no option %s\n", arguments[0]);
    return refused;
}

bool selfplay_is_complete()
{
    if (selfplay_options.games == 0) {
        fprintf(stderr, "option -selfplay needs a number of games\n");
        return false;
    }
    if (selfplay_options.out == nullptr) {
        fprintf(stderr, "option -selfplay needs -selfplay-out and a file for the games\n");
        return false;
    }
    return true;
}

// The tuner's words on the command line. All of them begin with -tune; a word of that form that is
// none is refused rather than ignored, since a training with other settings than those meant costs
// hours.
#include "tools/trainer/trainer_options.h"

#include <cstdio>
#include <string_view>

#include "base/output.h"
#include "base/text.h"
#include "eval/weights.h"
#include "tools/number_option.h"
#include "tools/training_line.h"

// What a user gets who sets nothing; the units stand at the fields.
constinit TuneOptions tune_options = {
    .file = nullptr,
    .shards = nullptr,
    .shard_count = 0,
    .replaces = false,
    .rate = 0.5,
    .decay = 0.0,
    .pull = 0.0,
    .smooth = 0.0,
    .score_share = score_share,
    .late = 1.0,
    .near_draw = 0.0,
    .fits_scale = false,
    .passes = 50,
    .validation = 10,
    .patience = 3,
    .seed = 1,
    .memory = 2048,
    .save_every = 10000000,
    .resume = false,
};

// Ranges keep nonsense out, not bad choices: at least a tenth of the lines must train, and whole
// numbers must be exact as real ones.
static constexpr NumberOption tune_numbers[] = {
    { "-tune-rate", 0.0001, 100.0, &tune_options.rate, nullptr },
    { "-tune-decay", 0.0, 99.0, &tune_options.decay, nullptr },
    { "-tune-pull", 0.0, 1e9, &tune_options.pull, nullptr },
    { "-tune-smooth", 0.0, 1e9, &tune_options.smooth, nullptr },
    { "-tune-score-share", 0.0, 1.0, &tune_options.score_share, nullptr },
    { "-tune-late", 0.01, 100.0, &tune_options.late, nullptr },
    { "-tune-near-draw", 0.0, 1e6, &tune_options.near_draw, nullptr },
    { "-tune-passes", 0.0, 1e6, nullptr, &tune_options.passes },
    { "-tune-validation", 0.0, 90.0, nullptr, &tune_options.validation },
    { "-tune-patience", 0.0, 1e6, nullptr, &tune_options.patience },
    { "-tune-seed", 0.0, 1e15, nullptr, &tune_options.seed },
    { "-tune-memory", 0.0, 1e7, nullptr, &tune_options.memory },
    { "-tune-save-every", 0.0, 1e15, nullptr, &tune_options.save_every },
};

static constexpr i32 refused = -1;

// The file behind -tune and the names behind it, up to the next option. More names than there is
// room for are refused, since the others would silently not be trained.
static i32 take_file_and_names(char* const* arguments, i32 count)
{
    if (count < 2 || arguments[1][0] == '-') {
        fprintf(stderr, "option -tune needs a file\n");
        return refused;
    }
    tune_options.file = arguments[1];
    tune_options.shards = nullptr;
    i32 taken = 2;
    for (; taken < count && arguments[taken][0] != '-'; ++taken) {
        if (tune_names.count >= tune_list_size) {
            fprintf(stderr, "option -tune takes at most %d names of weights\n", tune_list_size);
            return refused;
        }
        copy_text(tune_names.name[tune_names.count++], sizeof tune_names.name[0], arguments[taken]);
    }
    return taken;
}

// The file to be written and those to be read, up to the next option.
static i32 take_shards(char* const* arguments, i32 count)
{
    i32 taken = 1;
    while (taken < count && arguments[taken][0] != '-') {
        ++taken;
    }
    if (taken < 3) {
        fprintf(stderr, "option -merge needs the file to be written and those to be merged\n");
        return refused;
    }
    tune_options.file = arguments[1];
    tune_options.shards = arguments + 2;
    tune_options.shard_count = taken - 2;
    return taken;
}

// What is off is left out, but for what every training has.
void print_tune_settings()
{
    print_plain("target: %g of the result, %g of the score; factor of the logistic %s\n",
        1.0 - tune_options.score_share, tune_options.score_share,
        tune_options.fits_scale ? "fitted to the results first" : "0.007");
    print_plain("steps: up to %g centipawns", tune_options.rate);
    if (tune_options.decay > 0.0) {
        print_plain(", %g per cent less from pass to pass", tune_options.decay);
    }
    print_plain("\n");
    if (tune_options.pull > 0.0) {
        print_plain("pull: a weight's start value is worth %g positions\n", tune_options.pull);
    }
    if (tune_options.smooth > 0.0) {
        print_plain(
            "smoothness: that neighbours move alike is worth %g positions\n", tune_options.smooth);
    }
    if (tune_options.late != 1.0) {
        print_plain(
            "emphasis: the barest ending counts %g times the fullest board\n", tune_options.late);
    }
    if (tune_options.near_draw > 0.0) {
        print_plain("emphasis: a score of %g counts half\n", tune_options.near_draw);
    }
}

// Words of the engine itself are left to it.
i32 take_tune_arguments(char* const* arguments, i32 count)
{
    const std::string_view name = arguments[0];
    if (name == "-tune") {
        return take_file_and_names(arguments, count);
    }
    if (name == "-merge") {
        return take_shards(arguments, count);
    }
    if (name == "-merge-replace") {
        tune_options.replaces = true;
        return 1;
    }
    if (name == "-tune-resume") {
        tune_options.resume = true;
        return 1;
    }
    if (name == "-tune-fit-scale") {
        tune_options.fits_scale = true;
        return 1;
    }
    for (const NumberOption& option : tune_numbers) {
        if (name == option.name) {
            return set_number(option, count > 1 ? arguments[1] : nullptr) ? 2 : refused;
        }
    }
    if (name.starts_with("-tune-")) {
        fprintf(stderr, "there is no option %s\n", arguments[0]);
        return refused;
    }
    return 0;
}

// The tuner's words on the command line. All of them begin with -tune; a word of that form that is
// none is refused rather than ignored, since a training with other settings than those meant costs
// hours.
#include "tools/trainer/trainer_options.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "base/output.h"
#include "base/text.h"
#include "eval/weights.h"

// What a user gets who sets nothing; the units stand at the fields.
constinit TuneOptions tune_options = {
    .file = nullptr,
    .rate = 0.5,
    .passes = 50,
    .validation = 10,
    .patience = 3,
    .seed = 1,
    .memory = 2048,
    .save_every = 10000000,
    .resume = false,
};

// An option with a number; one of the two fields takes it.
struct TuneNumber {
    const char* name;
    f64 least;
    f64 greatest;
    f64* real;
    i64* whole;
};

// Ranges keep nonsense out, not bad choices: at least a tenth of the lines must train, and whole
// numbers must be exact as real ones.
static constexpr TuneNumber tune_numbers[] = {
    { "-tune-rate", 0.0001, 100.0, &tune_options.rate, nullptr },
    { "-tune-passes", 1.0, 1e6, nullptr, &tune_options.passes },
    { "-tune-validation", 0.0, 90.0, nullptr, &tune_options.validation },
    { "-tune-patience", 0.0, 1e6, nullptr, &tune_options.patience },
    { "-tune-seed", 0.0, 1e15, nullptr, &tune_options.seed },
    { "-tune-memory", 0.0, 1e7, nullptr, &tune_options.memory },
    { "-tune-save-every", 0.0, 1e15, nullptr, &tune_options.save_every },
};

static constexpr i32 refused = -1;

// Reads a number as a whole: one with something behind it, as 10k, is refused. The range comes
// before the conversion, which is undefined beyond it. Takes the name and the value.
static i32 take_number(const TuneNumber& option, const char* text)
{
    char* end = nullptr;
    const f64 value = text == nullptr ? 0.0 : strtod(text, &end);
    const bool is_number = text != nullptr && end != text && *end == '\0';
    const bool is_whole = option.whole == nullptr
        || value
            == static_cast<f64>(
                static_cast<i64>(value >= option.least && value <= option.greatest ? value : 0.0));
    if (!is_number || !(value >= option.least && value <= option.greatest) || !is_whole) {
        fprintf(stderr, "option %s needs a %snumber from %.15g to %.15g\n", option.name,
            option.whole != nullptr ? "whole " : "", option.least, option.greatest);
        return refused;
    }
    if (option.whole != nullptr) {
        *option.whole = static_cast<i64>(value);
    } else {
        *option.real = value;
    }
    return 2;
}

// The file behind -tune and the names behind it, up to the next option. More names than there is
// room for are refused, since the others would silently not be trained.
static i32 take_file_and_names(char* const* arguments, i32 count)
{
    if (count < 2 || arguments[1][0] == '-') {
        fprintf(stderr, "option -tune needs a file\n");
        return refused;
    }
    tune_options.file = arguments[1];
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

// Words of the engine itself are left to it.
i32 take_tune_arguments(char* const* arguments, i32 count)
{
    const std::string_view name = arguments[0];
    if (name == "-tune") {
        return take_file_and_names(arguments, count);
    }
    if (name == "-tune-resume") {
        tune_options.resume = true;
        return 1;
    }
    for (const TuneNumber& option : tune_numbers) {
        if (name == option.name) {
            return take_number(option, count > 1 ? arguments[1] : nullptr);
        }
    }
    if (name.starts_with("-tune-")) {
        fprintf(stderr, "there is no option %s\n", arguments[0]);
        return refused;
    }
    return 0;
}

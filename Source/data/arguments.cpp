// Reading command lines strictly: a run with other settings than those meant costs hours.
#include "data/arguments.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "base/nearest_word.h"
#include "data/places.h"
#include "tools/number_option.h"

static constexpr f64 most_jobs = 256.0;
static constexpr f64 most_messages = 1e9;

int refuse_data_words(const char* word, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fprintf(stderr, "vesk-data%s%s: ", word != nullptr ? " " : "", word != nullptr ? word : "");
    vfprintf(stderr, format, arguments);
    fprintf(stderr, "\nTry: vesk-data %s%s--help\n", word != nullptr ? word : "",
        word != nullptr ? " " : "");
    va_end(arguments);
    return usage_status;
}

// The names of a number of options, for a guess at the one that was meant.
static std::vector<std::string_view> names_of(const std::vector<WordOption>& options)
{
    std::vector<std::string_view> names;
    names.reserve(options.size());
    for (const WordOption& option : options) {
        names.push_back(option.name);
    }
    return names;
}

static bool refuse_unknown(std::string_view name, const std::vector<WordOption>& options)
{
    const std::string_view near = nearest_word(name, names_of(options));
    const int size = static_cast<int>(name.size());
    if (near.empty()) {
        fprintf(stderr, "vesk-data: there is no option '%.*s'\n", size, name.data());
    } else {
        fprintf(stderr, "vesk-data: there is no option '%.*s'; '%.*s' may be meant\n", size,
            name.data(), static_cast<int>(near.size()), near.data());
    }
    return false;
}

static bool refuse_choice(const WordOption& option, std::string_view value)
{
    fprintf(stderr, "vesk-data: option %s cannot be '%.*s'; it can be", option.name.data(),
        static_cast<int>(value.size()), value.data());
    for (const std::string_view choice : option.choices) {
        fprintf(stderr, " %.*s", static_cast<int>(choice.size()), choice.data());
    }
    fputc('\n', stderr);
    return false;
}

static bool set_value(const WordOption& option, const char* value)
{
    if (option.whole != nullptr || option.real != nullptr) {
        const NumberOption number = { .name = option.name.data(),
            .least = option.least,
            .greatest = option.greatest,
            .real = option.real,
            .whole = option.whole };
        return set_number(number, value);
    }
    // An empty one is a variable of a script that was never set, and no wish for all there is.
    if (value == nullptr || *value == '\0') {
        fprintf(stderr, "vesk-data: option %s needs a value\n", option.name.data());
        return false;
    }
    if (!option.choices.empty()
        && std::ranges::find(option.choices, value) == option.choices.end()) {
        return refuse_choice(option, value);
    }
    if (option.texts != nullptr) {
        option.texts->push_back(value);
    } else {
        *option.text = value;
    }
    return true;
}

static bool refuse_place(std::string_view name, const std::string& file, const char* problem)
{
    fprintf(stderr, "vesk-data: option %.*s: '%s' %s\n", static_cast<int>(name.size()), name.data(),
        file.c_str(), problem);
    return false;
}

// The report is written at the end of the run, when it is too late for complaints, and in the place
// of an older file.
static bool check_places(const CommonOptions& common, const std::vector<std::string>& files)
{
    if (common.report.empty() || common.report == "-") {
        return true;
    }
    if (const char* problem = place_problem(common.report)) {
        return refuse_place("--report", common.report, problem);
    }
    if (!is_plain_place(common.report)) {
        return true;
    }
    if (common.output != "-" && is_same_place(common.report, common.output)) {
        return refuse_place("--report", common.report, "is where the output goes");
    }
    for (const std::string& file : files) {
        if (file != "-" && is_same_place(common.report, file)) {
            return refuse_place("--report", common.report, "is an input");
        }
    }
    return true;
}

bool read_arguments(Arguments arguments, std::span<const WordOption> options, CommonOptions* common,
    std::vector<std::string>* files)
{
    std::vector<WordOption> all(options.begin(), options.end());
    const WordOption shared[] = {
        { .name = "--help", .flag = &common->help },
        { .name = "--json", .flag = &common->json },
        { .name = "--quiet", .flag = &common->quiet },
        { .name = "--jobs", .whole = &common->jobs, .least = 1.0, .greatest = most_jobs },
        { .name = "--max-messages", .whole = &common->max_messages, .greatest = most_messages },
        { .name = "--output", .text = &common->output },
        { .name = "--report", .text = &common->report },
    };
    all.insert(all.end(), std::begin(shared), std::end(shared));

    bool only_files = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (only_files || argument == "-" || !argument.starts_with('-')) {
            files->emplace_back(argument);
            continue;
        }
        if (argument == "--") {
            only_files = true;
            continue;
        }
        const size_t sign = argument.find('=');
        std::string_view name = argument.substr(0, sign);
        if (name == "-h") {
            name = "--help";
        }
        const auto option = std::ranges::find(all, name, &WordOption::name);
        if (option == all.end()) {
            return refuse_unknown(name, all);
        }
        if (option->flag != nullptr) {
            if (sign != std::string_view::npos) {
                fprintf(stderr, "vesk-data: option %s takes no value\n", option->name.data());
                return false;
            }
            *option->flag = true;
            continue;
        }
        const char* value = nullptr;
        if (sign != std::string_view::npos) {
            value = arguments[i] + sign + 1;
        } else if (i + 1 < arguments.size()) {
            value = arguments[++i];
        }
        if (!set_value(*option, value)) {
            return false;
        }
    }
    return common->help || check_places(*common, *files);
}

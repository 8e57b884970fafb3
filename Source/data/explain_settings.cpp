// Settings are taken more strictly than the engine takes them: it keeps what it can of a setting
// and goes on playing, but who asks why a position is judged as it is would get an answer to
// another question.
#include "data/explain_settings.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <string_view>

#include "base/files.h"
#include "base/nearest_word.h"
#include "base/text.h"
#include "data/arguments.h"
#include "shell/options.h"
#include "shell/weights_file.h"

// Some of the engine's limits: of a longer line it would read the rest as another one.
static constexpr size_t longest_line = 253;

static std::string_view trim(std::string_view text)
{
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

static bool read_per_cent(std::string_view text, i16* value)
{
    text = trim(text);
    i32 number = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number < lowest_scale
        || number > highest_scale) {
        return false;
    }
    *value = static_cast<i16>(number);
    return true;
}

static const NamedScale* find_scale(std::string_view name)
{
    for (const NamedScale& option : scale_options()) {
        if (option.name == name) {
            return &option;
        }
    }
    return nullptr;
}

// Sets a personality option. Returns what is wrong, or an empty text.
static std::string set_scale(WeightScales* scales, std::string_view name, std::string_view value)
{
    const NamedScale* option = find_scale(name);
    if (option == nullptr) {
        std::vector<std::string_view> names;
        for (const NamedScale& other : scale_options()) {
            names.push_back(other.name);
        }
        const std::string_view near = nearest_word(name, names);
        const std::string meant =
            near.empty() ? std::string() : "; '" + std::string(near) + "' may be meant";
        return "there is no personality option '" + std::string(name) + "'" + meant;
    }
    const size_t comma = value.find(',');
    WeightScale pair = {};
    if (comma == std::string_view::npos || !read_per_cent(value.substr(0, comma), &pair[0])
        || !read_per_cent(value.substr(comma + 1), &pair[1])) {
        return std::string(name) + " takes two numbers from 20 to 200, as in 80,120, not '"
            + std::string(value) + "'";
    }
    std::ranges::copy(pair, scales->*option->scale);
    return {};
}

// ---- The file of options

// One line, NAME = VALUE # comment. Options that scale no weights change no evaluation, but a name
// that is none may be meant for one that does.
static std::string read_option_line(WeightScales* scales, std::string_view line)
{
    if (line.empty() || line.back() != '\n') {
        return "no line feed within 254 characters: the engine would read something else";
    }
    line = line.substr(0, line.find('#'));
    const size_t sign = line.find('=');
    const std::string_view name = trim(line.substr(0, sign));
    if (name.empty()) {
        return {};
    }
    if (sign == std::string_view::npos) {
        return "there is no '='";
    }
    if (is_space(line.front())) {
        return "blanks stand before the name: the engine would pass over the line";
    }
    if (find_scale(name) == nullptr && is_option_name(name)) {
        return {};
    }
    return set_scale(scales, name, trim(line.substr(sign + 1)));
}

static FILE* open_settings(const std::string& name, Report* report)
{
    errno = 0;
    FILE* file = open_regular_file(name.c_str());
    if (file == nullptr) {
        fail_file(report, name, errno == 0 ? "is no regular file" : "cannot be opened", errno);
    }
    return file;
}

static bool close_settings(FILE* file, const std::string& name, Report* report)
{
    const bool failed = ferror(file) != 0;
    fclose(file);
    if (failed) {
        fail_file(report, name, "cannot be read to its end", 0);
    }
    return !failed;
}

static bool read_options_file(const std::string& name, WeightScales* scales, Report* report)
{
    FILE* file = open_settings(name, report);
    if (file == nullptr) {
        return false;
    }
    bool sound = true;
    char line[longest_line + 2];
    for (i64 number = 1; sound && fgets(line, sizeof line, file) != nullptr; ++number) {
        const std::string wrong = read_option_line(scales, line);
        if (!wrong.empty()) {
            refuse_item(report, name, { number, "option", wrong });
            sound = false;
        }
    }
    return close_settings(file, name, report) && sound;
}

// ---- The file of weights

struct NameCheck {
    Report* report;
    const std::string* name;
};

static void refuse_name(void* context, i32 line, const char* name, const char* expected)
{
    const NameCheck* check = static_cast<const NameCheck*>(context);
    const std::string meant = *expected == '\0' ? "there are no more weights"
                                                : "this line is that of " + std::string(expected);
    refuse_item(check->report, *check->name, { line, "weight", std::string(name) + ": " + meant });
}

// A file may hold the first part of the list, as those of older versions do; it must begin it.
static bool read_weights_file(const std::string& name, Report* report)
{
    FILE* file = open_settings(name, report);
    if (file == nullptr) {
        return false;
    }
    const i64 refused = report->refused;
    param_cursor = 0;
    NameCheck check = { report, &name };
    read_params(file, refuse_name, &check);
    if (!close_settings(file, name, report) || report->refused > refused) {
        return false;
    }
    if (param_cursor == 0) {
        fail_file(report, name, "holds no weights", 0);
        return false;
    }
    if (param_cursor < weight_count) {
        fprintf(stderr, "%s: holds %d of %d weights; the others are Vesk's own\n", name.c_str(),
            param_cursor, weight_count);
    }
    return true;
}

// ---- All together

static std::vector<std::string> list_scaled(const WeightScales& scales)
{
    constexpr i16 unchanged = 100;
    std::vector<std::string> list;
    for (const NamedScale& option : scale_options()) {
        const WeightScale& pair = scales.*option.scale;
        if (pair[0] != unchanged || pair[1] != unchanged) {
            list.push_back(std::string(option.name) + "=" + std::to_string(pair[0]) + ","
                + std::to_string(pair[1]));
        }
    }
    return list;
}

bool set_up_weights(
    const WeightSettings& settings, Report* report, std::vector<std::string>* scaled, bool* usage)
{
    WeightScales scales;
    for (const NamedScale& option : scale_options()) {
        std::ranges::fill(scales.*option.scale, i16 { 100 });
    }
    if (!settings.options_file.empty()
        && !read_options_file(settings.options_file, &scales, report)) {
        return false;
    }
    for (const std::string& set : settings.sets) {
        const size_t sign = set.find('=');
        const std::string_view text = set;
        const std::string wrong = sign == std::string::npos
            ? "--set needs NAME=MG,EG, not '" + set + "'"
            : set_scale(&scales, text.substr(0, sign), text.substr(sign + 1));
        if (!wrong.empty()) {
            static_cast<void>(refuse_data_words("explain", "%s", wrong.c_str()));
            *usage = true;
            return false;
        }
    }
    init_eval_params(NormalWeights, &scales);
    *scaled = list_scaled(scales);
    return settings.weights_file.empty() || read_weights_file(settings.weights_file, report);
}

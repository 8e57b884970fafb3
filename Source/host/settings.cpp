// One list of options in two views: the host's values, and what the engine was told of them.
#include "host/settings.h"

#include <algorithm>
#include <charconv>

#include "base/version.h"
#include "host/text.h"

// The engine cuts longer texts, and takes this character for the end of a line.
static constexpr size_t longest_text = 143;
static constexpr char line_mark = '@';
// Announced for UCI_Elo on every machine. The engine's own maximum is what it has measured at its
// start, another number each time; a chess program keeps what it has seen once.
static constexpr i64 lowest_elo = 1500;
static constexpr i64 highest_elo = 3000;

// Options that two names are announced for: the host's usual one, and the engine's.
static constexpr std::string_view aliases[][2] = {
    { "Move Overhead", "MoveOverhead" },
    { "Clear Hash", "Clear_Hash" },
};

// Hosts write names as they like: capitals, blanks and underscores tell no two options apart.
static std::string plain_name(std::string_view name)
{
    std::string plain = to_lower(name);
    std::erase_if(
        plain, [](char letter) { return letter == ' ' || letter == '_' || letter == '\t'; });
    return plain;
}

static Setting* look_up(HostSettings* settings, std::string_view name)
{
    const std::string plain = plain_name(name);
    for (Setting& setting : settings->list) {
        if (plain_name(setting.name) == plain) {
            return &setting;
        }
    }
    return nullptr;
}

const Setting* find_setting(const HostSettings* settings, std::string_view name)
{
    const auto found = std::find_if(settings->list.begin(), settings->list.end(),
        [name](const Setting& setting) { return setting.name == name; });
    return found == settings->list.end() ? nullptr : &*found;
}

bool is_on(const HostSettings* settings, std::string_view name)
{
    const Setting* setting = find_setting(settings, name);
    return setting != nullptr && setting->value == "true";
}

// ---- Announcing

// The words of an option line between two of its key words, or to its end.
static std::string_view part_behind(std::string_view line, std::string_view key)
{
    const size_t found = line.find(key);
    if (found == std::string_view::npos) {
        return "";
    }
    std::string_view part = line.substr(found + key.size());
    for (const std::string_view next : { " type ", " default ", " min ", " max " }) {
        part = part.substr(0, part.find(next));
    }
    return trimmed(part);
}

static i64 number_behind(std::string_view line, std::string_view key)
{
    i64 value = 0;
    return read_number(part_behind(line, key), &value) ? value : 0;
}

static SettingKind kind_of(std::string_view word)
{
    if (word == "check") {
        return SettingKind::Check;
    }
    if (word == "spin") {
        return SettingKind::Spin;
    }
    return word == "button" ? SettingKind::Button : SettingKind::Text;
}

static Setting make_setting(std::string_view name, SettingKind kind, bool of_engine,
    std::string_view start, i64 lowest = 0, i64 highest = 0)
{
    const std::string value(start);
    return { std::string(name), kind, of_engine, value, lowest, highest, value, value, value };
}

void learn_option(HostSettings* settings, std::string_view line)
{
    const std::string_view name = part_behind(line, "option name ");
    const std::string value(part_behind(line, " default "));
    if (Setting* known = look_up(settings, name)) {
        // An Elo that nobody has set is announced as the machine's.
        if (known->of_engine
            && (name != "UCI_Elo" || value != std::to_string(settings->machine_elo))) {
            known->value = value;
            known->sent = value;
            known->good = value;
        }
        return;
    }
    Setting setting = make_setting(name, kind_of(part_behind(line, " type ")), true, value,
        number_behind(line, " min "), number_behind(line, " max "));
    if (name == "UCI_Elo") {
        settings->machine_elo = setting.highest;
        setting.lowest = lowest_elo;
        setting.highest = highest_elo;
        setting.start = std::to_string(highest_elo);
        setting.value = setting.start;
        setting.sent = "";
    }
    // Without a table the engine would not use one again in its life.
    if (name == "Hash") {
        setting.lowest = 1;
    }
    // The engine's log has one name for all that run in a folder.
    setting.of_engine = name != "Log";
    settings->list.push_back(setting);
}

void add_own_options(HostSettings* settings)
{
    for (const auto& [name, engine_name] : aliases) {
        const Setting* engine = find_setting(settings, engine_name);
        if (engine != nullptr) {
            Setting alias = *engine;
            alias.name = name;
            alias.of_engine = false;
            settings->list.push_back(alias);
        }
    }
    settings->list.push_back(make_setting("UCI_AnalyseMode", SettingKind::Check, false, "false"));
    settings->list.push_back(make_setting("UCI_ShowWDL", SettingKind::Check, false, "false"));
    settings->list.push_back(make_setting("Debug Log File", SettingKind::Text, false, ""));
    settings->list.push_back(make_setting("UCI_EngineAbout", SettingKind::Text, false,
        std::string(version_string) + " by Brin Tolvey, a chess engine for Linux"));
}

std::vector<std::string> option_lines(const HostSettings* settings)
{
    std::vector<std::string> lines;
    for (const Setting& setting : settings->list) {
        std::string line = "option name " + setting.name;
        switch (setting.kind) {
        case SettingKind::Check:
            line += " type check default " + setting.start;
            break;
        case SettingKind::Spin:
            line += " type spin default " + setting.start + " min " + std::to_string(setting.lowest)
                + " max " + std::to_string(setting.highest);
            break;
        case SettingKind::Text:
            // Several hosts read an empty default as the end of the line, and take the word itself.
            line += " type string default " + (setting.start.empty() ? "<empty>" : setting.start);
            break;
        case SettingKind::Button:
            line += " type button";
            break;
        }
        lines.push_back(line);
    }
    return lines;
}

// ---- Changing

static std::string check_value(std::string_view text)
{
    const std::string lower = to_lower(text);
    if (lower == "true" || lower == "on" || lower == "1" || lower == "yes") {
        return "true";
    }
    return lower == "false" || lower == "off" || lower == "0" || lower == "no" ? "false" : "";
}

// Puts a value into the form that the engine reads. Returns why it cannot be used, or nothing.
static std::string settle_value(const Setting* setting, std::string* value)
{
    i64 number = 0;
    switch (setting->kind) {
    case SettingKind::Check:
        *value = check_value(*value);
        return value->empty() ? "is neither true nor false" : "";
    case SettingKind::Spin:
        if (!read_number(*value, &number)) {
            return "is no number";
        }
        *value = std::to_string(std::clamp(number, setting->lowest, setting->highest));
        return "";
    case SettingKind::Text:
        if (*value == "<empty>") {
            value->clear();
        }
        if (setting->of_engine && value->size() > longest_text) {
            return "is longer than 143 characters";
        }
        if (setting->of_engine && value->find(line_mark) != std::string::npos) {
            return "holds an @, which the engine cannot read";
        }
        return "";
    case SettingKind::Button:
        break;
    }
    return "";
}

// "name" and "value" are key words only as words of their own: a path may hold them.
static void split_words(std::string_view words, std::string* name, std::string* value)
{
    std::string* part = nullptr;
    bool has_value = false;
    for (std::string_view word = take_word(&words); !word.empty(); word = take_word(&words)) {
        if (part == nullptr && word == "name") {
            part = name;
        } else if (part == name && word == "value") {
            has_value = true;
            break;
        } else if (part != nullptr) {
            *part += part->empty() ? "" : " ";
            *part += word;
        }
    }
    if (has_value) {
        *value = trimmed(words); // as it stands: a path may hold several blanks in a row
    }
}

// The first row of a name is the engine's; an exact name finds its own.
SettingResult change_setting(HostSettings* settings, std::string_view words)
{
    std::string name;
    std::string value;
    split_words(words, &name, &value);
    if (name.empty()) {
        return { "setoption needs a name", nullptr };
    }
    const auto exact = std::find_if(settings->list.begin(), settings->list.end(),
        [&name](const Setting& row) { return row.name == name; });
    Setting* setting = exact != settings->list.end() ? &*exact : look_up(settings, name);
    if (setting == nullptr) {
        return { "No such option: " + std::string(shortened(name)), nullptr };
    }
    const std::string refusal = settle_value(setting, &value);
    if (!refusal.empty()) {
        return { "option " + setting->name + ": '" + std::string(shortened(value)) + "' " + refusal,
            nullptr };
    }
    setting->value = value;
    setting->turn = ++settings->turns;
    return { "", setting };
}

// ---- Telling the engine

// The value of an option that is announced under two names. A host that sends every option once
// sends one of the two at its default, which must not take the other back.
static const std::string& value_by_any_name(const HostSettings* settings, const Setting& setting)
{
    for (const auto& [name, engine_name] : aliases) {
        const Setting* alias = engine_name == setting.name ? find_setting(settings, name) : nullptr;
        if (alias != nullptr && alias->value != alias->start
            && (setting.value == setting.start || alias->turn > setting.turn)) {
            return alias->value;
        }
    }
    return setting.value;
}

// What the engine is to work with for the host's value.
static std::string wanted(const HostSettings* settings, const Setting& setting, i32 lines)
{
    const bool analyses = is_on(settings, "UCI_AnalyseMode");
    if (setting.name == "MultiPV" && lines > 0) {
        return std::to_string(lines);
    }
    // Analysis asks for the truth of a position: no book, and no opinion about draws.
    if (analyses && setting.name == "OwnBook") {
        return "false";
    }
    if (analyses && setting.name == "Contempt") {
        return "0";
    }
    // Above what this machine can give, the engine would switch the limit off for good.
    if (setting.name == "UCI_LimitStrength") {
        i64 elo = 0;
        const bool reached = read_number(find_setting(settings, "UCI_Elo")->value, &elo)
            && elo < settings->machine_elo;
        return reached && setting.value == "true" ? "true" : "false";
    }
    return value_by_any_name(settings, setting);
}

// While the limit is off the engine overwrites its Elo, so that is told last and anew.
std::vector<std::string> lines_for_engine(HostSettings* settings, i32 lines)
{
    std::vector<std::string> told;
    for (Setting& setting : settings->list) {
        if (!setting.of_engine || setting.kind == SettingKind::Button) {
            continue;
        }
        const std::string value = wanted(settings, setting, lines);
        const bool limited = setting.name == "UCI_Elo"
            && wanted(settings, *find_setting(settings, "UCI_LimitStrength"), lines) == "true";
        if (setting.name == "UCI_Elo" && !limited) {
            setting.sent = ""; // of no use now, and not kept
        } else if (value != setting.sent) {
            told.push_back("setoption name " + setting.name + " value " + value);
            setting.sent = value;
        }
    }
    return told;
}

void forget_sent(HostSettings* settings)
{
    for (Setting& setting : settings->list) {
        setting.sent = setting.name == "UCI_Elo" ? "" : setting.start;
        // What the file has set is known by now, and may have been changed since.
        if (setting.name == "ConfigFilePath") {
            setting.sent = setting.value;
        }
    }
}

void confirm_sent(HostSettings* settings)
{
    for (Setting& setting : settings->list) {
        if (setting.value == setting.sent) {
            setting.good = setting.value;
        }
    }
}

std::string take_back_unconfirmed(HostSettings* settings)
{
    std::string names;
    for (Setting& setting : settings->list) {
        if (setting.of_engine && setting.value == setting.sent && setting.value != setting.good) {
            names += (names.empty() ? "" : ", ") + setting.name + " " + setting.value;
            setting.value = setting.good;
        }
    }
    return names;
}

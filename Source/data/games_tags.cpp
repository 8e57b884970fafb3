// The scanner takes lines of 254 characters, and looks for "Event ", "Result " and words of broken
// games anywhere in a tag; the book builder begins a game wherever "[Result" stands.
#include "data/games_tags.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <span>

#include "base/text.h"

static constexpr size_t most_line = 250; // characters
static constexpr size_t most_name = 60;
static constexpr std::string_view roster[] = { "Event", "Site", "Date", "Round", "White", "Black",
    "Result" };

// What the scanner passes a game over for.
static constexpr std::string_view broken_words[] = { "unterminated", "time forfeit", "abandoned" };

static std::string in_small_letters(std::string_view text)
{
    std::string small(text);
    for (char& c : small) {
        c = static_cast<char>(tolower(static_cast<u8>(c)));
    }
    return small;
}

bool is_broken_off(std::string_view termination)
{
    static constexpr std::string_view words[] = { "time forfeit", "on time", "timeout", "time out",
        "abandon", "unterminated", "forfeit", "rules infraction", "illegal move", "disconnect",
        "stalled", "emergency", "death" };
    const std::string small = in_small_letters(termination);
    return std::ranges::any_of(
        words, [&](std::string_view word) { return small.find(word) != small.npos; });
}

// Puts another character in the place of the first one of each word found.
static void change_words(std::string* text, std::string_view word, char first)
{
    for (size_t i = text->find(word); i != text->npos; i = text->find(word, i)) {
        (*text)[i] = first;
    }
}

// Makes a value out of what stood between the quotes: both marks that need one get their backslash,
// and nothing else has one; control characters become blanks.
static std::string clean_value(std::string_view raw)
{
    std::string value;
    for (size_t i = 0; i < raw.size(); ++i) {
        char c = raw[i];
        if (c == '\\' && i + 1 < raw.size() && (raw[i + 1] == '\\' || raw[i + 1] == '"')) {
            c = raw[++i];
        }
        if (c == '"' || c == '\\') {
            value.push_back('\\');
        }
        value.push_back(static_cast<u8>(c) < ' ' || c == 127 ? ' ' : c);
    }
    return value;
}

// Words of a broken game, for the scanner to see or to overlook.
static void change_termination(std::string* value, BrokenOff broken_off)
{
    // The scanner takes a tag with the name of a side for a player's.
    change_words(value, "White ", 'w');
    change_words(value, "Black ", 'b');
    if (broken_off != BrokenOff::Marked || !is_broken_off(*value)) {
        return;
    }
    const std::string small = in_small_letters(*value);
    for (const std::string_view word : broken_words) {
        if (const size_t place = small.find(word); place != small.npos) {
            value->replace(place, word.size(), word);
            return;
        }
    }
    value->append(small.find("time") != small.npos ? " (time forfeit)" : " (abandoned)");
}

static void change_value(std::string_view name, const GameRules& rules, std::string* value)
{
    if (name == "Termination") {
        change_termination(value, rules.broken_off);
    }
    const bool keeps_words = name == "Event" || name == "White" || name == "Black"
        || (name == "Termination" && rules.broken_off == BrokenOff::Marked);
    if (!keeps_words) {
        change_words(value, "unterminated", 'U');
        change_words(value, "time forfeit", 'T');
        change_words(value, "abandoned", 'A');
    }
    if (name != "Event") {
        change_words(value, "Event ", 'e');
    }
    if (name != "Round") {
        change_words(value, "Round ", 'r');
    }
    change_words(value, "[Result", '(');
    change_words(value, "Result ", 'r');
}

// A name of letters, digits and lines that no tool takes for one of the roster.
static std::string clean_name(std::string_view raw)
{
    std::string name(raw.substr(0, most_name));
    std::ranges::replace(name, '-', '_');
    if (std::ranges::find(roster, name) != std::end(roster)) {
        return name;
    }
    if (name.starts_with("Result")) {
        name.insert(0, "_");
    }
    for (const std::string_view word : { "Event", "Result", "Round" }) {
        if (name.ends_with(word)) {
            name.push_back('_');
        }
    }
    return name;
}

// Cuts a value to a length, between two characters of UTF-8, and leaves no half of an escape.
static void cut_value(std::string* value, size_t length)
{
    if (value->size() <= length) {
        return;
    }
    while (length > 0 && (static_cast<u8>((*value)[length]) & 0xc0) == 0x80) {
        --length;
    }
    size_t marks = 0;
    while (marks < length && (*value)[length - 1 - marks] == '\\') {
        ++marks;
    }
    value->resize(length - marks % 2);
}

// The value is as it stands between quotes somewhere.
static void write_tag(
    const GameTag& tag, const GameRules& rules, std::string* out, GameTally* tally)
{
    const std::string name = clean_name(tag.name);
    std::string value = clean_value(tag.value);
    const size_t room = most_line - name.size() - std::string_view("[ \"\"]").size();
    const std::string before = value;
    change_value(tag.name, rules, &value);
    cut_value(&value, room);
    tally->changed_tags += name != tag.name || value != before;
    out->append("[").append(name).append(" \"").append(value).append("\"]\n");
}

// Tags about the start say nothing where that is the usual one.
static bool is_start_tag(std::string_view name)
{
    return name == "FEN" || name == "SetUp";
}

void write_tags(const GameText& game, const GameRules& rules, GameEnd end, std::string_view start,
    std::string* out, GameTally* tally)
{
    for (const std::string_view name : roster) {
        std::string_view value = tag_value(game, name);
        if (name == "Result") {
            value = text_of_end(end);
        } else if (value.empty()) {
            value = name == "Date" ? "????.??.??" : "?";
        }
        write_tag({ name, value }, rules, out, tally);
    }
    if (!start.empty() && (rules.only_roster || tag_value(game, "SetUp").empty())) {
        write_tag({ "SetUp", "1" }, rules, out, tally);
    }
    if (!start.empty() && rules.only_roster) {
        write_tag({ "FEN", start }, rules, out, tally);
    }
    for (size_t i = 0; i < game.tags.size() && !rules.only_roster; ++i) {
        const GameTag& tag = game.tags[i];
        const std::span<const GameTag> before = std::span(game.tags).first(i);
        if (std::ranges::find(roster, tag.name) == std::end(roster)
            && std::ranges::find(before, tag.name, &GameTag::name) == before.end()
            && !(start.empty() && is_start_tag(tag.name))) {
            write_tag(tag, rules, out, tally);
        }
    }
    out->push_back('\n');
}

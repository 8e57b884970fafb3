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
static constexpr size_t most_unmarked = 200; // of a Termination, that a mark may stand behind it
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

// What a value may have in the line of a tag.
static size_t room_behind(std::string_view name)
{
    return most_line - name.size() - std::string_view("[ \"\"]").size();
}

static bool is_word_character(char c)
{
    return is_letter(c) || is_digit(c) || c == '_' || static_cast<u8>(c) >= 0x80;
}

// What a reason may end with: "forfeits", "disconnected", "abandonment".
static bool is_ending(std::string_view text)
{
    static constexpr std::string_view endings[] = { "", "s", "ed", "ing", "ion", "ment", "ure" };
    return std::ranges::find(endings, text) != std::end(endings);
}

// Whether phrase stands in the text, from the start of a word to the end of one.
static bool has_phrase(std::string_view text, std::string_view phrase)
{
    for (size_t i = text.find(phrase); i != text.npos; i = text.find(phrase, i + 1)) {
        size_t end = i + phrase.size();
        while (end < text.size() && is_word_character(text[end])) {
            ++end;
        }
        if ((i == 0 || !is_word_character(text[i - 1]))
            && is_ending(text.substr(i + phrase.size(), end - i - phrase.size()))) {
            return true;
        }
    }
    return false;
}

// Takes a name out of the text, where it stands first. Names of users have lines in them as well.
static void take_name_out(std::string* text, std::string_view name)
{
    const auto is_of_name = [](char c) { return is_word_character(c) || c == '-'; };
    for (size_t i = text->find(name); !name.empty() && i != text->npos;
         i = text->find(name, i + 1)) {
        const size_t end = i + name.size();
        if ((i == 0 || !is_of_name((*text)[i - 1]))
            && (end == text->size() || !is_of_name((*text)[end]))) {
            text->replace(i, name.size(), "?");
            return;
        }
    }
}

// A name is taken out once, as the sites have it: somebody called "time" may have lost on time. A
// text that is nothing but a reason speaks of no player. All values are taken as they are written,
// so that what is written means the same again.
bool is_broken_off(const GameText& game)
{
    static constexpr std::string_view reasons[] = { "time forfeit", "on time", "timeout",
        "time out", "abandon", "unterminated", "forfeit", "rules infraction", "illegal move",
        "disconnect", "stalled", "emergency", "death" };
    std::string text = clean_value(tag_value(game, "Termination"));
    cut_value(&text, room_behind("Termination"));
    text = in_small_letters(text);
    const auto is_text = [&](std::string_view reason) {
        return text.starts_with(reason) && is_ending(std::string_view(text).substr(reason.size()));
    };
    if (std::ranges::any_of(reasons, is_text)) {
        return true;
    }
    const auto is_told = [&](std::string_view reason) { return has_phrase(text, reason); };
    if (std::ranges::none_of(reasons, is_told)) {
        return false;
    }
    std::string names[] = { in_small_letters(clean_value(tag_value(game, "White"))),
        in_small_letters(clean_value(tag_value(game, "Black"))) };
    if (names[0].size() < names[1].size()) {
        names[0].swap(names[1]); // the shorter one may be a part of it
    }
    for (const std::string& name : names) {
        take_name_out(&text, name);
    }
    return std::ranges::any_of(reasons, is_told);
}

// Puts another character in the place of the first one of each word found.
static void change_words(std::string* text, std::string_view word, char first)
{
    for (size_t i = text->find(word); i != text->npos; i = text->find(word, i)) {
        (*text)[i] = first;
    }
}

// Words of a broken game, for the scanner to see.
static void mark_termination(std::string* value)
{
    const std::string small = in_small_letters(*value);
    for (const std::string_view word : broken_words) {
        if (const size_t place = small.find(word); place != small.npos) {
            value->replace(place, word.size(), word);
            return;
        }
    }
    cut_value(value, most_unmarked);
    value->append(small.find("time") != small.npos ? " (time forfeit)" : " (abandoned)");
}

// is_marked: the scanner shall pass the game over.
static void change_value(std::string_view name, bool is_marked, std::string* value)
{
    if (name == "Termination") {
        // The scanner takes a tag with the name of a side for a player's.
        change_words(value, "White ", 'w');
        change_words(value, "Black ", 'b');
        cut_value(value, room_behind(name));
        if (is_marked) {
            mark_termination(value);
        }
    }
    const bool keeps_words = name == "Event" || name == "White" || name == "Black"
        || (name == "Termination" && is_marked);
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

// The value is as it stands between quotes somewhere.
static void write_tag(const GameTag& tag, bool is_marked, std::string* out, GameTally* tally)
{
    const std::string name = clean_name(tag.name);
    std::string value = clean_value(tag.value);
    const std::string before = value;
    change_value(tag.name, is_marked, &value);
    cut_value(&value, room_behind(name));
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
    const bool is_marked = rules.broken_off == BrokenOff::Marked && is_broken_off(game);
    for (const std::string_view name : roster) {
        std::string_view value = tag_value(game, name);
        if (name == "Result") {
            value = text_of_end(end);
        } else if (value.empty()) {
            value = name == "Date" ? "????.??.??" : "?";
        }
        write_tag({ name, value }, is_marked, out, tally);
    }
    if (!start.empty() && (rules.only_roster || tag_value(game, "SetUp").empty())) {
        write_tag({ "SetUp", "1" }, is_marked, out, tally);
    }
    if (!start.empty() && rules.only_roster) {
        write_tag({ "FEN", start }, is_marked, out, tally);
    }
    for (size_t i = 0; i < game.tags.size() && !rules.only_roster; ++i) {
        const GameTag& tag = game.tags[i];
        const std::span<const GameTag> before = std::span(game.tags).first(i);
        if (std::ranges::find(roster, tag.name) == std::end(roster)
            && std::ranges::find(before, tag.name, &GameTag::name) == before.end()
            && !(start.empty() && is_start_tag(tag.name))) {
            write_tag(tag, is_marked, out, tally);
        }
    }
    out->push_back('\n');
}

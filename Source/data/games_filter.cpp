// A game that does not tell what is asked for is left out: a rating that nobody knows is not above
// any number.
#include "data/games_filter.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/text.h"

static constexpr f64 seconds_of_day = 86400.0;
static constexpr f64 moves_of_game = 40.0;
// Where the classes end, in seconds for a game of so many moves; the last one has no end.
static constexpr f64 class_ends[] = { 30.0, 180.0, 480.0, 1500.0 };

// ---- Numbers

// The number that text is as a whole, or -1.
static f64 read_seconds(std::string_view text)
{
    f64 value = 0.0;
    const std::from_chars_result result =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    const bool is_number = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return is_number && std::isfinite(value) && value >= 0.0 ? value : -1.0;
}

// A rating as its tag has it, "2043" or "2043?", or -1.
static i64 read_rating(std::string_view text)
{
    i64 value = -1;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value > 0 ? value : -1;
}

// ---- Time

TimeControl read_time_control(std::string_view tag)
{
    TimeControl control;
    if (tag == "-") {
        control.has_days = true;
        return control;
    }
    std::string_view first = tag.substr(0, tag.find(':'));
    if (first.starts_with('*')) {
        return control;
    }
    const size_t plus = first.find('+');
    if (plus != first.npos) {
        control.increment = read_seconds(first.substr(plus + 1));
        first = first.substr(0, plus);
    }
    const size_t slash = first.find('/');
    f64 moves = moves_of_game;
    if (slash != first.npos) {
        moves = read_seconds(first.substr(0, slash));
        first = first.substr(slash + 1);
    }
    const f64 base = read_seconds(first);
    if (base < 0.0 || moves <= 0.0 || control.increment < 0.0) {
        return TimeControl();
    }
    control.base = base;
    control.has_days = base / moves >= seconds_of_day;
    return control;
}

std::string_view class_of(const TimeControl& control)
{
    if (control.has_days) {
        return time_class_names[std::size(class_ends) + 1];
    }
    if (control.base < 0.0) {
        return {};
    }
    const f64 seconds = control.base + moves_of_game * control.increment;
    const auto* row = std::ranges::upper_bound(class_ends, seconds);
    return time_class_names[row - std::begin(class_ends)];
}

static const char* unwanted_by_time(const GameFilter& filter, const GameText& game)
{
    const bool asks_base = filter.min_base >= 0.0 || filter.max_base >= 0.0;
    const bool asks_increment = filter.min_increment >= 0.0 || filter.max_increment >= 0.0;
    if (!asks_base && !asks_increment && filter.classes.empty()) {
        return nullptr;
    }
    constexpr const char* why = "time control";
    const TimeControl control = read_time_control(tag_value(game, "TimeControl"));
    if (!filter.classes.empty()
        && std::ranges::find(filter.classes, class_of(control)) == filter.classes.end()) {
        return why;
    }
    if ((asks_base || asks_increment) && control.base < 0.0) {
        return why;
    }
    const bool has_base = (filter.min_base < 0.0 || control.base >= filter.min_base)
        && (filter.max_base < 0.0 || control.base <= filter.max_base);
    const bool has_increment =
        (filter.min_increment < 0.0 || control.increment >= filter.min_increment)
        && (filter.max_increment < 0.0 || control.increment <= filter.max_increment);
    return has_base && has_increment ? nullptr : why;
}

// ---- Dates

// A date in which nothing but numbers may stand: the first and the last day that it can mean, as
// numbers such as 20240517. Parts that are not known, "??" or missing, mean any. Returns false for
// what is no date.
static bool read_date(std::string_view text, i64* first, i64* last)
{
    constexpr size_t sizes[] = { 4, 2, 2 };
    constexpr i64 least[] = { 0, 1, 1 };
    constexpr i64 greatest[] = { 9999, 12, 31 };
    *first = 0;
    *last = 0;
    bool is_known = true;
    for (size_t i = 0; i < std::size(sizes); ++i) {
        i64 number = -1;
        if (!text.empty() && is_known) {
            const std::string_view part = text.substr(0, sizes[i]);
            const bool is_number = std::ranges::all_of(part, is_digit);
            if (part.size() != sizes[i]
                || (!is_number && part.find_first_not_of('?') != part.npos)) {
                return false;
            }
            is_known = is_number;
            if (is_number) {
                std::from_chars(part.data(), part.data() + part.size(), number);
                if (number < least[i] || number > greatest[i]) {
                    return false;
                }
            }
            text.remove_prefix(sizes[i]);
            if (text.starts_with('.') || text.starts_with('-') || text.starts_with('/')) {
                text.remove_prefix(1);
            }
        }
        *first = *first * 100 + (number >= 0 ? number : least[i]);
        *last = *last * 100 + (number >= 0 ? number : greatest[i]);
    }
    return text.empty() || !is_known;
}

bool is_date(std::string_view text)
{
    i64 first;
    i64 last;
    return text.size() >= 4 && is_digit(text[0]) && read_date(text, &first, &last);
}

// Online games tell the day of the world beside that of their site.
static const char* unwanted_by_date(const GameFilter& filter, const GameText& game)
{
    if (filter.from.empty() && filter.to.empty()) {
        return nullptr;
    }
    constexpr const char* why = "date";
    std::string_view text = tag_value(game, "Date");
    if (text.empty() || text.starts_with('?')) {
        text = tag_value(game, "UTCDate");
    }
    i64 first;
    i64 last;
    if (!is_date(text) || !read_date(text, &first, &last)) {
        return why;
    }
    i64 wanted;
    i64 unused;
    if (!filter.from.empty() && (!read_date(filter.from, &wanted, &unused) || first < wanted)) {
        return why;
    }
    if (!filter.to.empty() && (!read_date(filter.to, &unused, &wanted) || last > wanted)) {
        return why;
    }
    return nullptr;
}

// ---- All of them

std::string read_name_list(std::string_view text, std::span<const std::string_view> allowed,
    std::vector<std::string>* names)
{
    while (!text.empty()) {
        const size_t comma = std::min(text.find(','), text.size());
        const std::string_view name = text.substr(0, comma);
        if (std::ranges::find(allowed, name) == allowed.end()) {
            return name.empty() ? std::string(",") : std::string(name);
        }
        names->emplace_back(name);
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return {};
}

static const char* unwanted_by_rating(const GameFilter& filter, const GameText& game)
{
    if (filter.min_rating < 0 && filter.max_rating < 0) {
        return nullptr;
    }
    for (const std::string_view name : { "WhiteElo", "BlackElo" }) {
        const i64 rating = read_rating(tag_value(game, name));
        if (rating < 0 || rating < filter.min_rating
            || (filter.max_rating >= 0 && rating > filter.max_rating)) {
            return "rating";
        }
    }
    return nullptr;
}

const char* unwanted_by(const GameFilter& filter, const GameText& game, GameEnd end)
{
    if (!filter.results.empty()
        && std::ranges::find(filter.results, text_of_end(end)) == filter.results.end()) {
        return "result";
    }
    const i64 length = static_cast<i64>(game.moves.size());
    if (length < filter.min_length || (filter.max_length >= 0 && length > filter.max_length)) {
        return "length";
    }
    if (const char* why = unwanted_by_rating(filter, game)) {
        return why;
    }
    if (const char* why = unwanted_by_time(filter, game)) {
        return why;
    }
    return unwanted_by_date(filter, game);
}

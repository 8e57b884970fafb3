// Blanks and tabs part words; everything else belongs to them.
#include "host/text.h"

#include <charconv>
#include <limits>

static constexpr std::string_view blanks = " \t";
static constexpr size_t shown_size = 60;

std::string_view trimmed(std::string_view text)
{
    const size_t start = text.find_first_not_of(blanks);
    if (start == std::string_view::npos) {
        return "";
    }
    return text.substr(start, text.find_last_not_of(blanks) - start + 1);
}

std::string_view take_word(std::string_view* text)
{
    const size_t start = text->find_first_not_of(blanks);
    if (start == std::string_view::npos) {
        *text = "";
        return "";
    }
    const size_t end = text->find_first_of(blanks, start);
    const std::string_view word = text->substr(start, end - start);
    *text = end == std::string_view::npos ? "" : text->substr(end);
    return word;
}

std::string to_lower(std::string_view text)
{
    std::string lower(text);
    for (char& letter : lower) {
        if (letter >= 'A' && letter <= 'Z') {
            letter = static_cast<char>(letter - 'A' + 'a');
        }
    }
    return lower;
}

std::string_view shortened(std::string_view text)
{
    return text.substr(0, shown_size);
}

bool read_number(std::string_view text, i64* value)
{
    if (text.starts_with('+')) {
        text.remove_prefix(1);
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    if (text.empty() || end != text.data() + text.size()) {
        return false;
    }
    if (error == std::errc::result_out_of_range) {
        *value = text.starts_with('-') ? std::numeric_limits<i64>::min()
                                       : std::numeric_limits<i64>::max();
        return true;
    }
    return error == std::errc();
}

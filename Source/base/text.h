// Reading numbers and words out of the user's text without leaving it. Numbers are read as far as
// they go, a text without digits gives 0, and what a type cannot hold becomes its nearest value.
#pragma once

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <span>

#include "base/types.h"

// Copies src into dst, cut to size - 1 characters, always closed by NUL. size is at least 1. The
// two may overlap, as where a part of a text takes the place of the whole.
inline void copy_text(char* dst, size_t size, const char* src)
{
    const size_t count = strnlen(src, size - 1);
    memmove(dst, src, count);
    dst[count] = '\0';
}

// A text that grows in a buffer of its owner, closed by NUL all the time. What does not fit is cut.
struct TextBuffer {
    std::span<char> room; // at least one character
    size_t used = 0;      // without the NUL
};

// Adds a formatted text.
[[gnu::format(printf, 2, 3)]] void append_format(TextBuffer* text, const char* format, ...);

// Whether c is a letter or a digit of ASCII, whatever the locale.
inline constexpr bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

inline constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// Whether c is white space of ASCII, whatever the locale: a blank, or one of the five characters
// from the tabulator to the carriage return.
inline constexpr bool is_space(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The decimal number at the start of text, saturated. White space and one sign may stand before it.
// Only the number is looked at: it may stand at the start of a line as long as a file.
inline i64 read_integer(const char* text)
{
    while (is_space(*text)) {
        ++text;
    }
    const bool negative = *text == '-';
    const char* digits = negative || *text == '+' ? text + 1 : text;
    const char* end = digits;
    i64 shortened = 0; // the number, if it has few digits: nearly all have
    while (is_digit(*end) && end - digits < std::numeric_limits<i64>::digits10) {
        shortened = 10 * shortened + (*end++ - '0');
    }
    if (!is_digit(*end)) {
        return negative ? -shortened : shortened;
    }
    while (is_digit(*end)) {
        ++end;
    }
    // from_chars knows the minus alone, and leaves the value as it is where it reports an error.
    i64 value = 0;
    const std::from_chars_result result = std::from_chars(negative ? text : digits, end, value);
    if (result.ec == std::errc::result_out_of_range) {
        return negative ? std::numeric_limits<i64>::min() : std::numeric_limits<i64>::max();
    }
    return value;
}

// The same for an i32.
inline i32 read_i32(const char* text)
{
    const i64 value = read_integer(text);
    if (value > std::numeric_limits<i32>::max()) {
        return std::numeric_limits<i32>::max();
    }
    if (value < std::numeric_limits<i32>::min()) {
        return std::numeric_limits<i32>::min();
    }
    return static_cast<i32>(value);
}

// Reads a number as nearly all are written: a sign at most, some digits, and a point among them.
// Returns false for any other. Both the digits as a number and the power of ten are exact, so that
// their quotient, rounded once, is what strtod gives after many more steps.
inline bool read_short_real(const char* text, f64* value)
{
    constexpr i32 most_digits = 15; // any number of so many is below 2^53
    constexpr f64 powers_of_ten[most_digits + 1] = { 1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8,
        1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15 };
    const bool negative = *text == '-';
    text += negative || *text == '+';
    i64 number = 0;
    i32 digits = 0;
    for (; is_digit(*text) && digits < most_digits; ++digits) {
        number = 10 * number + (*text++ - '0');
    }
    const i32 before = digits;
    text += *text == '.';
    for (; is_digit(*text) && digits < most_digits; ++digits) {
        number = 10 * number + (*text++ - '0');
    }
    // A letter may go on with an exponent or be the mark of a hexadecimal number.
    if (digits == 0 || is_digit(*text) || is_letter(*text)) {
        return false;
    }
    const f64 size = static_cast<f64>(number) / powers_of_ten[digits - before];
    *value = negative ? -size : size;
    return true;
}

// The real number at the start of text; not a number gives 0. By strtod, because a user may write
// what it reads and from_chars does not: white space, a plus, a hexadecimal number, or one too
// large for any, which is infinity.
inline f64 read_real(const char* text)
{
    f64 value;
    if (!read_short_real(text, &value)) {
        value = strtod(text, nullptr);
    }
    return value == value ? value : 0.0;
}

// value truncated towards zero and saturated; not a number gives 0.
inline i16 narrow_to_i16(f64 value)
{
    if (value >= std::numeric_limits<i16>::max()) {
        return std::numeric_limits<i16>::max();
    }
    if (value <= std::numeric_limits<i16>::min()) {
        return std::numeric_limits<i16>::min();
    }
    return value == value ? static_cast<i16>(value) : static_cast<i16>(0);
}

// The text offset characters behind start, or its end if it is shorter.
inline const char* text_behind(const char* start, size_t offset)
{
    return start + strnlen(start, offset);
}

// text behind its leading blanks. Only the blank character counts.
inline const char* skip_blanks(const char* text)
{
    while (*text == ' ') {
        ++text;
    }
    return text;
}

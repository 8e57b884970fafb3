// Words of lines, as strings: the host keeps what it hears.
#pragma once

#include <string>
#include <string_view>

#include "base/types.h"

// Takes the next word of text and cuts it off; blanks and tabs part words. Empty at the end.
std::string_view take_word(std::string_view* text);

// text without blanks and tabs around it.
[[nodiscard]] std::string_view trimmed(std::string_view text);

[[nodiscard]] std::string to_lower(std::string_view text);

// The start of a text that comes from outside and is to be shown in a line.
[[nodiscard]] std::string_view shortened(std::string_view text);

// Reads a whole number that text consists of, with a sign perhaps. A number out of range becomes
// the nearest. Returns false if it is no number.
[[nodiscard]] bool read_number(std::string_view text, i64* value);

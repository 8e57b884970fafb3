// Reading of results out of training lines. Nothing is taken from behind the end of the operand, so
// that a number in an operand that follows does not pass for the result. Files of several origins
// are read, and each program has its own habit of naming results.
#include "tools/training_line.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/output.h"
#include "base/text.h"

static constexpr size_t longest_number = 15; // characters of gr; what is behind them is cut off

// The operand behind word, up to closing or the end of the line; out is empty if there is none.
static bool find_operand(const char* line, const char* word, char closing, char* out, size_t size)
{
    const char* start = strstr(line, word);
    out[0] = '\0';
    if (start == nullptr) {
        return false;
    }
    start += strlen(word);
    const char* end = strchr(start, closing);
    const size_t length = end == nullptr ? strlen(start) : static_cast<size_t>(end - start);
    copy_text(out, std::min(size, length + 1), start);
    return true;
}

// From white's view to that of side, or back.
static f64 turned(f64 result, i32 side)
{
    return side == Black ? 1.0 - result : result;
}

// The result that c9 names, from white's view. Returns false if c9 is not there; one of no known
// result leaves result as it was.
static bool read_named_result(const char* line, f64* result)
{
    char text[training_line_length + 1];
    if (!find_operand(line, " c9 ", ';', text, sizeof text)) {
        return false;
    }
    if (strstr(text, "1-0") != nullptr) {
        *result = 1.0;
    } else if (strstr(text, "0-1") != nullptr) {
        *result = 0.0;
    } else if (strstr(text, "1/2") != nullptr) {
        *result = 0.5;
    }
    return true;
}

// What c9 leaves untouched stands for a text that names nothing.
bool names_result(const char* line)
{
    f64 result = no_result;
    return read_named_result(line, &result) && result != no_result;
}

// A number of gr is taken as it stands; whether it lies from 0 to 1 is for the caller to ask.
f64 read_result(const char* line, i32 side)
{
    // A c9 turns whatever is there, also gr's result where its own text names none.
    f64 result = no_result;
    char number[longest_number + 1];
    if (find_operand(line, " gr ", ';', number, sizeof number)) {
        result = strtod(number, nullptr);
    }
    return read_named_result(line, &result) ? turned(result, side) : result;
}

// Anything but a clear win or loss is a draw; so an empty bracket is one.
bool read_bracket_result(const char* line, i32 side, f64* result)
{
    char text[training_line_length + 1];
    if (!find_operand(line, "[", ']', text, sizeof text)) {
        return false;
    }
    const bool won = strstr(text, "1.0") != nullptr;
    const bool lost = strstr(text, "0.0") != nullptr;
    *result = turned(won ? 1.0 : lost ? 0.0 : 0.5, side);
    return true;
}

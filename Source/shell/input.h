// Standard input, read without ever blocking on half a line, and files that are safe to read.
#pragma once

#include <cstdio>

#include "board/types.h"

// Characters of an input line with its line feed; the rest of a longer one is taken for another.
inline constexpr i32 longest_input = 4999; // characters of an input line; the rest is another

// Does what fgets would do with a buffer of size bytes (at most longest_input + 1), but returns at
// once when no whole line has arrived: the next line with its line feed, or size - 1 characters
// of a longer one, or what stands before the end of input. out is closed by NUL. Returns the
// number of characters, 0 for nothing. wait blocks until there is a line or the end of input. At a
// terminal the end of input is a key; more may follow it.
i32 read_input(char* out, i32 size, bool wait);

// No time of its own ends such a wait: an idle process has no reason to wake up by itself.
inline constexpr i32 without_limit = -1;

// Sleeps for the given time, or until more input arrives or the last worker has ended a search; not
// at all if a line is there already. After the end of input only the two others end it.
void wait_for_input(i32 microseconds);

// Whether the end of input has been reached and all of it was handed out. A terminal's end key is
// no such end.
[[nodiscard]] bool input_is_over();

// Forgets all input that was read and starts anew (for tests, which change standard input).
void reset_input();

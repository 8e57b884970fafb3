// The one way out: whole lines to standard output and to the log, one at a time.
#pragma once

#include <cstdio>
#include <string_view>

#include "base/types.h"

// The two dialogues.
enum DialogueMode : i16 { ConsoleMode = 0, UciMode = 1 };

// How the program speaks to its user. Set by the dialogues and the command line on the main thread,
// read wherever a line is put together: the workers print while the user may change it.
extern Shared<i16> uci_mode; // DialogueMode
extern Shared<f64> noise;    // no info line before this many seconds of a search

// A noise of this many seconds takes all info lines away.
inline constexpr f64 silent_noise = 9999.0;

// Whether print_line writes to the log too, as long as one is open. Off at the start.
void set_logging(bool on);
bool is_logging();

// Writes text and a line feed to standard output in one write, and to the log if logging is on.
void print_line(const char* text);

// The same with printf's formatting; a line is cut at 8 KB.
[[gnu::format(printf, 1, 2)]] void print_line_format(const char* format, ...);

// Writes a formatted text as it stands to standard output alone (console diagnostics), in one
// write; cut at 8 KB.
[[gnu::format(printf, 1, 2)]] void print_plain(const char* format, ...);

// The same for a text of any length.
void print_text(std::string_view text);

// The error that kept a line from standard output, 0 if all of them have left.
[[nodiscard]] i32 output_error();

// Writes a formatted line to the log alone, if one is open; whether logging is on is the caller's
// to ask.
[[gnu::format(printf, 1, 2)]] void log_line(const char* format, ...);

// Opens vesk.log in the current directory, replacing an old one. Returns 1, or 0 if the old
// file cannot be unlinked or the new one not opened, and then standard error says why; a second
// call with an open log returns 1.
[[nodiscard]] i32 open_log();

// Closes the log if it is open.
void close_log();

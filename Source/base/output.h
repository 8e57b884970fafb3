// The one way out: whole lines to standard output and to the log, one at a time.
#pragma once

#include <cstdio>

#include "board/types.h"

// A lock that spins for a moment and then yields. Held only while one line is built or written.
struct SpinLock {
    std::atomic<bool> taken;
};

void lock_spin(SpinLock* lock);
void unlock_spin(SpinLock* lock);

extern SpinLock output_lock; // standard output and the log file
extern FILE* log_file;       // null while no log is open

// Writes text and a line feed to standard output in one write, and to the log if logging is on,
// under output_lock.
void print_line(const char* text);

// The same with printf's formatting; a line is cut at 8 KB.
[[gnu::format(printf, 1, 2)]] void print_line_format(const char* format, ...);

// Writes a formatted text as it stands to standard output alone (console diagnostics), in one
// write, under output_lock; cut at 8 KB.
[[gnu::format(printf, 1, 2)]] void print_plain(const char* format, ...);

// The error that kept a line from standard output, 0 if all of them have left.
i32 output_error();

// Writes a formatted line to the log alone, if one is open; whether logging is on is the caller's
// to ask.
[[gnu::format(printf, 1, 2)]] void log_line(const char* format, ...);

// Copies src into dst, cut to size - 1 characters, always closed by NUL. size is at least 1.
void copy_text(char* dst, size_t size, const char* src);

// Opens a regular file for reading, or for appending, when it is made if there is none. Returns
// null if that fails or if path is anything else: a pipe or a device would hold up the main
// thread, or never end.
FILE* open_regular_file(const char* path, bool append = false);

// Opens vesk.log in the current directory, replacing an old one. Returns 1, or 0 if the old
// file cannot be unlinked or the new one not opened; a second call with an open log returns 1.
i32 open_log();

// Closes the log if it is open.
void close_log();

// What the doctor prints: headings, findings with a mark in front, and tables. At a terminal lines
// are broken between words and marks are coloured; in a pipe a finding is one line.
#pragma once

#include "base/types.h"

enum class Mark : u8 {
    Good,
    Note,  // could be better, or is worth knowing
    Wrong, // something does not work
};

struct Report {
    i32 width; // columns to break lines at, 0 for never
    bool coloured;
    i32 wrong; // findings of that mark
};

// A report to standard output as it is.
[[nodiscard]] Report start_report();

void print_heading(const Report* report, const char* text);

// A finding. What is no plain text in it, as a name of a file may have, is shown as '?'.
[[gnu::format(printf, 3, 4)]] void print_finding(
    Report* report, Mark mark, const char* format, ...);

// A line of a table, as it stands, under the finding before it.
[[gnu::format(printf, 1, 2)]] void print_row(const char* format, ...);

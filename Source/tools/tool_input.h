// What the tools share: an input file read line by line, what is said of it on standard error, and
// output files that end with a message if they cannot be had.
//
// The order of a run: open_input, open_tool_output for each file, start_progress, the lines,
// hide_progress, finish_outputs, close_input. finish_outputs still asks the input whether
// it could be read to its end, so the input is closed last.
#pragma once

#include "base/files.h"

// The progress of a long run, shown on standard error if that is a terminal.
struct Progress {
    bool on;
    bool visible; // a line is to be taken away before others are printed
    i64 count;    // items in the file
    f64 started;  // monotonic seconds
    f64 due;      // when the line is to be shown again
};

// The input of a tool.
struct ToolInput {
    const char* name;
    i32 refusals; // things in it that could not be used
    Progress progress;
    LineReader lines;
};

// Opens a regular file for reading and passes over a byte-order mark. Returns false after a message
// if it cannot be had; exit_status is 1 then, but not for a file that is simply not there.
[[nodiscard]] bool open_input(ToolInput* input, const char* name);

// Goes back to the start of the text. Returns false if that fails.
bool rewind_input(ToolInput* input);

// Closes it, with a message and exit_status 1 if it could not be read to its end.
void close_input(ToolInput* input);

// Reads a line into a buffer of size bytes, without its line feed and a carriage return before
// it. Of a longer line the rest is left out and refused. Returns the number of characters with the
// line feed, up to the first NUL; -1 at the end of the file.
[[nodiscard]] i32 read_input_line(ToolInput* input, char* line, i32 size);

// Whether a line of an EPD file is a comment: it begins with a blank, # or ;.
[[nodiscard]] bool is_epd_comment(const char* line);

// Says on standard error what of the given line cannot be used, and sets exit_status to 1. After
// many of them they are only counted.
[[gnu::format(printf, 3, 4)]] void refuse(
    ToolInput* input, i32 line_number, const char* format, ...);

// Gets ready to show progress. is_item tells whether a line of the file is one of the items that
// are counted; the file is read once for it and then stands at its start again.
void start_progress(ToolInput* input, bool (*is_item)(const char* line));

// Shows "WHAT n of m", the time that has passed and when the end is to be expected, a few times a
// second; number is that of the item to be worked on now, from 1.
void show_progress(ToolInput* input, const char* what, i64 number);

// Takes the line away, before others are printed.
void hide_progress(ToolInput* input);

// open_output; returns false after a message and with exit_status 1 if that fails, if the output
// would take the place of the file that is read, or if a folder has its name: a run may take hours,
// and only its end would tell.
[[nodiscard]] bool open_tool_output(
    const ToolInput* input, OutputFile* out, const char* name, const char* unfinished);

// Closes and publishes a number of files, all or none of them; a message and exit_status 1 tell
// of a failure. If the input could not be read to its end, they keep their unfinished names.
void finish_outputs(const ToolInput* input, OutputFile* const* files, i32 count);

// Closes a file and drops it.
void drop_output(OutputFile* out);

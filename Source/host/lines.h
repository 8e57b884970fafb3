// Whole lines over descriptors that must never be waited for: a chess program may send half a line,
// a megabyte without an end or ten thousand lines at once, and may stop reading at any moment.
#pragma once

#include <string>
#include <string_view>

#include "base/types.h"

// A longer line is dropped as a whole, with a count. The longest game that makes sense has some
// thousands of moves of five characters each.
inline constexpr size_t longest_line = 1 << 20;

// Lines that come in by a descriptor.
struct LineSource {
    int descriptor = -1;
    bool at_end = false;   // nothing more will come
    bool dropping = false; // inside of a line that is too long
    i32 dropped = 0;       // lines that were too long so far
    size_t start = 0;      // of what has not been taken yet
    std::string data;
};

// Reads once what is there; call it when the descriptor is ready, or it waits.
void fill_source(LineSource* source);

// Takes the next whole line, without its end and with a blank for each NUL. What is left without a
// line end at the end of input counts as a line. Returns whether there was one.
[[nodiscard]] bool take_line(LineSource* source, std::string* line);

// Lines that go out by a descriptor, as it takes them.
struct LineSink {
    int descriptor = -1;
    bool broken = false; // nobody reads any more: what is put in is dropped
    std::string pending;
};

// Above this many bytes of pending output, no more should be made until the reader has caught up.
inline constexpr size_t full_sink = 1 << 20;

void put_line(LineSink* sink, std::string_view line);

// Writes what the reader takes without a wait. The descriptor is left as it is: it may be shared
// with a terminal, which others write to as well.
void flush_sink(LineSink* sink);

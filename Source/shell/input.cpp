// Bytes of standard input on their way to whole lines. A chess program may send half a line and the
// rest a second later; the clock must not stand still meanwhile, so nothing here waits unless told
// to. The state is global, as standard input is; the main thread alone reads it. What is buffered
// always starts at the head, so that a line is one piece.
#include "shell/input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <unistd.h>

#include "base/text.h"
#include "base/wakeup.h"

// Bytes read at once; must hold the longest line with its end.
static constexpr i32 buffer_size = 16384;
static_assert(buffer_size > longest_input);

static char buffer[buffer_size];
static i32 buffered; // bytes at the head of buffer
static bool at_end;  // no more bytes will come
static bool end_key; // a terminal's key for it was pressed: what is buffered is a line

// Reads what has arrived, if there is room. A terminal's end key and the end of a pipe both read as
// nothing: a terminal that has not hung up can still give more. Errors that pass by (no input yet,
// a signal) are no end; all others are, or the loop would spin on them.
static void fill_buffer(bool wait)
{
    if (at_end || buffered == buffer_size) {
        return;
    }
    pollfd readable = { STDIN_FILENO, POLLIN, 0 };
    if (poll(&readable, 1, wait ? -1 : 0) <= 0) {
        return;
    }
    const ssize_t count =
        read(STDIN_FILENO, buffer + buffered, static_cast<size_t>(buffer_size - buffered));
    if (count > 0) {
        buffered += static_cast<i32>(count);
        end_key = false;
    } else if (count == 0 && (readable.revents & POLLHUP) == 0 && isatty(STDIN_FILENO)) {
        end_key = true;
    } else if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
        at_end = true;
    }
}

// The length of the next line, at most limit, or 0 if it has not arrived as a whole. A line of the
// limit's length is complete without its end, since it is handed out in pieces.
static i32 line_length(i32 limit)
{
    const i32 looked_at = std::min(buffered, limit);
    const void* feed = memchr(buffer, '\n', static_cast<size_t>(looked_at));
    if (feed != nullptr) {
        return static_cast<i32>(static_cast<const char*>(feed) - buffer) + 1;
    }
    return looked_at == limit || at_end || end_key ? looked_at : 0;
}

// The system is asked only when no line is left in the buffer. A file of commands is thus read in
// large pieces.
i32 read_input(char* out, i32 size, bool wait)
{
    const i32 limit = std::min(size - 1, longest_input);
    i32 length = line_length(limit);
    if (length == 0 && !end_key) {
        fill_buffer(wait);
        length = line_length(limit);
    }
    while (wait && length == 0 && !at_end && !end_key) {
        fill_buffer(true);
        length = line_length(limit);
    }
    if (length == 0) {
        end_key = false; // it counts once
    }
    memcpy(out, buffer, static_cast<size_t>(length));
    out[length] = '\0';
    buffered -= length;
    memmove(buffer, buffer + length, static_cast<size_t>(buffered));
    return length;
}

// Poll reports the end of input as readable for ever, so that a wait behind it would be none: it is
// not polled then, or an abandoned process would take a whole processor.
void wait_for_input(i32 microseconds)
{
    if (line_length(longest_input) != 0) {
        return;
    }
    // A negative descriptor is passed over.
    pollfd readable[2] = { { at_end ? -1 : STDIN_FILENO, POLLIN, 0 },
        { wakeup_descriptor(), POLLIN, 0 } };
    const timespec limit = { microseconds / 1000000, microseconds % 1000000 * 1000L };
    ppoll(readable, 2, microseconds == without_limit ? nullptr : &limit, nullptr);
    clear_wakeup();
}

bool input_is_over()
{
    return at_end && buffered == 0;
}

void reset_input()
{
    buffered = 0;
    at_end = false;
    end_key = false;
}

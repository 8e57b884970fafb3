// Whole lines to standard output and to the log. A line is put together with its line feed first
// and leaves in one write, so that lines of different threads never mix and a reader never sees
// half a line; a slow reader is waited for under output_lock.
#include "base/output.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <poll.h>
#include <string_view>
#include <sys/uio.h>
#include <unistd.h>

#include "base/files.h"
#include "base/lock.h"

static constexpr size_t line_buffer_size = 8192; // longer ones are written where they stand
static constexpr char log_name[] = "vesk.log";

constinit Shared<i16> uci_mode { UciMode };
constinit Shared<f64> noise {};

// Standard output and the log file.
static constinit SpinLock output_lock { false };
static constinit FILE* log_file = nullptr; // null while no log is open
static constinit bool log_is_cut = false;  // a line found no room
static constinit Shared<u8> logging {};    // lines go to the log too

static constinit Shared<i32> last_output_error {};

// Writes all of two pieces to standard output, the first call with both of them, however slow the
// reader is. A reader that is gone or a descriptor that cannot be written ends the attempt.
static void write_pieces(std::string_view text, std::string_view tail)
{
    while (text.size() + tail.size() > 0) {
        const iovec pieces[2] = {
            { const_cast<char*>(text.data()), text.size() },
            { const_cast<char*>(tail.data()), tail.size() },
        };
        const ssize_t count = tail.empty() ? write(STDOUT_FILENO, text.data(), text.size())
                                           : writev(STDOUT_FILENO, pieces, 2);
        if (count < 0) {
            // A descriptor that does not block is waited for here: half a line would be worse.
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                pollfd writable = { STDOUT_FILENO, POLLOUT, 0 };
                poll(&writable, 1, -1);
            } else if (errno != EINTR) {
                store(last_output_error, errno);
                return;
            }
            continue;
        }
        const size_t written = static_cast<size_t>(count);
        const size_t of_text = written < text.size() ? written : text.size();
        text.remove_prefix(of_text);
        tail.remove_prefix(written - of_text);
    }
}

void set_logging(bool on)
{
    store(logging, on);
}

bool is_logging()
{
    return load(logging) != 0;
}

// Writes a line to the log if one is open; the caller holds output_lock. Each line is flushed: a
// log is read when the program has ended in a way that nobody expected.
static void write_log_line(std::string_view text)
{
    if (log_file == nullptr) {
        return;
    }
    fwrite(text.data(), 1, text.size(), log_file);
    fputc('\n', log_file);
    // Told once: whoever asked for the log believes that it is whole.
    if (fflush(log_file) != 0 && !log_is_cut) {
        log_is_cut = true;
        complain(log_name, "lines are missing", errno);
    }
}

// The line feed is put behind a copy, outside of the lock; only a line that no buffer holds goes
// out in two pieces.
void print_line(const char* text)
{
    const std::string_view words = text;
    char line[line_buffer_size];
    const bool fits = words.size() < sizeof line;
    if (fits) {
        words.copy(line, words.size());
        line[words.size()] = '\n';
    }

    const SpinGuard guard(&output_lock);
    if (fits) {
        write_pieces({ line, words.size() + 1 }, {});
    } else {
        write_pieces(words, "\n");
    }
    if (is_logging()) {
        write_log_line(words);
    }
}

void print_line_format(const char* format, ...)
{
    char text[line_buffer_size];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    print_line(text);
}

void print_plain(const char* format, ...)
{
    char text[line_buffer_size];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    print_text(text);
}

void print_text(std::string_view text)
{
    const SpinGuard guard(&output_lock);
    write_pieces(text, {});
}

i32 output_error()
{
    return load(last_output_error);
}

void log_line(const char* format, ...)
{
    char text[line_buffer_size];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);

    const SpinGuard guard(&output_lock);
    write_log_line(text);
}

// An older log is unlinked, not cut: what has it open keeps it.
i32 open_log()
{
    if (log_file != nullptr) {
        return 1;
    }
    FILE* file = nullptr;
    if (const int error = open_new_file(&file, log_name); error != 0) {
        complain(log_name, "cannot be opened for writing", error);
        return 0;
    }
    const SpinGuard guard(&output_lock);
    log_file = file;
    return 1;
}

void close_log()
{
    const SpinGuard guard(&output_lock);
    if (log_file != nullptr) {
        fclose(log_file);
        log_file = nullptr;
    }
}

// Whole lines to standard output and to the log. A line is put together with its line feed first
// and leaves in one write, so that lines of different threads never mix and a reader never sees
// half a line; a slow reader is waited for under output_lock.
#include "base/output.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include "base/lock.h"

static constexpr size_t line_buffer_size = 8192; // longer ones are written where they stand
static constexpr char log_name[] = "vesk.log";

constinit Shared<i16> uci_mode { UciMode };
constinit Shared<f64> noise {};

// Standard output and the log file.
static constinit SpinLock output_lock { false };
static constinit FILE* log_file = nullptr; // null while no log is open
static constinit Shared<u8> logging {};    // lines go to the log too

static constinit Shared<i32> last_output_error {};

// Writes all of two pieces to standard output, the first call with both of them, however slow the
// reader is. A reader that is gone or a descriptor that cannot be written ends the attempt.
static void write_pieces(const char* text, size_t text_size, const char* tail, size_t tail_size)
{
    while (text_size + tail_size > 0) {
        const iovec pieces[2] = {
            { const_cast<char*>(text), text_size },
            { const_cast<char*>(tail), tail_size },
        };
        const ssize_t count = tail_size == 0 ? write(STDOUT_FILENO, text, text_size)
                                             : writev(STDOUT_FILENO, pieces, 2);
        if (count < 0) {
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
        const size_t of_text = written < text_size ? written : text_size;
        text += of_text;
        text_size -= of_text;
        tail += written - of_text;
        tail_size -= written - of_text;
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

// Writes a line to the log if one is open; the caller holds output_lock.
static void write_log_line(const char* text, size_t size)
{
    if (log_file == nullptr) {
        return;
    }
    fwrite(text, 1, size, log_file);
    fputc('\n', log_file);
    fflush(log_file);
}

void print_line(const char* text)
{
    const size_t size = strlen(text);
    char line[line_buffer_size];
    const bool fits = size < sizeof line;
    if (fits) {
        memcpy(line, text, size);
        line[size] = '\n';
    }

    const SpinGuard guard(&output_lock);
    if (fits) {
        write_pieces(line, size + 1, nullptr, 0);
    } else {
        write_pieces(text, size, "\n", 1);
    }
    if (is_logging()) {
        write_log_line(text, size);
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

    const SpinGuard guard(&output_lock);
    write_pieces(text, strlen(text), nullptr, 0);
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
    write_log_line(text, strlen(text));
}

i32 open_log()
{
    if (log_file != nullptr) {
        return 1;
    }
    if (access(log_name, F_OK) == 0 && unlink(log_name) != 0) {
        return 0;
    }
    FILE* file = fopen(log_name, "we");
    const SpinGuard guard(&output_lock);
    log_file = file;
    return file != nullptr;
}

void close_log()
{
    const SpinGuard guard(&output_lock);
    if (log_file != nullptr) {
        fclose(log_file);
        log_file = nullptr;
    }
}

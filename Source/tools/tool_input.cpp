// Input and output files of the tools. What goes wrong with them is told on standard error, since
// other programs read standard output, and ends up in the exit status. A run may take hours and its
// input may come from anywhere: one bad line must not cost the rest, and nothing in it may garble
// the terminal.
#include "tools/tool_input.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/files.h"
#include "base/output.h"
#include "search/clock.h"

static constexpr i32 shown_refusals = 100; // the others are only counted
static constexpr i32 message_size = 1024;  // characters with the NUL; the rest is cut off
static constexpr f64 seconds_between_shows = 0.2;
static constexpr char delete_character = 127;

// Back to the start of the terminal's line, and away with all that stands on it.
static constexpr char clear_line[] = "\r\x1b[K";

bool open_input(ToolInput* input, const char* name)
{
    FILE* file = open_or_complain(name);
    if (file == nullptr) {
        // A file that is not there gives a message alone; one that is there but cannot be read
        // is an error, too.
        if (errno != ENOENT) {
            exit_status = 1;
        }
        return false;
    }
    input->name = name;
    input->refusals = 0;
    input->progress = {};
    start_reading(&input->lines, file);
    skip_byte_order_mark(&input->lines);
    return true;
}

// The reader is made ready anew in any case: its block may hold text from the end of the file.
bool rewind_input(ToolInput* input)
{
    const bool sought = fseek(input->lines.file, 0, SEEK_SET) == 0;
    start_reading(&input->lines, input->lines.file);
    skip_byte_order_mark(&input->lines);
    return sought;
}

// How many refusals were only counted is told here, behind all others.
void close_input(ToolInput* input)
{
    hide_progress(input);
    if (ferror(input->lines.file)) {
        fprintf(stderr, "%s: cannot be read to its end\n", input->name);
        exit_status = 1;
    }
    if (input->refusals > shown_refusals) {
        fprintf(stderr, "%s: %d messages more\n", input->name, input->refusals - shown_refusals);
    }
    fclose(input->lines.file);
}

// The status is set by the first one, shown or not. The progress line goes away before the message:
// both stand on the same terminal.
void refuse(ToolInput* input, i32 line_number, const char* format, ...)
{
    exit_status = 1;
    if (++input->refusals > shown_refusals) {
        return;
    }
    char message[message_size];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);
    for (char* c = message; *c != '\0'; ++c) {
        if (static_cast<u8>(*c) < ' ' || *c == delete_character) {
            *c = '?'; // the text may come from a file of any kind
        }
    }
    hide_progress(input);
    fprintf(stderr, "%s:%d: %s\n", input->name, line_number, message);
}

// Passes over what is left of a line. Returns whether there was more than its end: a line that just
// fits has only its line feed left, and nothing of it is lost.
static bool skip_rest(LineReader* lines)
{
    bool more = false;
    char piece[message_size];
    while (lines->in_line && read_line_piece(lines, piece, sizeof piece) > 0) {
        more = more || (strcmp(piece, "\n") != 0 && strcmp(piece, "\r\n") != 0);
    }
    return more;
}

// The length counts the line feed because rules about the shortest line are told so; the last line
// of a file may have none.
i32 read_input_line(ToolInput* input, char* line, i32 size)
{
    if (read_line_piece(&input->lines, line, size) == 0) {
        return -1;
    }
    size_t length = strcspn(line, "\n");
    const i32 line_feed = line[length] == '\n';
    if (length > 0 && line[length - 1] == '\r') {
        --length;
    }
    line[length] = '\0';
    if (input->lines.in_line && skip_rest(&input->lines)) {
        refuse(input, input->lines.line_number, "only the first %d characters of a line are read",
            size - 1);
    }
    return static_cast<i32>(length) + line_feed;
}

bool is_epd_comment(const char* line)
{
    return line[0] == ' ' || line[0] == '#' || line[0] == ';';
}

// ---- Progress

// The number of lines that are items. Only the first piece of a long line is asked.
static i64 count_items(ToolInput* input, bool (*is_item)(const char* line))
{
    i64 count = 0;
    char line[message_size];
    for (bool starts = true; read_line_piece(&input->lines, line, sizeof line) > 0;) {
        count += starts && is_item(line);
        starts = !input->lines.in_line;
    }
    return count;
}

// Without a terminal nobody watches, and reading the file once more would only take time.
void start_progress(ToolInput* input, bool (*is_item)(const char* line))
{
    Progress* progress = &input->progress;
    progress->on = isatty(STDERR_FILENO) != 0;
    if (!progress->on) {
        return;
    }
    progress->count = count_items(input, is_item);
    rewind_input(input);
    progress->started = monotonic_seconds();
    progress->due = progress->started + seconds_between_shows;
}

// The expectation goes by the items behind: the first has none, so nothing is shown before the
// second. The cursor goes back to the line's start, where the next output overwrites it.
void show_progress(ToolInput* input, const char* what, i64 number)
{
    Progress* progress = &input->progress;
    if (!progress->on) {
        return;
    }
    const f64 now = monotonic_seconds();
    if (now < progress->due || number < 2) {
        return;
    }
    progress->due = now + seconds_between_shows;
    progress->visible = true;
    const f64 passed = now - progress->started;
    // The item of this number is still to be done. A count that came out too low ends at 0.
    const i64 left = progress->count - number + 1;
    const f64 to_come =
        passed / static_cast<f64>(number - 1) * static_cast<f64>(left > 0 ? left : 0);
    const time_t end = time(nullptr) + static_cast<time_t>(to_come);
    char clock[32] = "";
    tm parts;
    if (localtime_r(&end, &parts) != nullptr) {
        strftime(clock, sizeof clock, "%H:%M:%S", &parts);
    }
    fprintf(stderr, "\r%s %lld of %lld, %.0f s elapsed, end expected at %s\x1b[K\r", what,
        static_cast<long long>(number), static_cast<long long>(progress->count), passed, clock);
}

// Does nothing where no line is shown, so callers need not know.
void hide_progress(ToolInput* input)
{
    if (input->progress.visible) {
        fputs(clear_line, stderr);
        input->progress.visible = false;
    }
}

// ---- Output

// A folder cannot be replaced by a file, and that would come out at the end of the run only.
static bool is_folder(const char* name)
{
    struct stat status;
    return lstat(name, &status) == 0 && S_ISDIR(status.st_mode);
}

// Writing over the input would cut it off while it is read, under its final name or the unfinished
// one.
bool open_tool_output(
    const ToolInput* input, OutputFile* out, const char* name, const char* unfinished)
{
    FILE* file = input->lines.file;
    if (is_named(file, name) || is_named(file, unfinished)) {
        fprintf(stderr, "%s: would be replaced by the output\n", input->name);
        exit_status = 1;
        return false;
    }
    const int error = is_folder(name) ? EISDIR : open_output(out, name, unfinished);
    if (error != 0) {
        complain(name, "cannot be opened for writing", error);
        exit_status = 1;
    }
    return error == 0;
}

// Closes a number of files. Returns whether all of them are complete. All are closed, whatever
// becomes of one, so that each error is told.
static bool close_outputs(OutputFile* const* files, i32 count)
{
    bool complete = true;
    for (i32 i = 0; i < count; ++i) {
        const int error = close_output(files[i]);
        if (error != 0) {
            complain(files[i]->name, "cannot be written", error);
            complete = false;
        }
    }
    return complete;
}

// First all are closed, then all get their names: after an error none may replace an older file, as
// files of one run belong together. Once one name could not be given, those that follow are
// dropped.
void finish_outputs(const ToolInput* input, OutputFile* const* files, i32 count)
{
    bool complete = close_outputs(files, count);
    if (complete && ferror(input->lines.file)) {
        for (i32 i = 0; i < count; ++i) {
            fprintf(stderr, "%s: not replaced, what could be made stays in %s\n", files[i]->name,
                files[i]->unfinished);
        }
        return; // closing the input says why
    }
    for (i32 i = 0; i < count; ++i) {
        if (!complete) {
            unlink(files[i]->unfinished);
            continue;
        }
        const int error = publish_output(files[i]);
        if (error != 0) {
            complain(files[i]->name, "cannot be replaced", error);
            complete = false;
        }
    }
    if (!complete) {
        exit_status = 1;
    }
}

// For a run that ends before it has anything to write. Errors say nothing any more: the file goes.
void drop_output(OutputFile* out)
{
    fclose(out->file);
    unlink(out->unfinished);
}

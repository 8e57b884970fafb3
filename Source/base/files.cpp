// Reading by the block and handing out lines; writing under a second name first, so that an older
// file stays whole until the new one is.
#include "base/files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr char byte_order_mark[] = "\xef\xbb\xbf"; // in UTF-8

constinit i32 exit_status = 0;

// Opened without blocking: a pipe that nobody writes would keep the call itself from coming back.
// For a regular file the flag changes nothing.
FILE* open_regular_file(const char* path, bool append)
{
    const int mode = append ? O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW : O_RDONLY;
    const int descriptor = open(path, mode | O_NONBLOCK | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        return nullptr;
    }
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        return nullptr;
    }
    // A file of several names may be somebody else's, put here to be written to.
    if (append && status.st_nlink > 1) {
        close(descriptor);
        errno = EMLINK;
        return nullptr;
    }
    FILE* file = fdopen(descriptor, append ? "a" : "r");
    if (file == nullptr) {
        close(descriptor);
    }
    return file;
}

// Between the removal and the opening the name may come back: then the opening fails.
int open_new_file(FILE** file, const char* name)
{
    *file = nullptr;
    struct stat status;
    if (lstat(name, &status) == 0) {
        if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
            return EEXIST;
        }
        if (unlink(name) != 0) {
            return errno;
        }
    }
    *file = fopen(name, "wxe");
    return *file == nullptr ? errno : 0;
}

void start_reading(LineReader* reader, FILE* file)
{
    reader->file = file;
    reader->line_number = 0;
    reader->in_line = false;
    reader->start = 0;
    reader->end = 0;
}

// Reads the next block when all of the last one has been handed out.
static void fill_block(LineReader* reader)
{
    if (reader->start == reader->end) {
        reader->start = 0;
        reader->end = fread(reader->block, 1, sizeof reader->block, reader->file);
    }
}

void skip_byte_order_mark(LineReader* reader)
{
    const size_t size = sizeof byte_order_mark - 1;
    fill_block(reader);
    if (reader->end - reader->start >= size
        && memcmp(reader->block + reader->start, byte_order_mark, size) == 0) {
        reader->start += size;
    }
}

// A NUL in the file is copied like any other character; the caller's text ends there.
i32 read_line_piece(LineReader* reader, char* line, i32 size)
{
    const size_t limit = static_cast<size_t>(size) - 1;
    size_t length = 0;
    bool ended = false;
    while (!ended && length < limit) {
        fill_block(reader);
        if (reader->end == 0) {
            break;
        }
        const char* text = reader->block + reader->start;
        size_t count = reader->end - reader->start;
        if (count > limit - length) {
            count = limit - length;
        }
        if (const void* feed = memchr(text, '\n', count)) {
            count = static_cast<size_t>(static_cast<const char*>(feed) - text) + 1;
            ended = true;
        }
        memcpy(line + length, text, count);
        reader->start += count;
        length += count;
    }
    line[length] = '\0';
    if (length > 0) {
        reader->line_number += !reader->in_line;
        reader->in_line = !ended;
    }
    return static_cast<i32>(length);
}

FILE* open_or_complain(const char* name, bool append)
{
    errno = 0;
    FILE* file = open_regular_file(name, append);
    if (file != nullptr) {
        return file;
    }
    if (errno == 0) {
        fprintf(stderr, "%s: cannot be opened: not a regular file\n", name);
        errno = 0;
    } else {
        const int error = errno;
        complain(name, "cannot be opened", error);
        errno = error;
    }
    return nullptr;
}

// By device and number: the same file may have many names. A link of that name is not the file.
bool is_named(FILE* file, const char* name)
{
    struct stat status;
    struct stat named;
    return fstat(fileno(file), &status) == 0 && lstat(name, &named) == 0
        && named.st_dev == status.st_dev && named.st_ino == status.st_ino;
}

// Why a file takes no more: the write that failed is made once more, since nobody kept its error.
static int find_write_error(FILE* file)
{
    clearerr(file);
    errno = 0;
    fputc('\n', file);
    fflush(file);
    return errno != 0 ? errno : EIO;
}

int flush_written_file(FILE* file)
{
    if (ferror(file)) {
        return find_write_error(file);
    }
    return fflush(file) != 0 ? errno : 0;
}

// An error may show first when the buffer is written out, or only when the file is closed; the
// first one is the one to tell.
int close_written_file(FILE* file)
{
    int error = flush_written_file(file);
    if (fclose(file) != 0 && error == 0) {
        error = errno;
    }
    return error;
}

// Whether a run that has not ended holds the lock of a file: taking the file from it would mix up
// its results with those of the other run.
static bool is_being_written(const char* name)
{
    const int descriptor = open(name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool locked = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    close(descriptor);
    return locked;
}

// The lock is held by the open file and goes with it, however the process ends. What is there under
// the name and is not locked was left by a run that did not end well.
int open_output(OutputFile* out, const char* name, const char* unfinished)
{
    out->name = name;
    out->unfinished = unfinished;
    out->file = nullptr;
    if (is_being_written(unfinished)) {
        return EBUSY;
    }
    unlink(unfinished);
    out->file = fopen(unfinished, "wbxe");
    if (out->file == nullptr) {
        return errno;
    }
    setvbuf(out->file, out->buffer, _IOFBF, sizeof out->buffer);
    flock(fileno(out->file), LOCK_EX | LOCK_NB);
    return 0;
}

int close_output(OutputFile* out)
{
    const int error = close_written_file(out->file);
    out->file = nullptr;
    if (error != 0) {
        unlink(out->unfinished);
    }
    return error;
}

int publish_output(OutputFile* out)
{
    if (rename(out->unfinished, out->name) == 0) {
        return 0;
    }
    const int error = errno;
    unlink(out->unfinished);
    return error;
}

void complain(const char* file_name, const char* what, int error)
{
    fprintf(stderr, "%s: %s: %s\n", file_name, what, strerror(error));
}

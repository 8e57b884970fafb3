// Files that are read in lines, and files that take the place of an older one only once they are
// complete.
#pragma once

#include <cstdio>

#include "base/types.h"

// Opens a regular file for reading, or for appending, when it is made if there is none. Returns
// null if that fails or if path is anything else: a pipe or a device would hold up the main
// thread, or never end. What is appended to is not reached through a symbolic link and has no
// second name, which may be another user's file.
[[nodiscard]] FILE* open_regular_file(const char* path, bool append = false);

// Opens a new, empty file of a fixed name for writing. An older file or a link of that name is
// removed, not written through: in a folder that others may write to, the name may be a link that
// somebody else has put there. Returns 0 or the error; EEXIST if the name is neither a file's nor a
// link's.
[[nodiscard]] int open_new_file(FILE** file, const char* name);

// A file being read in lines, or in pieces of lines that are longer than the reader allows.
struct LineReader {
    FILE* file;
    i32 line_number; // of the piece read last; the first line is 1
    bool in_line;    // that piece has not ended its line
    size_t start;
    size_t end;
    char block[65536];
};

// Makes ready to read an open file from where it stands.
void start_reading(LineReader* reader, FILE* file);

// Passes over the mark that some editors put before the first character of a UTF-8 text. Called
// before the first piece is read.
void skip_byte_order_mark(LineReader* reader);

// Reads up to size - 1 characters, up to and with the next line feed, closed by NUL. Returns their
// number, 0 at the end of the file or when it cannot be read any further (see ferror).
[[nodiscard]] i32 read_line_piece(LineReader* reader, char* line, i32 size);

// Opens a file as open_regular_file does, and says on standard error why it failed; errno is then
// the reason, or 0 if what has the name is no regular file.
[[nodiscard]] FILE* open_or_complain(const char* name, bool append = false);

// Whether an open file is the one of that name.
[[nodiscard]] bool is_named(FILE* file, const char* name);

// Writes out what a file's buffer holds. Returns 0, or the error that kept the file from taking all
// that was written so far.
[[nodiscard]] int flush_written_file(FILE* file);

// Closes a file that was written. Returns 0, or the error that kept it from taking all.
[[nodiscard]] int close_written_file(FILE* file);

// A file being written under a name of its own until it is complete.
struct OutputFile {
    FILE* file;
    const char* name;       // what it is to be called
    const char* unfinished; // what it is called until then; an older file of that name is lost
    char buffer[65536];     // of file, whose own would be written out by every 4 KB
};

// Opens a file for writing. Returns 0 or the error; EBUSY if another run is writing it just now.
[[nodiscard]] int open_output(OutputFile* out, const char* name, const char* unfinished);

// Writes what is left and closes the file, which keeps its unfinished name. Returns 0, or the
// error that kept the file from taking all of it; the file is gone then.
[[nodiscard]] int close_output(OutputFile* out);

// Gives a closed file its name, in place of an older one. Returns 0 or the error; the file is gone
// then and the older one still there.
[[nodiscard]] int publish_output(OutputFile* out);

// What the process ends with: 0, or 1 once a run has refused a part of its input or could not write
// its output. Set by whatever loses something of the user's, read by main at the end: a run goes on
// behind a refusal, so that an argument would have to go through every routine of the tools.
extern i32 exit_status;

// Says on standard error what could not be done with a file, and why.
void complain(const char* file_name, const char* what, int error);

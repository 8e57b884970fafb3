// Files that come and go, packed or not: "-" is standard input or output, what begins as a gzip or
// zstd file is unpacked (RFC 1952, RFC 8878), and what is to be named .gz or .zst is packed. Behind
// both stands a FILE, so that everything else reads and writes as usual.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/types.h"
#include "data/report.h"

// Why a stream cannot be opened or read, where no errno says it.
inline constexpr const char* no_gzip = "is packed by gzip, which this build cannot read";
inline constexpr const char* no_zstd = "is packed by zstd, which this build cannot read";

// The packed forms that this build knows, a blank between them; "none" if there are none.
extern const char* const packed_forms;

struct Unpacker; // what reads the packed file

// A file that is read.
struct InputStream {
    std::string name;     // as messages call it
    FILE* file = nullptr; // the text, unpacked
    i64 size = 0;         // bytes of the file itself, packed or not; 0 where that is not known
    std::unique_ptr<Unpacker> unpacker;

    InputStream();
    InputStream(InputStream&&) noexcept;
    InputStream& operator=(InputStream&&) noexcept;
    ~InputStream();
};

// Opens a regular file, a pipe that the user names, or standard input. Returns false after a
// message, and the report counts a failed file.
[[nodiscard]] bool open_stream(InputStream* stream, const std::string& name, Report* report);

// Bytes of the file itself that have been taken so far, at most stream.size where that is known.
[[nodiscard]] i64 stream_position(const InputStream& stream);

// Closes it, and tells of a file that could not be read to its end or ends too early, as an
// unfinished download does. Returns whether all of it was read.
bool close_stream(InputStream* stream, Report* report);

struct Packer; // what packs and writes

// A file that is written: under another name until it is complete, unless it is standard output.
struct OutputStream {
    std::string name;
    FILE* file = nullptr; // takes the text
    std::unique_ptr<Packer> packer;

    OutputStream();
    OutputStream(OutputStream&&) noexcept;
    OutputStream& operator=(OutputStream&&) noexcept;
    ~OutputStream(); // drops what is not finished
};

// Opens an output. inputs are files that it must not take the place of. Returns false after a
// message, and the report counts a failed file: the folder cannot be written, another run writes
// the same file just now, the name is a folder's or an input's.
[[nodiscard]] bool open_sink(OutputStream* stream, const std::string& name,
    const std::vector<std::string>& inputs, Report* report);

// Writes what is left, closes the file and gives it its name. Returns false after a message if it
// did not take all of it: then an older file of that name is still there.
[[nodiscard]] bool finish_sink(OutputStream* stream, Report* report);

// Whether what was written so far has left, or can still leave, without an error. A run looks at it
// now and then, to end when the disk is full or the reader has gone.
[[nodiscard]] bool is_sink_well(const OutputStream& stream);

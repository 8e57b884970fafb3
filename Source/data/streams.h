// Files that are read, packed or not: "-" is standard input, and what begins as a gzip or zstd file
// is unpacked (RFC 1952, RFC 8878). Behind it stands a FILE, so that everything else reads as
// usual.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

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

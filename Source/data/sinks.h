// Files that are written, packed or not: "-" is standard output, and what is to be named .gz or
// .zst is packed (RFC 1952, RFC 8878). Before it stands a FILE, so that everything else writes as
// usual.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/types.h"
#include "data/report.h"

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

// The same for an output of so many items, "game" or the like. Without one, a file of that name is
// left as it is, for an empty one would take the place of one that has some; that is a failure.
[[nodiscard]] bool finish_counted_sink(
    OutputStream* stream, i64 count, const char* item, Report* report);

// Whether what was written so far has left, or can still leave, without an error. A run looks at it
// now and then, to end when the disk is full or the reader has gone.
[[nodiscard]] bool is_sink_well(const OutputStream& stream);

// Files without a name, for what may not fit into memory: gone with the process, however it ends.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

#include "base/types.h"
#include "data/report.h"

// Opens one in that folder for reading and writing. Returns its descriptor, or -1 with errno.
[[nodiscard]] int open_nameless(const std::string& folder);

struct FileCloser {
    void operator()(FILE* file) const
    {
        fclose(file);
    }
};
using OwnedFile = std::unique_ptr<FILE, FileCloser>;

// Makes an empty one for writing and reading, in the folder that TMPDIR names or in /tmp. Returns
// null after a message, and the report counts a failed file.
[[nodiscard]] OwnedFile open_nameless_file(Report* report);

// Writes out what its buffer holds, so that read_at finds it. Returns false after a message if it
// did not take all, as on a full disk.
[[nodiscard]] bool flush_nameless(FILE* file, Report* report);

// Empties it.
void clear_nameless(FILE* file);

// Reads size bytes from offset on, by any thread. Returns how many there were, fewer only at the
// end or where the file cannot be read.
[[nodiscard]] size_t read_at(FILE* file, i64 offset, void* bytes, size_t size);

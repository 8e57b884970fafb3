// Table files in memory. They are mapped, as a file may be larger than the memory; somebody who
// cuts one short meanwhile, or a disk that fails, makes reads of it fail, and that must not end the
// run.
#pragma once

#include "base/types.h"

// From now on a read of a mapped file that fails gives zeros, and is counted. For the whole
// process; nothing else must have a use for SIGBUS.
void survive_failed_reads();

// How many pages this thread could not read so far. Who reads a mapping asks before and after.
[[nodiscard]] i64 count_failed_reads();

// A file as it was when it was mapped.
struct MappedFile {
    const u8* data = nullptr; // null where size is 0
    u64 size = 0;
    i64 seconds = 0; // of the last change
    i64 nanoseconds = 0;
};

// Maps a regular file for reading; returns 0, an errno, or ENOTSUP for what is no regular file.
[[nodiscard]] int map_table_file(const char* path, MappedFile* file);

void unmap_table_file(MappedFile* file);

// Whether the file of this name is still as it was when it was mapped.
[[nodiscard]] bool is_unchanged(const char* path, const MappedFile& file);

// Tells the system which bytes will be read next, so that it reads ahead, and from where on nothing
// in front is needed soon. Both are clamped to the file.
void announce_reading(const MappedFile& file, u64 begin, u64 end);
void finish_reading(const MappedFile& file, u64 begin, u64 end);

// Whether a file is a sound opening book in the Polyglot format.
#pragma once

#include "base/types.h"

struct BookCheck {
    int error;    // why it cannot be read; 0 if it can
    bool regular; // a regular file
    u64 bytes;
    u64 records;        // whole ones of 16 bytes
    u64 positions;      // different keys, where the book is in order
    u64 first_unsorted; // number of the first record whose key is less than the one before; 0: none
    bool start_position; // is in it
};

// Reads the whole file.
[[nodiscard]] BookCheck check_book(const char* path);

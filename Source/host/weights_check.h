// The file of weights that the engine takes from the folder in which it is started.
#pragma once

#include "base/types.h"

enum class WeightsFile : u8 {
    None,    // no file of that name
    Unread,  // it is there and cannot be read, so that the engine goes without it
    Unknown, // it could not be found out
    Used,    // the engine takes its weights
};

struct WeightsCheck {
    WeightsFile state;
    const char* name; // of the file
    i32 total;        // weights of the engine
    i32 differing;    // from the engine's own
    i32 read;         // entries that the file has set, the last time it went through the table
    i32 misplaced;    // lines with the name of another entry
    char first_misplaced[80];
};

// Reads the file of the current folder as the engine does, in a process of its own.
[[nodiscard]] WeightsCheck check_weights();

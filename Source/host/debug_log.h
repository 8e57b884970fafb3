// The dialogue as a file, for whoever wants to see what a chess program and the engine said to each
// other: a line each, with the time and the direction.
#pragma once

#include <string>
#include <string_view>

struct DebugLog {
    int descriptor = -1; // -1: none
    std::string name;    // of the open file
    std::string asked;   // the name that was asked for
};

// Closes an open file and begins another, whose name gets the number of this process before its
// last dot: processes that were given one name have a file each. An empty name begins none, and one
// that is open already goes on. No older file is written to. Returns 0 or the error.
[[nodiscard]] int begin_log(DebugLog* log, std::string_view name);

void end_log(DebugLog* log);

// Writes a line. direction is a sign in front of it. Returns 0, or the error that keeps the file
// from growing; it is closed then.
[[nodiscard]] int log_text(DebugLog* log, char direction, std::string_view text);

// Where files lie, seen before a run begins: a name that cannot be written should cost a word, not
// the hours of the run, and no name that is written may be that of an input.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "base/files.h"

// Whether both names are one file's, by whatever way, or would be if it were made.
[[nodiscard]] bool is_same_place(const std::string& a, const std::string& b);

// Why nothing can be written under that name, or null: a folder, or in a folder that is not there
// or takes no files. Devices and pipes pass.
[[nodiscard]] const char* place_problem(const std::string& name);

// Whether what is written under that name stays there: no device, no pipe, and none of the names by
// which the system hands out what is open already, such as /dev/stdout.
[[nodiscard]] bool is_plain_place(const std::string& name);

// Opens for writing what is no plain place, and what such a name stands for where it stands: a file
// behind /dev/stdout is neither replaced nor cut. Returns null with errno.
[[nodiscard]] FILE* open_place(const std::string& name);

// ---- Unfinished files

// The name that an output has until it is complete.
[[nodiscard]] std::string unfinished_name(const std::string& name);

// Opens an output as open_output does, and remembers its unfinished name, to be removed if the user
// or the system ends the process before it is forgotten. A process that is killed leaves it. Called
// before the run has threads: a signal that one of them takes may come between. Returns 0 or the
// errno value.
[[nodiscard]] int open_unfinished(OutputFile* out, const char* name, const char* unfinished);
void forget_unfinished(const std::string& name);

// Removes them all now: for what ends the process by itself.
void remove_unfinished_files();

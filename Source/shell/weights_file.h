// The file of weights: one line of text for each entry of the table.
#pragma once

#include <cstdio>

#include "base/types.h"

// The weights file, looked for in the working directory.
inline constexpr char params_file[] = "params.txt";

// The name that it has until it is complete.
inline constexpr char unfinished_params[] = "params.part";

// Reads a file of weights, if it is there, line by line as fset. Lines without a name and two
// integers are passed over; a name that is not the entry's is complained of on standard output. No
// worker may be searching, and all evaluation caches must be cleared.
void load_params_file(const char* file_name);

// The same for an open file, with each wrong name told to complain: the number of its line, from 1;
// the name; and the entry's own, empty behind the end of the table. It gets context as it is.
// Afterwards param_cursor tells how many entries have been set. A line of more than 254 characters
// counts as several.
using NameComplaint = void (*)(void* context, i32 line, const char* name, const char* expected);
void read_params(FILE* file, NameComplaint complain, void* context);

// Writes all entries to a file of that name, in the form that load_params_file reads. The old file
// stays until the new one is complete. Returns 0, or the error that kept the file from being
// written.
[[nodiscard]] int save_params_file(const char* name);

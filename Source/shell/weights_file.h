// The file of weights: one line of text for each entry of the table.
#pragma once

#include "base/types.h"

// The weights file, looked for in the working directory.
inline constexpr char params_file[] = "params.txt";

// The name that it has until it is complete.
inline constexpr char unfinished_params[] = "params.part";

// Reads a file of weights, if it is there, line by line as fset. Lines without a name and two
// integers are passed over; a name that is not the entry's is complained of on standard output. No
// worker may be searching, and all evaluation caches must be cleared.
void load_params_file(const char* file_name);

// Writes all entries to a file of that name, in the form that load_params_file reads. The old file
// stays until the new one is complete. Returns 0, or the error that kept the file from being
// written.
[[nodiscard]] int save_params_file(const char* name);

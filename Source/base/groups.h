// The groups of processes that the system sets limits to, as containers do.
#pragma once

#include "base/types.h"

// Calls visit with each folder below root ("" for that of the system) that may hold limits of this
// process's: its own group's and those of all groups above, whose limits hold too.
void visit_groups(
    const char* root, void (*visit)(const char* folder, void* context), void* context);

// Bytes that a group still lets its processes take, by the files in its folder; the largest number
// where they set no limit.
[[nodiscard]] u64 group_memory_left(const char* folder);

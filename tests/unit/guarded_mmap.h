// Lets files that the engine maps lie alone in memory: a read before or behind the mapping ends
// the program. Under the address sanitizer a mapping is a block of its own, told to the byte;
// otherwise pages that cannot be read stand behind it, told to 64 bytes.
#pragma once

#include <cstddef>

// Guards the mappings that are made from now on, or leaves them to the system as at the start.
void guard_mappings(bool on);

// Guarded mappings that are in use, and that have been made in all.
size_t guarded_mappings();
size_t guarded_mappings_made();

// What the fuzz targets share: an engine that is ready in this process, and texts made of the
// fuzzer's bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "run_state.h"

// Makes the engine ready at the first call, with one worker and a hash table of one megabyte,
// and sends standard output nowhere. Later calls bring options and run state back to that.
void ready_engine();

// The bytes as text, with the numbers behind the words Hash and Threads cut to two and to one
// digit: the targets look for wrong reads and writes, not for what the machine can hold.
std::string tamed_text(const uint8_t* data, size_t size);

// Writes text to a file of this name in the current directory.
void write_file(const char* name, const std::string& text);

// Searches the dialogue's position, which must be sound, silently and no deeper than two plies.
void search_shortly();

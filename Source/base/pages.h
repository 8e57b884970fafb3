// Large blocks of memory, on huge pages where the system has them: a probe that falls anywhere in
// megabytes would make the processor look up another page nearly every time.
#pragma once

#include <cstddef>

#include "base/types.h"

// Sizes in bytes.
inline constexpr size_t small_page = 4096;
inline constexpr size_t huge_page = size_t { 2 } << 20;

// Maps zeroed memory of at least so many bytes, from a huge page on if it fills one. Pages come
// into being when they are first written to. Returns null without memory.
[[nodiscard]] void* map_pages(size_t bytes);

// Gives a block back, with the size that it was mapped with.
void unmap_pages(void* block, size_t bytes);

// Whether the system says that it could hand out so many bytes without taking them from programs
// that run, with an eighth to spare, and no limit of a container stands against it. False where it
// says nothing.
[[nodiscard]] bool has_free_memory(u64 bytes);

// Anonymous mappings. The system aligns them to its small pages, so a huge page more than wanted is
// mapped and what lies before the first boundary and behind the block is given back.
#include "base/pages.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <sys/mman.h>

#include "base/groups.h"

static constexpr u64 kept_share = 8; // of what is left, one part is left to others

void* map_pages(size_t bytes)
{
    const bool huge = bytes >= huge_page;
    const size_t size = huge ? bytes + huge_page : bytes;
    void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) {
        return nullptr;
    }
    if (!huge) {
        return mapping;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(mapping);
    const std::uintptr_t start = (address + huge_page - 1) & ~(huge_page - 1);
    const size_t before = start - address;
    char* block = static_cast<char*>(mapping) + before;
    if (before != 0) {
        munmap(mapping, before);
    }
    // The system rounds the end up to a page of its own.
    const size_t used = (bytes + small_page - 1) & ~(small_page - 1);
    if (used < size - before) {
        munmap(block + used, size - before - used);
    }
    madvise(block, bytes, MADV_HUGEPAGE);
    return block;
}

void unmap_pages(void* block, size_t bytes)
{
    munmap(block, bytes);
}

static void take_least(const char* folder, void* context)
{
    u64* left = static_cast<u64*>(context);
    *left = std::min(*left, group_memory_left(folder));
}

bool has_free_memory(u64 bytes)
{
    FILE* file = fopen("/proc/meminfo", "re");
    if (file == nullptr) {
        return false;
    }
    char line[128];
    unsigned long long kilobytes = 0;
    while (fgets(line, sizeof line, file) != nullptr
        && sscanf(line, "MemAvailable: %llu", &kilobytes) != 1) { }
    fclose(file);
    u64 left = kilobytes * 1024;
    visit_groups("", take_least, &left);
    return bytes < left - left / kept_share;
}

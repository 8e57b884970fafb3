// Anonymous mappings. The system aligns them to its small pages, so a huge page more than wanted is
// mapped and what lies before the first boundary and behind the block is given back.
#include "base/pages.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>

static constexpr u64 unlimited = ~0ULL;
static constexpr size_t path_size = 4096;
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

// The number that a file begins with, or unlimited where it has none: a limit may say "max".
static u64 read_number(const char* folder, const char* name)
{
    char path[2 * path_size];
    snprintf(path, sizeof path, "%s/%s", folder, name);
    FILE* file = fopen(path, "re");
    if (file == nullptr) {
        return unlimited;
    }
    unsigned long long number = unlimited;
    if (fscanf(file, "%llu", &number) != 1) {
        number = unlimited;
    }
    fclose(file);
    return number;
}

u64 group_memory_left(const char* folder)
{
    // The names of the second version of control groups, and of the first.
    u64 limit = read_number(folder, "memory.max");
    u64 used = read_number(folder, "memory.current");
    if (limit == unlimited) {
        limit = read_number(folder, "memory.limit_in_bytes");
        used = read_number(folder, "memory.usage_in_bytes");
    }
    if (limit == unlimited || used == unlimited) {
        return unlimited;
    }
    return limit > used ? limit - used : 0;
}

// A limit of any group above holds too. In a container the names begin at its own group, and the
// files of the first version lie where the container has them.
static u64 memory_left_in_groups()
{
    constexpr char root[] = "/sys/fs/cgroup";
    u64 left = std::min(group_memory_left(root), group_memory_left("/sys/fs/cgroup/memory"));
    FILE* file = fopen("/proc/self/cgroup", "re");
    if (file == nullptr) {
        return left;
    }
    char line[path_size];
    while (fgets(line, sizeof line, file) != nullptr) {
        if (strncmp(line, "0::/", 4) != 0) {
            continue;
        }
        line[strcspn(line, "\n")] = '\0';
        char* group = line + 3;
        while (group[0] == '/' && group[1] != '\0') {
            char folder[sizeof root + path_size];
            snprintf(folder, sizeof folder, "%s%s", root, group);
            left = std::min(left, group_memory_left(folder));
            *strrchr(group, '/') = '\0';
        }
    }
    fclose(file);
    return left;
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
    const u64 left = std::min<u64>(kilobytes * 1024, memory_left_in_groups());
    return bytes < left - left / kept_share;
}

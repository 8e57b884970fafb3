// Reading the files of control groups, of both versions. A container sees the limits of its own
// group at the root of the folder of groups; elsewhere the process's group has a path below it.
#include "base/groups.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

static constexpr u64 unlimited = ~0ULL;
static constexpr size_t path_size = 4096;

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

// The groups of the first version lie where a container has them; the path of the second is that of
// the line that begins with "0::".
void visit_groups(const char* root, void (*visit)(const char* folder, void* context), void* context)
{
    char folder[3 * path_size];
    for (const char* name : { "", "/memory", "/cpu", "/cpu,cpuacct" }) {
        snprintf(folder, sizeof folder, "%s/sys/fs/cgroup%s", root, name);
        visit(folder, context);
    }
    snprintf(folder, sizeof folder, "%s/proc/self/cgroup", root);
    FILE* file = fopen(folder, "re");
    if (file == nullptr) {
        return;
    }
    char line[path_size];
    while (fgets(line, sizeof line, file) != nullptr) {
        if (strncmp(line, "0::/", 4) != 0) {
            continue;
        }
        line[strcspn(line, "\n")] = '\0';
        char* group = line + 3;
        while (group[0] == '/' && group[1] != '\0') {
            snprintf(folder, sizeof folder, "%s/sys/fs/cgroup%s", root, group);
            visit(folder, context);
            *strrchr(group, '/') = '\0';
        }
    }
    fclose(file);
}

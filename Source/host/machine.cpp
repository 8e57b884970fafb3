// Reading the system's files.
#include "host/machine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/groups.h"
#include "base/text.h"

static constexpr size_t path_size = 4096;
static constexpr size_t line_size = 4096;
static constexpr u64 megabyte = 1 << 20;
static constexpr i32 most_search_threads = 128;
static constexpr i32 most_samples = 5000;

// Reads the first line of a file below root; false if there is none.
static bool read_first_line(const char* root, const char* name, char (&line)[line_size])
{
    char path[path_size];
    snprintf(path, sizeof path, "%s%s", root, name);
    FILE* file = fopen(path, "re");
    if (file == nullptr) {
        return false;
    }
    const bool found = fgets(line, sizeof line, file) != nullptr;
    fclose(file);
    return found;
}

HugePages read_huge_pages(const char* root)
{
    char line[line_size];
    if (!read_first_line(root, "/sys/kernel/mm/transparent_hugepage/enabled", line)) {
        return HugePages::Unknown;
    }
    if (strstr(line, "[always]") != nullptr) {
        return HugePages::Always;
    }
    if (strstr(line, "[madvise]") != nullptr) {
        return HugePages::OnWish;
    }
    return strstr(line, "[never]") != nullptr ? HugePages::Never : HugePages::Unknown;
}

// ---- Memory

static void take_group_memory(const char* folder, void* context)
{
    u64* left = static_cast<u64*>(context);
    *left = std::min(*left, group_memory_left(folder));
}

static u64 read_machine_memory(const char* root)
{
    char path[path_size];
    snprintf(path, sizeof path, "%s/proc/meminfo", root);
    FILE* file = fopen(path, "re");
    if (file == nullptr) {
        return no_limit;
    }
    u64 left = no_limit;
    char line[256];
    while (left == no_limit && fgets(line, sizeof line, file) != nullptr) {
        unsigned long long kilobytes = 0;
        if (sscanf(line, "MemAvailable: %llu", &kilobytes) == 1) {
            left = kilobytes * 1024;
        }
    }
    fclose(file);
    return left;
}

MemoryLeft read_memory_left(const char* root)
{
    MemoryLeft left = { read_machine_memory(root), no_limit, no_limit };
    visit_groups(root, take_group_memory, &left.group);
    rlimit space = {};
    if (getrlimit(RLIMIT_AS, &space) == 0 && space.rlim_cur != RLIM_INFINITY) {
        left.process = space.rlim_cur;
    }
    return left;
}

u64 least_of(const MemoryLeft* left)
{
    return std::min({ left->machine, left->group, left->process });
}

// The largest power of two up to limit; 0 below the smallest table.
static i32 power_of_two(u64 limit)
{
    i32 size = 0;
    for (u64 next = smallest_hash; next <= limit && next <= largest_hash; next *= 2) {
        size = static_cast<i32>(next);
    }
    return size;
}

i32 hash_for_play(u64 bytes)
{
    return power_of_two(std::min<u64>(bytes / megabyte / 4, enough_hash));
}

i32 hash_for_analysis(u64 bytes)
{
    return power_of_two(bytes / megabyte / 2);
}

// ---- Processors

// The first processor of the core that this one belongs to; itself if the system does not say.
static i32 first_of_core(const char* root, i32 processor)
{
    char name[128];
    snprintf(name, sizeof name, "/sys/devices/system/cpu/cpu%d/topology/thread_siblings_list",
        processor);
    char line[line_size];
    if (!read_first_line(root, name, line) || !is_digit(line[0])) {
        return processor;
    }
    const i32 first = read_i32(line);
    return first < CPU_SETSIZE ? first : processor;
}

static void take_quota(const char* folder, void* context)
{
    f64* quota = static_cast<f64*>(context);
    char line[line_size];
    f64 share = 0;
    f64 period = 0;
    // One file holds both numbers in the second version of groups, "max" standing for no limit; in
    // the first there are two, and a negative share.
    if (read_first_line(folder, "/cpu.max", line)) {
        if (sscanf(line, "%lf %lf", &share, &period) != 2) {
            return;
        }
    } else if (read_first_line(folder, "/cpu.cfs_quota_us", line)) {
        share = read_real(line);
        if (!read_first_line(folder, "/cpu.cfs_period_us", line)) {
            return;
        }
        period = read_real(line);
    }
    if (share > 0 && period > 0 && (*quota <= 0 || share / period < *quota)) {
        *quota = share / period;
    }
}

// A machine of more than a thousand processors does not fit the set; there the plain number must
// do.
Processors read_processors(const char* root)
{
    Processors processors = {};
    cpu_set_t set;
    cpu_set_t cores;
    CPU_ZERO(&set);
    CPU_ZERO(&cores);
    if (sched_getaffinity(0, sizeof set, &set) == 0) {
        for (i32 i = 0; i < CPU_SETSIZE; ++i) {
            if (CPU_ISSET(i, &set)) {
                CPU_SET(first_of_core(root, i), &cores);
            }
        }
        processors.threads = CPU_COUNT(&set);
        processors.cores = CPU_COUNT(&cores);
    } else {
        processors.threads = static_cast<i32>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
        processors.cores = processors.threads;
    }
    visit_groups(root, take_quota, &processors.quota);
    return processors;
}

i32 threads_for(const Processors* processors)
{
    i32 threads = processors->cores;
    if (processors->quota > 0) {
        threads = std::min(threads, static_cast<i32>(std::min(processors->quota, 1e6)));
    }
    return std::clamp(threads, 1, most_search_threads);
}

// ---- Clocks

WakeDelays sum_up_delays(f64* samples, i32 count)
{
    std::sort(samples, samples + count);
    return { count, samples[count / 2], samples[(count - 1) * 99 / 100], samples[count - 1] };
}

// By poll, as the dialogue waits. A delay is what is over the millisecond.
WakeDelays measure_wake_delays(f64 seconds)
{
    constexpr f64 wanted = 0.001;
    static f64 samples[most_samples];
    i32 count = 0;
    const f64 start = monotonic_seconds();
    f64 before = start;
    while (count < most_samples && before - start < seconds) {
        poll(nullptr, 0, 1);
        const f64 now = monotonic_seconds();
        samples[count++] = std::max(now - before - wanted, 0.0);
        before = now;
    }
    if (count == 0) {
        samples[count++] = 0;
    }
    return sum_up_delays(samples, count);
}

i32 overhead_for(const WakeDelays* delays)
{
    constexpr f64 largest = 5000; // that the option takes
    constexpr f64 own_part = 30;  // milliseconds
    const f64 wanted = std::min(own_part + 2 * 1000 * delays->maximum, largest);
    return std::max(usual_overhead, (static_cast<i32>(wanted) + 9) / 10 * 10);
}

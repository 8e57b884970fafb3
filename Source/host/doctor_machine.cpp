// The doctor's look at the machine: processor, memory, threads, clocks.
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>

#include "host/doctor.h"
#include "host/level.h"
#include "host/machine.h"
#include "host/version.h"

static constexpr f64 clock_seconds = 1.0;
static constexpr f64 milliseconds = 1000;
static constexpr u64 megabyte = 1 << 20;
static constexpr u64 own_megabytes = 64; // what the engine needs beside its hash table, amply
static constexpr i32 default_hash = 64;
// Seconds. A machine that comes later than this in one of a hundred cases has other work to do.
static constexpr f64 late_wake = 0.01;

// A build that this processor cannot run has ended before it came here.
void examine_processor(Report* report)
{
    print_heading(report, "Processor");
    const u32 features = processor_features();
    if (features == 0 && needed_features == 0) {
        print_finding(
            report, Mark::Good, "The program is built for %s, and runs here.", build_level);
        return;
    }
    const char* best = level_of(features);
    if ((needed_features & FeatureAvx2) != 0) {
        print_finding(report, Mark::Good,
            "The program is built for %s, and this processor has all of it.", build_level);
    } else if (best == level_of(needed_features | FeatureCx16 | FeatureLahf)) {
        print_finding(report, Mark::Good,
            "The program is built for %s, the highest level of this processor.", build_level);
    } else {
        print_finding(report, Mark::Note,
            "The program is built for %s, and this processor can do more: the one for %s is "
            "faster (to build it: make ARCH=%s).",
            build_level, best, best);
    }
}

static void examine_huge_pages(Report* report)
{
    switch (read_huge_pages("")) {
    case HugePages::Always:
    case HugePages::OnWish:
        print_finding(report, Mark::Good, "The system gives large pages to the hash table.");
        break;
    case HugePages::Never:
        print_finding(report, Mark::Note,
            "The system gives no large pages, which makes large hash tables slower. To allow them: "
            "echo madvise | sudo tee /sys/kernel/mm/transparent_hugepage/enabled");
        break;
    case HugePages::Unknown:
        print_finding(report, Mark::Note,
            "The system does not say whether it gives large pages to the hash table.");
        break;
    }
}

// Returns the megabytes to put into a chess program.
i32 examine_memory(Report* report)
{
    print_heading(report, "Memory");
    examine_huge_pages(report);
    const MemoryLeft left = read_memory_left("");
    const u64 bytes = least_of(&left);
    if (bytes == no_limit) {
        print_finding(report, Mark::Note,
            "The system does not say how much memory is free; Hash stays at %d MB.", default_hash);
        return default_hash;
    }
    const char* place = "on this machine";
    if (bytes == left.process) {
        place = "for one program (ulimit -v)";
    } else if (bytes == left.group) {
        place = "in this container";
    }
    const u64 whole = bytes / megabyte;
    const u64 usable = whole > own_megabytes ? bytes - own_megabytes * megabyte : 0;
    const i32 play = hash_for_play(usable);
    const i32 analysis = hash_for_analysis(usable);
    if (analysis < default_hash) {
        print_finding(report, Mark::Wrong,
            "Only %llu MB are free %s: too little even for the usual Hash of %d. Close other "
            "programs, or set Hash to %d.",
            static_cast<unsigned long long>(whole), place, default_hash,
            analysis > 0 ? analysis : smallest_hash);
        return analysis > 0 ? analysis : smallest_hash;
    }
    print_finding(report, Mark::Good,
        "%llu MB are free %s: Hash %d is a good size for games, up to %d for long analysis.",
        static_cast<unsigned long long>(whole), place, play > 0 ? play : smallest_hash, analysis);
    return play > 0 ? play : smallest_hash;
}

// Returns the number of threads to put into a chess program.
i32 examine_threads(Report* report)
{
    print_heading(report, "Processors in use");
    const Processors processors = read_processors("");
    const i32 threads = threads_for(&processors);
    if (processors.quota > 0 && processors.quota < processors.cores) {
        print_finding(report, Mark::Note,
            "There are %d cores, of which this container may keep %.1f busy.", processors.cores,
            processors.quota);
    } else if (processors.threads > processors.cores) {
        print_finding(report, Mark::Good, "There are %d cores of two threads or more (%d in all).",
            processors.cores, processors.threads);
    } else {
        print_finding(report, Mark::Good, "There %s %d core%s.",
            processors.cores == 1 ? "is" : "are", processors.cores,
            processors.cores == 1 ? "" : "s");
    }
    double load = 0;
    if (getloadavg(&load, 1) == 1 && load > processors.threads / 2.0) {
        print_finding(report, Mark::Note,
            "Other programs keep the machine busy just now (load %.1f): the engine gets the rest.",
            load);
    }
    print_finding(report, Mark::Good,
        "Threads %d uses all of it. For a match of two engines on this machine take %d for each.",
        threads, threads > 1 ? threads / 2 : 1);
    return threads;
}

// Returns the milliseconds to put into a chess program.
i32 examine_clock(Report* report)
{
    print_heading(report, "Clocks");
    const WakeDelays delays = measure_wake_delays(clock_seconds);
    const i32 overhead = overhead_for(&delays);
    const Mark mark = delays.most > late_wake ? Mark::Note : Mark::Good;
    print_finding(report, mark,
        "When a program sleeps until its time has come, this machine wakes it up %.2f ms late as a "
        "rule, %.2f ms late in one of a hundred cases, and %.2f ms at worst (%d times in a second, "
        "under the load of just now).",
        delays.median * milliseconds, delays.most * milliseconds, delays.maximum * milliseconds,
        delays.count);
    if (mark == Mark::Note) {
        print_finding(report, Mark::Note,
            "That is late for games of a second or less: close what else runs here.");
    }
    print_finding(report, Mark::Good,
        "Move Overhead %d is enough on this machine. For games over the internet add what the way "
        "there takes: 100 to 300.",
        overhead);
    return overhead;
}

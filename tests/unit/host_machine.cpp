// What the doctor reads of the machine, from folders that stand in for the system's.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <string>

#include <gtest/gtest.h>

#include "host/machine.h"

struct MachineTest : testing::Test {
    void SetUp() override
    {
        ASSERT_NE(mkdtemp(root), nullptr);
    }

    void TearDown() override
    {
        std::filesystem::remove_all(root);
    }

    void put(const std::string& name, const std::string& text) const
    {
        const std::filesystem::path path = root + name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    char root[64] = "/tmp/vesk_machine_XXXXXX";
};

static constexpr u64 gigabyte = u64 { 1 } << 30;

TEST_F(MachineTest, HugePagesAreWhatTheBracketsSay)
{
    const std::string name = "/sys/kernel/mm/transparent_hugepage/enabled";
    EXPECT_EQ(read_huge_pages(root), HugePages::Unknown);
    put(name, "always [madvise] never\n");
    EXPECT_EQ(read_huge_pages(root), HugePages::OnWish);
    put(name, "[always] madvise never\n");
    EXPECT_EQ(read_huge_pages(root), HugePages::Always);
    put(name, "always madvise [never]\n");
    EXPECT_EQ(read_huge_pages(root), HugePages::Never);
    put(name, "");
    EXPECT_EQ(read_huge_pages(root), HugePages::Unknown);
}

TEST_F(MachineTest, MemoryThatNobodyTellsOfIsNotLimited)
{
    const MemoryLeft left = read_memory_left(root);
    EXPECT_EQ(left.machine, no_limit);
    EXPECT_EQ(left.group, no_limit);
}

TEST_F(MachineTest, MemoryIsTheLeastOfMachineAndGroups)
{
    put("/proc/meminfo", "MemTotal: 9000000 kB\nMemAvailable:    4194304 kB\nBuffers: 1 kB\n");
    MemoryLeft left = read_memory_left(root);
    EXPECT_EQ(left.machine, 4 * gigabyte);
    EXPECT_EQ(left.group, no_limit);
    // A group above the process's own one holds too.
    put("/proc/self/cgroup", "12:cpu:/x\n0::/outer/inner\n");
    put("/sys/fs/cgroup/outer/inner/memory.max", "max\n");
    put("/sys/fs/cgroup/outer/inner/memory.current", "1\n");
    put("/sys/fs/cgroup/outer/memory.max", std::to_string(3 * gigabyte));
    put("/sys/fs/cgroup/outer/memory.current", std::to_string(gigabyte));
    left = read_memory_left(root);
    EXPECT_EQ(left.group, 2 * gigabyte);
    EXPECT_EQ(least_of(&left), 2 * gigabyte);
    // The first version of groups, as a container shows it.
    put("/sys/fs/cgroup/memory/memory.limit_in_bytes", std::to_string(gigabyte));
    put("/sys/fs/cgroup/memory/memory.usage_in_bytes", "0\n");
    EXPECT_EQ(read_memory_left(root).group, gigabyte);
}

TEST_F(MachineTest, MemoryFilesOfAnotherFormAreNotBelieved)
{
    put("/proc/meminfo", "MemAvailable: much\n");
    put("/proc/self/cgroup", "0::/\n0::\nx\n");
    put("/sys/fs/cgroup/memory.max", "none\n");
    EXPECT_EQ(read_memory_left(root).machine, no_limit);
    EXPECT_EQ(read_memory_left(root).group, no_limit);
    std::filesystem::remove_all(root + std::string("/proc/meminfo"));
    std::filesystem::create_directories(root + std::string("/proc/meminfo"));
    EXPECT_EQ(read_memory_left(root).machine, no_limit);
}

TEST(Machine, HashIsAPowerOfTwoWithinItsShare)
{
    EXPECT_EQ(hash_for_play(8 * gigabyte), 1024);
    EXPECT_EQ(hash_for_play(gigabyte), 256);
    EXPECT_EQ(hash_for_play(gigabyte - 1), 128);
    EXPECT_EQ(hash_for_play(gigabyte / 16), 16);
    EXPECT_EQ(hash_for_play(gigabyte / 16 - 1), 0);
    EXPECT_EQ(hash_for_analysis(gigabyte), 512);
    EXPECT_EQ(hash_for_analysis(1000 * gigabyte), 16384);
    EXPECT_EQ(hash_for_analysis(0), 0);
}

TEST_F(MachineTest, ProcessorsAreCountedByCore)
{
    const Processors plain = read_processors(root);
    EXPECT_GE(plain.threads, 1);
    EXPECT_EQ(plain.cores, plain.threads);
    EXPECT_EQ(plain.quota, 0.0);
    for (i32 i = 0; i < CPU_SETSIZE; ++i) {
        put("/sys/devices/system/cpu/cpu" + std::to_string(i) + "/topology/thread_siblings_list",
            std::to_string(i / 2 * 2) + "-" + std::to_string(i / 2 * 2 + 1) + "\n");
    }
    cpu_set_t set;
    ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    i32 cores = 0;
    for (i32 i = 0; i < CPU_SETSIZE; i += 2) {
        cores += CPU_ISSET(i, &set) || CPU_ISSET(i + 1, &set) ? 1 : 0;
    }
    const Processors paired = read_processors(root);
    EXPECT_EQ(paired.threads, plain.threads);
    EXPECT_EQ(paired.cores, cores);
}

TEST_F(MachineTest, QuotaIsThatOfTheContainer)
{
    put("/sys/fs/cgroup/cpu.max", "max 100000\n");
    EXPECT_EQ(read_processors(root).quota, 0.0);
    put("/sys/fs/cgroup/cpu.max", "150000 100000\n");
    EXPECT_EQ(read_processors(root).quota, 1.5);
    put("/sys/fs/cgroup/cpu/cpu.cfs_quota_us", "-1\n");
    put("/sys/fs/cgroup/cpu/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(read_processors(root).quota, 1.5);
    put("/sys/fs/cgroup/cpu/cpu.cfs_quota_us", "50000\n");
    EXPECT_EQ(read_processors(root).quota, 0.5);
}

TEST(Machine, ThreadsAreCoresWithinTheQuota)
{
    Processors processors = { 16, 8, 0 };
    EXPECT_EQ(threads_for(&processors), 8);
    processors.quota = 2.9;
    EXPECT_EQ(threads_for(&processors), 2);
    processors.quota = 0.5;
    EXPECT_EQ(threads_for(&processors), 1);
    processors = { 512, 256, 0 };
    EXPECT_EQ(threads_for(&processors), 128);
}

TEST(Machine, DelaysAreSummedUpInOrder)
{
    f64 samples[200];
    for (i32 i = 0; i < 200; ++i) {
        samples[i] = static_cast<f64>((i * 7 + 3) % 200);
    }
    const WakeDelays delays = sum_up_delays(samples, 200);
    EXPECT_EQ(delays.count, 200);
    EXPECT_EQ(delays.median, 100.0);
    EXPECT_EQ(delays.most, 197.0);
    EXPECT_EQ(delays.maximum, 199.0);
    f64 one = 3.0;
    EXPECT_EQ(sum_up_delays(&one, 1).most, 3.0);
}

TEST(Machine, DelaysAreMeasuredForTheTimeGiven)
{
    const WakeDelays delays = measure_wake_delays(0.05);
    EXPECT_GE(delays.count, 1);
    EXPECT_LE(delays.count, 50);
    EXPECT_LE(delays.median, delays.most);
    EXPECT_LE(delays.most, delays.maximum);
    EXPECT_GE(delays.median, 0.0);
}

TEST(Machine, OverheadGrowsWithTheLongestDelay)
{
    WakeDelays delays = { 1, 0, 0, 0.0001 };
    EXPECT_EQ(overhead_for(&delays), 50);
    delays.maximum = 0.010;
    EXPECT_EQ(overhead_for(&delays), 50);
    delays.maximum = 0.011;
    EXPECT_EQ(overhead_for(&delays), 60);
    delays.maximum = 0.1;
    EXPECT_EQ(overhead_for(&delays), 230);
    delays.maximum = 100;
    EXPECT_EQ(overhead_for(&delays), 5000);
}

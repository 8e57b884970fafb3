// Blocks of pages, and the bell of the main loop.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <poll.h>
#include <thread>

#include "base/groups.h"
#include "base/pages.h"
#include "base/wakeup.h"

TEST(Pages, BlocksOfAnySizeAreZeroWritableAndGivenBack)
{
    for (const size_t bytes : { size_t { 1 }, small_page, huge_page - 1, huge_page, huge_page + 1,
             3 * huge_page + 5 * small_page + 17 }) {
        char* block = static_cast<char*>(map_pages(bytes));
        ASSERT_NE(block, nullptr);
        for (const size_t at : { size_t { 0 }, bytes / 2, bytes - 1 }) {
            EXPECT_EQ(block[at], 0);
        }
        memset(block, 1, bytes);
        if (bytes >= huge_page) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % huge_page, 0u);
        }
        unmap_pages(block, bytes);
    }
}

TEST(Pages, MoreThanThereIsCannotBeHad)
{
    EXPECT_EQ(map_pages(size_t { 1 } << 60), nullptr);
    EXPECT_FALSE(has_free_memory(size_t { 1 } << 60));
    EXPECT_TRUE(has_free_memory(1));
}

TEST(Pages, TheLimitOfAContainerCounts)
{
    const std::filesystem::path folder = "group";
    std::filesystem::create_directory(folder);
    const auto left = [&](const char* limit, const char* limit_text, const char* use,
                          const char* use_text) {
        std::ofstream(folder / limit) << limit_text;
        std::ofstream(folder / use) << use_text;
        const u64 bytes = group_memory_left(folder.c_str());
        std::filesystem::remove(folder / limit);
        std::filesystem::remove(folder / use);
        return bytes;
    };
    constexpr u64 without_end = ~0ULL;
    EXPECT_EQ(group_memory_left(folder.c_str()), without_end);
    EXPECT_EQ(left("memory.max", "max\n", "memory.current", "400\n"), without_end);
    EXPECT_EQ(left("memory.max", "3000000000\n", "memory.current", "400\n"), 2999999600u);
    EXPECT_EQ(left("memory.max", "400\n", "memory.current", "401\n"), 0u);
    EXPECT_EQ(left("memory.limit_in_bytes", "1000\n", "memory.usage_in_bytes", "400\n"), 600u);
    std::filesystem::remove(folder);
}

static bool is_ringing(int milliseconds)
{
    pollfd bell = { wakeup_descriptor(), POLLIN, 0 };
    return poll(&bell, 1, milliseconds) == 1;
}

TEST(Wakeup, ARingIsHeardOnceHoweverOftenItWasRung)
{
    init_wakeup();
    EXPECT_FALSE(is_ringing(0));
    wake_main_loop();
    wake_main_loop();
    EXPECT_TRUE(is_ringing(0));
    clear_wakeup();
    EXPECT_FALSE(is_ringing(0));
    clear_wakeup(); // of nothing, does not block
    std::thread ringer(wake_main_loop);
    EXPECT_TRUE(is_ringing(5000));
    ringer.join();
    clear_wakeup();
}

// Blocks of pages, and the bell of the main loop.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <poll.h>
#include <thread>

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

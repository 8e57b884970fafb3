// Pieces of work by several threads, in the order of the input.
#include "data/blocks.h"

#include <gtest/gtest.h>

#include <vector>

// The squares of 0 to count - 1, by that many jobs; the run ends after `most` of them.
static std::vector<i64> squares(i64 jobs, i64 count, i64 most)
{
    i64 next = 0;
    std::vector<i64> written;
    work_in_order<i64, i64>(
        jobs,
        [&](i64* piece) {
            *piece = next;
            return next++ < count;
        },
        [](const i64* piece, i64* result) {
            // The earlier a piece, the longer it takes, so that later ones are done before it.
            volatile i64 burnt = 0;
            for (i64 i = 0; i < 20000 / (*piece % 16 + 1); ++i) {
                burnt = burnt + i;
            }
            *result = *piece * *piece;
        },
        [&](const i64* result) {
            written.push_back(*result);
            return static_cast<i64>(written.size()) < most;
        });
    return written;
}

TEST(Blocks, ComeOutInTheirOrderForAnyNumberOfJobs)
{
    const std::vector<i64> expected = squares(1, 1000, 5000);
    ASSERT_EQ(expected.size(), 1000u);
    EXPECT_EQ(expected[31], 961);
    for (const i64 jobs : { 2, 3, 16 }) {
        EXPECT_EQ(squares(jobs, 1000, 5000), expected) << jobs << " jobs";
    }
}

TEST(Blocks, EndEarlyWhenTheWriterWantsNoMore)
{
    for (const i64 jobs : { 1, 2, 7 }) {
        EXPECT_EQ(squares(jobs, 100000, 10).size(), 10u) << jobs << " jobs";
    }
}

TEST(Blocks, MayBeNone)
{
    EXPECT_TRUE(squares(1, 0, 10).empty());
    EXPECT_TRUE(squares(4, 0, 10).empty());
}

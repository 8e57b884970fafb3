// The counts of a book that is being made.
#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

#include "test_support.h"
#include "book/nodes.h"

// The keys and moves of all lists, one list after the other.
static std::vector<std::pair<u64, Move>> walk(const NodeTable* table)
{
    std::vector<std::pair<u64, Move>> found;
    for (u64 list = 0; list < 1ULL << table->list_bits; ++list) {
        for (const BookNode* node = table->lists[list]; node != nullptr; node = node->next) {
            found.emplace_back(node->key, node->move);
        }
    }
    return found;
}

TEST(BookNodes, NodeIsMadeOnceAndStartsAtZero)
{
    NodeTable table;
    ASSERT_TRUE(make_table(&table));
    BookNode* node = find_node(&table, 5, 7);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->wins + node->losses + node->draws, 0U);
    EXPECT_EQ(find_node(&table, 5, 7), node);
    EXPECT_NE(find_node(&table, 5, 8), node);
    EXPECT_NE(find_node(&table, ~5ULL, 7), node);
    EXPECT_EQ(table.node_count, 3U);
    free_table(&table);
    EXPECT_EQ(table.lists, nullptr);
}

// Far more nodes than the first lists may hold, several moves for each key.
TEST(BookNodes, WalkMeetsTheKeysInTheirOrderAndMovesAsTheyCame)
{
    NodeTable table;
    ASSERT_TRUE(make_table(&table));
    const i32 first_bits = table.list_bits;
    std::map<u64, std::vector<Move>> wanted;
    std::vector<u64> keys;
    u64 state = 9;
    for (i32 i = 0; i < 100000; ++i) {
        const u64 high = next_random(&state, ~0U);
        const bool again = !keys.empty() && i % 3 == 0;
        const u64 key = again ? keys[next_random(&state, static_cast<u32>(keys.size()))]
                              : high << 32 | next_random(&state, ~0U);
        const Move move = static_cast<Move>(i);
        BookNode* node = find_node(&table, key, move);
        ASSERT_NE(node, nullptr);
        if (node->wins++ == 0) {
            wanted[key].push_back(move);
        }
        keys.push_back(key);
    }
    EXPECT_GT(table.list_bits, first_bits);
    std::vector<std::pair<u64, Move>> expected;
    for (const auto& [key, moves] : wanted) {
        for (const Move move : moves) {
            expected.emplace_back(key, move);
        }
    }
    EXPECT_EQ(table.node_count, expected.size());
    EXPECT_EQ(walk(&table), expected);
    free_table(&table);
}

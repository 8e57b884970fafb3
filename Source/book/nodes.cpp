// The table of nodes grows so that its lists stay short, and cuts each of them in two for it.
#include "book/nodes.h"

#include <cstdlib>

// The table grows so that a list keeps a few nodes: from 128 KB of lists to 8 GB.
static constexpr i32 first_list_bits = 14;
static constexpr i32 last_list_bits = 30;
static constexpr u64 nodes_per_list = 2;
static constexpr i32 nodes_per_block = 4096;

// Nodes are allocated by the block: one at a time they would need half as much again.
struct NodeBlock {
    NodeBlock* next;
    i32 used;
    BookNode nodes[nodes_per_block];
};

bool make_table(NodeTable* table)
{
    *table = {};
    table->list_bits = first_list_bits;
    table->lists = static_cast<BookNode**>(calloc(1ULL << first_list_bits, sizeof(BookNode*)));
    return table->lists != nullptr;
}

// Nodes go with their blocks, never one by one.
void free_table(NodeTable* table)
{
    free(table->lists);
    while (table->blocks != nullptr) {
        NodeBlock* block = table->blocks;
        table->blocks = block->next;
        free(block);
    }
    *table = {};
}

// A zeroed node, or null if there is no memory.
static BookNode* new_node(NodeTable* table)
{
    NodeBlock* block = table->blocks;
    if (block == nullptr || block->used == nodes_per_block) {
        block = static_cast<NodeBlock*>(calloc(1, sizeof(NodeBlock)));
        if (block == nullptr) {
            return nullptr;
        }
        block->next = table->blocks;
        table->blocks = block;
    }
    ++table->node_count;
    return &block->nodes[block->used++];
}

// Doubles the number of lists, each being cut in two where the next bit of the key changes.
// Without the memory for it all stays as it is, only slower.
static void split_lists(NodeTable* table)
{
    const u64 count = 1ULL << table->list_bits;
    BookNode** lists = static_cast<BookNode**>(calloc(2 * count, sizeof(BookNode*)));
    if (lists == nullptr) {
        return;
    }
    // A list is in the order of its keys, so one cut divides it.
    const u64 next_bit = 1ULL << (63 - table->list_bits);
    for (u64 i = 0; i < count; ++i) {
        BookNode** link = &table->lists[i];
        while (*link != nullptr && ((*link)->key & next_bit) == 0) {
            link = &(*link)->next;
        }
        lists[2 * i + 1] = *link;
        *link = nullptr;
        lists[2 * i] = table->lists[i];
    }
    free(table->lists);
    table->lists = lists;
    ++table->list_bits;
}

BookNode* find_node(NodeTable* table, u64 key, Move move)
{
    if (table->node_count > nodes_per_list << table->list_bits
        && table->list_bits < last_list_bits) {
        split_lists(table);
    }

    // Behind the smaller keys, then behind the other moves of this one.
    BookNode** link = list_of(table, key);
    while (*link != nullptr && (*link)->key < key) {
        link = &(*link)->next;
    }
    for (; *link != nullptr && (*link)->key == key; link = &(*link)->next) {
        if ((*link)->move == move) {
            return *link;
        }
    }
    BookNode* node = new_node(table);
    if (node == nullptr) {
        return nullptr;
    }
    node->key = key;
    node->move = move;
    node->next = *link;
    *link = node;
    return node;
}

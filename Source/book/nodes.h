// What a book that is being made counts: a node for every position and move met in the games.
// The nodes are kept in lists by the top bits of their key, each list in the order of its keys, so
// that a walk over all of them meets the keys in the order that a book file must have: nothing is
// sorted at the end. A node once made stays where it is and keeps its key and move. Private to this
// folder.
#pragma once

#include "board/types.h"

// A position and a move played there, with the ends of those games for the side to move.
struct BookNode {
    u64 key;
    u32 wins;
    u32 losses;
    u32 draws;
    u16 move;
    BookNode* next; // higher or equal key; equal keys in the order of their first appearance
};
static_assert(sizeof(BookNode) == 32);

struct NodeBlock; // of their memory

// All nodes: 2^list_bits lists, a node standing in the one that the top bits of its key name.
struct NodeTable {
    BookNode** lists;
    i32 list_bits;
    u64 node_count;
    NodeBlock* blocks;
};

// An empty table. Returns false if there is no memory; it may be freed all the same.
[[nodiscard]] bool make_table(NodeTable* table);

void free_table(NodeTable* table);

// The node of a key and a move, made if there is none yet. Null if there is no memory for it.
[[nodiscard]] BookNode* find_node(NodeTable* table, u64 key, Move move);

// Where the list begins in which a key stands, if anywhere.
inline BookNode** list_of(const NodeTable* table, u64 key)
{
    return &table->lists[key >> (64 - table->list_bits)];
}

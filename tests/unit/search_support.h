// What the tests of the search share: worker 0's record without a worker behind it, a small hash
// table, whole searches on the calling thread, and single nodes at any ply.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "test_support.h"
#include "search/hash.h"
#include "search/params.h"
#include "search/search.h"
#include "search/threads.h"

inline constexpr i32 infinite_score = ScoreInfinite;

// The greatest ply whose node still makes moves: its children return at once with their
// evaluation, so that every searched move is one node.
inline constexpr i32 last_moving_ply = max_search_ply - 1;

// Start values of run state and options, silent output, one record, a table of one megabyte.
struct SearchTest : testing::Test {
    void SetUp() override;
    void TearDown() override;

    // The number of records that a search sees. They have no threads.
    void use_records(i32 count);
};

// One node on worker 0's record.
struct Node {
    SearchThread* thread;
    Position* pos;
    PlyRecord* rec;
    i32 ply;
    u32 side;
    u16 pv[ply_count];
};

// The record of worker 0.
SearchThread* record();

// Makes a position the console's and does what precedes every search, after which the hash table,
// the caches and the move lists are as in a new process.
void begin_search(const char* fen);

// The same, and then the whole search on the calling thread.
void run_search_to(const char* fen, i32 depth);

// Searches again from what is there: nothing but the result is reset.
void repeat_search(i32 depth);

// A node of the position at ply (2 and up) in a search of iteration depth 20. The plies before it
// hold one searched move each, with no table result, and an evaluation that lets the node prune.
Node make_node(const char* fen, i32 ply);

// The list entry of a move at a node, as the generators would write it.
MoveEntry entry_of(const Position* pos, const char* move);

// search at the node.
i32 run_node(Node* node, i32 depth, i32 alpha, i32 beta, NodeType type);

// The record of the node as search leaves it for the move loops, its evaluation included.
void open_node(Node* node, i32 depth, i32 alpha, i32 beta, NodeType type);

// open_node and the two move loops. The evaluation of qsearch is the one given.
i32 run_moves(Node* node, i32 depth, i32 alpha, i32 beta, NodeType type);
i32 run_qsearch(Node* node, i32 depth, i32 alpha, i32 beta, i32 eval);

// The static evaluation of the position for the side to move, as a node sees it.
i32 eval_of(Node* node);

// Nodes counted since the search began.
u64 node_count();

// What run adds to the trace file at plies up to level.
std::string traced(i32 level, const std::function<void()>& run);

// The moves that run makes on the board, in their order, and sorted and joined by blanks.
std::vector<std::string> moves_made(const std::function<void()>& run);
std::string sorted_moves_made(const std::function<void()>& run);

// The copy that probe_hash gives for the position.
HashEntry probe(Position* pos);

// Reads and writes a slot as it stands.
HashEntry read_slot(const HashSlot* slot);
void write_slot(HashSlot* slot, const HashEntry* entry);

// The entry that store_hash would write for the position.
HashEntry make_entry(const Position* pos, Move move, i32 score, i32 depth, HashBound bound);

// Writes such an entry into the first slot of the position's bucket.
void put_entry(const Position* pos, Move move, i32 score, i32 depth, HashBound bound);

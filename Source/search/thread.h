// The record of a search thread: everything private to it, in one block. A node writes nothing else
// but the hash table, so that no thread waits for the cache lines of another.
#pragma once

#include "board/moves.h"
#include "eval/eval_state.h"

inline constexpr i32 max_workers = 128;

// Room for the move lists of all plies. No list is longer than max_list_moves: a square is entered
// from at most eight directions and by eight knights, promotions count fourfold, so no board has
// 1126 pseudo-legal moves. Some entries behind the last list may be read, but do not count.
inline constexpr i32 move_store_size = ply_count * max_list_moves + 8;

// What a node is expected to be: the child of an expected cut is an expected all and the other way
// round, so that the type of a child is the negated one; below a PV node the first child is one
// too. An expectation steers how hard a node tries, not what its score means.
enum NodeType : i32 {
    AllNode = -1, // every move is expected to fail low
    PvNode = 0,   // searched with an open window
    CutNode = 1,  // a move is expected to fail high
};

// What the first child of a node is expected to be.
inline constexpr NodeType child_of(NodeType type)
{
    return static_cast<NodeType>(-type);
}

// How the root stands in its window: more time where it has not found its answer.
enum FailState : u8 { InWindow, FailsLow, FailsHigh };

// The state of one ply of a search: one cache line. What the node of the ply knows of itself stays
// readable to the plies below, which look up to two plies back; so record 0, above the root's, must
// be in order too.
struct alignas(64) PlyRecord {
    i16 node_type; // NodeType
    i16 eval;      // static evaluation, centipawns; -ScoreInfinite in check
    i16 alpha;     // the window as the node got it, and as table results narrow it
    i16 beta;
    i16 in_check;
    i8 reduction;       // plies, of the move being searched
    u8 in_iid;          // the moves are searched for internal deepening: none is dropped
    u16 move_flags;     // class of the move being searched, MoveFlag
    u16 danger[2];      // what is at stake, per side, centipawns
    u16 moves_searched; // so far; dropped and illegal moves do not count
    i32 tb_result;      // TbResult, from the side to move's view
    u16 hash_move;      // or the best of internal deepening; NoMove if there is none
    u16 killer[2];      // quiet moves that raised alpha in siblings, the later first
    u16 evasion_killer; // the same in check
    u8 check_sq;        // square of the checking piece, NoSquare if none
    u16 stage;          // of next_move, with its flags
    MoveEntry* list_start;
    MoveEntry* list_cursor; // the move being searched
    u8 no_check;            // it surely gives no check: the node behind it need not look

    // Kept for the record's shape; nothing in the program reads them.
    u8 extend_hash_move; // always 0
    u8 razored;          // the node ended in quiescence above the horizon (step 7b)
};
static_assert(sizeof(PlyRecord) == 64);

// What a thread counts about its nodes, summed over threads for the output.
enum Counter : i32 {
    CountNodes,
    CountTbHits,
    CountHashProbes,
    CountHashHits,
    CounterCount,
};

// Worker command words, written by the main thread, and back to idle by the worker when it is done.
// Any value from 91 up ends the worker.
enum WorkerCommand : u8 {
    CommandIdle = 0,
    CommandSearch = 1,
    CommandClearHash = 2,
    CommandTouchHash = 3,
    CommandQuit = 99,
    CommandHasQuit = 100,
};

// Everything private to one search thread, in one zero-initialised block, on a huge page where the
// system has one: its caches and tables are read all over, a few bytes in each place. Its first
// part is the undo stack, which the board works on. The thread alone writes it while it searches;
// the fields that others may read meanwhile are Shared.
struct SearchThread : UndoStack, EvalState {
    PlyRecord ply_rec[ply_count]; // by ply; the root is 1
    MoveEntry move_store[move_store_size];

    // What the move order learns, see ordering.cpp. Codes of pieces and squares; NoMove where
    // nothing was learnt.
    i16 history[8][16][64];   // [type of the previous move's piece][moved code][to]
    u16 counter_move[16][64]; // [previous moved code][previous to]
    u16 counter_move2[16][64];
    u16 follow_move[16][64]; // [own moved code two plies back][its to]
    Position pos;
    u16 pv[ply_count];                  // indexed by ply from 1, closed by 0
    i8 thread_id;                       // -1 in the console's record
    Shared<u8> command;                 // read by: main and its worker
    Shared<u8> fail_state;              // read by: check_time
    u8 completed_depth;                 // last iteration with a best move
    u8 seldepth;                        // deepest ply that was reached
    u32 rand_state;                     // of the noise in a secondary worker's root order
    u32 strength_key;                   // seed of the strength limit's choice of nodes
    i16 score;                          // of the root, the best so far or of the last pass
    u64 node_limit;                     // nodes of this thread
    Shared<u64> counters[CounterCount]; // read by: collect_stats
    i8 null_depth;                      // null moves on the current path

    // Kept for the record's shape; nothing in the program reads them.
    MoveEntry* move_store_base; // the start of move_store
    i16 prev_score;             // static evaluation of the root
    u8 root_phase[2];           // phase_mtl of the root, by side
};

// Allocates a zeroed record and makes it ready (thread id, pointers, two empty move lists).
// Returns null if there is no memory.
SearchThread* new_thread_record(i32 thread_id);

// Gives a record back; null is none.
void delete_thread_record(SearchThread* thread);

// Makes the two empty lists at the start of move_store, for plies 0 and 1.
void init_move_lists(SearchThread* thread);

// The record of a search thread: everything private to it, in one block.
#pragma once

#include "board/moves.h"
#include "eval/eval_state.h"

inline constexpr i32 max_workers = 128;

// Room for the move lists of all plies. A square is entered from at most eight directions and
// by eight knights, promotions count fourfold, so no board has 1126 pseudo-legal moves.
inline constexpr i32 move_store_size = ply_count * 1128;

// What a node is expected to be: the child of an expected cut is an expected all and the other way
// round, so that the type of a child is the negated one; below a PV node the first child is one
// too.
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

// The state of one ply of a search: one cache line.
struct alignas(64) PlyRecord {
    i16 node_type; // NodeType
    i16 eval;      // static evaluation, -ScoreInfinite in check
    i16 alpha;
    i16 beta;
    i16 in_check;
    i8 reduction; // of the move being searched
    u8 in_iid;
    u8 extend_hash_move; // never set; read by the move loop
    u16 move_flags;      // class of the move being searched
    u8 razored;
    u16 danger[2]; // what is at stake, per side, centipawns
    u16 moves_searched;
    i32 tb_result; // TbResult, from the side to move's view
    u16 hash_move;
    u16 killer[2];
    u16 evasion_killer;
    u8 check_sq; // square of the checking piece, NoSquare if none
    u16 stage;   // of next_move
    MoveEntry* list_start;
    MoveEntry* list_cursor; // the move being searched
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

// Worker command words. Any value from 91 up ends the worker.
enum WorkerCommand : u8 {
    CommandIdle = 0,
    CommandSearch = 1,
    CommandClearHash = 2,
    CommandQuit = 99,
    CommandHasQuit = 100,
};

// Everything private to one search thread, in one zero-initialised block. Its first part is the
// undo stack, which the board works on.
struct SearchThread : UndoStack, EvalState {
    PlyRecord ply_rec[ply_count];
    MoveEntry move_store[move_store_size];
    MoveEntry* move_store_base;
    i16 history[8][16][64];   // [type of the previous move's piece][moved code][to]
    u16 counter_move[16][64]; // [previous moved code][previous to]
    u16 counter_move2[16][64];
    u16 follow_move[16][64]; // [own moved code two plies back][its to]
    Position pos;
    u16 pv[ply_count];     // indexed by ply from 1, closed by 0
    i8 thread_id;          // -1 in the console's record
    Shared<u8> command;    // read by: main and its worker
    Shared<u8> fail_state; // read by: check_time
    u8 completed_depth;
    u8 seldepth;
    u32 rand_state;
    u32 strength_key; // seed of the strength limit's choice of nodes
    i16 score;
    i16 prev_score;
    u64 node_limit;
    Shared<u64> counters[CounterCount]; // read by: collect_stats
    u8 root_phase[2];
    i8 null_depth; // null moves on the current path
};

// Allocates a zeroed record and makes it ready (thread id, pointers, two empty move lists).
// Returns null if there is no memory. The owner gives it back by delete.
SearchThread* new_thread_record(i32 thread_id);

// Makes the two empty lists at the start of move_store, for plies 0 and 1.
void init_move_lists(SearchThread* thread);

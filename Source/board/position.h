// The position, the records of a search thread, and the position's text form.
// A Position is changed only by parse_epd, by make and unmake, and by the board editor, so its
// derived fields (bb, piece_count, phase_mtl, king_sq, the keys) always agree with board.
#pragma once

#include "board/types.h"
#include "eval/eval_work.h"

inline constexpr i32 max_workers = 128;
inline constexpr i32 ply_count = 70; // plies of a search; nodes make moves below 66

// The undo stack holds the game and the search path. The search stops deepening when the game
// and the depth together pass 883 (see the iteration loop) and goes at most 66 plies down from
// its root, so a game is kept short of game_limit by dropping its oldest entries.
inline constexpr i32 undo_size = 960;
inline constexpr i32 game_limit = 880;
inline constexpr i32 game_keep = 600; // entries kept when the oldest are dropped

// Room for the move lists of all plies. A square is entered from at most eight directions and
// by eight knights, promotions count fourfold, so no board has 1126 pseudo-legal moves.
inline constexpr i32 move_store_size = ply_count * 1128;

// One entry of a move list.
struct MoveEntry {
    u16 move;    // EndOfList closes the list
    i16 score;   // for ordering; generators leave it as it was
    u8 moved;    // piece code on the from-square
    u8 captured; // piece code on the to-square; 0 for en passant
};
static_assert(sizeof(MoveEntry) == 6);

// One entry of the undo stack; the values are those before the move.
struct UndoRecord {
    u64 key;
    u64 pawn_key; // not written by a null move
    u16 move;     // 0 for a null move
    u8 captured;  // piece type taken on the to-square; 0 for en passant
    u8 ep_square;
    u8 cnt50;
    u8 castle;
};
static_assert(sizeof(UndoRecord) == 24);

// A board with what is derived from it. Plain data, copied whole; a copy must have its thread
// pointer put right.
struct Position {
    SearchThread* thread; // the owner
    u8 board[65];         // piece codes; the 65th byte is never a square
    u64 bb[2][8];         // per side: [0] all, [1] pawns ... [6] king, [7] unused
    u64 spare;
    u64 key; // Zobrist key; bit 0 is the side to move
    u64 pawn_key;
    u32 piece_count[2]; // nibbles from bit 0: pawns, knights, bishops, rooks, queens
    i16 phase_mtl[2];   // knights 3, bishops 3, rooks 5, queens 10
    u8 stm;
    u8 cnt50;     // half-move clock; stops at 255
    u8 castle;    // 1 white short, 2 white long, 4 black short, 8 black long
    u8 ep_square; // square passed by a double step just made, else NoSquare
    u8 king_sq[2];
};

// The state of one ply of a search: one cache line.
struct alignas(64) PlyRecord {
    i16 node_type; // 0 PV, 1 expected cut, -1 expected all
    i16 depth;     // remaining depth, after the check extension
    i16 eval;      // static evaluation, -10001 in check
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
    i32 tb_result; // 0 to 4 from the side to move's view, -1 none
    u16 hash_move;
    u16 killer[2];
    u16 evasion_killer;
    u8 check_sq; // square of the checking piece, NoSquare if none
    u16 stage;   // of next_move
    MoveEntry* list_start;
    MoveEntry* list_cursor; // the move being searched
};
static_assert(sizeof(PlyRecord) == 64);

// The eight counters of a thread, summed over threads for the output.
enum Counter : i32 {
    CountNodes,
    CountTbHits,
    CountEvals,
    CountEvalHits,
    CountHashProbes,
    CountHashHits,
    CountPawnProbes,
    CountPawnHits,
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

// Everything private to one search thread, in one zero-initialised block.
struct SearchThread {
    UndoRecord undo[undo_size]; // game and search path; undo_count is the next free entry
    PlyRecord ply_rec[ply_count];
    MoveEntry move_store[move_store_size];
    MoveEntry* move_store_base;
    i16 history[8][16][64];   // [type of the previous move's piece][moved code][to]
    u16 counter_move[16][64]; // [previous moved code][previous to]
    u16 counter_move2[16][64];
    u16 follow_move[16][64]; // [own moved code two plies back][its to]
    EvalCacheEntry eval_cache[eval_cache_size];
    PawnCacheEntry pawn_cache[pawn_cache_size];
    EvalWork eval_work;
    Position pos;
    u16 pv[ply_count]; // indexed by ply from 1, closed by 0
    i16 undo_count;
    i16 ply;               // 1 at the root
    u16 last_move;         // 0 after a null move or at an empty stack
    i8 thread_id;          // -1 in the console's record
    Shared<u8> command;    // read by: main and its worker
    Shared<u8> depth;      // read by: other workers
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

extern SearchThread* console_thread;               // the game; parse_epd and the shell work on it
extern Shared<SearchThread*> workers[max_workers]; // published by each worker; null if none

// Steps of piece_count and weights of phase_mtl, by piece type.
inline constexpr u32 count_step[8] = { 0, 1, 16, 256, 4096, 65536, 0, 0 };
inline constexpr i16 phase_weight[8] = { 0, 0, 3, 3, 5, 10, 0, 0 };

// Names of the squares, "a1" to "h8".
extern const char square_name[64][3];

// Sets pos from a FEN or EPD text (only its first four fields are read) and empties the undo
// stack of pos->thread. Returns 0, or -1 after printing "Illegal EPD - ..." if a castling right
// had to be dropped. The position is usable in both cases; nothing else is checked: pieces beyond
// the board are left out, a second piece on a square replaces the first, and an en-passant field
// that names no square counts as none.
i32 parse_epd(Position* pos, const char* text);

// The same without the message.
i32 parse_epd_silently(Position* pos, const char* text);

// Empties the board and the undo stack of pos->thread: all castling rights, no en-passant square,
// half-move clock 0. The side to move, the king squares and the keys stay as they are.
void clear_board(Position* pos);

// Puts a piece code (1 to 6 or 9 to 14) on a square, in place of what stands there, and takes the
// piece off a square, empty or not. All derived fields but the keys follow; king_sq is the king
// put last as long as it stands, and keeps its value when a side's last king goes.
void put_piece(Position* pos, i32 square, i32 code);
void remove_piece(Position* pos, i32 square);

// Writes the four fields of the position text into out, which holds at least 128 bytes.
void make_fen(const Position* pos, char* out);

// Prints position text, board and side to move to standard output and the log.
void print_board(const Position* pos);

// The Zobrist key of pos computed from its fields, and the key of its pawns alone.
u64 compute_key(const Position* pos);
u64 compute_pawn_key(const Position* pos);

// Drops the castling rights whose king or rook is not at home. Returns how many were dropped.
// The key is left as it is.
i32 drop_false_castling(Position* pos);

// Allocates a zeroed record and makes it ready (thread id, pointers, two empty move lists).
// Returns null if there is no memory. The owner gives it back by delete.
SearchThread* new_thread_record(i32 thread_id);

// Makes the two empty lists at the start of move_store, for plies 0 and 1.
void init_move_lists(SearchThread* thread);

// Whether bb, piece_count, phase_mtl and both keys are what board, stm, castle and ep_square
// make them, and king_sq too for a side of one king.
bool fields_agree(const Position* pos);

// Why a search of pos could not run safely (a text for the user), or null if it can: one king
// each, at most sixteen pieces a side, no pawn on the first or last rank, side not to move not in
// check, castling rights with king and rook at home, no pawn that could step onto an en-passant
// square that has nothing to take behind it, all derived fields in agreement with the board.
const char* position_defect(Position* pos);

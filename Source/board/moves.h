// Making, generating, selecting and judging moves. All routines work on one thread's own
// Position; moves in lists are pseudo-legal until is_legal_move has been asked.
#pragma once

#include "board/position.h"

// ---- make_move.cpp

// The side to move plays a pseudo-legal move. The undo stack must have room.
void make_move(Position* pos, Move move);

// Takes back the move on top of the undo stack.
void unmake_move(Position* pos);

// The side to move passes; taken back by unmake_null_move only.
void make_null_move(Position* pos);
void unmake_null_move(Position* pos);

// Publishes a list of one null entry at the current ply, so that children see a previous move 0.
void set_null_list(Position* pos);

// Plays a move of the game, as make_move, after dropping the oldest undo entries if the stack
// has reached game_limit, and clears the move field of the next free entry.
void make_game_move(Position* pos, Move move);

// Whether a move taken from text can be made without leaving the board inconsistent: both
// squares on the board, an own piece on the from-square, no own piece and no king on the
// to-square, flags and castling consistent. Says nothing about the rules of chess.
bool is_makeable(const Position* pos, i32 from, i32 to, Move promotion);

// ---- generate.cpp: each returns the next free entry; the caller closes the list

// Captures of side. check_sq is NoSquare, or the checking piece: then only it is a target,
// except for the king, which may capture any neighbour.
MoveEntry* gen_captures(const Position* pos, i32 side, MoveEntry* out, i32 check_sq);

// Promotions of side, with and without capture; under asks for knight, bishop and rook too.
MoveEntry* gen_promotions(const Position* pos, i32 side, i32 under, MoveEntry* out);

// Quiet moves of side without promotions. With check_sq, interpositions and king moves only.
MoveEntry* gen_quiets(const Position* pos, i32 side, MoveEntry* out, i32 check_sq);

// All moves of the side to move in the order of gen_all_moves. out holds max_list_moves entries.
inline constexpr i32 max_list_moves = 1128;
MoveEntry* gen_moves_into(const Position* pos, MoveEntry* out);

// All moves of the side to move at the current ply, closed and published.
void gen_all_moves(Position* pos);

// ---- next_move.cpp

// Flags in bits 4 to 7 of PlyRecord.stage; the low four bits are the stage, 0 at the start.
enum StageFlag : u16 {
    TryHashMove = 16,
    UnreadStageFlag = 32,
    FullSearch = 64,
    GenChecks = 128,
};

// Ordering value of a capture by the captured piece code.
extern const i16 mvv_score[16];

// Hands out the next move of the current ply, generating and scoring as late as it can.
// Returns null when the list is finished.
MoveEntry* next_move(Position* pos);

// Closes a list at end and publishes the list starts of the next two plies.
void publish_list(SearchThread* thread, MoveEntry* end);

// Swaps the entry of highest score (the earliest of equals) between cursor and the closing
// entry to the cursor.
void pick_best(MoveEntry* cursor);

// The base of a quiet move's score from the two history values, 0 to 64.
i32 history_base(i32 h1, i32 h2);

// ---- exchange.cpp

// Whether side attacks square with the current occupancy.
bool is_attacked(const Position* pos, i32 square, i32 side);

// The least valuable piece of side that attacks square if only the pieces of occ exist;
// its square, or NoSquare.
i32 find_attacker(const Position* pos, i32 square, i32 side, u64 occ);

// The same, but occ only blocks sliders: all pieces of side count.
i32 find_checker(const Position* pos, i32 square, i32 side, u64 occ);

// Static exchange value of side capturing from from on to; from NoSquare leaves the first
// capture open, and then the result is at least 0.
i32 swapoff(const Position* pos, i32 side, i32 from, i32 to);

// Whether a slider's move (type Bishop, Rook or Queen) of the side to move brings a new
// attacker to a square of zone that another own piece attacks already.
bool adds_king_pressure(Position* pos, i32 type, i32 from, i32 to, u64 zone);

// ---- legality.cpp

// Whether a pseudo-legal move of side does not leave its king in check.
bool is_legal_move(Position* pos, i32 side, Move move);

// Whether move, which may be any number, is a legal move of the side to move. Leaves all lists as
// they are.
bool is_playable(Position* pos, Move move);

// Whether move can exist in this position (for moves out of the hash table): pieces, patterns
// and blockers, not castling rights and not the own king's safety.
bool move_fits_board(const Position* pos, Move move);

// Draw by repetition or the fifty-move rule. plies counts from the search's root (1 there);
// 0 judges the game itself and may overwrite the current ply's list.
bool is_draw_by_rule(Position* pos, i32 plies);

// ---- perft.cpp

// Adds the number of leaves of the legal move tree of the given depth (1 and up) to the
// thread's node counter.
void perft(SearchThread* thread, i32 side, i32 ply_index, i32 depth);

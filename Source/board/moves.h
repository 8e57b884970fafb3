// Making, generating and judging moves. All routines work on one thread's own
// Position; moves in lists are pseudo-legal until is_legal_move has been asked.
#pragma once

#include "board/position.h"

// One entry of a move list: one word of the processor, so that it is moved as one.
struct alignas(8) MoveEntry {
    u16 move;    // EndOfList closes the list
    i16 score;   // for ordering; generators leave it as it was
    u8 moved;    // piece code on the from-square
    u8 captured; // piece code on the to-square; 0 for en passant
};
static_assert(sizeof(MoveEntry) == 8);

// ---- make_move.cpp

// The side to move plays a pseudo-legal move. The undo stack must have room.
void make_move(Position* pos, Move move);

// Takes back the move on top of the undo stack.
void unmake_move(Position* pos);

// The side to move passes; taken back by unmake_null_move only.
void make_null_move(Position* pos);
void unmake_null_move(Position* pos);

// Plays a move of the game, as make_move, after dropping the oldest undo entries if the stack
// has reached game_limit, and clears the move field of the next free entry.
void make_game_move(Position* pos, Move move);

// Whether a move taken from text can be made without leaving the board inconsistent: both
// squares on the board, an own piece on the from-square, no own piece and no king on the
// to-square, flags and castling consistent. Says nothing about the rules of chess.
[[nodiscard]] bool is_makeable(const Position* pos, i32 from, i32 to, Move promotion);

// ---- generate.cpp: each returns the next free entry; the caller closes the list

// Captures of side. check_sq is NoSquare, or the checking piece: then only it is a target,
// except for the king, which may capture any neighbour.
[[nodiscard]] MoveEntry* gen_captures(const Position* pos, i32 side, MoveEntry* out, i32 check_sq);

// Promotions of side, with and without capture; under asks for knight, bishop and rook too.
[[nodiscard]] MoveEntry* gen_promotions(const Position* pos, i32 side, i32 under, MoveEntry* out);

// Quiet moves of side without promotions. With check_sq, interpositions and king moves only.
[[nodiscard]] MoveEntry* gen_quiets(const Position* pos, i32 side, MoveEntry* out, i32 check_sq);

// All moves of the side to move in the order of gen_all_moves. out holds max_list_moves entries.
inline constexpr i32 max_list_moves = 1128;
[[nodiscard]] MoveEntry* gen_moves_into(const Position* pos, MoveEntry* out);

// ---- exchange.cpp

// Worth of a piece in exchanges, centipawns by type: none, pawn, knight, bishop, rook, queen, king,
// unused. Everything that compares what is taken with what it costs reads this table.
// Not the tuned material weights: pruning must not drift when they are tuned. Nor phase_weight,
// which says how much play a side has left and gives pawns and kings nothing.
inline constexpr i32 exchange_value[8] = { 0, 100, 335, 335, 535, 1035, 10000, 0 };

// Whether side attacks square with the current occupancy.
bool is_attacked(const Position* pos, i32 square, i32 side);

// The least valuable piece of side that attacks square if only the pieces of occ exist;
// its square, or NoSquare.
[[nodiscard]] i32 find_attacker(const Position* pos, i32 square, i32 side, u64 occ);

// The same, but occ only blocks sliders: all pieces of side count.
[[nodiscard]] i32 find_checker(const Position* pos, i32 square, i32 side, u64 occ);

// Static exchange value, centipawns, of side capturing from from on to, both sides going on as long
// as it pays: what the capture wins, or loses if negative. from NoSquare leaves the first capture
// open, and then the result is at least 0. Neither pins nor promotions are seen, nor what an en
// passant takes.
[[nodiscard]] i32 swapoff(const Position* pos, i32 side, i32 from, i32 to);

// Whether swapoff would give least (centipawns) or more. Cheaper: most exchanges are decided by the
// first piece or two, and those behind them are never looked for.
[[nodiscard]] bool swaps_at_least(const Position* pos, i32 side, i32 from, i32 to, i32 least);

// Whether a slider's move (type Bishop, Rook or Queen) of the side to move brings a new
// attacker to a square of zone that another own piece attacks already.
bool adds_king_pressure(Position* pos, i32 type, i32 from, i32 to, u64 zone);

// ---- legality.cpp

// Whether a pseudo-legal move of side does not leave its king in check.
bool is_legal_move(Position* pos, i32 side, Move move);

// Whether move, which may be any number, is a legal move of the side to move. Leaves all lists as
// they are.
[[nodiscard]] bool is_playable(Position* pos, Move move);

// Whether the side to move has a legal move. Leaves all lists as they are.
[[nodiscard]] bool has_legal_move(Position* pos);

// Whether move can exist in this position (for moves out of the hash table): pieces, patterns
// and blockers, not castling rights and not the own king's safety.
[[nodiscard]] bool move_fits_board(const Position* pos, Move move);

// The fifty-move rule, in half-moves. A clock beyond it is a draw, and no search starts from there.
inline constexpr i32 fifty_move_plies = 100;

// Draw by repetition or the fifty-move rule. plies counts from the search's root (1 there);
// 0 judges the game itself.
bool is_draw_by_rule(Position* pos, i32 plies);

// What the tests of the board share: whole states to compare, boards that no game reaches, and a
// generator that walks a mailbox board square by square, as slow and as obvious as can be.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_support.h"

// Everything that unmaking a move has to bring back.
struct GameState {
    Position pos;
    i32 undo_count;
    i32 ply;
    Move last_move;
};

GameState state_of(const Position* pos);

// The first field in which two states differ, or an empty text.
std::string difference(const GameState& a, const GameState& b);

// The key and the pawn key of pos as a text of the same position gives them, through a record of
// their own.
struct KeyPair {
    u64 key;
    u64 pawn_key;
};
KeyPair keys_from_text(const std::string& fen);

// Computes both keys of a board that was put together by hand.
void set_keys(Position* pos);

// A board of random pieces: any number of kings, pawns on every rank, either side to move, the
// castling rights that the pieces allow. The en-passant square is any or none.
void set_random_board(Position* pos, u64* state, i32 pieces);

// The first four fields of the positions of the move count data, one in step.
std::vector<std::string> sample_positions(i32 step);

// Whether a line of the board joins two squares, with nothing between them.
bool is_open_line(const Position* pos, i32 a, i32 b);

// Squares strictly between two squares of one line, by walking.
u64 slow_between(i32 a, i32 b);

// Whether the piece of the given type and side on from attacks to, by walking.
bool slow_attacks(const Position* pos, i32 type, i32 side, i32 from, i32 to);

// The pseudo-legal moves of side, in no useful order.
std::vector<MoveEntry> slow_moves(const Position* pos, i32 side);

bool is_promotion(const MoveEntry& entry);

// A capture, en passant included, that is no promotion.
bool is_plain_capture(const Position* pos, const MoveEntry& entry);

bool is_castling(const MoveEntry& entry);

// Texts of the moves, sorted and joined: two lists hold the same moves if these are equal.
std::string sorted_texts(const std::vector<MoveEntry>& entries);

// What the unit tests share: one console record to work on, text forms of positions and moves,
// captured output, and the data files. The first call of set_position or test_thread makes the
// tables, the options and the record; each test runs with what set_position leaves.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "run_state.h"
#include "board/moves.h"
#include "board/notation.h"
#include "board/position.h"
#include "board/tables.h"
#include "search/move_lists.h"
#include "shell/board_text.h"
#include "shell/dialogue.h"

// The record that dialogue.game points to, made ready on first use.
SearchThread* test_thread();

// Sets the console's position from a FEN or EPD text, with an empty game, ply 1 and the two empty
// lists of plies 0 and 1, and returns it.
Position* set_position(const char* fen);
Position* set_position(const std::string& fen);

// The text of make_fen.
std::string fen_of(const Position* pos);

// The square of a name such as "e4"; ends the test program if it is none.
i32 square_of(const char* name);

// The set of the squares named, apart by blanks: "a1 b2".
u64 squares_of(const char* names);

// A move code from coordinate text such as "e2e4" or "e7e8q", taken as it stands.
Move move_of(const std::string& text);

// Coordinate text of a move as in UCI mode, "null" for 0, whatever the mode is.
std::string text_of(Move move);

// Makes the moves of a text such as "e2e4 e7e5" without asking whether they are legal.
void play_moves(Position* pos, const char* moves);

// The legal moves in the order of gen_all_moves, and whether one of them has the given text.
std::vector<Move> legal_moves(Position* pos);
bool is_legal_text(Position* pos, const char* move);

// The entries of a list, without the closing one, and their texts joined by blanks.
std::vector<MoveEntry> entries_of(const MoveEntry* list);
std::string texts_of(const MoveEntry* list);

// What run writes to standard output, to its descriptor or through stdio.
std::string capture_output(const std::function<void()>& run);

// The same for standard error.
std::string capture_errors(const std::function<void()>& run);

// Full path of a file of tests/data.
std::string data_path(const char* file);

// Rows of a file of tests/data cut at tabs; empty lines and lines that begin with # are left out.
// Ends the test program if the file cannot be read.
std::vector<std::vector<std::string>> read_tsv(const char* file);

// Lines of a file of tests/data, comments and empty lines left out.
std::vector<std::string> read_lines(const char* file);

// A number from 0 to limit - 1 out of a fixed sequence; state is any start value.
u32 next_random(u64* state, u32 limit);

// Plays up to plies random legal moves from pos and returns how many were found.
i32 play_random_moves(Position* pos, u64* state, i32 plies);

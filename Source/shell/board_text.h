// The board and its texts, with what the user is told about them.
#pragma once

#include "board/position.h"

// Prints position text, board and side to move to standard output and the log, as one line of
// output: what a search prints meanwhile does not come between.
void print_board(const Position* pos);

// parse_epd, with a line for the user if a castling right had to be dropped; returns what it does.
i32 read_position(Position* pos, const char* text);

// Finds the legal move of pos that text stands for, and tells the user if exactly two fit. Changes
// text, which must have room for one more character. Returns whether there is just one.
[[nodiscard]] bool read_move(Position* pos, char* text, Move* move);

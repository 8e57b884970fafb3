// The moves of a line as the user writes them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "board/position.h"

// Plays the moves of text on pos: in algebraic notation or as squares, apart by blanks, with or
// without move numbers, marks of quality and signs of check or mate. Adds the moves to line.
// Returns false where a word is no move that is legal there, or could be two: problem then says
// which. There may be at most most_line_moves of them.
[[nodiscard]] bool play_line(
    Position* pos, std::string_view text, std::vector<Move>* line, std::string* problem);

inline constexpr size_t most_line_moves = 600; // what the stack of a game holds

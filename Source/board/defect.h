// Whether a board, however it came about, is one that the search can work on.
#pragma once

#include <string_view>

#include "board/position.h"

// Why a search of pos could not run safely (a text for the user), or null if it can: one king
// each, at most sixteen pieces a side, no pawn on the first or last rank, side not to move not in
// check, castling rights with king and rook at home, no pawn that could step onto an en-passant
// square that has nothing to take behind it, all derived fields in agreement with the board.
[[nodiscard]] const char* position_defect(Position* pos);

// Whether a text gives eight ranks of eight squares, as a board in a position text must; parse_epd
// takes others as well, as far as they go.
[[nodiscard]] bool is_whole_board(std::string_view text);

// The moves of games as programs and people write them, and as the scanner and the book builder
// read them.
#pragma once

#include <string>
#include <string_view>

#include "board/position.h"

// A move that a text stands for.
struct NamedMove {
    Move move = NoMove;
    u64 rivals = 0; // squares of other pieces of its type that reach its square too, pinned or not
};

// Finds the legal move of pos that text means, in standard algebraic notation as strict or as loose
// as it comes, in long algebraic notation ("Ng1-f3", "e2e4", "e7-e8Q") or with figurines. text has
// no marks of quality. Returns null if there is exactly one such move, else a short class of
// reasons.
[[nodiscard]] const char* find_named_move(Position* pos, std::string_view text, NamedMove* named);

// Plays the move and adds its text: as standard algebraic notation has it, but for what parse_move
// of board/notation.h cannot read. A mate has the mark of a check, a piece with a pinned twin on
// its file or rank is told apart from that as well, and one that neither its file nor its rank
// tells apart is named by both squares.
void play_and_write(Position* pos, const NamedMove& named, std::string* out);

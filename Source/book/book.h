// Opening books in the Polyglot format.
#pragma once

#include "board/position.h"

// A move for pos from a book file, or 0: no file name, no file, position not in it, or the
// chosen move not legal.
Move book_probe(Position* pos, const char* file_name);

// Builds tmp_book.bin from the games of tool_file.
void build_book();

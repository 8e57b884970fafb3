// A stream of text cut into pieces of whole lines, for work by several threads. A line may be a
// gigabyte long: of one that is longer than the reader allows only a start is kept.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "base/types.h"

// Some lines of a file, one behind the other, each with its line feed; the last line of a file may
// lack it.
struct LinePiece {
    std::string text;
    i64 first_line = 1; // number of the first one in its file
};

// What is read of a file.
struct PieceReader {
    FILE* file = nullptr;
    size_t longest = 0; // characters of a line that are kept; one more tells that there were more
    i64 next_line = 1;
    bool is_begun = false;
    bool skips = false; // what comes is the rest of a line that was too long
    std::string rest;   // the start of a line that has not ended yet
};

// Makes ready to read an open file from its start. Of a line at most `longest` characters and one
// are kept.
[[nodiscard]] PieceReader start_pieces(FILE* file, size_t longest);

// Reads the next lines, a few hundred thousand characters at most. A byte-order mark in front of
// the first is passed over. Returns false at the end of the file, or where it cannot be read any
// further (see ferror): what was read of a line then is not handed out.
[[nodiscard]] bool read_piece(PieceReader* reader, LinePiece* piece);

// Takes the first line off a text, without its line feed and a carriage return before it. Returns
// false when there is none left. is_whole tells whether a line feed ended it.
[[nodiscard]] bool take_line(std::string_view* text, std::string_view* line, bool* is_whole);

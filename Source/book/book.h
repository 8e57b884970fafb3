// Opening books in the Polyglot format: playing from them and making one from games.
// A book is a file of 16-byte records, sorted by the key of the position; the records of one key
// stand together, the highest weight first. A book may come from anywhere, so nothing in it is
// trusted: a move is played only if it is legal, and a file in disorder finds less, no worse.
#pragma once

#include "board/position.h"

// One record. In the file all fields are big-endian.
struct BookEntry {
    u64 key;    // Polyglot key of the position
    u16 move;   // to-square in bits 0-5, from-square in 6-11, promotion in 12-14
    u16 weight; // 0: never to be played
    u32 learn;  // used by nobody, a part of the record's shape: read, and written as 0
};
static_assert(sizeof(BookEntry) == 16);

// More records of one key than these are not looked at: no position met in games has so many moves
// worth playing.
inline constexpr i32 max_book_entries = 128;

// What a book knows of a position, and the move chosen from it. Where count is 0 only the move is
// filled too.
struct BookChoice {
    Move move; // 0 if there is none, or if the chosen one is not legal here
    i32 count; // of the entries; 0 if the book has nothing playable here
    BookEntry entries[max_book_entries]; // in the order of the file
    u16 adjusted[max_book_entries];      // weights by which the choice was made, ten-thousandths
    u32 sum;                             // of adjusted
};

// Chooses a move for pos from a book file at random by the weights and variety (0 to 100, the
// option OwnBook_Variety). Without a file name, a readable book or a playable entry the choice is
// empty. Opens the file once and holds nothing of it afterwards.
void book_probe(Position* pos, const char* file_name, i32 variety, BookChoice* choice);

// The squares of a book's move as it holds them, so castling is the king's move onto its rook. out
// holds 5 bytes.
void write_book_move(u16 book_move, char* out);

// Builds tmp_book.bin in the current directory from the games of a file, playing them on pos. An
// old file of that name is replaced only by a complete new one. If the input cannot be read,
// nothing is written; exit_status becomes 1 where no book was written, but for an input that is not
// there. Reasons go to standard error.
void build_book(Position* pos, const char* file_name);

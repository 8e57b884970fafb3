// Opening books in the Polyglot format: playing from them and making one from games.
// A book is a file of 16-byte records, sorted by the key of the position; the records of one key
// stand together, the highest weight first.
#pragma once

#include "board/position.h"

// One record. In the file all fields are big-endian.
struct BookEntry {
    u64 key;    // Polyglot key of the position
    u16 move;   // to-square in bits 0-5, from-square in 6-11, promotion in 12-14
    u16 weight; // 0: never to be played
    u32 learn;  // read and ignored, written as 0
};
static_assert(sizeof(BookEntry) == 16);

// A move for pos from a book file, chosen at random by the weights and OwnBook_Variety. Returns 0
// if there is no file name, no readable book, no playable entry for the position, or if the
// chosen move is not legal here. Reports the book's moves to the user once any has been found.
// Opens the file once and holds nothing of it afterwards.
Move book_probe(Position* pos, const char* file_name);

// Builds tmp_book.bin in the current directory from the games of tool_file, playing them on the
// console's position. An old file of that name is replaced only by a complete new one. If the
// input cannot be read, nothing is written; if the book cannot be written for want of space,
// exit_status becomes 1. Reasons go to standard error.
void build_book();

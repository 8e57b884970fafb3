// The Polyglot format: the key of a position, the records of a file, the code of a move, the order
// of records and the choice among those of one position. For this folder, and for what looks into
// books without playing from them.
#pragma once

#include <cstdio>

#include "book/book.h"

// The constants of the key, 64 for each kind of piece by square, then castling rights, en-passant
// files and the side to move.
inline constexpr i32 random64_count = 781;
extern const u64 random64[random64_count];

// The Polyglot key of pos. An en-passant square counts only if a pawn of the side to move attacks
// it, whether or not the capture would be legal.
u64 book_key(const Position* pos);

// The pieces that a key was last made for, and their share in it; all zero for an empty board.
struct BookBoard {
    u64 pieces[2];
    u64 key;
    u8 codes[64];
};

// The same key for one position after another: only the squares that differ from those of the last
// call are looked at. A square must not have changed its piece for another of the same side, which
// no move does.
u64 next_book_key(const Position* pos, BookBoard* board);

// The fields of the 16 bytes at bytes.
[[nodiscard]] BookEntry decode_book_entry(const u8* bytes);

// Reads the next 16 bytes of file. Returns 0, or 1 at the end of the file, also within a record;
// then entry holds nothing of use.
[[nodiscard]] i32 read_book_entry(FILE* file, BookEntry* entry);

// Fills entries, which has room for max_book_entries, with the records of key in the order of an
// open file and returns their number. A file that is not sorted finds less.
[[nodiscard]] i32 find_book_entries(FILE* file, u64 key, BookEntry* entries);

// Writes entry as 16 bytes. Returns 0, or 1 if the file does not take them.
i32 write_book_entry(FILE* file, const BookEntry* entry);

// The engine's code of a book move and the way back. Castling is the king's move of two squares
// here and the king's move onto its rook in a book; both routines look at the squares alone,
// whatever piece stands there.
Move book_move_to_move(u16 book_move);
u16 move_to_book_move(Move move);

// The order of records in a book, for qsort: ascending by key, then descending by weight.
int book_entry_compare(const void* a, const void* b);

// The weights by which the choice is made, from 1 to max_book_entries records of one position:
// each weight plus the bonus of variety (0 to 100), in ten-thousandths of the sum of all weights.
// Returns the sum of adjusted, or 0 if all weights are 0; then adjusted is not written.
u32 adjust_book_weights(const BookEntry* entries, i32 count, i32 variety, u16* adjusted);

// A choice is drawn by a number from 0 to one less than this.
inline constexpr u32 book_draw_limit = 1000;

// The index of the entry that such a draw chooses; one of weight 0 never is, so there
// must be another.
i32 choose_book_entry(const BookEntry* entries, i32 count, const u16* adjusted, u32 sum, u32 draw);

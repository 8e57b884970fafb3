// Going through the records of a book from the first to the last: whether they stand in order.
#pragma once

#include "book/book.h"

// How a record stands to the one before it.
enum class BookOrder : u8 {
    Sorted,
    LowerKey,     // a search by halving may miss it, or what stands behind it
    HigherWeight, // of the same key: the first is no longer the highest, which variety goes by
};

// What was met so far; all zero at first.
struct BookScan {
    u64 records;
    u64 positions;       // different keys, where the book is in order
    u64 first_unsorted;  // number of the first record of a lower key than the one before; 0: none
    bool start_position; // is in it
    BookEntry last;
};

// Takes the next record.
BookOrder scan_book_entry(BookScan* scan, const BookEntry& entry);

// Putting the records of a book in order with bounded memory.
#pragma once

#include <string>

#include "data/book_file.h"

// What is told of a file that is not in order.
enum class OrderTelling : u8 {
    EachEntry, // every record, as a refusal
    OncePerFile,
};

// Opens a book, goes through it once and, where it is not in order, sorts it: ascending by key,
// descending by weight, records that compare equal in the order of the file. A rest behind the last
// whole record is refused. Returns false after a message if it cannot be read.
[[nodiscard]] bool open_book(
    BookFile* book, const std::string& name, OrderTelling telling, Report* report);

// Replaces the records of book by the same ones in order, in a file without a name, and remembers
// their numbers; so many records at a time are sorted in memory. Returns false after a message.
[[nodiscard]] bool sort_book(BookFile* book, u64 run_records, Report* report);

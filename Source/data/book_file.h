// Books as the words look into them: plain records in order, whatever the user's file is. Memory is
// bounded whatever it holds: what is packed, comes through a pipe or is not in order is copied into
// files without a name.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "base/types.h"
#include "book/book.h"
#include "data/report.h"
#include "data/nameless.h"

struct BookFile {
    std::string name;  // as messages call it
    OwnedFile file;    // records of 16 bytes
    OwnedFile numbers; // of these records in the user's file, a u64 each; null: they are the same
    u64 count = 0;     // of whole records
    u64 size = 0;      // bytes
    u64 unsorted = 0;  // records of a lower key than the one before
    u64 unsorted_weights = 0; // records of a higher weight than the one before of the same key
};

// Opens a book, its records as they stand. A rest behind the last whole record is refused. Returns
// false after a message if it cannot be read.
[[nodiscard]] bool open_unsorted_book(BookFile* book, const std::string& name, Report* report);

// The number in the user's file of the record at index; the first is 1.
[[nodiscard]] i64 entry_number(const BookFile& book, u64 index);

// Why no piece can ever make a book's move, a short class of reasons, or null.
[[nodiscard]] const char* book_move_defect(u16 book_move);

// The squares of a book's move with a letter behind a promotion: "e7e8q".
[[nodiscard]] std::string book_move_text(u16 book_move);

// ---- From the first record to the last

struct BookCursor {
    const BookFile* book = nullptr;
    u64 next = 0;        // index of the record that comes next
    u64 end = 0;         // and of the one behind the last
    bool failed = false; // a record could not be read
    size_t held = 0;     // bytes of block
    size_t used = 0;
    std::vector<u8> block;
};

// A cursor over the records from index first up to, not with, end.
[[nodiscard]] BookCursor make_cursor(const BookFile& book, u64 first, u64 end);
[[nodiscard]] BookCursor make_cursor(const BookFile& book);

// Takes the next record. Returns false at the end, or where the file cannot be read: failed then.
[[nodiscard]] bool next_entry(BookCursor* cursor, BookEntry* entry);

// A move of a position with all of its records: weights of the same move are added, since the
// engine draws from all of them.
struct BookMove {
    u16 move = 0;
    u32 learn = 0;    // of its first record
    u64 weight = 0;   // summed
    u64 index = 0;    // of its first record
    u64 repeated = 0; // records but the first
};

// The records of one key.
struct BookGroup {
    u64 key = 0;
    u64 first = 0; // index of the first record
    u64 count = 0; // of records
    u64 total = 0; // of the weights
    std::vector<BookMove> moves;
};

struct GroupReader {
    BookCursor cursor;
    bool has_entry = false; // of the group that comes next
    BookEntry entry {};
    std::vector<i32> slots; // by move: index into the moves of the group, -1
};

[[nodiscard]] GroupReader make_group_reader(const BookFile& book);

// Takes the records of the next key. Returns false at the end, or where the file cannot be read:
// cursor.failed then.
[[nodiscard]] bool next_group(GroupReader* reader, BookGroup* group);

// Counts a file that ended too early while it was read, as when it is cut meanwhile. Returns
// whether all was read.
bool check_cursor(const BookCursor& cursor, Report* report);

// ---- Looking for a key

struct BookIndex {
    std::vector<u64> steps;  // the key of each 256th record
    std::vector<u64> filter; // a bit for a part of each key
    u64 mask = 0;            // of the part
    u64 positions = 0;       // keys of the book
};

// Returns false after a message if the book cannot be read.
[[nodiscard]] bool make_index(BookIndex* index, const BookFile& book, Report* report);

// Whether a key may be there; quick, and right nine times out of ten.
[[nodiscard]] inline bool may_hold_key(const BookIndex& index, u64 key)
{
    const u64 part = key & index.mask;
    return (index.filter[part / 64] >> (part % 64) & 1) != 0;
}

// The index of the first record of a key, or -1. By any thread.
[[nodiscard]] i64 find_key(const BookIndex& index, const BookFile& book, u64 key);

// The records of a key from that index on, as many as the engine looks at. Returns their number. By
// any thread.
[[nodiscard]] i32 read_group(const BookFile& book, u64 first, BookEntry* entries);

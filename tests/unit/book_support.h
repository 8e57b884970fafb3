// What the tests of the books share: a folder of their own as the current one, and records of a
// book.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_support.h"
#include "book/polyglot.h"

// The move that a book gives for pos, as in the game: chosen by OwnBook_Variety and reported.
Move ask_book(Position* pos, const char* file_name);

// Runs in an empty folder, in UCI mode, with the options' defaults. Leaves them as they were.
struct BookTest : testing::Test {
    void SetUp() override;
    void TearDown() override;

    std::string folder;
    std::string old_folder;
};

// A record for the position of a text; move as a book writes it ("e1h1", "a7a8q").
BookEntry entry_of(const std::string& fen, const std::string& move, i32 weight);

// The bytes of records, and the records of bytes; an odd rest is left out.
std::string bytes_of(const std::vector<BookEntry>& entries);
std::vector<BookEntry> entries_of_bytes(const std::string& bytes);

// A file in the current folder, written and read; a missing one reads as empty.
void write_bytes(const std::string& name, const std::string& bytes);
std::string read_bytes(const std::string& name);
bool file_exists(const std::string& name);

// The squares of a book's move, as in "e1h1".
std::string book_text_of(u16 book_move);

// Folders, records and files of the book tests.
#include "book_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "shell/book_report.h"

Move ask_book(Position* pos, const char* file_name)
{
    BookChoice choice;
    book_probe(pos, file_name, dialogue.engine_options.own_book_variety, &choice);
    report_book_choice(&choice);
    return choice.move;
}

void BookTest::SetUp()
{
    test_thread();
    char name[] = "book_test_XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    old_folder = std::filesystem::current_path();
    folder = old_folder + "/" + name;
    std::filesystem::current_path(folder);
    reset_run_state();
}

void BookTest::TearDown()
{
    std::filesystem::current_path(old_folder);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    reset_run_state();
}

BookEntry entry_of(const std::string& fen, const std::string& move, i32 weight)
{
    const Position* pos = set_position(fen);
    const i32 from = square_of(move.c_str());
    const i32 to = square_of(move.c_str() + 2);
    const size_t promotion = move.size() > 4 ? std::string(" nbrq").find(move[4]) : 0;
    return { book_key(pos), static_cast<u16>(promotion << 12 | static_cast<u32>(from << 6 | to)),
        static_cast<u16>(weight), 0 };
}

static void append_number(std::string* bytes, i32 count, u64 value)
{
    for (i32 i = count - 1; i >= 0; --i) {
        *bytes += static_cast<char>(value >> (8 * i));
    }
}

std::string bytes_of(const std::vector<BookEntry>& entries)
{
    std::string bytes;
    for (const BookEntry& entry : entries) {
        append_number(&bytes, 8, entry.key);
        append_number(&bytes, 2, entry.move);
        append_number(&bytes, 2, entry.weight);
        append_number(&bytes, 4, entry.learn);
    }
    return bytes;
}

static u64 number_at(const std::string& bytes, size_t start, size_t count)
{
    u64 value = 0;
    for (size_t i = 0; i < count; ++i) {
        value = value << 8 | static_cast<u8>(bytes[start + i]);
    }
    return value;
}

std::vector<BookEntry> entries_of_bytes(const std::string& bytes)
{
    std::vector<BookEntry> entries;
    for (size_t i = 0; i + 16 <= bytes.size(); i += 16) {
        entries.push_back({ number_at(bytes, i, 8), static_cast<u16>(number_at(bytes, i + 8, 2)),
            static_cast<u16>(number_at(bytes, i + 10, 2)),
            static_cast<u32>(number_at(bytes, i + 12, 4)) });
    }
    return entries;
}

void write_bytes(const std::string& name, const std::string& bytes)
{
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    file << bytes;
    file.close();
    ASSERT_TRUE(file) << name;
}

std::string read_bytes(const std::string& name)
{
    std::ifstream file(name, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

bool file_exists(const std::string& name)
{
    return access(name.c_str(), F_OK) == 0;
}

std::string book_text_of(u16 book_move)
{
    return std::string(square_name[book_move >> 6 & 63]) + square_name[book_move & 63];
}

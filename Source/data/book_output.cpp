// What the words for books have in common: texts, and records of books that are made.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <numeric>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "board/defect.h"
#include "board/notation.h"
#include "book/polyglot.h"
#include "data/book_words.h"

static constexpr u64 highest_weight = 65535;

// ---- Command lines

// The reader of positions is made for loose texts; here one that is not meant as it is read would
// make all of a book unreachable.
const char* read_start(const std::string& text, BookBench* bench)
{
    Position* pos = &bench->pos;
    pos->stack = &bench->stack;
    pos->thread = nullptr;
    if (text.empty()) {
        parse_epd(pos, start_position);
        return nullptr;
    }
    const size_t side = text.find(' ');
    if (side == text.npos || !is_whole_board(std::string_view(text).substr(0, side))
        || (text.compare(side, 3, " w ") != 0 && text.compare(side, 3, " b ") != 0)) {
        return "no position text";
    }
    const bool is_whole = parse_epd(pos, text.c_str()) == 0;
    if (const char* defect = position_defect(pos)) {
        return defect;
    }
    return is_whole ? nullptr : "castling without a king or a rook at home";
}

std::string name_move(Position* pos, Move move, bool by_squares)
{
    if (by_squares) {
        return book_move_text(move_to_book_move(move));
    }
    char san[16];
    make_standard_san(pos, move, san);
    return san;
}

std::string name_ply(i64 ply, i32 first_side)
{
    const i64 half = ply + (first_side == White ? 0 : 1);
    return std::to_string(half / 2 + 1) + (half % 2 == 0 ? "." : "...");
}

std::string percent_of(u64 part, u64 whole)
{
    if (whole == 0) {
        return "-";
    }
    char text[32];
    snprintf(text, sizeof text, "%.2f%%", 100.0 * static_cast<f64>(part) / static_cast<f64>(whole));
    return text;
}

// ---- Books that are made

bool can_take_book(const char* word, const CommonOptions& common)
{
    if (common.output == "-" && isatty(STDOUT_FILENO) != 0) {
        refuse_data_words(
            word, "a book is no text for a terminal; --output FILE says where it goes");
        return false;
    }
    return true;
}

void settle_moves(std::vector<BookMove>* moves)
{
    u64 highest = 0;
    for (const BookMove& move : *moves) {
        highest = std::max(highest, move.weight);
    }
    if (highest > highest_weight) {
        for (BookMove& move : *moves) {
            // Exact in 128 bits: the sum of a hostile book's weights is that large.
            const u64 scaled = static_cast<u64>(
                static_cast<unsigned __int128>(move.weight) * highest_weight / highest);
            move.weight = move.weight > 0 ? std::max<u64>(scaled, 1) : 0;
        }
    }
    // Equals keep their order. Not by std::stable_sort, which in GCC 12's library calls what Clang
    // takes for deprecated.
    std::vector<size_t> order(moves->size());
    std::iota(order.begin(), order.end(), size_t { 0 });
    std::ranges::sort(order, [moves](size_t a, size_t b) {
        const u64 weight = (*moves)[a].weight;
        const u64 other = (*moves)[b].weight;
        return weight != other ? weight > other : a < b;
    });
    std::vector<BookMove> sorted;
    sorted.reserve(order.size());
    for (const size_t i : order) {
        sorted.push_back((*moves)[i]);
    }
    moves->swap(sorted);
}

u64 write_moves(u64 key, const std::vector<BookMove>& moves, FILE* out)
{
    for (const BookMove& move : moves) {
        const BookEntry entry = { key, move.move, static_cast<u16>(move.weight), move.learn };
        write_book_entry(out, &entry);
    }
    return moves.size();
}

bool start_scratch_book(BookFile* book, const std::string& name, Report* report)
{
    *book = BookFile();
    book->name = name;
    book->file = open_nameless_file(report);
    return book->file != nullptr;
}

bool finish_scratch_book(BookFile* book, u64 count, Report* report)
{
    book->count = count;
    book->size = count * sizeof(BookEntry);
    return flush_nameless(book->file.get(), report);
}

void refuse_impossible(const BookFile& book, BookGroup* group, Report* report)
{
    std::erase_if(group->moves, [&](const BookMove& move) {
        const char* defect = book_move_defect(move.move);
        if (defect != nullptr) {
            refuse_item(report, book.name,
                { .reason = defect,
                    .detail = book_move_text(move.move),
                    .entry = entry_number(book, move.index) });
            group->total -= move.weight;
        }
        return defect != nullptr;
    });
}

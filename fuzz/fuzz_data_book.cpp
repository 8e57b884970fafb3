// The words for opening books with any bytes as a book, or any text as a line of moves, by the
// first letter of the input. What is made of a book is in order, and the same whatever number of
// threads has looked at it.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "book/polyglot.h"
#include "book/scan.h"
#include "data/book_line.h"
#include "data/book_walk.h"
#include "data/words.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static constexpr char book_name[] = "book.bin";
static constexpr char output_name[] = "book.out";
static constexpr char report_name[] = "book.report";

static void demand(bool condition)
{
    if (!condition) {
        abort();
    }
}

static void run(std::vector<std::string> words)
{
    words.insert(words.begin(), "book");
    words.insert(words.end(), { "--quiet", "--max-messages", "0", "--report", report_name });
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    const int status = run_data_word(arguments);
    demand(status == 0 || status == 1);
}

// What was written has no moves twice and stands in order.
static void check_order()
{
    FILE* file = fopen(output_name, "rb");
    if (file == nullptr) {
        return;
    }
    BookScan scan = {};
    BookEntry entry;
    while (read_book_entry(file, &entry) == 0) {
        demand(scan_book_entry(&scan, entry) == BookOrder::Sorted);
    }
    fclose(file);
}

// Writes the keys of positions that can be reached over those of records, by their first bytes.
static void make_records_fit(std::string* book)
{
    static BookBench bench;
    bench.pos.stack = &bench.stack;
    static constexpr const char* positions[] = { start_position,
        "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq -",
        "rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq -" };
    for (size_t at = 0; at + sizeof(BookEntry) <= book->size(); at += sizeof(BookEntry)) {
        const u8 choice = static_cast<u8>((*book)[at]);
        if (choice < 3) {
            parse_epd(&bench.pos, positions[choice]);
            const u64 key = book_key(&bench.pos);
            for (size_t i = 0; i < sizeof key; ++i) {
                (*book)[at + i] = static_cast<char>(key >> (56 - 8 * i));
            }
        }
    }
}

static void read_line(const std::string& text)
{
    static BookBench bench;
    bench.pos.stack = &bench.stack;
    parse_epd(&bench.pos, start_position);
    std::vector<Move> line;
    std::string problem;
    const bool is_read = play_line(&bench.pos, text, &line, &problem);
    demand(is_read == problem.empty() && line.size() <= most_line_moves);
    demand(fields_agree(&bench.pos));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Books need nothing of the engine but its tables, and making it ready takes the most time.
    static const bool is_ready = (ready_engine(), true);
    if (!is_ready || size == 0) {
        return 0;
    }
    std::string book(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] == 'l') {
        read_line(book);
        return 0;
    }
    make_records_fit(&book);
    write_file(book_name, book);
    remove(output_name);
    switch (data[0]) {
    case 'd':
        run({ "dump", book_name, "--for", "white", "--output", output_name });
        run({ "dump", book_name, "--output", output_name });
        run({ "play", book_name, "--output", output_name });
        break;
    case 'p':
        run({ "prune", book_name, "--drop-illegal", "--max-ply", "2", "--min-share", "3",
            "--output", output_name });
        check_order();
        break;
    case 'm':
        run({ "merge", book_name, book_name, "--rule=share", "--output", output_name });
        check_order();
        run({ "diff", book_name, output_name, "--output", "book.diff" });
        break;
    default:
        run({ "check", book_name, "--jobs", data[0] % 2 != 0 ? "2" : "1" });
        break;
    }
    return 0;
}

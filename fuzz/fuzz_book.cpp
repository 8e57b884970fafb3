// A book file and a probe: the first byte chooses the variety and whether the records are made to
// fit the position, the rest is the file. Whatever it holds, a move that is given must be legal.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "base/output.h"
#include "board/moves.h"
#include "book/polyglot.h"
#include "shell/book_report.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char book_name[] = "book.bin";
static const char* const positions[] = {
    start_position,
    "r3k2r/pPppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "8/8/8/K2pP2q/8/8/8/7k w - d6",
    "R6k/8/6K1/8/8/8/8/8 b - -",
};

// Writes the key over that of every record that begins with an odd byte.
static void make_records_fit(std::string* book, u64 key)
{
    for (size_t start = 0; start + sizeof(BookEntry) <= book->size(); start += sizeof(BookEntry)) {
        if (((*book)[start] & 1) == 0) {
            continue;
        }
        for (size_t i = 0; i < sizeof key; ++i) {
            (*book)[start + i] = static_cast<char>(key >> (56 - 8 * i));
        }
    }
}

static void probe(Position* pos)
{
    BookChoice choice;
    book_probe(pos, book_name, dialogue.engine_options.own_book_variety, &choice);
    report_book_choice(&choice);
    const Move move = choice.move;
    if (!fields_agree(pos) || (move != NoMove && !is_playable(pos, move))) {
        fprintf(stderr, "the book gives the move %04x\n", static_cast<unsigned>(move));
        abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    if (size == 0) {
        return 0;
    }
    const u8 choice = data[0];
    dialogue.engine_options.own_book_variety = static_cast<i16>(choice % 101);
    store(uci_mode, choice & 1);
    const std::string given(reinterpret_cast<const char*>(data) + 1, size - 1);
    Position* pos = &dialogue.game->pos;
    for (const char* position : positions) {
        parse_epd(pos, position);
        std::string book = given;
        if (choice & 128) {
            make_records_fit(&book, book_key(pos));
        }
        write_file(book_name, book);
        probe(pos);
    }
    return 0;
}

// A file of games for the book builder: whatever it holds, a book must come of it whose records
// are in order, and the position it is played on must stay sound.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "base/output.h"
#include "book/polyglot.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char games_name[] = "games.pgn";
static const char book_name[] = "tmp_book.bin";

static void fail(const char* text)
{
    fprintf(stderr, "%s\n", text);
    abort();
}

static void check_book()
{
    FILE* file = fopen(book_name, "rb");
    if (file == nullptr) {
        fail("there is no book");
    }
    BookEntry before = {};
    BookEntry entry;
    while (read_book_entry(file, &entry) == 0) {
        if (book_entry_compare(&before, &entry) > 0 && before.weight != 0) {
            fail("the records are out of order");
        }
        if (entry.weight == 0 || entry.weight > 60000) {
            fail("a weight is out of range");
        }
        before = entry;
    }
    fclose(file);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    write_file(games_name, std::string(reinterpret_cast<const char*>(data), size));
    remove(book_name);
    build_book(&dialogue.game->pos, games_name);
    check_book();
    if (!fields_agree(&dialogue.game->pos)) {
        fail("the position is unsound");
    }
    return 0;
}

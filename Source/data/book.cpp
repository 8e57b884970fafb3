// The word book and the words behind it.
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "base/nearest_word.h"
#include "board/tables.h"
#include "data/book_words.h"
#include "data/words.h"

struct BookWord {
    std::string_view word;
    int (*run)(Arguments arguments);
};

static constexpr BookWord book_words[] = {
    { "check", run_book_check },
    { "diff", run_book_diff },
    { "dump", run_book_dump },
    { "merge", run_book_merge },
    { "play", run_book_play },
    { "prune", run_book_prune },
};

static int show_book_help()
{
    puts("vesk-data book WORD [OPTIONS] BOOK...\n"
         "\n"
         "Opening books in the Polyglot format (.bin). Each word has a page of its own:\n"
         "vesk-data book WORD --help\n"
         "\n"
         "  check BOOK...         what is in it, and what is wrong with it; the word may be left "
         "out\n"
         "  dump BOOK             its lines as a tree, or its entries\n"
         "  play BOOK MOVES...    the choices after these moves, with their chances\n"
         "  diff BOOK BOOK        what one has and the other has not\n"
         "  merge BOOK BOOK...    one book out of several\n"
         "  prune BOOK            a book without what is rare, deep, illegal or not reached\n"
         "\n"
         "Books that are no longer in order, or damaged, are read as far as they go. Those that "
         "are\n"
         "made are sorted and have each move once. A book may be packed or come through a pipe "
         "(-);\n"
         "it is unpacked into a file without a name in the folder of TMPDIR, or in /tmp.");
    return 0;
}

// The first argument that is no word is a book to be checked, unless it looks like a slip of the
// hand: a file of such a name can be given as ./NAME.
int run_book(Arguments arguments)
{
    // Once a process: a caller that runs many words should not wait for the same tables each time.
    static bool has_tables = false;
    if (!has_tables) {
        init_board_tables();
        has_tables = true;
    }
    if (arguments.empty()) {
        return refuse_data_words("book", "names no book");
    }
    const std::string_view first = arguments.front();
    if (arguments.size() == 1 && (first == "--help" || first == "-h")) {
        return show_book_help();
    }
    const auto* row = std::ranges::find(book_words, first, &BookWord::word);
    if (row != std::end(book_words)) {
        return row->run(arguments.subspan(1));
    }
    std::array<std::string_view, std::size(book_words)> names;
    std::ranges::transform(book_words, names.begin(), &BookWord::word);
    const std::string_view near = nearest_word(first, names);
    if (!near.empty() && first.find_first_of("./") == first.npos) {
        return refuse_data_words(
            "book", "there is no word '%s'; '%s' may be meant", arguments.front(), near.data());
    }
    return run_book_check(arguments);
}

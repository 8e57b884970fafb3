// The word "games" with a file of games; the first character picks options. Whatever the file
// holds, what is written comes out the same when it goes through once more, and the scanner and the
// book builder take all of it.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

#include "fuzz_support.h"
#include "base/files.h"
#include "book/book.h"
#include "data/words.h"
#include "tools/tools.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static constexpr char input_file[] = "games.in";
static constexpr char first_file[] = "games.first.pgn";
static constexpr char second_file[] = "games.second.pgn";

static void demand(bool condition)
{
    if (!condition) {
        abort();
    }
}

static std::string content_of(const char* name)
{
    std::ifstream file(name, std::ios::binary);
    demand(file.is_open());
    return { std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>() };
}

static int rewrite(const char* from, const char* to, std::vector<std::string> words)
{
    words.insert(words.begin(),
        { "games", from, "--quiet", "--max-messages", "0", "--output", to, "--report",
            "games.report" });
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    return run_data_word(arguments);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    if (size == 0) {
        return 0;
    }
    write_file(input_file, std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    std::vector<std::string> words;
    std::vector<std::string> same = { "--view", "mover" };
    switch (data[0]) {
    case 'f':
        words = { "--keep-fen", "--view", "white", "--broken-off", "keep" };
        same.insert(same.end(), { "--keep-fen", "--broken-off", "keep" });
        break;
    case 'u':
        words = { "--unique", "--tags", "roster", "--result", "1-0,*", "--jobs", "2" };
        same.insert(same.end(), { "--result", "1-0,*" });
        break;
    case 'c':
        words = { "--class", "blitz,correspondence", "--from", "2020", "--min-rating", "1" };
        break;
    default:
        break;
    }
    remove(first_file);
    demand(rewrite(input_file, first_file, words) < 2);
    if (access(first_file, F_OK) != 0) {
        return 0; // of no game there is no file
    }
    demand(rewrite(first_file, second_file, same) == 0);
    demand(content_of(first_file) == content_of(second_file));
    if (data[0] != 'f') {
        exit_status = 0;
        scan_pgn(&dialogue, first_file, 4);
        build_book(&dialogue.game->pos, first_file);
        demand(exit_status == 0);
    }
    return 0;
}

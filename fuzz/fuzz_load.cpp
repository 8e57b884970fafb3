// A file of games for the console: the first line of the input names the game, the rest is the
// file. The game that comes of it must be one that can be taken back and gone through again.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "board/moves.h"
#include "board/position.h"
#include "shell/console_game.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char games_name[] = "load.pgn";

static void fail(const char* text)
{
    fprintf(stderr, "%s\n", text);
    abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const size_t end = text.find('\n');
    const std::string tag = text.substr(0, end);
    write_file(games_name, end == std::string::npos ? "" : text.substr(end + 1));
    load_game(&dialogue, games_name, tag.c_str());

    const SearchThread* thread = dialogue.game;
    const u64 key = thread->pos.key;
    const i32 count = thread->undo_count;
    jump_to_move(&dialogue, 1);
    while (redo_move(&dialogue)) { }
    if (thread->undo_count != count || thread->pos.key != key) {
        fail("the game cannot be gone through again");
    }
    if (!fields_agree(&thread->pos)) {
        fail("the position is unsound");
    }
    return 0;
}

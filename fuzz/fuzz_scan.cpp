// A file of games through all forms of the PGN scanner: whatever it holds, the output files must
// be there and hold nothing but readable positions, and the position played on must stay sound.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "board/notation.h"
#include "board/position.h"
#include "tools/tools.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char games_name[] = "games.pgn";

static void fail(const char* text)
{
    fprintf(stderr, "%s\n", text);
    abort();
}

// Every line names a move that can be played in its position. An empty line closes a file.
static void check_positions(const char* name)
{
    FILE* file = fopen(name, "r");
    if (file == nullptr) {
        fail("there is no output");
    }
    char line[512];
    while (fgets(line, sizeof line, file) != nullptr && line[0] != '\n') {
        char* text = strstr(line, " bm ");
        if (text == nullptr) {
            fail("a line has no move");
        }
        *text = '\0';
        text += strlen(" bm ");
        text[strcspn(text, ";")] = '\0';
        Position* pos = &dialogue.game->pos;
        Move move;
        if (parse_epd(pos, line) != 0 || parse_move(pos, text, &move) != 1) {
            fail("a move cannot be played");
        }
    }
    fclose(file);
    remove(name);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    write_file(games_name, std::string(reinterpret_cast<const char*>(data), size));
    for (i32 form = 1; form <= 4; ++form) {
        scan_pgn(&dialogue, games_name, form);
        if (!fields_agree(&dialogue.game->pos)) {
            fail("the position is unsound");
        }
        check_positions("tmpX.epd");
        if (form > 1) {
            check_positions("tmp.epd");
        }
    }
    return 0;
}

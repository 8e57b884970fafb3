// What the board tells by results is said to the user here: the board itself prints nothing.
#include "shell/board_text.h"

#include "base/output.h"
#include "board/notation.h"

void print_board(const Position* pos)
{
    char fen[fen_size];
    char view[board_view_size];
    make_fen(pos, fen);
    make_board_view(pos, view);
    print_line_format("%s\n%s%s\n", fen, view, pos->stm == White ? "white" : "black");
}

// What stands behind the fields tells whoever reads many positions from a file which one it was.
i32 read_position(Position* pos, const char* text)
{
    const char* rest = nullptr;
    const i32 result = parse_epd(pos, text, &rest);
    if (result != 0) {
        print_line_format("Illegal EPD - %s", rest);
    }
    return result;
}

// Exactly two moves that fit are told to the user; more do nothing, as an unknown word.
bool read_move(Position* pos, char* text, Move* move)
{
    const i32 matches = parse_move(pos, text, move);
    if (matches == 2) {
        print_plain("ambiguous move\n");
    }
    return matches == 1;
}

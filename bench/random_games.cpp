// Writes games for measuring book builders: random_games COUNT FILE. Every game is legal and goes
// its own way; the first moves are drawn so that a few are common and most are rare, as in real
// collections. The same count always gives the same file. Standard output is of no use.
#include <cstdio>
#include <cstdlib>

#include "board/moves.h"
#include "board/notation.h"
#include "board/tables.h"
#include "search/thread.h"

// The record that everything here works on.
static SearchThread* game;

static constexpr i32 opening_plies = 20;
static constexpr i32 least_plies = 50;
static constexpr u32 more_plies = 90;
static constexpr i32 moves_per_line = 7;

static u64 random_state = 1;

static u32 next_random(u32 limit)
{
    random_state = random_state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<u32>(random_state >> 33) % limit;
}

// An index below count; in the opening the low ones are common.
static i32 draw_index(i32 count, i32 ply)
{
    const f64 draw = next_random(1U << 24) / static_cast<f64>(1U << 24);
    const f64 share = ply < opening_plies ? draw * draw * draw * draw : draw;
    return static_cast<i32>(count * share);
}

static bool has_twin(Position* pos, const MoveEntry* moves, i32 count, const MoveEntry* entry)
{
    for (const MoveEntry* other = moves; other < moves + count; ++other) {
        if (other != entry && other->moved == entry->moved
            && to_square(other->move) == to_square(entry->move)
            && is_legal_move(pos, pos->stm, other->move)) {
            return true;
        }
    }
    return false;
}

// The move's short text as other programs write it: one that names this move alone, with the file
// or the rank of a piece that is not alone in reaching the square.
static bool write_text(Position* pos, Move move, bool is_alone, char* text)
{
    char forms[4][16];
    make_san(pos, move, forms[0], forms[1], forms[2], forms[3]);
    const bool is_pawn = (pos->board[from_square(move)] & 7) == Pawn;
    const bool castles = forms[1][0] == 'o';
    for (i32 i = is_pawn || (is_alone && !castles) ? 1 : 2; i < 4; ++i) {
        if (forms[i][0] == '\0') {
            continue;
        }
        char copy[17];
        Move read;
        snprintf(copy, sizeof copy, "%s", forms[i]);
        if (parse_move(pos, copy, &read) == 1 && read == move) {
            snprintf(text, 16, "%s", forms[i]);
            return true;
        }
    }
    return false;
}

// Draws a move with a text of its own and makes it. False if none was found.
static bool play_move(Position* pos, i32 ply, char* text)
{
    MoveEntry moves[max_list_moves];
    const i32 count = static_cast<i32>(gen_moves_into(pos, moves) - moves);
    for (i32 tries = 0; tries < 10 * count; ++tries) {
        const MoveEntry* entry = &moves[draw_index(count, tries < count ? ply : opening_plies)];
        if (!is_legal_move(pos, pos->stm, entry->move)) {
            continue;
        }
        if (write_text(pos, entry->move, !has_twin(pos, moves, count, entry), text)) {
            make_move(pos, entry->move);
            return true;
        }
    }
    return false;
}

static void write_game(FILE* file, i32 number)
{
    static const char* const results[] = { "1-0", "1-0", "1-0", "0-1", "0-1", "1/2-1/2" };
    const char* result = results[next_random(6)];
    fprintf(file,
        "[Event \"random\"]\n[Site \"?\"]\n[Date \"2024.01.01\"]\n[Round \"%d\"]\n"
        "[White \"First\"]\n[Black \"Second\"]\n[Result \"%s\"]\n\n",
        number, result);
    Position* pos = &game->pos;
    parse_epd(pos, start_position);
    const i32 plies = least_plies + static_cast<i32>(next_random(more_plies));
    char text[16];
    for (i32 ply = 0; ply < plies && play_move(pos, ply, text); ++ply) {
        if (ply % 2 == 0) {
            fprintf(file, "%d. ", ply / 2 + 1);
        }
        fprintf(file, "%s%c", text, ply % (2 * moves_per_line) == 13 ? '\n' : ' ');
    }
    fprintf(file, "%s\n\n", result);
}

int main(int argc, char** argv)
{
    const i32 count = argc == 3 ? atoi(argv[1]) : 0;
    FILE* file = count > 0 ? fopen(argv[2], "w") : nullptr;
    if (file == nullptr) {
        fprintf(stderr, "usage: random_games COUNT FILE\n");
        return 1;
    }
    init_board_tables();
    game = new_thread_record(-1);
    if (game == nullptr) {
        return 1;
    }
    for (i32 number = 1; number <= count; ++number) {
        write_game(file, number);
    }
    delete_thread_record(game);
    return fclose(file) == 0 ? 0 : 1;
}

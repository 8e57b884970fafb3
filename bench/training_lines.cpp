// Writes positions for measuring and testing the trainer: training_lines COUNT FILE [NAME MG EG].
// Each line has its evaluation as ce and, as gr, the result that this evaluation makes likely. A
// weight changed by name changes both: a trainer that starts without the change should find it.
// The games play the best of a few moves drawn. The same arguments always give the same file.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/output.h"
#include "board/moves.h"
#include "board/tables.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "search/thread.h"
#include "tools/training_line.h"

// The record that everything here works on.
static SearchThread* game;

static constexpr i32 longest_game = 160; // half-moves
static constexpr i32 opening_plies = 12; // drawn freely and not written
static constexpr i32 moves_drawn = 6;
static constexpr i32 plies_per_line = 3; // one position of so many is written
static constexpr i32 widest_score = 1200;
static constexpr i32 least_material = 5; // of both sides, in points of phase_mtl

static u64 random_state = 1;

static i32 next_random(i32 limit)
{
    random_state = random_state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<i32>((random_state >> 33) % static_cast<u64>(limit));
}

static i32 evaluate_now(Position* pos)
{
    u16 danger[2];
    return evaluate(pos->thread, pos, 1, false, danger);
}

static bool is_in_check(const Position* pos)
{
    return is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
}

// The legal moves, in no told order. Returns their number.
static i32 list_moves(Position* pos, Move* list)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    i32 count = 0;
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (entry->move != NoMove && is_legal_move(pos, pos->stm, entry->move)) {
            list[count++] = entry->move;
        }
    }
    return count;
}

// The best of a few moves by the position behind it.
static Move draw_move(Position* pos, const Move* list, i32 count, i32 draws)
{
    Move best = NoMove;
    i32 best_score = 0;
    for (i32 i = 0; i < draws; ++i) {
        const Move move = list[next_random(count)];
        make_move(pos, move);
        const i32 score = -evaluate_now(pos);
        unmake_move(pos);
        if (best == NoMove || score > best_score) {
            best = move;
            best_score = score;
        }
    }
    return best;
}

static bool write_line(FILE* file, Position* pos)
{
    const i32 score = evaluate_now(pos);
    if (is_in_check(pos) || score < -widest_score || score > widest_score) {
        return false;
    }
    char text[128];
    make_fen(pos, text);
    fprintf(file, "%s ce %d; gr %.6f;\n", text, score,
        static_cast<f64>(sigmoid(static_cast<f32>(score))));
    return true;
}

// Plays a game and returns the number of lines written, at most limit.
static i32 play_game(FILE* file, i32 limit)
{
    Position* pos = &game->pos;
    parse_epd(pos, start_position);
    i32 written = 0;
    for (i32 ply = 0; ply < longest_game && written < limit; ++ply) {
        Move list[max_list_moves];
        const i32 count = list_moves(pos, list);
        if (count == 0 || pos->phase_mtl[White] < least_material
            || pos->phase_mtl[Black] < least_material) {
            break;
        }
        make_move(pos, draw_move(pos, list, count, ply < opening_plies ? 1 : moves_drawn));
        if (ply >= opening_plies && next_random(plies_per_line) == 0) {
            written += write_line(file, pos);
        }
    }
    return written;
}

static bool change_weight(const char* name, i32 mg, i32 eg)
{
    bool found = false;
    for (i32 i = 0; i < weight_count; ++i) {
        if (strcmp(eval_params[i].name, name) == 0) {
            set_weight(i, mg, eg);
            found = true;
        }
    }
    return found;
}

static bool make_engine()
{
    init_board_tables();
    game = new_thread_record(-1);
    if (game == nullptr) {
        return false;
    }
    init_eval_params(PlainWeights, nullptr); // the defaults, whatever lies here
    return true;
}

int main(int argc, char** argv)
{
    const i32 count = argc == 3 || argc == 6 ? atoi(argv[1]) : 0;
    FILE* file = count > 0 && make_engine() ? fopen(argv[2], "w") : nullptr;
    if (file == nullptr || (argc == 6 && !change_weight(argv[3], atoi(argv[4]), atoi(argv[5])))) {
        fprintf(stderr, "usage: training_lines COUNT FILE [NAME MG EG]\n");
        return 1;
    }
    for (i32 written = 0; written < count;) {
        written += play_game(file, count - written);
    }
    delete_thread_record(game);
    return fclose(file) == 0 ? 0 : 1;
}

// One-time setup and the shared helpers of the unit tests.
#include "test_support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "base/files.h"
#include "base/output.h"
#include "board/trace.h"
#include "eval/evaluate.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/strength.h"
#include "search/thread.h"
#include "search/threads.h"
#include "shell/prepare_search.h"
#include "tools/tools.h"

static void fail_setup(const std::string& reason)
{
    fprintf(stderr, "test setup: %s\n", reason.c_str());
    abort();
}

SearchThread* test_thread()
{
    if (dialogue.game != nullptr) {
        return dialogue.game;
    }
    init_board_tables();
    reset_run_state();
    SearchThread* thread = new_thread_record(-1);
    if (thread == nullptr) {
        fail_setup("no memory");
    }
    dialogue.game = thread;
    build_weights(NormalWeights);
    rebuild_search_tables(&dialogue);
    return thread;
}

Position* set_position(const char* fen)
{
    SearchThread* thread = test_thread();
    init_move_lists(thread);
    parse_epd(&thread->pos, fen);
    return &thread->pos;
}

Position* set_position(const std::string& fen)
{
    return set_position(fen.c_str());
}

std::string fen_of(const Position* pos)
{
    char text[256];
    make_fen(pos, text);
    return text;
}

i32 square_of(const char* name)
{
    for (i32 square = 0; square < 64; ++square) {
        if (strncmp(name, square_name[square], 2) == 0) {
            return square;
        }
    }
    fail_setup(std::string("no square: ") + name);
    return NoSquare;
}

u64 squares_of(const char* names)
{
    std::istringstream words(names);
    u64 set = 0;
    for (std::string word; words >> word;) {
        set |= bit(square_of(word.c_str()));
    }
    return set;
}

Move move_of(const std::string& text)
{
    if (text.size() < 4) {
        fail_setup("no move: " + text);
    }
    const i32 from = square_of(text.c_str());
    const i32 to = square_of(text.c_str() + 2);
    Move flag = 0;
    switch (text.size() > 4 ? text[4] : ' ') {
    case 'q':
        flag = PromoteQueen;
        break;
    case 'n':
        flag = PromoteKnight;
        break;
    case 'b':
        flag = PromoteBishop;
        break;
    case 'r':
        flag = PromoteRook;
        break;
    default:
        break;
    }
    return make_move_code(from, to) | flag;
}

std::string text_of(Move move)
{
    char text[16];
    const i16 mode = load(uci_mode);
    store(uci_mode, 1);
    move_text_or_null(move, text);
    store(uci_mode, mode);
    return text;
}

void play_moves(Position* pos, const char* moves)
{
    std::istringstream words(moves);
    for (std::string word; words >> word;) {
        make_move(pos, move_of(word));
    }
}

std::vector<Move> legal_moves(Position* pos)
{
    static MoveEntry list[1200];
    MoveEntry* end = gen_captures(pos, pos->stm, list, NoSquare);
    end = gen_promotions(pos, pos->stm, 1, end);
    end = gen_quiets(pos, pos->stm, end, NoSquare);
    std::vector<Move> moves;
    for (const MoveEntry* entry = list; entry < end; ++entry) {
        if (is_legal_move(pos, pos->stm, entry->move)) {
            moves.push_back(entry->move);
        }
    }
    return moves;
}

bool is_legal_text(Position* pos, const char* move)
{
    for (const Move legal : legal_moves(pos)) {
        if (legal == move_of(move)) {
            return true;
        }
    }
    return false;
}

std::vector<MoveEntry> entries_of(const MoveEntry* list)
{
    std::vector<MoveEntry> entries;
    for (; list->move != EndOfList; ++list) {
        entries.push_back(*list);
    }
    return entries;
}

std::string texts_of(const MoveEntry* list)
{
    std::string texts;
    for (const MoveEntry& entry : entries_of(list)) {
        texts += (texts.empty() ? "" : " ") + text_of(entry.move);
    }
    return texts;
}

// What run writes to a descriptor, directly or through its stream.
static std::string capture(int descriptor, FILE* stream, const std::function<void()>& run)
{
    fflush(stream);
    FILE* file = tmpfile();
    const int kept = dup(descriptor);
    if (file == nullptr || kept < 0 || dup2(fileno(file), descriptor) < 0) {
        fail_setup("cannot redirect an output");
    }
    run();
    fflush(stream);
    dup2(kept, descriptor);
    close(kept);

    std::string text;
    char buffer[4096];
    rewind(file);
    for (size_t count; (count = fread(buffer, 1, sizeof buffer, file)) > 0;) {
        text.append(buffer, count);
    }
    fclose(file);
    return text;
}

std::string capture_output(const std::function<void()>& run)
{
    return capture(STDOUT_FILENO, stdout, run);
}

std::string capture_errors(const std::function<void()>& run)
{
    return capture(STDERR_FILENO, stderr, run);
}

std::string data_path(const char* file)
{
    return std::string(VESK_TEST_DATA) + "/" + file;
}

std::vector<std::string> read_lines(const char* file)
{
    std::ifstream input(data_path(file));
    if (!input) {
        fail_setup("cannot read " + data_path(file));
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(input, line);) {
        if (!line.empty() && line[0] != '#') {
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<std::vector<std::string>> read_tsv(const char* file)
{
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : read_lines(file)) {
        std::vector<std::string> cells(1);
        for (const char c : line) {
            if (c == '\t') {
                cells.emplace_back();
            } else {
                cells.back() += c;
            }
        }
        rows.push_back(cells);
    }
    return rows;
}

u32 next_random(u64* state, u32 limit)
{
    *state = *state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<u32>(*state >> 33) % limit;
}

i32 play_random_moves(Position* pos, u64* state, i32 plies)
{
    for (i32 ply = 0; ply < plies; ++ply) {
        const std::vector<Move> moves = legal_moves(pos);
        if (moves.empty()) {
            return ply;
        }
        make_move(pos, moves[next_random(state, static_cast<u32>(moves.size()))]);
    }
    return plies;
}

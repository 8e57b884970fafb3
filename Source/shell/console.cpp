// The words of the console dialogue, for a person at a terminal. The first word picks the command;
// what is no command is taken as a move of the game. A command that gives the game a new state
// lets a running search end and report first; one that starts a search ends an older one silently.
#include "shell/console.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "board/moves.h"
#include "board/notation.h"
#include "book/book.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "search/hash.h"
#include "search/params.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/console_game.h"
#include "shell/engine_options.h"
#include "shell/input.h"
#include "base/output.h"
#include "shell/run_state.h"
#include "base/text.h"
#include "shell/think_loop.h"
#include "search/clock.h"
#include "tools/tools.h"

static constexpr i32 most_words = 10;
static constexpr i32 word_size = 128;
static constexpr i32 deepest_perft = 20;
static constexpr f64 least_seconds = 0.001;       // keeps a division away from zero
static constexpr f64 unlimited_seconds = 99999.0; // a search by depth alone
static constexpr u8 kept_hash_mode = 2;           // from here on a search by depth keeps the table
static constexpr i32 trace_table = 1;             // what evaluate prints
static constexpr i32 trace_weights = 2;
static constexpr char tune_file[] = "tune.epd";
static constexpr i32 tune_method = 5;        // one that takes no samples
static constexpr i64 tune_limit = 500000000; // samples
static constexpr f64 tune_rate = 0.001;
static constexpr char test_file[] = "test.epd";
static constexpr i32 test_line_size = 255;
static constexpr size_t shortest_epd = 9; // characters; a shorter line is no position

static constexpr size_t line_text_size = 1024; // 67 moves of at most ten characters
static constexpr i32 most_lines = 255;
static constexpr i32 lowest_depth = -128;    // what depth_limit can hold
static constexpr i16 never_deep_enough = 99; // a rule that starts at this depth is off
static constexpr size_t key_size = 32;       // of set, with its NUL

constinit u64 tagged_key = 0;

// A line split at blanks; words that are missing are empty texts.
struct Words {
    char text[most_words][word_size + 4]; // reading a move may add a character
};

static void split_words(const char* line, Words* words)
{
    for (i32 i = 0; i < most_words; ++i) {
        line = skip_blanks(line);
        const size_t length = strcspn(line, " ");
        copy_text(words->text[i], std::min<size_t>(word_size, length + 1), line);
        line += length;
    }
}

// Adds the text of a move and a blank to a line of line_text_size bytes.
static void append_san(Position* pos, Move move, char* line)
{
    char forms[4][16];
    make_san(pos, move, forms[0], forms[1], forms[2], forms[3]);
    const size_t used = strlen(line);
    snprintf(line + used, line_text_size - used, "%s ", forms[1]);
}

// ---- Showing

// Says why the position cannot be worked on, if so.
static bool is_refused(Position* pos)
{
    const char* defect = position_defect(pos);
    if (defect != nullptr) {
        print_line(defect);
    }
    return defect != nullptr;
}

// The table is printed in check as well: a player wants to see it at any time.
static void print_evaluation(i32 trace)
{
    Position* pos = &console_thread->pos;
    if (!is_refused(pos)) {
        evaluate(console_thread, pos->stm, 1, 0, trace);
    }
}

static void show_last_move()
{
    const SearchThread* thread = console_thread;
    if (thread->undo_count > 0) {
        print_plain("last move was %d%s %s%s\n", (thread->undo_count + 1) / 2,
            thread->pos.stm == Black ? "." : "...", square_name[from_square(thread->last_move)],
            square_name[to_square(thread->last_move)]);
    }
    print_evaluation(trace_table);
}

static void show_game()
{
    if (load(debug_flag) != 0) {
        show_last_move();
    }
    print_board(&console_thread->pos);
}

static void show_board(Words*, const char*)
{
    show_game();
}

static void show_evaluation(Words*, const char*)
{
    show_last_move();
}

static void show_weights(Words*, const char*)
{
    print_evaluation(trace_weights);
}

// The tables are never rebuilt under a running search, which has built them for itself.
static void show_params(Words*, const char*)
{
    if (busy_workers() == 0) {
        set_search_params();
    }
    print_search_params();
}

static void show_book(Words*, const char*)
{
    Position* pos = &console_thread->pos;
    book_probe(pos, engine_options.own_book_file);
    print_line("");
    book_probe(pos, engine_options.own_book2_file);
    print_line("");
}

// What either side could win on the squares of the other's pieces.
static void show_exchanges(Words*, const char*)
{
    const Position* pos = &console_thread->pos;
    for (i32 square = 0; square < 64; ++square) {
        const i32 code = pos->board[square];
        const i32 attacker = (code >> 3) ^ 1;
        if (code != 0 && is_attacked(pos, square, attacker)) {
            print_plain("sq= %s, swap1= %4d\n", square_name[square],
                swapoff(pos, attacker, NoSquare, square));
        }
    }
}

// The line that the hash table holds from here, and the board at its end. The walk uses the part of
// the undo stack that holds the moves taken back by the user, who may want them again.
static void show_line(Words*, const char*)
{
    static_assert(game_limit + ply_count <= undo_size);
    SearchThread* thread = console_thread;
    Position* pos = &thread->pos;
    UndoRecord* undo = &thread->undo[thread->undo_count];
    Move redo[ply_count];
    for (i32 i = 0; i < ply_count; ++i) {
        redo[i] = undo[i].move;
    }

    u16 line[ply_count] = {};
    char text[line_text_size] = "";
    i32 made = 0;
    // After moves taken back the ply can be any number, but a line has its place from ply 1 on.
    const i32 first = std::max<i32>(thread->ply, 1);
    if (first <= max_search_ply) {
        extend_line_from_hash(pos, first, line);
        for (; line[first + made] != NoMove; ++made) {
            append_san(pos, line[first + made], text);
            make_move(pos, line[first + made]);
        }
    }
    print_plain("PV: %s\n\n", text);
    print_board(pos);
    for (; made > 0; --made) {
        unmake_move(pos);
    }

    for (i32 i = 0; i < ply_count; ++i) {
        undo[i].move = redo[i];
    }
}

// ---- Searching

static void start_search()
{
    store(stop_code, StopSilent);
    wait_for_workers();
    store(engine_state, EngineStart);
}

static void move_now(Words*, const char*)
{
    start_search();
}

static void search_to_depth(Words* words, const char*)
{
    start_search();
    const i32 depth = read_i32(words->text[1]);
    tc_seconds = unlimited_seconds;
    store(tc_moves, 1);
    store(depth_limit, depth >= 1 && depth < deepest_limit ? depth : deepest_limit);
    if (load(hash_mode) < kept_hash_mode) {
        clear_hash_if_idle();
    }
}

static void play_itself(Words*, const char*)
{
    start_search();
    engine_options.ponder = 0;
    publish_options();
    self_play = 1;
}

static void end_search_now(Words*, const char*)
{
    store(stop_code, StopReportGame);
}

static void quit(Words*, const char*)
{
    store(stop_code, StopSilent);
    quit_flag = 1;
}

static void set_trace(Words* words, const char*)
{
    store(trace_level, read_i32(words->text[1]));
}

// Counts the leaves of the move tree. The state stays that of a search without a result, so that
// nothing is reported.
static void count_leaves(Words* words, const char*)
{
    end_search_silently();
    if (is_refused(&console_thread->pos)) {
        return;
    }
    store(engine_state, EngineThinking);
    prepare_search();
    sync_workers();
    SearchThread* thread = num_threads > 0 ? load(workers[0]) : console_thread;
    store(thread->counters[CountNodes], 0);
    const i32 depth = std::clamp(read_i32(words->text[1]), 0, deepest_perft);
    if (depth > 0) {
        perft(thread, thread->pos.stm, 1, depth);
    }
    update_elapsed();
    const f64 nodes = static_cast<f64>(load(thread->counters[CountNodes]));
    const f64 seconds = load(elapsed);
    print_line_format("visited %0.0f nodes in %0.3f seconds, nps= %0.0f", nodes, seconds,
        nodes / (seconds + least_seconds));
}

// ---- The game

static void start_new_game(Words*, const char*)
{
    Position* pos = &console_thread->pos;
    store(stop_code, StopReportGame);
    parse_epd(pos, start_position);
    print_board(pos);
    store(clock_left[White], tc_seconds);
    store(clock_left[Black], tc_seconds);
}

static void set_up_fen(Words*, const char* line)
{
    store(stop_code, StopReportGame);
    parse_epd(&console_thread->pos, text_behind(line, sizeof "fen"));
    print_board(&console_thread->pos);
}

// The first line of the test file that holds an id, up to its line feed, or an empty text.
static void find_test_line(const char* id, char* line)
{
    char wanted[word_size + 16];
    snprintf(wanted, sizeof wanted, "id \"%s\"", id);
    FILE* file = open_regular_file(test_file);
    bool found = false;
    while (file != nullptr && !found && fgets(line, test_line_size, file) != nullptr) {
        found = line[0] != ' ' && line[0] != ';' && strstr(line, wanted) != nullptr;
    }
    if (file != nullptr) {
        fclose(file);
    }
    line[found ? strcspn(line, "\n") : 0] = '\0';
}

static void set_up_test(Words* words, const char*)
{
    store(stop_code, StopReportGame);
    char line[test_line_size];
    find_test_line(words->text[1], line);
    print_line(line);
    if (strlen(line) >= shortest_epd) {
        parse_epd(&console_thread->pos, line);
    }
    print_board(&console_thread->pos);
    clear_hash_if_idle();
}

static void take_back(Words*, const char*)
{
    store(stop_code, StopReportGame);
    if (console_thread->undo_count >= 1) {
        unmake_move(&console_thread->pos);
        show_game();
    }
}

static void repeat_move(Words*, const char*)
{
    store(stop_code, StopReportGame);
    const SearchThread* thread = console_thread;
    const i32 number = thread->undo_count / 2 + 1;
    const char* dots = thread->pos.stm == White ? "." : "...";
    if (redo_move()) {
        char text[8];
        print_line_format("%d%s move %s", number, dots, move_text_or_null(thread->last_move, text));
        show_game();
    }
}

static void jump(Words* words, const char*)
{
    store(stop_code, StopReportGame);
    jump_to_move(read_i32(words->text[1]));
}

static void load_from_file(Words* words, const char*)
{
    load_game(words->text[1], words->text[2]);
}

static void save_to_file(Words*, const char*)
{
    save_game();
}

static void edit(Words*, const char*)
{
    store(stop_code, StopReportGame);
    edit_board();
}

static void tag_position(Words*, const char*)
{
    tagged_key = console_thread->pos.key;
}

// Takes one step at the position and walks the training file by a method that takes no samples:
// only a tuning build is made for more. Names restrict what the tuner may change from the next
// rebuild of the weights on.
static void tune(Words* words, const char*)
{
    static_assert(tune_list_size == most_words - 1);
    if (words->text[1][0] == '\0') {
        return;
    }
    end_search_silently();
    if (is_refused(&console_thread->pos)) {
        return;
    }
    tune_count = 0;
    for (i32 i = 1; i < most_words && words->text[i][0] != '\0'; ++i) {
        copy_text(tune_list[tune_count++], sizeof tune_list[0], words->text[i]);
    }
    copy_text(epd_file, sizeof epd_file, tune_file);
    tune_step(&console_thread->pos, 0.0f, -1.0f);
    train_epd(epd_file, tune_method, tune_limit, tune_rate);
    print_plain("done!\n");
}

// Plays a move of the game. The engine does not answer by itself. A text that is empty without its
// mark of a check is no move, though it fits the forms of a pawn's move that are empty too.
static void play_text(char* text)
{
    Position* pos = &console_thread->pos;
    Move move = NoMove;
    if (strcspn(text, "+") == 0 || !parse_move(text, &move)
        || !is_makeable(
            pos, from_square(move), to_square(move), static_cast<Move>(move & PromotionMask))) {
        return;
    }
    store(stop_code, StopSilent);
    wait_for_workers();
    // What has ended silently is not reported by a later command either.
    if (load(engine_state) == EngineThinking) {
        store(engine_state, EngineIdle);
    }
    print_line_format("%d. move %s", console_thread->undo_count / 2 + 1, text);
    make_game_move(pos, move);
    show_game();
}

static void play_second_word(Words* words, const char*)
{
    play_text(words->text[1]);
}

// ---- set

static void set_hash_mode(const Words* words)
{
    store(hash_mode, read_i32(words->text[2]));
}

static void set_noise(const Words* words)
{
    store(noise, read_real(words->text[2]));
}

static void set_lines(const Words* words)
{
    engine_options.multi_pv = static_cast<i16>(std::clamp(read_i32(words->text[2]), 1, most_lines));
}

static void set_debug(const Words* words)
{
    store(debug_flag, read_i32(words->text[2]));
}

// Seconds, or minutes:seconds.
static f64 read_time(const char* text)
{
    const f64 first = read_i32(text);
    const char* colon = strchr(text, ':');
    return colon == nullptr ? first : first * 60.0 + read_i32(colon + 1);
}

static void set_level(const Words* words)
{
    store(tc_moves, read_i32(words->text[2]));
    tc_seconds = read_time(words->text[3]);
    store(clock_left[White], tc_seconds);
    store(clock_left[Black], tc_seconds);
    tc_increment = read_real(words->text[4]);
    print_line_format("set level to %d moves in %0.2f seconds, inc %0.2f", load(tc_moves),
        tc_seconds, tc_increment);
}

static void set_depth(const Words* words)
{
    store(depth_limit, std::clamp(read_i32(words->text[2]), lowest_depth, deepest_limit));
}

static void set_node_rate(const Words* words)
{
    engine_options.limit_strength = 1;
    store(target_nps, static_cast<f64>(read_integer(words->text[2])));
    print_line_format("target_nps set to %.0f", load(target_nps));
}

static void set_selective_search(const Words* words)
{
    if (read_i32(words->text[2]) == 1) {
        engine_options = saved_options;
        print_line("set default personality");
        return;
    }
    engine_options.search.NMP_depth = never_deep_enough;
    engine_options.search.SEP_depth = 0;
    engine_options.search.LMP_depth = 0;
    engine_options.search.LMR_depth = never_deep_enough;
    print_line("selectivity set to OFF");
}

struct SetKey {
    const char* key;
    void (*set)(const Words* words);
};

// One of these keys takes a longer one that contains it.
static constexpr char lines_key[] = "multipv";

static constexpr SetKey set_keys[] = {
    { "hash", set_hash_mode },
    { "noise", set_noise },
    { lines_key, set_lines },
    { "debug", set_debug },
    { "level", set_level },
    { "depth", set_depth },
    { "target_nps", set_node_rate },
    { "ss", set_selective_search },
};

// Keys that write one number.
struct SetField {
    const char* key;
    i16* field;
};

static constexpr SetField set_fields[] = {
    { "NMP_depth", &engine_options.search.NMP_depth },
    { "SEP_depth", &engine_options.search.SEP_depth },
    { "FP_depth", &engine_options.search.FP_depth },
    { "ProbCut_depth", &engine_options.search.ProbCut_depth },
    { "LMP_depth", &engine_options.search.LMP_depth },
    { "LMR_depth", &engine_options.search.LMR_depth },
    { "Selectivity", &engine_options.selectivity },
    { "ponder", &engine_options.ponder },
};

static void apply_setting(const char* key, const Words* words)
{
    for (const SetKey& row : set_keys) {
        if (strcmp(key, row.key) == 0
            || (row.key == lines_key && strstr(key, lines_key) != nullptr)) {
            row.set(words);
            return;
        }
    }
    for (const SetField& row : set_fields) {
        if (strcmp(key, row.key) == 0) {
            *row.field = narrow_to_i16(read_i32(words->text[2]));
            print_line_format("%s set to %d", key, *row.field);
            return;
        }
    }
}

// Even a key that is none lets the next search rebuild its tables.
static void set(Words* words, const char*)
{
    char key[key_size];
    copy_text(key, sizeof key, words->text[1]);
    apply_setting(key, words);
    engine_options.params_changed = 1;
    publish_options();
}

// ---- The table

struct ConsoleWord {
    const char* word;
    void (*run)(Words* words, const char* line);
};

static constexpr ConsoleWord console_words[] = {
    { "new", start_new_game },
    { "fen", set_up_fen },
    { "quit", quit },
    { "mv", move_now },
    { "go", search_to_depth },
    { "an", search_to_depth },
    { ".", end_search_now },
    { "bd", show_board },
    { "self", play_itself },
    { "get", set_up_test },
    { "pv", show_line },
    { "trace", set_trace },
    { "ev", show_evaluation },
    { "sp", show_weights },
    { "lmr", show_params },
    { "undo", take_back },
    { "[", take_back },
    { "]", repeat_move },
    { "load", load_from_file },
    { "save", save_to_file },
    { "jump", jump },
    { "edit", edit },
    { "book", show_book },
    { "tag", tag_position },
    { "tune", tune },
    { "perft", count_leaves },
    { "swap", show_exchanges },
    { "set", set },
    { "move", play_second_word },
};

void console_command(char* command)
{
    command[strcspn(command, "\r\n")] = '\0';
    Words words;
    split_words(command, &words);
    for (const ConsoleWord& row : console_words) {
        if (strcmp(words.text[0], row.word) == 0) {
            row.run(&words, command);
            return;
        }
    }
    play_text(words.text[0]);
}

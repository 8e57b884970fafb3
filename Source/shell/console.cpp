// The words of the console dialogue, for a person at a terminal. The first word picks the command;
// what is no command is taken as a move of the game, and what is neither is dropped without a word:
// a slip of the hand must not end a long analysis. A command that gives the game a new state lets a
// running search end and report first, since its answer is still of use; one that starts a search
// ends an older one silently. No command waits for an answer but "edit".
#include "shell/console.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "board/defect.h"
#include "board/moves.h"
#include "board/notation.h"
#include "board/trace.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "book/book.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/params.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/book_report.h"
#include "shell/console_game.h"
#include "shell/console_set.h"
#include "shell/input.h"
#include "shell/prepare_search.h"
#include "shell/words.h"

// Plies; far more than anybody can wait for, and few enough for the records of the plies.
static constexpr i32 deepest_perft = 20;
static constexpr f64 least_seconds = 0.001;       // keeps a division away from zero
static constexpr f64 unlimited_seconds = 99999.0; // a search by depth alone
static constexpr char test_file[] = "test.epd";
static constexpr i32 test_line_size = 255;
static constexpr size_t shortest_epd = 9; // characters; a shorter line is no position

static constexpr size_t line_text_size = 1024; // 67 moves of at most ten characters

// A word that is too long is cut rather than refused: it is no command, and no move.
static void split_words(const char* line, Words* words)
{
    for (i32 i = 0; i < most_words; ++i) {
        const std::string_view word = take_word(&line);
        copy_text(words->text[i], std::min<size_t>(word_size, word.size() + 1), word.data());
    }
}

// Adds the text of a move and a blank to a line of line_text_size bytes; what does not fit is cut.
static void append_san(Position* pos, Move move, char* line)
{
    char forms[4][16];
    make_san(pos, move, forms[0], forms[1], forms[2], forms[3]);
    const size_t used = strlen(line);
    snprintf(line + used, line_text_size - used, "%s ", forms[1]);
}

// ---- Showing

// Boards that no game could have come from the editor and from position texts. They can be looked
// at and changed on, but the evaluation and the search count on what a board of chess keeps.
bool is_refused(Position* pos)
{
    const char* defect = position_defect(pos);
    if (defect != nullptr) {
        print_line(defect);
    }
    return defect != nullptr;
}

// The table is printed in check as well: a player wants to see it at any time. The evaluation is
// told that there is no check, and ply 1 keeps it off its caches, which do not hold the terms.
static void print_evaluation(Dialogue* dialogue, bool with_weights)
{
    SearchThread* game = dialogue->game;
    if (!is_refused(&game->pos)) {
        u16 danger[2];
        evaluate(game, &game->pos, 1, false, danger);
        char table[eval_trace_size];
        write_eval_trace(game, with_weights, table);
        print_text(table);
    }
}

// The number is that of the move pair, as it stands in a score sheet. After moves taken back it is
// the move before the board shown.
static void show_last_move(Dialogue* dialogue)
{
    const SearchThread* thread = dialogue->game;
    if (thread->undo_count > 0) {
        print_plain("last move was %d%s %s%s\n", (thread->undo_count + 1) / 2,
            thread->pos.stm == Black ? "." : "...", square_name[from_square(thread->last_move)],
            square_name[to_square(thread->last_move)]);
    }
    print_evaluation(dialogue, false);
}

// What a player sees after each change of the board: with "set debug 1" the judgement too.
static void show_game(Dialogue* dialogue)
{
    if (load(search_settings.debug_flag) != 0) {
        show_last_move(dialogue);
    }
    print_board(&dialogue->game->pos);
}

static void show_board(Dialogue* dialogue, Words*, const char*)
{
    show_game(dialogue);
}

static void show_evaluation(Dialogue* dialogue, Words*, const char*)
{
    show_last_move(dialogue);
}

static void show_weights(Dialogue* dialogue, Words*, const char*)
{
    print_evaluation(dialogue, true);
}

// The tables are never rebuilt under a running search, which reads them without a lock; it is shown
// the ones it works with. Otherwise settings made since the last search must show at once.
static void show_params(Dialogue* dialogue, Words*, const char*)
{
    if (busy_workers() == 0) {
        rebuild_search_tables(dialogue);
    }
    print_search_params();
}

// Both books are asked, whether OwnBook is on or off and whatever their depths: the user wants to
// know what is in them. An empty line closes each.
static void show_book(Dialogue* dialogue, Words*, const char*)
{
    const EngineOptions* options = &dialogue->engine_options;
    for (const char* file_name : { options->own_book_file, options->own_book2_file }) {
        BookChoice choice;
        book_probe(&dialogue->game->pos, file_name, options->own_book_variety, &choice);
        report_book_choice(&choice);
        print_line("");
    }
}

// What either side could win on the squares of the other's pieces, by captures on that square
// alone, in centipawns.
static void show_exchanges(Dialogue* dialogue, Words*, const char*)
{
    const Position* pos = &dialogue->game->pos;
    for (i32 square = 0; square < 64; ++square) {
        const i32 code = pos->board[square];
        const i32 attacker = side_of(code) ^ 1;
        if (code != 0 && is_attacked(pos, square, attacker)) {
            print_plain("sq= %s, swap1= %4d\n", square_name[square],
                swapoff(pos, attacker, NoSquare, square));
        }
    }
}

// The line that the hash table holds from here, and the board at its end. The walk uses the part of
// the undo stack that holds the moves taken back by the user, who may want them again. Nothing here
// waits for a search to end: the table may be read at any time.
static void show_line(Dialogue* dialogue, Words*, const char*)
{
    static_assert(game_limit + ply_count <= undo_size);
    SearchThread* thread = dialogue->game;
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
    // Deeper in the game's own count there is no place left for a line; none is shown then.
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

// The older search has nothing to report: the user has asked for another answer. The new one is
// only asked for; it starts on the main loop's next pass, with the limits that hold then.
static void start_search()
{
    store(stop_code, StopCode::Silent);
    wait_for_workers();
    store(engine_state, EngineState::Start);
}

// With the limits as they stand, those of an earlier "go" too.
static void move_now(Dialogue*, Words*, const char*)
{
    start_search();
}

// A depth out of range, or none, is an analysis until the user ends it. The time is so long that
// the clock never ends it, and contempt stays out. The table is cleared, so that the same analysis
// gives the same lines again; "set hash 2" keeps what earlier ones have found.
static void search_to_depth(Dialogue* dialogue, Words* words, const char*)
{
    start_search();
    const i32 depth = read_i32(words->text[1]);
    dialogue->limits.tc_seconds = unlimited_seconds;
    store(dialogue->limits.tc_moves, FixedTime);
    store(
        dialogue->limits.depth_limit, depth >= 1 && depth < deepest_limit ? depth : deepest_limit);
    if (load(hash.mode) < HashKept) {
        clear_hash_if_idle();
    }
}

// Without the option Ponder: nobody thinks on the opponent's time here, and time that was reckoned
// with it would be missing.
static void play_itself(Dialogue* dialogue, Words*, const char*)
{
    start_search();
    dialogue->engine_options.ponder = 0;
    publish_options(dialogue);
    dialogue->self_play = true;
}

// The main loop reports as soon as the workers have ended. While idle this says nothing. Where the
// fifty-move rule has kept the workers asleep it brings the report that is still awaited.
static void end_search_now(Dialogue*, Words*, const char*)
{
    store(stop_code, StopCode::ReportGame);
}

// The result of a search that runs is dropped; main ends the workers.
static void quit(Dialogue* dialogue, Words*, const char*)
{
    store(stop_code, StopCode::Silent);
    dialogue->quit_flag = true;
}

// Plies down to which the search writes its moves to a file; 0 ends the writing.
static void set_trace(Dialogue*, Words* words, const char*)
{
    store(trace_level, read_i32(words->text[1]));
}

// Counts the leaves of the move tree, on this thread: the main loop stands still, and no command is
// read, until it is done. The state stays that of a search without a result, so that nothing is
// reported. The preparation sets the clock to zero and copies the game into the worker's record, on
// which the count works.
static void count_leaves(Dialogue* dialogue, Words* words, const char*)
{
    drop_search();
    if (is_refused(&dialogue->game->pos)) {
        return;
    }
    store(engine_state, EngineState::Thinking);
    prepare_search(dialogue);
    sync_workers(dialogue->game);
    SearchThread* thread = num_threads > 0 ? load(workers[0]) : dialogue->game;
    store(thread->counters[CountNodes], 0);
    const i32 depth = std::clamp(read_i32(words->text[1]), 0, deepest_perft);
    if (depth > 0) {
        perft(thread, thread->pos.stm, 1, depth);
    }
    update_elapsed();
    const f64 nodes = static_cast<f64>(load(thread->counters[CountNodes]));
    const f64 seconds = load(search_clock.elapsed);
    print_line_format("visited %0.0f nodes in %0.3f seconds, nps= %0.0f", nodes, seconds,
        nodes / (seconds + least_seconds));
}

// ---- The game

// The running search is told to report, but not awaited: it works on a copy, and its lines may come
// behind the board. Both clocks begin anew; the table stays, as what it holds is true of any game.
static void start_new_game(Dialogue* dialogue, Words*, const char*)
{
    Position* pos = &dialogue->game->pos;
    store(stop_code, StopCode::ReportGame);
    read_position(pos, start_position);
    print_board(pos);
    store(dialogue->limits.clock_left[White], dialogue->limits.tc_seconds);
    store(dialogue->limits.clock_left[Black], dialogue->limits.tc_seconds);
}

// The whole rest of the line is the position: its fields are separated by blanks.
static void set_up_fen(Dialogue* dialogue, Words*, const char* line)
{
    store(stop_code, StopCode::ReportGame);
    read_position(&dialogue->game->pos, text_behind(line, sizeof "fen"));
    print_board(&dialogue->game->pos);
}

// The first line of the test file that holds an id, up to its line feed, or an empty text. Lines
// that begin with a blank or a semicolon are remarks. A line longer than the buffer is looked at in
// pieces, each as a line of its own.
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

// The table is cleared, so that a test is solved by the search and not by what it remembers; but
// while a search runs the table is left alone.
static void set_up_test(Dialogue* dialogue, Words* words, const char*)
{
    store(stop_code, StopCode::ReportGame);
    char line[test_line_size];
    find_test_line(words->text[1], line);
    print_line(line);
    if (strlen(line) >= shortest_epd) {
        read_position(&dialogue->game->pos, line);
    }
    print_board(&dialogue->game->pos);
    clear_hash_if_idle();
}

// The move stays in the record, behind the game's end, for "]" to repeat.
static void take_back(Dialogue* dialogue, Words*, const char*)
{
    store(stop_code, StopCode::ReportGame);
    if (dialogue->game->undo_count >= 1) {
        unmake_move(&dialogue->game->pos);
        show_game(dialogue);
    }
}

// The number is taken before the move is made: it is that of the side that moves.
static void repeat_move(Dialogue* dialogue, Words*, const char*)
{
    store(stop_code, StopCode::ReportGame);
    const SearchThread* thread = dialogue->game;
    const i32 number = thread->undo_count / 2 + 1;
    const char* dots = thread->pos.stm == White ? "." : "...";
    if (redo_move(dialogue)) {
        char text[8];
        print_line_format("%d%s move %s", number, dots, move_text_or_null(thread->last_move, text));
        show_game(dialogue);
    }
}

static void jump(Dialogue* dialogue, Words* words, const char*)
{
    store(stop_code, StopCode::ReportGame);
    jump_to_move(dialogue, read_i32(words->text[1]));
}

// Ends no search by itself: load_game does, once the file is open. A name that is wrong disturbs
// nothing.
static void load_from_file(Dialogue* dialogue, Words* words, const char*)
{
    load_game(dialogue, words->text[1], words->text[2]);
}

// The game does not change, so a search goes on.
static void save_to_file(Dialogue* dialogue, Words*, const char*)
{
    save_game(dialogue);
}

// Waits for the user's lines; meanwhile the main loop rests and a search that is to report does so
// after the editor's end.
static void edit(Dialogue* dialogue, Words*, const char*)
{
    store(stop_code, StopCode::ReportGame);
    edit_board(dialogue);
}

// Remembers the position for a comparison that no word makes today.
static void tag_position(Dialogue* dialogue, Words*, const char*)
{
    dialogue->tagged_key = dialogue->game->pos.key;
}

// Plays a move of the game. The engine does not answer by itself. A text that is empty without its
// mark of a check is no move, though it fits the forms of a pawn's move that are empty too. A
// search ends without a report: its root is no longer the board, and its line would begin with a
// move for the wrong side. The text is the user's own spelling, with what reading it has added.
static void play_text(Dialogue* dialogue, char* text)
{
    Position* pos = &dialogue->game->pos;
    Move move = NoMove;
    if (strcspn(text, "+") == 0 || !read_move(pos, text, &move)
        || !is_makeable(
            pos, from_square(move), to_square(move), static_cast<Move>(move & PromotionMask))) {
        return;
    }
    store(stop_code, StopCode::Silent);
    wait_for_workers();
    // What has ended silently is not reported by a later command either.
    if (load(engine_state) == EngineState::Thinking) {
        store(engine_state, EngineState::Idle);
    }
    print_line_format("%d. move %s", dialogue->game->undo_count / 2 + 1, text);
    make_game_move(pos, move);
    show_game(dialogue);
}

static void play_second_word(Dialogue* dialogue, Words* words, const char*)
{
    play_text(dialogue, words->text[1]);
}

// ---- The table

// Compared as a whole, capitals apart from small letters. What stands here is never read as a move.
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
    { "perft", count_leaves },
    { "swap", show_exchanges },
    { "set", change_setting },
    { "move", play_second_word },
};

static const ConsoleWord* find_word(std::span<const ConsoleWord> rows, std::string_view word)
{
    for (const ConsoleWord& row : rows) {
        if (row.word == word) {
            return &row;
        }
    }
    return nullptr;
}

// The console's words come first: a tool cannot take one away.
void console_command(Dialogue* dialogue, char* command)
{
    command[strcspn(command, "\r\n")] = '\0';
    Words words;
    split_words(command, &words);
    const ConsoleWord* row = find_word(console_words, words.text[0]);
    if (row == nullptr) {
        row = find_word(dialogue->tool_words, words.text[0]);
    }
    if (row != nullptr) {
        row->run(dialogue, &words, command);
        return;
    }
    play_text(dialogue, words.text[0]);
}

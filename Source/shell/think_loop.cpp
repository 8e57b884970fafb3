// The main thread's life between start-up and tear-down. It never searches: once a millisecond
// while a search runs, and as soon as input arrives or the last worker ends, it looks at the clock,
// takes at most one command, starts a search that is due and reports one that has ended. So a
// time-out waits a millisecond at most. The state of the engine moves here alone from asked for to
// running to idle; commands only ask.
#include "shell/think_loop.h"

#include <cmath>
#include <cstring>

#include "base/output.h"
#include "base/text.h"
#include "board/defect.h"
#include "board/moves.h"
#include "board/notation.h"
#include "book/book.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/info.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/book_report.h"
#include "shell/console.h"
#include "shell/input.h"
#include "shell/prepare_search.h"
#include "shell/uci.h"

// How often the clock of a search is looked at; input and the end of the search end a pass at once.
static constexpr i32 pass_microseconds = 1000;
// The growth is taken over four iterations, since odd and even depths grow unlike; before the sixth
// there are too few nodes to say anything.
static constexpr i32 branching_depths = 4;
static constexpr i32 least_branching_depth = 6;
// Closes a pending command. A sender may put several commands on one line with it.
static constexpr char line_mark = '@';
// What is shown where nothing can be measured.
static constexpr f64 unknown_branching = 2.0;
static constexpr f64 thousands = 0.001;     // of a count
static constexpr f64 least_seconds = 0.001; // keeps a division away from zero

// By the game's side to move: where the board changes in the middle of a search, the clock that is
// looked at changes with it.
void tick_clock(Dialogue* dialogue)
{
    store(search_clock.clock_side, dialogue->game->pos.stm);
    check_time();
}

// Also shown by the test of positions: a change of the search that prunes more lowers it before it
// shows in a result.
f64 effective_branching()
{
    const i32 depth = search_result.last_iter_depth;
    if (depth < least_branching_depth || search_totals.nodes_by_depth[depth] == 0
        || search_totals.nodes_by_depth[depth - branching_depths] == 0) {
        return unknown_branching;
    }
    const f64 growth = static_cast<f64>(search_totals.nodes_by_depth[depth])
        / static_cast<f64>(search_totals.nodes_by_depth[depth - branching_depths]);
    return pow(growth, 1.0 / branching_depths);
}

// ---- Input

// Moves one line of input to the pending ones, as long as there is room for the longest. What
// follows a NUL or a carriage return in a line is lost; empty lines are not kept. The rest stays
// with the system, whose pipe holds the sender up until there is room. A line of which the end has
// not arrived waits where it is.
static void append_input(char* pending_input)
{
    const size_t used = strlen(pending_input);
    if (used + longest_input + 2 > pending_size) {
        return;
    }
    char line[longest_input + 2];
    if (read_input(line, longest_input + 1, false) == 0) {
        return;
    }
    const size_t length = strcspn(line, "\r\n");
    if (length == 0) {
        return;
    }
    line[length] = line_mark;
    line[length + 1] = '\0';
    copy_text(pending_input + used, pending_size - used, line);
}

// Takes the first pending command into out, which holds pending_size bytes. Empty ones are passed
// over at once: a line full of marks must not hold up the commands behind it.
static bool take_command(char* pending_input, char* out)
{
    constexpr char marks[] = { line_mark, '\0' };
    const char* start = pending_input + strspn(pending_input, marks);
    const size_t length = strcspn(start, marks);
    const bool complete = start[length] == line_mark;
    if (complete) {
        copy_text(out, length + 1, start);
        start += length + 1;
    }
    memmove(pending_input, start, strlen(start) + 1);
    return complete;
}

// One command a pass, the others wait for theirs: "go" only asks for a search, which must have
// started before a "stop" that came with it can end it, and the clock is looked at between two of
// them. Of UCI's words the console knows "uci" alone; that one changes the dialogue.
void poll_input(Dialogue* dialogue)
{
    append_input(dialogue->pending_input);
    char command[pending_size];
    if (!take_command(dialogue->pending_input, command)) {
        return;
    }
    if (load(uci_mode) == ConsoleMode && strcmp(command, "uci") != 0) {
        console_command(dialogue, command);
    } else {
        uci_command(dialogue, command);
    }
}

// ---- Starting a search

// The move that one book chooses, or 0; the user is shown what it knows.
// The variety, 0 to 100, is how much a rare move may be chosen.
static Move ask_book(Position* pos, const char* file_name, i32 variety)
{
    BookChoice choice;
    book_probe(pos, file_name, variety, &choice);
    report_book_choice(&choice);
    return choice.move;
}

// A move of the books that does not draw at once, or 0. A pondering search asks no book: its answer
// must wait for the opponent, who may not play the move expected. The second book is for positions
// that the first one does not hold; depths are plies of the game.
static Move book_move(Dialogue* dialogue)
{
    const EngineOptions* options = &dialogue->engine_options;
    if (load(engine_state) != EngineState::Start || options->own_book == 0) {
        return NoMove;
    }
    Position* pos = &dialogue->game->pos;
    Move move = NoMove;
    if (dialogue->game->undo_count < options->own_book_depth) {
        move = ask_book(pos, options->own_book_file, options->own_book_variety);
    }
    if (move == NoMove && dialogue->game->undo_count < options->own_book2_depth) {
        move = ask_book(pos, options->own_book2_file, options->own_book_variety);
    }
    if (move == NoMove) {
        return NoMove;
    }
    // A move that the user has taken back stays where it can be repeated.
    Move* redo = &dialogue->game->undo[dialogue->game->undo_count].move;
    const Move taken_back = *redo;
    make_move(pos, move);
    // A book knows nothing of the game so far: its move may repeat the position for the third time,
    // which a search could know better.
    const bool draws = is_draw_by_rule(pos, 0);
    unmake_move(pos);
    *redo = taken_back;
    return draws ? static_cast<Move>(NoMove) : move;
}

// Makes a book move the result of a search that need not run. It is reported on this pass, as a
// search's would be; older parts of a result have been reset, so no move to ponder on goes with it.
static void publish_book_move(Move move)
{
    print_line_format("%s book move is %s%s", load(uci_mode) == UciMode ? "info string" : "",
        square_name[from_square(move)], square_name[to_square(move)]);
    store(search_result.result_score, i32 { ScoreDraw });
    store(stop_code, StopCode::Report);
    search_result.result_pv[1] = move;
}

// A position that cannot be searched is answered at once: a chess program that waits for a
// "bestmove" would wait for ever.
static void refuse_search(Dialogue* dialogue, const char* reason)
{
    if (load(uci_mode) == UciMode) {
        print_line_format("info string %s", reason);
        print_line("bestmove null");
    } else {
        print_line(reason);
    }
    dialogue->self_play = false;
    store(engine_state, EngineState::Idle);
}

// The workers sleep through a game whose fifty moves are over. The result is the draw that the
// preparation has set, and it is reported when somebody asks for the end of the search.
static void start_search(Dialogue* dialogue)
{
    const char* defect = position_defect(&dialogue->game->pos);
    if (defect != nullptr) {
        refuse_search(dialogue, defect);
        return;
    }
    prepare_search(dialogue);
    const Move move = book_move(dialogue);
    if (move != NoMove) {
        publish_book_move(move);
    }
    store(engine_state,
        load(engine_state) == EngineState::Start ? EngineState::Thinking : EngineState::Pondering);
    if (dialogue->game->pos.cnt50 <= fifty_move_plies && move == NoMove) {
        wake_workers(dialogue->game);
    }
}

// ---- Reporting a result

// Hits of a table in per cent of what was asked of it. The one keeps an empty count from dividing.
// With large counts the one does not show.
static f64 hit_rate(u64 hits, u64 probes)
{
    return 100.0 * static_cast<f64>(hits) / (static_cast<f64>(probes) + 1.0);
}

// The console's lines after a search.
static void print_statistics(Move best_move)
{
    char text[8];
    const f64 nodes = static_cast<f64>(search_totals.counters[CountNodes]);
    const f64 seconds = load(search_clock.elapsed);
    print_line_format("move= %s, time= %0.3f, score= %d, nodes= %0.0f, nps= %0.0fK ebf= %0.2f",
        move_text_or_null(best_move, text), seconds, load(search_result.result_score), nodes,
        thousands * nodes / (seconds + least_seconds), effective_branching());
    // Only now: a sample of the table costs time that a search would not want to spend.
    estimate_hash_fill();
    const u64* nodes_of = search_totals.counters;
    const u64* evals_of = search_totals.eval_counters;
    print_line_format("Hash fill= %.1f%%, Hash hits: main= %0.1f%%, pawn= %0.1f%%, eval= %0.1f%%,"
                      " TB=%0.0fK",
        100.0 * hash.fill, hit_rate(nodes_of[CountHashHits], nodes_of[CountHashProbes]),
        hit_rate(evals_of[CountPawnHits], evals_of[CountPawnProbes]),
        hit_rate(evals_of[CountEvalHits], evals_of[CountEvals]),
        static_cast<f64>(nodes_of[CountTbHits]) * thousands);
    // A developer's own counts, shown when there are any.
    const i32* counts = search_totals.debug_counters;
    if (counts[0] + counts[1] + counts[2] + counts[3] != 0) {
        print_line_format("ncnt1= %d, ncnt2= %d, ncnt3= %d, ncnt4= %d", counts[0], counts[1],
            counts[2], counts[3]);
    }
    print_line("");
}

// Without a move the word is "null": the side to move is mated or stalemated, or nothing was
// searched.
static void print_best_move(Move best_move, Move ponder_move)
{
    char best_text[8];
    char ponder_text[8];
    move_text_or_null(best_move, best_text);
    if (ponder_move != NoMove) {
        print_line_format(
            "bestmove %s ponder %s", best_text, move_text_or_null(ponder_move, ponder_text));
    } else {
        print_line_format("bestmove %s", best_text);
    }
}

// The engine plays both sides: charges the clock, makes the move and asks for the next one. The
// increment is added before the next move, as a chess clock does. The user may have changed the
// board meanwhile: where the move is none, the playing ends.
static void continue_self_play(Dialogue* dialogue, Move best_move)
{
    if (!dialogue->self_play) {
        return;
    }
    Position* pos = &dialogue->game->pos;
    Shared<f64>& clock = dialogue->limits.clock_left[pos->stm];
    store(clock, load(clock) - load(search_clock.elapsed) + dialogue->limits.tc_increment);
    if (!is_playable(pos, best_move)) {
        dialogue->self_play = false;
        return;
    }
    make_game_move(pos, best_move);
    print_board(pos);
    store(engine_state, EngineState::Start);
}

// The result is the last one that worker 0 published, whole, however its search ended. The state is
// idle before self-play asks for the next search, since a state asked for is what starts it.
static void report_result(Dialogue* dialogue)
{
    const Move best_move = search_result.result_pv[1];
    collect_stats();
    // The last line repeats the best one of several, so it carries that line's number.
    print_final_info(0, load(search_settings.multi_pv) > 1 ? 1 : 0, search_result.result_depth,
        load(search_result.result_score), search_result.result_pv);
    if (load(uci_mode) == UciMode) {
        print_best_move(best_move, search_result.result_pv[2]);
    } else {
        print_statistics(best_move);
    }
    store(engine_state, EngineState::Idle);
    continue_self_play(dialogue, best_move);
}

// A silent end is none of these. A search that ended by itself while pondering waits here until the
// opponent has moved: the state then turns to thinking.
static bool result_is_due()
{
    const StopCode stop = load(stop_code);
    return load(engine_state) == EngineState::Thinking
        && (stop == StopCode::Report || stop == StopCode::ReportGame) && busy_workers() == 0;
}

// ---- The loop

// Asked for and not yet started; at most one pass long.
static bool search_is_due()
{
    const EngineState state = load(engine_state);
    return state == EngineState::Start || state == EngineState::StartPonder;
}

// Whether nothing can happen before a command comes: no search runs or is due, no result waits,
// and no line is left. The clock need not be looked at then. The workers are asked first: one may
// finish at any moment, and its result must not wait for a command.
static bool is_waiting(const Dialogue* dialogue)
{
    return busy_workers() == 0 && !result_is_due() && !search_is_due()
        && dialogue->pending_input[0] == '\0';
}

// A search that is due goes before the next command, so that each command finds the state that the
// ones before it have asked for. Behind "quit" nothing is reported.
static void run_pass(Dialogue* dialogue)
{
    // What is due already must not wait.
    if (!search_is_due()) {
        wait_for_input(is_waiting(dialogue) ? without_limit : pass_microseconds);
    }
    tick_clock(dialogue);
    if (search_is_due()) {
        start_search(dialogue);
    } else {
        poll_input(dialogue);
        if (dialogue->quit_flag) {
            return;
        }
    }
    if (result_is_due()) {
        report_result(dialogue);
    }
}

// At a terminal the board is the prompt; a chess program expects silence until it speaks.
void think_loop(Dialogue* dialogue)
{
    read_position(&dialogue->game->pos, start_position);
    if (load(uci_mode) == ConsoleMode) {
        print_board(&dialogue->game->pos);
    }
    store(engine_state, EngineState::Idle);
    dialogue->quit_flag = false;
    while (!dialogue->quit_flag) {
        run_pass(dialogue);
    }
}

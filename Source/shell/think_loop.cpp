// The main thread's life between start-up and tear-down. It never searches: once a millisecond, or
// as soon as input arrives, it looks at the clock, takes at most one command, starts a search that
// is due and reports one that has ended. So a time-out waits a millisecond at most.
#include "shell/think_loop.h"

#include <cmath>
#include <cstring>

#include "board/moves.h"
#include "board/notation.h"
#include "book/book.h"
#include "search/hash.h"
#include "search/info.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/console.h"
#include "shell/engine_options.h"
#include "shell/input.h"
#include "base/output.h"
#include "shell/run_state.h"
#include "search/clock.h"
#include "shell/uci.h"

static constexpr i32 pass_microseconds = 1000;
static constexpr i32 waiting_pass_microseconds = 50000; // only a command can change anything
static constexpr i32 last_searched_cnt50 = 100;         // half-moves; above it no search starts
static constexpr i32 branching_depths = 4;
static constexpr i32 least_branching_depth = 6;
static constexpr char line_mark = '@';
static constexpr i32 pending_size = 4 * (longest_input + 1);

// Commands that have arrived and wait for their pass, each closed by a line mark.
static char pending_input[pending_size];

void tick_clock()
{
    store(clock_side, console_thread->pos.stm);
    check_time();
}

void end_search_silently()
{
    if (busy_workers() == 0) {
        return;
    }
    store(stop_code, StopSilent);
    wait_for_workers();
    store(engine_state, EngineIdle);
}

f64 effective_branching()
{
    const i32 depth = search_result.last_iter_depth;
    if (depth < least_branching_depth || nodes_by_depth[depth] == 0
        || nodes_by_depth[depth - branching_depths] == 0) {
        return 2.0;
    }
    const f64 growth = static_cast<f64>(nodes_by_depth[depth])
        / static_cast<f64>(nodes_by_depth[depth - branching_depths]);
    return pow(growth, 1.0 / branching_depths);
}

// ---- Input

// Moves one line of input to the pending ones, as long as there is room for the longest.
// What follows a NUL or a carriage return in a line is lost; empty lines are not kept.
static void append_input()
{
    const size_t used = strlen(pending_input);
    if (used + longest_input + 2 > sizeof pending_input) {
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
    copy_text(pending_input + used, sizeof pending_input - used, line);
}

// Takes the first pending command into out, which holds pending_size bytes. Empty ones are passed
// over at once: a line full of marks must not hold up the commands behind it.
static bool take_command(char* out)
{
    const char* start = pending_input + strspn(pending_input, "@");
    const size_t length = strcspn(start, "@");
    const bool complete = start[length] == line_mark;
    if (complete) {
        copy_text(out, length + 1, start);
        start += length + 1;
    }
    memmove(pending_input, start, strlen(start) + 1);
    return complete;
}

void poll_input()
{
    append_input();
    char command[pending_size];
    if (!take_command(command)) {
        return;
    }
    if (load(uci_mode) == 0 && strcmp(command, "uci") != 0) {
        console_command(command);
    } else {
        uci_command(command);
    }
}

// ---- Starting a search

// A move of the books that does not draw at once, or 0.
static Move book_move()
{
    if (load(engine_state) != EngineStart || engine_options.own_book == 0) {
        return NoMove;
    }
    Position* pos = &console_thread->pos;
    Move move = NoMove;
    if (console_thread->undo_count < engine_options.own_book_depth) {
        move = book_probe(pos, engine_options.own_book_file);
    }
    if (move == NoMove && console_thread->undo_count < engine_options.own_book2_depth) {
        move = book_probe(pos, engine_options.own_book2_file);
    }
    if (move == NoMove) {
        return NoMove;
    }
    // A move that the user has taken back stays where it can be repeated.
    Move* redo = &console_thread->undo[console_thread->undo_count].move;
    const Move taken_back = *redo;
    make_move(pos, move);
    const bool draws = is_draw_by_rule(pos, 0);
    unmake_move(pos);
    *redo = taken_back;
    return draws ? static_cast<Move>(NoMove) : move;
}

// Makes a book move the result of a search that need not run.
static void publish_book_move(Move move)
{
    print_line_format("%s book move is %s%s", load(uci_mode) == 1 ? "info string" : "",
        square_name[from_square(move)], square_name[to_square(move)]);
    store(search_result.result_score, 0);
    store(stop_code, StopReport);
    search_result.result_pv[1] = move;
}

// A position that cannot be searched is answered at once.
static void refuse_search(const char* reason)
{
    if (load(uci_mode) == 1) {
        print_line_format("info string %s", reason);
        print_line("bestmove null");
    } else {
        print_line(reason);
    }
    self_play = 0;
    store(engine_state, EngineIdle);
}

static void start_search()
{
    const char* defect = position_defect(&console_thread->pos);
    if (defect != nullptr) {
        refuse_search(defect);
        return;
    }
    prepare_search();
    const Move move = book_move();
    if (move != NoMove) {
        publish_book_move(move);
    }
    store(engine_state, load(engine_state) == EngineStart ? EngineThinking : EnginePondering);
    if (console_thread->pos.cnt50 <= last_searched_cnt50 && move == NoMove) {
        wake_workers();
    }
}

// ---- Reporting a result

static f64 hit_rate(Counter hits, Counter probes)
{
    return 100.0 * static_cast<f64>(total_counters[hits])
        / (static_cast<f64>(total_counters[probes]) + 1.0);
}

// The console's lines after a search.
static void print_statistics(Move best_move)
{
    char text[8];
    const f64 nodes = static_cast<f64>(total_counters[CountNodes]);
    const f64 seconds = load(elapsed);
    print_line_format("move= %s, time= %0.3f, score= %d, nodes= %0.0f, nps= %0.0fK ebf= %0.2f",
        move_text_or_null(best_move, text), seconds, load(search_result.result_score), nodes,
        0.001 * nodes / (seconds + 0.001), effective_branching());
    estimate_hash_fill();
    print_line_format("Hash fill= %.1f%%, Hash hits: main= %0.1f%%, pawn= %0.1f%%, eval= %0.1f%%,"
                      " TB=%0.0fK",
        100.0 * hash_fill, hit_rate(CountHashHits, CountHashProbes),
        hit_rate(CountPawnHits, CountPawnProbes), hit_rate(CountEvalHits, CountEvals),
        static_cast<f64>(total_counters[CountTbHits]) * 0.001);
    const i32* counts = debug_counters;
    if (counts[0] + counts[1] + counts[2] + counts[3] != 0) {
        print_line_format("ncnt1= %d, ncnt2= %d, ncnt3= %d, ncnt4= %d", counts[0], counts[1],
            counts[2], counts[3]);
    }
    print_line("");
}

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
// user may have changed the board meanwhile: where the move is none, the playing ends.
static void continue_self_play(Move best_move)
{
    if (self_play == 0) {
        return;
    }
    Position* pos = &console_thread->pos;
    Shared<f64>& clock = clock_left[pos->stm];
    store(clock, load(clock) - load(elapsed) + tc_increment);
    if (!is_playable(pos, best_move)) {
        self_play = 0;
        return;
    }
    make_game_move(pos, best_move);
    print_board(pos);
    store(engine_state, EngineStart);
}

static void report_result()
{
    const Move best_move = search_result.result_pv[1];
    collect_stats();
    // The last line repeats the best one of several, so it carries that line's number.
    print_final_info(0, load(worker_options.multi_pv) > 1 ? 1 : 0, search_result.result_depth,
        load(search_result.result_score), search_result.result_pv);
    if (load(uci_mode) == 1) {
        print_best_move(best_move, search_result.result_pv[2]);
    } else {
        print_statistics(best_move);
    }
    store(engine_state, EngineIdle);
    continue_self_play(best_move);
}

static bool result_is_due()
{
    const u8 stop = load(stop_code);
    return load(engine_state) == EngineThinking && (stop == StopReport || stop == StopReportGame)
        && busy_workers() == 0;
}

// ---- The loop

static bool search_is_due()
{
    const u8 state = load(engine_state);
    return state == EngineStart || state == EngineStartPonder;
}

// Whether nothing can happen before a command comes: no search runs or is due, no result waits,
// and no line is left. The clock need not be looked at then. The workers are asked first: one may
// finish at any moment, and its result must not wait for a command.
static bool is_waiting()
{
    return busy_workers() == 0 && !result_is_due() && !search_is_due() && pending_input[0] == '\0';
}

static void run_pass()
{
    wait_for_input(is_waiting() ? waiting_pass_microseconds : pass_microseconds);
    tick_clock();
    if (search_is_due()) {
        start_search();
    } else {
        poll_input();
        if (quit_flag != 0) {
            return;
        }
    }
    if (result_is_due()) {
        report_result();
    }
}

void think_loop()
{
    parse_epd(&console_thread->pos, start_position);
    if (load(uci_mode) == 0) {
        print_board(&console_thread->pos);
    }
    store(engine_state, EngineIdle);
    quit_flag = 0;
    while (quit_flag == 0) {
        run_pass();
    }
}

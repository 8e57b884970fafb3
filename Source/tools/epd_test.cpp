// The runner of test suites in EPD form: every position is searched within the limits of the
// command line, and the engine's move is compared with what the line says of good and bad moves.
// A suite may have thousands of positions and run for hours: what cannot be used is named and left
// out, the rest counts, and the findings are published when all is done.
#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "board/defect.h"
#include "board/notation.h"
#include "board/position.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/info.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/prepare_search.h"
#include "shell/think_loop.h"
#include "tools/search_setup.h"
#include "tools/tool_input.h"
#include "tools/tools.h"

static constexpr i32 line_size = 512;        // of a line, with its NUL
static constexpr i32 longest_empty_line = 9; // characters with the line feed

// So shallow a search finds little in the table again, and emptying it would take longer than the
// search itself.
static constexpr i32 least_depth_with_hash = 3;

// Short searches run on the calling thread: waking the workers and waiting for them would take a
// good part of the time. Input is looked at only now and then between them, for the same reason.
static constexpr i32 most_sync_depth = 5;
static constexpr i64 most_sync_nodes = 99999;
static constexpr i32 positions_between_looks = 256;

static constexpr i32 pass_microseconds = 5000; // between two looks at clock and input
static constexpr f64 least_seconds = 0.01;     // keeps the rate of all nodes away from a zero
static constexpr f64 millisecond = 0.001;      // the same for one position
static constexpr f64 thousandth = 0.001;
static constexpr char list_marks[] = " ,;\"\n"; // between the moves of a list

// Sums over all positions searched. A position that was refused is in none of them.
struct EpdTotals {
    i32 positions;
    i32 correct;
    i64 points;
    i64 possible_points;
    u64 nodes;
    f64 seconds;
    i64 depth;
    f64 branching; // of each, how many times larger the tree grows with a depth
};

// A run over one file.
struct EpdRun {
    ToolInput input;
    OutputFile analysis;
    EpdTotals totals;
    bool quit;            // after the position that is searched
    char line[line_size]; // as it was read: the report shows it, the lists are read out of it
    char pos_text[epd_pos_size];
};

// ---- The search of one position

// The workers search; input is read meanwhile. Once a stop is on its way the loop only waits for
// the workers to see it, without a pause: that takes less than a pause would.
static void search_on_workers(Dialogue* dialogue, EpdRun* run)
{
    wake_workers(dialogue->game);
    while (busy_workers() != 0) {
        tick_clock(dialogue);
        poll_input(dialogue);
        run->quit = run->quit || dialogue->quit_flag;
        if (load(stop_code) == StopCode::None) {
            sleep_microseconds(pass_microseconds);
        }
    }
    update_elapsed();
}

// This thread searches; the clock and the input are looked at now and then between positions. Where
// several lines are searched the score is the last one's, as worker 0 keeps it.
static void search_here(Dialogue* dialogue, EpdRun* run, i32 number)
{
    search_sync(dialogue->game);
    if (const SearchThread* worker = load(workers[0])) {
        store(search_result.result_score, worker->score);
    }
    update_elapsed();
    if (number % positions_between_looks == positions_between_looks - 1) {
        tick_clock(dialogue);
        poll_input(dialogue);
    }
    run->quit = run->quit || dialogue->quit_flag;
}

// Searches the console's position. A command that comes meanwhile may set up another one or other
// limits, so they are put back afterwards.
static void search_position(Dialogue* dialogue, EpdRun* run, i32 number)
{
    const SearchSetup setup = keep_setup(dialogue);
    // Each position stands for itself: what others left in the table would help or mislead.
    if (load(hash.mode) != HashOff) {
        clear_hash_if_idle();
    }
    prepare_search(dialogue);
    store(engine_state, EngineState::Thinking); // so that check_time minds the limits
    const bool few_nodes = dialogue->limits.node_limit_total >= 1
        && dialogue->limits.node_limit_total <= most_sync_nodes;
    if (load(dialogue->limits.depth_limit) > most_sync_depth && !few_nodes) {
        search_on_workers(dialogue, run);
    } else {
        search_here(dialogue, run, number);
    }
    store(engine_state, EngineState::Idle);
    collect_stats();
    restore_setup(dialogue, &setup);
}

// The depth is the one reached: a mate that is proven ends a search early.
static void add_to_totals(EpdTotals* totals)
{
    ++totals->positions;
    totals->nodes += search_totals.counters[CountNodes];
    totals->seconds += load(search_clock.elapsed);
    totals->depth += search_result.result_depth;
    totals->branching += effective_branching();
}

// ---- Judging the move

// Reads a move of the line; one that cannot be read is refused. read_move may
// make the text one character longer, so the copy has room for that.
static bool read_listed_move(
    Dialogue* dialogue, EpdRun* run, const char* opcode, const char* word, Move* move)
{
    char text[line_size + 1];
    copy_text(text, line_size, word);
    if (read_move(&dialogue->game->pos, text, move)) {
        return true;
    }
    refuse(
        &run->input, run->input.lines.line_number, "move '%s' of %s cannot be read", word, opcode);
    return false;
}

// Whether there is more in a list than marks: an operation without moves does not count as there.
static bool has_words(const char* list)
{
    return list[strspn(list, list_marks)] != '\0';
}

// Whether the move is one of the best ones. The others are read all the same, so that each that
// cannot be read is named.
static bool is_listed(Dialogue* dialogue, EpdRun* run, char* list, Move best_move)
{
    bool found = false;
    char* rest = nullptr;
    for (const char* word = strtok_r(list, list_marks, &rest); word != nullptr;
         word = strtok_r(nullptr, list_marks, &rest)) {
        Move move;
        if (read_listed_move(dialogue, run, "bm", word, &move) && move == best_move) {
            found = true;
        }
    }
    return found;
}

// Whether all of the moves to avoid can be read and the move is none of them.
static bool is_avoiding(Dialogue* dialogue, EpdRun* run, char* list, Move best_move)
{
    bool avoiding = true;
    char* rest = nullptr;
    for (const char* word = strtok_r(list, list_marks, &rest); word != nullptr;
         word = strtok_r(nullptr, list_marks, &rest)) {
        Move move;
        if (!read_listed_move(dialogue, run, "am", word, &move) || move == best_move) {
            avoiding = false;
        }
    }
    return avoiding;
}

// Best moves before moves to avoid; a line with neither counts as not found.
static void judge_move(Dialogue* dialogue, EpdRun* run, Move best_move)
{
    char list[line_size];
    read_epd_list(run->line, "bm", list, sizeof list);
    if (has_words(list)) {
        run->totals.correct += is_listed(dialogue, run, list, best_move);
        return;
    }
    read_epd_list(run->line, "am", list, sizeof list);
    if (has_words(list)) {
        run->totals.correct += is_avoiding(dialogue, run, list, best_move);
    }
}

// Adds the points of a list such as "Nf3=10, e4=5". The last equals sign of a word counts, since a
// promotion has one of its own. What could have been had is the list's greatest number.
static void judge_points(Dialogue* dialogue, EpdRun* run, Move best_move)
{
    char list[line_size];
    read_epd_list(run->line, "c0", list, sizeof list);
    i32 most = 0;
    char* rest = nullptr;
    for (char* word = strtok_r(list, list_marks, &rest); word != nullptr;
         word = strtok_r(nullptr, list_marks, &rest)) {
        char* sign = strrchr(word, '=');
        if (sign == nullptr) {
            continue;
        }
        *sign = '\0';
        const i32 points = read_i32(sign + 1);
        most = points > most ? points : most;
        Move move;
        if (read_listed_move(dialogue, run, "c0", word, &move) && move == best_move) {
            run->totals.points += points;
        }
    }
    run->totals.possible_points += most;
}

// ---- Lines and reports

// Shown before the search, so that its lines stand below the board they are about.
static void announce_position(Dialogue* dialogue, const EpdRun* run, i32 number)
{
    if (load(noise) != silent_noise) {
        print_line_format("pos= %d", number);
        print_line(run->line);
        print_board(&dialogue->game->pos);
    }
}

// The last line of the search once more, whatever noise left out of it, and what it took. Nodes and
// rate are those of all workers.
static void report_position(Move best_move)
{
    if (load(noise) == silent_noise) {
        return;
    }
    print_final_info(0, load(search_settings.multi_pv) > 1 ? 1 : 0, search_result.result_depth,
        load(search_result.result_score), search_result.result_pv);
    char text[8];
    const f64 nodes = static_cast<f64>(search_totals.counters[CountNodes]);
    const f64 seconds = load(search_clock.elapsed);
    print_line_format("move= %s, time= %0.3f, score= %d, nodes= %0.0f, %0.0fK nps\n",
        move_text_or_null(best_move, text), seconds, load(search_result.result_score), nodes,
        thousandth * nodes / (seconds + millisecond));
}

// As a line of a suite again: a deeper run's findings can test a faster one. The move goes as its
// two squares, which needs no other piece to be looked at.
static void write_finding(EpdRun* run, Move best_move)
{
    if (best_move != NoMove) {
        fprintf(run->analysis.file, "%s bm %s%s; ce %d;\n", run->pos_text,
            square_name[from_square(best_move)], square_name[to_square(best_move)],
            load(search_result.result_score));
    }
}

// A line that holds no position is passed over without a word, as titles and rules between the
// positions are; a position that could not be searched safely is named.
static void test_position(Dialogue* dialogue, EpdRun* run)
{
    char bm[epd_operand_size];
    char am[epd_operand_size];
    char id[epd_operand_size];
    char ce[epd_operand_size];
    char c0[epd_operand_size];
    if (read_epd_ops(run->line, run->pos_text, bm, am, id, ce, c0) == 0) {
        return;
    }
    Position* pos = &dialogue->game->pos;
    read_position(pos, run->pos_text);
    if (const char* defect = position_defect(pos)) {
        refuse(&run->input, run->input.lines.line_number, "%s", defect);
        return;
    }
    const i32 number = run->totals.positions + 1;
    show_progress(&run->input, "position", number);
    announce_position(dialogue, run, number);
    search_position(dialogue, run, number);
    hide_progress(&run->input);
    add_to_totals(&run->totals);
    const Move best_move = search_result.result_pv[1];
    judge_move(dialogue, run, best_move);
    judge_points(dialogue, run, best_move);
    report_position(best_move);
    write_finding(run, best_move);
}

// For the progress alone: it may count a line that turns out to hold no position.
static bool is_test_line(const char* line)
{
    return !is_epd_comment(line) && strlen(line) > longest_empty_line;
}

static void test_positions(Dialogue* dialogue, EpdRun* run)
{
    // Between searches nothing is read, so a quit is seen behind the position that it met.
    for (i32 length; (length = read_input_line(&run->input, run->line, line_size)) >= 0;) {
        if (length <= longest_empty_line || is_epd_comment(run->line)) {
            continue;
        }
        test_position(dialogue, run);
        if (run->quit) {
            return;
        }
    }
}

// Averages of a file without positions are 0.
static void report_totals(const EpdTotals* totals)
{
    const i32 count = totals->positions > 0 ? totals->positions : 1;
    const u64 whole_nodes = totals->nodes / static_cast<u64>(count); // printed without its rest
    print_line_format("%d / %d correct best moves", totals->correct, totals->positions);
    print_line_format("total nodes= %0.0f", static_cast<f64>(totals->nodes));
    print_line_format("total time= %0.2f seconds", totals->seconds);
    print_line_format("avg depth= %0.1f", static_cast<f64>(totals->depth) / count);
    print_line_format("avg nodes= %0.1f", static_cast<f64>(whole_nodes));
    print_line_format(
        "node_rate= %0.0f", static_cast<f64>(totals->nodes) / (totals->seconds + least_seconds));
    print_line_format("avg bf= %0.2f", totals->branching / count);
    print_line_format("score= %lld / %lld", static_cast<long long>(totals->points),
        static_cast<long long>(totals->possible_points));
    print_line("");
}

// Every file that is opened is closed again on each way out; the totals are shown also where the
// user has ended the run.
void run_epd_test(Dialogue* dialogue, const char* file_name)
{
    EpdRun run;
    run.totals = {};
    run.quit = false;
    if (!open_input(&run.input, file_name)) {
        return;
    }
    if (open_tool_output(&run.input, &run.analysis, "analysis.epd", "analysis.epd.part")) {
        start_progress(&run.input, is_test_line);
        print_line_format("Analyzing %s...", file_name);
        if (load(dialogue->limits.depth_limit) < least_depth_with_hash) {
            store(hash.mode, HashOff);
        }
        test_positions(dialogue, &run);
        report_totals(&run.totals);
        OutputFile* const files[] = { &run.analysis };
        finish_outputs(&run.input, files, 1);
    }
    close_input(&run.input);
}

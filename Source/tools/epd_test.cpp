// The runner of test suites in EPD form: every position is searched within the limits of the
// command line, and the engine's move is compared with what the line says of good and bad moves.
#include <cstring>

#include "board/notation.h"
#include "board/position.h"
#include "search/hash.h"
#include "search/info.h"
#include "search/search.h"
#include "search/threads.h"
#include "base/output.h"
#include "base/text.h"
#include "shell/think_loop.h"
#include "search/clock.h"
#include "tools/tool_input.h"
#include "tools/search_setup.h"
#include "tools/tools.h"
#include "base/clock.h"
#include "base/files.h"
#include "shell/board_text.h"
#include "shell/prepare_search.h"
#include "search/control.h"

static constexpr i32 line_size = 512;        // of a line, with its NUL
static constexpr i32 longest_empty_line = 9; // characters with the line feed
static constexpr i32 least_depth_with_hash = 3;
static constexpr i32 most_sync_depth = 5; // short searches run without waking a thread
static constexpr i64 most_sync_nodes = 99999;
static constexpr i32 positions_between_looks = 256;
static constexpr i32 pass_microseconds = 5000;
static constexpr f64 least_seconds = 0.01;      // keeps divisions away from zero
static constexpr char list_marks[] = " ,;\"\n"; // between the moves of a list

struct EpdTotals {
    i32 positions;
    i32 correct;
    i64 points;
    i64 possible_points;
    u64 nodes;
    f64 seconds;
    i64 depth;
    f64 branching;
};

struct EpdRun {
    ToolInput input;
    OutputFile analysis;
    EpdTotals totals;
    bool quit;
    char line[line_size];
    char pos_text[epd_pos_size];
};

// ---- The search of one position

// The workers search; input is read meanwhile.
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
    if (load(hash.mode) != 0) {
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

static void add_to_totals(EpdTotals* totals)
{
    ++totals->positions;
    totals->nodes += search_totals.counters[CountNodes];
    totals->seconds += load(search_clock.elapsed);
    totals->depth += search_result.result_depth;
    totals->branching += effective_branching();
}

// ---- Judging the move

// Reads a move of the line; one that cannot be read is refused.
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

static bool has_words(const char* list)
{
    return list[strspn(list, list_marks)] != '\0';
}

// Whether the move is one of the best ones.
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
// promotion has one of its own.
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

static void announce_position(Dialogue* dialogue, const EpdRun* run, i32 number)
{
    if (load(noise) != silent_noise) {
        print_line_format("pos= %d", number);
        print_line(run->line);
        print_board(&dialogue->game->pos);
    }
}

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
        0.001 * nodes / (seconds + 0.001));
}

static void write_finding(EpdRun* run, Move best_move)
{
    if (best_move != NoMove) {
        fprintf(run->analysis.file, "%s bm %s%s; ce %d;\n", run->pos_text,
            square_name[from_square(best_move)], square_name[to_square(best_move)],
            load(search_result.result_score));
    }
}

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

static bool is_test_line(const char* line)
{
    return !is_epd_comment(line) && strlen(line) > longest_empty_line;
}

static void test_positions(Dialogue* dialogue, EpdRun* run)
{
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

static void report_totals(const EpdTotals* totals)
{
    const i32 count = totals->positions > 0 ? totals->positions : 1;
    print_line_format("%d / %d correct best moves", totals->correct, totals->positions);
    print_line_format("total nodes= %0.0f", static_cast<f64>(totals->nodes));
    print_line_format("total time= %0.2f seconds", totals->seconds);
    print_line_format("avg depth= %0.1f", static_cast<f64>(totals->depth) / count);
    print_line_format(
        "avg nodes= %0.1f", static_cast<f64>(totals->nodes / static_cast<u64>(count)));
    print_line_format(
        "node_rate= %0.0f", static_cast<f64>(totals->nodes) / (totals->seconds + least_seconds));
    print_line_format("avg bf= %0.2f", totals->branching / count);
    print_line_format("score= %lld / %lld", static_cast<long long>(totals->points),
        static_cast<long long>(totals->possible_points));
    print_line("");
}

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
            store(hash.mode, 0);
        }
        test_positions(dialogue, &run);
        report_totals(&run.totals);
        OutputFile* const files[] = { &run.analysis };
        finish_outputs(&run.input, files, 1);
    }
    close_input(&run.input);
}

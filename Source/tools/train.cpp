// The console's word "tune": a loop over a file of positions with results, one gradient step for
// each position (tune_step.cpp), pass by pass until the user stops it.
//
// This is not the trainer. vesk-tune (tools/trainer) works on terms gathered from the file, takes
// steps of Adam for whole batches on many threads, keeps some lines for validation, and reports.
// Here every position is evaluated anew on one thread and moves the weights at once by a fixed
// rate. The word itself runs a method that takes no samples; the training method is for callers of
// train_epd. It writes the weights as they stand from time to time; only in a tuning build do they
// ever change.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>

#include "base/files.h"
#include "base/output.h"
#include "base/rounding.h"
#include "base/text.h"
#include "board/defect.h"
#include "board/notation.h"
#include "board/position.h"
#include "eval/weights.h"
#include "search/control.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/console.h"
#include "shell/input.h"
#include "shell/think_loop.h"
#include "shell/weights_file.h"
#include "tools/tool_input.h"
#include "tools/tools.h"
#include "tools/training_line.h"

static constexpr i32 training_method = 1; // any other one only walks the file
static constexpr f64 worst_average = 1.0; // the error lies from 0 to 1

// How many samples lie between two looks at the input, two writings of the weights, and two
// reports.
static constexpr i64 samples_per_poll = 8000;
static constexpr i64 samples_per_save = 300000;
static constexpr i64 samples_per_report = 2000000;

// One call of train_epd.
struct Training {
    ToolInput input;
    i32 method;
    i64 limit;
    f64 rate;
    i32 pass;
    i64 lines;        // used in this pass
    f64 pass_start;   // err_sum at the start of the pass
    f64 report_start; // err_sum at the last report
    f64 best;         // least average error of a report
};

// The loop reads commands, and one of them may be "tune" again. Main thread only.
static constinit bool training_runs = false;

// Older weights keep their name until the new ones are complete, so a failure costs nothing but
// them.
bool write_weights(const char* file_name)
{
    const int error = save_params_file(file_name);
    if (error != 0) {
        complain(file_name, "cannot be written", error);
        exit_status = 1;
    }
    return error == 0;
}

// Of a line that is longer the rest comes as a line of its own.
static bool read_line(Training* training, char* line)
{
    return read_line_piece(&training->input.lines, line, training_line_length + 1) > 0;
}

// Ends a pass and begins the next one with its first line. Returns false if there is none, or if
// the user has asked for the end: input is looked at here too, as without samples nothing else
// would end the loop.
static bool start_next_pass(Dialogue* dialogue, Training* training, char* line)
{
    const f64 growth = err_sum - training->pass_start;
    const f64 lines = static_cast<f64>(training->lines);
    print_plain("avg err= %0.5f\n", training->lines == 0 ? 0.0 : growth / lines);
    training->pass_start = err_sum;
    ++training->pass;
    const bool sought = rewind_input(&training->input);
    print_plain("pass = %d, rewinding EPD file\n", training->pass);
    if (!sought) {
        print_line("error setting file position");
    }
    // What was asked for in the last pass is over; only what is typed now ends this one.
    store(stop_code, StopCode::None);
    poll_input(dialogue);
    if (dialogue->quit_flag || load(stop_code) == StopCode::ReportGame || input_is_over()
        || !read_line(training, line)) {
        return false;
    }
    training->lines = 0;
    return true;
}

// The target of the line from the view of the side to move, out of its score and its result. A
// result in brackets takes the place of the score's expectation, too. A line without a result goes
// by its score alone.
static f32 target_of(Dialogue* dialogue, const Training* training, const char* line, i64 score)
{
    const i32 side = dialogue->game->pos.stm;
    f64 result = read_result(line, side);
    f32 target = sigmoid(static_cast<f32>(score));
    if (read_bracket_result(line, side, &result)) {
        target = to_f32(result);
    }
    return training->method == training_method && result >= 0.0 ? blend_target(result, target)
                                                                : target;
}

// The mean error since the last report, with a mark on the least so far.
static void report_average(Training* training)
{
    const f64 average = (err_sum - training->report_start) / static_cast<f64>(samples_per_report);
    training->report_start = err_sum;
    const bool is_best = average < training->best;
    if (is_best) {
        training->best = average;
    }
    print_plain("  %.0fM positions, lr= %0.1e, avg_err= %0.5f %s\n",
        static_cast<f64>(samples) * 1e-6, training->rate, average, is_best ? " *" : "  ");
}

// What is due after certain numbers of samples: each falls on the last sample of its stretch.
// Returns false if the user has asked for the end.
static bool do_periodic_work(Dialogue* dialogue, Training* training)
{
    if (samples % samples_per_poll == samples_per_poll - 1) {
        poll_input(dialogue);
        if (load(stop_code) == StopCode::ReportGame) {
            return false;
        }
    }
    if (samples % samples_per_save == samples_per_save - 1) {
        write_weights(params_file);
    }
    if (samples % samples_per_report == samples_per_report - 1) {
        report_average(training);
    }
    return true;
}

// Works on one line. Returns false if the loop is to end there: at the limit, at the user's wish,
// or at a castling right without its king or rook, which makes the whole file suspect.
static bool use_line(Dialogue* dialogue, Training* training, char* line)
{
    char position[epd_pos_size];
    char score_text[epd_operand_size];
    char other[4][epd_operand_size];
    read_epd_ops(line, position, other[0], other[1], other[2], score_text, other[3]);
    Position* pos = &dialogue->game->pos;
    if (read_position(pos, position) != 0) {
        line[strcspn(line, "\r\n")] = '\0';
        print_plain("%s\n", line);
        return false;
    }
    store(stop_code, StopCode::None);
    const i64 score = strtoll(score_text, nullptr, 10);
    // A board that cannot be evaluated is passed over like a score out of range.
    if (score < -largest_training_score || score > largest_training_score
        || position_defect(pos) != nullptr) {
        return true;
    }
    const f32 target = target_of(dialogue, training, line, score);
    if (training->method == training_method) {
        tune_sampled_step(pos, target, to_f32(training->rate));
    }
    if (!do_periodic_work(dialogue, training)) {
        return false;
    }
    ++training->lines;
    return training->limit > samples;
}

// A line that has just begun a new pass is used like any other.
static void walk_file(Dialogue* dialogue, Training* training)
{
    char line[training_line_length + 1];
    while (!dialogue->quit_flag) {
        if (!read_line(training, line) && !start_next_pass(dialogue, training, line)) {
            return;
        }
        if (!is_epd_comment(line) && !use_line(dialogue, training, line)) {
            return;
        }
    }
}

// The size is only for the user; a file that cannot be measured is not read, as passes need to go
// back in it.
static void train_on(Dialogue* dialogue, Training* training, const char* path)
{
    FILE* file = training->input.lines.file;
    if (fseek(file, 0, SEEK_END) != 0) {
        return;
    }
    print_plain("Training using %s, %0.0f bytes ...\n", path, static_cast<f64>(ftell(file)));
    rewind_input(&training->input);
    training_runs = true;
    walk_file(dialogue, training);
    training_runs = false;
    print_plain("\ndone.\n");
}

// The options and limits that it leaves changed are those under which positions are evaluated and
// not searched; the console shows them afterwards.
void train_epd(Dialogue* dialogue, const char* path, i32 method, i64 limit, f64 rate)
{
    if (training_runs) {
        return; // asked for by a command that came in the middle of it
    }
    samples = 0;
    err_sum = 0.0;
    srand(static_cast<unsigned>(time(nullptr)));
    store(dialogue->limits.depth_limit, 1);
    dialogue->engine_options.hash = 0;
    publish_options(dialogue);
    store(noise, silent_noise);
    FILE* file = open_regular_file(path);
    if (file == nullptr) {
        return;
    }
    Training training;
    training.method = method;
    training.limit = limit;
    training.rate = rate;
    training.pass = 1;
    training.lines = 0;
    training.pass_start = 0.0;
    training.report_start = 0.0;
    training.best = worst_average;
    training.input.lines.file = file;
    train_on(dialogue, &training, path);
    fclose(file);
}

// ---- The console's word. What it trains by is fixed: the word's own words are names of weights.

static constexpr char console_file[] = "tune.epd";
static constexpr i32 console_method = 5;        // one that takes no samples
static constexpr i64 console_limit = 500000000; // samples
static constexpr f64 console_rate = 0.001;
static constexpr f32 lost_target = 0.0f;
static constexpr f32 first_step_rate = -1.0f;

// Takes one step at the position and walks the training file by a method that takes no samples:
// only a tuning build is made for more. Names restrict what the tuner may change from the next
// rebuild of the weights on.
static void tune(Dialogue* dialogue, Words* words, const char*)
{
    static_assert(tune_list_size == most_words - 1);
    if (words->text[1][0] == '\0') {
        return;
    }
    drop_search();
    if (is_refused(&dialogue->game->pos)) {
        return;
    }
    tune_names.count = 0;
    for (i32 i = 1; i < most_words && words->text[i][0] != '\0'; ++i) {
        copy_text(tune_names.name[tune_names.count++], sizeof tune_names.name[0], words->text[i]);
    }
    tune_step(&dialogue->game->pos, lost_target, first_step_rate);
    train_epd(dialogue, console_file, console_method, console_limit, console_rate);
    print_plain("done!\n");
}

static constexpr ConsoleWord words_of_tools[] = { { "tune", tune } };

std::span<const ConsoleWord> console_tool_words()
{
    return words_of_tools;
}

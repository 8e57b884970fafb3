// The word "explain": why the evaluation judges positions as it does.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "board/defect.h"
#include "board/notation.h"
#include "board/position.h"
#include "board/tables.h"
#include "data/arguments.h"
#include "data/blocks.h"
#include "data/explain_forms.h"
#include "data/explain_settings.h"
#include "data/explain_weights.h"
#include "data/progress.h"
#include "data/report.h"
#include "data/sinks.h"
#include "data/streams.h"
#include "data/words.h"
#include "shell/weights_file.h"

// Characters of a line, which may carry moves and comments behind its position; of a longer one the
// rest is read and dropped.
static constexpr size_t longest_line = 65536;
static constexpr size_t quoted_length = 80; // of a line that is refused
// Positions that are explained together, some kilobytes each; the threads meet often in between.
static constexpr size_t batch_size = 2048;
static constexpr size_t longest_id = 256;
static constexpr size_t fields_behind_board = 5; // of a FEN

static constexpr char help_text[] =
    "vesk-data explain, why the evaluation judges a position as it does\n"
    "\n"
    "  vesk-data explain [OPTIONS] FEN... | startpos | FILE... | -\n"
    "\n"
    "A FEN is best put between quotation marks. A FILE holds one FEN or EPD line for each "
    "position,\n"
    "and so does standard input; lines that are empty or begin with # are passed over.\n"
    "\n"
    "  --form text|json|csv   a table, one line of JSON, or one row of CSV for each position\n"
    "  --json                 JSON, and a report for scripts on standard error\n"
    "  --term NAME            only this row of the table (pawns, knights, bishops, rooks, queens,\n"
    "                         king, ppawns, other) or this weight; may be given several times\n"
    "  --set NAME=MG,EG       a personality option of the engine, in per cent of the middle "
    "game's\n"
    "                         and of the end game's weights: --set Activity_Knight=29,57\n"
    "  --options FILE         the same out of a configuration file of the engine's\n"
    "  --weights FILE         a file of weights in the form of params.txt; no personality option\n"
    "                         changes what it names\n"
    "\n"
    "All numbers are hundredths of a pawn, contempt left out. The score is that of Vesk's console\n"
    "(ev) and of vesk-uci (eval). Each weight has a value for the middle game (mg) and one for "
    "the\n"
    "end game (eg) and counts so many times for a side, or a part of it does, as the table of\n"
    "weights says. The sums of both halves, white less black, are blended by the phase (0 all "
    "pieces\n"
    "on the board, 1 none but kings and pawns): mg * (1 - phase) + eg * phase, cut to a whole "
    "number\n"
    "(tapered). That times the scale is the score. The scale is below 1 in endings that are hard "
    "to\n"
    "win, for the reasons told: 0.15 without pawns (two bishops against a knight: 0.75), 0.05 "
    "with\n"
    "rook's pawns and a bishop of the wrong colour, 0.65 or 0.8 with bishops of opposite colours\n"
    "(times 0.65 without other pieces), 0.5 or 0.75 for a last pawn, times 0.85 where no pawn's "
    "path\n"
    "is free.\n"
    "\n"
    "Members of a line of JSON:\n"
    "\n"
    "  line       of the file, or which argument\n"
    "  id         of an EPD line that has one\n"
    "  fen, side  the position; white or black is to move\n"
    "  check      true: the side to move is in check, where the search asks for no score\n"
    "  judged_by  terms, or the rule that overrules them: drawn material, king and pawn against\n"
    "             king, bishop and knight against king, rook or queen against king; nothing "
    "behind\n"
    "             score is there then but options\n"
    "  score      white: for White; mover: for the side to move\n"
    "  options    personality options that are not at 100,100; missing if there are none\n"
    "  phase, scale, tapered, sum {mg, eg}    as above, for White\n"
    "  hard_to_win    why the scale is below 1, else empty\n"
    "  hung       squares of pieces that the evaluation takes for hanging\n"
    "  terms      the rows: name; white and black without material, each {mg, eg, value}, where "
    "value\n"
    "             is the number of the table; material {white, black} likewise; total {mg, eg} of\n"
    "             both for White. All totals together are sum\n"
    "  weights    those that act: name; line of params.txt; square of a table (as White sees it "
    "with\n"
    "             the king on files e to h) or rank; term, the row; value {mg, eg}; white and "
    "black,\n"
    "             each {mg, eg, times} and for a table the square on the board. All of them "
    "together\n"
    "             are white and black of the rows with their material\n"
    "  error, text    instead of all that: why a line was refused\n"
    "\n"
    "More members may come; these keep their meaning. The columns of CSV are named alike; the "
    "last\n"
    "three are lists with a semicolon between: hard_to_win, hung, and acting_weights, of which "
    "each is\n"
    "NAME=MG/EG*TIMES, with the times for White and for Black: PST_P2 e6=20/22*1/0.\n"
    "\n"
    "With - every line of a pipe or terminal is answered before the next is read, so that a "
    "program\n"
    "can hold explain open: --form json gives one line for each that is not empty.\n"
    "\n"
    "Status: 0 all positions were explained, 1 some were refused, 2 wrong command line.";

// ---- Reading

static std::string_view first_field(std::string_view text)
{
    return text.substr(0, text.find(' '));
}

static std::string read_id(const std::string& line)
{
    char id[longest_id];
    read_epd_list(line.c_str(), "id", id, sizeof id);
    std::string_view text = id;
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return std::string(text);
}

// Sets pos from a FEN or EPD line. Returns what is wrong with it, or an empty text. Castling rights
// without their king or rook are dropped: many programs write them, and they change no evaluation.
static std::string read_line_position(const std::string& line, UndoStack* stack, Position* pos)
{
    if (line.find('\0') != std::string::npos) {
        return "it is no text";
    }
    const std::string_view ranks = first_field(line);
    if (!is_whole_board(ranks)) {
        return "the board is not eight ranks of eight squares";
    }
    const std::string_view side =
        first_field(std::string_view(line).substr(std::min(ranks.size() + 1, line.size())));
    if (side != "w" && side != "b") {
        return "the side to move is neither w nor b";
    }
    pos->stack = stack;
    parse_epd(pos, line.c_str());
    const char* defect = position_defect(pos);
    return defect != nullptr ? defect : "";
}

// What is explained together.
struct Batch {
    std::vector<Answer> answers;
    std::vector<ExplainedPosition> positions;
};

static void add_line(Batch* batch, std::string line, i64 number, UndoStack* stack)
{
    if (line == "startpos") {
        line = start_position;
    }
    Answer answer;
    answer.line = number;
    ExplainedPosition position = {};
    answer.defect = read_line_position(line, stack, &position.pos);
    if (answer.defect.empty()) {
        answer.id = read_id(line);
        answer.position = batch->positions.size();
        batch->positions.push_back(std::move(position));
    } else {
        answer.text = line.substr(0, quoted_length);
    }
    batch->answers.push_back(std::move(answer));
}

// Reads a line without its end. Returns false at the end of the file. What comes through a pipe is
// there at once, without waiting for more.
static bool read_line(FILE* file, std::string* line, bool* is_long)
{
    line->clear();
    *is_long = false;
    int c = getc(file);
    if (c == EOF) {
        return false;
    }
    for (; c != EOF && c != '\n'; c = getc(file)) {
        if (line->size() < longest_line) {
            line->push_back(static_cast<char>(c));
        } else {
            *is_long = true;
        }
    }
    while (!line->empty() && (line->back() == '\r' || line->back() == ' ')) {
        line->pop_back();
    }
    return true;
}

// ---- The run

struct ExplainRun {
    FormSettings form;
    CommonOptions common;
    Report report;
    Explainer explainer;
    OutputStream out;
    UndoStack stack;
    i64 explained = 0;  // positions
    i64 bytes_done = 0; // of the files before this one
};

// Counts an answer, or tells of it that it is none. Returns the position that it explains, or null.
static const ExplainedPosition* count_answer(
    Report* report, const Batch& batch, const std::string& name, Answer* answer)
{
    const ExplainedPosition* position = nullptr;
    if (answer->defect.empty()) {
        position = &batch.positions[answer->position];
        if (!position->why.is_whole) {
            answer->defect = "the uses of its weights do not make up its score";
        }
    }
    if (!answer->defect.empty()) {
        refuse_item(report, name, { answer->line, answer->defect, answer->text });
        return nullptr;
    }
    add_count(report, "positions", "explained");
    add_count(report, "positions", "in check", position->why.in_check ? 1 : 0);
    add_count(report, "positions", "judged by a rule", position->why.by_terms ? 0 : 1);
    return position;
}

// Writes the answers, put into words by several threads where there are many. Returns false if it
// cannot be written.
static bool write_answers(
    ExplainRun* run, const Batch& batch, const std::vector<const ExplainedPosition*>& positions)
{
    constexpr size_t piece_size = 64;
    size_t next = 0;
    const auto take = [&](size_t* start) {
        *start = next;
        next += piece_size;
        return *start < batch.answers.size();
    };
    const auto put_into_words = [&](const size_t* start, std::string* text) {
        const size_t end = std::min(*start + piece_size, batch.answers.size());
        for (size_t i = *start; i < end; ++i) {
            append_answer(text, run->form, batch.answers[i], positions[i]);
        }
    };
    const auto write = [&](const std::string* text) {
        fwrite(text->data(), 1, text->size(), run->out.file);
        return is_sink_well(run->out);
    };
    const i64 jobs = batch.answers.size() > piece_size ? run->common.jobs : 1;
    work_in_order<size_t, std::string>(jobs, take, put_into_words, write);
    return is_sink_well(run->out);
}

// Explains what has been read and writes it, at once where somebody waits for it. Returns false if
// it cannot be written.
static bool answer_batch(ExplainRun* run, Batch* batch, const std::string& name, bool at_once)
{
    explain_positions(&run->explainer, batch->positions);
    std::vector<const ExplainedPosition*> positions;
    for (Answer& answer : batch->answers) {
        positions.push_back(count_answer(&run->report, *batch, name, &answer));
        run->explained += positions.back() != nullptr ? 1 : 0;
    }
    const bool well = write_answers(run, *batch, positions);
    *batch = {};
    if (at_once) {
        fflush(run->out.file);
    }
    return well && is_sink_well(run->out);
}

static void add_file_line(ExplainRun* run, Batch* batch, std::string line, i64 number, bool is_long)
{
    static constexpr char byte_order_mark[] = "\xef\xbb\xbf";
    if (number == 1 && line.starts_with(byte_order_mark)) {
        line.erase(0, sizeof byte_order_mark - 1);
    }
    if (line.empty() || line.front() == '#') {
        return;
    }
    if (is_long) {
        Answer answer;
        answer.line = number;
        answer.text = line.substr(0, quoted_length);
        answer.defect = "the line is longer than 65536 characters";
        batch->answers.push_back(std::move(answer));
    } else {
        add_line(batch, std::move(line), number, &run->stack);
    }
}

// Explains all lines of a file. Of a pipe or a terminal each is answered before the next is waited
// for. Returns false if no more can be written.
static bool explain_file(ExplainRun* run, const std::string& name, i64* done)
{
    InputStream in;
    if (!open_stream(&in, name, &run->report)) {
        return true;
    }
    const bool at_once = in.size == 0;
    const size_t most = at_once ? 1 : batch_size;
    Batch batch;
    std::string line;
    bool is_long = false;
    bool well = true;
    for (i64 number = 1; well && read_line(in.file, &line, &is_long); ++number) {
        add_file_line(run, &batch, line, number, is_long);
        if (batch.answers.size() >= most) {
            well = answer_batch(run, &batch, in.name, at_once);
            *done += static_cast<i64>(most);
            show_run_progress(
                &run->report.progress, "positions", *done, run->bytes_done + stream_position(in));
        }
    }
    if (well && !batch.answers.empty()) {
        well = answer_batch(run, &batch, in.name, at_once);
    }
    run->bytes_done += in.size;
    close_stream(&in, &run->report);
    return well;
}

// ---- The command line

// Whether an argument begins with a board, or with what could only be a bad one: no file has its
// name.
static bool begins_with_board(const std::string& argument)
{
    constexpr auto fewest_slashes = 7;
    const std::string_view ranks = first_field(argument);
    return is_whole_board(ranks)
        || (std::ranges::count(ranks, '/') >= fewest_slashes
            && access(argument.c_str(), F_OK) != 0);
}

static bool is_position_argument(const std::string& argument)
{
    return argument == "startpos" || begins_with_board(argument);
}

// Whether an argument may be the field of a FEN behind the board: the side, castling, the square
// behind a pawn, a number.
static bool is_field(std::string_view argument)
{
    return argument == "-" || argument == "w" || argument == "b"
        || argument.find_first_not_of("KQkqABCDEFGHabcdefgh") == std::string_view::npos
        || argument.find_first_not_of("0123456789") == std::string_view::npos
        || (argument.size() == 2 && argument.find_first_of("36") == 1);
}

// What the shell has taken apart is put together again: the fields of a FEN without quotation
// marks, of which a "-" would else be standard input.
static std::vector<std::string> join_fields(const std::vector<std::string>& words)
{
    std::vector<std::string> joined;
    size_t fields = 0; // that may still come
    for (const std::string& word : words) {
        if (fields > 0 && is_field(word)) {
            joined.back() += ' ' + word;
            --fields;
            continue;
        }
        joined.push_back(word);
        const bool is_bare = word.find(' ') == std::string::npos && begins_with_board(word);
        fields = is_bare ? fields_behind_board : 0;
    }
    return joined;
}

static void explain_inputs(ExplainRun* run, const std::vector<std::string>& inputs)
{
    Batch batch;
    i64 done = 0;
    bool well = true;
    for (size_t i = 0; well && i < inputs.size(); ++i) {
        if (is_position_argument(inputs[i])) {
            add_line(&batch, inputs[i], static_cast<i64>(i) + 1, &run->stack);
            well = answer_batch(run, &batch, "argument", false);
        } else {
            well = explain_file(run, inputs[i], &done);
        }
    }
}

// A params.txt in the folder is the engine's own there: who forgets it wonders at the numbers.
static void tell_of_own_weights(const WeightSettings& weights, const CommonOptions& common)
{
    if (weights.weights_file.empty() && !common.quiet && access(params_file, F_OK) == 0) {
        fprintf(stderr, "%s in this folder is left out here; --weights %s takes it\n", params_file,
            params_file);
    }
}

static ExplainForm form_of(std::string_view name)
{
    return name == "json" ? ExplainForm::Json
        : name == "csv"   ? ExplainForm::Csv
                          : ExplainForm::Text;
}

// Runs once the command line is read. Returns the status of the process.
static int explain_all(ExplainRun* run, const std::vector<std::string>& inputs)
{
    std::vector<std::string> files;
    std::ranges::copy_if(inputs, std::back_inserter(files),
        [](const std::string& input) { return !is_position_argument(input); });
    if (!open_sink(&run->out, run->common.output, files, &run->report)) {
        return finish_report(&run->report, run->common, false);
    }
    start_run_progress(&run->report.progress, run->common, total_size(files), true);
    const std::string head = head_of_form(run->form);
    fwrite(head.data(), 1, head.size(), run->out.file);
    explain_inputs(run, inputs);
    hide_run_progress(&run->report.progress);
    // A line that is refused is an answer too in JSON and CSV, but no reason to lose others. A
    // failure is in the report.
    static_cast<void>(finish_counted_sink(&run->out, run->explained, "position", &run->report));
    // Who asks for one position wants no table about that.
    const bool wants_report = !files.empty() || run->common.json || !run->common.report.empty();
    if (!wants_report) {
        return run->report.refused > 0 || run->report.failed > 0 ? 1 : 0;
    }
    return finish_report(&run->report, run->common, run->common.output != "-");
}

int run_explain(Arguments arguments)
{
    static constexpr std::string_view forms[] = { "text", "json", "csv" };
    const auto run = std::make_unique<ExplainRun>();
    WeightSettings weights;
    std::string form;
    std::vector<std::string> terms;
    std::vector<std::string> words;
    const WordOption options[] = {
        { .name = "--form", .text = &form, .choices = forms },
        { .name = "--term", .texts = &terms },
        { .name = "--set", .texts = &weights.sets },
        { .name = "--options", .text = &weights.options_file },
        { .name = "--weights", .text = &weights.weights_file },
    };
    if (!read_arguments(arguments, options, &run->common, &words)) {
        return usage_status;
    }
    if (run->common.help) {
        puts(help_text);
        return 0;
    }
    if (words.empty()) {
        return refuse_data_words("explain", "there is nothing to explain; - is standard input");
    }
    run->report = start_report("explain", run->common);
    run->form.form = form_of(form.empty() && run->common.json ? "json" : form);
    init_board_tables();
    bool usage = false;
    if (!set_up_weights(weights, &run->report, &run->form.scaled, &usage)) {
        return usage ? usage_status : finish_report(&run->report, run->common, false);
    }
    for (const std::string& term : terms) {
        if (!choose_term(&run->form, term)) {
            return usage_status;
        }
    }
    tell_of_own_weights(weights, run->common);
    run->explainer = make_explainer(run->common.jobs, run->form.form == ExplainForm::Text);
    return explain_all(run.get(), join_fields(words));
}

// Lines are checked by several threads, a piece of a file each, and everything behind that is done
// by one, in the order of the input: so the output is the same for any number of threads.
#include "data/positions_flow.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <utility>

#include "base/mixing.h"
#include "data/blocks.h"
#include "data/line_pieces.h"
#include "data/positions_stages.h"
#include "data/positions_statistics.h"
#include "data/sinks.h"
#include "data/streams.h"
#include "tools/line_judge.h"

static constexpr i64 megabyte = 1024 * 1024;
static constexpr i64 lines_between_looks = 4096; // at the disk
static constexpr size_t longest_kept_line = 511; // of any kind

// A game only loses pieces. Where so many are back on the board another one has begun; fewer may
// come back where a line tells the end of an exchange that the next one begins with.
static constexpr i32 pieces_of_new_game = 6;

// Some lines of a file, and what was found in them.
struct FlowPiece {
    LinePiece lines;
    size_t file = 0;
    LineKind kind = LineKind::Training;
    i64 position = 0;          // bytes of all files that are done with it
    std::vector<Telling> kept; // what is to be told before its lines
};

struct FlowResult {
    FlowPiece piece;
    std::vector<CheckedLine> checked;
    std::vector<std::string_view> texts; // in the piece
};

// Where the reading stands; the caller's thread alone.
struct FlowReader {
    size_t file = 0; // the next one
    InputStream stream;
    PieceReader pieces;
    bool is_open = false;
    i64 done = 0; // bytes of the files before
    std::optional<LineKind> kind;
    Report ahead; // keeps: the reading is ahead of the results
};

// How lines that tell no game are put together, and the trailers of a file.
struct FileState {
    size_t file = 0;
    i64 guessed = 0; // games so far
    i32 fewest = 0;  // pieces, in the game so far
    Outcome outcome = NoOutcome;
    u64 last_game = 0;
    i64 lines = 0; // since the last trailer
};

struct Flow {
    const PositionsOptions* options;
    Report report;
    FlowReader reader;
    FileState state;
    i64 read = 0;
    i64 sound = 0;
    i64 written = 0;
    std::unique_ptr<UniqueStage> unique;
    std::unique_ptr<ThinStage> thin;
    std::unique_ptr<ShuffleStage> shuffle;
    LineSink behind_unique;
    LineSink behind_thin;
    LineSink behind_shuffle;
    OutputStream output;
    OutputStream validation;
    OutputStream page;
    std::unique_ptr<LineStatistics> statistics;
};

// ---- Reading

// Opens the next file that can be read. Returns false behind the last.
static bool open_next(Flow* flow)
{
    FlowReader* reader = &flow->reader;
    while (reader->file < flow->options->files.size()) {
        const std::string& name = flow->options->files[reader->file++];
        if (open_stream(&reader->stream, name, &reader->ahead)) {
            reader->pieces = start_pieces(reader->stream.file, longest_kept_line);
            reader->is_open = true;
            return true;
        }
    }
    return false;
}

static void close_file(Flow* flow)
{
    flow->reader.done += flow->reader.stream.size;
    close_stream(&flow->reader.stream, &flow->reader.ahead);
    flow->reader.is_open = false;
}

// The first line that is no comment tells what all are for.
static void find_kind(FlowReader* reader, std::string_view text)
{
    std::string_view line;
    bool is_whole = false;
    while (!reader->kind && take_line(&text, &line, &is_whole)) {
        if (!is_passed_over(line)) {
            reader->kind = kind_of_line(line);
        }
    }
}

static bool take_piece(Flow* flow, FlowPiece* piece)
{
    FlowReader* reader = &flow->reader;
    while (reader->is_open || open_next(flow)) {
        if (read_piece(&reader->pieces, &piece->lines)) {
            find_kind(reader, piece->lines.text);
            piece->kind = reader->kind.value_or(LineKind::Training);
            piece->file = reader->file - 1;
            piece->position = reader->done + stream_position(reader->stream);
            piece->kept = std::exchange(reader->ahead.kept, {});
            return true;
        }
        close_file(flow);
    }
    return false;
}

static void check_piece(FlowPiece* piece, FlowResult* result)
{
    result->piece = std::move(*piece);
    const std::unique_ptr<LineBoard> board = std::make_unique<LineBoard>();
    std::string_view text = result->piece.lines.text;
    std::string_view line;
    bool is_whole = false;
    while (take_line(&text, &line, &is_whole)) {
        result->checked.push_back(check_line(board.get(), line, is_whole, result->piece.kind));
        result->texts.push_back(line);
    }
}

// ---- Games

// Whether a line that tells no game begins another one than the line before it.
static bool begins_game(const FileState& state, const LineFacts& facts)
{
    return state.guessed == 0 || state.last_game != 0 || facts.outcome != state.outcome
        || facts.pieces >= state.fewest + pieces_of_new_game;
}

// The key of the game that a line is of, of all files.
static u64 place_game(Flow* flow, const CheckedLine& line)
{
    FileState* state = &flow->state;
    const LineFacts& facts = line.facts;
    const bool apart = flow->options->marks != GameMarks::Keep;
    const u64 file = apart || line.game == 0 ? state->file + 1 : 0;
    if (line.game == 0) {
        const bool begins = begins_game(*state, facts);
        state->guessed += begins;
        state->fewest = begins ? facts.pieces : std::min<i32>(state->fewest, facts.pieces);
        state->outcome = facts.outcome;
    }
    const u64 told = line.game != 0 ? line.game : mix_bits(static_cast<u64>(state->guessed));
    const u64 game = mix_bits(told + file * mixing_step);
    state->last_game = line.game;
    return game;
}

// Whether the options want another text, with a mark of its game or with another one. A second
// comment of that name would hide the first from those who read points out of it.
static bool wants_mark(const Flow* flow, std::string_view text, bool is_marked)
{
    const GameMarks marks = flow->options->marks;
    return is_marked ? marks != GameMarks::Keep && flow->options->files.size() > 1
                     : marks == GameMarks::All && text.find("c0 ") == text.npos;
}

// The text with the number of its file in the mark of its game, or with a mark where it has none.
static std::string marked_text(const Flow* flow, std::string_view text, bool is_marked)
{
    const std::string file = std::to_string(flow->state.file + 1);
    std::string out(text);
    if (is_marked) {
        const char* mark = find_game_mark(out.c_str());
        out.insert(static_cast<size_t>(mark - out.c_str()), file + ".");
    } else {
        out += " c0 \"game " + file + ".g" + std::to_string(flow->state.guessed) + "\";";
    }
    return out;
}

// ---- Lines

static const std::string& name_of(const Flow* flow)
{
    static const std::string standard_input = "standard input";
    const std::string& name = flow->options->files[flow->state.file];
    return name == "-" ? standard_input : name;
}

static void check_trailer(Flow* flow, const CheckedLine& line, i64 number)
{
    if (line.told_lines != flow->state.lines) {
        refuse_item(&flow->report, name_of(flow),
            { number, "tells of another number of lines than there are: some have been lost",
                std::to_string(flow->state.lines) });
    }
    flow->state.lines = 0;
}

static bool is_drawn_for_validation(const Flow* flow, u64 game)
{
    constexpr f64 unit = 0x1p-53;
    const u64 number = draw_number(flow->options->seed, Draw::Part, game);
    return static_cast<f64>(number >> 11) * unit < flow->options->share;
}

// A sound line on its way into the stages.
static bool take_sound(
    Flow* flow, LineKind kind, const CheckedLine& line, std::string_view text, i64 number)
{
    CarriedLine carried = { line.facts, text };
    const u64 game = place_game(flow, line);
    std::string marked;
    if (wants_mark(flow, text, line.facts.is_marked)) {
        marked = marked_text(flow, text, line.facts.is_marked);
        const bool fits = static_cast<i64>(marked.size()) <= longest_line(kind);
        if (!fits && line.facts.is_marked) {
            refuse_item(&flow->report, name_of(flow),
                { number, "has no room for the number of its file in the mark of its game", {} });
            return true;
        }
        carried.text = fits ? marked : text;
        carried.facts.is_marked = fits;
    }
    carried.facts.order = static_cast<u64>(flow->sound++);
    carried.facts.held_out =
        !flow->options->validation.empty() && is_drawn_for_validation(flow, game);
    return flow->unique != nullptr ? put_unique(flow->unique.get(), carried, flow->behind_unique)
                                   : flow->behind_unique(carried);
}

static bool take_line_result(
    Flow* flow, LineKind kind, const CheckedLine& line, std::string_view text, i64 number)
{
    if (line.fate == LineFate::Comment) {
        return true;
    }
    if (line.fate == LineFate::Trailer) {
        check_trailer(flow, line, number);
        return true;
    }
    ++flow->state.lines;
    switch (line.fate) {
    case LineFate::InCheck:
        add_count(&flow->report, "left out", "side to move in check");
        return true;
    case LineFate::Refused:
        refuse_item(&flow->report, name_of(flow), { number, line.reason, line.detail });
        return true;
    default:
        return take_sound(flow, kind, line, text, number);
    }
}

static bool take_result(Flow* flow, FlowResult* result)
{
    if (result->piece.file != flow->state.file) {
        flow->state = FileState();
        flow->state.file = result->piece.file;
    }
    tell_kept(&flow->report, &result->piece.kept);
    i64 number = result->piece.lines.first_line;
    bool going = true;
    for (size_t i = 0; going && i < result->checked.size(); ++i, ++number) {
        const CheckedLine& line = result->checked[i];
        flow->read += line.fate != LineFate::Comment && line.fate != LineFate::Trailer;
        going = take_line_result(flow, result->piece.kind, line, result->texts[i], number);
    }
    show_run_progress(&flow->report.progress, "lines", flow->read, result->piece.position);
    return going;
}

// ---- Output

static bool write_line(Flow* flow, const CarriedLine& line)
{
    ++flow->written;
    add_to_statistics(flow->statistics.get(), line.facts);
    if (!flow->options->only_check) {
        OutputStream* stream = line.facts.held_out ? &flow->validation : &flow->output;
        fwrite(line.text.data(), 1, line.text.size(), stream->file);
        putc('\n', stream->file);
    }
    if (flow->written % lines_between_looks != 0) {
        return true;
    }
    return flow->options->only_check
        || (is_sink_well(flow->output)
            && (flow->validation.file == nullptr || is_sink_well(flow->validation)));
}

static bool open_sinks(Flow* flow)
{
    const PositionsOptions& options = *flow->options;
    Report* report = &flow->report;
    return (options.only_check
               || open_sink(&flow->output, options.common.output, options.files, report))
        && (options.validation.empty()
            || open_sink(&flow->validation, options.validation, options.files, report))
        && (options.statistics.empty()
            || open_sink(&flow->page, options.statistics, options.files, report));
}

static bool finish_lines(Flow* flow, OutputStream* stream, i64 lines)
{
    if (flow->options->has_trailer) {
        fprintf(stream->file, "%s%lld\n", line_trailer, static_cast<long long>(lines));
    }
    return finish_counted_sink(stream, lines, "line", &flow->report);
}

static std::string source_text(const PositionsOptions& options)
{
    std::string text;
    for (size_t i = 0; i < options.files.size() && i < 8; ++i) {
        text += (i > 0 ? ", " : "") + options.files[i];
    }
    return options.files.size() > 8 ? text + ", ..." : text;
}

static void finish_sinks(Flow* flow)
{
    const LineStatistics& statistics = *flow->statistics;
    const PositionsOptions& options = *flow->options;
    if (!options.validation.empty()) {
        finish_lines(flow, &flow->validation, statistics.held_out);
    }
    if (!options.only_check) {
        finish_lines(flow, &flow->output, statistics.lines - statistics.held_out);
    }
    if (!options.statistics.empty()) {
        const std::string page = options.statistics.ends_with(".svg")
            ? statistics_as_svg(statistics)
            : statistics_as_page(statistics, source_text(options));
        fwrite(page.data(), 1, page.size(), flow->page.file);
        if (!finish_sink(&flow->page, &flow->report)) {
            return;
        }
    }
}

// ---- The stages

// Beside the output, where there is to be room for it anyway; the usual folder of the system where
// the output is no file.
static std::string scratch_folder(const PositionsOptions& options)
{
    if (!options.scratch.empty()) {
        return options.scratch;
    }
    const std::string& output = options.common.output;
    struct stat status;
    const bool is_there = stat(output.c_str(), &status) == 0;
    if (output == "-" || options.only_check || (is_there && !S_ISREG(status.st_mode))) {
        const char* folder = getenv("TMPDIR");
        return folder != nullptr && folder[0] != '\0' ? folder : "/tmp";
    }
    const size_t slash = output.rfind('/');
    return slash == output.npos ? "." : slash == 0 ? "/" : output.substr(0, slash);
}

// Each stage gets the same share of memory.
static void build_stages(Flow* flow)
{
    const PositionsOptions& options = *flow->options;
    const ThinRule rule = { options.balance_phase, options.balance_result, options.ratio,
        options.sample, options.seed };
    const bool thins = rule.by_phase || rule.by_result || rule.sample >= 0;
    const bool shuffles = options.shuffle >= 0;
    const i64 stages = std::max(options.unique + thins + shuffles, 1);
    const ScratchPlace place = { scratch_folder(options), options.memory * megabyte / stages };
    flow->behind_shuffle = [flow](const CarriedLine& line) { return write_line(flow, line); };
    flow->behind_thin = flow->behind_shuffle;
    if (shuffles) {
        flow->shuffle = std::make_unique<ShuffleStage>();
        start_shuffle(flow->shuffle.get(), options.shuffle, place);
        flow->behind_thin = [flow](const CarriedLine& line) {
            return put_shuffled(flow->shuffle.get(), line);
        };
    }
    flow->behind_unique = flow->behind_thin;
    if (thins) {
        flow->thin = std::make_unique<ThinStage>();
        start_thin(flow->thin.get(), rule, place);
        flow->behind_unique = [flow](const CarriedLine& line) {
            return put_thin(flow->thin.get(), line);
        };
    }
    if (options.unique) {
        flow->unique = std::make_unique<UniqueStage>();
        start_unique(flow->unique.get(), place);
    }
}

// What stands behind a stage that is being finished, with the progress of that: total lines at
// most are handed on.
static LineSink tell_progress(Flow* flow, const char* what, i64 total, const LineSink& next)
{
    start_progress_stage(&flow->report.progress, total);
    return [flow, what, &next, done = u64 { 0 }](const CarriedLine& line) mutable {
        show_stage_progress(&flow->report.progress, what, ++done);
        return next(line);
    };
}

// Hands on what waits, stage by stage. Each gives back its memory when it is done.
static bool finish_stages(Flow* flow)
{
    UniqueStage* unique = flow->unique.get();
    ThinStage* thin = flow->thin.get();
    ShuffleStage* shuffle = flow->shuffle.get();
    return (unique == nullptr
               || finish_unique(unique,
                   tell_progress(flow, "lines held back", unique->waiting, flow->behind_unique)))
        && (thin == nullptr
            || finish_thin(
                thin, tell_progress(flow, "lines drawn", count_kept(*thin), flow->behind_thin)))
        && (shuffle == nullptr
            || finish_shuffle(shuffle,
                tell_progress(flow, "lines shuffled", shuffle->waiting, flow->behind_shuffle)));
}

// Tells why the run has ended early. What a full disk leaves unsaid, the closing of the file says.
static void tell_of_end(Flow* flow)
{
    for (const int error : { flow->unique != nullptr ? flow->unique->error : 0,
             flow->thin != nullptr ? flow->thin->spool.error : 0,
             flow->shuffle != nullptr ? flow->shuffle->error : 0 }) {
        if (error != 0) {
            fail_file(&flow->report, scratch_folder(*flow->options),
                "the scratch file cannot be written or read there", error);
            return;
        }
    }
    for (OutputStream* stream : { &flow->output, &flow->validation }) {
        if (stream->file != nullptr && !is_sink_well(*stream)) {
            (void)finish_sink(stream, &flow->report);
        }
    }
}

// ---- The report

static void count_classes(Flow* flow)
{
    const ThinStage& thin = *flow->thin;
    if (thin.without_result > 0) {
        add_count(&flow->report, "left out", "without a result", thin.without_result);
    }
    i64 dropped = 0;
    for (i32 i = 0; i < most_line_classes; ++i) {
        dropped += thin.before[i] - thin.kept[i];
    }
    add_count(&flow->report, "left out", "for balance or sample", dropped);
    if (!thin.rule.by_phase && !thin.rule.by_result) {
        return;
    }
    for (i32 i = 0; i < most_line_classes; ++i) {
        if (thin.before[i] > 0) {
            add_count(&flow->report, "before balancing", class_name(thin.rule, i), thin.before[i]);
            add_count(&flow->report, "balanced", class_name(thin.rule, i), thin.kept[i]);
        }
    }
}

static void count_all(Flow* flow)
{
    Report* report = &flow->report;
    const LineStatistics& statistics = *flow->statistics;
    add_count(report, "lines", "read", flow->read);
    add_count(report, "lines", "sound", flow->sound);
    add_count(report, "lines", flow->options->only_check ? "left" : "written", flow->written);
    if (!flow->options->validation.empty()) {
        add_count(report, "lines", "to train on", statistics.lines - statistics.held_out);
        add_count(report, "lines", "for validation", statistics.held_out);
    }
    add_count(report, "lines", "that tell their game", statistics.marked);
    if (flow->unique != nullptr) {
        add_count(report, "left out", "position has been", flow->unique->dropped);
    }
    if (flow->thin != nullptr) {
        count_classes(flow);
    }
}

int run_position_flow(const PositionsOptions& options)
{
    Flow flow {};
    flow.options = &options;
    flow.report = start_report("positions", options.common);
    flow.reader.kind = options.kind;
    flow.reader.ahead.keeps = true;
    flow.statistics = std::make_unique<LineStatistics>();
    add_count(&flow.report, "lines", "read", 0); // the table begins with it
    const bool is_output_free = options.only_check || options.common.output != "-";
    if (!open_sinks(&flow)) {
        return finish_report(&flow.report, options.common, is_output_free);
    }
    build_stages(&flow);
    start_run_progress(
        &flow.report.progress, options.common, total_size(options.files), !options.only_check);
    bool going = true;
    work_in_order<FlowPiece, FlowResult>(
        options.common.jobs, [&](FlowPiece* piece) { return take_piece(&flow, piece); },
        check_piece, [&](FlowResult* result) { return going = take_result(&flow, result); });
    tell_kept(&flow.report, &flow.reader.ahead.kept); // behind the last piece
    if (going && finish_stages(&flow)) {
        finish_sinks(&flow);
    } else {
        tell_of_end(&flow);
    }
    count_all(&flow);
    return finish_report(
        &flow.report, options.common, is_output_free, statistics_as_json(*flow.statistics));
}

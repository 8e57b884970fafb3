// The word positions: its command line and its page.
#include <cstdio>
#include <string>
#include <string_view>

#include "board/tables.h"
#include "data/arguments.h"
#include "data/places.h"
#include "data/positions_flow.h"
#include "data/words.h"

static constexpr f64 largest_seed = 1e15;
static constexpr f64 most_lines = 1e15;
static constexpr f64 most_memory = 1048576.0; // megabytes
static constexpr f64 least_memory = 16.0;
static constexpr f64 largest_ratio = 1e6;

static void print_page()
{
    puts(
        "vesk-data positions, lines for training and for test suites\n"
        "\n"
        "  vesk-data positions [OPTIONS] FILES\n"
        "\n"
        "Reads EPD lines, checks each, and writes those that are sound as they stand: what comes\n"
        "out is taken whole by the trainer (training lines) and by -anepd (all). Training lines\n"
        "have a score (ce) or a result (gr 0.5; c9 \"1-0\"; [1.0]), test lines moves to be found "
        "or\n"
        "avoided (bm, am). What is refused is named with file, line and reason: positions that\n"
        "cannot be, moves that are not legal, numbers out of range, operations that no semicolon\n"
        "closes. Of training lines those in check are left out, since no trainer can use them.\n"
        "\n"
        "  --kind KIND        training or test; else the first line tells: one with moves and\n"
        "                     without a result is a test line\n"
        "  --check            writes no lines; the report comes on standard output\n"
        "  --unique           each position once, as its first line has it; equal are the same\n"
        "                     pieces, side to move, castling rights and en passant square\n"
        "  --balance WHAT     phase, result or both: leaves as many lines of each kind as there\n"
        "                     are of the rarest, drawn by chance. Phases are quarters of the\n"
        "                     material, results those of the game from white's view\n"
        "  --ratio R          up to R times as many of a kind as of the rarest; 1\n"
        "  --sample N         N lines, drawn by chance; with --balance as many of each kind\n"
        "  --shuffle SEED     puts all lines into an order drawn by chance\n"
        "  --split SHARE --validation FILE\n"
        "                     writes that share of the games (0.1: a tenth) to FILE\n"
        "  --marks WHAT       apart: of several files, games get the number of their file, so "
        "that\n"
        "                     game 17 of the second becomes game 2.17, the default; keep: marks\n"
        "                     stay; all: as apart, and lines without a mark get one\n"
        "  --statistics FILE  a page with histograms, or the picture alone (.svg)\n"
        "  --trailer          ends the output with the number of its lines, which is checked "
        "where\n"
        "                     one stands in an input\n"
        "  --seed N           of what is drawn for sample, balance and split; 1\n"
        "  --memory MB        beyond it lines wait in a scratch file; 1024\n"
        "  --scratch FOLDER   of that file; else that of the output, or TMPDIR\n"
        "\n"
        "A game is told by c0 \"game 17\". Lines that tell none are taken for one game up to "
        "where\n"
        "the result changes or six pieces more are on the board than there have been in it, which\n"
        "is right for lines in the order of the games only; --marks all keeps it in the lines, to\n"
        "be done before they are shuffled.\n"
        "\n"
        "The output is the same for any --jobs and --memory. vesk-data --help tells of the "
        "options\n"
        "of all words.");
}

// Options that go through texts before they are understood.
struct RawOptions {
    std::string kind;
    std::string balance;
    std::string marks;
};

// Whether both are files under one name, or one has the name that the other has until it is
// complete.
static bool takes_place(const std::string& a, const std::string& b)
{
    return is_plain_place(a) && (is_same_place(a, b) || is_same_place(a, unfinished_name(b)));
}

// Each output has a place of its own: the later one would replace the earlier, the report all.
static int check_outputs(const PositionsOptions& options)
{
    const std::string output = options.only_check ? "-" : options.common.output;
    const std::string* names[] = { &output, &options.validation, &options.statistics,
        &options.common.report };
    for (const std::string* a : names) {
        for (const std::string* b : names) {
            const bool are_files = !a->empty() && !b->empty() && *a != "-" && *b != "-";
            if (a != b && are_files && takes_place(*a, *b)) {
                return refuse_data_words("positions", "two outputs would be %s", a->c_str());
            }
        }
    }
    const bool is_twice = output == "-" && (options.validation == "-" || options.statistics == "-");
    return (is_twice && !options.only_check)
            || (options.validation == "-" && options.statistics == "-")
        ? refuse_data_words("positions", "two outputs would be -")
        : 0;
}

// What contradicts itself. Returns the status for a wrong command line, 0 for a sound one.
static int check_options(PositionsOptions* options)
{
    const std::string& output = options->common.output;
    if (options->files.empty()) {
        return refuse_data_words("positions", "there is no file; - is standard input");
    }
    if ((options->share > 0.0) == options->validation.empty()) {
        return refuse_data_words("positions", "--split and --validation go together");
    }
    if (options->only_check && (output != "-" || !options->validation.empty())) {
        return refuse_data_words("positions", "--check writes no lines");
    }
    if (options->ratio != 1.0 && !options->balance_phase && !options->balance_result) {
        return refuse_data_words("positions", "--ratio is for --balance");
    }
    return check_outputs(*options);
}

static void understand(const RawOptions& raw, PositionsOptions* options)
{
    if (raw.kind == "training" || raw.kind == "test") {
        options->kind = raw.kind == "test" ? LineKind::Test : LineKind::Training;
    }
    options->balance_phase = raw.balance == "phase" || raw.balance == "both";
    options->balance_result = raw.balance == "result" || raw.balance == "both";
    options->marks = raw.marks == "keep" ? GameMarks::Keep
        : raw.marks == "all"             ? GameMarks::All
                                         : GameMarks::Apart;
}

int run_positions(Arguments arguments)
{
    static constexpr std::string_view kinds[] = { "training", "test" };
    static constexpr std::string_view balances[] = { "phase", "result", "both" };
    static constexpr std::string_view marks[] = { "apart", "keep", "all" };
    PositionsOptions options;
    RawOptions raw;
    const WordOption table[] = {
        { .name = "--kind", .text = &raw.kind, .choices = kinds },
        { .name = "--check", .flag = &options.only_check },
        { .name = "--unique", .flag = &options.unique },
        { .name = "--balance", .text = &raw.balance, .choices = balances },
        { .name = "--ratio", .real = &options.ratio, .least = 1.0, .greatest = largest_ratio },
        { .name = "--sample", .whole = &options.sample, .least = 1.0, .greatest = most_lines },
        { .name = "--shuffle", .whole = &options.shuffle, .greatest = largest_seed },
        { .name = "--split", .real = &options.share, .least = 0.0001, .greatest = 0.9999 },
        { .name = "--validation", .text = &options.validation },
        { .name = "--marks", .text = &raw.marks, .choices = marks },
        { .name = "--statistics", .text = &options.statistics },
        { .name = "--trailer", .flag = &options.has_trailer },
        { .name = "--seed", .whole = &options.seed, .greatest = largest_seed },
        { .name = "--memory",
            .whole = &options.memory,
            .least = least_memory,
            .greatest = most_memory },
        { .name = "--scratch", .text = &options.scratch },
    };
    if (!read_arguments(arguments, table, &options.common, &options.files)) {
        return usage_status;
    }
    if (options.common.help) {
        print_page();
        return 0;
    }
    understand(raw, &options);
    if (const int status = check_options(&options); status != 0) {
        return status;
    }
    init_board_tables();
    return run_position_flow(options);
}

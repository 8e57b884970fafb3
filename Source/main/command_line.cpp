// The options of the command line, as a table that each argument passes through from top to bottom.
// An option that takes a value puts the value in the argument's place, so the rows below it look at
// the value's text: "-book -bench" names a book and runs the benchmark. Arguments act in their
// order, and later ones replace what earlier ones have set.
#include "main/command_line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "search/strength.h"
#include "search/threads.h"
#include "tools/selfplay/selfplay_options.h"
#include "tools/trainer/trainer_options.h"

// Written with a digit behind it, which is the form: see is_option.
static constexpr std::string_view scan_option = "-scan_pgn";
// Seconds that no search by depth or by nodes will take.
static constexpr f64 depth_limited_seconds = 10000.0;
static constexpr f64 node_limited_seconds = 1000.0;
// Megabytes, as the option Hash allows.
static constexpr i32 largest_hash = 16384;
// With fewer there is nothing to train with, and the process ends without a word.
static constexpr i32 least_tune_arguments = 3;
// A path for a quick try, in the form of another system; here it names no folder that exists.
static constexpr char example_table_path[] = "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece";

// Also the mode without any option: a chess program starts its engine by name alone.
static void use_uci(CommandLine*, const char*)
{
    store(uci_mode, UciMode);
}

// For a person at a terminal; "uci" typed there turns to the other dialogue for good.
static void use_console(CommandLine*, const char*)
{
    store(uci_mode, ConsoleMode);
}

// The log itself is opened by main, once all arguments are read: a later -quiet takes it back.
static void switch_log_on(CommandLine* line, const char*)
{
    line->dialogue->engine_options.log = 1;
}

// Accepted for the sake of scripts; nothing is bound to a processor's memory.
static void set_numa(CommandLine* line, const char*)
{
    line->dialogue->numa = 1;
}

// Seconds of a search before its first line.
static void set_noise(CommandLine*, const char* value)
{
    store(noise, read_real(value));
}

// Takes all lines of a search away, and the log.
static void be_quiet(CommandLine* line, const char*)
{
    line->dialogue->engine_options.log = 0;
    store(noise, silent_noise);
}

// Read after all arguments, whose settings it replaces.
static void set_config_file(CommandLine* line, const char* value)
{
    copy_text(line->dialogue->engine_options.config_file_path, file_option_size, value);
}

// The limits of -d, -t and -n add up: of each the last given holds, but each sets the time anew.
static void set_depth(CommandLine* line, const char* value)
{
    store(line->dialogue->limits.tc_moves, FixedTime);
    line->dialogue->limits.tc_seconds = depth_limited_seconds;
    store(line->dialogue->limits.depth_limit, read_depth_limit(value));
}

// Each move takes this time, whatever clock a tool would reckon with.
static void set_seconds(CommandLine* line, const char* value)
{
    store(line->dialogue->limits.tc_moves, FixedTime);
    line->dialogue->limits.tc_seconds = read_real(value);
}

// As it stands: unlike a "go nodes" it is not varied, so that a benchmark repeats.
static void set_nodes(CommandLine* line, const char* value)
{
    store(line->dialogue->limits.tc_moves, FixedTime);
    line->dialogue->limits.tc_seconds = node_limited_seconds;
    line->dialogue->limits.node_limit_total = read_integer(value);
}

// The Elo shown is that of the rate. It is kept as the option, from which the rate is made again
// before each search.
static void set_node_rate(CommandLine* line, const char* value)
{
    const f64 rate = read_real(value);
    store(strength.target_nps, std::max(rate, 0.0)); // below it no search would end before its time
    line->dialogue->engine_options.limit_strength = 1;
    line->dialogue->engine_options.elo = narrow_to_i16(elo_of_nps(rate));
    print_plain("Elo= %d\n", line->dialogue->engine_options.elo);
}

// Megabytes; out of range the nearest, as for the option.
static void set_hash(CommandLine* line, const char* value)
{
    line->dialogue->engine_options.hash =
        static_cast<i16>(std::clamp(read_i32(value), 0, largest_hash));
}

// The low sixteen bits of the number count: beyond 32767 a count may come out as 1.
static void set_threads(CommandLine* line, const char* value)
{
    const i16 count = static_cast<i16>(read_i32(value));
    line->dialogue->engine_options.threads =
        std::clamp(count, static_cast<i16>(1), static_cast<i16>(max_workers));
}

// The file alone: books are asked once OwnBook is on.
static void set_book(CommandLine* line, const char* value)
{
    copy_text(line->dialogue->engine_options.own_book_file, file_option_size, value);
}

// Folders, with a colon between them; looked into when the dialogue begins.
static void set_table_path(CommandLine* line, const char* value)
{
    copy_text(line->dialogue->engine_options.syzygy_path, file_option_size, value);
}

// Cleared first, so that nothing of an older path stands behind the shorter one.
static void set_example_table_path(CommandLine* line, const char*)
{
    memset(line->dialogue->engine_options.syzygy_path, 0, file_option_size);
    copy_text(line->dialogue->engine_options.syzygy_path, file_option_size, example_table_path);
}

// A name that is cut may be that of another file, so the run must not pass for a good one.
static void set_file_name(char* name, size_t size, const char* value)
{
    copy_text(name, size, value);
    if (strlen(value) >= size) {
        fprintf(stderr, "%s: only the first %zu characters of a name are read\n", value, size - 1);
        exit_status = 1;
    }
}

// The name and the mode in one: a run of positions has no other option to start it.
static void set_epd_test(CommandLine* line, const char* value)
{
    set_file_name(line->epd_file, sizeof line->epd_file, value);
    line->mode = ModeEpdTest;
}

// One name for all tools: the last option that takes one counts, and so does the last mode.
static void set_tool_file(CommandLine* line, const char* value)
{
    set_file_name(line->tool_file, sizeof line->tool_file, value);
}

// Kept as a mode that runs nothing.
static void set_match(CommandLine* line, const char* value)
{
    set_tool_file(line, value);
    line->mode = ModeMatch;
}

// The three benchmarks have no value: positions, depth and threads come from other options.
static void set_bench(CommandLine* line, const char*)
{
    line->mode = ModeBench;
}

static void set_bench2(CommandLine* line, const char*)
{
    line->mode = ModeBench2;
}

static void set_bench_single(CommandLine* line, const char*)
{
    line->mode = ModeBenchSingle;
}

// Kept as a mode that runs nothing, as -match is.
static void set_make_config(CommandLine* line, const char*)
{
    line->mode = ModeMakeConfig;
}

// The file holds the games; the book that comes of them has a fixed name.
static void set_make_book(CommandLine* line, const char* value)
{
    set_tool_file(line, value);
    line->mode = ModeMakeBook;
}

// Shares the name with -anepd: only one of them can run.
static void set_make_tune(CommandLine* line, const char* value)
{
    set_file_name(line->epd_file, sizeof line->epd_file, value);
    line->mode = ModeMakeTune;
}

// Training needs a build of its own, in which evaluate keeps track of its terms.
static void refuse_tune(CommandLine* line, const char*)
{
    if (line->argument_count >= least_tune_arguments) {
        print_plain("Need to compile with 'make ttune'\n");
    }
    line->mode = ModeEnd;
}

// A row of the table. Several rows may match an argument: each of them applies.
struct CommandLineOption {
    std::string_view name;
    bool takes_value;
    void (*apply)(
        CommandLine* line, const char* value); // value is the option itself if it takes none
};

static constexpr CommandLineOption command_line_options[] = {
    { "-uci", false, use_uci },
    { "-c", false, use_console },
    { "-log", false, switch_log_on },
    { "-numa", false, set_numa },
    { "-noise", true, set_noise },
    { "-quiet", false, be_quiet },
    { "-cfg", true, set_config_file },
    { "-d", true, set_depth },
    { "-t", true, set_seconds },
    { "-n", true, set_nodes },
    { "-nps", true, set_node_rate },
    { "-hash", true, set_hash },
    { "-threads", true, set_threads },
    { "-book", true, set_book },
    { "-tbpath", true, set_table_path },
    { "-tbx", false, set_example_table_path },
    { "-anepd", true, set_epd_test },
    { scan_option, true, set_tool_file },
    { "-match", true, set_match },
    { "-bench", false, set_bench },
    { "-bench2", false, set_bench2 },
    { "-pbench", false, set_bench_single },
    { "-mkconfig", false, set_make_config },
    { "-mkbook", true, set_make_book },
    { "-mktune", true, set_make_tune },
    { "-tune", false, refuse_tune },
};

// Whether text is this option. The scanner's is looked for anywhere in the text; its four exact
// forms choose the mode too, any other leaves the mode as it is, so that its file is taken and
// nothing scanned.
static bool is_option(CommandLine* line, const CommandLineOption& option, std::string_view text)
{
    if (option.name != scan_option) {
        return text == option.name;
    }
    if (text.find(scan_option) == std::string_view::npos) {
        return false;
    }
    const char form = text.back();
    if (text.starts_with(scan_option) && text.size() == scan_option.size() + 1 && form >= '1'
        && form <= '4') {
        line->mode = static_cast<RunMode>(ModeScanPgn1 + (form - '1'));
    }
    return true;
}

// Takes the arguments of the tuning build's own modes; other builds leave it out. Returns how many
// were taken, or -1 after an error.
[[maybe_unused]] static i32 take_tuning_arguments(
    CommandLine* line, char* const* arguments, i32 count)
{
    i32 taken = take_tune_arguments(arguments, count);
    if (taken != 0) {
        line->mode = tune_options.file != nullptr ? ModeTune : line->mode;
        return taken;
    }
    taken = take_selfplay_arguments(arguments, count);
    if (taken > 0) {
        line->mode = ModeSelfplay;
    }
    return taken;
}

// The tuner's arguments come first in a tuning build: it takes as many as belong together, and a
// value that looks like one of the other options is still the tuner's. An argument goes on through
// the table after a match, with its value's text.
void read_command_line(Dialogue* dialogue, i32 argc, char* const* argv, CommandLine* line)
{
    line->dialogue = dialogue;
    line->mode = ModeThink;
    line->argument_count = argc - 1;
    line->epd_file[0] = '\0';
    line->tool_file[0] = '\0';
    for (i32 i = 1; i < argc; ++i) {
        if constexpr (tuning) {
            const i32 taken = take_tuning_arguments(line, argv + i, argc - i);
            if (taken < 0) {
                line->mode = ModeEnd;
                return;
            }
            if (taken > 0) {
                i += taken - 1;
                continue;
            }
        }
        const char* text = argv[i];
        for (const CommandLineOption& option : command_line_options) {
            if (!is_option(line, option, text)) {
                continue;
            }
            if (option.takes_value) {
                // Without its value the next argument would be taken for it, or nothing; a run with
                // other settings than those meant must not begin.
                if (i + 1 >= argc) {
                    fprintf(stderr, "option %s needs a value\n", text);
                    line->mode = ModeEnd;
                    return;
                }
                text = argv[++i];
            }
            option.apply(line, text);
            if (line->mode == ModeEnd) {
                return;
            }
        }
    }
    if (tuning && line->mode == ModeSelfplay && !selfplay_is_complete()) {
        line->mode = ModeEnd;
        return;
    }
    // Once, behind the last argument, and not at all where no run follows.
    publish_options(dialogue);
}

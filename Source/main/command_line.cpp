// The options of the command line, as a table that each argument passes through from top to
// bottom. An option that takes a value puts the value in the argument's place, so the rows below
// it look at the value's text.
#include "main/command_line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "board/position.h"
#include "shell/engine_options.h"
#include "base/output.h"
#include "shell/run_state.h"
#include "base/text.h"
#include "search/clock.h"
#include "tools/tools.h"

static constexpr char scan_option[] = "-scan_pgn";
static constexpr f64 depth_limited_seconds = 10000.0;
static constexpr f64 node_limited_seconds = 1000.0;
static constexpr i32 largest_hash = 16384;
static constexpr i32 least_tune_arguments = 3;
static constexpr char example_table_path[] = "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece";

static RunMode run_mode;
static i32 argument_count;

static void use_uci(const char*)
{
    store(uci_mode, 1);
}

static void use_console(const char*)
{
    store(uci_mode, 0);
}

static void switch_log_on(const char*)
{
    engine_options.log = 1;
}

static void set_numa(const char*)
{
    numa = 1;
}

static void set_noise(const char* value)
{
    store(noise, read_real(value));
}

static void be_quiet(const char*)
{
    engine_options.log = 0;
    store(noise, silent_noise);
}

static void set_config_file(const char* value)
{
    copy_text(engine_options.config_file_path, file_option_size, value);
}

static void set_depth(const char* value)
{
    store(tc_moves, 1);
    tc_seconds = depth_limited_seconds;
    store(depth_limit, read_depth_limit(value));
}

static void set_seconds(const char* value)
{
    store(tc_moves, 1);
    tc_seconds = read_real(value);
}

static void set_nodes(const char* value)
{
    store(tc_moves, 1);
    tc_seconds = node_limited_seconds;
    node_limit_total = read_integer(value);
}

static void set_node_rate(const char* value)
{
    const f64 rate = read_real(value);
    store(target_nps, std::max(rate, 0.0)); // below it no search would end before its time
    engine_options.limit_strength = 1;
    engine_options.elo = narrow_to_i16(elo_of_nps(rate));
    print_plain("Elo= %d\n", engine_options.elo);
}

static void set_hash(const char* value)
{
    engine_options.hash = static_cast<i16>(std::clamp(read_i32(value), 0, largest_hash));
}

static void set_threads(const char* value)
{
    const i16 count = static_cast<i16>(read_i32(value));
    engine_options.threads = std::clamp(count, static_cast<i16>(1), static_cast<i16>(max_workers));
}

static void set_book(const char* value)
{
    copy_text(engine_options.own_book_file, file_option_size, value);
}

static void set_table_path(const char* value)
{
    copy_text(engine_options.syzygy_path, file_option_size, value);
}

static void set_example_table_path(const char*)
{
    memset(engine_options.syzygy_path, 0, file_option_size);
    copy_text(engine_options.syzygy_path, file_option_size, example_table_path);
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

static void set_epd_test(const char* value)
{
    set_file_name(epd_file, sizeof epd_file, value);
    run_mode = ModeEpdTest;
}

static void set_tool_file(const char* value)
{
    set_file_name(tool_file, sizeof tool_file, value);
}

static void set_match(const char* value)
{
    set_tool_file(value);
    run_mode = ModeMatch;
}

static void set_bench(const char*)
{
    run_mode = ModeBench;
}

static void set_bench2(const char*)
{
    run_mode = ModeBench2;
}

static void set_bench_single(const char*)
{
    run_mode = ModeBenchSingle;
}

static void set_make_config(const char*)
{
    run_mode = ModeMakeConfig;
}

static void set_make_book(const char* value)
{
    set_tool_file(value);
    run_mode = ModeMakeBook;
}

static void set_make_tune(const char* value)
{
    set_file_name(epd_file, sizeof epd_file, value);
    run_mode = ModeMakeTune;
}

// Training needs a build of its own, in which evaluate keeps track of its terms.
static void refuse_tune(const char*)
{
    if (argument_count >= least_tune_arguments) {
        print_plain("Need to compile with 'make ttune'\n");
    }
    run_mode = ModeEnd;
}

struct CommandLineOption {
    const char* name;
    bool takes_value;
    void (*apply)(const char* value); // value is the option itself if it takes none
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
// forms choose the mode too, any other leaves the mode as it is.
static bool is_option(const CommandLineOption& option, const char* text)
{
    if (option.name != scan_option) {
        return strcmp(text, option.name) == 0;
    }
    if (strstr(text, scan_option) == nullptr) {
        return false;
    }
    const char* form = text + strlen(scan_option);
    if (strncmp(text, scan_option, strlen(scan_option)) == 0 && form[0] >= '1' && form[0] <= '4'
        && form[1] == '\0') {
        run_mode = static_cast<RunMode>(ModeScanPgn1 + (form[0] - '1'));
    }
    return true;
}

RunMode read_command_line(i32 argc, char* const* argv)
{
    run_mode = ModeThink;
    argument_count = argc - 1;
    for (i32 i = 1; i < argc; ++i) {
        if constexpr (tuning) {
            const i32 taken = take_tune_arguments(argv + i, argc - i);
            if (taken < 0) {
                return ModeEnd;
            }
            if (taken > 0) {
                run_mode = tune_options.file != nullptr ? ModeTune : run_mode;
                i += taken - 1;
                continue;
            }
        }
        const char* text = argv[i];
        for (const CommandLineOption& option : command_line_options) {
            if (!is_option(option, text)) {
                continue;
            }
            if (option.takes_value) {
                if (i + 1 >= argc) {
                    fprintf(stderr, "option %s needs a value\n", text);
                    return ModeEnd;
                }
                text = argv[++i];
            }
            option.apply(text);
            if (run_mode == ModeEnd) {
                return ModeEnd;
            }
        }
    }
    publish_options();
    return run_mode;
}

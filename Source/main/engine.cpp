// The life of the process: start-up in an order that matters, one run mode, tear-down. The command
// line is read before the workers and the hash table exist and becomes the announced defaults; the
// configuration file comes after them and changes them in place. Every failure of start-up ends the
// run with status 1 before anything has been searched.
#include "main/engine.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/files.h"
#include "base/output.h"
#include "base/wakeup.h"
#include "board/position.h"
#include "board/tables.h"
#include "board/trace.h"
#include "book/book.h"
#include "search/hash.h"
#include "search/threads.h"
#include "shell/options.h"
#include "shell/prepare_search.h"
#include "shell/startup.h"
#include "shell/think_loop.h"
#include "tools/selfplay/selfplay.h"
#include "tools/tools.h"
#include "tools/trainer/trainer.h"
#include "main/command_line.h"

// Units of the seed.
static constexpr i32 milliseconds_per_second = 1000;
static constexpr i32 microseconds_per_millisecond = 1000;
// Positions of the benchmark in the order of its list; the single one is for a profile and runs on
// half of them.
static constexpr i32 bench_positions = 20;
static constexpr i32 bench_single_positions = 10;
// Plies. Positions are searched to their quiet end, so no deep search is meant: a limit beyond this
// one was set for something else, or not at all.
static constexpr i32 deepest_tune_limit = 10;

// A standard stream that is closed at the start is opened on nothing: else the first file opened
// would take its place and get what is meant for the stream.
static void open_closed_streams()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            open("/dev/null", O_RDWR); // the lowest number that is free: this one
        }
    }
}

// A reader that has gone must end the process at its next line, whatever the parent had set. A
// limit of a file's size is to be an error of the write, as a full disk is. Without buffers every
// line leaves at once, and what was read is never held back from a poll.
static void init_streams()
{
    open_closed_streams();
    init_wakeup(); // not earlier, or the bell would take the number of a closed stream
    signal(SIGPIPE, SIG_DFL);
    signal(SIGXFSZ, SIG_IGN);
    setbuf(stdout, nullptr);
    setvbuf(stdout, nullptr, _IONBF, 0);
    setbuf(stdin, nullptr);
    setvbuf(stdin, nullptr, _IONBF, 0);
}

// From the time in milliseconds, so that two processes started one after the other choose other
// book moves and vary their node limits otherwise.
static void seed_random_generator()
{
    timeval now;
    gettimeofday(&now, nullptr);
    srand(static_cast<unsigned>(
        now.tv_usec / microseconds_per_millisecond + now.tv_sec * milliseconds_per_second));
}

// The game comes first: the dialogue is made around it.
static bool init_records(Dialogue* dialogue)
{
    dialogue->game = new_thread_record(-1);
    if (dialogue->game == nullptr) {
        return false;
    }
    init_board_tables();
    init_dialogue(dialogue);
    dialogue->tool_words = console_tool_words();
    return true;
}

// Makes what the command line has asked for. The log comes before the configuration file, so that
// it holds what the file sets; one that cannot be opened is no reason to stop: the user is told and
// plays on. Returns false after a message if memory or threads cannot be had.
static bool init_resources(Dialogue* dialogue)
{
    num_threads = dialogue->engine_options.threads;
    if (const i32 error = create_workers(num_threads); error != 0) {
        complain("threads", "cannot be started", error);
        return false;
    }
    if (!make_hash_table(dialogue->engine_options.hash)) {
        return false;
    }
    touch_hash();
    if (dialogue->engine_options.log != 0 && !open_log()) {
        print_line("log file in use.");
        dialogue->engine_options.log = 0;
        publish_options(dialogue);
    }
    // The command line becomes what "uci" announces; the file changes that in turn.
    dialogue->saved_options = dialogue->engine_options;
    if (dialogue->engine_options.config_file_path[0] != '\0') {
        load_config_file(dialogue);
    }
    rebuild_search_tables(dialogue);
    rebuild_weights(dialogue);
    dialogue->engine_options.params_changed = 0;
    return true;
}

// The tables are rebuilt behind the calibration, as they hang on the speed of this machine.
// Calibration leaves the start position, where the loop begins as well.
static void run_think_mode(Dialogue* dialogue)
{
    calibrate(dialogue);
    rebuild_search_tables(dialogue);
    register_tables(dialogue->engine_options.syzygy_path);
    think_loop(dialogue);
}

// No info lines: there is a search for each line of a file.
static void run_tune_mode(Dialogue* dialogue, const char* file_name)
{
    if (load(dialogue->limits.depth_limit) > deepest_tune_limit) {
        store(dialogue->limits.depth_limit, 0);
    }
    store(noise, silent_noise);
    make_tune_file(dialogue, file_name);
}

// Modes without a row here run nothing: their words are taken, and the process ends well.
static void run(const CommandLine* line)
{
    Dialogue* dialogue = line->dialogue;
    switch (line->mode) {
    case ModeThink:
        run_think_mode(dialogue);
        break;
    case ModeEpdTest:
        run_epd_test(dialogue, line->epd_file);
        break;
    case ModeBench:
    case ModeBench2:
        run_benchmark(dialogue, bench_positions, false);
        break;
    case ModeBenchSingle:
        run_benchmark(dialogue, bench_single_positions, true);
        break;
    case ModeMakeBook:
        build_book(&dialogue->game->pos, line->tool_file);
        break;
    case ModeMakeTune:
        run_tune_mode(dialogue, line->epd_file);
        break;
    case ModeTune:
        // The normal program has no trainer to call.
        if constexpr (tuning) {
            run_trainer(dialogue);
        }
        break;
    case ModeSelfplay:
        if constexpr (tuning) {
            run_selfplay(dialogue);
        }
        break;
    default:
        if (line->mode >= ModeScanPgn1 && line->mode <= ModeScanPgn4) {
            scan_pgn(dialogue, line->tool_file, line->mode - ModeScanPgn1 + 1);
        }
        break; // nothing is to be run for the other modes
    }
}

// The offline tools print results that somebody waits for; a full disk must not pass for success. A
// dialogue has nobody to read the status, and ends by the signal when its reader has gone.
static void report_lost_output()
{
    if (output_error() != 0) {
        complain("standard output", "cannot be written", output_error());
        exit_status = 1;
    }
}

// The workers end before what they use: the table and the game.
static void tear_down(Dialogue* dialogue)
{
    destroy_workers(num_threads);
    free_hash();
    delete_thread_record(dialogue->game);
    close_trace();
    close_log();
}

// Too large for a stack, and needed to the end.
static constinit Dialogue the_dialogue {};

// The order of start-up: streams before anything can be written, the records before the command
// line that fills them, the resources by what it says. The status is 0, or 1 where start-up failed
// or a tool refused or lost something, a saved game or a trace among it.
int run_engine(int argc, char** argv)
{
    Dialogue* dialogue = &the_dialogue;
    init_streams();
    seed_random_generator();
    if (!init_records(dialogue)) {
        return 1;
    }
    CommandLine line;
    read_command_line(dialogue, argc, argv, &line);
    if (line.mode == ModeEnd || !init_resources(dialogue)) {
        return 1;
    }
    run(&line);
    // A dialogue may have lost lines to a reader that went first, which is no fault of the run.
    if (line.mode != ModeThink) {
        report_lost_output();
    }
    tear_down(dialogue);
    return exit_status;
}

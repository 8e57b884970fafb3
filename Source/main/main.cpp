// The life of the process: start-up in an order that matters, one run mode, tear-down.
// The command line is read before the workers and the hash table exist and becomes the announced
// defaults; the configuration file comes after them and changes them in place.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include "board/position.h"
#include "board/tables.h"
#include "book/book.h"
#include "eval/weights.h"
#include "fathom/tbcore.h"
#include "search/hash.h"
#include "search/params.h"
#include "search/threads.h"
#include "main/command_line.h"
#include "shell/engine_options.h"
#include "base/files.h"
#include "shell/options.h"
#include "base/output.h"
#include "shell/run_state.h"
#include "shell/startup.h"
#include "shell/think_loop.h"
#include "tools/tools.h"

static constexpr i32 bench_positions = 20;
static constexpr i32 bench_single_positions = 10;
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
// limit of a file's size is to be an error of the write, as a full disk is.
static void init_streams()
{
    open_closed_streams();
    signal(SIGPIPE, SIG_DFL);
    signal(SIGXFSZ, SIG_IGN);
    setbuf(stdout, nullptr);
    setvbuf(stdout, nullptr, _IONBF, 0);
    setbuf(stdin, nullptr);
    setvbuf(stdin, nullptr, _IONBF, 0);
}

static void seed_random_generator()
{
    timeval now;
    gettimeofday(&now, nullptr);
    srand(static_cast<unsigned>(now.tv_usec / 1000 + now.tv_sec * 1000));
}

static bool init_records()
{
    for (Shared<SearchThread*>& worker : workers) {
        store(worker, nullptr);
    }
    console_thread = new_thread_record(-1);
    if (console_thread == nullptr) {
        return false;
    }
    init_tables();
    init_run_state();
    init_default_options();
    engine_options = saved_options;
    publish_options();
    return true;
}

// Makes what the command line has asked for. Returns false after a message if it cannot be had.
static bool init_resources()
{
    num_threads = engine_options.threads;
    if (const i32 error = create_workers(num_threads); error != 0) {
        complain("threads", "cannot be started", error);
        return false;
    }
    hash_mb = engine_options.hash;
    if (!alloc_hash()) {
        fprintf(stderr, "no memory for a hash table of %d megabytes\n", hash_mb);
        return false;
    }
    if (engine_options.log != 0 && !open_log()) {
        print_line("log file in use.");
        engine_options.log = 0;
        publish_options();
    }
    saved_options = engine_options;
    if (engine_options.config_file_path[0] != '\0') {
        load_config_file();
    }
    set_search_params();
    init_eval_params(0);
    engine_options.params_changed = 0;
    return true;
}

static void run_think_mode()
{
    calibrate();
    set_search_params();
    tb_init(engine_options.syzygy_path);
    think_loop();
}

static void run_tune_mode()
{
    if (load(depth_limit) > deepest_tune_limit) {
        store(depth_limit, 0);
    }
    store(noise, silent_noise);
    make_tune_file(epd_file);
}

static void run(RunMode mode)
{
    switch (mode) {
    case ModeThink:
        run_think_mode();
        break;
    case ModeEpdTest:
        run_epd_test();
        break;
    case ModeBench:
    case ModeBench2:
        run_benchmark(bench_positions);
        break;
    case ModeBenchSingle:
        bench_single = 1;
        run_benchmark(bench_single_positions);
        break;
    case ModeMakeBook:
        build_book();
        break;
    case ModeMakeTune:
        run_tune_mode();
        break;
    case ModeTune:
        if constexpr (tuning) {
            run_trainer();
        }
        break;
    default:
        if (mode >= ModeScanPgn1 && mode <= ModeScanPgn4) {
            scan_pgn(tool_file, mode - ModeScanPgn1 + 1);
        }
        break; // nothing is to be run for the other modes
    }
}

// The offline tools print results that somebody waits for; a full disk must not pass for success.
static void report_lost_output()
{
    if (output_error() != 0) {
        complain("standard output", "cannot be written", output_error());
        exit_status = 1;
    }
}

static void tear_down()
{
    destroy_workers(num_threads);
    free_hash();
    delete console_thread;
    close_log();
}

int main(int argc, char** argv)
{
    init_streams();
    seed_random_generator();
    if (!init_records()) {
        return 1;
    }
    const RunMode mode = read_command_line(argc, argv);
    if (mode == ModeEnd || !init_resources()) {
        return 1;
    }
    run(mode);
    if (mode != ModeThink) {
        report_lost_output();
    }
    tear_down();
    return exit_status;
}

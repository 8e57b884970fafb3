// The run state's storage, its start values, and the clock.
// init_run_state is the one place that knows the start values; main calls it before anything else
// reads them.
#include "shell/run_state.h"

#include <ctime>
#include <sys/select.h>

#include "base/output.h"

static constexpr f64 start_seconds_per_move = 5.0;
static constexpr f64 start_target_time = 1.0;
static constexpr i32 start_depth_limit = 66;
static constexpr char weights_file_name[] = "params.txt";

constinit Shared<i16> uci_mode {};
constinit u8 quit_flag = 0;
constinit Shared<f64> noise {};
constinit Shared<u8> hash_mode {};
constinit i16 hash_age = 0;
constinit i32 hash_mb = 0;
constinit i32 num_threads = 0;
constinit Shared<u8> engine_state {};
constinit Shared<u8> stop_code {};

constinit Shared<u8> tc_moves {};
constinit f64 tc_seconds = 0.0;
constinit f64 tc_increment = 0.0;
constinit Shared<f64> clock_left[2] {};
constinit Shared<u8> clock_side {};
constinit i16 moves_to_go = 0;
constinit f64 overhead_seconds = 0.0;
constinit f64 target_time = 0.0;
constinit f64 start_time = 0.0;
constinit Shared<f64> elapsed {};
constinit Shared<i8> depth_limit {};
constinit i64 node_limit_total = 0;
constinit u8 root_side = 0;
constinit i16 search_ponder = 0;
constinit u8 search_multi_pv = 0;

constinit f64 calibration_nps = 0.0;
constinit f64 estimated_elo = 0.0;
constinit Shared<f64> target_nps {};

constinit Shared<u8> debug_flag {};
constinit Shared<u8> trace_level {};
constinit i32 debug_counters[4] = {};
constinit u8 numa = 0;
constinit u32 log_cmd = 0;
constinit u8 bench_single = 0;
constinit u8 self_play = 0;

constinit i32 exit_status = 0;

constinit char params_file[16] = {};
constinit char epd_file[140] = {};
constinit char tool_file[144] = {};

constinit WorkerOptions worker_options {};

f64 monotonic_seconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<f64>(now.tv_sec) + static_cast<f64>(now.tv_nsec) * 1e-9;
}

void update_elapsed()
{
    store(elapsed, monotonic_seconds() - start_time);
}

void sleep_microseconds(i32 microseconds)
{
    timeval timeout = { microseconds / 1000000, microseconds % 1000000 };
    select(0, nullptr, nullptr, nullptr, &timeout);
}

static void init_time_control()
{
    store(tc_moves, 1);
    tc_seconds = start_seconds_per_move;
    tc_increment = 0.0;
    store(clock_left[0], start_seconds_per_move);
    store(clock_left[1], start_seconds_per_move);
    store(clock_side, 0);
    moves_to_go = 0;
    overhead_seconds = 0.0;
    target_time = start_target_time;
    start_time = 0.0;
    store(elapsed, 0.0);
    store(depth_limit, start_depth_limit);
    node_limit_total = 0;
    root_side = 0;
    search_ponder = 0;
    search_multi_pv = 1;
}

void init_run_state()
{
    store(uci_mode, 1);
    quit_flag = 0;
    store(noise, 0.0);
    store(hash_mode, 1);
    hash_age = 0;
    store(engine_state, EngineIdle);
    store(stop_code, StopNone);
    init_time_control();

    calibration_nps = 0.0;
    estimated_elo = 0.0;
    store(target_nps, 0.0);
    store(debug_flag, 0);
    store(trace_level, 0);
    for (i32& counter : debug_counters) {
        counter = 0;
    }
    numa = 0;
    log_cmd = 1;
    bench_single = 0;
    self_play = 0;
    exit_status = 0;
    copy_text(params_file, sizeof params_file, weights_file_name);
    epd_file[0] = '\0';
    tool_file[0] = '\0';
}

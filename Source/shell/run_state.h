// The global run state: dialogue mode, time control, clock and limits of the current search.
// The main thread writes it; values that workers read while it may change are Shared.
#pragma once

#include "board/types.h"

inline constexpr char version_string[] = "Vesk 4.50";
inline constexpr char start_position[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";

// What the main loop is about. See think_loop.
enum EngineState : u8 {
    EngineIdle = 0,
    EngineStart = 1,       // a search is to be started
    EngineStartPonder = 2, // a pondering search is to be started
    EngineThinking = 3,    // a search runs or its end is awaited; the clock counts
    EnginePondering = 4,   // a search runs, unreported and off the clock
};

// Why a search is to end.
enum StopCode : u8 {
    StopNone = 0,
    StopReport = 1,     // end, report the result
    StopReportGame = 2, // the same: no moves at the root, or the console changed the game
    StopSilent = 3,     // end, say nothing
    StopWorkersLeave = 99,
};

// Silent output: a noise of this many seconds takes all info lines away.
inline constexpr f64 silent_noise = 9999.0;

extern Shared<i16> uci_mode;    // dialogue: 1 UCI, 0 console
extern u8 quit_flag;            // leave think_loop
extern Shared<f64> noise;       // no info line before this many seconds
extern Shared<u8> hash_mode;    // 0 table unused, 1 used, 2 and up kept between searches
extern i16 hash_age;            // 1 to 15, 0 after a new game; constant in a search
extern i32 hash_mb;             // size of the hash table as allocated, megabytes
extern i32 num_threads;         // workers that exist
extern Shared<u8> engine_state; // EngineState
extern Shared<u8> stop_code;    // StopCode

extern Shared<u8> tc_moves;       // 0 sudden death, 1 fixed time, more: moves per control
extern f64 tc_seconds;            // seconds per move or per control
extern f64 tc_increment;          // seconds added per move
extern Shared<f64> clock_left[2]; // seconds left, by side
extern Shared<u8> clock_side;     // side to move of the console's position, for check_time
extern i16 moves_to_go;           // moves to the next control
extern f64 overhead_seconds;      // move_overhead in seconds
extern f64 target_time;           // seconds for this move; written while no worker searches
extern f64 start_time;            // monotonic clock at the start of the search, seconds
extern Shared<f64> elapsed;       // seconds since start_time; may be read a millisecond late
extern Shared<i8> depth_limit;    // deepest iteration
extern i64 node_limit_total;      // nodes of a search, 0 for no limit
extern u8 root_side;              // side to move at the start of the search
extern i16 search_ponder;         // ponder option of this search
extern u8 search_multi_pv;        // multi_pv option of this search

extern f64 calibration_nps;    // measured speed, nodes a second
extern f64 estimated_elo;      // Elo of that speed
extern Shared<f64> target_nps; // node rate of a strength limit

extern Shared<u8> debug_flag;  // console's "set debug" value
extern Shared<u8> trace_level; // deepest ply written to the trace file, 0 for none
extern i32 debug_counters[4];  // free for a developer's counting, printed when not all 0
extern u8 numa;                // set by -numa, read by nothing
extern u32 log_cmd;            // write each UCI command to the log
extern u8 bench_single;        // benchmark on the calling thread
extern u8 self_play;           // console: the engine plays both sides

extern i32 exit_status; // what main returns at the end of its run mode

extern char params_file[16]; // file of weights
extern char epd_file[140];   // file of -anepd and -mktune
extern char tool_file[144];  // file of -scan_pgn, -match and -mkbook

// Copies of options for the workers, which never read engine_options itself.
struct WorkerOptions {
    Shared<i16> contempt;
    Shared<i16> multi_pv;
    Shared<i16> log;
    Shared<i16> syzygy_probe_depth5;
    Shared<i16> syzygy_probe_depth6;
};
extern WorkerOptions worker_options;

// The monotonic clock in seconds, formed as tv_sec + tv_nsec * 1e-9.
f64 monotonic_seconds();

// Sets elapsed to the monotonic clock minus start_time.
void update_elapsed();

// Lets the calling thread sleep for about the given number of microseconds.
void sleep_microseconds(i32 microseconds);

// Sets every value of this file to its start value, except hash_mb and num_threads.
void init_run_state();

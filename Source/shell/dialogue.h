// The state of a dialogue with the user: the game, the limits of the next search, every setting. It
// is made by main and handed to all routines of the shell and the tools; the running search knows
// nothing of it but the limits.
#pragma once

#include <span>

#include "eval/weights.h"
#include "search/limits.h"
#include "search/params.h"
#include "search/thread.h"
#include "shell/input.h"

inline constexpr i32 file_option_size = 144; // text of a file option with its NUL

// No pointers inside: the record is copied whole.
struct EngineOptions {
    i16 params_changed; // the search and evaluation tables must be rebuilt
    i16 hash;           // megabytes
    i16 threads;
    i16 move_overhead; // milliseconds
    i16 ponder;
    i16 multi_pv;
    i16 limit_strength;
    i16 elo; // 0: not set yet
    i16 log;
    i16 own_book;
    i16 own_book_variety; // 0 to 100
    i16 own_book_depth;   // plies
    i16 own_book2_depth;  // plies
    char config_file_path[file_option_size];
    char own_book_file[file_option_size];
    char own_book2_file[file_option_size];
    char syzygy_path[file_option_size];
    i16 syzygy_probe_depth5;
    i16 syzygy_probe_depth6;
    i16 contempt;    // centipawns
    i16 selectivity; // per cent
    SearchParams search;
    WeightScales scales;
};

// Room for the commands that wait for their pass.
inline constexpr i32 pending_size = 4 * (longest_input + 1);

struct ConsoleWord;

struct Dialogue {
    SearchThread* game; // the board and the game, as the user sees them; no worker's
    SearchLimits limits;
    EngineOptions engine_options; // the live settings
    EngineOptions saved_options;  // what "uci" announces as defaults
    bool quit_flag;               // leave think_loop
    bool self_play;               // console: the engine plays both sides
    bool log_cmd;                 // write each UCI command to the log

    // Commands that have arrived and wait for their pass, each closed by a line mark.
    char pending_input[pending_size];

    // Words of the console that floors above this one bring along.
    std::span<const ConsoleWord> tool_words;

    // Kept for the dialogue's sake: set by their words, read by nobody.
    u8 numa;        // "-numa"
    u64 tagged_key; // key of the position at the last "tag"
};

// Sets a dialogue to its start: the default of every setting, in both records, and nothing else
// known. The game must be there. Publishes the options.
void init_dialogue(Dialogue* dialogue);

// Publishes the options that workers read. Every routine that has changed engine_options ends with
// this call. A running search keeps what it started with, the log apart; prepare_search publishes
// the rest before the next one.
void publish_options(const Dialogue* dialogue);

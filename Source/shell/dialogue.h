// The state of a dialogue with the user: the game, the limits of the next search, every setting. It
// is made by main and handed to all routines of the shell and the tools, and the main thread alone
// touches it; the running search knows nothing of it but the limits, whose shared values it reads.
#pragma once

#include <span>

#include "eval/weights.h"
#include "search/limits.h"
#include "search/params.h"
#include "search/thread.h"
#include "shell/input.h"

inline constexpr i32 file_option_size = 144; // text of a file option with its NUL

// The user's settings. No pointers inside: the record is copied whole, to keep what "uci" announces
// and to go back to it.
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

// Room for the commands that wait for their pass: a sender may write several lines at once, and
// lines are only taken from the system while the longest one still fits.
inline constexpr i32 pending_size = 4 * (longest_input + 1);

struct ConsoleWord;

struct Dialogue {
    // The board and the game, as the user sees them; no worker's. Made by main; written by the
    // words that set up, play and take back, by the tools, and by self-play. Searches copy it at
    // their start.
    SearchThread* game;
    // Limits of the next search, and of the one that runs. Written by the command line, "go",
    // "set", "new", "load" and, for clocks and moves to go, by prepare_search and self-play; also
    // by the tools; read by the clock and, for depth and nodes, by the workers.
    SearchLimits limits;
    // The live settings. Written by the command line, set_option, "set" and "self", and by
    // prepare_search where a limit of strength cannot be met; each writer publishes them.
    EngineOptions engine_options;
    // What "uci" announces as defaults and "set ss 1" goes back to. Written by main once the
    // command line is read, and after every setting by the UCI dialogue or a configuration file;
    // the announcement fills in UCI_Elo.
    EngineOptions saved_options;
    // Written by both dialogues' "quit"; read by the main loop and by the tools between two
    // searches, which end at it.
    bool quit_flag;
    // Console: the engine plays both sides. Set by "self"; taken back by the main loop where the
    // game cannot go on.
    bool self_play;
    // Write each UCI command to the log. Set at the start and by "debug", read by uci_command.
    bool log_cmd;

    // Commands that have arrived and wait for their pass, each closed by a line mark. Written and
    // read by poll_input; is_waiting looks whether there is one.
    char pending_input[pending_size];

    // Words of the console that floors above this one bring along. Set by main before the first
    // command, read by console_command.
    std::span<const ConsoleWord> tool_words;

    // Kept for the dialogue's sake: set by their words, read by nobody.
    u8 numa;        // "-numa"
    u64 tagged_key; // key of the position at the last "tag"
};

// Sets a dialogue to its start: the default of every setting, in both records, and nothing else
// known. The game must be there. Publishes the options. No worker may be searching.
void init_dialogue(Dialogue* dialogue);

// Publishes the options that workers read. Every routine that has changed engine_options ends with
// this call. A running search keeps what it started with, the log apart; prepare_search publishes
// the rest before the next one.
void publish_options(const Dialogue* dialogue);

// Every user setting in one flat record, kept twice: live, and as announced by "uci".
#pragma once

#include "board/types.h"

// A pair of percentages that scale weights: middle game, end game.
using WeightScale = i16[2];

// Inputs of the pruning rules; set_search_params makes the working tables from them.
struct SearchParams {
    i16 SEP_depth;  // deepest node of static evaluation pruning
    i16 SEP_margin; // step of its margin per ply
    i16 NMP_depth;  // shallowest node of the null move
    i16 FP_depth;   // deepest node of the drop into quiescence
    i16 FP_margin;
    i16 ProbCut_depth; // shallowest node of ProbCut
    i16 ProbCut_reduction;
    i16 ProbCut_margin;
    i16 LMP_depth; // deepest node where late moves are dropped
    i16 LMP_count;
    i16 LMR_depth; // shallowest node that reduces
};

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
    WeightScale Mtl_Pawn, Mtl_Knight, Mtl_Bishop, Mtl_Rook, Mtl_Queen;
    WeightScale Activity_Knight, Activity_Bishop, Activity_Rook, Activity_Queen;
    WeightScale Pawn_Structure, Passed_Pawns, King_Safety, Threats;
};

extern EngineOptions engine_options; // the live settings; main thread only
extern EngineOptions saved_options;  // what "uci" announces as defaults

// Writes the default of every setting into saved_options.
void init_default_options();

// Publishes the options that workers read into worker_options. Every routine that has changed
// engine_options ends with this call. A running search keeps what it started with, the log apart;
// prepare_search publishes the rest before the next one.
void publish_options();

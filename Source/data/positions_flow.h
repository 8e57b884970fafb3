// A run over files of positions, from their lines to the output.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/types.h"
#include "data/arguments.h"
#include "data/positions_line.h"
#include "data/report.h"

// What becomes of the mark by which a line tells its game, as in c0 "game 17".
enum class GameMarks : u8 {
    Apart, // of several files they get the number of the file: game 2.17
    Keep,
    All, // as Apart, and lines that tell no game get the mark of one that was guessed
};

struct PositionsOptions {
    CommonOptions common;
    std::vector<std::string> files;
    std::optional<LineKind> kind; // none: the first line tells
    bool only_check = false;
    bool unique = false;
    bool balance_phase = false;
    bool balance_result = false;
    bool has_trailer = false;
    f64 ratio = 1.0;
    f64 share = 0.0;   // of the games, for validation
    i64 shuffle = -1;  // a seed; -1: the order stays
    i64 sample = -1;   // lines; -1: all
    i64 seed = 1;      // of what else is drawn
    i64 memory = 1024; // megabytes
    GameMarks marks = GameMarks::Apart;
    std::string validation; // file of the lines held out; empty: none
    std::string statistics; // file of the page or picture; empty: none
    std::string scratch;    // folder; empty: one is chosen
};

// Reads, checks and writes, and returns the status of the process. The board's tables are made.
[[nodiscard]] int run_position_flow(const PositionsOptions& options);

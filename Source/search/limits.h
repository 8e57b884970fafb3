// What "go" asks for: the limits of one search. The dialogue owns them; the
// console, the benchmark and the tools fill them too. start_clock is handed them before each search
// and keeps a pointer: what the user changes in the middle of a search holds from then on.
#pragma once

#include "base/text.h"

// Values of tc_moves that are no number of moves.
enum : u8 {
    SuddenDeath = 0, // the clock is for the rest of the game
    FixedTime = 1,   // tc_seconds for each move
};

// Written by the main thread alone. Values that workers read meanwhile are Shared; the others they
// read at the start of a search only, while the main thread waits for them.
struct SearchLimits {
    Shared<u8> tc_moves;       // one of the two above, else moves per control
    f64 tc_seconds;            // per move, or per control
    f64 tc_increment;          // seconds added per move
    Shared<f64> clock_left[2]; // seconds left, by side
    i16 moves_to_go;           // moves to the next control, this one counted
    Shared<i8> depth_limit;    // deepest iteration
    i64 node_limit_total;      // nodes of a search, 0 for no limit
};

inline constexpr i32 deepest_limit = 66; // greatest depth that can be asked for

// Sets the limits that hold until somebody asks for others: five seconds a move.
void init_limits(SearchLimits* limits);

// A depth as it was typed: its low byte counts, as a signed number, and no depth is above
// deepest_limit. 300 is thus a limit of 44.
inline i8 read_depth_limit(const char* text)
{
    const i8 depth = static_cast<i8>(read_integer(text));
    return depth > deepest_limit ? static_cast<i8>(deepest_limit) : depth;
}

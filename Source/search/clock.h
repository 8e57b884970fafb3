// The clock of a search: what a move may take, and when to stop.
#pragma once

#include "search/limits.h"

// The clock of one search; seconds on the monotonic clock. Written by the main thread: before the
// search starts, elapsed and clock_side while it runs. Under a node rate the workers look at the
// clock too, since nobody else may be awake: elapsed may then be written by several, each with a
// time that was right a moment ago.
struct SearchClock {
    const SearchLimits* limits; // of the search; they belong to the caller
    f64 start_time;             // when the search was taken over
    Shared<f64> elapsed;        // since start_time; workers may see it a millisecond late
    f64 target_time;            // what this move should cost
    f64 overhead_seconds;       // what a move may lose on its way to the clock
    Shared<u8> clock_side;      // side to move of the game: whose clock runs
};
extern SearchClock search_clock;

// What the time for a move hangs on besides the limits.
struct MoveTerms {
    i32 side;    // to move
    i32 plies;   // of the game so far
    i32 elo;     // that is played for; a weaker engine plays faster
    bool ponder; // the opponent's time will be used too
    bool counts; // a control of several moves is counted from the game, not told with each move
};

// Starts the clock of a search with the given limits and overhead (seconds).
void start_clock(const SearchLimits* limits, f64 overhead_seconds);

// Sets the time for a move: target_time. limits gets the moves to go and, where the time for a move
// is fixed, the mover's clock. The clock must have been started.
void set_target_time(SearchLimits* limits, const MoveTerms* terms);

// Sets elapsed to the monotonic clock minus start_time.
void update_elapsed();

// Refreshes elapsed and sets stop_code when the time for this move is used up. Does nothing more
// than refresh while the engine does not think on its own time, or before iteration 2.
void check_time();

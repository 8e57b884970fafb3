// What the running search, the main loop and the clock say to one another. All of it is read and
// written by several threads, one word at a time, and a look that comes a moment late does no harm.
// No word hands over other data but iter_depth, which is stored with release.
#pragma once

#include "fathom/tbprobe.h"
#include "search/thread.h"

// What the main loop is about. See think_loop.
enum class EngineState : u8 {
    Idle = 0,
    Start = 1,       // a search is to be started
    StartPonder = 2, // a pondering search is to be started
    Thinking = 3,    // a search runs or its end is awaited; the clock counts
    Pondering = 4,   // a search runs, unreported and off the clock
};

// Why a search is to end.
enum class StopCode : u8 {
    None = 0,
    Report = 1,     // end, report the result
    ReportGame = 2, // the same: no moves at the root, or the console changed the game
    Silent = 3,     // end, say nothing
    WorkersLeave = 99,
};

// Written by the dialogues and the main loop; the clock looks at it, as a pondering search has
// none.
extern Shared<EngineState> engine_state;

// None while a search may go on. Set by the dialogues, the clock and the search itself, read by
// every node; only end_search may be used where another reason must not be overwritten.
extern Shared<StopCode> stop_code;

// Iteration of worker 0, 0 before the first. Written by worker 0 alone; the clock and the other
// workers, which begin when it passes 1, read it.
extern Shared<i32> iter_depth;

// What searches are told besides their limits. Written by the main thread: the debug flag at any
// time, the rest between searches. Shared, since the console evaluates while they are written.
struct SearchSettings {
    Shared<i16> multi_pv;  // the option: the form of the lines
    TbDepths tb_depths;    // from which depth on endgame tables are asked
    Shared<u8> debug_flag; // the console's "set debug"
    bool ponder;           // option of this search: the opponent's time will be used
    u8 lines;              // of this search
};
extern SearchSettings search_settings;

// Sets stop_code while the search runs. A code that is set already stands, so that a silent end
// never turns into a report.
void end_search(StopCode code);

// The position and the limits of a tool's searches. Input is read while one runs, and what is typed
// for it must not change those that follow: each search is put between keep_setup and
// restore_setup. Options are not kept: a changed one holds for the searches that follow, as in a
// game.
#pragma once

#include "shell/dialogue.h"

// What a command may replace and the run needs again: the console's position and the limits.
struct SearchSetup {
    Position pos;
    u8 tc_moves;
    f64 tc_seconds;
    f64 tc_increment;
    i8 depth_limit;
    i64 node_limit_total;
};

// The position and the limits as they are now.
[[nodiscard]] SearchSetup keep_setup(const Dialogue* dialogue);

// Puts them back. The position stands at the start of a game then: the moves of a game that a
// command set up would count as repetitions. No worker may be searching.
void restore_setup(Dialogue* dialogue, const SearchSetup* setup);

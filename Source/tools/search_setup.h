// What the tools share about searching: input is read meanwhile, and what is typed for the search
// that runs must not change those that follow.
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
SearchSetup keep_setup(const Dialogue* dialogue);

// Puts them back. The position stands at the start of a game then. No worker may be searching.
void restore_setup(Dialogue* dialogue, const SearchSetup* setup);

// The main thread's loop: clock, input, starting searches, reporting results.
#pragma once

#include "shell/dialogue.h"

// Runs until dialogue->quit_flag is set.
void think_loop(Dialogue* dialogue);

// Reads at most one line and executes at most one command; never blocks. Also called by the
// offline tools while they wait for the workers.
void poll_input(Dialogue* dialogue);

// Tells check_time whose clock runs, by the console's position, and calls it.
void tick_clock(Dialogue* dialogue);

// Growth of the tree per iteration of the last search, from the node counts by depth.
f64 effective_branching();

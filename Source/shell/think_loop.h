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

// Ends a running search without a report and waits for the workers; the state is idle then.
// Does nothing while no worker is busy: a result that waits for its report stays.
void end_search_silently();

// Growth of the tree per iteration of the last search, from the node counts by depth.
f64 effective_branching();

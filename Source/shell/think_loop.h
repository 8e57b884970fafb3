// The main thread's loop: clock, input, starting searches, reporting results.
#pragma once

#include "shell/dialogue.h"

// Sets up the start position and runs until a "quit" of either dialogue sets dialogue->quit_flag.
// The end of input ends nothing: a search goes on to its result, and who closes the pipe without
// "quit" leaves the process waiting for a signal. Start-up must be complete.
void think_loop(Dialogue* dialogue);

// Takes at most one line of input in and executes at most one command; never blocks, but for the
// console's "edit" and the waits of commands for workers. Also called by the offline tools while
// they wait for the workers.
void poll_input(Dialogue* dialogue);

// Tells check_time whose clock runs, by the console's position, and calls it.
void tick_clock(Dialogue* dialogue);

// Growth of the tree per iteration of the last search, from the node counts by depth. A factor,
// about 2 in a search that prunes well; 2 where there were too few iterations.
f64 effective_branching();

// Games of the tuning program against itself: the raw material of new weights.
#pragma once

#include "shell/dialogue.h"

// Plays the games that selfplay_options ask for, as many at a time as the option Threads says, and
// writes them to their files. Sets exit_status to 1 if input was refused or something could not be
// written; what had been written by then stays. Main thread, no worker may be searching.
void run_selfplay(Dialogue* dialogue);

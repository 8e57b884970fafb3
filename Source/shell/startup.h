// Steps of start-up that are more than a call.
#pragma once

#include "shell/dialogue.h"

// Measures for 0.3 seconds how fast this machine does the work of an interior node, sets
// strength.calibration_nps and strength.estimated_elo from it and prints the figure. No worker may
// be searching.
void calibrate(Dialogue* dialogue);

// Makes the hash table and tells the user of its size. Returns whether there was the memory. No
// worker may be searching.
[[nodiscard]] bool make_hash_table(i32 megabytes);

// Registers the endgame tables of a path and tells the user how many there are. No worker may be
// searching.
void register_tables(const char* path);

// Steps of start-up that are more than a call: each does its work and tells the user of it.
#pragma once

#include "shell/dialogue.h"

// Measures for 0.3 seconds how fast this machine does the work of an interior node, sets
// strength.calibration_nps and strength.estimated_elo from it and prints the figure. Leaves the
// dialogue's game at the start position. No worker may be searching.
void calibrate(Dialogue* dialogue);

// Makes the hash table, in place of an older one, and tells the user of its size. Returns whether
// there was the memory; if not, there is no table, and standard error says so. No worker may be
// searching.
[[nodiscard]] bool make_hash_table(i32 megabytes);

// Registers the endgame tables of a path and tells the user how many there are; says nothing where
// the path names no folder. No worker may be searching.
void register_tables(const char* path);

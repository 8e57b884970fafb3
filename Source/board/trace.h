// The search trace: a tree of moves written to trace.txt, for searches on one thread.
#pragma once

#include "board/types.h"

struct Position;

// Writes move (0 for a null move), about to be made at pos, to the trace file if the thread's
// ply is at most trace_level. Opens the file at the first call and ends the process with
// status 0 if that fails. Called only while trace_level is not 0.
void trace_move(Position* pos, Move move);

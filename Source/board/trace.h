// The search trace: a tree of moves written to trace.txt, for searches on one thread.
#pragma once

#include "board/position.h"

// Deepest ply written to the trace file, 0 for none. Written by the console's word, read by every
// make_move: an argument would cost each move of a search what the trace of none is worth.
extern Shared<u8> trace_level;

// Writes move (0 for a null move), about to be made at pos, to the trace file if the stack's
// ply is at most trace_level. Opens the file at the first call and ends the process with
// status 0 if that fails. Called only while trace_level is not 0.
void trace_move(const Position* pos, Move move);

// Closes the file, if there is one, and says on standard error if some of it is missing, with
// exit_status 1. No thread may be searching.
void close_trace();

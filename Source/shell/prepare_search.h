// What happens before every search: strength limit, tables, reset, time for the move.
#pragma once

#include "shell/dialogue.h"

// Prepares a search of the dialogue's game within its limits, which get the moves to go and, where
// the time for a move is fixed, the mover's clock. No worker may be searching.
void prepare_search(Dialogue* dialogue);

// Rebuilds the tables of search and evaluation from the options. No worker may be searching.
void rebuild_search_tables(const Dialogue* dialogue);
void rebuild_weights(const Dialogue* dialogue);

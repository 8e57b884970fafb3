// What happens before every search: time for the move, strength limit, tables, reset.
#pragma once

#include "board/types.h"

// Prepares a search of the console's position. No worker may be searching.
void prepare_search();

// The Elo of a node rate: 144 ln(x) + 1014 - 3000 / (x + 1).
f64 elo_of_nps(f64 nps);

// Table files in memory: mapped whole at their first use, set up, and given back. An entry that is
// handed out is ready: its sections may be read without a lock until the next tb_init.
#pragma once

#include "fathom/tbtable.h"

struct TbPos;

// The entry of a position's material with its win/draw/loss file ready to be read, or null if there
// is none. key is the position's material key with white first. May be called by all workers. Tells
// the user, once, of a file that has gone or is damaged; ends the program with status 1 if there is
// no room in memory to map a file.
[[nodiscard]] TbEntry* tb_wdl_table(const TbPos* pos, u64 key);

// The same for the distance file; only a damaged one is told. Worker 0 only: the cache behind it
// has no lock. The entry stays valid until 64 other materials have been looked for.
[[nodiscard]] TbEntry* tb_dtz_table(const TbPos* pos, u64 key);

// Releases all distance tables. No worker may be searching.
void tb_clear_dtz_cache();

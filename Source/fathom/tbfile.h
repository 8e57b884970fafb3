// Table files in memory: mapped whole at their first use, set up, and given back.
#pragma once

#include "fathom/tbtable.h"

struct TbPos;

// The entry of a position's material with its win/draw/loss file ready to be read, or null if there
// is none. key is the position's material key with white first. May be called by all workers.
TbEntry* tb_wdl_table(const TbPos* pos, u64 key);

// The same for the distance file. Worker 0 only: the cache behind it has no lock.
TbEntry* tb_dtz_table(const TbPos* pos, u64 key);

// Unmaps an entry's file and frees its decoding records.
void tb_release(TbEntry* entry);

// Releases all distance tables.
void tb_clear_dtz_cache();

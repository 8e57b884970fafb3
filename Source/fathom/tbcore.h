// Endgame tables: finding the files and opening them.
#pragma once

#include "board/types.h"

extern i32 tb_largest;                  // greatest piece count of any table found, 0 without tables

// Registers the tables in the directories of path (separated by ':'); empty or "<empty>" means
// none. No worker may be searching.
void tb_init(const char* path);

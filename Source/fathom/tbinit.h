// Endgame tables: looking for them.
#pragma once

#include "board/types.h"

// Registers the tables in the directories of path (separated by ':') in place of those registered
// before. Returns how many there are, or -1 if path names no directories: it is empty or "<empty>".
// No worker may be searching. Ends the program with status 1 if a limit of the registry is passed.
i32 tb_init(const char* path);

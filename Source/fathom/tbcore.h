// Endgame tables: which there are. The directories of the path are searched once; a file is opened
// when a probe first needs it.
#pragma once

#include "board/types.h"

struct TbPos;
struct TbEntry;

extern i32 tb_largest; // greatest piece count of any table found, 0 without tables

// Registers the tables in the directories of path (separated by ':') in place of those registered
// before. Returns how many there are, or -1 if path names no directories: it is empty or "<empty>".
// No worker may be searching. Ends the program with status 1 if a limit of the registry is passed.
i32 tb_init(const char* path);

// The material key, with white or, if mirror is set, black as the first side. 0 for bare kings.
u64 tb_material_key(const TbPos* pos, bool mirror);

// Writes the material's table name into out (tb_name_size bytes), white's or, if mirror is set,
// black's pieces first: "KQvKR".
void tb_table_name(const TbPos* pos, char* out, bool mirror);

// Opens the file of a table in the first directory that has it; suffix with its dot. Returns the
// descriptor, or -1. A name that is no regular file counts as none.
i32 tb_open_file(const char* name, const char* suffix);

// The table of a material, whichever side is named first; null if there is none.
TbEntry* tb_lookup(u64 key);

// Forgets a table under this key, not under its mirrored one, so that it is not looked for again.
void tb_forget(u64 key);

// Enters one material by its table name, such as "KQvKR"; called by tb_init.
void tb_add_table(const char* name);

// Endgame tables: which there are. The directories of the path are searched once; a file is opened
// when a probe first needs it. So a set of many gigabytes costs nothing but a look for each name,
// and memory is taken by the tables alone that a game comes to.
//
// The registry is written by tb_init while no worker searches, and read by all workers after it.
// One thing changes in between: a table whose file turns out missing or damaged is forgotten.
#pragma once

#include "board/types.h"

struct TbPos;
struct TbEntry;

// Written by tb_init through tb_add_table while no worker searches, read by every probe.
extern i32 tb_largest; // greatest piece count of any table found, 0 without tables

inline constexpr i32 tb_path_size = 256; // a file's path with its NUL; longer ones are not opened

// The material key, with white or, if mirror is set, black as the first side. 0 for bare kings.
[[nodiscard]] u64 tb_material_key(const TbPos* pos, bool mirror);

// Writes the material's table name into out (tb_name_size bytes), white's or, if mirror is set,
// black's pieces first: "KQvKR".
void tb_table_name(const TbPos* pos, char* out, bool mirror);

// Opens the file of a table in the first directory that has it; suffix with its dot. Returns the
// descriptor, which the caller closes, or -1. A name that is no regular file counts as none.
[[nodiscard]] i32 tb_open_file(const char* name, const char* suffix);

// The table of a material, whichever side is named first; null if there is none. Takes no lock and
// may be called by all workers; the entry may not be ready yet.
[[nodiscard]] TbEntry* tb_lookup(u64 key);

// Forgets a table under this key, not under its mirrored one, so that it is not looked for again.
// Any worker may do so while others look up: they find the table or no table.
void tb_forget(u64 key);

// Empties the registry and forgets the directories. No worker may be searching.
void tb_clear_registry();

// Sets the directories to those of path, separated by ':'. Returns false without memory.
[[nodiscard]] bool tb_set_paths(const char* path);

// How many materials are registered.
[[nodiscard]] i32 tb_table_count();

// Sets the fields of an entry that follow from its material, by the table name: key, num,
// symmetric, has_pawns, enc_type, pawns and count.
void tb_set_material(TbEntry* entry, const char* name);

// Enters one material by its table name, such as "KQvKR"; called by tb_init.
void tb_add_table(const char* name);

// Which endgame tables there are in the folders of a path, and whether their files are whole.
#pragma once

#include "base/types.h"
#include "fathom/tbheader.h"
#include "fathom/tbtable.h"

inline constexpr i32 fewest_table_pieces = 3;
inline constexpr i32 most_table_pieces = tb_max_pieces; // that the engine reads
inline constexpr i32 table_name_size = 24;              // "KQRBvKNP.rtbw" with its NUL, and more
inline constexpr i32 shown_tables = 5;                  // names that are kept of each list

// Names of some files out of a number of them, with the reason where there is one.
struct TableList {
    i32 count;
    char names[shown_tables][table_name_size];
    char reasons[shown_tables][64];
};

// Files of one kind and number of pieces.
struct TableCount {
    i32 wanted; // materials
    i32 found;
    u64 bytes;
    TableList missing;
};

struct TableCheck {
    TableCount counts[most_table_pieces + 1][tb_kinds]; // by pieces
    TableList broken;                                   // files that are there and cannot be used
    i32 others; // names that end as a table's and that the engine does not look for
    char other[table_name_size];
};

// What one folder of a path is.
enum class FolderKind : u8 { Readable, Missing, NoFolder, Closed };
[[nodiscard]] FolderKind look_at_folder(const char* folder);

// Fills check for the folders of path, separated by ':'. A table counts where the first folder has
// it whose file can be used.
void check_tables(const char* path, TableCheck* check);

// The next folder of a path, copied into folder; path moves behind it. False at the end. Folders
// without a name are passed over.
[[nodiscard]] bool next_folder(const char** path, char* folder, size_t size);

// A folder below this one that holds tables; false if there is none.
[[nodiscard]] bool find_folder_with_tables(const char* folder, char* found, size_t size);

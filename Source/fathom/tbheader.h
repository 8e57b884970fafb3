// The header of a Syzygy table file: from mapped bytes to the sections of an entry. What passes
// here may be read by any index below a section's table_size without leaving the mapping.
#pragma once

#include "fathom/tbtable.h"

// The two files of a table.
enum TbKind : i32 {
    TbWdlFile, // win, draw, loss: a section for each side to move
    TbDtzFile, // distances: a section for one side to move
};

// Sets up all sections of an entry whose file is mapped (data null: an empty file). Returns false
// if the file is of another kind or shape, or if its length is not what the header promises, or if
// there is no memory; the records made so far stay in the entry, for tb_release to free.
[[nodiscard]] bool tb_read_header(TbEntry* entry, TbKind kind);

// Giving back what a table's record holds.
#include "fathom/tbtable.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>

// Success is what is reported: an unmapping that fails has left nothing to tell.
static void unmap_file(TbEntry* entry)
{
    errno = 0;
    if (entry->data != nullptr && munmap(const_cast<u8*>(entry->data), entry->mapping_size) == 0) {
        perror("munmap");
    }
    entry->data = nullptr;
}

// A damaged header may have left some sections without a record; free takes null.
static void free_records(TbEntry* entry)
{
    const i32 files = entry->has_pawns ? tb_pawn_files : 1;
    for (i32 file = 0; file < files; ++file) {
        for (i32 side = 0; side < 2; ++side) {
            TbSection* section = tb_section(entry, file, side);
            free(section->pairs);
            section->pairs = nullptr;
        }
    }
}

// ready goes first, though nobody may be reading: what is not ready is never looked into.
void tb_release(TbEntry* entry)
{
    store(entry->ready, 0);
    unmap_file(entry);
    free_records(entry);
}

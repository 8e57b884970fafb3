// Giving back what a table's record holds.
#include "fathom/tbtable.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sys/mman.h>

constinit bool tb_quiet = false;

// Success is what is reported: an unmapping that fails has left nothing to tell.
static void unmap_file(TbEntry* entry)
{
    errno = 0;
    if (entry->data != nullptr && munmap(const_cast<u8*>(entry->data), entry->mapping_size) == 0
        && !tb_quiet) {
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

TbEntry* tb_new_entry(bool has_pawns)
{
    TbEntry* entry = nullptr;
    if (has_pawns) {
        TbEntryPawn* pawn_entry = new (std::nothrow) TbEntryPawn {};
        entry = pawn_entry != nullptr ? &pawn_entry->head : nullptr;
    } else {
        TbEntryPiece* piece_entry = new (std::nothrow) TbEntryPiece {};
        entry = piece_entry != nullptr ? &piece_entry->head : nullptr;
    }
    if (entry != nullptr) {
        entry->has_pawns = has_pawns;
    }
    return entry;
}

void tb_delete_entry(TbEntry* entry)
{
    if (entry == nullptr) {
        return;
    }
    tb_release(entry);
    if (entry->has_pawns) {
        delete reinterpret_cast<TbEntryPawn*>(entry);
    } else {
        delete reinterpret_cast<TbEntryPiece*>(entry);
    }
}

// Table files in memory. A win/draw/loss file stays mapped from its first use until the next
// tb_init; of the distance files at most 64 are mapped at a time. Somebody who cuts a file short
// while it is mapped ends the program: a read behind the new end is a bus error. To write over it
// may do so too, as what was checked when it was mapped holds no more.
#include "fathom/tbfile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fathom/tbcore.h"
#include "fathom/tbheader.h"
#include "fathom/tbmoves.h"

static constexpr i32 dtz_cache_size = 64;
static constexpr const char* suffixes[2] = { ".rtbw", ".rtbz" };

struct DtzSlot {
    u64 key[2];     // the material as probed, and with the sides exchanged
    TbEntry* entry; // null if there is no file; ready 0 if it is damaged
};

static constinit std::mutex tb_mutex;                    // the first use of a win/draw/loss file
static constinit DtzSlot dtz_cache[dtz_cache_size] = {}; // in the order of use

// ---- One file

// Maps the file behind descriptor, and closes it. An empty file leaves data null: it cannot be
// mapped. Returns false if the file cannot be looked at.
static bool map_file(TbEntry* entry, i32 descriptor, const char* name)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        perror("fstat");
        close(descriptor);
        return false;
    }
    entry->mapping_size = static_cast<u64>(status.st_size);
    if (entry->mapping_size != 0) {
        void* data = mmap(nullptr, entry->mapping_size, PROT_READ, MAP_SHARED, descriptor, 0);
        if (data == MAP_FAILED) {
            fprintf(stderr, "Could not mmap() %s.\n", name);
            exit(1);
        }
        entry->data = static_cast<const u8*>(data);
    }
    close(descriptor);
    return true;
}

// Success is what is reported: an unmapping that fails has left nothing to tell.
static void unmap_file(TbEntry* entry)
{
    errno = 0;
    if (entry->data != nullptr && munmap(const_cast<u8*>(entry->data), entry->mapping_size) == 0) {
        perror("munmap");
    }
    entry->data = nullptr;
}

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

void tb_release(TbEntry* entry)
{
    store(entry->ready, 0);
    unmap_file(entry);
    free_records(entry);
}

// Maps and sets up the file of an entry. Returns 1, 0 if there is no such file, or -1 after telling
// so if it is damaged; it stays mapped then.
static i32 open_table(TbEntry* entry, TbKind kind, const char* name)
{
    const i32 descriptor = tb_open_file(name, suffixes[kind]);
    if (descriptor < 0) {
        if (kind == TbWdl) {
            fprintf(stderr, "Could not find %s.rtbw\n", name);
        }
        return 0;
    }
    if (!map_file(entry, descriptor, name)) {
        return 0;
    }
    if (!tb_read_header(entry, kind)) {
        fputs("Corrupted table.\n", stderr);
        return -1;
    }
    return 1;
}

// ---- Win, draw, loss

TbEntry* tb_wdl_table(const TbPos* pos, u64 key)
{
    TbEntry* entry = tb_lookup(key);
    if (entry == nullptr || load_acquire(entry->ready)) {
        return entry;
    }
    const std::lock_guard<std::mutex> guard(tb_mutex);
    if (!load(entry->ready) && tb_lookup(key) == entry) {
        char name[tb_name_size];
        tb_table_name(pos, name, key != entry->key);
        if (open_table(entry, TbWdl, name) == 1) {
            store_release(entry->ready, 1);
        } else {
            tb_release(entry);
            tb_forget(key);
        }
    }
    return load(entry->ready) ? entry : nullptr;
}

// ---- Distances

// An empty entry of the same material; null if there is no memory.
static TbEntry* new_dtz_entry(const TbEntry* wdl)
{
    TbEntry* entry = nullptr;
    if (wdl->has_pawns) {
        TbEntryPawn* pawn_entry = new (std::nothrow) TbEntryPawn {};
        entry = pawn_entry != nullptr ? &pawn_entry->head : nullptr;
    } else {
        TbEntryPiece* piece_entry = new (std::nothrow) TbEntryPiece {};
        entry = piece_entry != nullptr ? &piece_entry->head : nullptr;
    }
    if (entry != nullptr) {
        entry->key = wdl->key;
        entry->num = wdl->num;
        entry->symmetric = wdl->symmetric;
        entry->has_pawns = wdl->has_pawns;
        entry->enc_type = wdl->enc_type;
        std::copy_n(wdl->pawns, 2, entry->pawns);
        std::copy_n(wdl->count, 16, entry->count);
    }
    return entry;
}

static void delete_dtz_entry(TbEntry* entry)
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

void tb_clear_dtz_cache()
{
    for (DtzSlot& slot : dtz_cache) {
        delete_dtz_entry(slot.entry);
        slot = {};
    }
}

// Brings the slot of a material to the front. Returns false if it has none. Only the front slot is
// known by both its keys.
static bool find_in_cache(u64 key)
{
    if (dtz_cache[0].key[0] == key || dtz_cache[0].key[1] == key) {
        return true;
    }
    for (i32 i = 1; i < dtz_cache_size; ++i) {
        if (dtz_cache[i].key[0] == key) {
            std::rotate(dtz_cache, dtz_cache + i, dtz_cache + i + 1);
            return true;
        }
    }
    return false;
}

// Gives the front slot to a new material and opens its file. A slot without a file keeps it from
// being looked for at every probe.
static void add_to_cache(const TbPos* pos, u64 key, const TbEntry* wdl)
{
    delete_dtz_entry(dtz_cache[dtz_cache_size - 1].entry);
    std::rotate(dtz_cache, dtz_cache + dtz_cache_size - 1, dtz_cache + dtz_cache_size);
    DtzSlot* slot = &dtz_cache[0];
    *slot = { { key, tb_material_key(pos, true) }, nullptr };
    TbEntry* entry = new_dtz_entry(wdl);
    if (entry == nullptr) {
        return;
    }
    char name[tb_name_size];
    tb_table_name(pos, name, key != wdl->key);
    const i32 opened = open_table(entry, TbDtz, name);
    if (opened == 0) {
        delete_dtz_entry(entry);
        return;
    }
    store(entry->ready, opened == 1);
    slot->entry = entry;
}

TbEntry* tb_dtz_table(const TbPos* pos, u64 key)
{
    if (!find_in_cache(key)) {
        const TbEntry* wdl = tb_lookup(key);
        if (wdl == nullptr) {
            return nullptr;
        }
        add_to_cache(pos, key, wdl);
    }
    TbEntry* entry = dtz_cache[0].entry;
    return entry != nullptr && load(entry->ready) ? entry : nullptr;
}

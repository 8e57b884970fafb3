// Table files in memory. A win/draw/loss file stays mapped from its first use until the next
// tb_init; of the distance files at most 64 are mapped at a time. Somebody who cuts a file short
// while it is mapped ends the program: a read behind the new end is a bus error. To write over it
// may do so too, as what was checked when it was mapped holds no more.
//
// Who may do what: the lock is held from looking at a closed win/draw/loss file until it is ready
// or given up, so each is opened by one worker. What that worker wrote is handed over by storing
// ready last, with release; a worker that loads it set, with acquire, sees all of it and needs no
// lock any more. The cache of distance files is worker 0's own.
//
// Errors are told here, on standard error: a probe deep in the search can only answer "no value",
// and nobody above it could say why any more. The dialogue on standard output stays untouched.
#include "fathom/tbfile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fathom/tbcore.h"
#include "fathom/tbheader.h"
#include "fathom/tbmoves.h"

// Distance files are asked at the root alone and for the root's own material alone: of what a
// capture or a pawn's move leads to only the result is asked. So many hold what several games come
// to.
static constexpr i32 dtz_cache_size = 64;

// What is known of one material's distance file. An empty slot has the key of bare kings, which are
// a draw before anybody asks for a distance.
struct DtzSlot {
    u64 key[2];     // the material as probed, and with the sides exchanged
    TbEntry* entry; // null if there is no file; ready 0 if it is damaged
};

// The first use of a win/draw/loss file. A mutex, not the spin lock: mapping and checking a file
// may take milliseconds, in which waiters had better sleep.
static constinit std::mutex tb_mutex;
static constinit DtzSlot dtz_cache[dtz_cache_size] = {}; // in the order of use

// ---- One file

// Maps the file behind descriptor, and closes it: the mapping holds the file by itself. An empty
// file leaves data null: it cannot be mapped, and the header's reader refuses it. Returns false if
// the file cannot be looked at.
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
        // The address space is used up, by this table or another. The program ends here, at once:
        // going on without the table would change the play in the midst of a game unnoticed, and
        // a worker has nobody to hand such an error to.
        if (data == MAP_FAILED) {
            fprintf(stderr, "Could not mmap() %s.\n", name);
            exit(1);
        }
        entry->data = static_cast<const u8*>(data);
    }
    close(descriptor);
    return true;
}

enum class Opened : u8 { No, Damaged, Yes };

// Maps and sets up the file of an entry. A damaged file stays mapped; the user has been told then.
// That a distance file is missing is no news: sets without them are common, and every file of the
// other kind was there when the path was searched.
static Opened open_table(TbEntry* entry, TbKind kind, const char* name)
{
    const i32 descriptor = tb_open_file(name, tb_suffixes[kind]);
    if (descriptor < 0) {
        if (kind == TbWdlFile && !tb_quiet) {
            fprintf(stderr, "Could not find %s%s\n", name, tb_suffixes[kind]);
        }
        return Opened::No;
    }
    if (!map_file(entry, descriptor, name)) {
        return Opened::No;
    }
    if (!tb_read_header(entry, kind)) {
        if (!tb_quiet) {
            fputs("Corrupted table.\n", stderr);
        }
        return Opened::Damaged;
    }
    return Opened::Yes;
}

// ---- Win, draw, loss

TbEntry* tb_wdl_table(const TbPos* pos, u64 key)
{
    TbEntry* entry = tb_lookup(key);
    if (entry == nullptr || load_acquire(entry->ready)) {
        return entry;
    }
    const std::lock_guard<std::mutex> guard(tb_mutex);
    // While this worker waited for the lock another may have opened the file, or have found it
    // missing and forgotten it: looking again keeps it from being told twice.
    if (!load(entry->ready) && tb_lookup(key) == entry) {
        char name[tb_name_size];
        tb_table_name(pos, name, key != entry->key);
        if (open_table(entry, TbWdlFile, name) == Opened::Yes) {
            store_release(entry->ready, 1);
        } else {
            // The mirrored key still finds the entry, closed: a probe from that side tries again.
            tb_release(entry);
            tb_forget(key);
        }
    }
    return load(entry->ready) ? entry : nullptr;
}

// ---- Distances

// An empty entry of the same material; null if there is no memory. The registry's entry cannot be
// used for both files: its sections are the win/draw/loss file's.
static TbEntry* new_dtz_entry(const TbEntry* wdl)
{
    TbEntry* entry = tb_new_entry(wdl->has_pawns != 0);
    if (entry != nullptr) {
        entry->key = wdl->key;
        entry->num = wdl->num;
        entry->symmetric = wdl->symmetric;
        entry->enc_type = wdl->enc_type;
        std::copy_n(wdl->pawns, 2, entry->pawns);
        std::copy_n(wdl->count, tb_code_count, entry->count);
    }
    return entry;
}

void tb_clear_dtz_cache()
{
    for (DtzSlot& slot : dtz_cache) {
        tb_delete_entry(slot.entry);
        slot = {};
    }
}

// Brings the slot of a material to the front. Returns false if it has none. Only the front slot is
// known by both its keys. A material that comes up again with exchanged colours, after others, gets
// a second slot, and its file a second mapping; that costs a slot and no answer.
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
    // The hindmost slot is the one whose last use lies longest back.
    tb_delete_entry(dtz_cache[dtz_cache_size - 1].entry);
    std::rotate(dtz_cache, dtz_cache + dtz_cache_size - 1, dtz_cache + dtz_cache_size);
    DtzSlot* slot = &dtz_cache[0];
    *slot = { { key, tb_material_key(pos, true) }, nullptr };
    TbEntry* entry = new_dtz_entry(wdl);
    if (entry == nullptr) {
        return;
    }
    char name[tb_name_size];
    tb_table_name(pos, name, key != wdl->key);
    const Opened opened = open_table(entry, TbDtzFile, name);
    if (opened == Opened::No) {
        tb_delete_entry(entry);
        return;
    }
    // One worker writes and reads this, so a plain store will do.
    store(entry->ready, opened == Opened::Yes);
    slot->entry = entry;
}

TbEntry* tb_dtz_table(const TbPos* pos, u64 key)
{
    if (!find_in_cache(key)) {
        // Distances follow from results, and the new entry's fields are those of the registry's.
        const TbEntry* wdl = tb_lookup(key);
        if (wdl == nullptr) {
            return nullptr;
        }
        add_to_cache(pos, key, wdl);
    }
    TbEntry* entry = dtz_cache[0].entry;
    return entry != nullptr && load(entry->ready) ? entry : nullptr;
}

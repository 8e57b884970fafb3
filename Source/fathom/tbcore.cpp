// The registry of endgame tables: a pool of entries, and a hash from material key to entry.
#include "fathom/tbcore.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fathom/tbfile.h"
#include "fathom/tbmoves.h"
#include "fathom/tbtable.h"

static constexpr i32 TBMAX_PIECE = 254;
static constexpr i32 TBMAX_PAWN = 256;
static constexpr i32 HSHMAX = 5;
static constexpr i32 hash_bits = 10;
static constexpr i32 path_size = 256;

struct TbHashSlot {
    Shared<u64> key; // 0 when the table has been forgotten
    TbEntry* entry;  // null in a free slot
};

constinit i32 tb_largest = 0;
static constinit TbEntryPiece tb_pieces[TBMAX_PIECE] = {};
static constinit TbEntryPawn tb_pawns[TBMAX_PAWN] = {};
static constinit i32 tb_piece_count = 0;
static constinit i32 tb_pawn_count = 0;
static constinit TbHashSlot tb_hash[1 << hash_bits][HSHMAX] = {};
static constinit char* path_copy = nullptr; // cut into the directories
static constinit const char** tb_paths = nullptr;
static constinit i32 tb_path_count = 0;

// The letters of a name in their order, and what one piece adds to the key, by side.
static constexpr struct {
    char letter;
    i32 type;
    u64 key[2];
} kinds[] = {
    { 'Q', Queen, { 0xa3ec1abc71e90863, 0xd6e4e47d24962951 } },
    { 'R', Rook, { 0x985deb9fc49333f9, 0xfd7866b439b94495 } },
    { 'B', Bishop, { 0xaadc1a2be446234d, 0xd5a4c95928f2fbe3 } },
    { 'N', Knight, { 0xd2fb81862830191f, 0xbaeb854cd3259441 } },
    { 'P', Pawn, { 0xec0ade190c0f6003, 0xa24f0f571bb202e7 } },
};
static constexpr i32 kind_count = 5;

// ---- Material

u64 tb_material_key(const TbPos* pos, bool mirror)
{
    u64 key = 0;
    for (const auto& kind : kinds) {
        const i32 white = popcount(tb_pieces_of(pos, kind.type, 1));
        const i32 black = popcount(tb_pieces_of(pos, kind.type, 0));
        key += static_cast<u64>(white) * kind.key[mirror]
            + static_cast<u64>(black) * kind.key[!mirror];
    }
    return key;
}

static char* append_letters(const TbPos* pos, i32 white, char* out, const char* end)
{
    *out++ = 'K';
    for (const auto& kind : kinds) {
        for (i32 n = popcount(tb_pieces_of(pos, kind.type, white)); n > 0 && out < end; --n) {
            *out++ = kind.letter;
        }
    }
    return out;
}

void tb_table_name(const TbPos* pos, char* out, bool mirror)
{
    // A board of more pieces than a name has room for has no table: what is cut does not matter.
    const char* end = out + tb_name_size - 3;
    out = append_letters(pos, !mirror, out, end);
    *out++ = 'v';
    out = append_letters(pos, mirror, out, end);
    *out = '\0';
}

// ---- Lookup

static TbHashSlot* find_slot(u64 key)
{
    TbHashSlot* bucket = tb_hash[key >> (64 - hash_bits)];
    for (i32 i = 0; i < HSHMAX; ++i) {
        if (bucket[i].entry != nullptr && load(bucket[i].key) == key) {
            return &bucket[i];
        }
    }
    return nullptr;
}

TbEntry* tb_lookup(u64 key)
{
    const TbHashSlot* slot = find_slot(key);
    return slot != nullptr ? slot->entry : nullptr;
}

void tb_forget(u64 key)
{
    TbHashSlot* slot = find_slot(key);
    if (slot != nullptr) {
        store(slot->key, 0);
    }
}

// ---- Entering tables

[[noreturn]] static void limit_passed(const char* limit)
{
    fprintf(stderr, "%s too low!\n", limit);
    exit(1);
}

static void enter_key(u64 key, TbEntry* entry)
{
    TbHashSlot* bucket = tb_hash[key >> (64 - hash_bits)];
    for (i32 i = 0; i < HSHMAX; ++i) {
        if (bucket[i].entry == nullptr) {
            store(bucket[i].key, key);
            bucket[i].entry = entry;
            return;
        }
    }
    limit_passed("HSHMAX");
}

// Counts the pieces of a name by code, the side named second with 8 added.
static void count_pieces(const char* name, u8* count)
{
    i32 second = 0;
    for (; *name != '\0'; ++name) {
        if (*name == 'v') {
            second = 8;
        } else if (*name == 'K') {
            ++count[King + second];
        }
        for (const auto& kind : kinds) {
            if (*name == kind.letter) {
                ++count[kind.type + second];
            }
        }
    }
}

static u64 key_of_counts(const u8* count, bool mirror)
{
    u64 key = 0;
    for (const auto& kind : kinds) {
        key += count[kind.type] * kind.key[mirror] + count[kind.type + 8] * kind.key[!mirror];
    }
    return key;
}

// With three single pieces these lead the index, with two the kings do.
static u8 encoding_of(const u8* count)
{
    i32 single = 0;
    u8 smallest = 16;
    for (i32 code = 0; code < 16; ++code) {
        single += count[code] == 1;
        if (count[code] >= 2) {
            smallest = std::min(smallest, count[code]);
        }
    }
    return single >= 3 ? 0 : single == 2 ? 2 : static_cast<u8>(smallest + 1);
}

// The pawns of the leading side first: the one with fewer, if it has any.
static void order_pawns(TbEntry* entry)
{
    u8* pawns = entry->pawns;
    pawns[0] = entry->count[Pawn];
    pawns[1] = entry->count[Pawn + 8];
    if (pawns[1] > 0 && (pawns[0] == 0 || pawns[0] > pawns[1])) {
        std::swap(pawns[0], pawns[1]);
    }
}

static TbEntry* new_entry(bool has_pawns)
{
    if (has_pawns) {
        if (tb_pawn_count == TBMAX_PAWN) {
            limit_passed("TBMAX_PAWN limit");
        }
        return &tb_pawns[tb_pawn_count++].head;
    }
    if (tb_piece_count == TBMAX_PIECE) {
        limit_passed("TBMAX_PIECE limit");
    }
    return &tb_pieces[tb_piece_count++].head;
}

void tb_add_table(const char* name)
{
    u8 count[16] = {};
    count_pieces(name, count);
    const u64 key = key_of_counts(count, false);
    const u64 mirrored = key_of_counts(count, true);
    TbEntry* entry = new_entry(count[Pawn] + count[Pawn + 8] != 0);
    entry->has_pawns = count[Pawn] + count[Pawn + 8] != 0;
    entry->data = nullptr;
    entry->mapping_size = 0;
    entry->key = key;
    entry->symmetric = key == mirrored;
    store(entry->ready, 0);
    entry->num = 0;
    for (i32 code = 0; code < 16; ++code) {
        entry->count[code] = count[code];
        entry->num = static_cast<u8>(entry->num + count[code]);
    }
    tb_largest = std::max<i32>(tb_largest, entry->num);
    if (entry->has_pawns) {
        order_pawns(entry);
    } else {
        entry->enc_type = encoding_of(count);
    }
    enter_key(key, entry);
    if (mirrored != key) {
        enter_key(mirrored, entry);
    }
}

// ---- Finding files

i32 tb_open_file(const char* name, const char* suffix)
{
    for (i32 i = 0; i < tb_path_count; ++i) {
        char path[path_size];
        const i32 length = snprintf(path, sizeof path, "%s/%s%s", tb_paths[i], name, suffix);
        if (length >= path_size) {
            return -1;
        }
        // O_NONBLOCK: opening a pipe would wait for its writer.
        const i32 descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat status;
        if (descriptor < 0) {
            continue;
        }
        if (fstat(descriptor, &status) != 0 || S_ISREG(status.st_mode)) {
            return descriptor;
        }
        close(descriptor);
    }
    return -1;
}

// Cuts a copy of path into tb_paths. Returns false if there is no memory.
static bool set_paths(const char* path)
{
    const size_t length = strlen(path);
    path_copy = static_cast<char*>(malloc(length + 1));
    tb_paths = static_cast<const char**>(malloc((length / 2 + 1) * sizeof *tb_paths));
    if (path_copy == nullptr || tb_paths == nullptr) {
        return false;
    }
    memcpy(path_copy, path, length + 1);
    char* rest = path_copy;
    for (char* part = strtok_r(rest, ":", &rest); part != nullptr;
         part = strtok_r(nullptr, ":", &rest)) {
        tb_paths[tb_path_count++] = part;
    }
    return true;
}

// Frees what the last call held and empties the registry, so that nothing freed is probed again.
static void clear_registry()
{
    free(path_copy);
    free(tb_paths);
    path_copy = nullptr;
    tb_paths = nullptr;
    tb_path_count = 0;
    for (; tb_piece_count > 0; --tb_piece_count) {
        tb_release(&tb_pieces[tb_piece_count - 1].head);
    }
    for (; tb_pawn_count > 0; --tb_pawn_count) {
        tb_release(&tb_pawns[tb_pawn_count - 1].head);
    }
    tb_clear_dtz_cache();
    tb_largest = 0;
    for (TbHashSlot(&bucket)[HSHMAX] : tb_hash) {
        for (TbHashSlot& slot : bucket) {
            store(slot.key, 0);
            slot.entry = nullptr;
        }
    }
}

// ---- All materials

// How many pieces each side has besides the king, in the order of search.
static constexpr i32 group_sizes[][2] = { { 1, 0 }, { 1, 1 }, { 2, 0 }, { 2, 1 }, { 3, 0 },
    { 2, 2 }, { 3, 1 }, { 4, 0 } };

// Moves on to the next group of letters in nondecreasing order of kinds; false after the last.
static bool next_group(i32* group, i32 size)
{
    for (i32 i = size - 1; i >= 0; --i) {
        if (group[i] + 1 < kind_count) {
            std::fill(group + i, group + size, group[i] + 1);
            return true;
        }
    }
    return false;
}

static void add_if_found(const i32* first, i32 first_size, const i32* second, i32 second_size)
{
    char name[tb_name_size];
    char* out = name;
    *out++ = 'K';
    for (i32 i = 0; i < first_size; ++i) {
        *out++ = kinds[first[i]].letter;
    }
    *out++ = 'v';
    *out++ = 'K';
    for (i32 i = 0; i < second_size; ++i) {
        *out++ = kinds[second[i]].letter;
    }
    *out = '\0';
    const i32 descriptor = tb_open_file(name, ".rtbw");
    if (descriptor >= 0) {
        close(descriptor);
        tb_add_table(name);
    }
}

// Of two names with as many pieces on both sides only the one is tried whose first group does not
// come behind the second.
static void add_tables(i32 first_size, i32 second_size)
{
    i32 first[tb_max_pieces] = {};
    do {
        i32 second[tb_max_pieces] = {};
        if (first_size == second_size) {
            std::copy_n(first, first_size, second);
        }
        do {
            add_if_found(first, first_size, second, second_size);
        } while (next_group(second, second_size));
    } while (next_group(first, first_size));
}

i32 tb_init(const char* path)
{
    clear_registry();
    if (path[0] == '\0' || strcmp(path, "<empty>") == 0 || !set_paths(path)) {
        return -1;
    }
    for (const auto& sizes : group_sizes) {
        add_tables(sizes[0], sizes[1]);
    }
    return tb_piece_count + tb_pawn_count;
}

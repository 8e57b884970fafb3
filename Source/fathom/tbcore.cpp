// The registry of endgame tables: a pool of entries, and a hash from material key to entry. All of
// it is static: a probe that holds an entry's address holds a valid one, and what tb_init frees are
// only the mapped files and their decoding records.
#include "fathom/tbcore.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <span>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "fathom/tbmoves.h"
#include "fathom/tbtable.h"

// All materials of 3 to 6 pieces: 4 + 20 + 60 + 170 without pawns, 1 + 10 + 50 + 195 with them.
static constexpr i32 max_piece_tables = 254;
static constexpr i32 max_pawn_tables = 256;

static constexpr i32 hash_bits = 10;
static constexpr i32 bucket_size = 5; // slots for keys of the same hash_bits highest bits

// The key is atomic because a worker may forget a table while others look tables up. The entry is
// not: it changes in tb_init alone. So a slot once taken stays taken, forgotten or not.
struct TbHashSlot {
    Shared<u64> key; // 0 when the table has been forgotten
    TbEntry* entry;  // null in a free slot
};

constinit i32 tb_largest = 0;
static constinit TbEntryPiece tb_pieces[max_piece_tables] = {};
static constinit TbEntryPawn tb_pawns[max_pawn_tables] = {};
static constinit i32 tb_piece_count = 0;
static constinit i32 tb_pawn_count = 0;
static constinit TbHashSlot tb_hash[1 << hash_bits][bucket_size] = {};
static constinit char* path_copy = nullptr; // cut into the directories
static constinit const char** tb_paths = nullptr;
static constinit i32 tb_path_count = 0;

// The letters of a name in their order, and what one piece adds to the key, by side. A key is the
// sum over all pieces but the kings, so it needs no board, and adding up counts gives the same as
// adding up pieces. The values are random but fixed: a drawn root's move is chosen by such a key,
// and the same position must get the same move in every run.
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

// Writes one side's letters, its king first, as far as end. Returns where the next one goes.
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
    // Behind the letters there must be room for the 'v', the second king and the NUL.
    const char* end = out + tb_name_size - 3;
    out = append_letters(pos, !mirror, out, end);
    *out++ = 'v';
    out = append_letters(pos, mirror, out, end);
    *out = '\0';
}

// ---- Lookup

using TbBucket = TbHashSlot[bucket_size];

static TbBucket& bucket_of(u64 key)
{
    return tb_hash[key >> (64 - hash_bits)];
}

// The whole bucket is looked through: behind a forgotten slot others may still be in use. A free
// slot and a forgotten one have key 0, which no table has: it is that of bare kings.
static TbHashSlot* find_slot(u64 key)
{
    for (TbHashSlot& slot : bucket_of(key)) {
        if (slot.entry != nullptr && load(slot.key) == key) {
            return &slot;
        }
    }
    return nullptr;
}

TbEntry* tb_lookup(u64 key)
{
    const TbHashSlot* slot = find_slot(key);
    return slot != nullptr ? slot->entry : nullptr;
}

// The entry stays in the slot, which is thereby not free for another key.
void tb_forget(u64 key)
{
    TbHashSlot* slot = find_slot(key);
    if (slot != nullptr) {
        store(slot->key, 0);
    }
}

// ---- Entering tables

// The pools have room for every material, and the keys' values let all of them into the buckets, so
// tb_init never comes here. Only a change to this file does: a material entered twice, a kind of
// piece or a piece count more, other keys. Such a program must not play on with some of its tables,
// and there is nothing that a caller could do about it: it ends here, before any search. The words
// of the messages are fixed: scripts may look for them.
[[noreturn]] static void limit_passed(const char* limit)
{
    fprintf(stderr, "%s too low!\n", limit);
    exit(1);
}

static void enter_key(u64 key, TbEntry* entry)
{
    for (TbHashSlot& slot : bucket_of(key)) {
        if (slot.entry == nullptr) {
            store(slot.key, key);
            slot.entry = entry;
            return;
        }
    }
    limit_passed("HSHMAX");
}

// Pieces of a material by code, the side named first as White.
using PieceCounts = std::span<u8, tb_code_count>;
using ConstPieceCounts = std::span<const u8, tb_code_count>;

static void count_pieces(std::string_view name, PieceCounts count)
{
    i32 side = White;
    for (const char letter : name) {
        if (letter == 'v') {
            side = Black;
        } else if (letter == 'K') {
            ++count[static_cast<size_t>(piece_code(side, King))];
        }
        for (const auto& kind : kinds) {
            if (letter == kind.letter) {
                ++count[static_cast<size_t>(piece_code(side, kind.type))];
            }
        }
    }
}

static u64 key_of_counts(ConstPieceCounts count, bool mirror)
{
    u64 key = 0;
    for (const auto& kind : kinds) {
        key += count[static_cast<size_t>(piece_code(White, kind.type))] * kind.key[mirror]
            + count[static_cast<size_t>(piece_code(Black, kind.type))] * kind.key[!mirror];
    }
    return key;
}

// Both kings are always single, so there are two single pieces at least.
static TbEncoding encoding_of(ConstPieceCounts count)
{
    return std::count(count.begin(), count.end(), 1) >= 3 ? LeadThreeSingle : LeadKings;
}

// The pawns of the leading side first: by the format the one with fewer pawns, if it has any, and
// with as many on both sides the one named first.
static void order_pawns(TbEntry* entry)
{
    u8* pawns = entry->pawns;
    pawns[0] = entry->count[piece_code(White, Pawn)];
    pawns[1] = entry->count[piece_code(Black, Pawn)];
    if (pawns[1] > 0 && (pawns[0] == 0 || pawns[0] > pawns[1])) {
        std::swap(pawns[0], pawns[1]);
    }
}

// Takes a record out of the pool of its kind: those with pawns are about four times as large.
static TbEntry* new_entry(bool has_pawns)
{
    if (has_pawns) {
        if (tb_pawn_count == max_pawn_tables) {
            limit_passed("TBMAX_PAWN limit");
        }
        return &tb_pawns[tb_pawn_count++].head;
    }
    if (tb_piece_count == max_piece_tables) {
        limit_passed("TBMAX_PIECE limit");
    }
    return &tb_pieces[tb_piece_count++].head;
}

void tb_set_material(TbEntry* entry, const char* name)
{
    u8 count[tb_code_count] = {};
    count_pieces(name, count);
    entry->has_pawns = count[piece_code(White, Pawn)] + count[piece_code(Black, Pawn)] != 0;
    entry->key = key_of_counts(count, false);
    entry->symmetric = entry->key == key_of_counts(count, true);
    std::copy_n(count, tb_code_count, entry->count);
    entry->num = static_cast<u8>(std::accumulate(count, count + tb_code_count, 0));
    if (entry->has_pawns) {
        order_pawns(entry);
    } else {
        entry->enc_type = encoding_of(count);
    }
}

// The pool's records are used again by the next tb_init, so every field is set that the last use
// may have left behind; the sections' decoding records have been freed by then.
void tb_add_table(const char* name)
{
    TbEntry* entry = new_entry(strchr(name, 'P') != nullptr);
    entry->data = nullptr;
    entry->mapping_size = 0;
    store(entry->ready, 0);
    tb_set_material(entry, name);
    tb_largest = std::max<i32>(tb_largest, entry->num);
    // One file serves both colours: a position with the sides exchanged has the mirrored key.
    enter_key(entry->key, entry);
    if (!entry->symmetric) {
        enter_key(key_of_counts(entry->count, true), entry);
    }
}

// ---- Finding files

// Tries the directories in the order of the path, so that a faster disk can be put in front.
i32 tb_open_file(const char* name, const char* suffix)
{
    for (i32 i = 0; i < tb_path_count; ++i) {
        char path[tb_path_size];
        const i32 length = snprintf(path, sizeof path, "%s/%s%s", tb_paths[i], name, suffix);
        if (length >= tb_path_size) {
            return -1;
        }
        // O_NONBLOCK: opening a pipe would wait for its writer. O_CLOEXEC: a child must not keep
        // the files of its parent open.
        const i32 descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat status;
        if (descriptor < 0) {
            continue;
        }
        // Where nothing can be learned the descriptor is handed on: map_file meets the same error
        // and tells it.
        if (fstat(descriptor, &status) != 0 || S_ISREG(status.st_mode)) {
            return descriptor;
        }
        close(descriptor);
    }
    return -1;
}

// Cuts a copy of path into tb_paths. Returns false if there is no memory. A path of length
// characters names at most length / 2 + 1 directories, as every ':' stands between two of them.
bool tb_set_paths(const char* path)
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
// tb_largest goes to 0 before new tables come: without any, every probe ends at its first test.
void tb_clear_registry()
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
    tb_largest = 0;
    for (TbBucket& bucket : tb_hash) {
        for (TbHashSlot& slot : bucket) {
            store(slot.key, 0);
            slot.entry = nullptr;
        }
    }
}

i32 tb_table_count()
{
    return tb_piece_count + tb_pawn_count;
}

// The transposition table. Slots are two relaxed words; a reader works on its own copy, and the
// check word, which folds move and score into the upper half of the key, rejects a mixed one.
#include "search/hash.h"

#include <sys/mman.h>

#include <bit>
#include <cstring>

#include "board/moves.h"
#include "board/tables.h"
#include "search/search.h"
#include "search/threads.h"

constinit HashTable hash {};

static constexpr u32 reserve_slots = 16; // keep the last bucket inside the block
static constexpr i32 bucket_slots = 4;
static constexpr u64 huge_page = 2ULL << 20;

static void* hash_mapping;
static size_t hash_mapping_size;

static HashEntry entry_of_words(u64 word0, u64 word1)
{
    const u64 words[2] = { word0, word1 };
    HashEntry entry;
    memcpy(&entry, words, sizeof entry);
    return entry;
}

static u32 check_of(u64 key, Move move, i32 score)
{
    return static_cast<u32>(key >> 32) ^ static_cast<u32>(score + 15000)
        ^ static_cast<u32>(move) << 16;
}

void probe_hash(Position* pos, HashEntry* out)
{
    const HashSlot* slot = hash_bucket(pos->key);
    const u32 key32 = static_cast<u32>(pos->key);
    for (i32 i = 0; i < bucket_slots; ++i, ++slot) {
        const u64 word0 = load(slot->word[0]);
        if (static_cast<u32>(word0) != key32) {
            continue;
        }
        *out = entry_of_words(word0, load(slot->word[1]));
        if (out->check != check_of(pos->key, out->move, out->score)) {
            out->depth = HashCheckFailed;
        } else if (out->move != NoMove
            && !(move_fits_board(pos, out->move) && is_legal_move(pos, pos->stm, out->move))) {
            out->depth = HashMoveFailed;
        }
        return;
    }
}

// The slot of the bucket that a result of this depth may overwrite, or null to drop the result.
// Same position: its slot, unless it is much deeper and no later in the fifty-move count.
// Otherwise the first slot of an older search, otherwise the shallowest unless much deeper.
static HashSlot* choose_slot(const Position* pos, i32 depth)
{
    HashSlot* bucket = hash_bucket(pos->key);
    const u32 key32 = static_cast<u32>(pos->key);
    HashEntry entries[bucket_slots];
    for (i32 i = 0; i < bucket_slots; ++i) {
        entries[i] = entry_of_words(load(bucket[i].word[0]), load(bucket[i].word[1]));
        if (entries[i].key32 == key32) {
            const bool keep = entries[i].depth - 3 > depth && pos->cnt50 <= entries[i].cnt50;
            return keep ? nullptr : &bucket[i];
        }
    }
    i32 shallowest = 0;
    for (i32 i = 0; i < bucket_slots; ++i) {
        if (entries[i].age != hash.age) {
            return &bucket[i];
        }
        if (entries[i].depth < entries[shallowest].depth) {
            shallowest = i;
        }
    }
    return entries[shallowest].depth - 7 > depth ? nullptr : &bucket[shallowest];
}

void store_hash(Position* pos, i32 ply, i32 depth, Move move, i32 score, i32 alpha, i32 beta)
{
    if (load(hash.mode) == 0) {
        return;
    }
    HashEntry entry;
    entry.bound = score <= alpha ? BoundUpper : score < beta ? BoundExact : BoundLower;
    // The limits are not those of the reader: a score between the two is kept as it is.
    if (score < -ScoreStoreLimit) {
        score -= ply;
    } else if (score >= ScoreStoreLimit) {
        score += ply;
    }
    HashSlot* slot = choose_slot(pos, depth);
    if (slot == nullptr) {
        return;
    }
    entry.key32 = static_cast<u32>(pos->key);
    entry.score = static_cast<i16>(score);
    entry.check = check_of(pos->key, move, entry.score);
    entry.move = move;
    entry.depth = static_cast<i8>(depth);
    entry.age = static_cast<u8>(hash.age);
    entry.cnt50 = pos->cnt50;
    u64 words[2];
    memcpy(words, &entry, sizeof words);
    if (load(hash.written) == 0) {
        store(hash.written, 1);
    }
    store(slot->word[0], words[0]);
    store(slot->word[1], words[1]);
}

void free_hash()
{
    if (hash_mapping != nullptr) {
        munmap(hash_mapping, hash_mapping_size);
    }
    hash_mapping = nullptr;
    hash.table = hash.low = hash.high = nullptr;
    hash.slots = 0;
    hash.mask = 0;
}

// Maps memory for the slots, on a huge page boundary. A new mapping reads as zeros, so the table
// starts clear without being written. Returns false without memory.
static bool map_slots(u64 slots)
{
    const size_t bytes = slots * sizeof(HashSlot);
    const size_t size = bytes + (bytes >= huge_page ? huge_page : 0);
    void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) {
        return false;
    }
    hash_mapping = block;
    hash_mapping_size = size;
    u64 start = reinterpret_cast<u64>(block);
    if (bytes >= huge_page) {
        start = (start + huge_page - 1) & ~(huge_page - 1);
        madvise(reinterpret_cast<void*>(start), bytes, MADV_HUGEPAGE);
    }
    hash.table = reinterpret_cast<HashSlot*>(start);
    return true;
}

bool alloc_hash(i32 megabytes)
{
    free_hash();
    hash.megabytes = megabytes;
    const u64 slots = (static_cast<u64>(megabytes) << 20) >> 4;
    if (!map_slots(slots + reserve_slots)) {
        return false;
    }
    hash.slots = static_cast<u32>(slots);
    // Without slots every key falls on the reserve, so that no probe can leave the block.
    hash.mask = hash.slots != 0 ? std::bit_floor(slots) - 1 : 0;
    hash.low = hash.table;
    hash.high = hash.table + hash.slots;
    hash.fill = 0.0;
    store(hash.written, 0);
    return true;
}

static void clear_slots(u64 first, u64 count)
{
    for (u64 i = first; i < first + count; ++i) {
        store(hash.table[i].word[0], 0);
        store(hash.table[i].word[1], 0);
    }
}

// Slots of the block, the reserve included.
static u64 slot_count()
{
    return static_cast<u64>(hash.slots) + reserve_slots;
}

void clear_hash_share(i32 thread_id)
{
    const u64 share = slot_count() / static_cast<u64>(num_threads);
    clear_slots(static_cast<u64>(thread_id) * share, share);
}

void clear_hash()
{
    hash.fill = 0.0;
    if (load(hash.written) == 0) {
        return;
    }
    if (num_threads == 1) {
        clear_slots(0, slot_count());
        store(hash.written, 0);
        return;
    }
    for (i32 i = 0; i < num_threads; ++i) {
        post_command(load(workers[i]), CommandClearHash);
    }
    wait_for_workers();
    // The slots that the division leaves over stay as they were.
    if (num_threads > 0 && slot_count() % static_cast<u64>(num_threads) == 0) {
        store(hash.written, 0);
    }
}

void clear_hash_if_idle()
{
    if (load(hash.mode) != 0 && hash.table != nullptr && busy_workers() == 0) {
        clear_hash();
    }
}

void estimate_hash_fill()
{
    static constexpr u32 sample = 1000;
    hash.fill = 0.0;
    if (hash.slots < 3 * sample) {
        return;
    }
    i32 used = 0;
    const u32 first = hash.slots / 2 - sample / 2;
    for (u32 i = first; i < first + sample; ++i) {
        const u64 word1 = load(hash.table[i].word[1]);
        used += entry_of_words(0, word1).age == hash.age;
    }
    hash.fill = used * 0.001;
}

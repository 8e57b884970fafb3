// The transposition table. Slots are two relaxed words; a reader works on its own copy, and the
// check word, which folds move and score into the upper half of the key, rejects a mixed one.
// Two threads may write the two words of a slot in turn. Word 0 of one and word 1 of the other then
// make an entry that no search has found. Its check word tells, unless both have the same move and
// score: then depth and bound may be the other's, which is rare and costs one wrong cut at worst.
#include "search/hash.h"

#include <bit>
#include <cstring>
#include <span>

#include "base/pages.h"
#include "board/moves.h"
#include "board/tables.h"
#include "search/result.h"
#include "search/workers.h"

constinit HashTable hash {};

static constexpr u32 reserve_slots = 16; // keep the last bucket inside the block
static constexpr i32 bucket_slots = 4;   // as long as a cache line, though not aligned to one
static constexpr i32 score_bias = 15000; // makes any score positive in the check word

// When an entry is worth more than the result that comes, in plies of depth.
static constexpr struct {
    i32 same_position = 3; // that it may be deeper than a new result of its position
    i32 shallowest = 7;    // that the least of a full bucket may be deeper than the newcomer
} keep_rule;

static size_t mapped_bytes; // of the block

static HashEntry entry_of_words(u64 word0, u64 word1)
{
    const u64 words[2] = { word0, word1 };
    HashEntry entry;
    memcpy(&entry, words, sizeof entry);
    return entry;
}

// The half of the key that is not stored, with move and score folded in. The move takes the upper
// bits and the score the lower ones, so that neither can undo the other.
static u32 check_of(u64 key, Move move, i32 score)
{
    return static_cast<u32>(key >> 32) ^ static_cast<u32>(score + score_bias)
        ^ static_cast<u32>(move) << 16;
}

// The first slot of the half key decides: store_hash keeps a position in one slot, so a second one
// would be an accident. Keys collide, and a move of another position would corrupt the board when
// it is made, so the move is tried against this one; the score has to be believed.
void probe_hash(Position* pos, HashEntry* out)
{
    const HashSlot* slot = hash_bucket(pos->key);
    const u32 key32 = static_cast<u32>(pos->key);
    for (i32 i = 0; i < bucket_slots; ++i, ++slot) {
        const u64 word0 = load(slot->word[0]);
        if (static_cast<u32>(word0) != key32) {
            continue;
        }
        // Word 1 may be newer than word 0 by now. From here on only the copy counts.
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
// Same position: its slot, unless that is much deeper and was made no earlier in the fifty-move
// count. A deeper result saves more when it is met again, but one that was made earlier in the
// count has not seen the draw that has come nearer since. Otherwise the first slot of an older
// search: the game has moved on, and few of its positions come back. Otherwise the shallowest, the
// cheapest to be found again, unless it is much deeper: a result close to the leaves is not worth
// it then. The entries are read once, as others write them.
static HashSlot* choose_slot(const Position* pos, i32 depth)
{
    HashSlot* bucket = hash_bucket(pos->key);
    const u32 key32 = static_cast<u32>(pos->key);
    HashEntry entries[bucket_slots];
    for (i32 i = 0; i < bucket_slots; ++i) {
        entries[i] = entry_of_words(load(bucket[i].word[0]), load(bucket[i].word[1]));
        if (entries[i].key32 == key32) {
            const bool keep = entries[i].depth - keep_rule.same_position > depth
                && pos->cnt50 <= entries[i].cnt50;
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
    return entries[shallowest].depth - keep_rule.shallowest > depth ? nullptr : &bucket[shallowest];
}

// A mate is so many plies from the root, but the position may be met again nearer to it or farther
// off: stored, the score counts from the position itself. The same holds for wins of the tables.
void store_hash(Position* pos, i32 ply, i32 depth, Move move, i32 score, i32 alpha, i32 beta)
{
    if (load(hash.mode) == HashOff) {
        return;
    }
    HashEntry entry;
    entry.bound = score <= alpha ? BoundUpper : score < beta ? BoundExact : BoundLower;
    // The limits are not those of the reader, which takes off what was never put on where a score
    // lies between the two: no mate and no win of the tables does, at any ply.
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
    // Looked at first: a store by every node would take the cache line from all other threads.
    if (load(hash.written) == 0) {
        store(hash.written, 1);
    }
    store(slot->word[0], words[0]);
    store(slot->word[1], words[1]);
}

void free_hash()
{
    if (hash.table != nullptr) {
        unmap_pages(hash.table, mapped_bytes);
    }
    hash.table = hash.low = hash.high = nullptr;
    hash.slots = 0;
    hash.mask = 0;
}

// Maps memory for the slots. A new mapping reads as zeros, so the table starts clear without being
// written. Returns false without memory.
static bool map_slots(u64 slots)
{
    mapped_bytes = slots * sizeof(HashSlot);
    hash.table = static_cast<HashSlot*>(map_pages(mapped_bytes));
    return hash.table != nullptr;
}

bool alloc_hash(i32 megabytes)
{
    free_hash();
    hash.megabytes = megabytes;
    const u64 slots = (static_cast<u64>(megabytes) << 20) / sizeof(HashSlot);
    if (!map_slots(slots + reserve_slots)) {
        return false;
    }
    hash.slots = static_cast<u32>(slots);
    // A key is cut to an index by a mask, so of the slots a power of two is within reach of each
    // side; what lies beyond white's reach from below is within black's from above.
    // Without slots every key falls on the reserve, so that no probe can leave the block.
    hash.mask = hash.slots != 0 ? std::bit_floor(slots) - 1 : 0;
    hash.low = hash.table;
    hash.high = hash.table + hash.slots;
    hash.fill = 0.0;
    store(hash.written, 0);
    return true;
}

static void clear_slots(std::span<HashSlot> slots)
{
    for (HashSlot& slot : slots) {
        store(slot.word[0], 0);
        store(slot.word[1], 0);
    }
}

// The slots of the block. The reserve counts: the last buckets of both sides end in it.
static std::span<HashSlot> all_slots()
{
    return { hash.table, static_cast<size_t>(hash.slots) + reserve_slots };
}

// The part of a worker; what the division leaves over is nobody's.
static std::span<HashSlot> share_of(i32 thread_id)
{
    const std::span<HashSlot> slots = all_slots();
    const size_t share = slots.size() / static_cast<size_t>(num_threads);
    return slots.subspan(static_cast<size_t>(thread_id) * share, share);
}

void clear_hash_share(i32 thread_id)
{
    clear_slots(share_of(thread_id));
}

// One store for each page of the smallest size; huge ones get more than they need.
static void touch_slots(std::span<HashSlot> slots)
{
    constexpr size_t step = small_page / sizeof(HashSlot);
    for (size_t i = 0; i < slots.size(); i += step) {
        store(slots[i].word[0], 0);
    }
}

void touch_hash_share(i32 thread_id)
{
    touch_slots(share_of(thread_id));
}

// Gives all workers the same command and waits for them.
static void command_workers(WorkerCommand command)
{
    for (i32 i = 0; i < num_threads; ++i) {
        post_command(load(workers[i]), command);
    }
    wait_for_workers();
}

void touch_hash()
{
    if (!has_free_memory(mapped_bytes)) {
        return;
    }
    if (num_threads > 1) {
        command_workers(CommandTouchHash);
    } else {
        touch_slots(all_slots());
    }
}

// The workers share the work: one thread alone would hold up the game for a large table.
void clear_hash()
{
    hash.fill = 0.0;
    if (load(hash.written) == 0) {
        return;
    }
    if (num_threads == 1) {
        clear_slots(all_slots());
        store(hash.written, 0);
        return;
    }
    command_workers(CommandClearHash);
    // The slots that the division leaves over stay as they were, so the table still counts as
    // written to.
    if (num_threads > 0 && all_slots().size() % static_cast<size_t>(num_threads) == 0) {
        store(hash.written, 0);
    }
}

void clear_hash_if_idle()
{
    if (load(hash.mode) != HashOff && hash.table != nullptr && busy_workers() == 0) {
        clear_hash();
    }
}

// The sample lies in the middle of the block. What it says of a table that is no power of two in
// size is rough, since the two sides do not reach all of its slots alike.
void estimate_hash_fill()
{
    static constexpr u32 sample = 1000;            // slots
    static constexpr u32 least_slots = 3 * sample; // a smaller table is not sampled
    static constexpr f64 share_of_slot = 0.001;
    hash.fill = 0.0;
    if (hash.slots < least_slots) {
        return;
    }
    i32 used = 0;
    for (const HashSlot& slot : all_slots().subspan(hash.slots / 2 - sample / 2, sample)) {
        used += entry_of_words(0, load(slot.word[1])).age == hash.age;
    }
    hash.fill = used * share_of_slot;
}

// The transposition table: one block of 16-byte slots shared by all threads without a lock.
// White's positions are addressed from the bottom, black's from the top; a bucket is any four
// consecutive slots. Buckets overlap, which keeps no position from its slot: every entry carries
// its key, and a neighbour's counts like any other of the bucket.
#pragma once

#include "search/thread.h"

// A private copy of a slot. Word 0 holds key32 and check, word 1 the rest.
struct HashEntry {
    u32 key32; // low half of the key
    u32 check; // upper half, score and move folded together
    u16 move;  // 0 if none
    i16 score; // mate scores independent of ply
    i8 depth;
    u8 bound; // HashBound
    u8 age;   // hash.age of the search that wrote it
    u8 cnt50;
};
static_assert(sizeof(HashEntry) == 16);

enum HashBound : u8 { BoundUpper = 1, BoundLower = 2, BoundExact = 3 };

// Values of depth in a copy that no stored entry has.
enum : i8 {
    HashNotFound = -10,    // preset by the caller
    HashCheckFailed = -98, // torn write or another position
    HashMoveFailed = -99,  // the move cannot be played here
    HashUsable = -9,       // from here up the copy is an entry
};

// Sixteen bytes that are written as two words. A lock for each would cost more than all the torn
// entries that the check word throws away.
struct HashSlot {
    Shared<u64> word[2];
};
static_assert(sizeof(HashSlot) == 16);

// What the table is used for; from HashKept on searches by depth at the console keep its entries.
enum HashMode : u8 { HashOff = 0, HashOn = 1, HashKept = 2 };

// The one table. Its block changes between searches only, by the main thread; the slots are every
// worker's.
struct HashTable {
    HashSlot* table; // slots + 16 slots, null if not allocated
    u32 slots;
    u64 mask;
    HashSlot* low;
    HashSlot* high;
    i32 megabytes; // size as allocated
    f64 fill;      // share of sampled slots written by this search; under info_lock while one runs
    i16 age;       // 1 to 15, 0 after a new game; constant in a search
    Shared<u8> mode = { HashOn }; // HashMode, or a number above it
    // Whether a slot may have been written since the table was mapped or cleared as a whole:
    // clearing one that nobody has written would only make all of its memory resident.
    Shared<u8> written;
};
extern HashTable hash;

// The start of the bucket of a key. A mask reaches only a power of two of slots: in a table of
// another size black's positions, from the other end, use those that white's cannot reach. Bit 0 of
// the key is the side to move and stays in the index.
inline HashSlot* hash_bucket(u64 key)
{
    // Signed and not in two cases: whose turn it is would be guessed wrong too often.
    const i64 index = static_cast<i64>(key & hash.mask);
    const i64 backwards = -static_cast<i64>(key & 1);
    return ((key & 1) ? hash.high : hash.low) + ((index ^ backwards) - backwards);
}

// Fetches a bucket ahead of its probe. Buckets are not aligned: most lie on two cache lines.
inline void prefetch_bucket(u64 key)
{
    const HashSlot* bucket = hash_bucket(key);
    __builtin_prefetch(bucket);
    __builtin_prefetch(bucket + 3);
}

// Copies the entry of pos to out. out->depth is HashNotFound on return if there is none, or one
// of the marks above if it cannot be used.
void probe_hash(Position* pos, HashEntry* out);

// Stores a result of pos at ply; does nothing while hash.mode is HashOff. alpha and beta are those
// of the call that gave score.
void store_hash(Position* pos, i32 ply, i32 depth, Move move, i32 score, i32 alpha, i32 beta);

// Frees any old table and allocates one of so many megabytes. Returns whether there was the memory.
// No worker may be searching.
[[nodiscard]] bool alloc_hash(i32 megabytes);

// Frees the table and sets its size to 0.
void free_hash();

// Has the system hand out the memory of a table that nobody has used yet, by all workers: else the
// first seconds of a search in a large table go by waiting for pages. None may be searching. Left
// undone where it would take the last of the machine's or a container's memory: what a search never
// uses is not needed.
void touch_hash();

// Touches the worker's share of the table. Called by that worker, by order of touch_hash.
void touch_hash_share(i32 thread_id);

// Clears the table; with several workers they do it, and the call waits for them. None may be
// searching. Does nothing where nothing has been written since the last time.
void clear_hash();

// Clears the worker's share of the table. Called by that worker, by order of clear_hash.
void clear_hash_share(i32 thread_id);

// clear_hash, if the table is in use and no worker is busy.
void clear_hash_if_idle();

// Sets hash.fill from a sample of 1000 slots; 0 in tables of less than 3000.
void estimate_hash_fill();

// Completes line from position index on by following the table, up to index 67, closed by 0.
// pos is the same afterwards.
void extend_line_from_hash(Position* pos, i32 index, u16* line);

// A hash table with open addressing. It is never made smaller.
#include "tools/key_set.h"

#include <cstddef>
#include <cstdlib>

static constexpr i64 first_slots = 65536; // a power of two

// The slot of a key, or the empty one where it belongs. Keys are as good as drawn by chance but for
// the lowest bit, which is the side to move.
static u64* find_slot(const KeySet* set, u64 key)
{
    const u64 mask = static_cast<u64>(set->size) - 1;
    u64 index = (key >> 1) & mask;
    while (set->slots[index] != 0 && set->slots[index] != key) {
        index = (index + 1) & mask;
    }
    return &set->slots[index];
}

static u64 nonzero(u64 key)
{
    return key != 0 ? key : 1;
}

// Twice as many slots, or the first ones, which are there whatever the limit. Returns false without
// memory; the set is as it was then.
static bool grow(KeySet* set)
{
    const KeySet old = *set;
    const i64 size = old.size == 0 ? first_slots : 2 * old.size;
    const i64 bytes = (old.size + size) * static_cast<i64>(sizeof(u64));
    if (set->most_bytes != 0 && old.size != 0 && bytes > set->most_bytes) {
        return false;
    }
    u64* slots = static_cast<u64*>(calloc(static_cast<size_t>(size), sizeof(u64)));
    if (slots == nullptr) {
        return false;
    }
    *set = { slots, size, old.count, old.most_bytes };
    for (i64 i = 0; i < old.size; ++i) {
        if (old.slots[i] != 0) {
            *find_slot(set, old.slots[i]) = old.slots[i];
        }
    }
    free(old.slots);
    return true;
}

// A key that is known needs no room.
KeyVerdict add_key(KeySet* set, u64 key)
{
    key = nonzero(key);
    if (4 * set->count >= 3 * set->size && (has_key(set, key) || !grow(set))) {
        return has_key(set, key) ? KeyKnown : KeyWithoutMemory;
    }
    u64* slot = find_slot(set, key);
    if (*slot == key) {
        return KeyKnown;
    }
    *slot = key;
    ++set->count;
    return KeyAdded;
}

bool has_key(const KeySet* set, u64 key)
{
    key = nonzero(key);
    return set->size != 0 && *find_slot(set, key) == key;
}

void free_keys(KeySet* set)
{
    free(set->slots);
    *set = { nullptr, 0, 0, set->most_bytes };
}

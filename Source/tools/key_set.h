// Keys of positions that have been, 8 bytes each in a table that is at most three quarters full:
// 100 million positions take 1 GB, and half as much again for the moment in which the table is made
// larger. At that number the chance that any two positions share a key is one in four thousand.
#pragma once

#include "base/types.h"

// A set of keys; all zero is an empty one without a limit. 0 is an empty slot, so that key is taken
// for another.
struct KeySet {
    u64* slots;
    i64 size;
    i64 count;
    i64 most_bytes; // that it may take, also in the moment of its growth; 0: what there is
};

// What became of a key.
enum KeyVerdict : u8 { KeyAdded, KeyKnown, KeyWithoutMemory };

// Adds a key unless it is there. KeyWithoutMemory: there was no room for it, and the set is as it
// was.
[[nodiscard]] KeyVerdict add_key(KeySet* set, u64 key);

// Whether a key is there.
[[nodiscard]] bool has_key(const KeySet* set, u64 key);

// Gives back the memory; the set is empty then, with the limit that it had.
void free_keys(KeySet* set);

// Numbers and codes as they lie in a table file.
#pragma once

#include "fathom/tbtable.h"

// Numbers of a table file: lowest byte first. They may stand at any address, so they are put
// together from bytes.
inline u32 tb_u16(const u8* bytes)
{
    return static_cast<u32>(bytes[0] | bytes[1] << 8);
}

inline u32 tb_u32(const u8* bytes)
{
    return tb_u16(bytes) | tb_u16(bytes + 2) << 16;
}

// ---- Codes in a section's blocks; its record must have passed tb_setup_pairs.

// The place of a code's length behind min_len, from the 32 bits that begin with it; no place below
// first is tried. The base of the longest codes is 0, so the search ends.
static inline i32 find_length(const PairsData* pairs, i32 first, u32 top)
{
    i32 i = first;
    while (top < pairs->base[i]) {
        ++i;
    }
    return i;
}

// The symbol of a code whose length has place i.
static inline u32 symbol_of(const PairsData* pairs, i32 i, u32 top)
{
    const i32 unused = 32 - (pairs->min_len + i);
    return tb_u16(pairs->offset + 2 * i) + ((top - pairs->base[i]) >> unused);
}

// The blocks' bits run from the highest of a byte to the lowest and so on: the numbers of the
// decoder have the first byte on top, other than all else in the file.
static inline u64 big_endian_u64(const u8* bytes)
{
    u64 number = 0;
    for (i32 i = 0; i < 8; ++i) {
        number = number << 8 | bytes[i];
    }
    return number;
}

// Values in a block, minus 1.
static inline i64 last_value(const PairsData* pairs, u64 block)
{
    return tb_u16(pairs->size_table + 2 * block);
}

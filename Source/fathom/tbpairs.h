// The compression of Syzygy tables: blocks of Huffman codes whose symbols stand for pairs of
// symbols down to single values. Neighbouring positions mostly have the same value, so a symbol
// often stands for many of them.
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

// Makes the record of a section with several values from its header at data; end is the end of
// the mapping, table_size the number of values, highest the greatest value allowed. size becomes
// the bytes of index table, size table and blocks, *next the end of the header. The record's
// index_table, size_table and data are left to the caller, who also frees it by free. Returns null
// if the header is not sound or there is no memory.
[[nodiscard]] PairsData* tb_setup_pairs(
    const u8* data, const u8* end, u64 table_size, i32 highest, u64 size[3], const u8** next);

// Makes the record of a section in which all values are the same; null if there is no memory. It
// has no places in the file, and the caller frees it by free.
[[nodiscard]] PairsData* tb_one_value(i32 value, u64 table_size);

// Whether every entry of the index table names a block of the size table, and the section's first
// and last value are the outermost of its blocks. Until it has said so nothing may be decoded.
[[nodiscard]] bool tb_index_table_is_sound(const PairsData* pairs);

// The value at index, 0 to 255; -1 if the index is beyond the table or the data are damaged. Reads
// only and keeps nothing: all workers may call it at once.
[[nodiscard]] i32 tb_decompress_pairs(const PairsData* pairs, u64 index);

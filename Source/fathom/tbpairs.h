// The compression of Syzygy tables: blocks of Huffman codes whose symbols stand for pairs of
// symbols down to single values. Neighbouring positions mostly have the same value, so a symbol
// often stands for many of them.
#pragma once

#include "fathom/tbtable.h"

// Makes the record of a section with several values from its header at data; end is the end of
// the mapping, table_size the number of values, highest the greatest value allowed. size becomes
// the bytes of index table, size table and blocks, *next the end of the header. The record's
// index_table, size_table and data are left to the caller, who also frees it by free. Returns null
// if the header is not sound or there is no memory.
[[nodiscard]] PairsData* tb_setup_pairs(
    const u8* data, const u8* end, u64 table_size, i32 highest, u64 size[3], const u8** next);

// Whether such a header, from data to next, has a zero in the byte that makes its length even.
[[nodiscard]] bool tb_ends_tidily(const u8* data, const u8* next);

// Makes the record of a section in which all values are the same; null if there is no memory. It
// has no places in the file, and the caller frees it by free.
[[nodiscard]] PairsData* tb_one_value(i32 value, u64 table_size);

// Whether every entry of the index table names a block of the size table, and the section's first
// and last value are the outermost of its blocks. Until it has said so nothing may be decoded.
[[nodiscard]] bool tb_index_table_is_sound(const PairsData* pairs);

// The value at index, 0 to 255; -1 if the index is beyond the table or the data are damaged. Reads
// only and keeps nothing: all workers may call it at once.
[[nodiscard]] i32 tb_decompress_pairs(const PairsData* pairs, u64 index);

// ---- For those who want to know of every value whether it can be read: a probe looks no further
// than it must.

// What is wrong with the tables in front of a section's blocks, place being the entry of the one
// that is named.
enum TbSizesFault : i32 {
    TbSoundSizes,
    TbPaddingSize, // an entry behind those of the blocks holds values
    TbSumOfSizes,  // the blocks hold other than table_size values
    TbIndexEntry,  // of the index table: does not name the middle of its stretch
};

// Reads both tables to their ends. tb_index_table_is_sound must have said yes.
[[nodiscard]] TbSizesFault tb_check_sizes(const PairsData* pairs, u64* place);

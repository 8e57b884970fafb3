// The records of one endgame table: what the registry knows of a material, and what reading its
// file needs. The files are those of the published Syzygy format, for 3 to 6 pieces.
#pragma once

#include "board/types.h"

inline constexpr i32 tb_max_pieces = 6;
inline constexpr i32 tb_pawn_files = 4; // files a to d; the others are their mirrors
inline constexpr i32 tb_map_lists = 4;
inline constexpr i32 tb_name_size = 16; // a table's name with its NUL

// Decodes one section: a block of values compressed by pairing symbols and Huffman codes. One
// allocation, with base and symlen behind the record. All pointers into the file have been
// checked against the end of the mapping.
struct PairsData {
    const u8* index_table; // 6 bytes each: u32 block, u16 place in the block
    const u8* size_table;  // u16 each: values of a block minus 1
    const u8* data;        // the blocks
    const u8* offset;      // u16 each: first symbol of a code length, from min_len on
    u8* symlen;            // values of a symbol minus 1
    const u8* sympat;      // 3 bytes each: two halves of 12 bits
    const u8* end;         // of the mapping
    u64 table_size;        // values in the section
    u32 blocks;            // blocks with data
    u32 size_entries;      // blocks and the padding behind them, in size_table
    i32 block_size;        // log2 of the bytes of a block
    i32 idx_bits;          // log2 of the values per index entry; 0 marks a one-value section
    i32 min_len;           // shortest code length, or the one value
    u32* base;             // per length from min_len on: its smallest code, left-aligned
    u8 shortest[256];      // by the next 8 bits: the first length to be tried, from min_len on
};

// One section: its decoding, and the order and weights of its pieces in the index.
struct TbSection {
    PairsData* pairs;
    u64 factor[tb_max_pieces];    // at the start of each group: weight of the group's digit
    u8 pieces[tb_max_pieces];     // type + 8 for the side named second
    u8 norm[tb_max_pieces];       // at the start of each group: its size
    u8 flags;                     // first byte of the section's header
    const u8* list[tb_map_lists]; // distance tables: value lists, each behind its count byte
};

// What all forms of a table record begin with.
struct TbEntry {
    const u8* data; // the mapped file, null if not mapped
    u64 key;        // material key as the file name reads
    u64 mapping_size;
    Shared<u8> ready; // 1 when the file has been set up; hands the rest over
    u8 num;           // number of pieces
    u8 symmetric;     // both sides have the same material
    u8 has_pawns;
    u8 enc_type;  // without pawns: 0 three single pieces lead, 2 the kings lead
    u8 pawns[2];  // pawns of the leading side, which are not 0, and of the other
    u8 count[16]; // pieces of each code, as in TbSection.pieces
};

struct TbEntryPiece {
    TbEntry head;
    TbSection section[2]; // by side to move, the side named first before the other
};

struct TbEntryPawn {
    TbEntry head;
    TbSection section[tb_pawn_files][2];
};

// The section of a file (0 without pawns) and a side (0 in distance tables).
inline TbSection* tb_section(TbEntry* entry, i32 file, i32 side)
{
    if (entry->has_pawns) {
        return &reinterpret_cast<TbEntryPawn*>(entry)->section[file][side];
    }
    return &reinterpret_cast<TbEntryPiece*>(entry)->section[side];
}

// Bits of TbSection.flags.
enum TbFlag : u8 {
    TbFlagSide = 1,     // of distance tables: the second side's moves are stored
    TbFlagMapped = 2,   // values are places in the lists
    TbFlagWinPlies = 4, // wins are stored in plies, not halved
    TbFlagLossPlies = 8,
    TbFlagWide = 16, // 16-bit lists, which no table of 3 to 6 pieces has
    TbFlagOneValue = 128,
};

// Whether a distance table's section stores places in its lists. One-value sections have none.
inline bool tb_has_lists(const TbSection* section)
{
    return (section->flags & (TbFlagMapped | TbFlagOneValue)) == TbFlagMapped;
}

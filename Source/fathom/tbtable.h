// The records of one endgame table: what the registry knows of a material, and what reading its
// file needs. The files are those of the published Syzygy format, for 3 to 6 pieces: of each
// material one file with the result (win, draw, loss) and one with the distance to the next capture
// or pawn move.
//
// Piece codes here are the board's, the side named first in the file's name standing for White and
// the one named second for Black; which side of the position that is depends on the probe. The
// records are made by the registry and the header's reader alone. Once an entry is ready nobody
// changes it, so all workers read it without a lock.
#pragma once

#include "board/types.h"

// A section's record has room for so many pieces: tables of more would need all of it widened.
inline constexpr i32 tb_max_pieces = 6;
inline constexpr i32 tb_pawn_files = 4; // files a to d; the others are their mirrors
inline constexpr i32 tb_map_lists = 4;  // wins, losses, and those that the fifty-move rule changes
inline constexpr i32 tb_name_size = 16; // a table's name with its NUL
inline constexpr i32 tb_code_count = 16;

// The codes that are whole in the next 8 bits of a block. A decoder passes over them at once if the
// value that it looks for lies behind them: with one code after the other a probe takes half as
// long again.
struct PairsRun {
    u16 last; // values of the codes minus 1; 65535, which no value's place exceeds, without a code
    u8 bits;  // of the codes
    u8 shortest; // the first length that the first code may have, from min_len on
};
inline constexpr u32 pairs_runs = 256;

using SymbolHalves = u32; // packed by tbpairs.cpp

// Decodes one section: a block of values compressed by pairing symbols and Huffman codes. One
// allocation, with base, halves and symlen behind the record, so that one free gives all of it
// back. All pointers into the file have been checked against the end of the mapping. The blocks'
// bits are too many to be checked when the file is opened, so end goes along and the decoder looks.
struct PairsData {
    const u8* index_table;     // 6 bytes each: u32 block, u16 place in the block
    const u8* size_table;      // u16 each: values of a block minus 1
    const u8* data;            // the blocks
    const u8* offset;          // u16 each: first symbol of a code length, from min_len on
    u8* symlen;                // values of a symbol minus 1
    SymbolHalves* halves;      // of a symbol; of one whose values are all the same, as of a leaf
    const u8* end;             // of the mapping
    u64 table_size;            // values in the section
    u32 blocks;                // blocks with data
    u32 size_entries;          // blocks and the padding behind them, in size_table
    i32 block_size;            // log2 of the bytes of a block
    i32 idx_bits;              // log2 of the values per index entry; 0 marks a one-value section
    i32 min_len;               // shortest code length, or the one value
    u32* base;                 // per length from min_len on: its smallest code, left-aligned
    PairsRun runs[pairs_runs]; // by the next 8 bits
};

// One section: its decoding, and the order and weights of its pieces in the index. Every section
// has an order of its own: the one in which its values compressed best.
struct TbSection {
    PairsData* pairs;
    u64 factor[tb_max_pieces];    // at the start of each group: weight of the group's digit
    u8 pieces[tb_max_pieces];     // piece codes
    u8 norm[tb_max_pieces];       // at the start of each group: its size
    u8 flags;                     // first byte of the section's header
    const u8* list[tb_map_lists]; // distance tables: value lists, each behind its count byte
};

// Which pieces lead the index of a table without pawns. They decide how the board is mirrored, so
// none of them may have a like piece: it would be open which of the two is meant. The kings always
// qualify; where a third piece does, three lead.
enum TbEncoding : u8 {
    LeadThreeSingle = 0,
    LeadKings = 2,
};

// What all forms of a table record begin with: from its address the whole record can be had, with
// has_pawns telling which. Entries of the registry are static and live as long as the program;
// those of distance tables belong to the cache.
struct TbEntry {
    const u8* data; // the mapped file, null if not mapped
    u64 key;        // material key as the file name reads
    u64 mapping_size;
    Shared<u8> ready; // 1 when the file has been set up; hands the rest over
    u8 num;           // number of pieces
    u8 symmetric;     // both sides have the same material
    u8 has_pawns;
    u8 enc_type;             // a TbEncoding; not used with pawns
    u8 pawns[2];             // pawns of the leading side, which are not 0, and of the other
    u8 count[tb_code_count]; // pieces of each code
};

// Without pawns the board may be mirrored in all eight ways, and one section serves all squares.
struct TbEntryPiece {
    TbEntry head;
    TbSection section[2]; // by side to move, the side named first before the other
};

// With pawns only left and right may be exchanged, and the leading pawn's file chooses the section.
struct TbEntryPawn {
    TbEntry head;
    TbSection section[tb_pawn_files][2];
};

// The section of a file (0 without pawns) and a side: 0 if the side named first is to move, 1 if
// the other. Distance tables and those of a symmetric material use side 0 alone.
inline TbSection* tb_section(TbEntry* entry, i32 file, i32 side)
{
    if (entry->has_pawns) {
        return &reinterpret_cast<TbEntryPawn*>(entry)->section[file][side];
    }
    return &reinterpret_cast<TbEntryPiece*>(entry)->section[side];
}

// Bits of TbSection.flags. Win/draw/loss sections have a meaning for the last alone.
enum TbFlag : u8 {
    TbFlagSide = 1,     // the second side's moves are stored
    TbFlagMapped = 2,   // values are places in the lists
    TbFlagWinPlies = 4, // wins are stored in plies, not in moves
    TbFlagLossPlies = 8,
    TbFlagWide = 16, // 16-bit lists, which no table of 3 to 6 pieces has
    TbFlagOneValue = 128,
};

// Whether a distance table's section stores places in its lists. One-value sections have none,
// whatever their other bits say: the file has no lists for them.
inline bool tb_has_lists(const TbSection* section)
{
    return (section->flags & (TbFlagMapped | TbFlagOneValue)) == TbFlagMapped;
}

// Unmaps an entry's file and frees its decoding records. Nobody may be reading it.
void tb_release(TbEntry* entry);

// An empty record beside those of the registry; null without memory.
[[nodiscard]] TbEntry* tb_new_entry(bool has_pawns);

// Releases such a record and gives it back; null is let pass. has_pawns must be as it was made.
void tb_delete_entry(TbEntry* entry);

// Set while no worker searches, by a program that tells of tables itself: then nothing is told on
// standard error of tables that are missing, damaged or given back. The engine leaves it false.
extern bool tb_quiet;

// The header of a Syzygy table file: from mapped bytes to the sections of an entry. What passes
// here may be read by any index below a section's table_size without leaving the mapping.
#pragma once

#include "fathom/tbtable.h"

// The two files of a table.
enum TbKind : i32 {
    TbWdlFile, // win, draw, loss: a section for each side to move
    TbDtzFile, // distances: a section for one side to move
    tb_kinds
};

// How their names end, and the number with which they begin.
inline constexpr const char* tb_suffixes[tb_kinds] = { ".rtbw", ".rtbz" };
inline constexpr u32 tb_magic_numbers[tb_kinds] = { 0x5d23e871, 0xa50c66d7 };

// The blocks of a section begin at a multiple of this many bytes, and so does the checksum, which
// is the end of the file.
inline constexpr u64 tb_block_alignment = 64;
inline constexpr u64 tb_checksum_size = 16;

// What is wrong with a header.
enum TbHeaderFault : i32 {
    TbSoundHeader,
    TbOtherKind,     // no table at all, or the other file of a table
    TbOtherMaterial, // with pawns or without, with two sides or one, other pieces
    TbDamagedHeader, // its numbers contradict each other or lead out of the file
    TbOtherLength,   // the file is longer or shorter than the header makes it
    TbDamagedIndex   // what stands between header and blocks leads nowhere
};

// What is seen of a header beside what is wrong with it.
struct TbHeaderNotes {
    u64 length; // of the file, as the header makes it; 0 where that is not known
    // The number of pieces that it notes is right, and so are the bytes that fill it up to even
    // offsets. A probe needs neither, and older files note no number; but the header of another
    // material may pass for this one's without.
    bool is_tidy;
};

// Sets up all sections of an entry whose file is mapped (data null: an empty file). Returns what is
// wrong with it, TbDamagedHeader also without memory; the records made so far stay in the entry,
// for tb_release to free.
[[nodiscard]] TbHeaderFault tb_check_header(TbEntry* entry, TbKind kind, TbHeaderNotes* notes);

// The same; returns whether nothing is wrong.
[[nodiscard]] bool tb_read_header(TbEntry* entry, TbKind kind);

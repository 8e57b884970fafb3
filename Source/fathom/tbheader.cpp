// Reads the header of a table file. Nothing of it is believed: every offset is checked against the
// length of the mapping before it is used, and that length must be the very one that the header
// makes.
//
// The file, in this order; numbers lowest byte first:
//   4 bytes that name the kind of file, then a byte of flags
//   per pawn file: the order nibbles and the pieces, the first side's in the low halves of the
//   bytes and the second side's in the high ones; then a byte if needed to make the offset even
//   per section: the header of its values (see tbpairs.cpp)
//   distance files, per section that has them: four value lists; then again made even
//   all index tables, all size tables, then each section's blocks from a multiple of 64 on
//   16 bytes of checksum from a multiple of 64 on, which nobody reads: that would mean to read
//   gigabytes before the first probe
#include "fathom/tbheader.h"

#include <algorithm>

#include "fathom/tbbits.h"
#include "fathom/tbindex.h"
#include "fathom/tbpairs.h"

static constexpr u64 flag_offset = 4;
static constexpr i32 two_sides = 1; // bits of the byte there
static constexpr i32 by_pawn_file = 2;
static constexpr i32 pieces_shift = 4;
static constexpr i32 highest_wdl = 4; // stored values: WDL values raised by two
static constexpr i32 highest_dtz = 255;
static constexpr i32 no_order2 = 15; // no table has so many groups
static constexpr i32 nibble = 15;

static constexpr i32 max_sections = 2 * tb_pawn_files;

// The three parts of a section behind the headers, in the order of the file.
enum TablePart : i32 { IndexPart, SizePart, BlockPart };
static constexpr i32 part_count = 3;

// A header being read. Its sections are numbered as they follow each other in the file: by pawn
// file, then by side to move.
struct HeaderReader {
    TbEntry* entry;
    TbKind kind;
    i32 sides;
    i32 sections;
    u64 at; // offset of the next byte to be read
    TbSection* section[max_sections];
    u64 table_size[max_sections];
    u64 size[max_sections][part_count]; // bytes of each part
    TbHeaderNotes notes;
};

// Whether so many bytes are left. Aligning may have carried at beyond the end, so that is tested
// first: the difference would wrap around.
static bool has_bytes(const HeaderReader* reader, u64 count)
{
    const u64 size = reader->entry->mapping_size;
    return reader->at <= size && count <= size - reader->at;
}

static bool is_kind(const HeaderReader* reader)
{
    return has_bytes(reader, flag_offset + 1)
        && tb_u32(reader->entry->data) == tb_magic_numbers[reader->kind];
}

// Checks what the flags say of the material. A file under another's name is caught here if it has
// pawns or symmetry where the other has not, else by its pieces. The side bit of distance tables
// has no meaning.
static bool read_flags(HeaderReader* reader)
{
    const TbEntry* entry = reader->entry;
    const i32 flags = entry->data[flag_offset];
    if (((flags & by_pawn_file) != 0) != (entry->has_pawns != 0)) {
        return false;
    }
    const i32 noted_pieces = flags >> pieces_shift;
    reader->notes.is_tidy = noted_pieces == 0 || noted_pieces == entry->num;
    reader->at = flag_offset + 1;
    reader->sides = 1;
    // A probe takes the section of the side to move by the material's symmetry: both must agree, or
    // it would look into a section that has not been read.
    if (reader->kind == TbWdlFile) {
        reader->sides = (flags & two_sides) != 0 ? 2 : 1;
        return (reader->sides == 1) == (entry->symmetric != 0);
    }
    return true;
}

// Takes the byte that makes the offset even, if there is one.
static void make_even(HeaderReader* reader)
{
    if ((reader->at & 1) != 0) {
        reader->notes.is_tidy &= has_bytes(reader, 1) && reader->entry->data[reader->at] == 0;
        ++reader->at;
    }
}

static void list_sections(HeaderReader* reader)
{
    reader->sections = reader->sides * (reader->entry->has_pawns ? tb_pawn_files : 1);
    for (i32 i = 0; i < reader->sections; ++i) {
        reader->section[i] = tb_section(reader->entry, i / reader->sides, i % reader->sides);
    }
}

// Reads order and pieces of one section: the low or the high half of each byte. Whether the pieces
// are those of the material is seen by laying out the groups.
static bool read_order(HeaderReader* reader, i32 i, const u8* bytes)
{
    const TbEntry* entry = reader->entry;
    TbSection* section = reader->section[i];
    const i32 shift = i % reader->sides == 0 ? 0 : 4;
    const i32 order = bytes[0] >> shift & nibble;
    const bool second = entry->pawns[1] != 0;
    const i32 order2 = second ? bytes[1] >> shift & nibble : no_order2;
    bytes += second ? 2 : 1;
    for (i32 k = 0; k < entry->num; ++k) {
        section->pieces[k] = bytes[k] >> shift & nibble;
    }
    // All sections must have the same leading pawns: they choose the section. A probe places them
    // before it knows the section, by the code that the first one has.
    const i32 file = i / reader->sides;
    reader->table_size[i] = tb_set_groups(entry, section, file, order, order2);
    return reader->table_size[i] != 0
        && (!entry->has_pawns || section->pieces[0] == reader->section[0]->pieces[0]);
}

static bool read_orders(HeaderReader* reader)
{
    const TbEntry* entry = reader->entry;
    // The order nibbles, two where the second side has pawns, and a nibble for each piece.
    const u64 bytes = entry->num + (entry->pawns[1] != 0 ? 2U : 1U);
    for (i32 i = 0; i < reader->sections; ++i) {
        if (!has_bytes(reader, bytes) || !read_order(reader, i, entry->data + reader->at)) {
            return false;
        }
        if ((i + 1) % reader->sides == 0) {
            reader->at += bytes; // the sides of a pawn file share the bytes
        }
    }
    make_even(reader);
    return true;
}

// Reads the header of one section's values. A section in which all values are the same has two
// bytes, flags and value, and no parts behind the headers; the distance in it is always 0. Values
// beyond the highest would index out of the prober's tables, so none is let through. Lists of
// 16-bit numbers do not occur with 3 to 6 pieces and are refused: no decoder is there for them.
static bool read_pairs(HeaderReader* reader, i32 i)
{
    const TbEntry* entry = reader->entry;
    TbSection* section = reader->section[i];
    if (!has_bytes(reader, 2)) {
        return false;
    }
    const u8* data = entry->data + reader->at;
    const i32 highest = reader->kind == TbWdlFile ? highest_wdl : highest_dtz;
    section->flags = data[0];
    if ((section->flags & TbFlagOneValue) != 0) {
        const i32 value = reader->kind == TbWdlFile ? data[1] : 0;
        section->pairs = value <= highest ? tb_one_value(value, reader->table_size[i]) : nullptr;
        reader->at += 2;
    } else {
        const u8* next = data;
        section->pairs = tb_setup_pairs(data, entry->data + entry->mapping_size,
            reader->table_size[i], highest, reader->size[i], &next);
        reader->notes.is_tidy &= section->pairs != nullptr && tb_ends_tidily(data, next);
        reader->at += static_cast<u64>(next - data);
    }
    return section->pairs != nullptr
        && !(reader->kind == TbDtzFile && (section->flags & TbFlagWide) != 0);
}

static bool read_all_pairs(HeaderReader* reader)
{
    for (i32 i = 0; i < reader->sections; ++i) {
        if (!read_pairs(reader, i)) {
            return false;
        }
    }
    return true;
}

// Reads the value lists of a distance table, of those sections that have them: four of them, each a
// count byte and as many values. A place beyond a list's count is caught when it is looked up.
static bool read_lists(HeaderReader* reader)
{
    const u8* data = reader->entry->data;
    for (i32 i = 0; i < reader->sections; ++i) {
        TbSection* section = reader->section[i];
        if (!tb_has_lists(section)) {
            continue;
        }
        for (const u8*& list : section->list) {
            if (!has_bytes(reader, 1) || !has_bytes(reader, 1U + data[reader->at])) {
                return false;
            }
            list = data + reader->at + 1;
            reader->at += 1U + data[reader->at];
        }
    }
    make_even(reader);
    return true;
}

// Takes so many bytes; null if they are not there.
static const u8* take_bytes(HeaderReader* reader, u64 count)
{
    if (!has_bytes(reader, count)) {
        return nullptr;
    }
    const u8* bytes = reader->entry->data + reader->at;
    reader->at += count;
    return bytes;
}

static void align_blocks(HeaderReader* reader)
{
    reader->at = (reader->at + tb_block_alignment - 1) & ~(tb_block_alignment - 1);
}

// The length of the file with all parts behind the headers. It takes no part for larger than a disk
// may be, so that the sum cannot wrap around.
static u64 length_of_all(HeaderReader reader)
{
    static constexpr u64 largest_part = 1ULL << 50;
    for (i32 part = IndexPart; part <= BlockPart; ++part) {
        for (i32 i = 0; i < reader.sections; ++i) {
            if (part == BlockPart) {
                align_blocks(&reader);
            }
            reader.at += std::min(reader.size[i][part], largest_part);
        }
    }
    align_blocks(&reader);
    return reader.at + tb_checksum_size;
}

// Gives every section its index table, then its size table, then its blocks. Returns false if the
// file does not end right behind them: a file cut short or joined with another is found out by its
// length alone.
static bool place_tables(HeaderReader* reader)
{
    for (i32 part = IndexPart; part <= BlockPart; ++part) {
        for (i32 i = 0; i < reader->sections; ++i) {
            if (part == BlockPart) {
                align_blocks(reader);
            }
            PairsData* pairs = reader->section[i]->pairs;
            const u8** place = part == IndexPart ? &pairs->index_table
                : part == SizePart               ? &pairs->size_table
                                                 : &pairs->data;
            *place = take_bytes(reader, reader->size[i][part]);
            if (*place == nullptr) {
                return false;
            }
        }
    }
    align_blocks(reader);
    return reader->at + tb_checksum_size == reader->entry->mapping_size;
}

// Comes last: what the index tables name can be checked only when all parts have their place.
static bool index_tables_are_sound(const HeaderReader* reader)
{
    for (i32 i = 0; i < reader->sections; ++i) {
        if (!tb_index_table_is_sound(reader->section[i]->pairs)) {
            return false;
        }
    }
    return true;
}

// The order of the file; what is found first is told.
static TbHeaderFault find_fault(HeaderReader* reader)
{
    if (!is_kind(reader)) {
        return TbOtherKind;
    }
    if (!read_flags(reader)) {
        return TbOtherMaterial;
    }
    list_sections(reader);
    if (!read_orders(reader)) {
        return TbOtherMaterial;
    }
    if (!read_all_pairs(reader) || (reader->kind == TbDtzFile && !read_lists(reader))) {
        return TbDamagedHeader;
    }
    reader->notes.length = length_of_all(*reader);
    if (!place_tables(reader)) {
        return TbOtherLength;
    }
    return index_tables_are_sound(reader) ? TbSoundHeader : TbDamagedIndex;
}

TbHeaderFault tb_check_header(TbEntry* entry, TbKind kind, TbHeaderNotes* notes)
{
    HeaderReader reader = { entry, kind, 0, 0, 0, {}, {}, {}, {} };
    const TbHeaderFault fault = find_fault(&reader);
    *notes = reader.notes;
    return fault;
}

bool tb_read_header(TbEntry* entry, TbKind kind)
{
    TbHeaderNotes notes;
    return tb_check_header(entry, kind, &notes) == TbSoundHeader;
}

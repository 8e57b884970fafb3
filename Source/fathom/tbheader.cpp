// Reads the header of a table file. Nothing of it is believed: every offset is checked against the
// length of the mapping before it is used, and that length must be the very one that the header
// makes.
#include "fathom/tbheader.h"

#include "fathom/tbindex.h"
#include "fathom/tbpairs.h"

static constexpr u32 magic_numbers[2] = { 0x5d23e871, 0xa50c66d7 };
static constexpr u64 flag_offset = 4;
static constexpr i32 two_sides = 1;             // bits of the byte there
static constexpr i32 by_pawn_file = 2;
static constexpr i32 highest_wdl = 4;           // stored values, a byte in distance tables
static constexpr i32 highest_dtz = 255;
static constexpr i32 no_order2 = 15;
static constexpr u64 block_alignment = 64;
static constexpr u64 checksum_size = 16;

// A header being read.
struct HeaderReader {
    TbEntry* entry;
    TbKind kind;
    i32 files;                          // sections are by file and side
    i32 sides;
    u64 at;                             // offset of the next byte to be read
    u64 table_size[tb_pawn_files][2];
    u64 size[tb_pawn_files][2][3];      // bytes of index table, size table, blocks
};

// Whether so many bytes are left.
static bool has_bytes(const HeaderReader* reader, u64 count)
{
    const u64 size = reader->entry->mapping_size;
    return reader->at <= size && count <= size - reader->at;
}

// Checks what kind of file this is. The side bit of distance tables has no meaning.
static bool read_kind(HeaderReader* reader)
{
    const TbEntry* entry = reader->entry;
    if (!has_bytes(reader, flag_offset + 1) || tb_u32(entry->data) != magic_numbers[reader->kind]) {
        return false;
    }
    const i32 flags = entry->data[flag_offset];
    if (((flags & by_pawn_file) != 0) != (entry->has_pawns != 0)) {
        return false;
    }
    reader->files = entry->has_pawns ? tb_pawn_files : 1;
    reader->sides = 1;
    reader->at = flag_offset + 1;
    if (reader->kind == TbWdl) {
        reader->sides = (flags & two_sides) != 0 ? 2 : 1;
        return (reader->sides == 1) == (entry->symmetric != 0);
    }
    return true;
}

// Reads order and pieces of one section: the low or the high half of each byte.
static bool read_order(HeaderReader* reader, i32 file, i32 side, const u8* bytes)
{
    const TbEntry* entry = reader->entry;
    TbSection* section = tb_section(reader->entry, file, side);
    const i32 shift = side == 0 ? 0 : 4;
    const i32 order = bytes[0] >> shift & 15;
    const bool second = entry->pawns[1] != 0;
    const i32 order2 = second ? bytes[1] >> shift & 15 : no_order2;
    bytes += second ? 2 : 1;
    for (i32 i = 0; i < entry->num; i++) {
        section->pieces[i] = bytes[i] >> shift & 15;
    }
    // All sections must have the same leading pawns: they choose the section.
    const u64 table_size = tb_set_groups(entry, section, file, order, order2);
    reader->table_size[file][side] = table_size;
    return table_size != 0
        && (!entry->has_pawns || section->pieces[0] == tb_section(reader->entry, 0, 0)->pieces[0]);
}

static bool read_orders(HeaderReader* reader)
{
    const TbEntry* entry = reader->entry;
    const u64 bytes = entry->num + (entry->pawns[1] != 0 ? 2U : 1U);
    for (i32 file = 0; file < reader->files; file++) {
        if (!has_bytes(reader, bytes)) {
            return false;
        }
        for (i32 side = 0; side < reader->sides; side++) {
            if (!read_order(reader, file, side, entry->data + reader->at)) {
                return false;
            }
        }
        reader->at += bytes;
    }
    reader->at += reader->at & 1;
    return true;
}

// Reads the header of one section's values.
static bool read_pairs(HeaderReader* reader, i32 file, i32 side)
{
    const TbEntry* entry = reader->entry;
    TbSection* section = tb_section(reader->entry, file, side);
    if (!has_bytes(reader, 2)) {
        return false;
    }
    const u8* data = entry->data + reader->at;
    const u64 table_size = reader->table_size[file][side];
    const i32 highest = reader->kind == TbWdl ? highest_wdl : highest_dtz;
    section->flags = data[0];
    if ((section->flags & TbFlagOneValue) != 0) {
        const i32 value = reader->kind == TbWdl ? data[1] : 0;
        section->pairs = value <= highest ? tb_one_value(value, table_size) : nullptr;
        reader->at += 2;
    } else {
        const u8* next = data;
        section->pairs = tb_setup_pairs(data, entry->data + entry->mapping_size, table_size,
            highest, reader->size[file][side], &next);
        reader->at += static_cast<u64>(next - data);
    }
    return section->pairs != nullptr
        && !(reader->kind == TbDtz && (section->flags & TbFlagWide) != 0);
}

// Reads the value lists of one section of a distance table, if it has any.
static bool read_lists(HeaderReader* reader, TbSection* section)
{
    if ((section->flags & TbFlagMapped) == 0 || (section->flags & TbFlagOneValue) != 0) {
        return true;
    }
    const u8* data = reader->entry->data;
    for (const u8*& list : section->list) {
        if (!has_bytes(reader, 1) || !has_bytes(reader, 1U + data[reader->at])) {
            return false;
        }
        list = data + reader->at + 1;
        reader->at += 1U + data[reader->at];
    }
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
    reader->at = (reader->at + block_alignment - 1) & ~(block_alignment - 1);
}

// Gives every section its index table, then its size table, then its blocks.
static bool place_tables(HeaderReader* reader)
{
    for (i32 part = 0; part < 3; part++) {
        for (i32 file = 0; file < reader->files; file++) {
            for (i32 side = 0; side < reader->sides; side++) {
                if (part == 2) {
                    align_blocks(reader);
                }
                const u8* bytes = take_bytes(reader, reader->size[file][side][part]);
                PairsData* pairs = tb_section(reader->entry, file, side)->pairs;
                (part == 0 ? pairs->index_table : part == 1 ? pairs->size_table : pairs->data)
                    = bytes;
                if (bytes == nullptr) {
                    return false;
                }
            }
        }
    }
    align_blocks(reader);
    return has_bytes(reader, checksum_size)
        && reader->at + checksum_size == reader->entry->mapping_size;
}

// Goes through all parts of the file in their order.
bool tb_read_header(TbEntry* entry, TbKind kind)
{
    HeaderReader reader = { entry, kind, 0, 0, 0, {}, {} };
    if (!read_kind(&reader) || !read_orders(&reader)) {
        return false;
    }
    for (i32 file = 0; file < reader.files; file++) {
        for (i32 side = 0; side < reader.sides; side++) {
            if (!read_pairs(&reader, file, side)) {
                return false;
            }
        }
    }
    if (kind == TbDtz) {
        for (i32 file = 0; file < reader.files; file++) {
            if (!read_lists(&reader, tb_section(entry, file, 0))) {
                return false;
            }
        }
        reader.at += reader.at & 1;
    }
    if (!place_tables(&reader)) {
        return false;
    }
    for (i32 file = 0; file < reader.files; file++) {
        for (i32 side = 0; side < reader.sides; side++) {
            if (!tb_index_table_is_sound(tb_section(entry, file, side)->pairs)) {
                return false;
            }
        }
    }
    return true;
}

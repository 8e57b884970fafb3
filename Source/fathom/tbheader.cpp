// Reads the header of a table file. Nothing of it is believed: every offset is checked against the
// length of the mapping before it is used, and that length must be the very one that the header
// makes.
#include "fathom/tbheader.h"

#include "fathom/tbindex.h"
#include "fathom/tbpairs.h"

static constexpr u32 magic_numbers[2] = { 0x5d23e871, 0xa50c66d7 };
static constexpr u64 flag_offset = 4;
static constexpr i32 two_sides = 1; // bits of the byte there
static constexpr i32 by_pawn_file = 2;
static constexpr i32 highest_wdl = 4; // stored values, a byte in distance tables
static constexpr i32 highest_dtz = 255;
static constexpr i32 no_order2 = 15;
static constexpr u64 block_alignment = 64;
static constexpr u64 checksum_size = 16;

static constexpr i32 max_sections = 2 * tb_pawn_files;

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
    u64 size[max_sections][3]; // bytes of index table, size table, blocks
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
    reader->at = flag_offset + 1;
    reader->sides = 1;
    if (reader->kind == TbWdl) {
        reader->sides = (flags & two_sides) != 0 ? 2 : 1;
        return (reader->sides == 1) == (entry->symmetric != 0);
    }
    return true;
}

static void list_sections(HeaderReader* reader)
{
    reader->sections = reader->sides * (reader->entry->has_pawns ? tb_pawn_files : 1);
    for (i32 i = 0; i < reader->sections; ++i) {
        reader->section[i] = tb_section(reader->entry, i / reader->sides, i % reader->sides);
    }
}

// Reads order and pieces of one section: the low or the high half of each byte.
static bool read_order(HeaderReader* reader, i32 i, const u8* bytes)
{
    const TbEntry* entry = reader->entry;
    TbSection* section = reader->section[i];
    const i32 shift = i % reader->sides == 0 ? 0 : 4;
    const i32 order = bytes[0] >> shift & 15;
    const bool second = entry->pawns[1] != 0;
    const i32 order2 = second ? bytes[1] >> shift & 15 : no_order2;
    bytes += second ? 2 : 1;
    for (i32 k = 0; k < entry->num; ++k) {
        section->pieces[k] = bytes[k] >> shift & 15;
    }
    // All sections must have the same leading pawns: they choose the section.
    const i32 file = i / reader->sides;
    reader->table_size[i] = tb_set_groups(entry, section, file, order, order2);
    return reader->table_size[i] != 0
        && (!entry->has_pawns || section->pieces[0] == reader->section[0]->pieces[0]);
}

static bool read_orders(HeaderReader* reader)
{
    const TbEntry* entry = reader->entry;
    const u64 bytes = entry->num + (entry->pawns[1] != 0 ? 2U : 1U);
    for (i32 i = 0; i < reader->sections; ++i) {
        if (!has_bytes(reader, bytes) || !read_order(reader, i, entry->data + reader->at)) {
            return false;
        }
        if ((i + 1) % reader->sides == 0) {
            reader->at += bytes; // the sides of a pawn file share the bytes
        }
    }
    reader->at += reader->at & 1;
    return true;
}

// Reads the header of one section's values.
static bool read_pairs(HeaderReader* reader, i32 i)
{
    const TbEntry* entry = reader->entry;
    TbSection* section = reader->section[i];
    if (!has_bytes(reader, 2)) {
        return false;
    }
    const u8* data = entry->data + reader->at;
    const i32 highest = reader->kind == TbWdl ? highest_wdl : highest_dtz;
    section->flags = data[0];
    if ((section->flags & TbFlagOneValue) != 0) {
        const i32 value = reader->kind == TbWdl ? data[1] : 0;
        section->pairs = value <= highest ? tb_one_value(value, reader->table_size[i]) : nullptr;
        reader->at += 2;
    } else {
        const u8* next = data;
        section->pairs = tb_setup_pairs(data, entry->data + entry->mapping_size,
            reader->table_size[i], highest, reader->size[i], &next);
        reader->at += static_cast<u64>(next - data);
    }
    return section->pairs != nullptr
        && !(reader->kind == TbDtz && (section->flags & TbFlagWide) != 0);
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

// Reads the value lists of a distance table, of those sections that have them.
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
    reader->at += reader->at & 1;
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

// Gives every section its index table, then its size table, then its blocks. Returns false if the
// file does not end right behind them.
static bool place_tables(HeaderReader* reader)
{
    for (i32 part = 0; part < 3; ++part) {
        for (i32 i = 0; i < reader->sections; ++i) {
            if (part == 2) {
                align_blocks(reader);
            }
            PairsData* pairs = reader->section[i]->pairs;
            const u8** place = part == 0 ? &pairs->index_table
                : part == 1              ? &pairs->size_table
                                         : &pairs->data;
            *place = take_bytes(reader, reader->size[i][part]);
            if (*place == nullptr) {
                return false;
            }
        }
    }
    align_blocks(reader);
    return reader->at + checksum_size == reader->entry->mapping_size;
}

static bool index_tables_are_sound(const HeaderReader* reader)
{
    for (i32 i = 0; i < reader->sections; ++i) {
        if (!tb_index_table_is_sound(reader->section[i]->pairs)) {
            return false;
        }
    }
    return true;
}

bool tb_read_header(TbEntry* entry, TbKind kind)
{
    HeaderReader reader = { entry, kind, 0, 0, 0, {}, {}, {} };
    if (!read_kind(&reader)) {
        return false;
    }
    list_sections(&reader);
    return read_orders(&reader) && read_all_pairs(&reader) && (kind == TbWdl || read_lists(&reader))
        && place_tables(&reader) && index_tables_are_sound(&reader);
}

// One table file by itself: is it what its name says, is it whole, does its checksum agree, and can
// every value be read. The routines that read it are the engine's; what it does not look at, as a
// probe would wait for gigabytes, is looked at here.
//
// The file is read once from its start to its end, in stretches: of each the digest is taken, then
// the blocks that end in it are decoded while it is still in memory.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <strings.h>
#include <utility>
#include <vector>

#include "data/tables.h"
#include "data/tables_checksum.h"
#include "data/tables_map.h"
#include "fathom/tbbits.h"
#include "fathom/tbcore.h"
#include "fathom/tbnames.h"
#include "fathom/tbpairs.h"
#include "fathom/tbsweep.h"
#include "fathom/tbtable.h"

static constexpr u64 page_size = 4096; // of a disk's zeros

void add_fault(TableFile* file, const char* reason, std::string detail)
{
    file->faults.push_back({ .reason = reason, .detail = std::move(detail) });
}

// ---- Names

struct NamedTables {
    std::vector<std::string> names[tb_most_named + 1]; // by pieces, sorted
};

static NamedTables name_all_tables()
{
    NamedTables tables;
    for (i32 pieces = tb_fewest_named; pieces <= tb_most_named; ++pieces) {
        tb_visit_names(
            pieces,
            [](const char* name, void* context) {
                static_cast<std::vector<std::string>*>(context)->emplace_back(name);
            },
            &tables.names[pieces]);
        std::ranges::sort(tables.names[pieces]);
    }
    return tables;
}

static const NamedTables& all_tables()
{
    static const NamedTables tables = name_all_tables();
    return tables;
}

void read_table_name(TableFile* file)
{
    const std::string_view name = file->name;
    const size_t dot = name.rfind('.');
    const std::string_view ending = dot == std::string_view::npos ? "" : name.substr(dot);
    const bool is_dtz = ending.size() == strlen(tb_suffixes[TbDtzFile])
        && strncasecmp(ending.data(), tb_suffixes[TbDtzFile], ending.size()) == 0;
    file->kind = is_dtz ? TbDtzFile : TbWdlFile;
    if (ending != tb_suffixes[file->kind]) {
        return;
    }
    const std::string material(name.substr(0, dot));
    const size_t pieces = material.size() - (material.empty() ? 0 : 1);
    if (pieces >= tb_fewest_named && pieces <= tb_most_named
        && std::ranges::binary_search(all_tables().names[pieces], material)) {
        file->material = material;
        file->pieces = static_cast<i32>(pieces);
    }
}

// ---- The header

struct EntryDeleter {
    // The mapping is not the entry's own.
    void operator()(TbEntry* entry) const
    {
        entry->data = nullptr;
        tb_delete_entry(entry);
    }
};
using EntryPointer = std::unique_ptr<TbEntry, EntryDeleter>;

// Reads the header as that of a material. *entry stays null without memory.
static TbHeaderFault read_as(const MappedFile& mapped, const std::string& material, TbKind kind,
    EntryPointer* entry, TbHeaderNotes* notes)
{
    *notes = {};
    entry->reset(tb_new_entry(material.find('P') != std::string::npos));
    if (*entry == nullptr) {
        return TbDamagedHeader;
    }
    tb_set_material(entry->get(), material.c_str());
    (*entry)->data = mapped.data;
    (*entry)->mapping_size = mapped.size;
    return tb_check_header(entry->get(), kind, notes);
}

// The material whose table of this kind the bytes are; empty if there is none.
static std::string recognise_material(const MappedFile& mapped, TbKind kind)
{
    for (i32 pieces = tb_fewest_named; pieces <= tb_max_pieces; ++pieces) {
        for (const std::string& name : all_tables().names[pieces]) {
            EntryPointer entry;
            TbHeaderNotes notes;
            const TbHeaderFault fault = read_as(mapped, name, kind, &entry, &notes);
            if (notes.is_tidy && (fault == TbSoundHeader || fault == TbOtherLength)) {
                return name;
            }
            if (fault == TbOtherKind) {
                return {};
            }
        }
    }
    return {};
}

// The same as the name that the file should have, for both kinds.
static std::string recognise_table(const MappedFile& mapped)
{
    for (const TbKind kind : { TbWdlFile, TbDtzFile }) {
        const std::string material = recognise_material(mapped, kind);
        if (!material.empty()) {
            return material + tb_suffixes[kind];
        }
    }
    return {};
}

static void tell_other_table(const MappedFile& mapped, const char* otherwise, TableFile* file)
{
    const std::string held = recognise_table(mapped);
    if (held.empty()) {
        add_fault(file, otherwise, {});
    } else {
        const bool same_kind = held.ends_with(tb_suffixes[file->kind]);
        add_fault(file, same_kind ? fault_other_table : fault_other_kind, held);
    }
}

static std::string length_text(u64 bytes, u64 wanted)
{
    std::string text = std::to_string(bytes) + " bytes";
    return wanted == 0 ? text : text + ", the header makes " + std::to_string(wanted);
}

// Tells what is wrong with the header. Returns whether everything behind it has its place.
static bool check_header(const MappedFile& mapped, EntryPointer* entry, TableFile* file)
{
    TbHeaderNotes notes;
    const TbHeaderFault fault = read_as(mapped, file->material, file->kind, entry, &notes);
    switch (fault) {
    case TbSoundHeader:
    case TbOtherLength:
        // The header of KNNvK.rtbz can be read as that of KNvK.rtbz, but for some bytes.
        if (!notes.is_tidy) {
            tell_other_table(mapped, fault_header, file);
        } else if (fault == TbOtherLength) {
            add_fault(file, fault_length, length_text(mapped.size, notes.length));
        }
        return notes.is_tidy && fault == TbSoundHeader;
    case TbOtherKind:
        tell_other_table(mapped, fault_no_table, file);
        break;
    case TbOtherMaterial:
        tell_other_table(mapped, fault_header, file);
        break;
    case TbDamagedHeader:
        add_fault(file, fault_header, {});
        break;
    case TbDamagedIndex:
        add_fault(file, fault_index, "it leads out of the blocks");
        break;
    }
    return false;
}

// Whether a file of more pieces than the reader takes has the material of its name: kind, flags,
// and the pieces of its first section, which stand behind one order byte or, with pawns on both
// sides, two.
static bool has_material_of_name(const MappedFile& mapped, const TableFile& file)
{
    static constexpr size_t flag_offset = 4;
    static constexpr u8 by_pawn_file = 2;
    TbEntry material = {};
    tb_set_material(&material, file.material.c_str());
    const size_t pieces = flag_offset + 2 + (material.pawns[1] != 0 ? 1 : 0);
    if (mapped.size < pieces + material.num || tb_u32(mapped.data) != tb_magic_numbers[file.kind]
        || ((mapped.data[flag_offset] & by_pawn_file) != 0) != (material.has_pawns != 0)) {
        return false;
    }
    u8 count[tb_code_count] = {};
    for (size_t i = 0; i < material.num; ++i) {
        ++count[mapped.data[pieces + i] & 15];
    }
    return std::ranges::equal(count, material.count);
}

// ---- Blocks

// The sections of a file with several values each, in its order, and how far they were checked.
struct BlockSweep {
    const u8* data;
    std::vector<const PairsData*> sections;
    size_t section;
    u64 block;
    u64 bad;           // blocks
    std::string first; // bad one
    std::unique_ptr<TbSweep> runs = std::make_unique<TbSweep>();
};

static void list_sections(TbEntry* entry, TableFile* file, BlockSweep* sweep)
{
    const i32 files = entry->has_pawns ? tb_pawn_files : 1;
    for (i32 i = 0; i < files; ++i) {
        for (i32 side = 0; side < 2; ++side) {
            const PairsData* pairs = tb_section(entry, i, side)->pairs;
            if (pairs == nullptr) {
                continue;
            }
            ++file->sections;
            file->values += pairs->table_size;
            if (pairs->idx_bits != 0) {
                file->blocks += pairs->blocks;
                sweep->sections.push_back(pairs);
            }
        }
    }
}

static void check_sizes(const BlockSweep& sweep, TableFile* file)
{
    static constexpr const char* texts[] = { "", "size without a block", "sizes of the blocks",
        "place in the index" };
    for (size_t i = 0; i < sweep.sections.size(); ++i) {
        u64 place = 0;
        const TbSizesFault fault = tb_check_sizes(sweep.sections[i], &place);
        if (fault != TbSoundSizes) {
            add_fault(file, fault_index,
                "section " + std::to_string(i + 1) + ", " + texts[fault] + ' '
                    + std::to_string(place));
        }
    }
}

// Checks the blocks of the current section that end before this byte of the file. Returns whether
// it is done.
static bool check_section(BlockSweep* sweep, u64 end)
{
    const PairsData* pairs = sweep->sections[sweep->section];
    const u64 start = static_cast<u64>(pairs->data - sweep->data);
    if (sweep->block == 0) {
        tb_start_sweep(sweep->runs.get(), pairs);
    }
    const u64 ready =
        end <= start ? 0 : std::min<u64>((end - start) >> pairs->block_size, pairs->blocks);
    while (sweep->block < ready) {
        const u64 bad = tb_find_bad_block(sweep->runs.get(), sweep->block, ready);
        if (bad < ready && sweep->bad++ == 0) {
            sweep->first = "section " + std::to_string(sweep->section + 1) + ", block "
                + std::to_string(bad) + ", byte "
                + std::to_string(start + (bad << pairs->block_size));
        }
        sweep->block = bad + 1;
    }
    sweep->block = ready;
    return ready == pairs->blocks;
}

static void check_blocks(BlockSweep* sweep, u64 end)
{
    while (sweep->section < sweep->sections.size() && check_section(sweep, end)) {
        ++sweep->section;
        sweep->block = 0;
    }
}

static void tell_bad_blocks(const BlockSweep& sweep, TableFile* file)
{
    if (sweep.bad > 0) {
        add_fault(file, fault_block,
            sweep.first + (sweep.bad > 1 ? " and " + std::to_string(sweep.bad - 1) + " more" : ""));
    }
}

// What fills up the room in front of each section's blocks, and in front of the checksum.
static void check_gaps(const BlockSweep& sweep, const MappedFile& mapped, TableFile* file)
{
    if (sweep.sections.empty()) {
        return;
    }
    const PairsData* last = sweep.sections.back();
    const u8* begin = last->size_table + 2 * static_cast<u64>(last->size_entries);
    const auto is_zero = [](u8 byte) { return byte == 0; };
    for (const PairsData* pairs : sweep.sections) {
        if (!std::all_of(begin, pairs->data, is_zero)) {
            add_fault(file, fault_gap, {});
            return;
        }
        begin = pairs->data + (static_cast<u64>(pairs->blocks) << pairs->block_size);
    }
    const u8* end = mapped.data + mapped.size - tb_checksum_size;
    if (!std::all_of(begin, end, is_zero)) {
        add_fault(file, fault_gap, {});
    }
}

// ---- The checksum

static TableChecksum stored_checksum(const MappedFile& mapped)
{
    TableChecksum checksum = {};
    for (size_t i = 0; i < tb_checksum_size; ++i) {
        const u8 byte = mapped.data[mapped.size - tb_checksum_size + i];
        checksum[i / 8] |= static_cast<u64>(byte) << (8 * (i % 8));
    }
    return checksum;
}

// The first pages of zeros, which a download leaves where it was not finished; empty if there are
// none. Told of files alone that are known to be damaged: a sound one hardly ever has such a page.
static std::string find_zeros(const MappedFile& mapped)
{
    static constexpr std::array<u8, page_size> zeros = {};
    u64 begin = 0;
    u64 end = 0;
    for (u64 at = 0; at < mapped.size; at += page_size) {
        const u64 length = std::min(page_size, mapped.size - at);
        if (memcmp(mapped.data + at, zeros.data(), length) == 0) {
            begin = end == 0 ? at : begin;
            end = at + length;
        } else if (end != 0) {
            break;
        }
    }
    return end == 0 ? ""
                    : "zeros from byte " + std::to_string(begin) + " to " + std::to_string(end);
}

static std::vector<ChunkDigest> digest_again(const MappedFile& mapped, u64 chunk_length)
{
    std::vector<ChunkDigest> digests;
    const u64 size = mapped.size - tb_checksum_size;
    for (u64 at = 0; at < size; at += chunk_length) {
        const u64 end = std::min(size, at + chunk_length);
        announce_reading(mapped, end, end + chunk_length);
        digests.push_back(digest_chunk({ mapped.data + at, end - at }));
        finish_reading(mapped, at, end);
    }
    return digests;
}

// Whether other lengths of a chunk make the checksum.
static bool agrees_otherwise(const MappedFile& mapped, const TableChecksum& stored)
{
    for (const u64 length : chunk_lengths) {
        // The first was tried; one that is no less than the file makes it one chunk, as below.
        if (length != chunk_lengths[0] && length < mapped.size
            && makes_checksum(digest_again(mapped, length), stored)) {
            return true;
        }
    }
    return mapped.size > chunk_lengths[0]
        && makes_checksum(digest_again(mapped, mapped.size), stored);
}

// is_well tells whether nothing else was found.
static void judge_checksum(const MappedFile& mapped, const std::vector<ChunkDigest>& digests,
    bool is_well, TableFile* file)
{
    const TableChecksum stored = stored_checksum(mapped);
    file->stored = checksum_text(stored).data();
    const bool may_be_other = mapped.size > known_checksum_size && is_well;
    if (makes_checksum(digests, stored) || (may_be_other && agrees_otherwise(mapped, stored))) {
        file->checksum = ChecksumState::Agrees;
        return;
    }
    file->checksum = ChecksumState::Differs;
    std::string detail = stored == TableChecksum {} ? "there is none" : find_zeros(mapped);
    if (detail.empty() && may_be_other) {
        detail = "all else is well: how that of files above 8 MB is made may not be known here";
    }
    add_fault(file, fault_checksum, std::move(detail));
}

// ---- All together

// Reads the file through once. sweep is null where there is nothing to decode.
static std::vector<ChunkDigest> read_through(const MappedFile& mapped, BlockSweep* sweep)
{
    static constexpr u64 chunk_length = chunk_lengths[0];
    std::vector<ChunkDigest> digests;
    const u64 size = mapped.size - tb_checksum_size;
    announce_reading(mapped, 0, chunk_length);
    const i64 failed = count_failed_reads();
    for (u64 at = 0; at < size && count_failed_reads() == failed; at += chunk_length) {
        const u64 end = std::min(size, at + chunk_length);
        announce_reading(mapped, end, end + chunk_length);
        digests.push_back(digest_chunk({ mapped.data + at, end - at }));
        if (sweep != nullptr) {
            check_blocks(sweep, end);
        }
        if (at >= chunk_length) {
            finish_reading(mapped, at - chunk_length, at); // the last block may begin in there
        }
    }
    return digests;
}

static void check_content(const TablesSettings& settings, const MappedFile& mapped, TableFile* file)
{
    EntryPointer entry;
    BlockSweep sweep = { mapped.data, {}, 0, 0, 0, {} };
    if (file->material.empty()) {
        add_fault(file, fault_name, recognise_table(mapped));
    } else if (file->pieces <= tb_max_pieces) {
        file->has_header = check_header(mapped, &entry, file);
    } else if (!has_material_of_name(mapped, *file)) {
        const bool is_kind =
            mapped.size >= sizeof(u32) && tb_u32(mapped.data) == tb_magic_numbers[file->kind];
        tell_other_table(mapped, is_kind ? fault_header : fault_no_table, file);
    }
    if (file->has_header) {
        list_sections(entry.get(), file, &sweep);
        check_sizes(sweep, file);
    }
    if (mapped.size % tb_block_alignment != tb_checksum_size || mapped.size <= tb_checksum_size) {
        if (file->faults.empty()) {
            add_fault(file, fault_length, length_text(mapped.size, 0));
        }
        return;
    }
    const bool at_once = file->has_header && !settings.quick;
    const std::vector<ChunkDigest> digests = read_through(mapped, at_once ? &sweep : nullptr);
    judge_checksum(mapped, digests, file->faults.empty() && sweep.bad == 0, file);
    if (file->has_header && (at_once || file->checksum != ChecksumState::Agrees)) {
        check_blocks(&sweep, mapped.size);
        tell_bad_blocks(sweep, file);
        check_gaps(sweep, mapped, file);
        file->decoded = true;
    }
}

void check_table_file(const TablesSettings& settings, TableFile* file)
{
    MappedFile mapped;
    file->error = map_table_file(file->path.c_str(), &mapped);
    if (file->error != 0) {
        return;
    }
    file->bytes = mapped.size;
    const i64 failed = count_failed_reads();
    if (mapped.size == 0) {
        add_fault(file, fault_length, "empty");
    } else {
        check_content(settings, mapped, file);
    }
    // What was found of a file that somebody writes to says nothing; a disk that cannot be read
    // leaves it unchanged.
    if (!is_unchanged(file->path.c_str(), mapped)) {
        file->faults.clear();
        add_fault(file, fault_changed, {});
        file->checksum = ChecksumState::NotRead;
    } else if (count_failed_reads() != failed) {
        file->faults.clear();
        file->error = EIO;
    }
    unmap_table_file(&mapped);
}

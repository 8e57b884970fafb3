// The check of table files, alone and together. The first byte chooses the material, the next two
// are the length of the first file, the win/draw/loss file; the rest is the distance file. Bit 7 of
// the first byte makes their checksums agree. Whatever the files hold, the check ends and reads
// nothing but them, and every value of a file that passes can be read.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

#include "fuzz_support.h"
#include "guarded_mmap.h"
#include "data/tables.h"
#include "data/tables_checksum.h"
#include "fathom/tbcore.h"
#include "fathom/tbinit.h"
#include "fathom/tbpairs.h"
#include "fathom/tbtable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static constexpr const char* materials[] = { "KQvK", "KRvK", "KBvK", "KPvK", "KPvKP", "KRRvK",
    "KPPvK", "KQvKQ" };
static constexpr u64 values_read = 2000; // of a section
static constexpr u8 seal_bit = 128;

static std::string sealed(std::string bytes)
{
    if (bytes.size() <= tb_checksum_size) {
        return bytes;
    }
    bytes.resize(bytes.size() - tb_checksum_size);
    const TableChecksum checksum =
        checksum_of({ reinterpret_cast<const u8*>(bytes.data()), bytes.size() });
    for (size_t i = 0; i < tb_checksum_size; ++i) {
        bytes += static_cast<char>(checksum[i / 8] >> (8 * (i % 8)));
    }
    return bytes;
}

// A file that has passed is one that the engine's reader takes, with a value in every place.
static void read_values(const TableFile& file, const std::string& bytes)
{
    TbEntry* entry = tb_new_entry(file.material.find('P') != std::string::npos);
    tb_set_material(entry, file.material.c_str());
    entry->data = reinterpret_cast<const u8*>(bytes.data());
    entry->mapping_size = bytes.size();
    bool sound = tb_read_header(entry, file.kind);
    for (i32 i = 0; sound && i < (entry->has_pawns ? 2 * tb_pawn_files : 2); ++i) {
        const PairsData* pairs = tb_section(entry, i / 2, i % 2)->pairs;
        const u64 count = pairs != nullptr ? pairs->table_size : 0;
        for (u64 k = 0; k < std::min(count, values_read); ++k) {
            sound = sound
                && tb_decompress_pairs(pairs, k * (count / std::min(count, values_read))) >= 0;
        }
    }
    entry->data = nullptr;
    tb_delete_entry(entry);
    if (!sound) {
        fprintf(stderr, "%s passed as sound\n", file.name.c_str());
        abort();
    }
}

static TableFile check(const std::string& name, const std::string& bytes)
{
    write_file(name.c_str(), bytes);
    TableFile file;
    file.path = name;
    file.folder = ".";
    file.name = name;
    read_table_name(&file);
    check_table_file({}, &file);
    if (is_sound(file)) {
        read_values(file, bytes);
    }
    return file;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    if (size < 3) {
        return 0;
    }
    guard_mappings(true);
    const std::string name = materials[data[0] % std::size(materials)];
    const bool seals = (data[0] & seal_bit) != 0;
    const size_t rest = size - 3;
    const size_t first = std::min<size_t>(rest, data[1] | data[2] << 8);
    const std::string bytes(reinterpret_cast<const char*>(data) + 3, rest);
    const std::string parts[] = { bytes.substr(0, first), bytes.substr(first) };
    std::vector<TableFile> files;
    for (i32 kind = 0; kind < tb_kinds; ++kind) {
        files.push_back(check(name + tb_suffixes[kind], seals ? sealed(parts[kind]) : parts[kind]));
    }
    TableFile* both[] = { &files[0], &files[1] };
    TablesSettings settings;
    settings.sample = 20;
    RunProgress progress;
    compare_tables(settings, ".", both, &progress);
    static_cast<void>(tables_as_json(files));
    tb_init("");
    for (const TableFile& file : files) {
        unlink(file.path.c_str());
    }
    return 0;
}

// Table files: their first use, the cache of the distance tables, and files that are missing,
// cut off or damaged.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "fathom_support.h"
#include "fathom/tbfile.h"
#include "fathom/tbheader.h"
#include "fathom/tbinit.h"
#include "fathom/tbpairs.h"
#include "sanitizers.h"

static const char* const queen_wins = "8/8/8/4k3/8/8/8/K6Q w - - 0 1";
static const char* const queen_wins_for_black = "8/8/8/4K3/8/8/8/k6q b - - 0 1";
static const std::string corrupted = "Corrupted table.\n";
static const std::string unmapped = "munmap: Success\n";

struct TableFiles : TablesTest {
};

// A table of this folder alone.
static void use_file(const std::string& name, const std::string& bytes)
{
    write_bytes(name, bytes);
    use_tables(".");
}

// The number of files of a suffix that the process has mapped.
static i32 mapped_files(const std::string& suffix)
{
    std::ifstream maps("/proc/self/maps");
    i32 count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.ends_with(suffix);
    }
    return count;
}

static i32 count_of(const std::string& text, const std::string& part)
{
    i32 count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

// ---- First use

TEST_F(TableFiles, AreMappedAtTheFirstProbeAndGivenBackByTheNextPath)
{
    use_tables(real_tables());
    EXPECT_EQ(mapped_files(".rtbw"), 0);
    EXPECT_EQ(wdl_of(queen_wins), "2");
    EXPECT_EQ(wdl_of(queen_wins_for_black), "2");
    EXPECT_EQ(mapped_files(".rtbw"), 1);
    EXPECT_EQ(mapped_files(".rtbz"), 0);
    EXPECT_NE(dtz_of(queen_wins), "none");
    EXPECT_EQ(mapped_files(".rtbz"), 1);
    EXPECT_EQ(capture_errors([] { tb_init(""); }), unmapped + unmapped);
    EXPECT_EQ(mapped_files(".rtbw") + mapped_files(".rtbz"), 0);
}

TEST_F(TableFiles, MissingTableIsToldOncePerView)
{
    use_file("KQvK.rtbw", table_bytes("KQvK.rtbw"));
    std::filesystem::remove("KQvK.rtbw");
    EXPECT_EQ(wdl_errors(queen_wins), "Could not find KQvK.rtbw\nnone");
    EXPECT_EQ(wdl_errors(queen_wins), "none");
    EXPECT_EQ(wdl_errors(queen_wins_for_black), "Could not find KQvK.rtbw\nnone")
        << "the slot of the mirrored key stays";
    EXPECT_EQ(wdl_errors(queen_wins_for_black), "none");
}

TEST_F(TableFiles, WrongTypeOfFileIsCorrupted)
{
    use_file("KQvK.rtbw", table_bytes("KQvK.rtbz"));
    EXPECT_EQ(wdl_errors(queen_wins), corrupted + unmapped + "none");
    EXPECT_EQ(wdl_errors(queen_wins), "none");
    use_file("KQvK.rtbw", table_bytes("KRvK.rtbw"));
    EXPECT_EQ(wdl_errors(queen_wins), corrupted + unmapped + "none") << "another material";
    EXPECT_EQ(mapped_files(".rtbw"), 0);
}

TEST_F(TableFiles, CorruptedDistanceTableLeavesTheValues)
{
    write_bytes("KQvK.rtbz", table_bytes("KQvK.rtbw"));
    use_file("KQvK.rtbw", table_bytes("KQvK.rtbw"));
    EXPECT_EQ(dtz_errors(queen_wins), corrupted + "none");
    EXPECT_EQ(dtz_errors(queen_wins), "none") << "it is not tried again";
    EXPECT_EQ(dtz_errors(queen_wins_for_black), "none");
    EXPECT_EQ(wdl_errors(queen_wins), "2");
    EXPECT_EQ(wdl_errors(queen_wins_for_black), "2");
    EXPECT_EQ(mapped_files(".rtbz"), 1) << "it stays mapped";
}

TEST_F(TableFiles, MissingDistanceTableIsNotToldAndNotTriedAgain)
{
    use_file("KQvK.rtbw", table_bytes("KQvK.rtbw"));
    EXPECT_EQ(dtz_errors(queen_wins), "none");
    write_bytes("KQvK.rtbz", table_bytes("KQvK.rtbz"));
    EXPECT_EQ(dtz_errors(queen_wins), "none");
    use_tables(".");
    EXPECT_NE(dtz_errors(queen_wins), "none");
}

TEST_F(TableFiles, OneValueTablesAnswerWithoutData)
{
    PairsData* pairs = tb_one_value(3, 100);
    ASSERT_NE(pairs, nullptr);
    EXPECT_EQ(pairs->data, nullptr);
    EXPECT_EQ(pairs->idx_bits, 0);
    EXPECT_EQ(tb_decompress_pairs(pairs, 0), 3);
    EXPECT_EQ(tb_decompress_pairs(pairs, 99), 3);
    free(pairs);
    write_bytes("KQvK.rtbz", one_value_table("KQvK", ".rtbz"));
    use_file("KQvK.rtbw", one_value_table("KQvK", ".rtbw", 4, 1));
    EXPECT_EQ(wdl_errors(queen_wins), "2");
    EXPECT_EQ(wdl_errors("8/8/8/4k3/8/8/8/K6Q b - - 0 1"), "-1");
    EXPECT_EQ(wdl_errors(queen_wins_for_black), "2");
    EXPECT_EQ(dtz_errors(queen_wins), "1");
}

// In a child process, whose address space is used up.
static void probe_without_room()
{
    const rlimit none = { 0, 0 };
    setrlimit(RLIMIT_AS, &none);
    wdl_of(queen_wins);
}

TEST_F(TableFiles, MappingThatFailsEndsTheProgram)
{
#if defined(ADDRESS_SANITIZED)
    GTEST_SKIP() << "the sanitizer needs room itself";
#endif
    testing::FLAGS_gtest_death_test_style = "fast";
    use_tables(real_tables());
    set_position(queen_wins);
    EXPECT_EXIT(
        probe_without_room(), testing::ExitedWithCode(1), "^Could not mmap\\(\\) KQvK\\.\n$");
}

// ---- The cache of distance tables

// All groups of one to four pieces without pawns.
static std::vector<std::string> piece_groups()
{
    const std::string letters = "QRBN";
    std::vector<std::string> groups = { "" };
    for (size_t i = 0; i < groups.size(); ++i) {
        const std::string group = groups[i];
        if (group.size() == 4) {
            continue;
        }
        for (size_t k = group.empty() ? 0 : letters.find(group.back()); k < 4; ++k) {
            groups.push_back(group + letters[k]);
        }
    }
    groups.erase(groups.begin());
    return groups;
}

// White's pieces stand on the third rank, and its king in the corner; black's bare king where
// nothing attacks it.
static TbPos position_against_a_king(const std::string& pieces)
{
    const std::string rank = pieces + std::to_string(8 - pieces.size());
    TbPos pos = tb_pos_of("8/8/8/8/8/" + rank + "/8/K7 w - - 0 1");
    for (i32 square = 63; square > 31; --square) {
        pos.black = bit(square);
        pos.kings = 1 | pos.black;
        if (!tb_in_check(&pos, 0)) {
            break;
        }
    }
    EXPECT_FALSE(tb_in_check(&pos, 0)) << pieces;
    return pos;
}

TEST_F(TableFiles, OnlyTheDistanceTableUsedLastIsKnownByBothViews)
{
    use_tables(real_tables());
    EXPECT_NE(dtz_of(queen_wins), "none");
    EXPECT_NE(dtz_of(queen_wins_for_black), "none");
    EXPECT_EQ(mapped_files(".rtbz"), 1);
    EXPECT_NE(dtz_of("8/8/8/4k3/8/8/8/K6R w - - 0 1"), "none");
    EXPECT_NE(dtz_of(queen_wins), "none") << "found by the view that mapped it";
    EXPECT_EQ(mapped_files(".rtbz"), 2);
    EXPECT_NE(dtz_of("8/8/8/4k3/8/8/8/K6R w - - 0 1"), "none");
    EXPECT_NE(dtz_of(queen_wins_for_black), "none");
    EXPECT_EQ(mapped_files(".rtbz"), 3) << "the other view has a slot of its own";
}

TEST_F(TableFiles, SixtyFifthDistanceTableTakesThePlaceOfTheOneUsedLeastRecently)
{
    std::vector<TbPos> wins;
    for (const std::string& pieces : piece_groups()) {
        const std::string name = "K" + pieces + "vK";
        write_bytes(name + ".rtbw", one_value_table(name, ".rtbw", 4, 0));
        write_bytes(name + ".rtbz", one_value_table(name, ".rtbz"));
        wins.push_back(position_against_a_king(pieces));
    }
    ASSERT_GE(wins.size(), 66u);
    use_tables(".");
    for (size_t i = 0; i < 64; ++i) {
        EXPECT_EQ(dtz_errors(wins[i]), "1") << i;
    }
    EXPECT_EQ(mapped_files(".rtbz"), 64);
    EXPECT_EQ(dtz_errors(wins[0]), "1") << "used again: the second is the oldest now";
    EXPECT_EQ(dtz_errors(wins[64]), unmapped + "1");
    EXPECT_EQ(mapped_files(".rtbz"), 64);
    EXPECT_EQ(dtz_errors(wins[0]), "1");
    EXPECT_EQ(dtz_errors(wins[1]), unmapped + "1") << "mapped again";
    EXPECT_EQ(mapped_files(".rtbz"), 64);
    EXPECT_EQ(mapped_files(".rtbw"), 65) << "values are not limited";
    EXPECT_EQ(dtz_errors(wins[65]), unmapped + "1");
    const std::string errors = capture_errors([] { tb_init(""); });
    EXPECT_EQ(count_of(errors, unmapped), 66 + 64);
    EXPECT_EQ(mapped_files(".rtbw") + mapped_files(".rtbz"), 0);
}

// ---- Damaged files

struct RealFile {
    std::string name;
    TbKind kind;
    size_t length; // of the part to be changed
};

// The registry's entry of a file's material, alone there, and the file's bytes.
static TbEntry* enter_alone(const RealFile& file)
{
    use_tables("");
    tb_add_table(file.name.c_str());
    return tb_lookup(tb_key_of_name(file.name));
}

static std::string bytes_of_file(const RealFile& file)
{
    return table_bytes(file.name + (file.kind == TbWdlFile ? ".rtbw" : ".rtbz"));
}

// A table set up from bytes in memory of just their length, so that the address sanitizer sees
// every read beyond them.
struct TableInMemory {
    std::vector<u8> bytes;
    TbEntry* entry;
    bool is_sound;

    TableInMemory(TbEntry* of_material, TbKind kind, const std::string& text)
        : bytes(text.begin(), text.end())
        , entry(of_material)
    {
        entry->data = bytes.data();
        entry->mapping_size = bytes.size();
        is_sound = tb_read_header(entry, kind);
    }

    ~TableInMemory()
    {
        entry->data = nullptr;
        tb_release(entry);
    }
};

TEST_F(TableFiles, FileCutAtAnyByteIsRefused)
{
    const RealFile files[] = { { "KQvK", TbWdlFile, 0 }, { "KRvK", TbWdlFile, 0 },
        { "KBvK", TbWdlFile, 0 }, { "KBvK", TbDtzFile, 0 }, { "KPvK", TbWdlFile, 0 },
        { "KPvK", TbDtzFile, 0 }, { "KRvKR", TbDtzFile, 0 } };
    for (const RealFile& file : files) {
        TbEntry* entry = enter_alone(file);
        const std::string bytes = bytes_of_file(file);
        EXPECT_TRUE(TableInMemory(entry, file.kind, bytes).is_sound) << file.name;
        EXPECT_FALSE(TableInMemory(entry, file.kind, bytes + '\0').is_sound) << file.name;
        for (size_t length = 0; length < bytes.size(); ++length) {
            EXPECT_FALSE(TableInMemory(entry, file.kind, bytes.substr(0, length)).is_sound)
                << file.name << " " << length;
        }
    }
}

// Of a sound file's length, with nothing else changed: only the number itself can tell.
TEST_F(TableFiles, FileWithAnotherMagicNumberIsRefused)
{
    const RealFile files[] = { { "KQvK", TbWdlFile, 0 }, { "KQvK", TbDtzFile, 0 },
        { "KPvK", TbWdlFile, 0 }, { "KPvK", TbDtzFile, 0 } };
    for (const RealFile& file : files) {
        TbEntry* entry = enter_alone(file);
        const std::string bytes = bytes_of_file(file);
        ASSERT_TRUE(TableInMemory(entry, file.kind, bytes).is_sound) << file.name;
        for (size_t at = 0; at < 4; ++at) {
            for (i32 bit = 0; bit < 8; ++bit) {
                std::string changed = bytes;
                changed[at] = static_cast<char>(changed[at] ^ (1 << bit));
                EXPECT_FALSE(TableInMemory(entry, file.kind, changed).is_sound)
                    << file.name << " byte " << at << " bit " << bit;
            }
        }
    }
    // The number of the other kind is none of this one's.
    TbEntry* entry = enter_alone(files[0]);
    const std::string bytes =
        bytes_of_file(files[1]).substr(0, 4) + bytes_of_file(files[0]).substr(4);
    EXPECT_FALSE(TableInMemory(entry, TbWdlFile, bytes).is_sound);
}

TEST_F(TableFiles, DamagedFileCountsAsMissing)
{
    const std::string values = table_bytes("KQvK.rtbw");
    const std::string distances = table_bytes("KQvK.rtbz");
    for (const size_t length : { 0, 1, 4, 5, 100, 271 }) {
        write_bytes("KQvK.rtbz", distances);
        use_file("KQvK.rtbw", values.substr(0, length));
        EXPECT_EQ(wdl_errors(queen_wins), corrupted + (length > 0 ? unmapped : "") + "none");
        EXPECT_EQ(wdl_errors(queen_wins), "none");
        write_bytes("KQvK.rtbz", distances.substr(0, length));
        use_file("KQvK.rtbw", values);
        EXPECT_EQ(dtz_errors(queen_wins), corrupted + "none") << length;
        EXPECT_EQ(wdl_errors(queen_wins), "2");
    }
}

// Whatever stands in a file: if it is taken, every index has a value in range or none. The
// sanitizers see what is read.
static void decode_all(TbEntry* entry, TbKind kind, const std::string& bytes)
{
    const TableInMemory table(entry, kind, bytes);
    if (!table.is_sound) {
        return;
    }
    const i32 highest = kind == TbWdlFile ? 4 : 255;
    for (i32 file = 0; file < (table.entry->has_pawns ? 4 : 1); ++file) {
        for (i32 side = 0; side < 2; ++side) {
            const PairsData* pairs = tb_section(table.entry, file, side)->pairs;
            const u64 step = pairs != nullptr ? pairs->table_size / 40 + 1 : 1;
            for (u64 i = 0; pairs != nullptr && i <= pairs->table_size; i += step) {
                const i32 value = tb_decompress_pairs(pairs, i);
                ASSERT_TRUE(value >= -1 && value <= highest) << value;
            }
        }
    }
}

TEST_F(TableFiles, ChangedBytesOfAFileDoNoHarm)
{
    const RealFile files[] = { { "KRvK", TbWdlFile, 208 }, { "KRvK", TbDtzFile, 300 },
        { "KPvK", TbWdlFile, 700 }, { "KPvKP", TbDtzFile, 900 }, { "KQvKR", TbWdlFile, 200 } };
    for (const RealFile& file : files) {
        TbEntry* entry = enter_alone(file);
        const std::string bytes = bytes_of_file(file);
        for (size_t at = 0; at < file.length; ++at) {
            for (const i32 value : { 0, 255, bytes[at] ^ 1, bytes[at] ^ 16 }) {
                std::string changed = bytes;
                changed[at] = static_cast<char>(value);
                decode_all(entry, file.kind, changed);
            }
        }
    }
}

// A section's header with two symbols of one bit each: the values 1 and 3. The index table, the
// sizes and one block follow.
struct SmallSection {
    u8 bytes[64] = {
        0, 4, 5, 0, 1, 0, 0, 0, 1, 1, // blocks of 16 bytes, an entry for 32 values
        0, 0, 3, 0,                   // first symbol, number of symbols
        1, 0xf0, 0xff, 3, 0xf0, 0xff, // two leaves
        0, 0x10, 0, 0,                // a pair of both, padding
    };
    u64 size[3] = {};
    const u8* next = nullptr;

    // Sets the section up with so many of its bytes there; highest value 4.
    PairsData* set_up(size_t length = 64)
    {
        return tb_setup_pairs(bytes, bytes + length, 20, 4, size, &next);
    }

    bool is_sound(size_t length = 64)
    {
        PairsData* pairs = set_up(length);
        free(pairs);
        return pairs != nullptr;
    }
};

TEST_F(TableFiles, SectionIsSetUpFromItsHeader)
{
    SmallSection section;
    PairsData* pairs = section.set_up();
    ASSERT_NE(pairs, nullptr);
    EXPECT_EQ(section.next - section.bytes, 24);
    EXPECT_EQ(section.size[0], 6u);
    EXPECT_EQ(section.size[1], 2u);
    EXPECT_EQ(section.size[2], 16u);
    EXPECT_EQ(pairs->base[0], 0u);
    EXPECT_EQ(pairs->symlen[0], 0);
    EXPECT_EQ(pairs->symlen[2], 1);
    // Value 16 is number 16 of block 0, which holds 20; bits 0101...
    const u8 index_table[] = { 0, 0, 0, 0, 16, 0 };
    const u8 size_table[] = { 19, 0 };
    u8 block[32];
    memset(block, 0x55, sizeof block);
    pairs->index_table = index_table;
    pairs->size_table = size_table;
    pairs->data = block;
    pairs->end = block + sizeof block;
    EXPECT_TRUE(tb_index_table_is_sound(pairs));
    for (u64 i = 0; i < 20; ++i) {
        EXPECT_EQ(tb_decompress_pairs(pairs, i), i % 2 == 0 ? 1 : 3) << i;
    }
    EXPECT_EQ(tb_decompress_pairs(pairs, 20), -1) << "beyond the table";
    free(pairs);
}

TEST_F(TableFiles, DecodingEndsWhereTheDataEnd)
{
    SmallSection section;
    PairsData* pairs = section.set_up();
    ASSERT_NE(pairs, nullptr);
    const u8 index_table[] = { 0, 0, 0, 0, 16, 0 };
    const u8 sizes_long[] = { 255, 255 };
    const u8 sizes_short[] = { 3, 0 };
    const u8 block[16] = {};
    pairs->index_table = index_table;
    pairs->data = block;
    pairs->end = block + sizeof block;
    pairs->size_table = sizes_short;
    EXPECT_EQ(tb_decompress_pairs(pairs, 3), 1);
    EXPECT_EQ(tb_decompress_pairs(pairs, 19), -1) << "no further block";
    const u8 far_index[] = { 0, 0, 0, 0, 255, 255 };
    pairs->index_table = far_index;
    pairs->size_table = sizes_long;
    EXPECT_EQ(tb_decompress_pairs(pairs, 15), -1) << "the bits run out";
    const u8 early_index[] = { 0, 0, 0, 0, 0, 0 };
    pairs->index_table = early_index;
    EXPECT_EQ(tb_decompress_pairs(pairs, 3), -1) << "before the first block";
    const u8 wrong_index[] = { 1, 0, 0, 0, 0, 0 };
    pairs->index_table = wrong_index;
    EXPECT_FALSE(tb_index_table_is_sound(pairs));
    free(pairs);
}

// The 20 values of the section must be the first to the last of its block.
TEST_F(TableFiles, ValuesThatDoNotFillTheBlocksAreRefused)
{
    const struct {
        u8 place;
        u8 last;
        bool sound;
    } rows[] = { { 16, 19, true }, { 17, 20, false }, { 16, 20, false }, { 16, 18, false },
        { 15, 18, false } };
    SmallSection section;
    PairsData* pairs = section.set_up();
    ASSERT_NE(pairs, nullptr);
    for (const auto& row : rows) {
        const u8 index_table[] = { 0, 0, 0, 0, row.place, 0 };
        const u8 size_table[] = { row.last, 0 };
        pairs->index_table = index_table;
        pairs->size_table = size_table;
        EXPECT_EQ(tb_index_table_is_sound(pairs), row.sound) << +row.place << " " << +row.last;
    }
    free(pairs);
}

// With one value in every block each step of the walk counts. The index entry points to the middle
// block; its stretch of values leads further than a walk may go, both ways.
TEST_F(TableFiles, WalkToTheBlockOfAValueIsBounded)
{
    static constexpr u64 half_stretch = 1 << 17;
    static constexpr u64 longest_walk = 65536;
    static constexpr u32 blocks = 3 * longest_walk;
    SmallSection section;
    section.bytes[1] = 0;
    section.bytes[2] = 18;
    PairsData* pairs = section.set_up();
    ASSERT_NE(pairs, nullptr);
    pairs->blocks = pairs->size_entries = blocks;
    pairs->table_size = 2 * half_stretch;
    const u8 middle_start[] = { 0, 128, 1, 0, 0, 0 };
    const u8 middle_end[] = { 0, 128, 1, 0, 255, 255 };
    const std::vector<u8> sizes(2 * blocks);
    const std::vector<u8> data(blocks + 16);
    pairs->size_table = sizes.data();
    pairs->data = data.data();
    pairs->end = data.data() + data.size();
    pairs->index_table = middle_start;
    EXPECT_EQ(tb_decompress_pairs(pairs, half_stretch + longest_walk), 1);
    EXPECT_EQ(tb_decompress_pairs(pairs, half_stretch + longest_walk + 1), -1) << "forwards";
    pairs->index_table = middle_end;
    EXPECT_EQ(tb_decompress_pairs(pairs, half_stretch - longest_walk - 65535), 1);
    EXPECT_EQ(tb_decompress_pairs(pairs, half_stretch - longest_walk - 65536), -1) << "backwards";
    free(pairs);
}

TEST_F(TableFiles, HeaderOutOfRangeIsRefused)
{
    const struct {
        size_t at;
        u8 value;
        const char* what;
    } rows[] = {
        { 1, 32, "block size" },
        { 2, 0, "index step 0" },
        { 2, 32, "index step" },
        { 8, 0, "longest code shorter than the shortest" },
        { 8, 33, "longest code" },
        { 9, 0, "shortest code" },
        { 12, 0, "no symbols" },
        { 13, 16, "more than 4095 symbols" },
        { 12, 1, "a code without a symbol" },
        { 12, 255, "a tree beyond the end" },
        { 17, 5, "a value above 4" },
        { 20, 2, "a symbol inside itself" },
        { 20, 3, "a half that there is none of" },
        { 22, 1, "a half of a number too high" },
    };
    EXPECT_TRUE(SmallSection().is_sound());
    for (const auto& row : rows) {
        SmallSection section;
        section.bytes[row.at] = row.value;
        EXPECT_FALSE(section.is_sound()) << row.what;
    }
    for (size_t length = 0; length < 24; ++length) {
        EXPECT_FALSE(SmallSection().is_sound(length)) << length;
    }
    EXPECT_TRUE(SmallSection().is_sound(24));
}

// Pairs of pairs that double nine times make 512 values.
TEST_F(TableFiles, SymbolOfTooManyValuesIsRefused)
{
    for (const i32 doublings : { 8, 9 }) {
        u8 bytes[64] = { 0, 4, 5, 0, 1, 0, 0, 0, 1, 1, 0, 0, static_cast<u8>(doublings + 2), 0, 1,
            0xf0, 0xff, 3, 0xf0, 0xff };
        for (i32 i = 0; i < doublings; ++i) {
            const i32 half = i == 0 ? 0 : i + 1;
            u8* symbol = bytes + 20 + 3 * i;
            symbol[0] = static_cast<u8>(half);
            symbol[1] = static_cast<u8>((half & 15) << 4);
        }
        u64 size[3];
        const u8* next = nullptr;
        PairsData* pairs = tb_setup_pairs(bytes, bytes + sizeof bytes, 20, 4, size, &next);
        EXPECT_EQ(pairs != nullptr, doublings == 8);
        free(pairs);
    }
}

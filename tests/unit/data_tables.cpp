// Checking table files: each kind of damage is found by the check that is meant for it, also where
// the checksum was made to agree with the damage.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "test_support.h"
#include "data/report.h"
#include "data/tables.h"
#include "data/tables_checksum.h"
#include "data/tables_map.h"
#include "fathom/tbinit.h"
#include "fathom/tbtable.h"

namespace fs = std::filesystem;

static const fs::path real_tables = fs::path(VESK_TEST_DATA) / "syzygy";

static std::string read_bytes(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return { std::istreambuf_iterator<char>(stream), {} };
}

static void write_bytes(const fs::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

static TableBytes span_of(const std::string& bytes)
{
    return { reinterpret_cast<const u8*>(bytes.data()), bytes.size() };
}

// The bytes with a checksum at their end that agrees with them.
static std::string sealed(std::string bytes, u64 chunk_length = chunk_lengths[0])
{
    bytes.resize(bytes.size() - tb_checksum_size);
    const TableChecksum checksum = checksum_of(span_of(bytes), chunk_length);
    for (size_t i = 0; i < tb_checksum_size; ++i) {
        bytes += static_cast<char>(checksum[i / 8] >> (8 * (i % 8)));
    }
    return bytes;
}

struct DataTables : testing::Test {
    fs::path folder = fs::current_path() / "tables";

    void SetUp() override
    {
        fs::remove_all(folder);
        fs::create_directory(folder);
        survive_failed_reads();
    }

    void TearDown() override
    {
        tb_quiet = true;
        tb_init("");
        tb_quiet = false;
        fs::remove_all(folder);
    }

    [[nodiscard]] TableFile named(const std::string& name) const
    {
        TableFile file;
        file.path = folder / name;
        file.folder = folder;
        file.name = name;
        read_table_name(&file);
        return file;
    }

    // Checks these bytes as a file of this name.
    [[nodiscard]] TableFile check(const std::string& name, const std::string& bytes,
        const TablesSettings& settings = {}) const
    {
        write_bytes(folder / name, bytes);
        TableFile file = named(name);
        check_table_file(settings, &file);
        return file;
    }

    // Checks all files of the folder, and them together.
    [[nodiscard]] std::vector<TableFile> check_set(const TablesSettings& settings = {}) const
    {
        std::vector<TableFile> files;
        for (const auto& entry : fs::directory_iterator(folder)) {
            files.push_back(named(entry.path().filename()));
        }
        std::ranges::sort(files, {}, &TableFile::name);
        std::vector<TableFile*> all;
        for (TableFile& file : files) {
            check_table_file(settings, &file);
            all.push_back(&file);
        }
        RunProgress progress;
        compare_tables(settings, folder, all, &progress);
        return files;
    }
};

// "reason: detail" of each fault, a line each.
static std::string faults_of(const TableFile& file)
{
    std::string text;
    for (const Refusal& fault : file.faults) {
        text += fault.reason + (fault.detail.empty() ? "" : ": " + fault.detail) + '\n';
    }
    return text;
}

static bool has_fault(const TableFile& file, const char* reason)
{
    return std::ranges::find(file.faults, reason, &Refusal::reason) != file.faults.end();
}

// ---- Sound files

TEST_F(DataTables, RealFilesAreSoundAndTheirChecksumsAgree)
{
    i32 count = 0;
    for (const auto& entry : fs::directory_iterator(real_tables)) {
        const std::string name = entry.path().filename();
        const std::string bytes = read_bytes(entry.path());
        const TableFile file = check(name, bytes);
        EXPECT_EQ(faults_of(file), "") << name;
        EXPECT_EQ(file.checksum, ChecksumState::Agrees) << name;
        EXPECT_TRUE(file.decoded) << name;
        EXPECT_EQ(sealed(bytes), bytes) << name;
        ++count;
    }
    EXPECT_GT(count, 30);
}

TEST_F(DataTables, QuickChecksDecodeOnlyWhereTheChecksumDiffers)
{
    std::string bytes = read_bytes(real_tables / "KRvK.rtbw");
    TablesSettings settings;
    settings.quick = true;
    EXPECT_FALSE(check("KRvK.rtbw", bytes, settings).decoded);
    bytes.back() ^= 1;
    const TableFile file = check("KRvK.rtbw", bytes, settings);
    EXPECT_EQ(faults_of(file), std::string(fault_checksum) + '\n');
    EXPECT_TRUE(file.decoded);
}

TEST_F(DataTables, ARealSetFitsTogether)
{
    fs::copy(real_tables, folder);
    i64 positions = 0;
    for (const TableFile& file : check_set()) {
        EXPECT_EQ(faults_of(file), "") << file.name;
        positions += file.positions;
    }
    EXPECT_GT(positions, 2000);
}

// ---- Names and sizes

TEST_F(DataTables, NamesAreThoseOfThePublishedSets)
{
    EXPECT_EQ(named("KQvKR.rtbw").material, "KQvKR");
    EXPECT_EQ(named("KQRBvKNP.rtbz").pieces, 7);
    for (const char* name : { "KRvKQ.rtbw", "kqvk.rtbw", "KQvK.RTBW", "KQVK.rtbw", "KQvK (1).rtbw",
             "KvK.rtbw", ".rtbw", "KQQQQQQvK.rtbw" }) {
        EXPECT_EQ(named(name).material, "") << name;
    }
    EXPECT_EQ(faults_of(check("kqvk.rtbw", read_bytes(real_tables / "KQvK.rtbw"))),
        "name of no table: KQvK.rtbw\n");
}

TEST_F(DataTables, WhatAFileHoldsIsToldWhereItsNameSaysOtherwise)
{
    const std::string queen = read_bytes(real_tables / "KQvK.rtbw");
    EXPECT_EQ(faults_of(check("KRvK.rtbw", queen)), "holds another table: KQvK.rtbw\n");
    EXPECT_EQ(faults_of(check("KQvKR.rtbw", queen)), "holds another table: KQvK.rtbw\n");
    EXPECT_EQ(faults_of(check("KQvK.rtbz", queen)), "holds the other file of a table: KQvK.rtbw\n");
    EXPECT_EQ(faults_of(check("KPvK.rtbw", std::string(80, '<'))),
        "no table inside\nchecksum does not agree\n");
}

// The headers of all pairs of small files: that of KNNvK.rtbz has the pieces of KNvK.rtbz in front.
TEST_F(DataTables, NoHeaderPassesForThatOfAnotherMaterial)
{
    std::vector<fs::path> paths;
    for (const auto& entry : fs::directory_iterator(real_tables)) {
        if (fs::file_size(entry.path()) < 20000) {
            paths.push_back(entry.path());
        }
    }
    for (const fs::path& held : paths) {
        const std::string bytes = read_bytes(held);
        for (const fs::path& name : paths) {
            EXPECT_EQ(is_sound(check(name.filename(), bytes)), held == name) << held << name;
        }
    }
    // KNNvK.rtbz as it is published.
    std::string knights("\xd7\x66\x0c\xa5\x41\x00\x06\x0e\x02\x02\x80\x00", 12);
    knights.resize(80);
    knights = sealed(knights);
    EXPECT_EQ(
        knights.substr(64), "\x9e\x91\xf9\xfe\x4d\x7f\x7f\x8d\xfb\x47\x48\x4a\x53\x24\x30\xbf");
    EXPECT_EQ(faults_of(check("KNNvK.rtbz", knights)), "");
    EXPECT_EQ(faults_of(check("KNvK.rtbz", knights)), "holds another table: KNNvK.rtbz\n");
}

TEST_F(DataTables, AFileCutAnywhereIsFound)
{
    const std::string whole = read_bytes(real_tables / "KQvK.rtbw");
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(is_sound(check("KQvK.rtbw", whole.substr(0, length)))) << length;
    }
    const std::string cut = whole.substr(0, 208);
    EXPECT_EQ(faults_of(check("KQvK.rtbw", sealed(cut))),
        "cut short or too long: 208 bytes, the header makes 272\n");
}

TEST_F(DataTables, EachByteCounts)
{
    const std::string whole = read_bytes(real_tables / "KQvK.rtbw");
    for (size_t at = 0; at < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] ^= static_cast<char>(1 << (at % 8));
        EXPECT_FALSE(is_sound(check("KQvK.rtbw", changed))) << at;
    }
}

TEST_F(DataTables, PagesOfZerosAreTold)
{
    std::string bytes = read_bytes(real_tables / "KRvKP.rtbw");
    std::fill_n(bytes.begin() + 8192, 8192, '\0');
    const TableFile file = check("KRvKP.rtbw", bytes);
    EXPECT_NE(faults_of(file).find("zeros from byte 8192 to 16384"), std::string::npos)
        << faults_of(file);
    EXPECT_EQ(faults_of(check("KQvK.rtbw",
                  read_bytes(real_tables / "KQvK.rtbw").substr(0, 256) + std::string(16, '\0'))),
        "checksum does not agree: there is none\n");
}

// ---- What a checksum that agrees does not show. Offsets are those of KQvK.rtbw: section 1 is one
// value, section 2 has its index table at 90, its size table at 96 and two blocks from 128 on.

TEST_F(DataTables, BlocksMustHoldTheValuesTheySay)
{
    std::string bytes = read_bytes(real_tables / "KQvK.rtbw");
    // The last byte of a block is behind its last code.
    bytes[191] = 1;
    EXPECT_EQ(faults_of(check("KQvK.rtbw", sealed(bytes))),
        "block does not decode: section 1, block 0, byte 128\n");
}

TEST_F(DataTables, SizesOfTheBlocksMustAddUp)
{
    std::string bytes = read_bytes(real_tables / "KQvK.rtbw");
    ++bytes[92 + 6];
    EXPECT_TRUE(has_fault(check("KQvK.rtbw", sealed(bytes)), fault_index));
}

TEST_F(DataTables, PlacesInTheIndexMustBeExact)
{
    std::string bytes = read_bytes(real_tables / "KQvK.rtbw");
    ++bytes[94];
    EXPECT_TRUE(has_fault(check("KQvK.rtbw", sealed(bytes)), fault_index));
}

TEST_F(DataTables, RoomBetweenThePartsMustBeEmpty)
{
    std::string bytes = read_bytes(real_tables / "KQvK.rtbw");
    bytes[110] = 1;
    EXPECT_EQ(faults_of(check("KQvK.rtbw", sealed(bytes))), std::string(fault_gap) + '\n');
}

TEST_F(DataTables, ResultsThatNoMoveLeadsToAreFound)
{
    fs::copy(real_tables, folder);
    std::string bytes = read_bytes(real_tables / "KQvK.rtbw");
    ASSERT_EQ(bytes[11], 4);
    bytes[11] = 2; // with the queen to move all is a draw
    write_bytes(folder / "KQvK.rtbw", sealed(bytes));
    for (const TableFile& file : check_set()) {
        if (file.name == "KQvK.rtbw") {
            EXPECT_TRUE(has_fault(file, fault_result)) << faults_of(file);
        }
    }
}

// A table whose captures lead to a wrong one contradicts it.
TEST_F(DataTables, ResultsMustAgreeAlongCaptures)
{
    fs::copy(real_tables, folder);
    std::string bytes = read_bytes(real_tables / "KRvK.rtbw");
    ASSERT_EQ(bytes.substr(10, 2), (std::string { '\x80', '\4' }));
    bytes[11] = 2;
    write_bytes(folder / "KRvK.rtbw", sealed(bytes));
    i32 contradicting = 0;
    for (const TableFile& file : check_set()) {
        contradicting += has_fault(file, fault_result) ? 1 : 0;
    }
    EXPECT_GT(contradicting, 0);
}

TEST_F(DataTables, DistancesMustFollowFromEachOther)
{
    fs::copy(real_tables, folder);
    std::string bytes = read_bytes(real_tables / "KRvK.rtbz");
    // The flag that says whose moves are stored.
    bytes[10] ^= TbFlagSide;
    const TableFile alone = check("KRvK.rtbz", sealed(bytes));
    EXPECT_EQ(faults_of(alone), "");
    for (const TableFile& file : check_set()) {
        if (file.name == "KRvK.rtbz") {
            EXPECT_TRUE(has_fault(file, fault_distance)) << faults_of(file);
        } else {
            EXPECT_EQ(faults_of(file), "") << file.name;
        }
    }
}

// ---- Siblings

TEST(DataTablesBelow, AreThoseOfOneCaptureOrPromotion)
{
    using Names = std::vector<std::string>;
    EXPECT_EQ(tables_below("KQvK"), Names {});
    EXPECT_EQ(tables_below("KQvKR"), (Names { "KQvK", "KRvK" }));
    EXPECT_EQ(tables_below("KPvK"), (Names { "KBvK", "KNvK", "KQvK", "KRvK" }));
    EXPECT_EQ(tables_below("KRvKP"),
        (Names { "KBvK", "KNvK", "KPvK", "KQvK", "KQvKR", "KRvK", "KRvKB", "KRvKN", "KRvKR" }));
}

TEST_F(DataTables, MissingTablesAreNamed)
{
    for (const char* name : { "KRvKR.rtbw", "KQvKR.rtbw", "KRvK.rtbw", "KQvK.rtbz" }) {
        fs::copy(real_tables / name, folder);
    }
    const std::vector<TableFile> files = check_set();
    for (const TableFile& file : files) {
        EXPECT_EQ(faults_of(file), "") << file.name;
        if (file.name == "KQvKR.rtbw") {
            EXPECT_EQ(file.missing, std::vector<std::string> { "KQvK" });
            EXPECT_EQ(file.positions, 0);
        } else if (file.name == "KQvK.rtbz") {
            ASSERT_EQ(file.set_faults.size(), 1U);
            EXPECT_EQ(file.set_faults[0].reason, fault_alone);
        } else {
            EXPECT_TRUE(file.set_faults.empty()) << file.name;
            EXPECT_GT(file.positions, 0);
        }
    }
}

// ---- Files that change

TEST_F(DataTables, AFileCutWhileItIsMappedGivesZeros)
{
    const fs::path path = folder / "long";
    write_bytes(path, std::string(100000, 'x'));
    MappedFile mapped;
    ASSERT_EQ(map_table_file(path.c_str(), &mapped), 0);
    fs::resize_file(path, 10);
    const i64 before = count_failed_reads();
    EXPECT_EQ(mapped.data[5], 'x');
    EXPECT_EQ(mapped.data[99999], 0);
    EXPECT_EQ(count_failed_reads(), before + 1);
    EXPECT_FALSE(is_unchanged(path.c_str(), mapped));
    unmap_table_file(&mapped);
}

TEST_F(DataTables, OnlyRegularFilesAreRead)
{
    fs::create_directory(folder / "KQvK.rtbw");
    TableFile file = named("KQvK.rtbw");
    check_table_file({}, &file);
    EXPECT_EQ(file.error, ENOTSUP);
    file = named("KRvK.rtbw");
    check_table_file({}, &file);
    EXPECT_EQ(file.error, ENOENT);
}

// ---- The checksum of files in several chunks. Of tables of seven pieces nothing else is read.

TEST_F(DataTables, ChunksOfLargeFilesMayHaveAnyLikelyLength)
{
    std::string bytes(20 << 20, '\0');
    bytes.replace(0, 13, "\x71\xe8\x23\x5d\x73\0\x09\x06\x05\x04\x03\x0e\x0a", 13);
    bytes.resize(bytes.size() + tb_checksum_size);
    for (const u64 length :
        { chunk_lengths[0], chunk_lengths[1], static_cast<u64>(bytes.size()) }) {
        const TableFile file = check("KQRBvKNP.rtbw", sealed(bytes, length));
        EXPECT_EQ(faults_of(file), "") << length;
        EXPECT_EQ(file.checksum, ChecksumState::Agrees) << length;
    }
    EXPECT_FALSE(is_sound(check("KQRBvKNP.rtbw", sealed(bytes, 1 << 20))));
    EXPECT_EQ(faults_of(check("KQRBvKBP.rtbw", sealed(bytes))), "damaged header\n");
    EXPECT_EQ(faults_of(check("KQRBvKNP.rtbw", read_bytes(real_tables / "KQvK.rtbw"))),
        "holds another table: KQvK.rtbw\n");
    bytes[5 << 20] = 1;
    std::string damaged = sealed(bytes);
    damaged[6 << 20] = 1;
    EXPECT_TRUE(has_fault(check("KQRBvKNP.rtbw", damaged), fault_checksum));
}

// What is not known of large files is tried; whichever it is, no byte may be without effect.
TEST(DataTablesChecksum, TakesInAllChunks)
{
    std::string bytes((chunk_lengths[0] << 1) + 1000, '\0');
    for (size_t i = 0; i < bytes.size(); i += 64) {
        bytes[i] = static_cast<char>(i / 64 * 31);
    }
    const TableChecksum checksum = checksum_of(span_of(bytes));
    for (const size_t at :
        { size_t { 0 }, static_cast<size_t>(chunk_lengths[0]) + 5, bytes.size() - 1 }) {
        bytes[at] ^= 1;
        EXPECT_NE(checksum_of(span_of(bytes)), checksum) << at;
        bytes[at] ^= 1;
    }
    EXPECT_EQ(checksum_of(span_of(bytes)), checksum);
}

TEST(DataTablesChecksum, OfManyChunksIsOneOfTwo)
{
    std::vector<ChunkDigest> digests(40);
    for (size_t i = 0; i < digests.size(); ++i) {
        digests[i] = { i, i * i, ~i, i << 40 };
    }
    EXPECT_FALSE(makes_checksum(digests, {}));
    EXPECT_FALSE(makes_checksum({}, {}));
}

TEST(DataTablesChecksum, IsWrittenInTheOrderOfTheFile)
{
    EXPECT_STREQ(checksum_text({ 0x0706050403020100, 0x0f0e0d0c0b0a0908 }).data(),
        "000102030405060708090a0b0c0d0e0f");
}

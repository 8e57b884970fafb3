// The registry: which tables a path has, and where they are entered.
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "fathom_support.h"
#include "search/control.h"
#include "shell/startup.h"

static const char* const queen_wins = "8/8/8/4k3/8/8/8/K6Q w - - 0 1";

struct TableRegistry : TablesTest {
};

static void add_file(
    const std::string& directory, const std::string& name, const std::string& bytes)
{
    std::filesystem::create_directories(directory);
    write_bytes(directory + "/" + name, bytes);
}

// The entry of a name, entered alone.
static const TbEntry* entered(const char* name)
{
    use_tables("");
    tb_add_table(name);
    return tb_lookup(tb_key_of_name(name));
}

TEST_F(TableRegistry, EmptyPathsGiveNoTablesAndNoLine)
{
    EXPECT_EQ(capture_output([] { register_tables(""); }), "");
    EXPECT_EQ(capture_output([] { register_tables("<empty>"); }), "");
    EXPECT_EQ(tb_largest, 0);
}

TEST_F(TableRegistry, PathsWithoutTablesCountNone)
{
    write_bytes("plain", "");
    for (const char* path : { "missing", "plain", ":", "/", "missing:plain",
             "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece" }) {
        EXPECT_EQ(
            capture_output([&] { register_tables(path); }), "info string found 0 tablebases\n")
            << path;
        EXPECT_EQ(tb_largest, 0);
    }
    add_file("a", "KQvK.rtbw", "");
    add_file("b", "KRvK.rtbw", "");
    EXPECT_EQ(use_tables("a;b"), 0) << "one directory of that name";
}

TEST_F(TableRegistry, FileComesFromTheFirstDirectoryThatHasIt)
{
    add_file("empty", "KQvK.rtbw", "");
    add_file("rooks", "KRvK.rtbw", table_bytes("KRvK.rtbw"));
    add_file("real", "KQvK.rtbw", table_bytes("KQvK.rtbw"));
    EXPECT_EQ(use_tables("rooks:real"), 2);
    EXPECT_EQ(wdl_errors(queen_wins), "2") << "from the second";
    EXPECT_EQ(use_tables("real:empty"), 1);
    EXPECT_EQ(wdl_errors(queen_wins), "2") << "both have it";
    EXPECT_EQ(use_tables("empty:real"), 1);
    EXPECT_EQ(wdl_errors(queen_wins), "Corrupted table.\nnone");
}

TEST_F(TableRegistry, EmptyPartsOfAPathArePassedOver)
{
    add_file("a", "KQvK.rtbw", table_bytes("KQvK.rtbw"));
    add_file("b", "KRvK.rtbw", table_bytes("KRvK.rtbw"));
    EXPECT_EQ(use_tables(":a:::b:"), 2);
    EXPECT_EQ(wdl_of(queen_wins), "2");
    EXPECT_EQ(wdl_of("8/8/8/4k3/8/8/8/K6R w - - 0 1"), "2");
}

TEST_F(TableRegistry, PathThatIsTooLongEndsTheSearch)
{
    add_file("a", "KQvK.rtbw", table_bytes("KQvK.rtbw"));
    EXPECT_EQ(use_tables(std::string(255, 'x') + ":a"), 0);
    // The longest that fits: directory, '/', name and suffix in 255 characters.
    std::string exact = "a";
    while (exact.size() < 255 - 10) {
        exact += exact.size() + 2 > 255 - 10 ? "/" : "/.";
    }
    EXPECT_EQ(use_tables(exact), 1);
    EXPECT_EQ(use_tables(exact + "/"), 0);
    EXPECT_EQ(use_tables(exact + "/:a"), 0);
}

TEST_F(TableRegistry, OnlyRegularFilesAreTables)
{
    std::filesystem::create_directories("a/KQvK.rtbw");
    ASSERT_EQ(mkfifo("a/KRvK.rtbw", 0600), 0);
    EXPECT_EQ(use_tables("a"), 0);
    add_file("b", "KQvK.rtbw", table_bytes("KQvK.rtbw"));
    EXPECT_EQ(use_tables("a:b"), 1);
    EXPECT_EQ(wdl_of(queen_wins), "2") << "a directory hides nothing";
}

TEST_F(TableRegistry, KeysOfBothViewsOfAMaterialMeet)
{
    const TbPos queen = tb_pos_of("8/8/8/4k3/8/r7/8/K6Q w - - 0 1");
    const TbPos rook = tb_pos_of("8/8/8/4k3/8/q7/8/K6R w - - 0 1");
    EXPECT_EQ(tb_material_key(&queen, false), tb_material_key(&rook, true));
    EXPECT_EQ(tb_material_key(&queen, true), tb_material_key(&rook, false));
    EXPECT_NE(tb_material_key(&queen, false), tb_material_key(&queen, true));
    EXPECT_EQ(tb_material_key(&queen, false), 0xa3ec1abc71e90863u + 0xfd7866b439b94495u);
    use_tables(real_tables());
    TbEntry* entry = tb_lookup(tb_material_key(&queen, false));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry, tb_lookup(tb_material_key(&rook, false)));
    EXPECT_EQ(entry->key, tb_material_key(&queen, false));
    EXPECT_EQ(entry->symmetric, 0);
}

TEST_F(TableRegistry, SymmetricMaterialHasOneKey)
{
    const TbPos pos = tb_pos_of("8/8/8/4k3/8/r7/8/K6R w - - 0 1");
    const u64 key = tb_material_key(&pos, false);
    EXPECT_EQ(key, tb_material_key(&pos, true));
    const TbEntry* entry = entered("KRvKR");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->symmetric, 1);
    tb_forget(key);
    EXPECT_EQ(tb_lookup(key), nullptr) << "there is no second slot";
}

TEST_F(TableRegistry, NamesOfAPositionHaveTheGivenSideFirst)
{
    const TbPos pos = tb_pos_of("8/8/2p5/4k1n1/8/8/1B1P4/K6Q w - - 0 1");
    char name[tb_name_size];
    tb_table_name(&pos, name, false);
    EXPECT_STREQ(name, "KQBPvKNP");
    tb_table_name(&pos, name, true);
    EXPECT_STREQ(name, "KNPvKQBP");
    const TbPos many = tb_pos_of("qqqqqqqq/qqqqqqqq/2p5/4k3/8/8/QQQQQQQQ/K6Q w - - 0 1");
    tb_table_name(&many, name, false);
    EXPECT_LT(strlen(name), sizeof name);
}

// All nondecreasing groups of letters.
static std::vector<std::string> groups(size_t size)
{
    if (size == 0) {
        return { "" };
    }
    std::vector<std::string> all;
    const std::string letters = "QRBNP";
    for (const std::string& group : groups(size - 1)) {
        const size_t first = group.empty() ? 0 : letters.find(group.back());
        for (size_t i = first; i < letters.size(); ++i) {
            all.push_back(group + letters[i]);
        }
    }
    return all;
}

TEST_F(TableRegistry, EveryMaterialOfThreeToSixPiecesIsFoundOnce)
{
    i32 with_pawns = 0;
    i32 names = 0;
    for (size_t first = 1; first <= 4; ++first) {
        for (size_t second = 0; second <= first && first + second <= 4; ++second) {
            for (const std::string& a : groups(first)) {
                for (const std::string& b : groups(second)) {
                    const std::string name = "K" + a + "vK" + b;
                    write_bytes(name + ".rtbw", "");
                    // Both names of a material are there; one is taken.
                    names += first != second || a == b ? 2 : 1;
                    with_pawns +=
                        name.find('P') != std::string::npos ? first != second || a == b ? 2 : 1 : 0;
                }
            }
        }
    }
    EXPECT_EQ(names / 2, 510);
    EXPECT_EQ(with_pawns / 2, 256);
    EXPECT_EQ(use_tables(folder), 510);
    EXPECT_EQ(tb_largest, 6);
    EXPECT_EQ(use_tables(folder), 510) << "as often as one likes";
}

TEST_F(TableRegistry, NamesWithTheSidesExchangedOrSevenPiecesAreNotTried)
{
    for (const char* name :
        { "KRvKQ", "KvKQ", "KPPvKRP", "KQQQQQvK", "KRvKRR", "KRQvK", "KPvKB" }) {
        write_bytes(name + std::string(".rtbw"), "");
    }
    EXPECT_EQ(use_tables(folder), 0);
}

TEST_F(TableRegistry, LargestTableIsCounted)
{
    add_file("a", "KQvK.rtbw", "");
    add_file("b", "KQRvKR.rtbw", "");
    use_tables("a");
    EXPECT_EQ(tb_largest, 3);
    use_tables("a:b");
    EXPECT_EQ(tb_largest, 5);
    use_tables("a");
    EXPECT_EQ(tb_largest, 3);
}

TEST_F(TableRegistry, EncodingFollowsTheSinglePieces)
{
    const struct {
        const char* name;
        i32 enc_type;
    } rows[] = { { "KQvK", 0 }, { "KQRvKQ", 0 }, { "KRRvK", 2 }, { "KRRvKRR", 2 },
        { "KRRRvKN", 0 } };
    for (const auto& row : rows) {
        const TbEntry* entry = entered(row.name);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->enc_type, row.enc_type) << row.name;
        EXPECT_EQ(entry->has_pawns, 0);
    }
}

TEST_F(TableRegistry, SideWithFewerPawnsLeadsUnlessItHasNone)
{
    const struct {
        const char* name;
        i32 first;
        i32 second;
    } rows[] = { { "KPvK", 1, 0 }, { "KRvKP", 1, 0 }, { "KPPvKP", 1, 2 }, { "KRPvKPP", 1, 2 },
        { "KPvKP", 1, 1 } };
    for (const auto& row : rows) {
        const TbEntry* entry = entered(row.name);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(entry->pawns[0], row.first) << row.name;
        EXPECT_EQ(entry->pawns[1], row.second) << row.name;
        EXPECT_EQ(entry->has_pawns, 1);
    }
}

TEST_F(TableRegistry, NothingFreedIsProbedAfterAnEmptyPath)
{
    for (const char* none : { "", "<empty>" }) {
        use_tables(real_tables());
        EXPECT_EQ(wdl_of(queen_wins), "2");
        EXPECT_EQ(dtz_of(queen_wins).find("none"), std::string::npos);
        EXPECT_EQ(use_tables(none), -1);
        EXPECT_EQ(tb_largest, 0);
        EXPECT_EQ(wdl_errors(queen_wins), "none");
        EXPECT_EQ(dtz_errors(queen_wins), "none");
        EXPECT_EQ(tb_probe_search(set_position(queen_wins), 70, &search_settings.tb_depths), -1);
        EXPECT_EQ(root_of(queen_wins), "none");
    }
}

using TableRegistryDeathTest = TableRegistry;

// Enters so many materials of one kind of piece.
static void add_tables(char letter, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        const std::string first(i % 100 + 1, letter);
        const std::string second(i / 100, letter);
        tb_add_table(("K" + first + "vK" + second).c_str());
    }
}

TEST_F(TableRegistryDeathTest, FullPoolsAndBucketsEndTheProgram)
{
    testing::FLAGS_gtest_death_test_style = "fast";
    EXPECT_EXIT(add_tables('Q', 255), testing::ExitedWithCode(1), "^TBMAX_PIECE limit too low!\n$");
    EXPECT_EXIT(add_tables('P', 257), testing::ExitedWithCode(1), "^TBMAX_PAWN limit too low!\n$");
    EXPECT_EXIT(for (i32 i = 0; i < 6; ++i) tb_add_table("KRvKR"), testing::ExitedWithCode(1),
        "^HSHMAX too low!\n$");
    tb_add_table("KRvKR");
}

// The numbering of positions and the layout of groups, against listed indices.
#include <algorithm>
#include <sstream>
#include <string>

#include "fathom_support.h"
#include "fathom/tbindex.h"

// One line of the index vectors.
struct IndexVector {
    std::string name;
    i32 file;
    i32 order;
    i32 order2;
    std::string pieces;
    std::string squares;
    u64 table_size;
    u64 index;
};

static i32 number_or(const std::string& text, i32 without)
{
    return text == "-" ? without : std::stoi(text);
}

static i32 code_of(char digit)
{
    return std::stoi(std::string(1, digit), nullptr, 16);
}

// The entry of a material, entered anew.
static TbEntry* entry_of_table(const IndexVector& vector)
{
    use_tables("");
    tb_add_table(vector.name.c_str());
    return tb_lookup(tb_key_of_name(vector.name));
}

static void expect_index(const IndexVector& vector)
{
    SCOPED_TRACE(vector.name + " " + vector.pieces + " " + vector.squares);
    TbEntry* entry = entry_of_table(vector);
    ASSERT_NE(entry, nullptr);
    TbSection section = {};
    i32 squares[tb_max_pieces];
    std::istringstream words(vector.squares);
    for (i32 i = 0; i < entry->num; ++i) {
        section.pieces[i] = static_cast<u8>(code_of(vector.pieces[static_cast<size_t>(i)]));
        words >> squares[i];
    }
    EXPECT_EQ(tb_set_groups(entry, &section, vector.file, vector.order, vector.order2),
        vector.table_size);
    u64 index = 0;
    if (entry->has_pawns) {
        EXPECT_EQ(tb_choose_leading_pawn(entry->pawns[0], squares), vector.file);
        index = encode_pawn(entry->num, entry->pawns, section.norm, section.factor, squares);
    } else {
        index = encode_piece(entry->num, entry->enc_type, section.norm, section.factor, squares);
    }
    EXPECT_EQ(index, vector.index);
}

struct TableIndex : TablesTest {
};

TEST_F(TableIndex, EveryMaterialNumbersItsPositionsAsListed)
{
    for (const auto& row : read_tsv("syzygy-index.tsv")) {
        expect_index({ row[0], number_or(row[1], 0), std::stoi(row[2]), number_or(row[3], 15),
            row[4], row[5], std::stoull(row[6]), std::stoull(row[7]) });
    }
}

// Indices in the real tables, worked out by hand: each case of three single pieces, like pieces,
// and pawns of one and both sides.
TEST_F(TableIndex, RealTablesNumberTheirPositionsAsWorkedOut)
{
    const IndexVector vectors[] = {
        { "KQvKR", 0, 1, 15, "6c5e", "6 19 36 56", 1911252, 73931 },
        { "KQvKR", 0, 1, 15, "5e6c", "27 7 49 0", 1911252, 1772843 },
        { "KQvKR", 0, 1, 15, "6c5e", "9 36 33 63", 1911252, 1870869 },
        { "KQvKR", 0, 1, 15, "5e6c", "18 36 9 15", 1911252, 1907301 },
        { "KRRvK", 0, 1, 15, "e644", "45 14 2 58", 873642, 757428 },
        { "KPvK", 1, 2, 15, "16e", "33 49 59", 23436, 15357 },
        { "KPPvK", 0, 2, 15, "116e", "39 42 0 55", 953064, 566315 },
        { "KPvKP", 0, 3, 2, "196e", "40 53 44 62", 1066524, 881125 },
        { "KPvKP", 1, 3, 1, "196e", "14 35 4 34", 1066524, 100753 },
        { "KQvKR", 0, 1, 15, "e5c6", "0 28 43 62", 1911252, 1500232 },
    };
    for (const IndexVector& vector : vectors) {
        expect_index(vector);
    }
}

TEST_F(TableIndex, MirroredBoardsHaveOneIndex)
{
    const IndexVector table = { "KQNvKR", 0, 1, 15, "6c5e2", "", 0, 0 };
    TbEntry* entry = entry_of_table(table);
    TbSection section = {};
    for (size_t i = 0; i < 5; ++i) {
        section.pieces[i] = static_cast<u8>(code_of(table.pieces[i]));
    }
    const u64 size = tb_set_groups(entry, &section, 0, 1, 15);
    u64 state = 5;
    for (i32 round = 0; round < 2000; ++round) {
        i32 squares[5];
        u64 used = 0;
        for (i32& square : squares) {
            do {
                square = static_cast<i32>(next_random(&state, 64));
            } while (used & bit(square));
            used |= bit(square);
        }
        u64 first = 0;
        for (i32 turn = 0; turn < 8; ++turn) {
            i32 turned[6];
            for (i32 i = 0; i < 5; ++i) {
                const i32 s = turn & 4 ? ((squares[i] >> 3) | (squares[i] << 3)) & 63 : squares[i];
                turned[i] = s ^ (turn & 1 ? 7 : 0) ^ (turn & 2 ? 56 : 0);
            }
            const u64 index = encode_piece(5, 0, section.norm, section.factor, turned);
            EXPECT_LT(index, size);
            // Three leading pieces on the diagonal leave two views of the others.
            const auto on_diagonal = [](i32 s) {
                return (s >> 3) == (s & 7) || (s >> 3) == 7 - (s & 7);
            };
            const bool two_views = std::all_of(squares, squares + 3, on_diagonal);
            first = turn == 0 ? index : first;
            if (!two_views) {
                EXPECT_EQ(index, first);
            }
        }
    }
}

// Groups of a table given by its piece nibbles.
static u64 groups_of(const char* name, const std::string& sound, const std::string& pieces,
    i32 order, i32 order2 = 15)
{
    TbEntry* entry = entry_of_table({ name, 0, 0, 0, sound, "", 0, 0 });
    TbSection section = {};
    for (size_t i = 0; i < pieces.size(); ++i) {
        section.pieces[i] = static_cast<u8>(code_of(pieces[i]));
    }
    return tb_set_groups(entry, &section, 0, order, order2);
}

TEST_F(TableIndex, OrdersThatLeaveAPlaceEmptyAreRefused)
{
    EXPECT_NE(groups_of("KQvKR", "6c5e", "6c5e", 0), 0u);
    EXPECT_NE(groups_of("KQvKR", "6c5e", "6c5e", 1), 0u);
    EXPECT_EQ(groups_of("KQvKR", "6c5e", "6c5e", 2), 0u);
    EXPECT_EQ(groups_of("KQvKR", "6c5e", "6c5e", 15), 0u);
    EXPECT_NE(groups_of("KPvKP", "196e", "196e", 3, 2), 0u);
    EXPECT_EQ(groups_of("KPvKP", "196e", "196e", 3, 15), 0u);
    EXPECT_EQ(groups_of("KPvKP", "196e", "196e", 4, 1), 0u);
    EXPECT_EQ(groups_of("KPvKP", "196e", "196e", 2, 2), 0u) << "one place for two groups";
}

TEST_F(TableIndex, PiecesThatAreNotTheMaterialOrStandApartAreRefused)
{
    EXPECT_EQ(groups_of("KQvKR", "6c5e", "6c5d", 0), 0u);
    EXPECT_EQ(groups_of("KQvKR", "6c5e", "6c55", 0), 0u);
    EXPECT_EQ(groups_of("KQvKR", "6c5e", "6c50", 0), 0u);
    EXPECT_EQ(groups_of("KQvKR", "6c5e", "e4d6", 0), 0u) << "the colours exchanged";
    EXPECT_NE(groups_of("KRRvK", "6e44", "e644", 0), 0u);
    EXPECT_EQ(groups_of("KRRvK", "6e44", "64e4", 0), 0u);
    EXPECT_EQ(groups_of("KRRvK", "6e44", "446e", 0), 0u) << "the kings must lead";
    EXPECT_EQ(groups_of("KPvKP", "196e", "1e69", 3, 2), 0u) << "the pawns must lead";
    EXPECT_EQ(groups_of("KPPvKP", "91166e", "11966e", 0, 1), 0u) << "fewer pawns lead";
}

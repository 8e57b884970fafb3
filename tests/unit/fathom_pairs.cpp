// The decoder of table files against a plain one: one code after the other by its own account of
// the canonical code, and symbols taken apart to the last leaf, in the sections of real files.
#include <array>
#include <vector>

#include "fathom_support.h"
#include "fathom/tbfile.h"
#include "fathom/tbheader.h"
#include "fathom/tbbits.h"
#include "fathom/tbpairs.h"

struct TablePairs : TablesTest {
};

// What a section's header says of its codes and symbols; codes by their length in bits, at the
// right end of the number.
struct PlainCode {
    i32 shortest;
    i32 longest;
    std::array<u64, 33> first_code;
    std::array<u32, 33> first_symbol;
    const u8* symbols;
};

static PlainCode plain_code(const PairsData* pairs)
{
    PlainCode code = {};
    code.longest = pairs->offset[-2];
    code.shortest = pairs->offset[-1];
    for (i32 length = code.longest; length >= code.shortest; --length) {
        const size_t at = static_cast<size_t>(length);
        code.first_symbol[at] = tb_u16(pairs->offset + 2 * (length - code.shortest));
        if (length < code.longest) {
            const u32 longer_ones = code.first_symbol[at] - code.first_symbol[at + 1];
            code.first_code[at] = (code.first_code[at + 1] + longer_ones) / 2;
        }
    }
    code.symbols = pairs->offset + 2 * (code.longest - code.shortest + 1) + 2;
    return code;
}

// Appends the values of a symbol.
static void take_apart(const PlainCode& code, u32 symbol, std::vector<u8>* values)
{
    const u8* bytes = code.symbols + 3 * symbol;
    const u32 left = (bytes[1] & 15U) << 8 | bytes[0];
    const u32 right = static_cast<u32>(bytes[2]) << 4 | bytes[1] >> 4;
    if (right == 0xfff) {
        values->push_back(static_cast<u8>(left));
        return;
    }
    take_apart(code, left, values);
    take_apart(code, right, values);
}

// All values of a block. Its last symbol may stand for more than are left: these belong to nobody.
static std::vector<u8> plain_block(const PairsData* pairs, const PlainCode& code, u64 block)
{
    const size_t count = tb_u16(pairs->size_table + 2 * block) + 1;
    const u8* bytes = pairs->data + (block << pairs->block_size);
    std::vector<u8> values;
    for (size_t at = 0; values.size() < count;) {
        u64 read = 0;
        size_t length = 0;
        do {
            read = read << 1 | (bytes[at / 8] >> (7 - at % 8) & 1U);
            ++at;
            ++length;
        } while (length < static_cast<size_t>(code.shortest) || read < code.first_code[length]);
        take_apart(code,
            code.first_symbol[length] + static_cast<u32>(read - code.first_code[length]), &values);
    }
    values.resize(count);
    return values;
}

// Every step-th value of a section, from the first of each block on, and the block's last.
static void compare_section(const PairsData* pairs, size_t step)
{
    const PlainCode code = plain_code(pairs);
    u64 index = 0;
    for (u64 block = 0; block < pairs->blocks; ++block) {
        const std::vector<u8> values = plain_block(pairs, code, block);
        for (size_t i = 0; i < values.size(); i += step) {
            ASSERT_EQ(tb_decompress_pairs(pairs, index + i), values[i]) << block << " " << i;
        }
        index += values.size();
        ASSERT_EQ(tb_decompress_pairs(pairs, index - 1), values.back()) << block;
    }
    EXPECT_EQ(index, pairs->table_size);
    EXPECT_EQ(tb_decompress_pairs(pairs, index), -1) << "beyond the table";
}

// Sections whose codes have 1 to 17 bits, symbols of up to 256 values, alike and mixed.
TEST_F(TablePairs, ValuesAreThoseOfOneCodeAfterTheOther)
{
    static const struct {
        const char* position;
        TbKind kind;
        size_t step;
    } rows[] = {
        { "8/8/8/3k4/8/8/4P3/4K3 w - -", TbWdlFile, 1 },
        { "8/8/8/3k4/8/8/4P3/4K3 w - -", TbDtzFile, 1 },
        { "8/8/8/3k4/8/4p3/8/4KN2 w - -", TbWdlFile, 61 },
        { "8/8/8/3k4/8/4p3/4P3/4K3 w - -", TbWdlFile, 251 },
        { "8/8/8/3k4/8/4p3/4P3/4K3 w - -", TbDtzFile, 251 },
        { "8/8/8/3k4/8/4r3/8/4K2Q w - -", TbWdlFile, 251 },
        { "8/8/8/3k4/8/4r3/8/4K2Q w - -", TbDtzFile, 61 },
    };
    use_tables(real_tables());
    for (const auto& row : rows) {
        const TbPos pos = tb_pos_of(row.position);
        const u64 key = tb_material_key(&pos, false);
        TbEntry* entry = row.kind == TbWdlFile ? tb_wdl_table(&pos, key) : tb_dtz_table(&pos, key);
        ASSERT_NE(entry, nullptr) << row.position;
        i32 compared = 0;
        for (i32 file = 0; file < (entry->has_pawns ? 4 : 1); ++file) {
            for (i32 side = 0; side < 2; ++side) {
                const PairsData* pairs = tb_section(entry, file, side)->pairs;
                if (pairs != nullptr && pairs->idx_bits != 0) {
                    compare_section(pairs, row.step);
                    ++compared;
                }
            }
        }
        EXPECT_GT(compared, 0) << row.position;
    }
}

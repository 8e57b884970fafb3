// Tables made up and copied for the tests, and their answers as text.
#include "fathom_support.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "shell/startup.h"

void TablesTest::SetUp()
{
    BookTest::SetUp();
    publish_options(&dialogue);
    use_tables("");
}

void TablesTest::TearDown()
{
    use_tables("");
    BookTest::TearDown();
}

std::string real_tables()
{
    return data_path("syzygy");
}

std::string made_up_tables()
{
    return data_path("syzygy-fixture");
}

i32 use_tables(const std::string& path)
{
    std::string output;
    capture_errors([&] { output = capture_output([&] { register_tables(path.c_str()); }); });
    i32 count = -1;
    sscanf(output.c_str(), "info string found %d tablebases\n", &count);
    return count;
}

TbPos tb_pos_of(const std::string& fen)
{
    const Position* pos = set_position(fen);
    i32 clock = 0;
    sscanf(fen.c_str(), "%*s %*s %*s %*s %d", &clock);
    TbPos tb_pos;
    tb_set_pos(&tb_pos, pos, clock);
    return tb_pos;
}

using Probe = i32(const TbPos*, i32*);

static std::string answer(Probe* probe, const TbPos& pos)
{
    i32 success = 0;
    const i32 value = probe(&pos, &success);
    return success != 0 ? std::to_string(value) : "none";
}

static std::string answer_with_errors(Probe* probe, const TbPos& pos)
{
    std::string result;
    const std::string errors = capture_errors([&] { result = answer(probe, pos); });
    return errors + result;
}

std::string wdl_of(const std::string& fen)
{
    return answer(tb_probe_wdl, tb_pos_of(fen));
}

std::string dtz_of(const std::string& fen)
{
    return answer(tb_probe_dtz, tb_pos_of(fen));
}

std::string wdl_errors(const std::string& fen)
{
    return answer_with_errors(tb_probe_wdl, tb_pos_of(fen));
}

std::string dtz_errors(const std::string& fen)
{
    return answer_with_errors(tb_probe_dtz, tb_pos_of(fen));
}

std::string dtz_errors(const TbPos& pos)
{
    return answer_with_errors(tb_probe_dtz, pos);
}

std::string root_of(const std::string& fen)
{
    Position* pos = set_position(fen);
    i32 clock = 0;
    sscanf(fen.c_str(), "%*s %*s %*s %*s %d", &clock);
    pos->cnt50 = static_cast<u8>(clock);
    u32 wdl = 99;
    u32 dtz = 99;
    u16 move = 99;
    const i32 result = tb_probe_root(pos, &wdl, &dtz, &move);
    if (result == -1) {
        return "none";
    }
    EXPECT_EQ(static_cast<u32>(result), wdl);
    return std::to_string(wdl) + " " + std::to_string(dtz) + " " + text_of(move);
}

std::string table_bytes(const std::string& file)
{
    const std::string bytes = read_bytes(real_tables() + "/" + file);
    EXPECT_FALSE(bytes.empty()) << file;
    return bytes;
}

// The pieces of one side of a name, kings first, as codes.
static std::vector<i32> codes_of(const std::string& letters, i32 side)
{
    std::vector<i32> codes;
    for (const char letter : letters) {
        codes.push_back(static_cast<i32>(std::string(" PNBRQK").find(letter)) + 8 * side);
    }
    return codes;
}

// The codes in a sound order: pawns of the leading side and of the other, then single pieces, then
// the rest; without a third single piece the kings come first.
static std::vector<i32> table_order(const std::string& name)
{
    const size_t middle = name.find('v');
    std::vector<i32> codes = codes_of(name.substr(0, middle), 0);
    const std::vector<i32> second = codes_of(name.substr(middle + 1), 1);
    codes.insert(codes.end(), second.begin(), second.end());
    const std::vector<i32> all = codes;
    const auto count = [&](i32 code) { return std::count(all.begin(), all.end(), code); };
    const bool black_leads = count(9) > 0 && (count(1) == 0 || count(9) < count(1));
    const auto rank = [&](i32 code) {
        if ((code & 7) == Pawn) {
            return (code == 9) == black_leads ? 0 : 1;
        }
        return count(code) > 1 ? 30 + code : (code & 7) == King ? 10 : 20;
    };
    // Codes of one rank keep their order. (Of the library's stable sort Clang 19 complains, where
    // the library is older than itself.)
    for (auto at = codes.begin(); at != codes.end(); ++at) {
        const auto place = std::upper_bound(
            codes.begin(), at, *at, [&](i32 a, i32 b) { return rank(a) < rank(b); });
        std::rotate(place, at, at + 1);
    }
    return codes;
}

u64 tb_key_of_name(const std::string& name)
{
    TbPos pos = {};
    u64* const sets[7] = { nullptr, &pos.pawns, &pos.knights, &pos.bishops, &pos.rooks, &pos.queens,
        &pos.kings };
    i32 square = 0;
    for (const i32 code : table_order(name)) {
        *sets[code & 7] |= bit(square);
        (code & 8 ? pos.black : pos.white) |= bit(square++);
    }
    return tb_material_key(&pos, false);
}

std::string one_value_table(
    const std::string& name, const std::string& suffix, i32 first, i32 second)
{
    const bool wdl = suffix == ".rtbw";
    const size_t middle = name.find('v');
    const bool pawns = name.find('P') != std::string::npos;
    const bool both = name.find('P') < middle && name.find('P', middle) != std::string::npos;
    const bool symmetric = name.substr(0, middle) == name.substr(middle + 1);
    std::string bytes = wdl ? "\x71\xe8\x23\x5d" : "\xd7\x66\x0c\xa5";
    bytes += static_cast<char>((wdl && !symmetric ? 1 : 0) | (pawns ? 2 : 0));
    for (i32 file = 0; file < (pawns ? 4 : 1); ++file) {
        bytes += both ? std::string("\x00\x11", 2) : std::string(1, '\0');
        for (const i32 code : table_order(name)) {
            bytes += static_cast<char>(code * 17);
        }
    }
    if (bytes.size() % 2 != 0) {
        bytes += '\0';
    }
    for (i32 file = 0; file < (pawns ? 4 : 1); ++file) {
        bytes += '\x80';
        bytes += static_cast<char>(first);
        if (wdl && !symmetric) {
            bytes += '\x80';
            bytes += static_cast<char>(second);
        }
    }
    bytes.resize((bytes.size() + 63) / 64 * 64 + 16, '\0');
    return bytes;
}

void copy_real_tables()
{
    for (const auto& entry : std::filesystem::directory_iterator(real_tables())) {
        std::filesystem::copy_file(entry.path(), entry.path().filename());
    }
}

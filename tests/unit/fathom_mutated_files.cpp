// Table files damaged in all ways: whatever stands in one, probes end, read nothing but the
// mapping, and give a value of the scale or none. VESK_MUTATIONS sets how many files are damaged,
// VESK_FIRST_MUTATION the number of the first.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fathom_support.h"
#include "guarded_mmap.h"
#include "search/control.h"

static constexpr u32 usual_mutations = 300;
static constexpr i32 probes_per_file = 24;

static u32 number_from(const char* variable, u32 otherwise)
{
    const char* text = getenv(variable);
    return text != nullptr ? static_cast<u32>(strtoul(text, nullptr, 10)) : otherwise;
}

// ---- Damage

static void flip_bits(std::string* bytes, u64* random, size_t limit)
{
    for (u32 count = 1 + next_random(random, 4); count > 0; --count) {
        (*bytes)[next_random(random, static_cast<u32>(limit))] ^=
            static_cast<char>(1 << next_random(random, 8));
    }
}

static void overwrite(std::string* bytes, u64* random, size_t limit)
{
    static constexpr char values[] = { 0, 1, 2, 31, 32, 33, 63, 127, static_cast<char>(128),
        static_cast<char>(254), static_cast<char>(255) };
    const size_t at = next_random(random, static_cast<u32>(limit));
    const char value = next_random(random, 2) == 0 ? values[next_random(random, sizeof values)]
                                                   : static_cast<char>(next_random(random, 256));
    for (size_t i = at; i < at + 1 + next_random(random, 4) && i < bytes->size(); ++i) {
        (*bytes)[i] = value;
    }
}

static void shift_rest(std::string* bytes, u64* random)
{
    const size_t at = next_random(random, static_cast<u32>(bytes->size()));
    if (next_random(random, 2) == 0) {
        bytes->insert(at, 1, static_cast<char>(next_random(random, 256)));
    } else {
        bytes->erase(at, 1);
    }
    // The length stays right in half of the cases, so that not the length alone is found wrong.
    if (next_random(random, 2) == 0) {
        bytes->resize((bytes->size() + 32) / 64 * 64 + 16);
    }
}

static void change_length(std::string* bytes, u64* random)
{
    const u32 size = static_cast<u32>(bytes->size());
    switch (next_random(random, 4)) {
    case 0:
        bytes->resize(next_random(random, size + 1));
        break;
    case 1:
        bytes->resize(next_random(random, size + 1) / 64 * 64 + 16);
        break;
    case 2:
        bytes->append(1 + next_random(random, 200), static_cast<char>(next_random(random, 256)));
        break;
    default:
        bytes->append(64 * (1 + next_random(random, 20)), '\0');
        break;
    }
}

// The front of another table in place of its own.
static void swap_headers(std::string* bytes, const std::string& other, u64* random)
{
    const size_t length = std::min(bytes->size(), other.size());
    const size_t front = next_random(random, 2) == 0 ? length : std::min<size_t>(length, 200);
    bytes->replace(0, 1 + next_random(random, static_cast<u32>(front)), other, 0, front);
}

static std::string damaged(std::string bytes, const std::string& other, u64* random)
{
    // What leads somewhere stands in front, and changes there are seldom survived: so more of them.
    const size_t whole = bytes.size();
    const size_t limit = next_random(random, 3) == 0 ? whole
        : next_random(random, 2) == 0                ? std::min<size_t>(whole, 48)
                                                     : std::min<size_t>(whole, 600);
    switch (next_random(random, 12)) {
    case 0:
        change_length(&bytes, random);
        break;
    case 1:
        swap_headers(&bytes, other, random);
        break;
    case 2:
        shift_rest(&bytes, random);
        break;
    case 3:
        bytes = other;
        break;
    case 4:
    case 5:
    case 6:
    case 7:
        overwrite(&bytes, random, limit);
        break;
    default:
        flip_bits(&bytes, random, limit);
        break;
    }
    return bytes;
}

// ---- Probes

static TbPos random_board(const std::string& name, u64* random)
{
    TbPos pos = {};
    u64* const sets[] = { &pos.kings, &pos.queens, &pos.rooks, &pos.bishops, &pos.knights,
        &pos.pawns };
    u64* side = &pos.white;
    u64* other = &pos.black;
    if (next_random(random, 2) == 0) {
        std::swap(side, other);
    }
    for (const char letter : name) {
        if (letter == 'v') {
            std::swap(side, other);
            continue;
        }
        u64 square;
        do {
            square = bit(static_cast<i32>(
                letter == 'P' ? 8 + next_random(random, 48) : next_random(random, 64)));
        } while (((pos.white | pos.black) & square) != 0);
        *side |= square;
        *sets[std::string("KQRBNP").find(letter)] |= square;
    }
    pos.turn = static_cast<u8>(next_random(random, 2));
    return pos;
}

// A board of the material in which the side not to move is not in check.
static TbPos random_position(const std::string& name, u64* random)
{
    TbPos pos;
    do {
        pos = random_board(name, random);
    } while (tb_in_check(&pos, !pos.turn));
    return pos;
}

static std::string fen_of_table_position(const TbPos* pos)
{
    std::string fen;
    for (i32 rank = 7; rank >= 0; --rank) {
        for (i32 square = 8 * rank; square < 8 * rank + 8; ++square) {
            char letter = '1';
            for (i32 type = Pawn; type <= King; ++type) {
                if ((tb_pieces_of(pos, type, 1) & bit(square)) != 0) {
                    letter = " PNBRQK"[type];
                } else if ((tb_pieces_of(pos, type, 0) & bit(square)) != 0) {
                    letter = " pnbrqk"[type];
                }
            }
            fen += letter;
        }
        fen += rank > 0 ? "/" : "";
    }
    return fen + (pos->turn ? " w - -" : " b - -");
}

struct Answers {
    u32 wdl;
    u32 dtz;
    u32 root;
};

// Asks for everything about one position, and counts the answers.
static void probe_all(const TbPos* pos, Answers* answers)
{
    const std::string fen = fen_of_table_position(pos);
    i32 success = 0;
    const i32 wdl = tb_probe_wdl(pos, &success);
    if (success != 0) {
        EXPECT_TRUE(wdl >= -2 && wdl <= 2) << fen << " wdl " << wdl;
        ++answers->wdl;
    }
    success = 0;
    const i32 dtz = tb_probe_dtz(pos, &success);
    if (success != 0) {
        EXPECT_TRUE(dtz >= -900 && dtz <= 900) << fen << " dtz " << dtz;
        ++answers->dtz;
    }
    Position* board = set_position(fen);
    const i32 found = tb_probe_search(board, 70, &search_settings.tb_depths);
    EXPECT_TRUE(found >= -1 && found <= 4) << fen << " class " << found;
    u32 root_wdl = 0;
    u32 root_dtz = 0;
    u16 move = 0;
    const i32 result = tb_probe_root(board, &root_wdl, &root_dtz, &move);
    if (result != -1) {
        EXPECT_TRUE(result >= 0 && result <= 4) << fen << " class " << result;
        EXPECT_TRUE(is_legal_text(board, text_of(move).c_str())) << fen << " " << text_of(move);
        ++answers->root;
    }
}

static Answers probe_material(const std::string& name, u64 seed)
{
    Answers answers = {};
    for (i32 i = 0; i < probes_per_file; ++i) {
        const TbPos pos = random_position(name, &seed);
        probe_all(&pos, &answers);
    }
    return answers;
}

// ---- The campaign

struct MutatedTables : TablesTest {
    std::vector<std::string> files; // with their suffixes
    std::vector<std::string> bytes;

    void SetUp() override
    {
        TablesTest::SetUp();
        guard_mappings(true);
        copy_real_tables();
        for (const auto& entry : std::filesystem::directory_iterator(real_tables())) {
            files.push_back(entry.path().filename());
        }
        std::sort(files.begin(), files.end());
        for (const std::string& file : files) {
            bytes.push_back(table_bytes(file));
        }
    }

    void TearDown() override
    {
        TablesTest::TearDown();
        guard_mappings(false);
    }
};

static std::string material_of_file(const std::string& file)
{
    return file.substr(0, file.find('.'));
}

TEST_F(MutatedTables, SoundFilesAnswerAllProbes)
{
    use_tables(".");
    for (const std::string& file : files) {
        const std::string name = material_of_file(file);
        const Answers answers = probe_material(name, 1);
        if (!file_exists(name + ".rtbz")) {
            continue;
        }
        SCOPED_TRACE(file);
        EXPECT_EQ(answers.wdl, static_cast<u32>(probes_per_file));
        EXPECT_EQ(answers.dtz, static_cast<u32>(probes_per_file));
    }
}

TEST_F(MutatedTables, DamagedFilesEndNoProbeAndKeepItInTheFile)
{
    const u32 count = number_from("VESK_MUTATIONS", usual_mutations);
    const u32 first = number_from("VESK_FIRST_MUTATION", 0);
    u32 refused = 0;
    u32 read = 0;
    for (u32 number = first; number < first + count && !HasFailure(); ++number) {
        SCOPED_TRACE("mutation " + std::to_string(number));
        u64 random = number;
        next_random(&random, 1);
        const size_t file = next_random(&random, static_cast<u32>(files.size()));
        const size_t other = next_random(&random, static_cast<u32>(files.size()));
        write_bytes(files[file], damaged(bytes[file], bytes[other], &random));
        use_tables(".");
        const std::string name = material_of_file(files[file]);
        const std::string errors = capture_errors([&] { probe_material(name, random); });
        errors.find("Corrupted table.") != std::string::npos ? refused++ : read++;
        use_tables("");
        EXPECT_EQ(guarded_mappings(), 0U) << "a mapping is not given back";
        write_bytes(files[file], bytes[file]);
    }
    printf("%u damaged files: %u refused, %u read\n", count, refused, read);
    // Neither is the damage always seen nor is it never.
    EXPECT_GT(refused, 0U);
    EXPECT_GT(read, 0U);
    EXPECT_GT(guarded_mappings_made(), 0U);
}

// A file cut at any byte is no table: the probe of its material fails, and that of others goes on.
TEST_F(MutatedTables, AFileCutAnywhereIsRefused)
{
    const std::string whole = table_bytes("KQvK.rtbw");
    const TbPos pos = tb_pos_of("8/8/8/3k4/8/8/4Q3/4K3 w - -");
    const TbPos other = tb_pos_of("8/8/8/3k4/8/8/4R3/4K3 w - -");
    for (size_t length = 0; length < whole.size(); ++length) {
        write_bytes("KQvK.rtbw", whole.substr(0, length));
        use_tables(".");
        i32 success = 1;
        capture_errors([&] { tb_probe_wdl(&pos, &success); });
        EXPECT_EQ(success, 0) << length;
        tb_probe_wdl(&other, &success);
        EXPECT_NE(success, 0) << length;
    }
    write_bytes("KQvK.rtbw", whole);
    use_tables(".");
    i32 success = 0;
    EXPECT_EQ(tb_probe_wdl(&pos, &success), 2);
    EXPECT_NE(success, 0);
}

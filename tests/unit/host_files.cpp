// The doctor's checks of files: tables of a path, books, weights.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "shell_test_support.h"
#include "book/polyglot.h"
#include "host/book_check.h"
#include "fathom/tbnames.h"
#include "host/table_check.h"
#include "host/weights_check.h"

// In an empty folder.
struct HostFiles : ShellTest {
    // A file that looks like a table from outside.
    static std::string table_bytes(TbKind kind)
    {
        const std::string magic = kind == TbWdlFile ? "\x71\xe8\x23\x5d" : "\xd7\x66\x0c\xa5";
        return magic + std::string(64 + 16 - 4, '\0');
    }

    static void put_table(const std::string& name, TbKind kind)
    {
        write_file((name + (kind == TbWdlFile ? ".rtbw" : ".rtbz")).c_str(), table_bytes(kind));
    }

    static TableCheck look(const char* path)
    {
        TableCheck check;
        check_tables(path, &check);
        return check;
    }

    static std::vector<std::string> materials(i32 pieces)
    {
        std::vector<std::string> names;
        tb_visit_names(
            pieces,
            [](const char* name, void* context) {
                static_cast<std::vector<std::string>*>(context)->push_back(name);
            },
            &names);
        return names;
    }
};

// Pairs of multisets of the five kinds, as many in both: combinations with repetition.
TEST_F(HostFiles, MaterialsAreThoseOfThePublishedSets)
{
    EXPECT_EQ(materials(3), (std::vector<std::string> { "KQvK", "KRvK", "KBvK", "KNvK", "KPvK" }));
    EXPECT_EQ(materials(4).size(), 30U);
    EXPECT_EQ(materials(5).size(), 110U);
    EXPECT_EQ(materials(6).size(), 365U);
    const std::vector<std::string> names = materials(6);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
    EXPECT_NE(std::find(names.begin(), names.end(), "KRPvKBN"), names.end());
    EXPECT_EQ(std::find(names.begin(), names.end(), "KBNvKRP"), names.end());
}

TEST_F(HostFiles, TablesAreCountedByPiecesAndKind)
{
    put_table("KQvK", TbWdlFile);
    put_table("KQvK", TbDtzFile);
    put_table("KQPvKR", TbWdlFile);
    const TableCheck check = look(".");
    EXPECT_EQ(check.counts[3][TbWdlFile].found, 1);
    EXPECT_EQ(check.counts[3][TbWdlFile].wanted, 5);
    EXPECT_EQ(check.counts[3][TbWdlFile].bytes, 80U);
    EXPECT_EQ(check.counts[3][TbWdlFile].missing.count, 4);
    EXPECT_STREQ(check.counts[3][TbWdlFile].missing.names[0], "KRvK.rtbw");
    EXPECT_EQ(check.counts[3][TbDtzFile].found, 1);
    EXPECT_EQ(check.counts[5][TbWdlFile].found, 1);
    EXPECT_EQ(check.counts[5][TbDtzFile].missing.count, 110);
    EXPECT_STREQ(check.counts[5][TbDtzFile].missing.names[shown_tables - 1], "KQQPvK.rtbz");
    EXPECT_EQ(check.broken.count, 0);
    EXPECT_EQ(check.others, 0);
}

TEST_F(HostFiles, TableMayLieInAnyFolderOfThePath)
{
    ASSERT_EQ(mkdir("a", 0777), 0);
    ASSERT_EQ(mkdir("b", 0777), 0);
    put_table("a/KQvK", TbWdlFile);
    put_table("b/KRvK", TbWdlFile);
    put_table("b/KQvK", TbWdlFile); // only the first one counts
    EXPECT_EQ(look("a:b").counts[3][TbWdlFile].found, 2);
    EXPECT_EQ(look("a:b").counts[3][TbWdlFile].bytes, 160U);
    EXPECT_EQ(look(":nowhere::b:").counts[3][TbWdlFile].found, 2);
    EXPECT_EQ(look("a").counts[3][TbWdlFile].found, 1);
    EXPECT_EQ(look("a/KQvK.rtbw").counts[3][TbWdlFile].found, 0);
    EXPECT_EQ(look("").counts[3][TbWdlFile].found, 0);
}

TEST_F(HostFiles, BrokenTablesAreNamedWithTheReason)
{
    write_file("KQvK.rtbw", "");
    write_file("KRvK.rtbw", table_bytes(TbDtzFile));
    write_file("KBvK.rtbw", table_bytes(TbWdlFile) + "x");
    ASSERT_EQ(mkdir("KNvK.rtbw", 0777), 0);
    ASSERT_EQ(mkfifo("KPvK.rtbw", 0666), 0); // which nobody writes to
    write_file("KQvK.rtbz", "\xd7\x66");
    write_file("KRvK.rtbz", table_bytes(TbDtzFile));
    const TableCheck check = look(".");
    EXPECT_EQ(check.counts[3][TbWdlFile].found, 0);
    EXPECT_EQ(check.counts[3][TbDtzFile].found, 1);
    ASSERT_EQ(check.broken.count, 6);
    std::string text;
    for (i32 i = 0; i < shown_tables; ++i) {
        text += std::string(check.broken.names[i]) + " " + check.broken.reasons[i] + "|";
    }
    EXPECT_EQ(text,
        "KQvK.rtbw empty|KQvK.rtbz no table inside|KRvK.rtbw no table inside|"
        "KBvK.rtbw cut short, or not copied to its end|KNvK.rtbw no regular file|");
}

TEST_F(HostFiles, FilesThatTheEngineDoesNotLookForAreCounted)
{
    put_table("kqvk", TbWdlFile);
    put_table("KvKQ", TbWdlFile);
    put_table("KQRBvKQR", TbWdlFile);
    put_table("KRvK", TbWdlFile);
    write_file("readme", "x");
    write_file(".rtbw", "x");
    EXPECT_EQ(look(".").others, 3);
    EXPECT_EQ(look(".").counts[3][TbWdlFile].found, 1);
}

TEST_F(HostFiles, FoldersOfAPathAreTakenOneByOne)
{
    const char* path = "::a:/b c::";
    char part[8];
    ASSERT_TRUE(next_folder(&path, part, sizeof part));
    EXPECT_STREQ(part, "a");
    ASSERT_TRUE(next_folder(&path, part, sizeof part));
    EXPECT_STREQ(part, "/b c");
    EXPECT_FALSE(next_folder(&path, part, sizeof part));
    path = "/much/too/long";
    ASSERT_TRUE(next_folder(&path, part, sizeof part));
    EXPECT_STREQ(part, "/much/t");
    EXPECT_FALSE(next_folder(&path, part, sizeof part));
}

TEST_F(HostFiles, FoldersAreToldApart)
{
    ASSERT_EQ(mkdir("empty", 0777), 0);
    ASSERT_EQ(mkdir("full", 0777), 0);
    ASSERT_EQ(mkdir("full/below", 0777), 0);
    write_file("file", "x");
    put_table("full/below/KQvK", TbWdlFile);
    EXPECT_EQ(look_at_folder("empty"), FolderKind::Readable);
    EXPECT_EQ(look_at_folder("file"), FolderKind::NoFolder);
    EXPECT_EQ(look_at_folder("nothing"), FolderKind::Missing);
    EXPECT_EQ(look_at_folder("file/below"), FolderKind::Missing);
    char found[256];
    EXPECT_FALSE(find_folder_with_tables("empty", found, sizeof found));
    EXPECT_FALSE(find_folder_with_tables("full/below", found, sizeof found));
    EXPECT_FALSE(find_folder_with_tables("nothing", found, sizeof found));
    ASSERT_TRUE(find_folder_with_tables("full", found, sizeof found));
    EXPECT_STREQ(found, "full/below");
    char small[8];
    EXPECT_FALSE(find_folder_with_tables("full", small, sizeof small));
}

// ---- Books

// Records of these keys, in this order.
static std::string book_of(const std::vector<u64>& keys)
{
    std::string bytes;
    for (const u64 key : keys) {
        for (i32 shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(key >> shift & 255);
        }
        bytes += std::string(8, '\1');
    }
    return bytes;
}

TEST_F(HostFiles, BookInOrderIsCounted)
{
    write_file("book", book_of({ 1, 1, 2, 0xffffffffffffff00 }));
    const BookCheck check = check_book("book");
    EXPECT_EQ(check.error, 0);
    EXPECT_TRUE(check.regular);
    EXPECT_EQ(check.bytes, 64U);
    EXPECT_EQ(check.records, 4U);
    EXPECT_EQ(check.positions, 3U);
    EXPECT_EQ(check.first_unsorted, 0U);
    EXPECT_FALSE(check.start_position);
}

TEST_F(HostFiles, BookKnowsTheStartOfTheGame)
{
    write_file("book", book_of({ 1, book_key(set_position(start_position)) }));
    EXPECT_TRUE(check_book("book").start_position);
}

TEST_F(HostFiles, BookOutOfOrderOrCutShortShows)
{
    write_file("book", book_of({ 1, 3, 2, 1 }) + "half");
    const BookCheck check = check_book("book");
    EXPECT_EQ(check.first_unsorted, 3U);
    EXPECT_EQ(check.records, 4U);
    EXPECT_EQ(check.bytes, 68U);
}

TEST_F(HostFiles, WhatIsNoBookIsTold)
{
    EXPECT_EQ(check_book("nothing").error, ENOENT);
    ASSERT_EQ(mkfifo("pipe", 0666), 0);
    EXPECT_FALSE(check_book("pipe").regular);
    EXPECT_EQ(check_book("pipe").error, 0);
    EXPECT_FALSE(check_book(".").regular);
    write_file("empty", "");
    EXPECT_EQ(check_book("empty").records, 0U);
    EXPECT_TRUE(check_book("empty").regular);
}

// ---- Weights

static std::string all_weights()
{
    init_eval_params(PlainWeights, nullptr);
    std::string text;
    for (const EvalParam& entry : eval_params) {
        text += "fset(\"" + std::string(entry.name) + "\"," + std::to_string(score_mg(entry.packed))
            + "," + std::to_string(score_eg(entry.packed)) + ");\n";
    }
    return text;
}

TEST_F(HostFiles, OwnWeightsHoldWithoutAFile)
{
    EXPECT_EQ(check_weights().state, WeightsFile::None);
    ASSERT_EQ(mkdir("params.txt", 0777), 0);
    EXPECT_EQ(check_weights().state, WeightsFile::Unread);
    ASSERT_EQ(rmdir("params.txt"), 0);
    ASSERT_EQ(symlink("nowhere", "params.txt"), 0);
    EXPECT_EQ(check_weights().state, WeightsFile::None);
}

TEST_F(HostFiles, WeightsOfAFileAreCompared)
{
    std::string text = all_weights();
    write_file("params.txt", text);
    WeightsCheck check = check_weights();
    EXPECT_EQ(check.state, WeightsFile::Used);
    EXPECT_EQ(check.differing, 0);
    EXPECT_EQ(check.read, weight_count);
    EXPECT_EQ(check.total, weight_count);
    EXPECT_EQ(check.misplaced, 0);
    const size_t first = text.find(",");
    text.replace(first, text.find(")") - first, ",1,2");
    write_file("params.txt", text);
    EXPECT_EQ(check_weights().differing, 1);
}

TEST_F(HostFiles, WeightsOutOfPlaceAndMissingOnesAreTold)
{
    const std::string text = all_weights();
    const size_t second = text.find('\n') + 1;
    const size_t third = text.find('\n', second) + 1;
    write_file("params.txt", text.substr(0, second) + text.substr(third, 60));
    const WeightsCheck check = check_weights();
    EXPECT_EQ(check.state, WeightsFile::Used);
    EXPECT_GE(check.misplaced, 1);
    EXPECT_STRNE(check.first_misplaced, "");
    EXPECT_LT(check.read, 5);
    // The table of this process is as it was.
    EXPECT_EQ(text, all_weights());
}

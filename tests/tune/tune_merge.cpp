// Shards of training lines made into one file: what is written, what is left out, what is told, and
// what stays when it fails.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "test_support.h"
#include "base/files.h"
#include "tools/trainer/merge_lines.h"
#include "tools/trainer/trainer_options.h"

static const std::string first = "4k3/1p3p2/2n5/8/8/2N5/1P3PP1/4K3 b - - ce 5; gr 0.0;";
static const std::string second =
    "r4rk1/pp3ppp/2n1pn2/3p4/3P4/2N1PN2/PP3PPP/R4RK1 w - - ce 12; gr 1;";
static const std::string third = "8/5pk1/4b1p1/7p/7P/3B2P1/5PK1/8 w - - ce 150; gr 0.0;";

static void write(const char* name, const std::string& text)
{
    std::ofstream(name, std::ios::binary) << text;
}

static std::string read(const char* name)
{
    std::stringstream text;
    text << std::ifstream(name, std::ios::binary).rdbuf();
    return text.str();
}

struct TuneMerge : testing::Test {
    void SetUp() override
    {
        set_position(start_position);
        build_weights(PlainWeights);
        old = tune_options;
        exit_status = 0;
        remove_files();
    }

    void TearDown() override
    {
        tune_options = old;
        exit_status = 0;
        remove_files();
    }

    static void remove_files()
    {
        for (const char* name : { "merge_a.epd", "merge_b.epd", "merged.epd", "merged.epd.part" }) {
            unlink(name);
        }
    }

    // Merges the two shards; returns what standard error is told.
    std::string merge()
    {
        static char output[] = "merged.epd";
        char* shards[] = { a, b };
        tune_options.file = output;
        tune_options.shards = shards;
        tune_options.shard_count = 2;
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        merge_lines(dialogue.game);
        out = testing::internal::GetCapturedStdout();
        return testing::internal::GetCapturedStderr();
    }

    TuneOptions old;
    std::string out;
    char a[16] = "merge_a.epd";
    char b[16] = "merge_b.epd";
};

TEST_F(TuneMerge, EachPositionIsWrittenOnceAsItCameFirst)
{
    write(a, "\xef\xbb\xbf# a comment\n" + first + " c0 \"game 1\";\r\n\n" + second + "\n");
    write(b, first + "\n" + third + "\n" + second + "\n" + third + "\n");
    EXPECT_EQ(merge(), "");
    EXPECT_EQ(
        read("merged.epd"), first + " c0 \"game 1\";\n" + second + "\n" + third + "\n# lines 3\n");
    EXPECT_EQ(out,
        "merged.epd: 3 lines of 2 files\n"
        "left out: 3 of a position that was there already, 0 refused\n");
    EXPECT_EQ(exit_status, 0);
    EXPECT_NE(access("merged.epd.part", F_OK), 0);
}

// The other side to move, or another right to castle, makes another position.
TEST_F(TuneMerge, PositionsDifferByMoreThanTheirPieces)
{
    const std::string castling = "r3k2r/pppppppp/8/8/8/8/PPPPPPPP/R3K2R w ";
    write(a, castling + "KQkq - gr 1;\n" + castling + "KQ - gr 1;\n");
    write(b, "4k3/1p3p2/2n5/8/8/2N5/1P3PP1/4K3 w - - gr 1;\n" + first + "\n");
    EXPECT_EQ(merge(), "");
    EXPECT_NE(out.find("4 lines"), std::string::npos);
}

TEST_F(TuneMerge, ManyPositionsAreAllKept)
{
    // All sets of pawns on two ranks: more than the table of keys has room for at first.
    std::string text;
    for (i32 mask = 0; mask < 1 << 16; ++mask) {
        std::string ranks[2];
        for (i32 rank = 0; rank < 2; ++rank) {
            for (i32 file = 0; file < 8; ++file) {
                ranks[rank] += (mask >> (8 * rank + file) & 1) != 0 ? 'P' : '1';
            }
        }
        text += "k7/8/8/8/8/" + ranks[0] + "/" + ranks[1] + "/7K w - - gr 1;\n";
    }
    write(a, text);
    write(b, text.substr(0, text.find('\n', 10000) + 1));
    const std::string errors = merge();
    std::istringstream told(out.substr(out.find(": ") + 2));
    i64 written = 0;
    told >> written;
    // The last set of all, of sixteen pawns, makes one man too many.
    EXPECT_EQ(written, (1 << 16) - 1);
    EXPECT_NE(errors.find("merge_a.epd:65536: "), std::string::npos) << errors;
}

TEST_F(TuneMerge, BadLinesAreNamedAndTheRestIsKept)
{
    write(a, first + "\nnonsense\n" + std::string("a\0b", 3) + "\n" + second + "\n");
    write(b, third + "\n" + first + " gr 7;\n" + std::string(300, 'x') + "\n");
    EXPECT_EQ(merge(),
        "merge_a.epd:2: does not begin with the four fields of a position\n"
        "merge_a.epd:3: is no text\n"
        "merge_b.epd:3: is longer than 254 characters\n");
    EXPECT_EQ(read("merged.epd"), first + "\n" + second + "\n" + third + "\n# lines 3\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(TuneMerge, AShardThatIsCutShortIsNamed)
{
    write(a, first + "\n" + second.substr(0, second.size() - 3));
    write(b, third + "\n# lines 2\n" + second + "\n# lines 1\n");
    EXPECT_EQ(merge(),
        "merge_a.epd:2: ends without a line feed: the file is cut short\n"
        "merge_b.epd:2: tells of another number of lines than the 1 there are: some have been"
        " lost\n");
    EXPECT_EQ(read("merged.epd"), first + "\n" + third + "\n" + second + "\n# lines 3\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(TuneMerge, AFileThatIsThereIsReplacedOnlyWhenAsked)
{
    write(a, first + "\n");
    write(b, second + "\n");
    write("merged.epd", "of a week\n");
    EXPECT_EQ(merge(), "merged.epd: is there: replace it with -merge-replace, or move it away\n");
    EXPECT_EQ(read("merged.epd"), "of a week\n");
    EXPECT_EQ(exit_status, 1);
    exit_status = 0;
    tune_options.replaces = true;
    EXPECT_EQ(merge(), "");
    EXPECT_EQ(read("merged.epd"), first + "\n" + second + "\n# lines 2\n");
    EXPECT_EQ(exit_status, 0);
}

TEST_F(TuneMerge, AnOutputThatIsAShardIsRefused)
{
    write(a, first + "\n");
    write("merged.epd", second + "\n");
    snprintf(b, sizeof b, "merged.epd");
    tune_options.replaces = true;
    EXPECT_EQ(merge(), "merged.epd: would be replaced by the output\n");
    EXPECT_EQ(read("merged.epd"), second + "\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_NE(access("merged.epd.part", F_OK), 0);
}

TEST_F(TuneMerge, AMissingShardEndsItBeforeAnythingIsWritten)
{
    write(a, first + "\n");
    EXPECT_EQ(merge(), "merge_b.epd: cannot be opened: No such file or directory\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_NE(access("merged.epd", F_OK), 0);
    EXPECT_NE(access("merged.epd.part", F_OK), 0);
}

TEST_F(TuneMerge, NothingToWriteIsTold)
{
    write(a, "");
    write(b, "# nothing\n");
    EXPECT_EQ(merge(), "merged.epd: there is no line to write\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_NE(access("merged.epd", F_OK), 0);
}

TEST_F(TuneMerge, AFullDiskLeavesTheOldFile)
{
    signal(SIGXFSZ, SIG_IGN);
    write("merged.epd", "old");
    std::string text;
    for (i32 i = 0; i < 1 << 12; ++i) {
        std::string rank;
        for (i32 file = 0; file < 8; ++file) {
            rank += (i >> file & 1) != 0 ? 'P' : '1';
        }
        text += "k7/" + std::string(i >> 8 != 0 ? "p7" : "1p6") + "/8/8/8/8/" + rank
            + "/7K w - - gr 1;\n";
    }
    write(a, text);
    write(b, second + "\n");
    tune_options.replaces = true;
    rlimit kept;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &kept), 0);
    const rlimit small = { 4096, kept.rlim_max };
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string errors = merge();
    setrlimit(RLIMIT_FSIZE, &kept);
    EXPECT_EQ(errors, "merged.epd: cannot be written: File too large\n");
    EXPECT_EQ(read("merged.epd"), "old");
    EXPECT_EQ(exit_status, 1);
    EXPECT_NE(access("merged.epd.part", F_OK), 0);
}

// The words for opening books, run as from the command line.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "book_support.h"
#include "test_support.h"
#include "data/book_sort.h"
#include "data/words.h"

namespace
{

const std::string start = std::string(start_position) + " -";
const std::string after_e4 = "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3";
const std::string after_a3 = "rnbqkbnr/pppppppp/8/8/8/P7/1PPPPPPP/RNBQKBNR b KQkq -";
const std::string castles = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -";

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

struct DataBook : BookTest {
};

// Runs `vesk-data book` with these words.
Outcome run(std::vector<std::string> words)
{
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    Outcome outcome;
    testing::internal::CaptureStderr();
    outcome.out = capture_output([&] { outcome.status = run_book(arguments); });
    outcome.err = testing::internal::GetCapturedStderr();
    return outcome;
}

std::vector<BookEntry> sorted(std::vector<BookEntry> entries)
{
    const auto is_before = [](const BookEntry& a, const BookEntry& b) {
        return book_entry_compare(&a, &b) < 0;
    };
    for (auto next = entries.begin(); next != entries.end(); ++next) {
        std::rotate(std::upper_bound(entries.begin(), next, *next, is_before), next, next + 1);
    }
    return entries;
}

void write_book(const std::string& name, const std::vector<BookEntry>& entries)
{
    write_bytes(name, bytes_of(entries));
}

// "move weight" of each entry of a position, in the order of the file.
std::string moves_in(const std::string& name, const std::string& fen)
{
    const u64 key = book_key(set_position(fen));
    std::string text;
    for (const BookEntry& entry : entries_of_bytes(read_bytes(name))) {
        if (entry.key == key) {
            text += book_text_of(entry.move) + " " + std::to_string(entry.weight) + " ";
        }
    }
    return text;
}

bool holds(const std::string& text, const std::string& part)
{
    return text.find(part) != text.npos;
}

} // namespace

// ---- check

TEST_F(DataBook, CheckFindsNothingInASoundBook)
{
    write_book("a.bin",
        sorted({ entry_of(start, "e2e4", 10), entry_of(start, "d2d4", 5),
            entry_of(after_e4, "e7e5", 3) }));
    const Outcome outcome = run({ "check", "a.bin", "--json" });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(holds(outcome.out,
        "\"entries\":3,\"positions\":2,"
        "\"positions_on_the_books_own_lines\":2,"
        "\"positions_where_one_side_keeps_to_the_book\":0,"
        "\"positions_that_the_start_does_not_lead_to\":0,"
        "\"half_moves_to_the_deepest_position\":1,"
        "\"most_moves_of_a_position\":2"))
        << outcome.out;
    EXPECT_EQ(run({ "a.bin", "--json" }).out, outcome.out);
}

TEST_F(DataBook, CheckTellsOfEveryFaultWithItsEntry)
{
    const std::vector<BookEntry> entries = sorted({ entry_of(start, "e2e4", 10),
        entry_of(start, "e2e5", 9), entry_of(start, "d2d4", 8), entry_of(start, "d2d4", 7),
        entry_of(start, "g1h4", 6), entry_of(start, "a1a1", 5), entry_of(start, "c2c4", 0) });
    write_bytes("a.bin", bytes_of(entries) + "odd");
    const Outcome outcome = run({ "check", "a.bin" });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
        "a.bin: entry 8: ends within an entry: 3 bytes of 16\n"
        "a.bin: entry 4: move of an entry before: d2d4, entry 3\n"
        "a.bin: entry 5: no piece moves so: g1h4\n"
        "a.bin: entry 6: no move: a1a1\n"
        "a.bin: entry 7: weight 0, never played: c2c4\n"
        "a.bin: entry 2: illegal move: e2e5 in "
            + start.substr(0, start.size() - 2) + "\n");
}

// Entry numbers are those of the user's file, whatever it is sorted into.
TEST_F(DataBook, CheckTellsWhereTheOrderEnds)
{
    std::vector<BookEntry> entries =
        sorted({ entry_of(start, "e2e4", 10), entry_of(after_e4, "e7e5", 3) });
    std::swap(entries[0], entries[1]);
    entries.push_back(entry_of(after_e4, "e7e4", 1));
    std::swap(entries[1], entries[2]);
    write_book("a.bin", entries);
    const Outcome outcome = run({ "check", "a.bin" });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(holds(outcome.err, "lower key than the entry before")) << outcome.err;
    const size_t bad = entries[0].move == entry_of(after_e4, "e7e4", 1).move ? 1
        : entries[1].move == entry_of(after_e4, "e7e4", 1).move              ? 2
                                                                             : 3;
    EXPECT_TRUE(holds(outcome.err, "a.bin: entry " + std::to_string(bad) + ": illegal move: e7e4"))
        << outcome.err;
}

TEST_F(DataBook, CheckTellsOfWeightsOutOfOrder)
{
    write_book("a.bin", { entry_of(start, "e2e4", 1), entry_of(start, "d2d4", 8) });
    const Outcome outcome = run({ "check", "a.bin" });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "a.bin: entry 2: higher weight than the entry before of its position\n");
}

// What the start does not lead to is no fault: a book may begin elsewhere.
TEST_F(DataBook, CheckNotesWhatTheStartDoesNotLeadTo)
{
    write_book("a.bin", sorted({ entry_of(start, "e2e4", 10), entry_of(castles, "e1g1", 3) }));
    Outcome outcome = run({ "check", "a.bin" });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(holds(outcome.err, "position that the start does not lead to: key "));
    EXPECT_TRUE(holds(outcome.out, "noted\n"));
    EXPECT_EQ(run({ "check", "a.bin", "--strict" }).status, 1);
    outcome = run({ "check", "a.bin", "--start", castles });
    EXPECT_TRUE(holds(outcome.err, "castling as a king's move of two squares: e1g1 in " + castles));
}

// After 1.a3, which the book does not play, Black still knows an answer.
TEST_F(DataBook, CheckFollowsMovesOfTheOtherSide)
{
    write_book("a.bin", sorted({ entry_of(start, "e2e4", 10), entry_of(after_a3, "e7e5", 3) }));
    const Outcome outcome = run({ "check", "a.bin", "--json" });
    EXPECT_TRUE(holds(outcome.out,
        "\"positions_on_the_books_own_lines\":1,"
        "\"positions_where_one_side_keeps_to_the_book\":1,"));
}

// A rook's way from e1 to h1 has the squares of castling, and is played as another move.
TEST_F(DataBook, CheckKnowsARookOnTheKingsSquare)
{
    const std::string fen = "3k4/8/8/8/8/8/K7/4R3 w - -";
    write_book("a.bin", { entry_of(fen, "e1h1", 10) });
    const Outcome outcome = run({ "check", "a.bin", "--start", fen });
    EXPECT_EQ(outcome.err,
        "a.bin: entry 1: a rook's move that stands for castling: e1h1 in " + fen + "\n");
}

TEST_F(DataBook, CheckReadsAnEmptyBookAndRefusesAFolder)
{
    write_bytes("a.bin", "");
    EXPECT_EQ(run({ "check", "a.bin" }).status, 0);
    EXPECT_EQ(run({ "check", "." }).err, ".: cannot be opened: Is a directory\n");
    EXPECT_EQ(run({ "check", "none.bin" }).status, 1);
}

TEST_F(DataBook, CheckGivesTheSameForAnyNumberOfJobs)
{
    const std::string book = data_path("small.bin");
    const Outcome one = run({ "check", book, "--max-messages", "1000" });
    const Outcome three = run({ "check", book, "--max-messages", "1000", "--jobs", "3" });
    EXPECT_EQ(one.out, three.out);
    EXPECT_EQ(one.err, three.err);
    EXPECT_TRUE(holds(one.out, "entries of weight 0                                   20"));
}

// ---- Order

// A run of ten, many of them, one that is not full; numbers go with their records.
TEST_F(DataBook, SortsInRuns)
{
    std::vector<BookEntry> entries;
    u64 number = 1;
    for (u32 i = 0; i < 997; ++i) {
        number = number * 6364136223846793005ULL + 1442695040888963407ULL;
        entries.push_back(
            { number >> 60, static_cast<u16>(i), static_cast<u16>(number >> 40 & 7), i });
    }
    write_book("a.bin", entries);
    const std::vector<BookEntry> wanted = sorted(entries);
    for (const u64 run : { 10u, 996u, 997u, 5000u }) {
        Report report = start_report("test", CommonOptions());
        BookFile book;
        ASSERT_TRUE(open_unsorted_book(&book, "a.bin", &report));
        ASSERT_TRUE(sort_book(&book, run, &report));
        BookCursor cursor = make_cursor(book);
        BookEntry entry;
        for (u64 i = 0; i < wanted.size(); ++i) {
            ASSERT_TRUE(next_entry(&cursor, &entry));
            ASSERT_EQ(entry.learn, wanted[i].learn) << "record " << i << ", runs of " << run;
            ASSERT_EQ(entry_number(book, i), static_cast<i64>(entry.learn) + 1);
        }
        EXPECT_FALSE(next_entry(&cursor, &entry));
        EXPECT_FALSE(cursor.failed);
    }
}

// The first record of a key may stand at the end of a step of the index or begin the next.
TEST_F(DataBook, FindsEveryKey)
{
    std::vector<BookEntry> entries;
    for (u32 i = 0; i < 3000; ++i) {
        entries.push_back({ 10 + i / 3 * 7ULL, static_cast<u16>(i), 1, i });
    }
    write_book("a.bin", entries);
    Report report = start_report("test", CommonOptions());
    BookFile book;
    BookIndex index;
    ASSERT_TRUE(open_unsorted_book(&book, "a.bin", &report));
    ASSERT_TRUE(make_index(&index, book, &report));
    for (u64 key = 0; key < 8000; ++key) {
        const bool is_there = key >= 10 && (key - 10) % 7 == 0 && key < 10 + 7 * 1000;
        const i64 wanted = is_there ? static_cast<i64>((key - 10) / 7 * 3) : -1;
        ASSERT_EQ(find_key(index, book, key), wanted) << "key " << key;
    }
    BookEntry group[max_book_entries];
    EXPECT_EQ(read_group(book, 2997, group), 3);
    EXPECT_EQ(group[2].learn, 2999u);
}

// ---- dump

TEST_F(DataBook, DumpShowsATreeWithTranspositionsOnce)
{
    const std::string knights = "rnbqkb1r/pppppppp/5n2/8/8/2N5/PPPPPPPP/R1BQKBNR w KQkq -";
    write_book("a.bin",
        sorted({ entry_of(start, "b1c3", 30), entry_of(start, "g1h3", 10),
            entry_of("rnbqkbnr/pppppppp/8/8/8/2N5/PPPPPPPP/R1BQKBNR b KQkq -", "g8f6", 1),
            entry_of(knights, "c3b1", 1), entry_of(knights, "a2a4", 0),
            entry_of(knights, "a2a5", 0),
            entry_of("rnbqkb1r/pppppppp/5n2/8/8/8/PPPPPPPP/RNBQKBNR b KQkq -", "f6g8", 2) }));
    const Outcome outcome = run({ "dump", "a.bin" });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
        "1. Nc3  75.00% (30)\n"
        "  1... Nf6  100.00% (1)\n"
        "    2. Nb1  100.00% (1)\n"
        "      2... Ng8  100.00% (2)  (as above)\n"
        "    2. a4  0.00% (0) never\n"
        "    2. a2a5  0.00% (0) never illegal\n"
        "1. Nh3  25.00% (10)\n");
    EXPECT_EQ(run({ "dump", "a.bin", "--max-ply", "1", "--moves", "squares" }).out,
        "1. b1c3  75.00% (30)\n1. g1h3  25.00% (10)\n");
    EXPECT_EQ(run({ "dump", "a.bin", "--max-ply", "0" }).out, "");
}

TEST_F(DataBook, DumpShowsABookOfOneSide)
{
    write_book("a.bin",
        sorted({ entry_of(start, "e2e4", 1),
            entry_of("rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq -", "g1f3", 1),
            entry_of("rnbqkbnr/ppp1pppp/8/3p4/4P3/8/PPPP1PPP/RNBQKBNR w KQkq -", "e4d5", 1) }));
    EXPECT_EQ(run({ "dump", "a.bin" }).out, "1. e4  100.00% (1)\n");
    EXPECT_EQ(run({ "dump", "a.bin", "--for", "white" }).out,
        "1. e4  100.00% (1)\n"
        "  1... d5\n"
        "    2. exd5  100.00% (1)\n"
        "  1... e5\n"
        "    2. Nf3  100.00% (1)\n");
    EXPECT_EQ(run({ "dump", "a.bin", "--for", "black" }).out, "");
}

TEST_F(DataBook, DumpShowsEntriesAsTheyStand)
{
    write_bytes("a.bin", bytes_of({ entry_of(start, "e2e4", 7), { 1, 0x4d3c, 2, 9 } }) + "cut");
    const Outcome outcome = run({ "dump", "a.bin", "--form", "entries" });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
        "entry\tkey\tmove\tweight\tlearn\n"
        "1\t463b96181691fc9c\te2e4\t7\t0\n"
        "2\t0000000000000001\te7e8q\t2\t9\n");
}

// ---- merge

TEST_F(DataBook, MergeAddsWeights)
{
    write_book("a.bin", sorted({ entry_of(start, "e2e4", 10), entry_of(start, "d2d4", 5) }));
    write_book("b.bin",
        sorted({ entry_of(start, "d2d4", 20), entry_of(start, "c2c4", 2),
            entry_of(after_e4, "e7e5", 3) }));
    EXPECT_EQ(run({ "merge", "a.bin", "b.bin", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "d2d4 25 e2e4 10 c2c4 2 ");
    EXPECT_EQ(moves_in("c.bin", after_e4), "e7e5 3 ");
    EXPECT_EQ(run({ "check", "c.bin" }).status, 0);
    EXPECT_EQ(run({ "merge", "--rule=first", "a.bin", "b.bin", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "e2e4 10 d2d4 5 ");
    EXPECT_EQ(run({ "merge", "--rule=share", "a.bin", "b.bin", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "d2d4 12423 e2e4 6666 c2c4 909 ");
}

// A weight above 0 is never scaled down to 0, which would mean "never".
TEST_F(DataBook, MergeKeepsWeightsInTheirRange)
{
    write_book("a.bin",
        sorted({ entry_of(start, "e2e4", 65535), entry_of(start, "d2d4", 30000),
            entry_of(start, "c2c4", 1), entry_of(start, "b2b4", 0) }));
    EXPECT_EQ(run({ "merge", "a.bin", "a.bin", "a.bin", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "e2e4 65535 d2d4 30000 c2c4 1 b2b4 0 ");
    write_book("b.bin", sorted({ entry_of(start, "d2d4", 65535) }));
    EXPECT_EQ(run({ "merge", "a.bin", "b.bin", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "d2d4 65535 e2e4 44955 c2c4 1 b2b4 0 ");
}

TEST_F(DataBook, MergeSortsAndRefusesWhatCannotBeAMove)
{
    std::vector<BookEntry> entries =
        sorted({ entry_of(start, "e2e4", 1), entry_of(after_e4, "e7e5", 3) });
    std::swap(entries[0], entries[1]);
    entries.push_back({ 5, 0, 3, 0 });
    write_book("a.bin", entries);
    write_book("b.bin", {});
    const Outcome outcome = run({ "merge", "a.bin", "b.bin", "--output", "c.bin" });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(holds(outcome.err, "a.bin: entry 3: no move: a1a1\n")) << outcome.err;
    EXPECT_EQ(read_bytes("c.bin"), bytes_of(sorted({ entries[0], entries[1] })));
}

TEST_F(DataBook, MergeWritesNothingWhereABookIsMissing)
{
    write_book("a.bin", { entry_of(start, "e2e4", 1) });
    write_bytes("c.bin", "old");
    EXPECT_EQ(run({ "merge", "a.bin", "none.bin", "--output", "c.bin" }).status, 1);
    EXPECT_EQ(read_bytes("c.bin"), "old");
    EXPECT_FALSE(file_exists("c.bin.part"));
    EXPECT_EQ(run({ "merge", "a.bin", "a.bin", "--output", "a.bin" }).status, 1);
    EXPECT_EQ(read_bytes("a.bin"), bytes_of({ entry_of(start, "e2e4", 1) }));
}

// ---- prune

TEST_F(DataBook, PruneDropsByWeightAndShare)
{
    write_book("a.bin",
        sorted({ entry_of(start, "e2e4", 60), entry_of(start, "d2d4", 30),
            entry_of(start, "c2c4", 10), entry_of(start, "b2b4", 0) }));
    EXPECT_EQ(run({ "prune", "a.bin", "--min-weight", "10", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "e2e4 60 d2d4 30 c2c4 10 ");
    EXPECT_EQ(run({ "prune", "a.bin", "--min-share", "10.5", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "e2e4 60 d2d4 30 ");
    EXPECT_EQ(run({ "prune", "a.bin", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(read_bytes("c.bin"), read_bytes("a.bin"));
}

// 1.d4 goes for its weight, and with it the position behind it.
TEST_F(DataBook, PruneDropsWhatIsNoLongerReached)
{
    const std::string after_d4 = "rnbqkbnr/pppppppp/8/8/3P4/8/PPP1PPPP/RNBQKBNR b KQkq -";
    const std::string after_d4_d5 = "rnbqkbnr/ppp1pppp/8/3p4/3P4/8/PPP1PPPP/RNBQKBNR w KQkq -";
    write_book("a.bin",
        sorted({ entry_of(start, "e2e4", 60), entry_of(start, "d2d4", 3),
            entry_of(after_d4, "d7d5", 30), entry_of(after_d4_d5, "c2c4", 30) }));
    const std::vector<std::string> words = { "prune", "a.bin", "--min-weight", "4",
        "--drop-unreachable", "--output", "c.bin" };
    EXPECT_EQ(run(words).status, 0);
    // Black still has an answer to 1.d4, but White no longer plays it.
    EXPECT_EQ(moves_in("c.bin", after_d4), "d7d5 30 ");
    EXPECT_EQ(moves_in("c.bin", after_d4_d5), "");
    std::vector<std::string> strict = words;
    strict.push_back("--reach=lines");
    EXPECT_EQ(run(strict).status, 0);
    EXPECT_EQ(read_bytes("c.bin"), bytes_of({ entry_of(start, "e2e4", 60) }));
}

TEST_F(DataBook, PruneKeepsTheFirstHalfMoves)
{
    write_book("a.bin",
        sorted({ entry_of(start, "e2e4", 60), entry_of(after_e4, "e7e5", 30),
            entry_of(castles, "e1h1", 30) }));
    const Outcome outcome = run({ "prune", "a.bin", "--max-ply", "1", "--output", "c.bin" });
    EXPECT_TRUE(holds(outcome.out, "position deeper than wanted"));
    EXPECT_TRUE(holds(outcome.out, "entries kept that the start does not lead to             1"));
    EXPECT_EQ(moves_in("c.bin", start), "e2e4 60 ");
    EXPECT_EQ(moves_in("c.bin", after_e4), "");
    EXPECT_EQ(moves_in("c.bin", castles), "e1h1 30 ");
}

TEST_F(DataBook, PruneDropsIllegalMoves)
{
    write_book("a.bin", sorted({ entry_of(start, "e2e5", 60), entry_of(start, "e2e4", 30) }));
    EXPECT_EQ(run({ "prune", "a.bin", "--drop-illegal", "--output", "c.bin" }).status, 0);
    EXPECT_EQ(moves_in("c.bin", start), "e2e4 30 ");
}

// A wrong start would lose the whole book.
TEST_F(DataBook, PruneWritesNothingWhereTheStartLeadsNowhere)
{
    write_book("a.bin", { entry_of(start, "e2e4", 30) });
    const Outcome outcome =
        run({ "prune", "a.bin", "--drop-unreachable", "--start", castles, "--output", "c.bin" });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(holds(outcome.err, "nothing is written"));
    EXPECT_FALSE(file_exists("c.bin"));
}

// ---- diff

TEST_F(DataBook, DiffTellsWhatIsInOneBookAlone)
{
    write_book("a.bin",
        sorted({ entry_of(start, "e2e4", 30), entry_of(start, "d2d4", 10),
            entry_of(after_e4, "e7e5", 1), entry_of(castles, "e1h1", 4) }));
    write_book("b.bin",
        sorted({ entry_of(start, "e2e4", 30), entry_of(start, "d2d4", 30),
            entry_of(start, "c2c4", 0), entry_of(after_e4, "e7e5", 1) }));
    const Outcome outcome = run({ "diff", "a.bin", "b.bin" });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.out.starts_with(std::string(start_position)
        + "  after 0 half-moves\n"
          "  d4       10 (25.00%) -> 30 (50.00%)\n"
          "  c4       - -> 0 (0.00%)\n"
          "key "))
        << outcome.out;
    EXPECT_TRUE(outcome.out.ends_with("\n  e1h1     4 (100.00%) -> -\n"));
    EXPECT_EQ(run({ "diff", "a.bin", "a.bin" }).out, "");
}

// ---- play

// The proportions of adjust_book_weights, drawn in thousandths.
TEST_F(DataBook, PlayShowsTheChances)
{
    write_book("a.bin",
        { entry_of(start, "e2e4", 100), entry_of(start, "d2d4", 50), entry_of(start, "c2c4", 50),
            entry_of(start, "b2b4", 0) });
    const Outcome outcome = run({ "play", "a.bin" });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
        std::string(start_position)
            + "\nmove            weight    share   chance  at variety 25\n"
              "e4       e2e4      100   50.00%    50.1%\n"
              "d4       d2d4       50   25.00%    25.0%\n"
              "c4       c2c4       50   25.00%    24.9%\n"
              "b4       b2b4        0    0.00%     0.0%  never\n");
}

// The engine's own probe, asked many times, chooses as the table says.
TEST_F(DataBook, PlayAgreesWithTheProbe)
{
    write_book("a.bin",
        { entry_of(start, "e2e4", 90), entry_of(start, "d2d4", 50), entry_of(start, "e2e5", 40) });
    const Outcome outcome = run({ "play", "a.bin", "--variety=60", "--json" });
    EXPECT_TRUE(holds(outcome.out, "\"draws_of_1000\":444,\"legal\":true")) << outcome.out;
    EXPECT_TRUE(holds(outcome.out, "\"draws_without_move\":259")) << outcome.out;
    Position* pos = set_position(start);
    constexpr i32 probes = 20000;
    i32 chosen[3] = {};
    for (i32 i = 0; i < probes; ++i) {
        BookChoice choice;
        book_probe(pos, "a.bin", 60, &choice);
        ++chosen[choice.move == move_of("e2e4") ? 0 : choice.move == move_of("d2d4") ? 1 : 2];
    }
    EXPECT_NEAR(chosen[0], probes * 0.444, probes * 0.015);
    EXPECT_NEAR(chosen[2], probes * 0.259, probes * 0.015);
}

TEST_F(DataBook, PlayReadsALine)
{
    write_book("a.bin", { entry_of(castles, "e1h1", 3) });
    const std::string before = "r3k2r/8/8/8/8/8/7r/R3K3 b Qkq -";
    EXPECT_TRUE(holds(run({ "play", "a.bin", "--start", castles }).out, "O-O      e1h1 "));
    EXPECT_TRUE(holds(run({ "play", "a.bin", "1. e4 e5 2.Nf3!?" }).out,
        "rnbqkbnr/pppp1ppp/8/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq -\n"
        "The book does not have this position.\n"));
    const Outcome outcome = run({ "play", "a.bin", "e4", "Ke2" });
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(holds(outcome.err, "'Ke2' is no legal move after 1 half-moves"));
}

// ---- The command line

TEST_F(DataBook, RefuseWrongCommandLines)
{
    write_book("a.bin", {});
    const std::vector<std::vector<std::string>> wrong = { {}, { "chek" }, { "dump" },
        { "dump", "a.bin", "a.bin" }, { "merge", "a.bin", "--output", "c.bin" },
        { "merge", "a.bin", "a.bin", "--rule", "last", "--output", "c.bin" },
        { "play", "a.bin", "--variety", "101" }, { "check", "a.bin", "--start", "e4" },
        { "check", "a.bin", "--start", "8/8/8/8/8/8/8/8 w - -" },
        { "check", "a.bin", "--start", "r3k2r/8/8/8/8/8/8/4K2R w KQkq -" },
        { "prune", "a.bin", "--min-share", "-1", "--output", "c.bin" } };
    for (const std::vector<std::string>& words : wrong) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.status, 2) << (words.empty() ? "" : words.back());
        EXPECT_NE(outcome.err, "");
    }
    EXPECT_FALSE(file_exists("c.bin"));
    for (const char* word : { "check", "diff", "dump", "merge", "play", "prune" }) {
        const Outcome outcome = run({ word, "--help" });
        EXPECT_EQ(outcome.status, 0);
        EXPECT_TRUE(outcome.out.starts_with(std::string("vesk-data book ") + word)) << outcome.out;
    }
}

// Probes: listed values, the limits of the search's probe, the root's choice, and the search with
// tables.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "fathom_support.h"
#include "search_support.h"
#include "search/control.h"
#include "search/search.h"

struct TableProbe : TablesTest {
};

// Probes every row (position, WDL, distance or "-"). Returns how many there are.
static i32 expect_rows(const std::vector<std::vector<std::string>>& rows)
{
    for (const auto& row : rows) {
        EXPECT_EQ(wdl_of(row[0]), row[1]) << row[0];
        if (row[2] != "-") {
            EXPECT_EQ(dtz_of(row[0]), row[2]) << row[0];
        }
    }
    return static_cast<i32>(rows.size());
}

// ---- Values

TEST_F(TableProbe, EveryListedPositionHasItsValueAndDistance)
{
    EXPECT_EQ(use_tables(real_tables()), 23);
    EXPECT_EQ(expect_rows(read_tsv("syzygy-probes.tsv")), 864);
}

TEST_F(TableProbe, EveryListedPositionOfTheMadeUpTablesHasItsValue)
{
    EXPECT_EQ(use_tables(real_tables() + ":" + made_up_tables()), 25);
    EXPECT_EQ(expect_rows(read_tsv("syzygy-fixture-probes.tsv")), 78);
}

// A larger set, where one is at hand: a folder with the files of tests/data/syzygy*.
TEST_F(TableProbe, EveryPositionOfALargerSetHasItsValueAndDistance)
{
    const char* data = getenv("VESK_TABLE_DATA");
    if (data == nullptr) {
        GTEST_SKIP() << "VESK_TABLE_DATA names no folder";
    }
    for (const char* set : { "syzygy", "syzygy-fixture" }) {
        use_tables(std::string(data) + "/syzygy:" + data + "/" + set);
        const std::string list = std::string(data) + "/" + set + "-probes.tsv";
        const std::string relative = std::filesystem::relative(list, data_path("")).string();
        EXPECT_GT(expect_rows(read_tsv(relative.c_str())), 0);
    }
}

TEST_F(TableProbe, BareKingsAreADrawWithoutATable)
{
    EXPECT_EQ(wdl_of("8/8/4k3/8/8/4K3/8/8 w - - 0 1"), "0");
    EXPECT_EQ(dtz_of("8/8/4k3/8/8/4K3/8/8 b - - 0 1"), "0");
}

TEST_F(TableProbe, BothViewsOfAMaterialAreOneTable)
{
    use_tables(real_tables());
    EXPECT_EQ(wdl_of("8/8/8/4k3/8/2Q5/1K5r/8 b - - 0 1"), "-2");
    EXPECT_EQ(wdl_of("8/1k5R/2q5/8/4K3/8/8/8 w - - 0 1"), "-2");
    EXPECT_EQ(dtz_of("k7/8/8/4Q3/8/3r4/8/6K1 w - - 0 1"), "3");
    EXPECT_EQ(dtz_of("6k1/8/3R4/8/4q3/8/8/K7 b - - 0 1"), "3");
}

TEST_F(TableProbe, DistanceOfTheSideThatIsNotStoredIsFoundByOnePlyOfSearch)
{
    use_tables(real_tables());
    EXPECT_EQ(dtz_of("8/8/8/4k3/8/2Q5/1K5r/8 b - - 0 1"), "-48");
    EXPECT_EQ(dtz_of("8/8/4K3/2r5/8/8/2k4Q/8 b - - 0 1"), "-44") << "values through the win list";
    EXPECT_EQ(dtz_of("2R5/8/5k2/8/8/8/6K1/2R5 b - - 0 1"), "-8");
    EXPECT_EQ(dtz_of("k7/8/1K6/8/8/8/8/6Q1 w - - 0 1"), "1") << "a quiet mate where it is stored";
}

TEST_F(TableProbe, QuietMateOfTheSideThatIsNotStoredCountsTwo)
{
    use_tables(real_tables());
    EXPECT_EQ(dtz_of("2B5/8/8/8/8/8/5K1p/7k w - - 0 1"), "2");
    EXPECT_EQ(root_of("2B5/8/8/8/8/8/5K1p/7k w - - 0 1"), "4 2 c8b7");
}

TEST_F(TableProbe, PawnStepThatWinsIsADistanceOfOneWhateverIsStored)
{
    use_tables(real_tables());
    EXPECT_EQ(dtz_of("8/7k/2P5/7P/8/8/8/1K6 w - - 0 1"), "1");
    EXPECT_EQ(dtz_of("8/8/8/8/8/p3k3/5P2/6K1 b - - 0 1"), "3");
}

TEST_F(TableProbe, StoredPliesAreNotDoubled)
{
    const std::string fen = "8/8/8/4k3/8/8/8/K6Q w - - 0 1";
    use_tables(real_tables());
    const i32 halved = std::stoi(dtz_of(fen));
    copy_real_tables();
    std::string bytes = table_bytes("KQvK.rtbz");
    ASSERT_EQ(bytes[10], 0) << "the section's flags";
    bytes[10] = 4;
    write_bytes("KQvK.rtbz", bytes);
    use_tables(folder);
    EXPECT_EQ(std::stoi(dtz_of(fen)), (halved - 1) / 2 + 1);
    bytes[10] = 8;
    write_bytes("KQvK.rtbz", bytes);
    use_tables(folder);
    EXPECT_EQ(std::stoi(dtz_of(fen)), halved) << "the flag of losses";
}

// ---- En passant

TEST_F(TableProbe, EnPassantAsTheOnlyMoveTakesTheValueOfTheCapture)
{
    use_tables(real_tables() + ":" + made_up_tables());
    const std::string fen = "7K/5q2/3k4/3Pp3/8/8/8/8 w - ";
    EXPECT_EQ(wdl_of(fen + "- 0 1"), "0") << "stalemate without the right";
    EXPECT_EQ(wdl_of(fen + "e6 0 1"), "-2");
    EXPECT_EQ(dtz_of(fen + "e6 0 1"), "-1");
}

TEST_F(TableProbe, EnPassantThatWinsBeatsTheTable)
{
    use_tables(real_tables());
    EXPECT_EQ(wdl_of("1K6/8/8/5pP1/4k3/8/8/8 w - f6 0 1"), "2");
    EXPECT_EQ(dtz_of("1K6/8/8/5pP1/4k3/8/8/8 w - f6 0 1"), "1");
}

TEST_F(TableProbe, RightThatNoPawnCanUseChangesNothing)
{
    use_tables(real_tables());
    TbPos pos = tb_pos_of("8/8/8/5p2/4k3/8/6P1/1K6 w - - 0 1");
    i32 success = 0;
    const i32 wdl = tb_probe_wdl(&pos, &success);
    const i32 dtz = tb_probe_dtz(&pos, &success);
    pos.ep = static_cast<u8>(square_of("f6"));
    EXPECT_EQ(tb_probe_wdl(&pos, &success), wdl);
    EXPECT_EQ(tb_probe_dtz(&pos, &success), dtz);
    EXPECT_EQ(success, 1);
}

// ---- Made-up tables: values that the real ones of few pieces never have

// Makes a win/draw/loss file whose values are the classes first and second by side to move.
static void make_values(const std::string& name, i32 first, i32 second)
{
    write_bytes(name + ".rtbw", one_value_table(name, ".rtbw", first, second));
}

// Makes a distance file of zeroing moves only, which holds the moves of the side named second.
static void make_distances_of_second_side(const std::string& name)
{
    std::string bytes = one_value_table(name, ".rtbz");
    std::replace(bytes.begin(), bytes.end(), '\x80', '\x81');
    write_bytes(name + ".rtbz", bytes);
}

TEST_F(TableProbe, DistanceOfACaptureOnEnPassantIsWeighedAgainstTheOthers)
{
    const struct {
        i32 stored; // class without the right, from the side to move's view
        i32 after;  // class after the capture, from the other side's
        const char* distance;
    } rows[] = {
        { 1, 4, "-101" },
        { 1, 3, "-101" },
        { 1, 2, "0" },
        { 1, 1, "101" },
        { 1, 0, "1" },
        { 0, 4, "-1" },
        { 0, 3, "-101" },
        { 0, 2, "0" },
        { 0, 1, "101" },
        { 0, 0, "1" },
        { 3, 3, "101" },
        { 3, 2, "101" },
        { 3, 1, "101" },
        { 3, 0, "1" },
        { 2, 4, "0" },
        { 2, 3, "0" },
        { 2, 2, "0" },
        { 2, 1, "101" },
        { 2, 0, "1" },
        { 4, 4, "1" },
        { 4, 2, "1" },
        { 4, 1, "1" },
        { 4, 0, "1" },
    };
    make_distances_of_second_side("KQPvKP");
    for (const auto& row : rows) {
        make_values("KQPvKP", 4, row.stored);
        make_values("KQvKP", row.after, 2);
        use_tables(folder);
        EXPECT_EQ(dtz_of("7k/8/8/8/3pP3/8/Q7/7K b - e3 0 1"), row.distance)
            << row.stored << " " << row.after;
    }
    // What the capture wins is no reason to ask how far the position without the right is won.
    std::filesystem::remove("KQPvKP.rtbz");
    make_values("KQPvKP", 4, 2);
    use_tables(folder);
    EXPECT_EQ(dtz_of("7k/8/8/8/3pP3/8/Q7/7K b - e3 0 1"), "1");
}

TEST_F(TableProbe, DoubleStepThatMayBeTakenOnEnPassantDoesNotWin)
{
    make_values("KQPvKP", 4, 0);
    make_distances_of_second_side("KQPvKP");
    make_values("KQvKP", 2, 2);
    make_values("KPvKP", 2, 2);
    make_values("KPvK", 2, 2);
    use_tables(folder);
    EXPECT_EQ(dtz_of("7k/8/8/8/3p4/8/4P3/1Q5K w - - 0 1"), "2") << "by a quiet move";
    EXPECT_EQ(dtz_of("7k/8/8/3p4/8/8/4P3/1Q5K w - - 0 1"), "1") << "by a short step";
}

TEST_F(TableProbe, LossThatTheClockSavesIsLostByAPawnsStepThatGivesTheWinAway)
{
    // The pawn's step counts nothing if it turns the saved loss into a real one.
    write_bytes("KQvKP.rtbz", one_value_table("KQvKP", ".rtbz"));
    make_values("KQvKP", 4, 1);
    use_tables(folder);
    EXPECT_EQ(dtz_of("7k/8/8/p7/8/8/8/1K4Q1 b - - 0 1"), "-2");
    make_values("KQvKP", 2, 1);
    use_tables(folder);
    EXPECT_EQ(dtz_of("7k/8/8/p7/8/8/8/1K4Q1 b - - 0 1"), "-101");
}

TEST_F(TableProbe, CaptureAsGoodAsTheStoredWinNeedsNoDistance)
{
    make_values("KQvKR", 3, 1);
    make_values("KQvK", 4, 1);
    use_tables(folder);
    EXPECT_EQ(dtz_of("6k1/8/8/r7/8/8/8/Q6K w - - 0 1"), "101") << "the queen takes";
    EXPECT_EQ(dtz_of("6k1/8/8/1r6/8/8/8/Q6K w - - 0 1"), "none") << "there is no distance file";
}

// ---- The search's probe

// tb_probe_search in a position, with the counted clock and all else as the board has it.
static i32 search_probe(const char* fen, i32 depth)
{
    return tb_probe_search(set_position(fen), depth, &search_settings.tb_depths);
}

static void set_probe_depths(i32 depth5, i32 depth6)
{
    dialogue.engine_options.syzygy_probe_depth5 = static_cast<i16>(depth5);
    dialogue.engine_options.syzygy_probe_depth6 = static_cast<i16>(depth6);
    publish_options(&dialogue);
}

TEST_F(TableProbe, ClassIsTheValueRaisedByTwo)
{
    use_tables(real_tables());
    EXPECT_EQ(search_probe("8/8/8/4k3/8/8/8/K6Q w - -", 0), 4);
    EXPECT_EQ(search_probe("8/8/8/4k3/8/8/8/K6Q b - -", 0), 0);
    EXPECT_EQ(search_probe("8/8/8/4k3/8/8/8/K6N w - -", 0), 2);
}

TEST_F(TableProbe, CastlingRightsLeaveNoResult)
{
    use_tables(real_tables());
    EXPECT_EQ(search_probe("4k3/8/8/8/8/8/8/R3K3 w - -", 5), 4);
    EXPECT_EQ(search_probe("4k3/8/8/8/8/8/8/R3K3 w Q -", 5), -1);
    EXPECT_EQ(search_probe("4k2r/8/8/8/8/8/8/R3K3 w - -", 5), 4);
    EXPECT_EQ(search_probe("4k2r/8/8/8/8/8/8/R3K3 w k -", 5), -1) << "the other side's";
    EXPECT_EQ(root_of("4k3/8/8/8/8/8/8/R3K3 w Q - 0 1"), "none");
}

TEST_F(TableProbe, DepthOptionOfSixPiecesAndOfUpToFive)
{
    use_tables(real_tables() + ":" + made_up_tables());
    const char* six = "kq6/2qq4/7q/8/8/8/8/K7 b - -";
    const char* five = "7K/5q2/3k4/3Pp3/8/8/8/8 w - -";
    const char* three = "8/8/8/4k3/8/8/8/K6Q w - -";
    EXPECT_EQ(search_probe(five, 0), 2);
    EXPECT_EQ(search_probe(five, -1), -1);
    EXPECT_EQ(search_probe(six, 0), -1) << "the option's default is 1";
    EXPECT_EQ(search_probe(six, 1), 4);
    EXPECT_EQ(search_probe(three, 0), 4);
    EXPECT_EQ(search_probe(three, -1), -1);
    set_probe_depths(-5, 6);
    EXPECT_EQ(search_probe(six, 5), -1);
    EXPECT_EQ(search_probe(six, 6), 4);
    EXPECT_EQ(search_probe(three, -5), 4);
    EXPECT_EQ(search_probe(three, -6), -1);
    set_probe_depths(8, 2);
    EXPECT_EQ(search_probe(six, 7), -1) << "the option of five pieces comes first";
    EXPECT_EQ(search_probe(three, 7), -1);
    EXPECT_EQ(search_probe(three, 8), 4);
}

TEST_F(TableProbe, MorePiecesThanTheLargestTableGetNoResultWithoutReading)
{
    for (const char* name : { "KQvK", "KRvK" }) {
        for (const char* suffix : { ".rtbw", ".rtbz" }) {
            write_bytes(name + std::string(suffix), table_bytes(name + std::string(suffix)));
        }
    }
    EXPECT_EQ(use_tables(folder), 2);
    EXPECT_EQ(tb_largest, 3);
    i32 result = 0;
    EXPECT_EQ(capture_errors([&] { result = search_probe("8/8/8/4k3/8/r7/8/K6Q w - -", 99); }), "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(root_of("8/8/8/4k3/8/r7/8/K6Q w - - 0 1"), "none");
    EXPECT_EQ(search_probe("8/8/8/4k3/8/8/8/K6Q w - -", 99), 4);
}

TEST_F(TableProbe, HalfMoveClockDoesNotMatterToTheSearch)
{
    use_tables(real_tables());
    Position* pos = set_position("8/8/8/4k3/8/8/8/K6Q w - -");
    pos->cnt50 = 99;
    EXPECT_EQ(tb_probe_search(pos, 0, &search_settings.tb_depths), 4);
}

// ---- The root's probe

TEST_F(TableProbe, RootTakesTheFirstOfTheFastestWins)
{
    use_tables(real_tables());
    EXPECT_EQ(root_of("k7/8/1K6/8/8/8/8/7R w - - 0 1"), "4 1 h1h8");
    EXPECT_EQ(root_of("8/8/8/8/8/1K6/6P1/k7 w - - 0 1").substr(0, 4), "4 1 ");
    EXPECT_EQ(root_of("3r4/8/8/6Q1/8/7K/8/7k w - - 0 1"), "4 1 g5g2") << "mate before the rook";
    // Every move's distance is the root's or more, and the move's own leads there.
    EXPECT_EQ(root_of("8/8/8/4k3/8/8/8/K6Q w - - 0 1").substr(0, 2), "4 ");
}

TEST_F(TableProbe, RootTakesTheSlowestLoss)
{
    use_tables(real_tables());
    const std::string fen = "8/8/8/4k3/8/8/8/KQ6 b - - 0 1";
    const std::string root = root_of(fen);
    const std::string distance = dtz_of(fen);
    EXPECT_EQ(root.substr(0, root.rfind(' ')), "0 " + distance.substr(1));
    Position* pos = set_position(fen);
    make_move(pos, move_of(root.substr(root.rfind(' ') + 1)));
    EXPECT_EQ(std::stoi(dtz_of(fen_of(pos))), -std::stoi(distance) - 1);
}

TEST_F(TableProbe, RootPutsOffALossRatherThanTake)
{
    make_values("KRRvK", 4, 0);
    make_values("KRvK", 4, 0);
    write_bytes("KRRvK.rtbz", one_value_table("KRRvK", ".rtbz"));
    use_tables(folder);
    EXPECT_EQ(root_of("R7/8/8/8/4k3/3R4/8/7K b - - 0 1"), "0 2 e4f4");
}

TEST_F(TableProbe, PositionWithoutMovesHasNoRootResult)
{
    use_tables(real_tables());
    EXPECT_EQ(root_of("k6R/8/1K6/8/8/8/8/8 b - - 0 1"), "none") << "mate";
    EXPECT_EQ(wdl_of("k6R/8/1K6/8/8/8/8/8 b - - 0 1"), "-2");
    EXPECT_EQ(dtz_of("k6R/8/1K6/8/8/8/8/8 b - - 0 1"), "-1");
    EXPECT_EQ(root_of("8/8/8/8/8/8/6Q1/k1K5 b - - 0 1"), "none") << "stalemate";
    EXPECT_EQ(wdl_of("8/8/8/8/8/8/6Q1/k1K5 b - - 0 1"), "0");
}

TEST_F(TableProbe, RootClassFollowsTheClock)
{
    use_tables(real_tables());
    const std::string won = "k7/8/8/4Q3/8/3r4/8/6K1 w - - ";
    EXPECT_EQ(root_of(won + "97 1").substr(0, 4), "4 3 ");
    EXPECT_EQ(root_of(won + "98 1").substr(0, 4), "3 3 ");
    const std::string lost = "8/8/4K3/2r5/8/8/2k4Q/8 b - - ";
    EXPECT_EQ(root_of(lost + "56 1").substr(0, 5), "0 44 ");
    EXPECT_EQ(root_of(lost + "57 1").substr(0, 5), "1 44 ");
    EXPECT_EQ(root_of("8/8/8/4k3/8/8/8/K6N w - - 99 1").substr(0, 4), "2 0 ");
}

TEST_F(TableProbe, DrawnRootPlaysTheSameDrawingMoveEveryTime)
{
    use_tables(real_tables());
    // All moves draw: the material's key chooses one of them in their order.
    const std::string fen = "8/8/8/4k3/8/8/8/K6N w - - 20 1";
    const std::string root = root_of(fen);
    for (i32 round = 0; round < 5; ++round) {
        EXPECT_EQ(root_of(fen), root);
    }
    const TbPos pos = tb_pos_of(fen);
    tb_move list[tb_max_moves];
    const u64 count = static_cast<u64>(tb_gen_moves(&pos, list) - list);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(tb_material_key(&pos, false), 0xd2fb81862830191fu);
    const tb_move chosen = list[tb_material_key(&pos, false) % count];
    EXPECT_EQ(root, "2 0 " + text_of(make_move_code(tb_from(chosen), tb_to(chosen))));
}

TEST_F(TableProbe, DrawnRootChoosesByTheMaterialSeenFromTheSideToMove)
{
    use_tables(real_tables());
    const std::string fen = "8/8/8/4k3/8/8/8/K6N b - - 20 1";
    const TbPos pos = tb_pos_of(fen);
    tb_move list[tb_max_moves];
    EXPECT_EQ(tb_gen_moves(&pos, list) - list, 8);
    const tb_move chosen = list[0xbaeb854cd3259441 % 8];
    EXPECT_EQ(root_of(fen), "2 0 " + text_of(make_move_code(tb_from(chosen), tb_to(chosen))));
}

TEST_F(TableProbe, DrawnRootCountsOnlyTheMovesThatDraw)
{
    use_tables(real_tables());
    // The king must not leave the pawn's path.
    EXPECT_EQ(root_of("4k3/4P3/8/4K3/8/8/8/8 b - - 0 1"), "2 0 e8e7");
    EXPECT_EQ(root_of("8/8/8/8/4k3/4p3/8/4K3 w - - 0 1"), "2 0 e1e2");
}

TEST_F(TableProbe, RootPromotionsAreTheEnginesMoves)
{
    use_tables(real_tables());
    EXPECT_EQ(root_of("8/P7/8/8/8/2k5/8/K7 w - - 0 1"), "4 1 a7a8q");
    // The queen would stalemate.
    EXPECT_EQ(root_of("8/k1P5/8/K7/8/8/8/8 w - - 0 1"), "4 1 c7c8r");
}

TEST_F(TableProbe, RootOfAnUnsoundBoardHasNoResult)
{
    use_tables(real_tables());
    EXPECT_EQ(root_of("8/8/8/4k3/8/8/8/K6Q w - - 0 1").substr(0, 1), "4");
    EXPECT_EQ(root_of("8/8/8/4k2Q/8/8/8/K7 w - - 0 1"), "none") << "the other side is in check";
    EXPECT_EQ(root_of("P7/8/8/4k3/8/8/8/K7 w - - 0 1"), "none") << "a pawn on the last rank";
    EXPECT_EQ(root_of("8/8/8/4k3/8/8/8/K6K w - - 0 1"), "none") << "two kings";
    EXPECT_EQ(root_of("8/8/8/4k3/8/8/8/7Q w - - 0 1"), "none") << "no king";
    Position* pos = set_position("8/8/8/4k3/8/8/8/K6Q w - -");
    u32 wdl, dtz;
    u16 move;
    pos->bb[White][Rook] |= bit(square_of("h1"));
    EXPECT_EQ(tb_probe_root(pos, &wdl, &dtz, &move), -1) << "two pieces on a square";
    pos->bb[White][Rook] = 0;
    pos->bb[Black][0] |= bit(square_of("h1"));
    EXPECT_EQ(tb_probe_root(pos, &wdl, &dtz, &move), -1) << "a piece of both sides";
    set_position("8/8/8/4k3/8/8/8/K6Q w - -");
}

TEST_F(TableProbe, MissingDistanceTableLeavesTheClassOfTheSearch)
{
    for (const char* name : { "KQvK.rtbw", "KRvK.rtbw", "KRvK.rtbz" }) {
        write_bytes(name, table_bytes(name));
    }
    use_tables(folder);
    EXPECT_EQ(capture_errors([] {
        EXPECT_EQ(root_of("8/8/8/4k3/8/8/8/K6Q w - - 0 1"), "none");
        EXPECT_EQ(search_probe("8/8/8/4k3/8/8/8/K6Q w - -", 70), 4);
        EXPECT_NE(root_of("8/8/8/4k3/8/8/8/K6R w - - 0 1"), "none");
    }),
        "");
}

// A capture leads into a table that is not there: nothing can be said.
TEST_F(TableProbe, TableMissingBehindACaptureLeavesNoResult)
{
    for (const char* name : { "KQvKR.rtbw", "KQvKR.rtbz", "KQvK.rtbw" }) {
        write_bytes(name, table_bytes(name));
    }
    use_tables(folder);
    EXPECT_EQ(wdl_of("8/8/8/3k4/8/8/8/KQr5 w - - 0 1"), "2") << "the queen takes";
    EXPECT_EQ(wdl_of("8/8/8/3k4/8/8/8/KQr5 b - - 0 1"), "none") << "the rook may take";
    EXPECT_EQ(dtz_of("8/8/8/3k4/8/8/8/KQr5 b - - 0 1"), "none");
}

// ---- Threads

TEST_F(TableProbe, ManyThreadsMayUseTheTablesFirst)
{
    const auto rows = read_tsv("syzygy-probes.tsv");
    std::vector<TbPos> positions;
    for (const auto& row : rows) {
        positions.push_back(tb_pos_of(row[0]));
    }
    use_tables(real_tables());
    std::atomic<i32> wrong = 0;
    std::vector<std::thread> threads;
    for (i32 i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (size_t k = 0; k < rows.size(); ++k) {
                i32 success = 0;
                const i32 wdl = tb_probe_wdl(&positions[k], &success);
                wrong += success == 0 || wdl != std::stoi(rows[k][1]);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(TableProbe, ManyThreadsMayMissATableAtOnce)
{
    write_bytes("KQvK.rtbw", "");
    use_tables(folder);
    const TbPos pos = tb_pos_of("8/8/8/4k3/8/8/8/K6Q w - - 0 1");
    const std::string errors = capture_errors([&] {
        std::vector<std::thread> threads;
        for (i32 i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                i32 success = 1;
                tb_probe_wdl(&pos, &success);
                EXPECT_EQ(success, 0);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    EXPECT_EQ(errors, "Corrupted table.\n") << "said once";
}

// ---- The search

struct TableSearch : SearchTest {
    void SetUp() override
    {
        SearchTest::SetUp();
        use_tables(real_tables());
    }
    void TearDown() override
    {
        use_tables("");
        SearchTest::TearDown();
    }
};

static u64 table_hits()
{
    return load(record()->counters[CountTbHits]);
}

// Searches a position of a text with a half-move clock.
static void search_with_clock(const char* fen, i32 clock, i32 depth)
{
    begin_search(fen);
    dialogue.game->pos.cnt50 = static_cast<u8>(clock);
    store(dialogue.limits.depth_limit, depth);
    search_sync(dialogue.game);
}

TEST_F(TableSearch, WonRootPlaysTheTablesMoveFromTheTenthHalfMoveOn)
{
    const char* fen = "k7/8/8/4Q3/8/3r4/8/6K1 w - -";
    search_with_clock(fen, 10, 4);
    EXPECT_EQ(node_count(), 0u) << "no search";
    EXPECT_EQ(search_result.tb_root_result, 4);
    EXPECT_EQ(search_result.result_pv[1], search_result.tb_root_move);
    EXPECT_EQ(search_result.result_pv[2], NoMove);
    EXPECT_EQ(search_result.result_depth, 99);
    EXPECT_EQ(load(search_result.result_score), 9799);
    EXPECT_EQ(table_hits(), 1u);
    EXPECT_EQ(load(stop_code), StopCode::Report);

    search_with_clock(fen, 9, 4);
    EXPECT_GT(node_count(), 0u);
    EXPECT_EQ(search_result.tb_root_result, 4);
    EXPECT_NE(search_result.tb_root_move, NoMove);
    EXPECT_EQ(search_result.result_depth, 4);
    EXPECT_EQ(record()->ply_rec[1].tb_result, 4) << "its moves are asked about";
}

TEST_F(TableSearch, LostAndDrawnRootsHaveTheirScores)
{
    search_with_clock("8/8/4K3/2r5/8/8/2k4Q/8 b - -", 10, 3);
    EXPECT_EQ(load(search_result.result_score), -9800);
    EXPECT_EQ(search_result.tb_root_score[Black], -9800);
    EXPECT_EQ(search_result.tb_root_score[White], 9800);
    search_with_clock("8/8/8/4k3/8/8/8/K6N w - -", 10, 3);
    EXPECT_EQ(load(search_result.result_score), 0);
    EXPECT_EQ(search_result.tb_root_result, 2);
    EXPECT_EQ(node_count(), 0u);
}

TEST_F(TableSearch, RootWithoutATableMoveTakesTheClassAndSearches)
{
    search_with_clock("8/8/8/8/8/1q6/8/K1k1B3 w - -", 10, 2);
    EXPECT_EQ(search_result.tb_root_result, 0) << "the distance table is not there";
    EXPECT_EQ(search_result.tb_root_move, NoMove);
    EXPECT_GT(node_count(), 0u);
}

TEST_F(TableSearch, RootWithoutATableMoveIsAskedAboutAtDepthSeventy)
{
    const char* fen = "8/8/8/8/8/1q6/8/K1k1B3 w - -";
    set_probe_depths(70, 1);
    search_with_clock(fen, 0, 2);
    EXPECT_EQ(search_result.tb_root_result, 0);
    EXPECT_EQ(table_hits(), 0u) << "the nodes are not deep enough";
    set_probe_depths(71, 1);
    search_with_clock(fen, 0, 2);
    EXPECT_EQ(search_result.tb_root_result, -1);
}

// A node of ply 5 whose parent has a table result, -1 for none, and a half-move clock.
static Node table_node(const char* fen, i32 parent, i32 clock)
{
    Node node = make_node(fen, 5);
    node.rec[-1].tb_result = parent;
    node.pos->cnt50 = static_cast<u8>(clock);
    return node;
}

static const char* const won = "8/8/8/4k3/8/8/8/K6Q w - -";
static const char* const lost = "8/8/8/4k3/8/8/8/K6Q b - -";
static const char* const drawn = "8/8/8/4k3/8/8/8/K6N w - -";

TEST_F(TableSearch, FirstResultOfALineEndsTheNodeWithoutMoves)
{
    const struct {
        const char* fen;
        i32 score;
    } rows[] = { { won, 9795 }, { lost, -9796 }, { drawn, 0 } };
    for (const auto& row : rows) {
        Node node = table_node(row.fen, -1, 0);
        i32 score = 0;
        EXPECT_EQ(sorted_moves_made(
                      [&] { score = run_node(&node, 8, -infinite_score, infinite_score, PvNode); }),
            "")
            << row.fen;
        EXPECT_EQ(score, row.score) << row.fen;
        EXPECT_EQ(node.rec->alpha, row.score);
        EXPECT_EQ(node.rec->beta, row.score);
        EXPECT_EQ(table_hits(), 1u);
    }
}

TEST_F(TableSearch, FirstResultIsHeldAgainstTheWindow)
{
    Node node = table_node(drawn, -1, 0);
    EXPECT_EQ(run_node(&node, 8, 30, 40, CutNode), 30) << "below the window: alpha";
    EXPECT_EQ(node.rec->alpha, 30);
    EXPECT_EQ(node.rec->beta, 0);
    node = table_node(drawn, -1, 0);
    EXPECT_EQ(run_node(&node, 8, -40, -30, CutNode), 0) << "above it: the value";
    EXPECT_EQ(node.rec->alpha, 0);
    EXPECT_EQ(node.rec->beta, -30);
}

TEST_F(TableSearch, NodeAsksOnlyAfterAZeroingMoveOrBelowAResult)
{
    Node node = table_node(won, -1, 1);
    run_node(&node, 2, -50, 50, CutNode);
    EXPECT_EQ(node.rec->tb_result, -1);
    node = table_node(won, 2, 1);
    run_node(&node, 2, -50, 50, CutNode);
    EXPECT_EQ(node.rec->tb_result, 4);
}

TEST_F(TableSearch, MoveThatGaveAwayTwoClassesIsCutWithBeta)
{
    // The class of the node, seen from the other side, against the class of its parent.
    Node node = table_node(won, 2, 3);
    EXPECT_EQ(sorted_moves_made([&] { EXPECT_EQ(run_node(&node, 6, -40, -30, CutNode), -30); }), "")
        << "a drawn parent";
    node = table_node(won, 4, 3);
    EXPECT_EQ(run_node(&node, 6, -40, -30, CutNode), -30) << "a won parent";
    node = table_node(drawn, 4, 3);
    EXPECT_EQ(run_node(&node, 6, -40, -30, CutNode), -30) << "a win given away";

    node = table_node(won, 0, 3);
    EXPECT_NE(sorted_moves_made([&] { run_node(&node, 3, -40, -30, PvNode); }), "")
        << "as good as it was";
    node = table_node(won, 1, 3);
    EXPECT_NE(sorted_moves_made([&] { run_node(&node, 3, -40, -30, PvNode); }), "") << "one class";
    node = table_node(drawn, 2, 3);
    EXPECT_NE(sorted_moves_made([&] { run_node(&node, 3, -40, -30, PvNode); }), "");
}

TEST_F(TableSearch, WinThatOnlyTheTablesKnowIsFoundAtLowDepth)
{
    // Taking the pawn leaves a queen against a rook.
    const char* fen = "8/8/3k4/2r5/8/7Q/p7/K7 w - -";
    search_with_clock(fen, 0, 3);
    EXPECT_EQ(text_of(search_result.result_pv[1]), "a1a2");
    EXPECT_EQ(load(search_result.result_score), 9799) << "lost for the other side at ply 2";
    EXPECT_GT(table_hits(), 0u);
    EXPECT_EQ(search_result.tb_root_result, -1) << "the root has too many pieces";
    use_tables("");
    search_with_clock(fen, 0, 3);
    EXPECT_LT(load(search_result.result_score), 2000);
    EXPECT_EQ(table_hits(), 0u);
}

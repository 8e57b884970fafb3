// The lines printed for a result of the search, and the trace of a search.
#include <string>

#include "search_support.h"
#include "base/output.h"
#include "board/trace.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/info.h"
#include "search/thread.h"

struct Info : SearchTest {
    u16 line[ply_count] = { 0, move_of("e2e4"), move_of("e7e5") };

    void SetUp() override
    {
        SearchTest::SetUp();
        store(noise, 0.0);
        store(search_clock.elapsed, 2.0);
        record()->seldepth = 9;
        store(record()->counters[CountNodes], 5000);
        store(record()->counters[CountTbHits], 3);
    }

    std::string printed(i32 score, i32 depth = 5, i32 pv_index = 0)
    {
        return capture_output([&] { print_info(0, pv_index, depth, score, line); });
    }

    // The text between two words of a UCI line.
    std::string printed_score(i32 score)
    {
        const std::string text = printed(score);
        const size_t begin = text.find("score ") + 6;
        return text.substr(begin, text.find(" time") - begin);
    }

    std::string final_line(i32 depth = 5)
    {
        return capture_output([&] { print_final_info(0, 0, depth, 10, line); });
    }

    void set_line(i32 count)
    {
        for (i32 i = 0; i < count; ++i) {
            line[i + 1] = move_of(i % 4 == 0 ? "g1f3"
                    : i % 4 == 1             ? "g8f6"
                    : i % 4 == 2             ? "f3g1"
                                             : "f6g8");
        }
        line[count + 1] = NoMove;
    }

    // How many moves the line of the last captured text holds.
    static i32 count_moves(const std::string& text)
    {
        i32 count = 0;
        for (size_t at = text.find('g'); at != std::string::npos; at = text.find('g', at + 1)) {
            ++count;
        }
        return count;
    }
};

TEST_F(Info, LineHoldsAllFieldsInOrder)
{
    EXPECT_EQ(printed(31),
        "info depth 5 seldepth 8 score cp 31 time 2000 nodes 5000 nps 2500 tbhits 3 hashfull 0"
        " pv e2e4 e7e5\n");
}

TEST_F(Info, PrefixNamesTheLineOnlyWithSeveralLines)
{
    EXPECT_EQ(printed(31, 5, 2).find("multipv"), std::string::npos);
    store(search_settings.multi_pv, 3);
    EXPECT_EQ(printed(31, 5, 2).substr(0, 22), "info multipv 2 depth 5");
}

TEST_F(Info, SelectiveDepthIsOneLessAsTheRootIsPlyOne)
{
    record()->seldepth = 30;
    EXPECT_NE(printed(31).find(" seldepth 29 "), std::string::npos);
}

TEST_F(Info, ScoresPrintAsCentipawnsOrMates)
{
    const struct {
        i32 score;
        const char* text;
    } rows[] = {
        { 0, "cp 0" },
        { -35, "cp -35" },
        { 9800, "cp 9800" },
        { 9899, "cp 9899" },
        { 9900, "mate 50" },
        { 9996, "mate 2" },
        { 9997, "mate 1" },
        { 9998, "mate 1" },
        { -9900, "cp -9900" },
        { -9901, "mate -50" },
        { -9995, "mate -3" },
        { -9996, "mate -2" },
        { -9997, "mate -2" },
        { -9998, "mate -1" },
        { -9999, "mate -1" },
    };
    for (const auto& row : rows) {
        EXPECT_EQ(printed_score(row.score), row.text) << row.score;
    }
}

TEST_F(Info, RootTableResultCorrectsTheScore)
{
    const struct {
        i32 result, score;
        const char* text;
    } rows[] = {
        { 4, 50, "cp 9800" },
        { 4, 9898, "cp 9800" },
        { 4, 9899, "cp 9899" },
        { 4, 9990, "mate 5" },
        { 0, -50, "cp -9800" },
        { 0, 50, "cp -9800" },
        { 0, -9899, "cp -9800" },
        { 0, -9900, "cp -9900" },
        { 0, -9990, "mate -5" },
        { 2, 80, "cp 0" },
        { 1, 80, "cp 80" },
        { 3, -80, "cp -80" },
        { -1, 80, "cp 80" },
    };
    for (const auto& row : rows) {
        search_result.tb_root_result = row.result;
        EXPECT_EQ(printed_score(row.score), row.text) << row.result << " " << row.score;
    }
    search_result.tb_root_result = -1;
}

TEST_F(Info, SpeedIsZeroInTheFirstMillisecond)
{
    store(search_clock.elapsed, 0.001);
    EXPECT_NE(printed(31).find(" time 1 nodes 5000 nps 0 "), std::string::npos);
    store(search_clock.elapsed, 0.002);
    EXPECT_NE(printed(31).find(" nps 2500000 "), std::string::npos);
}

TEST_F(Info, TotalsAreThoseOfAllWorkers)
{
    use_records(2);
    store(load(workers[0])->counters[CountNodes], 5000);
    store(load(workers[1])->counters[CountNodes], 1500);
    EXPECT_NE(printed(31).find(" nodes 6500 nps 3250 "), std::string::npos);
}

TEST_F(Info, FillIsSampledFromDepthSevenOn)
{
    hash.age = 1;
    const HashEntry entry = make_entry(set_position(start_position), NoMove, 0, 1, BoundExact);
    for (i32 i = 0; i < 123; ++i) {
        write_slot(&hash.table[hash.slots / 2 + static_cast<u32>(i)], &entry);
    }
    EXPECT_NE(printed(31, 6).find(" hashfull 0 "), std::string::npos);
    EXPECT_NE(printed(31, 7).find(" hashfull 123 "), std::string::npos);
    EXPECT_NE(printed(31, 6).find(" hashfull 0 "), std::string::npos);
}

TEST_F(Info, LineOfMovesIsCutAtSixtySix)
{
    set_line(68);
    EXPECT_EQ(count_moves(printed(31).substr(printed(31).find(" pv "))), 66);
}

TEST_F(Info, PromotionPiecesArePrinted)
{
    line[1] = move_of("a7a8q");
    line[2] = move_of("b2b1n");
    EXPECT_NE(printed(31).find(" pv a7a8q b2b1n\n"), std::string::npos);
}

TEST_F(Info, ConsoleLineHoldsItsFields)
{
    store(uci_mode, 0);
    EXPECT_EQ(printed(-31, 5), "00] 05    2.0       5K   -31  e2e4 e7e5\n");
    EXPECT_EQ(printed(9990, 12, 2), "00] 12.   2.0       5K  9990  e2e4 e7e5\n");
}

TEST_F(Info, ConsoleLineIsFollowedByAnEmptyOneAfterTheLastOfSeveral)
{
    store(uci_mode, 0);
    store(search_settings.multi_pv, 2);
    EXPECT_EQ(printed(31, 5, 1), "00] 05.   2.0       5K    31  e2e4 e7e5\n");
    EXPECT_EQ(printed(31, 5, 2), "00] 05.   2.0       5K    31  e2e4 e7e5\n\n");
}

TEST_F(Info, ConsoleLineOfARunningSearchHoldsEightMovesOnOneLine)
{
    store(uci_mode, 0);
    set_line(40);
    EXPECT_EQ(
        printed(31), "00] 05    2.0       5K    31  g1f3 g8f6 f3g1 f6g8 g1f3 g8f6 f3g1 f6g8\n");
}

TEST_F(Info, ConsoleLineOfAStoppedSearchHoldsThirtyTwoMovesOnFourLines)
{
    store(uci_mode, 0);
    store(stop_code, StopCode::Report);
    set_line(40);
    const std::string eight = "g1f3 g8f6 f3g1 f6g8 g1f3 g8f6 f3g1 f6g8";
    const std::string next = "\n" + std::string(30, ' ') + eight;
    EXPECT_EQ(printed(31), "00] 05    2.0       5K    31  " + eight + next + next + next + "\n");
}

TEST_F(Info, FinalLineWaitsForNoiseUnlessTheSearchWasStopped)
{
    EXPECT_NE(final_line(), "");
    store(noise, 3.0);
    EXPECT_EQ(final_line(), "");
    store(stop_code, StopCode::Report);
    EXPECT_NE(final_line(), "");
    store(noise, silent_noise);
    EXPECT_EQ(final_line(), "");
}

TEST_F(Info, FinalLineNeedsADepthAndAMove)
{
    EXPECT_EQ(final_line(0), "");
    line[1] = NoMove;
    EXPECT_EQ(final_line(5), "");
}

TEST_F(Info, SearchPrintsEachNewBestLineFromDepthTwoOn)
{
    const std::string text = capture_output([] {
        begin_search(start_position);
        store(noise, 0.0);
        store(dialogue.limits.depth_limit, 4);
        search_sync(dialogue.game);
    });
    EXPECT_EQ(text.find("info depth 1 "), std::string::npos);
    EXPECT_NE(text.find("info depth 2 "), std::string::npos);
    EXPECT_NE(text.find("info depth 4 "), std::string::npos);
}

TEST_F(Info, SilentSearchPrintsNothing)
{
    EXPECT_EQ(capture_output([] {
        store(noise, silent_noise);
        run_search_to(start_position, 6);
    }),
        "");
}

// ---- The trace

struct Trace : SearchTest {
    void SetUp() override
    {
        SearchTest::SetUp();
        set_position(start_position);
    }
};

TEST_F(Trace, MovesAreWrittenAsATreeUpToTheGivenPly)
{
    Node node = make_node(start_position, 1);
    store(node.thread->depth, 0);
    for (i32 ply = 1; ply < 5; ++ply) {
        node.thread->node_depth[ply] = static_cast<i16>(5 - ply);
    }
    const std::string text = traced(3, [&] {
        make_move(node.pos, move_of("e2e4"));
        make_move(node.pos, move_of("e7e5"));
        make_null_move(node.pos);
        make_move(node.pos, move_of("b8c6"));
        unmake_move(node.pos);
        unmake_null_move(node.pos);
        make_move(node.pos, move_of("g1f3"));
        unmake_move(node.pos);
        unmake_move(node.pos);
        make_move(node.pos, move_of("c7c5"));
    });
    EXPECT_EQ(text.substr(text.find('(')),
        "( 4)e2e4 ( 3)e7e5 ( 2)null \n" + std::string(18, ' ') + "( 2)g1f3 \n" + std::string(9, ' ')
            + "( 3)c7c5 ");
}

TEST_F(Trace, NewIterationIsAnnounced)
{
    Node node = make_node(start_position, 1);
    node.thread->node_depth[node.ply] = 7;
    node.thread->node_depth[node.ply + 1] = 6;
    const std::string text = traced(3, [&] {
        store(node.thread->depth, 0);
        make_move(node.pos, move_of("e2e4"));
        store(node.thread->depth, 7);
        make_move(node.pos, move_of("e7e5"));
    });
    EXPECT_EQ(text.substr(text.find('(')), "( 7)e2e4 \n\nSEARCH DEPTH= 7\n( 6)e7e5 ");
}

TEST_F(Trace, NothingIsWrittenWhileItIsOff)
{
    Node node = make_node(start_position, 1);
    const std::string text = traced(3, [&] {
        store(trace_level, 0);
        make_move(node.pos, move_of("e2e4"));
    });
    EXPECT_EQ(text, "");
    EXPECT_EQ(traced(1, [&] { make_move(node.pos, move_of("e7e5")); }), "") << "beyond its ply";
}

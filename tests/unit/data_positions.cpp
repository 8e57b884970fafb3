// Lines of positions: which are sound, how they wait and in which order they come out.
#include "data/positions_stages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "data/line_pieces.h"
#include "data/positions_statistics.h"
#include "test_support.h"
#include "tools/line_judge.h"

static const std::string quiet = "r4rk1/pp3ppp/2n1pn2/3p4/3P4/2N1PN2/PP3PPP/R4RK1 w - - ";
static const std::string start = std::string(start_position) + " ";

static CheckedLine check(const std::string& line, LineKind kind, bool is_whole = true)
{
    set_position(start_position); // makes the tables
    const std::unique_ptr<LineBoard> board = std::make_unique<LineBoard>();
    return check_line(board.get(), line, is_whole, kind);
}

static std::string reason(const std::string& line, LineKind kind = LineKind::Training)
{
    const CheckedLine checked = check(line, kind);
    if (checked.fate != LineFate::Refused) {
        return "";
    }
    return checked.reason + (checked.detail.empty() ? "" : ": " + checked.detail);
}

// ---- Lines

TEST(DataPositions, TellWhatALineSays)
{
    const CheckedLine line =
        check(quiet + "bm Rac1; ce -12; gr 0.0; c0 \"game 17\";", LineKind::Training);
    ASSERT_EQ(line.fate, LineFate::Sound);
    EXPECT_EQ(line.facts.score, -12);
    EXPECT_EQ(line.facts.result, 0.0f);
    EXPECT_EQ(line.facts.outcome, WhiteLost);
    EXPECT_EQ(line.facts.phase, 2 * (5 + 5 + 3 + 3));
    EXPECT_EQ(line.facts.pieces, 24);
    EXPECT_NE(line.game, 0u);
    EXPECT_EQ(line.facts.key, set_position(quiet)->key);

    const CheckedLine black = check("4k3/8/8/8/8/8/4P3/4K3 b - - c9 \"1-0\";", LineKind::Training);
    ASSERT_EQ(black.fate, LineFate::Sound);
    EXPECT_EQ(black.facts.result, 0.0f);
    EXPECT_EQ(black.facts.outcome, WhiteWon);
    EXPECT_EQ(black.facts.score, no_score);
    EXPECT_EQ(black.game, 0u);
}

TEST(DataPositions, TakeAllFormsOfTrainingLines)
{
    for (const char* end : { "ce 5000;", "ce -5000; gr 1;", "gr 0.25;", "c9 \"1/2-1/2\";", "[1.0]",
             "0 12 ce 3; gr 0.5;", "[0.5] 23", "id \"\xc3\xa9t\xc3\xa9\"; gr 1.0;" }) {
        EXPECT_EQ(reason(quiet + end), "") << end;
        EXPECT_EQ(check(quiet + end, LineKind::Training).fate, LineFate::Sound) << end;
    }
}

TEST(DataPositions, RefusePositionsThatCannotBe)
{
    EXPECT_EQ(reason("4k3/8/8/8/8/8/8/8 w - - gr 1;"),
        "has a position that cannot be: each side needs exactly one king");
    EXPECT_EQ(reason("k7/8/8/8/8/8/PPPPPPPP/PPPPPPPK w - - gr 1;").substr(0, 30),
        "has a position that cannot be:");
    EXPECT_EQ(reason("4k2R/8/8/8/8/8/8/4K3 w - - gr 1;"),
        "has a position that cannot be: the side not to move is in check");
    EXPECT_EQ(reason("4k3/8/8/8/8/8/4P2P/RNBQKBNRR w - - gr 1;").substr(0, 35),
        "has a board that is not eight ranks");
    EXPECT_EQ(reason("4k3/8/8/8/8/8/8/4K2R w K - gr 1;"), "");
    EXPECT_NE(reason("4k3/8/8/8/8/8/8/4K3 w K - gr 1;"), "");
    EXPECT_EQ(reason("4k3/8/8/8/8/8/8/R3K2R w HA - gr 1;"),
        "has castling rights that are not those of KQkq: HA");
    EXPECT_EQ(
        reason("4k3/8/8/8/8/8/8/R3K2R w KQ e9 gr 1;"), "has an en passant square that is none: e9");
    EXPECT_EQ(reason("nonsense").substr(0, 20), "does not begin with ");
}

TEST(DataPositions, RefuseWhatCannotBeTrainedOn)
{
    EXPECT_EQ(reason(quiet + "ce 5001; gr 1;"), "has a ce beyond 5000: 5001");
    EXPECT_EQ(reason(quiet + "ce 1.5; gr 1;"), "has a ce that is no number: 1.5");
    EXPECT_EQ(reason(quiet + "gr 1.5;"), "has a result that is not between 0 and 1: 1.5");
    EXPECT_EQ(reason(quiet + "gr 0,5;"), "has a result that is not between 0 and 1: 0,5");
    EXPECT_EQ(reason(quiet + "c9 \"2-0\";"), "has a result that is not between 0 and 1: \"2-0\"");
    EXPECT_EQ(reason(quiet + "bm Rac1;"), "has neither a ce nor a result");
    EXPECT_EQ(reason(quiet + "ce 3; gr 1"), "has an operation that is not closed: gr 1");
    EXPECT_EQ(reason(quiet + "bm Rcc1; gr 1;"),
        "has a move that is not legal there, or fits two pieces: bm Rcc1");
    EXPECT_EQ(reason(quiet + "bm Rc1; gr 1;"),
        "has a move that is not legal there, or fits two pieces: bm Rc1");
    EXPECT_EQ(reason(quiet + "gr 1; c0 \"Rac1=10, Nf9=3\";"),
        "has a move that is not legal there, or fits two pieces: c0 Nf9");
    EXPECT_EQ(reason(quiet + "gr 1; c0 \"\xff\";"), "is not UTF-8");
    EXPECT_EQ(reason(quiet + std::string("gr 1;\0", 6)), "is no text");
    EXPECT_EQ(reason(quiet + "gr 1; c0 \"" + std::string(300, 'x') + "\";"),
        "is longer than 254 characters");
    EXPECT_EQ(reason(quiet + "ce 10; ce -700; gr 1;"), "has an operation twice: ce");
    EXPECT_EQ(check(quiet + "gr 1;", LineKind::Training, false).fate, LineFate::Refused);
}

TEST(DataPositions, RefuseResultsThatContradictEachOther)
{
    const std::string white = "4k3/8/8/8/8/8/4P3/4K3 w - - ";
    const std::string black = "4k3/8/8/8/8/8/4P3/4K3 b - - ";
    EXPECT_EQ(reason(white + "gr 1.0; c9 \"0-1\";"),
        "has two results that contradict each other: gr 1.0; c9 \"0-1\";");
    EXPECT_EQ(reason(black + "gr 0.5; c9 \"0-1\";"),
        "has two results that contradict each other: gr 0.5; c9 \"0-1\";");
    for (const std::string& line : { white + "gr 1.0; c9 \"1-0\";", black + "gr 1.0; c9 \"0-1\";",
             black + "gr 0; c9 \"0-1\";", white + "gr 0.7; c9 \"0-1\";" }) {
        EXPECT_EQ(check(line, LineKind::Training).fate, LineFate::Sound) << line;
    }
}

TEST(DataPositions, RefuseASquareThatNoPawnHasPassed)
{
    const std::string opening = "rnbqkb1r/pp1ppppp/5n2/2p5/2P1P3/5N2/PP1P1PPP/RNBQKB1R ";
    EXPECT_EQ(check(opening + "b KQkq e3 gr 0.5;", LineKind::Training).fate, LineFate::Sound);
    for (const char* fields : { "b KQkq d3", "b KQkq g3", "w KQkq d6" }) {
        EXPECT_EQ(reason(opening + fields + " gr 0.5;"),
            std::string("has an en passant square that no pawn has passed: ")
                + (fields + strlen(fields) - 2));
    }
}

TEST(DataPositions, LeaveOutChecksAndPassOverComments)
{
    EXPECT_EQ(
        check("4k2R/8/8/8/8/8/8/4K3 b - - gr 1;", LineKind::Training).fate, LineFate::InCheck);
    for (const char* line : { "", "# a title", "; another", " indented" }) {
        EXPECT_EQ(check(line, LineKind::Training).fate, LineFate::Comment) << line;
    }
    const CheckedLine trailer = check("# lines 12", LineKind::Training);
    EXPECT_EQ(trailer.fate, LineFate::Trailer);
    EXPECT_EQ(trailer.told_lines, 12);
}

TEST(DataPositions, TestLinesHaveMovesAndNeedNoResult)
{
    const LineKind test = LineKind::Test;
    EXPECT_EQ(check("4k2R/8/8/8/8/8/8/4K3 b - - bm Kd7; ce -30000;", test).fate, LineFate::Sound);
    EXPECT_EQ(check(quiet + "am Ne5;", test, false).fate, LineFate::Sound);
    EXPECT_EQ(reason(quiet + "c0 \"Rac1=10, Ne5=3\";", test), "");
    EXPECT_EQ(reason(quiet + "id \"x\";", test), "has no move to be found or to be avoided");
    EXPECT_EQ(reason(quiet + "bm ;", test), "has no move to be found or to be avoided");
    EXPECT_EQ(reason(quiet + "bm Rac1; ce 32768;", test), "has a ce beyond 32767: 32768");
    EXPECT_EQ(reason(quiet + "bm Rac1 Nf9;", test),
        "has a move that is not legal there, or fits two pieces: bm Nf9");
    EXPECT_EQ(reason(quiet + "bm Rac1; id \"" + std::string(300, 'x') + "\";", test), "");
    EXPECT_EQ(reason(quiet + "bm Rac1; id \"" + std::string(500, 'x') + "\";", test),
        "is longer than 511 characters");
    EXPECT_EQ(kind_of_line(quiet + "bm Rac1; ce 3;"), LineKind::Test);
    EXPECT_EQ(kind_of_line(quiet + "bm Rac1; ce 3; gr 1;"), LineKind::Training);
    EXPECT_EQ(kind_of_line(quiet + "ce 3;"), LineKind::Training);
}

// ---- Pieces of files

static std::vector<std::string> read_lines_of(const std::string& text, size_t longest)
{
    FILE* file = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
    PieceReader reader = start_pieces(file, longest);
    LinePiece piece;
    std::vector<std::string> lines;
    while (read_piece(&reader, &piece)) {
        EXPECT_EQ(piece.first_line, static_cast<i64>(lines.size()) + 1);
        std::string_view rest = piece.text;
        std::string_view line;
        bool is_whole = false;
        while (take_line(&rest, &line, &is_whole)) {
            lines.push_back(std::string(line) + (is_whole ? "" : "..."));
        }
    }
    fclose(file);
    return lines;
}

TEST(DataLinePieces, KeepAllLinesWhereverABlockEnds)
{
    std::string text = "\xef\xbb\xbf";
    std::vector<std::string> wanted;
    for (i32 i = 0; i < 40000; ++i) {
        wanted.push_back(std::string(static_cast<size_t>(i % 23), 'x') + std::to_string(i));
        text += wanted.back() + (i % 3 == 0 ? "\r\n" : "\n");
    }
    EXPECT_EQ(read_lines_of(text, 100), wanted);
}

TEST(DataLinePieces, CutALineOfAnyLength)
{
    const std::string huge(1000000, 'y');
    const std::vector<std::string> lines =
        read_lines_of("a\n" + huge + "\nb\n\n" + huge + huge + "\nc", 50);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[0], "a");
    EXPECT_GT(lines[1].size(), 50u);
    EXPECT_LT(lines[1].size(), 200000u);
    EXPECT_EQ(lines[2], "b");
    EXPECT_EQ(lines[3], "");
    EXPECT_GT(lines[4].size(), 50u);
    EXPECT_EQ(lines[5], "c...");
    EXPECT_EQ(read_lines_of(huge, 50), std::vector<std::string> { std::string(51, 'y') + "..." });
}

// ---- Stages

static std::string text_of(u64 number)
{
    return "line " + std::to_string(number) + std::string(number % 50, '.');
}

static CarriedLine carried(u64 order, u64 key, const std::string& text)
{
    CarriedLine line = {};
    line.facts.order = order;
    line.facts.key = key;
    line.text = text;
    return line;
}

// The orders of the lines that come out of the stage for distinct positions, in which key i comes
// at orders i, i + keys, i + 2 keys and so on.
static std::vector<u64> unique_orders(u64 lines, u64 keys, i64 memory, i64* dropped)
{
    UniqueStage stage;
    start_unique(&stage, { ".", memory });
    std::vector<u64> orders;
    const LineSink next = [&](const CarriedLine& line) {
        EXPECT_EQ(line.text, text_of(line.facts.order));
        orders.push_back(line.facts.order);
        return true;
    };
    for (u64 i = 0; i < lines; ++i) {
        const std::string text = text_of(i);
        const u64 key = draw_number(9, Draw::Order, i % keys);
        EXPECT_TRUE(put_unique(&stage, carried(i, key, text), next));
    }
    EXPECT_EQ(stage.late != nullptr, memory < 1 << 20);
    EXPECT_TRUE(finish_unique(&stage, next));
    EXPECT_EQ(stage.error, 0);
    *dropped = stage.dropped;
    return orders;
}

// The table of keys holds 49152 in the least memory, so that most wait in the scratch file.
TEST(DataPositions, AreUniqueInTheirOrderWhateverTheMemory)
{
    for (const i64 memory : { i64 { 1 } << 30, i64 { 1 } << 16 }) {
        i64 dropped = 0;
        const std::vector<u64> orders = unique_orders(200000, 120000, memory, &dropped);
        ASSERT_EQ(orders.size(), 120000u);
        EXPECT_EQ(dropped, 80000);
        for (u64 i = 0; i < 120000; ++i) {
            ASSERT_EQ(orders[i], i);
        }
    }
}

static std::vector<u64> shuffled_orders(u64 lines, i64 seed, i64 memory)
{
    ShuffleStage stage;
    start_shuffle(&stage, seed, { ".", memory });
    for (u64 i = 0; i < lines; ++i) {
        const std::string text = text_of(i);
        EXPECT_TRUE(put_shuffled(&stage, carried(i, i, text)));
    }
    std::vector<u64> orders;
    EXPECT_TRUE(finish_shuffle(&stage, [&](const CarriedLine& line) {
        EXPECT_EQ(line.text, text_of(line.facts.order));
        orders.push_back(line.facts.order);
        return true;
    }));
    return orders;
}

TEST(DataPositions, AreShuffledAlikeWhateverTheMemory)
{
    const std::vector<u64> orders = shuffled_orders(50000, 7, i64 { 1 } << 30);
    EXPECT_EQ(shuffled_orders(50000, 7, i64 { 1 } << 20), orders);
    EXPECT_EQ(shuffled_orders(50000, 7, i64 { 1 } << 10), orders);
    EXPECT_NE(shuffled_orders(50000, 8, i64 { 1 } << 30), orders);
    EXPECT_EQ(std::set<u64>(orders.begin(), orders.end()).size(), 50000u);
}

// Each of the orders of four lines comes as often as any other: 24 of them in 12000 seeds, 500
// each; the sum of squares beyond 57 would come once in ten thousand (chi squared, 23 degrees).
TEST(DataPositions, EachOrderIsAsLikely)
{
    std::map<std::vector<u64>, i32> counts;
    for (i64 seed = 0; seed < 12000; ++seed) {
        std::vector<std::pair<u64, u64>> drawn;
        for (u64 i = 0; i < 4; ++i) {
            drawn.emplace_back(draw_number(seed, Draw::Order, i), i);
        }
        std::sort(drawn.begin(), drawn.end());
        std::vector<u64> order;
        for (const auto& [number, i] : drawn) {
            order.push_back(i);
        }
        ++counts[order];
    }
    ASSERT_EQ(counts.size(), 24u);
    f64 squares = 0.0;
    for (const auto& [order, count] : counts) {
        squares += (count - 500.0) * (count - 500.0) / 500.0;
    }
    EXPECT_LT(squares, 57.0);
}

TEST(DataPositions, QuotasBalanceAndSample)
{
    const i64 counts[most_line_classes] = { 100, 10, 0, 50 };
    i64 quotas[most_line_classes] = {};
    ThinRule rule;
    rule.by_phase = true;
    set_quotas(rule, counts, quotas);
    EXPECT_EQ(std::vector<i64>(quotas, quotas + 4), (std::vector<i64> { 10, 10, 0, 10 }));
    rule.ratio = 2.5;
    set_quotas(rule, counts, quotas);
    EXPECT_EQ(std::vector<i64>(quotas, quotas + 4), (std::vector<i64> { 25, 10, 0, 25 }));
    rule.sample = 31;
    set_quotas(rule, counts, quotas);
    EXPECT_EQ(std::vector<i64>(quotas, quotas + 4), (std::vector<i64> { 11, 10, 0, 10 }));
    rule.by_phase = false;
    set_quotas(rule, counts, quotas);
    EXPECT_EQ(quotas[0], 31);
    rule.sample = 1000;
    set_quotas(rule, counts, quotas);
    EXPECT_EQ(quotas[0], 100);
}

TEST(DataPositions, ASampleHasItsSizeAndItsOrder)
{
    for (const i64 memory : { i64 { 1 } << 30, i64 { 1 } << 14 }) {
        ThinRule rule;
        rule.sample = 1000;
        ThinStage stage;
        start_thin(&stage, rule, { ".", memory });
        for (u64 i = 0; i < 5000; ++i) {
            const std::string text = text_of(i);
            ASSERT_TRUE(put_thin(&stage, carried(i, i, text)));
        }
        std::vector<u64> orders;
        EXPECT_TRUE(finish_thin(&stage, [&](const CarriedLine& line) {
            EXPECT_EQ(line.text, text_of(line.facts.order));
            orders.push_back(line.facts.order);
            return true;
        }));
        EXPECT_EQ(orders.size(), 1000u);
        EXPECT_TRUE(std::is_sorted(orders.begin(), orders.end()));
        EXPECT_EQ(orders.size(), std::set<u64>(orders.begin(), orders.end()).size());
        EXPECT_GT(orders.back(), 4900u);
        EXPECT_LT(orders.front(), 100u);
    }
}

TEST(DataPositions, TellOfAScratchFileThatCannotBe)
{
    Scratch scratch;
    start_scratch(&scratch, { "no such folder", 0 }, 1);
    const std::string text(400, 'x');
    bool good = true;
    for (u64 i = 0; i < 100 && good; ++i) {
        good = add_to_bucket(&scratch, 0, carried(i, i, text));
    }
    EXPECT_FALSE(good);
    EXPECT_NE(scratch.error, 0);
}

// ---- Statistics

TEST(DataPositions, StatisticsFindTheFactorOfTheResults)
{
    const std::unique_ptr<LineStatistics> statistics = std::make_unique<LineStatistics>();
    for (i32 score = -600; score <= 600; score += 10) {
        const i32 won = static_cast<i32>(1000.0 / (1.0 + exp(-0.004 * score)) + 0.5);
        for (i32 i = 0; i < 1000; ++i) {
            LineFacts facts = {};
            facts.score = static_cast<i16>(score);
            facts.result = i < won ? 1.0f : 0.0f;
            facts.outcome = i < won ? WhiteWon : WhiteLost;
            facts.phase = 40;
            add_to_statistics(statistics.get(), facts);
        }
    }
    EXPECT_NEAR(static_cast<f64>(fit_factor(&statistics->counts)), 0.004, 0.00005);
    EXPECT_EQ(statistics->lines, 121000);
    const std::string json = statistics_as_json(*statistics);
    EXPECT_EQ(json.substr(0, 15), "\"factor\":0.0040") << json;
    const std::string page = statistics_as_page(*statistics, "<a&b>");
    EXPECT_NE(page.find("&lt;a&amp;b&gt;"), std::string::npos);
    EXPECT_NE(page.find("121,000 positions"), std::string::npos);
    EXPECT_EQ(page.find("<script"), std::string::npos);
    EXPECT_EQ(page.find("http:", page.find("http:") + 1), std::string::npos); // but the name space
}

TEST(DataPositions, StatisticsOfNothingAreDrawnToo)
{
    const std::unique_ptr<LineStatistics> statistics = std::make_unique<LineStatistics>();
    const std::string picture = statistics_as_svg(*statistics);
    EXPECT_NE(picture.find("no line has a score"), std::string::npos);
    EXPECT_EQ(picture.find("nan"), std::string::npos);
    EXPECT_EQ(statistics_as_json(*statistics).substr(0, 13), "\"factor\":null");
}

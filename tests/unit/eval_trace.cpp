// The printed score table, byte for byte against stored texts, and what it promises.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "eval_test_support.h"
#include "base/output.h"
#include "board/moves.h"
#include "eval/evaluate.h"
#include "search/clock.h"

static constexpr char header[] = "           white  black    pos    mtl\n";
static constexpr char middle_game[] =
    "r1bqkb1r/pppp1ppp/2n2n2/1B2p3/4P3/5N2/PPPP1PPP/RNBQ1RK1 b kq -";

// Evaluates for the side to move and prints the table, as the console does; trace 2 adds the
// weights.
static i32 traced_at(Position* pos, i32 ply, i32 in_check, i32 trace)
{
    const i32 score = evaluate_at(pos->thread, pos->stm, ply, in_check);
    if (trace != 0) {
        char table[eval_trace_size];
        write_eval_trace(pos->thread, trace == 2, table);
        print_text(table);
    }
    return score;
}

static std::string traced(Position* pos, i32 trace, i32* value = nullptr)
{
    return capture_output([&] {
        const i32 score = traced_at(pos, 1, 0, trace);
        if (value != nullptr) {
            *value = score;
        }
    });
}

static std::string traced(const std::string& fen, i32 trace = 1, i32* value = nullptr)
{
    return traced(set_position(fen), trace, value);
}

static std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The four numbers of each of the eight rows.
static std::vector<std::vector<i32>> rows_of(const std::string& text)
{
    const std::vector<std::string> lines = lines_of(text);
    std::vector<std::vector<i32>> rows;
    for (size_t i = 1; i <= 8 && i < lines.size(); ++i) {
        std::istringstream numbers(lines[i].substr(lines[i].find(':') + 1));
        std::vector<i32> row;
        for (i32 number = 0; numbers >> number;) {
            row.push_back(number);
        }
        EXPECT_EQ(row.size(), 4u) << lines[i];
        rows.push_back(row);
    }
    EXPECT_EQ(rows.size(), 8u) << text;
    return rows;
}

static i32 printed_value(const std::string& text)
{
    const size_t at = text.find("eval= ");
    EXPECT_NE(at, std::string::npos) << text;
    return at == std::string::npos ? -99999 : std::stoi(text.substr(at + 6));
}

struct StoredTrace {
    std::string fen;
    std::string text;
};

static std::vector<StoredTrace> stored_traces()
{
    std::ifstream file(data_path("eval-trace.txt"));
    std::vector<StoredTrace> stored;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("FEN ", 0) == 0) {
            stored.push_back({ line.substr(4), "" });
        } else if (line != "---") {
            stored.back().text += line + "\n";
        }
    }
    return stored;
}

TEST(EvalTrace, StoredPositionsGiveTheStoredText)
{
    const std::vector<StoredTrace> stored = stored_traces();
    ASSERT_EQ(stored.size(), 18u);
    for (const StoredTrace& entry : stored) {
        EXPECT_EQ(traced(entry.fen), entry.text) << entry.fen;
    }
}

TEST(EvalTrace, ThePositionColumnIsTheDifferenceOfThePrintedNumbers)
{
    for (const StoredTrace& entry : stored_traces()) {
        for (const std::vector<i32>& row : rows_of(traced(entry.fen))) {
            EXPECT_EQ(row[2], row[0] - row[1]) << entry.fen;
        }
    }
}

TEST(EvalTrace, TheColumnsSumToTheScoreUpToTruncation)
{
    i32 compared = 0;
    for (const StoredTrace& entry : stored_traces()) {
        const std::string text = traced(entry.fen);
        if (text.find("sf= 1.00") == std::string::npos) {
            continue;
        }
        i32 sum = 0;
        for (const std::vector<i32>& row : rows_of(text)) {
            sum += row[2] + row[3];
        }
        const i32 sign = dialogue.game->pos.stm == White ? 1 : -1;
        // Eight rows, two sides, less than a centipawn each.
        EXPECT_LT(abs(sum - sign * printed_value(text)), 17) << entry.fen;
        ++compared;
    }
    EXPECT_GE(compared, 10);
}

TEST(EvalTrace, OnlyPiecesHaveAMaterialDifference)
{
    const std::vector<std::vector<i32>> rows =
        rows_of(traced("rnbqkbnr/pppppppp/8/8/8/8/PPPP4/4K3 w kq -"));
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_LT(rows[i][3], 0) << i;
    }
    for (size_t i = 5; i < 8; ++i) {
        EXPECT_EQ(rows[i][3], 0) << i;
    }
}

TEST(EvalTrace, RowsStandInTheirOrder)
{
    const std::vector<std::string> lines = lines_of(traced(middle_game));
    const char* labels[] = {
        "pawns:", "knights:", "bishops:", "rooks:", "queens:", "king:", "ppawns:", "other:"
    };
    ASSERT_GE(lines.size(), 10u);
    EXPECT_EQ(lines[0] + "\n", header);
    for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(lines[i + 1].rfind(labels[i], 0), 0u) << lines[i + 1];
    }
}

TEST(EvalTrace, ForBlackToMoveTheValueIsThatOfTheEvaluation)
{
    ASSERT_EQ(load(contempt_rule.contempt), 0);
    i32 value = 0;
    const std::string text = traced(middle_game, 1, &value);
    EXPECT_EQ(dialogue.game->pos.stm, Black);
    EXPECT_NE(value, 0);
    EXPECT_EQ(printed_value(text), value);
}

TEST(EvalTrace, ContemptIsNotPrinted)
{
    i32 plain_value = 0;
    const std::string plain = traced(middle_game, 1, &plain_value);
    contempt_rule.root_side = Black;
    store(contempt_rule.contempt, 100);
    i32 value = 0;
    const std::string text = traced(middle_game, 1, &value);
    store(contempt_rule.contempt, 0);
    contempt_rule.root_side = White;
    EXPECT_EQ(text, plain);
    EXPECT_GT(value, plain_value + 50);
}

TEST(EvalTrace, TheScaleFactorIsPrintedAndApplied)
{
    // Bishops on squares of opposite colours, and nothing else but pawns.
    const std::string text = traced("4k3/5b2/8/3pp3/8/1PPP4/5B2/4K3 w - -");
    EXPECT_NE(text.find(", sf= 0.42\n\n"), std::string::npos) << text;
    EXPECT_NE(text.find("phase= 0.90"), std::string::npos) << text;
    i32 sum = 0;
    for (const std::vector<i32>& row : rows_of(text)) {
        sum += row[2] + row[3];
    }
    EXPECT_NEAR(printed_value(text), sum * 0.4225, 8.0);
}

TEST(EvalTrace, HungPiecesFollowTwoBlanksInSquareOrder)
{
    const std::string text = traced("8/8/7k/2PBpQpP/8/8/3K4/8 b - -");
    EXPECT_NE(text.find("\nhung pieces on:  e5 h5\neval= "), std::string::npos) << text;
    EXPECT_EQ(traced("4k3/pp6/8/8/8/8/PP6/4K3 w - -").find("hung"), std::string::npos);
}

TEST(EvalTrace, AnEvaluationThatEndsEarlyPrintsNothing)
{
    // Drawn material, and the lone kings that have a rule of their own.
    for (const char* fen : { "4k3/8/8/8/8/8/8/4K3 w - -", "4k3/8/8/8/8/8/8/2B1K3 w - -",
             "4k1n1/8/8/8/8/8/8/1NN1K3 b - -", "4k3/8/8/8/8/8/4P3/4K3 w - -",
             "4k3/8/8/8/8/8/8/2BNK3 w - -", "4k3/8/8/8/8/8/P7/Q3K3 b - -" }) {
        EXPECT_EQ(traced(fen, 1), "") << fen;
        EXPECT_EQ(traced(fen, 2), "") << fen;
    }
    Position* pos = set_position(middle_game);
    EXPECT_EQ(capture_output([&] { traced_at(pos, 1, 1, 1); }), "");
    // A lone king without a rule of its own is evaluated in full.
    EXPECT_EQ(traced("4k3/8/8/8/8/8/PP6/4K3 w - -").rfind(header, 0), 0u);
}

TEST(EvalTrace, TheCacheDoesNotAnswerAtPlyOne)
{
    Position* pos = set_position(middle_game);
    const std::string first = traced(pos, 1);
    EXPECT_EQ(first.rfind(header, 0), 0u);
    EXPECT_EQ(traced(pos, 1), first);
}

TEST(EvalTrace, EvaluationsOfASearchLeaveTheTraceOfTheRootAlone)
{
    Position* pos = set_position(middle_game);
    const std::string first = traced(pos, 1);
    gen_all_moves(pos);
    make_move(pos, pos->thread->ply_rec[1].list_start[0].move);
    evaluate_at(pos->thread, pos->stm, 2, 0);
    unmake_move(pos);
    static char text[eval_trace_size];
    write_eval_trace(pos->thread, false, text);
    EXPECT_EQ(text, first);
}

TEST(EvalTrace, WithoutTheFlagNothingIsPrinted)
{
    EXPECT_EQ(traced(middle_game, 0), "");
}

// ---- The listing of weights and tables

static std::vector<std::string> listing_of(const std::string& fen)
{
    const std::string table = traced(fen, 1);
    const std::string both = traced(fen, 2);
    EXPECT_EQ(both.substr(0, table.size()), table);
    return lines_of(both.substr(table.size()));
}

static const std::vector<std::string> table_labels = { "Pawn1", "Connected Pawn", "Defended Pawn",
    "Knight1", "Bishop1", "Rook1", "Queen1", "King", "Pawn2", "Knight2", "Bishop2", "Rook2",
    "Queen2" };

TEST(EvalTrace, TheListingHas81WeightsAnd13Tables)
{
    const std::vector<std::string> lines = listing_of(middle_game);
    ASSERT_EQ(lines.size(), 81u + 13u * 10u);
    std::vector<std::string> spare;
    for (size_t i = 0; i < 81; ++i) {
        EXPECT_EQ(lines[i].substr(22, 2), "  ") << lines[i];
        EXPECT_EQ(lines[i].substr(28, 3), " , ") << lines[i];
        EXPECT_EQ(lines[i].find("PST_"), std::string::npos);
        if (lines[i].rfind("tmp", 0) == 0) {
            spare.push_back(lines[i].substr(0, 5));
        }
    }
    ASSERT_EQ(spare.size(), 9u);
    EXPECT_EQ(spare.front(), "tmp0 ");
    EXPECT_EQ(spare.back(), "tmp8 ");
    for (size_t table = 0; table < 13; ++table) {
        EXPECT_EQ(lines[81 + table * 10], table_labels[table]);
        EXPECT_EQ(lines[81 + table * 10 + 9], "");
    }
}

TEST(EvalTrace, WeightsAreListedInTableOrderWithBothHalves)
{
    const WeightsRestored restored;
    set_position(middle_game);
    set_weight(mtl_pawn, 88, -7);
    set_weight(scalar_weight_count - 1, -12345, 12345);
    const std::vector<std::string> lines = listing_of(middle_game);
    EXPECT_EQ(lines[0], "mtl_pawn                  88 ,   -7");
    EXPECT_EQ(lines[80].substr(22), "  -12345 , 12345");
    for (i32 i = 0; i < scalar_weight_count; ++i) {
        const std::string name = eval_params[i].name;
        EXPECT_EQ(lines[static_cast<size_t>(i)].rfind(name, 0), 0u) << name;
    }
}

TEST(EvalTrace, TablesShowRankEightFirstAndTheHalvesSideBySide)
{
    const WeightsRestored restored;
    set_position(middle_game);
    clear_weights();
    set_weight(PST_N1 + 56, 1, -1);    // a8
    set_weight(PST_N1 + 63, 22, -22);  // h8
    set_weight(PST_N1 + 0, 333, -333); // a1
    set_weight(PST_N1 + 12, 4444, -4444);
    const std::vector<std::string> lines = listing_of(middle_game);
    const size_t first = 81 + 3 * 10 + 1;
    ASSERT_EQ(lines[first - 1], "Knight1");
    EXPECT_EQ(
        lines[first], "   1   0   0   0   0   0   0  22       -1   0   0   0   0   0   0 -22");
    EXPECT_EQ(
        lines[first + 7], " 333   0   0   0   0   0   0   0      -333   0   0   0   0   0   0   0");
    EXPECT_EQ(lines[first + 6],
        "   0   0   0   0 4444   0   0   0        0   0   0   0 -4444   0   0   0");
    EXPECT_EQ(
        lines[first + 1], "   0   0   0   0   0   0   0   0        0   0   0   0   0   0   0   0");
}

TEST(EvalTrace, EachTableShowsItsOwnEntries)
{
    const WeightsRestored restored;
    set_position(middle_game);
    const i32 tables[] = { PST_P1, PST_CP, PST_DP, PST_N1, PST_B1, PST_R1, PST_Q1, PST_K, PST_P2,
        PST_N2, PST_B2, PST_R2, PST_Q2 };
    for (i32 i = 0; i < 13; ++i) {
        set_weight(tables[i] + 56, 500 + i, 0);
    }
    const std::vector<std::string> lines = listing_of(middle_game);
    for (size_t i = 0; i < 13; ++i) {
        EXPECT_EQ(lines[81 + i * 10 + 1].substr(0, 4), " " + std::to_string(500 + i));
    }
}

TEST(EvalTrace, ExtremeWeightsStayInsideTheLines)
{
    const WeightsRestored restored;
    set_position(middle_game);
    for (i32 index = 0; index < weight_count; ++index) {
        set_weight(index, -32768, -32768);
    }
    const std::vector<std::string> lines = listing_of(middle_game);
    ASSERT_EQ(lines.size(), 211u);
    EXPECT_EQ(lines[82].size(), 8u * 7u + 5u + 8u * 7u);
}

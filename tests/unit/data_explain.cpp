// Explanations: they are the evaluation's own numbers, and add up to them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "test_support.h"
#include "data/explain_forms.h"
#include "data/explain_settings.h"
#include "data/explain_weights.h"
#include "data/report.h"
#include "eval/evaluate.h"
#include "eval/weights.h"

// What stands behind "with options: " in the stored scores.
static constexpr char stored_options[] =
    "Mtl_Pawn=83,117;Mtl_Knight=129,71;Mtl_Bishop=57,149;Mtl_Rook=111,38;Mtl_Queen=64,133;"
    "Activity_Knight=29,57;Activity_Bishop=141,23;Activity_Rook=77,181;Activity_Queen=47,119;"
    "Pawn_Structure=113,59;Passed_Pawns=39,161;King_Safety=71,127;Threats=137,53";

struct WeightsSetUp {
    bool done;
    bool usage;
    std::vector<std::string> scaled;
    Report report;
};

static WeightsSetUp set_up(const WeightSettings& settings)
{
    WeightsSetUp result = { false, false, {}, start_report("explain", CommonOptions()) };
    result.done = set_up_weights(settings, &result.report, &result.scaled, &result.usage);
    return result;
}

static std::vector<std::string> split(const std::string& text, char mark)
{
    std::vector<std::string> parts;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(mark, start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

static std::vector<ExplainedPosition> explain(
    const std::vector<std::string>& fens, i64 jobs = 1, bool makes_tables = false)
{
    std::vector<ExplainedPosition> positions;
    for (const std::string& fen : fens) {
        positions.emplace_back().pos = *set_position(fen);
    }
    Explainer explainer = make_explainer(jobs, makes_tables);
    explain_positions(&explainer, positions);
    return positions;
}

static std::vector<std::string> stored_fens()
{
    std::vector<std::string> fens;
    for (const std::vector<std::string>& row : read_tsv("eval.tsv")) {
        fens.push_back(row[0]);
    }
    return fens;
}

static std::string as_stored(f32 number)
{
    char text[32];
    snprintf(text, sizeof text, "%.6f", static_cast<f64>(number));
    return text;
}

// A row of a stored table: score, dangers, whether all terms ran, phase, scale, tapered score.
static void compare_with_stored(const char* file, const std::vector<std::string>& options)
{
    set_position("8/8/8/8/8/8/8/K1k5 w - -");
    ASSERT_TRUE(set_up({ options, "", "" }).done);
    const std::vector<std::vector<std::string>> rows = read_tsv(file);
    std::vector<std::string> fens;
    for (const std::vector<std::string>& row : rows) {
        fens.push_back(row[0]);
    }
    const std::vector<ExplainedPosition> positions = explain(fens, 2);
    ASSERT_GT(positions.size(), 200u);
    i32 by_terms = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Explanation& why = positions[i].why;
        ASSERT_TRUE(why.is_whole) << fens[i];
        if (std::stoi(rows[i][1]) == no_eval) {
            EXPECT_TRUE(why.in_check) << fens[i];
            continue;
        }
        EXPECT_FALSE(why.in_check) << fens[i];
        EXPECT_EQ(why.score, std::stoi(rows[i][1])) << fens[i];
        EXPECT_EQ(why.by_terms, rows[i][4] == "1") << fens[i];
        if (why.by_terms) {
            EXPECT_EQ(as_stored(why.phase), rows[i][5]) << fens[i];
            EXPECT_EQ(as_stored(why.scale), rows[i][6]) << fens[i];
            EXPECT_EQ(why.tapered, std::stoi(rows[i][7])) << fens[i];
            ++by_terms;
        }
    }
    EXPECT_GT(by_terms, 100);
    ASSERT_TRUE(set_up({}).done);
}

TEST(DataExplain, ScoresAreTheStoredOnes)
{
    compare_with_stored("eval.tsv", {});
}

TEST(DataExplain, ScoresWithOptionsAreTheStoredOnes)
{
    compare_with_stored("eval-options.tsv", split(stored_options, ';'));
}

TEST(DataExplain, TablesAreTheStoredOnes)
{
    std::ifstream file(data_path("eval-trace.txt"));
    std::vector<std::string> fens;
    std::vector<std::string> tables;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("FEN ")) {
            fens.push_back(line.substr(4));
            tables.emplace_back();
        } else if (line != "---") {
            tables.back() += line + '\n';
        }
    }
    ASSERT_EQ(fens.size(), 18u);
    const std::vector<ExplainedPosition> positions = explain(fens, 1, true);
    for (size_t i = 0; i < fens.size(); ++i) {
        EXPECT_EQ(positions[i].why.table, tables[i]) << fens[i];
    }
}

// Bottom up: the weights make up the rows, the rows the sums, the sums the score.
TEST(DataExplain, EverythingAddsUpToTheScore)
{
    for (const ExplainedPosition& position : explain(stored_fens())) {
        const Explanation& why = position.why;
        if (!why.by_terms) {
            EXPECT_TRUE(find_acting_weights(why).empty());
            continue;
        }
        std::array<std::array<i32, 2>, eval_trace_rows> rows = {};
        for (const ActingWeight& weight : find_acting_weights(why)) {
            for (i32 side = White; side <= Black; ++side) {
                rows[static_cast<size_t>(weight.row)][static_cast<size_t>(side)] +=
                    weight.added[side];
            }
        }
        i32 sums[2] = {};
        for (i32 row = 0; row < eval_trace_rows; ++row) {
            for (i32 side = White; side <= Black; ++side) {
                EXPECT_EQ(rows[static_cast<size_t>(row)][static_cast<size_t>(side)],
                    why.rows[row].gained[side])
                    << fen_of(&position.pos) << " row " << row;
                sums[side] += why.rows[row].gained[side];
            }
        }
        EXPECT_EQ(sums[White], why.sum[White]);
        EXPECT_EQ(sums[Black], why.sum[Black]);
        EXPECT_EQ(taper(sums[White] - sums[Black], why.phase), why.tapered);
        const i32 score = static_cast<i32>(static_cast<f32>(why.tapered) * why.scale);
        EXPECT_EQ(position.pos.stm == White ? score : -score, why.score);
    }
}

TEST(DataExplain, WeightsCountForWhatStandsOnTheBoard)
{
    // Two knights that are not driven off, one of them on c6, and nothing of the kind for Black.
    const ExplainedPosition position = explain({ "4k3/p6p/2N5/1P6/8/8/PN5P/4K3 w - -" })[0];
    const std::vector<ActingWeight> weights = find_acting_weights(position.why);
    const auto find = [&](i32 index) {
        const auto found = std::ranges::find(weights, index, &ActingWeight::index);
        return found == weights.end() ? ActingWeight {} : *found;
    };
    EXPECT_EQ(find(mtl_knight).times[White], 2.0);
    EXPECT_EQ(find(mtl_knight).times[Black], 0.0);
    EXPECT_EQ(find(mtl_knight).added[White], 2 * eval_words[mtl_knight]);
    EXPECT_EQ(eval_trace_name(find(mtl_knight).row), "knights");
    EXPECT_EQ(find(mtl_pawn).times[White], 3.0);
    EXPECT_EQ(find(mtl_pawn).times[Black], 2.0);
    EXPECT_EQ(find(knight_outpost).times[White], 1.0);
    EXPECT_EQ(find(stm_bonus).times[White], 1.0);
    EXPECT_EQ(find(mtl_queen).times[White], 0.0);
    EXPECT_LT(find(knight_mobility).times[White], 1.2);
}

TEST(DataExplain, AreTheSameForAnyNumberOfThreads)
{
    const std::vector<std::string> fens = stored_fens();
    const std::vector<ExplainedPosition> one = explain(fens, 1);
    const std::vector<ExplainedPosition> three = explain(fens, 3);
    ASSERT_EQ(one.size(), three.size());
    for (size_t i = 0; i < one.size(); ++i) {
        EXPECT_EQ(one[i].why.score, three[i].why.score) << fens[i];
        EXPECT_TRUE(std::ranges::equal(std::span(&one[i].why.uses[0][0], 2 * word_count),
            std::span(&three[i].why.uses[0][0], 2 * word_count)))
            << fens[i];
    }
    EXPECT_TRUE(explain({}, 3).empty());
}

TEST(DataExplain, LeaveTheWeightsAsTheyWere)
{
    const std::vector<i32> words(eval_words, eval_words + weight_count);
    const std::vector<i32> fractions(fraction_words, fraction_words + fraction_count);
    explain(stored_fens(), 2);
    EXPECT_TRUE(std::equal(words.begin(), words.end(), eval_words));
    EXPECT_TRUE(std::equal(fractions.begin(), fractions.end(), fraction_words));
}

TEST(DataExplain, NameTheRuleThatOverrulesTheTerms)
{
    const std::vector<ExplainedPosition> positions = explain({ "8/8/8/4k3/8/8/8/K1B5 w - -",
        "8/8/8/4k3/8/8/P7/K7 w - -", "8/8/8/4k3/8/8/8/KBN5 b - -", "8/8/8/4k3/7q/8/8/K7 b - -" });
    const FormSettings settings = { .form = ExplainForm::Json };
    static constexpr const char* rules[] = { "drawn material", "king and pawn against king",
        "bishop and knight against king", "rook or queen against king" };
    for (size_t i = 0; i < positions.size(); ++i) {
        std::string json;
        append_answer(&json, settings, { .line = 1 }, &positions[i]);
        EXPECT_NE(json.find(std::string("\"judged_by\":\"") + rules[i] + '"'), std::string::npos)
            << json;
        EXPECT_EQ(json.find("terms"), std::string::npos) << json;
    }
    EXPECT_EQ(positions[3].why.strong, Black);
}

TEST(DataExplain, SayWhyAnEndingIsHardToWin)
{
    static const struct {
        const char* fen;
        u32 reasons;
        f32 scale;
    } cases[] = {
        { "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", 0, 1.0f },
        { "8/8/3nk3/8/8/8/8/KBB5 w - -", ScaleBishopsAgainstKnight, 0.75f },
        { "8/8/3nk3/8/8/8/3R4/K7 w - -", ScalePawnless, 0.15f },
        { "k7/8/p7/8/8/8/P7/K1B5 w - -", ScaleWrongCorner, 0.05f },
        { "8/pp3k2/8/3b4/3B4/8/PPP3K1/8 w - -", ScaleOppositeBishops | ScaleBareOppositeBishops,
            0.4225f },
        { "r7/pp3k2/8/3b4/3B4/8/PPP3K1/R7 w - -", ScaleOppositeBishops, 0.65f },
        { "8/4nk2/8/8/8/P7/8/K1N5 w - -", ScaleLastPawn | ScaleNoFreePawn, 0.425f },
    };
    for (const auto& one : cases) {
        const Explanation why = explain({ one.fen })[0].why;
        EXPECT_EQ(why.scale_reasons, one.reasons) << one.fen;
        EXPECT_FLOAT_EQ(why.scale, one.scale) << one.fen;
    }
    // A reason wherever there is a scale, and nowhere else.
    for (const ExplainedPosition& position : explain(stored_fens())) {
        EXPECT_EQ(position.why.scale_reasons != 0, position.why.scale < 1.0f)
            << fen_of(&position.pos);
    }
}

// ---- Forms

TEST(DataExplain, RowsOfCsvHaveTheColumnsOfTheirHead)
{
    const std::vector<ExplainedPosition> positions = explain(
        { "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", "8/8/8/4k3/8/8/8/K1B5 w - -" });
    FormSettings some = { .form = ExplainForm::Csv };
    ASSERT_TRUE(choose_term(&some, "king"));
    ASSERT_TRUE(choose_term(&some, "ppawn"));
    ASSERT_TRUE(choose_term(&some, "PST_N1"));
    for (const FormSettings& settings : { FormSettings { .form = ExplainForm::Csv }, some }) {
        const auto columns = std::ranges::count(head_of_form(settings), ',');
        EXPECT_GT(columns, 15);
        for (const ExplainedPosition& position : positions) {
            std::string row;
            append_answer(&row, settings, { .line = 7, .id = "a\"b" }, &position);
            EXPECT_TRUE(row.starts_with("7,\"a\"\"b\",")) << row;
            EXPECT_EQ(std::ranges::count(row, ','), columns) << row;
            EXPECT_EQ(std::ranges::count(row, '\n'), 1) << row;
        }
    }
}

TEST(DataExplain, ARowOfCsvTellsWhichWeightsAct)
{
    const std::vector<ExplainedPosition> positions =
        explain({ "8/5k2/3P4/8/2b5/4B3/1K3p2/8 b - -" });
    FormSettings settings = { .form = ExplainForm::Csv };
    ASSERT_TRUE(choose_term(&settings, "PST_P2"));
    ASSERT_TRUE(choose_term(&settings, "ppawn_free"));
    std::string row;
    append_answer(&row, settings, { .line = 1 }, &positions[0]);
    EXPECT_TRUE(row.ends_with(",\"opposite bishops; no other pieces; last pawn\",\"f2\","
                              "\"ppawn_free 6=114/190*1/0; ppawn_free 7=208/336*0/1; "
                              "PST_P2 e6=20/22*1/0; PST_P2 f7=39/56*0/1\"\n"))
        << row;
}

TEST(DataExplain, OnlyJsonAnswersForARefusedLine)
{
    const Answer answer = { .line = 3, .text = "ab\"c\x01", .defect = "no board" };
    std::string text;
    append_answer(&text, { .form = ExplainForm::Text }, answer, nullptr);
    append_answer(&text, { .form = ExplainForm::Csv }, answer, nullptr);
    EXPECT_EQ(text, "");
    append_answer(&text, { .form = ExplainForm::Json }, answer, nullptr);
    EXPECT_EQ(text, "{\"line\":3,\"error\":\"no board\",\"text\":\"ab\\\"c\\u0001\"}\n");
}

TEST(DataExplain, UnknownTermsAreRefusedWithTheOneThatWasMeant)
{
    FormSettings settings;
    std::string errors = capture_errors([&] { EXPECT_FALSE(choose_term(&settings, "knigts")); });
    EXPECT_NE(errors.find("'knights' may be meant"), std::string::npos) << errors;
    EXPECT_TRUE(settings.all_terms);
}

// ---- Settings

static std::string write_file(const std::string& name, const std::string& text)
{
    std::ofstream(name, std::ios::binary) << text;
    return name;
}

TEST(DataExplain, OptionsOfAFileAreTakenAsTheEngineTakesThem)
{
    const std::string name = write_file(
        "explain.cfg", "# mine\nHash = 64\n\nActivity_Knight = 29,57 # lively\nThreats=80, 120\n");
    const WeightsSetUp result = set_up({ { "Threats=90,110" }, name, "" });
    ASSERT_TRUE(result.done);
    EXPECT_EQ(
        result.scaled, (std::vector<std::string> { "Activity_Knight=29,57", "Threats=90,110" }));
    EXPECT_EQ(score_mg(eval_words[knight_mobility]), 15); // 51 * 0.29
    EXPECT_EQ(score_mg(eval_words[mtl_knight]), 361);
    ASSERT_TRUE(set_up({}).done);
}

TEST(DataExplain, BadSettingsAreRefusedWithTheirLine)
{
    static constexpr const char* texts[] = { "Activity_Knigth = 1,2\n", "Threats = 80\n",
        "Threats = 80,201\n", "Threats = 19,100\n", "Threats = a,b\n", "Threats\n",
        " Threats = 80,120\n", "Threats = 80,120" };
    for (const char* text : texts) {
        const std::string name = write_file("explain.cfg", std::string("Hash = 1\n") + text);
        std::string errors = capture_errors([&] {
            const WeightsSetUp result = set_up({ {}, name, "" });
            EXPECT_FALSE(result.done) << text;
            EXPECT_FALSE(result.usage) << text;
        });
        EXPECT_TRUE(errors.starts_with("explain.cfg:2: option: ")) << errors;
    }
    ASSERT_TRUE(set_up({}).done);
}

TEST(DataExplain, BadSettingsOfTheCommandLineAreRefused)
{
    for (const char* text : { "Threats", "Threats=80", "Threats=80,", "Threats=80,19", "Hash=64,64",
             "=80,80", "Threats=80,80,80" }) {
        const std::string errors = capture_errors([&] {
            const WeightsSetUp result = set_up({ { text }, "", "" });
            EXPECT_FALSE(result.done) << text;
            EXPECT_TRUE(result.usage) << text;
        });
        EXPECT_TRUE(errors.starts_with("vesk-data explain: ")) << errors;
    }
    ASSERT_TRUE(set_up({}).done);
}

TEST(DataExplain, WeightsOfAFileTakeThePlaceOfAPersonality)
{
    const std::string name =
        write_file("explain.txt", "fset(\"mtl_pawn\",99,101);\nfset(\"mtl_knight\",300,310);\n");
    const std::string errors = capture_errors([&] {
        EXPECT_TRUE(set_up({ { "Mtl_Knight=50,50", "Mtl_Rook=50,50" }, "", name }).done);
    });
    EXPECT_NE(errors.find("holds 2 of 913 weights"), std::string::npos) << errors;
    EXPECT_EQ(eval_words[mtl_pawn], pair(99, 101));
    EXPECT_EQ(eval_words[mtl_knight], pair(300, 310));
    EXPECT_EQ(score_mg(eval_words[mtl_rook]), 249);
    ASSERT_TRUE(set_up({}).done);
}

TEST(DataExplain, WeightsThatStandInAnotherPlaceAreRefused)
{
    const std::string name =
        write_file("explain.txt", "fset(\"mtl_pawn\",99,101);\nfset(\"mtl_rook\",300,310);\n");
    std::string errors = capture_errors([&] { EXPECT_FALSE(set_up({ {}, "", name }).done); });
    EXPECT_EQ(errors, "explain.txt:2: weight: mtl_rook: this line is that of mtl_knight\n");
    write_file("explain.txt", "nothing\n");
    errors = capture_errors([&] { EXPECT_FALSE(set_up({ {}, "", name }).done); });
    EXPECT_EQ(errors, "explain.txt: holds no weights\n");
    errors = capture_errors([&] { EXPECT_FALSE(set_up({ {}, "", "." }).done); });
    EXPECT_NE(errors.find("regular file"), std::string::npos) << errors;
    ASSERT_TRUE(set_up({}).done);
}

// The weight table: defaults, personality options, the weights file.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "eval_test_support.h"
#include "shell/weights_file.h"

// Works in a directory of its own, with the given text as the weights file.
struct ParamsFile {
    explicit ParamsFile(const std::string& content)
    {
        set_position(start_position);
        EXPECT_NE(getcwd(old_directory, sizeof old_directory), nullptr);
        EXPECT_NE(mkdtemp(directory.data()), nullptr);
        EXPECT_EQ(chdir(directory.c_str()), 0);
        std::ofstream file(params_file, std::ios::binary);
        file.write(content.data(), static_cast<std::streamsize>(content.size()));
    }

    ~ParamsFile()
    {
        unlink(params_file);
        EXPECT_EQ(chdir(old_directory), 0);
        rmdir(directory.c_str());
        build_weights(NormalWeights);
    }

    char old_directory[4096];
    std::string directory = testing::TempDir() + "vesk-params-XXXXXX";
};

// Rebuilds the table and returns what was printed meanwhile.
static std::string rebuild()
{
    return capture_output([] { build_weights(NormalWeights); });
}

static i32 mg_of(i32 weight)
{
    return score_mg(eval_params[weight].packed);
}

static i32 eg_of(i32 weight)
{
    return score_eg(eval_params[weight].packed);
}

static void expect_copies_in_step()
{
    for (i32 i = 0; i < weight_count; ++i) {
        EXPECT_EQ(eval_words[i], eval_params[i].packed) << i;
    }
}

// Each list of parts belongs to one weight and follows the one before.
TEST(EvalWeights, ListsOfPartsCoverTheProductsOnce)
{
    std::vector<i32> uses(fraction_count);
    for (i32 weight = 0; weight < weight_count; ++weight) {
        const FractionList list = fractions_of(weight);
        for (i32 step = 0; step < list.size; ++step) {
            ++uses.at(static_cast<size_t>(list.first + step));
        }
    }
    EXPECT_EQ(uses, std::vector<i32>(fraction_count, 1));
}

TEST(EvalWeights, ProductsAreCutOffToWholeCentipawnsHalfByHalf)
{
    test_thread();
    const WeightsRestored restored;
    for (i32 weight = 0; weight < scalar_weight_count; ++weight) {
        const FractionList list = fractions_of(weight);
        for (const auto& [mg, eg] : { std::pair(14.5, -83.7), std::pair(-0.99, 1e9) }) {
            set_weight(weight, mg, eg);
            for (i32 step = 0; step < list.size; ++step) {
                const f64 part = static_cast<f64>(fraction_of(weight, step));
                const i32 word = fraction_words[list.first + step];
                EXPECT_EQ(word,
                    pair(
                        static_cast<i32>(mg * part), static_cast<i32>(static_cast<i64>(eg * part))))
                    << eval_params[weight].name << ' ' << step;
            }
        }
    }
    EXPECT_EQ(fraction_of(knight_mobility, 0), -0.4f);
    EXPECT_EQ(fraction_of(queen_mobility, 27), 0.6f);
    EXPECT_EQ(fraction_of(pawn_shield, 9), 0.0f);
    EXPECT_EQ(fraction_of(pawn_shield, 8), -0.111f);
    EXPECT_NEAR(static_cast<f64>(fraction_of(king_danger1, attack_curve_limit)), 2.7378, 1e-6);
    EXPECT_NEAR(static_cast<f64>(fraction_of(candidate_passer, step_of(5, 7))), 1.3, 1e-6);
    EXPECT_EQ(fraction_of(ppawn_fking_dist, step_of(4, 3)), 3.0f * 0.4f);
    EXPECT_EQ(fraction_of(ppawn_connected, 6), 1.0f);
    EXPECT_EQ(fraction_of(mtl_pawn, 0), 0.0f);
}

// Columns of a line of tests/data/default-weights.tsv.
struct WeightLine {
    i32 index;
    std::string name;
    i32 mg;
    i32 eg;
    std::string base_mg;
    std::string base_eg;
};

static std::vector<WeightLine> read_weight_lines()
{
    std::vector<WeightLine> lines;
    for (const std::vector<std::string>& row : read_tsv("default-weights.tsv")) {
        lines.push_back({ std::stoi(row.at(0)), row.at(1), std::stoi(row.at(2)),
            std::stoi(row.at(3)), row.at(4), row.at(5) });
    }
    return lines;
}

TEST(EvalWeights, EveryEntryHasItsNameAndDefaultValues)
{
    set_position(start_position);
    build_weights(NormalWeights);
    const std::vector<WeightLine> lines = read_weight_lines();
    ASSERT_EQ(lines.size(), 913u);
    EXPECT_EQ(eval_param_count, 913);
    for (size_t i = 0; i < lines.size(); ++i) {
        const EvalParam& entry = eval_params[i];
        ASSERT_EQ(lines[i].index, static_cast<i32>(i));
        EXPECT_EQ(lines[i].name, entry.name) << i;
        EXPECT_EQ(lines[i].mg, score_mg(entry.packed)) << i << ' ' << entry.name;
        EXPECT_EQ(lines[i].eg, score_eg(entry.packed)) << i << ' ' << entry.name;
        EXPECT_EQ(static_cast<f64>(lines[i].mg), entry.mg) << i << ' ' << entry.name;
        EXPECT_EQ(static_cast<f64>(lines[i].eg), entry.eg) << i << ' ' << entry.name;
        EXPECT_EQ(entry.coef, 0.0f);
        EXPECT_EQ(entry.frozen, 0);
    }
    expect_copies_in_step();
}

TEST(EvalWeights, ModeOneStopsAtTheUntunedValues)
{
    const WeightsRestored restored;
    set_position(start_position);
    build_weights(BaseWeights);
    EXPECT_EQ(eval_param_count, 913);
    for (const WeightLine& line : read_weight_lines()) {
        if (line.base_mg != "-") {
            EXPECT_EQ(std::stoi(line.base_mg), mg_of(line.index)) << line.name;
            EXPECT_EQ(std::stoi(line.base_eg), eg_of(line.index)) << line.name;
        }
        EXPECT_EQ(line.name, eval_params[line.index].name);
    }
    EXPECT_EQ(mg_of(ppawn + 4), 21); // ten sixteenths of 35, truncated
    expect_copies_in_step();
}

TEST(EvalWeights, NamesStandAtTheirPlacesInTheTable)
{
    EXPECT_EQ(mtl_pawn, 0);
    EXPECT_EQ(bishop_pair, 5);
    EXPECT_EQ(ppawn, 6);
    EXPECT_EQ(ppawn_mobile, 14);
    EXPECT_EQ(ppawn_free, 22);
    EXPECT_EQ(ppawn_fking_dist, 30);
    EXPECT_EQ(stm_bonus, 71);
    EXPECT_EQ(tmp8, 80);
    EXPECT_EQ(PST_P1, 81);
    EXPECT_EQ(PST_K, 81 + 7 * 64);
    EXPECT_EQ(PST_Q2, 849);
}

TEST(EvalWeights, NegativeMiddleGameHalfSurvivesThePacking)
{
    const i32 word = -1 + (5 << 16);
    EXPECT_EQ(score_mg(word), -1);
    EXPECT_EQ(score_eg(word), 5);
    EXPECT_EQ(pair(-1, 5), word);
    for (const i32 mg : { -32768, -1, 0, 1, 32767 }) {
        for (const i32 eg : { -32767, -1, 0, 1, 32767 }) {
            EXPECT_EQ(score_mg(pair(mg, eg)), mg) << mg << ' ' << eg;
            EXPECT_EQ(score_eg(pair(mg, eg)), eg) << mg << ' ' << eg;
        }
    }
    EXPECT_EQ(score_mg(3 * pair(-7, 5)), -21);
    EXPECT_EQ(score_eg(3 * pair(-7, 5)), 15);
}

TEST(EvalWeights, LineOutOfStepIsComplainedOfAndStoredAllTheSame)
{
    const WeightsRestored restored;
    set_position(start_position);
    param_cursor = rook_openfile;
    EXPECT_STREQ(fset("rook_7th", 1, 1), "rook_openfile");
    EXPECT_EQ(mg_of(rook_openfile), 1);
    EXPECT_EQ(eg_of(rook_openfile), 1);
    EXPECT_EQ(param_cursor, rook_7th);
    expect_copies_in_step();
}

TEST(EvalWeights, NameOfTheFirstEntryPutsTheCursorBack)
{
    const WeightsRestored restored;
    set_position(start_position);
    param_cursor = 500;
    EXPECT_EQ(fset("mtl_pawn", 90, 110), nullptr);
    EXPECT_EQ(param_cursor, 1);
    EXPECT_EQ(mg_of(mtl_pawn), 90);
    EXPECT_EQ(eg_of(mtl_pawn), 110);
}

TEST(EvalWeights, NothingIsStoredBehindTheTable)
{
    const WeightsRestored restored;
    set_position(start_position);
    param_cursor = weight_count;
    EXPECT_STREQ(fset("PST_Q2", 1, 1), "");
    EXPECT_EQ(param_cursor, weight_count);
}

// Sets a personality option and takes it back.
struct OptionChanged {
    OptionChanged(WeightScale& changed, i32 mg, i32 eg)
        : option(changed)
    {
        set_position(start_position);
        option[0] = static_cast<i16>(mg);
        option[1] = static_cast<i16>(eg);
        build_weights(NormalWeights);
    }

    ~OptionChanged()
    {
        option[0] = 100;
        option[1] = 100;
        build_weights(NormalWeights);
    }

    WeightScale& option;
};

TEST(EvalWeights, KnightActivityAtHalf)
{
    const OptionChanged changed(dialogue.engine_options.scales.Activity_Knight, 50, 50);
    EXPECT_EQ(mg_of(knight_mobility), 26); // 25.5 rounds away from zero
    EXPECT_EQ(eg_of(knight_mobility), 24);
    EXPECT_EQ(eval_params[knight_mobility].mg, 25.5); // the fraction stays in the real value
    EXPECT_EQ(mg_of(knight_outpost), 8);
    EXPECT_EQ(eg_of(knight_outpost), 6);
    EXPECT_EQ(mg_of(knight_outpost_atk), 4); // hit twice: a quarter of 16 and 18
    EXPECT_EQ(eg_of(knight_outpost_atk), 5);
    EXPECT_EQ(mg_of(PST_N1), -22); // -43 halved
    EXPECT_EQ(eg_of(PST_N1), -19);
    EXPECT_EQ(eval_params[PST_N2 + 63].mg, -32.0);
    EXPECT_EQ(mg_of(bishop_mobility), 31);
    EXPECT_EQ(mg_of(PST_B1), -21);
    expect_copies_in_step();
}

TEST(EvalWeights, PassedPawnsReachTheWholeFamily)
{
    const OptionChanged changed(dialogue.engine_options.scales.Passed_Pawns, 200, 0);
    EXPECT_EQ(mg_of(ppawn + 6), 174);
    EXPECT_EQ(eg_of(ppawn + 6), 0);
    EXPECT_EQ(mg_of(ppawn_mobile + 6), 226);
    EXPECT_EQ(mg_of(ppawn_free + 6), 416);
    EXPECT_EQ(mg_of(ppawn_fking_dist), -10);
    EXPECT_EQ(mg_of(ppawn_eking_dist), 14);
    EXPECT_EQ(mg_of(ppawn_connected), 68);
    EXPECT_EQ(mg_of(candidate_passer), 12);
    EXPECT_EQ(eg_of(candidate_passer), 0);
    EXPECT_EQ(mg_of(pawn_isolated), -8);
}

TEST(EvalWeights, OptionsReachTheirEntriesAndNoOther)
{
    struct Case {
        WeightScale* option;
        std::vector<const char*> names; // hit once
        std::vector<const char*> twice;
    };
    const Case cases[] = {
        { &dialogue.engine_options.scales.Mtl_Pawn, { "mtl_pawn" }, {} },
        { &dialogue.engine_options.scales.Mtl_Knight, { "mtl_knight" }, {} },
        { &dialogue.engine_options.scales.Mtl_Bishop, { "mtl_bishop" }, {} },
        { &dialogue.engine_options.scales.Mtl_Rook, { "mtl_rook" }, {} },
        { &dialogue.engine_options.scales.Mtl_Queen, { "mtl_queen" }, {} },
        { &dialogue.engine_options.scales.Activity_Knight,
            { "knight_mobility", "knight_outpost", "PST_N1", "PST_N2" }, { "knight_outpost_atk" } },
        { &dialogue.engine_options.scales.Activity_Bishop,
            { "bishop_mobility", "bishop_mob2", "bishop_outpost", "PST_B1", "PST_B2" },
            { "bishop_outpost_atk" } },
        { &dialogue.engine_options.scales.Activity_Rook,
            { "rook_mobility", "rook_mob2", "PST_R1", "PST_R2" }, {} },
        { &dialogue.engine_options.scales.Activity_Queen, { "queen_mobility", "PST_Q1", "PST_Q2" },
            {} },
        { &dialogue.engine_options.scales.Pawn_Structure,
            { "PST_P1", "PST_P2", "PST_CP", "PST_DP" }, {} },
        { &dialogue.engine_options.scales.Passed_Pawns,
            { "ppawn", "ppawn_mobile", "ppawn_free", "ppawn_fking_dist", "ppawn_eking_dist",
                "ppawn_connected", "candidate_passer" },
            {} },
        { &dialogue.engine_options.scales.King_Safety,
            { "king_danger1", "king_danger2", "enemy_checks" }, {} },
        { &dialogue.engine_options.scales.Threats,
            { "hung_pawn", "hung_minor", "hung_major", "attacked_pawn", "attacked_minor",
                "attacked_major", "knight_trapped", "bishop_trapped", "rook_trapped",
                "queen_trapped", "pinned_pawn", "pinned_piece" },
            {} },
    };
    const std::vector<WeightLine> lines = read_weight_lines();
    const auto holds = [](const std::vector<const char*>& names, const std::string& name) {
        for (const char* candidate : names) {
            if (name == candidate) {
                return true;
            }
        }
        return false;
    };
    for (const Case& one : cases) {
        const OptionChanged changed(*one.option, 300, 200);
        for (const WeightLine& line : lines) {
            const i32 times = holds(one.twice, line.name) ? 2 : holds(one.names, line.name);
            const i32 mg = times == 2 ? 9 * line.mg : times == 1 ? 3 * line.mg : line.mg;
            const i32 eg = times == 2 ? 4 * line.eg : times == 1 ? 2 * line.eg : line.eg;
            EXPECT_EQ(mg_of(line.index), mg) << one.names[0] << ' ' << line.name;
            EXPECT_EQ(eg_of(line.index), eg) << one.names[0] << ' ' << line.name;
        }
    }
}

TEST(EvalWeights, ScalingNarrowsTheRealValueToSingle)
{
    const OptionChanged changed(dialogue.engine_options.scales.Threats, 33, 100);
    EXPECT_EQ(eval_params[hung_minor].mg, static_cast<f64>(static_cast<f32>(33 * 0.01 * -66)));
    EXPECT_EQ(mg_of(hung_minor), -22);
}

TEST(EvalWeights, ScaleParamsTellsWhetherAnEntryMatched)
{
    const WeightsRestored restored;
    set_position(start_position);
    const WeightScale half = { 50, 50 };
    EXPECT_EQ(scale_params("stm_bonus", half), 0);
    EXPECT_EQ(scale_params("no such name", half), 1);
    EXPECT_EQ(mg_of(stm_bonus), 7);
    EXPECT_EQ(eg_of(stm_bonus), 8);
}

TEST(EvalWeights, OtherModesSkipThePersonalityOptions)
{
    const OptionChanged changed(dialogue.engine_options.scales.Mtl_Queen, 50, 50);
    EXPECT_EQ(mg_of(mtl_queen), 566);
    build_weights(PlainWeights);
    EXPECT_EQ(mg_of(mtl_queen), 1131);
}

TEST(EvalWeights, RebuildsDoNotCompoundAndEmptyBothCaches)
{
    const OptionChanged changed(dialogue.engine_options.scales.King_Safety, 70, 80);
    std::vector<i32> first(eval_words, eval_words + weight_count);
    Position* pos = set_position("r1bqkbnr/pppp1ppp/2n5/4p3/2B1P3/5N2/PPPP1PPP/RNBQK2R b KQkq -");
    SearchThread* thread = pos->thread;
    evaluate_at(thread, pos->stm, 2, 0);
    EXPECT_EQ(thread->eval_cache[pos->key & (eval_cache_size - 1)].key, pos->key);
    build_weights(NormalWeights);
    EXPECT_EQ(first, std::vector<i32>(eval_words, eval_words + weight_count));
    for (const EvalCacheEntry& slot : thread->eval_cache) {
        ASSERT_EQ(slot.key, 0u);
    }
    for (const PawnCacheEntry& slot : thread->pawn_cache) {
        ASSERT_EQ(slot.key, 0u);
    }
}

TEST(EvalWeights, TuneListFreezesAllOtherEntries)
{
    set_position(start_position);
    snprintf(tune_names.name[0], sizeof tune_names.name[0], "PST_N1");
    snprintf(tune_names.name[1], sizeof tune_names.name[1], "rook_mob"); // no exact name
    tune_names.count = 2;
    build_weights(NormalWeights);
    for (i32 i = 0; i < weight_count; ++i) {
        EXPECT_EQ(eval_params[i].frozen, strcmp(eval_params[i].name, "PST_N1") != 0) << i;
    }
    tune_names.count = 0;
    build_weights(NormalWeights);
    EXPECT_EQ(eval_params[mtl_pawn].frozen, 0);
}

// The file as the tuner writes it, with every value changed by one.
static std::string written_form(i32 entries)
{
    std::string text;
    for (const WeightLine& line : read_weight_lines()) {
        if (line.index < entries) {
            text += "fset(\"" + line.name + "\"," + std::to_string(line.mg + 1) + ","
                + std::to_string(line.eg - 1) + ");\n";
        }
    }
    return text;
}

TEST(EvalWeightsFile, WrittenFormIsReadBack)
{
    const ParamsFile file(written_form(weight_count));
    EXPECT_EQ(rebuild(), "");
    for (const WeightLine& line : read_weight_lines()) {
        EXPECT_EQ(mg_of(line.index), line.mg + 1) << line.name;
        EXPECT_EQ(eg_of(line.index), line.eg - 1) << line.name;
    }
    expect_copies_in_step();
}

TEST(EvalWeightsFile, ShortFileLeavesTheRestAtTheDefaults)
{
    const ParamsFile file(written_form(3));
    EXPECT_EQ(rebuild(), "");
    EXPECT_EQ(mg_of(mtl_bishop), 362);
    EXPECT_EQ(mg_of(mtl_rook), 498);
    EXPECT_EQ(param_cursor, 3);
}

TEST(EvalWeightsFile, ValuesReplaceTheScaledOnesAndAreNotScaled)
{
    const ParamsFile file("fset(\"mtl_pawn\",80,90);\nfset(\"mtl_knight\",300,310);\n");
    const OptionChanged changed(dialogue.engine_options.scales.Mtl_Knight, 50, 50);
    EXPECT_EQ(mg_of(mtl_pawn), 80);
    EXPECT_EQ(mg_of(mtl_knight), 300);
    EXPECT_EQ(eg_of(mtl_knight), 310);
}

TEST(EvalWeightsFile, NamesOutOfStepAreReportedAndTheValuesLandAtTheCursor)
{
    const ParamsFile file("fset(\"mtl_pawn\",1,2);\nfset(\"mtl_bishop\",3,4);\n"
                          "fset(\"stm_bonus\",-5,-6);\n");
    EXPECT_EQ(rebuild(), "error mtl_bishop  mtl_knight\nerror stm_bonus  mtl_bishop\n");
    EXPECT_EQ(mg_of(mtl_knight), 3);
    EXPECT_EQ(mg_of(mtl_bishop), -5);
    EXPECT_EQ(eg_of(mtl_bishop), -6);
    EXPECT_EQ(mg_of(stm_bonus), 14);
}

TEST(EvalWeightsFile, FileThatDoesNotBeginAtTheFirstEntryStoresNothing)
{
    const ParamsFile file("fset(\"mtl_knight\",1,2);\nfset(\"mtl_bishop\",3,4);\n");
    EXPECT_EQ(rebuild(), "error mtl_knight  \nerror mtl_bishop  \n");
    EXPECT_EQ(mg_of(mtl_knight), 361);
    EXPECT_EQ(mg_of(PST_Q2_last), -16);
}

TEST(EvalWeightsFile, CutLinesAreIgnored)
{
    const ParamsFile file("fset(\"mtl_pawn\",80,90);\n\nfset\nfset(\"mtl_knight\n"
                          "fset(\"mtl_knight\",7\nfset(\"mtl_knight\",,,\n(((((\n"
                          "fset(\"mtl_knight\",300,310);\nfset(\"mtl_bishop\",320");
    EXPECT_EQ(rebuild(), "");
    EXPECT_EQ(mg_of(mtl_pawn), 80);
    EXPECT_EQ(mg_of(mtl_knight), 300);
    EXPECT_EQ(eg_of(mtl_knight), 310);
    EXPECT_EQ(mg_of(mtl_bishop), 361);
    EXPECT_EQ(param_cursor, mtl_bishop);
}

TEST(EvalWeightsFile, LinesWithoutNumbersAreIgnored)
{
    const ParamsFile file("fset(\"mtl_pawn\",one,two);\nfset(\"mtl_knight\",5,six);\n");
    EXPECT_EQ(rebuild(), "");
    EXPECT_EQ(mg_of(mtl_pawn), 100);
    EXPECT_EQ(mg_of(mtl_knight), 361);
}

TEST(EvalWeightsFile, FiveThousandLinesStopAtTheEndOfTheTable)
{
    std::string text = "fset(\"mtl_pawn\",100,100);\n";
    for (i32 i = 1; i < 5000; ++i) {
        text += "fset(\"x\",1,1);\n";
    }
    const ParamsFile file(text);
    const std::string printed = rebuild();
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 4999);
    EXPECT_EQ(param_cursor, weight_count);
    EXPECT_EQ(mg_of(PST_Q2_last), 1);
    EXPECT_STREQ(eval_params[weight_count - 1].name, "PST_Q2");
    EXPECT_EQ(eval_param_count, weight_count);
    EXPECT_NE(evaluate_text("r3k2r/8/8/8/8/8/PPPPPPPP/R3K2R w KQkq -"), no_eval);
}

TEST(EvalWeightsFile, BinaryBytesAreHarmless)
{
    std::string text = "fset(\"mtl_pawn\",100,101);\n";
    u32 state = 12345;
    for (i32 i = 0; i < 100000; ++i) {
        state = state * 1664525 + 1013904223;
        text += static_cast<char>(state >> 24);
    }
    const ParamsFile file(text);
    rebuild();
    EXPECT_EQ(eg_of(mtl_pawn), 101);
    EXPECT_EQ(eval_param_count, weight_count);
    EXPECT_STREQ(eval_params[mtl_knight].name, "mtl_knight");
    expect_copies_in_step();
}

TEST(EvalWeightsFile, LongLineIsReadInPieces)
{
    // The first 254 characters end inside of the padding; the rest is a line of its own.
    const std::string head = "fset(\"mtl_pawn\",70,71);";
    const std::string text =
        head + std::string(254 - head.size(), ' ') + "fset(\"mtl_knight\",72,73);\n";
    const ParamsFile file(text);
    EXPECT_EQ(rebuild(), "");
    EXPECT_EQ(mg_of(mtl_pawn), 70);
    EXPECT_EQ(mg_of(mtl_knight), 72);
}

TEST(EvalWeightsFile, AbsurdNumbersAreTakenAndTheEvaluationRuns)
{
    std::string text;
    for (const WeightLine& line : read_weight_lines()) {
        text += "fset(\"" + line.name + "\",";
        text +=
            line.index % 2 ? "2147483647,-2147483648);\n" : "-2147483648,99999999999999999999);\n";
    }
    const ParamsFile file(text);
    EXPECT_EQ(rebuild(), "");
    EXPECT_EQ(eval_params[1].mg, 2147483647.0);
    evaluate_text("r1bqk2r/pp3ppp/2n1pn2/2pp4/1bPP4/2N1PN2/PP3PPP/R1BQKB1R w KQkq -");
    evaluate_text("8/1P1k4/8/4pP2/8/2K3p1/6P1/1r2R3 b - -");
}

TEST(EvalWeightsFile, MissingFileIsNormal)
{
    const ParamsFile file("");
    unlink(params_file);
    EXPECT_EQ(rebuild(), "");
    EXPECT_EQ(mg_of(mtl_pawn), 100);
}

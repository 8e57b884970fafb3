// Training lines on their way to positions of the trainer: which are taken, with what target, and
// what is refused; and the threads that share the work.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "test_support.h"
#include "base/files.h"
#include "eval/evaluate.h"
#include "tools/trainer/training_data.h"

static const std::string start = start_position;
static const std::string black = "r1bqkbnr/pppp1ppp/2n5/4p3/2B1P3/5N2/PPPP1PPP/RNBQK2R b KQkq -";

struct Gathered {
    LineVerdict verdict;
    u32 words;
    TrainingPosition position;
    std::vector<u32> terms;
};

struct TuneGather : testing::Test {
    void SetUp() override
    {
        set_position(start_position);
        build_weights(PlainWeights);
        gatherer = {};
        gatherer.rule = usual_rule;
        gatherer.thread = dialogue.game;
    }

    void TearDown() override
    {
        tune_names.count = 0;
        build_weights(PlainWeights);
        exit_status = 0;
    }

    Gathered gather(const std::string& line)
    {
        std::vector<u32> out(most_position_words);
        Gathered gathered = {};
        gathered.verdict = gather_line(&gatherer, line.c_str(), true, out.data(), &gathered.words);
        memcpy(&gathered.position, out.data(), sizeof gathered.position);
        if (gathered.verdict == LineUsed) {
            gathered.terms.assign(
                out.begin() + position_words, out.begin() + static_cast<i32>(gathered.words));
        }
        return gathered;
    }

    f64 target(const std::string& line)
    {
        const Gathered gathered = gather(line);
        EXPECT_EQ(gathered.verdict, LineUsed) << line;
        return static_cast<f64>(gathered.position.target);
    }

    Gatherer gatherer;
};

static f64 expected(i32 score)
{
    return 1.0 / (1.0 + exp(-0.007 * score));
}

TEST_F(TuneGather, TargetsAreFromWhitesView)
{
    EXPECT_NEAR(target(start + " ce 100; gr 1.0;"), 0.9 + 0.1 * expected(100), 1e-6);
    EXPECT_NEAR(target(black + " ce 100; gr 1.0;"), 1.0 - (0.9 + 0.1 * expected(100)), 1e-6);
    EXPECT_NEAR(target(start + " ce 100; c9 \"0-1\";"), 0.1 * expected(100), 1e-6);
    EXPECT_NEAR(target(black + " ce 100; c9 \"1-0\";"), 1.0 - 0.1 * expected(100), 1e-6);
    EXPECT_NEAR(target(black + " ce 100; [1.0]"), 1.0, 1e-6);
    EXPECT_NEAR(target(black + " [0.5]"), 0.5, 1e-6);
    EXPECT_NEAR(target(start + " gr 0.25;"), 0.25, 1e-6);
    EXPECT_NEAR(target(black + " c9 \"1-0\";"), 1.0, 1e-6);
    EXPECT_NEAR(target(black + " ce 100;"), 1.0 - expected(100), 1e-6);
    EXPECT_NEAR(target(start + " 0 1 ce -5000; gr 0.5;"), 0.45, 1e-6);
}

// A target made of a raw record is the one that the line gives at once, but for the last digit.
TEST_F(TuneGather, TargetsAreBlendedByTheRule)
{
    gatherer.rule.score_share = 0.6;
    gatherer.rule.factor = 0.004f;
    const f64 won = 1.0 / (1.0 + exp(-0.4));
    const std::pair<std::string, f64> lines[] = {
        { start + " ce 100; gr 1.0;", 0.4 + 0.6 * won },
        { black + " ce 100; gr 1.0;", 0.6 * (1.0 - won) },
        { black + " ce 100;", 1.0 - won },
        { black + " gr 0.25;", 0.75 },
        { start + " ce 100; [0.0]", 0.0 },
    };
    for (const auto& [line, wanted] : lines) {
        gatherer.rule.fits = false;
        gatherer.rule.is_raw = false;
        EXPECT_NEAR(target(line), wanted, 1e-6) << line;
        gatherer.rule.fits = true;
        gatherer.rule.is_raw = true;
        TrainingPosition position = gather(line).position;
        settle_target(&position, &gatherer.rule);
        EXPECT_NEAR(static_cast<f64>(position.target), wanted, 1e-6) << line;
        // Read again once the factor is known: the same to the last digit.
        gatherer.rule.is_raw = false;
        EXPECT_EQ(gather(line).position.target, position.target) << line;
    }
}

TEST_F(TuneGather, PositionsCountByPhaseAndScore)
{
    const std::string bare = "4k3/1p3p2/8/8/8/8/1P3PP1/4K3 w - -";
    EXPECT_EQ(gather(start + " ce 300; gr 1;").position.emphasis, 1.0f);
    EXPECT_EQ(gather(bare + " gr 1;").position.emphasis, 1.0f);
    gatherer.rule.late = 3.0;
    EXPECT_EQ(gather(start + " gr 1;").position.emphasis, 1.0f);
    const TrainingPosition ending = gather(bare + " gr 1;").position;
    EXPECT_NEAR(
        static_cast<f64>(ending.emphasis), 1.0 + 2.0 * static_cast<f64>(ending.phase), 1e-6);
    gatherer.rule.late = 1.0;
    gatherer.rule.near_draw = 300.0;
    EXPECT_EQ(gather(start + " ce 300; gr 1;").position.emphasis, 0.5f);
    EXPECT_EQ(gather(black + " ce -300; gr 1;").position.emphasis, 0.5f);
    EXPECT_EQ(gather(start + " ce 0; gr 1;").position.emphasis, 1.0f);
    // Without a score the evaluation judges.
    EXPECT_GT(gather(start + " gr 1;").position.emphasis, 0.9f);
    EXPECT_LT(gather("4k3/1p3p2/8/8/8/8/1P3PP1/QQ2K3 w - - gr 1;").position.emphasis, 0.05f);
}

TEST_F(TuneGather, LinesAreTakenLeftOutOrRefused)
{
    const std::pair<std::string, LineVerdict> lines[] = {
        { "", LineComment },
        { "# text", LineComment },
        { "; text", LineComment },
        { " " + start, LineComment },
        { start + " ce 1; gr 1;", LineUsed },
        { start + " ce 5001; gr 1;", LineFarScore },
        { start + " ce -99999999999999999999; gr 1;", LineFarScore },
        { "4k3/8/8/8/8/8/4r3/4K3 w - - gr 1;", LineInCheck },
        { "4k3/8/8/8/8/8/8/Q3K3 w - - gr 1;", LineWithoutWeights },
        { "nonsense", LineBadFields },
        { "4k3/8/8/8/8/8/8/4K3", LineBadFields },
        { "4k3/8/8/8/8/8/8/4K3 x - - gr 1;", LineBadFields },
        { "4k3/8/8/8/8/8/8/4K3 w", LineBadFields },
        { "4k3/8/8/8/8/8/8/4K3 w -", LineBadFields },
        { "4k3/8/8/8/8/8/8/R3K3 w K - gr 1;", LineBadCastling },
        { "8/8/8/8/8/8/8/4K3 w - - gr 1;", LineBadBoard },
        { "4k3/8/8/8/8/8/8/4K2P w - - gr 1;", LineBadBoard },
        { start + " ce ten; gr 1;", LineBadScore },
        { start + " ce 1x; gr 1;", LineBadScore },
        { start + " ce 1; gr 1.5;", LineBadResult },
        { start + " ce 1; gr -1;", LineBadResult },
        { start + " ce 1; gr nan;", LineBadResult },
        { start + " ce 1; gr ;", LineBadResult },
        { start + " ce 1; gr 1/2;", LineBadResult },
        { start + " ce 1; gr 0-1;", LineBadResult },
        { start + " ce 1; gr 0,5;", LineBadResult },
        { start + " ce 1; gr .;", LineBadResult },
        { start + " ce 1; gr .nan;", LineBadResult },
        { start + " gr 1 ce 1;", LineBadResult },
        { start + " ce 1; gr 0.5 ;", LineUsed },
        { start + " ce 1; gr 0.3333333333333333333333;", LineUsed },
        { start + " ce 1; gr 0.5", LineUsed },
        { black + " gr 0.0; c9 \"a remark\";", LineBadResult },
        { start + " ce 1; c9 \"*\";", LineBadResult },
        { black + " ce 1; c9 \"*\";", LineBadResult },
        { start + " id \"x\";", LineUnjudged },
        { start, LineUnjudged },
    };
    for (const auto& [line, verdict] : lines) {
        const Gathered gathered = gather(line);
        EXPECT_EQ(gathered.verdict, verdict) << line;
        EXPECT_EQ(gathered.words != 0, verdict == LineUsed) << line;
        EXPECT_NE(refusal_text(gathered.verdict), nullptr);
    }
}

// The score of a record with the table's weights.
static f64 score_of(const Gathered& gathered)
{
    const f64 phase = static_cast<f64>(gathered.position.phase);
    f64 sum = static_cast<f64>(gathered.position.fixed);
    for (const u32 term : gathered.terms) {
        const EvalParam* entry = &eval_params[term_weight(term)];
        sum += static_cast<f64>(term_coef(term)) * ((1.0 - phase) * entry->mg + phase * entry->eg);
    }
    return sum * static_cast<f64>(gathered.position.scale[sum > 0 ? White : Black]);
}

TEST_F(TuneGather, RecordsGiveTheScoreWhateverIsTrained)
{
    const std::string endgame = "8/5pk1/4b1p1/7p/7P/3B2P1/5PK1/8 w - -";
    for (const std::string& fen : { start, black, endgame }) {
        set_position(fen);
        const i32 score = evaluate_at(dialogue.game, White, 1, 0);
        for (i32 names = 0; names < 3; ++names) {
            snprintf(tune_names.name[0], sizeof tune_names.name[0], "mtl_bishop");
            snprintf(tune_names.name[1], sizeof tune_names.name[1], "PST_P1");
            tune_names.count = names;
            build_weights(PlainWeights);
            const Gathered gathered = gather(fen + " gr 1;");
            EXPECT_NEAR(score_of(gathered), score, 20) << fen;
            for (const u32 term : gathered.terms) {
                EXPECT_EQ(eval_params[term_weight(term)].frozen, 0);
                EXPECT_NE(term_weight(term), mtl_pawn);
            }
        }
    }
    EXPECT_FALSE(gatherer.check.failed);
    EXPECT_EQ(gatherer.check.positions, 9);
    EXPECT_GT(gatherer.counts[stm_bonus], 0);
    EXPECT_EQ(gatherer.counts[mtl_queen], 0);
}

TEST_F(TuneGather, WeightsThatOverflowTheirHalvesAreNoticed)
{
    set_weight(mtl_queen, 30000, 30000);
    set_weight(mtl_rook, 30000, 30000);
    gather("1n2k3/pppppppp/8/8/8/8/PPPPPPPP/R2QK3 w - - gr 1;");
    EXPECT_TRUE(gatherer.check.failed);
    gather(start + " gr 1;");
    EXPECT_TRUE(gatherer.check.failed);
    EXPECT_EQ(gatherer.check.positions, 2);
}

TEST_F(TuneGather, CoefficientsAreKeptFinely)
{
    for (const f32 coef : { 0.0f, 1.0f, -1.0f, 0.17f, -0.51f, 16.0f, -100.0f }) {
        const u32 term = static_cast<u32>(std::lround(coef / coef_step)) << weight_bits | 912u;
        EXPECT_NEAR(static_cast<f64>(term_coef(term)), static_cast<f64>(coef), 1e-4);
        EXPECT_EQ(term_weight(term), 912);
    }
}

// ---- Threads

TEST(TuneTeam, EveryPartIsDoneOnce)
{
    struct Work {
        std::atomic<i32> done[100];
    };
    Team* team = new Team {};
    for (const i32 size : { 1, 2, 5 }) {
        start_team(team, size);
        for (i32 round = 0; round < 200; ++round) {
            Work work = {};
            const i32 parts = round % 100;
            run_team(
                team, parts,
                [](void* context, i32, i32 part) { static_cast<Work*>(context)->done[part]++; },
                &work);
            for (i32 part = 0; part < 100; ++part) {
                ASSERT_EQ(work.done[part], part < parts);
            }
        }
        end_team(team);
    }
    delete team;
}

// ---- Files

struct TuneData : TuneGather {
    void SetUp() override
    {
        TuneGather::SetUp();
        start_team(team, 1);
        start_data(1 << 30, 0);
    }

    void start_data(i64 memory_limit, i64 seed)
    {
        data = {};
        data.team = team;
        data.gatherers = &gatherer;
        data.memory_limit = memory_limit;
        data.seed = seed;
        data.validation = 20;
    }

    void TearDown() override
    {
        free_training_data(&data);
        end_team(team);
        delete team;
        unlink(name);
        TuneGather::TearDown();
    }

    // Loads the text and returns what standard error is told.
    std::string load_text(const std::string& text)
    {
        std::ofstream(name, std::ios::binary) << text;
        testing::internal::CaptureStderr();
        loaded = load_training_data(&data, name, [](TrainingData*) { return true; });
        return testing::internal::GetCapturedStderr();
    }

    // All words of a part, in the order of the sweep.
    std::vector<u32> sweep(Part part)
    {
        std::vector<u32> words;
        i32 count = 0;
        start_sweep(&data, part);
        while (const Chunk* chunks = next_batch(&data, &count)) {
            for (i32 i = 0; i < count; ++i) {
                const u32* first = chunks[i].words[part];
                words.insert(words.end(), first, first + chunks[i].size[part]);
            }
        }
        return words;
    }

    static constexpr char name[] = "tune_data.epd";
    TrainingData data;
    Team* team = new Team {};
    bool loaded = false;
};

// Lines enough for several batches.
static std::string many_lines()
{
    std::string text;
    for (i32 i = 0; i < 9000; ++i) {
        text += (i % 3 == 0 ? start : black) + " ce " + std::to_string(i % 100) + "; gr 0.5;\n";
    }
    return text;
}

TEST_F(TuneData, PartsAreTheSameKeptOrReadAgain)
{
    EXPECT_EQ(load_text(many_lines()), "");
    EXPECT_TRUE(loaded);
    EXPECT_TRUE(data.is_kept);
    EXPECT_EQ(data.positions[TrainingPart] + data.positions[ValidationPart], 9000);
    EXPECT_NEAR(static_cast<f64>(data.positions[ValidationPart]), 1800.0, 600.0);
    const std::vector<u32> training = sweep(TrainingPart);
    const std::vector<u32> validation = sweep(ValidationPart);
    EXPECT_EQ(sweep(TrainingPart), training);
    EXPECT_GT(training.size(), validation.size());
    free_training_data(&data);

    start_data(1000, 0);
    EXPECT_EQ(load_text(many_lines()), "");
    EXPECT_FALSE(data.is_kept);
    EXPECT_EQ(data.chunk_count, batch_chunks);
    EXPECT_EQ(sweep(TrainingPart), training);
    EXPECT_EQ(sweep(ValidationPart), validation);
    EXPECT_EQ(sweep(TrainingPart), training);
}

TEST_F(TuneData, TheSeedChoosesTheValidationLines)
{
    load_text(many_lines());
    const std::vector<u32> first = sweep(ValidationPart);
    free_training_data(&data);
    start_data(1 << 30, 2);
    load_text(many_lines());
    EXPECT_NE(sweep(ValidationPart), first);
}

// Lines of 300 games of 7 lines; the score tells the game.
static std::string lines_of_games(bool told)
{
    std::string text;
    for (i32 i = 0; i < 2100; ++i) {
        const std::string game = std::to_string(i / 7);
        text +=
            start + " ce " + game + "; gr 0.5;" + (told ? " c0 \"game " + game + "\";" : "") + "\n";
    }
    return text;
}

// How many lines of each game a part has.
static std::map<i16, i32> games_of(const std::vector<u32>& words)
{
    std::map<i16, i32> games;
    for (size_t i = 0; i < words.size();) {
        TrainingPosition position;
        memcpy(&position, &words[i], sizeof position);
        ++games[position.score];
        i += position_words + position.terms;
    }
    return games;
}

TEST_F(TuneData, AGameIsHeldOutAsAWhole)
{
    EXPECT_EQ(load_text(lines_of_games(true)), "");
    EXPECT_EQ(data.game_lines, 2100);
    const std::map<i16, i32> trained = games_of(sweep(TrainingPart));
    const std::map<i16, i32> held_out = games_of(sweep(ValidationPart));
    EXPECT_EQ(trained.size() + held_out.size(), 300u);
    EXPECT_NEAR(static_cast<f64>(held_out.size()), 60.0, 25.0);
    for (const auto& [game, lines] : held_out) {
        EXPECT_EQ(trained.count(game), 0u) << game;
        EXPECT_EQ(lines, 7) << game;
    }
    EXPECT_EQ(trained.count(0), 1u) << "the first game trains";
}

TEST_F(TuneData, LinesThatTellNoGameAreHeldOutInGroups)
{
    load_text(lines_of_games(false));
    EXPECT_EQ(data.game_lines, 0);
    EXPECT_EQ(games_of(sweep(TrainingPart)).count(0), 1u) << "the first lines train";
    i32 shared = 0;
    const std::map<i16, i32> trained = games_of(sweep(TrainingPart));
    for (const auto& [game, lines] : games_of(sweep(ValidationPart))) {
        shared += trained.count(game) != 0;
    }
    EXPECT_GT(shared, 0);
}

// Only games follow the seed and the key: the same game is on one side wherever its lines stand.
TEST_F(TuneData, LinesOfAGameNeedNotStandTogether)
{
    std::string text;
    for (i32 i = 0; i < 2100; ++i) {
        const std::string game = std::to_string(i % 300);
        text += start + " ce " + game + "; gr 0.5; c0 \"game " + game + "\";\n";
    }
    load_text(text);
    const std::map<i16, i32> trained = games_of(sweep(TrainingPart));
    for (const auto& [game, lines] : games_of(sweep(ValidationPart))) {
        EXPECT_EQ(trained.count(game), 0u) << game;
        EXPECT_EQ(lines, 7) << game;
    }
}

TEST_F(TuneData, OneGameAloneTrains)
{
    for (i64 seed = 0; seed < 20; ++seed) {
        load_text(start + " gr 0.5; c0 \"game 7\";\n" + black + " gr 0.5; c0 \"game 7\";\n");
        EXPECT_EQ(data.positions[TrainingPart], 2) << seed;
        free_training_data(&data);
        start_data(1 << 30, seed);
    }
}

TEST_F(TuneData, LinesWithoutPositionsTakeNoMemory)
{
    load_text(start + " gr 1;\n" + std::string(50000, '\n'));
    EXPECT_TRUE(data.is_kept);
    i64 capacity = 0;
    for (i64 i = 0; i < data.chunk_count; ++i) {
        capacity += data.chunks[i].capacity[TrainingPart] + data.chunks[i].capacity[ValidationPart];
    }
    EXPECT_EQ(capacity, data.chunks[0].size[TrainingPart]);
}

TEST_F(TuneData, RefusedLinesAreToldByFileAndNumber)
{
    std::string zero = start + " gr 1;";
    zero[3] = '\0';
    const std::string fitting = start + " ce 1; gr 1; id \"";
    const std::string text = "\xef\xbb\xbf" + start + " gr 1;\r\n" + "# comment\n" + "nonsense\n"
        + std::string(1000000, 'x') + "\n" + zero + "\n" + fitting
        + std::string(254 - 2 - fitting.size(), 'x') + "\";\n" + fitting
        + std::string(255 - 2 - fitting.size(), 'x') + "\";\n" + start + " gr 1;";
    EXPECT_EQ(load_text(text),
        "tune_data.epd:3: does not begin with the four fields of a position\n"
        "tune_data.epd:4: is longer than 254 characters\n"
        "tune_data.epd:5: is no text\n"
        "tune_data.epd:7: is longer than 254 characters\n");
    EXPECT_TRUE(loaded);
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(data.positions[TrainingPart] + data.positions[ValidationPart], 3);
}

TEST_F(TuneData, ManyRefusedLinesAreSummedUp)
{
    std::string text = start + " gr 1;\n";
    for (i32 i = 0; i < 5000; ++i) {
        text += "x\n";
    }
    const std::string errors = load_text(text);
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 100);
    testing::internal::CaptureStderr();
    free_training_data(&data);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "tune_data.epd: 4900 messages more\n");
    start_data(1, 0);
}

TEST_F(TuneData, FilesOfNoUseAreRefused)
{
    EXPECT_EQ(load_text(""), "tune_data.epd: no position to train on\n");
    EXPECT_FALSE(loaded);
    EXPECT_EQ(exit_status, 1);
    free_training_data(&data);
    exit_status = 0;
    start_data(1, 0);
    testing::internal::CaptureStderr();
    const auto go_on = [](TrainingData*) { return true; };
    EXPECT_FALSE(load_training_data(&data, "/nowhere/at/all", go_on));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "/nowhere/at/all: cannot be opened: No such file or directory\n");
    EXPECT_EQ(exit_status, 1);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(load_training_data(&data, "/", go_on));
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

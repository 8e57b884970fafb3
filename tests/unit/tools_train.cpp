// The training loop: what it prints and counts, when it ends, and the file that it writes.
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

#include "shell_test_support.h"
#include "base/files.h"
#include "base/output.h"
#include "eval/evaluate.h"
#include "shell/weights_file.h"
#include "tools/tools.h"
#include "tools/training_line.h"

struct TrainEpd : ShellTest {
    void SetUp() override
    {
        ShellTest::SetUp();
        build_weights(NormalWeights);
    }

    // Training with the given method; input stays open and empty.
    std::string train(const std::string& text, i32 method, i64 limit)
    {
        write_file("t.epd", text);
        return capture_output([&] { train_epd(&dialogue, "t.epd", method, limit, 0.001); });
    }

    FedInput input;
};

static const std::string start = start_position;
static const std::string refused = "4k3/8/8/8/8/8/8/4K3 w K - ce 1; gr 0.5;\n";
static const std::string refused_output =
    "Illegal EPD - \n4k3/8/8/8/8/8/8/4K3 w K - ce 1; gr 0.5;\n\ndone.\n";

static std::string head_of(const std::string& text, const std::string& name = "t.epd")
{
    return "Training using " + name + ", " + std::to_string(text.size()) + " bytes ...\n";
}

static f64 expected_error(const std::string& fen, f64 target)
{
    Position* pos = set_position(fen);
    const i32 value = evaluate_at(pos->thread, pos->stm, 1, 0);
    return std::fabs(static_cast<f64>(sigmoid(static_cast<f32>(value))) - target);
}

TEST_F(TrainEpd, AMissingFileEndsItWithoutAWord)
{
    samples = 5;
    EXPECT_EQ(capture_output([] { train_epd(&dialogue, "none.epd", 1, 10, 0.1); }), "");
    EXPECT_EQ(samples, 0);
    EXPECT_EQ(load(dialogue.limits.depth_limit), 1);
    EXPECT_EQ(load(noise), 9999.0);
    EXPECT_EQ(dialogue.engine_options.hash, 0);
    ASSERT_EQ(system("mkdir folder"), 0);
    EXPECT_EQ(capture_output([] { train_epd(&dialogue, "folder", 1, 10, 0.1); }), "");
}

TEST_F(TrainEpd, AnEmptyFileEndsItAfterItsPass)
{
    EXPECT_EQ(train("", 5, 10),
        "Training using t.epd, 0 bytes ...\navg err= 0.00000\npass = 2, rewinding EPD file\n"
        "\ndone.\n");
}

TEST_F(TrainEpd, ARefusedPositionIsPrintedAndEndsIt)
{
    const std::string text = "# comment\n\n" + start + " ce 1; gr 0.5;\n" + refused;
    EXPECT_EQ(train(text, 5, 10), head_of(text) + refused_output);
    EXPECT_EQ(samples, 0);
}

TEST_F(TrainEpd, OnlyMethodOneTakesSamples)
{
    for (const i32 method : { 0, 2, 5 }) {
        train(start + " ce 1; gr 0.5;\n" + refused, method, 10);
        EXPECT_EQ(samples, 0);
        EXPECT_EQ(err_sum, 0.0);
    }
    train(start + " ce 1; gr 0.5;\n" + refused, 1, 10);
    EXPECT_EQ(samples, 1);
}

TEST_F(TrainEpd, EachFormOfTheResultGivesItsTarget)
{
    const std::string black = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBN1 b Qkq -";
    struct Line {
        std::string fen;
        const char* rest;
        f64 target;
    };
    const f64 half = static_cast<f64>(sigmoid(50.0f));
    const Line lines[] = {
        { start, " ce 50; gr 1.0;", 0.9 + 0.1 * half },
        { black, " ce 50; gr 1.0;", 0.9 + 0.1 * half },
        { start, " ce 50;", half },
        { start, " gr 0.5;", 0.5 },
        { black, " ce 50; c9 \"1-0\";", 0.1 * half },
        { black, " ce 50; [1.0]", 0.0 },
        { start, " ce 50; [1.0]", 1.0 },
        { start, " ce 50; gr 0.0; [0.5]", 0.5 },
        { start, " ce 5000; gr 0.0;", 0.1 },
        { start, " ce -5000; gr 1.0;", 0.9 },
    };
    for (const Line& line : lines) {
        train(line.fen + line.rest + "\n" + refused, 1, 10);
        EXPECT_EQ(samples, 1) << line.rest;
        EXPECT_NEAR(err_sum, expected_error(line.fen, line.target), 1e-6) << line.rest;
    }
}

TEST_F(TrainEpd, ScoresOutOfRangeAndBoardsOfNoUseAreSkipped)
{
    train(start + " ce 5001; gr 0.5;\n" + start + " ce -5001; gr 0.5;\n" + start
            + " ce 99999999999999999999; gr 0.5;\n" + "8/8/8/8/8/8/8/4K3 w - - ce 1; gr 0.5;\n"
            + "nonsense\n\n" + std::string(1000, 'x') + "\n" + refused,
        1, 10);
    EXPECT_EQ(samples, 0);
}

TEST_F(TrainEpd, PassesAreReportedUntilTheLimit)
{
    const std::string line = start + " ce 0; gr 1.0;\n";
    const std::string text = line + "; comment\n" + line;
    char average[40];
    snprintf(average, sizeof average, "avg err= %0.5f\n", expected_error(start, 0.95));
    EXPECT_EQ(train(text, 1, 5),
        head_of(text) + average + "pass = 2, rewinding EPD file\n" + average
            + "pass = 3, rewinding EPD file\n\ndone.\n");
    EXPECT_EQ(samples, 5);
}

TEST_F(TrainEpd, AByteOrderMarkAndCarriageReturnsAreNoHindrance)
{
    train("\xef\xbb\xbf" + start + " ce 0; gr 1.0;\r\n" + refused, 1, 10);
    EXPECT_EQ(samples, 1);
}

TEST_F(TrainEpd, QuitAndTheEndOfInputEndItBetweenPasses)
{
    const std::string text = start + " ce 0; gr 1.0;\n";
    store(uci_mode, 0);
    input.feed("quit\n");
    const std::string once =
        head_of(text) + "avg err= 0.00000\npass = 2, rewinding EPD file\n\ndone.\n";
    EXPECT_EQ(train(text, 5, 10), once);
    EXPECT_EQ(dialogue.quit_flag, 1);
    dialogue.quit_flag = 0;
    input.feed(".\n");
    EXPECT_EQ(train(text, 5, 10), once);
    // The second training, asked for in the middle of the first, is not begun.
    input.feed("tune stm_bonus\n");
    input.end();
    write_file("tune.epd", text);
    const std::string output = train(text, 5, 10);
    EXPECT_EQ(output.substr(0, once.size() - 7), once.substr(0, once.size() - 7));
    EXPECT_EQ(output.find("tune.epd"), std::string::npos);
    tune_names.count = 0;
    build_weights(NormalWeights);
}

// A quiet position with an even result, so many times.
static std::string repeated_line(i32 count)
{
    std::string text;
    for (i32 i = 0; i < count; ++i) {
        text += "4k3/4p3/8/8/8/8/4P3/4K3 w - - ce 0; gr 0.5;\n";
    }
    return text;
}

TEST_F(TrainEpd, InputIsLookedAtEvery8000Samples)
{
    const std::string text = repeated_line(16000);
    store(uci_mode, 0);
    input.feed(".\n");
    EXPECT_EQ(train(text, 1, 20000), head_of(text) + "\ndone.\n");
    EXPECT_EQ(samples, 7999);
    input.feed("quit\n");
    EXPECT_EQ(train(text, 1, 20000), head_of(text) + "\ndone.\n");
    EXPECT_EQ(samples, 7999);
    dialogue.quit_flag = 0;
    EXPECT_EQ(train(text, 1, 15999), head_of(text) + "\ndone.\n");
    EXPECT_EQ(samples, 15999);
}

TEST_F(TrainEpd, TheWeightsFileHoldsTheTableAsItStood)
{
    set_weight(bishop_pair, -120.4, 150.5);
    std::string expected;
    for (const EvalParam& entry : eval_params) {
        expected += "fset(\"" + std::string(entry.name) + "\","
            + std::to_string(score_mg(entry.packed)) + "," + std::to_string(score_eg(entry.packed))
            + ");\n";
    }
    write_file("params.txt", "an old file");
    // Ten thousand lines a pass; the file is written with the last sample but one.
    const std::string text = repeated_line(10000);
    train(text, 1, 299998);
    EXPECT_EQ(read_file("params.txt"), "an old file");
    train(text, 1, 299999);
    EXPECT_EQ(read_file("params.txt"), expected);
    EXPECT_EQ(access("params.part", F_OK), -1);
    EXPECT_EQ(exit_status, 0);

    const i32 packed = eval_params[bishop_pair].packed;
    EXPECT_EQ(capture_output([] { build_weights(NormalWeights); }), "");
    EXPECT_EQ(eval_params[bishop_pair].packed, packed);
    EXPECT_EQ(save_params_file(params_file), 0);
    EXPECT_EQ(read_file("params.txt"), expected);
}

TEST_F(TrainEpd, AWeightsFileThatCannotBeWrittenLeavesTheOldOne)
{
    signal(SIGXFSZ, SIG_IGN); // as main has it
    write_file("params.txt", "an old file");
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = 1000;
    setrlimit(RLIMIT_FSIZE, &small);
    testing::internal::CaptureStderr();
    write_weights(params_file);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(), "params.txt: cannot be written: File too large\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("params.txt"), "an old file");
    EXPECT_EQ(access("params.part", F_OK), -1);
    ASSERT_EQ(system("rm params.txt && mkdir params.txt"), 0);
    testing::internal::CaptureStderr();
    write_weights(params_file);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(access("params.part", F_OK), -1);
}

// ---- The console's word

struct ConsoleTune : ConsoleTest {
    void TearDown() override
    {
        tune_names.count = 0;
        ConsoleTest::TearDown();
    }
};

TEST_F(ConsoleTune, WithoutANameNothingHappens)
{
    EXPECT_EQ(say("tune"), "");
    EXPECT_EQ(tune_names.count, 0);
    EXPECT_EQ(load(noise), 0.0);
}

TEST_F(ConsoleTune, NamesAreListedAndTheFileIsWalked)
{
    EXPECT_EQ(say("tune stm_bonus PST_K"), "done!\n");
    EXPECT_EQ(tune_names.count, 2);
    EXPECT_STREQ(tune_names.name[1], "PST_K");
    EXPECT_EQ(eval_params[mtl_pawn].frozen, 0); // not before the next rebuild
    build_weights(NormalWeights);
    EXPECT_EQ(eval_params[mtl_pawn].frozen, 1);
    EXPECT_EQ(eval_params[stm_bonus].frozen, 0);
    EXPECT_EQ(eval_params[PST_K + 63].frozen, 0);

    write_file("tune.epd", refused);
    EXPECT_EQ(say("tune a b c d e f g h i j k"),
        head_of(refused, "tune.epd") + refused_output + "done!\n");
    EXPECT_EQ(tune_names.count, 9);
    EXPECT_STREQ(tune_names.name[8], "i");
}

TEST_F(ConsoleTune, ABoardThatCannotBeEvaluatedIsRefused)
{
    set_position("8/8/8/8/8/8/8/8 w - -");
    EXPECT_NE(say("tune stm_bonus"), "done!\n");
    EXPECT_EQ(tune_names.count, 0);
}

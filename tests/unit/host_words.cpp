// The words of vesk-uci's command line: what is refused and how, what the short ones print, and the
// layout of the doctor's report.
#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <unistd.h>
#include <vector>

#include "shell_test_support.h"
#include "base/version.h"
#include "host/bench_word.h"
#include "host/child.h"
#include "host/doctor_report.h"
#include "host/version.h"
#include "host/words.h"

// What a command line came to.
struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

static Outcome say(std::initializer_list<const char*> words)
{
    std::vector<std::string> texts(words.begin(), words.end());
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    Outcome outcome = {};
    outcome.errors = capture_errors(
        [&] { outcome.output = capture_output([&] { outcome.status = run_word(pointers); }); });
    return outcome;
}

// Refused with a hint, and nothing done.
static void expect_refusal(std::initializer_list<const char*> words, const std::string& reason)
{
    const Outcome outcome = say(words);
    EXPECT_EQ(outcome.status, 2) << reason;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "vesk-uci: " + reason + "\nTry: vesk-uci --help\n");
}

struct HostWords : ShellTest {
};

TEST_F(HostWords, UnknownWordsAreRefusedWithTheOneThatMayBeMeant)
{
    expect_refusal({ "bnech" }, "there is no word 'bnech'; 'bench' may be meant");
    expect_refusal({ "-bench" }, "there is no word '-bench'; 'bench' may be meant");
    expect_refusal({ "Doctor" }, "there is no word 'Doctor'; 'doctor' may be meant");
    expect_refusal({ "-v" },
        "there is no option '-v'; those of vesk, the engine alone, are not "
        "vesk-uci's");
    expect_refusal({ "help" }, "there is no word 'help'; '--help' may be meant");
    expect_refusal({ "--versoin" }, "there is no word '--versoin'; '--version' may be meant");
    expect_refusal(
        { "uci" }, "there is no word 'uci'; a chess program starts vesk-uci without any");
    expect_refusal({ "" }, "there is no word ''; a chess program starts vesk-uci without any");
    expect_refusal(
        { "-" }, "there is no option '-'; those of vesk, the engine alone, are not vesk-uci's");
    const std::string longest(100000, 'b');
    EXPECT_EQ(say({ longest.c_str() }).status, 2);
}

TEST_F(HostWords, SurplusWordsAreRefused)
{
    expect_refusal({ "--version", "x" }, "--version takes nothing behind it, and there is 'x'");
    expect_refusal({ "--help", "me" }, "--help takes nothing behind it, and there is 'me'");
    expect_refusal({ "-h", "me" }, "--help takes nothing behind it, and there is 'me'");
    expect_refusal(
        { "bench", "3", "4" }, "bench takes a depth at most, and behind it there is '4'");
    expect_refusal({ "doctor", "x" }, "doctor knows --tables PATH and --book FILE, not 'x'");
    expect_refusal({ "doctor", "--tablesx", "y" },
        "doctor knows --tables PATH and --book FILE, not '--tablesx'");
}

TEST_F(HostWords, DepthOfTheBenchmarkIsANumberInItsRange)
{
    for (const char* depth :
        { "0", "41", "-1", "+3", "3x", "x", "", " 3", "99999999999999999999" }) {
        expect_refusal({ "bench", depth },
            std::string("bench takes a depth from 1 to 40, not '") + depth + "'");
    }
}

TEST_F(HostWords, ValuesOfTheDoctorMustBeThere)
{
    expect_refusal({ "doctor", "--tables" }, "--tables needs a folder behind it");
    expect_refusal({ "doctor", "--tables", "" }, "--tables needs a folder behind it");
    expect_refusal({ "doctor", "--tables=" }, "--tables needs a folder behind it");
    expect_refusal({ "doctor", "--book" }, "--book needs a file behind it");
    expect_refusal({ "doctor", "--tables", "a", "--tables=b" },
        "--tables is there twice; folders have a colon between them");
    expect_refusal(
        { "doctor", "--book=a", "--book", "b", "--book", "c" }, "there are more than 2 books");
}

TEST_F(HostWords, VersionSaysOfWhatTheBuildIsMade)
{
    const Outcome outcome = say({ "--version" });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.output,
        std::string(version_string) + "\ncompiler         " + build_compiler + "\nprocessor level  "
            + build_level + "\ncommit           " + build_commit + "\n");
}

TEST_F(HostWords, HelpNamesEveryWord)
{
    const Outcome outcome = say({ "--help" });
    EXPECT_EQ(outcome.status, 0);
    for (const char* word : { "bench", "doctor", "--tables", "--book", "--version", "--help" }) {
        EXPECT_NE(outcome.output.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(say({ "-h" }).output, outcome.output);
}

TEST_F(HostWords, OutputThatIsLostIsNoSuccess)
{
    std::string errors;
    const int kept = dup(STDOUT_FILENO);
    fflush(stdout);
    ASSERT_NE(freopen("/dev/full", "w", stdout), nullptr);
    int status = 0;
    errors = capture_errors([&] {
        printf("text");
        status = finish_output(0);
    });
    clearerr(stdout);
    ASSERT_NE(freopen("/dev/null", "w", stdout), nullptr);
    dup2(kept, STDOUT_FILENO);
    close(kept);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(errors, "standard output: cannot be written: No space left on device\n");
}

// ---- Children

static int print_and_end(void* context)
{
    printf("a line\nand %s\n", static_cast<char*>(context));
    return getc(stdin) == EOF ? 7 : 8;
}

TEST_F(HostWords, ChildIsReadInLinesAndItsStatusIsKept)
{
    Child child;
    char word[] = "another";
    ASSERT_EQ(start_child(&child, print_and_end, word), 0);
    char line[64];
    std::string text;
    while (fgets(line, sizeof line, child.lines) != nullptr) {
        text += line;
    }
    EXPECT_EQ(end_child(&child), 7);
    EXPECT_EQ(text, "a line\nand another\n");
}

TEST_F(HostWords, ChildThatDiesHasFailed)
{
    Child child;
    ASSERT_EQ(start_child(
                  &child, [](void*) -> int { _exit(kill(getpid(), SIGKILL)); }, nullptr),
        0);
    EXPECT_EQ(end_child(&child), 1);
}

// ---- The report

TEST_F(HostWords, ReportInAPipeHasALineForAFinding)
{
    Report report = { 0, false, 0 };
    const std::string words(300, 'x');
    EXPECT_EQ(capture_output([&] {
        print_heading(&report, "Head");
        print_finding(&report, Mark::Good, "one %s two\n\033[3m", words.c_str());
        print_finding(&report, Mark::Wrong, "%d", 3);
        print_finding(&report, Mark::Note, "K\xc3\xb6nig");
        print_row("%2d", 4);
    }),
        "\nHead\n  ok     one " + words + " two??[3m\n  wrong  3\n  note   K\xc3\xb6nig\n"
            + "          4\n");
    EXPECT_EQ(report.wrong, 1);
}

TEST_F(HostWords, ReportAtATerminalIsBrokenBetweenWords)
{
    Report report = { 20, false, 0 };
    EXPECT_EQ(capture_output([&] { print_finding(&report, Mark::Good, "one two three four"); }),
        "  ok     one two\n         three four\n");
    EXPECT_EQ(capture_output([&] {
        print_finding(&report, Mark::Good, "one /a/path/longer/than/the/line two");
    }),
        "  ok     one\n         /a/path/longer/than/the/line\n         two\n");
    report.coloured = true;
    EXPECT_EQ(capture_output([&] { print_finding(&report, Mark::Wrong, "x"); }),
        "  \033[31mwrong\033[0m  x\n");
}

// Standard input in lines and pieces, and what the main loop makes of them.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <initializer_list>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "shell_test_support.h"
#include "base/files.h"
#include "base/output.h"
#include "shell/input.h"
#include "shell/think_loop.h"

struct InputTest : ShellTest {
    // The next piece, or "-" for nothing.
    static std::string piece(i32 size = longest_input + 1, bool wait = false)
    {
        std::vector<char> text(static_cast<size_t>(size), 'x');
        const i32 count = read_input(text.data(), size, wait);
        EXPECT_EQ(text[static_cast<size_t>(count)], '\0');
        return count == 0 ? "-" : std::string(text.data(), static_cast<size_t>(count));
    }

    // What polling so often prints.
    static std::string polled(i32 times)
    {
        return capture_output([times] {
            for (i32 i = 0; i < times; ++i) {
                poll_input(&dialogue);
            }
        });
    }
};

TEST_F(InputTest, NothingComesBeforeALineIsComplete)
{
    const FedInput input;
    EXPECT_EQ(piece(), "-");
    input.feed("isre");
    EXPECT_EQ(piece(), "-");
    input.feed("ady\nsto");
    EXPECT_EQ(piece(), "isready\n");
    EXPECT_EQ(piece(), "-");
    input.feed("p\n\n");
    EXPECT_EQ(piece(), "stop\n");
    EXPECT_EQ(piece(), "\n");
    EXPECT_EQ(piece(), "-");
    EXPECT_FALSE(input_is_over());
}

TEST_F(InputTest, LongLinesComeInPieces)
{
    const FedInput input;
    input.feed(std::string(4998, 'a') + "\n" + std::string(4999, 'b') + "\n"
        + std::string(10000, 'c') + "\n");
    EXPECT_EQ(piece(), std::string(4998, 'a') + "\n");
    EXPECT_EQ(piece(), std::string(4999, 'b'));
    EXPECT_EQ(piece(), "\n");
    EXPECT_EQ(piece(), std::string(4999, 'c'));
    EXPECT_EQ(piece(), std::string(4999, 'c'));
    EXPECT_EQ(piece(), "cc\n");
    EXPECT_EQ(piece(), "-");
}

TEST_F(InputTest, ASmallerBufferMakesSmallerPieces)
{
    const FedInput input;
    input.feed("abcdefgh\nxy\n");
    EXPECT_EQ(piece(6), "abcde");
    EXPECT_EQ(piece(6), "fgh\n");
    EXPECT_EQ(piece(4), "xy\n");
}

TEST_F(InputTest, TheLastLineNeedsNoLineFeed)
{
    FedInput input;
    input.feed("go\nquit");
    EXPECT_EQ(piece(), "go\n");
    EXPECT_EQ(piece(), "-");
    input.end();
    EXPECT_EQ(piece(), "quit");
    EXPECT_TRUE(input_is_over());
    EXPECT_EQ(piece(), "-");
}

TEST_F(InputTest, BytesArePassedOnAsTheyAre)
{
    const FedInput input;
    const std::string bytes("\x01\xff\0\r\x80z\n", 7);
    input.feed(bytes);
    EXPECT_EQ(piece(), bytes);
}

TEST_F(InputTest, WaitingBlocksUntilALineOrTheEnd)
{
    FedInput input;
    input.feed("first\nsec");
    EXPECT_EQ(piece(78, true), "first\n");
    input.end();
    EXPECT_EQ(piece(78, true), "sec");
    EXPECT_EQ(piece(78, true), "-");
}

TEST_F(InputTest, ClosedInputIsTheEndOfInput)
{
    const FedInput input;
    close(STDIN_FILENO);
    EXPECT_EQ(piece(), "-");
    EXPECT_TRUE(input_is_over());
    EXPECT_EQ(polled(3), "");
}

TEST_F(InputTest, APollTakesOneCommand)
{
    const FedInput input;
    input.feed("isready\nisready@isready\n");
    EXPECT_EQ(polled(1), "readyok\n");
    EXPECT_EQ(polled(1), "readyok\n");
    EXPECT_EQ(polled(1), "readyok\n");
    EXPECT_EQ(polled(3), "");
}

TEST_F(InputTest, MarksAndBlankLinesAreNoCommands)
{
    const FedInput input;
    input.feed("@@@\n\n\r\n   \n@isready@@\n@\n");
    EXPECT_EQ(polled(8), "readyok\n");
}

TEST_F(InputTest, WhatFollowsANulOrACarriageReturnIsLost)
{
    const FedInput input;
    input.feed(std::string("isready\0isready\n", 16));
    input.feed("isready\risready\n");
    input.feed(std::string("\0isready\n", 9));
    EXPECT_EQ(polled(8), "readyok\nreadyok\n");
}

TEST_F(InputTest, ALineOf4999CharactersIsACommandOfItsOwn)
{
    const FedInput input;
    input.feed(std::string(4992, ' ') + "isready" + "isready\n");
    EXPECT_EQ(polled(4), "readyok\nreadyok\n");
}

TEST_F(InputTest, ManyWaitingCommandsAreKeptInOrderAndNoneIsLost)
{
    FedInput input;
    std::string wanted;
    for (i32 round = 0; round < 8; ++round) {
        std::string line = "uci_unknown";
        for (i32 i = 0; i < 500; ++i) {
            line += "@isready";
            wanted += "readyok\n";
        }
        input.feed(line + "\n");
    }
    EXPECT_EQ(polled(8 * 501 + 20), wanted);
}

TEST_F(InputTest, UciTypedAtTheConsoleTurnsTheDialogue)
{
    const FedInput input;
    store(uci_mode, 0);
    input.feed("isready\n uci\nuci \n");
    EXPECT_EQ(polled(4), "");
    EXPECT_EQ(load(uci_mode), 0);
    input.feed("uci\nisready\n");
    const std::string output = polled(3);
    EXPECT_NE(output.find("uciok\nreadyok\n"), std::string::npos) << output;
    EXPECT_EQ(load(uci_mode), 1);
}

// Standard input at a terminal without an echo; what is typed goes in at the other end.
struct Terminal {
    Terminal()
    {
        keys = posix_openpt(O_RDWR | O_NOCTTY);
        EXPECT_EQ(grantpt(keys), 0);
        EXPECT_EQ(unlockpt(keys), 0);
        kept = dup(STDIN_FILENO);
        const int inner = open(ptsname(keys), O_RDWR | O_NOCTTY);
        EXPECT_GE(inner, 0);
        dup2(inner, STDIN_FILENO);
        close(inner);
        reset_input();
    }

    ~Terminal()
    {
        hang_up();
        dup2(kept, STDIN_FILENO);
        close(kept);
        reset_input();
    }

    void type(const std::string& text) const
    {
        EXPECT_EQ(write(keys, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void hang_up()
    {
        if (keys >= 0) {
            close(keys);
        }
        keys = -1;
    }

    int keys;
    int kept;
};

static constexpr char end_key[] = "\x04";

TEST_F(InputTest, AtATerminalTheEndOfInputIsAKeyAndNoEnd)
{
    const Terminal terminal;
    terminal.type(end_key);
    EXPECT_EQ(piece(78, true), "-");
    EXPECT_FALSE(input_is_over());
    terminal.type("bd\n");
    EXPECT_EQ(piece(78, true), "bd\n");
    terminal.type(std::string(end_key) + "new\n");
    EXPECT_EQ(piece(), "-");
    EXPECT_EQ(piece(), "new\n");
    EXPECT_EQ(piece(), "-");
}

TEST_F(InputTest, AtATerminalThatKeyEndsALineWhenPressedTwice)
{
    const Terminal terminal;
    terminal.type(std::string("half") + end_key + end_key + "next\n");
    EXPECT_EQ(piece(78, true), "half");
    EXPECT_EQ(piece(78, true), "-");
    EXPECT_EQ(piece(78, true), "next\n");
}

TEST_F(InputTest, ATerminalThatHasGoneIsTheEndOfInput)
{
    Terminal terminal;
    terminal.type("last\n");
    EXPECT_EQ(piece(), "last\n");
    terminal.hang_up();
    EXPECT_EQ(piece(78, true), "-");
    EXPECT_TRUE(input_is_over());
}

// ---- Files

TEST_F(InputTest, OnlyRegularFilesAreOpened)
{
    write_file("plain", "x");
    ASSERT_EQ(mkdir("folder", 0777), 0);
    ASSERT_EQ(mkfifo("pipe", 0666), 0);
    for (const bool append : { false, true }) {
        FILE* file = open_regular_file("plain", append);
        ASSERT_NE(file, nullptr);
        fclose(file);
        for (const char* path : { "folder", "pipe", "/dev/null", "", "no/such/folder" }) {
            EXPECT_EQ(open_regular_file(path, append), nullptr) << path;
        }
    }
    EXPECT_EQ(open_regular_file("new"), nullptr);
    FILE* file = open_regular_file("new", true);
    ASSERT_NE(file, nullptr);
    fputs("one", file);
    fclose(file);
    file = open_regular_file("new", true);
    fputs("two", file);
    fclose(file);
    EXPECT_EQ(read_file("new"), "onetwo");
}

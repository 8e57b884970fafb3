// Lines on their way out: whole, in one write, to standard output and to the log.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "shell_test_support.h"
#include "base/output.h"
#include "base/text.h"

struct OutputTest : ShellTest {
};

// Standard output as a socket that keeps the bounds of each write.
struct CountedOutput {
    CountedOutput()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        fflush(stdout);
        kept = dup(STDOUT_FILENO);
        dup2(ends[0], STDOUT_FILENO);
        close(ends[0]);
        read_end = ends[1];
    }

    ~CountedOutput()
    {
        dup2(kept, STDOUT_FILENO);
        close(kept);
        close(read_end);
    }

    std::string next_write() const
    {
        std::string text(100000, '\0');
        const ssize_t count = recv(read_end, text.data(), text.size(), MSG_DONTWAIT);
        text.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return text;
    }

    int kept;
    int read_end;
};

TEST_F(OutputTest, EachLineLeavesInOneWrite)
{
    const CountedOutput output;
    print_line("one");
    print_line("");
    print_line_format("%d and %s", 2, "three");
    print_plain("as it %s", "stands");
    EXPECT_EQ(output.next_write(), "one\n");
    EXPECT_EQ(output.next_write(), "\n");
    EXPECT_EQ(output.next_write(), "2 and three\n");
    EXPECT_EQ(output.next_write(), "as it stands");
    EXPECT_EQ(output.next_write(), "");
}

TEST_F(OutputTest, LongLinesAreWhole)
{
    for (const size_t size : { 8190u, 8191u, 8192u, 8193u, 50000u }) {
        const CountedOutput output;
        const std::string text(size, 'x');
        print_line(text.c_str());
        EXPECT_EQ(output.next_write(), text + "\n") << size;
    }
}

TEST_F(OutputTest, FormattedLinesAreCutAtTheirBuffer)
{
    const std::string text(20000, 'y');
    const std::string line = capture_output([&] { print_line_format("%s", text.c_str()); });
    EXPECT_EQ(line, std::string(8191, 'y') + "\n");
}

// How often this thread has given the processor away by itself.
static i64 count_sleeps()
{
    rusage usage = {};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

TEST_F(OutputTest, ASlowReaderGetsEveryByte)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    fflush(stdout);
    const int kept = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);

    std::string received;
    std::thread reader([&] {
        usleep(100000);
        char buffer[5000];
        for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;) {
            received.append(buffer, static_cast<size_t>(count));
        }
    });
    const std::string line(9000, 'z');
    const i64 sleeps_before = count_sleeps();
    for (i32 i = 0; i < 100; ++i) {
        print_line(line.c_str());
    }
    const i64 sleeps = count_sleeps() - sleeps_before;
    dup2(kept, STDOUT_FILENO);
    close(kept);
    reader.join();
    close(ends[0]);

    std::string wanted;
    for (i32 i = 0; i < 100; ++i) {
        wanted += line + "\n";
    }
    EXPECT_TRUE(received == wanted) << received.size() << " of " << wanted.size() << " bytes";
    EXPECT_GT(sleeps, 0) << "waited for the reader without a sleep";
}

TEST_F(OutputTest, LinesOfSeveralThreadsDoNotMix)
{
    const std::string output = capture_output([] {
        std::vector<std::thread> threads;
        for (char c = 'a'; c < 'e'; ++c) {
            threads.emplace_back([c] {
                const std::string line(3000, c);
                for (i32 i = 0; i < 50; ++i) {
                    print_line(line.c_str());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    ASSERT_EQ(output.size(), 4u * 50 * 3001);
    for (size_t start = 0; start < output.size(); start += 3001) {
        const std::string line(3000, output[start]);
        ASSERT_TRUE(output.compare(start, 3001, line + "\n") == 0) << start;
    }
}

TEST_F(OutputTest, OutputThatCannotBeWrittenIsGivenUp)
{
    fflush(stdout);
    const int kept = dup(STDOUT_FILENO);
    close(STDOUT_FILENO);
    print_line("nobody hears this");
    dup2(kept, STDOUT_FILENO);
    close(kept);
    EXPECT_EQ(output_error(), EBADF);
    EXPECT_EQ(capture_output([] { print_line("this they hear"); }), "this they hear\n");
}

TEST_F(OutputTest, TheLogGetsPrintedLinesOnlyWhileItIsOnAndItsOwnWheneverItIsOpen)
{
    ASSERT_EQ(open_log(), 1);
    const std::string errors = capture_errors([] {
        capture_output([] {
            print_line("before");
            log_line("own before");
            dialogue.engine_options.log = 1;
            publish_options(&dialogue);
            print_line("first");
            log_line("own %d", 1);
            print_plain("plain\n");
            print_line_format("second %d", 2);
            dialogue.engine_options.log = 0;
            publish_options(&dialogue);
            print_line("after");
            log_line("own after");
        });
    });
    EXPECT_EQ(errors, "");
    EXPECT_EQ(read_file("vesk.log"), "own before\nfirst\nown 1\nsecond 2\nown after\n");
}

TEST_F(OutputTest, LogOnlyLinesStayOffStandardOutput)
{
    ASSERT_EQ(open_log(), 1);
    dialogue.engine_options.log = 1;
    publish_options(&dialogue);
    EXPECT_EQ(capture_output([] { log_line("quiet"); }), "");
    EXPECT_EQ(read_file("vesk.log"), "quiet\n");
}

TEST_F(OutputTest, OpeningReplacesAnOldLogButNotAnOpenOne)
{
    write_file("vesk.log", "old\n");
    EXPECT_EQ(open_log(), 1);
    EXPECT_EQ(read_file("vesk.log"), "");
    dialogue.engine_options.log = 1;
    publish_options(&dialogue);
    log_line("new");
    EXPECT_EQ(open_log(), 1);
    EXPECT_EQ(read_file("vesk.log"), "new\n");
    close_log();
    close_log();
    log_line("closed");
    EXPECT_EQ(read_file("vesk.log"), "new\n");
}

TEST_F(OutputTest, ALogThatCannotBeReplacedIsReported)
{
    ASSERT_EQ(system("mkdir vesk.log"), 0);
    EXPECT_EQ(open_log(), 0);
    log_line("no log is open");
    ASSERT_EQ(system("rmdir vesk.log"), 0);
    EXPECT_EQ(open_log(), 1);
    log_line("open");
    EXPECT_EQ(read_file("vesk.log"), "open\n");
}

TEST_F(OutputTest, CopyTextCutsAndCloses)
{
    char text[5];
    copy_text(text, sizeof text, "abc");
    EXPECT_STREQ(text, "abc");
    copy_text(text, sizeof text, "abcd");
    EXPECT_STREQ(text, "abcd");
    copy_text(text, sizeof text, "abcdefgh");
    EXPECT_STREQ(text, "abcd");
    copy_text(text, 1, "abc");
    EXPECT_STREQ(text, "");
}

TEST_F(OutputTest, TheLockLetsOneThreadInAtATime)
{
    static SpinLock lock;
    static i32 count;
    count = 0;
    std::vector<std::thread> threads;
    for (i32 i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (i32 round = 0; round < 5000; ++round) {
                lock_spin(&lock);
                ++count;
                unlock_spin(&lock);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 20000);
}

TEST_F(OutputTest, AWaiterLeavesTheProcessorAlone)
{
    static SpinLock lock;
    lock_spin(&lock);
    f64 used = 1.0;
    std::thread waiter([&used] {
        timespec before;
        timespec after;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
        lock_spin(&lock);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
        unlock_spin(&lock);
        used = static_cast<f64>(after.tv_sec - before.tv_sec)
            + static_cast<f64>(after.tv_nsec - before.tv_nsec) * 1e-9;
    });
    usleep(300000);
    unlock_spin(&lock);
    waiter.join();
    EXPECT_LT(used, 0.2);
}

// Lines over pipes, lines of the engine's "info", and the log of the dialogue.
#include "host/lines.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "host/chances.h"
#include "host/debug_log.h"
#include "host/info.h"
#include "host/text.h"

struct Pipe {
    int ends[2];
    Pipe()
    {
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    }
    ~Pipe()
    {
        close(ends[0]);
        close(ends[1]);
    }
};

static std::vector<std::string> lines_of(std::string_view text)
{
    Pipe pipe;
    LineSource source;
    source.descriptor = pipe.ends[0];
    EXPECT_EQ(write(pipe.ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(pipe.ends[1]);
    pipe.ends[1] = open("/dev/null", O_RDONLY);
    std::vector<std::string> lines;
    std::string line;
    while (!source.at_end) {
        fill_source(&source);
        while (take_line(&source, &line)) {
            lines.push_back(line);
        }
    }
    return lines;
}

using Lines = std::vector<std::string>;

TEST(HostLines, EndInAnyWay)
{
    EXPECT_EQ(lines_of("a\nb\r\n\nc"), (Lines { "a", "b", "", "c" }));
    EXPECT_EQ(lines_of(""), Lines {});
    EXPECT_EQ(lines_of(std::string_view("a\0b\n", 4)), Lines { "a b" });
}

TEST(HostLines, ALineThatIsTooLongIsDroppedAlone)
{
    LineSource source;
    std::string line;
    source.data = "first\n" + std::string(longest_line + 1, 'x');
    ASSERT_TRUE(take_line(&source, &line));
    EXPECT_EQ(line, "first");
    EXPECT_FALSE(take_line(&source, &line));
    EXPECT_EQ(source.start, source.data.size());
    source.data += std::string(100, 'y') + "\nlast\n";
    ASSERT_TRUE(take_line(&source, &line));
    EXPECT_EQ(line, "last");
    EXPECT_EQ(source.dropped, 1);
}

TEST(HostLines, WaitForTheReader)
{
    Pipe pipe;
    LineSink sink;
    sink.descriptor = pipe.ends[1];
    const std::string line(1000, 'x');
    for (i32 i = 0; i < 200; ++i) {
        put_line(&sink, line);
        flush_sink(&sink);
    }
    EXPECT_GT(sink.pending.size(), 0u);
    std::string read_back(1 << 18, '\0');
    size_t total = 0;
    while (total < 200 * 1001) {
        flush_sink(&sink);
        const ssize_t count = read(pipe.ends[0], read_back.data(), read_back.size());
        ASSERT_GT(count, 0);
        total += static_cast<size_t>(count);
    }
    EXPECT_EQ(sink.pending.size(), 0u);
    EXPECT_FALSE(sink.broken);
}

TEST(HostInfo, ReadsWhatALineSays)
{
    const InfoLine line = read_info("info multipv 2 depth 5 seldepth 9 score mate -3 time 13 nodes "
                                    "3359 nps 255946 tbhits 0 hashfull 0 pv b8c6 b1c3");
    EXPECT_EQ(line.depth, 5);
    EXPECT_EQ(line.line_number, 2);
    EXPECT_EQ(line.nodes, 3359);
    EXPECT_EQ(line.rate, 255946);
    ASSERT_TRUE(line.score);
    EXPECT_TRUE(line.score->is_mate);
    EXPECT_EQ(line.score->value, -3);
    EXPECT_EQ(line.moves, "b8c6 b1c3");
    const InfoLine said = read_info("info string depth 5 pv e2e4");
    EXPECT_FALSE(said.depth);
    EXPECT_TRUE(said.moves.empty());
}

TEST(HostInfo, LinesAreNumberedAnew)
{
    EXPECT_EQ(
        with_line_number("info multipv 7 depth 5 pv e2e4", 2), "info multipv 2 depth 5 pv e2e4");
    EXPECT_EQ(with_line_number("info multipv 7 depth 5 pv e2e4", 0), "info depth 5 pv e2e4");
    EXPECT_EQ(with_line_number("info depth 5 pv e2e4", 2), "info depth 5 pv e2e4");
}

TEST(HostInfo, ChancesStandBehindTheScore)
{
    EXPECT_EQ(with_chances("info depth 5 score mate 2 nodes 7 pv e2e4"),
        "info depth 5 score mate 2 wdl 1000 0 0 nodes 7 pv e2e4");
    EXPECT_EQ(
        with_chances("info depth 5 score mate -2"), "info depth 5 score mate -2 wdl 0 0 1000");
    EXPECT_EQ(with_chances("info depth 5 currmove e2e4"), "info depth 5 currmove e2e4");
    i32 last = 0;
    for (i64 score = -2000; score <= 2000; score += 10) {
        const Chances chances = chances_of_score(score);
        EXPECT_EQ(chances.win + chances.draw + chances.loss, 1000);
        EXPECT_GE(chances.win, last);
        EXPECT_GE(chances.draw, 0);
        EXPECT_EQ(chances_of_score(-score).loss, chances.win);
        last = chances.win;
    }
}

TEST(HostText, NumbersAreWholeOrNone)
{
    i64 value = 0;
    EXPECT_TRUE(read_number("+12", &value));
    EXPECT_EQ(value, 12);
    EXPECT_TRUE(read_number("-99999999999999999999", &value));
    EXPECT_EQ(value, std::numeric_limits<i64>::min());
    for (const char* text : { "", "+", "-", "12a", "a12", "1.5", " 1" }) {
        EXPECT_FALSE(read_number(text, &value)) << text;
    }
}

TEST(HostLog, EachProcessHasItsOwnFile)
{
    const std::string number = '-' + std::to_string(getpid());
    const std::string name = "dialogue" + number + ".log";
    std::filesystem::remove(name);
    std::filesystem::remove("dialogue" + number + "-2.log");
    DebugLog log;
    ASSERT_EQ(begin_log(&log, "dialogue.log"), 0);
    EXPECT_EQ(log.name, name);
    EXPECT_EQ(log_text(&log, '>', "uci"), 0);
    EXPECT_EQ(begin_log(&log, "dialogue.log"), 0); // goes on
    EXPECT_EQ(log_text(&log, '<', "uciok"), 0);
    end_log(&log);
    std::ifstream file(name);
    std::string line;
    ASSERT_TRUE(std::getline(file, line));
    EXPECT_TRUE(line.ends_with(" > uci")) << line;
    ASSERT_TRUE(std::getline(file, line));
    EXPECT_TRUE(line.ends_with(" < uciok")) << line;
    // The older file is not written to.
    ASSERT_EQ(begin_log(&log, "dialogue.log"), 0);
    EXPECT_EQ(log.name, "dialogue" + number + "-2.log");
    end_log(&log);
    EXPECT_NE(begin_log(&log, "/nowhere/dialogue.log"), 0);
    std::filesystem::remove(name);
    std::filesystem::remove("dialogue" + number + "-2.log");
}

TEST(HostLog, AFullDiskClosesIt)
{
    DebugLog log;
    log.descriptor = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(log.descriptor, 0);
    EXPECT_NE(log_text(&log, '>', "uci"), 0);
    EXPECT_EQ(log.descriptor, -1);
    EXPECT_EQ(log_text(&log, '>', "uci"), 0);
}

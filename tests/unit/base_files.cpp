// Files read in lines and pieces of lines, and files that replace older ones once complete.
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>

#include "shell_test_support.h"
#include "base/files.h"

struct FilesTest : ShellTest {
    // The pieces that a text is read in, each with its line's number behind it.
    static std::string pieces_of(const std::string& text, i32 size)
    {
        write_file("lines.txt", text);
        FILE* file = fopen("lines.txt", "rb");
        static LineReader reader;
        start_reading(&reader, file);
        skip_byte_order_mark(&reader);
        std::string pieces;
        std::string line(static_cast<size_t>(size), '?');
        for (i32 length; (length = read_line_piece(&reader, line.data(), size)) > 0;) {
            EXPECT_EQ(line[static_cast<size_t>(length)], '\0');
            pieces += line.substr(0, static_cast<size_t>(length))
                + std::to_string(reader.line_number) + (reader.in_line ? "~" : "|");
        }
        fclose(file);
        return pieces;
    }
};

TEST_F(FilesTest, LinesComeWithTheirLineFeedAndNumber)
{
    EXPECT_EQ(pieces_of("", 8), "");
    EXPECT_EQ(pieces_of("ab\ncd\n", 8), "ab\n1|cd\n2|");
    EXPECT_EQ(pieces_of("ab\n\ncd", 8), "ab\n1|\n2|cd3~");
}

TEST_F(FilesTest, LongLinesComeInPiecesOfOneLine)
{
    EXPECT_EQ(pieces_of("abcdefgh\nij\n", 4), "abc1~def1~gh\n1|ij\n2|");
    EXPECT_EQ(pieces_of("abc\nd", 4), "abc1~\n1|d2~");
    const std::string text = std::string(200000, 'x') + "\ny\n";
    EXPECT_EQ(pieces_of(text, 300000), std::string(200000, 'x') + "\n1|y\n2|");
}

TEST_F(FilesTest, ByteOrderMarkIsPassedOverAtTheStartAlone)
{
    EXPECT_EQ(pieces_of("\xef\xbb\xbf"
                        "a\n\xef\xbb\xbf\n",
                  8),
        "a\n1|\xef\xbb\xbf\n2|");
    EXPECT_EQ(pieces_of("\xef\xbb", 8),
        "\xef\xbb"
        "1~");
}

TEST_F(FilesTest, OldFileStaysUntilTheNewOneIsPublished)
{
    write_file("out.txt", "old");
    OutputFile out;
    ASSERT_EQ(open_output(&out, "out.txt", "out.txt.part"), 0);
    fputs("new", out.file);
    EXPECT_EQ(close_output(&out), 0);
    EXPECT_EQ(read_file("out.txt"), "old");
    EXPECT_EQ(publish_output(&out), 0);
    EXPECT_EQ(read_file("out.txt"), "new");
    EXPECT_FALSE(std::filesystem::exists("out.txt.part"));
}

TEST_F(FilesTest, ReasonOfAFailedWriteIsTold)
{
    OutputFile out;
    ASSERT_EQ(open_output(&out, "out.txt", "out.txt.part"), 0);
    fclose(out.file);
    out.file = fopen("/dev/full", "w");
    ASSERT_NE(out.file, nullptr);
    for (i32 i = 0; i < 100000; ++i) {
        fputc('x', out.file);
    }
    errno = 0;
    EXPECT_EQ(close_output(&out), ENOSPC);
    EXPECT_FALSE(std::filesystem::exists("out.txt.part"));
}

TEST_F(FilesTest, SecondRunDoesNotTakeTheFileFromTheFirst)
{
    OutputFile first;
    OutputFile second;
    ASSERT_EQ(open_output(&first, "out.txt", "out.txt.part"), 0);
    EXPECT_EQ(open_output(&second, "out.txt", "out.txt.part"), EBUSY);
    fputs("first", first.file);
    EXPECT_EQ(close_output(&first), 0);
    EXPECT_EQ(publish_output(&first), 0);
    EXPECT_EQ(read_file("out.txt"), "first");
    // What a killed run has left behind is nobody's.
    write_file("out.txt.part", "rest");
    ASSERT_EQ(open_output(&second, "out.txt", "out.txt.part"), 0);
    fputs("second", second.file);
    EXPECT_EQ(close_output(&second), 0);
    EXPECT_EQ(publish_output(&second), 0);
    EXPECT_EQ(read_file("out.txt"), "second");
}

TEST_F(FilesTest, AnErrorThatTheFileHasToldBeforeIsTheOneOfItsEnd)
{
    // Without a buffer nothing is left that closing could fail to write.
    FILE* file = fopen("/dev/full", "w");
    ASSERT_NE(file, nullptr);
    setvbuf(file, nullptr, _IONBF, 0);
    EXPECT_EQ(fputc('x', file), EOF);
    errno = 0;
    EXPECT_EQ(close_written_file(file), ENOSPC);
}

TEST_F(FilesTest, WhatStandsUnderTheUnfinishedNameIsNeitherFollowedNorWaitedFor)
{
    // Somebody holds the file behind the link; nobody will ever write to the pipe.
    write_file("held.txt", "held");
    FILE* held = fopen("held.txt", "r");
    ASSERT_NE(held, nullptr);
    ASSERT_EQ(flock(fileno(held), LOCK_EX), 0);
    std::filesystem::create_symlink("held.txt", "out.txt.part");
    OutputFile out;
    ASSERT_EQ(open_output(&out, "out.txt", "out.txt.part"), 0);
    EXPECT_EQ(close_output(&out), 0);
    EXPECT_EQ(publish_output(&out), 0);
    EXPECT_EQ(read_file("held.txt"), "held");
    fclose(held);
    ASSERT_EQ(mkfifo("out.txt.part", 0600), 0);
    ASSERT_EQ(open_output(&out, "out.txt", "out.txt.part"), 0);
    EXPECT_EQ(close_output(&out), 0);
    EXPECT_EQ(publish_output(&out), 0);
}

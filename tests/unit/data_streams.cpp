// Files that are packed on their way in and out.
#include "data/sinks.h"
#include "data/streams.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

static Report quiet_report()
{
    return start_report("test", CommonOptions());
}

static bool write_stream(const std::string& name, const std::string& text)
{
    Report report = quiet_report();
    OutputStream out;
    if (!open_sink(&out, name, {}, &report)) {
        return false;
    }
    fwrite(text.data(), 1, text.size(), out.file);
    return finish_sink(&out, &report);
}

static bool read_stream(const std::string& name, std::string* text)
{
    Report report = quiet_report();
    InputStream in;
    if (!open_stream(&in, name, &report)) {
        return false;
    }
    char block[1000];
    size_t count;
    while ((count = fread(block, 1, sizeof block, in.file)) > 0) {
        text->append(block, count);
    }
    EXPECT_LE(stream_position(in), in.size);
    return close_stream(&in, &report);
}

static std::string raw(const std::string& name)
{
    std::string text;
    FILE* file = fopen(name.c_str(), "rb");
    if (file != nullptr) {
        char block[4096];
        size_t count;
        while ((count = fread(block, 1, sizeof block, file)) > 0) {
            text.append(block, count);
        }
        fclose(file);
    }
    return text;
}

static void put_raw(const std::string& name, const std::string& text)
{
    FILE* file = fopen(name.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    fwrite(text.data(), 1, text.size(), file);
    fclose(file);
}

// A text that does not pack to nothing, longer than all buffers.
static std::string long_text()
{
    std::string text;
    u32 number = 1;
    for (i32 i = 0; i < 100000; ++i) {
        number = number * 1664525u + 1013904223u;
        text += std::to_string(number % 1000) + (i % 9 == 0 ? "\n" : " ");
    }
    return text;
}

// The forms that this build knows.
static std::vector<std::string> packed_names()
{
    std::vector<std::string> names;
    for (const std::string form : { ".gz", ".zst" }) {
        if (std::string(packed_forms).find(form) != std::string::npos) {
            names.push_back("stream" + form);
        }
    }
    return names;
}

TEST(DataStreams, ReadWhatTheyWrote)
{
    const std::string text = long_text();
    std::vector<std::string> names = packed_names();
    names.push_back("stream.txt");
    for (const std::string& name : names) {
        for (const std::string& content : { text, std::string(), std::string("x") }) {
            ASSERT_TRUE(write_stream(name, content)) << name;
            EXPECT_FALSE(fs::exists(name + ".part"));
            std::string back;
            EXPECT_TRUE(read_stream(name, &back)) << name;
            EXPECT_EQ(back == content, true) << name << ", " << content.size() << " bytes";
        }
    }
}

TEST(DataStreams, ReadFilesPackedOneBehindTheOther)
{
    for (const std::string& name : packed_names()) {
        ASSERT_TRUE(write_stream(name, "first\n"));
        const std::string once = raw(name);
        put_raw(name, once + once);
        std::string back;
        EXPECT_TRUE(read_stream(name, &back)) << name;
        EXPECT_EQ(back, "first\nfirst\n");
    }
}

TEST(DataStreams, TellOfAnUnfinishedDownload)
{
    for (const std::string& name : packed_names()) {
        const std::string text = long_text();
        ASSERT_TRUE(write_stream(name, text));
        const std::string packed = raw(name);
        for (const size_t size : { packed.size() - 1, packed.size() / 2, size_t { 5 } }) {
            put_raw(name, packed.substr(0, size));
            std::string back;
            testing::internal::CaptureStderr();
            EXPECT_FALSE(read_stream(name, &back)) << name << " of " << size << " bytes";
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                name + ": ends too early, as an unfinished download does\n");
            EXPECT_TRUE(text.starts_with(back));
        }
    }
}

TEST(DataStreams, TellOfDamage)
{
    for (const std::string& name : packed_names()) {
        const std::string text = long_text();
        ASSERT_TRUE(write_stream(name, text));
        const std::string packed = raw(name);
        for (size_t i = 1; i < 12; ++i) {
            std::string changed = packed;
            changed[packed.size() * i / 12] ^= 0x10;
            put_raw(name, changed);
            std::string back;
            testing::internal::CaptureStderr();
            EXPECT_FALSE(read_stream(name, &back)) << name << ", byte " << packed.size() * i / 12;
            EXPECT_NE(testing::internal::GetCapturedStderr(), "");
        }
    }
}

TEST(DataStreams, KeepAnOlderFileUntilTheNewOneIsWhole)
{
    put_raw("kept.txt", "old");
    {
        Report report = quiet_report();
        OutputStream out;
        ASSERT_TRUE(open_sink(&out, "kept.txt", {}, &report));
        fputs("new", out.file);
        EXPECT_EQ(raw("kept.txt"), "old");
    }
    EXPECT_EQ(raw("kept.txt"), "old");
    EXPECT_FALSE(fs::exists("kept.txt.part"));
}

TEST(DataStreams, KeepAnOlderFileWhereThereIsNothingForIt)
{
    put_raw("kept.out", "old");
    for (const bool is_filled : { false, true }) {
        for (const char* name : { "kept.out", "/dev/null" }) {
            Report report = quiet_report();
            OutputStream out;
            ASSERT_TRUE(open_sink(&out, name, {}, &report));
            fputs("head", out.file);
            testing::internal::CaptureStderr();
            const bool is_done = finish_counted_sink(&out, is_filled ? 1 : 0, "game", &report);
            const std::string said = testing::internal::GetCapturedStderr();
            const bool is_kept = !is_filled && name != std::string("/dev/null");
            EXPECT_EQ(is_done, !is_kept) << name;
            EXPECT_EQ(report.failed, is_kept ? 1 : 0) << name;
            EXPECT_EQ(said,
                is_kept ? "kept.out: is not written: there is no game for it\n" : std::string());
        }
        EXPECT_EQ(raw("kept.out") == "old", !is_filled);
        EXPECT_FALSE(fs::exists("kept.out.part"));
    }
}

TEST(DataStreams, RefuseToReplaceWhatTheyRead)
{
    put_raw("input.txt", "text");
    fs::remove("second.txt");
    fs::create_hard_link("input.txt", "second.txt");
    Report report = quiet_report();
    OutputStream out;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(open_sink(&out, "second.txt", { "input.txt" }, &report));
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(), "input.txt: would be replaced by the output\n");
    EXPECT_EQ(report.failed, 1);
}

TEST(DataStreams, NameWhatCannotBeOpened)
{
    Report report = quiet_report();
    InputStream in;
    OutputStream out;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(open_stream(&in, "is/not/there", &report));
    EXPECT_FALSE(open_stream(&in, ".", &report));
    EXPECT_FALSE(open_sink(&out, ".", {}, &report));
    EXPECT_FALSE(open_sink(&out, "is/not/there", {}, &report));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "is/not/there: cannot be opened: No such file or directory\n"
        ".: cannot be opened: Is a directory\n"
        ".: cannot be opened for writing: Is a directory\n"
        "is/not/there: cannot be opened for writing: No such file or directory\n");
    EXPECT_EQ(report.failed, 4);
}

TEST(DataStreams, NoticeAFullDisk)
{
    for (const std::string name : { "/dev/full" }) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(write_stream(name, long_text()));
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "/dev/full: cannot be written: No space left on device\n");
    }
}

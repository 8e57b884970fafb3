// What a run of vesk-data tells of itself.
#include "data/report.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <string_view>

static std::string quoted(std::string_view text)
{
    std::string json;
    append_json_string(&json, text);
    return json;
}

TEST(DataReport, QuotesForJson)
{
    EXPECT_EQ(quoted("a\"b\\c\n\x01"), "\"a\\\"b\\\\c\\u000a\\u0001\"");
    EXPECT_EQ(quoted("Gr\xc3\xbc\xc3\x9f \xe2\x99\x94 \xf0\x9f\x8f\x81"),
        "\"Gr\xc3\xbc\xc3\x9f \xe2\x99\x94 \xf0\x9f\x8f\x81\"");
}

// Latin-1, an overlong form, half a pair, a cut end, beyond the last character.
TEST(DataReport, ReplacesWhatIsNoUtf8)
{
    EXPECT_EQ(quoted("\xfc"), "\"\xef\xbf\xbd\"");
    EXPECT_EQ(quoted("\xc0\xaf"), "\"\xef\xbf\xbd\xef\xbf\xbd\"");
    EXPECT_EQ(quoted("\xed\xa0\x80"), "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"");
    EXPECT_EQ(quoted("\xe2\x99"), "\"\xef\xbf\xbd\xef\xbf\xbd\"");
    EXPECT_EQ(quoted("\xf4\x90\x80\x80"), "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"");
}

TEST(DataReport, TellsRefusalsUpToALimitAndCountsAll)
{
    CommonOptions common;
    common.max_messages = 2;
    Report report = start_report("games", common);
    testing::internal::CaptureStderr();
    refuse_item(&report, "a.pgn",
        { 7, "no such move",
            "N\x1b"
            "f9" });
    refuse_item(&report, "a.pgn", { 0, "variant", "" });
    refuse_item(&report, "a.pgn", { 9, "variant", "" });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "a.pgn:7: no such move: N?f9\na.pgn: variant\n"
        "what else is refused is only counted; --max-messages tells more\n");
    testing::internal::CaptureStderr();
    fail_file(&report, "Andr\xc3\xa9 \xc2\x9b\x33mr\xe9", "is \xe2\x80\x9codd\xe2\x80\x9d\x7f", 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "Andr\xc3\xa9 ?3mr?: is \xe2\x80\x9codd\xe2\x80\x9d?\n");
    EXPECT_EQ(report.refused, 3);
    ASSERT_EQ(report.groups.size(), 1u);
    EXPECT_EQ(report.groups[0].counts[1].name, "variant");
    EXPECT_EQ(report.groups[0].counts[1].value, 2);
}

TEST(DataReport, NotesHideNoRefusals)
{
    CommonOptions common;
    common.max_messages = 1;
    Report report = start_report("book check", common);
    testing::internal::CaptureStderr();
    note_item(&report, "a.bin", { .reason = "weight 0", .detail = {}, .entry = 1 });
    note_item(&report, "a.bin", { .reason = "weight 0", .detail = {}, .entry = 2 });
    refuse_item(&report, "a.bin", { .reason = "no move", .detail = {}, .entry = 3 });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "a.bin: entry 1: weight 0\n"
        "what else is noted is only counted; --max-messages tells more\n"
        "a.bin: entry 3: no move\n"
        "what else is refused is only counted; --max-messages tells more\n");
}

TEST(DataReport, TellsWhatWasKeptInItsOrder)
{
    CommonOptions common;
    common.max_messages = 1;
    Report ahead;
    ahead.keeps = true;
    testing::internal::CaptureStderr();
    refuse_item(&ahead, "a.pgn", { .line = 7, .reason = "no such move", .detail = "Nf9" });
    fail_file(&ahead, "b.pgn", "cannot be read", ENOENT);
    note_item(&ahead, "c.pgn", { .reason = "odd", .detail = {} });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(ahead.refused + ahead.failed, 0);
    Report report = start_report("games", common);
    testing::internal::CaptureStderr();
    tell_kept(&report, &ahead.kept);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "a.pgn:7: no such move: Nf9\n"
        "what else is refused is only counted; --max-messages tells more\n"
        "b.pgn: cannot be read: No such file or directory\n"
        "c.pgn: odd\n"
        "what else is noted is only counted; --max-messages tells more\n");
    EXPECT_EQ(report.refused, 1);
    EXPECT_EQ(report.failed, 1);
    EXPECT_TRUE(ahead.kept.empty());
}

TEST(DataReport, EndsAsTableOrJson)
{
    CommonOptions common;
    Report report = start_report("games", common);
    add_count(&report, "games", "read", 3);
    add_count(&report, "games", "used");
    add_count(&report, "games", "used", 2);
    testing::internal::CaptureStdout();
    EXPECT_EQ(finish_report(&report, common, true), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
        "games\n  read             3\n  used             3\n");
    common.json = true;
    testing::internal::CaptureStdout();
    report.refused = 1;
    EXPECT_EQ(finish_report(&report, common, true, "\"more\":[1]"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
        "{\"word\":\"games\",\"refusals\":1,\"failed_files\":0,"
        "\"games\":{\"read\":3,\"used\":3},\"messages\":[],\"more\":[1]}\n");
}

TEST(DataReport, ListsForScriptsWhatItTold)
{
    CommonOptions common;
    common.json = true;
    common.max_messages = 1;
    Report report = start_report("book", common);
    testing::internal::CaptureStderr();
    fail_file(&report, "no\"where", "cannot be opened", ENOENT);
    refuse_item(&report, "a.bin", { 0, "illegal move", "", 4 });
    note_item(&report, "a.pgn", { 7, "odd", "Nf9" });
    note_item(&report, "a.pgn", { 8, "odd", "" });
    testing::internal::GetCapturedStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(finish_report(&report, common, true), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
        "{\"word\":\"book\",\"refusals\":1,\"failed_files\":1,\"refused\":{\"illegal move\":1},"
        "\"noted\":{\"odd\":2},\"messages\":["
        "{\"kind\":\"failed\",\"file\":\"no\\\"where\",\"reason\":\"cannot be opened\","
        "\"detail\":\"No such file or directory\"},"
        "{\"kind\":\"refused\",\"file\":\"a.bin\",\"entry\":4,\"reason\":\"illegal move\"},"
        "{\"kind\":\"noted\",\"file\":\"a.pgn\",\"line\":7,\"reason\":\"odd\",\"detail\":\"Nf9\"}"
        "]}\n");
}

TEST(DataReport, ListsNoMoreThanItMayHold)
{
    CommonOptions common;
    common.max_messages = 1000000;
    Report report = start_report("games", common);
    const std::string detail(1 << 20, 'x');
    testing::internal::CaptureStderr();
    for (i32 i = 0; i < 40; ++i) {
        refuse_item(&report, "a.pgn", { 1, "odd", detail });
    }
    testing::internal::GetCapturedStderr();
    EXPECT_LT(report.messages.size(), most_message_bytes + 2 * detail.size());
    EXPECT_EQ(report.refused, 40);
}

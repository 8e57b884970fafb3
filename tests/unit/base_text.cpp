// Texts that grow, and numbers read out of texts.
#include "base/text.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <span>

#include <string>

#include "test_support.h"

TEST(Text, GrowsPieceByPiece)
{
    char room[32];
    TextBuffer text = { room };
    append_format(&text, "%s=", "depth");
    append_format(&text, "%3d", 7);
    EXPECT_STREQ(room, "depth=  7");
    EXPECT_EQ(text.used, 9u);
}

TEST(Text, IsCutWhereTheRoomEndsAndStaysClosed)
{
    char room[6];
    memset(room, 'x', sizeof room);
    TextBuffer text = { std::span(room, 5) };
    append_format(&text, "%d", 123456789);
    EXPECT_STREQ(room, "1234");
    EXPECT_EQ(text.used, 4u);
    append_format(&text, "more");
    EXPECT_STREQ(room, "1234");
    EXPECT_EQ(text.used, 4u);
    EXPECT_EQ(room[5], 'x');
}

// The C library's reading is the yardstick.
TEST(Text, IntegersAreReadAsTheLibraryReadsThem)
{
    for (const char* text : { "", " ", "0", "-0", "+0", "7", "+7", "-7", "  42", "\t\n\v\f\r 42",
             "007", "+-7", "-+7", "--7", "- 7", "+ 7", "7x", "x7", "0x10", "1e3", "1.5", "12 34",
             "9223372036854775807", "9223372036854775808", "-9223372036854775808",
             "-9223372036854775809", "99999999999999999999999999", "-99999999999999999999999999",
             "99999999999999999999999999x", "+", "-", "+x" }) {
        EXPECT_EQ(read_integer(text), strtoll(text, nullptr, 10)) << '"' << text << '"';
    }
    u64 state = 3;
    for (i32 round = 0; round < 20000; ++round) {
        std::string text;
        for (u32 left = next_random(&state, 24); left > 0; --left) {
            text += " \t+-0123456789x"[next_random(&state, 15)];
        }
        EXPECT_EQ(read_integer(text.c_str()), strtoll(text.c_str(), nullptr, 10)) << text;
    }
}

TEST(Text, NumbersBeyondATypeBecomeItsNearest)
{
    EXPECT_EQ(read_i32("2147483648"), 2147483647);
    EXPECT_EQ(read_i32("-2147483649"), -2147483647 - 1);
    EXPECT_EQ(narrow_to_i16(40000.0), 32767);
    EXPECT_EQ(narrow_to_i16(-40000.0), -32768);
    EXPECT_EQ(narrow_to_i16(read_real("nan")), 0);
}

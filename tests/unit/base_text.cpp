// Texts that grow, and numbers read out of texts.
#include "base/text.h"

#include <bit>
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

// Bit by bit, so that a zero has its sign.
static void compare_real(const std::string& text)
{
    const f64 expected = strtod(text.c_str(), nullptr);
    EXPECT_EQ(std::bit_cast<u64>(read_real(text.c_str())),
        std::bit_cast<u64>(expected == expected ? expected : 0.0))
        << '"' << text << '"';
}

TEST(Text, RealNumbersAreReadAsTheLibraryReadsThem)
{
    for (const char* text :
        { "", "-", "+", ".", "-.", "0", "-0", "+0.0", "-0.00", ".5", "5.", "-.5x", "1..5", "1.2.3",
            "0x10", "0x1p3", "1e3", "1.5e", "2.05", "-2.05/12", " 1", "\t-1.5", "inf", "-infinity",
            "nan", "999999999999999", "9999999999999999", "0.999999999999999", "0.00000000000001",
            "0.000000000000001", "123456789.0123456789", "1,5" }) {
        compare_real(text);
    }
    u64 state = 7;
    for (i32 round = 0; round < 50000; ++round) {
        std::string text;
        for (u32 left = next_random(&state, 20); left > 0; --left) {
            text += "0123456789012345678901234567..-+ex"[next_random(&state, 34)];
        }
        compare_real(text);
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

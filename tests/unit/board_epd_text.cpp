// Operations of EPD lines.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "test_support.h"
#include "board/notation.h"

struct EpdLine {
    i32 result;
    std::string pos;
    std::string bm;
    std::string am;
    std::string id;
    std::string ce;
    std::string c0;
};

// Buffers of the sizes told, so that a sanitizer sees a write behind any of them.
static EpdLine read_epd(const std::string& line)
{
    char* pos = new char[epd_pos_size];
    char* op[5];
    for (char*& buffer : op) {
        buffer = new char[epd_operand_size];
        memset(buffer, '?', static_cast<size_t>(epd_operand_size));
    }
    const i32 result = read_epd_ops(line.c_str(), pos, op[0], op[1], op[2], op[3], op[4]);
    const EpdLine read = { result, pos, op[0], op[1], op[2], op[3], op[4] };
    delete[] pos;
    for (char* buffer : op) {
        delete[] buffer;
    }
    return read;
}

static const std::string epd_fields = "8/8/8/8/8/8/4k3/4K3 w - -";

TEST(EpdText, EpdLineIsSplitIntoPositionAndOperations)
{
    const EpdLine line = read_epd(epd_fields + " bm Nf3; id \"two words\";");
    EXPECT_EQ(line.result, 1);
    EXPECT_EQ(line.pos, epd_fields);
    EXPECT_EQ(line.bm, "Nf3");
    EXPECT_EQ(line.id, "\"twowords\"");
    EXPECT_EQ(line.am + line.ce + line.c0, "");
}

TEST(EpdText, AllFiveEpdOperationsAreRead)
{
    const EpdLine line =
        read_epd(epd_fields + " c0 \"a b\"; ce -12; id x.1; am e4; bm d4,Nf3; pv e4 e5;");
    EXPECT_EQ(line.bm, "d4,Nf3");
    EXPECT_EQ(line.am, "e4");
    EXPECT_EQ(line.id, "x.1");
    EXPECT_EQ(line.ce, "-12");
    EXPECT_EQ(line.c0, "\"ab\"");
}

TEST(EpdText, BlanksInsideAnOperandAreLeftOut)
{
    EXPECT_EQ(read_epd(epd_fields + " bm Nf3 Nc3;").bm, "Nf3Nc3");
    EXPECT_EQ(read_epd(epd_fields + " bm   Nf3 ,  Nc3  ;").bm, "Nf3,Nc3");
}

TEST(EpdText, CountersOfAFenArePassedOver)
{
    const EpdLine line = read_epd(epd_fields + " 12 34 bm Ke3;");
    EXPECT_EQ(line.pos, epd_fields);
    EXPECT_EQ(line.bm, "Ke3");
    EXPECT_EQ(read_epd(epd_fields + " 0 1").pos, epd_fields);
}

TEST(EpdText, LastOfTwoEqualOperationsCounts)
{
    EXPECT_EQ(read_epd(epd_fields + " bm e4; bm d4;").bm, "d4");
    EXPECT_EQ(read_epd(epd_fields + " bm e4; bm ;").bm, "");
}

TEST(EpdText, OpcodeMustEqualItsNameAndEndsAtABlank)
{
    const EpdLine line = read_epd(epd_fields + " bmx e4; BM d4; b c4; am; bm f4; id y;");
    EXPECT_EQ(line.bm, "");
    EXPECT_EQ(line.am, "");
    EXPECT_EQ(line.id, "y");
}

TEST(EpdText, OperationWithoutASemicolonEndsTheReading)
{
    const EpdLine line = read_epd(epd_fields + " bm e4; id x");
    EXPECT_EQ(line.bm, "e4");
    EXPECT_EQ(line.id, "");
    EXPECT_EQ(read_epd(epd_fields + " bm").bm, "");
    EXPECT_EQ(read_epd(epd_fields + " bm e4").bm, "");
}

TEST(EpdText, OperationsMayFollowWithoutOrWithManyBlanks)
{
    const EpdLine line = read_epd(epd_fields + "    bm e4;am d4;    id x;\n");
    EXPECT_EQ(line.bm, "e4");
    EXPECT_EQ(line.am, "d4");
    EXPECT_EQ(line.id, "x");
}

TEST(EpdText, ShortLinesHaveNoOperations)
{
    for (const char* text : { "", "8/8/8/8/8/8/4k3/4K3", "8/8/8/8/8/8/4k3/4K3 w -", "   " }) {
        const EpdLine line = read_epd(text);
        EXPECT_EQ(line.result, 1);
        EXPECT_EQ(line.pos, text);
        EXPECT_EQ(line.bm + line.am + line.id + line.ce + line.c0, "");
    }
    EXPECT_EQ(read_epd("    bm e4;").pos, "   ");
}

TEST(EpdText, OverlongTextsOfAnEpdLineAreCut)
{
    const std::string many(2000, 'x');
    EpdLine line = read_epd(many + " w - - bm e4;");
    EXPECT_EQ(line.pos, many.substr(0, epd_pos_size - 1));
    EXPECT_EQ(line.bm, "e4");

    line = read_epd(epd_fields + ' ' + many + " d4; bm e4;");
    EXPECT_EQ(line.pos, epd_fields);
    EXPECT_EQ(line.bm, "e4");

    line = read_epd(epd_fields + " id " + many + "; bm " + many + "; am d4;");
    EXPECT_EQ(line.id, many.substr(0, 327));
    EXPECT_EQ(line.bm, many.substr(0, 327));
    EXPECT_EQ(line.am, "d4");

    line = read_epd(epd_fields + " id " + many.substr(0, 327) + ';');
    EXPECT_EQ(line.id, many.substr(0, 327));
    // An opcode of 64 characters is not the name that its first ones make.
    line = read_epd(epd_fields + " bm" + std::string(62, 'm') + " e4; c0 y;");
    EXPECT_EQ(line.bm, "");
    EXPECT_EQ(line.c0, "y");
}

TEST(EpdText, AnyBytesMayStandInAnEpdLine)
{
    u64 state = 4;
    for (i32 i = 0; i < 2000; ++i) {
        std::string text;
        const u32 length = next_random(&state, 900);
        for (u32 k = 0; k < length; ++k) {
            const u32 kind = next_random(&state, 8);
            text += kind == 0 ? ' '
                : kind == 1   ? ';'
                              : static_cast<char>(1 + next_random(&state, 255));
        }
        const EpdLine line = read_epd(text);
        EXPECT_EQ(line.result, 1);
        EXPECT_LT(line.pos.size(), static_cast<size_t>(epd_pos_size));
        EXPECT_LT(line.bm.size(), static_cast<size_t>(epd_operand_size));
    }
}

TEST(EpdText, EpdListKeepsItsBlanks)
{
    const auto list = [](const std::string& operations, const char* opcode) {
        char operand[32];
        read_epd_list(
            ("8/8/8/8/8/8/8/8 w - - " + operations).c_str(), opcode, operand, sizeof operand);
        return std::string(operand);
    };
    EXPECT_EQ(list("bm Nf3 e4;", "bm"), " Nf3 e4");
    EXPECT_EQ(list("0 1 id \"a b\"; bm Nf3, e4 ;", "bm"), " Nf3, e4 ");
    EXPECT_EQ(list("bm Nf3; bm e4;", "bm"), " e4"); // the last one counts
    EXPECT_EQ(list("bm Nf3; am e4", "am"), "");     // never closed
    EXPECT_EQ(list("bm Nf3 e4;", "am"), "");
    EXPECT_EQ(list("bmx Nf3;", "bm"), "");
    EXPECT_EQ(list("bm " + std::string(100, 'x') + ";", "bm"), " " + std::string(30, 'x'));
    EXPECT_EQ(list("", "bm"), "");
}

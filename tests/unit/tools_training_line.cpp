// How the result of a training line is read.
#include <gtest/gtest.h>

#include <string>

#include "tools/training_line.h"

static f64 result_of(const std::string& line, i32 side = White)
{
    return read_result(line.c_str(), side);
}

static f64 bracket_of(const std::string& line, i32 side = White)
{
    f64 result = -1.0;
    return read_bracket_result(line.c_str(), side, &result) ? result : no_result;
}

TEST(TrainingLine, GrIsFromTheViewOfTheSideToMove)
{
    for (const i32 side : { White, Black }) {
        EXPECT_EQ(result_of("p w - - ce 1; gr 1.0;", side), 1.0);
        EXPECT_EQ(result_of("p w - - gr 0.5; ce 1;", side), 0.5);
        EXPECT_EQ(result_of("p w - - gr 0;", side), 0.0);
        EXPECT_EQ(result_of("p w - - gr 0.25", side), 0.25);
        EXPECT_EQ(result_of("p w - - gr ;", side), 0.0);
    }
    EXPECT_EQ(result_of("p w - - gr 0.2500000000000001;"), 0.25); // fifteen characters count
    EXPECT_EQ(result_of("p w - - ce 3;"), no_result);
    EXPECT_EQ(result_of("p w - -gr 1;"), no_result);
}

TEST(TrainingLine, C9IsFromTheViewOfWhite)
{
    EXPECT_EQ(result_of("p w - - c9 \"1-0\";"), 1.0);
    EXPECT_EQ(result_of("p b - - c9 \"1-0\";", Black), 0.0);
    EXPECT_EQ(result_of("p w - - c9 \"0-1\";"), 0.0);
    EXPECT_EQ(result_of("p b - - c9 \"0-1\";", Black), 1.0);
    EXPECT_EQ(result_of("p w - - c9 \"1/2-1/2\";"), 0.5);
    EXPECT_EQ(result_of("p b - - c9 1/2;", Black), 0.5);
}

TEST(TrainingLine, C9GoesBeforeGr)
{
    EXPECT_EQ(result_of("p w - - gr 0.0; c9 \"1-0\";"), 1.0);
    EXPECT_EQ(result_of("p b - - c9 \"1-0\"; gr 1.0;", Black), 0.0);
}

TEST(TrainingLine, AnUnknownC9LeavesGrAndTurnsIt)
{
    EXPECT_EQ(result_of("p w - - gr 0.75; c9 \"*\";"), 0.75);
    EXPECT_EQ(result_of("p b - - gr 0.75; c9 \"*\";", Black), 0.25);
    EXPECT_EQ(result_of("p w - - c9 \"*\";"), no_result);
    EXPECT_EQ(result_of("p b - - c9 \"*\";", Black), 10.0);
}

TEST(TrainingLine, ABracketIsFromTheViewOfWhite)
{
    EXPECT_EQ(bracket_of("p w - - [1.0]"), 1.0);
    EXPECT_EQ(bracket_of("p b - - [1.0]", Black), 0.0);
    EXPECT_EQ(bracket_of("p w - - ce 1; [0.0]"), 0.0);
    EXPECT_EQ(bracket_of("p b - - [0.0] ce 1;", Black), 1.0);
    EXPECT_EQ(bracket_of("p w - - [0.5]"), 0.5);
    EXPECT_EQ(bracket_of("p w - - [anything", Black), 0.5);
    EXPECT_EQ(bracket_of("p w - - ce 1;"), no_result);
}

TEST(TrainingLine, TheTargetIsNineParts)
{
    EXPECT_EQ(blend_target(1.0, 0.5f), 0.95f);
    EXPECT_EQ(blend_target(0.0, 1.0f), 0.1f);
}

// Scores in comments.
#include "data/games_scores.h"

#include <gtest/gtest.h>

#include <string>

// What a move of a side gets behind it for a comment.
static std::string rewritten(const char* comment, ScoreView view, i32 side = White)
{
    const CommentContent content = read_score_comment(comment);
    if (content.score.form == NoScore) {
        return "none";
    }
    std::string out;
    append_score(&out, content.score, view, side);
    return out;
}

static ScoreForm form_of(const char* comment)
{
    return read_score_comment(comment).score.form;
}

TEST(DataGamesScores, PawnsBecomeCentipawns)
{
    EXPECT_EQ(rewritten("[%eval 1.23]", ScoreView::White), " {eval 123}");
    EXPECT_EQ(
        rewritten(" [%eval -3.5,20] [%clk 0:01:02] ", ScoreView::White), " {eval -350, depth 20}");
    EXPECT_EQ(rewritten("[%clk 0:01:02] [%eval 0.0]", ScoreView::White), " {eval 0}");
    EXPECT_EQ(rewritten("[%eval\n0.17]", ScoreView::White), " {eval 17}");
    EXPECT_EQ(rewritten("[%eval -0.005]", ScoreView::White), " {eval -1}");
    EXPECT_EQ(rewritten("[%eval 123456789.5]", ScoreView::White), " {eval 9999}");
}

TEST(DataGamesScores, AreTurnedForBlack)
{
    EXPECT_EQ(rewritten("[%eval 1.23]", ScoreView::White, Black), " {eval 123}");
    EXPECT_EQ(rewritten("[%eval 1.23]", ScoreView::Mover, Black), " {eval -123}");
    EXPECT_EQ(rewritten("[%eval 1.23]", ScoreView::Mover, White), " {eval 123}");
    EXPECT_EQ(rewritten("[%eval #-4]", ScoreView::White, Black), " {+M4/0}");
    EXPECT_EQ(rewritten("[%eval #-4]", ScoreView::White, White), " {-M4/0}");
    EXPECT_EQ(rewritten("[%eval #4]", ScoreView::White, Black), " {-M4/0}");
    EXPECT_EQ(rewritten("+M5/20 0.1s", ScoreView::Mover, Black), " {+M5/20}");
    EXPECT_EQ(rewritten("+M5/20 0.1s", ScoreView::White, Black), " {-M5/20}");
    EXPECT_EQ(rewritten("+0.35/12", ScoreView::White, Black), " {eval 35, depth 12}");
}

TEST(DataGamesScores, OfMatchProgramsStayAsTheyAre)
{
    EXPECT_EQ(rewritten("+0.35/12 1.2s", ScoreView::Mover), " {+0.35/12}");
    EXPECT_EQ(rewritten("-2.05/9", ScoreView::Mover, Black), " {-2.05/9}");
    EXPECT_EQ(rewritten("(Nf3 d5) +0.35/12 5", ScoreView::Mover), " {+0.35/12}");
    EXPECT_EQ(rewritten("0.00/20 0.1s, Draw by 3-fold repetition", ScoreView::Mover), " {0.00/20}");
    EXPECT_EQ(rewritten("book", ScoreView::Mover), " {book}");
}

// The scanner reads nothing below -9999 centipawns for a score of a move.
TEST(DataGamesScores, AreCutToWhatTheScannerReads)
{
    EXPECT_EQ(rewritten("-319.97/12", ScoreView::Mover), " {-99.99/12}");
    EXPECT_EQ(rewritten("+319.97/12", ScoreView::Mover), " {+99.99/12}");
    EXPECT_EQ(rewritten("319.97/12", ScoreView::Mover), " {+99.99/12}");
    EXPECT_EQ(rewritten("-100.00/12", ScoreView::Mover), " {-99.99/12}");
    EXPECT_EQ(rewritten("-99.98/12", ScoreView::Mover), " {-99.98/12}");
    EXPECT_EQ(rewritten("-1000.05/9", ScoreView::White, Black), " {eval -9999, depth 9}");
    EXPECT_EQ(rewritten("+327.67/9", ScoreView::Mover, Black), " {+99.99/9}");
    EXPECT_EQ(rewritten("wv=-310.00", ScoreView::White), " {eval -9999}");
    EXPECT_EQ(rewritten("wv=310", ScoreView::White, Black), " {eval 9999}");
    EXPECT_EQ(rewritten("[%eval -299.98]", ScoreView::White), " {eval -9999}");
    EXPECT_EQ(rewritten("[%eval -30000,20]", ScoreView::White), " {eval -9999, depth 20}");
    EXPECT_EQ(rewritten("[%eval 152.65]", ScoreView::Mover, Black), " {eval -9999}");
    EXPECT_EQ(rewritten("eval -30000", ScoreView::White), " {eval -9999}");
    EXPECT_EQ(rewritten("(eval) 29999", ScoreView::Mover, Black), " {eval -9999}");
    EXPECT_EQ(rewritten("-1000.05", ScoreView::White), " {eval -9999}");
    EXPECT_EQ(rewritten("[%eval -99.98]", ScoreView::White), " {eval -9998}");
}

TEST(DataGamesScores, HaveTheirForms)
{
    EXPECT_EQ(form_of("[%eval 35,12]"), CentipawnEval);
    EXPECT_EQ(form_of("eval 25, depth 12"), EvalWord);
    EXPECT_EQ(form_of("eval 0.25"), EvalMark);
    EXPECT_EQ(form_of("(eval) 35"), EvalMark);
    EXPECT_EQ(form_of("(eval) -0.35"), EvalMark);
    EXPECT_EQ(form_of("d=20, wv=0.35, tb=0"), WhiteValue);
    EXPECT_EQ(form_of("ev=-0.35, d=20"), EngineValue);
    EXPECT_EQ(form_of("+0.35"), LoneScore);
    EXPECT_EQ(form_of("-M4"), LoneScore);
    EXPECT_EQ(form_of("0.00"), LoneScore);
    EXPECT_EQ(form_of("0.35/12 5"), SlashScore);
    EXPECT_EQ(form_of("(Nf3) 0.35/12"), SlashScore);
    EXPECT_EQ(form_of("0.00/20 1.2s"), SlashScore);
    EXPECT_EQ(form_of("-1.2/9"), SlashScore);
    EXPECT_EQ(form_of("+.35/12"), SlashScore);
    EXPECT_EQ(form_of("+M5/10"), SlashScore);
    EXPECT_EQ(form_of("see M5/20"), SlashScore);
    EXPECT_EQ(form_of("book, mb=+0+0+0+0+0,"), BookMove);
    EXPECT_EQ(form_of("out of book"), BookMove);
}

TEST(DataGamesScores, LeaveOtherTextsAlone)
{
    for (const char* comment : { "", "1/2", "1/2-1/2", "a draw on 12/03", "d4/e4", "35", "12 s",
             "Kasparov's book of 1990", "eval", "eval of nothing", "wv=x", "+-/=", "0/12", "#",
             "[%clk 0:01:00]", "[%emt 1.25]", "[%eval]", "[%eval x]", "[%eval #0]", "[%evp 0,33]",
             "/12", "+/12", "a/b +0.35x/12", "[%eval 1.2.3]", "leads with 5.5/7", "0.35", "2.5",
             "12.05/2024", "1.55/20.5", "1.55/2/3", "+0.35/12.5", "5.5/9 and first",
             "3.5/5 after five rounds", "0.5/1", "(Nf3) 5.5/7", "5/9", "+1/2", "-1/2", "+3/12" }) {
        EXPECT_EQ(form_of(comment), NoScore) << comment;
    }
    EXPECT_EQ(read_score_comment("[%eval x] [%eval #0]").unreadable, 2);
    EXPECT_EQ(read_score_comment("[%clk 0:01:00] [%emt 0:00:02] [%cal Ga1a2]").clocks, 2);
}

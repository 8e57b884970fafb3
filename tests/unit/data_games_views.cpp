// From whose view scores are.
#include "data/games_views.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

// A game whose moves have these scores in turn, as "(eval) N".
static std::string game_with(i32 white_score, i32 black_score, i32 pairs, const char* result)
{
    std::string text;
    for (i32 i = 0; i < pairs; ++i) {
        char move[128];
        snprintf(
            move, sizeof move, "%d. a {(eval) %d} b {(eval) %d} ", i + 1, white_score, black_score);
        text += white_score == 0 ? move + std::string(move).find("a") : move;
    }
    return text + result;
}

static ScoreView told_by(const std::string& text)
{
    GameText game;
    EXPECT_NE(read_game(text.data(), text.data() + text.size(), &game), nullptr);
    const ViewTable first = views_of_forms(ScoreView::Unknown);
    return views_of_game(game, first, first)[EvalMark];
}

TEST(DataGamesViews, SignsThatAlternateAreTheMovers)
{
    EXPECT_EQ(told_by(game_with(80, -90, 10, "1-0")), ScoreView::Mover);
    EXPECT_EQ(told_by(game_with(-80, 90, 10, "1-0")), ScoreView::Mover);
    EXPECT_EQ(told_by(game_with(80, 90, 10, "0-1")), ScoreView::White);
    EXPECT_EQ(told_by(game_with(-80, -90, 10, "*")), ScoreView::White);
}

TEST(DataGamesViews, LittleOrNoEvidenceTellsNothing)
{
    EXPECT_EQ(told_by(game_with(80, -90, 3, "1-0")), ScoreView::Unknown);
    EXPECT_EQ(told_by(game_with(20, -20, 30, "1-0")), ScoreView::Unknown);
    EXPECT_EQ(told_by("1. a {(eval) 90} b {(eval) 90} c {(eval) -90} d {(eval) 90} *"),
        ScoreView::Unknown);
}

TEST(DataGamesViews, TheWinnerTellsWhereWhiteHasNoScores)
{
    std::string text;
    for (i32 i = 0; i < 20; ++i) {
        text += "a b {(eval) 300} ";
    }
    GameText game;
    EvidenceTable evidence = {};
    const std::string won = text + "0-1";
    ASSERT_NE(read_game(won.data(), won.data() + won.size(), &game), nullptr);
    add_evidence(game, &evidence);
    EXPECT_EQ(view_of_games(evidence[EvalMark]), ScoreView::Mover);
    evidence = {};
    const std::string lost = text + "1-0";
    ASSERT_NE(read_game(lost.data(), lost.data() + lost.size(), &game), nullptr);
    add_evidence(game, &evidence);
    EXPECT_EQ(view_of_games(evidence[EvalMark]), ScoreView::White);
}

TEST(DataGamesViews, NamesGoBeforeTheUser)
{
    for (const ScoreView told : { ScoreView::Unknown, ScoreView::White, ScoreView::Mover }) {
        const ViewTable views = views_of_forms(told);
        EXPECT_EQ(views[WhiteValue], ScoreView::White);
        EXPECT_EQ(views[EngineValue], ScoreView::Mover);
        EXPECT_EQ(views[EvalWord], ScoreView::White);
        EXPECT_EQ(views[SlashScore], told);
    }
    EXPECT_EQ(views_of_forms(ScoreView::Unknown)[PawnEval], ScoreView::White);
    EXPECT_EQ(views_of_forms(ScoreView::Mover)[PawnEval], ScoreView::Mover);
}

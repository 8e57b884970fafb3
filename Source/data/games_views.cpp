// Telling views by majorities: single pairs of scores may speak for the wrong one, as behind a
// blunder.
#include "data/games_views.h"

#include <algorithm>

// Scores near zero tell no view: both players may be pleased.
static constexpr i32 least_size = 60; // centipawns
static constexpr i32 least_late_size = 200;
static constexpr size_t late_moves = 20; // half-moves at the end of a game

ViewTable views_of_forms(ScoreView told)
{
    ViewTable views;
    views.fill(told);
    if (told == ScoreView::Unknown) {
        views[PawnEval] = ScoreView::White;
        views[CentipawnEval] = ScoreView::White;
    }
    views[EvalWord] = ScoreView::White;
    views[WhiteValue] = ScoreView::White;
    views[EngineValue] = ScoreView::Mover;
    views[BookMove] = ScoreView::Mover;
    return views;
}

static bool is_large(const GameScore& score, i32 least)
{
    return score.is_mate || score.size >= least;
}

// A pair of scores that follow each other.
static void add_pair(const GameScore& before, const GameScore& score, EvidenceTable* table)
{
    if (score.form == before.form && is_large(before, least_size) && is_large(score, least_size)) {
        ViewEvidence* evidence = &(*table)[score.form];
        ++(score.is_negative == before.is_negative ? evidence->white : evidence->mover);
    }
}

void add_evidence(const GameText& game, EvidenceTable* table)
{
    const size_t count = game.moves.size();
    for (size_t i = 1; i < count; ++i) {
        add_pair(game.moves[i - 1].score, game.moves[i].score, table);
    }
    if (game.end != GameEnd::WhiteWins && game.end != GameEnd::BlackWins) {
        return;
    }
    const bool black_wins = game.end == GameEnd::BlackWins;
    for (size_t i = count - std::min(count, late_moves); i < count; ++i) {
        const GameScore& score = game.moves[i].score;
        const bool is_blacks = i % 2 == 1;
        if (is_blacks && game.moves[i - 1].score.form != score.form
            && is_large(score, least_late_size)) {
            ViewEvidence* evidence = &(*table)[score.form];
            ++(score.is_negative == black_wins ? evidence->white : evidence->mover);
        }
    }
}

// The view of at least `least` pieces of evidence, of which `percent` agree.
static ScoreView judge_evidence(const ViewEvidence& evidence, i32 least, i32 percent)
{
    const i32 all = evidence.white + evidence.mover;
    const i32 most = std::max(evidence.white, evidence.mover);
    if (all < least || i64 { 100 } * most < i64 { percent } * all) {
        return ScoreView::Unknown;
    }
    return evidence.white > evidence.mover ? ScoreView::White : ScoreView::Mover;
}

ScoreView view_of_games(const ViewEvidence& evidence)
{
    constexpr i32 least = 8;
    constexpr i32 percent = 80;
    return judge_evidence(evidence, least, percent);
}

ViewTable views_of_game(const GameText& game, const ViewTable& file_views, const ViewTable& first)
{
    constexpr i32 least = 12;
    constexpr i32 percent = 90;
    EvidenceTable evidence = {};
    add_evidence(game, &evidence);
    ViewTable views = file_views;
    for (size_t form = 0; form < views.size(); ++form) {
        if (first[form] == ScoreView::Unknown) {
            const ScoreView own = judge_evidence(evidence[form], least, percent);
            views[form] = own != ScoreView::Unknown ? own : views[form];
        }
    }
    return views;
}

// From whose view the scores of games are: what their form says, and what the games tell.
#pragma once

#include <array>

#include "base/types.h"
#include "data/games_scores.h"
#include "data/games_text.h"

// How much speaks for either view.
struct ViewEvidence {
    i32 white = 0;
    i32 mover = 0;
};

// The view of each form, Unknown where it is for the data to tell; and the evidence for it.
using ViewTable = std::array<ScoreView, score_form_count>;
using EvidenceTable = std::array<ViewEvidence, score_form_count>;

// The views before any data has been looked at. A view that the user tells holds for all forms but
// those whose name tells it.
[[nodiscard]] ViewTable views_of_forms(ScoreView told);

// Adds what the scores of a game tell of their view. Engines that take turns see the one its gain
// where the other sees its loss, so from the movers' view scores change their sign with each move.
// And who wins has seen it coming: that tells the view where only Black has scores.
void add_evidence(const GameText& game, EvidenceTable* table);

// The view that many games together tell.
[[nodiscard]] ScoreView view_of_games(const ViewEvidence& evidence);

// The views for one game: those of its file, but for a form that is for the data to tell where the
// game by itself tells another one, surely. first are the views before any data.
[[nodiscard]] ViewTable views_of_game(
    const GameText& game, const ViewTable& file_views, const ViewTable& first);

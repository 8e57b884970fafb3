// What the user wants of games, and what is found in them.
#pragma once

#include <array>

#include "base/types.h"
#include "data/games_filter.h"
#include "data/games_scores.h"
#include "data/games_views.h"

// What becomes of games that were broken off, as their tag Termination tells: on time, abandoned.
enum class BrokenOff : u8 {
    Marked, // told in words by which the scanner passes over them; the book builder takes them
    Kept,   // told in words that the scanner overlooks
    LeftOut,
};

// What the user wants of each game.
struct GameRules {
    GameFilter filter;
    ViewTable first_views = {}; // before any data
    BrokenOff broken_off = BrokenOff::Marked;
    bool keeps_fen = false;   // games that do not begin at the start position
    bool only_roster = false; // no tags but the seven of every game
};

// What was found in a game, or in many.
struct GameTally {
    i64 moves = 0; // half-moves
    i64 comments = 0;
    i64 variations = 0;
    i64 marks = 0;
    i64 clocks = 0;
    i64 unreadable_scores = 0;
    i64 scores_without_view = 0;
    i64 scores_of_taken_view = 0; // Black's, taken for its view by their form alone
    i64 odd_tags = 0;
    i64 changed_tags = 0; // names or values that the tools would misread, or too long for them
    i64 without_mark = 0; // games whose moves end without their result
    i64 broken_off = 0;   // games
    std::array<i64, score_form_count> scores = {};
};

// Adds what was found in a game.
void add_tally(GameTally* sum, const GameTally& tally);

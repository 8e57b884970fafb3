// The tags of games, so written that the scanner and the book builder, which look for words in the
// whole line, take each for what it is.
#pragma once

#include <string>
#include <string_view>

#include "data/games_rules.h"
#include "data/games_text.h"

// Whether a game was broken off, by its tag Termination, in the words of any program. Words within
// the names of its players say nothing: "DeathStroke won by checkmate".
[[nodiscard]] bool is_broken_off(const GameText& game);

// Adds the tags: the seven of every game in their order, then the others unless the rules want
// none. start is the FEN of the game, empty for the usual start.
void write_tags(const GameText& game, const GameRules& rules, GameEnd end, std::string_view start,
    std::string* out, GameTally* tally);

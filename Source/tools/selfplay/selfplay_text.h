// A game as text: in the PGN form that the scanner reads, and as lines for the trainer.
#pragma once

#include <string>
#include <string_view>

#include "tools/selfplay/selfplay_game.h"

// Appends the game to out in PGN: tags, moves with the score that the mover's search has found in
// a comment ("{+0.35/12}", pawns and depth; "{book}" for a drawn move), an empty line. event is the
// text of the tag Event.
// Plays it on pos, whose position is lost.
void write_selfplay_game(
    Position* pos, const SelfplayGame* game, std::string_view event, std::string* out);

// Appends a training line for each quiet position of the game whose score lies within the trainer's
// bounds to out: position, ce, gr, and the number of the game in c0. Returns their number. Plays it
// on pos.
i32 write_selfplay_lines(Position* pos, const SelfplayGame* game, std::string* out);

// A number by which games are told apart: the same for two texts as above if their openings and
// moves are the same, whatever their tags and comments say.
[[nodiscard]] u64 key_of_game_text(std::string_view text);

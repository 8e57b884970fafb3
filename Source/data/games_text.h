// Games of a PGN file taken apart: tags, the moves of the main line as texts, and their scores.
// The import format of the Portable Game Notation (Edwards, 1994) is read with what programs and
// people make of it; positions are not looked at here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "data/games_scores.h"

struct GameTag {
    std::string_view name;
    std::string_view value; // as it stands between the quotes, its escapes included
};

struct MoveText {
    std::string_view text; // without marks of quality
    GameScore score = {};
};

enum class GameEnd : u8 { None, WhiteWins, BlackWins, Draw, Unfinished };

// "1-0", "0-1", "1/2-1/2", "*" or, for None, "?".
[[nodiscard]] const char* text_of_end(GameEnd end);

// What a result tag says: None for what is no result, "?" among it.
[[nodiscard]] GameEnd end_of_text(std::string_view text);

// A game. All texts lie in the text that it was read from.
struct GameText {
    const char* start = nullptr; // its first character
    std::vector<GameTag> tags;   // in their order
    std::vector<MoveText> moves;
    GameEnd end = GameEnd::None; // the mark behind the moves
    // What is dropped, and what cannot be read.
    i32 comments = 0;
    i32 variations = 0;
    i32 marks = 0; // NAGs, ! and ?, signs of an evaluation
    i32 clocks = 0;
    i32 unreadable_scores = 0;
    i32 odd_tags = 0; // not of the form [Name "value"]
    // Why the game cannot be used as a text; null if it can. place is where.
    const char* problem = nullptr;
    const char* place = nullptr;
    std::string_view problem_text = {}; // what stands there
};

// Whether a line that begins at text is a tag: [Name "... A comment may go on in lines with a
// bracket in front, but hardly in such a one.
[[nodiscard]] bool is_tag_line(const char* text, const char* end);

// Reads the game that begins at or behind text, up to the next tags or the end. Behind end stands a
// NUL. Returns where the next game begins, or null if there was none left: game is untouched then.
[[nodiscard]] const char* read_game(const char* text, const char* end, GameText* game);

// The value of a tag; empty if the game has none of that name.
[[nodiscard]] std::string_view tag_value(const GameText& game, std::string_view name);

// Games as the scanner and the book builder take them: PGN in export format (Portable Game
// Notation, section 3.2), with scores in the comments.
#pragma once

#include <memory>
#include <string>

#include "board/position.h"
#include "data/games_rules.h"
#include "data/games_text.h"
#include "data/games_views.h"

// A board for playing games through; one for each thread.
struct GameBoard {
    Position pos;
    UndoStack stack;
    Position start;
    UndoStack start_stack;
};

// Makes a board ready. The tables of the board must be.
[[nodiscard]] std::unique_ptr<GameBoard> make_game_board();

enum class GameFate : u8 { Used, LeftOut, Refused };

// What became of a game.
struct GameOutcome {
    GameFate fate = GameFate::Used;
    const char* reason = nullptr; // a short class of reasons; null for Used
    const char* place = nullptr;  // where in the text a refused game is to blame
    std::string detail;
    u64 key[2] = {};         // of its start and its moves
    bool lacks_view = false; // scores were dropped, whose view is not known
    bool takes_view = false; // scores of Black were taken for its own view, which nothing tells
    GameTally tally;
};

// Adds a game to out as the rules want it. out is as it was for one that is not used.
void write_game(const GameText& game, const GameRules& rules, const ViewTable& file_views,
    GameBoard* board, std::string* out, GameOutcome* outcome);

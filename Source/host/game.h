// The game that the host has set up, judged by the rules of chess: the engine takes any move it is
// given and any board it can read, so what cannot be is found here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "board/position.h"

struct HostGame {
    UndoStack stack {};
    Position pos {};
    std::string start; // what stands behind "position" before the moves, as the engine gets it
    std::string moves; // each with a blank before it
    i32 plies = 0;     // of all moves
    // The counters of the position text: half-moves without progress before it, its move's number.
    i32 start_half_moves = 0;
    i32 start_move = 1;
    // The position behind the last capture or pawn move, and what came after: all that repetitions
    // and the fifty moves hang on.
    std::string late_start;
    std::string late_moves;
    i32 late_plies = 0;
    // Why it cannot be searched, in words for the user; empty if it can.
    std::string defect;
    // The words that this game was set up by, if it has moves and no defect: the next line of the
    // same game begins with them.
    std::string words;
    // Something that was put right, in words for the user; empty if nothing was.
    std::string remark;
};

// Sets up the game of a "position" line from the words behind it: "startpos" or "fen" and its
// fields, then perhaps "moves" and moves. A text that is no such thing, a board that cannot be, a
// start of Chess960 or a move that is not legal makes a game with a defect.
void set_up_game(HostGame* game, std::string_view words);

// A line for the engine that sets up the game.
struct PositionLine {
    std::string text;
    i32 plies; // of its moves
};

// Makes that line for a game without a defect. One too long for the engine gets the moves behind
// the last capture or pawn move only. A game of more than fifty moves without one gets the board
// alone, since the engine would not search it otherwise.
[[nodiscard]] PositionLine position_line(const HostGame* game);

// The legal moves of the game's position.
[[nodiscard]] std::vector<Move> legal_moves(HostGame* game);

// The legal move that a coordinate text stands for, or NoMove.
[[nodiscard]] Move find_legal_move(HostGame* game, std::string_view text);

// The text of a move.
[[nodiscard]] std::string text_of_move(Move move);

// A legal move for want of a better one: what it takes against what the answer takes, mate first.
// There must be a legal move.
[[nodiscard]] Move choose_own_move(HostGame* game);

// The position as a whole FEN, with the counters that its text began with and the moves have moved.
[[nodiscard]] std::string whole_fen(const HostGame* game);

// Whether the side to move is in check.
[[nodiscard]] bool is_in_check(const HostGame* game);

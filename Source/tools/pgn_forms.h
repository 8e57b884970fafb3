// A game as the PGN scanner has read it, and the forms in which it is written. The moves are still
// texts: reading them needs the position, and that is set up when the game is written.
#pragma once

#include <cstdio>

#include "board/types.h"
#include "shell/dialogue.h"
#include "tools/tool_input.h"

inline constexpr i32 max_scanned_moves = 800; // half-moves; the rest of a longer game is left out

// What becomes of a game.
enum ScanForm : i32 {
    AnnotatedGames = 1,     // a game again, with blunders and their refutations marked
    TuningPositions = 2,    // positions of the middle of the game, with its result
    UndecidedPositions = 3, // positions until one side is far ahead
    RookEndings = 4,        // rook against rook with one pawn, with the result
};

// Evaluations that are none. Both lie far below any score, so that a rule about large evaluations
// takes in positions without one.
enum ScannedEval : i16 {
    NoEval = -30000,  // no comment
    BadEval = -29999, // a comment without an evaluation
};

struct ScannedMove {
    char text[8]; // as written, cut: the longest move, such as "Nb1xd2+" or "exd8=Q+", fits
    u8 size;      // of text, without its NUL
    i16 eval;     // centipawns from the view of the side that made the move
    i32 line_number;
};

inline constexpr i32 NoWinner = 2; // behind White and Black

struct ScannedGame {
    i32 count;
    i32 lost_moves; // those that found no room
    i32 result;     // White or Black for the winner, or NoWinner
    ScannedMove moves[max_scanned_moves];
};

// Plays a game on the console's position and writes it to out in one of the forms 1 to 4; form 1
// writes the refutations of blunders to a second file. A move that cannot be read is refused and
// ends the game. Returns the number of positions written.
i32 write_scanned_game(Dialogue* dialogue, i32 form, const ScannedGame* game, ToolInput* input,
    FILE* out, FILE* refutations);

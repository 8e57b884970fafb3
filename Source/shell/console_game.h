// The game of the console as a whole: walking through it, files of games, the board editor. All of
// it works on the dialogue's game, on the main thread; a running search has a copy of its own and
// is not disturbed, unless a line here says so.
#pragma once

#include "shell/dialogue.h"

// Makes the stored move behind the game's present end. Returns whether there was one that the board
// allows. Shows nothing.
bool redo_move(Dialogue* dialogue);

// Goes to the position before white's move of that number, as far as moves are stored, and shows
// the board. Numbers below 1 count as 1. A game with fewer moves is shown at its end.
void jump_to_move(Dialogue* dialogue, i32 number);

// Replaces the game by one of a PGN file and shows the board. tag is the number of the game in the
// file (0 and all above 1000 count as 1), or a text that stands in it, or empty for the first. A
// move that cannot be read ends the loading; the moves before it stay. A file that cannot be
// opened, or is no regular one, leaves the game as it is. Sets both clocks anew in all cases. Tells
// the user what it reads and which move it could not.
void load_game(Dialogue* dialogue, const char* path, const char* tag);

// Appends the game up to the present position to tmp.pgn, which is made if there is none. Does
// nothing if the file cannot be opened or is no regular one. Says on standard error if it could not
// be written; the file then ends where it did.
void save_game(Dialogue* dialogue);

// Lets the user set up the board line by line, until a line that begins with a dot or the end of
// input; waits for the lines. What is set up need not be a legal position.
void edit_board(Dialogue* dialogue);

// The game of the console as a whole: walking through it, files of games, the board editor.
#pragma once

#include "shell/dialogue.h"

// Makes the stored move behind the game's present end. Returns whether there was one that the
// board allows.
bool redo_move(Dialogue* dialogue);

// Goes to the position before white's move of that number, as far as moves are stored, and shows
// the board. Numbers below 1 count as 1.
void jump_to_move(Dialogue* dialogue, i32 number);

// Replaces the game by one of a PGN file and shows the board. tag is the number of the game in the
// file (0 and all above 1000 count as 1), or a text that stands in it, or empty for the first. A
// move that cannot be read ends the loading; the moves before it stay. A file that cannot be
// opened, or is no regular one, leaves the game as it is. Sets both clocks anew in all cases.
void load_game(Dialogue* dialogue, const char* path, const char* tag);

// Appends the game up to the present position to tmp.pgn. Does nothing if the file cannot be
// opened or is no regular one.
void save_game(Dialogue* dialogue);

// Lets the user set up the board line by line, until a line that begins with a dot or the end of
// input; waits for the lines. What is set up need not be a legal position.
void edit_board(Dialogue* dialogue);

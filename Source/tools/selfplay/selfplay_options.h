// What a run of games against itself is asked for on the command line.
#pragma once

#include "base/types.h"

// Written while the command line is read, read by the run. A game depends on these and on its
// number alone, never on how many are played at a time.
struct SelfplayOptions {
    i64 games;            // 0: no such run was asked for
    const char* out;      // file of the games; null if none was named
    const char* lines;    // file of training lines; null for none
    const char* openings; // file of positions to begin from; null for the start position
    i64 first;            // number of the first game
    i64 seed;             // of all that is left to chance
    i64 nodes;            // of a search
    i64 depth;            // of a search; 0: by nodes
    i64 spread;           // per cent by which nodes or depth of a move vary to either side
    i64 random;           // first moves that are drawn, plies; -1: by the openings
    i64 balance;          // largest score of either side behind them, centipawns
    i64 resign;           // score that decides a game, centipawns; 0: none does
    i64 draw;             // largest score of a game that is given a draw; -1: none is
    i64 hash;             // megabytes for each game
    bool resume;          // go on behind the games that the file holds
};
extern SelfplayOptions selfplay_options;

// Takes one option of such a run, with its value, from the start of count arguments. Returns how
// many arguments were taken, 0 if the first is none of them, or -1 after telling standard error
// what is wrong.
[[nodiscard]] i32 take_selfplay_arguments(char* const* arguments, i32 count);

// Whether the options, all read by now, make a run: games need a file, and the other options need
// games. Returns false after telling standard error.
[[nodiscard]] bool selfplay_is_complete();

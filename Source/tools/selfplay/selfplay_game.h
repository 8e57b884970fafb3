// One game of the engine against itself.
#pragma once

#include <vector>

#include "shell/dialogue.h"

inline constexpr i32 longest_selfplay_game = 400; // half-moves; then it is a draw

// A half-move of a game, and what its search has told.
struct SelfplayMove {
    Move move;
    i16 score;     // centipawns from the mover's view
    u8 depth;      // of the search; 0: the move was drawn, and there is no score
    bool is_quiet; // the position before it is one that an evaluation can judge
};

// Why a game is over. From EndsByScore on nobody has won or lost on the board yet.
enum GameEnd : i32 {
    EndsByMate,
    EndsByStalemate,
    EndsByRepetition,
    EndsByFiftyMoves,
    EndsByMaterial,
    EndsByScore,
    EndsByTables,
    EndsByLength,
};

struct SelfplayGame {
    i64 number;
    const char* opening; // text of the position that it begins from
    i32 count;           // half-moves
    SelfplayMove moves[longest_selfplay_game];
    i32 winner; // White, Black, or no_winner
    GameEnd end;
    u64 nodes;          // of all searches
    f64 search_seconds; // that they took
};
inline constexpr i32 no_winner = 2;

// Plays game number number as selfplay_options say, on the dialogue's game and the first worker's
// record, in the calling thread. openings are texts of sound positions with a legal move; without
// any the game begins from the start position. The same number gives the same game, whatever was
// played before. Leaves the limits of the dialogue changed and the hash table full.
void play_selfplay_game(
    Dialogue* dialogue, const std::vector<const char*>& openings, i64 number, SelfplayGame* game);

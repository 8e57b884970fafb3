// The files that games go to: each game whole or not at all, and going on where a run has ended.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "base/types.h"

// An output that grows by whole pieces.
struct GrowingFile {
    const char* name; // null: nothing is written
    int descriptor;   // -1: not open
    i64 size;         // bytes, all of them whole pieces
};

struct SelfplayFiles {
    GrowingFile games;
    GrowingFile lines;
    i64 last_number;              // of the games in the file, 0 without any
    i64 count;                    // of the games in the file
    std::unordered_set<u64> keys; // of the games in the file, see key_of_game_text
};

// Opens the files. Without resume they must not be there yet. With it the games file may hold games
// of the same event, numbered upwards; what stands behind the last whole one is cut off, and so are
// in both files the games whose lines did not reach the disk. Both stay locked against other runs
// until the end. lines may be null. Returns false after a message and with exit_status 1;
// close_selfplay_files is to follow in any case.
[[nodiscard]] bool open_selfplay_files(SelfplayFiles* files, const char* games, const char* lines,
    std::string_view event, bool resume);

// Adds a game with its lines, or tells by false that it was played before: nothing is written then.
// *failed becomes true, with a message and exit_status 1, if a file cannot take it; both then end
// with the game before.
[[nodiscard]] bool add_selfplay_game(
    SelfplayFiles* files, i64 number, std::string_view game, std::string_view lines, bool* failed);

void close_selfplay_files(SelfplayFiles* files);

// Files of games cut into pieces at the borders of games, so that several threads can work on them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "data/games_views.h"
#include "data/report.h"
#include "data/streams.h"

// A game of more text than this is refused: it is a file that is no PGN, or a comment that was
// never closed.
inline constexpr size_t most_game_text = 1 << 20;

// Some games.
struct GamesPiece {
    size_t file = 0;    // its number among the files
    i64 first_line = 1; // of the text
    std::string text;
    ViewTable views = {};      // of the file
    ViewTable told = {};       // what the data alone tells; of the first piece of a file
    bool is_first = false;     // of its file
    bool is_too_long = false;  // a game that was refused for its length begins at first_line
    i64 position = 0;          // bytes of all files that have been read when it was made
    std::vector<Telling> kept; // what is to be told before its games
};

// The reading of a number of files. Kept by one thread.
struct GamesReader {
    const std::vector<std::string>* files = nullptr;
    Report* report = nullptr; // one that keeps: the reading is ahead of the results
    ViewTable views = {};     // before any file tells more
    size_t next_file = 0;
    bool is_open = false;
    bool is_first = false; // nothing of the file has been handed out
    bool skips = false;    // up to the next game, behind one that is too long
    bool in_line = false;  // what is held begins within a line of that
    i64 line = 1;          // of what is held
    i64 finished = 0;      // bytes of the files before this one
    InputStream stream;
    std::string held; // read and not handed out
    ViewTable file_views = {};
};

// Takes the next piece. Returns false when all files have been read. Files that cannot be read are
// told of, and the others go on.
[[nodiscard]] bool take_piece(GamesReader* reader, GamesPiece* piece);

// Where the last game of the text begins, so that all before it are whole; 0 if that cannot be
// told.
[[nodiscard]] size_t find_last_game(std::string_view text);

// The views of the scores of a number of games, as the data alone tells them.
[[nodiscard]] ViewTable judge_views(const std::string& text);

// Which games of a file are wanted, by what their tags say.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "data/games_text.h"

// What the user wants. Numbers below 0 and empty texts ask for nothing.
struct GameFilter {
    i64 min_rating = -1; // of both players
    i64 max_rating = -1;
    f64 min_base = -1.0; // seconds for the game
    f64 max_base = -1.0;
    f64 min_increment = -1.0; // seconds a move
    f64 max_increment = -1.0;
    std::vector<std::string> classes = {}; // names of time_class_names
    std::vector<std::string> results = {}; // "1-0", "0-1", "1/2-1/2", "*"
    i64 min_length = -1;                   // half-moves
    i64 max_length = -1;
    std::string from = {}; // a date such as 2024, 2024.05 or 2024.05.17
    std::string to = {};
};

// Classes of time controls, by what a game of 40 moves takes a player: base and 40 increments.
inline constexpr std::string_view time_class_names[] = { "ultrabullet", "bullet", "blitz", "rapid",
    "classical", "correspondence" };

// A time control as its tag has it.
struct TimeControl {
    f64 base = -1.0;       // seconds; below 0 where it is not known
    f64 increment = 0.0;   // seconds
    bool has_days = false; // correspondence: days for a move
};

// Reads "600+5", "40/7200:3600", "1/86400", "-" and the like (Portable Game Notation,
// section 9.6.1, with increments of parts of a second as match programs have them).
[[nodiscard]] TimeControl read_time_control(std::string_view tag);

// The class of a time control; empty if it is not known.
[[nodiscard]] std::string_view class_of(const TimeControl& control);

// Reads a list of names with commas between them into names. Returns the first that is not among
// the allowed ones, or an empty text.
[[nodiscard]] std::string read_name_list(std::string_view text,
    std::span<const std::string_view> allowed, std::vector<std::string>* names);

// Whether text is a date that --from and --to take.
[[nodiscard]] bool is_date(std::string_view text);

// Why a game is not wanted: a short class of reasons; null if it is wanted. end is its result.
[[nodiscard]] const char* unwanted_by(const GameFilter& filter, const GameText& game, GameEnd end);

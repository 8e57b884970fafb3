// The limits of one "go", and the words that give the engine these and no others: it keeps limits
// of depth and nodes, increments and clocks from one "go" to the next.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"

// What a "go" asks for. Times in milliseconds; what is not there was not said.
struct GoLimits {
    std::optional<i64> clock[2]; // by side
    i64 increment[2] = { 0, 0 };
    std::optional<i64> moves_to_go;
    std::optional<i64> depth;
    std::optional<i64> nodes;
    std::optional<i64> move_time;
    std::optional<i64> mate; // moves
    bool infinite = false;
    bool ponder = false;
    bool searches_some = false;            // "searchmoves" was said
    std::vector<std::string> search_moves; // its words
    std::optional<i64> perft;              // depth to count leaves to: no search at all
};

// Reads the words behind "go". A word without its number, or one that is not known, is passed over;
// remark, where something was, says so in words for the user.
[[nodiscard]] GoLimits read_limits(std::string_view words, std::string* remark);

// Limits that the engine still has from an earlier "go" and that a clock alone does not lift.
struct LeftLimits {
    bool depth = false;
    bool nodes = false;
};

// The engine's "go" for these limits; left becomes what it keeps of them. plies are those of the
// game, and of the moves that the engine was given, which are fewer in a long game.
[[nodiscard]] std::string words_for_engine(
    const GoLimits* limits, i32 plies, i32 sent_plies, LeftLimits* left);

// Milliseconds from the start of the search after which it is stopped from outside, because the
// engine looks at no clock in its first moments; none if it can be left to itself.
[[nodiscard]] std::optional<f64> stop_after(const GoLimits* limits, i32 side);

// Milliseconds after which a move must be out, whatever the engine does; none without a clock.
[[nodiscard]] std::optional<f64> answer_within(const GoLimits* limits, i32 side);

// Nodes and depth at which the search is stopped from outside, because the engine cannot be told.
[[nodiscard]] std::optional<i64> nodes_to_watch(const GoLimits* limits);
[[nodiscard]] std::optional<i64> depth_to_watch(const GoLimits* limits);

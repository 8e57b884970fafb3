// The engine's "info" lines, and what hosts want to see in them beyond what the engine says.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/types.h"

// A score from the mover's view.
struct InfoScore {
    bool is_mate;
    i64 value; // centipawns, or moves to the mate
};

// What a line says; what it does not say is not there.
struct InfoLine {
    std::optional<i64> depth;
    std::optional<i64> line_number; // "multipv"
    std::optional<i64> nodes;
    std::optional<i64> rate; // nodes a second
    std::optional<InfoScore> score;
    std::string_view moves; // of the line that was found, behind "pv"; part of the text read
};

// Reads a line that begins with "info". "info string" lines have nothing in them.
[[nodiscard]] InfoLine read_info(std::string_view text);

// The line with another number of its own, or without one for 0.
[[nodiscard]] std::string with_line_number(std::string_view text, i64 number);

// The line with chances of a win, a draw and a loss behind its score, if it has one.
[[nodiscard]] std::string with_chances(std::string_view text);

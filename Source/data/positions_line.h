// A line of positions: whether it is sound, and what it tells.
#pragma once

#include <string>
#include <string_view>

#include "board/position.h"
#include "tools/line_judge.h"

// What lines are for. Both are EPD; training lines have a score (ce) or a result (gr, c9, [1.0]),
// test lines moves (bm, am).
enum class LineKind : u8 { Training, Test };

// The most characters of a line that the trainer and the runner of test suites read.
[[nodiscard]] i32 longest_line(LineKind kind);

// Phases by material: of 64 points (knight and bishop 3, rook 5, queen 10) that a game begins with.
inline constexpr i32 full_phase = 64;
inline constexpr i32 phase_bands = 4; // quarters of it, the barest first

// Ends of a game from white's view; what is nearer to a draw than to a win counts as one.
enum Outcome : u8 { WhiteLost, Drawn, WhiteWon, NoOutcome };

// What a line tells of its position. Plain data.
struct LineFacts {
    u64 order;  // of the sound lines of the run, from 0 on
    u64 key;    // of the position
    f32 result; // for the side to move, 0 to 1; unknown_result if there is none
    u32 length; // characters of the line, as it is written
    i16 score;  // centipawns, of the side to move; no_score if there is none
    u8 phase;   // points of material, full_phase at most
    u8 pieces;  // on the board
    Outcome outcome;
    u8 side;        // to move
    bool held_out;  // for validation
    bool is_marked; // tells its game
};

// Band of a phase, 0 to phase_bands - 1.
inline constexpr i32 band_of(i32 phase)
{
    return phase >= full_phase ? phase_bands - 1 : phase * phase_bands / full_phase;
}

// What became of a line.
enum class LineFate : u8 { Sound, Comment, Trailer, InCheck, Refused };

// A line that was looked at.
struct CheckedLine {
    LineFate fate;
    LineFacts facts;    // of a sound one; order and held_out are not set
    u64 game;           // key of the game that it tells, 0 if it tells none
    i64 told_lines;     // of a trailer
    const char* reason; // of a refused one
    std::string detail;
};

// A board of one thread.
struct LineBoard {
    UndoStack stack {};
    Position pos {};

    LineBoard();
    LineBoard(const LineBoard&) = delete;
    LineBoard& operator=(const LineBoard&) = delete;
};

// Looks at a line (no line feed). is_whole tells whether a line feed ended it. A sound line is
// taken whole by what its kind is for. Several threads may call it, each with a board of its own.
[[nodiscard]] CheckedLine check_line(
    LineBoard* board, std::string_view line, bool is_whole, LineKind kind);

// The kind of a line that is no comment: Test if it has moves and no result.
[[nodiscard]] LineKind kind_of_line(std::string_view line);

// Whether a line is passed over by all readers.
[[nodiscard]] bool is_passed_over(std::string_view line);

// Whether a training line (tools/training_line.h tells of its form) can be used, what it says of
// its position, and which game it is of. The trainer and the tools that make its files judge alike.
#pragma once

#include "board/position.h"

// What became of a line. From LineRefused on the user is told.
enum LineVerdict : u8 {
    LineUsed,
    LineComment,        // or empty
    LineOfOtherPart,    // of the other part of the file than the one wanted
    LineInCheck,        // the evaluation judges no such position
    LineWithoutWeights, // judged by a rule of its own
    LineFarScore,       // ce beyond the largest
    LineRefused,
    LineTooLong = LineRefused,
    LineBinary,
    LineBadFields,
    LineBadCastling,
    LineBadBoard,
    LineBadScore,
    LineBadResult,
    LineUnjudged,
    LineVerdictCount,
};

// Why a line was refused.
[[nodiscard]] const char* refusal_text(LineVerdict verdict);

inline constexpr f64 unknown_result = -1.0;
inline constexpr i16 no_score = -32768; // centipawns

// What a line says of its position, from the view of the side to move.
struct LineJudgement {
    f64 result; // unknown_result if the line has none
    i16 score;  // no_score if the line has none
    bool is_bracket;
};

// Sets pos from the fields of a position, the first four of text, and judges whether it can come
// about in a game: LineUsed, LineInCheck, or what is wrong with it.
[[nodiscard]] LineVerdict judge_board(Position* pos, const char* text);

// Judges a line (NUL at its end, no line feed) by its board and its operands alone: LineUsed, or
// what is wrong with it or keeps it from being trained on. Unless it is a comment or refused, pos
// holds its position then and said what it tells.
[[nodiscard]] LineVerdict judge_line(Position* pos, const char* line, LineJudgement* said);

// Where the text begins by which a line tells its game, as in c0 "game 17"; it ends at the next
// quotation mark. Null if the line tells none.
[[nodiscard]] const char* find_game_mark(const char* line);

// A key of that text, the same for all lines of a game; 0 if the line tells none.
[[nodiscard]] u64 game_key(const char* line);

// Stands, with the number of lines, behind the lines of a file that is whole; as a comment it is
// passed over by all readers.
inline constexpr char line_trailer[] = "# lines ";

// Reads the number of lines that such a line tells, -1 if it is none. Returns whether the line is a
// trailer.
[[nodiscard]] bool read_trailer(const char* line, i64* lines);

// The scores of comments, in the forms in which programs write them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/types.h"
#include "board/types.h"

// How a comment tells the score of the move before it.
enum ScoreForm : u8 {
    NoScore,
    PawnEval,      // [%eval 1.23], [%eval #-4], [%eval 1.23,20]
    CentipawnEval, // [%eval 35,12], in a game that has no score with a point in that form
    SlashScore,    // +0.35/12, +M5/20: score and depth
    EvalWord,      // eval 25, depth 12: centipawns, as the scanner reads them
    EvalMark,      // (eval) 35, (eval) 0.35
    WhiteValue,    // wv=0.35
    EngineValue,   // ev=0.35
    LoneScore,     // +0.35: the whole comment
    BookMove,      // book: the move was not thought about
    score_form_count
};

// What the report calls a form; NoScore has no name.
extern const char* const score_form_names[score_form_count];

// Whose gain a positive score is.
enum class ScoreView : u8 { Unknown, White, Mover };

// Characters of a score that is kept as it is written, its sign and point among them.
inline constexpr size_t score_digits = 12;

// A score as it is written: nothing is turned.
struct GameScore {
    ScoreForm form = NoScore;
    bool is_mate = false;
    bool is_negative = false;
    i32 size = 0;                       // centipawns, or moves to mate
    i32 depth = 0;                      // plies; 0 where it is not told
    char digits[score_digits + 1] = ""; // of a SlashScore that is no mate, as written: "+0.35"
};

// What a comment holds.
struct CommentContent {
    GameScore score;    // the last one that can be read
    i32 clocks = 0;     // times of clocks
    i32 unreadable = 0; // [%eval] with something that is no score
};

// Reads a comment, without its braces.
[[nodiscard]] CommentContent read_score_comment(std::string_view text);

// Makes a whole number that was read as centipawns one of pawns. It is no mate.
void take_for_pawns(GameScore* score);

// Adds the comment " {...}" by which the scanner reads the score of a move of side. The view is not
// Unknown.
void append_score(std::string* out, const GameScore& score, ScoreView view, i32 side);

// Reading a training line strictly. A line is used as a whole or not at all: what is half
// understood would train on a wrong target, and nobody would notice.
#include "tools/line_judge.h"

#include <cstdlib>
#include <cstring>

#include "base/mixing.h"
#include "board/defect.h"
#include "board/moves.h"
#include "board/notation.h"
#include "tools/tool_input.h"
#include "tools/training_line.h"

static constexpr char game_word[] = " c0 \"game ";

// Each goes on a line of standard error behind the number of the line.
const char* refusal_text(LineVerdict verdict)
{
    switch (verdict) {
    case LineTooLong:
        return "is longer than 254 characters";
    case LineBinary:
        return "is no text";
    case LineBadFields:
        return "does not begin with the four fields of a position";
    case LineBadCastling:
        return "has a castling right without king and rook at home";
    case LineBadBoard:
        return "has a position that cannot be";
    case LineBadScore:
        return "has a ce that is no number";
    case LineBadResult:
        return "has a result that is not between 0 and 1";
    default:
        return "has neither a ce nor a result";
    }
}

// Whether the text has four fields, the second of them w or b: others leave the side to move as it
// was, by chance.
static bool has_position_fields(const char* text)
{
    const char* side = strchr(text, ' ');
    if (side == nullptr || (side[1] != 'w' && side[1] != 'b') || side[2] != ' ') {
        return false;
    }
    const char* en_passant = strchr(side + 3, ' ');
    return en_passant != nullptr && en_passant[1] != '\0';
}

// Check is told apart from what is refused: such lines are sound, but the evaluation has no score
// for them.
LineVerdict judge_board(Position* pos, const char* text)
{
    if (!has_position_fields(text)) {
        return LineBadFields;
    }
    if (parse_epd(pos, text) != 0) {
        return LineBadCastling;
    }
    if (position_defect(pos) != nullptr) {
        return LineBadBoard;
    }
    return is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1) ? LineInCheck : LineUsed;
}

// Whether the operand at text is a number without a sign and nothing else: of 1/2 or 0,5 the start
// would be another result.
static bool is_result_number(const char* text)
{
    text += strspn(text, " ");
    if ((*text < '0' || *text > '9') && *text != '.') {
        return false;
    }
    char* end = nullptr;
    strtod(text, &end);
    const char* rest = end + strspn(end, " ");
    return end != text && (*rest == ';' || *rest == '\0');
}

// The result from the view of side, or unknown_result. Returns false if there is one that cannot be
// read. A bracket comes first, as it is a target and not a game's result. Both words of a result in
// one line must be readable, whichever of them is taken.
static bool find_result(const char* line, i32 side, bool* is_bracket, f64* result)
{
    *is_bracket = read_bracket_result(line, side, result);
    if (*is_bracket) {
        return true;
    }
    const char* number = strstr(line, " gr ");
    const bool has_name = strstr(line, " c9 ") != nullptr;
    if (number == nullptr && !has_name) {
        *result = unknown_result;
        return true;
    }
    *result = read_result(line, side);
    return (number == nullptr || is_result_number(number + 4)) && (!has_name || names_result(line))
        && *result >= 0.0 && *result <= 1.0;
}

// Reads result and score. Scores beyond the largest say that a side wins, not by how much.
static LineVerdict read_judgement(
    const char* line, const char* score_text, i32 side, LineJudgement* said)
{
    *said = { unknown_result, no_score, false };
    if (!find_result(line, side, &said->is_bracket, &said->result)) {
        return LineBadResult;
    }
    if (score_text[0] == '\0') {
        return said->result == unknown_result ? LineUnjudged : LineUsed;
    }
    char* end = nullptr;
    const i64 score = strtoll(score_text, &end, 10);
    if (end == score_text || *end != '\0') {
        return LineBadScore;
    }
    if (score < -largest_training_score || score > largest_training_score) {
        return LineFarScore;
    }
    said->score = static_cast<i16>(score);
    return LineUsed;
}

// The board is judged before the target, and the target before a position in check is left out, so
// that a bad line is told of whichever way.
LineVerdict judge_line(Position* pos, const char* line, LineJudgement* said)
{
    if (line[0] == '\0' || is_epd_comment(line)) {
        return LineComment;
    }
    char position[epd_pos_size];
    char score_text[epd_operand_size];
    char other[4][epd_operand_size];
    read_epd_ops(line, position, other[0], other[1], other[2], score_text, other[3]);
    const LineVerdict board = judge_board(pos, position);
    if (board >= LineRefused) {
        return board;
    }
    const LineVerdict judged = read_judgement(line, score_text, pos->stm, said);
    return judged != LineUsed ? judged : board;
}

const char* find_game_mark(const char* line)
{
    const char* text = strstr(line, game_word);
    return text == nullptr ? nullptr : text + sizeof game_word - 1;
}

u64 game_key(const char* line)
{
    const char* text = find_game_mark(line);
    if (text == nullptr) {
        return 0;
    }
    u64 key = empty_text_key;
    for (; *text != '\0' && *text != '"'; ++text) {
        key = add_to_text_key(key, *text);
    }
    return key != 0 ? key : 1;
}

bool read_trailer(const char* line, i64* lines)
{
    if (strncmp(line, line_trailer, sizeof line_trailer - 1) != 0) {
        return false;
    }
    const char* text = line + sizeof line_trailer - 1;
    char* end = nullptr;
    *lines = strtoll(text, &end, 10);
    if (end == text || *end != '\0') {
        *lines = -1;
    }
    return true;
}

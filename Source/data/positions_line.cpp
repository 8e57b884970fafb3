// What the trainer and the runner of test suites would say of a line, asked of their own routines
// where they have some; beyond that, what both would take for something else than was meant.
#include "data/positions_line.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/rounding.h"
#include "base/text.h"
#include "board/defect.h"
#include "board/notation.h"
#include "data/report.h"
#include "tools/tool_input.h"
#include "tools/training_line.h"

static constexpr i32 longest_test_line = 511;
static constexpr i32 text_size = longest_test_line + 1;
static constexpr i64 largest_test_score = 32767; // as mates in EPD are scored
static constexpr size_t longest_detail = 40;
static constexpr char list_marks[] = " ,;\"\n"; // between the moves of a list

LineBoard::LineBoard()
{
    pos.stack = &stack;
}

i32 longest_line(LineKind kind)
{
    return kind == LineKind::Test ? longest_test_line : training_line_length;
}

bool is_passed_over(std::string_view line)
{
    return line.empty() || line.front() == ' ' || line.front() == '#' || line.front() == ';';
}

static bool has(std::string_view line, std::string_view word)
{
    return line.find(word) != line.npos;
}

LineKind kind_of_line(std::string_view line)
{
    const bool has_moves = has(line, " bm ") || has(line, " am ");
    return has_moves && !has(line, " gr ") && !has(line, " c9 ") ? LineKind::Test
                                                                 : LineKind::Training;
}

// A line that is refused.
struct Problem {
    const char* reason = nullptr; // null: there is none
    std::string detail;
};

static Problem problem(const char* reason, std::string_view detail = {})
{
    return { reason, std::string(detail.substr(0, longest_detail)) };
}

// ---- The text

// What the characters of a line are. Looked at in one go, without a branch for each.
struct Characters {
    bool has_control; // but for a tab
    bool is_ascii;
};

static Characters characters_of(std::string_view line)
{
    bool has_control = false;
    u8 bits = 0;
    for (const char c : line) {
        const u8 code = static_cast<u8>(c);
        has_control |= (code < ' ' && code != '\t') || code == 0x7f;
        bits |= code;
    }
    return { has_control, bits < 0x80 };
}

static Problem judge_text(std::string_view line, bool is_whole, LineKind kind)
{
    if (static_cast<i64>(line.size()) > longest_line(kind)) {
        return problem(
            kind == LineKind::Test ? "is longer than 511 characters" : refusal_text(LineTooLong));
    }
    const Characters characters = characters_of(line);
    if (characters.has_control) {
        return problem(refusal_text(LineBinary));
    }
    if (!characters.is_ascii && !is_utf8(line)) {
        return problem("is not UTF-8");
    }
    // Half a line may look like a whole one, of another result or game. Suites are written by hand.
    if (!is_whole && kind == LineKind::Training) {
        return problem("ends without a line feed: the file is cut short");
    }
    return {};
}

// What stands behind the fields of the position and its counters.
static std::string_view operations_of(std::string_view line)
{
    for (i32 fields = 0; fields < 4; ++fields) {
        const size_t blank = line.find(' ');
        line.remove_prefix(blank == line.npos ? line.size() : blank + 1);
    }
    const size_t start = line.find_first_not_of(" 0123456789");
    return start == line.npos ? std::string_view() : line.substr(start);
}

// An operation that is not closed is passed over in silence by those who read it. A result in
// brackets is none.
static Problem judge_end(std::string_view line)
{
    std::string_view rest = operations_of(line);
    const size_t last = rest.rfind(';');
    rest.remove_prefix(last == rest.npos ? 0 : last + 1);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    return rest.empty() || rest.front() == '['
        ? Problem()
        : problem("has an operation that is not closed", rest);
}

// ---- The position

// The field of that number, the first is 0.
static std::string_view field_of(std::string_view line, i32 number)
{
    for (i32 i = 0; i < number; ++i) {
        const size_t blank = line.find(' ');
        line.remove_prefix(blank == line.npos ? line.size() : blank + 1);
    }
    return line.substr(0, line.find(' '));
}

// Those who read positions take what they understand of a field. What they pass over would make
// another position.
static Problem judge_fields(std::string_view line)
{
    if (!is_whole_board(field_of(line, 0))) {
        return problem("has a board that is not eight ranks of eight squares", field_of(line, 0));
    }
    const std::string_view castling = field_of(line, 2);
    if (castling != "-" && castling.find_first_not_of("KQkq") != castling.npos) {
        return problem("has castling rights that are not those of KQkq", castling);
    }
    const std::string_view passed = field_of(line, 3);
    const bool is_square = passed.size() == 2 && passed[0] >= 'a' && passed[0] <= 'h'
        && (passed[1] == '3' || passed[1] == '6');
    if (passed != "-" && !is_square) {
        return problem("has an en passant square that is none", passed);
    }
    return {};
}

// The engine minds a wrong square only where a pawn could capture onto it. A program that has lost
// the move before its line is one of another position all the same, and would be told from it.
static Problem judge_passed_pawn(const Position* pos, std::string_view line)
{
    const std::string_view passed = field_of(line, 3);
    if (passed == "-") {
        return {};
    }
    const i32 file = passed[0] - 'a';
    const i32 rank = passed[1] == '3' ? 3 : 4; // where the pawn stands that has passed the square
    const i32 side = passed[1] == '3' ? White : Black;
    return pos->stm != side && (pos->bb[side][Pawn] & bit(8 * rank + file)) != 0
        ? Problem()
        : problem("has an en passant square that no pawn has passed", passed);
}

// Where an operation stands twice nobody knows which of them is meant, nor where gr and c9 tell
// other results of a game. A gr between the three results of a game is a target, which c9 does not
// contradict; and with Black to move it agrees in either view, since programs differ there.
static Problem judge_operations(const char* line, i32 side)
{
    for (const char* operation : { " ce ", " gr ", " c9 " }) {
        const char* first = strstr(line, operation);
        if (first != nullptr && strstr(first + 3, operation) != nullptr) {
            return problem("has an operation twice", std::string_view(operation).substr(1, 2));
        }
    }
    const char* number = strstr(line, " gr ");
    if (number == nullptr || strstr(line, " c9 ") == nullptr) {
        return {};
    }
    const f64 told = strtod(number + 4, nullptr);
    const f64 named = read_result(line, side); // c9 goes before gr
    const bool is_of_game = told == 0.0 || told == 0.5 || told == 1.0;
    const bool agrees = told == named || (side == Black && told == 1.0 - named);
    return is_of_game && !agrees ? problem("has two results that contradict each other", number + 1)
                                 : Problem();
}

// Why a line was refused, with what of it.
static Problem problem_of(LineVerdict verdict, LineBoard* board, const char* line)
{
    char operand[text_size];
    switch (verdict) {
    case LineBadBoard:
        return problem(refusal_text(verdict), position_defect(&board->pos));
    case LineBadFields:
    case LineBadCastling:
        return problem(refusal_text(verdict), line);
    case LineBadScore:
    case LineFarScore:
        read_epd_list(line, "ce", operand, sizeof operand);
        return problem(verdict == LineFarScore ? "has a ce beyond 5000" : refusal_text(verdict),
            operand + strspn(operand, " "));
    case LineBadResult:
        read_epd_list(line, "gr", operand, sizeof operand);
        if (operand[0] == '\0') {
            read_epd_list(line, "c9", operand, sizeof operand);
        }
        return problem(refusal_text(verdict), operand + strspn(operand, " "));
    default:
        return problem(refusal_text(verdict));
    }
}

// ---- Moves

// Reads the words of a list as moves of the position. Of a list with points only the words that
// have some are moves. count gets how many there were.
static Problem judge_list(
    LineBoard* board, const char* line, const char* opcode, bool has_points, i32* count)
{
    char list[text_size];
    read_epd_list(line, opcode, list, sizeof list);
    char* rest = nullptr;
    for (char* word = strtok_r(list, list_marks, &rest); word != nullptr;
         word = strtok_r(nullptr, list_marks, &rest)) {
        char* sign = has_points ? strrchr(word, '=') : nullptr;
        if (has_points && sign == nullptr) {
            continue;
        }
        if (sign != nullptr) {
            *sign = '\0';
        }
        // Reading may make the text one character longer.
        char text[text_size + 1];
        copy_text(text, text_size, word);
        Move move;
        if (parse_move(&board->pos, text, &move) != 1) {
            return problem("has a move that is not legal there, or fits two pieces",
                std::string(opcode) + " " + word);
        }
        ++*count;
    }
    return {};
}

static Problem judge_moves(LineBoard* board, const char* line, LineKind kind)
{
    i32 count = 0;
    for (const char* opcode : { "bm", "am" }) {
        if (strstr(line, opcode) == nullptr) {
            continue;
        }
        if (Problem found = judge_list(board, line, opcode, false, &count);
            found.reason != nullptr) {
            return found;
        }
    }
    if (strstr(line, "c0 ") != nullptr && strchr(line, '=') != nullptr) {
        if (Problem found = judge_list(board, line, "c0", true, &count); found.reason != nullptr) {
            return found;
        }
    }
    return kind == LineKind::Test && count == 0
        ? problem("has no move to be found or to be avoided")
        : Problem();
}

// ---- The whole

// The score of a test line, which nobody trains on: it may be a mate's.
static Problem read_test_score(const char* line, i16* score)
{
    char operand[text_size];
    read_epd_list(line, "ce", operand, sizeof operand);
    const char* text = operand + strspn(operand, " ");
    if (*text == '\0') {
        return {};
    }
    char* end = nullptr;
    const i64 number = strtoll(text, &end, 10);
    if (end == text || end[strspn(end, " ")] != '\0') {
        return problem(refusal_text(LineBadScore), text);
    }
    if (number < -largest_test_score || number > largest_test_score) {
        return problem("has a ce beyond 32767", text);
    }
    *score = static_cast<i16>(number);
    return {};
}

// Judges the line by what its kind is for. verdict is LineUsed or LineInCheck where there is no
// problem.
static Problem judge_by_kind(
    LineBoard* board, const char* line, LineKind kind, LineJudgement* said, LineVerdict* verdict)
{
    if (kind == LineKind::Test) {
        *said = { unknown_result, no_score, false };
        *verdict = judge_board(&board->pos, line);
    } else {
        *verdict = judge_line(&board->pos, line, said);
    }
    if (*verdict != LineUsed && *verdict != LineInCheck) {
        return problem_of(*verdict, board, line);
    }
    return kind == LineKind::Test ? read_test_score(line, &said->score) : Problem();
}

static Outcome outcome_of(f64 result, i32 side)
{
    if (result == unknown_result) {
        return NoOutcome;
    }
    const f64 white = side == White ? result : 1.0 - result;
    return white < 0.25 ? WhiteLost : white > 0.75 ? WhiteWon : Drawn;
}

static LineFacts facts_of(const Position* pos, const LineJudgement& said)
{
    const i32 phase = pos->phase_mtl[White] + pos->phase_mtl[Black];
    LineFacts facts = {};
    facts.key = pos->key;
    facts.result = to_f32(said.result);
    facts.score = said.score;
    facts.phase = static_cast<u8>(std::min(phase, full_phase));
    facts.pieces = static_cast<u8>(popcount(occupied(pos)));
    facts.outcome = outcome_of(said.result, pos->stm);
    facts.side = pos->stm;
    return facts;
}

static CheckedLine refused(Problem found)
{
    return { LineFate::Refused, {}, 0, 0, found.reason, std::move(found.detail) };
}

CheckedLine check_line(LineBoard* board, std::string_view line, bool is_whole, LineKind kind)
{
    CheckedLine checked = { LineFate::Comment, {}, 0, 0, nullptr, {} };
    Problem found = judge_text(line, is_whole, kind);
    if (found.reason != nullptr) {
        return refused(std::move(found));
    }
    char text[text_size];
    text[line.copy(text, sizeof text - 1)] = '\0';
    if (read_trailer(text, &checked.told_lines)) {
        checked.fate = LineFate::Trailer;
        return checked;
    }
    if (is_passed_over(line)) {
        return checked;
    }
    LineJudgement said;
    LineVerdict verdict = LineUsed;
    found = judge_by_kind(board, text, kind, &said, &verdict);
    for (const auto& judge : { judge_fields, judge_end }) {
        if (found.reason == nullptr) {
            found = judge(line);
        }
    }
    if (found.reason == nullptr) {
        found = judge_passed_pawn(&board->pos, line);
    }
    if (found.reason == nullptr) {
        found = judge_operations(text, board->pos.stm);
    }
    if (found.reason == nullptr) {
        found = judge_moves(board, text, kind);
    }
    if (found.reason != nullptr) {
        return refused(std::move(found));
    }
    if (verdict == LineInCheck && kind == LineKind::Training) {
        checked.fate = LineFate::InCheck;
        return checked;
    }
    checked.fate = LineFate::Sound;
    checked.facts = facts_of(&board->pos, said);
    checked.game = game_key(text);
    checked.facts.is_marked = checked.game != 0;
    return checked;
}

// Reading and writing scores. A comment is anybody's text: what is taken for a score has exactly
// one of the known forms, and what only resembles one, such as a date or a fraction, is left alone.
#include "data/games_scores.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "base/text.h"

// Beyond it, to either side, a score is cut to it. The scanner puts no score below minus this into
// the games that it writes, as there are marks for none far below; and a plus of the mover is a
// minus for White. Programs tell wins of tables by more, and older ones mates.
static constexpr i32 most_centipawns = 9999;
static constexpr char most_pawns[] = "+99.99"; // the same
static constexpr char least_pawns[] = "-99.99";
static constexpr i32 most_moves_to_mate = 999;
static constexpr i32 most_depth = 999;

const char* const score_form_names[score_form_count] = { "", "[%eval 1.23]", "[%eval 123]",
    "+1.23/12", "eval 123", "(eval) 123", "wv=1.23", "ev=1.23", "+1.23", "book" };

// ---- Numbers

// A sign if there is one. Returns whether it is a minus.
static bool take_sign(std::string_view* text)
{
    if (text->empty() || (text->front() != '+' && text->front() != '-')) {
        return false;
    }
    const bool is_negative = text->front() == '-';
    text->remove_prefix(1);
    return is_negative;
}

// The digits at the start as a number, at most greatest. Returns false if there are none.
static bool take_whole(std::string_view* text, i32 greatest, i32* number)
{
    size_t count = 0;
    i64 value = 0;
    for (; count < text->size() && is_digit((*text)[count]); ++count) {
        value = std::min<i64>(10 * value + ((*text)[count] - '0'), greatest);
    }
    text->remove_prefix(count);
    *number = static_cast<i32>(value);
    return count > 0;
}

// A score at the start of text, "0.35", "-12", "M5", "#-4" or "-M4", which is taken off. *has_point
// tells whether it is in pawns for sure; without a point the number stands as it is. Returns false
// if there is none.
static bool take_score(std::string_view* text, GameScore* score, bool* has_point)
{
    score->is_negative = take_sign(text);
    *has_point = false;
    if (!text->empty() && (text->front() == '#' || text->front() == 'M')) {
        text->remove_prefix(1);
        score->is_negative = take_sign(text) || score->is_negative;
        score->is_mate = true;
        return take_whole(text, most_moves_to_mate, &score->size) && score->size > 0;
    }
    score->is_mate = false;
    const bool has_whole = take_whole(text, most_centipawns, &score->size);
    if (text->size() < 2 || text->front() != '.' || !is_digit((*text)[1])) {
        return has_whole;
    }
    *has_point = true;
    text->remove_prefix(1);
    i32 digits = 0;
    i32 part = 0; // thousandths
    for (; !text->empty() && is_digit(text->front()); text->remove_prefix(1)) {
        part = digits++ < 3 ? 10 * part + (text->front() - '0') : part;
    }
    for (; digits < 3; ++digits) {
        part *= 10;
    }
    score->size = std::min(score->size * 100 + (part + 5) / 10, most_centipawns);
    return true;
}

void take_for_pawns(GameScore* score)
{
    score->size = std::min(score->size * 100, most_centipawns);
}

// ---- Commands

static std::string_view trim(std::string_view text)
{
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// What stands behind [%eval.
static bool read_eval_command(std::string_view text, GameScore* score)
{
    bool has_point;
    text = trim(text);
    if (!take_score(&text, score, &has_point)) {
        return false;
    }
    score->form = has_point || score->is_mate ? PawnEval : CentipawnEval;
    score->depth = 0;
    if (!text.empty() && text.front() == ',') {
        text.remove_prefix(1);
        take_whole(&text, most_depth, &score->depth);
        return true;
    }
    return text.empty() || is_space(text.front());
}

static bool is_clock(std::string_view name)
{
    static constexpr std::string_view names[] = { "clk", "emt", "egt", "mct" };
    return std::ranges::find(names, name) != std::end(names);
}

// Takes the commands "[%name ...]" out of a comment, and puts what is left into rest.
static void read_commands(std::string_view text, CommentContent* content, std::string* rest)
{
    for (;;) {
        const size_t start = text.find("[%");
        const size_t end = start == text.npos ? text.npos : text.find(']', start);
        if (end == text.npos) {
            rest->append(text);
            return;
        }
        rest->append(text.substr(0, start));
        std::string_view command = text.substr(start + 2, end - start - 2);
        const size_t blank = std::min(command.find_first_of(" \t\r\n"), command.size());
        const std::string_view name = command.substr(0, blank);
        if (name == "eval") {
            GameScore score;
            if (read_eval_command(command.substr(blank), &score)) {
                content->score = score;
            } else {
                ++content->unreadable;
            }
        } else {
            content->clocks += is_clock(name);
        }
        text.remove_prefix(end + 1);
    }
}

// ---- Words

// What stands behind a word of the text that begins with mark; empty if there is none.
static std::string_view text_behind_mark(std::string_view text, std::string_view mark)
{
    for (size_t start = text.find(mark); start != text.npos; start = text.find(mark, start + 1)) {
        if (start == 0 || is_space(text[start - 1]) || text[start - 1] == ',') {
            return text.substr(start + mark.size());
        }
    }
    return {};
}

// A score that ends where its word does.
static bool read_score_word(std::string_view text, ScoreForm form, GameScore* score)
{
    bool has_point;
    text = trim(text);
    GameScore found;
    if (text.empty() || !take_score(&text, &found, &has_point)
        || !(text.empty() || is_space(text.front()) || text.front() == ',')) {
        return false;
    }
    found.form = form;
    if ((form == WhiteValue || form == EngineValue) && !has_point && !found.is_mate) {
        take_for_pawns(&found);
    }
    // The scanner's own form is a whole number; another that looks like it says nothing of views.
    if (form == EvalWord && has_point) {
        found.form = EvalMark;
    }
    if (const std::string_view depth = text_behind_mark(text, "depth "); !depth.empty()) {
        std::string_view digits = depth;
        take_whole(&digits, most_depth, &found.depth);
    }
    *score = found;
    return true;
}

// Whether a score without a sign may stand there: at the start, or behind the move in parentheses
// that it is of. Further on it is points of a tournament, as in "leads with 5.5/7".
static bool begins_score(std::string_view before)
{
    before = trim(before);
    return before.empty() || before.ends_with(')');
}

// The depth behind a slash, and that nothing makes the two a date or a longer fraction.
static bool take_depth(std::string_view* text, i32* depth)
{
    constexpr size_t most_digits = 3;
    const size_t before = text->size();
    return take_whole(text, most_depth, depth) && before - text->size() <= most_digits
        && !(text->size() > 1 && (text->front() == '.' || text->front() == '/')
            && is_digit((*text)[1]));
}

// A score and a depth with a slash between them. It has the mark of a mate; or a point, and a sign
// or two decimals, one of which all programs that write scores so give it: 5.5/9 are points of a
// tournament, 1/2 and +1/2 fractions.
static bool read_slash_score(std::string_view text, GameScore* score)
{
    for (size_t slash = text.find('/'); slash != text.npos; slash = text.find('/', slash + 1)) {
        size_t start = slash;
        while (start > 0 && slash - start <= score_digits && !is_space(text[start - 1])) {
            --start;
        }
        std::string_view word = text.substr(start, slash - start);
        std::string_view behind = text.substr(slash + 1);
        const std::string_view digits = word;
        GameScore found;
        bool has_point = false;
        if (word.size() > score_digits || !take_score(&word, &found, &has_point) || !word.empty()
            || !take_depth(&behind, &found.depth)) {
            continue;
        }
        const bool is_signed = digits.front() == '+' || digits.front() == '-';
        const bool has_decimals = digits.size() - std::min(digits.find('.'), digits.size()) > 2;
        const bool is_usual = found.is_mate
            || (has_point && (is_signed || (has_decimals && begins_score(text.substr(0, start)))));
        if (!is_usual) {
            continue;
        }
        found.form = SlashScore;
        if (!found.is_mate) {
            digits.copy(found.digits, score_digits);
        }
        *score = found;
        return true;
    }
    return false;
}

// A comment that is nothing but a score, with a sign or the mark of a mate, and a point. Without a
// sign it may be the seconds of a move; zero has none.
static bool read_lone_score(std::string_view text, GameScore* score)
{
    GameScore found;
    bool has_point = false;
    const bool is_signed = text.starts_with('+') || text.starts_with('-');
    if (!take_score(&text, &found, &has_point) || !text.empty() || (!has_point && !found.is_mate)
        || (!is_signed && !found.is_mate && found.size != 0)) {
        return false;
    }
    found.form = LoneScore;
    *score = found;
    return true;
}

// Only whole comments count: a sentence may speak of a book as well.
static bool is_book_comment(std::string_view text)
{
    static constexpr std::string_view texts[] = { "book", "(book)", "book move", "in book",
        "out of book", "from book", "opening book" };
    return text.starts_with("book,") || text.starts_with("book;")
        || std::ranges::find(texts, text) != std::end(texts);
}

static void read_plain_comment(std::string_view text, GameScore* score)
{
    text = trim(text);
    if (text.empty()) {
        return;
    }
    if (is_book_comment(text)) {
        *score = { .form = BookMove };
        return;
    }
    struct Mark {
        std::string_view text;
        ScoreForm form;
    };
    static constexpr Mark marks[] = { { "(eval)", EvalMark }, { "eval ", EvalWord },
        { "wv=", WhiteValue }, { "ev=", EngineValue } };
    for (const Mark& mark : marks) {
        const std::string_view behind = text_behind_mark(text, mark.text);
        if (!behind.empty() && read_score_word(behind, mark.form, score)) {
            return;
        }
    }
    if (!read_slash_score(text, score)) {
        read_lone_score(text, score);
    }
}

// A comment goes on over lines wherever a blank stands.
CommentContent read_score_comment(std::string_view text)
{
    CommentContent content;
    if (text.find_first_of("[\n\t") == text.npos) {
        read_plain_comment(text, &content.score);
        return content;
    }
    std::string line(text);
    for (char& c : line) {
        c = is_space(c) ? ' ' : c;
    }
    std::string rest;
    read_commands(line, &content, &rest);
    if (content.score.form == NoScore) {
        read_plain_comment(rest, &content.score);
    }
    return content;
}

// ---- Writing

// The scanner cuts "-2.05" to -204 and takes a whole number behind "eval" as it is. What came with
// a slash from the mover's view stays so, for what the scanner makes of it must not change by the
// way; anything else goes in whole centipawns from White's view.
void append_score(std::string* out, const GameScore& score, ScoreView view, i32 side)
{
    char text[64] = "";
    const bool is_turned = side == Black;
    if (score.form == BookMove) {
        out->append(" {book}");
    } else if (score.is_mate) {
        const bool is_lost = score.is_negative != (is_turned && view == ScoreView::White);
        snprintf(text, sizeof text, " {%cM%d/%d}", is_lost ? '-' : '+', score.size, score.depth);
        out->append(text);
    } else if (view == ScoreView::Mover && score.digits[0] != '\0') {
        const char* most = score.is_negative ? least_pawns : most_pawns;
        out->append(" {").append(score.size < most_centipawns ? score.digits : most);
        snprintf(text, sizeof text, "/%d}", score.depth);
        out->append(text);
    } else {
        const bool is_negative = score.is_negative != (is_turned && view == ScoreView::Mover);
        const i32 value = is_negative ? -score.size : score.size;
        if (score.depth > 0) {
            snprintf(text, sizeof text, " {eval %d, depth %d}", value, score.depth);
        } else {
            snprintf(text, sizeof text, " {eval %d}", value);
        }
        out->append(text);
    }
}

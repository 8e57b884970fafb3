// A line that is a tag ends a game wherever it stands: a comment that is never closed costs its own
// game and no other.
#include "data/games_text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <utility>

#include "base/text.h"

static constexpr char byte_order_mark[] = "\xef\xbb\xbf";
static constexpr std::string_view ellipsis = "\xe2\x80\xa6";
static constexpr size_t most_shown = 40; // characters of a text that a refusal quotes

// No program writes as much. What is more of either is left out, so that a file made to take long
// does not.
static constexpr size_t most_tags = 256;
static constexpr size_t most_tag_size = 1 << 14;

const char* text_of_end(GameEnd end)
{
    static constexpr const char* texts[] = { "?", "1-0", "0-1", "1/2-1/2", "*" };
    return texts[static_cast<size_t>(end)];
}

GameEnd end_of_text(std::string_view text)
{
    struct Row {
        std::string_view text;
        GameEnd end;
    };
    static constexpr Row rows[] = { { "1-0", GameEnd::WhiteWins }, { "0-1", GameEnd::BlackWins },
        { "1/2-1/2", GameEnd::Draw }, { "1/2", GameEnd::Draw }, { "*", GameEnd::Unfinished },
        { "\xc2\xbd-\xc2\xbd", GameEnd::Draw }, { "\xc2\xbd", GameEnd::Draw } };
    const auto* row = std::ranges::find(rows, text, &Row::text);
    return row != std::end(rows) ? row->end : GameEnd::None;
}

// ---- Places

// The state of the reading.
struct GameReading {
    const char* p;
    const char* first; // of the text: a line begins there
    const char* end;
    GameText* game;
    bool is_over = false; // a result has been read
    bool is_next = false; // another game begins at p
};

static bool starts_line(const GameReading& reading, const char* p)
{
    return p == reading.first || p[-1] == '\n';
}

static const char* line_end(const char* p, const char* end)
{
    const void* feed = memchr(p, '\n', static_cast<size_t>(end - p));
    return feed != nullptr ? static_cast<const char*>(feed) : end;
}

static bool is_name_character(char c)
{
    return is_letter(c) || is_digit(c) || c == '_' || c == '-';
}

static bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

static const char* skip_spaces(const char* p, const char* end)
{
    while (p < end && is_blank(*p)) {
        ++p;
    }
    return p;
}

bool is_tag_line(const char* text, const char* end)
{
    if (text >= end || *text != '[') {
        return false;
    }
    const char* p = skip_spaces(text + 1, end);
    const char* name = p;
    while (p < end && is_name_character(*p)) {
        ++p;
    }
    if (p == name) {
        return false;
    }
    p = skip_spaces(p, end);
    return p < end && *p == '"';
}

// The next line at or behind p that is a tag, or the end. p need not be the start of a line.
static const char* find_tag_line(const char* p, const char* end)
{
    for (;;) {
        p = line_end(p, end);
        if (p == end) {
            return end;
        }
        if (is_tag_line(++p, end)) {
            return p;
        }
    }
}

// The game is of no use: notes why, and goes to where the next one begins.
static void break_off(GameReading* reading, const char* why, const char* place, size_t size)
{
    reading->game->problem = why;
    reading->game->place = place;
    const size_t room = static_cast<size_t>(reading->end - place);
    std::string_view text = { place, std::min({ size, room, most_shown }) };
    reading->game->problem_text = text.substr(0, text.find('\n'));
    if (!starts_line(*reading, reading->p) || !is_tag_line(reading->p, reading->end)) {
        reading->p = find_tag_line(reading->p, reading->end);
    }
    reading->is_next = true;
}

// ---- Tags

// Where the value that begins at p ends: at the first quote that a bracket follows, else with the
// line. People write quotes into names without the mark in front of them.
static const char* find_value_end(const char* p, const char* end, bool* is_closed)
{
    *is_closed = true;
    for (const char* q = p; q < end; ++q) {
        if (*q == '\\' && q + 1 < end) {
            ++q;
        } else if (*q == '"') {
            const char* next = skip_spaces(q + 1, end);
            if (next < end && *next == ']') {
                return q;
            }
        }
    }
    *is_closed = false;
    while (end > p && (is_blank(end[-1]) || end[-1] == ']')) {
        --end;
    }
    return end > p && end[-1] == '"' ? end - 1 : end;
}

// Reads the tag at p, odd or not, and goes behind it.
static void read_tag(GameReading* reading)
{
    const size_t rest = static_cast<size_t>(reading->end - reading->p);
    const char* end = line_end(reading->p, reading->p + std::min(rest, most_tag_size));
    const char* name = skip_spaces(reading->p + 1, end);
    const char* p = name;
    while (p < end && is_name_character(*p)) {
        ++p;
    }
    GameTag tag = { { name, static_cast<size_t>(p - name) }, {} };
    p = skip_spaces(p, end);
    bool is_closed = false;
    if (p < end && *p == '"') {
        ++p;
        const char* value_end = find_value_end(p, end, &is_closed);
        tag.value = { p, static_cast<size_t>(value_end - p) };
        p = is_closed
            ? static_cast<const char*>(memchr(value_end, ']', static_cast<size_t>(end - value_end)))
                + 1
            : end;
    } else {
        const char* value_end = end;
        while (value_end > p && (is_blank(value_end[-1]) || value_end[-1] == ']')) {
            --value_end;
        }
        tag.value = { p, static_cast<size_t>(value_end - p) };
        p = end;
    }
    reading->p = p;
    const bool has_room = reading->game->tags.size() < most_tags;
    reading->game->odd_tags += !is_closed || tag.name.empty() || !has_room;
    if (!tag.name.empty() && has_room) {
        reading->game->tags.push_back(tag);
    }
}

// Whether the game has a tag of this name.
static bool has_tag(const GameText& game, std::string_view name)
{
    return std::ranges::find(game.tags, name, &GameTag::name) != game.tags.end();
}

// Reads the tags of the game, and stops at the first of its moves. A second event begins another
// game: this one has no moves.
static void read_tags(GameReading* reading)
{
    constexpr std::string_view event = "Event";
    GameText* game = reading->game;
    while (reading->p < reading->end) {
        const char* p = reading->p;
        const std::string_view rest = { p, static_cast<size_t>(reading->end - p) };
        if (is_space(*p)) {
            ++reading->p;
        } else if (rest.starts_with(byte_order_mark)) {
            reading->p += sizeof byte_order_mark - 1;
        } else if (*p == ';' || (*p == '%' && starts_line(*reading, p))) {
            reading->p = line_end(p, reading->end);
        } else if (*p == '[' && rest.size() > 1 && rest[1] != '%') {
            const char* name = skip_spaces(p + 1, reading->end);
            if (std::string_view(name, static_cast<size_t>(reading->end - name)).starts_with(event)
                && !is_name_character(name[event.size()]) && has_tag(*game, event)) {
                reading->is_next = true;
                return;
            }
            game->start = game->start != nullptr ? game->start : p;
            read_tag(reading);
        } else {
            game->start = game->start != nullptr ? game->start : p;
            return;
        }
    }
}

// ---- Comments and variations

// Where the comment whose brace stands at p ends: at its closing brace, or null if a tag or the end
// comes first. Braces do not nest. Line by line, so that nothing behind the game is looked at.
static const char* find_comment_end(const GameReading& reading, const char* p)
{
    while (p < reading.end) {
        const char* line = line_end(p, reading.end);
        if (const void* close = memchr(p, '}', static_cast<size_t>(line - p))) {
            return static_cast<const char*>(close);
        }
        p = line + 1;
        if (is_tag_line(p, reading.end)) {
            return nullptr;
        }
    }
    return nullptr;
}

// Reads the comment at p. One of a variation says nothing of the game.
static void read_comment(GameReading* reading, bool counts)
{
    const char* close = find_comment_end(*reading, reading->p);
    if (close == nullptr) {
        break_off(reading, "comment without an end", reading->p, most_shown);
        return;
    }
    GameText* game = reading->game;
    const char* text = reading->p + 1;
    reading->p = close + 1;
    ++game->comments;
    if (!counts) {
        return;
    }
    const CommentContent content = read_score_comment({ text, static_cast<size_t>(close - text) });
    game->clocks += content.clocks;
    game->unreadable_scores += content.unreadable;
    if (content.score.form != NoScore && !game->moves.empty()) {
        game->moves.back().score = content.score;
    }
}

// Goes behind the variation at p, whatever it holds.
static void skip_variation(GameReading* reading)
{
    const char* start = reading->p;
    i64 depth = 0;
    while (reading->p < reading->end) {
        const char* p = reading->p;
        switch (*p) {
        case '{':
            read_comment(reading, false);
            if (reading->is_next) {
                return;
            }
            continue;
        case ';':
            reading->p = line_end(p, reading->end);
            continue;
        case '(':
            ++depth;
            break;
        case ')':
            --depth;
            break;
        case '\0':
            break_off(reading, "NUL byte", p, 0);
            return;
        case '[':
            if (starts_line(*reading, p) && is_tag_line(p, reading->end)) {
                break_off(reading, "variation without an end", start, most_shown);
                return;
            }
            break;
        case '%':
            if (starts_line(*reading, p)) {
                reading->p = line_end(p, reading->end);
                continue;
            }
            break;
        default:
            break;
        }
        ++reading->p;
        if (depth == 0) {
            ++reading->game->variations;
            return;
        }
    }
    break_off(reading, "variation without an end", start, most_shown);
}

// ---- Words

enum TextKind : u8 { OfWord, Space, LineFeed, Mark, Quality };
static constexpr auto character_kinds = [] {
    std::array<TextKind, 256> kinds {};
    for (size_t c = 0; c < 256; ++c) {
        const char text = static_cast<char>(c);
        const bool is_mark = std::string_view("{}()[]<>;$\"").find(text) != std::string_view::npos;
        kinds[c] = text == '\n'                        ? LineFeed
            : text == '.' || is_space(text)            ? Space
            : text == '!' || text == '?'               ? Quality
            : is_mark || c == 0 || c < ' ' || c == 127 ? Mark
                                                       : OfWord;
    }
    return kinds;
}();

static TextKind kind_of(char c)
{
    return character_kinds[static_cast<u8>(c)];
}

// A word of signs, as "+-" or "=", is somebody's judgement; two dashes are a null move. Single
// letters stand for a novelty and a diagram.
static bool is_judgement(std::string_view word)
{
    return word == "N" || word == "D"
        || (word != "--" && word.find_first_not_of("+-=/~#") == word.npos);
}

// Whether the letter of a mark is that of a piece, torn off its move, as in "1. N f3": behind a
// number there is nothing yet that a mark could be for. The rest alone would be another move.
static bool is_torn_off(const GameReading& reading, std::string_view word)
{
    if (word != "N" && word != "D") {
        return false;
    }
    const char* p = word.data();
    while (p > reading.first && is_space(p[-1])) {
        --p;
    }
    if (p > reading.first && p[-1] == '.') {
        return true;
    }
    const char* end = p;
    while (p > reading.first && is_digit(p[-1])) {
        --p;
    }
    return p < end && (p == reading.first || is_space(p[-1]));
}

// A game may end with its result twice, but not with two.
static void read_end(GameReading* reading, GameEnd end, std::string_view word)
{
    GameText* game = reading->game;
    if (game->end != GameEnd::None && game->end != end) {
        break_off(reading, "two results", word.data(), word.size());
        return;
    }
    game->end = end;
    reading->is_over = true;
}

// Behind a result stands nothing but comments, or the first move of a game without tags.
static void read_behind_end(GameReading* reading, std::string_view word)
{
    if (word == "1" || word.starts_with("1\xe2")) {
        reading->p = word.data();
        reading->is_next = true;
        return;
    }
    break_off(reading, "text behind the result", word.data(), word.size());
}

// The mark of a capture in passing, "e.p." or "ep", behind a pawn's move or as a word of its own.
static bool is_passing_mark(GameReading* reading, std::string_view* word)
{
    if (word->ends_with("ep")) {
        word->remove_suffix(2);
        return word->empty();
    }
    if (word->ends_with('e') && reading->p[0] == '.' && reading->p[1] == 'p') {
        reading->p += 2;
        word->remove_suffix(1);
        return word->empty();
    }
    return false;
}

// A promotion may stand in parentheses, "e8(Q)", which are no variation's.
static void take_promotion(GameReading* reading, std::string_view* word)
{
    const char* p = reading->p;
    constexpr std::string_view pieces = "QRBN";
    if (word->size() >= 2 && (word->ends_with('8') || word->ends_with('1')) && reading->end - p >= 3
        && p[0] == '(' && pieces.find(p[1]) != pieces.npos && p[2] == ')') {
        *word = { word->data(), word->size() + 3 };
        reading->p += 3;
        while (reading->p < reading->end && (*reading->p == '+' || *reading->p == '#')) {
            ++reading->p;
            *word = { word->data(), word->size() + 1 };
        }
    }
}

static void read_word(GameReading* reading)
{
    const char* start = reading->p;
    while (reading->p < reading->end && kind_of(*reading->p) == OfWord) {
        ++reading->p;
    }
    std::string_view word = { start, static_cast<size_t>(reading->p - start) };
    if (const GameEnd end = end_of_text(word); end != GameEnd::None) {
        read_end(reading, end, word);
        return;
    }
    if (is_torn_off(*reading, word)) {
        break_off(reading, "letter of a piece without its move", start, most_shown);
        return;
    }
    if (is_judgement(word) || is_passing_mark(reading, &word)) {
        ++reading->game->marks;
        return;
    }
    if (reading->is_over) {
        read_behind_end(reading, word);
        return;
    }
    size_t digits = 0;
    while (digits < word.size() && is_digit(word[digits])) {
        ++digits;
    }
    if (word.substr(digits).starts_with(ellipsis)) {
        word.remove_prefix(digits + ellipsis.size());
        digits = 0;
    }
    if (digits > 0 && digits < word.size() && is_letter(word[digits])) {
        word.remove_prefix(digits); // "1e4"
        digits = 0;
    }
    if (digits < word.size() || word == "0000") {
        take_promotion(reading, &word);
        reading->game->moves.push_back({ word });
    }
}

// ---- Moves

static void read_mark(GameReading* reading)
{
    const char* p = reading->p;
    switch (*p) {
    case '{':
        read_comment(reading, true);
        break;
    case '(':
        skip_variation(reading);
        break;
    case ';':
        reading->p = line_end(p, reading->end);
        ++reading->game->comments;
        break;
    case '$':
        do {
            ++reading->p;
        } while (reading->p < reading->end && is_digit(*reading->p));
        ++reading->game->marks;
        break;
    case '\0':
        break_off(reading, "NUL byte", p, 0);
        break;
    case '}':
        break_off(reading, "brace that closes nothing", p, most_shown);
        break;
    case ')':
        break_off(reading, "parenthesis that closes nothing", p, most_shown);
        break;
    default:
        break_off(reading, "character that belongs to no move", p, most_shown);
        break;
    }
}

// At the start of a line: a tag ends the game, an escaped line is passed over.
static void start_line(GameReading* reading)
{
    while (reading->end - reading->p > 2
        && memcmp(reading->p, byte_order_mark, sizeof byte_order_mark - 1) == 0) {
        reading->p += sizeof byte_order_mark - 1;
    }
    if (*reading->p == '%') {
        reading->p = line_end(reading->p, reading->end);
    } else if (is_tag_line(reading->p, reading->end)) {
        reading->is_next = true;
    }
}

static void read_moves(GameReading* reading)
{
    if (starts_line(*reading, reading->p)) {
        start_line(reading);
    }
    while (reading->p < reading->end && !reading->is_next) {
        switch (kind_of(*reading->p)) {
        case Space:
            ++reading->p;
            break;
        case LineFeed:
            ++reading->p;
            start_line(reading);
            break;
        case Quality:
            while (kind_of(*reading->p) == Quality) {
                ++reading->p;
            }
            ++reading->game->marks;
            break;
        case Mark:
            read_mark(reading);
            break;
        default:
            read_word(reading);
            break;
        }
    }
}

// A number of [%eval] without a point is one of centipawns, unless others of its game have one.
static void settle_evals(GameText* game)
{
    bool has_pawns = false;
    for (const MoveText& move : game->moves) {
        has_pawns |= move.score.form == PawnEval && !move.score.is_mate;
    }
    for (MoveText& move : game->moves) {
        if (has_pawns && move.score.form == CentipawnEval) {
            move.score.form = PawnEval;
            take_for_pawns(&move.score);
        }
    }
}

const char* read_game(const char* text, const char* end, GameText* game)
{
    std::vector<GameTag> tags = std::move(game->tags);
    std::vector<MoveText> moves = std::move(game->moves);
    tags.clear();
    moves.clear();
    *game = GameText();
    game->tags = std::move(tags);
    game->moves = std::move(moves);

    GameReading reading = { .p = text, .first = text, .end = end, .game = game };
    read_tags(&reading);
    if (game->start == nullptr) {
        return nullptr;
    }
    if (!reading.is_next) {
        read_moves(&reading);
    }
    settle_evals(game);
    return reading.p;
}

std::string_view tag_value(const GameText& game, std::string_view name)
{
    const auto tag = std::ranges::find(game.tags, name, &GameTag::name);
    return tag != game.tags.end() ? tag->value : std::string_view();
}

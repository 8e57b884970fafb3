// A game is played through as it is written: what cannot be played is refused, with the place.
#include "data/games_write.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <string_view>
#include <vector>

#include "base/mixing.h"
#include "base/text.h"
#include "board/defect.h"
#include "data/games_moves.h"
#include "data/games_tags.h"
#include "tools/pgn_forms.h"

static constexpr size_t line_length = 80; // as Vesk's own games have it

std::unique_ptr<GameBoard> make_game_board()
{
    auto board = std::make_unique<GameBoard>();
    board->start = Position();
    board->start.stack = &board->start_stack;
    parse_epd(&board->start, start_position);
    board->pos = Position();
    board->pos.stack = &board->stack;
    copy_position(&board->pos, &board->start);
    return board;
}

static void refuse_game(
    GameOutcome* outcome, const char* reason, const char* place, std::string_view detail = {})
{
    outcome->fate = GameFate::Refused;
    outcome->reason = reason;
    outcome->place = place;
    outcome->detail = detail;
}

// ---- What the tags say

// The result of the tag and the one behind the moves; an unfinished game's mark is no statement
// against the other. Returns false if they contradict each other.
static bool settle_result(const GameText& game, GameEnd* end)
{
    *end = game.end;
    for (const GameTag& tag : game.tags) {
        const GameEnd told = tag.name == "Result" ? end_of_text(tag.value) : GameEnd::None;
        if (told == GameEnd::None || (told == GameEnd::Unfinished && *end != GameEnd::None)) {
            continue;
        }
        if (*end != GameEnd::None && *end != GameEnd::Unfinished && *end != told) {
            return false;
        }
        *end = told;
    }
    return true;
}

// Whether a variant is chess, if it begins as chess does.
static bool is_chess(std::string_view variant)
{
    static constexpr std::string_view names[] = { "", "?", "standard", "chess", "normal",
        "from position", "fromposition", "chess960", "chess 960", "fischerandom",
        "fischer random" };
    std::string small(variant);
    std::ranges::transform(small, small.begin(),
        [](char c) { return static_cast<char>(tolower(static_cast<u8>(c))); });
    return std::ranges::find(names, small) != std::end(names);
}

// Whether a FEN is the start of chess, castling rights written in either way.
static bool is_usual_start(std::string_view fen)
{
    constexpr std::string_view board = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w ";
    if (!fen.starts_with(board)) {
        return false;
    }
    fen.remove_prefix(board.size());
    return fen.starts_with("KQkq -") || fen.starts_with("HAha -");
}

// Sets the board up for a game. *start is its FEN, empty for the usual start. Returns false if the
// game is refused.
static bool set_up(const GameText& game, const GameRules& rules, GameBoard* board,
    std::string_view* start, GameOutcome* outcome)
{
    const std::string_view variant = tag_value(game, "Variant");
    if (!is_chess(variant)) {
        refuse_game(outcome, "variant of chess", variant.data(), variant.substr(0, 40));
        return false;
    }
    *start = tag_value(game, "FEN");
    if (start->empty() && tag_value(game, "SetUp") == "1") {
        refuse_game(outcome, "start position that is not told", game.start);
        return false;
    }
    if (start->empty() || is_usual_start(*start)) {
        *start = {};
        copy_position(&board->pos, &board->start);
        return true;
    }
    if (!rules.keeps_fen) {
        refuse_game(outcome, "start from a position", start->data(), start->substr(0, fen_size));
        return false;
    }
    const bool is_plain = start->size() < static_cast<size_t>(fen_size)
        && start->find_first_of("\"\\") == start->npos
        && std::ranges::all_of(*start, [](char c) { return c >= ' ' && c <= '~'; });
    if (!is_plain || !is_whole_board(start->substr(0, start->find(' ')))) {
        refuse_game(outcome, "start that is no position", start->data(), start->substr(0, 40));
        return false;
    }
    const std::string fen(*start);
    if (parse_epd(&board->pos, fen.c_str()) != 0) {
        refuse_game(outcome, "castling of Chess960", start->data(), *start);
        return false;
    }
    if (const char* defect = position_defect(&board->pos)) {
        refuse_game(outcome, "start that is no position", start->data(), defect);
        return false;
    }
    return true;
}

// The number of the first move of a FEN, the last of its words.
static i32 first_move_number(std::string_view fen)
{
    i32 number = 1;
    const std::string_view word = fen.substr(fen.rfind(' ') + 1);
    const std::from_chars_result result =
        std::from_chars(word.data(), word.data() + word.size(), number);
    return result.ec == std::errc() && number > 0 && number < 10000 ? number : 1;
}

// ---- Moves

// Adds a number.
static void append_number(std::string* out, i32 number)
{
    char digits[16];
    out->append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

// Adds the score behind a move, if its view is known or usual.
static void write_score(const GameScore& score, const ViewTable& views, i32 side, std::string* out,
    GameOutcome* outcome)
{
    ScoreView view = views[score.form];
    if (view == ScoreView::Unknown && score.form == SlashScore) {
        view = ScoreView::Mover; // the programs that play matches
        // White's own, and zeros, are the same from both views.
        const bool matters = side == Black && score.size != 0;
        outcome->tally.scores_of_taken_view += matters;
        outcome->takes_view |= matters;
    }
    if (view == ScoreView::Unknown) {
        ++outcome->tally.scores_without_view;
        outcome->lacks_view = true;
        return;
    }
    ++outcome->tally.scores[score.form];
    append_score(out, score, view, side);
}

// Two keys, so that no two games share them by chance.
static void add_to_keys(u64 number, u64* keys)
{
    keys[0] = mix_bits(keys[0] + number + mixing_step);
    keys[1] = mix_bits((keys[1] ^ number) + 3 * mixing_step);
}

// The state of writing a game's moves.
struct MoveWriter {
    std::string* out;
    size_t line_start;
    i32 number;
};

// Ends a word that begins at start: it stays in the line, or goes to a new one.
static void end_word(MoveWriter* writer, size_t start)
{
    if (writer->out->size() - writer->line_start > line_length && start > writer->line_start) {
        (*writer->out)[start - 1] = '\n';
        writer->line_start = start;
    }
}

// Begins a word. Returns where.
static size_t start_word(MoveWriter* writer)
{
    if (writer->out->size() != writer->line_start) {
        writer->out->push_back(' ');
    }
    return writer->out->size();
}

// A number, a move and its score are one word: no line ends between them. Returns false if a move
// is refused.
static bool write_moves(const GameText& game, const ViewTable& views, Position* pos,
    MoveWriter* writer, GameOutcome* outcome)
{
    for (size_t i = 0; i < game.moves.size(); ++i) {
        const MoveText& move = game.moves[i];
        NamedMove named;
        if (const char* why = find_named_move(pos, move.text, &named)) {
            refuse_game(outcome, why, move.text.data(), move.text.substr(0, 40));
            return false;
        }
        const size_t start = start_word(writer);
        const i32 side = pos->stm;
        if (side == White || i == 0) {
            append_number(writer->out, writer->number);
            writer->out->append(side == White ? ". " : "... ");
        }
        writer->number += side == Black;
        play_and_write(pos, named, writer->out);
        add_to_keys(named.move, outcome->key);
        if (move.score.form != NoScore) {
            write_score(move.score, views, side, writer->out, outcome);
        }
        end_word(writer, start);
    }
    return true;
}

// ---- The game

static void count_dropped(const GameText& game, GameTally* tally)
{
    tally->moves = static_cast<i64>(game.moves.size());
    tally->comments = game.comments;
    tally->variations = game.variations;
    tally->marks = game.marks;
    tally->clocks = game.clocks;
    tally->unreadable_scores = game.unreadable_scores;
    tally->odd_tags = game.odd_tags;
    tally->without_mark = game.end == GameEnd::None;
}

// Why a game is not wanted: a short class of reasons; null if it is wanted.
static const char* why_unwanted(
    const GameText& game, const GameRules& rules, GameEnd end, bool is_broken)
{
    const char* unwanted = unwanted_by(rules.filter, game, end);
    return unwanted == nullptr && is_broken && rules.broken_off == BrokenOff::LeftOut ? "broken off"
                                                                                      : unwanted;
}

// What is wrong with the game before its moves are played, and whether it is wanted. Tags are only
// believed where the text can be read, so that comes first; of games that are not wanted nobody
// needs to know whether the tools could use them. Returns false if it is not used.
static bool judge_game(const GameText& game, const GameRules& rules, bool is_broken, GameEnd* end,
    GameOutcome* outcome)
{
    if (game.problem != nullptr) {
        refuse_game(outcome, game.problem, game.place, game.problem_text);
        return false;
    }
    if (!settle_result(game, end)) {
        refuse_game(outcome, "two results", game.start);
        return false;
    }
    const bool has_result = *end != GameEnd::None && *end != GameEnd::Unfinished;
    *end = *end == GameEnd::None ? GameEnd::Unfinished : *end;
    if (const char* unwanted = why_unwanted(game, rules, *end, is_broken)) {
        outcome->fate = GameFate::LeftOut;
        outcome->reason = unwanted;
        return false;
    }
    if (game.moves.empty()) {
        refuse_game(outcome, "game without moves", game.start);
        return false;
    }
    if (!has_result && rules.filter.results.empty()) {
        refuse_game(outcome, "game without a result", game.start);
        return false;
    }
    if (game.moves.size() > static_cast<size_t>(max_scanned_moves)) {
        refuse_game(outcome, "game too long for the scanner", game.start);
        return false;
    }
    return true;
}

void write_game(const GameText& game, const GameRules& rules, const ViewTable& file_views,
    GameBoard* board, std::string* out, GameOutcome* outcome)
{
    GameEnd end;
    std::string_view fen;
    const bool is_broken = is_broken_off(game);
    if (!judge_game(game, rules, is_broken, &end, outcome)
        || !set_up(game, rules, board, &fen, outcome)) {
        return;
    }
    count_dropped(game, &outcome->tally);
    outcome->tally.broken_off = is_broken;
    for (const char c : fen) {
        add_to_keys(static_cast<u8>(c), outcome->key);
    }
    const size_t start = out->size();
    write_tags(game, rules, end, fen, out, &outcome->tally);
    MoveWriter writer = { out, out->size(), fen.empty() ? 1 : first_move_number(fen) };
    const ViewTable views = views_of_game(game, file_views, rules.first_views);
    if (!write_moves(game, views, &board->pos, &writer, outcome)) {
        out->resize(start);
        return;
    }
    const size_t word = start_word(&writer);
    out->append(text_of_end(end));
    end_word(&writer, word);
    out->append("\n\n");
}

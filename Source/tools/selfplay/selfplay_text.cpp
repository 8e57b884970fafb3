// The texts of a game. The moves are in standard algebraic notation, but for mates, which get the
// mark of a check: the scanner takes a "#" for no part of a move.
#include "tools/selfplay/selfplay_text.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/mixing.h"
#include "board/moves.h"
#include "board/notation.h"
#include "search/result.h"
#include "tools/training_line.h"

static constexpr size_t line_length = 80;
// Won positions teach an evaluation little: that they are won shows in any score.
static constexpr i32 largest_line_score = 2000;

// ---- Comments

// The score in pawns, of a mate the moves that it takes. The word for a drawn move is the one that
// match programs write, and by which the scanner knows a move that nobody has thought about.
static void write_comment(const SelfplayMove* move, char* out, size_t size)
{
    const i32 score = move->score;
    const char sign = score < 0 ? '-' : '+';
    if (move->depth == 0) {
        snprintf(out, size, " {book}");
    } else if (abs(score) >= ScorePrintsAsMate) {
        snprintf(out, size, " {%cM%d/%d}", sign, (ScoreMate - abs(score)) / 2, move->depth);
    } else {
        snprintf(
            out, size, " {%c%d.%02d/%d}", sign, abs(score) / 100, abs(score) % 100, move->depth);
    }
}

// ---- The game

// Adds a word and a blank or, where the line is full, a line feed before it.
static void add_word(std::string* out, size_t* line_start, std::string_view word)
{
    if (out->size() - *line_start + word.size() + 1 > line_length) {
        out->push_back('\n');
        *line_start = out->size();
    } else if (out->size() != *line_start) {
        out->push_back(' ');
    }
    out->append(word);
}

static void add_tag(std::string* out, std::string_view name, std::string_view value)
{
    out->append("[").append(name).append(" \"").append(value).append("\"]\n");
}

static const char* result_text(const SelfplayGame* game)
{
    return game->winner == White ? "1-0" : game->winner == Black ? "0-1" : "1/2-1/2";
}

static const char* end_text(GameEnd end)
{
    static constexpr const char* texts[] = { "mate", "stalemate", "repetition", "fifty moves",
        "material", "score", "tables", "length" };
    return texts[end];
}

// The seven tags of every game, and two about its end. The opening is told if it is not the usual
// one.
static void write_tags(const SelfplayGame* game, std::string_view event, std::string* out)
{
    char number[24];
    snprintf(number, sizeof number, "%lld", static_cast<long long>(game->number));
    add_tag(out, "Event", event);
    add_tag(out, "Site", "?");
    add_tag(out, "Date", "????.??.??"); // the same games on any day
    add_tag(out, "Round", number);
    add_tag(out, "White", "Vesk");
    add_tag(out, "Black", "Vesk");
    add_tag(out, "Result", result_text(game));
    if (strcmp(game->opening, start_position) != 0) {
        add_tag(out, "SetUp", "1");
        add_tag(out, "FEN", std::string(game->opening) + " 0 1");
    }
    add_tag(out, "Termination", game->end < EndsByScore ? "normal" : "adjudication");
    add_tag(out, "EndReason", end_text(game->end));
    out->push_back('\n');
}

void write_selfplay_game(
    Position* pos, const SelfplayGame* game, std::string_view event, std::string* out)
{
    write_tags(game, event, out);
    parse_epd(pos, game->opening);
    const bool black_begins = pos->stm == Black;
    size_t line_start = out->size();
    for (i32 i = 0; i < game->count; ++i) {
        const SelfplayMove* move = &game->moves[i];
        char text[64] = "";
        if (pos->stm == White || i == 0) {
            snprintf(text, sizeof text, "%d.%s ", (i + black_begins) / 2 + 1,
                pos->stm == White ? "" : "..");
        }
        const size_t used = strlen(text);
        make_standard_san(pos, move->move, text + used);
        const size_t moved = strlen(text);
        write_comment(move, text + moved, sizeof text - moved);
        add_word(out, &line_start, text);
        make_game_move(pos, move->move);
    }
    add_word(out, &line_start, result_text(game));
    out->append("\n\n");
}

// ---- Lines

i32 write_selfplay_lines(Position* pos, const SelfplayGame* game, std::string* out)
{
    parse_epd(pos, game->opening);
    i32 lines = 0;
    for (i32 i = 0; i < game->count; ++i) {
        const SelfplayMove* move = &game->moves[i];
        if (move->depth != 0 && move->is_quiet && abs(move->score) <= largest_line_score) {
            char fen[fen_size];
            make_fen(pos, fen);
            const char* result = game->winner == no_winner ? "0.5"
                : game->winner == pos->stm                 ? "1.0"
                                                           : "0.0";
            char line[fen_size + 80];
            snprintf(line, sizeof line, "%s ce %d; gr %s; c0 \"game %lld\";\n", fen, move->score,
                result, static_cast<long long>(game->number));
            out->append(line);
            ++lines;
        }
        make_game_move(pos, move->move);
    }
    return lines;
}

// ---- The key

// Moves are the words that begin with a letter; comments and all tags but that of the opening are
// passed over.
u64 key_of_game_text(std::string_view text)
{
    constexpr std::string_view opening_tag = "[FEN \"";
    u64 key = empty_text_key;
    bool in_comment = false;
    bool starts_line = true;
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (starts_line && c == '[' && !in_comment) {
            const size_t end = text.find('\n', i);
            const std::string_view tag = text.substr(i, end - i);
            for (size_t k = 0; tag.starts_with(opening_tag) && k < tag.size(); ++k) {
                key = add_to_text_key(key, tag[k]);
            }
            i = end == text.npos ? text.size() : end + 1;
            continue;
        }
        starts_line = c == '\n';
        if (c == '{' || c == '}') {
            in_comment = c == '{';
        } else if (!in_comment && isalpha(static_cast<u8>(c))) {
            for (; i < text.size() && isgraph(static_cast<u8>(text[i])); ++i) {
                key = add_to_text_key(key, text[i]);
            }
            key = add_to_text_key(key, ' ');
            continue;
        }
        ++i;
    }
    return key;
}

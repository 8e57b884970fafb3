// The PGN scanner: games with an engine's evaluations in their comments become annotated games or
// positions. Reading collects the moves of a game with their evaluations; the game is written by
// pgn_forms.cpp when the next one begins. Nothing is searched, and only one game is in memory.
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "board/position.h"
#include "shell/board_text.h"
#include "shell/options.h"
#include "tools/pgn_forms.h"
#include "tools/tools.h"

static constexpr i32 line_size = 255;      // of a line or a piece of one, with its NUL
static constexpr i32 comment_size = 4001;  // what stands behind it is lost
static constexpr i32 games_per_line = 100; // between two lines of output
static constexpr i32 mate_eval = 9000;     // centipawns, for a mate at any distance
static constexpr f64 centipawns = 100.0;   // of a pawn

// The reading of a file. Comments and skipped games go on over lines, so what is known of them lies
// here; a line is forgotten when it has been gone through.
struct PgnScan {
    ToolInput input;
    OutputFile out;
    OutputFile refutations;
    i32 form;
    ScannedGame game;
    i32 comment_depth; // open braces
    i32 comment_length;
    char comment[comment_size];
    bool skips; // the game's text is passed over
    i32 games;
    i64 positions;
};

static bool holds(std::string_view text, std::string_view part)
{
    return text.find(part) != text.npos;
}

// ---- Comments

// A number in centipawns from White's view, as a comment "eval 25, depth 12" has it. What ends the
// comment ends the number, too.
static i16 eval_of_number(std::string_view text, bool white)
{
    if (text.empty() || text[0] == ',') {
        return BadEval;
    }
    const i64 value = read_i32(text.data());
    return narrow_to_i16(static_cast<f64>(white ? value : -value));
}

// The score of a word such as "+0.35", in pawns from the mover's view, which a slash ends. It is
// cut, not rounded: "-2.05" times 100 is a little less than 205 and gives -204.
static i16 eval_of_score(std::string_view word)
{
    if (holds(word, "-M")) {
        return -mate_eval;
    }
    if (holds(word, "+M")) {
        return mate_eval;
    }
    return narrow_to_i16(read_real(word.data()) * centipawns);
}

// The last word of a text, which ends at its last blank.
static std::string_view last_word(std::string_view text)
{
    return text.substr(text.rfind(' ') + 1);
}

// The evaluation that a comment gives the move before it, by the habits of the programs that play
// matches. A move out of the book was not thought about and counts as even. Behind the text stands
// a brace or a NUL, so that no number goes on there.
static i16 judge_comment(std::string_view text, bool white)
{
    if (holds(text, "book")) {
        return 0;
    }
    constexpr std::string_view mark = "eval ";
    if (const size_t start = text.find(mark); start != text.npos) {
        return eval_of_number(text.substr(start + mark.size()), white);
    }
    // Behind the slash stands the depth.
    if (const size_t slash = text.find('/'); slash != text.npos) {
        return eval_of_score(last_word(text.substr(0, slash)));
    }
    return BadEval;
}

// Ends a comment without looking at it.
static void reset_comment(PgnScan* scan)
{
    scan->comment_depth = 0;
    scan->comment_length = 0;
}

// The move before a comment is White's if an odd number of moves has been read.
static void end_comment(PgnScan* scan, std::string_view text)
{
    ScannedGame* game = &scan->game;
    // A move that found no room in the table takes its comment with it.
    if (game->count > 0 && game->lost_moves == 0) {
        game->moves[game->count - 1].eval = judge_comment(text, game->count % 2 == 1);
    }
}

// A line feed, which is the last character of its line, becomes a blank: an evaluation may be the
// first word of a comment's second line.
static void add_to_comment(PgnScan* scan, std::string_view text)
{
    char* out = scan->comment + scan->comment_length;
    const size_t size =
        text.copy(out, static_cast<size_t>(comment_size - 1 - scan->comment_length));
    if (size > 0 && out[size - 1] == '\n') {
        out[size - 1] = ' ';
    }
    scan->comment_length += static_cast<i32>(size);
}

// Comments may contain others and end with the outermost brace. A closing brace without an opening
// one is passed over.
static void read_brace(PgnScan* scan, char c)
{
    if (c == '{') {
        ++scan->comment_depth;
    } else if (scan->comment_depth > 0 && --scan->comment_depth == 0) {
        scan->comment[scan->comment_length] = '\0';
        end_comment(scan, { scan->comment, static_cast<size_t>(scan->comment_length) });
        scan->comment_length = 0;
    }
}

static const char* find_in(const char* text, const char* end, char c)
{
    return static_cast<const char*>(memchr(text, c, static_cast<size_t>(end - text)));
}

// Reads on in a comment and returns the place behind its next brace, or the end of the line. Mostly
// that is the brace that ends it, and the comment stands in this line as a whole: then it is judged
// where it stands, and only others are collected.
static const char* read_comment(PgnScan* scan, const char* text, const char* end)
{
    const char* closing = find_in(text, end, '}');
    const char* opening = find_in(text, closing != nullptr ? closing : end, '{');
    const char* brace = opening != nullptr ? opening : closing;
    if (brace == nullptr) {
        add_to_comment(scan, { text, static_cast<size_t>(end - text) });
        return end;
    }
    const std::string_view part = { text, static_cast<size_t>(brace - text) };
    if (brace == closing && scan->comment_depth == 1 && scan->comment_length == 0) {
        scan->comment_depth = 0;
        end_comment(scan, part);
    } else {
        add_to_comment(scan, part);
        read_brace(scan, *brace);
    }
    return brace + 1;
}

// ---- Moves

// The length of the word that text begins with, which is not empty, and its first eight characters,
// those behind it as NULs. A word of less is found in one step: a loop ends after two to five
// characters, as no processor can guess. Bytes below '!' borrow from the next one and so get their
// top bit; of those that have it the lowest is surely one.
struct Word {
    size_t size;
    char start[8];
};
static Word first_word(const char* text)
{
    constexpr u64 every_byte = 0x0101010101010101ULL;
    u64 bytes;
    memcpy(&bytes, text, sizeof bytes);
    const u64 ends = (bytes - every_byte * '!') & ~bytes & (every_byte << 7);
    Word word;
    word.size = ends != 0 ? static_cast<size_t>(lowest(ends)) / 8 : 8;
    const char end = text[word.size];
    if (ends != 0 && (end == ' ' || end == '\n' || end == '\r' || end == '\0')) {
        bytes &= bit(static_cast<i32>(8 * word.size)) - 1;
        memcpy(word.start, &bytes, sizeof bytes);
        return word;
    }
    word.size = strcspn(text, " \r\n");
    memset(word.start, 0, sizeof word.start);
    memcpy(word.start, text, word.size < 8 ? word.size : 8);
    return word;
}

// Stores the move that text begins with and returns its length, the whole word's. Moves are taken
// for what they look like; whether they can be played is seen when the game is written.
static size_t read_move(PgnScan* scan, const char* text)
{
    ScannedGame* game = &scan->game;
    const Word word = first_word(text);
    if (game->count == max_scanned_moves) {
        if (game->lost_moves++ == 0) {
            refuse(&scan->input, scan->input.lines.line_number,
                "the moves of a game behind half-move %d are left out", max_scanned_moves);
        }
        return word.size;
    }
    ScannedMove* move = &game->moves[game->count++];
    memcpy(move->text, word.start, sizeof move->text);
    move->text[sizeof move->text - 1] = '\0';
    move->size = static_cast<u8>(word.size < sizeof move->text ? word.size : sizeof move->text - 1);
    move->eval = NoEval;
    move->line_number = scan->input.lines.line_number;
    return word.size;
}

// What is passed over outside of comments: numbers, dots and results do not begin with a letter.
static constexpr auto passed_over = [] {
    std::array<bool, 256> table {};
    for (size_t c = 1; c < 256; ++c) {
        table[c] = !is_letter(static_cast<char>(c)) && c != '{' && c != '}';
    }
    return table;
}();

// Goes through a line, or a piece of one: comments and the moves outside of them. Behind it there
// is room for eight characters more.
static void read_moves(PgnScan* scan, const char* line)
{
    const char* end = line + strlen(line);
    while (line < end) {
        if (scan->comment_depth > 0) {
            line = read_comment(scan, line, end);
        } else if (is_letter(*line)) {
            line += read_move(scan, line);
        } else if (*line == '{' || *line == '}') {
            read_brace(scan, *line++);
        } else {
            while (passed_over[static_cast<u8>(*line)]) {
                ++line;
            }
        }
    }
}

// ---- Games

// Writes the game that has been collected. Tags follow each other, so mostly there is none. Behind
// a game without moves nothing is written, no line feed either, also where it is the last one: its
// tags have been copied as they came.
static void end_game(Dialogue* dialogue, PgnScan* scan)
{
    if (scan->game.count == 0) {
        return;
    }
    scan->positions += write_scanned_game(
        dialogue, scan->form, &scan->game, &scan->input, scan->out.file, scan->refutations.file);
    reset_comment(scan);
}

// What the last game left must not reach into this one; only its result stays until the next tag of
// that kind.
static void start_game(PgnScan* scan)
{
    ++scan->games;
    if (scan->games % games_per_line == 0) {
        hide_progress(&scan->input);
        print_plain("game %d\n", scan->games);
    }
    show_progress(&scan->input, "game", scan->games);
    scan->skips = false;
    reset_comment(scan); // one that was never closed must not swallow the games behind it
}

// The result that stands in quotes. Anything but a win of one side counts as a draw.
static i32 result_of(std::string_view tag)
{
    const size_t quote = tag.find('"');
    if (quote == tag.npos) {
        return NoWinner;
    }
    tag.remove_prefix(quote + 1);
    const std::string_view text = tag.substr(0, tag.find('"'));
    return holds(text, "1-0") ? White : holds(text, "0-1") ? Black : NoWinner;
}

// A game that a tag marks as broken off gives nothing: its result is not the board's.
static void judge_tag(PgnScan* scan, std::string_view line)
{
    scan->game.count = 0;
    scan->game.lost_moves = 0;
    if (holds(line, "Event ")) {
        start_game(scan);
    } else if (holds(line, "White ") || holds(line, "Black ")) {
        // The names of players may hold any word.
    } else if (holds(line, "Result ")) {
        scan->game.result = result_of(line);
    } else if (holds(line, "unterminated") || holds(line, "time forfeit")
        || holds(line, "abandoned")) {
        scan->skips = true;
    }
}

// The first tag behind the moves of a game tells that it is over.
static void read_tag(Dialogue* dialogue, PgnScan* scan, const char* line)
{
    end_game(dialogue, scan);
    if (scan->form == AnnotatedGames) {
        fputs(line, scan->out.file);
        if (holds(line, "Round ")) {
            fprintf(scan->out.file, "[Tag \"game_%d\"]\n", scan->games);
        }
    }
    judge_tag(scan, line);
}

// Clock times and the like of a comment that goes on over several lines look like tags: "[%clk".
static void read_scan_line(Dialogue* dialogue, PgnScan* scan, const char* line)
{
    if (line[0] == '[' && line[1] != '%') {
        read_tag(dialogue, scan, line);
    } else if (!scan->skips && line[0] != '\0' && line[0] != '\n') {
        read_moves(scan, line);
    }
}

// Lines that end in a carriage return and a line feed are read as if it were not there; of a line
// that was read in pieces only the last one can have them.
static void cut_carriage_return(char* line, i32 length)
{
    if (length >= 2 && line[length - 2] == '\r' && line[length - 1] == '\n') {
        line[length - 2] = '\n';
        line[length - 1] = '\0';
    }
}

// The last game has no tag behind it, so it ends with the file.
static void scan_games(Dialogue* dialogue, PgnScan* scan)
{
    char line[line_size + 8] = ""; // read_moves may look behind its end
    for (i32 length; (length = read_line_piece(&scan->input.lines, line, line_size)) > 0;) {
        cut_carriage_return(line, length);
        read_scan_line(dialogue, scan, line);
    }
    end_game(dialogue, scan);
    fputc('\n', scan->out.file);
}

// ---- The mode

// Counts the games for the progress: each begins with such a tag.
static bool is_event_tag(const char* line)
{
    return line[0] == '[' && holds(line, "Event ");
}

// The second file is made in all forms, but only annotated games have something for it.
static bool open_outputs(PgnScan* scan)
{
    const bool games = scan->form == AnnotatedGames;
    if (!open_tool_output(&scan->input, &scan->out, games ? "tmp.pgn" : "tmp.epd",
            games ? "tmp.pgn.part" : "tmp.epd.part")) {
        return false;
    }
    if (!open_tool_output(&scan->input, &scan->refutations, "tmpX.epd", "tmpX.epd.part")) {
        drop_output(&scan->out);
        return false;
    }
    return true;
}

// The record is filled field by field: its buffers, some 80 KB, need no value. A file whose first
// game has no tags at all is read as a draw.
void scan_pgn(Dialogue* dialogue, const char* file_name, i32 form)
{
    PgnScan scan;
    scan.form = form;
    scan.game.count = 0;
    scan.game.lost_moves = 0;
    scan.game.result = NoWinner;
    scan.comment_depth = 0;
    scan.comment_length = 0;
    scan.skips = false;
    scan.games = 0;
    scan.positions = 0;
    if (!open_input(&scan.input, file_name)) {
        return;
    }
    if (open_outputs(&scan)) {
        // Messages of thousands of games would fill the log.
        dialogue->engine_options.log = 0;
        publish_options(dialogue);
        start_progress(&scan.input, is_event_tag);
        scan_games(dialogue, &scan);
        hide_progress(&scan.input);
        OutputFile* const files[] = { &scan.out, &scan.refutations };
        finish_outputs(&scan.input, files, 2);
        print_plain(
            "games= %d, positions= %lld\n", scan.games, static_cast<long long>(scan.positions));
    }
    close_input(&scan.input);
}

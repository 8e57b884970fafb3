// The PGN scanner: games with an engine's evaluations in their comments become annotated games or
// positions. Reading collects the moves of a game with their evaluations; the game is written by
// pgn_forms.cpp when the next one begins. Nothing is searched, and only one game is in memory.
#include <cstdio>
#include <cstring>

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

static bool holds(const char* text, const char* part)
{
    return strstr(text, part) != nullptr;
}

// ---- Comments

// A number in centipawns from White's view, as a comment "eval 25, depth 12" has it.
static i16 eval_of_number(const char* text, bool white)
{
    if (*text == '\0' || *text == ',') {
        return BadEval;
    }
    const i64 value = read_i32(text);
    return narrow_to_i16(static_cast<f64>(white ? value : -value));
}

// The score of a word such as "+0.35", in pawns from the mover's view. It is cut, not rounded:
// "-2.05" times 100 is a little less than 205 and gives -204.
static i16 eval_of_score(const char* word)
{
    if (holds(word, "-M")) {
        return -mate_eval;
    }
    if (holds(word, "+M")) {
        return mate_eval;
    }
    return narrow_to_i16(read_real(word) * centipawns);
}

// The word that ends before the slash, which is replaced: behind it stands the depth.
static const char* word_before(char* text, char* slash)
{
    *slash = '\0';
    const char* blank = strrchr(text, ' ');
    return blank != nullptr ? blank + 1 : text;
}

// The evaluation that a comment gives the move before it, by the habits of the programs that play
// matches. A move out of the book was not thought about and counts as even.
static i16 judge_comment(char* text, bool white)
{
    if (holds(text, "book")) {
        return 0;
    }
    if (const char* number = strstr(text, "eval ")) {
        return eval_of_number(number + strlen("eval "), white);
    }
    if (char* slash = strchr(text, '/')) {
        return eval_of_score(word_before(text, slash));
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
static void end_comment(PgnScan* scan)
{
    ScannedGame* game = &scan->game;
    scan->comment[scan->comment_length] = '\0';
    scan->comment_length = 0;
    // A move that found no room in the table takes its comment with it.
    if (game->count > 0 && game->lost_moves == 0) {
        game->moves[game->count - 1].eval = judge_comment(scan->comment, game->count % 2 == 1);
    }
}

// A line feed becomes a blank: an evaluation may be the first word of a comment's second line.
static void add_to_comment(PgnScan* scan, char c)
{
    if (scan->comment_length < comment_size - 1) {
        scan->comment[scan->comment_length++] = c == '\n' ? ' ' : c;
    }
}

// ---- Moves

// Stores the move that text begins with and returns its length, the whole word's. Moves are taken
// for what they look like; whether they can be played is seen when the game is written.
static size_t read_move(PgnScan* scan, const char* text)
{
    ScannedGame* game = &scan->game;
    const size_t length = strcspn(text, " \r\n");
    if (game->count == max_scanned_moves) {
        if (game->lost_moves++ == 0) {
            refuse(&scan->input, scan->input.lines.line_number,
                "the moves of a game behind half-move %d are left out", max_scanned_moves);
        }
        return length;
    }
    ScannedMove* move = &game->moves[game->count++];
    const size_t kept = length < sizeof move->text ? length : sizeof move->text - 1;
    memcpy(move->text, text, kept);
    move->text[kept] = '\0';
    move->eval = NoEval;
    move->line_number = scan->input.lines.line_number;
    return length;
}

// Comments may contain others and end with the outermost brace. A closing brace without an opening
// one is passed over.
static void read_brace(PgnScan* scan, char c)
{
    if (c == '{') {
        ++scan->comment_depth;
    } else if (scan->comment_depth > 0 && --scan->comment_depth == 0) {
        end_comment(scan);
    }
}

// Goes through a line, or a piece of one: comments and the moves outside of them. Numbers, dots and
// results do not begin with a letter and so are passed over character by character.
static void read_moves(PgnScan* scan, const char* line)
{
    while (*line != '\0') {
        const char c = *line;
        if (c == '{' || c == '}') {
            read_brace(scan, c);
        } else if (scan->comment_depth > 0) {
            add_to_comment(scan, c);
        } else if (is_letter(c)) {
            line += read_move(scan, line);
            continue;
        }
        ++line;
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
static i32 result_of(char* tag)
{
    char* text = strchr(tag, '"');
    if (text == nullptr) {
        return NoWinner;
    }
    ++text;
    text[strcspn(text, "\"")] = '\0';
    return holds(text, "1-0") ? White : holds(text, "0-1") ? Black : NoWinner;
}

// A game that a tag marks as broken off gives nothing: its result is not the board's.
static void judge_tag(PgnScan* scan, char* line)
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
static void read_tag(Dialogue* dialogue, PgnScan* scan, char* line)
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
static void read_scan_line(Dialogue* dialogue, PgnScan* scan, char* line)
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
    char line[line_size];
    for (i32 length; (length = read_line_piece(&scan->input.lines, line, sizeof line)) > 0;) {
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

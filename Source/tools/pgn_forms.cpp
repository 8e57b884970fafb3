// The four forms in which the PGN scanner writes a game. Each plays the moves on the console's
// position and looks at it before every move. Nothing is searched: what is known of a position is
// what the player thought of its move.
#include "tools/pgn_forms.h"

#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/output.h"
#include "board/moves.h"
#include "board/notation.h"
#include "board/position.h"
#include "search/hash.h"
#include "search/search.h"
#include "shell/board_text.h"

static constexpr i32 comment_size = 512;
static constexpr i32 position_line_size = fen_size + 64; // a move, a number and a result behind it
static constexpr i32 lines_size = 8192;           // of the lines that are written in one step
static constexpr i32 lowest_eval = 1 - ScoreMate; // what lies below is none
static constexpr f64 pawn = 0.01;                 // of a centipawn

// When a move counts as a blunder: how the opponent's evaluations before it and after the next
// replies go on. Centipawns. One high evaluation may be a mistake of the opponent, so its own next
// ones must bear it out. A game that is won already has no blunders worth a test: most_before keeps
// it out.
static constexpr struct {
    i32 first_index = 13;  // half-moves from 0
    i32 moves_behind = 10; // at least so many must follow
    i32 least_before = -999;
    i32 most_before = 249;
    i32 least_late = -999; // leaves out moves without an evaluation
    i32 rise = 30;         // of the next reply and the one after it
    i32 late_rise = 50;    // of the fourth reply
    i32 rise_divisor = 10; // both grow by this part of the evaluation before
} blunder_rule;

// Positions for tuning come from the middle of a game. The opening is the book's and the same in
// many games; the last moves are often a mate or a repetition, whose result the board does not
// show; and where the clock has run for long, both sides only shuffle. Indices and half-moves from
// 0.
static constexpr struct {
    i32 first_index = 16;
    i32 last_index = 220;
    i32 left_out_at_end = 6;
    i32 most_cnt50 = 20;
    i32 largest_eval = 4999; // centipawns; mates and moves without an evaluation lie beyond
} tuning_rule;

// How a line ends behind its evaluation, by the result for the side to move. The two
// forms name it differently: gr is what -mktune and the trainer read.
struct ResultTexts {
    std::string_view won;
    std::string_view drawn;
    std::string_view lost;
};
static constexpr ResultTexts tuning_results = { "; gr 1.0;\n", "; gr 0.5;\n", "; gr 0.0;\n" };
static constexpr ResultTexts ending_results = { "; tune 1.00000;\n", "; tune 0.50000;\n",
    "; tune 0.00000;\n" };

static constexpr i32 last_undecided_index = 200; // half-moves from 0
static constexpr i32 decided_eval = 500;         // centipawns

// A game being played through.
struct ReplayedGame {
    const ScannedGame* game;
    ToolInput* input;
    Position* pos;
    FILE* out;
    FILE* refutations;
    Move move; // that of the present index
    i32 written;
    char fen[fen_size];
    RankTexts ranks;
    i32 lines_used;
    char lines[lines_size]; // that are not in the file yet
};

// Reads the move of index i. It is an ambiguous or unknown text that ends the game: without the
// move the position is lost. read_move tells the user why; it may make the text one character
// longer, so the copy has room.
static bool read_scanned_move(ReplayedGame* replay, i32 i)
{
    const ScannedMove* scanned = &replay->game->moves[i];
    if (find_move(replay->pos, { scanned->text, scanned->size }, &replay->move) == 1) {
        return true;
    }
    char text[sizeof scanned->text + 1];
    memcpy(text, scanned->text, sizeof scanned->text);
    if (read_move(replay->pos, text, &replay->move)) {
        return true;
    }
    refuse(replay->input, scanned->line_number, "move '%s' cannot be read, the game ends there",
        scanned->text);
    return false;
}

// Whether the side to move is.
static bool in_check(const Position* pos)
{
    return is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
}

// The text of the position before the present move; it holds until the next call.
static const char* fen_before(ReplayedGame* replay)
{
    make_fen(replay->pos, replay->fen);
    return replay->fen;
}

// ---- Annotated games

// Whether the opponent's evaluation rises by move i and stays up for the next replies. The moves of
// the opponent are those at odd distances: before it at -1, its replies at 1, 3, 5 and 7.
static bool is_blunder(const ScannedGame* game, i32 i)
{
    const ScannedMove* moves = game->moves;
    if (i < blunder_rule.first_index || i >= game->count - blunder_rule.moves_behind) {
        return false;
    }
    const i32 before = moves[i - 1].eval;
    const i32 late = moves[i + 7].eval;
    if (before < blunder_rule.least_before || before > blunder_rule.most_before
        || late < blunder_rule.least_late) {
        return false;
    }
    const i32 margin = abs(before) / blunder_rule.rise_divisor;
    return moves[i + 1].eval - before > margin + blunder_rule.rise
        && moves[i + 3].eval - before > margin + blunder_rule.rise
        && late - before > margin + blunder_rule.late_rise;
}

// What does not fit is cut off.
[[gnu::format(printf, 2, 3)]] static void append_comment(char* comment, const char* format, ...)
{
    const size_t used = strlen(comment);
    va_list args;
    va_start(args, format);
    vsnprintf(comment + used, comment_size - used, format, args);
    va_end(args);
}

// The evaluation goes in pawns from White's view, as readers of games expect it.
static void write_annotated_move(ReplayedGame* replay, i32 i, bool refutes, bool blunders)
{
    const ScannedMove* scanned = &replay->game->moves[i];
    const char* text = scanned->text;
    const bool white = i % 2 == 0;
    char comment[comment_size] = "";
    if (scanned->eval >= lowest_eval) {
        append_comment(comment, "%6.2f", (white ? scanned->eval : -scanned->eval) * pawn);
    }
    if (refutes) {
        append_comment(comment, " ! %s bm %s;", fen_before(replay), text);
        fprintf(replay->refutations, "%s bm %s;\n", replay->fen, text);
        ++replay->written;
    }
    if (blunders) {
        append_comment(comment, " ? %s am %s;", fen_before(replay), text);
    }
    char prefix[16] = "     ";
    if (white) {
        snprintf(prefix, sizeof prefix, "%3d. ", i / 2 + 1);
    }
    fprintf(replay->out, "%s %-6s  {%s}\n", prefix, text, comment);
}

// The move behind a blunder is its refutation: the opponent's evaluation rose with it. A move may
// be both, if the refutation is a blunder itself.
static void write_annotated_game(ReplayedGame* replay)
{
    const ScannedGame* game = replay->game;
    bool blundered = false; // the move before
    for (i32 i = 0; i < game->count && read_scanned_move(replay, i); ++i) {
        const bool refutes = blundered;
        blundered = is_blunder(game, i);
        write_annotated_move(replay, i, refutes, blundered);
        make_move(replay->pos, replay->move);
    }
    fputc('\n', replay->out);
}

// ---- Positions

static char* append_text(char* out, std::string_view text)
{
    memcpy(out, text.data(), text.size());
    return out + text.size();
}

static char* append_number(char* out, i32 number)
{
    constexpr i32 longest_number = 12;
    return std::to_chars(out, out + longest_number, number).ptr;
}

static void write_lines(ReplayedGame* replay)
{
    fwrite(replay->lines, 1, static_cast<size_t>(replay->lines_used), replay->out);
    replay->lines_used = 0;
}

// Writes a line with the position before move i, the move, its evaluation and more operations.
// Millions of them are written, so they are put together without printf, and many go to the file
// at once.
static void write_position(ReplayedGame* replay, i32 i, std::string_view operations)
{
    const ScannedMove* scanned = &replay->game->moves[i];
    if (replay->lines_used > lines_size - position_line_size) {
        write_lines(replay);
    }
    char* out = make_next_fen(replay->pos, &replay->ranks, replay->lines + replay->lines_used);
    out = append_text(out, " bm ");
    memcpy(out, scanned->text, sizeof scanned->text);
    out = append_text(out + scanned->size, "; ce ");
    out = append_number(out, scanned->eval);
    out = append_text(out, operations);
    replay->lines_used = static_cast<i32>(out - replay->lines);
    ++replay->written;
}

// A side in check has to answer it, so its board says little of the game.
static bool is_for_tuning(const ReplayedGame* replay, i32 i)
{
    const i32 eval = replay->game->moves[i].eval;
    return i >= tuning_rule.first_index && replay->pos->cnt50 <= tuning_rule.most_cnt50
        && abs(eval) <= tuning_rule.largest_eval && !in_check(replay->pos);
}

// The text for the result of the game from the view of the side to move at index i.
static std::string_view result_text(const ScannedGame* game, i32 i, const ResultTexts* texts)
{
    return game->result == NoWinner ? texts->drawn
        : game->result == i % 2     ? texts->won
                                    : texts->lost;
}

// Moves before the first position are played all the same; behind the last one nothing is read any
// more, so a text there that is no move goes unnoticed.
static void write_tuning_positions(ReplayedGame* replay)
{
    const ScannedGame* game = replay->game;
    const i32 end = game->count - tuning_rule.left_out_at_end;
    for (i32 i = 0; i < end && i <= tuning_rule.last_index && read_scanned_move(replay, i); ++i) {
        if (is_for_tuning(replay, i)) {
            write_position(replay, i, result_text(game, i, &tuning_results));
        }
        make_move(replay->pos, replay->move);
    }
}

// The position of the first large evaluation is still written: it is where the game was decided.
static void write_undecided_positions(ReplayedGame* replay)
{
    const ScannedGame* game = replay->game;
    for (i32 i = 0; i < game->count && i <= last_undecided_index && read_scanned_move(replay, i);
         ++i) {
        if (!in_check(replay->pos)) {
            write_position(replay, i, ";\n");
        }
        if (abs(game->moves[i].eval) > decided_eval) {
            return;
        }
        make_move(replay->pos, replay->move);
    }
}

// Whether each side has a rook and nothing else but a pawn of one of them. No other pieces weigh as
// much as a rook together: a rook is 5, and 3 and 10 do not add up to it.
static bool is_rook_ending(const Position* pos)
{
    return pos->phase_mtl[White] == phase_weight[Rook]
        && pos->phase_mtl[Black] == phase_weight[Rook]
        && count_of(pos, White, Pawn) + count_of(pos, Black, Pawn) == 1;
}

// Evaluations play no part here: a position without one is written too.
static void write_rook_endings(ReplayedGame* replay)
{
    const ScannedGame* game = replay->game;
    for (i32 i = 0; i < game->count && read_scanned_move(replay, i); ++i) {
        if (is_rook_ending(replay->pos)) {
            write_position(replay, i, result_text(game, i, &ending_results));
        }
        make_move(replay->pos, replay->move);
    }
}

// Nothing is searched, but depth limit, noise and hash mode are left as for a run that does.
i32 write_scanned_game(Dialogue* dialogue, i32 form, const ScannedGame* game, ToolInput* input,
    FILE* out, FILE* refutations)
{
    ReplayedGame replay;
    replay.game = game;
    replay.input = input;
    replay.pos = &dialogue->game->pos;
    replay.out = out;
    replay.refutations = refutations;
    replay.written = 0;
    replay.lines_used = 0;
    read_position(replay.pos, start_position);
    store(dialogue->limits.depth_limit, form == TuningPositions ? 1 : 0);
    store(noise, silent_noise);
    store(hash.mode, HashOff);
    switch (form) {
    case AnnotatedGames:
        write_annotated_game(&replay);
        break;
    case TuningPositions:
        write_tuning_positions(&replay);
        break;
    case UndecidedPositions:
        write_undecided_positions(&replay);
        break;
    default:
        write_rook_endings(&replay);
        break;
    }
    write_lines(&replay);
    return replay.written;
}

// Making a training file. Each position with a game's result is searched, and what is written is
// the quiet position at the end of the best line: that is what the evaluation has to judge. A
// static evaluation cannot see a pending capture, and training it on one would teach it wrong
// values.
#include <cstdio>
#include <cstring>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "board/defect.h"
#include "board/moves.h"
#include "board/notation.h"
#include "board/position.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/prepare_search.h"
#include "shell/think_loop.h"
#include "tools/search_setup.h"
#include "tools/tool_input.h"
#include "tools/tools.h"

static constexpr i32 line_size = 255;               // of a line, with its NUL
static constexpr size_t result_size = 16;           // of the text of a result, with its NUL
static constexpr i32 positions_between_looks = 256; // at the input; the searches are short
static constexpr u32 written_between_lines = 4096;
static constexpr f64 won = 1.0; // results from the view of the side to move
static constexpr f64 drawn = 0.5;
static constexpr f64 lost = 0.0;

// What a position must be like to be of use: its score must not contradict the game's result. A
// game that was won from a lost position was decided later, by a blunder or by the clock, and says
// nothing of this one. Beyond the largest score all positions are
// won alike. Centipawns from the view of
// the side to move, bounds included.
static constexpr struct {
    i32 largest_score = 1200; // of the file and of the search
    i32 least_score_of_win = -100;
    i32 most_score_of_loss = 100;
    i32 largest_score_of_draw = 250;
    i32 least_search_score = -9000; // below it a mate has been found, or nothing was searched
} sample_rule;

// A run over one file.
struct TuneFile {
    ToolInput input;
    OutputFile out;
    u32 seen;    // positions searched
    u32 written; // lines
    bool quit;
};

// A line of the file. score, in centipawns, and result, 0 to 1, are from the view of the side to
// move.
struct Sample {
    char pos_text[epd_pos_size];
    i32 score;
    f64 result;
    bool has_result;
};

// A line without gr is no sample. What stands behind gr is read as far as it is a number.
static void read_sample(const char* line, Sample* sample)
{
    char bm[epd_operand_size];
    char am[epd_operand_size];
    char id[epd_operand_size];
    char ce[epd_operand_size];
    char c0[epd_operand_size];
    read_epd_ops(line, sample->pos_text, bm, am, id, ce, c0);
    sample->score = read_i32(ce);
    const char* result = strstr(line, " gr ");
    sample->has_result = result != nullptr;
    sample->result = lost;
    if (sample->has_result) {
        char text[result_size];
        copy_text(text, sizeof text, result + strlen(" gr "));
        text[strcspn(text, ";")] = '\0';
        sample->result = read_real(text);
    }
}

// By the source's score, before anything is searched. Results between those of a game, as other
// programs blend them, are taken at any score within bounds.
static bool is_usable(const Sample* sample)
{
    const i32 score = sample->score;
    if (sample->result < lost || sample->result > won || score < -sample_rule.largest_score
        || score > sample_rule.largest_score) {
        return false;
    }
    if (sample->result == won) {
        return score >= sample_rule.least_score_of_win;
    }
    if (sample->result == lost) {
        return score <= sample_rule.most_score_of_loss;
    }
    return sample->result != drawn
        || (score >= -sample_rule.largest_score_of_draw
            && score <= sample_rule.largest_score_of_draw);
}

// Searches the console's position on this thread. A command that comes meanwhile may set up
// another one or other limits, so they are put back afterwards: nothing but its limits ends the
// next search. Returns the score of worker 0.
static i32 search_sample(Dialogue* dialogue, TuneFile* file)
{
    const SearchSetup setup = keep_setup(dialogue);
    prepare_search(dialogue);
    store(engine_state, EngineState::Thinking);
    search_sync(dialogue->game);
    collect_stats();
    const SearchThread* worker = load(workers[0]);
    const i32 score = worker != nullptr ? worker->score : -ScoreInfinite;
    if (file->seen % positions_between_looks == positions_between_looks - 1) {
        tick_clock(dialogue);
        poll_input(dialogue);
    }
    file->quit = dialogue->quit_flag;
    store(engine_state, EngineState::Idle);
    restore_setup(dialogue, &setup);
    return score;
}

// Whether the line's end is one that the evaluation can be right about, and not a mate or a won
// game. Both scores are asked: that of the search, and the one it published.
static bool is_quiet_result(i32 score)
{
    const i32 result_score = load(search_result.result_score);
    return score >= sample_rule.least_search_score && result_score >= -sample_rule.largest_score
        && result_score <= sample_rule.largest_score;
}

// Writes the position at the end of the best line with the score and the result of the source: a
// score of this search would teach the evaluation what it believes already.
static void write_leaf(Dialogue* dialogue, TuneFile* file, const Sample* sample)
{
    Position* pos = &dialogue->game->pos;
    i32 plies = 0;
    for (const u16* move = search_result.result_pv + 1; *move != NoMove; ++move) {
        make_move(pos, *move);
        ++plies;
    }
    // Score and result are those of the source: at the end of the line they belong to the side that
    // is to move there.
    const bool turned = plies % 2 != 0;
    char fen[fen_size];
    make_fen(pos, fen);
    fprintf(file->out.file, "%s ce %d; gr %0.1f;\n", fen, turned ? -sample->score : sample->score,
        turned ? 1.0 - sample->result : sample->result);
    if (file->written % written_between_lines == 0) {
        hide_progress(&file->input);
        print_plain(" n= %u\n", file->written);
    }
    ++file->written;
}

// Uses one line. Returns whether the reading may go on: a castling right without its king or rook
// makes the whole file suspect.
static bool use_line(Dialogue* dialogue, TuneFile* file, const char* line)
{
    Sample sample;
    read_sample(line, &sample);
    const i32 line_number = file->input.lines.line_number;
    Position* pos = &dialogue->game->pos;
    if (read_position(pos, sample.pos_text) != 0) {
        print_plain("%s\n", line);
        refuse(&file->input, line_number,
            "a castling right has no king or rook at home, the file"
            " is not read on");
        return false;
    }
    if (!sample.has_result || !is_usable(&sample)) {
        return true;
    }
    if (const char* defect = position_defect(pos)) {
        refuse(&file->input, line_number, "%s", defect);
        return true;
    }
    ++file->seen;
    const i32 score = search_sample(dialogue, file);
    if (is_quiet_result(score)) {
        write_leaf(dialogue, file, &sample);
    }
    return !file->quit;
}

// For the progress: all lines but comments, usable or not, as reading them is part of the work.
static bool is_sample_line(const char* line)
{
    return !is_epd_comment(line);
}

// A quit that has been seen ends the run; what was written is kept and published.
static void use_lines(Dialogue* dialogue, TuneFile* file)
{
    char line[line_size];
    for (i64 number = 1; read_input_line(&file->input, line, sizeof line) >= 0;) {
        if (is_epd_comment(line)) {
            continue;
        }
        show_progress(&file->input, "line", number++);
        if (!use_line(dialogue, file, line)) {
            return;
        }
    }
}

// The depth limit is the caller's: with 0 only captures are searched, which is fast and often
// enough to make a position quiet.
void make_tune_file(Dialogue* dialogue, const char* path)
{
    TuneFile file;
    file.seen = 0;
    file.written = 0;
    file.quit = false;
    if (!open_input(&file.input, path)) {
        return;
    }
    if (open_tool_output(&file.input, &file.out, "tune_new.epd", "tune_new.epd.part")) {
        print_line("Creating file tune_new.epd");
        // Each position stands for itself; without a table none has to be emptied between them.
        store(hash.mode, HashOff);
        start_progress(&file.input, is_sample_line);
        use_lines(dialogue, &file);
        OutputFile* const files[] = { &file.out };
        hide_progress(&file.input);
        finish_outputs(&file.input, files, 1);
    }
    close_input(&file.input);
}

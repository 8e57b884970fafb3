// The line of a search result, in its two forms. Built under info_lock, written under
// output_lock. The counts and the score of a line are of slightly different moments: the other
// workers go on counting while it is put together.
#include "search/info.h"

#include <cstdio>
#include <cstring>

#include "base/lock.h"
#include "base/output.h"
#include "base/text.h"
#include "board/notation.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/threads.h"

static constexpr i32 line_size = 512;       // bytes; longer lines are cut
static constexpr i32 line_moves = 66;       // most moves of a UCI line
static constexpr i32 hash_fill_depth = 7;   // below it the fill is not sampled
static constexpr i32 console_moves = 8;     // of a line while the search runs
static constexpr i32 last_line_moves = 32;  // of the line that ends it
static constexpr i32 moves_in_row = 8;      // at the console
static constexpr f64 least_seconds = 0.001; // below it a node rate says nothing

// The score as a table result at the root corrects it: the search knows a won ending by its own
// terms and may call it anything. A mate that it sees is worth more than the bare result.
// What the fifty-move rule saves or spoils keeps the score of the search, which sees how near
// the draw is.
static i32 corrected_score(i32 score)
{
    switch (search_result.tb_root_result) {
    case TbWin:
        return score >= ScorePrintsAsMate - 1 ? score : ScoreTbWin;
    case TbLoss:
        return score <= -ScorePrintsAsMate ? score : -ScoreTbWin;
    case TbDraw:
        return ScoreDraw;
    default:
        return score;
    }
}

// Appends text to a line of line_size bytes, cut at its end.
static void append(char* line, const char* text)
{
    const size_t used = strlen(line);
    copy_text(line + used, line_size - used, text);
}

// Mates are told in moves, the scores count plies from the root, which is ply 1. The two divisions
// differ on purpose: a mate in one prints as 1, being mated next move as -2.
static void score_text(i32 score, char* out, size_t size)
{
    if (score >= ScorePrintsAsMate) {
        snprintf(out, size, "mate %d", (ScoreMate - score) / 2);
    } else if (score < -ScorePrintsAsMate) {
        snprintf(out, size, "mate -%d", (score + ScoreMate + 1) / 2);
    } else {
        snprintf(out, size, "cp %d", score);
    }
}

// The moves of pv as text, at most count of them, single blanks between; at the console every
// eighth is followed by a line break.
static void moves_text(const u16* pv, i32 count, bool console, char* out)
{
    out[0] = 0;
    for (i32 i = 0; i < count && i + 1 < ply_count && pv[i + 1] != NoMove; ++i) {
        char text[8];
        if (i > 0) {
            append(
                out, console && i % moves_in_row == 0 ? "\n                              " : " ");
        }
        move_text(pv[i + 1], text);
        append(out, text);
    }
}

// Depth and score are those of the line; time, nodes and hits those of the whole search so far.
static void uci_line(i32 pv_index, i32 depth, i32 score, const u16* pv, char* line)
{
    const f64 seconds = load(search_clock.elapsed);
    const f64 nodes = static_cast<f64>(search_totals.counters[CountNodes]);
    // By the option, since the program that set it reads the line.
    char prefix[24] = "";
    if (load(search_settings.multi_pv) > 1) {
        snprintf(prefix, sizeof prefix, "multipv %d ", pv_index);
    }
    char score_part[24];
    score_text(score, score_part, sizeof score_part);
    char moves[line_size];
    moves_text(pv, line_moves, false, moves);
    // The root is ply 1, so the deepest ply is one more than the plies below it.
    const SearchThread* master = load(workers[0]);
    snprintf(line, line_size,
        "info %sdepth %d seldepth %d score %s time %.0f nodes %.0f nps %.0f tbhits %.0f"
        " hashfull %.0f pv ",
        prefix, depth, (master != nullptr ? master->seldepth : 0) - 1, score_part, seconds * 1000,
        nodes, seconds > least_seconds ? nodes / seconds : 0.0,
        static_cast<f64>(search_totals.counters[CountTbHits]), 1000 * hash.fill);
    append(line, moves);
}

// One of several lines bears a dot behind its depth, and an empty line follows the last of them.
static void console_line(
    i32 thread_id, i32 pv_index, i32 depth, i32 score, const u16* pv, char* line)
{
    char moves[line_size];
    moves_text(
        pv, load(stop_code) == StopCode::None ? console_moves : last_line_moves, true, moves);
    snprintf(line, line_size, "%02d] %02d%c %5.1f %7.0fK %5d  ", thread_id, depth,
        pv_index == 0 ? ' ' : '.', load(search_clock.elapsed),
        static_cast<f64>(search_totals.counters[CountNodes]) * 0.001, score);
    append(line, moves);
    if (thread_id == 0 && pv_index == load(search_settings.multi_pv)) {
        append(line, "\n");
    }
}

void print_info(i32 thread_id, i32 pv_index, i32 depth, i32 score, const u16* pv)
{
    const SpinGuard guard(&info_lock);
    collect_stats();
    // A shallow search has hardly touched the table, and comes with many lines in no time.
    hash.fill = 0.0;
    if (depth >= hash_fill_depth) {
        estimate_hash_fill();
    }
    score = corrected_score(score);
    char line[line_size];
    if (load(uci_mode) == UciMode) {
        uci_line(pv_index, depth, score, pv, line);
    } else {
        console_line(thread_id, pv_index, depth, score, pv, line);
    }
    print_line(line);
}

// Once a search has come to its end, what it has found is shown however short it was.
void print_final_info(i32 thread_id, i32 pv_index, i32 depth, i32 score, const u16* pv)
{
    const f64 threshold = load(noise);
    if ((load(stop_code) == StopCode::None && threshold > load(search_clock.elapsed))
        || threshold == silent_noise || depth == 0 || pv[1] == NoMove) {
        return;
    }
    print_info(thread_id, pv_index, depth, score, pv);
}

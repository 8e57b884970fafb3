// One search of one thread: its preparation, the iteration loop with aspiration windows and
// MultiPV, and the pass over the root moves. Worker 0, or the caller of search_sync, is the
// master: it copies the records, probes the tables, publishes and prints. The other workers
// search the same root with a little noise and reach the result through the hash table alone.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/clock.h"
#include "base/lock.h"
#include "base/output.h"
#include "board/notation.h"
#include "eval/evaluate.h"
#include "fathom/tbprobe.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/info.h"
#include "search/node.h"
#include "search/search.h"
#include "search/threads.h"

constinit SearchResult search_result = {};

static constexpr struct {
    i32 last_depth = 68;              // deepest iteration
    i32 undo_limit = 883;             // game plies plus depth
    i32 window = 25;                  // half width of the first window
    i32 window_per_depth = 10;        // more below depth 6
    i32 open_window = 5000;           // a bound beyond this opens at once
    i32 order_of_unsearched = -11000; // ordering score of moves that did not beat alpha
    i32 noise_range = 24;             // ordering noise of the secondary workers
    i32 skip_above_depth = 5;         // secondary workers may skip a depth from here on
    i32 table_move_cnt50 = 9;         // above it the table's move is played at once
    i32 table_probe_depth = 70;       // deeper than any least depth of the options
    i32 table_depth = 99;             // depth shown for it
    f64 currmove_after = 3.5;         // seconds
} root_rule;

// One step of a thread's random word.
static u32 next_random(u32 word)
{
    return word * 19375 + 987654321;
}

// Keeps the legal moves of the list at ply 1, in their order, and closes it.
static void keep_legal_moves(Position* pos)
{
    MoveEntry* list = pos->thread->ply_rec[1].list_start;
    MoveEntry* kept = list;
    for (MoveEntry* entry = list; entry->move != EndOfList; ++entry) {
        if (is_legal_move(pos, pos->stm, entry->move)) {
            *kept++ = *entry;
        }
    }
    kept->move = EndOfList;
}

static bool has_legal_move(Position* pos)
{
    const MoveEntry* entry = pos->thread->ply_rec[1].list_start;
    while (entry->move != EndOfList && !is_legal_move(pos, pos->stm, entry->move)) {
        ++entry;
    }
    return entry->move != EndOfList;
}

static void reset_root_record(SearchThread* thread)
{
    PlyRecord* rec = &thread->ply_rec[1];
    MoveEntry* list = rec->list_start;
    *rec = {};
    thread->node_depth[1] = 0;
    rec->alpha = -ScoreInfinite;
    rec->beta = ScoreInfinite;
    rec->check_sq = NoSquare;
    rec->tb_result = -1;
    rec->list_start = rec->list_cursor = list;
    rec[1].killer[0] = rec[1].killer[1] = NoMove;
}

// Forgets the last search and evaluates the root.
static void prepare_root(SearchThread* thread, bool master)
{
    Position* pos = &thread->pos;
    reset_ordering(thread);
    reset_root_record(thread);
    const u32 now = static_cast<u32>(time(nullptr));
    thread->rand_state = thread->strength_key = next_random(now);
    PlyRecord* rec = &thread->ply_rec[1];
    rec->in_check = is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
    const i32 eval = evaluate(thread, pos, 1, rec->in_check != 0, rec->danger);
    const i32 debug = load(search_settings.debug_flag);
    if (debug != 0) {
        print_eval_trace(thread, debug != 1);
    }
    thread->score = thread->prev_score = static_cast<i16>(eval);
    rec->eval = static_cast<i16>(eval);
    rec[-1].eval = static_cast<i16>(-eval);
    if (master) {
        search_result.tb_root_result = -1;
        search_result.root_eval = static_cast<i16>(eval);
    }
}

void publish_result(SearchThread* thread, bool print)
{
    SearchResult* result = &search_result;
    const Move move = thread->pv[1];
    if (move != result->result_pv[1]) {
        store(result->last_change_depth, thread->completed_depth);
    }
    store(result->result_score, thread->score);
    result->result_depth = static_cast<i8>(thread->completed_depth);
    memcpy(result->result_pv, thread->pv, sizeof result->result_pv);
    if (thread->completed_depth < ply_count) {
        store(result->score_by_depth[thread->completed_depth], thread->score);
        result->move_by_depth[thread->completed_depth] = move;
    }
    const f64 threshold = load(noise);
    if (print && thread->completed_depth >= 2 && search_settings.lines == 1
        && (load(stop_code) != StopCode::None || threshold <= load(search_clock.elapsed))
        && threshold != silent_noise && move != NoMove) {
        print_info(thread->thread_id, 0, thread->completed_depth, thread->score, thread->pv);
    }
}

// A root without legal moves: mate or stalemate, published without a line.
static void finish_without_moves(SearchThread* thread, bool master)
{
    store(thread->depth, 1);
    thread->completed_depth = 1;
    thread->seldepth = 1;
    thread->score = thread->ply_rec[1].in_check ? -9999 : 0;
    if (master) {
        publish_result(thread, false);
    }
    end_search(StopCode::ReportGame);
}

// Asks the tables about the root. Returns true if their move ends the search here.
static bool probe_root_tables(SearchThread* thread)
{
    Position* pos = &thread->pos;
    SearchResult* result = &search_result;
    u32 wdl = 0;
    u32 dtz = 0;
    u16 move = NoMove;
    i32 tb_result = tb_probe_root(pos, &wdl, &dtz, &move);
    if (tb_result == -1) {
        move = NoMove;
        tb_result = tb_probe_search(pos, root_rule.table_probe_depth, &search_settings.tb_depths);
    }
    const i32 side = pos->stm;
    const i16 won[2] = { 9799, -9799 };
    const i16 lost[2] = { -9800, 9800 };
    const i16 drawn[2] = { 0, 0 };
    const i16* scores = tb_result == 4 ? won : tb_result == 0 ? lost : drawn;
    result->tb_root_score[side] = scores[0];
    result->tb_root_score[side ^ 1] = scores[1];
    result->tb_root_result = tb_result;
    result->tb_root_move = move;
    thread->ply_rec[1].tb_result = tb_result;
    if (move == NoMove || pos->cnt50 <= root_rule.table_move_cnt50
        || !is_legal_move(pos, side, move)) {
        return false;
    }
    add(thread->counters[CountTbHits], 1);
    thread->pv[1] = move;
    thread->pv[2] = NoMove;
    store(thread->depth, 1);
    thread->completed_depth = thread->seldepth = static_cast<u8>(root_rule.table_depth);
    thread->score = scores[0];
    publish_result(thread, true);
    end_search(StopCode::Report);
    return true;
}

// The whole search at depth 0: the quiescence score of the root.
static void search_without_depth(SearchThread* thread, bool master)
{
    Position* pos = &thread->pos;
    if (load(search_clock.limits->depth_limit) == 0 && !thread->ply_rec[1].in_check && master) {
        const i32 score =
            qsearch(pos, pos->stm, 1, 0, -ScoreInfinite, ScoreInfinite, 0, thread->pv);
        thread->score = static_cast<i16>(score);
        store(search_result.result_score, score);
        memcpy(search_result.result_pv, thread->pv, sizeof thread->pv);
    }
    end_search(StopCode::Report);
}

// The periodical line of a long search, and the move that is about to be searched.
static void print_current_move(const SearchThread* thread, Move move, i32 moves_searched)
{
    const f64 seconds = load(search_clock.elapsed);
    const SpinGuard guard(&info_lock);
    collect_stats();
    if (moves_searched == 0) {
        estimate_hash_fill();
        const f64 nodes = static_cast<f64>(search_totals.counters[CountNodes]);
        print_line_format("info depth %d time %.0f nodes %.0f nps %.0f hashfull %.0f",
            load(iter_depth), seconds * 1000, nodes, seconds > 0.001 ? nodes / seconds : 0.0,
            1000 * hash.fill);
    }
    if (load(search_settings.multi_pv) == 1) {
        print_line_format("info currmove %s%s currmovenumber %d", square_name[from_square(move)],
            square_name[to_square(move)], thread->ply_rec[1].moves_searched + 1);
    }
}

// The root's only late-move rule: one ply off for late quiet moves while the score holds.
static i32 root_reduction(
    const Position* pos, const PlyRecord* rec, i32 side, i32 depth, i32 prev, i32 best)
{
    return depth >= 6 && rec->moves_searched >= 5 && prev - 24 <= best && best >= -ScoreProbeLimit
        && !rec->in_check && (rec->move_flags & FlagClasses) == 0 && pos->phase_mtl[side] >= 1
        && (pos->piece_count[side] & 15) != 0;
}

// Searches one root move, already made, and sets its ordering score if it beat alpha.
// ralpha is the best score so far or alpha.
static i32 search_root_move(Position* pos, i32 side, i32 depth, i32 alpha, i32 beta, i32 ralpha,
    MoveEntry* entry, u16* child_pv)
{
    PlyRecord* rec = &pos->thread->ply_rec[1];
    const u32 other = static_cast<u32>(side ^ 1);
    i32 s;
    if (rec->moves_searched == 0 || depth < 2) {
        s = -search(pos, other, 2, depth - 1, -beta, -alpha, 0, child_pv);
        entry->score = static_cast<i16>(s);
        return s;
    }
    s = -search(pos, other, 2, depth - rec->reduction - 1, -ralpha - 1, -ralpha, 1, child_pv);
    if (s > ralpha && load(stop_code) == StopCode::None) {
        rec->reduction = 0;
        store(search_result.last_change_depth, depth);
        // The whole window of the pass again, not only what lies above ralpha.
        s = -search(pos, other, 2, depth - 1, -beta, -alpha, 0, child_pv);
    }
    if (s > alpha) {
        entry->score = static_cast<i16>(s);
    }
    return s;
}

// Orders the entries from first on for the next pass. searched of them have been searched; the
// others get scores that keep them behind in their order.
static void order_for_next_pass(PlyRecord* rec, MoveEntry* first, i32 searched)
{
    MoveEntry* entry = first;
    for (; searched > 0; --searched) {
        pick_best(entry++);
    }
    for (; entry->move != EndOfList; ++entry) {
        entry->score = static_cast<i16>(root_rule.order_of_unsearched - rec->moves_searched);
        ++rec->moves_searched;
    }
}

i32 root_search(Position* pos, i32 side, i32 depth, i32 alpha, i32 beta, i32 pv_index)
{
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[1];
    rec->check_sq = static_cast<u8>(
        find_checker(pos, pos->king_sq[side], side ^ 1, pos->bb[White][0] | pos->bb[Black][0]));
    rec->in_check = rec->check_sq != NoSquare;
    rec->moves_searched = 0;
    thread->node_depth[1] = static_cast<i16>(depth);
    i32 best = -ScoreInfinite;
    i32 ralpha = alpha;
    const i32 prev = thread->score;
    const bool main_line = thread->thread_id == 0 && pv_index == 0;
    MoveEntry* first = rec->list_start + pv_index;
    u16 child_pv[ply_count];

    for (MoveEntry* entry = first; entry->move != EndOfList; ++entry) {
        pick_best(entry);
        rec->list_cursor = entry;
        const Move move = entry->move;
        rec->move_flags = class_of_move(pos, side, entry);
        entry->score = static_cast<i16>(root_rule.order_of_unsearched - rec->moves_searched);
        if (main_line && load(uci_mode) == 1
            && load(search_clock.elapsed) > root_rule.currmove_after
            && load(search_clock.elapsed) > load(noise)) {
            print_current_move(thread, move, rec->moves_searched);
        }
        rec->reduction = static_cast<i8>(root_reduction(pos, rec, side, depth, prev, best));

        make_move(pos, move);
        const i32 s = search_root_move(pos, side, depth, alpha, beta, ralpha, entry, child_pv);
        unmake_move(pos);
        if (load(stop_code) != StopCode::None) {
            return 0;
        }
        ++rec->moves_searched;
        if (s > best) {
            thread->score = static_cast<i16>(s);
            thread->pv[1] = move;
            ralpha = std::max(ralpha, s);
            thread->completed_depth = static_cast<u8>(depth);
            copy_line(thread->pv, child_pv, 1);
            best = s;
            if (main_line) {
                publish_result(thread, true);
            }
        }
        store(thread->fail_state, best <= alpha ? 1 : best >= beta ? 2 : 0);
        if (best >= beta) {
            break;
        }
    }
    order_for_next_pass(rec, first, rec->moves_searched);
    return best;
}

// A secondary worker goes one deeper if more than half of the workers are at this depth already.
static i32 depth_of_worker(SearchThread* thread, i32 d)
{
    store(thread->depth, d);
    if (d <= root_rule.skip_above_depth || d >= load(search_clock.limits->depth_limit)
        || search_settings.lines != 1) {
        return d;
    }
    i32 ahead = 0;
    for (i32 i = 0; i < num_threads; ++i) {
        ahead += load(load(workers[i])->depth) >= d;
    }
    return ahead > num_threads / 2 ? d + 1 : d;
}

// Shuffles what lies close in the root order of a secondary worker, all but the first move.
static void add_order_noise(SearchThread* thread)
{
    MoveEntry* entry = thread->ply_rec[1].list_start;
    if (entry->move == EndOfList) {
        return;
    }
    for (entry++; entry->move != EndOfList; ++entry) {
        thread->rand_state = next_random(thread->rand_state);
        entry->score = static_cast<i16>(entry->score
            - static_cast<i32>(thread->rand_state % static_cast<u32>(root_rule.noise_range)));
    }
}

// One line at one depth: passes with a window that widens on the side that failed.
static void search_line(SearchThread* thread, i32 d, i32 pv_index)
{
    Position* pos = &thread->pos;
    store(thread->fail_state, 0);
    i32 width = (abs(thread->score) >> 4) + root_rule.window;
    if (d < 6) {
        width += (6 - d) * root_rule.window_per_depth;
    }
    i32 low = d == 1 ? -ScoreInfinite : thread->score - width;
    i32 high = d == 1 ? ScoreInfinite : thread->score + width;
    while (load(stop_code) == StopCode::None) {
        const i32 a = low < -root_rule.open_window ? -ScoreInfinite : low;
        const i32 b = high <= root_rule.open_window ? high : ScoreInfinite;
        const i32 s = root_search(pos, pos->stm, d, a, b, pv_index);
        if (a < s && s < b) {
            return;
        }
        low = s <= a ? a - width : a;
        high = s >= b ? b + width : b;
        width *= 2;
    }
}

// All lines of one depth.
static void search_lines(SearchThread* thread, i32 d, bool master)
{
    const PlyRecord* rec = &thread->ply_rec[1];
    for (i32 k = 0; k < search_settings.lines && rec->list_start[k].move != EndOfList; ++k) {
        search_line(thread, d, k);
        if (load(stop_code) != StopCode::None) {
            return;
        }
        const f64 threshold = load(noise);
        if (search_settings.lines >= 2 && master && threshold <= load(search_clock.elapsed)
            && threshold != silent_noise && thread->pv[1] != NoMove) {
            print_info(0, k + 1, d, thread->score, thread->pv);
        }
    }
}

static void note_nodes(const SearchThread* thread, i32 d)
{
    const SpinGuard guard(&stats_lock);
    search_totals.nodes_by_depth[d] += load(thread->counters[CountNodes]);
}

// Whether nothing is left to do after depth d: a mate that this depth proves, the depth limit,
// or no room on the undo stack.
static bool is_last_depth(const SearchThread* thread, i32 d)
{
    return thread->score >= 9999 - d || thread->score < d - 9999
        || d >= load(search_clock.limits->depth_limit)
        || thread->undo_count + d > root_rule.undo_limit;
}

static void iterate(SearchThread* thread, bool master)
{
    for (i32 d = 1; d <= root_rule.last_depth; ++d) {
        if (master) {
            store_release(iter_depth, d);
        } else {
            d = depth_of_worker(thread, d);
            add_order_noise(thread);
        }
        store(thread->depth, d);
        search_lines(thread, d, master);
        note_nodes(thread, d);
        if (load(stop_code) != StopCode::None) {
            return;
        }
        if (master) {
            search_result.last_iter_time = load(search_clock.elapsed);
            search_result.last_iter_depth = static_cast<i8>(d);
        }
        if (is_last_depth(thread, d)) {
            return;
        }
    }
}

// A secondary worker begins when worker 0 has finished depth 1. Returns false if the search
// ended before.
static bool wait_for_master()
{
    while (load_acquire(iter_depth) <= 1) {
        if (load(stop_code) != StopCode::None) {
            return false;
        }
        sleep_microseconds(1000);
    }
    return true;
}

void run_search(SearchThread* thread, const SearchThread* game)
{
    const bool master = game != nullptr;
    if (master) {
        sync_workers(game);
    } else if (!wait_for_master()) {
        return;
    }
    Position* pos = &thread->pos;
    prepare_root(thread, master);
    gen_all_moves(pos);
    if (!has_legal_move(pos)) {
        finish_without_moves(thread, master);
        return;
    }
    if (load(search_clock.limits->depth_limit) <= 0) {
        search_without_depth(thread, master);
        return;
    }
    gen_all_moves(pos);
    keep_legal_moves(pos);
    MoveEntry* list = thread->ply_rec[1].list_start;
    order_root_moves(pos, list);
    if (list[1].move == EndOfList) {
        store(search_result.single_reply, 1);
    }
    if (master ? probe_root_tables(thread) : search_result.tb_root_result != -1) {
        return;
    }
    iterate(thread, master);
    if (master) {
        end_search(StopCode::Report);
    }
}

void search_sync(const SearchThread* game)
{
    SearchThread* thread = load(workers[0]);
    if (thread != nullptr) {
        run_search(thread, game);
    }
}

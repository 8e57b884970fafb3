// One search of one thread: its preparation, the iteration loop with aspiration windows and
// MultiPV, and the pass over the root moves. Worker 0, or the caller of search_sync, is the
// master: it copies the records, probes the tables, publishes and prints. The other workers
// search the same root with a little noise and reach the result through the hash table alone.
// The root is ply 1: a mate that n plies play out scores ScoreMate - 1 - n there. Whatever stops a
// pass, the record keeps the last whole answer: line, score and depth change together, and only
// for a move that was searched to its end. Without any answer yet, the first move stands in.
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

static constexpr struct {
    i32 last_depth = 68;              // deepest iteration
    i32 undo_limit = 883;             // game plies plus depth
    i32 window = 25;                  // half width of the first window, centipawns
    i32 score_shift = 4;              // a sixteenth of the score is added to it
    i32 settled_depth = 6;            // shallower iterations get a wider one
    i32 window_per_depth = 10;        // centipawns for each depth that is missing
    i32 open_window = 5000;           // centipawns; a bound beyond them opens at once
    i32 order_of_unsearched = -11000; // ordering score below that of any real score
    u32 noise_range = 24;             // ordering noise of the secondary workers, centipawns
    i32 skip_above_depth = 5;         // secondary workers may skip deeper iterations than this
    i32 table_move_cnt50 = 9;         // half-moves; above it the table's move is played at once
    i32 table_probe_depth = 70;       // deeper than any least depth of the options
    i32 table_depth = 99;             // depth shown for it
    i32 reduction_depth = 6;          // shallowest iteration that reduces root moves
    i32 reduction_moves = 5;          // moves that are always searched in full
    i32 reduction_fall = 24;          // centipawns that the score may have lost meanwhile
    i32 pieces_left = 1;              // least phase_mtl of a side that reduces: one piece
    i32 least_printed_depth = 2;      // depth 1 says nothing yet
    f64 currmove_after = 3.5;         // seconds
    f64 least_seconds = 0.001;        // below it a node rate says nothing
    i32 wait_microseconds = 1000;     // between two looks at worker 0
} root_rule;

// One step of a thread's random word, which wraps in 32 bits. Any cheap spread will do: it shuffles
// a few moves and draws the nodes that a strength limit weakens.
static u32 next_random(u32 word)
{
    return word * 19375 + 987654321;
}

// Keeps the legal moves of the list at ply 1, in their order, and closes it. The root is searched
// often enough to pay for that once, and a line number of MultiPV then counts real moves.
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

static bool has_legal_root_move(Position* pos)
{
    const MoveEntry* entry = pos->thread->ply_rec[1].list_start;
    while (entry->move != EndOfList && !is_legal_move(pos, pos->stm, entry->move)) {
        ++entry;
    }
    return entry->move != EndOfList;
}

// The list of the ply survives: it is a place in the store, not a result. The killers of ply 2 go
// as they would below any node; at the root there are none to keep.
static void reset_root_record(SearchThread* thread)
{
    PlyRecord* rec = &thread->ply_rec[1];
    MoveEntry* list = rec->list_start;
    *rec = {};
    thread->node_depth[1] = 0;
    rec->alpha = -ScoreInfinite;
    rec->beta = ScoreInfinite;
    rec->check_sq = NoSquare;
    rec->tb_result = TbNone;
    rec->list_start = rec->list_cursor = list;
    rec[1].killer[0] = rec[1].killer[1] = NoMove;
}

// Forgets the last search and evaluates the root.
// The random word is seeded by the second of the day: a strength limit must not weaken the same
// nodes in every game. All threads that start in the same second share it.
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
    // Every worker prints its trace, as each has evaluated on its own.
    const i32 debug = load(search_settings.debug_flag);
    if (debug != 0) {
        char table[eval_trace_size];
        write_eval_trace(thread, debug != 1, table);
        print_text(table);
    }
    // Without a search yet, the evaluation is the score that the first window is laid around.
    thread->score = thread->prev_score = static_cast<i16>(eval);
    rec->eval = static_cast<i16>(eval);
    // A node compares its evaluation with that of two plies before: ply 2 finds the root's own
    // here, seen from its side.
    rec[-1].eval = static_cast<i16>(-eval);
    if (master) {
        search_result.tb_root_result = TbNone;
        search_result.root_eval = static_cast<i16>(eval);
    }
}

void publish_result(SearchThread* thread, bool print)
{
    SearchResult* result = &search_result;
    const Move move = thread->pv[1];
    // The clock asks how long the best move has stood.
    if (move != result->result_pv[1]) {
        store(result->last_change_depth, thread->completed_depth);
    }
    // The parts are stored one by one. The clock reads single scores and depths meanwhile; the main
    // thread takes the whole only when no worker is busy.
    store(result->result_score, thread->score);
    result->result_depth = static_cast<i8>(thread->completed_depth);
    memcpy(result->result_pv, thread->pv, sizeof result->result_pv);
    // The table's answer is shown with a depth beyond these arrays.
    if (thread->completed_depth < ply_count) {
        store(result->score_by_depth[thread->completed_depth], thread->score);
        result->move_by_depth[thread->completed_depth] = move;
    }
    // Lines that flash by in the first moments help nobody, but the last one is always shown: a
    // search that is being stopped prints whatever its age. With several lines each prints itself.
    const f64 threshold = load(noise);
    if (print && thread->completed_depth >= root_rule.least_printed_depth
        && search_settings.lines == 1
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
    // Mated where it stands: the mate lies at ply 1.
    thread->score = thread->ply_rec[1].in_check ? 1 - ScoreMate : ScoreDraw;
    if (master) {
        publish_result(thread, false);
    }
    end_search(StopCode::ReportGame);
}

// Asks the tables about the root. Returns true if their move ends the search here.
// While the half-move clock is young the position is searched as any other: the tables count to the
// next capture or pawn move alone, and the search finds the shorter way to mate. Once the clock
// runs up the search may be shuffling, and only the table's move is sure to make headway. The score
// is that of a table leaf at ply 1; what the fifty-move rule saves or spoils is a draw.
static bool probe_root_tables(SearchThread* thread)
{
    Position* pos = &thread->pos;
    SearchResult* result = &search_result;
    u32 wdl = 0;
    u32 dtz = 0;
    u16 move = NoMove;
    i32 tb_result = tb_probe_root(pos, &wdl, &dtz, &move);
    // Without distances there may still be results: no move then, but the score is known.
    if (tb_result == TbNone) {
        move = NoMove;
        tb_result = tb_probe_search(pos, root_rule.table_probe_depth, &search_settings.tb_depths);
    }
    const i32 side = pos->stm;
    const i32 score = tb_result == TbWin ? ScoreTbWin - 1
        : tb_result == TbLoss            ? ScoreTbLoss + 1
                                         : ScoreDraw;
    result->tb_root_score[side] = static_cast<i16>(score);
    result->tb_root_score[side ^ 1] = static_cast<i16>(-score);
    result->tb_root_result = tb_result;
    result->tb_root_move = move;
    thread->ply_rec[1].tb_result = tb_result;
    if (move == NoMove || pos->cnt50 <= root_rule.table_move_cnt50
        || !is_legal_move(pos, side, move)) {
        return false;
    }
    // The rest is what a search would have left: one hit, a line of one move, a depth and a score.
    add(thread->counters[CountTbHits], 1);
    thread->pv[1] = move;
    thread->pv[2] = NoMove;
    store(thread->depth, 1);
    thread->completed_depth = thread->seldepth = static_cast<u8>(root_rule.table_depth);
    thread->score = static_cast<i16>(score);
    publish_result(thread, true);
    end_search(StopCode::Report);
    return true;
}

// The whole search at depth 0: the quiescence score of the root. In check there is none, since
// quiescence would stand pat; the result then stays as it was prepared.
static void search_without_depth(SearchThread* thread, bool master)
{
    Position* pos = &thread->pos;
    if (load(search_clock.limits->depth_limit) == 0 && !thread->ply_rec[1].in_check && master) {
        const i32 score =
            qsearch(pos, pos->stm, 1, 0, -ScoreInfinite, ScoreInfinite, PvNode, thread->pv);
        thread->score = static_cast<i16>(score);
        store(search_result.result_score, score);
        memcpy(search_result.result_pv, thread->pv, sizeof thread->pv);
    }
    end_search(StopCode::Report);
}

// The periodical line of a long search, once a pass, and the move that is about to be searched: a
// user who waits sees that something goes on. With several lines the moves come round once for each
// of them, so only the periodical line is shown then.
static void print_current_move(const SearchThread* thread, Move move, i32 moves_searched)
{
    const f64 seconds = load(search_clock.elapsed);
    const SpinGuard guard(&info_lock);
    collect_stats();
    if (moves_searched == 0) {
        estimate_hash_fill();
        const f64 nodes = static_cast<f64>(search_totals.counters[CountNodes]);
        print_line_format("info depth %d time %.0f nodes %.0f nps %.0f hashfull %.0f",
            load(iter_depth), seconds * 1000, nodes,
            seconds > root_rule.least_seconds ? nodes / seconds : 0.0, 1000 * hash.fill);
    }
    if (load(search_settings.multi_pv) == 1) {
        print_line_format("info currmove %s%s currmovenumber %d", square_name[from_square(move)],
            square_name[to_square(move)], thread->ply_rec[1].moves_searched + 1);
    }
}

// The root's only late-move rule: one ply off for late quiet moves while the score holds. At the
// root a wrong reduction costs the game, not a node, so it is mild, and off as soon as the leading
// moves have lost ground: then the late ones are what the search is for. Without pawns or pieces
// every move of an ending may be the only one.
static i32 root_reduction(
    const Position* pos, const PlyRecord* rec, i32 side, i32 depth, i32 prev, i32 best)
{
    return depth >= root_rule.reduction_depth && rec->moves_searched >= root_rule.reduction_moves
        && prev - root_rule.reduction_fall <= best && best >= -ScoreProbeLimit && !rec->in_check
        && (rec->move_flags & FlagClasses) == 0 && pos->phase_mtl[side] >= root_rule.pieces_left
        && count_of(pos, side, Pawn) != 0;
}

// Searches one root move, already made, and sets its ordering score if it beat alpha.
// ralpha is the best score so far or alpha. The first move gets the open window and with it a true
// score; of the others it is only asked, by a window of one, whether they beat ralpha, which is
// cheap where the order is good. One that does is searched again without its reduction.
static i32 search_root_move(Position* pos, i32 side, i32 depth, i32 alpha, i32 beta, i32 ralpha,
    MoveEntry* entry, u16* child_pv)
{
    PlyRecord* rec = &pos->thread->ply_rec[1];
    const i32 other = side ^ 1;
    i32 s;
    if (rec->moves_searched == 0 || depth < 2) {
        s = -search(pos, other, 2, depth - 1, -beta, -alpha, PvNode, child_pv);
        entry->score = static_cast<i16>(s);
        return s;
    }
    s = -search(pos, other, 2, depth - rec->reduction - 1, -ralpha - 1, -ralpha, CutNode, child_pv);
    if (s > ralpha && load(stop_code) == StopCode::None) {
        rec->reduction = 0;
        // The clock hears of the challenge before it is decided, from any worker: a move that may
        // change the game deserves its time.
        store(search_result.last_change_depth, depth);
        // The whole window of the pass again, not only what lies above ralpha: a move that falls
        // back now still gets a true score, and its place in the next pass.
        s = -search(pos, other, 2, depth - 1, -beta, -alpha, PvNode, child_pv);
    }
    if (s > alpha) {
        entry->score = static_cast<i16>(s);
    }
    return s;
}

// Orders the entries from first on for the next pass. searched of them have been searched; the
// others get scores that keep them behind in their order. What beat alpha comes first by its score,
// then what failed low in the order of this pass: it was good enough to be tried early.
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

// One pass. Only worker 0's best line, the first of MultiPV, is published while the pass runs: a
// stop between two moves then finds the best one known. While all moves fail low, the one that
// holds out best by its bound stands as the best, so that there always is a move to play.
i32 root_search(Position* pos, i32 side, i32 depth, i32 alpha, i32 beta, i32 pv_index)
{
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[1];
    // 1. The record of the ply, as the children read it.
    rec->check_sq = static_cast<u8>(find_checker(pos, pos->king_sq[side], side ^ 1, occupied(pos)));
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
        // 2. The next move. Until it beats alpha it counts as behind all that did.
        pick_best(entry);
        rec->list_cursor = entry;
        const Move move = entry->move;
        rec->move_flags = class_of_move(pos, side, entry);
        entry->score = static_cast<i16>(root_rule.order_of_unsearched - rec->moves_searched);
        if (main_line && load(uci_mode) == UciMode
            && load(search_clock.elapsed) > root_rule.currmove_after
            && load(search_clock.elapsed) > load(noise)) {
            print_current_move(thread, move, rec->moves_searched);
        }
        rec->reduction = static_cast<i8>(root_reduction(pos, rec, side, depth, prev, best));

        // 3. Its search. A score that a stop has cut short is worth nothing.
        make_move(pos, move);
        const i32 s = search_root_move(pos, side, depth, alpha, beta, ralpha, entry, child_pv);
        unmake_move(pos);
        if (load(stop_code) != StopCode::None) {
            return 0;
        }
        ++rec->moves_searched;

        // 4. A new best move: score, line and depth of the thread change together.
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

        // 5. Word to the clock. Above beta the pass is over: a wider window will tell by how much.
        store(thread->fail_state, best <= alpha ? FailsLow : best >= beta ? FailsHigh : InWindow);
        if (best >= beta) {
            break;
        }
    }
    order_for_next_pass(rec, first, rec->moves_searched);
    return best;
}

// A secondary worker goes one deeper if more than half of the workers are at this depth already:
// what they will leave in the hash table is soon there to be had, and a deeper start pays more than
// one more helper at the same work. Not with several lines, which have to agree on a depth.
static i32 depth_of_worker(SearchThread* thread, i32 d)
{
    // Noted before the others are counted, so that this worker counts itself.
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

// Shuffles what lies close in the root order of a secondary worker, all but the first move: workers
// that take the late moves in different orders fill the table with different subtrees. The first
// one stays, as all of them need its score before anything else can be judged.
static void add_order_noise(SearchThread* thread)
{
    MoveEntry* entry = thread->ply_rec[1].list_start;
    if (entry->move == EndOfList) {
        return;
    }
    for (++entry; entry->move != EndOfList; ++entry) {
        thread->rand_state = next_random(thread->rand_state);
        entry->score = static_cast<i16>(
            entry->score - static_cast<i32>(thread->rand_state % root_rule.noise_range));
    }
}

// One line at one depth: passes with a window that widens on the side that failed.
// The score seldom moves far between two depths, and a narrow window cuts more. The more a side is
// ahead, the more the score swings; the first depths have settled nothing yet; both ask for room.
// The width doubles with each pass, so that a score on the move is caught in a few, and far out,
// where a mate is near, the side opens at once. The side that held keeps its bound.
// A later line of MultiPV is laid around the score of the line before it, which is the best guess.
static void search_line(SearchThread* thread, i32 d, i32 pv_index)
{
    Position* pos = &thread->pos;
    store(thread->fail_state, InWindow);
    i32 width = (abs(thread->score) >> root_rule.score_shift) + root_rule.window;
    if (d < root_rule.settled_depth) {
        width += (root_rule.settled_depth - d) * root_rule.window_per_depth;
    }
    i32 low = d == 1 ? -ScoreInfinite : thread->score - width;
    i32 high = d == 1 ? ScoreInfinite : thread->score + width;
    while (load(stop_code) == StopCode::None) {
        // Bounds beyond open_window are as good as none: what lies there is a won game or a mate,
        // and a pass more would cost more than the cuts that they give.
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

// All lines of one depth. The pass of line k leaves the k best moves before it alone, so that each
// line is the best of what the earlier ones have left.
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

// Adds what this thread has searched so far, all depths together. The growth of these sums from
// depth to depth is the branching that the console shows.
static void note_nodes(const SearchThread* thread, i32 d)
{
    const SpinGuard guard(&stats_lock);
    search_totals.nodes_by_depth[d] += load(thread->counters[CountNodes]);
}

// Whether nothing is left to do after depth d: a mate that this depth proves, the depth limit,
// or no room on the undo stack. A mate n plies away is beyond doubt once depth n has been searched:
// no shorter one exists, and the longer ones do not matter.
static bool is_last_depth(const SearchThread* thread, i32 d)
{
    return thread->score >= ScoreMate - 1 - d || thread->score < d + 1 - ScoreMate
        || d >= load(search_clock.limits->depth_limit)
        || thread->undo_count + d > root_rule.undo_limit;
}

// Deeper and deeper, each depth ordered by the one before. iter_depth is released: a secondary
// worker that sees it pass 1 also sees what worker 0 has found out about the root by then.
static void iterate(SearchThread* thread, bool master)
{
    for (i32 d = 1; d <= root_rule.last_depth; ++d) {
        if (master) {
            store_release(iter_depth, d);
        } else {
            // The loop goes on from the depth that was skipped to.
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
// ended before. By then worker 0 has asked the tables and looked for a single reply, and a search
// that is over at once has set nobody else to work.
static bool wait_for_master()
{
    while (load_acquire(iter_depth) <= 1) {
        if (load(stop_code) != StopCode::None) {
            return false;
        }
        sleep_microseconds(root_rule.wait_microseconds);
    }
    return true;
}

// A "stop" may come before the first root move has been searched to its end, as a program sends it
// at once when a move that was to be pondered on is not played. The first of the list is then as
// good as any, so that a position with a legal move always gets one. The score is the evaluation of
// the root, and the depth stays 0, so that no line is printed for what nobody has searched.
static void publish_first_move(const SearchThread* thread)
{
    u16* line = search_result.result_pv;
    if (line[1] == NoMove) {
        line[1] = thread->ply_rec[1].list_start[0].move;
        line[2] = NoMove;
        store(search_result.result_score, thread->score);
    }
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

    // 1. Roots that need no search.
    gen_all_moves(pos);
    if (!has_legal_root_move(pos)) {
        finish_without_moves(thread, master);
        return;
    }
    if (load(search_clock.limits->depth_limit) <= 0) {
        search_without_depth(thread, master);
        return;
    }

    // 2. The moves, and what is known about them beforehand. A single reply is still searched for a
    // few depths: the opponent's answer to it is what pondering starts from.
    keep_legal_moves(pos);
    MoveEntry* list = thread->ply_rec[1].list_start;
    order_root_moves(pos, list);
    if (list[1].move == EndOfList) {
        store(search_result.single_reply, 1);
    }

    // 3. The tables. Where they have the result, worker 0 alone looks for a good way to it.
    if (master ? probe_root_tables(thread) : search_result.tb_root_result != TbNone) {
        return;
    }

    // 4. The search.
    iterate(thread, master);
    if (master) {
        publish_first_move(thread);
        end_search(StopCode::Report);
    }
}

void search_sync(const SearchThread* game)
{
    // It passes for the master, so it publishes; nobody else is awake.
    SearchThread* thread = load(workers[0]);
    if (thread != nullptr) {
        run_search(thread, game);
    }
}

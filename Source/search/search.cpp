// The node of the tree: limits, draws, hash table, tablebases, static evaluation and forward
// pruning. It ends in search_moves or qsearch, which make moves and come back here.
#include "search/search.h"

#include <algorithm>

#include "base/clock.h"
#include "eval/evaluate.h"
#include "fathom/tbprobe.h"
#include "search/clock.h"
#include "search/node.h"
#include "search/params.h"
#include "search/strength.h"
#include "search/threads.h"

static constexpr struct {
    i32 extension_plies = 7;    // checks are extended to this far beyond the iteration
    i32 hash_mate_ply = 8;      // from here on an exact hash mate is taken in any node
    i32 eval_fall = 75;         // no pruning if the evaluation fell more in two plies
    i32 harmless_surplus = 124; // what must stay above beta after the worst capture
    i32 probcut_exchange = 74;  // ProbCut tries captures that win more
    i32 iid_eval = 199;         // internal deepening needs an evaluation this near alpha
} node_rule;

// Sleeps while this thread is faster than the strength limit allows. The clock is watched here
// too, since nobody else may be awake.
static void hold_speed(SearchThread* thread)
{
    while (
        load(strength.nps_limited) && load(iter_depth) >= 2 && load(stop_code) == StopCode::None) {
        const f64 nodes = static_cast<f64>(load(thread->counters[CountNodes]));
        if (!(nodes / load(search_clock.elapsed) > load(strength.target_nps))) {
            return;
        }
        sleep_microseconds(1000);
        check_time();
    }
}

static void reset_record(PlyRecord* rec, i32 alpha, i32 beta, NodeType node_type)
{
    rec->node_type = static_cast<i16>(node_type);
    rec->alpha = static_cast<i16>(alpha);
    rec->beta = static_cast<i16>(beta);
    rec->moves_searched = 0;
    rec->hash_move = NoMove;
    rec->in_check = 0;
    rec->reduction = 0;
    rec->in_iid = 0;
    rec->extend_hash_move = 0;
    rec->razored = 0;
    rec->danger[White] = rec->danger[Black] = 0;
    rec->check_sq = NoSquare;
    rec->tb_result = TbNone;
    // Only the children's killers go: a node keeps those that its siblings left.
    rec[1].killer[0] = rec[1].killer[1] = NoMove;
    rec[1].evasion_killer = NoMove;
}

// What the hash entry of a node says.
struct HashHints {
    i32 depth; // of the entry, 0 without one
    bool low;  // the score fails low
    bool high;
};

// Reads the hash entry of a node. Returns true with a value in *score if the entry ends it.
static bool probe_node(Position* pos, PlyRecord* rec, i32 ply, HashHints* hints, i32* score)
{
    SearchThread* thread = pos->thread;
    add(thread->counters[CountHashProbes], 1);
    if (load(hash.mode) == 0) {
        return false;
    }
    HashEntry entry;
    entry.depth = HashNotFound;
    probe_hash(pos, &entry);
    if (entry.depth < HashUsable) {
        return false;
    }
    add(thread->counters[CountHashHits], 1);
    rec->hash_move = entry.move;
    hints->depth = entry.depth;
    i32 value = entry.score;
    if (value < -ScoreProbeLimit) {
        value += ply;
    } else if (value >= ScoreProbeLimit) {
        value -= ply;
    }
    hints->low = value <= rec->alpha && entry.bound != BoundLower;
    hints->high = value >= rec->beta && entry.bound != BoundUpper;
    if (pos->stack->node_depth[ply] > hints->depth) {
        return false;
    }
    if (entry.bound == BoundExact && ply >= node_rule.hash_mate_ply
        && (value > ScoreHashMate || value < -ScoreHashMate)) {
        *score = value;
        return true;
    }
    if (rec->node_type != PvNode && (hints->low || hints->high)) {
        *score = hints->low ? rec->alpha : rec->beta;
        return true;
    }
    return false;
}

// Asks the tablebases right after a capture, pawn move or null move, and from there on while
// results keep coming. Returns true with a value in *score if the result ends the node.
static bool probe_tables(Position* pos, PlyRecord* rec, i32 ply, i32 depth, i32* score)
{
    const i32 parent = rec[-1].tb_result;
    if (pos->cnt50 != 0 && parent == TbNone) {
        return false;
    }
    rec->tb_result = tb_probe_search(pos, depth, &search_settings.tb_depths);
    if (rec->tb_result == TbNone) {
        return false;
    }
    add(pos->thread->counters[CountTbHits], 1);
    if (parent != TbNone) {
        // The move into this node has given away two steps of the result scale or more.
        *score = rec->beta;
        return rec->tb_result >= 6 - parent;
    }
    // The first node of the line in the tables ends here.
    const i32 value = rec->tb_result == TbLoss ? ply + ScoreTbLoss
        : rec->tb_result == TbWin              ? ScoreTbWin - ply
                                               : ScoreDraw;
    if (value <= rec->alpha) {
        rec->beta = static_cast<i16>(value);
        *score = rec->alpha;
        return true;
    }
    rec->alpha = static_cast<i16>(value);
    if (value < rec->beta) {
        rec->beta = static_cast<i16>(value);
    }
    *score = value;
    return true;
}

// The depth of a node that a strength limit searches shallower. It hangs on the key, so that
// the same position fares the same throughout one search.
static i32 weakened_depth(const Position* pos, i32 depth)
{
    const u32 draw = (static_cast<u32>(pos->key) ^ pos->thread->strength_key) & 511;
    if (draw >= strength.strength_level * 3 / 2) {
        return depth;
    }
    return depth - 2 > depth / 2 ? depth / 2 : depth - 3;
}

// Whether the static pruning, ProbCut and the null move may run at all.
static bool may_prune(const Position* pos, const PlyRecord* rec, i32 side, i32 beta, bool hint_low)
{
    return rec->eval >= beta + pruning.BP_margin && rec->eval >= rec[-2].eval - node_rule.eval_fall
        && !hint_low && rec->node_type == CutNode && pos->phase_mtl[side] >= 1
        && (pos->piece_count[side] & 15) != 0 && beta >= -ScoreProbeLimit;
}

// Searches the reply to passing. The window is the node's own.
static i32 null_move_score(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, u16* pv)
{
    SearchThread* thread = pos->thread;
    ++thread->null_depth;
    thread->ply_rec[ply].moves_searched = 0;
    set_null_list(pos);
    make_null_move(pos);
    const i32 score = -search(pos, side ^ 1, ply + 1, depth, -beta, -alpha, CutNode, pv);
    unmake_null_move(pos);
    --thread->null_depth;
    return score;
}

static bool null_move_allowed(const SearchThread* thread, const PlyRecord* rec, i32 depth)
{
    const i32 nesting = static_cast<u16>(load(thread->depth) * 205) >> 11;
    return depth >= pruning.NMP_depth && thread->null_depth <= nesting
        && rec[-1].list_cursor->move != NoMove && rec[-2].list_cursor->move != NoMove;
}

bool threats_harmless(Position* pos, i32 side, i32 eval, i32 beta)
{
    u64 pieces = pos->bb[side][0] ^ pos->bb[side][King];
    while (pieces != 0) {
        const i32 gain = swapoff(pos, side ^ 1, NoSquare, pop_lowest(&pieces));
        if (gain >= 1 && eval - gain <= beta + node_rule.harmless_surplus) {
            return false;
        }
    }
    return true;
}

bool probcut(Position* pos, i32 ply, i32 depth, i32 beta)
{
    if (beta > ScoreHashMate) {
        return false;
    }
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[ply];
    const i32 side = pos->stm;
    const i32 raised_beta = beta + pruning.ProbCut_margin;
    const i32 reduced_depth = std::max(depth - pruning.ProbCut_reduction, 1);
    MoveEntry* end = gen_captures(pos, side, rec->list_start, NoSquare);
    end = gen_promotions(pos, side, 1, end);
    publish_list(thread, end);
    for (MoveEntry* entry = rec->list_start; entry != end; ++entry) {
        entry->score = static_cast<i16>(mvv_score[entry->captured] - (entry->moved & 7));
    }
    rec->moves_searched = 0;
    u16 line[ply_count];
    rec->list_cursor = rec->list_start;
    for (; rec->list_cursor->move != EndOfList; ++rec->list_cursor) {
        pick_best(rec->list_cursor);
        const Move move = rec->list_cursor->move;
        if (move == NoMove || !is_legal_move(pos, side, move)
            || swapoff(pos, side, from_square(move), to_square(move))
                <= node_rule.probcut_exchange) {
            continue;
        }
        make_move(pos, move);
        const i32 score = -search(pos, side ^ 1, ply + 1, reduced_depth - 1, -raised_beta,
            1 - raised_beta, AllNode, line);
        unmake_move(pos);
        if (load(stop_code) != StopCode::None) {
            return false;
        }
        if (score >= raised_beta) {
            return true;
        }
    }
    return false;
}

i32 search(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, NodeType node_type, u16* pv)
{
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[ply];

    // 1. Limits. A line that ends here is empty, not that of a sibling.
    pv[ply] = NoMove;
    add(thread->counters[CountNodes], 1);
    if (load(strength.nps_limited)) {
        hold_speed(thread);
    }
    if (load(thread->counters[CountNodes]) > thread->node_limit && thread->completed_depth >= 2) {
        end_search(StopCode::Report);
    }
    if (load(stop_code) != StopCode::None) {
        return 0;
    }
    if (thread->seldepth < ply) {
        thread->seldepth = static_cast<u8>(ply);
    }

    // 2. Mate distance: no line from here can be better or worse than these.
    alpha = std::max(ply - ScoreMate, alpha);
    beta = std::min(ScoreMate - 1 - ply, beta);
    if (alpha >= beta) {
        return alpha;
    }
    if (depth >= 0) {
        prefetch_bucket(pos->key);
    }
    __builtin_prefetch(&thread->eval_cache[pos->key & (eval_cache_size - 1)]);

    // 3. The record of this ply.
    reset_record(rec, alpha, beta, node_type);
    pv[ply + 1] = NoMove;
    rec->check_sq = static_cast<u8>(
        find_checker(pos, pos->king_sq[side], side ^ 1, pos->bb[White][0] | pos->bb[Black][0]));
    rec->in_check = rec->check_sq != NoSquare;
    if (is_draw_by_rule(pos, ply)) {
        return ScoreDraw;
    }

    // 4. The check extension, the only one there is.
    if (rec->in_check && ply <= load(thread->depth) + node_rule.extension_plies) {
        ++depth;
    }
    thread->node_depth[ply] = static_cast<i16>(depth);

    // 5. Hash table and tablebases.
    HashHints hints = { 0, false, false };
    i32 score;
    if (depth >= 0 && probe_node(pos, rec, ply, &hints, &score)) {
        return score;
    }
    if (probe_tables(pos, rec, ply, depth, &score)) {
        return score;
    }

    // 6. Static evaluation, the ply limit, and the strength limit.
    const i32 eval = evaluate(thread, pos, ply, rec->in_check != 0, rec->danger);
    rec->eval = static_cast<i16>(eval);
    if (ply >= max_search_ply) {
        return rec->in_check ? ScoreDraw : eval;
    }
    if (strength.strength_level != 0 && !rec->in_check && node_type != PvNode
        && alpha >= -ScoreProbeLimit && beta < ScoreProbeLimit) {
        depth = weakened_depth(pos, depth);
    }
    if (rec->in_check) {
        return search_moves(pos, side, ply, depth, alpha, beta, true, node_type, pv);
    }

    // 7. Quiescence: at the horizon, and where the evaluation is far below alpha close to it.
    if (depth < 1) {
        return qsearch(pos, side, ply, depth, alpha, beta, node_type, pv);
    }
    if (depth <= pruning.FP_depth && eval <= alpha - pruning.fp_margin[std::min(depth, last_margin)]
        && !hints.high && alpha < ScoreProbeLimit && node_type != PvNode) {
        rec->razored = 1;
        return qsearch(pos, side, ply, depth, alpha, beta, node_type, pv);
    }

    // 8. Forward pruning. danger is what the opponent may win next: the surplus must cover it.
    if (may_prune(pos, rec, side, beta, hints.low)) {
        if (eval >= beta + rec->danger[side]) {
            if (depth <= pruning.SEP_depth
                && eval >= beta + pruning.sep_margin[std::min(depth, last_margin)]) {
                return beta;
            }
            if (depth < 3 && threats_harmless(pos, side, eval, beta)) {
                return beta;
            }
        }
        if (depth >= pruning.ProbCut_depth && ply >= 4 && probcut(pos, ply, depth, beta)) {
            return beta;
        }
        if (null_move_allowed(thread, rec, depth)) {
            const i32 reduction = depth > 9 && pos->phase_mtl[side] >= 4 ? 4 : 3;
            const i32 reply_depth = std::max(depth - reduction, 1) - 1;
            score = null_move_score(pos, side, ply, reply_depth, alpha, beta, pv);
            if (load(stop_code) != StopCode::None) {
                return 0;
            }
            if (score >= beta) {
                if (depth < 5) {
                    return beta;
                }
                // From here up a pass alone is not trusted: the moves are searched, but shallower.
                depth -= reduction + 1;
            }
        }
    }

    // 9. Internal iterative deepening, where the entry was too shallow to give a good move.
    const i32 iid_depth = node_type == PvNode ? depth - 3 : depth > 8 ? depth - 5 : depth - 4;
    if (iid_depth > std::max(hints.depth, 0) && eval >= alpha - node_rule.iid_eval) {
        rec->in_iid = 1;
        search_moves(pos, side, ply, iid_depth, alpha, beta, false, node_type, pv);
        rec->in_iid = 0;
        rec->hash_move = pv[ply];
    }
    return search_moves(pos, side, ply, depth, alpha, beta, false, node_type, pv);
}

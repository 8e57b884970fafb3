// The node of the tree, up to its first move: limits, draws, hash table, tablebases, static
// evaluation and forward pruning. It ends in search_moves or qsearch, which make the moves and come
// back here for every child.
// Until then the board is as the caller left it: what a step makes, it takes back before it ends.
// The rules are numbered as steps 1 to 9; steps 10 to 16 are in move_loop.cpp.
#include "search/search.h"

#include <algorithm>

#include "base/clock.h"
#include "eval/evaluate.h"
#include "fathom/tbprobe.h"
#include "search/clock.h"
#include "search/node.h"
#include "search/params.h"
#include "search/strength.h"

// Scores and margins in centipawns, depths and distances in plies.
static constexpr struct {
    i32 iterations_let_through = 2; // finished before a limit of nodes may end the search
    i32 first_slowed_iteration = 2; // held to the rate of a strength limit
    i32 nap = 1000;                 // microseconds, of a thread that is too fast
    i32 extension_plies = 7;        // checks are extended to this far beyond the iteration
    i32 hash_mate_ply = 8;          // from here on an exact hash mate is taken in any node
    i32 table_blunder = 2;          // steps of TbResult given away by the move into the node
    i32 threats_depth = 2;          // deepest node that is pruned by a look at what hangs
    i32 harmless_surplus = 124;     // what must stay above beta after the worst capture
} node_rule;

static constexpr struct {
    i32 eval_fall = 75;     // no pruning if the evaluation fell more in two plies
    i32 a_piece = 1;        // least phase_mtl: a piece besides the pawns
    i32 probcut_ply = 4;    // first ply of ProbCut
    i32 probcut_gain = 74;  // its captures win more than this
    i32 null_share = 10;    // iterations for each further null move on a path
    i32 reduction = 3;      // of a null move
    i32 deep_reduction = 4; // the same, in deep nodes with pieces enough
    i32 deep = 9;           // above it
    i32 enough_pieces = 4;  // least phase_mtl: more than one minor piece
    i32 trusted_depth = 4;  // deepest node that ends by a null move alone
} prune_rule;

// Internal deepening.
static constexpr struct {
    i32 eval_below = 199; // how far below alpha the evaluation may lie
    i32 less_in_pv = 3;   // plies less than the node itself
    i32 less = 4;         // the same, outside of the PV
    i32 less_deep = 5;    // the same, in deep nodes
    i32 deep = 8;         // above it
} iid_rule;

// The weaker play of a strength limit.
static constexpr struct {
    u32 draws = 512;     // a power of two; of so many nodes ...
    u32 weak_in_two = 3; // ... so many for two steps of strength_level are searched shallower,
    i32 at_least = 3;    // to half their depth, but by no fewer plies than this
} weak_rule;

// Sleeps while this thread is faster than the strength limit allows. The clock is watched here
// too, since nobody else may be awake.
static void hold_speed(SearchThread* thread)
{
    while (load(strength.nps_limited) && load(iter_depth) >= node_rule.first_slowed_iteration
        && load(stop_code) == StopCode::None) {
        const f64 nodes = static_cast<f64>(load(thread->counters[CountNodes]));
        // A negation: as long as no time has passed there is no rate (0 by 0), and no sleep.
        if (!(nodes / load(search_clock.elapsed) > load(strength.target_nps))) {
            return;
        }
        sleep_microseconds(node_rule.nap);
        check_time();
    }
}

// Step 3: what the last node of this ply has left goes, and so does what the children of that node
// learnt about one another. The list pointers stay: the ply above has set them.
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
    rec->no_check = 0;
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
    bool high; // the score fails high
};

// Step 5a: reads the hash entry of a node. Returns true with a value in *score if it ends the node.
// An entry too shallow for that still leaves its move and its hints.
static bool probe_node(Position* pos, PlyRecord* rec, i32 ply, HashHints* hints, i32* score)
{
    SearchThread* thread = pos->thread;
    add(thread->counters[CountHashProbes], 1);
    if (load(hash.mode) == HashOff) {
        return false;
    }
    HashEntry entry;
    entry.depth = HashNotFound;
    probe_hash(pos, &entry);
    if (entry.depth < HashUsable) {
        return false;
    }
    // From here on the entry is of use, whether it ends the node or not.
    add(thread->counters[CountHashHits], 1);
    rec->hash_move = entry.move;
    hints->depth = entry.depth;
    // Stored as the distance from that position, read as the distance from the root.
    i32 value = entry.score;
    if (value < -ScoreProbeLimit) {
        value += ply;
    } else if (value >= ScoreProbeLimit) {
        value -= ply;
    }
    // A bound speaks in one direction only: an upper bound above alpha says nothing.
    hints->low = value <= rec->alpha && entry.bound != BoundLower;
    hints->high = value >= rec->beta && entry.bound != BoundUpper;
    // A shallower search has seen less than this one is to see.
    if (thread->node_depth[ply] > hints->depth) {
        return false;
    }
    // A mate proved as deep as this may end even a PV node: what follows is forced. Not near the
    // root, where its line is to be played and shown.
    if (entry.bound == BoundExact && ply >= node_rule.hash_mate_ply
        && (value > ScoreHashMate || value < -ScoreHashMate)) {
        *score = value;
        return true;
    }
    // Other scores end no PV node: the line would stop short, and with it the sight of a draw by
    // repetition, which no entry knows of. The window's bound is returned and not the value, which
    // was found in another window.
    if (rec->node_type != PvNode && (hints->low || hints->high)) {
        *score = hints->low ? rec->alpha : rec->beta;
        return true;
    }
    return false;
}

// Step 5b: asks the tablebases right after a capture, pawn move or null move, and from there on
// while results keep coming: elsewhere the material is that of the parent, who had no answer.
// Returns true with a value in *score if the result ends the node.
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
        // Best play leaves the parent's result turned round. A move that gives away a win for a
        // draw or a draw for a loss is refuted; among the others the search must find the way,
        // since results without distances do not tell a step towards the win from one in place.
        *score = rec->beta;
        return rec->tb_result >= TbWin - parent + node_rule.table_blunder;
    }
    // The first node of the line in the tables ends here. Sooner is better for the winner, so the
    // ply counts; what the fifty-move rule saves or spoils is a draw.
    const i32 value = rec->tb_result == TbLoss ? ply + ScoreTbLoss
        : rec->tb_result == TbWin              ? ScoreTbWin - ply
                                               : ScoreDraw;
    // The record keeps the window as the result leaves it.
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

// Step 6b: the depth of a node that a strength limit searches shallower. It hangs on the key, so
// that the same position fares the same throughout one search: the engine overlooks a thing rather
// than dithers.
static i32 weakened_depth(const Position* pos, i32 depth)
{
    // The same key and seed draw the same number, so no state has to be kept.
    const u32 draw =
        (static_cast<u32>(pos->key) ^ pos->thread->strength_key) & (weak_rule.draws - 1);
    if (draw >= strength.strength_level * weak_rule.weak_in_two / 2) {
        return depth;
    }
    return std::min(depth / 2, depth - weak_rule.at_least);
}

// The gate of step 8: whether the static pruning, ProbCut and the null move may run at all. All of
// them claim that the side to move stands so well that some move will hold beta.
static bool may_prune(const Position* pos, const PlyRecord* rec, i32 side, i32 beta, bool hint_low)
{
    // The claim must be likely: the evaluation says so with something to spare, no earlier search
    // said otherwise, and the parent expects it too.
    return rec->eval >= beta + pruning.BP_margin
        // It must not just have got worse: then something goes on that only moves can tell. Two
        // plies after a check there is nothing to compare it with, and it passes.
        && rec->eval >= rec[-2].eval - prune_rule.eval_fall && !hint_low
        && rec->node_type == CutNode
        // With pawns alone there may be no move that keeps what stands on the board; without a
        // pawn a surplus may be worth nothing, as nothing can be queened.
        && pos->phase_mtl[side] >= prune_rule.a_piece
        && count_of(pos, side, Pawn) != 0
        // Against being mated no evaluation counts.
        && beta >= -ScoreProbeLimit;
}

// Searches the reply to passing. The window is the node's own. The reply is a cut node, so that
// step 8 is open to it: what is pruned there refutes the pass, and none is believed for it.
static i32 null_move_score(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, u16* pv)
{
    SearchThread* thread = pos->thread;
    ++thread->null_depth;
    thread->ply_rec[ply].moves_searched = 0;
    // The plies below must see that nothing was moved: no counter move, no second pass.
    set_null_list(pos);
    prefetch_bucket(pos->key ^ 1); // but for the en-passant square
    make_null_move(pos);
    thread->ply_rec[ply].no_check = 1; // or the king could have been taken instead
    const i32 score = -search(pos, side ^ 1, ply + 1, depth, -beta, -alpha, CutNode, pv);
    unmake_null_move(pos);
    --thread->null_depth;
    return score;
}

// Not in answer to a pass, and not two plies after one: two passes only prove the position that was
// there before. And few on one path, which else would prove nothing about real play: one, and one
// more for every ten iterations.
static bool null_move_allowed(const SearchThread* thread, const PlyRecord* rec, i32 depth)
{
    return depth >= pruning.NMP_depth
        && thread->null_depth <= load(thread->depth) / prune_rule.null_share
        && rec[-1].list_cursor->move != NoMove && rec[-2].list_cursor->move != NoMove;
}

bool threats_harmless(Position* pos, i32 side, i32 eval, i32 beta)
{
    // One by one: the opponent has one move, and the largest of the threats is what he will carry
    // out. Pawns too, for a pawn may be all that the surplus is.
    const i32 harmful = std::max(eval - beta - node_rule.harmless_surplus, 1);
    u64 pieces = pieces_of(pos, side) ^ pos->bb[side][King];
    while (pieces != 0) {
        if (swaps_at_least(pos, side ^ 1, NoSquare, pop_lowest(&pieces), harmful)) {
            return false;
        }
    }
    return true;
}

bool probcut(Position* pos, i32 ply, i32 depth, i32 beta)
{
    // Where beta is a mate no capture proves one.
    if (beta > ScoreHashMate) {
        return false;
    }
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[ply];
    const i32 side = pos->stm;
    // The margin stands for what the shallow search may have missed; its replies see quiescence at
    // least, as the capture must hold.
    const i32 raised_beta = beta + pruning.ProbCut_margin;
    const i32 reduced_depth = std::max(depth - pruning.ProbCut_reduction, 1);
    // A plain list in the place of the ply's own, which the move loop makes anew. The hash move
    // comes where its capture does, and quiet moves are left out: they seldom beat beta by a margin
    // at once.
    MoveEntry* end = gen_captures(pos, side, rec->list_start, NoSquare);
    end = gen_promotions(pos, side, 1, end);
    publish_list(thread, end);
    for (MoveEntry* entry = rec->list_start; entry != end; ++entry) {
        entry->score = static_cast<i16>(capture_score(entry));
    }
    rec->moves_searched = 0;
    // A line of its own: the node's must not show a capture that was only tried.
    u16 line[ply_count];
    rec->list_cursor = rec->list_start;
    for (; rec->list_cursor->move != EndOfList; ++rec->list_cursor) {
        pick_best(rec->list_cursor, end);
        const Move move = rec->list_cursor->move;
        // An even exchange changes nothing that the evaluation has not seen; only one that wins
        // a pawn or more can lift the score by the margin.
        if (move == NoMove || !is_legal_move(pos, side, move)
            || !swaps_at_least(
                pos, side, from_square(move), to_square(move), prune_rule.probcut_gain + 1)) {
            continue;
        }
        prefetch_child(pos, rec->list_cursor);
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
    // Not before there is a move worth playing.
    if (load(thread->counters[CountNodes]) > thread->node_limit
        && thread->completed_depth >= node_rule.iterations_let_through) {
        end_search(StopCode::Report);
    }
    if (load(stop_code) != StopCode::None) {
        return 0;
    }
    if (thread->seldepth < ply) {
        thread->seldepth = static_cast<u8>(ply);
    }

    // 2. Mate distance: at worst we are mated here, at best we mate by the next move. If the window
    // lies outside of that, a shorter mate is known elsewhere and no line from here can matter.
    alpha = std::max(ply - ScoreMate, alpha);
    beta = std::min(ScoreMate - 1 - ply, beta);
    if (alpha >= beta) {
        return alpha;
    }
    // Both tables miss the processor's cache more often than not: ask for them before the work that
    // needs neither.
    if (depth >= 0) {
        prefetch_bucket(pos->key);
    }
    __builtin_prefetch(&thread->eval_cache[pos->key & (eval_cache_size - 1)]);

    // 3. The record of this ply, checks and draws. Draws come before the hash table, which knows
    // positions and not the way to them.
    reset_record(rec, alpha, beta, node_type);
    // A child that ends before its first move leaves no line either.
    pv[ply + 1] = NoMove;
    // The move into the node may have told that there is no check.
    if (rec[-1].no_check) {
        debug_check(find_checker(pos, pos->king_sq[side], side ^ 1, occupied(pos)) == NoSquare);
    } else {
        rec->check_sq =
            static_cast<u8>(find_checker(pos, pos->king_sq[side], side ^ 1, occupied(pos)));
    }
    rec->in_check = rec->check_sq != NoSquare;
    if (is_draw_by_rule(pos, ply)) {
        return ScoreDraw;
    }

    // 4. The check extension, the only one there is. A check forces the reply, and one ply more
    // keeps it from pushing the trouble behind the horizon. It ends a little beyond the iteration,
    // or a series of checks would fill the tree.
    if (rec->in_check && ply <= load(thread->depth) + node_rule.extension_plies) {
        ++depth;
    }
    thread->node_depth[ply] = static_cast<i16>(depth);

    // 5. Hash table and tablebases. Below the horizon a probe costs more than it saves.
    // The evaluation of step 6 is made first: while it is, the bucket comes from memory, and only
    // a node that ends here has made it in vain.
    EvalDraft draft;
    draft_evaluation(thread, pos, ply, rec->in_check != 0, &draft);
    HashHints hints = { 0, false, false };
    i32 score;
    if (depth >= 0 && probe_node(pos, rec, ply, &hints, &score)) {
        return score;
    }
    if (probe_tables(pos, rec, ply, depth, &score)) {
        return score;
    }

    // 6. Static evaluation. In check there is none: what hangs is decided by the forced reply.
    const i32 eval = accept_evaluation(thread, &draft, rec->danger);
    rec->eval = static_cast<i16>(eval);
    // 6a. The last ply: behind it the records soon end. In check there is no evaluation to return.
    if (ply >= max_search_ply) {
        return rec->in_check ? ScoreDraw : eval;
    }
    // 6b. The strength limit lets the engine overlook things, but neither in the line that it plays
    // nor where somebody is being mated, which would look like a fault.
    if (strength.strength_level != 0 && !rec->in_check && node_type != PvNode
        && alpha >= -ScoreProbeLimit && beta < ScoreProbeLimit) {
        depth = weakened_depth(pos, depth);
    }
    // 6c. In check every reply counts and nothing below may judge the position at rest.
    if (rec->in_check) {
        return search_moves(pos, side, ply, depth, alpha, beta, true, node_type, pv);
    }

    // 7. Quiescence.
    // 7a. At the horizon: the evaluation is only worth something once the captures are through.
    if (depth < 1) {
        return qsearch(pos, side, ply, depth, alpha, beta, node_type, pv);
    }
    // 7b. Close to it and far below alpha: quiet moves will not make up for so much in so few
    // plies, so only the captures are looked at. Not if the hash entry promises more, and not where
    // alpha is a mate, against which every evaluation is far below.
    if (depth <= pruning.FP_depth && eval <= alpha - pruning.fp_margin[std::min(depth, last_margin)]
        && !hints.high && alpha < ScoreProbeLimit && node_type != PvNode) {
        rec->razored = 1;
        return qsearch(pos, side, ply, depth, alpha, beta, node_type, pv);
    }

    // 8. Forward pruning: ways to believe that a move will hold beta without searching them all.
    // All of them return beta itself, for more than that they do not claim. Cheapest first.
    if (may_prune(pos, rec, side, beta, hints.low)) {
        // 8a. Static pruning. danger is what the opponent may win next: the surplus must cover it.
        // With a margin that grows with the plies left, it is safe enough to stand.
        if (eval >= beta + rec->danger[side]) {
            if (depth <= pruning.SEP_depth
                && eval >= beta + pruning.sep_margin[std::min(depth, last_margin)]) {
                return beta;
            }
            // 8b. With a smaller surplus, next to the horizon: play out the opponent's captures. If
            // the worst of them leaves enough, he has nothing in the plies that are left.
            if (depth <= node_rule.threats_depth && threats_harmless(pos, side, eval, beta)) {
                return beta;
            }
        }
        // 8c. ProbCut: a good capture that beats a raised beta in a shallow search will beat the
        // real one in a deep search. Not next to the root, where a wrong cut costs a move on the
        // board.
        if (depth >= pruning.ProbCut_depth && ply >= prune_rule.probcut_ply
            && probcut(pos, ply, depth, beta)) {
            return beta;
        }
        // 8d. Null move: if passing still beats beta, a real move will. The gate has kept out pawns
        // alone, where having to move can be the loss. Deep nodes with pieces to spare can afford
        // the larger reduction.
        if (null_move_allowed(thread, rec, depth)) {
            const bool deep =
                depth > prune_rule.deep && pos->phase_mtl[side] >= prune_rule.enough_pieces;
            const i32 reduction = deep ? prune_rule.deep_reduction : prune_rule.reduction;
            const i32 reply_depth = std::max(depth - reduction, 1) - 1;
            score = null_move_score(pos, side, ply, reply_depth, alpha, beta, pv);
            if (load(stop_code) != StopCode::None) {
                return 0;
            }
            if (score >= beta) {
                if (depth <= prune_rule.trusted_depth) {
                    return beta;
                }
                // Far from the leaves a pass alone is not believed, for it may be zugzwang: the
                // moves are searched after all, but no deeper than the reply to the pass was.
                depth -= reduction + 1;
            }
        }
    }

    // 9. The moves.
    // 9a. Internal deepening, where the entry was too shallow to give a good move: a shallower
    // search of this node finds one, and costs less than a bad first move. Not if the evaluation is
    // far below alpha: then most likely no move is good, and their order does not matter.
    const i32 fewer_plies = node_type == PvNode ? iid_rule.less_in_pv
        : depth > iid_rule.deep                 ? iid_rule.less_deep
                                                : iid_rule.less;
    const i32 iid_depth = depth - fewer_plies;
    if (iid_depth > std::max(hints.depth, 0) && eval >= alpha - iid_rule.eval_below) {
        rec->in_iid = 1;
        search_moves(pos, side, ply, iid_depth, alpha, beta, false, node_type, pv);
        rec->in_iid = 0;
        // The best of it, also if all of them failed low: some order is better than none.
        rec->hash_move = pv[ply];
    }
    // 9b. All of them, at the depth that is left.
    return search_moves(pos, side, ply, depth, alpha, beta, false, node_type, pv);
}

// The move loop of interior nodes: which moves are dropped, how far the others are reduced,
// scout and re-search, history, and the store of the result. Steps 10 to 16 of the search; 1 to 9
// are in search.cpp.
// A move is only dropped or reduced once another has a score that is no mate against us, so that
// mate and stalemate are never made up.
#include <algorithm>

#include "search/node.h"
#include "search/params.h"
#include "search/search.h"

// Depths in plies. Ordering scores are those of next_move.cpp: 0 to 64 of the history and up to 60
// more for a killer or counter move; captures that do not lose lie far above, others below 10.
static constexpr struct {
    i32 scout_depth = 2;    // shallowest node that searches with a scout first
    i32 score_per_move = 4; // ordering score that puts off the dropping by one move
    i32 classed_depth = 1;  // deepest node that drops captures, checks and far pawn moves
    i32 classed_score = 40; // up to this ordering score
    i32 good_score = 31;    // ordering scores above it are reduced less
    i32 most_of_good = 2;   // plies that a move of good score is reduced at most
    i32 classed_from = 2;   // plies of a reduction from which the class of the move counts
    i32 reduced_line = 2;   // plies of the parent's reduction above which ours is less
    i32 last_reduction = reduction_size - 1; // last row and column of the reduction tables
} loop_rule;

// Whether a slider's new rays reach one of the targets with nothing between. Squares that the
// piece saw from its old square do not count: nothing is gained there.
static bool reaches_target(u64 new_rays, u64 targets, i32 to, u64 occ)
{
    u64 set = new_rays & targets;
    while (set != 0) {
        if (!(between[to][pop_lowest(&set)] & occ)) {
            return true;
        }
    }
    return false;
}

// Whether a late quiet move attacks something that matters, worth more than the mover or next to
// the king: such a threat must be answered, so that the move is more than one of many, and is kept.
// A queen's attacks are too common to tell anything but near the king, a king attacks nobody.
static bool late_move_attacks(Position* pos, i32 side, const MoveEntry* entry)
{
    const i32 from = from_square(entry->move);
    const i32 to = to_square(entry->move);
    const u64* enemy = pos->bb[side ^ 1];
    // The squares that the king needs, for himself or for his defence.
    const u64 zone = king_attacks[pos->king_sq[side ^ 1]];
    const u64 occ = occupied(pos);
    const u64 majors = enemy[Rook] | enemy[Queen];
    switch (type_of(entry->moved)) {
    case Pawn:
        return (pawn_attacks[side][to] & (enemy[Knight] | enemy[Bishop] | majors | zone)) != 0;
    case Knight:
        return (knight_attacks[to] & (majors | zone)) != 0;
    // New lines only, and then pressure together with a piece that aims at the king already.
    case Bishop:
        return reaches_target(bishop_rays[to] & ~bishop_rays[from], majors, to, occ)
            || adds_king_pressure(pos, Bishop, from, to, zone);
    case Rook:
        return reaches_target(rook_rays[to] & ~rook_rays[from], enemy[Queen], to, occ)
            || adds_king_pressure(pos, Rook, from, to, zone);
    case Queen:
        return adds_king_pressure(pos, Queen, from, to, zone);
    default:
        return false;
    }
}

// Step 12: whether the late-move rules drop a move of the given class.
static bool is_dropped(
    Position* pos, i32 side, i32 depth, i32 searched, u16 flags, const MoveEntry* entry)
{
    // 12a. Late quiet moves: the order has put them behind so many that it most likely is right.
    // The deeper the node the longer the wait, and a good history is worth a few moves more.
    // 12b. Quiet moves that lose material: at these depths there is no time to win it back.
    if ((flags & FlagClasses) == 0) {
        const bool late = searched >= pruning.lmp_count[std::min(depth, last_margin)]
                + entry->score / loop_rule.score_per_move;
        return (late && !late_move_attacks(pos, side, entry)) || loses(pos, entry);
    }
    // 12c. The same for captures, checks and far pawn moves, next to the horizon only: they may
    // force something. A capture with check is let through, for its point may lie behind it.
    const bool checking_capture = (flags & (FlagCapture | FlagCheck)) == (FlagCapture | FlagCheck);
    return depth <= loop_rule.classed_depth && entry->score <= loop_rule.classed_score
        && !checking_capture && loses(pos, entry);
}

// Step 13: how many plies less the move is searched at first. The later a move comes the less
// likely it is to be the best; a scout at full depth is spent on those that surprise.
static i32 reduction_of(const Position* pos, const PlyRecord* rec, i32 depth, i32 searched,
    u16 flags, const MoveEntry* entry)
{
    // Depths and moves beyond the table fare like its last: a logarithm hardly grows there.
    const i32 row = std::clamp(depth, 0, loop_rule.last_reduction);
    const i32 column = std::min(searched, loop_rule.last_reduction);
    i32 r = rec->node_type != PvNode ? pruning.lmr_nonpv[row][column] : pruning.lmr_pv[row][column];
    // 13a. Captures, checks and far pawn moves change more than their place in the order tells: a
    // ply at most, none with a good score.
    // 13b. Quiet moves that have done well before: a ply less.
    bool well_ordered = false;
    if (r >= loop_rule.classed_from && (flags & FlagClasses) != 0) {
        r = entry->score <= loop_rule.good_score;
    } else if (r != 0 && entry->score > loop_rule.good_score) {
        r = std::min(r - 1, loop_rule.most_of_good);
        well_ordered = r == 0;
    }
    // 13c. The line was already reduced by three or more one ply up: little would be left of it.
    if (!well_ordered && r != 0 && rec[-1].reduction > loop_rule.reduced_line) {
        --r;
    }
    // 13d. A move that loses material needs a deep point to be good, and mostly has none.
    if (loses(pos, entry)) {
        ++r;
    }
    // The scout ends at the horizon at the earliest.
    return row - r < 1 ? row - 1 : r;
}

i32 search_moves(Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, bool in_check,
    NodeType node_type, u16* pv)
{
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[ply];

    // 10. The start. Moves are dropped near the leaves only, where an error is small. Not in check,
    // where each reply may be the only one; not in a PV node, whose line is to be played; not while
    // a first move is looked for, which may be any.
    pv[ply] = NoMove;
    const bool prune_ok = depth <= pruning.LMP_depth && !in_check && rec->in_iid == 0 && depth >= 1
        && node_type != PvNode;
    rec->moves_searched = 0;
    rec->stage = TryHashMove | UnreadStageFlag | FullSearch;
    // The best may stay below alpha: then it is the bound that the parent and the hash table get.
    i32 alpha0 = alpha;
    i32 best = -ScoreInfinite;
    Move best_move = NoMove;
    i32 seen_hash = 0;
    i32 searched = 0;
    u16 child_pv[ply_count];

    while (MoveEntry* entry = next_move(pos)) {
        // 11. The next move. The generators deliver the hash move a second time.
        rec->list_cursor = entry;
        const Move move = entry->move;
        if (move == rec->hash_move && ++seen_hash != 1) {
            continue;
        }
        prefetch_child(pos, entry);
        if (move == NoMove || !is_safe_move(pos, side, entry, in_check)) {
            continue;
        }
        const u16 flags = class_of_move(pos, side, entry);
        rec->move_flags = flags;
        rec->reduction = 0;

        // 12 and 13. Dropped moves and reductions. While no move has a real score, there are none:
        // a node that is being mated looks at every way out.
        i32 r = 0;
        if (best >= -ScoreProbeLimit) {
            if (prune_ok && is_dropped(pos, side, depth, searched, flags, entry)) {
                continue;
            }
            if (depth >= pruning.LMR_depth) {
                r = reduction_of(pos, rec, depth, searched, flags, entry);
                rec->reduction = static_cast<i8>(r);
            }
        }

        // 14. The move itself. Only the first is searched with the whole window: with a good order
        // it is the best most of the time, and what is left to do is to prove it.
        rec->no_check = is_surely_no_check(pos, flags, entry);
        make_move(pos, move);
        i32 s;
        if (searched != 0 && depth >= loop_rule.scout_depth) {
            // 14a. Scout: that a later move is no better than the best so far is cheaper to prove
            // than how good it is. The reply is expected to refute it, whatever this node is.
            s = -search(
                pos, side ^ 1, ply + 1, depth - r - 1, -alpha - 1, -alpha, CutNode, child_pv);
            // 14b. It surprised: its true score, at full depth. Outside of the PV the surprise ends
            // this node, so that no reply should help.
            if (s > alpha) {
                rec->reduction = 0;
                s = -search(pos, side ^ 1, ply + 1, depth - 1, -beta, -alpha,
                    node_type == PvNode ? PvNode : AllNode, child_pv);
            }
        } else {
            // 14c. The first move, and every move next to the horizon, where a second search would
            // cost more than the scout saves.
            s = -search(
                pos, side ^ 1, ply + 1, depth - 1, -beta, -alpha, child_of(node_type), child_pv);
        }
        unmake_move(pos);
        if (load(stop_code) != StopCode::None) {
            return 0;
        }

        // 15. What it taught. Only quiet moves have a history: captures are ordered by their worth.
        // Promotions and en passant, which take nothing from their square, pass for quiet.
        rec->moves_searched = static_cast<u16>(++searched);
        if (entry->captured == NoPiece && depth >= 1) {
            update_history(thread, ply, depth, entry, s > alpha);
        }
        if (s <= best) {
            continue;
        }
        // Moves that fail low are noted too: the first best of them goes into the hash entry.
        best = s;
        best_move = move;
        pv[ply] = move;
        pv[ply + 1] = NoMove;
        if (s <= alpha) {
            continue;
        }
        // The parent will not allow this node: one refutation is enough.
        if (s >= beta) {
            break;
        }
        // A new best line; the others must beat it.
        copy_line(pv, child_pv, ply);
        alpha = s;
    }

    // 16. The result. Mate and stalemate are exact at any window.
    if (best_move == NoMove) {
        alpha0 = -ScoreInfinite;
        beta = ScoreInfinite;
        best = in_check ? ply - ScoreMate : ScoreDraw;
    }
    // The window is that of the call: it tells a bound from a score. In check below the horizon
    // there is no probe that would find the entry.
    if (depth >= 0) {
        store_hash(pos, ply, depth, best_move, best, alpha0, beta);
    }
    return best;
}

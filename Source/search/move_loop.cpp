// The move loop of interior nodes: which moves are dropped, how far the others are reduced,
// scout and re-search, history, and the store of the result.
#include <algorithm>

#include "search/node.h"
#include "search/params.h"
#include "search/search.h"

static constexpr i32 last_reduction = 31;   // last row and column of the reduction tables
static constexpr i32 good_quiet_score = 31; // ordering scores above it are reduced less

// Whether a slider's new rays reach one of the targets with nothing between. Squares that the
// piece saw from its old square do not count.
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

// Whether a late quiet move attacks something that matters: then it is kept.
static bool late_move_attacks(Position* pos, i32 side, const MoveEntry* entry)
{
    const i32 from = from_square(entry->move);
    const i32 to = to_square(entry->move);
    const u64* enemy = pos->bb[side ^ 1];
    const u64 zone = king_attacks[pos->king_sq[side ^ 1]];
    const u64 occ = pos->bb[White][0] | pos->bb[Black][0];
    const u64 majors = enemy[Rook] | enemy[Queen];
    switch (entry->moved & 7) {
    case Pawn:
        return (pawn_attacks[side][to] & (enemy[Knight] | enemy[Bishop] | majors | zone)) != 0;
    case Knight:
        return (knight_attacks[to] & (majors | zone)) != 0;
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

// Whether the late-move rules drop a move of the given class.
static bool is_dropped(
    Position* pos, i32 side, i32 depth, i32 searched, u16 flags, const MoveEntry* entry)
{
    if ((flags & FlagClasses) == 0) {
        const bool late =
            searched >= pruning.lmp_count[std::min(depth, last_margin)] + entry->score / 4;
        return (late && !late_move_attacks(pos, side, entry)) || loses(pos, entry);
    }
    const bool checking_capture = (flags & (FlagCapture | FlagCheck)) == (FlagCapture | FlagCheck);
    return depth <= 1 && entry->score <= 40 && !checking_capture && loses(pos, entry);
}

// How many plies less the move is searched at first.
static i32 reduction_of(const Position* pos, const PlyRecord* rec, i32 depth, i32 searched,
    u16 flags, const MoveEntry* entry)
{
    const i32 row = std::clamp(depth, 0, last_reduction);
    const i32 column = std::min(searched, last_reduction);
    i32 r = rec->node_type != PvNode ? pruning.lmr_nonpv[row][column] : pruning.lmr_pv[row][column];
    bool well_ordered = false;
    if (r >= 2 && (flags & FlagClasses) != 0) {
        r = entry->score <= good_quiet_score;
    } else if (r != 0 && entry->score > good_quiet_score) {
        r = std::min(r, 3) - 1;
        well_ordered = r == 0;
    }
    // The line was already reduced by three or more one ply up.
    if (!well_ordered && r != 0 && rec[-1].reduction > 2) {
        --r;
    }
    if (loses(pos, entry)) {
        ++r;
    }
    return row - r < 1 ? row - 1 : r;
}

i32 search_moves(Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, bool in_check,
    NodeType node_type, u16* pv)
{
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[ply];
    pv[ply] = NoMove;
    const bool prune_ok = depth <= pruning.LMP_depth && !in_check && rec->in_iid == 0 && depth >= 1
        && node_type != PvNode;
    rec->moves_searched = 0;
    rec->stage = TryHashMove | UnreadStageFlag | FullSearch;
    i32 alpha0 = alpha;
    i32 best = -ScoreInfinite;
    Move best_move = NoMove;
    i32 seen_hash = 0;
    i32 searched = 0;
    u16 child_pv[ply_count];

    while (MoveEntry* entry = next_move(pos)) {
        rec->list_cursor = entry;
        const Move move = entry->move;
        // The generators deliver the hash move a second time.
        if (move == rec->hash_move && ++seen_hash != 1) {
            continue;
        }
        if (move == NoMove || !is_legal_move(pos, side, move)) {
            continue;
        }
        prefetch_child(pos, entry);
        const u16 flags = class_of_move(pos, side, entry);
        rec->move_flags = flags;
        rec->reduction = 0;

        // While no move has a real score, nothing is dropped or reduced.
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

        make_move(pos, move);
        i32 s;
        if (searched != 0 && depth >= 2) {
            s = -search(
                pos, side ^ 1, ply + 1, depth - r - 1, -alpha - 1, -alpha, CutNode, child_pv);
            if (s > alpha) {
                rec->reduction = 0;
                s = -search(pos, side ^ 1, ply + 1, depth - 1, -beta, -alpha,
                    node_type == PvNode ? PvNode : AllNode, child_pv);
            }
        } else {
            const i32 d = rec->extend_hash_move && move == rec->hash_move ? depth + 1 : depth;
            s = -search(
                pos, side ^ 1, ply + 1, d - 1, -beta, -alpha, child_of(node_type), child_pv);
        }
        unmake_move(pos);
        if (load(stop_code) != StopCode::None) {
            return 0;
        }
        rec->moves_searched = static_cast<u16>(++searched);
        if (entry->captured == 0 && depth >= 1) {
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
        if (s >= beta) {
            break;
        }
        copy_line(pv, child_pv, ply);
        alpha = s;
    }

    if (best_move == NoMove) {
        // Mate or stalemate, exact at any window.
        alpha0 = -ScoreInfinite;
        beta = ScoreInfinite;
        best = in_check ? ply - ScoreMate : ScoreDraw;
    }
    if (depth >= 0) {
        store_hash(pos, ply, depth, best_move, best, alpha0, beta);
    }
    return best;
}

// The move loop of quiescence nodes: stand pat, captures, and checks at depth 0, until nothing
// happens any more that the evaluation cannot see. Children go through search, which counts them,
// tests draws and answers checks; so a node that comes here is never in check.
// What a node returns is never below its evaluation, cut at beta: nobody is forced to capture.
#include <algorithm>

#include "search/node.h"
#include "search/search.h"

// Gains and margins in centipawns.
static constexpr struct {
    i32 check_gain = 20000;      // more than any score: a check is never judged by what it takes
    i32 last_piece_gain = 5000;  // leaves the opponent without pawns and mating material
    i32 mating_material = 4;     // least phase_mtl of that: more than one minor piece
    i32 far_pawn_gain = 1500;    // a pawn on its seventh or eighth rank: a queen and what it takes
    i32 far_rank = 6;            // the seventh, counted from 0
    i32 margin = 150;            // of the delta test
    i32 margin_dropped_in = 450; // for nodes that come here at a positive depth
    i32 recapture_depth = -3;    // plies; below it only recaptures go on
} qsearch_rule;

// What a move can gain at best, for the delta test: at least what it takes, and more where the
// evaluation behind it may be another than the material tells.
static i32 promised_gain(const Position* pos, i32 side, const MoveEntry* entry)
{
    // A check may win more than what it takes, and is answered by a search of evasions. Here an
    // en-passant victim does not block: a check must not be missed, as it could be by its class.
    const i32 to = to_square(entry->move);
    u64 vacated = bit(from_square(entry->move));
    if (is_en_passant(pos, entry)) {
        vacated |= bit(to - pawn_step[side]);
    }
    if (gives_check(pos, side, entry, vacated)) {
        return qsearch_rule.check_gain;
    }
    // Whoever takes the last of what could win has gained more than the piece: the ending is
    // another, and the evaluation must see it.
    const i32 captured = type_of(entry->captured);
    if (captured != NoPiece) {
        i32 pawns = count_of(pos, side ^ 1, Pawn);
        i32 material = pos->phase_mtl[side ^ 1];
        if (captured == Pawn) {
            --pawns;
        } else {
            material -= phase_weight[captured];
        }
        if (pawns == 0 && material < qsearch_rule.mating_material) {
            return qsearch_rule.last_piece_gain;
        }
    }
    // A queen is the least that such a pawn will cost.
    if (type_of(entry->moved) == Pawn && relative_rank(side, to) >= qsearch_rule.far_rank) {
        return qsearch_rule.far_pawn_gain;
    }
    // En passant promises nothing here, as its square is empty; the margin covers the pawn.
    return exchange_value[captured];
}

i32 qsearch(
    Position* pos, i32 side, i32 ply, i32 depth, i32 alpha, i32 beta, NodeType node_type, u16* pv)
{
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[ply];
    // Stand pat: the side to move need not capture, and some quiet move will do no harm.
    const i32 eval = rec->eval;
    if (eval >= beta) {
        return beta;
    }
    rec->moves_searched = 0;
    const i32 alpha0 = std::max(eval, alpha);
    i32 best = alpha0;
    Move best_move = NoMove;
    // Who dropped in from above lies far below alpha and stands for a search of some plies: its
    // captures get the benefit of what those might have added.
    const i32 margin = depth < 1 ? qsearch_rule.margin : qsearch_rule.margin_dropped_in;
    // Quiet checks in the first ply of quiescence only: they end by force or not at all, and below
    // that there is no limit of depth to end them.
    rec->stage = depth >= 0 ? GenChecks | UnreadStageFlag : UnreadStageFlag;
    u16 child_pv[ply_count];

    while (MoveEntry* entry = next_move(pos)) {
        rec->list_cursor = entry;
        const Move move = entry->move;
        // A long exchange is followed on its square; what else could be captured was there before.
        if (depth < qsearch_rule.recapture_depth
            && to_square(move) != to_square(thread->last_move)) {
            continue;
        }
        // The delta test: what cannot lift the score to the best so far, even if it came for
        // nothing, is not worth a node. Nor is a capture that loses: standing pat is better.
        const i32 gain = promised_gain(pos, side, entry);
        if (gain + eval <= best - margin || loses(pos, entry)) {
            continue;
        }
        // Last, so that illegal moves cost no more than the filters.
        if (move == NoMove || !is_safe_move(pos, side, entry, false)) {
            continue;
        }
        rec->no_check = gain != qsearch_rule.check_gain;
        make_move(pos, move);
        const i32 s =
            -search(pos, side ^ 1, ply + 1, depth - 1, -beta, -best, child_of(node_type), child_pv);
        unmake_move(pos);
        if (load(stop_code) != StopCode::None) {
            return 0;
        }
        // Unlike in the move loop the best starts at the evaluation: what does not beat standing
        // pat is no move of the line.
        ++rec->moves_searched;
        if (s <= best) {
            continue;
        }
        pv[ply] = best_move = move;
        pv[ply + 1] = NoMove;
        best = s;
        if (s >= beta) {
            break;
        }
        copy_line(pv, child_pv, ply);
    }
    // There is no depth below 0 in the table. Only a fail high is worth a slot: below it nothing
    // but captures has been tried, and another move may be better.
    if (depth >= 0 && best >= beta) {
        store_hash(pos, ply, depth, best_move, best, alpha0, beta);
    }
    return best;
}

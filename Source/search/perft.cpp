// Counts the leaves of the legal move tree, with the search's own staged selection: so the count
// checks selection, generators, make and unmake together. Leaves are counted as legal moves of the
// ply above and not made; there the moves come from the generators alone, as no order is needed,
// and most are known to be legal without a look: a count takes less than a third of the time so.
#include "board/tables.h"
#include "search/move_lists.h"

// Full search: no move may be kept back. The hash move is not tried, as there is none.
static constexpr u16 perft_stage = UnreadStageFlag | FullSearch;

// The pieces of side whose moves must be looked at: the king, and every piece that stands alone
// between it and an enemy slider. Out of check no move of another one leaves the king attacked, but
// for en passant, which takes two pieces off their lines.
static u64 doubtful_movers(const Position* pos, i32 side)
{
    const i32 king = pos->king_sq[side];
    const u64* enemy = pos->bb[side ^ 1];
    const u64 occ = occupied(pos);
    u64 movers = bit(king);
    u64 sliders = (bishop_rays[king] & (enemy[Bishop] | enemy[Queen]))
        | (rook_rays[king] & (enemy[Rook] | enemy[Queen]));
    while (sliders != 0) {
        const u64 blockers = between[king][pop_lowest(&sliders)] & occ;
        if ((blockers & (blockers - 1)) == 0) {
            movers |= blockers;
        }
    }
    return movers;
}

// The number of legal moves, which are listed at the current ply.
static u64 count_legal_moves(Position* pos, i32 side, const PlyRecord* rec)
{
    MoveEntry* const moves = rec->list_start;
    MoveEntry* end = gen_captures(pos, side, moves, rec->check_sq);
    end = gen_promotions(pos, side, 1, end);
    end = gen_quiets(pos, side, end, rec->check_sq);
    publish_list(pos->thread, end);

    const u64 movers = rec->in_check ? ~0ULL : doubtful_movers(pos, side);
    u64 legal = 0;
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        const bool doubtful = (movers & bit(from_square(entry->move))) != 0
            || to_square(entry->move) == pos->ep_square;
        legal += !doubtful || is_legal_move(pos, side, entry->move);
    }
    return legal;
}

void perft(SearchThread* thread, i32 side, i32 ply_index, i32 depth)
{
    Position* pos = &thread->pos;
    PlyRecord* rec = &thread->ply_rec[ply_index];
    // What a node would have written into its record before it asks for a move.
    rec->check_sq = static_cast<u8>(find_checker(pos, pos->king_sq[side], side ^ 1, occupied(pos)));
    rec->in_check = rec->check_sq != NoSquare;
    rec->hash_move = NoMove;
    rec->stage = perft_stage;
    if (depth == 1) {
        add(thread->counters[CountNodes], count_legal_moves(pos, side, rec));
        return;
    }

    while (MoveEntry* entry = next_move(pos)) {
        if (entry->move == NoMove || !is_legal_move(pos, side, entry->move)) {
            continue;
        }
        rec->list_cursor = entry;
        make_move(pos, entry->move);
        perft(thread, side ^ 1, ply_index + 1, depth - 1);
        unmake_move(pos);
    }
}

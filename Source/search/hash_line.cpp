// Follows the transposition table from a position, to complete a line for display. What stands in
// the table may be of any age and any line, so each move is tried for legality before it is made,
// and the position is the caller's again at the end.
#include "board/moves.h"
#include "search/hash.h"

static constexpr i32 last_line_index = 67; // lines end before this index

// The move that the table holds for pos, or 0. Closes the line behind index where an entry stands:
// no store has a depth below 0, only the marks of a probe that found nothing to use.
static Move table_move(Position* pos, i32 index, u16* line)
{
    if (load(hash.mode) == HashOff) {
        return NoMove;
    }
    HashEntry entry;
    entry.depth = HashNotFound;
    probe_hash(pos, &entry);
    if (entry.depth < 0) {
        return NoMove;
    }
    line[index + 1] = NoMove;
    // A line ends in the draw that it leads to, or it would go round and round.
    if (entry.move == NoMove || is_draw_by_rule(pos, 0)) {
        return NoMove;
    }
    return entry.move;
}

// Moves that the line has are made too, since the table is asked about the position behind them.
void extend_line_from_hash(Position* pos, i32 index, u16* line)
{
    i32 made = 0;
    while (index < last_line_index) {
        const Move move = line[index] != NoMove ? line[index] : table_move(pos, index, line);
        if (move == NoMove || !is_legal_move(pos, pos->stm, move)) {
            break;
        }
        line[index] = move;
        make_move(pos, move);
        ++made;
        ++index;
    }
    for (; made > 0; --made) {
        unmake_move(pos);
    }
}

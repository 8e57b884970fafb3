// Follows the transposition table from a position, to complete a line for display.
#include "board/moves.h"
#include "search/hash.h"

static constexpr i32 last_line_index = 67; // lines end before this index

// The move that the table holds for pos, or 0. Closes the line behind index where an entry of
// depth 0 or more stands.
static Move table_move(Position* pos, i32 index, u16* line)
{
    if (load(hash.mode) == 0) {
        return NoMove;
    }
    HashEntry entry;
    entry.depth = HashNotFound;
    probe_hash(pos, &entry);
    if (entry.depth < 0) {
        return NoMove;
    }
    line[index + 1] = NoMove;
    if (entry.move == NoMove || is_draw_by_rule(pos, 0)) {
        return NoMove;
    }
    return entry.move;
}

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

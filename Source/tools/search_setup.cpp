// Position and limits of a search of the tools, kept while commands are taken. Both functions name
// the same fields: a limit that is kept but not put back would be lost at the first command.
#include "tools/search_setup.h"

// The position is copied whole, with the pointers to its record, which stay the same.
SearchSetup keep_setup(const Dialogue* dialogue)
{
    const SearchLimits* limits = &dialogue->limits;
    return { dialogue->game->pos, load(limits->tc_moves), limits->tc_seconds, limits->tc_increment,
        load(limits->depth_limit), limits->node_limit_total };
}

// The undo stack is emptied too: a tool's position stands for itself and has no game behind it.
void restore_setup(Dialogue* dialogue, const SearchSetup* setup)
{
    dialogue->game->pos = setup->pos;
    dialogue->game->undo_count = 0;
    store(dialogue->limits.tc_moves, setup->tc_moves);
    dialogue->limits.tc_seconds = setup->tc_seconds;
    dialogue->limits.tc_increment = setup->tc_increment;
    store(dialogue->limits.depth_limit, setup->depth_limit);
    dialogue->limits.node_limit_total = setup->node_limit_total;
}

// Position and limits of a search of the tools, kept while commands are taken.
#include "tools/search_setup.h"

SearchSetup keep_setup(const Dialogue* dialogue)
{
    const SearchLimits* limits = &dialogue->limits;
    return { dialogue->game->pos, load(limits->tc_moves), limits->tc_seconds, limits->tc_increment,
        load(limits->depth_limit), limits->node_limit_total };
}

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

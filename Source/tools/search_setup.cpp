// Position and limits of a search of the tools, kept while commands are taken.
#include "tools/search_setup.h"

#include "shell/run_state.h"

SearchSetup keep_setup()
{
    return { console_thread->pos, load(tc_moves), tc_seconds, tc_increment, load(depth_limit),
        node_limit_total };
}

void restore_setup(const SearchSetup* setup)
{
    console_thread->pos = setup->pos;
    console_thread->undo_count = 0;
    store(tc_moves, setup->tc_moves);
    tc_seconds = setup->tc_seconds;
    tc_increment = setup->tc_increment;
    store(depth_limit, setup->depth_limit);
    node_limit_total = setup->node_limit_total;
}

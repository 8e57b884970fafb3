// Filling the registry: every material that can have a table is looked for by the name of its file,
// so that a directory with a million other files is never listed.
#include "fathom/tbinit.h"

#include <cstring>
#include <unistd.h>

#include "fathom/tbcore.h"
#include "fathom/tbfile.h"
#include "fathom/tbheader.h"
#include "fathom/tbnames.h"
#include "fathom/tbtable.h"

// Enters the material if its win/draw/loss file is there. The file is only opened, not read: what
// is in it is found out by the first probe.
static void add_if_found(const char* name, void* /*context*/)
{
    const i32 descriptor = tb_open_file(name, tb_suffixes[TbWdlFile]);
    if (descriptor >= 0) {
        close(descriptor);
        tb_add_table(name);
    }
}

// The last tables go before the path is looked at: an unusable path leaves none. The order of the
// searches does not matter, but it is fixed, and with it what stands where in the pools.
i32 tb_init(const char* path)
{
    tb_clear_registry();
    tb_clear_dtz_cache();
    if (path[0] == '\0' || strcmp(path, "<empty>") == 0 || !tb_set_paths(path)) {
        return -1;
    }
    for (i32 pieces = tb_fewest_named; pieces <= tb_max_pieces; ++pieces) {
        tb_visit_names(pieces, add_if_found, nullptr);
    }
    return tb_table_count();
}

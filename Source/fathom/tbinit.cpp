// Filling the registry: every material that can have a table is looked for by the name of its file,
// so that a directory with a million other files is never listed.
#include "fathom/tbinit.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <unistd.h>

#include "fathom/tbcore.h"
#include "fathom/tbfile.h"
#include "fathom/tbtable.h"

// The pieces besides the king in the order of a table's name.
static constexpr char kind_letters[] = "QRBNP";
static constexpr i32 kind_count = sizeof kind_letters - 1;

// How many pieces each side has besides the king, in the order of search. The side named first has
// no fewer than the other: that is how the files are called.
static constexpr i32 group_sizes[][2] = { { 1, 0 }, { 1, 1 }, { 2, 0 }, { 2, 1 }, { 3, 0 },
    { 2, 2 }, { 3, 1 }, { 4, 0 } };

// Pieces of one side besides its king, as places in kind_letters, in nondecreasing order: the
// letters of a name stand so, and every material is met once.
using Group = std::span<i32>;

// Moves on to the next group of as many pieces; false after the last. The hindmost letter that can
// go on does, and those behind it follow with the same one.
static bool next_group(Group group)
{
    for (size_t i = group.size(); i-- > 0;) {
        if (group[i] + 1 < kind_count) {
            std::fill(group.begin() + static_cast<ptrdiff_t>(i), group.end(), group[i] + 1);
            return true;
        }
    }
    return false;
}

static char* append_group(Group group, char* out)
{
    *out++ = 'K';
    for (const i32 kind : group) {
        *out++ = kind_letters[kind];
    }
    return out;
}

// Enters the material if its win/draw/loss file is there. The file is only opened, not read: what
// is in it is found out by the first probe.
static void add_if_found(Group first, Group second)
{
    char name[tb_name_size];
    char* out = append_group(first, name);
    *out++ = 'v';
    out = append_group(second, out);
    *out = '\0';
    const i32 descriptor = tb_open_file(name, ".rtbw");
    if (descriptor >= 0) {
        close(descriptor);
        tb_add_table(name);
    }
}

// Of two names with as many pieces on both sides only the one is tried whose first group does not
// come behind the second.
static void add_tables(i32 first_size, i32 second_size)
{
    i32 first_letters[tb_max_pieces] = {};
    const Group first(first_letters, static_cast<size_t>(first_size));
    do {
        i32 second_letters[tb_max_pieces] = {};
        const Group second(second_letters, static_cast<size_t>(second_size));
        if (first_size == second_size) {
            std::copy(first.begin(), first.end(), second.begin());
        }
        do {
            add_if_found(first, second);
        } while (next_group(second));
    } while (next_group(first));
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
    for (const auto& sizes : group_sizes) {
        add_tables(sizes[0], sizes[1]);
    }
    return tb_table_count();
}

// Counting through the materials: all pairs of two multisets of the five kinds of piece.
#include "fathom/tbnames.h"

#include <algorithm>
#include <cstddef>
#include <span>

// The pieces besides the king in the order of a table's name.
static constexpr char kind_letters[] = "QRBNP";
static constexpr i32 kind_count = sizeof kind_letters - 1;
static constexpr size_t longest_name = tb_most_named + 2; // with the 'v' and the NUL

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

// Of two names with as many pieces on both sides only the one is visited whose first group does not
// come behind the second.
static void visit_sizes(
    i32 first_size, i32 second_size, void (*visit)(const char* name, void* context), void* context)
{
    i32 first_letters[tb_most_named] = {};
    const Group first(first_letters, static_cast<size_t>(first_size));
    do {
        i32 second_letters[tb_most_named] = {};
        const Group second(second_letters, static_cast<size_t>(second_size));
        if (first_size == second_size) {
            std::copy(first.begin(), first.end(), second.begin());
        }
        do {
            char name[longest_name];
            char* out = append_group(first, name);
            *out++ = 'v';
            *append_group(second, out) = '\0';
            visit(name, context);
        } while (next_group(second));
    } while (next_group(first));
}

void tb_visit_names(i32 pieces, void (*visit)(const char* name, void* context), void* context)
{
    const i32 beside_kings = pieces - 2;
    for (i32 second = 0; 2 * second <= beside_kings; ++second) {
        visit_sizes(beside_kings - second, second, visit, context);
    }
}

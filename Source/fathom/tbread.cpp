// From a position to the value in a table: the pieces are put in the table's order, from its point
// of view, numbered and looked up.
#include "fathom/tbread.h"

#include "fathom/tbcore.h"
#include "fathom/tbfile.h"
#include "fathom/tbindex.h"
#include "fathom/tbpairs.h"

// How the position must be turned to be seen as the table sees it.
struct PointOfView {
    i32 cmirror; // XORed on a piece code
    i32 mirror;  // XORed on a square
    i32 bside;   // the side to move, 1 the one named second
};

static PointOfView point_of_view(const TbEntry* entry, const TbPos* pos, u64 key)
{
    const bool turned = entry->symmetric ? !pos->turn : key != entry->key;
    const i32 bside = !entry->symmetric && turned == (pos->turn != 0);
    return { turned ? 8 : 0, turned ? 56 : 0, bside };
}

// Appends the squares of a code's pieces at place i. Returns the next place, i if there are none.
static inline i32 place_pieces(
    const TbPos* pos, PointOfView view, i32 code, i32 num, i32 i, i32* squares)
{
    const i32 seen = code ^ view.cmirror;
    u64 set = tb_pieces_of(pos, seen & 7, (seen & 8) == 0);
    while (set != 0 && i < num) {
        squares[i++] = pop_lowest(&set) ^ view.mirror;
    }
    return i;
}

// The section of the position, with the leading pawns placed.
static const TbSection* find_section(
    TbEntry* entry, const TbPos* pos, PointOfView view, i32 side, i32* squares)
{
    if (!entry->has_pawns) {
        return tb_section(entry, 0, side);
    }
    const i32 code = tb_section(entry, 0, 0)->pieces[0];
    const i32 count = place_pieces(pos, view, code, entry->num, 0, squares);
    return tb_section(entry, tb_choose_leading_pawn(count, squares), side);
}

// Places all pieces behind the leading pawns and looks the position up. Returns the stored value,
// or -1.
static i32 look_up(const TbEntry* entry, const TbSection* section, const TbPos* pos,
    PointOfView view, i32* squares)
{
    for (i32 i = entry->has_pawns ? entry->pawns[0] : 0; i < entry->num;) {
        const i32 next = place_pieces(pos, view, section->pieces[i], entry->num, i, squares);
        if (next == i) {
            return -1; // not the material of the table
        }
        i = next;
    }
    const u64 index = entry->has_pawns
        ? encode_pawn(entry->num, entry->pawns, section->norm, section->factor, squares)
        : encode_piece(entry->num, entry->enc_type, section->norm, section->factor, squares);
    return tb_decompress_pairs(section->pairs, index);
}

i32 tb_read_wdl(const TbPos* pos, i32* success)
{
    const u64 key = tb_material_key(pos, false);
    *success = 1;
    if (key == 0) {
        return 0;
    }
    TbEntry* entry = tb_wdl_table(pos, key);
    i32 value = -1;
    if (entry != nullptr) {
        i32 squares[tb_max_pieces];
        const PointOfView view = point_of_view(entry, pos, key);
        const TbSection* section = find_section(entry, pos, view, view.bside, squares);
        value = look_up(entry, section, pos, view, squares);
    }
    if (value < 0) {
        *success = 0;
        return 0;
    }
    return value - 2;
}

// The distance that a stored value stands for, without its sign; -1 if the value is not in the
// section's list.
static i32 distance_of(const TbSection* section, i32 value, i32 wdl)
{
    static constexpr i32 list_of[5] = { 1, 3, 0, 2, 0 };
    static constexpr i32 plies_flag[5] = { TbFlagLossPlies, 0, 0, 0, TbFlagWinPlies };
    if (tb_has_lists(section)) {
        const u8* list = section->list[list_of[wdl + 2]];
        if (value >= list[-1]) {
            return -1;
        }
        value = list[value];
    }
    if ((section->flags & plies_flag[wdl + 2]) == 0) {
        value *= 2;
    }
    return value + (wdl % 2 == 0 ? 1 : 101);
}

i32 tb_read_dtz(const TbPos* pos, i32 wdl, i32* success)
{
    const u64 key = tb_material_key(pos, false);
    *success = 0;
    TbEntry* entry = tb_dtz_table(pos, key);
    if (entry == nullptr) {
        return 0;
    }
    i32 squares[tb_max_pieces];
    const PointOfView view = point_of_view(entry, pos, key);
    const TbSection* section = find_section(entry, pos, view, 0, squares);
    if (!entry->symmetric && (section->flags & TbFlagSide) != view.bside) {
        *success = -1;
        return 0;
    }
    const i32 value = look_up(entry, section, pos, view, squares);
    const i32 distance = value < 0 ? -1 : distance_of(section, value, wdl);
    if (distance < 0) {
        return 0;
    }
    *success = 1;
    return wdl > 0 ? distance : -distance;
}

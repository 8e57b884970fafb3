// From a position to the value in a table: the pieces are put in the table's order, from its point
// of view, numbered and looked up. A damaged file yields a wrong value or none, never one outside
// of the scale.
#include "fathom/tbread.h"

#include <span>

#include "fathom/tbcore.h"
#include "fathom/tbfile.h"
#include "fathom/tbindex.h"
#include "fathom/tbpairs.h"
#include "fathom/tbresult.h"

// The squares of a position's pieces, in table order.
using Squares = std::span<i32, tb_max_pieces>;

static constexpr i32 no_value = -1;

// How the position must be turned to be seen as the table sees it.
struct PointOfView {
    i32 code_mask;   // XORed on a piece code
    i32 square_mask; // XORed on a square
    i32 side;        // the side to move: 1 is the one named second
};

// A table shows the side named first as White. Where that is Black in the position, sides and ranks
// change places. A symmetric material could be seen either way and is stored from the side to
// move's view alone. pos->turn is 1 where White moves, so a side to move that is not the first one
// in the table's eyes is: White in a turned position, Black in another.
static PointOfView point_of_view(const TbEntry* entry, const TbPos* pos, u64 key)
{
    const bool turned = entry->symmetric ? !pos->turn : key != entry->key;
    const i32 side = !entry->symmetric && turned == (pos->turn != 0);
    return { turned ? piece_code(Black, NoPiece) : 0, turned ? 56 : 0, side };
}

// Appends the squares of a code's pieces at place i. Returns the next place, i if there are none.
// More than num do not fit and are left out: that guards squares against a board whose material
// is not the table's though it has its key.
static inline i32 place_pieces(
    const TbPos* pos, PointOfView view, i32 code, i32 num, i32 i, Squares squares)
{
    const i32 seen = code ^ view.code_mask;
    u64 set = tb_pieces_of(pos, type_of(seen), side_of(seen) == White);
    while (set != 0 && i < num) {
        squares[static_cast<size_t>(i++)] = pop_lowest(&set) ^ view.square_mask;
    }
    return i;
}

// The section of the position, with the leading pawns placed.
static const TbSection* find_section(
    TbEntry* entry, const TbPos* pos, PointOfView view, i32 side, Squares squares)
{
    if (!entry->has_pawns) {
        return tb_section(entry, 0, side);
    }
    // All sections have the same leading pawns, so the first one can be asked for their code.
    const i32 code = tb_section(entry, 0, 0)->pieces[0];
    const i32 count = place_pieces(pos, view, code, entry->num, 0, squares);
    return tb_section(entry, tb_choose_leading_pawn(count, squares.data()), side);
}

// Places all pieces behind the leading pawns and looks the position up. Returns the stored value,
// or no_value.
static i32 look_up(const TbEntry* entry, const TbSection* section, const TbPos* pos,
    PointOfView view, Squares squares)
{
    for (i32 i = entry->has_pawns ? entry->pawns[0] : 0; i < entry->num;) {
        const i32 next = place_pieces(pos, view, section->pieces[i], entry->num, i, squares);
        if (next == i) {
            return no_value; // not the material of the table
        }
        i = next;
    }
    i32* place = squares.data();
    const u64 index = entry->has_pawns
        ? encode_pawn(entry->num, entry->pawns, section->norm, section->factor, place)
        : encode_piece(entry->num, entry->enc_type, section->norm, section->factor, place);
    return tb_decompress_pairs(section->pairs, index);
}

i32 tb_read_wdl(const TbPos* pos, i32* answer)
{
    const u64 key = tb_material_key(pos, false);
    *answer = TbAnswered;
    if (key == 0) {
        return WdlDraw;
    }
    TbEntry* entry = tb_wdl_table(pos, key);
    i32 value = no_value;
    if (entry != nullptr) {
        i32 squares[tb_max_pieces];
        const PointOfView view = point_of_view(entry, pos, key);
        const TbSection* section = find_section(entry, pos, view, view.side, squares);
        value = look_up(entry, section, pos, view, squares);
    }
    if (value < 0) {
        *answer = TbNoAnswer;
        return WdlDraw;
    }
    // The files count from a loss, 0, to a win, 4, as the search does.
    return tb_wdl_of(static_cast<TbResult>(value));
}

// The distance that a stored value stands for, without its sign; no_value if the value is not in
// the section's list. Lists and flags are chosen by the WDL value, so a position's distance can
// only be read when that is known. The lists stand in the file in the order win, loss, spoiled win,
// saved loss. Stored is the distance less 1, halved unless a flag says plies; where the fifty-move
// rule changes the result it is always halved and counts from 101.
static i32 distance_of(const TbSection* section, i32 value, i32 wdl)
{
    // By TbResult; a draw has no distance.
    static constexpr i32 list_of[] = { 1, 3, 0, 2, 0 };
    static constexpr i32 plies_flag[] = { TbFlagLossPlies, 0, 0, 0, TbFlagWinPlies };
    const TbResult result = tb_result_of(wdl);
    if (tb_has_lists(section)) {
        const u8* list = section->list[list_of[result]];
        const i32 count = list[-1];
        if (value >= count) {
            return no_value;
        }
        value = list[value];
    }
    if ((section->flags & plies_flag[result]) == 0) {
        value *= 2;
    }
    return value + (wdl == WdlWin || wdl == WdlLoss ? 1 : tb_rule50_plies + 1);
}

i32 tb_read_dtz(const TbPos* pos, i32 wdl, i32* answer)
{
    const u64 key = tb_material_key(pos, false);
    *answer = TbNoAnswer;
    TbEntry* entry = tb_dtz_table(pos, key);
    if (entry == nullptr) {
        return 0;
    }
    i32 squares[tb_max_pieces];
    const PointOfView view = point_of_view(entry, pos, key);
    const TbSection* section = find_section(entry, pos, view, 0, squares);
    // To save room only one side's distances are stored; the section says whose.
    const i32 stored_side = (section->flags & TbFlagSide) != 0;
    if (!entry->symmetric && stored_side != view.side) {
        *answer = TbOtherSide;
        return 0;
    }
    const i32 value = look_up(entry, section, pos, view, squares);
    const i32 distance = value < 0 ? no_value : distance_of(section, value, wdl);
    if (distance < 0) {
        return 0;
    }
    *answer = TbAnswered;
    return wdl > 0 ? distance : -distance;
}

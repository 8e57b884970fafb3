// The numbering of positions in a Syzygy table: squares in table order to an index. Positions that
// are mirrors of each other get one index, so that a table need not hold them all.
#pragma once

#include "fathom/tbtable.h"

// Lays out the groups of a section: norm from pieces, factors from the order nibbles, order2
// being 15 if the second side has no pawns. file is 0 to 3, 0 without pawns. Returns the number
// of positions, or 0 if pieces or orders are not those of a sound table of this material: it is the
// check on which the routines below rely, and every section of a file must pass it.
[[nodiscard]] u64 tb_set_groups(
    const TbEntry* entry, TbSection* section, i32 file, i32 order, i32 order2);

// The index of num squares in table order, without pawns and with them; norm and factor are those
// of the section. The squares are mirrored and sorted in place.
[[nodiscard]] u64 encode_piece(
    i32 num, i32 enc_type, const u8* norm, const u64* factor, i32* squares);

// The same with pawns, pawns[0] of the leading side and pawns[1] of the other; the first square is
// the one that tb_choose_leading_pawn has put there.
[[nodiscard]] u64 encode_pawn(
    i32 num, const u8* pawns, const u8* norm, const u64* factor, i32* squares);

// Exchanges the first of count leading pawns with the one that leads. Returns the file of its
// section, 0 to 3. Comes before everything else: the section must be known before the other pieces
// can be put in its order.
[[nodiscard]] i32 tb_choose_leading_pawn(i32 count, i32* squares);

// The numbering of positions in a Syzygy table: squares in table order to an index.
#pragma once

#include "fathom/tbtable.h"

// Lays out the groups of a section: norm from pieces, factors from the order nibbles, order2
// being 15 if the second side has no pawns. file is 0 to 3, 0 without pawns. Returns the number
// of positions, or 0 if pieces or orders are not those of a sound table of this material.
u64 tb_set_groups(const TbEntry* entry, TbSection* section, i32 file, i32 order, i32 order2);

// The index of num squares in table order, without pawns and with them; norm and factor are those
// of the section. The squares are mirrored and sorted in place.
u64 encode_piece(i32 num, i32 enc_type, const u8* norm, const u64* factor, i32* squares);

// The same with pawns, pawns[0] of the leading side and pawns[1] of the other; the first square is
// the one that tb_choose_leading_pawn has put there.
u64 encode_pawn(i32 num, const u8* pawns, const u8* norm, const u64* factor, i32* squares);

// Exchanges the first of count leading pawns with the one that leads. Returns the file of its
// section, 0 to 3.
i32 tb_choose_leading_pawn(i32 count, i32* squares);

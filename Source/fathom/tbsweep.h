// Every block of a section decoded, as fast as a disk delivers them: for those who want to know
// whether all values can be read. A probe looks at one block and at no more of it than it must.
#pragma once

#include "fathom/tbtable.h"

inline constexpr i32 most_sweep_bits = 16;

// What is made once for all blocks of a section: by the next bits, the codes that are whole in
// them, and the first of these alone; their values in the upper 24 bits, their length in the
// lower 8.
struct TbSweep {
    const PairsData* pairs;
    i32 bits; // by which the tables are looked up
    u32 runs[1 << most_sweep_bits];
    u32 codes[1 << most_sweep_bits];
};

// Makes it; the section must have several values.
void tb_start_sweep(TbSweep* sweep, const PairsData* pairs);

// The first block from begin on, and before end, in which something is wrong; end if there is none.
// Wrong is one whose codes do not make as many values as the size table tells, leave the block, or
// have a bit set behind them. end must not be above pairs->blocks.
[[nodiscard]] u64 tb_find_bad_block(const TbSweep* sweep, u64 begin, u64 end);

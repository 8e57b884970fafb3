// The lines printed for a result of the search.
#pragma once

#include "board/types.h"

// Prints the line of a result, as UCI info or in the console's form. pv is indexed by ply from
// 1, closed by 0. pv_index 0 is a new best line during a pass, more the number of a line.
void print_info(i32 thread_id, i32 pv_index, i32 depth, i32 score, const u16* pv);

// print_info, unless output is silenced or there is nothing to tell.
void print_final_info(i32 thread_id, i32 pv_index, i32 depth, i32 score, const u16* pv);

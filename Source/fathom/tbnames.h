// The names of tables: which materials there are, and how their files are called.
#pragma once

#include "board/types.h"

inline constexpr i32 tb_fewest_named = 3;
inline constexpr i32 tb_most_named = 7; // published sets have so many; the engine reads fewer

// Calls visit with the name of each material of so many pieces (3 to 7), such as "KQvKR": each side
// with its letters in the order KQRBNP, the side named first having more pieces than the other, or
// as many of which the first to differ stands earlier in that order.
void tb_visit_names(i32 pieces, void (*visit)(const char* name, void* context), void* context);

// Inputs of the pruning rules, and the working tables that are made of them between searches.
// The rules themselves, with their reasons, are the steps of search.cpp and move_loop.cpp.
#pragma once

#include "base/types.h"

// The deepest entry of the margin and count tables; deeper nodes read it too.
inline constexpr i32 last_margin = 11;

// Entries of a reduction table for depths and for moves; what lies beyond reads the last.
inline constexpr i32 reduction_size = 32;

// What may be set of the pruning rules. Depths in plies, margins in centipawns.
struct SearchParams {
    i16 BP_margin;         // 8: margin of its gate at full selectivity
    i16 SEP_depth;         // 8a: deepest node of static evaluation pruning
    i16 SEP_margin;        // step of its margin per ply
    i16 NMP_depth;         // 8d: shallowest node of the null move
    i16 FP_depth;          // 7b: deepest node of the drop into quiescence
    i16 FP_base;           // its margin, before
    i16 FP_margin;         // the step per ply
    i16 ProbCut_depth;     // 8c: shallowest node of ProbCut
    i16 ProbCut_reduction; // plies less than the node
    i16 ProbCut_margin;    // how far its beta lies above the node's
    i16 LMP_depth;         // 12: deepest node where late moves are dropped
    i16 LMP_base;          // moves that are searched before at any depth, and
    i16 LMP_count;         // further ones a ply
    i16 LMR_depth;         // 13: shallowest node that reduces
    // The form of a reduction (see ReductionRule): hundredths of its factor, and of a ply.
    i16 LMR_pv_factor, LMR_pv_offset, LMR_nonpv_factor, LMR_nonpv_offset;
};

// The working tables. Written by set_search_params alone, between searches; read by every node
// without a lock.
struct PruningTables {
    i16 BP_margin; // 8: how far the evaluation must lie above beta, centipawns
    i16 FP_depth, SEP_depth, NMP_depth, ProbCut_depth, LMP_depth, LMR_depth;
    i16 ProbCut_reduction, ProbCut_margin;
    // By depth, read clamped to last_margin: centipawns twice, and moves.
    i16 fp_margin[last_margin + 1], sep_margin[last_margin + 1], lmp_count[last_margin + 1];
    // Plies, by depth and moves searched before.
    u8 lmr_pv[reduction_size][reduction_size], lmr_nonpv[reduction_size][reduction_size];
};
extern PruningTables pruning;

// Rebuilds the working tables from the inputs, selectivity (0 to 200 per cent; 0 turns all rules
// off) and elo, the strength that is played for, which together with strength.target_nps and
// calibration_nps sets strength_level and nps_limited. No worker may be searching.
void set_search_params(const SearchParams* params, i32 selectivity, i32 elo);

// Prints the working tables, for a developer.
void print_search_params();

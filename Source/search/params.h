// Inputs of the pruning rules, and the working tables that are made of them between searches.
#pragma once

#include "base/types.h"

// What the user may set of the pruning rules.
struct SearchParams {
    i16 SEP_depth;  // deepest node of static evaluation pruning
    i16 SEP_margin; // step of its margin per ply
    i16 NMP_depth;  // shallowest node of the null move
    i16 FP_depth;   // deepest node of the drop into quiescence
    i16 FP_margin;
    i16 ProbCut_depth; // shallowest node of ProbCut
    i16 ProbCut_reduction;
    i16 ProbCut_margin;
    i16 LMP_depth; // deepest node where late moves are dropped
    i16 LMP_count;
    i16 LMR_depth; // shallowest node that reduces
};

// The working tables. Written by set_search_params alone, between searches; read by every node
// without a lock.
struct PruningTables {
    i16 BP_margin;
    i16 FP_depth, SEP_depth, NMP_depth, ProbCut_depth, LMP_depth, LMR_depth;
    i16 ProbCut_reduction, ProbCut_margin;
    i16 fp_margin[12], sep_margin[12], lmp_count[12]; // by depth; read clamped to 11
    u8 lmr_pv[32][32], lmr_nonpv[32][32];             // [depth][moves searched]
};
extern PruningTables pruning;

// Rebuilds the working tables from the inputs, selectivity (per cent) and elo, the strength that is
// played for, which together with strength.target_nps and calibration_nps sets strength_level and
// nps_limited. No worker may be searching.
void set_search_params(const SearchParams* params, i32 selectivity, i32 elo);

// Prints the working tables, for a developer.
void print_search_params();

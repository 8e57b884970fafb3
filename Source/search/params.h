// Working tables of the pruning rules, made from the options between searches.
#pragma once

#include "board/types.h"

extern i16 BP_margin;
extern i16 FP_depth, SEP_depth, NMP_depth, ProbCut_depth, LMP_depth, LMR_depth;
extern i16 ProbCut_reduction, ProbCut_margin;
extern i16 fp_margin[12], sep_margin[12], lmp_count[12]; // by depth; read clamped to 11
extern u8 lmr_pv[32][32], lmr_nonpv[32][32];             // [depth][moves searched]
extern u32 strength_level;                               // 0 without a strength limit
extern Shared<u8> nps_limited;                           // hold to target_nps

// Rebuilds all of the above from engine_options, target_nps and calibration_nps.
// No worker may be searching.
void set_search_params();

// Prints them, for a developer.
void print_search_params();

// The parameters of the pruning rules by name. The console's "set" writes the depths, to try out
// what a rule does. In the tuning program it writes all of them, and they are options of UCI too,
// which a tuner turns; the names and the ranges are the same for both.
#pragma once

#include <iterator>

#include "search/params.h"

struct SearchField {
    const char* name;
    i16 SearchParams::*param;
    bool at_console; // written by "set" in every program
    // Range of the option, wide enough for a tuner to see where a rule stops to help. The console
    // keeps no range.
    i16 lowest;
    i16 highest;
};

// In the order of announcement. Units are those of SearchParams.
inline constexpr SearchField search_fields[] = {
    { "BP_margin", &SearchParams::BP_margin, false, -100, 200 },
    { "SEP_depth", &SearchParams::SEP_depth, true, 0, last_margin },
    { "SEP_margin", &SearchParams::SEP_margin, false, 0, 300 },
    { "NMP_depth", &SearchParams::NMP_depth, true, 1, 20 },
    { "FP_depth", &SearchParams::FP_depth, true, 0, last_margin },
    { "FP_base", &SearchParams::FP_base, false, 0, 300 },
    { "FP_margin", &SearchParams::FP_margin, false, 0, 400 },
    { "ProbCut_depth", &SearchParams::ProbCut_depth, true, 2, 20 },
    { "ProbCut_reduction", &SearchParams::ProbCut_reduction, false, 1, 8 },
    { "ProbCut_margin", &SearchParams::ProbCut_margin, false, 0, 400 },
    { "LMP_depth", &SearchParams::LMP_depth, true, 0, last_margin },
    { "LMP_base", &SearchParams::LMP_base, false, 0, 20 },
    { "LMP_count", &SearchParams::LMP_count, false, 1, 20 },
    { "LMR_depth", &SearchParams::LMR_depth, true, 1, 20 },
    { "LMR_pv_factor", &SearchParams::LMR_pv_factor, false, 0, 150 },
    { "LMR_pv_offset", &SearchParams::LMR_pv_offset, false, -200, 200 },
    { "LMR_nonpv_factor", &SearchParams::LMR_nonpv_factor, false, 0, 150 },
    { "LMR_nonpv_offset", &SearchParams::LMR_nonpv_offset, false, -200, 200 },
};

static_assert(std::size(search_fields) * sizeof(i16) == sizeof(SearchParams), "one row each");

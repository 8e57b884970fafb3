// Working tables of the pruning rules. They are rebuilt between searches only; the workers read
// them without a lock.
#include "search/params.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/output.h"
#include "search/strength.h"

constinit PruningTables pruning {};

static constexpr i32 margin_entries = 12;

// The form of one reduction table: scale * (factor * ln(depth) * ln(moves) + offset), at most
// depth - room and within 0 to limit.
struct ReductionRule {
    f64 factor;
    f64 offset;
    f64 limit;
    i32 room;
};
static constexpr ReductionRule pv_rule = { 0.44, -0.6, 4.0, 2 };
static constexpr ReductionRule nonpv_rule = { 0.46, 0.6, 5.0, 1 };

static void fill_reductions(u8 table[32][32], const ReductionRule* rule, f64 scale)
{
    for (i32 d = 0; d < 32; ++d) {
        for (i32 m = 0; m < 32; ++m) {
            table[d][m] = 0;
            if (d > 2 && m > 0) {
                f64 x = scale * (rule->factor * std::log(d) * std::log(m) + rule->offset);
                x = std::min(x, static_cast<f64>(d - rule->room));
                table[d][m] = static_cast<u8>(std::round(std::clamp(x, 0.0, rule->limit)));
            }
        }
    }
}

// How often nodes are searched shallower under a strength limit: 0 without one, at most 150,
// the more the slower the engine is set.
static u32 level_of_limit(i32 elo)
{
    if (elo < 1 || elo > 2199) {
        return 0;
    }
    const f64 level = std::trunc(3000.0 / (load(strength.target_nps) + 1.0));
    return static_cast<u32>(std::clamp(level, 0.0, 150.0));
}

// Margins wrap in 16 bits like the options they come from.
static void fill_margins(const SearchParams* params)
{
    for (i32 d = 0; d < margin_entries; ++d) {
        pruning.fp_margin[d] = static_cast<i16>(50 + params->FP_margin * d);
        pruning.sep_margin[d] = static_cast<i16>(params->SEP_margin * d);
        pruning.lmp_count[d] = static_cast<i16>(1 + params->LMP_count * d);
    }
}

void set_search_params(const SearchParams* params, i32 selectivity, i32 elo)
{
    strength.strength_level = level_of_limit(elo);
    store(strength.nps_limited, strength.calibration_nps - 20 > load(strength.target_nps));
    fill_margins(params);
    pruning.FP_depth = params->FP_depth;
    pruning.SEP_depth = params->SEP_depth;
    pruning.NMP_depth = params->NMP_depth;
    pruning.ProbCut_depth = params->ProbCut_depth;
    pruning.LMP_depth = params->LMP_depth;
    pruning.LMR_depth = params->LMR_depth;
    pruning.ProbCut_reduction = params->ProbCut_reduction;
    pruning.ProbCut_margin = params->ProbCut_margin;
    pruning.BP_margin = 15;
    if (selectivity < 100) {
        pruning.BP_margin = static_cast<i16>(15 + ((100 - selectivity) >> 1));
    }
    if (selectivity == 0) {
        pruning.ProbCut_depth = pruning.LMR_depth = pruning.NMP_depth = 100;
        pruning.LMP_depth = pruning.SEP_depth = pruning.FP_depth = 0;
        pruning.BP_margin = 5000;
    }
    const f64 scale = selectivity * 0.01;
    fill_reductions(pruning.lmr_pv, &pv_rule, scale);
    fill_reductions(pruning.lmr_nonpv, &nonpv_rule, scale);
}

// Prints a depth and the table entries from 1 up to it as one line. format takes the depth.
static void print_margins(const char* label, i32 depth, const char* what, const i16* table)
{
    char line[256];
    int used = snprintf(line, sizeof line, "%s= %d, %s=", label, depth, what);
    for (i32 d = 1; d <= std::min(depth, margin_entries - 1); ++d) {
        used += snprintf(line + used, sizeof line - static_cast<size_t>(used), " %d", table[d]);
    }
    print_plain("%s\n", line);
}

static void print_reductions(const u8 table[32][32])
{
    for (i32 d = 1; d < 32; ++d) {
        char line[128];
        int used = snprintf(line, sizeof line, "%2d  ", d);
        for (i32 m = 0; m < 32; ++m) {
            used +=
                snprintf(line + used, sizeof line - static_cast<size_t>(used), "%d ", table[d][m]);
        }
        print_plain("%s\n", line);
    }
}

void print_search_params()
{
    print_plain("BP_margin= %d\n", pruning.BP_margin);
    print_margins("FP_depth", pruning.FP_depth, "margins", pruning.fp_margin);
    print_margins("SEP_depth", pruning.SEP_depth, "margins", pruning.sep_margin);
    print_plain("PC: depth= %d, Red= %d, Margin= %d\n", pruning.ProbCut_depth,
        pruning.ProbCut_reduction, pruning.ProbCut_margin);
    print_plain("NMP_depth= %d\n", pruning.NMP_depth);
    print_margins("LMP_depth", pruning.LMP_depth, "count", pruning.lmp_count);
    print_plain("LMR_depth= %d\n", pruning.LMR_depth);
    print_plain("LMR table:\n");
    print_reductions(pruning.lmr_pv);
    print_plain("\n\n");
    print_reductions(pruning.lmr_nonpv);
}

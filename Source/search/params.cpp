// Working tables of the pruning rules. They are rebuilt between searches only; the workers read
// them without a lock. Tables and not formulas, so that a node pays one load for a logarithm.
// A rule is never taken out: turned off, it has a depth or a margin that no node reaches.
#include "search/params.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <span>

#include "base/output.h"
#include "search/strength.h"

constinit PruningTables pruning {};

// Margins in centipawns, depths in plies.
static constexpr struct {
    i32 full_selectivity = 100;   // per cent; below it BP_margin grows by half of what is missing
    i16 no_margin = 5000;         // BP_margin that no evaluation reaches
    i16 never_deep_enough = 100;  // deeper than any node
    i16 never_shallow_enough = 0; // shallower than any node that is asked
} param_rule;

// The strength limit.
static constexpr struct {
    i32 full_elo = 2200;        // from here on nothing is overlooked
    f64 level_of_rate = 3000.0; // strength_level times the nodes a second plus one
    f64 highest_level = 150.0;
    f64 nearest_rate = 20.0; // nodes a second; a rate nearer to the machine's own is no limit
} limit_rule;

// The form of one reduction table: scale * (factor * ln(depth) * ln(moves) + offset), at most
// depth - room and within 0 to limit. That a move is best gets less likely with its place in the
// order, ever more slowly, and a ply less costs less of a deep search: so both count by logarithm.
struct ReductionRule {
    f64 factor;
    f64 offset; // plies
    f64 limit;  // plies
    i32 room;   // plies that are left at least
};

// A PV node reduces late and little, for its score is the one that is played; elsewhere every later
// move is reduced from depth 3 on.
static constexpr struct {
    f64 pv_limit = 4.0;
    i32 pv_room = 2;
    f64 nonpv_limit = 5.0;
    i32 nonpv_room = 1;
    f64 hundredths = 100.0; // the quotient is the nearest number to the decimal one
} reduction_rule;

// One reduction table, by depth and moves searched before. Nothing is reduced at depths 1 and 2,
// nor is a first move.
static void fill_reductions(
    u8 (&table)[reduction_size][reduction_size], const ReductionRule& rule, f64 scale)
{
    for (i32 d = 0; d < reduction_size; ++d) {
        for (i32 m = 0; m < reduction_size; ++m) {
            table[d][m] = 0;
            if (d > 2 && m > 0) {
                f64 x = scale * (rule.factor * std::log(d) * std::log(m) + rule.offset);
                x = std::min(x, static_cast<f64>(d - rule.room));
                table[d][m] = static_cast<u8>(std::round(std::clamp(x, 0.0, rule.limit)));
            }
        }
    }
}

// How often nodes are searched shallower under a strength limit: 0 without one, at most 150,
// the more the slower the engine is set. A low rate alone would still see every short threat; who
// plays at that strength does not.
static u32 level_of_limit(i32 elo)
{
    if (elo < 1 || elo >= limit_rule.full_elo) {
        return 0;
    }
    const f64 level = std::trunc(limit_rule.level_of_rate / (load(strength.target_nps) + 1.0));
    return static_cast<u32>(std::clamp(level, 0.0, limit_rule.highest_level));
}

// The margins of 7b and 8a, and the wait of 12a. A ply more gives more time for the score to
// change, so all of them grow with the plies left, in even steps. Margins wrap in 16 bits like the
// options they come from.
static void fill_margins(const SearchParams* params)
{
    for (i32 d = 0; d <= last_margin; ++d) {
        pruning.fp_margin[d] = static_cast<i16>(params->FP_base + params->FP_margin * d);
        pruning.sep_margin[d] = static_cast<i16>(params->SEP_margin * d);
        pruning.lmp_count[d] = static_cast<i16>(params->LMP_base + params->LMP_count * d);
    }
}

void set_search_params(const SearchParams* params, i32 selectivity, i32 elo)
{
    // A limit is one of speed first; oversights come on top where nodes are few.
    strength.strength_level = level_of_limit(elo);
    store(strength.nps_limited,
        strength.calibration_nps - limit_rule.nearest_rate > load(strength.target_nps));
    fill_margins(params);
    pruning.FP_depth = params->FP_depth;
    pruning.SEP_depth = params->SEP_depth;
    pruning.NMP_depth = params->NMP_depth;
    pruning.ProbCut_depth = params->ProbCut_depth;
    pruning.LMP_depth = params->LMP_depth;
    pruning.LMR_depth = params->LMR_depth;
    pruning.ProbCut_reduction = params->ProbCut_reduction;
    pruning.ProbCut_margin = params->ProbCut_margin;
    // Less selective: the gate of step 8 opens later. More selective opens it no earlier.
    const i32 missing = std::max(param_rule.full_selectivity - selectivity, 0);
    pruning.BP_margin = static_cast<i16>(params->BP_margin + missing / 2);
    // Nothing is left out: for tests, and for who wants to see what the rules miss. The rules stay
    // where they are and find no node that they apply to.
    if (selectivity == 0) {
        pruning.ProbCut_depth = pruning.LMR_depth = pruning.NMP_depth =
            param_rule.never_deep_enough;
        pruning.LMP_depth = pruning.SEP_depth = pruning.FP_depth = param_rule.never_shallow_enough;
        pruning.BP_margin = param_rule.no_margin;
    }
    // 0 leaves zeros, and the reductions above 100 per cent still end at their limit.
    const f64 scale = selectivity * 0.01;
    const auto& r = reduction_rule;
    fill_reductions(pruning.lmr_pv,
        { params->LMR_pv_factor / r.hundredths, params->LMR_pv_offset / r.hundredths, r.pv_limit,
            r.pv_room },
        scale);
    fill_reductions(pruning.lmr_nonpv,
        { params->LMR_nonpv_factor / r.hundredths, params->LMR_nonpv_offset / r.hundredths,
            r.nonpv_limit, r.nonpv_room },
        scale);
}

// Prints a depth and the entries of a table from 1 up to it as one line.
static void print_margins(
    const char* label, i32 depth, const char* what, std::span<const i16> table)
{
    char line[256];
    int used = snprintf(line, sizeof line, "%s= %d, %s=", label, depth, what);
    for (i32 d = 1; d <= std::min(depth, last_margin); ++d) {
        used += snprintf(line + used, sizeof line - static_cast<size_t>(used), " %d",
            table[static_cast<size_t>(d)]);
    }
    print_plain("%s\n", line);
}

// One row for each depth from 1 on, the depth in front.
static void print_reductions(const u8 (&table)[reduction_size][reduction_size])
{
    for (i32 d = 1; d < reduction_size; ++d) {
        char line[128];
        int used = snprintf(line, sizeof line, "%2d  ", d);
        for (i32 m = 0; m < reduction_size; ++m) {
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

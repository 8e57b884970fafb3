// The defaults of the user's settings, and the way of some of them to the workers.
#include "shell/dialogue.h"

#include "base/output.h"
#include "eval/evaluate.h"
#include "search/threads.h"

// What a user gets who sets nothing. Changing one of them changes what "uci" announces, and those
// of the search and the scales change the nodes of every search.
static constexpr EngineOptions default_options = {
    .params_changed = 1,
    .hash = 64,
    .threads = 1,
    .move_overhead = 50,
    .ponder = 1,
    .multi_pv = 1,
    .limit_strength = 0,
    .elo = 0,
    .log = 0,
    .own_book = 0,
    .own_book_variety = 25,
    .own_book_depth = 24,
    .own_book2_depth = 0,
    .config_file_path = {},
    .own_book_file = {},
    .own_book2_file = {},
    .syzygy_path = {},
    .syzygy_probe_depth5 = 0,
    .syzygy_probe_depth6 = 1,
    .contempt = 0,
    .selectivity = 100,
    .search = {
        .BP_margin = 15, // just more than the noise of an evaluation
        .SEP_depth = 3,
        .SEP_margin = 75,
        .NMP_depth = 3,
        .FP_depth = 3,
        .FP_base = 50,
        .FP_margin = 125,
        .ProbCut_depth = 3,
        .ProbCut_reduction = 3,
        .ProbCut_margin = 100,
        .LMP_depth = 6,
        .LMP_base = 1,
        .LMP_count = 2,
        .LMR_depth = 3,
        .LMR_pv_factor = 44,
        .LMR_pv_offset = -60,
        .LMR_nonpv_factor = 46,
        .LMR_nonpv_offset = 60,
    },
    .scales = {
        .Mtl_Pawn = { 100, 100 },
        .Mtl_Knight = { 100, 100 },
        .Mtl_Bishop = { 100, 100 },
        .Mtl_Rook = { 100, 100 },
        .Mtl_Queen = { 100, 100 },
        .Activity_Knight = { 100, 100 },
        .Activity_Bishop = { 100, 100 },
        .Activity_Rook = { 100, 100 },
        .Activity_Queen = { 100, 100 },
        .Pawn_Structure = { 100, 100 },
        .Passed_Pawns = { 100, 100 },
        .King_Safety = { 100, 100 },
        .Threats = { 100, 100 },
    },
};

void init_dialogue(Dialogue* dialogue)
{
    init_limits(&dialogue->limits);
    dialogue->engine_options = default_options;
    dialogue->saved_options = default_options;
    dialogue->quit_flag = false;
    dialogue->self_play = false;
    dialogue->log_cmd = true;
    dialogue->pending_input[0] = '\0';
    dialogue->numa = 0;
    dialogue->tagged_key = 0;
    publish_options(dialogue);
}

void publish_options(const Dialogue* dialogue)
{
    const EngineOptions* options = &dialogue->engine_options;
    set_logging(options->log != 0);
    // A value that changed in the middle of a search would make its scores disagree with those that
    // it has stored. The log alone may be switched at any time.
    if (busy_workers() != 0) {
        return;
    }
    store(contempt_rule.contempt, options->contempt);
    store(search_settings.multi_pv, options->multi_pv);
    store(search_settings.tb_depths.five, options->syzygy_probe_depth5);
    store(search_settings.tb_depths.six, options->syzygy_probe_depth6);
}

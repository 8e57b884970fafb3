// The storage of the user's settings, their defaults, and the way of some of them to the workers.
#include "shell/engine_options.h"

#include "search/threads.h"
#include "shell/run_state.h"

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
        .SEP_depth = 3,
        .SEP_margin = 75,
        .NMP_depth = 3,
        .FP_depth = 3,
        .FP_margin = 125,
        .ProbCut_depth = 3,
        .ProbCut_reduction = 3,
        .ProbCut_margin = 100,
        .LMP_depth = 6,
        .LMP_count = 2,
        .LMR_depth = 3,
    },
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
};

constinit EngineOptions engine_options {};
constinit EngineOptions saved_options {};

void init_default_options()
{
    saved_options = default_options;
}

void publish_options()
{
    store(worker_options.log, engine_options.log);
    if (busy_workers() != 0) {
        return;
    }
    store(worker_options.contempt, engine_options.contempt);
    store(worker_options.multi_pv, engine_options.multi_pv);
    store(worker_options.syzygy_probe_depth5, engine_options.syzygy_probe_depth5);
    store(worker_options.syzygy_probe_depth6, engine_options.syzygy_probe_depth6);
}

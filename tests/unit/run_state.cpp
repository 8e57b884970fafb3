// What main and the start of a search would set, set back by hand.
#include "run_state.h"

#include "base/files.h"
#include "base/output.h"
#include "board/trace.h"
#include "eval/evaluate.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/strength.h"
#include "search/threads.h"
#include "shell/prepare_search.h"
#include "shell/weights_file.h"
#include "tools/tools.h"

Dialogue dialogue;

void reset_run_state()
{
    init_dialogue(&dialogue);
    dialogue.tool_words = console_tool_words();
    store(uci_mode, 1);
    store(noise, 0.0);
    store(hash.mode, 1);
    hash.age = 0;
    store(engine_state, EngineState::Idle);
    store(stop_code, StopCode::None);
    search_settings.ponder = false;
    search_settings.lines = 1;
    store(search_settings.debug_flag, 0);
    search_clock.limits = &dialogue.limits;
    search_clock.start_time = 0.0;
    store(search_clock.elapsed, 0.0);
    search_clock.target_time = 1.0;
    search_clock.overhead_seconds = 0.0;
    store(search_clock.clock_side, White);
    contempt_rule.root_side = White;
    contempt_rule.off = false;
    strength.calibration_nps = 0.0;
    strength.estimated_elo = 0.0;
    store(strength.target_nps, 0.0);
    store(trace_level, 0);
    for (i32& counter : search_totals.debug_counters) {
        counter = 0;
    }
    exit_status = 0;
}

void build_weights(WeightMode mode)
{
    rebuild_weights(&dialogue);
    if (mode != NormalWeights) {
        init_eval_params(mode, &dialogue.engine_options.scales);
        if (mode != BaseWeights) {
            load_params_file(params_file);
        }
    }
}

i32 evaluate_at(SearchThread* thread, i32 side, i32 ply, i32 in_check)
{
    const Position* pos = &thread->pos;
    const i32 score = evaluate(thread, pos, ply, in_check != 0, thread->ply_rec[ply].danger);
    return score == no_eval || side == pos->stm ? score : -score;
}

// What happens before every search: the strength limit, rebuilt tables, a clean record of the
// search to come, and the time for the move. Runs on the main thread while no worker searches, so
// it may write all that a search only reads. The clock starts first: what the preparation costs is
// the mover's time.
#include "shell/prepare_search.h"

#include "base/output.h"
#include "base/text.h"
#include "board/moves.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/params.h"
#include "search/search.h"
#include "search/strength.h"
#include "search/threads.h"
#include "shell/weights_file.h"

static constexpr f64 seconds_per_millisecond = 0.001;
// Ages tell the entries of different searches apart; they run from 1 on and around, 0 is a new
// game's.
static constexpr i32 oldest_hash_age = 15;
static constexpr i32 first_score = -ScoreMate; // result_score before the first result

// Without a limit UCI_Elo stands at the machine's own estimate, and its rate is the target: the
// time for a move and the pruning tables look at both, limit or not.
static void lift_strength_limit(EngineOptions* options)
{
    options->elo = narrow_to_i16(strength.estimated_elo);
    store(strength.target_nps, strength.calibration_nps);
}

// An Elo that this machine does not reach is no limit: the option is switched off again, and the
// user gets the full strength. An Elo that was never set leaves the rate as the command line set
// it.
static void apply_strength_limit(EngineOptions* options)
{
    if (options->limit_strength == 0) {
        lift_strength_limit(options);
    } else if (options->elo >= 1) {
        const f64 nps = nps_of_elo(options->elo);
        store(strength.target_nps, nps);
        if (nps > strength.calibration_nps - unreachable_nps) {
            options->limit_strength = 0;
            lift_strength_limit(options);
        }
    }
}

// A best or ponder move of an earlier search must not be reported for this one. The score is that
// of a draw where the fifty moves are over, since no search will come to replace it.
static void reset_result(const Position* pos)
{
    const bool drawn = pos->cnt50 > fifty_move_plies;
    store(search_result.result_score, drawn ? i32 { ScoreDraw } : first_score);
    search_result.result_depth = 0;
    search_result.result_pv[1] = NoMove;
    search_result.result_pv[2] = NoMove;
    for (i32 depth = 0; depth < ply_count; ++depth) {
        store(search_result.score_by_depth[depth], -ScoreInfinite);
        search_result.move_by_depth[depth] = NoMove;
        search_totals.nodes_by_depth[depth] = 0;
    }
    search_result.last_iter_depth = 0;
    store(search_result.last_change_depth, 0);
    store(search_result.single_reply, 0);
}

// Options that hold for one search are copied here: what the user changes meanwhile waits. A table
// of no size is switched off, and stays so when it gets one, until "set hash 1".
static void reset_search_state(Dialogue* dialogue)
{
    store(stop_code, StopCode::None);
    reset_result(&dialogue->game->pos);
    store(iter_depth, 0);
    search_settings.ponder = dialogue->engine_options.ponder != 0;
    search_settings.lines = static_cast<u8>(dialogue->engine_options.multi_pv);
    hash.age = static_cast<i16>(hash.age < oldest_hash_age ? hash.age + 1 : 1);
    for (i32& counter : search_totals.debug_counters) {
        counter = 0;
    }
    dialogue->game->ply = 1;
    dialogue->game->pv[1] = NoMove;
    if (hash.megabytes < 1) {
        store(hash.mode, HashOff);
    }
}

void rebuild_search_tables(const Dialogue* dialogue)
{
    const EngineOptions* options = &dialogue->engine_options;
    set_search_params(&options->search, options->selectivity, options->elo);
}

// The caches of all records go, the game's among them, before any weight changes: a cached score of
// the old weights would be taken for one of the new.
void rebuild_weights(const Dialogue* dialogue)
{
    for (const Shared<SearchThread*>& worker : workers) {
        SearchThread* const thread = load_acquire(worker);
        if (thread != nullptr) {
            clear_eval_caches(thread);
        }
    }
    clear_eval_caches(dialogue->game);
    // The file comes last and takes the place of what it names: a personality does not change the
    // weights that a user has written down.
    init_eval_params(NormalWeights, &dialogue->engine_options.scales);
    load_params_file(params_file);
}

// Told to the user, since it costs some milliseconds of the move's time.
static void rebuild_tables(Dialogue* dialogue)
{
    print_line("info string setting search and eval params...");
    rebuild_search_tables(dialogue);
    rebuild_weights(dialogue);
    dialogue->engine_options.params_changed = 0;
}

// In UCI mode for the log alone, where a developer reads how the time was spent; a chess program
// shows its own clocks. At the console for the player.
static void report_allotment(const Dialogue* dialogue)
{
    const Position* pos = &dialogue->game->pos;
    const i32 plies = dialogue->game->undo_count;
    char fen[fen_size];
    make_fen(pos, fen);
    if (load(uci_mode) == UciMode) {
        if (dialogue->engine_options.log != 0) {
            log_line("info string fen %s", fen);
            log_line("info string ply= %d, trg_time= %0.3f sec", plies, search_clock.target_time);
        }
    } else {
        print_line_format("fen %s", fen);
        print_line_format("Ply= %d, cnt50= %d, Clock= %0.2fs, Target time= %0.2fs", plies,
            pos->cnt50, load(dialogue->limits.clock_left[pos->stm]), search_clock.target_time);
    }
}

// The order matters: the clock starts before all else, the strength limit comes before the tables
// that are made from it, and the time for the move comes last, as it looks at the Elo. A control of
// several moves is counted from the game at the console; a chess program tells the moves to go.
void prepare_search(Dialogue* dialogue)
{
    const EngineOptions* options = &dialogue->engine_options;
    const Position* pos = &dialogue->game->pos;
    start_clock(&dialogue->limits, options->move_overhead * seconds_per_millisecond);
    store(search_clock.clock_side, pos->stm);
    contempt_rule.root_side = pos->stm;
    apply_strength_limit(&dialogue->engine_options);
    publish_options(dialogue);
    reset_search_state(dialogue);
    if (options->params_changed != 0) {
        rebuild_tables(dialogue);
    }
    const MoveTerms terms = {
        .side = pos->stm,
        .plies = dialogue->game->undo_count,
        .elo = options->elo,
        .ponder = search_settings.ponder,
        .counts = load(uci_mode) == ConsoleMode,
    };
    set_target_time(&dialogue->limits, &terms);
    if (load(noise) < silent_noise) {
        report_allotment(dialogue);
    }
}

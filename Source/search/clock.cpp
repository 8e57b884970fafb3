// What happens before every search: the time for the move, the strength limit, rebuilt tables and
// a clean record of the search to come. Runs on the main thread while no worker searches, so it
// may write all that a search only reads.
#include "search/clock.h"

#include <cmath>

#include "board/position.h"
#include "eval/weights.h"
#include "search/params.h"
#include "search/search.h"
#include "shell/engine_options.h"
#include "base/output.h"
#include "shell/run_state.h"
#include "base/text.h"

// Rules of the allotment.
static constexpr struct {
    i32 first_moves = 32; // moves to go at the start of a game without a control
    i32 later_moves = 23; // the same once the opening is over
    i32 opening_plies = 20;
    f64 ponder_factor = 1.3; // time that predicted moves will save
    i32 hurried_elo = 2400;  // a weaker setting plays faster
    f64 hurried_factor = 0.85;
    f64 ceiling_share = 0.65; // of the clock
    f64 ceiling_overheads = 5.0;
    f64 floor = 0.002; // seconds
} time_rules;

// The search of a node rate by its Elo.
static constexpr struct {
    f64 lowest_nps = 10.0;
    f64 highest_nps = 10000000.0;
    f64 tolerance = 0.5;    // Elo
    f64 unreachable = 30.0; // nodes a second below the machine's own rate
    i32 most_steps = 100;   // an Elo outside the bounds never comes within tolerance
} strength_rules;

static constexpr i32 oldest_hash_age = 15;
static constexpr i32 first_score = -10000; // result_score before the first result
static constexpr i32 fifty_moves = 100;    // half-moves; above it no search starts
static constexpr i32 fen_size = 256;

f64 elo_of_nps(f64 nps)
{
    return 144.0 * log(nps) + 1014.0 - 3000.0 / (nps + 1.0);
}

// The node rate whose Elo is elo, as near as the bounds allow.
static f64 nps_of_elo(i32 elo)
{
    f64 low = strength_rules.lowest_nps;
    f64 high = strength_rules.highest_nps;
    f64 nps = (low + high) / 2;
    for (i32 step = 0; step < strength_rules.most_steps; ++step) {
        nps = (low + high) / 2;
        const f64 difference = elo_of_nps(nps) - elo;
        if (fabs(difference) < strength_rules.tolerance) {
            break;
        }
        if (difference < 0) {
            low = nps;
        } else {
            high = nps;
        }
    }
    return nps;
}

// Without a limit UCI_Elo stands at the machine's own estimate, and its rate is the target.
static void lift_strength_limit()
{
    engine_options.elo = narrow_to_i16(estimated_elo);
    store(target_nps, calibration_nps);
}

static void apply_strength_limit()
{
    if (engine_options.limit_strength == 0) {
        lift_strength_limit();
    } else if (engine_options.elo >= 1) {
        const f64 nps = nps_of_elo(engine_options.elo);
        store(target_nps, nps);
        if (nps > calibration_nps - strength_rules.unreachable) {
            engine_options.limit_strength = 0;
            lift_strength_limit();
        }
    }
    publish_options();
}

// A best or ponder move of an earlier search must not be reported for this one.
static void reset_result()
{
    const bool drawn = console_thread->pos.cnt50 > fifty_moves;
    store(search_result.result_score, drawn ? 0 : first_score);
    search_result.result_depth = 0;
    search_result.result_pv[1] = NoMove;
    search_result.result_pv[2] = NoMove;
    for (i32 depth = 0; depth < ply_count; ++depth) {
        store(search_result.score_by_depth[depth], -ScoreInfinite);
        search_result.move_by_depth[depth] = NoMove;
        nodes_by_depth[depth] = 0;
    }
    search_result.last_iter_depth = 0;
    store(search_result.last_change_depth, 0);
    store(search_result.single_reply, 0);
}

static void reset_search_state()
{
    store(stop_code, StopNone);
    reset_result();
    store(iter_depth, 0);
    search_ponder = engine_options.ponder;
    search_multi_pv = static_cast<u8>(engine_options.multi_pv);
    hash_age = static_cast<i16>(hash_age < oldest_hash_age ? hash_age + 1 : 1);
    for (i32& counter : debug_counters) {
        counter = 0;
    }
    console_thread->ply = 1;
    console_thread->pv[1] = NoMove;
    overhead_seconds = engine_options.move_overhead * 0.001;
    if (hash_mb < 1) {
        store(hash_mode, 0);
    }
}

static void rebuild_tables()
{
    print_line("info string setting search and eval params...");
    set_search_params();
    init_eval_params(0);
    engine_options.params_changed = 0;
}

// The number of moves that the clock must last for, this one not counted; written to moves_to_go.
static void count_moves_to_go()
{
    const i32 plies = console_thread->undo_count;
    const i32 per_control = load(tc_moves);
    if (per_control > 1) {
        if (load(uci_mode) == 0) {
            moves_to_go = static_cast<i16>(per_control - plies / 2 % per_control);
        }
    } else if (plies < time_rules.opening_plies) {
        moves_to_go = static_cast<i16>(time_rules.first_moves - plies / 2);
    } else {
        moves_to_go = static_cast<i16>(time_rules.later_moves);
    }
}

// Seconds for a move of a side that has left on its clock.
static f64 allotment(f64 left)
{
    count_moves_to_go();
    const bool room = load(tc_moves) == 0 || moves_to_go > 2;
    f64 seconds = left / (moves_to_go + 1);
    if (search_ponder != 0 && room) {
        seconds *= time_rules.ponder_factor;
    }
    if (engine_options.elo < time_rules.hurried_elo) {
        seconds *= time_rules.hurried_factor;
    }
    if (tc_increment > 0) {
        seconds += tc_increment * left / (left + 2 * tc_increment);
    }
    const f64 ceiling =
        time_rules.ceiling_share * left - time_rules.ceiling_overheads * overhead_seconds;
    if (seconds > ceiling) {
        seconds = ceiling;
    }
    // Written so that a division of nothing by nothing ends at the floor too.
    return seconds >= time_rules.floor ? seconds : time_rules.floor;
}

static void set_target_time()
{
    const i32 side = console_thread->pos.stm;
    if (load(tc_moves) == 1) {
        target_time = tc_seconds;
        store(clock_left[side], tc_seconds);
    } else {
        target_time = allotment(load(clock_left[side]));
    }
}

static void report_allotment()
{
    const Position* pos = &console_thread->pos;
    const i32 plies = console_thread->undo_count;
    char fen[fen_size];
    make_fen(pos, fen);
    if (load(uci_mode) == 1) {
        if (engine_options.log != 0) {
            log_line("info string fen %s", fen);
            log_line("info string ply= %d, trg_time= %0.3f sec", plies, target_time);
        }
    } else {
        print_line_format("fen %s", fen);
        print_line_format("Ply= %d, cnt50= %d, Clock= %0.2fs, Target time= %0.2fs", plies,
            pos->cnt50, load(clock_left[pos->stm]), target_time);
    }
}

void prepare_search()
{
    start_time = monotonic_seconds();
    store(elapsed, 0.0);
    root_side = console_thread->pos.stm;
    store(clock_side, root_side);
    apply_strength_limit();
    reset_search_state();
    if (engine_options.params_changed != 0) {
        rebuild_tables();
    }
    set_target_time();
    if (load(noise) < silent_noise) {
        report_allotment();
    }
}

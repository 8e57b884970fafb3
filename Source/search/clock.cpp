// The two halves of the clock: before a search the time that the move may take, during it the
// decision that it has taken enough.
#include "search/clock.h"

#include <algorithm>
#include <cstdlib>

#include "base/clock.h"
#include "eval/evaluate.h"
#include "search/control.h"
#include "search/search.h"
#include "search/threads.h"

constinit SearchClock search_clock {};

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

// A search that aims at more seconds than this has no limit: it analyses and plays without
// contempt.
static constexpr f64 contempt_time_limit = 90000;

// Rules of the clock, in seconds or as shares of the time left.
static constexpr struct {
    f64 no_stop_before = 0.015; // a search runs at least this long
    f64 largest_margin = 0.025; // of the overhead, taken off the limit
    f64 fail_low_share = 0.25;  // of the time left, while the root fails low
    f64 fail_high_share = 0.1;
    f64 score_drop_share = 0.03; // for each of two depths that the score fell behind
    f64 stable_share = 0.25;     // of the target, given back when the best move is stable
    i32 stable_depths = 4;
    i32 small_score_fall = 20; // centipawns that count as a fall
    i32 large_score = 336;     // from here on a sixteenth of the score counts
    i32 single_reply_depth = 6;
    f64 flag_guard = 5.0; // margins that must be left on the clock
} clock_rules;

// ---- Before the search

void start_clock(const SearchLimits* limits, f64 overhead_seconds)
{
    search_clock.limits = limits;
    search_clock.overhead_seconds = overhead_seconds;
    search_clock.start_time = monotonic_seconds();
    store(search_clock.elapsed, 0.0);
}

// The number of moves that the clock must last for, this one not counted. Where the control is told
// with each move, what was told last stands.
static i16 count_moves_to_go(const SearchLimits* limits, const MoveTerms* terms)
{
    const i32 per_control = load(limits->tc_moves);
    if (per_control > 1) {
        return terms->counts ? static_cast<i16>(per_control - terms->plies / 2 % per_control)
                             : limits->moves_to_go;
    }
    if (terms->plies < time_rules.opening_plies) {
        return static_cast<i16>(time_rules.first_moves - terms->plies / 2);
    }
    return static_cast<i16>(time_rules.later_moves);
}

// Seconds for a move of a side that has left on its clock.
static f64 allotment(const SearchLimits* limits, const MoveTerms* terms, f64 left)
{
    const bool room = load(limits->tc_moves) == 0 || limits->moves_to_go > 2;
    f64 seconds = left / (limits->moves_to_go + 1);
    if (terms->ponder && room) {
        seconds *= time_rules.ponder_factor;
    }
    if (terms->elo < time_rules.hurried_elo) {
        seconds *= time_rules.hurried_factor;
    }
    const f64 increment = limits->tc_increment;
    if (increment > 0) {
        seconds += increment * left / (left + 2 * increment);
    }
    const f64 ceiling = time_rules.ceiling_share * left
        - time_rules.ceiling_overheads * search_clock.overhead_seconds;
    if (seconds > ceiling) {
        seconds = ceiling;
    }
    // Written so that a division of nothing by nothing ends at the floor too.
    return seconds >= time_rules.floor ? seconds : time_rules.floor;
}

void set_target_time(SearchLimits* limits, const MoveTerms* terms)
{
    if (load(limits->tc_moves) == 1) {
        search_clock.target_time = limits->tc_seconds;
        store(limits->clock_left[terms->side], limits->tc_seconds);
    } else {
        limits->moves_to_go = count_moves_to_go(limits, terms);
        search_clock.target_time = allotment(limits, terms, load(limits->clock_left[terms->side]));
    }
    contempt_rule.off = search_clock.target_time > contempt_time_limit;
}

// ---- During the search

void update_elapsed()
{
    store(search_clock.elapsed, monotonic_seconds() - search_clock.start_time);
}

// Seconds to add to the target, from what the root of worker 0 and the last iterations say.
// left: seconds on the clock, limit: the target, d: the iteration that runs.
static f64 extra_time(f64 left, f64 limit, i32 d)
{
    const SearchThread* master = load(workers[0]);
    const u8 fail_state = master != nullptr ? load(master->fail_state) : 0;
    if (fail_state == 1) {
        return left * clock_rules.fail_low_share;
    }
    if (fail_state == 2) {
        return left * clock_rules.fail_high_share;
    }
    f64 extra = 0.0;
    if (d > 3) {
        const i32 score = load(search_result.result_score);
        const i32 size = abs(score);
        const i32 fall = size >= clock_rules.large_score ? size / 16 : clock_rules.small_score_fall;
        for (i32 back = 1; back <= 2; ++back) {
            if (score <= load(search_result.score_by_depth[d - back]) - fall) {
                extra += left * clock_rules.score_drop_share;
            }
        }
        if (d - load(search_result.last_change_depth) > clock_rules.stable_depths) {
            extra -= limit * clock_rules.stable_share;
        }
    }
    return extra;
}

void check_time()
{
    update_elapsed();
    const f64 now = load(search_clock.elapsed);
    const i32 d = load(iter_depth);
    if (load(stop_code) != StopCode::None || load(engine_state) != EngineState::Thinking || d < 2
        || now < clock_rules.no_stop_before) {
        return;
    }
    const SearchLimits* limits = search_clock.limits;
    const u8 side = load(search_clock.clock_side);
    const f64 left = std::max(0.0, load(limits->clock_left[side]) - now);
    f64 limit = search_clock.target_time;
    f64 margin = 0.0;
    if (load(limits->tc_moves) != 1) {
        margin = std::min(search_clock.overhead_seconds, clock_rules.largest_margin);
        limit += extra_time(left, limit, d);
    }
    limit -= margin;
    const bool forced =
        load(search_result.single_reply) != 0 && d >= clock_rules.single_reply_depth;
    if (forced || clock_rules.flag_guard * margin > left || now >= limit) {
        end_search(StopCode::Report);
    }
}

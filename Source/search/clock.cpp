// The two halves of the clock: before a search the time that the move may take, during it the
// decision that it has taken enough. The first half spends so that the clock can never run out
// however long the game; the second may overdraw a little where the position asks for it, out of
// what the first has kept back, and never so far that the flag is in danger.
#include "search/clock.h"

#include <algorithm>
#include <cstdlib>

#include "base/clock.h"
#include "eval/evaluate.h"
#include "search/control.h"
#include "search/result.h"
#include "search/workers.h"

constinit SearchClock search_clock {};

// Rules of the allotment: moves, plies, Elo, factors of a time, seconds.
static constexpr struct {
    i32 first_moves = 32;    // moves to go at the start of a game without a control
    i32 later_moves = 23;    // the same once the opening is over
    i32 opening_plies = 20;  // how long the opening lasts
    f64 ponder_factor = 1.3; // time that predicted moves will save
    i32 ponder_moves = 2;    // moves to go that must remain for it
    i32 hurried_elo = 2400;  // a weaker setting plays faster
    f64 hurried_factor = 0.85;
    f64 increment_weight = 2;    // increments on the clock at which half of one is spent
    f64 ceiling_share = 0.65;    // of the clock
    f64 ceiling_overheads = 5.0; // overheads that stay on the clock besides
    f64 floor = 0.002;           // seconds
} time_rules;

// A search that aims at more seconds than this has no limit: it analyses and plays without
// contempt.
static constexpr f64 contempt_time_limit = 90000;

// Rules of the clock: seconds, shares of a time, depths of the iteration that runs.
static constexpr struct {
    f64 no_stop_before = 0.015;   // a search runs at least this long
    f64 largest_margin = 0.025;   // of the overhead, taken off the limit
    f64 fail_low_share = 0.25;    // of the time left, while the root fails low
    f64 fail_high_share = 0.1;    // of the time left, while it fails high
    f64 score_drop_share = 0.03;  // of the time left, for each depth that the score fell behind
    i32 score_drop_depths = 2;    // so many depths back are looked at
    i32 settled_depth = 3;        // up to it scores and moves have settled nothing
    f64 stable_share = 0.25;      // of the target, given back when the best move is stable
    i32 stable_depths = 4;        // depths that it must have stood for
    i32 small_score_fall = 20;    // centipawns that count as a fall
    i32 large_score = 336;        // centipawns; from here on a share of the score counts
    i32 large_score_divisor = 16; // which share
    i32 single_reply_depth = 6;   // iteration after which a single reply is played
    i32 first_stop_depth = 2;     // iteration before which no move has been found
    f64 flag_guard = 5.0;         // margins that must be left on the clock
} clock_rules;

// ---- Before the search

void start_clock(const SearchLimits* limits, f64 overhead_seconds)
{
    search_clock.limits = limits;
    search_clock.overhead_seconds = overhead_seconds;
    search_clock.start_time = monotonic_seconds();
    // Until the first look at the clock the last search's time must not count for this one.
    store(search_clock.elapsed, 0.0);
}

// The number of moves that the clock must last for, this one counted. Where the control is told
// with each move, what was told last stands.
// Without a control nobody knows how long the game goes on. The guess falls move by move through
// the opening, where the book or habit plays fast, and then stays: a fixed number of moves ahead
// spends a fixed share of what is left, so the time gets less but never ends.
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
// It is divided by one move more than there are: the reserve that the search may draw upon.
static f64 allotment(const SearchLimits* limits, const MoveTerms* terms, f64 left)
{
    f64 seconds = left / (limits->moves_to_go + 1);

    // A predicted move costs the opponent's time instead of ours, so more may be spent on the
    // others. Not on the last moves before a control: a wrong prediction there cannot be made good.
    const bool room =
        load(limits->tc_moves) == SuddenDeath || limits->moves_to_go > time_rules.ponder_moves;
    if (terms->ponder && room) {
        seconds *= time_rules.ponder_factor;
    }

    // A setting that plays weak anyway has less to lose by a hasty move than by a slow one.
    if (terms->elo < time_rules.hurried_elo) {
        seconds *= time_rules.hurried_factor;
    }

    // The increment comes back after the move, so nearly all of it may be spent while the clock is
    // full. The fewer increments are left on it, the smaller the share: half of one with two left.
    const f64 increment = limits->tc_increment;
    if (increment > 0) {
        seconds += increment * left / (left + time_rules.increment_weight * increment);
    }

    // Where the increment is large against the clock, or the control is said to be reached, this
    // would take nearly all of it. A third stays, for what the search may add to its target, and
    // some overheads for the way of the move to the clock.
    const f64 ceiling = time_rules.ceiling_share * left
        - time_rules.ceiling_overheads * search_clock.overhead_seconds;
    if (seconds > ceiling) {
        seconds = ceiling;
    }
    // Even on an empty clock a move has to be found. Written so that a division of nothing by
    // nothing ends at the floor too.
    return seconds >= time_rules.floor ? seconds : time_rules.floor;
}

void set_target_time(SearchLimits* limits, const MoveTerms* terms)
{
    // A fixed time is spent as it is; the clock becomes that of this one move.
    if (load(limits->tc_moves) == FixedTime) {
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
// A root that fails low has just lost its best move and has nothing in its place: a move made now
// would be a guess, so a good part of the clock goes into the answer. One that fails high has found
// something better; a little more time makes sure which move it is.
// A score that falls slowly, inside the window, tells of the same trouble more quietly. The more
// the game is decided the more the score swings, so a large one must fall further to count.
// A best move that has stood for some depths will hardly change: the rest of its time is better
// spent on a move that is hard to find.
static f64 extra_time(f64 left, f64 limit, i32 d)
{
    const SearchThread* master = load(workers[0]);
    u8 fail_state = InWindow;
    if (master != nullptr) {
        fail_state = load(master->fail_state);
    }
    if (fail_state == FailsLow) {
        return left * clock_rules.fail_low_share;
    }
    if (fail_state == FailsHigh) {
        return left * clock_rules.fail_high_share;
    }
    f64 extra = 0.0;
    if (d > clock_rules.settled_depth) {
        const i32 score = load(search_result.result_score);
        const i32 size = abs(score);
        const i32 fall = size >= clock_rules.large_score ? size / clock_rules.large_score_divisor
                                                         : clock_rules.small_score_fall;
        for (i32 back = 1; back <= clock_rules.score_drop_depths; ++back) {
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

    // 1. No search to end: none runs, it runs on the opponent's time, or it has no move yet. The
    // first moments are not looked at: what could be saved of them is lost in a look too late.
    if (load(stop_code) != StopCode::None || load(engine_state) != EngineState::Thinking
        || d < clock_rules.first_stop_depth || now < clock_rules.no_stop_before) {
        return;
    }

    // 2. How long this search may run by now. With a fixed time nothing is added, and nothing is
    // taken off, as no flag falls. Otherwise the move must be on its way a margin earlier: what
    // the connection may take of the clock, but no more than a look of the main thread or two, so
    // that a large overhead does not eat a short move.
    const SearchLimits* limits = search_clock.limits;
    const u8 side = load(search_clock.clock_side);
    const f64 left = std::max(0.0, load(limits->clock_left[side]) - now);
    f64 limit = search_clock.target_time;
    f64 margin = 0.0;
    if (load(limits->tc_moves) != FixedTime) {
        margin = std::min(search_clock.overhead_seconds, clock_rules.largest_margin);
        limit += extra_time(left, limit, d);
    }
    limit -= margin;

    // 3. The end: with one legal move nothing is to be decided, and a few depths only serve for a
    // score and a reply to ponder on; with a handful of margins left on the clock any search may
    // be the last, whatever the target says; else when the time is up.
    const bool forced =
        load(search_result.single_reply) != 0 && d >= clock_rules.single_reply_depth;
    if (forced || clock_rules.flag_guard * margin > left || now >= limit) {
        end_search(StopCode::Report);
    }
}

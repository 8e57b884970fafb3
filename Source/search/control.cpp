// The storage of what a search is told, and the one way to end it from inside. Nothing here is
// reset between searches: whoever starts one sets what it needs.
#include "search/control.h"

#include <atomic>

#include "search/limits.h"

constinit Shared<EngineState> engine_state {};
constinit Shared<StopCode> stop_code {};
constinit Shared<i32> iter_depth {};
constinit SearchSettings search_settings {};

static constexpr f64 start_seconds_per_move = 5.0;

// By exchange, not by a look and a store: between the two another thread could give its reason, and
// a search that is to end silently would report.
void end_search(StopCode code)
{
    StopCode running = StopCode::None;
    stop_code.value.compare_exchange_strong(running, code, std::memory_order_relaxed);
}

// A program that is started and told to think answers soon, without a clock that somebody would
// have to set first. The depth is no limit: time ends the search long before.
void init_limits(SearchLimits* limits)
{
    store(limits->tc_moves, FixedTime);
    limits->tc_seconds = start_seconds_per_move;
    limits->tc_increment = 0.0;
    store(limits->clock_left[White], start_seconds_per_move);
    store(limits->clock_left[Black], start_seconds_per_move);
    limits->moves_to_go = 0;
    store(limits->depth_limit, deepest_limit);
    limits->node_limit_total = 0;
}

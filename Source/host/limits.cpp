// The engine's rules of "go", put to use: which word lifts which limit, and what no word can say.
#include "host/limits.h"

#include <algorithm>

#include "board/types.h"
#include "host/text.h"

// The engine's deepest iteration.
static constexpr i64 deepest = 66;
// The engine varies a limit of nodes by a product in 32 bits, which a greater number overflows.
static constexpr i64 most_engine_nodes = 50000000;
// Milliseconds. Greater numbers are taken as these: some 24 days.
static constexpr i64 longest_time = 1 << 30;
// How the engine shares a clock without a control: over 32 moves less those played, from the 10th
// move on over 23.
static constexpr i32 plies_of_opening = 20;
static constexpr i32 opening_moves = 32;
static constexpr i32 later_moves = 23;
// Below this clock the engine's own first look, at 15 ms, comes too late. A third of what is left
// is spent then.
static constexpr f64 short_clock = 60.0;
static constexpr f64 short_clock_share = 1.0 / 3;
static constexpr f64 least_thinking = 0.5;
static constexpr f64 first_look = 20.0; // a fixed time below this is watched from outside
// What may pass of a clock before an answer is given without the engine.
static constexpr f64 last_share = 0.8;
static constexpr f64 short_last_share = 0.6;
static constexpr f64 patience = 3000.0; // milliseconds beyond a fixed time

// ---- Reading

static bool read_flag(std::string_view word, GoLimits* limits)
{
    if (word == "infinite") {
        limits->infinite = true;
    } else if (word == "ponder") {
        limits->ponder = true;
    } else {
        return false;
    }
    return true;
}

// The field of a word with a number, in the order of the words below.
static void set_limit(GoLimits* limits, size_t word, i64 value)
{
    const i64 time = std::clamp<i64>(value, 0, longest_time);
    switch (word) {
    case 0:
    case 1:
        limits->clock[word] = time;
        break;
    case 2:
    case 3:
        limits->increment[word - 2] = time;
        break;
    case 4:
        limits->moves_to_go = std::clamp<i64>(value, 1, 1000);
        break;
    case 5:
        limits->depth = std::clamp<i64>(value, 1, deepest);
        break;
    case 6:
        limits->nodes = std::max<i64>(value, 1);
        break;
    case 7:
        limits->move_time = std::max<i64>(time, 1);
        break;
    case 8:
        limits->mate = std::clamp<i64>(value, 1, deepest);
        break;
    default:
        limits->perft = std::clamp<i64>(value, 1, 20);
        break;
    }
}

static constexpr std::string_view number_words[] = { "wtime", "btime", "winc", "binc", "movestogo",
    "depth", "nodes", "movetime", "mate", "perft" };

static bool is_go_word(std::string_view word)
{
    return std::find(std::begin(number_words), std::end(number_words), word)
        != std::end(number_words)
        || word == "infinite" || word == "ponder" || word == "searchmoves";
}

// The moves go on until a word that is one of "go" itself.
static void read_search_moves(std::string_view* words, GoLimits* limits)
{
    limits->searches_some = true;
    for (;;) {
        std::string_view rest = *words;
        const std::string_view word = take_word(&rest);
        if (word.empty() || is_go_word(word)) {
            return;
        }
        limits->search_moves.emplace_back(word);
        *words = rest;
    }
}

GoLimits read_limits(std::string_view words, std::string* remark)
{
    GoLimits limits;
    for (std::string_view word = take_word(&words); !word.empty(); word = take_word(&words)) {
        if (read_flag(word, &limits)) {
            continue;
        }
        if (word == "searchmoves") {
            read_search_moves(&words, &limits);
            continue;
        }
        const auto* row = std::find(std::begin(number_words), std::end(number_words), word);
        std::string_view rest = words;
        i64 value = 0;
        if (row == std::end(number_words)) {
            *remark = "go: '" + std::string(shortened(word)) + "' is not known";
        } else if (!read_number(take_word(&rest), &value)) {
            *remark = "go: " + std::string(word) + " needs a number";
        } else {
            set_limit(&limits, static_cast<size_t>(row - number_words), value);
            words = rest;
        }
    }
    return limits;
}

// ---- Telling the engine

// Whether the mover's clock rules the search. A fixed time comes before it, and analysis has none.
static bool is_on_clock(const GoLimits* limits)
{
    return (limits->clock[White] || limits->clock[Black]) && !limits->move_time
        && !limits->infinite;
}

// The mover's clock. A host that tells the opponent's alone means equal ones, as far as it means
// anything.
static i64 own_clock(const GoLimits* limits, i32 side)
{
    return limits->clock[side] ? *limits->clock[side] : *limits->clock[side ^ 1];
}

static std::string word_and_number(const char* word, i64 value)
{
    return std::string(" ") + word + ' ' + std::to_string(value);
}

static std::string clock_words(const GoLimits* limits)
{
    const i64 white = own_clock(limits, White);
    const i64 black = own_clock(limits, Black);
    return word_and_number("wtime", white) + word_and_number("btime", black)
        + word_and_number("winc", limits->increment[White])
        + word_and_number("binc", limits->increment[Black]);
}

static i32 moves_without_control(i32 plies)
{
    return plies < plies_of_opening ? opening_moves - plies / 2 : later_moves;
}

// A control of so many moves lifts the limits of depth and nodes; and one of as many moves as the
// engine reckons with by itself changes nothing else.
static std::string clock_go(const GoLimits* limits, i32 plies, i32 sent_plies, LeftLimits* left)
{
    std::string go = "go" + clock_words(limits);
    const i32 usual = moves_without_control(plies);
    if (limits->moves_to_go) {
        go += word_and_number("movestogo", *limits->moves_to_go);
    } else if (left->depth || left->nodes || usual != moves_without_control(sent_plies)) {
        go += word_and_number("movestogo", usual);
    }
    *left = {};
    return go;
}

std::string words_for_engine(const GoLimits* limits, i32 plies, i32 sent_plies, LeftLimits* left)
{
    std::string go;
    const bool counts_nodes = limits->nodes && !nodes_to_watch(limits);
    if (is_on_clock(limits)) {
        go = clock_go(limits, plies, sent_plies, left);
    } else if (limits->infinite || (!limits->depth && !counts_nodes && !limits->move_time)) {
        go = "go infinite";
        *left = {};
    } else {
        go = "go";
        if (limits->depth || left->depth) {
            go += word_and_number("depth", limits->depth.value_or(deepest));
        }
        if (counts_nodes || left->nodes) {
            go += word_and_number("nodes", counts_nodes ? *limits->nodes : 0);
        }
        if (limits->move_time) {
            go += word_and_number("movetime", *limits->move_time);
        }
        *left = { limits->depth.has_value(), counts_nodes };
    }
    return limits->ponder ? go + " ponder" : go;
}

// ---- What is watched from outside

std::optional<f64> stop_after(const GoLimits* limits, i32 side)
{
    if (limits->infinite) {
        return std::nullopt;
    }
    if (limits->move_time) {
        const f64 time = static_cast<f64>(*limits->move_time);
        return time < first_look ? std::optional(std::max(time - 1, least_thinking)) : std::nullopt;
    }
    if (!is_on_clock(limits)) {
        return std::nullopt;
    }
    const f64 left = static_cast<f64>(own_clock(limits, side));
    if (left >= short_clock) {
        return std::nullopt;
    }
    return std::max(left * short_clock_share, least_thinking);
}

std::optional<f64> answer_within(const GoLimits* limits, i32 side)
{
    if (limits->infinite) {
        return std::nullopt;
    }
    if (limits->move_time) {
        return static_cast<f64>(*limits->move_time) + patience;
    }
    if (!is_on_clock(limits)) {
        return std::nullopt;
    }
    const f64 left = static_cast<f64>(own_clock(limits, side));
    return std::max(left * (left < short_clock ? short_last_share : last_share), least_thinking);
}

// Words of depth and nodes switch the engine's clock off, so beside a clock both are watched.
std::optional<i64> nodes_to_watch(const GoLimits* limits)
{
    if (limits->infinite || (!is_on_clock(limits) && limits->nodes <= most_engine_nodes)) {
        return std::nullopt;
    }
    return limits->nodes;
}

std::optional<i64> depth_to_watch(const GoLimits* limits)
{
    return is_on_clock(limits) ? limits->depth : std::nullopt;
}

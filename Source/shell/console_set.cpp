// The word "set" of the console: a key and its values. Values are read as numbers, as far as they
// go, and a missing one is 0. Settings of the next search do not disturb the one that runs; limits,
// which it shares, act on it at once.
#include "shell/console_set.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/output.h"
#include "base/text.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/strength.h"
#include "shell/search_fields.h"

// As the option MultiPV allows.
static constexpr i32 most_lines = 255;
static constexpr i32 lowest_depth = -128;    // what dialogue->limits.depth_limit can hold
static constexpr i16 never_deep_enough = 99; // a rule that starts at this depth is off
static constexpr size_t key_size = 32;       // with its NUL
static constexpr f64 seconds_per_minute = 60.0;

// 0 leaves the table alone, 1 uses it and clears it before each "go", 2 and above keep it between
// them.
static void set_hash_mode(Dialogue*, const Words* words)
{
    store(hash.mode, read_i32(words->text[2]));
}

// Seconds before which a search shows no line; a fast search would flood a terminal.
static void set_noise(Dialogue*, const Words* words)
{
    store(noise, read_real(words->text[2]));
}

// Lines of a search, the best first. Held to the range of the option, as the keys of search
// parameters are not: no lines at all, or more than the search has room for, would be no search.
static void set_lines(Dialogue* dialogue, const Words* words)
{
    dialogue->engine_options.multi_pv =
        static_cast<i16>(std::clamp(read_i32(words->text[2]), 1, most_lines));
}

// Any value but 0 shows the evaluation with every board.
static void set_debug(Dialogue*, const Words* words)
{
    store(search_settings.debug_flag, read_i32(words->text[2]));
}

// Seconds, or minutes:seconds.
static f64 read_time(const char* text)
{
    const f64 first = read_i32(text);
    const char* colon = strchr(text, ':');
    return colon == nullptr ? first : first * seconds_per_minute + read_i32(colon + 1);
}

// Moves per control, time, and seconds added per move; moves 0 for the whole game, 1 for a fixed
// time. Both clocks begin anew, since what is left of an older control means nothing in this one.
// Missing values are zero: the engine then moves at once.
static void set_level(Dialogue* dialogue, const Words* words)
{
    store(dialogue->limits.tc_moves, read_i32(words->text[2]));
    dialogue->limits.tc_seconds = read_time(words->text[3]);
    store(dialogue->limits.clock_left[White], dialogue->limits.tc_seconds);
    store(dialogue->limits.clock_left[Black], dialogue->limits.tc_seconds);
    dialogue->limits.tc_increment = read_real(words->text[4]);
    print_line_format("set level to %d moves in %0.2f seconds, inc %0.2f",
        load(dialogue->limits.tc_moves), dialogue->limits.tc_seconds,
        dialogue->limits.tc_increment);
}

// Plies; a value that the limit cannot hold becomes its nearest.
static void set_depth(Dialogue* dialogue, const Words* words)
{
    store(dialogue->limits.depth_limit,
        std::clamp(read_i32(words->text[2]), lowest_depth, deepest_limit));
}

// Nodes a second. The limit is one of strength, so it is switched on with its rate; the preparation
// of the next search makes the rate anew from UCI_Elo, if that is set.
static void set_node_rate(Dialogue* dialogue, const Words* words)
{
    dialogue->engine_options.limit_strength = 1;
    store(strength.target_nps, static_cast<f64>(read_integer(words->text[2])));
    print_line_format("target_nps set to %.0f", load(strength.target_nps));
}

// "ss 1" goes back to the options as "uci" would announce them, all of them and not only those of
// "ss". Else rules that begin at a depth are put behind all depths, and those that end at one
// before all. The drop into quiescence and ProbCut stay.
static void set_selective_search(Dialogue* dialogue, const Words* words)
{
    if (read_i32(words->text[2]) == 1) {
        dialogue->engine_options = dialogue->saved_options;
        print_line("set default personality");
        return;
    }
    dialogue->engine_options.search.NMP_depth = never_deep_enough;
    dialogue->engine_options.search.SEP_depth = 0;
    dialogue->engine_options.search.LMP_depth = 0;
    dialogue->engine_options.search.LMR_depth = never_deep_enough;
    print_line("selectivity set to OFF");
}

struct SetKey {
    std::string_view key;
    void (*set)(Dialogue* dialogue, const Words* words);
};

// This key takes a longer one that contains it too.
static constexpr std::string_view lines_key = "multipv";

static constexpr SetKey set_keys[] = {
    { "hash", set_hash_mode },
    { "noise", set_noise },
    { lines_key, set_lines },
    { "debug", set_debug },
    { "level", set_level },
    { "depth", set_depth },
    { "target_nps", set_node_rate },
    { "ss", set_selective_search },
};

// Keys that write one number, beside those of the search's parameters.
struct SetField {
    std::string_view key;
    i16 EngineOptions::*option;
};

static constexpr SetField set_fields[] = {
    { "Selectivity", &EngineOptions::selectivity },
    { "ponder", &EngineOptions::ponder },
};

// The number that a key writes, or null.
static i16* field_of_key(EngineOptions* options, std::string_view key)
{
    for (const SearchField& row : search_fields) {
        if (row.name == key && (row.at_console || tuning)) {
            return &(options->search.*row.param);
        }
    }
    for (const SetField& row : set_fields) {
        if (row.key == key) {
            return &(options->*row.option);
        }
    }
    return nullptr;
}

// Exact, in capitals and small letters, but for the key of the lines.
static bool is_key(std::string_view key, std::string_view text)
{
    return text == key || (key == lines_key && text.find(key) != std::string_view::npos);
}

static void apply_setting(Dialogue* dialogue, const char* key, const Words* words)
{
    for (const SetKey& row : set_keys) {
        if (is_key(row.key, key)) {
            row.set(dialogue, words);
            return;
        }
    }
    // Held to 16 bits and to no range, unlike an option: this is for trying out what a rule does.
    if (i16* const value = field_of_key(&dialogue->engine_options, key); value != nullptr) {
        *value = narrow_to_i16(read_i32(words->text[2]));
        print_line_format("%s set to %d", key, *value);
    }
}

// Even a key that is none lets the next search rebuild its tables, and say so.
void change_setting(Dialogue* dialogue, Words* words, const char*)
{
    char key[key_size];
    copy_text(key, sizeof key, words->text[1]);
    apply_setting(dialogue, key, words);
    dialogue->engine_options.params_changed = 1;
    publish_options(dialogue);
}

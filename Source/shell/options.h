// The user's options by name: setting, announcing, and the configuration file.
#pragma once

#include <span>
#include <string_view>

#include "eval/weights.h"
#include "shell/dialogue.h"

// Applies one setting and prints what was set. value may be altered. Unknown names do nothing. A
// setting that needs a pause (Hash, Threads, SyzygyPath) ends a running search, which is answered
// when "stop" comes; others hold from the next search on. Ends the process where memory or threads
// for it cannot be had. Main thread.
void set_option(Dialogue* dialogue, const char* name, char* value);

// Prints the option lines of "uci" with the values of dialogue->saved_options, and sets an Elo
// there that nobody has set to this machine's estimate.
void announce_options(Dialogue* dialogue);

// Reads config_file_path line by line through set_option. Returns 1, or 0 if it cannot be opened,
// is no regular file, or was named by too many others. What it set becomes the announced defaults.
// Lines that set nothing are passed over.
i32 load_config_file(Dialogue* dialogue);

// The options that scale weights, in the order of announcement: each takes two per cents, of the
// middle game's and of the end game's values, in this range.
struct NamedScale {
    std::string_view name;
    WeightScale WeightScales::*scale;
};
inline constexpr i32 lowest_scale = 20; // keeps every term in play and none far above the others
inline constexpr i32 highest_scale = 200;
[[nodiscard]] std::span<const NamedScale> scale_options();

// Whether there is an option of that name, letter by letter.
[[nodiscard]] bool is_option_name(std::string_view name);

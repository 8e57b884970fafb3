// The options as the host sees them, and what of them the engine has to hear: the engine's own, by
// the names and ranges that it announces itself, and those that vesk-uci adds.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"

enum class SettingKind { Check, Spin, Text, Button };

struct Setting {
    std::string name;
    SettingKind kind;
    bool of_engine;
    std::string start; // the default that is announced
    i64 lowest;        // of a spin
    i64 highest;
    std::string value;
    std::string sent; // what the engine works with; of_engine only
    std::string good; // the last value that the engine is known to have survived
    i64 turn = 0;     // counts the changes of all options: the later one is the greater
};

struct HostSettings {
    std::vector<Setting> list; // in the order of announcement
    i64 machine_elo = 0;       // what this machine was measured at
    i64 turns = 0;             // changes so far
};

// Adds an option of the engine from its line "option name ...", with vesk-uci's own range where
// that differs; an option that is known already gets the value that the line announces, as sent.
void learn_option(HostSettings* settings, std::string_view line);

// Adds vesk-uci's own options, once the engine's are known.
void add_own_options(HostSettings* settings);

// The lines that announce all options.
[[nodiscard]] std::vector<std::string> option_lines(const HostSettings* settings);

// What a "setoption" came to.
struct SettingResult {
    std::string remark;     // for the user, empty if there is nothing to say
    const Setting* changed; // null if nothing was
};

// Applies the words behind "setoption". Names are taken without regard to case, blanks and
// underscores; numbers out of range become the nearest; what cannot be used is refused with a
// remark and changes nothing. A button needs no value.
[[nodiscard]] SettingResult change_setting(HostSettings* settings, std::string_view words);

// The setting of a name as it stands in this program's own code; there must be one.
[[nodiscard]] const Setting* find_setting(const HostSettings* settings, std::string_view name);
[[nodiscard]] bool is_on(const HostSettings* settings, std::string_view name);

// The lines that bring the engine from what it works with to what the host wants, and notes them as
// sent. lines is the number of moves to show in an analysis in place of MultiPV, 0 for MultiPV's.
[[nodiscard]] std::vector<std::string> lines_for_engine(HostSettings* settings, i32 lines);

// An engine has been started anew: it works with what its option lines said at first.
void forget_sent(HostSettings* settings);

// The engine has answered behind all that was sent, or has died of it: then what it had not
// survived before goes back. Returns the names and values taken back, for the user.
void confirm_sent(HostSettings* settings);
[[nodiscard]] std::string take_back_unconfirmed(HostSettings* settings);

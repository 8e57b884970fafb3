// The life of the engine behind the relay. It is a process of its own: a crash, a lack of memory or
// a kill from outside costs one search, and the host hears of it.
#include <string>
#include <string_view>
#include <vector>

#include "host/relay_state.h"
#include "host/text.h"
#include "main/engine.h"

// Starts that fail in a row, after which no more are tried until the host begins a new game.
static constexpr i32 most_failures = 3;

static int run_child_engine(void*)
{
    char name[] = "vesk-uci";
    char* words[] = { name, nullptr };
    return run_engine(1, words);
}

static void ask_whether_ready(Relay* relay)
{
    tell_engine(relay, "isready");
    relay->ready_owners.push_back(ReadyOwner::Relay);
}

void start_engine(Relay* relay)
{
    relay->ready_owners.clear();
    relay->sent_position.clear();
    relay->left = {};
    if (const int error = start_process(&relay->engine, run_child_engine, nullptr); error != 0) {
        remark_to_host(relay, "the engine cannot be started: error " + std::to_string(error));
        relay->failures = most_failures;
        relay->starting = false;
        return;
    }
    relay->starting = true;
    relay->learning = true;
    tell_engine(relay, "uci");
    ask_whether_ready(relay);
}

// An answer that the host waits for must not be lost with the engine: what it had asked for is
// asked again. Settings that the engine has not survived go back to what it was known to survive.
void restart_engine(Relay* relay, std::string_view reason)
{
    end_process(&relay->engine);
    size_t asked = 0;
    for (const ReadyOwner owner : relay->ready_owners) {
        asked += owner == ReadyOwner::Host;
    }
    for (; asked > 0; --asked) {
        relay->waiting.emplace_front("isready");
        relay->waiting_size += sizeof "isready";
    }
    remark_to_host(relay, "the engine " + std::string(reason) + "; another one is started");
    if (const std::string names = take_back_unconfirmed(&relay->settings); !names.empty()) {
        remark_to_host(relay, "taken back: " + names);
    }
    answer_without_engine(relay);
    ++relay->failures;
    if (relay->failures > most_failures) {
        relay->starting = false;
        remark_to_host(relay, "the engine does not come up; a new game tries again");
        return;
    }
    start_engine(relay);
}

// The answer behind settings that take memory or threads shows that the engine has survived them.
void send_settings(Relay* relay, i32 lines, bool quiet)
{
    if (!is_running(&relay->engine)) {
        return;
    }
    const std::vector<std::string> told = lines_for_engine(&relay->settings, lines);
    bool reads_file = false;
    for (const std::string& line : told) {
        tell_engine(relay, line);
        reads_file |= line.starts_with("setoption name ConfigFilePath");
    }
    if (told.empty()) {
        return;
    }
    // The file may have set anything: the engine is asked for its options anew.
    if (reads_file) {
        relay->learning = true;
        tell_engine(relay, "uci");
    }
    ask_whether_ready(relay);
    relay->is_quiet = quiet;
}

static void take_ready(Relay* relay)
{
    if (relay->ready_owners.empty()) {
        return;
    }
    const ReadyOwner owner = relay->ready_owners.front();
    relay->ready_owners.pop_front();
    if (owner == ReadyOwner::Host) {
        tell_host(relay, "readyok");
        return;
    }
    confirm_sent(&relay->settings);
    relay->is_quiet = false;
    if (relay->starting) {
        relay->starting = false;
        relay->failures = 0;
        send_settings(relay, 0, true);
    }
}

// The options are learnt in two steps: at first what there is, with what the engine starts from.
static void take_option_end(Relay* relay)
{
    relay->learning = false;
    if (!relay->knows_options) {
        add_own_options(&relay->settings);
        relay->knows_options = true;
    }
}

void take_engine_line(Relay* relay, const std::string& line)
{
    std::string_view rest = line;
    const std::string_view word = take_word(&rest);
    if (word == "readyok") {
        take_ready(relay);
    } else if (word == "bestmove") {
        take_best_move(relay, line);
    } else if (relay->learning) {
        if (word == "option" && (!relay->knows_options || !relay->starting)) {
            learn_option(&relay->settings, line);
        } else if (word == "uciok") {
            const bool again = relay->knows_options && relay->starting;
            take_option_end(relay);
            if (again) {
                forget_sent(&relay->settings);
            }
        } else if (word == "info" && !relay->starting) {
            tell_host(relay, line); // of a file of options
        }
    } else if (relay->starting || trimmed(line).empty()) {
        return; // what it says of its start helps nobody in the middle of a game
    } else if (word == "info" && !trimmed(rest).starts_with("string")) {
        take_info(relay, line);
    } else if (word == "info") {
        if (!relay->is_quiet) {
            tell_host(relay, line);
        }
    } else {
        remark_to_host(relay, line); // no word of UCI
    }
}

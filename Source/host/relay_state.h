// What stands between a host and the engine, as one record that the routines of the relay work on.
// One thread does all of it: it sleeps until a line, a signal or a moment of the clock is there.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/debug_log.h"
#include "host/game.h"
#include "host/jobs.h"
#include "host/limits.h"
#include "host/lines.h"
#include "host/process.h"
#include "host/settings.h"

// Seconds on the monotonic clock; none: never.
using Moment = std::optional<f64>;

// One "go" of the host, from its line to its "bestmove".
struct HostSearch {
    bool runs = false;        // the host is owed a "bestmove"
    bool engine_runs = false; // the engine owes one; it may outlast the host's
    bool released = true;     // the answer may go out as soon as it is known
    bool stopped = false;     // the engine has been told to stop
    bool unwanted = false;    // the host has asked for its end
    bool pondering = false;
    bool beyond = false; // the engine has gone deeper than it should: its own choice is another's
    GoLimits limits;
    std::string answer; // the line to give, once known
    // The line found last: its first two moves.
    std::string best;
    std::string reply;
    // Of "searchmoves": the moves allowed; and of the lines of one pass, the engine's number of the
    // last and how many of them were allowed ones.
    std::vector<std::string> allowed;
    i64 last_number = 0;
    i64 rank = 0;
    f64 start = 0.0;   // when the engine was told to go
    Moment stop_at;    // the engine is told to stop
    Moment answer_by;  // an answer goes out, whatever the engine does
    Moment give_up_at; // an engine that has not stopped by then is started anew
};

// Whose "isready" the engine is about to answer.
enum class ReadyOwner { Host, Relay };

struct Relay {
    LineSource from_host;
    LineSink to_host;
    Process engine;
    bool starting = false; // the engine has not answered its first lines yet
    bool learning = false; // its option lines are on their way
    i32 failures = 0;      // starts in a row that came to nothing
    HostSettings settings;
    bool knows_options = false;
    std::deque<ReadyOwner> ready_owners;
    bool is_quiet = false; // what the engine says of its settings is not the host's doing
    HostGame game;
    std::string sent_position; // the line that the engine's board was set up by
    i32 sent_plies = 0;
    LeftLimits left;
    HostSearch search;
    Job job;
    std::deque<std::string> waiting; // lines of the host that wait for an end of the search
    size_t waiting_size = 0;         // characters
    DebugLog log;
    i32 reported_drops = 0; // lines too long, of which the host has been told
    bool quit = false;
    bool ending = false; // the input is over: what is left is answered, and that is all
    f64 input_end = 0.0;
    Moment end_by;
};

[[nodiscard]] f64 now_seconds();

// Sends a line to the host; logged.
void tell_host(Relay* relay, std::string_view line);
// The same as "info string", for the person before the screen.
void remark_to_host(Relay* relay, std::string_view text);
void tell_engine(Relay* relay, std::string_view line);

// ---- relay_engine.cpp: the engine's life

// Starts the engine, if it can be, and asks it for its options.
void start_engine(Relay* relay);

// The engine has ended, or is ended now because it hangs: the host is answered and told, and
// another engine takes over.
void restart_engine(Relay* relay, std::string_view reason);

// Tells the engine what the host has set since. lines as in lines_for_engine; quiet keeps what the
// engine says to it from the host, who has set nothing just now.
void send_settings(Relay* relay, i32 lines, bool quiet);

// Acts on a line of the engine.
void take_engine_line(Relay* relay, const std::string& line);

// ---- relay_search.cpp: one "go"

void begin_search(Relay* relay, std::string_view words);

// The host wants its answer, or the relay does: ends the search.
void stop_search(Relay* relay);
void hit_ponder_move(Relay* relay);

// What the engine says of a search: an "info" line, its "bestmove".
void take_info(Relay* relay, const std::string& line);
void take_best_move(Relay* relay, const std::string& line);

// The engine has died: the search gets an answer without it.
void answer_without_engine(Relay* relay);

// Does what is due by now.
void watch_search(Relay* relay);

// The next moment at which there may be something to do.
[[nodiscard]] Moment next_moment(const Relay* relay);

// ---- relay_person.cpp: words for a person, with what stands behind them

void show_board(Relay* relay, std::string_view words);
void show_evaluation(Relay* relay, std::string_view words);
void run_perft(Relay* relay, std::string_view words);
void run_benchmark_word(Relay* relay, std::string_view words);
void show_help(Relay* relay, std::string_view words);

// ---- relay.cpp

// Whether lines that change anything have to wait.
[[nodiscard]] bool is_busy(const Relay* relay);

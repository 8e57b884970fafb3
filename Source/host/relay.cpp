// The dialogue with the host. What it says is acted upon in its own order: a line that would change
// something under a search waits for the end of that search, and a line that can only mean that the
// search is no longer wanted ends it. Every "go" gets one "bestmove", every "isready" its answer.
#include "host/relay.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/version.h"
#include "board/tables.h"
#include "host/relay_state.h"
#include "host/table_check.h"
#include "host/text.h"
#include "shell/weights_file.h"

// Characters of lines that wait, at most; those beyond are dropped, and the host is told.
static constexpr size_t most_waiting = 1 << 26;
static constexpr size_t most_waiting_lines = 1 << 14;
// Seconds that the answers may take once the input is over, and a job that somebody may still read.
static constexpr f64 longest_end = 2.0;
static constexpr f64 longest_job_end = 60.0;
static constexpr f64 last_flush = 0.2;
static constexpr char default_log[] = "vesk.log";

f64 now_seconds()
{
    return monotonic_seconds();
}

// ---- Lines out

static void note(Relay* relay, char direction, std::string_view line)
{
    if (const int error = log_text(&relay->log, direction, line); error != 0) {
        remark_to_host(relay, std::string("the log is closed: ") + strerror(error));
    }
}

void tell_host(Relay* relay, std::string_view line)
{
    put_line(&relay->to_host, line);
    note(relay, '<', line);
}

void remark_to_host(Relay* relay, std::string_view text)
{
    tell_host(relay, "info string " + std::string(text));
}

// Written at once where the pipe has room: a "stop" does not wait for the next turn of the loop.
void tell_engine(Relay* relay, std::string_view line)
{
    put_line(&relay->engine.to, line);
    flush_sink(&relay->engine.to);
}

// ---- Words of UCI

static void introduce(Relay* relay, std::string_view)
{
    tell_host(relay, "id name " + std::string(version_string));
    tell_host(relay, "id author Brin Tolvey");
    for (const std::string& line : option_lines(&relay->settings)) {
        tell_host(relay, line);
    }
    // Weights of another game than the user may think of.
    if (access(params_file, R_OK) == 0) {
        remark_to_host(relay, "weights are read from params.txt in the current folder");
    }
    tell_host(relay, "uciok");
}

static void ask_ready(Relay* relay, std::string_view)
{
    if (!is_running(&relay->engine)) {
        tell_host(relay, "readyok");
        return;
    }
    tell_engine(relay, "isready");
    relay->ready_owners.push_back(ReadyOwner::Host);
}

static void open_debug_log(Relay* relay, const std::string& name)
{
    if (const int error = begin_log(&relay->log, name); error != 0) {
        remark_to_host(relay, "no log " + relay->log.name + ": " + strerror(error));
    } else if (!name.empty()) {
        remark_to_host(relay, "the dialogue is written to " + relay->log.name);
    }
}

// Tables that are not where they are looked for are no error to the engine.
static void report_missing_folders(Relay* relay, const std::string& path)
{
    char folder[PATH_MAX];
    for (const char* rest = path.c_str(); next_folder(&rest, folder, sizeof folder);) {
        const FolderKind kind = look_at_folder(folder);
        if (kind != FolderKind::Readable) {
            remark_to_host(relay,
                std::string("SyzygyPath: ")
                    + (kind == FolderKind::Missing         ? "there is no folder "
                            : kind == FolderKind::NoFolder ? "no folder, but a file: "
                                                           : "not open to this user: ")
                    + std::string(shortened(folder)));
        }
    }
}

static void set_option_word(Relay* relay, std::string_view words)
{
    const SettingResult result = change_setting(&relay->settings, words);
    if (!result.remark.empty()) {
        remark_to_host(relay, result.remark);
    }
    if (result.changed == nullptr) {
        return;
    }
    const Setting& setting = *result.changed;
    if (setting.kind == SettingKind::Button) {
        tell_engine(relay, "setoption name Clear_Hash value true");
    } else if (setting.name == "Debug Log File") {
        open_debug_log(relay, setting.value);
    } else if (setting.name == "Log") {
        open_debug_log(relay, setting.value == "true" ? default_log : "");
    } else if (setting.name == "SyzygyPath") {
        report_missing_folders(relay, setting.value);
    }
    send_settings(relay, 0, false);
}

// A new game is a new try for an engine that does not come up.
static void start_new_game(Relay* relay, std::string_view)
{
    if (!is_running(&relay->engine)) {
        relay->failures = 0;
        start_engine(relay);
        return;
    }
    tell_engine(relay, "ucinewgame");
    // The engine counts its moves anew, so the board is set up again even if it is the same.
    relay->sent_position.clear();
}

static void set_up_board(Relay* relay, std::string_view words)
{
    set_up_game(&relay->game, words);
    if (!relay->game.defect.empty()) {
        remark_to_host(relay, "position: " + relay->game.defect);
    } else if (!relay->game.remark.empty()) {
        remark_to_host(relay, "position: " + relay->game.remark);
    }
}

static void go(Relay* relay, std::string_view words)
{
    std::string_view rest = words;
    if (take_word(&rest) == "perft") {
        run_perft(relay, rest);
    } else {
        begin_search(relay, words);
    }
}

static void end_what_runs(Relay* relay, std::string_view)
{
    if (is_running(&relay->job.process)) {
        end_job(&relay->job);
    }
    if (relay->search.runs) {
        stop_search(relay);
    }
}

static void hit(Relay* relay, std::string_view)
{
    hit_ponder_move(relay);
}

// From here on only what was said before is answered.
static void end_input(Relay* relay)
{
    relay->ending = true;
    relay->input_end = now_seconds();
    relay->end_by = relay->input_end + longest_end;
}

// What was said before is still answered, as for the end of the input: a script says all of its
// words at once. A person at a terminal who leaves in the middle of a job means it.
static void leave(Relay* relay, std::string_view)
{
    if (isatty(STDIN_FILENO)) {
        end_job(&relay->job);
    }
    end_input(relay);
}

static void pass_over(Relay*, std::string_view)
{
}

// ---- The table of words

// When a line is acted upon.
enum class When {
    Now,   // whatever runs
    Idle,  // when no search and no job runs
    Search // at once for the search that runs, unless a "go" waits before it
};

struct HostWord {
    std::string_view word;
    When when;
    bool replaces; // a search that runs is no longer wanted
    void (*run)(Relay* relay, std::string_view words);
};

static constexpr HostWord host_words[] = {
    { "uci", When::Search, false, introduce },
    { "isready", When::Search, false, ask_ready },
    { "setoption", When::Idle, false, set_option_word },
    { "ucinewgame", When::Idle, true, start_new_game },
    { "position", When::Idle, false, set_up_board },
    { "go", When::Idle, true, go },
    { "stop", When::Search, true, end_what_runs },
    { "ponderhit", When::Search, false, hit },
    { "quit", When::Now, false, leave },
    { "debug", When::Now, false, pass_over },
    { "register", When::Now, false, pass_over },
    { "d", When::Idle, false, show_board },
    { "eval", When::Idle, false, show_evaluation },
    { "perft", When::Idle, true, run_perft },
    { "bench", When::Idle, true, run_benchmark_word },
    { "help", When::Now, false, show_help },
};

static const HostWord* find_word(std::string_view line)
{
    const std::string_view word = take_word(&line);
    const auto* found = std::find_if(std::begin(host_words), std::end(host_words),
        [word](const HostWord& row) { return row.word == word; });
    return found == std::end(host_words) ? nullptr : found;
}

static void act(Relay* relay, const HostWord* word, std::string_view line)
{
    take_word(&line);
    word->run(relay, trimmed(line));
}

bool is_busy(const Relay* relay)
{
    return relay->starting || relay->search.runs || relay->search.engine_runs
        || is_running(&relay->job.process);
}

// Whether a line may be acted upon now, with nothing before it.
static bool may_act(const Relay* relay, const HostWord* word)
{
    if (word->when == When::Now || !is_busy(relay)) {
        return true;
    }
    // Behind a "stop" everything waits for the answer. A search that is over has no say in the jobs
    // that follow it: those are ended by a "stop" of their own.
    const HostSearch& search = relay->search;
    const bool is_ending = search.unwanted && (search.runs || search.engine_runs);
    return word->when == When::Search && !relay->starting && !is_ending;
}

// Takes a line out of those that wait, and acts on it.
static void act_on_waiting(Relay* relay, size_t number)
{
    const auto place = std::next(relay->waiting.begin(), static_cast<long>(number));
    const std::string line = *place;
    relay->waiting.erase(place);
    relay->waiting_size -= line.size() + 1;
    act(relay, find_word(line), line);
}

// Acts on what has waited, as far as that goes. Words for the search that runs go before those that
// wait for its end; and a search is ended if a line behind it does not want it any more.
static void work_off(Relay* relay)
{
    size_t number = 0;
    while (number < relay->waiting.size() && !relay->quit) {
        const HostWord* word = find_word(relay->waiting[number]);
        if (may_act(relay, word) && (number == 0 || word->when == When::Search)) {
            act_on_waiting(relay, number);
            number = 0; // its act may have let others go
        } else if (relay->search.runs && word->replaces && !relay->search.unwanted) {
            stop_search(relay);
            number = 0;
        } else if (word->replaces) {
            return; // what comes behind it is not for this search
        } else {
            ++number;
        }
    }
}

static void take_host_line(Relay* relay, const std::string& line)
{
    note(relay, '>', line);
    if (trimmed(line).empty()) {
        return;
    }
    const HostWord* word = find_word(line);
    if (word == nullptr) {
        tell_host(relay,
            "Unknown command: '" + std::string(shortened(trimmed(line)))
                + "'. Type help for the words that there are.");
        return;
    }
    if (may_act(relay, word) && (relay->waiting.empty() || word->when == When::Now)) {
        act(relay, word, line);
        return;
    }
    if (relay->waiting_size + line.size() >= most_waiting
        || relay->waiting.size() >= most_waiting_lines) {
        remark_to_host(relay, "too much waits; dropped: " + std::string(shortened(line)));
        return;
    }
    relay->waiting.push_back(line);
    relay->waiting_size += line.size() + 1;
    // A line that waits for the end of a search changes nothing yet.
    if (word->replaces || word->when == When::Search) {
        work_off(relay);
    }
}

// ---- The loop

// What the loop sleeps on.
struct Descriptors {
    int signals;
    int parent; // -1 until the host has said something
};

// Signals that end a program are read like input, so that no process stays behind.
static int open_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : { SIGTERM, SIGINT, SIGHUP, SIGQUIT }) {
        sigaddset(&set, number);
    }
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC);
}

// A descriptor that becomes readable when the process that started this one has ended, since a pipe
// may be held open by some other process it has left. Taken with the host's first line: a script
// that starts an engine and goes away has gone by then. -1 if the system has no such thing.
static int open_parent()
{
#ifdef SYS_pidfd_open
    const pid_t parent = getppid();
    return parent > 1 ? static_cast<int>(syscall(SYS_pidfd_open, parent, 0)) : -1;
#else
    return -1;
#endif
}

static timespec time_until(f64 moment)
{
    const f64 seconds = std::max(0.0, moment - now_seconds());
    const auto whole = static_cast<time_t>(seconds);
    return { whole, static_cast<long>((seconds - static_cast<f64>(whole)) * 1e9) };
}

enum Slot : size_t {
    FromHost,
    ToHost,
    FromEngine,
    ToEngine,
    FromJob,
    ToJob,
    Signals,
    Parent,
    Slots
};

static short writes(const LineSink* sink)
{
    return static_cast<short>(sink->pending.empty() ? 0 : POLLOUT);
}

// Sleeps until there is something to do.
static void wait_for_events(const Relay* relay, const Descriptors* others, pollfd* events)
{
    // A host that does not read its lines gets no more made, and what it says is still heard.
    const bool full = relay->to_host.pending.size() > full_sink;
    events[FromHost] = { relay->ending ? -1 : relay->from_host.descriptor, POLLIN, 0 };
    events[ToHost] = { relay->to_host.descriptor, writes(&relay->to_host), 0 };
    events[FromEngine] = { full ? -1 : relay->engine.from.descriptor, POLLIN, 0 };
    events[ToEngine] = { relay->engine.to.pending.empty() ? -1 : relay->engine.to.descriptor,
        POLLOUT, 0 };
    events[FromJob] = { full ? -1 : relay->job.process.from.descriptor, POLLIN, 0 };
    events[ToJob] = { relay->job.process.to.pending.empty() ? -1 : relay->job.process.to.descriptor,
        POLLOUT, 0 };
    events[Signals] = { others->signals, POLLIN, 0 };
    events[Parent] = { others->parent, POLLIN, 0 };
    const Moment next = next_moment(relay);
    const timespec time = time_until(next.value_or(0));
    if (ppoll(events, Slots, next ? &time : nullptr, nullptr) < 0) {
        for (size_t i = 0; i < Slots; ++i) {
            events[i].revents = 0;
        }
    }
}

static void read_host(Relay* relay)
{
    fill_source(&relay->from_host);
    std::string line;
    while (!relay->ending && take_line(&relay->from_host, &line)) {
        take_host_line(relay, line);
    }
    if (relay->from_host.dropped > relay->reported_drops) {
        relay->reported_drops = relay->from_host.dropped;
        remark_to_host(relay, "a line of more than a megabyte was dropped");
    }
    if (relay->from_host.at_end && !relay->ending) {
        end_input(relay);
    }
}

static void read_engine(Relay* relay)
{
    fill_source(&relay->engine.from);
    std::string line;
    while (is_running(&relay->engine) && take_line(&relay->engine.from, &line)) {
        take_engine_line(relay, line);
    }
    if (is_running(&relay->engine) && relay->engine.from.at_end) {
        restart_engine(relay, "has ended");
    }
}

static void read_job(Relay* relay)
{
    fill_source(&relay->job.process.from);
    std::string line;
    while (take_line(&relay->job.process.from, &line)) {
        for (const std::string& shown : shown_lines(&relay->job, line)) {
            tell_host(relay, shown);
        }
    }
    if (is_done(&relay->job) || relay->job.process.from.at_end) {
        end_job(&relay->job);
    }
}

// Whether nothing is left to be done.
static bool is_over(const Relay* relay)
{
    if (relay->quit || relay->to_host.broken) {
        return true;
    }
    if (!relay->ending) {
        return false;
    }
    const bool is_idle = relay->waiting.empty() && !relay->search.runs
        && !is_running(&relay->job.process) && relay->ready_owners.empty();
    return (is_idle && relay->to_host.pending.empty()) || now_seconds() >= *relay->end_by;
}

static void turn(Relay* relay, Descriptors* others)
{
    pollfd events[Slots];
    wait_for_events(relay, others, events);
    if (events[Signals].revents != 0 || events[Parent].revents != 0
        || (events[ToHost].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        relay->quit = true;
        return;
    }
    if (events[FromHost].revents != 0) {
        read_host(relay);
        if (others->parent < 0) {
            others->parent = open_parent();
        }
    }
    if (events[FromEngine].revents != 0) {
        read_engine(relay);
    }
    if (events[FromJob].revents != 0 && is_running(&relay->job.process)) {
        read_job(relay);
    }
    watch_search(relay);
    work_off(relay);
    // With the input over nobody is left to say "stop"; but whoever has piped in a word for a
    // person still reads what it gives.
    if (relay->ending) {
        if (relay->search.runs && !relay->search.unwanted) {
            stop_search(relay);
        }
        if (is_running(&relay->job.process)) {
            relay->end_by = relay->input_end + longest_job_end;
        }
    }
    flush_sink(&relay->engine.to);
    flush_sink(&relay->job.process.to);
    flush_sink(&relay->to_host);
}

// What the host has not read yet is still given to it, but not for long.
static void flush_last_lines(Relay* relay)
{
    const f64 end = now_seconds() + last_flush;
    while (!relay->to_host.pending.empty() && !relay->to_host.broken && now_seconds() < end) {
        pollfd writable = { relay->to_host.descriptor, POLLOUT, 0 };
        const timespec time = time_until(end);
        ppoll(&writable, 1, &time, nullptr);
        flush_sink(&relay->to_host);
    }
}

// A standard stream that is closed at the start would be taken by the first pipe.
static void open_closed_streams()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            open("/dev/null", O_RDWR);
        }
    }
}

int run_relay()
{
    open_closed_streams();
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN); // a full log is an error of the write
    init_board_tables();
    Relay relay;
    relay.from_host.descriptor = STDIN_FILENO;
    relay.to_host.descriptor = STDOUT_FILENO;
    set_up_game(&relay.game, "startpos");
    Descriptors others = { open_signals(), -1 };
    if (isatty(STDIN_FILENO) && isatty(STDOUT_FILENO)) {
        tell_host(
            &relay, std::string(version_string) + " by Brin Tolvey. Type help for its words.");
    }
    start_engine(&relay);
    while (!is_over(&relay)) {
        turn(&relay, &others);
    }
    end_job(&relay.job);
    end_process(&relay.engine);
    flush_last_lines(&relay);
    end_log(&relay.log);
    return 0;
}

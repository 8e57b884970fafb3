// Many games at a time. Each is played in a process of its own, made by fork once everything is
// set up: a search works on records that are one of a kind in a process, and processes share
// nothing that one game could change for another, or slow it down by. Process number p of n plays
// the games p, p + n, p + 2 n and so on and sends each as text through its pipe; the parent writes
// them in the order of their numbers, so that the files are the same for any number of processes.
#include "tools/selfplay/selfplay.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

#include "base/clock.h"
#include "base/files.h"
#include "base/interrupt.h"
#include "base/mixing.h"
#include "base/output.h"
#include "board/defect.h"
#include "board/moves.h"
#include "eval/weights.h"
#include "fathom/tbcore.h"
#include "search/hash.h"
#include "search/workers.h"
#include "shell/startup.h"
#include "tools/selfplay/selfplay_files.h"
#include "tools/selfplay/selfplay_game.h"
#include "tools/selfplay/selfplay_options.h"
#include "tools/selfplay/selfplay_text.h"
#include "tools/tool_input.h"

// A player that is further ahead than this has to wait until its games are written.
static constexpr size_t most_waiting_bytes = 1 << 20;
static constexpr i32 poll_milliseconds = 500; // between two looks at the user's wishes
static constexpr f64 seconds_between_shows = 1.0;

// What a player sends: this, and the two texts behind it.
struct GameMessage {
    i64 number;
    u64 nodes;
    f64 seconds;
    f64 search_seconds;
    u32 game_size; // bytes
    u32 lines_size;
    i32 lines;
    i32 winner;
};

struct Player {
    pid_t process; // 0: it has ended
    int input;     // what it sends
    std::string waiting;
};

struct Selfplay {
    SelfplayFiles files;
    std::vector<std::string> openings;
    std::string event;
    std::vector<Player> players;
    i64 next_number;
    i64 end_number; // behind the last game
    i64 written;
    i64 repeated; // games that had been played before
    i64 lines;
    i64 wins[3]; // by White, by Black, by nobody
    u64 nodes;
    f64 seconds; // of all players
    f64 search_seconds;
    f64 started;
    bool failed;
};

// ---- Before the games

// Reads the openings, a position a line. Those that no game can begin from are refused.
static bool read_openings(Dialogue* dialogue, Selfplay* run)
{
    if (selfplay_options.openings == nullptr) {
        return true;
    }
    ToolInput* input = new ToolInput();
    if (!open_input(input, selfplay_options.openings)) {
        complain(selfplay_options.openings, "cannot be read", errno);
        delete input;
        exit_status = 1;
        return false;
    }
    char line[fen_size * 2];
    Position* pos = &dialogue->game->pos;
    while (read_input_line(input, line, sizeof line) >= 0) {
        if (line[0] == '\0' || is_epd_comment(line)) {
            continue;
        }
        const bool has_rights = parse_epd(pos, line) == 0;
        const char* defect = position_defect(pos);
        if (!has_rights || defect != nullptr) {
            refuse(input, input->lines.line_number, "%s",
                defect != nullptr ? defect : "a castling right has no king or rook at home");
            continue;
        }
        if (!has_legal_move(pos)) {
            refuse(input, input->lines.line_number, "there is no legal move");
            continue;
        }
        char fen[fen_size];
        make_fen(pos, fen);
        run->openings.emplace_back(fen);
    }
    close_input(input);
    delete input;
    if (run->openings.empty()) {
        fprintf(stderr, "%s: holds no position to begin from\n", selfplay_options.openings);
        exit_status = 1;
    }
    return !run->openings.empty();
}

// A number that tells two lists of openings apart.
static u64 key_of_openings(const Selfplay* run)
{
    std::string text;
    for (const std::string& opening : run->openings) {
        text.append("[FEN \"").append(opening).append("\n");
    }
    return key_of_game_text(text);
}

static u64 add_bytes(u64 key, const void* bytes, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        key = add_to_text_key(key, static_cast<const char*>(bytes)[i]);
    }
    return key;
}

// A number that tells two players apart: the weights in use, wherever they come from, what bends
// the search, and how many pieces the endgame tables know.
static u64 key_of_player(const Dialogue* dialogue)
{
    u64 key = empty_text_key;
    for (const EvalParam& weight : eval_params) {
        key = add_bytes(key, &weight.mg, sizeof weight.mg);
        key = add_bytes(key, &weight.eg, sizeof weight.eg);
    }
    const EngineOptions* options = &dialogue->engine_options;
    static_assert(std::has_unique_object_representations_v<SearchParams>);
    key = add_bytes(key, &options->search, sizeof options->search);
    for (const i32 value : { i32 { options->contempt }, i32 { options->selectivity },
             i32 { options->limit_strength }, options->limit_strength != 0 ? options->elo : 0,
             tb_largest, tb_largest > 0 ? options->syzygy_probe_depth5 : 0,
             tb_largest > 0 ? options->syzygy_probe_depth6 : 0 }) {
        key = add_bytes(key, &value, sizeof value);
    }
    return key;
}

// What the options of such a run make of its games stands in their event, so that no run goes on
// with games of other settings or of another player, and nobody wonders later how they were made.
static void write_event(const Dialogue* dialogue, Selfplay* run)
{
    const SelfplayOptions* options = &selfplay_options;
    char effort[64];
    snprintf(effort, sizeof effort, options->depth != 0 ? "depth %lld" : "%lld nodes",
        static_cast<long long>(options->depth != 0 ? options->depth : options->nodes));
    char openings[96] = "drawn openings";
    if (!run->openings.empty()) {
        snprintf(openings, sizeof openings, "%zu openings %08llx", run->openings.size(),
            static_cast<unsigned long long>(key_of_openings(run) & 0xffffffff));
    }
    char text[400];
    snprintf(text, sizeof text,
        "Vesk by itself: seed %lld, %s, spread %lld, %s, random %lld, balance %lld, resign %lld,"
        " draw %lld, hash %lld, player %08llx",
        static_cast<long long>(options->seed), effort, static_cast<long long>(options->spread),
        openings, static_cast<long long>(options->random), static_cast<long long>(options->balance),
        static_cast<long long>(options->resign), static_cast<long long>(options->draw),
        static_cast<long long>(options->hash),
        static_cast<unsigned long long>(key_of_player(dialogue) & 0xffffffff));
    run->event = text;
}

// ---- A player

// Sends everything; the process ends by a signal where nobody reads any more.
static bool send_bytes(int output, const void* bytes, size_t size)
{
    const char* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t sent = write(output, next, size);
        if (sent <= 0) {
            return false;
        }
        next += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

// Plays every so many-th game from first on, until nobody wants them any more. The worker's thread
// does not exist in this process; its record does, and searches run on it in this thread.
static bool play_games(Dialogue* dialogue, const Selfplay* run, i64 first, i64 step, int output)
{
    num_threads = 1;
    store(noise, silent_noise);
    dialogue->engine_options.multi_pv = 1;
    publish_options(dialogue);
    std::vector<const char*> openings;
    for (const std::string& opening : run->openings) {
        openings.push_back(opening.c_str());
    }
    std::string game_text;
    std::string lines_text;
    SelfplayGame* game = new SelfplayGame();
    for (i64 number = first; number < run->end_number; number += step) {
        const f64 started = monotonic_seconds();
        play_selfplay_game(dialogue, openings, number, game);
        game_text.clear();
        lines_text.clear();
        write_selfplay_game(&dialogue->game->pos, game, run->event, &game_text);
        const i32 lines = selfplay_options.lines == nullptr
            ? 0
            : write_selfplay_lines(&dialogue->game->pos, game, &lines_text);
        const GameMessage message = { .number = number,
            .nodes = game->nodes,
            .seconds = monotonic_seconds() - started,
            .search_seconds = game->search_seconds,
            .game_size = static_cast<u32>(game_text.size()),
            .lines_size = static_cast<u32>(lines_text.size()),
            .lines = lines,
            .winner = game->winner };
        if (!send_bytes(output, &message, sizeof message)
            || !send_bytes(output, game_text.data(), game_text.size())
            || !send_bytes(output, lines_text.data(), lines_text.size())) {
            return false;
        }
    }
    delete game;
    return true;
}

// The parent decides when it is over: Ctrl-C reaches all processes of a terminal, and a game that
// is under way may still be written.
[[noreturn]] static void be_player(
    Dialogue* dialogue, const Selfplay* run, i64 first, i64 step, int output)
{
    signal(SIGINT, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
    signal(SIGTERM, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _exit(play_games(dialogue, run, first, step, output) ? 0 : 1);
}

static bool start_players(Dialogue* dialogue, Selfplay* run, i32 count)
{
    for (i32 i = 0; i < count; ++i) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            complain("a pipe", "cannot be made", errno);
            return false;
        }
        const pid_t process = fork();
        if (process == 0) {
            close(ends[0]);
            be_player(dialogue, run, run->next_number + i, count, ends[1]);
        }
        close(ends[1]);
        if (process < 0) {
            complain("a process", "cannot be started", errno);
            close(ends[0]);
            return false;
        }
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        run->players.push_back({ process, ends[0], {} });
    }
    return true;
}

static void end_players(Selfplay* run)
{
    for (Player& player : run->players) {
        close(player.input);
        if (player.process != 0) {
            kill(player.process, SIGKILL);
            waitpid(player.process, nullptr, 0);
        }
    }
}

// ---- Collecting the games

// The player whose game comes next.
static Player* next_player(Selfplay* run, i64 first)
{
    const i64 count = static_cast<i64>(run->players.size());
    return &run->players[static_cast<size_t>((run->next_number - first) % count)];
}

static void write_game(Selfplay* run, const GameMessage* message, const std::string& waiting)
{
    const std::string_view texts = std::string_view(waiting).substr(sizeof *message);
    const std::string_view game = texts.substr(0, message->game_size);
    const std::string_view lines = texts.substr(message->game_size, message->lines_size);
    run->nodes += message->nodes;
    run->seconds += message->seconds;
    run->search_seconds += message->search_seconds;
    if (!add_selfplay_game(&run->files, message->number, game, lines, &run->failed)) {
        ++run->repeated;
    } else if (!run->failed) {
        ++run->written;
        run->lines += message->lines;
        ++run->wins[message->winner];
    }
}

// Writes the games that have arrived as a whole, as far as their numbers follow one another.
static void write_arrived_games(Selfplay* run, i64 first)
{
    while (run->next_number < run->end_number && !run->failed) {
        Player* player = next_player(run, first);
        GameMessage message;
        if (player->waiting.size() < sizeof message) {
            return;
        }
        memcpy(&message, player->waiting.data(), sizeof message);
        const size_t size = sizeof message + message.game_size + message.lines_size;
        if (player->waiting.size() < size) {
            return;
        }
        write_game(run, &message, player->waiting);
        player->waiting.erase(0, size);
        ++run->next_number;
    }
}

// How a player has ended that should not have.
static void tell_end(Selfplay* run, Player* player)
{
    int status = 0;
    waitpid(player->process, &status, 0);
    player->process = 0;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return; // it has played all of its games
    }
    fprintf(stderr, "a player has ended by %s %d\n", WIFSIGNALED(status) ? "signal" : "status",
        WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
    exit_status = 1;
    run->failed = true;
}

// Takes what a player has sent.
static void read_player(Selfplay* run, Player* player)
{
    char block[65536];
    const ssize_t size = read(player->input, block, sizeof block);
    if (size > 0) {
        player->waiting.append(block, static_cast<size_t>(size));
    } else if (size == 0) {
        tell_end(run, player);
    }
}

// Waits for players that have something to say, but not for those that are far ahead.
static void wait_for_players(Selfplay* run)
{
    std::vector<pollfd> polled;
    std::vector<Player*> owners;
    for (Player& player : run->players) {
        if (player.process != 0 && player.waiting.size() < most_waiting_bytes) {
            polled.push_back({ player.input, POLLIN, 0 });
            owners.push_back(&player);
        }
    }
    if (poll(polled.data(), polled.size(), poll_milliseconds) <= 0) {
        return;
    }
    for (size_t i = 0; i < polled.size(); ++i) {
        if (polled[i].revents != 0) {
            read_player(run, owners[i]);
        }
    }
}

// ---- What the user sees

static f64 games_per_second(const Selfplay* run)
{
    const f64 seconds = monotonic_seconds() - run->started;
    return seconds > 0.0 ? static_cast<f64>(run->written + run->repeated) / seconds : 0.0;
}

static void show(Selfplay* run, ToolInput* progress)
{
    char what[64];
    snprintf(what, sizeof what, "%.1f games/s, game", games_per_second(run));
    show_progress(progress, what, run->written + run->repeated + 1);
}

static void report(const Selfplay* run)
{
    print_plain("%lld games written: %lld won by white, %lld by black, %lld drawn\n",
        static_cast<long long>(run->written), static_cast<long long>(run->wins[White]),
        static_cast<long long>(run->wins[Black]), static_cast<long long>(run->wins[no_winner]));
    if (run->repeated != 0) {
        print_plain("%lld games left out that had been played before\n",
            static_cast<long long>(run->repeated));
    }
    if (selfplay_options.lines != nullptr) {
        print_plain("%lld training lines\n", static_cast<long long>(run->lines));
    }
    if (run->seconds > 0.0) {
        print_plain("%.2f games/s, %.0f thousand nodes/s, %.1f %% of the time in searches\n",
            games_per_second(run), static_cast<f64>(run->nodes) / run->seconds / 1000.0,
            100.0 * run->search_seconds / run->seconds);
    }
    if (run->next_number < run->end_number) {
        print_plain("ended before game %lld; -selfplay-resume goes on with it\n",
            static_cast<long long>(run->next_number));
    }
}

// ---- The run

static void collect_games(Selfplay* run)
{
    ToolInput* progress = new ToolInput();
    progress->progress.on = isatty(STDERR_FILENO) != 0;
    progress->progress.count = run->end_number - run->next_number;
    progress->progress.started = run->started;
    progress->progress.due = run->started + seconds_between_shows;
    const i64 first = run->next_number;
    while (run->next_number < run->end_number && !run->failed && !is_interrupted()) {
        show(run, progress);
        wait_for_players(run);
        write_arrived_games(run, first);
    }
    hide_progress(progress);
    delete progress;
}

// Where an earlier run has ended, this one begins: with the number behind that of its last game.
static void play_all(Dialogue* dialogue, Selfplay* run)
{
    run->next_number = std::max(selfplay_options.first, run->files.last_number + 1);
    run->end_number = selfplay_options.first + selfplay_options.games;
    if (run->files.count != 0) {
        print_plain("going on behind %lld games\n", static_cast<long long>(run->files.count));
    }
    if (run->next_number >= run->end_number) {
        print_plain("all games are there\n");
        return;
    }
    catch_interrupts();
    run->started = monotonic_seconds();
    const i64 games = run->end_number - run->next_number;
    const i64 players = std::min<i64>(dialogue->engine_options.threads, games);
    if (start_players(dialogue, run, static_cast<i32>(players))) {
        collect_games(run);
    } else {
        exit_status = 1;
    }
    end_players(run);
    report(run);
}

void run_selfplay(Dialogue* dialogue)
{
    Selfplay* run = new Selfplay();
    register_tables(dialogue->engine_options.syzygy_path);
    if (read_openings(dialogue, run)) {
        write_event(dialogue, run);
        if (!alloc_hash(static_cast<i32>(selfplay_options.hash))) {
            complain("the hash table", "cannot be had", ENOMEM);
            exit_status = 1;
        } else if (open_selfplay_files(&run->files, selfplay_options.out, selfplay_options.lines,
                       run->event, selfplay_options.resume)) {
            play_all(dialogue, run);
        }
        close_selfplay_files(&run->files);
    }
    delete run;
}

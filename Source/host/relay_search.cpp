// One "go": what the engine is told, what the host sees of its lines, and an answer in every case.
#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "host/info.h"
#include "host/relay_state.h"
#include "host/text.h"

// Seconds. An engine that has been told to stop answers within milliseconds.
static constexpr f64 longest_stop = 5.0;
static constexpr f64 seconds_per_millisecond = 0.001;
// So much a search gets at least to find a first move, however soon its "stop" comes.
static constexpr f64 shortest_search = 0.01;

static Moment moment_after(std::optional<f64> milliseconds)
{
    if (!milliseconds) {
        return std::nullopt;
    }
    return now_seconds() + *milliseconds * seconds_per_millisecond;
}

// ---- The answer

// Gives the answer as soon as it is known and may be given.
static void give_answer(Relay* relay)
{
    HostSearch* search = &relay->search;
    if (!search->runs || search->answer.empty() || !search->released) {
        return;
    }
    tell_host(relay, search->answer);
    search->runs = false;
    search->stop_at = std::nullopt;
    search->answer_by = std::nullopt;
}

static bool is_allowed(const HostSearch* search, std::string_view move)
{
    return search->allowed.empty()
        || std::find(search->allowed.begin(), search->allowed.end(), move) != search->allowed.end();
}

static std::string own_choice(Relay* relay)
{
    const HostSearch* search = &relay->search;
    if (!search->allowed.empty()) {
        return search->allowed.front();
    }
    return text_of_move(choose_own_move(&relay->game));
}

// The engine's move, or else the first of its last line, or else one of our own: whatever happens,
// a move that the rules allow.
static void settle_answer(Relay* relay, std::string_view move, std::string_view reply)
{
    HostSearch* search = &relay->search;
    if (!search->answer.empty()) {
        return;
    }
    if (find_legal_move(&relay->game, move) == NoMove || !is_allowed(search, move)) {
        move = search->best;
        reply = search->reply;
    }
    std::string text(move);
    if (find_legal_move(&relay->game, text) == NoMove) {
        text = own_choice(relay);
        reply = "";
    }
    search->answer = "bestmove " + text;
    if (!reply.empty() && reply != "null") {
        search->answer += " ponder " + std::string(reply);
    }
    give_answer(relay);
}

void answer_without_engine(Relay* relay)
{
    relay->search.engine_runs = false;
    if (relay->search.runs) {
        settle_answer(relay, "", "");
    }
}

void take_best_move(Relay* relay, const std::string& line)
{
    HostSearch* search = &relay->search;
    if (!search->engine_runs) {
        return;
    }
    search->engine_runs = false;
    search->give_up_at = std::nullopt;
    if (!search->runs) {
        return; // answered already
    }
    std::string_view rest = line;
    take_word(&rest);
    const std::string_view move = take_word(&rest);
    take_word(&rest); // "ponder"
    const std::string_view reply = take_word(&rest);
    const bool own = !search->beyond && search->allowed.empty();
    settle_answer(relay, own ? move : "", own ? reply : "");
}

// ---- Its end

static void stop_engine(Relay* relay)
{
    HostSearch* search = &relay->search;
    search->stop_at = std::nullopt;
    if (search->engine_runs && !search->stopped) {
        search->stopped = true;
        search->give_up_at = now_seconds() + longest_stop;
        tell_engine(relay, "stop");
    }
}

// A host that wants an answer at once still wants one that was searched for.
void stop_search(Relay* relay)
{
    HostSearch* search = &relay->search;
    search->released = true;
    search->pondering = false;
    search->unwanted = true;
    if (search->best.empty() && now_seconds() < search->start + shortest_search) {
        search->stop_at = search->start + shortest_search;
    } else {
        stop_engine(relay);
    }
    give_answer(relay);
}

// From here on the clock is the engine's own.
static void start_watch(HostSearch* search, i32 side)
{
    search->stop_at = moment_after(stop_after(&search->limits, side));
    search->answer_by = moment_after(answer_within(&search->limits, side));
}

void hit_ponder_move(Relay* relay)
{
    HostSearch* search = &relay->search;
    if (!search->runs || !search->pondering) {
        return;
    }
    search->pondering = false;
    search->released = !search->limits.infinite;
    if (search->engine_runs && !search->stopped) {
        tell_engine(relay, "ponderhit");
        start_watch(search, relay->game.pos.stm);
    }
    give_answer(relay);
}

Moment next_moment(const Relay* relay)
{
    const HostSearch* search = &relay->search;
    Moment next = relay->end_by;
    for (const Moment moment : { search->stop_at, search->answer_by, search->give_up_at }) {
        if (moment && (!next || *moment < *next)) {
            next = moment;
        }
    }
    return next;
}

void watch_search(Relay* relay)
{
    HostSearch* search = &relay->search;
    const f64 now = now_seconds();
    if (search->stop_at && now >= *search->stop_at) {
        stop_engine(relay);
    }
    if (search->answer_by && now >= *search->answer_by) {
        search->answer_by = std::nullopt;
        settle_answer(relay, "", "");
        stop_engine(relay);
    }
    if (search->give_up_at && now >= *search->give_up_at) {
        search->give_up_at = std::nullopt;
        restart_engine(relay, "did not stop");
    }
}

// ---- Its start

// A "go" that needs no engine: the answer is there, and is held back where the host will ask for
// it.
static void answer_at_once(Relay* relay, std::string_view answer)
{
    relay->search.runs = true;
    relay->search.answer = answer;
    give_answer(relay);
}

// Sets the moves of "searchmoves" that are legal. Returns false if the words named none.
static bool choose_moves(Relay* relay)
{
    HostSearch* search = &relay->search;
    for (const std::string& word : search->limits.search_moves) {
        const Move move = find_legal_move(&relay->game, word);
        if (move == NoMove) {
            remark_to_host(relay, "searchmoves: " + std::string(shortened(word)) + " is not legal");
        } else if (!is_allowed(search, text_of_move(move)) || search->allowed.empty()) {
            search->allowed.push_back(text_of_move(move));
        }
    }
    return !search->limits.searches_some || !search->allowed.empty();
}

// The board is set up only where it has changed: the engine keeps it.
static void send_position(Relay* relay)
{
    const PositionLine line = position_line(&relay->game);
    if (line.text != relay->sent_position) {
        tell_engine(relay, line.text);
        relay->sent_position = line.text;
        relay->sent_plies = line.plies;
    }
}

void begin_search(Relay* relay, std::string_view words)
{
    std::string remark;
    HostSearch* search = &relay->search;
    *search = HostSearch {};
    search->limits = read_limits(words, &remark);
    if (!remark.empty()) {
        remark_to_host(relay, remark);
    }
    const GoLimits* limits = &search->limits;
    search->pondering = limits->ponder;
    search->released = !limits->ponder && !limits->infinite;

    if (!relay->game.defect.empty()) {
        remark_to_host(relay, "no search: " + relay->game.defect);
        answer_at_once(relay, "bestmove (none)");
        return;
    }
    const size_t moves = legal_moves(&relay->game).size();
    if (moves == 0) {
        tell_host(relay,
            is_in_check(&relay->game) ? "info depth 0 score mate 0" : "info depth 0 score cp 0");
        answer_at_once(relay, "bestmove (none)");
        return;
    }
    if (!choose_moves(relay)) {
        remark_to_host(relay, "no search: searchmoves names no legal move");
        answer_at_once(relay, "bestmove (none)");
        return;
    }
    search->runs = true;
    if (!is_running(&relay->engine)) {
        answer_without_engine(relay);
        return;
    }
    // Where some moves are asked for, the engine makes a line for each legal one, and the others
    // are left out of what the host sees.
    if (search->allowed.size() == moves) {
        search->allowed.clear();
    }
    send_settings(relay, search->allowed.empty() ? 0 : static_cast<i32>(moves), true);
    send_position(relay);
    tell_engine(
        relay, words_for_engine(limits, relay->game.plies, relay->sent_plies, &relay->left));
    search->engine_runs = true;
    search->start = now_seconds();
    if (!search->pondering) {
        start_watch(search, relay->game.pos.stm);
    }
}

// ---- Its lines

// Puts a line among those of the moves asked for. Returns its number among them, 0 if it is none.
static i64 rank_of_line(HostSearch* search, const InfoLine& info, std::string_view move)
{
    const i64 number = info.line_number.value_or(1);
    if (number <= search->last_number) {
        search->rank = 0;
    }
    search->last_number = number;
    return is_allowed(search, move) ? ++search->rank : 0;
}

static i64 lines_wanted(const Relay* relay)
{
    i64 lines = 1;
    const Setting* setting = find_setting(&relay->settings, "MultiPV");
    return setting != nullptr && read_number(setting->value, &lines) ? lines : 1;
}

// Nodes that the engine cannot count to: told by its lines, and between them by its rate.
static void watch_nodes(Relay* relay, const InfoLine& info)
{
    HostSearch* search = &relay->search;
    const std::optional<i64> goal = nodes_to_watch(&search->limits);
    if (!goal || !info.nodes) {
        return;
    }
    if (*info.nodes >= *goal) {
        stop_engine(relay);
    } else if (info.rate.value_or(0) > 0 && !search->stopped) {
        const f64 rest = static_cast<f64>(*goal - *info.nodes);
        const Moment due = now_seconds() + rest / static_cast<f64>(*info.rate);
        // A short clock's own moment stays, and so does that of an end that the host asked for.
        if (!search->unwanted && !stop_after(&search->limits, relay->game.pos.stm)) {
            search->stop_at = due;
        }
    }
}

static void watch_mate(Relay* relay, const InfoLine& info)
{
    const std::optional<i64> goal = relay->search.limits.mate;
    if (goal && info.score && info.score->is_mate && info.score->value > 0
        && info.score->value <= *goal) {
        stop_engine(relay);
    }
}

static void show_line(Relay* relay, const std::string& line)
{
    tell_host(relay, is_on(&relay->settings, "UCI_ShowWDL") ? with_chances(line) : line);
}

void take_info(Relay* relay, const std::string& line)
{
    HostSearch* search = &relay->search;
    if (!search->runs || !search->answer.empty()) {
        return;
    }
    const InfoLine info = read_info(line);
    const std::optional<i64> depth = depth_to_watch(&search->limits);
    if (depth && info.depth && *info.depth > *depth) {
        search->beyond = true;
        stop_engine(relay);
        return;
    }
    if (info.moves.empty()) {
        if (search->allowed.empty()) {
            show_line(relay, line);
        }
        watch_nodes(relay, info);
        return;
    }
    std::string_view rest = info.moves;
    const std::string_view move = take_word(&rest);
    const i64 rank = rank_of_line(search, info, move);
    if (rank == 1) {
        search->best = move;
        search->reply = take_word(&rest);
    }
    if (search->allowed.empty()) {
        show_line(relay, line);
        watch_mate(relay, info);
    } else if (rank > 0) {
        const i64 lines = lines_wanted(relay);
        if (rank <= lines) {
            show_line(relay, with_line_number(line, lines > 1 ? rank : 0));
        }
        watch_mate(relay, info);
    }
    watch_nodes(relay, info);
}

// The words of the UCI dialogue. Nothing is ever refused: what is not understood does nothing, and
// what is missing is simply not applied, since a chess program has no way to hear of an error. A
// command acts on the dialogue's records at once. A running search works on its own copy of the
// game, so "position" may come in the middle of it; the limits it shares with the dialogue.
#include "shell/uci.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sched.h>
#include <string_view>

#include "base/clock.h"
#include "base/output.h"
#include "base/text.h"
#include "base/version.h"
#include "board/moves.h"
#include "board/notation.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/params.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/options.h"
#include "shell/words.h"

// A longer first word is no command. The other sizes cut what is copied: a name or a value that is
// cut matches no option, or sets the part that fits.
static constexpr i32 name_size = 101; // an option's name and value, with their NUL
static constexpr i32 value_size = 201;
static constexpr size_t move_text_length = 4; // a shorter word is no move
// Above the time from which a search counts as an analysis, which has no limit and no contempt.
static constexpr f64 unlimited_seconds = 10000000.0;
// For a "go" without any word of time, which would otherwise lose on the clock of an earlier game.
static constexpr f64 new_game_seconds = 60.0;
// Any value above 1 would do: the real count is dialogue->limits.moves_to_go. It only has to tell a
// control of several moves from a fixed time (1) and from sudden death (0).
static constexpr i32 moves_per_control = 40;
static constexpr i32 node_spread = 40; // thousandths of a node limit, either way
static constexpr i32 thousandths = 1000;
static constexpr f64 seconds_per_millisecond = 0.001;
static constexpr i32 yields_before_sleep = 1000;
static constexpr i32 short_sleep_microseconds = 50;

// Waits for the workers with the shortest delay that does not take their processor. A chess program
// measures how long "stop" takes, and the nodes end within microseconds: the first looks only
// yield, the later ones sleep, so that a worker without a processor of its own gets this one.
static void spin_for_workers()
{
    for (i32 looks = 0; busy_workers() != 0; ++looks) {
        if (looks < yields_before_sleep) {
            sched_yield();
        } else {
            sleep_microseconds(short_sleep_microseconds);
        }
    }
}

// From here on the process speaks UCI alone, even if it began at the console: no word leads back.
// The options come before "uciok", which a chess program takes for the end of the list.
static void identify(Dialogue* dialogue, char*)
{
    store(uci_mode, UciMode);
    print_line_format("id name %s", version_string);
    print_line("id author Brin Tolvey");
    announce_options(dialogue);
    print_line("uciok");
}

// Answered while a search runs too: the sender asks whether the process still listens, not whether
// it is idle.
static void confirm_ready(Dialogue*, char*)
{
    print_line("readyok");
}

// Whatever stands behind "debug", off included: the log can only become fuller. It is full from the
// start, so this matters after a change of log_cmd by other code alone.
static void log_commands(Dialogue* dialogue, char*)
{
    dialogue->log_cmd = true;
}

// For a developer. Unlike the console's word it shows the tables as the last search left them:
// settings made since then are not in them yet.
static void show_params(Dialogue*, char*)
{
    print_search_params();
}

// ---- setoption

// The two words are looked for anywhere, so "name" and "value" cannot stand inside a name. A line
// without a value sets nothing; a button therefore needs one too, whatever it says. Every setting
// becomes what "uci" announces from then on, and has the tables of search and evaluation rebuilt
// before the next search, whether or not they hang on it: a change of a weight's scale must not be
// forgotten.
static void apply_option(Dialogue* dialogue, char* args)
{
    char name[name_size] = "";
    char value[value_size] = "";
    const char* name_word = strstr(args, "name");
    char* value_word = strstr(args, "value");
    if (name_word != nullptr && value_word != nullptr && name_word < value_word) {
        // The blanks before "value" would be a part of the name, and no option's name ends in one.
        for (char* end = value_word; end > args && end[-1] == ' '; --end) {
            end[-1] = '\0';
        }
        copy_text(name, sizeof name, skip_blanks(text_behind(name_word, sizeof "name")));
        copy_text(value, sizeof value, skip_blanks(text_behind(value_word, sizeof "value")));
    }
    set_option(dialogue, name, value);
    dialogue->saved_options = dialogue->engine_options;
    dialogue->engine_options.params_changed = 1;
    publish_options(dialogue);
}

// ---- ucinewgame and position

// A game to come is played on an empty table, so that what the game before has left does not steer
// it. Increment and clocks go back to their start too; the limits of depth and nodes stay, and the
// position does until the next "position".
static void start_new_game(Dialogue* dialogue, char*)
{
    store(stop_code, StopCode::Silent);
    wait_for_workers();
    store(dialogue->limits.tc_moves, SuddenDeath);
    dialogue->limits.tc_seconds = new_game_seconds;
    dialogue->limits.tc_increment = 0.0;
    store(dialogue->limits.clock_left[White], new_game_seconds);
    store(dialogue->limits.clock_left[Black], new_game_seconds);
    dialogue->game->undo_count = 0;
    clear_hash_if_idle();
    hash.age = 0;
}

// Capital letters are no promotion here: such a word then names a pawn's move to the last rank
// without a piece, which the board refuses.
static Move promotion_of_letter(char letter)
{
    switch (letter) {
    case 'q':
        return PromoteQueen;
    case 'n':
        return PromoteKnight;
    case 'b':
        return PromoteBishop;
    case 'r':
        return PromoteRook;
    default:
        return NoMove;
    }
}

// Makes the move that stands at word, if the board allows it; whether it is a legal one is the
// sender's business. A word that cannot be made is passed over and the next one tried, as "moves"
// carries no error.
static void play_word(Position* pos, std::string_view word)
{
    if (word.size() < move_text_length) {
        return;
    }
    const i32 from = square_of_text(word.data());
    const i32 to = square_of_text(word.data() + 2);
    const Move promotion = word.size() > move_text_length
        ? promotion_of_letter(word[move_text_length])
        : static_cast<Move>(NoMove);
    if (is_makeable(pos, from, to, promotion)) {
        make_game_move(pos, static_cast<Move>(make_move_code(from, to) | promotion));
    }
}

// The words are plain moves from the position set up, all of them, every time; the game's record
// that they leave is what repetitions are found in. Behind the last one there is nothing to repeat:
// an older game must not look through.
static void play_words(Position* pos, const char* text)
{
    for (auto word = take_word(&text); !word.empty(); word = take_word(&text)) {
        play_word(pos, word);
    }
    SearchThread* thread = pos->thread;
    thread->undo[thread->undo_count].move = NoMove;
}

// Cuts the text at "moves", sets up what stands before it and plays what stands behind. Without
// "startpos" and "fen" the board stays, and the moves are not played either. A text with a right to
// castle that cannot be is set up without the right; only a "go" refuses a board that cannot be
// searched, with its reason.
static void set_up_position(Dialogue* dialogue, char* args)
{
    char* moves = strstr(args, "moves");
    if (moves != nullptr && moves > args) {
        moves[-1] = '\0';
    }
    const char* text = nullptr;
    if (strstr(args, "startpos") != nullptr) {
        text = start_position;
    } else if (strstr(args, "fen") != nullptr) {
        text = text_behind(args, sizeof "fen");
    }
    if (text == nullptr) {
        return;
    }
    Position* pos = &dialogue->game->pos;
    read_position(pos, text);
    if (moves != nullptr) {
        play_words(pos, text_behind(moves, sizeof "moves"));
    }
    store(search_clock.clock_side, pos->stm);
}

// ---- go

// The words of "go" that have a value, in the order in which they are applied. Times come in
// milliseconds. A clock below zero, as after a flag that nobody has claimed, counts as zero: the
// least time for a move is spent then.
static void read_white_clock(Dialogue* dialogue, const char* value)
{
    const f64 seconds = static_cast<f64>(read_integer(value)) * seconds_per_millisecond;
    store(dialogue->limits.clock_left[White], seconds < 0 ? 0.0 : seconds);
}

static void read_black_clock(Dialogue* dialogue, const char* value)
{
    const f64 seconds = static_cast<f64>(read_integer(value)) * seconds_per_millisecond;
    store(dialogue->limits.clock_left[Black], seconds < 0 ? 0.0 : seconds);
}

// Only the mover's increment counts. It stands where a later "go" does not tell one; "ucinewgame"
// takes it back.
static void read_increment(Dialogue* dialogue, i32 side, const char* value)
{
    if (dialogue->game->pos.stm == side) {
        dialogue->limits.tc_increment =
            static_cast<f64>(read_integer(value)) * seconds_per_millisecond;
    }
}

static void read_white_increment(Dialogue* dialogue, const char* value)
{
    read_increment(dialogue, White, value);
}

static void read_black_increment(Dialogue* dialogue, const char* value)
{
    read_increment(dialogue, Black, value);
}

// A control by clock ends limits of depth and nodes that an earlier "go" left. The clock words
// alone do not: a fixed depth set before them goes on to hold.
static void read_moves_to_go(Dialogue* dialogue, const char* value)
{
    store(dialogue->limits.tc_moves, moves_per_control);
    store(dialogue->limits.depth_limit, deepest_limit);
    dialogue->limits.moves_to_go = static_cast<i16>(read_integer(value));
    dialogue->limits.node_limit_total = 0;
}

// A search by depth has no limit of time: it ends at its depth, at a limit of nodes that stands
// from an earlier "go", or by "stop".
static void read_depth(Dialogue* dialogue, const char* value)
{
    store(dialogue->limits.tc_moves, FixedTime);
    store(dialogue->limits.depth_limit, read_depth_limit(value));
    dialogue->limits.tc_seconds = unlimited_seconds;
}

// The limit is varied by up to four per cent either way: at the same node limit two games from the
// same position would otherwise be the same game, and a match of fixed nodes would measure nothing.
// A limit of 0 is none. The arithmetic is that of 32-bit words, which wrap: a count beyond some 50
// million varies by another amount.
static void read_nodes(Dialogue* dialogue, const char* value)
{
    store(dialogue->limits.tc_moves, FixedTime);
    dialogue->limits.tc_seconds = unlimited_seconds;
    const u32 nodes = static_cast<u32>(read_i32(value));
    const u32 permille = static_cast<u32>(node_spread - rand() % (2 * node_spread));
    const i32 change = static_cast<i32>(permille * nodes) / thousandths;
    dialogue->limits.node_limit_total = static_cast<i32>(nodes + static_cast<u32>(change));
}

// The search takes this time whatever it finds, a single legal move apart, and MoveOverhead is not
// taken off: who sets a fixed time wants that time.
static void read_move_time(Dialogue* dialogue, const char* value)
{
    store(dialogue->limits.tc_moves, FixedTime);
    dialogue->limits.tc_increment = 0.0;
    dialogue->limits.tc_seconds = static_cast<f64>(read_integer(value)) * seconds_per_millisecond;
}

// Applied last, it lifts all limits, those of the same line among them.
static void read_infinite(Dialogue* dialogue, const char*)
{
    dialogue->limits.tc_increment = 0.0;
    dialogue->limits.node_limit_total = 0;
    dialogue->limits.tc_seconds = unlimited_seconds;
    store(dialogue->limits.depth_limit, deepest_limit);
    store(dialogue->limits.tc_moves, FixedTime);
}

struct GoWord {
    std::string_view word;
    void (*read)(Dialogue* dialogue, const char* value);
};

// The words are applied in this order, not in that of the line: "movestogo" lifts limits that
// "depth" and "nodes" of the same line then set again.
static constexpr GoWord go_words[] = {
    { "wtime", read_white_clock },
    { "btime", read_black_clock },
    { "winc", read_white_increment },
    { "binc", read_black_increment },
    { "movestogo", read_moves_to_go },
    { "depth", read_depth },
    { "nodes", read_nodes },
    { "movetime", read_move_time },
    { "infinite", read_infinite },
};

// Starts nothing itself: the main loop sees the state on its next pass, before it looks at another
// command. What an earlier "go" left of depth limit, node limit, increment and clocks stands, as
// far as the words do not replace it: a program that always sends the same words never notices, and
// a user who sets a depth by hand can go on with a bare "go". A search that still runs ends without
// a "bestmove", since its sender has turned to another position.
static void start_thinking(Dialogue* dialogue, char* args)
{
    store(stop_code, StopCode::Silent);
    wait_for_workers();
    store(dialogue->limits.tc_moves, SuddenDeath);
    for (const GoWord& row : go_words) {
        const size_t found = std::string_view(args).find(row.word);
        if (found != std::string_view::npos) {
            row.read(dialogue, next_word(text_behind(args + found, row.word.size() + 1)));
        }
    }
    store(engine_state,
        strstr(args, "ponder") != nullptr ? EngineState::StartPonder : EngineState::Start);
}

// The search goes on as a normal one, with the clock of its own start: the time since then belonged
// to the opponent, so a move that was long in the making may be answered at once. A pondering that
// has finished by itself is reported on this pass, as it was only waiting for this word.
static void ponder_hit(Dialogue*, char*)
{
    if (load(engine_state) == EngineState::Pondering) {
        store(engine_state, EngineState::Thinking);
    }
}

// Ends a search with its "bestmove", a pondering one too. While idle it only leaves a stop code
// that nobody reads, as the report needs a search: a second "bestmove" would be taken for the
// answer to the next "go". The workers are awaited here, so that the report comes on this very
// pass.
static void stop_thinking(Dialogue*, char*)
{
    if (load(engine_state) != EngineState::Idle) {
        store(engine_state, EngineState::Thinking);
    }
    store(stop_code, StopCode::Report);
    spin_for_workers();
}

// A search that runs is not reported: the reader may be gone already. The workers are awaited, so
// that no line of theirs comes behind.
static void quit(Dialogue* dialogue, char*)
{
    store(stop_code, StopCode::Silent);
    spin_for_workers();
    dialogue->quit_flag = true;
}

// ---- The table

struct UciWord {
    std::string_view word;
    void (*run)(Dialogue* dialogue, char* args);
};

static constexpr UciWord uci_words[] = {
    { "uci", identify },
    { "isready", confirm_ready },
    { "setoption", apply_option },
    { "debug", log_commands },
    { "_show", show_params },
    { "ucinewgame", start_new_game },
    { "position", set_up_position },
    { "go", start_thinking },
    { "ponderhit", ponder_hit },
    { "stop", stop_thinking },
    { "quit", quit },
};

void uci_command(Dialogue* dialogue, char* command)
{
    command[strcspn(command, "\r\n")] = '\0';
    if (*command == '\0') {
        return;
    }
    // As it came and before it acts, so that the log of a crash ends with the line that caused it.
    if (dialogue->log_cmd) {
        log_line("CMD: %s", command);
    }
    const char* rest = command;
    const std::string_view word = take_word(&rest);
    if (word.size() >= word_size) {
        return;
    }
    // Counted from the unskipped start, by the length of the first word: each leading blank moves
    // the arguments one character back. Words are found all the same; a position behind "fen"
    // begins that many characters earlier.
    char* args = command + strnlen(command, word.size() + 1);
    for (const UciWord& row : uci_words) {
        if (row.word == word) {
            row.run(dialogue, args);
            return;
        }
    }
}

// The words of the console dialogue, for a person at a terminal. The first word picks the command;
// what is no command is taken as a move of the game.
#include "shell/console.h"

#include <algorithm>
#include <cstring>

#include "board/moves.h"
#include "board/notation.h"
#include "search/threads.h"
#include "shell/output.h"
#include "shell/run_state.h"
#include "shell/text_values.h"
#include "shell/think_loop.h"
#include "shell/time_control.h"

static constexpr i32 most_words = 10;
static constexpr i32 word_size = 128;
static constexpr i32 deepest_perft = 20;
static constexpr f64 least_seconds = 0.001; // keeps a division away from zero

// A line split at blanks; words that are missing are empty texts.
struct Words {
    char text[most_words][word_size + 4]; // reading a move may add a character
};

static void split_words(const char* line, Words* words)
{
    for (i32 i = 0; i < most_words; i++) {
        line = skip_blanks(line);
        const size_t length = strcspn(line, " ");
        copy_text(words->text[i], std::min<size_t>(word_size, length + 1), line);
        line += length;
    }
}

static void show_board(Words*, const char*)
{
    print_board(&console_thread->pos);
}

static void set_up_fen(Words*, const char* line)
{
    store(stop_code, StopReportGame);
    parse_epd(&console_thread->pos, text_behind(line, sizeof "fen"));
    print_board(&console_thread->pos);
}

static void quit(Words*, const char*)
{
    store(stop_code, StopSilent);
    quit_flag = 1;
}

// Counts the leaves of the move tree. The state stays that of a search without a result, so that
// nothing is reported.
static void count_leaves(Words* words, const char*)
{
    end_search_silently();
    const char* defect = position_defect(&console_thread->pos);
    if (defect != nullptr) {
        print_line(defect);
        return;
    }
    store(engine_state, EngineThinking);
    prepare_search();
    sync_workers();
    SearchThread* thread = num_threads > 0 ? load(workers[0]) : console_thread;
    store(thread->counters[CountNodes], 0);
    const i32 depth = std::clamp(read_i32(words->text[1]), 0, deepest_perft);
    if (depth > 0) {
        perft(thread, thread->pos.stm, 1, depth);
    }
    update_elapsed();
    const f64 nodes = static_cast<f64>(load(thread->counters[CountNodes]));
    const f64 seconds = load(elapsed);
    print_line_format("visited %0.0f nodes in %0.3f seconds, nps= %0.0f", nodes, seconds,
        nodes / (seconds + least_seconds));
}

// Plays a move of the game. The engine does not answer by itself.
static void play_text(char* text)
{
    Position* pos = &console_thread->pos;
    Move move = NoMove;
    if (*text == '\0' || !parse_move(text, &move)
        || !is_makeable(
            pos, from_square(move), to_square(move), static_cast<Move>(move & PromotionMask))) {
        return;
    }
    store(stop_code, StopSilent);
    wait_for_workers();
    print_line_format("%d. move %s", console_thread->undo_count / 2 + 1, text);
    make_game_move(pos, move);
    print_board(pos);
}

static void play_second_word(Words* words, const char*)
{
    play_text(words->text[1]);
}

struct ConsoleWord {
    const char* word;
    void (*run)(Words* words, const char* line);
};

static constexpr ConsoleWord console_words[] = {
    { "fen", set_up_fen },
    { "quit", quit },
    { "bd", show_board },
    { "perft", count_leaves },
    { "move", play_second_word },
};

void console_command(char* command)
{
    command[strcspn(command, "\r\n")] = '\0';
    Words words;
    split_words(command, &words);
    for (const ConsoleWord& row : console_words) {
        if (strcmp(words.text[0], row.word) == 0) {
            row.run(&words, command);
            return;
        }
    }
    play_text(words.text[0]);
}

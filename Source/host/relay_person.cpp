// Words that a person types, and no chess program: each is answered in lines to be read.
#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "board/moves.h"
#include "host/bench_word.h"
#include "host/relay_state.h"
#include "host/text.h"

static constexpr i64 deepest_perft = 20;

void run_perft(Relay* relay, std::string_view words)
{
    i64 depth = 0;
    if (!read_number(take_word(&words), &depth) || depth < 1 || depth > deepest_perft) {
        remark_to_host(relay, "perft needs a depth from 1 to 20");
        return;
    }
    if (!relay->game.defect.empty()) {
        remark_to_host(relay, "position: " + relay->game.defect);
        return;
    }
    if (start_perft(&relay->job, &relay->game, static_cast<i32>(depth)) != 0) {
        remark_to_host(relay, "no process could be started");
    }
}

void show_board(Relay* relay, std::string_view)
{
    char view[board_view_size];
    char key[32];
    make_board_view(&relay->game.pos, view);
    snprintf(key, sizeof key, "%016llX", static_cast<unsigned long long>(relay->game.pos.key));
    std::string_view lines = view;
    while (!lines.empty()) {
        const size_t end = lines.find('\n');
        tell_host(relay, lines.substr(0, end));
        lines = end == std::string_view::npos ? "" : lines.substr(end + 1);
    }
    tell_host(relay, "");
    tell_host(relay, "Fen: " + whole_fen(&relay->game));
    tell_host(relay, std::string("Key: ") + key);
    if (!relay->game.defect.empty()) {
        tell_host(relay, "Defect: " + relay->game.defect);
    }
}

void show_evaluation(Relay* relay, std::string_view)
{
    if (!relay->game.defect.empty()) {
        remark_to_host(relay, "position: " + relay->game.defect);
    } else if (start_evaluation(&relay->job, &relay->settings, &relay->game) != 0) {
        remark_to_host(relay, "no process could be started");
    }
}

void run_benchmark_word(Relay* relay, std::string_view words)
{
    i64 depth = default_bench_depth;
    const std::string_view word = take_word(&words);
    if (!word.empty() && (!read_number(word, &depth) || depth < 1)) {
        remark_to_host(relay, "bench takes a depth");
    } else if (start_benchmark(&relay->job, static_cast<i32>(std::min<i64>(depth, deepest_bench)))
        != 0) {
        remark_to_host(relay, "no process could be started");
    }
}

void show_help(Relay* relay, std::string_view)
{
    for (const char* line : {
             "Words of UCI: uci, isready, ucinewgame, setoption, position, go, stop,",
             "  ponderhit, quit.",
             "  position startpos moves e2e4 e7e5",
             "  position fen FEN",
             "  go depth N | nodes N | movetime MS | infinite | mate N | wtime MS btime MS ...",
             "  setoption name Hash value 256",
             "And for a person:",
             "  d              the board, its FEN and key",
             "  eval           what each term says about it",
             "  perft N        counts the moves N plies deep, by first move",
             "  bench [DEPTH]  the benchmark",
             "  quit           ends the program",
         }) {
        tell_host(relay, line);
    }
}

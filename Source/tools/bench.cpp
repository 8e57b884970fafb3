// The benchmark: a fixed list of positions, searched one by one from an empty table, with the
// time of each and the total of nodes, so that two builds or two machines can be compared. On one
// thread the nodes are the same everywhere: they are the search's signature, and every rule of the
// search that is touched shows in them. So each position starts from an empty table.
#include "base/clock.h"
#include "base/output.h"
#include "base/version.h"
#include "board/position.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/board_text.h"
#include "shell/prepare_search.h"
#include "shell/think_loop.h"
#include "tools/search_setup.h"
#include "tools/tools.h"

// So long that the depth ends a position; one that takes longer ends all the same.
static constexpr f64 seconds_per_position = 99.0;

static constexpr i32 deepest_told_limit = 40; // a limit above it means that none was given
static constexpr i32 default_depth = 17;
static constexpr f64 least_total_seconds = 0.01; // keeps the last division away from zero
static constexpr i32 pass_microseconds = 1000;   // between two looks at clock and input
static constexpr i32 position_count = 20;

// Middlegames for the most part. Index 3 and 9 are the same
// text: totals stay comparable with those of earlier runs.
static constexpr const char* bench_texts[position_count] = {
    "r1bqkb1r/pp1ppppp/2n2n2/8/3NP3/2N5/PPP2PPP/R1BQKB1R b KQkq -",
    "1n5k/3q3p/pp1p2pB/5r2/1PP1Qp2/P6P/6P1/2R3K1 w - -",
    "1r1qbr1k/4bp1p/p3p2Q/3pP3/2pP4/P1N1PN2/1PR2RP1/6K1 b - -",
    "2r1q2k/7p/p1np1P1P/8/1pP2R2/8/PP1Q4/R1KN2r1 b - -",
    "r2r2k1/5pp1/2bPp3/p1N4p/1qQ5/2P2P2/BP4PP/1K1R4 b - -",
    "5r1k/5rp1/p1n1p1qp/2P1p3/P7/4QN1P/5PP1/2R1R2K w - -",
    "2r3k1/1pq1b1p1/p1b1pr1p/8/PP2pP2/2P1B3/4B1PP/RQR4K w - -",
    "1r3b2/3R2pk/6q1/3Q1p2/p6P/4B2P/1P3P1K/8 w - -",
    "r2r2k1/6bp/1P2q1p1/4pp2/p1N5/2Q5/PPR3PP/4R2K b - -",
    "2r1q2k/7p/p1np1P1P/8/1pP2R2/8/PP1Q4/R1KN2r1 b - -",
    "r1bq1r1k/p1pnbpp1/1p2p3/6p1/3PB3/5N2/PPPQ1PPP/2KR3R w - - ",
    "r1b2rk1/1p1nbppp/pq1p4/3B4/P2NP3/2N1p3/1PP3PP/R2Q1R1K w - -",
    "r3r1kb/1npb1p1p/2q2np1/4p1B1/ppP1P2Q/1P2RNNP/P1B2PP1/3R2K1 w - -",
    "2rr3k/2qnbppp/p1n1p3/1p1pP3/3P1N2/1Q1BBP2/PP3P1P/1KR3R1 w - -",
    "3q1r1k/1b3ppp/p1n5/1p1pPB2/2rP4/P6N/1P2Q1PP/R4RK1 w - -",
    "r1b1k2r/1p1pppb1/p5pp/3P4/q2p1B2/3P1Q2/PPP2PPP/R3R1K1 w kq -",
    "R4bk1/2Bbp2p/2p2pp1/1rPp4/3P4/4P2P/4BPPK/1q1Q4 w - -",
    "r2q1rk1/5ppp/3b4/1nnP2P1/1Q3BbP/Pp4N1/1P4B1/1KN2R1R b - -",
    "r7/5pk1/5p2/2p5/pp6/1P1B1KPN/P6P/8 b - -",
    "r2q3r/1p1bbQ2/4p1Bk/3pP3/1n1P1P1p/pP6/Pn4PP/R1B1R1K1 w - -",
};

// Searches the console's position to its end. Input is read meanwhile: a stop ends this position,
// and no command changes the limits of the others. Alone on the calling thread nothing is read, and
// a profile shows the search without a waiting thread beside it.
static void search_position(Dialogue* dialogue, bool single)
{
    store(engine_state, EngineState::Thinking); // so that check_time minds the limits
    if (single) {
        store(dialogue->limits.depth_limit, default_depth);
        if (num_threads > 0) {
            search_sync(dialogue->game);
        }
    } else {
        const SearchSetup setup = keep_setup(dialogue);
        wake_workers(dialogue->game);
        while (busy_workers() != 0) {
            tick_clock(dialogue);
            poll_input(dialogue);
            sleep_microseconds(pass_microseconds);
        }
        restore_setup(dialogue, &setup);
    }
    store(engine_state, EngineState::Idle);
    // Read once more behind the search: the workers' last look may lie a while back.
    update_elapsed();
    collect_stats();
}

// The command line's depth holds if it gave one. The lines of the searches are left out: printing
// them would take a part of the time that depends on the terminal.
void run_benchmark(Dialogue* dialogue, i32 count, bool single)
{
    dialogue->limits.tc_seconds = seconds_per_position;
    store(noise, silent_noise);
    if (load(dialogue->limits.depth_limit) > deepest_told_limit) {
        store(dialogue->limits.depth_limit, default_depth);
    }
    print_line_format("%s running benchmark using %d threads", version_string, num_threads);

    f64 total_nodes = 0.0;
    f64 total_seconds = least_total_seconds;
    for (i32 i = 0; i < count && i < position_count; ++i) {
        read_position(&dialogue->game->pos, bench_texts[i]);
        // What the last position left in the table would change the nodes of this one.
        clear_hash_if_idle();
        prepare_search(dialogue);
        search_position(dialogue, single);
        total_nodes += static_cast<f64>(search_totals.counters[CountNodes]);
        total_seconds += load(search_clock.elapsed);
        print_line_format("pos %2d: %6.2f seconds", i, load(search_clock.elapsed));
    }
    print_line_format("total time= %0.2f seconds, nodes= %.0f, nps= %.0f", total_seconds,
        total_nodes, total_nodes / total_seconds);
    dialogue->quit_flag = true;
}

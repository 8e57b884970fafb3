// Micro-benchmarks of the hot routines, each over the same positions. One iteration of a
// benchmark is one call of the routine named, on the next move or position in turn.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "board/moves.h"
#include "board/tables.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "search/hash.h"
#include "search/params.h"
#include "shell/engine_options.h"
#include "shell/options.h"
#include "shell/run_state.h"

static const char* const positions[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - -",
    "2r3k1/1pq1b1p1/p1b1pr1p/8/PP2pP2/2P1B3/4B1PP/RQR4K w - -",
    "r2q1rk1/5ppp/3b4/1nnP2P1/1Q3BbP/Pp4N1/1P4B1/1KN2R1R b - -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
};
static constexpr int position_count = sizeof positions / sizeof positions[0];

// The legal moves of one position.
struct MoveSet {
    Position pos;
    Move moves[256];
    int count;
};

static MoveSet move_sets[position_count];

static void fill_move_set(MoveSet* set, const char* text)
{
    Position* pos = &console_thread->pos;
    parse_epd(pos, text);
    console_thread->ply = 1;
    init_move_lists(console_thread);
    gen_all_moves(pos);
    set->pos = *pos;
    set->count = 0;
    const MoveEntry* entry = console_thread->ply_rec[1].list_start;
    for (; entry->move != EndOfList && set->count < 256; entry++) {
        if (is_legal_move(pos, pos->stm, entry->move)) {
            set->moves[set->count++] = entry->move;
        }
    }
}

static void make_engine()
{
    init_run_state();
    init_tables();
    init_default_options();
    engine_options = saved_options;
    console_thread = new_thread_record(0);
    hash_mb = 64;
    if (!console_thread || !alloc_hash()) {
        fprintf(stderr, "no memory\n");
        exit(1);
    }
    set_search_params();
    init_eval_params(0);
    publish_options();
    for (int i = 0; i < position_count; i++) {
        fill_move_set(&move_sets[i], positions[i]);
    }
}

// Puts the console's record on position index of the list, and returns its Position.
static Position* set_up(int index)
{
    console_thread->undo_count = 0;
    console_thread->pos = move_sets[index].pos;
    console_thread->ply = 1;
    init_move_lists(console_thread);
    return &console_thread->pos;
}

// Calls work(pos, side, move) on the legal moves of all positions in turn.
template <typename Work>
static void over_moves(benchmark::State& state, Work work)
{
    int index = 0;
    int next = 0;
    Position* pos = set_up(index);
    for (auto _ : state) {
        work(pos, pos->stm, move_sets[index].moves[next]);
        if (++next == move_sets[index].count) {
            next = 0;
            index = (index + 1) % position_count;
            pos = set_up(index);
        }
    }
}

static void make_and_unmake(benchmark::State& state)
{
    over_moves(state, [](Position* pos, i32, Move move) {
        make_move(pos, move);
        unmake_move(pos);
    });
}
BENCHMARK(make_and_unmake);

static void legal_move(benchmark::State& state)
{
    over_moves(state, [](Position* pos, i32 side, Move move) {
        benchmark::DoNotOptimize(is_legal_move(pos, side, move));
    });
}
BENCHMARK(legal_move);

static void static_exchange(benchmark::State& state)
{
    over_moves(state, [](Position* pos, i32 side, Move move) {
        benchmark::DoNotOptimize(swapoff(pos, side, from_square(move), to_square(move)));
    });
}
BENCHMARK(static_exchange);

static void hash_probe(benchmark::State& state)
{
    for (const MoveSet& set : move_sets) {
        console_thread->pos = set.pos;
        store_hash(&console_thread->pos, 1, 5, set.moves[0], 10, -20, 20);
    }
    over_moves(state, [](Position* pos, i32, Move) {
        HashEntry entry;
        probe_hash(pos, &entry);
        benchmark::DoNotOptimize(entry);
    });
}
BENCHMARK(hash_probe);

// All moves of a position through the staged selection.
static void next_move_all(benchmark::State& state)
{
    int index = 0;
    i64 moves = 0;
    for (auto _ : state) {
        Position* pos = set_up(index);
        PlyRecord* record = &console_thread->ply_rec[1];
        record->stage = UnreadStageFlag | FullSearch;
        record->hash_move = NoMove;
        record->in_check = 0;
        record->check_sq = NoSquare;
        while (next_move(pos)) {
            moves++;
        }
        index = (index + 1) % position_count;
    }
    state.SetItemsProcessed(moves);
}
BENCHMARK(next_move_all);

// At ply 1 the caches do not answer, so every call is a full evaluation but for the pawns.
static void full_evaluation(benchmark::State& state)
{
    int index = 0;
    for (auto _ : state) {
        Position* pos = set_up(index);
        benchmark::DoNotOptimize(evaluate(console_thread, pos->stm, 1, 0, 0));
        index = (index + 1) % position_count;
    }
}
BENCHMARK(full_evaluation);

// Leaves of the move tree of depth 3 from each position, as items.
static void perft_3(benchmark::State& state)
{
    const u64 before = load(console_thread->counters[CountNodes]);
    int index = 0;
    for (auto _ : state) {
        Position* pos = set_up(index);
        perft(console_thread, pos->stm, 1, 3);
        index = (index + 1) % position_count;
    }
    state.SetItemsProcessed(static_cast<i64>(load(console_thread->counters[CountNodes]) - before));
}
BENCHMARK(perft_3)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    make_engine();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

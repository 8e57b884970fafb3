// Micro-benchmarks of the hot routines, each over the same positions. One iteration of a
// benchmark is one call of the routine named, on the next move or position in turn.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "board/moves.h"
#include "board/tables.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "fathom/tbcore.h"
#include "fathom/tbinit.h"
#include "fathom/tbmoves.h"
#include "fathom/tbprobe.h"
#include "search/hash.h"
#include "search/move_lists.h"

// The record that everything here works on.
static SearchThread* game;

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
    Position* pos = &game->pos;
    parse_epd(pos, text);
    game->ply = 1;
    init_move_lists(game);
    gen_all_moves(pos);
    set->pos = *pos;
    set->count = 0;
    const MoveEntry* entry = game->ply_rec[1].list_start;
    for (; entry->move != EndOfList && set->count < 256; ++entry) {
        if (is_legal_move(pos, pos->stm, entry->move)) {
            set->moves[set->count++] = entry->move;
        }
    }
}

static void make_engine()
{
    init_board_tables();
    game = new_thread_record(0);
    if (!game || !alloc_hash(64)) {
        fprintf(stderr, "no memory\n");
        exit(1);
    }
    init_eval_params(PlainWeights, nullptr);
    for (int i = 0; i < position_count; ++i) {
        fill_move_set(&move_sets[i], positions[i]);
    }
}

// Puts the console's record on position index of the list, and returns its Position.
static Position* set_up(int index)
{
    game->undo_count = 0;
    game->pos = move_sets[index].pos;
    game->ply = 1;
    init_move_lists(game);
    return &game->pos;
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
        benchmark::DoNotOptimize(swaps_at_least(pos, side, from_square(move), to_square(move), 0));
    });
}
BENCHMARK(static_exchange);

static void hash_probe(benchmark::State& state)
{
    for (const MoveSet& set : move_sets) {
        game->pos = set.pos;
        store_hash(&game->pos, 1, 5, set.moves[0], 10, -20, 20);
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
        PlyRecord* record = &game->ply_rec[1];
        record->stage = UnreadStageFlag | FullSearch;
        record->hash_move = NoMove;
        record->in_check = 0;
        record->check_sq = NoSquare;
        while (next_move(pos)) {
            ++moves;
        }
        index = (index + 1) % position_count;
    }
    state.SetItemsProcessed(moves);
}
BENCHMARK(next_move_all);

// At ply 1 the caches do not answer, so every call is a full evaluation but for the pawns.
static void full_evaluation(benchmark::State& state)
{
    u16 danger[2];
    int index = 0;
    for (auto _ : state) {
        Position* pos = set_up(index);
        benchmark::DoNotOptimize(evaluate(game, pos, 1, false, danger));
        index = (index + 1) % position_count;
    }
}
BENCHMARK(full_evaluation);

// Leaves of the move tree of depth 3 from each position, as items.
static void perft_3(benchmark::State& state)
{
    const u64 before = load(game->counters[CountNodes]);
    int index = 0;
    for (auto _ : state) {
        Position* pos = set_up(index);
        perft(game, pos->stm, 1, 3);
        index = (index + 1) % position_count;
    }
    state.SetItemsProcessed(static_cast<i64>(load(game->counters[CountNodes]) - before));
}
BENCHMARK(perft_3)->Unit(benchmark::kMicrosecond);

// ---- Endgame tables: random positions of the tables of four pieces in the folder syzygy of
// VESK_TABLE_DATA, or of the test data. All have been read once, so the pages are in memory.

static constexpr size_t table_sample = 1 << 16;
static std::vector<TbPos> table_positions;

static u32 next_random(u64* state, u32 limit)
{
    *state = *state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<u32>(*state >> 33) % limit;
}

static TbPos random_board(const std::string& name, u64* random)
{
    TbPos pos = {};
    u64* const sets[] = { &pos.kings, &pos.queens, &pos.rooks, &pos.bishops, &pos.knights,
        &pos.pawns };
    u64* side = next_random(random, 2) == 0 ? &pos.white : &pos.black;
    for (const char letter : name) {
        if (letter == 'v') {
            side = side == &pos.white ? &pos.black : &pos.white;
            continue;
        }
        u64 square;
        do {
            const bool pawn = letter == 'P';
            square = 1ULL << (pawn ? 8 + next_random(random, 48) : next_random(random, 64));
        } while (((pos.white | pos.black) & square) != 0);
        *side |= square;
        *sets[std::string("KQRBNP").find(letter)] |= square;
    }
    pos.turn = static_cast<u8>(next_random(random, 2));
    return pos;
}

// The names of the tables of four pieces that a folder has.
static std::vector<std::string> tables_of_four(const std::string& folder)
{
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
        const std::string name = entry.path().stem();
        if (entry.path().extension() == ".rtbw" && name.size() == 5) {
            names.push_back(name);
        }
    }
    return names;
}

// Fills table_positions; positions without an answer are left out.
static void make_table_positions()
{
    const char* given = getenv("VESK_TABLE_DATA");
    const std::string folder = std::string(given != nullptr ? given : VESK_TEST_DATA) + "/syzygy";
    tb_init(folder.c_str());
    const std::vector<std::string> names = tables_of_four(folder);
    u64 random = 1;
    for (size_t tries = 0; !names.empty() && tries < 8 * table_sample; ++tries) {
        const TbPos pos = random_board(names[tries % names.size()], &random);
        i32 success = 0;
        if (table_positions.size() < table_sample && !tb_in_check(&pos, !pos.turn)) {
            tb_probe_wdl(&pos, &success);
        }
        if (success != 0) {
            table_positions.push_back(pos);
        }
    }
}

static void table_probes(benchmark::State& state, i32 (*probe)(const TbPos*, i32*))
{
    if (table_positions.empty()) {
        state.SkipWithError("no tables of four pieces");
        return;
    }
    size_t next = static_cast<size_t>(state.thread_index()) * 4099 % table_positions.size();
    for (auto _ : state) {
        i32 success = 0;
        benchmark::DoNotOptimize(probe(&table_positions[next], &success));
        next = next + 1 < table_positions.size() ? next + 1 : 0;
    }
    state.SetItemsProcessed(state.iterations());
}

static void table_wdl(benchmark::State& state)
{
    table_probes(state, tb_probe_wdl);
}
BENCHMARK(table_wdl)->Threads(1)->Threads(2);

static void table_dtz(benchmark::State& state)
{
    table_probes(state, tb_probe_dtz);
}
BENCHMARK(table_dtz);

int main(int argc, char** argv)
{
    make_engine();
    make_table_positions();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

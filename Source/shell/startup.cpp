// Calibration: the node rate of this machine, by which a wanted Elo becomes a node rate. Below it,
// calls of lower floors with what the user is told of them.
#include "shell/startup.h"

#include <cstdio>

#include "base/output.h"
#include "board/moves.h"
#include "eval/evaluate.h"
#include "fathom/tbcore.h"
#include "fathom/tbinit.h"
#include "search/clock.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/strength.h"
#include "search/threads.h"
#include "shell/board_text.h"

// Long enough for a figure steady to some per cent, short enough for a chess program that waits for
// the first answer.
static constexpr f64 calibration_seconds = 0.3;
static constexpr f64 search_speed_factor = 1.17; // a search's nodes for one of calibration
static constexpr f64 least_seconds = 0.001;      // keeps the division away from zero
static constexpr i32 moves_per_node = 10;

// Ply 1 as a root: an open window, and nothing known yet. The place of its move list stays.
static void init_root_ply(SearchThread* thread)
{
    PlyRecord* ply_rec = &thread->ply_rec[1];
    MoveEntry* list_start = ply_rec->list_start;
    *ply_rec = PlyRecord {};
    thread->node_depth[1] = 0;
    ply_rec->list_start = list_start;
    ply_rec->list_cursor = list_start;
    ply_rec->alpha = -ScoreInfinite;
    ply_rec->beta = ScoreInfinite;
    ply_rec->check_sq = NoSquare;
}

// What a node of the search costs without its children: one evaluation, one generation, and some
// moves made and taken back. No search is run, as its nodes would hang on tables that are not built
// yet.
static void visit_calibration_node(SearchThread* thread)
{
    Position* pos = &thread->pos;
    PlyRecord* ply_rec = &thread->ply_rec[1];
    const i32 side = pos->stm;
    add(thread->counters[CountNodes], 1);
    const i32 checker = find_checker(pos, pos->king_sq[side], side ^ 1, occupied(pos));
    ply_rec->check_sq = static_cast<u8>(checker);
    ply_rec->in_check = checker != NoSquare;
    evaluate(thread, pos, 1, ply_rec->in_check != 0, ply_rec->danger);
    gen_all_moves(pos);
    i32 made = 0;
    for (const MoveEntry* entry = ply_rec->list_start;
         entry->move != EndOfList && made < moves_per_node; ++entry) {
        if (is_legal_move(pos, side, entry->move)) {
            make_move(pos, entry->move);
            unmake_move(pos);
            ++made;
        }
    }
}

// On the record of worker 0, so that the caches and lists measured are those of a search.
void calibrate(Dialogue* dialogue)
{
    read_position(&dialogue->game->pos, start_position);
    start_clock(&dialogue->limits, 0.0);
    sync_workers(dialogue->game);
    // The configuration file may have asked for no workers at all.
    SearchThread* thread = num_threads > 0 ? load(workers[0]) : dialogue->game;
    init_root_ply(thread);
    while (load(search_clock.elapsed) < calibration_seconds) {
        visit_calibration_node(thread);
        update_elapsed();
    }
    update_elapsed();
    const f64 nodes = static_cast<f64>(load(thread->counters[CountNodes]));
    strength.calibration_nps =
        nodes * search_speed_factor / (load(search_clock.elapsed) + least_seconds);
    strength.estimated_elo = elo_of_nps(strength.calibration_nps);
    print_line_format("info string et= %.3f, calibration nps= %0.0f", load(search_clock.elapsed),
        strength.calibration_nps);
}

// The line comes only with the memory.
bool make_hash_table(i32 megabytes)
{
    if (!alloc_hash(megabytes)) {
        fprintf(stderr, "no memory for a hash table of %d megabytes\n", megabytes);
        return false;
    }
    print_line_format("info string allocated %d Mbytes for hash table\n", megabytes);
    return true;
}

void register_tables(const char* path)
{
    const i32 count = tb_init(path);
    if (count >= 0) {
        print_plain("info string found %d tablebases\n", count);
    }
}

// Calibration: the node rate of this machine, by which a wanted Elo becomes a node rate.
#include "shell/startup.h"

#include "board/moves.h"
#include "eval/evaluate.h"
#include "search/search.h"
#include "search/threads.h"
#include "base/output.h"
#include "shell/run_state.h"
#include "search/clock.h"

static constexpr f64 calibration_seconds = 0.3;
static constexpr f64 search_speed_factor = 1.17; // a search's nodes for one of calibration
static constexpr f64 least_seconds = 0.001;      // keeps the division away from zero
static constexpr i32 moves_per_node = 10;

// Ply 1 as a root: an open window, and nothing known yet.
static void init_root_ply(SearchThread* thread)
{
    PlyRecord* ply_rec = &thread->ply_rec[1];
    MoveEntry* list_start = ply_rec->list_start;
    *ply_rec = PlyRecord {};
    ply_rec->list_start = list_start;
    ply_rec->list_cursor = list_start;
    ply_rec->alpha = -ScoreInfinite;
    ply_rec->beta = ScoreInfinite;
    ply_rec->check_sq = NoSquare;
}

// What a node of the search costs without its children: one evaluation, one generation, and some
// moves made and taken back.
static void visit_calibration_node(SearchThread* thread)
{
    Position* pos = &thread->pos;
    PlyRecord* ply_rec = &thread->ply_rec[1];
    const i32 side = pos->stm;
    add(thread->counters[CountNodes], 1);
    const i32 checker =
        find_checker(pos, pos->king_sq[side], side ^ 1, pos->bb[White][0] | pos->bb[Black][0]);
    ply_rec->check_sq = static_cast<u8>(checker);
    ply_rec->in_check = checker != NoSquare;
    evaluate(thread, side, 1, ply_rec->in_check, 0);
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

void calibrate()
{
    parse_epd(&console_thread->pos, start_position);
    start_time = monotonic_seconds();
    store(elapsed, 0.0);
    sync_workers();
    // The configuration file may have asked for no workers at all.
    SearchThread* thread = num_threads > 0 ? load(workers[0]) : console_thread;
    init_root_ply(thread);
    while (load(elapsed) < calibration_seconds) {
        visit_calibration_node(thread);
        update_elapsed();
    }
    update_elapsed();
    const f64 nodes = static_cast<f64>(load(thread->counters[CountNodes]));
    calibration_nps = nodes * search_speed_factor / (load(elapsed) + least_seconds);
    estimated_elo = elo_of_nps(calibration_nps);
    print_line_format(
        "info string et= %.3f, calibration nps= %0.0f", load(elapsed), calibration_nps);
}

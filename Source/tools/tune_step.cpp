// One step of logistic regression on one position, and a sampler that takes such steps along a
// random line. The result of a position is modelled as the sigmoid of its evaluation.
// Only the tuning build fills coef: without it no weight changes and the error alone is measured.
//
// This is the step tuner behind train_epd, not the trainer of vesk-tune: it works on the evaluation
// itself, which it asks at each position, and changes eval_params in place, while the trainer
// (tools/trainer) works on terms gathered beforehand and hands over the weights at its end.
#include <cmath>
#include <cstdlib>

#include "base/rounding.h"
#include "board/moves.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "search/move_lists.h"
#include "search/search.h"
#include "tools/tools.h"
#include "tools/training_line.h"

static constexpr i32 uncached_ply = 1;              // no cache of the evaluation answers there
static constexpr i32 largest_deficit = 10;          // of material, in points of phase_mtl: a queen
static constexpr i32 random_score_mask = 255;       // of rand(): scores from 0 to 255
static constexpr i32 no_move_score = 1 - ScoreMate; // mated at once

constinit i64 samples = 0;
constinit f64 err_sum = 0.0;

// Moves the weights of the position just evaluated against error, which is from white's view.
// A weight's two values share it by the game's phase. coef, the derivative of the score, has been
// noted by the evaluation and is used up here: left standing it would count for the next position.
// The order of float and double is part of the outcome: mg goes by way of double, eg does not.
static void move_weights(f32 phase, f32 error, f32 rate)
{
    const f32 mg_error = to_f32((1.0 - static_cast<f64>(phase)) * static_cast<f64>(error));
    const f32 eg_error = phase * error;
    for (i32 index = 1; index < eval_param_count; ++index) { // entry 0 anchors the scale
        EvalParam* entry = &eval_params[index];
        if (entry->coef == 0.0f || entry->frozen != 0) {
            continue;
        }
        const f32 step = entry->coef * rate;
        entry->coef = 0.0f;
        set_weight(index, entry->mg - static_cast<f64>(step * mg_error),
            entry->eg - static_cast<f64>(step * eg_error));
    }
}

// The gradient of the squared error would have the sigmoid's slope as a factor more; that of the
// likelihood, which logistic regression raises, is the difference alone.
i32 tune_step(Position* pos, f32 target, f32 rate)
{
    SearchThread* thread = pos->thread;
    u16 danger[2];
    const i32 score = evaluate(thread, pos, uncached_ply, false, danger);
    f32 error = sigmoid(static_cast<f32>(score)) - target;
    if (pos->stm == Black) {
        error = -error;
    }
    if (eval_param_count >= 2) {
        move_weights(thread->eval_work.phase, error, rate);
    }
    return score;
}

i32 tune_sampled_step(Position* pos, f32 target, f32 rate)
{
    const i32 score = tune_step(pos, target, rate);
    ++samples;
    err_sum += static_cast<f64>(std::fabs(sigmoid(static_cast<f32>(score)) - target));
    return score;
}

// Trains on the position's own evaluation, which only a changing table can miss. Returns it.
static i32 sample_position(Position* pos, f32 rate)
{
    u16 danger[2];
    const i32 value = evaluate(pos->thread, pos, uncached_ply, false, danger);
    tune_sampled_step(pos, sigmoid(static_cast<f32>(value)), rate);
    return value;
}

// All moves of the position at the list of a ply, with random scores: picking the best of them in
// turn plays them in random order.
static MoveEntry* list_random_moves(Position* pos, i32 index)
{
    PlyRecord* rec = &pos->thread->ply_rec[index];
    pos->thread->ply = static_cast<i16>(index);
    gen_all_moves(pos);
    for (MoveEntry* entry = rec->list_start; entry->move != EndOfList; ++entry) {
        entry->score = static_cast<i16>(rand() & random_score_mask);
    }
    return rec->list_start;
}

// The first legal move is the line's: only the moves before it are tried in vain. A side that is
// far ahead ends it, since a random line would not make a game of it any more; so does the end of
// the undo stack or of the plies' records. A side in check is not evaluated, as in the search.
i32 tune_sample(Position* pos, i32 index, u32 depth, f32 rate)
{
    const i32 side = pos->stm;
    if (pos->phase_mtl[side ^ 1] + largest_deficit < pos->phase_mtl[side]) {
        return 0;
    }
    const bool in_check = is_attacked(pos, pos->king_sq[side], side ^ 1);
    const i32 value = in_check ? 0 : sample_position(pos, rate);
    if (depth == 0 || index >= ply_count - 2 || pos->thread->undo_count >= undo_size - 1) {
        return value;
    }
    for (MoveEntry* entry = list_random_moves(pos, index); entry->move != EndOfList; ++entry) {
        pick_best(entry);
        if (entry->move == NoMove || !is_legal_move(pos, side, entry->move)) {
            continue;
        }
        pos->thread->ply_rec[index].list_cursor = entry;
        make_move(pos, entry->move);
        const i32 score = -tune_sample(pos, index + 1, depth - 1, rate);
        entry->score = static_cast<i16>(score);
        unmake_move(pos);
        return score > no_move_score ? score : no_move_score;
    }
    return no_move_score;
}

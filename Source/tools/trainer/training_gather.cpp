// Netting the notes of an evaluation into terms, with the target that the line makes up.
#include "tools/trainer/training_gather.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/rounding.h"
#include "eval/evaluate.h"
#include "search/thread.h"

// The evaluation's caches hold scores and not the notes behind them.
static constexpr i32 uncached_ply = 1;
// What a term has room for; no position comes near.
static constexpr f32 largest_coef = 127.0f;

// What float arithmetic and steps of coef may add to the difference of scores, centipawns.
static constexpr f64 arithmetic_slack = 0.05;

// The target by result and score, in the rule's shares, or by the one that is there; from the view
// that both have. Fused, on every machine: whether a compiler fuses by itself depends on the
// processor.
static f32 target_of(f64 result, i16 score, const TargetRule* rule)
{
    if (score == no_score) {
        return to_f32(result);
    }
    const f32 expected = sigmoid(static_cast<f32>(score), rule->factor);
    if (result == unknown_result) {
        return expected;
    }
    const f64 share = rule->score_share;
    return to_f32(std::fma(1.0 - share, result, share * static_cast<f64>(expected)));
}

void settle_target(TrainingPosition* position, const TargetRule* rule)
{
    position->target = target_of(static_cast<f64>(position->target), position->score, rule);
}

// Puts target and score of the line into a record, turned to white's view. A bracket is the whole
// target. Where a factor is fitted every record is raw first, whether the line is read before the
// factor is known or after: so it gets the same target to the last digit.
static void set_target(
    TrainingPosition* record, const LineJudgement* said, i32 side, const TargetRule* rule)
{
    const i16 score = said->is_bracket ? no_score : said->score;
    record->score = score == no_score || side == White ? score : static_cast<i16>(-score);
    if (!rule->fits) {
        const f32 target = target_of(said->result, score, rule);
        record->target = side == Black ? 1.0f - target : target;
        return;
    }
    const bool is_turned = side == Black && said->result != unknown_result;
    record->target = to_f32(is_turned ? 1.0 - said->result : said->result);
    if (!rule->is_raw) {
        settle_target(record, rule);
    }
}

// By phase and by score, white's or black's; the evaluation stands in for a score that the line
// does not have.
static f32 emphasis_of(f64 phase, f64 score, const TargetRule* rule)
{
    const f64 by_phase = 1.0 + (rule->late - 1.0) * phase;
    const f64 widths = rule->near_draw > 0.0 ? score / rule->near_draw : 0.0;
    return to_f32(by_phase / (1.0 + widths * widths));
}

// Compares the evaluation with the sum of its notes, unrounded. Each part of a weight may lose up
// to one centipawn, the blend and the last step one each. The bound scales with the score, since
// the cut fractions do.
static void check_rebuilt(RebuiltCheck* check, const EvalWork* work, i32 score)
{
    const TermNotes* notes = &work->notes;
    const f64 phase = static_cast<f64>(work->phase);
    f64 sum = 0.0;
    for (i32 i = 0; i < notes->count; ++i) {
        const EvalParam* entry = &eval_params[notes->list[i].weight];
        sum += static_cast<f64>(notes->list[i].count)
            * ((1.0 - phase) * entry->mg + phase * entry->eg);
    }
    const f64 scale = static_cast<f64>(notes->scale);
    const f64 difference = std::fabs(scale * sum - score);
    const f64 bound = scale * (notes->fractions + 1) + 1.0 + arithmetic_slack;
    ++check->positions;
    check->failed = check->failed || difference > bound;
    if (difference > check->largest) {
        check->largest = difference;
        check->bound = bound;
    }
}

// Adds up the notes by weight, as both sides and several terms may note the same one. Returns the
// number of weights noted, listed in touched: clearing these alone is quicker than clearing all
// sums.
static i32 net_notes(Gatherer* gatherer, const TermNotes* notes)
{
    i32 count = 0;
    for (i32 i = 0; i < notes->count; ++i) {
        const TermNote* note = &notes->list[i];
        if (!gatherer->is_touched[note->weight]) {
            gatherer->is_touched[note->weight] = true;
            gatherer->sums[note->weight] = 0.0f;
            gatherer->touched[count++] = note->weight;
        }
        gatherer->sums[note->weight] += note->count;
    }
    return count;
}

// To the nearest step, which is far below what a score shows.
static u32 pack_term(i32 weight, f32 coef)
{
    const f32 inside = std::fmin(std::fmax(coef, -largest_coef), largest_coef);
    const i32 steps = static_cast<i32>(std::lround(inside / coef_step));
    return (static_cast<u32>(steps) << weight_bits) | static_cast<u32>(weight);
}

// Whether the trainer may change a weight. Entry 0 anchors the scale.
static bool is_trained(i32 weight)
{
    return weight != mtl_pawn && eval_params[weight].frozen == 0;
}

// Completes the record of the position just evaluated, writes it and returns its number of words.
// Weights that cancel out leave no term; those that are not trained are summed up here once, since
// no pass changes them. Clears the marks of net_notes on its way.
static u32 pack_position(Gatherer* gatherer, TrainingPosition record, u32* out)
{
    const EvalWork* work = &gatherer->thread->eval_work;
    const f64 phase = static_cast<f64>(work->phase);
    const i32 count = net_notes(gatherer, &work->notes);
    f64 fixed = 0.0;
    u32 terms = 0;
    for (i32 i = 0; i < count; ++i) {
        const i32 weight = gatherer->touched[i];
        const f32 coef = gatherer->sums[weight];
        gatherer->is_touched[weight] = false;
        if (coef == 0.0f) {
            continue;
        }
        ++gatherer->counts[weight];
        if (is_trained(weight)) {
            out[position_words + terms++] = pack_term(weight, coef);
        } else {
            const EvalParam* entry = &eval_params[weight];
            fixed += static_cast<f64>(coef) * ((1.0 - phase) * entry->mg + phase * entry->eg);
        }
    }
    record.terms = static_cast<u16>(terms);
    record.phase = work->phase;
    record.fixed = to_f32(fixed);
    record.scale[White] = work->notes.scale_ahead[White];
    record.scale[Black] = work->notes.scale_ahead[Black];
    memcpy(out, &record, sizeof record);
    return position_words + terms;
}

// Targets are turned to white's view, as the scores are.
LineVerdict gather_line(Gatherer* gatherer, const char* line, bool check, u32* out, u32* words)
{
    *words = 0;
    Position* pos = &gatherer->thread->pos;
    LineJudgement said;
    const LineVerdict verdict = judge_line(pos, line, &said);
    if (verdict != LineUsed) {
        return verdict;
    }
    u16 danger[2];
    const i32 own_view = evaluate(gatherer->thread, pos, uncached_ply, false, danger);
    const i32 score = pos->stm == White ? own_view : -own_view;
    if (gatherer->thread->eval_work.notes.count == 0) {
        return LineWithoutWeights;
    }
    if (check) {
        check_rebuilt(&gatherer->check, &gatherer->thread->eval_work, score);
    }
    TrainingPosition record = {};
    set_target(&record, &said, pos->stm, &gatherer->rule);
    record.emphasis = emphasis_of(static_cast<f64>(gatherer->thread->eval_work.phase),
        said.score != no_score ? said.score : score, &gatherer->rule);
    *words = pack_position(gatherer, record, out);
    return LineUsed;
}

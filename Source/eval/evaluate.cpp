// The frame of the evaluation: early exits, caches, order of the terms, and the way from two
// score pairs to one number. All state lies in the thread's EvalWork, which each full evaluation
// rewrites; danger reaches the search through the ply's record.
#include "eval/evaluate.h"

#include <cmath>
#include <cstring>

#include "board/tables.h"
#include "eval/terms.h"

constinit ContemptRule contempt_rule = {};

// Files b to g, where rammed pawns count.
static constexpr u64 rammed_files = 0x7e7e7e7e7e7e7e7eULL;

i32 taper(i32 word, f32 phase)
{
    const f32 eg = static_cast<f32>(score_eg(word)) * phase;
    const f64 blend = std::fma(
        1.0 - static_cast<f64>(phase), static_cast<f64>(score_mg(word)), static_cast<f64>(eg));
    return static_cast<i32>(blend);
}

// 0 for full material, rising below 62 of 82 points to 1 for bare kings.
static f32 phase_of(const Position* pos)
{
    const i32 material = pos->phase_mtl[White] + pos->phase_mtl[Black];
    const f32 filled = static_cast<f32>(static_cast<f64>(material) * 0.016);
    return filled > 1.0f ? 0.0f : 1.0f - filled;
}

// The king's square moved off the edge, with its neighbours: always nine squares.
static u64 king_zone_of(i32 king_square)
{
    const i32 file = king_square & 7;
    const i32 rank = king_square >> 3;
    const i32 zone_file = file == 0 ? 1 : file == 7 ? 6 : file;
    const i32 zone_rank = rank == 0 ? 1 : rank == 7 ? 6 : rank;
    const i32 square = zone_rank * 8 + zone_file;
    return king_attacks[square] | bit(square);
}

// Everything that the terms take as given.
static void init_work(EvalWork* work)
{
    const Position* pos = work->pos;
    work->phase = phase_of(pos);
    const bool mirror_white = (pos->king_sq[White] & 7) < 4;
    const bool mirror_black = (pos->king_sq[Black] & 7) < 4;
    work->pst_map[White] = mirror_white ? map_mirror_file : map_identity;
    work->pst_map[Black] = mirror_black ? map_rotate : map_mirror_rank;
    work->same_wing = mirror_white == mirror_black;
    work->free_passers = 0;
    for (i32 side = White; side <= Black; ++side) {
        work->score[side] = 0;
        work->danger[side] = 0;
        work->attacks[side][King] = king_attacks[pos->king_sq[side]];
        work->king_zone[side] = king_zone_of(pos->king_sq[side]);
    }
}

// Own pawns of rammed pairs on the colour of an own bishop. rammed holds the own pawns.
static void eval_rammed_pawns(EvalWork* work, i32 side, u64 rammed)
{
    const u64 bishops = work->pos->bb[side][Bishop];
    if (bishops & light_squares) {
        add_weight(work, side, bishop_rampawns, popcount(rammed & light_squares));
    }
    if (bishops & dark_squares) {
        add_weight(work, side, bishop_rampawns, popcount(rammed & dark_squares));
    }
}

// The terms that need no attack sets.
static void eval_closing_terms(EvalWork* work)
{
    const Position* pos = work->pos;
    add_weight(work, pos->stm, stm_bonus);
    for (i32 side = White; side <= Black; ++side) {
        if ((pos->piece_count[side] & 0xf00) >= 0x200) {
            add_weight(work, side, bishop_pair);
        }
    }
    const u64 rammed = pos->bb[White][Pawn] & (pos->bb[Black][Pawn] >> 8) & rammed_files;
    if (rammed != 0) {
        eval_rammed_pawns(work, White, rammed);
        eval_rammed_pawns(work, Black, rammed << 8);
    }
    for (i32 side = White; side <= Black; ++side) {
        if (pos->phase_mtl[side] == 5 && pos->phase_mtl[side ^ 1] == 3
            && (pos->piece_count[side] & 15) >= 2) {
            add_weight(work, side, mtl_RvB);
        }
    }
}

// The contempt of the side that started the search, from white's view. It melts away with the
// material of the side that should avoid the draw: the root's own for a positive option.
static i32 contempt_bonus(const Position* pos)
{
    const i32 contempt = load(contempt_rule.contempt);
    if (contempt == 0 || contempt_rule.off) {
        return 0;
    }
    const i32 root_side = contempt_rule.root_side;
    const i32 measured = contempt > 0 ? root_side : root_side ^ 1;
    const i32 pieces = pos->phase_mtl[measured] - 3;
    const i32 pawns = static_cast<i32>(pos->piece_count[measured] & 15);
    // 41 at full material: 29 of the pieces and 12 of the pawns.
    const i32 material = (pieces > 0 ? pieces : 0) + 2 * (pawns < 6 ? pawns : 6);
    const i32 bonus = material * contempt / 41;
    return root_side == White ? bonus : -bonus;
}

// Runs all terms in their order: later ones read the attack sets of earlier ones.
static void run_terms(EvalWork* work)
{
    const Position* pos = work->pos;
    init_work(work);
    init_pawn_sets(work);
    eval_pawns(work);
    take_tally(work, TallyPawns);
    eval_pieces(work);
    eval_king(work, White, pos->king_sq[White]);
    eval_king(work, Black, pos->king_sq[Black]);
    eval_candidates(work);
    eval_passed_pawns(work);
    take_tally(work, TallyPassed);
    eval_threats(work);
    eval_closing_terms(work);
}

static void publish_danger(u16* out, const u16* danger)
{
    out[White] = danger[White];
    out[Black] = danger[Black];
}

void clear_eval_caches(EvalState* state)
{
    memset(state->eval_cache, 0, sizeof state->eval_cache);
    memset(state->pawn_cache, 0, sizeof state->pawn_cache);
}

i32 evaluate(EvalState* state, const Position* pos, i32 ply, bool in_check, u16 danger[2])
{
    EvalWork* work = &state->eval_work;
    const i32 side = pos->stm;
    work->pos = pos;
    work->state = state;
    work->ply = static_cast<u8>(ply);
    work->is_complete = false;
    work->occupied = occupied(pos);
    add(state->eval_counters[CountEvals], 1);
    if constexpr (tuning) {
        clear_notes(work);
    }
    if (in_check) {
        return no_eval;
    }
    if (is_drawn_material(pos)) {
        return 0;
    }
    i32 score = 0;
    if (eval_lone_king(pos, side, &score)) {
        return score;
    }
    EvalCacheEntry* slot = &state->eval_cache[pos->key & (eval_cache_size - 1)];
    if (slot->key == pos->key && ply > 1) {
        add(state->eval_counters[CountEvalHits], 1);
        publish_danger(danger, slot->danger);
        return slot->score;
    }

    run_terms(work);
    const i32 difference = static_cast<i32>(
        static_cast<u32>(work->score[White]) - static_cast<u32>(work->score[Black]));
    work->tapered = taper(difference, work->phase);
    const i32 value = work->tapered + contempt_bonus(pos);
    work->scale = scale_factor(work, value);
    work->is_complete = true;
    score = static_cast<i32>(static_cast<f32>(value) * work->scale);
    if (side == Black) {
        score = -score;
    }
    slot->key = pos->key;
    slot->danger[White] = work->danger[White];
    slot->danger[Black] = work->danger[Black];
    slot->score = static_cast<i16>(score);
    publish_danger(danger, work->danger);
    if constexpr (tuning) {
        publish_notes(work, work->scale);
    }
    return score;
}

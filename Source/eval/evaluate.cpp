// The frame of the evaluation: early exits, caches, order of the terms, and the way from two
// score pairs to one number. What the terms share lies in an EvalWork on the stack of the call,
// where the processor has it at hand; at ply 1 in the thread's own, for the printed table and the
// tuner. danger reaches the search through the ply's record.
#include "eval/evaluate.h"

#include <cmath>
#include <cstring>

#include "base/rounding.h"
#include "board/tables.h"
#include "eval/terms.h"

constinit ContemptRule contempt_rule = {};

// The share of one point of phase_mtl in a full middle game. Full material is 64 points, 32 a side.
// Of these 63 still make 1.008 and 62 make 0.992: the phase is 0 at 63, 0.008 at 62 and gains 0.016
// with each point more that goes, so the first minor piece off the board (61 points) begins it.
static constexpr f64 phase_per_point = 0.016;

// Files b to g, where rammed pawns count: on the edge they close fewer lines.
static constexpr u64 rammed_files = ~(file_a | file_h);

// Pieces alone, in points of phase_mtl, by which mtl_RvB knows a rook against a minor piece; with
// fewer pawns than this the rook's side has little left to win with.
static constexpr i32 rook_points = 5;
static constexpr i32 minor_points = 3;
static constexpr i32 exchange_pawns = 2;

// Contempt at full weight is 41 points of a side: 32 of its pieces less the 3 that do not count,
// and 2 for each of its pawns up to six.
static constexpr i32 contempt_idle_points = 3;
static constexpr i32 contempt_pawn_points = 2;
static constexpr i32 contempt_most_pawns = 6;
static constexpr i32 contempt_full_points = 41;

// What turns the files, or the ranks, of a square round.
static constexpr u64 flip_files = 7;
static constexpr u64 flip_ranks = 56;

// One step leads from the first table to the second in every pair of a piece.
static constexpr i32 pair_step = PST_N2 - PST_N1;
static_assert(PST_B2 - PST_B1 == pair_step && PST_R2 - PST_R1 == pair_step);
static_assert(PST_Q2 - PST_Q1 == pair_step);

// One rounding at the end of the sum, none between: the product of the end game is rounded to f32,
// that of the middle game goes into the sum whole. Other steps would give other scores.
i32 taper(i32 word, f32 phase)
{
    const f32 eg = static_cast<f32>(score_eg(word)) * phase;
    const f64 blend = std::fma(
        1.0 - static_cast<f64>(phase), static_cast<f64>(score_mg(word)), static_cast<f64>(eg));
    return static_cast<i32>(blend);
}

// How far the game has come: 0 with full material, 1 when kings and pawns are left. Pawns do not
// count, since it is pieces that mate. Promotions beyond full material stay at 0.
static f32 phase_of(const Position* pos)
{
    const i32 material = pos->phase_mtl[White] + pos->phase_mtl[Black];
    const f32 filled = to_f32(static_cast<f64>(material) * phase_per_point);
    return filled > 1.0f ? 0.0f : 1.0f - filled;
}

// The king's square moved off the edge, with its neighbours: always nine squares, so that a king
// in the corner, who has fewer squares to flee to, does not look safer than one in the middle.
// All zones are one set moved by a number of squares, which this table holds in a single line of
// the processor's cache.
static constexpr u64 corner_zone = 0x70707;
struct ZoneShifts {
    u8 squares[64];
};
static constexpr ZoneShifts zone_shifts = [] {
    ZoneShifts shifts = {};
    for (i32 square = 0; square < 64; ++square) {
        const i32 file = file_of(square);
        const i32 rank = rank_of(square);
        const i32 zone_file = file == 0 ? 1 : file == 7 ? 6 : file;
        const i32 zone_rank = rank == 0 ? 1 : rank == 7 ? 6 : rank;
        shifts.squares[square] = static_cast<u8>(8 * (zone_rank - 1) + zone_file - 1);
    }
    return shifts;
}();

static u64 king_zone_of(i32 king_square)
{
    return corner_zone << zone_shifts.squares[king_square];
}

// Everything that the terms take as given. Where a piece belongs depends on where its own king
// lives, so each side reads the tables with its king on the king's wing, from its own first rank.
static void init_work(EvalWork* work)
{
    const Position* pos = work->pos;
    work->phase = phase_of(pos);
    // 1 where a king lives on the queen's wing. By sums, not by cases: the wings of two kings are
    // hard to guess.
    const u64 mirror_white = is_on_queen_wing(pos->king_sq[White]);
    const u64 mirror_black = is_on_queen_wing(pos->king_sq[Black]);
    // One table serves all four cases: the squares are mirrored, turned or both.
    work->pst_flip[White] = flip_files * mirror_white;
    work->pst_flip[Black] = flip_files * mirror_black + flip_ranks;
    // Whether the kings live on one wing chooses between the two tables of each piece.
    work->pst_shift = pair_step * static_cast<i32>(mirror_white ^ mirror_black);
    work->pst_words = eval_words + work->pst_shift;
    work->free_passers = 0;
    for (i32 side = White; side <= Black; ++side) {
        work->score[side] = 0;
        work->danger[side] = 0;
        work->attacks[side][King] = king_attacks[pos->king_sq[side]];
        work->king_zone[side] = king_zone_of(pos->king_sq[side]);
    }
}

// A pawn stopped by an enemy pawn stays where it is for long, and a bishop of its colour looks at
// its own pawn's back: each one counts against the bishop. rammed holds the own pawns of the pairs.
static void eval_rammed_pawns(EvalWork* work, i32 side, u64 rammed)
{
    const u64 bishops = work->pos->bb[side][Bishop];
    // Per pawn; with bishops of both colours each pawn counts against one of them.
    if (bishops & light_squares) {
        add_weight(work, side, bishop_rampawns, popcount(rammed & light_squares));
    }
    if (bishops & dark_squares) {
        add_weight(work, side, bishop_rampawns, popcount(rammed & dark_squares));
    }
}

// The terms that need no attack sets; a count of times each weight, all in centipawns.
static void eval_closing_terms(EvalWork* work)
{
    const Position* pos = work->pos;
    // Having the move is worth something nearly always.
    add_weight(work, pos->stm, stm_bonus);
    // Two bishops cover both colours and each makes up for what the other cannot see. That they
    // are of one colour, after a promotion, is too rare to be asked.
    for (i32 side = White; side <= Black; ++side) {
        add_weight(work, side, bishop_pair, count_of(pos, side, Bishop) >= 2);
    }
    // The white pawns of rammed pairs; the black ones stand one rank on.
    const u64 rammed = pos->bb[White][Pawn] & (pos->bb[Black][Pawn] >> 8) & rammed_files;
    if (rammed != 0) {
        eval_rammed_pawns(work, White, rammed);
        eval_rammed_pawns(work, Black, rammed << 8);
    }
    // With no other pieces on the board a rook rules more of it than a minor piece does: more than
    // the difference of the two material weights.
    for (i32 side = White; side <= Black; ++side) {
        if (pos->phase_mtl[side] == rook_points && pos->phase_mtl[side ^ 1] == minor_points
            && count_of(pos, side, Pawn) >= exchange_pawns) {
            add_weight(work, side, mtl_RvB);
        }
    }
}

// The contempt of the side that started the search, in centipawns from white's view: a stronger
// player keeps pieces on the board, a weaker one likes to see them go. It melts away with the
// material of the side that should avoid the draw: the root's for a positive option.
// An analysis has no opponent, and its scores are to be the same from both sides.
static i32 contempt_bonus(const Position* pos)
{
    const i32 contempt = load(contempt_rule.contempt);
    if (contempt == 0 || contempt_rule.off) {
        return 0;
    }
    const i32 root_side = contempt_rule.root_side;
    const i32 measured = contempt > 0 ? root_side : root_side ^ 1;
    const i32 pieces = pos->phase_mtl[measured] - contempt_idle_points;
    const i32 pawns = count_of(pos, measured, Pawn);
    const i32 material = (pieces > 0 ? pieces : 0)
        + contempt_pawn_points * (pawns < contempt_most_pawns ? pawns : contempt_most_pawns);
    const i32 bonus = material * contempt / contempt_full_points;
    return root_side == White ? bonus : -bonus;
}

// Runs all terms in their order: later ones read the attack sets of earlier ones. Pawns come first
// because their attacks say where pieces may stand; kings after the pieces that bear on them;
// passed pawns once it is known who holds their way; threats when every defender is entered.
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

// The danger of both sides, for the search's record of the ply or for the cache.
static void publish_danger(u16* out, const u16* danger)
{
    out[White] = danger[White];
    out[Black] = danger[Black];
}

// Zero is an empty slot of either cache: see EvalCacheEntry.
void clear_eval_caches(EvalState* state)
{
    memset(state->eval_cache, 0, sizeof state->eval_cache);
    memset(state->pawn_cache, 0, sizeof state->pawn_cache);
}

// The score of a position that has to be judged by its terms, for the side to move, with the
// working record left as the printed table needs it.
static i32 judge_by_terms(EvalWork* work)
{
    run_terms(work);
    // Taken unsigned like all sums of words. The halves part in taper, so white's account less
    // black's is blended once, not each by itself.
    const i32 difference = static_cast<i32>(
        static_cast<u32>(work->score[White]) - static_cast<u32>(work->score[Black]));
    work->tapered = taper(difference, work->phase);
    // Contempt comes before the scale factor: it is no reason to like a dead draw.
    const i32 value = work->tapered + contempt_bonus(work->pos);
    work->scale = scale_factor(work, value);
    work->is_complete = true;
    // The product is rounded to f32 before it is cut off; in f64 the last centipawn could differ.
    const i32 score = static_cast<i32>(static_cast<f32>(value) * work->scale);
    // The side to move is a toss of a coin: no branch could guess it.
    return score * (1 - 2 * work->pos->stm);
}

// What the terms make of a position that nothing simpler could judge.
static void draft_by_terms(EvalWork* work, EvalDraft* draft)
{
    draft->source = EvalDraft::Terms;
    draft->score = judge_by_terms(work);
    draft->pawns_cached = work->pawns_cached;
    if (!work->pawns_cached) {
        draft->pawns = work->pawns; // made by this call only then
    }
    publish_danger(draft->danger, work->danger);
}

static void init_call(EvalWork* work, EvalState* state, const Position* pos, i32 ply)
{
    work->pos = pos;
    work->state = state;
    work->ply = static_cast<u8>(ply);
    work->is_complete = false;
    work->occupied = occupied(pos);
    if constexpr (tuning) {
        clear_notes(work);
    }
}

// Whether a rule that is cheaper than a look into the cache judges the position.
static bool draft_plainly(const Position* pos, bool in_check, EvalDraft* draft)
{
    // A side in check has no quiet position to judge.
    if (in_check) {
        draft->source = EvalDraft::Check;
        draft->score = no_eval;
        return true;
    }
    // Plain material has no danger to publish.
    draft->source = EvalDraft::PlainMaterial;
    draft->score = 0;
    return is_drawn_material(pos) || eval_lone_king(pos, pos->stm, &draft->score);
}

void draft_evaluation(
    EvalState* state, const Position* pos, i32 ply, bool in_check, EvalDraft* draft)
{
    // At the root the terms run all the same: the printed table and the tuning build want them.
    if (ply < first_cached_ply) {
        EvalWork* work = &state->eval_work;
        init_call(work, state, pos, ply);
        if (draft_plainly(pos, in_check, draft)) {
            return;
        }
        draft->key = pos->key;
        draft_by_terms(work, draft);
        if constexpr (tuning) {
            const f32 scale_ahead[2] = { scale_factor(work, 1), scale_factor(work, -1) };
            publish_notes(work, work->scale, scale_ahead);
        }
        return;
    }
    if (draft_plainly(pos, in_check, draft)) {
        return;
    }
    // The terms begin with the pawns: their slot comes from memory while the other cache is asked.
    __builtin_prefetch(pawn_slot(state, pawn_cache_key(pos)));
    // The cache holds the score for the side to move, which is part of the key.
    const EvalCacheEntry* slot = &state->eval_cache[pos->key & (eval_cache_size - 1)];
    if (slot->key == pos->key) {
        draft->source = EvalDraft::Cache;
        draft->score = slot->score;
        publish_danger(draft->danger, slot->danger);
        return;
    }
    EvalWork work;
    init_call(&work, state, pos, ply);
    draft->key = pos->key;
    draft_by_terms(&work, draft);
}

i32 accept_evaluation(EvalState* state, const EvalDraft* draft, u16 danger[2])
{
    add(state->eval_counters[CountEvals], 1);
    if (draft->source <= EvalDraft::PlainMaterial) {
        return draft->score;
    }
    publish_danger(danger, draft->danger);
    if (draft->source == EvalDraft::Cache) {
        add(state->eval_counters[CountEvalHits], 1);
        return draft->score;
    }
    add(state->eval_counters[CountPawnProbes], 1);
    if (draft->pawns_cached) {
        add(state->eval_counters[CountPawnHits], 1);
    } else {
        *pawn_slot(state, draft->pawns.key) = draft->pawns;
    }
    // Stored at the root too, for the nodes below that come back to its position.
    EvalCacheEntry* slot = &state->eval_cache[draft->key & (eval_cache_size - 1)];
    slot->key = draft->key;
    publish_danger(slot->danger, draft->danger);
    slot->score = static_cast<i16>(draft->score);
    return draft->score;
}

i32 evaluate(EvalState* state, const Position* pos, i32 ply, bool in_check, u16 danger[2])
{
    EvalDraft draft;
    draft_evaluation(state, pos, ply, in_check, &draft);
    return accept_evaluation(state, &draft, danger);
}

// What one thread needs to evaluate positions: the working record of a call, its caches, its
// counts.
#pragma once

#include "board/position.h"

struct EvalState;

// Points at which the running score is copied for the printed table.
enum TallyRow : i32 {
    TallyPawns,
    TallyPassed,
    TallyKnights,
    TallyBishops,
    TallyRooks,
    TallyQueens,
    TallyKing,
    TallyCount,
};

#if defined(VESK_TUNE)
// One addition of a weight: how often, negative for black. A weight may be noted several times.
struct TermNote {
    i32 weight; // entry of the weight table
    f32 count;  // a fraction where the term takes a part of the weight
};

// All additions of one evaluation: the score before the scale factor is their sum, but for what
// is cut off at each part of a weight and in the blend of middle game and end game.
// A piece is part of seven terms at most, and all others together of less than 64.
inline constexpr i32 most_term_notes = 7 * 64 + 64;
struct TermNotes {
    i32 count;          // 0 if the position was judged without weights, or from ply 2 on
    i32 fractions;      // how many notes are parts of a weight
    f32 scale_ahead[2]; // the scale factor with white or with black ahead
    f32 scale;          // the one that was taken
    TermNote list[most_term_notes];
};
#endif

// Everything one call of evaluate fills; rewritten by each full evaluation.
// Side index 0 is white, 1 black.
struct EvalWork {
    const Position* pos;
    EvalState* state; // the owner
    u64 occupied;     // all pieces of both sides
    u64 outposts[2];
    u64 all_pawns;
    u64 passed;            // passed pawns of both sides
    u64 candidates;        // candidate passed pawns of both sides
    u64 hung;              // pieces found hanging
    u64 free_passers;      // passed pawns with a free path
    u64 king_zone[2];      // nine squares around each king
    u64 attacks[2][8];     // [0] all, [1] pawns ... [6] king, [7] unused
    u64 double_attacks[2]; // squares attacked at least twice
    u64 pawn_cover[2];
    u64 attacks_pnb[2]; // pawns, knights and bishops
    u64 attacks_pnbr[2];
    u64 attacks_pnbrq[2];
    i16 king_attack[2];   // attack points against each side's own king
    i16 same_wing;        // both kings stand on the same wing
    i32 score[2];         // running score pair of each side
    u16 danger[2];        // what is at stake for each side, centipawns
    const u8* pst_map[2]; // square to piece-square index
    u8 ply;
    bool is_complete;         // all terms were run
    f32 phase;                // 0 full material, 1 bare kings
    i32 tapered;              // from white's view, before contempt and scale
    f32 scale;                // for endings that are hard to win
    i32 tally[TallyCount][2]; // copies of score for the printed table
#if defined(VESK_TUNE)
    TermNotes notes;
#endif
};

// One slot of a thread's evaluation cache.
struct EvalCacheEntry {
    u64 key;
    u16 danger[2];
    i16 score; // as returned to the caller that stored it
    u16 spare;
};
static_assert(sizeof(EvalCacheEntry) == 16);

// One slot of a thread's pawn cache.
struct PawnCacheEntry {
    u64 key;
    i32 score[2]; // score pairs of white and black
};
static_assert(sizeof(PawnCacheEntry) == 16);

inline constexpr i32 eval_cache_size = 32768;
inline constexpr i32 pawn_cache_size = 16384;

// What a thread counts about its evaluations.
enum EvalCounter : i32 {
    CountEvals,
    CountEvalHits,
    CountPawnProbes,
    CountPawnHits,
    EvalCounterCount,
};

// Everything that evaluations of one thread leave for the next ones.
struct EvalState {
    EvalCacheEntry eval_cache[eval_cache_size];
    PawnCacheEntry pawn_cache[pawn_cache_size];
    EvalWork eval_work;
    Shared<u64> eval_counters[EvalCounterCount]; // read by: collect_stats
    bool fills_coef; // tuning build: evaluations at ply 1 fill the coef of all weights
};

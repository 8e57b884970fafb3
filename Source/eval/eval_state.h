// What one thread needs to evaluate positions: the working record of a call, its caches, its
// counts. No other thread touches any of it but the counters, so that nothing here needs a lock.
#pragma once

#include "board/position.h"

struct EvalState;

// Points at which the running score is copied for the printed table. Found by name alone: the
// terms do not run in this order.
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

// All additions of one evaluation: the score before contempt and the scale factor is their sum, but
// for what is cut off at each part of a weight and in the blend of middle game and end game.
// No piece adds more than seven notes (a passed pawn that is defended and has a neighbour does),
// and the terms that count a whole side at once add less than 64.
inline constexpr i32 most_term_notes = 7 * 64 + 64;
struct TermNotes {
    i32 count;          // 0 if the position was judged without weights, or from ply 2 on
    i32 fractions;      // how many notes are parts of a weight
    f32 scale_ahead[2]; // the scale factor with white or with black ahead
    f32 scale;          // the one that was taken
    TermNote list[most_term_notes];
};
#endif

// One slot of a thread's pawn cache. Positions with the same pawns and the kings on the same wings
// share it, so that most lookups of a search hit: most moves are a piece's.
struct PawnCacheEntry {
    u64 key;      // pawn key, changed by the wings of the kings
    i32 score[2]; // score pairs of white and black
};
static_assert(sizeof(PawnCacheEntry) == 16);

// Everything one call of evaluate fills: the fields up to occupied, ply and is_complete before
// anything is judged, the rest by a full evaluation. Sets of squares hold both sides unless they
// are an array: side index 0 is white, 1 black.
struct EvalWork {
    const Position* pos;
    EvalState* state; // the owner
    u64 occupied;     // all pieces of both sides
    // What the pawn cache will hold of this position, unless it held it before.
    PawnCacheEntry pawns;
    bool pawns_cached; // it held it before
    // Squares for a minor piece: defended by an own pawn, no enemy pawn ahead to drive it off.
    u64 outposts[2];
    u64 all_pawns;
    u64 passed;            // passed pawns of both sides
    u64 candidates;        // candidate passed pawns of both sides
    u64 hung;              // pieces found hanging
    u64 free_passers;      // passed pawns with a free path
    u64 king_zone[2];      // nine squares around each king, moved off the edge of the board
    u64 attacks[2][8];     // [0] all, [1] pawns ... [6] king, [7] unused
    u64 double_attacks[2]; // squares attacked at least twice
    // Attacks by piece types joined, from the least upwards: what attacks with less than a piece
    // drives it away.
    u64 attacks_pnb[2]; // pawns, knights and bishops
    u64 attacks_pnbr[2];
    u64 attacks_pnbrq[2];
    i16 king_attack[2];   // attack points against each side's own king
    i32 score[2];         // running score pair of each side
    u16 danger[2];        // what each side stands to lose, centipawns
    u64 pst_flip[2];      // exclusive or of a square to its piece-square index
    i32 pst_shift;        // entries from the first table of a pair to the one that counts
    const i32* pst_words; // eval_words, so many entries on
    u8 ply;
    bool is_complete;         // all terms were run
    f32 phase;                // 0 full material, 1 kings and pawns
    i32 tapered;              // from white's view, before contempt and scale
    f32 scale;                // for endings that are hard to win
    i32 tally[TallyCount][2]; // copies of score for the printed table
#if defined(VESK_TUNE)
    TermNotes notes;
#endif
};

// One slot of a thread's evaluation cache, four to a line of the processor's own cache. The whole
// key is kept: a slot holds one position's values or another's, never a mixture. An empty slot is
// taken for key 0, which stands for a draw without danger.
struct EvalCacheEntry {
    u64 key;
    u16 danger[2];
    i16 score; // for the side to move, which is a part of the key
    u16 spare; // fills the record up; read and written by nobody
};
static_assert(sizeof(EvalCacheEntry) == 16);

// Slots, each a power of two so that the low bits of a key are the index: 512 KB and 256 KB.
inline constexpr i32 eval_cache_size = 32768;
inline constexpr i32 pawn_cache_size = 16384;

// What a thread counts about its evaluations; the shares of hits are shown to the user.
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
    EvalWork eval_work;                          // of the last evaluation at ply 1
    Shared<u64> eval_counters[EvalCounterCount]; // read by: collect_stats
    bool fills_coef; // tuning build: evaluations at ply 1 fill the coef of all weights
};

inline PawnCacheEntry* pawn_slot(EvalState* state, u64 key)
{
    return &state->pawn_cache[key & (pawn_cache_size - 1)];
}

// The static evaluation: what a position is worth before anybody moves in it. A score depends on
// the position, the weights and the contempt rule alone; the caches change how fast it comes, never
// what it is, as long as they are emptied when weights or rule change.
#pragma once

#include <span>
#include <string_view>

#include "eval/eval_state.h"

// Returned for a side to move in check: no score.
inline constexpr i32 no_eval = -10001;

// By how much a draw is shunned. Written by the main thread between searches, when the option
// changes and before each search; read by every evaluation of every thread, whose caches it lives
// in.
struct ContemptRule {
    Shared<i16> contempt; // centipawns; positive for a side that wants to play on
    u8 root_side;         // the side to move at the root, whose contempt it is
    bool off;             // the search has no limit of time: an analysis, not a game
};
extern ContemptRule contempt_rule;

// An evaluation that neither the caches nor the counters know of yet.
struct EvalDraft {
    // By what the position was judged; the first two have no danger to tell of.
    enum : u8 { Check, PlainMaterial, Cache, Terms } source;
    bool pawns_cached; // of Terms: the pawn cache knew its pawns
    u16 danger[2];     // what is at stake for each side, centipawns
    i32 score;         // centipawns, positive when the side to move stands better
    u64 key;
    PawnCacheEntry pawns; // of Terms: what the pawn cache holds of the position
};

// Evaluates pos without leaving anything behind, so that a search may do it while it waits for
// memory, and drop it if it turns out not to be wanted. ply (1 to ply_count - 1): the caches answer
// only from ply 2 on. At ply 1 the trace is this draft's from then on, and in the tuning build the
// notes are, wanted or not. in_check gives no_eval.
void draft_evaluation(
    EvalState* state, const Position* pos, i32 ply, bool in_check, EvalDraft* draft);

// Enters a draft into the caches and counters, as if it had been made just now. Returns its score.
// danger gets what is at stake for each side, but for a side in check and for plain material
// (drawn, or a lone king with a rule of its own), which leave it alone. No other evaluation may
// have been accepted since the draft was made.
i32 accept_evaluation(EvalState* state, const EvalDraft* draft, u16 danger[2]);

// Both in one.
i32 evaluate(EvalState* state, const Position* pos, i32 ply, bool in_check, u16 danger[2]);

// Empties both caches: no score made with other weights may survive their change.
void clear_eval_caches(EvalState* state);

// Whether the last evaluation at ply 1 has judged its position by its terms, not by a plain rule.
[[nodiscard]] bool has_eval_trace(const EvalState* state);

// The name of a row of the score table, 0 to eval_trace_rows - 1, without the colon.
inline constexpr i32 eval_trace_rows = 8;
[[nodiscard]] std::string_view eval_trace_name(i32 row);

// A row of the score table: what a group of terms has given to each side, as score pairs.
struct EvalTraceRow {
    i32 gained[2];   // the material of the row's pieces among it
    i32 material[2]; // of the row's pieces, 0 for a row of none
};

// Gives the rows of the last evaluation at ply 1; has_eval_trace must be true. What all rows have
// gained together is the score of each side.
void read_eval_trace(const EvalState* state, std::span<EvalTraceRow, eval_trace_rows> rows);

// What a row shows of a side beside its material, and of that material: blended by the phase.
[[nodiscard]] i32 shown_terms(const EvalTraceRow& row, i32 side, f32 phase);
[[nodiscard]] i32 shown_material(const EvalTraceRow& row, i32 side, f32 phase);

// Writes how the score of the last evaluation at ply 1 came about into out, which holds at least
// eval_trace_size bytes: a table for a person to read, or an empty text unless it has_eval_trace.
// with_weights adds all weights.
inline constexpr size_t eval_trace_size = 32768; // some 16 kilobytes of numbers of usual size
void write_eval_trace(const EvalState* state, bool with_weights, std::span<char> out);

// Blends the halves of a score pair by phase (0 middle game, 1 end game), truncated toward zero.
[[nodiscard]] i32 taper(i32 word, f32 phase);

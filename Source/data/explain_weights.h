// Which weights make up an evaluation, and how often each one counts in it.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/types.h"
#include "board/position.h"
#include "eval/eval_state.h"
#include "eval/evaluate.h"
#include "eval/terms.h"
#include "eval/weights.h"

// The words that the terms add: those of all weights, then the products of those that count in
// parts.
inline constexpr i32 word_count = weight_count + fraction_count;

// Why a position has the score that it has. Sides are indices, 0 white and 1 black.
struct Explanation {
    bool in_check = false;       // the search asks for no score then; it is what one would be
    bool by_terms = false;       // else a plain rule has judged, and nothing below score is set
    bool is_whole = false;       // the uses found make up what the terms have added
    LoneKingRule lone_king = {}; // the plain rule; None for drawn material
    i32 strong = White;          // of a rule for a lone king, the side that is not lone
    i32 score = 0;               // centipawns, for the side to move, without contempt
    i32 sum[2] = {};             // what all terms have given to each side, as score pairs
    i32 tapered = 0;             // of white's sum less black's, centipawns
    f32 phase = 0.0f;            // 0 full material, 1 kings and pawns
    f32 scale = 1.0f;            // what is left of tapered in an ending that is hard to win
    u32 scale_reasons = 0;       // ScaleReason bits
    u64 pst_flip[2] = {};        // exclusive or of a square to its entry of a table
    u64 hung = 0;                // pieces found hanging, of both sides
    EvalTraceRow rows[eval_trace_rows] = {}; // of the score table
    std::string table;           // as the console shows it, where the explainer makes it
    u8 uses[word_count][2] = {}; // how often each word was added for each side
    i8 row_of[word_count] = {};  // the row that it was added in, where it was
};

// A position to explain, and its explanation.
struct ExplainedPosition {
    Position pos; // without a stack or a thread of its own
    Explanation why;
};

// A weight that acts in a position.
struct ActingWeight {
    i32 index;    // in the list of weights
    i32 row;      // of the score table
    f64 times[2]; // how often it counts for each side, with a fraction where it counts in parts
    i32 added[2]; // what it adds for each side, a score pair: parts are cut to whole centipawns
};

// What evaluations need, for each thread that makes them.
struct Explainer {
    bool makes_tables = false;
    std::vector<std::unique_ptr<EvalState>> states;
};

// Makes ready to explain by so many threads, with or without tables for people.
[[nodiscard]] Explainer make_explainer(i64 jobs, bool makes_tables);

// Explains positions that have no defect, each by the same numbers for any number of threads. The
// table of weights must stand, and is changed and put right again meanwhile: nothing else may
// evaluate in this process until the call returns.
void explain_positions(Explainer* explainer, std::span<ExplainedPosition> positions);

// The weights that act in a position that was judged by terms, in the order of the list.
[[nodiscard]] std::vector<ActingWeight> find_acting_weights(const Explanation& why);

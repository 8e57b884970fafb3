// The 913 named weights of the evaluation, each a middle-game and an end-game value.
// weights.def lists them; their order is part of the format of the weights file. The values of an
// entry are written by set_weight alone, which keeps the dense copies that the evaluation reads in
// step.
#pragma once

#include "base/types.h"

// A score pair is one word, (eg << 16) + mg, in centipawns: pairs add and subtract as plain
// words, which makes one addition of two. A negative mg borrows from the upper half; the readers
// below undo that.
// Arithmetic on pairs wraps, so that absurd weights of a file are no undefined behaviour.
inline constexpr i32 pair(i32 mg, i32 eg)
{
    return static_cast<i32>((static_cast<u32>(eg) << 16) + static_cast<u32>(mg));
}

inline constexpr i32 score_mg(i32 word)
{
    return static_cast<i16>(word);
}

// The half added to the word gives back what a negative mg has borrowed.
inline constexpr i32 score_eg(i32 word)
{
    return static_cast<i32>(static_cast<u32>(word) + 32768) >> 16;
}

// The entry of each weight: the name alone for a scalar, ppawn + relative rank index (0 to 7)
// for the arrays, PST_N1 + piece-square index for the tables.
enum Weight : i32 {
#define WEIGHT(name, mg, eg, base_mg, base_eg) name,
#define RANK_WEIGHT(name, rank, mg, eg, base_eg) name##_##rank,
#define WEIGHT_TABLE(name) name, name##_last = (name) + 63,
#include "eval/weights.def"
#undef WEIGHT
#undef RANK_WEIGHT
#undef WEIGHT_TABLE
    weight_count,
    scalar_weight_count = PST_P1, // entries that are no piece-square value
    ppawn = ppawn_1,
    ppawn_mobile = ppawn_mobile_1,
    ppawn_free = ppawn_free_1,
};
static_assert(weight_count == 913);
static_assert(scalar_weight_count == 81);

inline constexpr i32 weight_name_size = 26;

// One entry of the table.
struct EvalParam {
    i32 packed; // score pair, rounded from mg and eg
    f64 mg;     // the values as the tuner and scale_params know them
    f64 eg;
    f32 coef;                    // the tuner's; 0 unless a tuning build fills it
    u16 frozen;                  // nonzero: the tuner leaves this entry alone
    char name[weight_name_size]; // all entries of an array or table share one name
};
static_assert(sizeof(EvalParam) == 56);

// mg and eg of one entry, side by side.
struct RealPair {
    f64 mg;
    f64 eg;
};

// The table. Written by the main thread while no worker searches: the values by set_weight alone.
// Read by all threads through the dense copies below.
extern EvalParam eval_params[weight_count];
extern i32 eval_param_count; // entries built so far; weight_count when complete
extern i32 param_cursor;     // the entry that the next fset or file line sets

// Dense copies for the evaluation: entries of 56 bytes would not fit a first-level cache. Only
// scalar weights are ever taken in parts, so only they have real values here.
extern i32 eval_words[weight_count];             // packed of every entry
extern RealPair eval_reals[scalar_weight_count]; // mg and eg of the scalar entries

// Names that the tuner may change; with an empty list it may change all. Written by the console's
// word and the trainer's command line, read when the table is built anew.
inline constexpr i32 tune_list_size = 9;
struct TuneNames {
    char name[tune_list_size][128];
    i32 count;
};
extern TuneNames tune_names;

// A pair of percentages that scale weights: middle game, end game; 100 changes nothing.
using WeightScale = i16[2];

// The personality of the evaluation: what each option makes of the weights that it stands for.
struct WeightScales {
    WeightScale Mtl_Pawn, Mtl_Knight, Mtl_Bishop, Mtl_Rook, Mtl_Queen;
    WeightScale Activity_Knight, Activity_Bishop, Activity_Rook, Activity_Queen;
    WeightScale Pawn_Structure, Passed_Pawns, King_Safety, Threats;
};

// Sets the values of the entry index (0 to weight_count - 1); packed takes them rounded, halves
// away from zero. The only writer of values.
void set_weight(i32 index, f64 mg, f64 eg);

// What init_eval_params makes of the table.
enum WeightMode : i32 {
    NormalWeights, // defaults, scaled by the personality options
    BaseWeights,   // the values before tuning
    PlainWeights,  // defaults without a personality
};

// Builds the whole table. No worker may be searching, and all evaluation caches must be cleared.
// scales may be null where they are not wanted.
void init_eval_params(WeightMode mode, const WeightScales* scales);

// Sets the entry at param_cursor and moves the cursor on; the name "mtl_pawn" puts the cursor to 0
// first. The values are taken whatever the name is; behind the end of the table nothing is stored.
// Returns null if the name is the entry's, else the entry's own, which is empty behind the end.
[[nodiscard]] const char* fset(const char* name, i32 mg, i32 eg);

// Scales every entry whose name contains needle by the two percentages. Returns 1 if there was
// none, else 0.
i32 scale_params(const char* needle, const WeightScale scale);

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

// The table. Written by the main thread while no worker searches: the values by set_weight alone.
// Read by all threads through the dense copies below.
extern EvalParam eval_params[weight_count];
extern i32 eval_param_count; // entries built so far; weight_count when complete
extern i32 param_cursor;     // the entry that the next fset or file line sets

// packed of every entry, a dense copy for the evaluation: entries of 56 bytes would not fit a
// first-level cache.
extern i32 eval_words[weight_count];

// ---- Weights that count in parts: a mobility by the number of squares, a king's danger by the
// attack points. Each takes one part out of a short list, so that the products are made whenever
// the weight is set, and an evaluation reads a packed word like that of any other weight.

// The products of one weight: size of them from first on.
struct FractionList {
    i16 first;
    i16 size;
};

// Parts by number of squares that a piece can go to: none to all of its kind.
inline constexpr FractionList knight_fractions = { 0, 9 };
inline constexpr FractionList bishop_fractions = { 9, 14 };
inline constexpr FractionList rook_fractions = { 23, 15 };
inline constexpr FractionList queen_fractions = { 38, 28 };
// By number of shielded squares, 0 to 9.
inline constexpr FractionList shield_fractions = { 66, 10 };
// By attack points, 0 to attack_curve_limit.
inline constexpr i32 attack_curve_limit = 39;
inline constexpr FractionList danger1_fractions = { 76, attack_curve_limit + 1 };
inline constexpr FractionList danger2_fractions = { 116, attack_curve_limit + 1 };
// By relative rank of the pawn and steps of a king, both 0 to 7.
inline constexpr i32 step_of(i32 rank, i32 king_distance)
{
    return 8 * rank + king_distance;
}
inline constexpr FractionList candidate_fractions = { 156, 64 };
inline constexpr FractionList eking_fractions = { 220, 64 };
inline constexpr FractionList fking_fractions = { 284, 64 };
// By relative rank.
inline constexpr FractionList connected_fractions = { 348, 8 };
inline constexpr i32 fraction_count = 356;

// The list of a weight that counts in parts, an empty one for the others.
inline constexpr FractionList fractions_of(i32 weight)
{
    switch (weight) {
    case knight_mobility:
        return knight_fractions;
    case bishop_mobility:
        return bishop_fractions;
    case rook_mobility:
        return rook_fractions;
    case queen_mobility:
        return queen_fractions;
    case pawn_shield:
        return shield_fractions;
    case king_danger1:
        return danger1_fractions;
    case king_danger2:
        return danger2_fractions;
    case candidate_passer:
        return candidate_fractions;
    case ppawn_eking_dist:
        return eking_fractions;
    case ppawn_fking_dist:
        return fking_fractions;
    case ppawn_connected:
        return connected_fractions;
    default:
        return { 0, 0 };
    }
}

// Packed products of all lists, in centipawns. Written by set_fractions alone, read by all threads.
extern i32 fraction_words[fraction_count];

// The part of a weight at a step of its list, 0 to size - 1.
[[nodiscard]] f32 fraction_of(i32 weight, i32 step);

// ---- What may be tuned, and how the table is built

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

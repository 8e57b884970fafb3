// The weight table: its start values, the personality options and the weights file.
// Rebuilt only between searches, by the main thread; each rebuild starts from the defaults, so
// scaling never accumulates from one rebuild to the next. The evaluation's caches know nothing of a
// change: whoever makes one clears them.
#include "eval/weights.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/rounding.h"
#include "base/text.h"
#include "eval/pst_defaults.h"

constinit EvalParam eval_params[weight_count] = {};
constinit i32 eval_param_count = 0;
constinit i32 param_cursor = 0;
alignas(64) constinit i32 eval_words[weight_count] = {};
alignas(64) constinit i32 fraction_words[fraction_count] = {};
constinit TuneNames tune_names = {};

static_assert(weight_count == scalar_weight_count + 64 * pst_count);

static constexpr f64 percent = 0.01;
static constexpr i32 base_pst_step = 4;     // centipawns
static constexpr i32 base_pst_corner = -12; // centipawns

// A scalar entry, or one rank of an array, as weights.def has it, in centipawns. Of an array the
// rank is dropped: all its entries share a name, and the cursor tells them apart.
struct ScalarDefault {
    const char* name;
    i32 mg;
    i32 eg;
    i32 base_mg;
    i32 base_eg;
};

static constexpr ScalarDefault scalar_defaults[scalar_weight_count] = {
#define WEIGHT(name, mg, eg, base_mg, base_eg) { #name, mg, eg, base_mg, base_eg },
#define RANK_WEIGHT(name, rank, mg, eg, base_eg) { #name, mg, eg, (base_eg)*10 / 16, base_eg },
#define WEIGHT_TABLE(name)
#include "eval/weights.def"
#undef WEIGHT
#undef RANK_WEIGHT
#undef WEIGHT_TABLE
};

// The tables stand behind the scalars in the list, in the order of pst_defaults.
static constexpr const char* table_names[pst_count] = {
#define WEIGHT(name, mg, eg, base_mg, base_eg)
#define RANK_WEIGHT(name, rank, mg, eg, base_eg)
#define WEIGHT_TABLE(name) #name,
#include "eval/weights.def"
#undef WEIGHT
#undef RANK_WEIGHT
#undef WEIGHT_TABLE
};

// One personality option and a text that the names of its weights contain.
struct PersonalityRule {
    WeightScale WeightScales::*option;
    const char* needle;
};

// In the order of application. The search for a text in the names makes "knight_outpost" hit
// knight_outpost_atk too, which is then scaled twice, and likewise "bishop_outpost"; "ppawn" hits
// the whole passed pawn family. What no row hits (open files, the pawn shield, pawn pushes, the
// king's squares and others) has no option and stays as it is.
static constexpr PersonalityRule personality_rules[] = {
    { &WeightScales::Mtl_Pawn, "mtl_pawn" },
    { &WeightScales::Mtl_Knight, "mtl_knight" },
    { &WeightScales::Mtl_Bishop, "mtl_bishop" },
    { &WeightScales::Mtl_Rook, "mtl_rook" },
    { &WeightScales::Mtl_Queen, "mtl_queen" },
    // Activity: how much a piece's freedom and stand count beside its material.
    { &WeightScales::Activity_Knight, "knight_mobility" },
    { &WeightScales::Activity_Knight, "knight_outpost" },
    { &WeightScales::Activity_Knight, "knight_outpost_atk" },
    { &WeightScales::Activity_Bishop, "bishop_mobility" },
    { &WeightScales::Activity_Bishop, "bishop_mob2" },
    { &WeightScales::Activity_Bishop, "bishop_outpost" },
    { &WeightScales::Activity_Bishop, "bishop_outpost_atk" },
    { &WeightScales::Activity_Rook, "rook_mobility" },
    { &WeightScales::Activity_Rook, "rook_mob2" },
    { &WeightScales::Activity_Queen, "queen_mobility" },
    { &WeightScales::Activity_Knight, "PST_N1" },
    { &WeightScales::Activity_Knight, "PST_N2" },
    { &WeightScales::Activity_Bishop, "PST_B1" },
    { &WeightScales::Activity_Bishop, "PST_B2" },
    { &WeightScales::Activity_Rook, "PST_R1" },
    { &WeightScales::Activity_Rook, "PST_R2" },
    { &WeightScales::Activity_Queen, "PST_Q1" },
    { &WeightScales::Activity_Queen, "PST_Q2" },
    // Pawns: where they stand and what they may become.
    { &WeightScales::Pawn_Structure, "PST_P1" },
    { &WeightScales::Pawn_Structure, "PST_P2" },
    { &WeightScales::Pawn_Structure, "PST_CP" },
    { &WeightScales::Pawn_Structure, "PST_DP" },
    { &WeightScales::Passed_Pawns, "ppawn" },
    { &WeightScales::Passed_Pawns, "candidate_passer" },
    // Tactics: the two that make a player bold or careful.
    { &WeightScales::King_Safety, "king_danger1" },
    { &WeightScales::King_Safety, "king_danger2" },
    { &WeightScales::King_Safety, "enemy_checks" },
    { &WeightScales::Threats, "hung_pawn" },
    { &WeightScales::Threats, "hung_minor" },
    { &WeightScales::Threats, "hung_major" },
    { &WeightScales::Threats, "attacked_pawn" },
    { &WeightScales::Threats, "attacked_minor" },
    { &WeightScales::Threats, "attacked_major" },
    { &WeightScales::Threats, "knight_trapped" },
    { &WeightScales::Threats, "bishop_trapped" },
    { &WeightScales::Threats, "rook_trapped" },
    { &WeightScales::Threats, "queen_trapped" },
    { &WeightScales::Threats, "pinned_pawn" },
    { &WeightScales::Threats, "pinned_piece" },
};

// Parts of the mobility weight by number of squares, from -0.4 for none to 0.6 for all. The first
// squares matter most and the last least: a piece with three is in play already. The zero lies at
// an ordinary stand, so that mobility is not material counted twice.
static constexpr f32 knight_curve[9] = { -0.40f, -0.17f, -0.02f, 0.10f, 0.22f, 0.32f, 0.42f, 0.51f,
    0.60f };
static constexpr f32 bishop_curve[14] = { -0.40f, -0.23f, -0.13f, -0.04f, 0.04f, 0.11f, 0.18f,
    0.25f, 0.31f, 0.37f, 0.43f, 0.49f, 0.55f, 0.60f };
static constexpr f32 rook_curve[15] = { -0.40f, -0.24f, -0.14f, -0.06f, 0.02f, 0.09f, 0.15f, 0.22f,
    0.28f, 0.33f, 0.39f, 0.44f, 0.50f, 0.55f, 0.60f };
static constexpr f32 queen_curve[28] = { -0.40f, -0.25f, -0.17f, -0.10f, -0.04f, 0.02f, 0.07f,
    0.12f, 0.17f, 0.22f, 0.26f, 0.30f, 0.34f, 0.38f, 0.42f, 0.46f, 0.49f, 0.52f, 0.55f, 0.58f,
    0.60f, 0.60f, 0.60f, 0.60f, 0.60f, 0.60f, 0.60f, 0.60f };

// Each missing square of the shield costs a ninth of pawn_shield: a full shield is the normal state
// and each missing square a loss, so the parts are at most 0.
static constexpr i32 full_shield = 9;
static constexpr f64 shield_step = 0.111;

// The curve of the attack on a king: parts of king_danger1 or king_danger2 by the square of the
// points, 0.0018 for each. It ends at its limit, at 2.74 times the weight: more attackers cannot
// mate him twice.
static constexpr f64 curve_factor = 0.0018;

// Parts of candidate_passer per rank beyond the second, and per step of the enemy king.
static constexpr f64 candidate_rank_part = 0.15;
static constexpr f64 candidate_king_part = 0.1;

// All by relative rank index. The kings' distances in parts of their weights, taken one rank
// further for a pawn that can step: on its way the kings hardly matter before the fourth rank, and
// decide on the last ones.
static constexpr f32 distance_factor[8] = { 0.0f, 0.0f, 0.0f, 0.2f, 0.4f, 0.6f, 0.8f, 1.0f };

// A neighbour that guards the next square, in parts of ppawn_connected; on the seventh rank it
// guards the queen to be.
static constexpr f32 connected_factor[8] = { 0.0f, 0.0f, 0.0f, 0.15f, 0.3f, 0.6f, 1.0f, 0.0f };

// The steps are taken in f64 in this order and the height rounded to f32.
static f32 height_of_attack(i32 points)
{
    const f64 x = static_cast<f64>(points);
    return to_f32(x * curve_factor * x);
}

// 0.4 to 1.3 where a candidate can stand. Fused on purpose: the sum is rounded once, and once more
// to f32.
static f32 part_of_candidate(i32 rank, i32 steps)
{
    return to_f32(std::fma(candidate_rank_part, static_cast<f64>(rank - 1),
        candidate_king_part * static_cast<f64>(steps)));
}

f32 fraction_of(i32 weight, i32 step)
{
    // step_of undone, for the lists that are made by it.
    const i32 rank = step / 8;
    const i32 steps = step % 8;
    switch (weight) {
    case knight_mobility:
        return knight_curve[step];
    case bishop_mobility:
        return bishop_curve[step];
    case rook_mobility:
        return rook_curve[step];
    case queen_mobility:
        return queen_curve[step];
    case pawn_shield:
        return to_f32(static_cast<f64>(step - full_shield) * shield_step);
    case king_danger1:
    case king_danger2:
        return height_of_attack(step);
    case candidate_passer:
        return part_of_candidate(rank, steps);
    case ppawn_eking_dist:
    case ppawn_fking_dist:
        return static_cast<f32>(steps) * distance_factor[rank];
    case ppawn_connected:
        return connected_factor[step];
    default:
        return 0.0f;
    }
}

// Makes the products of a weight anew; nothing for one that counts as a whole. Each half is the
// real value times the part, so that a percentage of a personality option keeps its fraction; it is
// cut off to whole centipawns by itself, by way of i64, which holds it for any weight that a file
// can name.
static void set_fractions(i32 weight, f64 mg, f64 eg)
{
    const FractionList list = fractions_of(weight);
    for (i32 step = 0; step < list.size; ++step) {
        const f64 factor = static_cast<f64>(fraction_of(weight, step));
        fraction_words[list.first + step] = pair(static_cast<i32>(static_cast<i64>(mg * factor)),
            static_cast<i32>(static_cast<i64>(eg * factor)));
    }
}

// The packed word and its dense copy are rounded to whole centipawns. The real values keep their
// fractions for the products, for repeated scaling and for the tuner, whose steps are far smaller.
void set_weight(i32 index, f64 mg, f64 eg)
{
    EvalParam* entry = &eval_params[index];
    entry->mg = mg;
    entry->eg = eg;
    entry->packed = pair(static_cast<i32>(std::llround(mg)), static_cast<i32>(std::llround(eg)));
    eval_words[index] = entry->packed;
    set_fractions(index, mg, eg);
}

// A new entry takes part in tuning until freeze_unlisted says otherwise.
static void append_entry(const char* name, i32 mg, i32 eg)
{
    EvalParam* entry = &eval_params[eval_param_count];
    entry->coef = 0;
    entry->frozen = 0;
    copy_text(entry->name, sizeof entry->name, name);
    set_weight(eval_param_count, mg, eg);
    ++eval_param_count;
}

// The untuned shape of all piece-square tables: four centipawns a step from the edges towards the
// centre, from -12 in a corner to 12 on the four centre squares.
static i32 base_pst_value(i32 index)
{
    const i32 file = file_of(index);
    const i32 rank = rank_of(index);
    const i32 file_steps = file < 4 ? file : 7 - file;
    const i32 rank_steps = rank < 4 ? rank : 7 - rank;
    return base_pst_step * (file_steps + rank_steps) + base_pst_corner;
}

// Untuned values in round numbers: where a training from scratch begins. The names of the entries
// come from here too, so it precedes the defaults in every mode.
static void build_base_table()
{
    eval_param_count = 0;
    for (const ScalarDefault& scalar : scalar_defaults) {
        append_entry(scalar.name, scalar.base_mg, scalar.base_eg);
    }
    for (const char* name : table_names) {
        for (i32 index = 0; index < 64; ++index) {
            append_entry(name, base_pst_value(index), base_pst_value(index));
        }
    }
}

// With a list of names the tuner may touch these alone; a name stands for its whole array or table.
static void freeze_unlisted()
{
    for (EvalParam& entry : eval_params) {
        entry.frozen = 1;
        for (i32 i = 0; i < tune_names.count; ++i) {
            if (strcmp(entry.name, tune_names.name[i]) == 0) {
                entry.frozen = 0;
            }
        }
    }
}

// Goes through fset as a weights file does, so that the order of the list is checked at each start:
// an entry out of its place would be complained of.
static void load_defaults()
{
    for (const ScalarDefault& scalar : scalar_defaults) {
        static_cast<void>(fset(scalar.name, scalar.mg, scalar.eg));
    }
    // After the scalars, as in the list.
    for (i32 table = 0; table < pst_count; ++table) {
        for (const auto& value : pst_defaults[table]) {
            static_cast<void>(fset(table_names[table], value[0], value[1]));
        }
    }
}

void init_eval_params(WeightMode mode, const WeightScales* scales)
{
    build_base_table();
    if (tune_names.count > 0) {
        freeze_unlisted();
    }
    if (mode == BaseWeights) {
        return;
    }
    load_defaults();
    if (mode == NormalWeights) {
        for (const PersonalityRule& rule : personality_rules) {
            scale_params(rule.needle, scales->*rule.option);
        }
    }
}

const char* fset(const char* name, i32 mg, i32 eg)
{
    // The name of the first entry starts the table anew, so a file can follow another.
    if (strcmp(name, scalar_defaults[mtl_pawn].name) == 0) {
        param_cursor = 0;
    }
    // The place counts, not the name: entries of an array have one name, and files of other
    // versions are taken as well as they go.
    const bool inside = param_cursor < eval_param_count;
    const char* const expected = inside ? eval_params[param_cursor].name : "";
    if (inside) {
        set_weight(param_cursor, mg, eg);
        ++param_cursor;
    }
    return strcmp(name, expected) == 0 ? nullptr : expected;
}

i32 scale_params(const char* needle, const WeightScale scale)
{
    i32 missing = 1;
    for (i32 index = 0; index < eval_param_count; ++index) {
        const EvalParam* entry = &eval_params[index];
        if (strstr(entry->name, needle) == nullptr) {
            continue;
        }
        // Product in f64 from left to right, the result rounded to f32: real weights that are not
        // whole depend on it, and with them the last centipawn of a score.
        const f32 mg = to_f32(static_cast<f64>(scale[0]) * percent * entry->mg);
        const f32 eg = to_f32(static_cast<f64>(scale[1]) * percent * entry->eg);
        set_weight(index, static_cast<f64>(mg), static_cast<f64>(eg));
        missing = 0;
    }
    return missing;
}

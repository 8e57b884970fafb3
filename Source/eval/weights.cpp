// The weight table: its start values, the personality options and the weights file.
// Rebuilt only between searches, by the main thread; each rebuild starts from the defaults, so
// scaling never accumulates from one rebuild to the next.
#include "eval/weights.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "eval/pst_defaults.h"
#include "base/files.h"
#include "base/output.h"
#include "base/text.h"

constinit EvalParam eval_params[weight_count] = {};
constinit i32 eval_param_count = 0;
constinit i32 param_cursor = 0;
alignas(64) constinit i32 eval_words[weight_count] = {};
alignas(64) constinit RealPair eval_reals[scalar_weight_count] = {};
constinit TuneNames tune_names = {};

static_assert(weight_count == scalar_weight_count + 64 * pst_count);

// A scalar entry, or one rank of an array, as weights.def tells it.
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
// knight_outpost_atk too, which is then scaled twice, and "ppawn" the whole passed pawn family.
static constexpr PersonalityRule personality_rules[] = {
    { &WeightScales::Mtl_Pawn, "mtl_pawn" },
    { &WeightScales::Mtl_Knight, "mtl_knight" },
    { &WeightScales::Mtl_Bishop, "mtl_bishop" },
    { &WeightScales::Mtl_Rook, "mtl_rook" },
    { &WeightScales::Mtl_Queen, "mtl_queen" },
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
    { &WeightScales::Pawn_Structure, "PST_P1" },
    { &WeightScales::Pawn_Structure, "PST_P2" },
    { &WeightScales::Pawn_Structure, "PST_CP" },
    { &WeightScales::Pawn_Structure, "PST_DP" },
    { &WeightScales::Passed_Pawns, "ppawn" },
    { &WeightScales::Passed_Pawns, "candidate_passer" },
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

void set_weight(i32 index, f64 mg, f64 eg)
{
    EvalParam* entry = &eval_params[index];
    entry->mg = mg;
    entry->eg = eg;
    entry->packed = pair(static_cast<i32>(std::llround(mg)), static_cast<i32>(std::llround(eg)));
    eval_words[index] = entry->packed;
    if (index < scalar_weight_count) {
        eval_reals[index] = { mg, eg };
    }
}

static void append_entry(const char* name, i32 mg, i32 eg)
{
    EvalParam* entry = &eval_params[eval_param_count];
    entry->coef = 0;
    entry->frozen = 0;
    copy_text(entry->name, sizeof entry->name, name);
    set_weight(eval_param_count, mg, eg);
    ++eval_param_count;
}

// The untuned shape of all piece-square tables: more towards the centre, by up to 12 centipawns.
static i32 base_pst_value(i32 index)
{
    const i32 file = index & 7;
    const i32 rank = index >> 3;
    const i32 file_steps = file < 4 ? file : 7 - file;
    const i32 rank_steps = rank < 4 ? rank : 7 - rank;
    return 4 * (file_steps + rank_steps) - 12;
}

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

static void load_defaults()
{
    for (const ScalarDefault& scalar : scalar_defaults) {
        fset(scalar.name, scalar.mg, scalar.eg);
    }
    for (i32 table = 0; table < pst_count; ++table) {
        for (const auto& value : pst_defaults[table]) {
            fset(table_names[table], value[0], value[1]);
        }
    }
}

void init_eval_params(i32 mode, const WeightScales* scales, const char* file_name)
{
    build_base_table();
    if (tune_names.count > 0) {
        freeze_unlisted();
    }
    if (mode == 1) {
        return;
    }
    load_defaults();
    if (mode == 0) {
        for (const PersonalityRule& rule : personality_rules) {
            scale_params(rule.needle, scales->*rule.option);
        }
    }
    load_params_file(file_name);
}

void fset(const char* name, i32 mg, i32 eg)
{
    if (strcmp(name, "mtl_pawn") == 0) {
        param_cursor = 0;
    }
    const bool inside = param_cursor < eval_param_count;
    const char* const expected = inside ? eval_params[param_cursor].name : "";
    if (strcmp(name, expected) != 0) {
        print_plain("error %s  %s\n", name, expected);
    }
    if (inside) {
        set_weight(param_cursor, mg, eg);
        ++param_cursor;
    }
}

// Reads a decimal integer at the start of text. Returns false if there is none. A number that no
// i32 holds keeps its low 32 bits.
static bool read_integer(const char* text, i32* value)
{
    char* end = nullptr;
    const long number = strtol(text, &end, 10);
    *value = static_cast<i32>(number);
    return end != text;
}

void load_params_file(const char* file_name)
{
    static constexpr char delimiters[] = "(),\"\n";
    FILE* const file = open_regular_file(file_name);
    if (file == nullptr) {
        return;
    }
    // A longer line is read in pieces of 254 characters, each taken as a line.
    char line[255];
    while (fgets(line, sizeof line, file) != nullptr) {
        char* rest = nullptr;
        const char* const word = strtok_r(line, delimiters, &rest);
        const char* const name = word ? strtok_r(nullptr, delimiters, &rest) : nullptr;
        const char* const mg_text = name ? strtok_r(nullptr, delimiters, &rest) : nullptr;
        const char* const eg_text = mg_text ? strtok_r(nullptr, delimiters, &rest) : nullptr;
        i32 mg = 0;
        i32 eg = 0;
        // A line that lacks fields sets nothing and leaves the cursor where it is.
        if (eg_text != nullptr && read_integer(mg_text, &mg) && read_integer(eg_text, &eg)) {
            fset(name, mg, eg);
        }
    }
    fclose(file);
}

int save_params_file(const char* name)
{
    OutputFile out;
    int error = open_output(&out, name, unfinished_params);
    if (error != 0) {
        return error;
    }
    for (i32 index = 0; index < eval_param_count; ++index) {
        const EvalParam* entry = &eval_params[index];
        fprintf(out.file, "fset(\"%s\",%d,%d);\n", entry->name, score_mg(entry->packed),
            score_eg(entry->packed));
    }
    error = close_output(&out);
    return error != 0 ? error : publish_output(&out);
}

i32 scale_params(const char* needle, const WeightScale scale)
{
    i32 missing = 1;
    for (i32 index = 0; index < eval_param_count; ++index) {
        const EvalParam* entry = &eval_params[index];
        if (strstr(entry->name, needle) == nullptr) {
            continue;
        }
        const f32 mg = static_cast<f32>(static_cast<f64>(scale[0]) * 0.01 * entry->mg);
        const f32 eg = static_cast<f32>(static_cast<f64>(scale[1]) * 0.01 * entry->eg);
        set_weight(index, static_cast<f64>(mg), static_cast<f64>(eg));
        missing = 0;
    }
    return missing;
}

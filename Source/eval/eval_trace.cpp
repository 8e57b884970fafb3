// The printed score table of an evaluation: one row per group of terms, the hanging pieces and
// the closing line; on demand all weights as well. Only the text is made here: it is for a person
// at the console, and whoever asks for it prints it.
#include <cstring>
#include <iterator>
#include <span>
#include <string_view>

#include "base/text.h"
#include "eval/evaluate.h"
#include "eval/terms.h"

// A row shows what the score gained between two points of the evaluation; a group of pieces is
// shown without its material, which has a column of its own.
struct TraceRow {
    const char* label;
    i32 from;     // TallyRow before the terms of this row, or first_terms
    i32 to;       // TallyRow behind them, or last_terms
    i32 type;     // piece type of the material column, NoPiece for none
    i32 material; // weight of that type
};

static constexpr i32 first_terms = -1; // the empty score at the start
static constexpr i32 last_terms = TallyCount;

static constexpr TraceRow trace_rows[] = {
    { "pawns:", first_terms, TallyPawns, Pawn, mtl_pawn },
    { "knights:", TallyPawns, TallyKnights, Knight, mtl_knight },
    { "bishops:", TallyKnights, TallyBishops, Bishop, mtl_bishop },
    { "rooks:", TallyBishops, TallyRooks, Rook, mtl_rook },
    { "queens:", TallyRooks, TallyQueens, Queen, mtl_queen },
    { "king:", TallyQueens, TallyKing, NoPiece, 0 },
    { "ppawns:", TallyKing, TallyPassed, NoPiece, 0 },
    { "other:", TallyPassed, last_terms, NoPiece, 0 },
};

static_assert(std::size(trace_rows) == eval_trace_rows);

// The piece-square tables in the order of their printing.
static constexpr struct {
    const char* label;
    i32 first_entry;
} printed_tables[] = {
    { "Pawn1", PST_P1 },
    { "Connected Pawn", PST_CP },
    { "Defended Pawn", PST_DP },
    { "Knight1", PST_N1 },
    { "Bishop1", PST_B1 },
    { "Rook1", PST_R1 },
    { "Queen1", PST_Q1 },
    { "King", PST_K },
    { "Pawn2", PST_P2 },
    { "Knight2", PST_N2 },
    { "Bishop2", PST_B2 },
    { "Rook2", PST_R2 },
    { "Queen2", PST_Q2 },
};

static i32 score_at(const EvalWork* work, i32 point, i32 side)
{
    return point == first_terms ? 0
        : point == last_terms   ? work->score[side]
                                : work->tally[point][side];
}

// Words wrap like the evaluation's own.
static i32 word_difference(i32 a, i32 b)
{
    return static_cast<i32>(static_cast<u32>(a) - static_cast<u32>(b));
}

// The worth of a side's pieces of one type.
static i32 material_word(const EvalWork* work, const TraceRow& row, i32 side)
{
    if (row.type == NoPiece) {
        return 0;
    }
    const u32 count = static_cast<u32>(count_of(work->pos, side, row.type));
    return static_cast<i32>(count * static_cast<u32>(eval_params[row.material].packed));
}

std::string_view eval_trace_name(i32 row)
{
    std::string_view name = trace_rows[row].label;
    name.remove_suffix(1);
    return name;
}

void read_eval_trace(const EvalState* state, std::span<EvalTraceRow, eval_trace_rows> rows)
{
    const EvalWork* work = &state->eval_work;
    EvalTraceRow* out = rows.data();
    for (const TraceRow& row : trace_rows) {
        for (i32 side = White; side <= Black; ++side) {
            out->gained[side] =
                word_difference(score_at(work, row.to, side), score_at(work, row.from, side));
            out->material[side] = material_word(work, row, side);
        }
        ++out;
    }
}

i32 shown_material(const EvalTraceRow& row, i32 side, f32 phase)
{
    return taper(row.material[side], phase);
}

// Each number is blended by itself, so that the columns of a row add up as they are shown.
i32 shown_terms(const EvalTraceRow& row, i32 side, f32 phase)
{
    return taper(row.gained[side], phase) - shown_material(row, side, phase);
}

static void write_rows(const EvalState* state, TextBuffer* out)
{
    EvalTraceRow rows[eval_trace_rows];
    read_eval_trace(state, rows);
    const f32 phase = state->eval_work.phase;
    append_format(out, "           white  black    pos    mtl\n");
    for (i32 i = 0; i < eval_trace_rows; ++i) {
        const EvalTraceRow& row = rows[i];
        const i32 white = shown_terms(row, White, phase);
        const i32 black = shown_terms(row, Black, phase);
        append_format(out, "%-10s  %4d   %4d   %4d   %4d\n", trace_rows[i].label, white, black,
            white - black, shown_material(row, White, phase) - shown_material(row, Black, phase));
    }
}

static void write_hung(u64 hung, TextBuffer* out)
{
    if (hung == 0) {
        return;
    }
    append_format(out, "hung pieces on: ");
    while (hung != 0) {
        append_format(out, " %s", square_name[pop_lowest(&hung)]);
    }
    append_format(out, "\n");
}

// Rank 8 comes first; the middle game stands left, the end game right.
static void write_pst(const char* label, i32 first_entry, TextBuffer* out)
{
    append_format(out, "%s\n", label);
    for (i32 row = 56; row >= 0; row -= 8) {
        for (i32 file = 0; file < 8; ++file) {
            append_format(out, " %3d", score_mg(eval_params[first_entry + row + file].packed));
        }
        append_format(out, "     ");
        for (i32 file = 0; file < 8; ++file) {
            append_format(out, " %3d", score_eg(eval_params[first_entry + row + file].packed));
        }
        append_format(out, "\n");
    }
    append_format(out, "\n");
}

static void write_weights(TextBuffer* out)
{
    for (const EvalParam& entry : eval_params) {
        if (strstr(entry.name, "PST_") == nullptr) {
            append_format(out, "%-22s  %4d , %4d\n", entry.name, score_mg(entry.packed),
                score_eg(entry.packed));
        }
    }
    for (const auto& table : printed_tables) {
        write_pst(table.label, table.first_entry, out);
    }
}

bool has_eval_trace(const EvalState* state)
{
    return state->eval_work.is_complete;
}

void write_eval_trace(const EvalState* state, bool with_weights, std::span<char> out)
{
    const EvalWork* work = &state->eval_work;
    TextBuffer text = { out };
    out[0] = '\0';
    if (!work->is_complete) {
        return;
    }
    write_rows(state, &text);
    write_hung(work->hung, &text);
    // The side to move's view of the score without contempt.
    const i32 white_view = static_cast<i32>(static_cast<f32>(work->tapered) * work->scale);
    const i32 value = work->pos->stm == White ? white_view : -white_view;
    append_format(&text, "eval= %d,  phase= %0.2f, sf= %0.2f\n\n", value,
        static_cast<f64>(work->phase), static_cast<f64>(work->scale));
    if (with_weights) {
        write_weights(&text);
    }
}

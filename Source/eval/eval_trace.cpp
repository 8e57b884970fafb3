// The printed score table of an evaluation: one row per group of terms, the hanging pieces and
// the closing line; on demand all weights as well. Only the text is made here: it is for a person
// at the console, and whoever asks for it prints it.
#include <cstring>
#include <span>

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

// The blended worth of a side's pieces of one type.
static i32 material_of(const EvalWork* work, const TraceRow& row, i32 side)
{
    if (row.type == NoPiece) {
        return 0;
    }
    const u32 count = static_cast<u32>(count_of(work->pos, side, row.type));
    const u32 word = count * static_cast<u32>(eval_params[row.material].packed);
    return taper(static_cast<i32>(word), work->phase);
}

static i32 terms_of(const EvalWork* work, const TraceRow& row, i32 side)
{
    const i32 gained =
        word_difference(score_at(work, row.to, side), score_at(work, row.from, side));
    return taper(gained, work->phase) - material_of(work, row, side);
}

static void write_rows(const EvalWork* work, TextBuffer* out)
{
    append_format(out, "           white  black    pos    mtl\n");
    for (const TraceRow& row : trace_rows) {
        const i32 white = terms_of(work, row, White);
        const i32 black = terms_of(work, row, Black);
        append_format(out, "%-10s  %4d   %4d   %4d   %4d\n", row.label, white, black, white - black,
            material_of(work, row, White) - material_of(work, row, Black));
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
    write_rows(work, &text);
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

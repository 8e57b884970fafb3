// From the terms of an evaluation to the derivatives of its score, for the tuning build alone.
// A root of a worker's search is noted as well but not published: coef belongs to the main thread.
#include "eval/term_notes.h"

#include "eval/weights.h"

static bool is_published(const EvalWork* work)
{
    return work->state->fills_coef && work->ply < first_cached_ply;
}

void clear_notes(EvalWork* work)
{
    work->notes.count = 0;
    work->notes.fractions = 0;
    if (is_published(work)) {
        for (EvalParam& entry : eval_params) {
            entry.coef = 0.0f;
        }
    }
}

void publish_notes(EvalWork* work, f32 scale, const f32 scale_ahead[2])
{
    TermNotes* notes = &work->notes;
    notes->scale = scale;
    notes->scale_ahead[White] = scale_ahead[White];
    notes->scale_ahead[Black] = scale_ahead[Black];
    if (!is_published(work)) {
        return;
    }
    for (i32 i = 0; i < notes->count; ++i) {
        const TermNote* note = &notes->list[i];
        eval_params[note->weight].coef += note->count * scale;
    }
}

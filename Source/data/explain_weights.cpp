// Finding out what acts, by asking the evaluation itself. Its terms decide by the position alone
// what they add, never by the value of a weight, so that each side's account is a sum of words,
// each taken a whole number of times. With all words zero but a few, of which each is a power of
// two of its own, the account tells these numbers: for a word with the value 2^8k, they are the
// bits from 8k on. Some ninety evaluations find them all, a tenth of a millisecond. The program
// that trains weights notes each use as it happens. Noting would slow down the search's evaluation,
// and to compile it twice would double the time to build this program; asking costs nobody else
// anything, and where the numbers found do not make up the account, it is seen.
#include "data/explain_weights.h"

#include <algorithm>
#include <array>
#include <barrier>
#include <cstddef>
#include <iterator>
#include <thread>

#include "board/moves.h"

// Words that are asked about in the same way.
struct WordList {
    i32* words;
    i32 first; // place of the first one in uses
    i32 count;
    i32 bits; // enough for the number of times that one of them counts for a side
};

// A side has no more than sixteen pieces. The scalar weights may count once for each square that
// they attack; of a piece-square table an entry counts for the one piece that stands there; a part
// counts once for each piece at most, and the king is none of those.
static constexpr WordList word_lists[] = {
    { eval_words, 0, scalar_weight_count, 8 },
    { eval_words + scalar_weight_count, scalar_weight_count, weight_count - scalar_weight_count,
        1 },
    { fraction_words, weight_count, fraction_count, 4 },
};

static constexpr i32 word_bits = 32;

// One evaluation with some words alone: count of them from first on.
struct Probe {
    const WordList* list;
    i32 first; // in the list
    i32 count;
};

static constexpr i32 probes_of(const WordList& list)
{
    const i32 at_once = word_bits / list.bits;
    return (list.count + at_once - 1) / at_once;
}

static constexpr i32 probe_count =
    probes_of(word_lists[0]) + probes_of(word_lists[1]) + probes_of(word_lists[2]);
static_assert(std::size(word_lists) == 3);

static Probe probe_at(i32 number)
{
    const WordList* list = word_lists;
    while (number >= probes_of(*list)) {
        number -= probes_of(*list);
        ++list;
    }
    const i32 at_once = word_bits / list->bits;
    return { list, number * at_once, std::min(at_once, list->count - number * at_once) };
}

static void set_probe(const Probe& probe)
{
    for (i32 i = 0; i < probe.count; ++i) {
        probe.list->words[probe.first + i] = static_cast<i32>(u32 { 1 } << (i * probe.list->bits));
    }
}

static void clear_probe(const Probe& probe)
{
    std::fill_n(probe.list->words + probe.first, probe.count, 0);
}

// The words of the table as it stands, in the order of the uses.
using SavedWords = std::array<i32, word_count>;

static void save_words(SavedWords* saved)
{
    std::copy_n(eval_words, weight_count, saved->data());
    std::copy_n(fraction_words, fraction_count, saved->data() + weight_count);
}

static void clear_words()
{
    std::fill_n(eval_words, weight_count, 0);
    std::fill_n(fraction_words, fraction_count, 0);
}

static void restore_words(const SavedWords& saved)
{
    std::copy_n(saved.data(), weight_count, eval_words);
    std::copy_n(saved.data() + weight_count, fraction_count, fraction_words);
}

// ---- One position

// As at the root of a search, where all terms are run; in check too, as the console does it: a
// reader wants to see the table at any time.
static i32 judge(EvalState* state, const Position* pos)
{
    EvalDraft draft;
    draft_evaluation(state, pos, 1, false, &draft);
    return draft.score;
}

// The evaluation with the true weights.
static void explain_score(EvalState* state, bool makes_table, ExplainedPosition* position)
{
    const Position* pos = &position->pos;
    Explanation* why = &position->why;
    why->in_check = is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
    why->score = judge(state, pos);
    why->by_terms = has_eval_trace(state);
    if (!why->by_terms) {
        why->lone_king = find_lone_king_rule(pos, &why->strong);
        return;
    }
    const EvalWork* work = &state->eval_work;
    std::ranges::copy(work->score, why->sum);
    std::ranges::copy(work->pst_flip, why->pst_flip);
    why->tapered = work->tapered;
    why->phase = work->phase;
    why->scale = work->scale;
    why->scale_reasons = scale_reasons(work, work->tapered);
    why->hung = work->hung;
    read_eval_trace(state, why->rows);
    if (makes_table) {
        char table[eval_trace_size];
        write_eval_trace(state, false, table);
        why->table = table;
    }
}

// The evaluation with the words of a probe.
static void find_uses(EvalState* state, const Probe& probe, ExplainedPosition* position)
{
    Explanation* why = &position->why;
    if (!why->by_terms) {
        return;
    }
    judge(state, &position->pos);
    EvalTraceRow rows[eval_trace_rows];
    read_eval_trace(state, rows);
    const u32 mask = (u32 { 1 } << probe.list->bits) - 1;
    for (i32 row = 0; row < eval_trace_rows; ++row) {
        for (i32 side = White; side <= Black; ++side) {
            u32 found = static_cast<u32>(rows[row].gained[side]);
            for (i32 i = 0; found != 0; ++i, found >>= probe.list->bits) {
                const i32 word = probe.list->first + probe.first + i;
                if ((found & mask) != 0) {
                    why->uses[word][side] = static_cast<u8>(why->uses[word][side] + (found & mask));
                    why->row_of[word] = static_cast<i8>(row);
                }
            }
        }
    }
}

// Whether the uses make up each row as the evaluation has it.
static bool are_uses_whole(const Explanation& why, const SavedWords& saved)
{
    u32 gained[eval_trace_rows][2] = {};
    for (size_t word = 0; word < saved.size(); ++word) {
        for (i32 side = White; side <= Black; ++side) {
            gained[why.row_of[word]][side] += static_cast<u32>(saved[word]) * why.uses[word][side];
        }
    }
    for (i32 row = 0; row < eval_trace_rows; ++row) {
        for (i32 side = White; side <= Black; ++side) {
            if (gained[row][side] != static_cast<u32>(why.rows[row].gained[side])) {
                return false;
            }
        }
    }
    return true;
}

// ---- All positions

Explainer make_explainer(i64 jobs, bool makes_tables)
{
    Explainer explainer;
    explainer.makes_tables = makes_tables;
    for (i64 i = 0; i < jobs; ++i) {
        explainer.states.push_back(std::make_unique<EvalState>());
    }
    return explainer;
}

// All threads evaluate with the same words, and meet before the next ones are put in place by the
// last that comes.
void explain_positions(Explainer* explainer, std::span<ExplainedPosition> positions)
{
    const size_t jobs = std::clamp(positions.size(), size_t { 1 }, explainer->states.size());
    SavedWords saved = {};
    save_words(&saved);
    i32 number = -1; // of the probe; before the first one the true weights stand
    std::barrier meeting(static_cast<i64>(jobs), [&]() noexcept {
        if (number < 0) {
            clear_words();
        } else {
            clear_probe(probe_at(number));
        }
        if (++number < probe_count) {
            set_probe(probe_at(number));
        }
    });
    const auto serve = [&](size_t job) {
        EvalState* state = explainer->states[job].get();
        for (i32 step = -1; step < probe_count; ++step) {
            for (size_t i = job; i < positions.size(); i += jobs) {
                if (step < 0) {
                    explain_score(state, explainer->makes_tables, &positions[i]);
                } else {
                    find_uses(state, probe_at(step), &positions[i]);
                }
            }
            meeting.arrive_and_wait();
        }
        for (size_t i = job; i < positions.size(); i += jobs) {
            Explanation* why = &positions[i].why;
            why->is_whole = !why->by_terms || are_uses_whole(*why, saved);
        }
    };
    std::vector<std::thread> threads;
    for (size_t job = 1; job < jobs; ++job) {
        threads.emplace_back(serve, job);
    }
    serve(0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    restore_words(saved);
}

// ---- Weights

static void add_uses(const Explanation& why, i32 word, f64 part, i32 value, ActingWeight* acting)
{
    for (i32 side = White; side <= Black; ++side) {
        const u8 uses = why.uses[word][side];
        if (uses != 0) {
            acting->row = why.row_of[word];
            acting->times[side] += part * uses;
            acting->added[side] = static_cast<i32>(
                static_cast<u32>(acting->added[side]) + static_cast<u32>(value) * uses);
        }
    }
}

std::vector<ActingWeight> find_acting_weights(const Explanation& why)
{
    std::vector<ActingWeight> list;
    for (i32 weight = 0; weight < weight_count; ++weight) {
        ActingWeight acting = { weight, -1, { 0.0, 0.0 }, { 0, 0 } };
        add_uses(why, weight, 1.0, eval_words[weight], &acting);
        const FractionList parts = fractions_of(weight);
        for (i32 step = 0; step < parts.size; ++step) {
            const i32 part = parts.first + step;
            add_uses(why, weight_count + part, static_cast<f64>(fraction_of(weight, step)),
                fraction_words[part], &acting);
        }
        // A part may be nothing, as that of a shield with all its pawns.
        if (acting.times[White] != 0.0 || acting.times[Black] != 0.0) {
            list.push_back(acting);
        }
    }
    return list;
}

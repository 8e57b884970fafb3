// Prints what golden_evals.py compares with stored tables and no console shows in full:
// "print_evals scores" an evaluation for each position text of its input, "print_evals weights"
// every weight. A weights file in the current folder counts, so it is run in an empty one.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "test_support.h"
#include "eval/evaluate.h"
#include "eval/terms.h"
#include "eval/weights.h"

// Score for the side to move, the dangers, and the parts of a full evaluation. One that ends early
// has no parts; it has no score table.
static void print_score(const std::string& text)
{
    Position* pos = set_position(text);
    const bool in_check = is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
    u16* danger = pos->thread->ply_rec[1].danger;
    danger[White] = 0;
    danger[Black] = 0;
    const i32 score = evaluate(pos->thread, pos, 1, in_check, danger);
    const bool is_full = has_eval_trace(pos->thread);
    printf("%s\t%d\t%d\t%d\t%d", text.c_str(), score, danger[White], danger[Black], is_full);
    if (!is_full) {
        printf("\t%.6f\t%.6f\t%d\n", 0.0, 0.0, 0);
        return;
    }
    const EvalWork* work = &dialogue.game->eval_work;
    const i32 tapered = taper(work->score[White] - work->score[Black], work->phase);
    printf("\t%.6f\t%.6f\t%d\n", static_cast<f64>(work->phase),
        static_cast<f64>(scale_factor(work, tapered)), tapered);
}

static void print_scores()
{
    for (std::string text; std::getline(std::cin, text);) {
        print_score(text);
    }
}

// Number, name, the value that counts, and for a scalar weight the value before tuning.
static void print_weights()
{
    test_thread();
    build_weights(BaseWeights);
    std::vector<i32> base(weight_count);
    for (i32 index = 0; index < weight_count; ++index) {
        base[static_cast<size_t>(index)] = eval_params[index].packed;
    }
    build_weights(NormalWeights);
    for (i32 index = 0; index < weight_count; ++index) {
        const EvalParam& entry = eval_params[index];
        printf("%d\t%s\t%d\t%d", index, entry.name, score_mg(entry.packed), score_eg(entry.packed));
        const i32 word = base[static_cast<size_t>(index)];
        if (index < scalar_weight_count) {
            printf("\t%d\t%d\n", score_mg(word), score_eg(word));
        } else {
            printf("\t-\t-\n");
        }
    }
}

int main(int argc, char** argv)
{
    if (argc == 2 && strcmp(argv[1], "scores") == 0) {
        print_scores();
    } else if (argc == 2 && strcmp(argv[1], "weights") == 0) {
        print_weights();
    } else {
        fprintf(stderr, "usage: print_evals scores|weights\n");
        return 1;
    }
    return fflush(stdout) == 0 ? 0 : 1;
}

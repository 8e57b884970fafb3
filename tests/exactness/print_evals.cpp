// Prints what golden_evals.py compares with stored tables and no console shows in full:
// "print_evals scores" an evaluation for each position text of its input, "print_evals weights"
// every weight. A third argument sets options first: "NAME=VALUE;NAME=VALUE". A weights file in the
// current folder counts, so it is run in an empty one.
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"
#include "eval/evaluate.h"
#include "eval/terms.h"
#include "eval/weights.h"
#include "shell/options.h"

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

// Number, name and the value that counts.
static void print_current_weights()
{
    for (i32 index = 0; index < weight_count; ++index) {
        const EvalParam& entry = eval_params[index];
        printf(
            "%d\t%s\t%d\t%d\n", index, entry.name, score_mg(entry.packed), score_eg(entry.packed));
    }
}

// The same, and for a scalar weight the value before tuning.
static void print_all_weights()
{
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

// Sets the options of such a text; false if one is unknown.
static bool set_options(const std::string& text)
{
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ';');) {
        const size_t sign = part.find('=');
        if (sign == std::string::npos) {
            return false;
        }
        const std::string name = part.substr(0, sign);
        // What is set is told on standard output, where only rows belong; an unknown name is not.
        const std::string told =
            capture_output([&] { set_option(&dialogue, name.c_str(), part.data() + sign + 1); });
        if (told.find(name + " set to ") == std::string::npos) {
            return false;
        }
    }
    build_weights(NormalWeights);
    return true;
}

int main(int argc, char** argv)
{
    const std::string what = argc >= 2 ? argv[1] : "";
    if (argc > 3 || (what != "scores" && what != "weights")) {
        fprintf(stderr, "usage: print_evals scores|weights [NAME=VALUE;...]\n");
        return 1;
    }
    test_thread();
    if (argc == 3 && !set_options(argv[2])) {
        fprintf(stderr, "print_evals: no such option in %s\n", argv[2]);
        return 1;
    }
    if (what == "scores") {
        print_scores();
    } else if (argc == 3) {
        print_current_weights();
    } else {
        print_all_weights();
    }
    return fflush(stdout) == 0 ? 0 : 1;
}

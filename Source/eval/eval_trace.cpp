// The printed score table of an evaluation, one row per group of terms.
#include "eval/evaluate.h"

void print_eval_trace(const EvalWork*, i32, f32)
{
}

// The file of weights: the input is its content. The engine must evaluate with what it gives.
#include <cstdio>

#include "board/position.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "fuzz_support.h"
#include "shell/run_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    remove(params_file);
    ready_engine();
    write_file(params_file, tamed_text(data, size));
    init_eval_params(0);
    evaluate(console_thread, White, 1, 0, 0);
    remove(params_file);
    return 0;
}

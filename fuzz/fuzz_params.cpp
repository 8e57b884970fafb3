// The file of weights: the input is its content. The engine must evaluate with what it gives.
#include <cstdio>

#include "fuzz_support.h"
#include "board/position.h"
#include "eval/evaluate.h"
#include "eval/weights.h"
#include "shell/weights_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    remove(params_file);
    ready_engine();
    write_file(params_file, tamed_text(data, size));
    build_weights(NormalWeights);
    evaluate_at(dialogue.game, White, 1, 0);
    remove(params_file);
    return 0;
}

// Tuning data and training of the weights. This build has none: the routines do nothing.
#include "tools/tools.h"

i32 tune_step(Position*, f32, f32)
{
    return 0;
}

void train_epd(const char*, i32, i64, f64)
{
}

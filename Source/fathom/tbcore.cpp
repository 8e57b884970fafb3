// The registry of endgame tables. This build reads no tables: none is ever found.
#include "fathom/tbcore.h"

constinit i32 tb_largest = 0;

void tb_init(const char*)
{
}

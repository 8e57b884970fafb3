// The end of a program whose own checks have failed: a developer's build stops where it happened.
#include <cstdio>
#include <cstdlib>

#include "base/types.h"

#if defined(VESK_DEBUG)
void debug_check_failed(const char* condition, const char* file, int line)
{
    fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
    abort();
}
#endif

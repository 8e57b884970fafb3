// The runner of test suites in EPD form. This build has none: the mode ends at once.
#include "tools/tools.h"

void run_epd_test()
{
}

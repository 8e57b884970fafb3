// stub
#include "tools/tools.h"
void make_tune_file(const char*)
{
}

// What the words of the command line do that is short to say.
#include "host/words.h"

#include <cstdio>

#include "base/version.h"

int run_help(Arguments)
{
    puts("usage: vesk-uci                the UCI dialogue, for a chess program\n"
         "       vesk-uci bench [DEPTH]  the benchmark\n"
         "       vesk-uci doctor         checks this machine and tells what to set\n"
         "       vesk-uci --version\n"
         "       vesk-uci --help");
    return 0;
}

int run_version(Arguments)
{
    puts(version_string);
    return 0;
}

int run_bench(Arguments)
{
    return 2;
}

int run_doctor(Arguments)
{
    return 2;
}

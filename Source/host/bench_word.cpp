// The engine is run as its own program runs it, and the totals are taken from what it prints: so
// this benchmark cannot become another one than the engine's. It needs a process of its own anyway,
// as the main loop serves once.
#include "host/bench_word.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/files.h"
#include "main/engine.h"
#include "host/child.h"
#include "host/weights_check.h"

static int run_bench_engine(void* context)
{
    char depth[16];
    snprintf(depth, sizeof depth, "%d", *static_cast<const i32*>(context));
    char name[] = "vesk";
    char depth_word[] = "-d";
    char threads_word[] = "-threads";
    char threads[] = "1";
    char bench_word[] = "-bench";
    char* words[] = { name, depth_word, depth, threads_word, threads, bench_word, nullptr };
    return run_engine(6, words);
}

// Start-up tells of the hash table and sets an empty line behind it, which is no part of it.
static bool is_shown(const char* line)
{
    constexpr char start_up[] = "info string ";
    return line[0] != '\n' && strncmp(line, start_up, sizeof start_up - 1) != 0;
}

static void tell_of_weights()
{
    const WeightsCheck check = check_weights();
    if (check.state == WeightsFile::Used) {
        printf("%s in this folder is in use: %d of %d weights are not the program's own, and the "
               "nodes hang on them\n",
            check.name, check.differing, check.total);
    }
}

int print_benchmark(i32 depth)
{
    Child child;
    if (const int error = start_child(&child, run_bench_engine, &depth); error != 0) {
        complain("benchmark", "cannot be started", error);
        return 1;
    }
    f64 seconds = 0;
    f64 nodes = 0;
    f64 rate = 0;
    bool complete = false;
    char line[1024];
    while (fgets(line, sizeof line, child.lines) != nullptr) {
        if (is_shown(line)) {
            fputs(line, stdout);
            fflush(stdout);
        }
        complete |=
            sscanf(line, "total time= %lf seconds, nodes= %lf, nps= %lf", &seconds, &nodes, &rate)
            == 3;
    }
    const int status = end_child(&child);
    if (status != 0 || !complete) {
        fputs("vesk-uci: the engine has not come to the end of the benchmark\n", stderr);
        return 1;
    }
    tell_of_weights();
    printf("%.0f nodes %.0f nps\n", nodes, rate);
    fflush(stdout);
    return 0;
}

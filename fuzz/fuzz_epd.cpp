// A file of positions with operations, through the test runner and through the making of a
// training file: the position must stay sound, and both must end with their output.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "fuzz_support.h"
#include "base/output.h"
#include "board/position.h"
#include "shell/input.h"
#include "tools/tools.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char lines_name[] = "lines.epd";

static void fail(const char* text)
{
    fprintf(stderr, "%s\n", text);
    abort();
}

static void check_output(const char* name)
{
    if (access(name, F_OK) != 0) {
        fail("there is no output");
    }
    if (!fields_agree(&dialogue.game->pos)) {
        fail("the position is unsound");
    }
    remove(name);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    close(nothing);
    reset_input();
    write_file(lines_name, std::string(reinterpret_cast<const char*>(data), size));
    dialogue.limits.node_limit_total = 300;
    store(dialogue.limits.depth_limit, 2);
    store(noise, size % 2 == 0 ? silent_noise : 0.0);
    run_epd_test(&dialogue, lines_name);
    check_output("analysis.epd");
    store(dialogue.limits.depth_limit, 0);
    store(noise, silent_noise);
    make_tune_file(&dialogue, lines_name);
    check_output("tune_new.epd");
    return 0;
}

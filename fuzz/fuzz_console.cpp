// Lines said to the console, which reads what its editor wants from the lines behind. Whatever
// they do to game and settings, the position stays sound, and a short search of it must be safe
// where no defect is reported.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "fuzz_support.h"
#include "base/output.h"
#include "board/defect.h"
#include "board/position.h"
#include "search/search.h"
#include "search/threads.h"
#include "shell/console.h"
#include "shell/input.h"
#include "shell/prepare_search.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char input_name[] = "console.in";

static void read_from(const char* name)
{
    const int descriptor = open(name, O_RDONLY);
    if (descriptor < 0 || dup2(descriptor, STDIN_FILENO) != STDIN_FILENO) {
        abort();
    }
    close(descriptor);
    reset_input();
}

// A count from depth 3 on or with two digits can take longer than a target may, and a trace grows
// without end.
static bool is_costly(const char* line)
{
    if (strstr(line, "trace") != nullptr) {
        return true;
    }
    const char* digit = strstr(line, "perft") != nullptr ? strpbrk(line, "123456789") : nullptr;
    return digit != nullptr && (*digit > '2' || strpbrk(digit + 1, "0123456789") != nullptr);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    store(uci_mode, 0);
    remove("tmp.pgn");
    write_file(input_name, std::string(reinterpret_cast<const char*>(data), size));
    read_from(input_name);
    char line[longest_input + 1];
    while (read_input(line, sizeof line, true) != 0) {
        if (is_costly(line)) {
            continue;
        }
        console_command(&dialogue, line);
        if (!fields_agree(&dialogue.game->pos)) {
            fprintf(stderr, "the position is unsound\n");
            abort();
        }
    }
    read_from("/dev/null");
    if (position_defect(&dialogue.game->pos) == nullptr) {
        search_shortly();
    }
    store(engine_state, EngineState::Idle);
    return 0;
}

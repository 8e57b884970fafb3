// Position text: whatever it holds, the record that it gives must be writable as text again, and
// where no defect is reported a short search of it must be safe.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "base/output.h"
#include "board/defect.h"
#include "board/position.h"
#include "search/search.h"
#include "shell/prepare_search.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    const std::string text(reinterpret_cast<const char*>(data), size);
    Position* pos = &dialogue.game->pos;
    char first[128];
    char second[128];
    parse_epd(pos, text.c_str());
    make_fen(pos, first);
    if (position_defect(pos)) {
        return 0;
    }
    parse_epd(pos, first);
    make_fen(pos, second);
    if (strcmp(first, second) != 0) {
        fprintf(stderr, "'%s' is read back as '%s'\n", first, second);
        abort();
    }
    search_shortly();
    return 0;
}

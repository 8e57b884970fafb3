// The two files of a table and a few probes. The first byte chooses the material, the next two are
// the length of the first file, the win/draw/loss file; the rest is the distance file. A probe
// ends, reads nothing but the files, and gives a value of the scale or none.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "fuzz_support.h"
#include "guarded_mmap.h"
#include "board/moves.h"
#include "fathom/tbcore.h"
#include "fathom/tbinit.h"
#include "fathom/tbmoves.h"
#include "fathom/tbprobe.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Each material with positions of both sides to move, also such as have captures, and of its
// successors only those that need no table.
static const struct {
    const char* name;
    const char* positions[6];
} materials[] = {
    { "KQvK",
        { "8/8/8/3k4/8/8/4Q3/4K3 w - -", "8/8/8/3k4/8/8/4Q3/4K3 b - -", "k7/2Q5/8/8/8/8/8/K7 b - -",
            "8/8/8/8/8/8/1k6/Q1K5 b - -", "7K/8/8/3q4/8/8/8/k7 b - -",
            "7K/8/8/3q4/8/8/8/k7 w - -" } },
    { "KRvK",
        { "8/8/8/3k4/8/8/4R3/4K3 w - -", "8/8/8/3k4/8/8/4R3/4K3 b - -", "R6k/8/6K1/8/8/8/8/8 b - -",
            "8/8/8/8/8/8/1kR5/4K3 b - -", "K7/8/8/8/8/8/8/r6k w - -",
            "K7/8/8/8/8/8/8/r6k b - -" } },
    { "KBvK",
        { "8/8/8/3k4/8/8/4B3/4K3 w - -", "8/8/8/3k4/8/8/4B3/4K3 b - -", "k7/8/K7/8/8/5B2/8/8 b - -",
            "8/8/8/3K4/8/8/4b3/4k3 w - -", "8/8/8/3K4/8/8/4b3/4k3 b - -",
            "7k/8/8/8/8/8/B7/K7 w - -" } },
    { "KPvK",
        { "8/8/8/3k4/8/8/4P3/4K3 w - -", "8/8/8/3k4/8/8/4P3/4K3 b - -", "8/P7/8/8/8/8/8/K6k w - -",
            "4k3/8/8/8/8/8/7p/4K3 w - -", "8/8/8/8/8/4p3/8/k1K5 b - -",
            "8/2k5/8/2P5/2K5/8/8/8 w - -" } },
    { "KPvKP",
        { "8/8/8/3k4/8/4p3/4P3/4K3 w - -", "8/8/8/3k4/4p3/8/4P3/4K3 b - -",
            "8/8/8/8/4pP2/8/8/k6K b - f3", "8/P7/8/8/8/8/p7/7K w - -",
            "8/8/8/3k4/8/8/Pp6/4K3 b - -", "7k/7p/8/8/8/8/P7/K7 w - -" } },
    { "KRRvK",
        { "8/8/8/3k4/8/8/4R3/R3K3 w - -", "8/8/8/3k4/8/8/4R3/R3K3 b - -",
            "2R5/8/5k2/8/8/8/6K1/2R5 b - -", "8/8/8/8/8/8/1kR5/R3K3 b - -",
            "8/8/8/3K4/8/8/4r3/r3k3 w - -", "8/8/8/3K4/8/8/4r3/r3k3 b - -" } },
    { "KPPvK",
        { "8/8/8/3k4/8/4P3/4P3/4K3 w - -", "8/8/8/3k4/8/4P3/4P3/4K3 b - -",
            "8/7k/2P5/7P/8/8/8/K7 b - -", "8/7k/2P5/7P/8/8/8/1K6 w - -",
            "4k3/8/8/8/8/p6p/8/4K3 w - -", "8/8/8/8/8/1k1p2p1/8/4K3 b - -" } },
};
static constexpr size_t material_count = sizeof materials / sizeof materials[0];

static void fail(const char* position, const char* text, i32 value)
{
    fprintf(stderr, "%s: %s %d\n", position, text, value);
    abort();
}

static void probe(const char* text)
{
    Position* pos = &dialogue.game->pos;
    parse_epd(pos, text);
    TbPos tb_pos;
    tb_set_pos(&tb_pos, pos, 0);
    i32 success = 0;
    const i32 wdl = tb_probe_wdl(&tb_pos, &success);
    if (success != 0 && (wdl < -2 || wdl > 2)) {
        fail(text, "wdl", wdl);
    }
    success = 0;
    const i32 dtz = tb_probe_dtz(&tb_pos, &success);
    if (success != 0 && (dtz < -900 || dtz > 900)) {
        fail(text, "dtz", dtz);
    }
    u32 root_wdl = 0;
    u32 root_dtz = 0;
    u16 move = 0;
    if (tb_probe_root(pos, &root_wdl, &root_dtz, &move) != -1 && !is_playable(pos, move)) {
        fail(text, "move", move);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    if (size < 3) {
        return 0;
    }
    guard_mappings(true);
    const auto& material = materials[data[0] % material_count];
    const size_t rest = size - 3;
    const size_t first = std::min<size_t>(rest, data[1] | data[2] << 8);
    const std::string bytes(reinterpret_cast<const char*>(data) + 3, rest);
    const std::string name = material.name;
    write_file((name + ".rtbw").c_str(), bytes.substr(0, first));
    write_file((name + ".rtbz").c_str(), bytes.substr(first));
    tb_init(".");
    for (const char* position : material.positions) {
        probe(position);
    }
    tb_init("");
    unlink((name + ".rtbw").c_str());
    unlink((name + ".rtbz").c_str());
    return 0;
}

// The word "explain" with lines of positions, a file of options or one of weights, by the first
// letter of the input. What it says of a position adds up, with whatever weights.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "data/explain_weights.h"
#include "data/words.h"
#include "board/position.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static constexpr char input_file[] = "explain.in";
static constexpr char output_file[] = "explain.out";
static constexpr char start_lines[] =
    "rnbqkb1r/ppp2ppp/4pn2/3p4/3PP3/2N5/PPP2PPP/R1BQKBNR w KQkq -\n"
    "8/5k2/3P4/8/2b5/4B3/1K3p2/8 b - - id \"a\";\n";

static void demand(bool condition)
{
    if (!condition) {
        abort();
    }
}

static int explain(std::vector<std::string> words)
{
    words.insert(words.begin(),
        { "explain", "--quiet", "--max-messages", "0", "--output", output_file, "--report",
            "explain.report" });
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    return run_data_word(arguments);
}

// With the weights that the word has left behind.
static void explain_start()
{
    std::vector<ExplainedPosition> positions(1);
    positions[0].pos = dialogue.game->pos;
    Explainer explainer = make_explainer(1, true);
    explain_positions(&explainer, positions);
    demand(positions[0].why.is_whole && positions[0].why.by_terms);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    write_file(input_file, text);
    int status = 0;
    switch (data[0]) {
    case 'o':
    case 'w':
        write_file("explain.lines", start_lines);
        status = explain({ data[0] == 'o' ? "--options" : "--weights", input_file, "--form", "json",
            "explain.lines" });
        explain_start();
        break;
    case 'c':
        status = explain({ "--form", "csv", "--term", "ppawn", "--jobs", "2", input_file });
        break;
    case 't':
        status = explain({ input_file });
        break;
    default:
        status = explain({ "--json", input_file });
        break;
    }
    demand(status == 0 || status == 1);
    return 0;
}

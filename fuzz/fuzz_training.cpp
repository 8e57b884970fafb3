// A training line: whatever it holds, it is taken with a sound record or it is not. The score of a
// record must be the evaluation's, within what the cutting off of fractions allows. Then the
// training loop of the program reads the same bytes as a file.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "eval/weights.h"
#include "tools/tools.h"
#include "tools/trainer/training_gather.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static const char file_name[] = "training.epd";

static void check(bool condition, const char* text)
{
    if (!condition) {
        fprintf(stderr, "%s\n", text);
        abort();
    }
}

static void check_record(const u32* out, u32 words)
{
    TrainingPosition position;
    memcpy(&position, out, sizeof position);
    check(words == position_words + position.terms, "the record has another length");
    check(position.target >= 0.0f && position.target <= 1.0f, "the target is no result");
    check(position.phase >= 0.0f && position.phase <= 1.0f, "the phase is out of range");
    for (u32 i = position_words; i < words; ++i) {
        check(term_weight(out[i]) > 0 && term_weight(out[i]) < weight_count, "no such weight");
        check(std::isfinite(term_coef(out[i])), "a coefficient is no number");
    }
}

static void gather(const std::string& text)
{
    static Gatherer gatherer;
    static u32 out[most_position_words];
    const std::string line = text.substr(0, static_cast<size_t>(training_line_length));
    u32 words = 0;
    gatherer.thread = dialogue.game;
    const LineVerdict verdict = gather_line(&gatherer, line.c_str(), true, out, &words);
    check((verdict == LineUsed) == (words > 0), "a line left out has a record");
    if (verdict == LineUsed) {
        check_record(out, words);
        check(!gatherer.check.failed, "the score cannot be rebuilt");
    } else if (verdict >= LineRefused) {
        check(refusal_text(verdict)[0] != '\0', "no reason is given");
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ready_engine();
    const std::string text(reinterpret_cast<const char*>(data), size);
    gather(text);
    // Ended by its last line, which is refused.
    write_file(file_name, text + "\n4k3/8/8/8/8/8/8/4K3 w K - ce 1; gr 0.5;\n");
    train_epd(&dialogue, file_name, 1, 1000, 0.001);
    check(fields_agree(&dialogue.game->pos), "the position is unsound");
    return 0;
}

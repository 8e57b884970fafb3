// With which weights positions are explained: the engine's own, scaled by personality options, or
// those of a file.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "data/report.h"
#include "eval/weights.h"

struct WeightSettings {
    std::vector<std::string> sets; // NAME=MG,EG: a personality option, in per cent
    std::string options_file; // of the engine's options, NAME = VALUE in a line; empty for none
    std::string weights_file; // in the form of params.txt; empty for none
};

// Builds the table of weights as the engine does before a search: its own weights, scaled by the
// personality options of the file and then those set singly; then come the weights of a file, which
// no personality changes. *scaled becomes the options that are not at their default, in the order
// of the engine's list. Returns false after a message if anything of it cannot be used: of a file
// the report then counts what was refused; otherwise *usage is set.
[[nodiscard]] bool set_up_weights(
    const WeightSettings& settings, Report* report, std::vector<std::string>* scaled, bool* usage);

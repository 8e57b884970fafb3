// Numbers on the command line, read strictly: a run with other settings than those meant costs
// hours.
#include "tools/number_option.h"

#include <cstdio>
#include <cstdlib>

// A number with something behind it, as 10k, is refused. The range comes before the conversion,
// which is undefined beyond it.
bool set_number(const NumberOption& option, const char* text)
{
    char* end = nullptr;
    const f64 value = text == nullptr ? 0.0 : strtod(text, &end);
    const bool is_number = text != nullptr && end != text && *end == '\0';
    const bool is_in_range = value >= option.least && value <= option.greatest;
    const bool is_whole = option.whole == nullptr
        || value == static_cast<f64>(static_cast<i64>(is_in_range ? value : 0.0));
    if (!is_number || !is_in_range || !is_whole) {
        fprintf(stderr, "option %s needs a %snumber from %.15g to %.15g\n", option.name,
            option.whole != nullptr ? "whole " : "", option.least, option.greatest);
        return false;
    }
    if (option.whole != nullptr) {
        *option.whole = static_cast<i64>(value);
    } else {
        *option.real = value;
    }
    return true;
}

// Options of the tools' command lines that have a number as their value.
#pragma once

#include "base/types.h"

// An option with a number; one of the two fields takes it, the other is null.
struct NumberOption {
    const char* name;
    f64 least;
    f64 greatest;
    f64* real;
    i64* whole;
};

// Puts the number that text stands for into the option's field. Returns false after telling
// standard error if text is missing (null), is not a number as a whole, or is out of range.
[[nodiscard]] bool set_number(const NumberOption& option, const char* text);

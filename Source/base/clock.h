// The monotonic clock, and sleeping.
#pragma once

#include "base/types.h"

// The monotonic clock in seconds, formed as tv_sec + tv_nsec * 1e-9.
f64 monotonic_seconds();

// Lets the calling thread sleep for about the given number of microseconds.
void sleep_microseconds(i32 microseconds);

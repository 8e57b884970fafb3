// The monotonic clock is the system's: it never jumps when somebody sets the time of day.
#include "base/clock.h"

#include <ctime>
#include <sys/select.h>

f64 monotonic_seconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<f64>(now.tv_sec) + static_cast<f64>(now.tv_nsec) * 1e-9;
}

// By select, which takes the time in microseconds and returns early where a signal comes: all who
// sleep here look again afterwards.
void sleep_microseconds(i32 microseconds)
{
    timeval timeout = { microseconds / 1000000, microseconds % 1000000 };
    select(0, nullptr, nullptr, nullptr, &timeout);
}

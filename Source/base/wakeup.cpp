// An eventfd: it is polled together with standard input, and neither side ever blocks on it.
#include "base/wakeup.h"

#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

static int descriptor = -1; // written before any worker exists

void init_wakeup()
{
    descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

// A full counter is a ring as well, so a write that fails has lost nothing.
void wake_main_loop()
{
    const std::uint64_t one = 1;
    if (descriptor >= 0 && write(descriptor, &one, sizeof one) < 0) {
        return;
    }
}

int wakeup_descriptor()
{
    return descriptor;
}

void clear_wakeup()
{
    std::uint64_t rings;
    if (descriptor >= 0 && read(descriptor, &rings, sizeof rings) < 0) {
        return; // nobody has rung
    }
}

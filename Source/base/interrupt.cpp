// Noting signals. Calls that wait go on after a signal, those that poll come back.
#include "base/interrupt.h"

#include <csignal>

// A handler may do no more than this.
static volatile sig_atomic_t interrupted = 0;

static void interrupt(int)
{
    interrupted = 1;
}

// Whether the parent process has asked for a signal to be passed over.
static bool is_ignored(int number)
{
    struct sigaction action = {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void catch_interrupts()
{
    interrupted = 0;
    struct sigaction action = {};
    action.sa_handler = interrupt;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    if (!is_ignored(SIGHUP)) {
        sigaction(SIGHUP, &action, nullptr);
    }
}

bool is_interrupted()
{
    return interrupted != 0;
}

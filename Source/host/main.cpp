// The program vesk-uci: the engine with the manners of a chess program's guest around it. Without a
// word on the command line it is the UCI dialogue.
#include "host/relay.h"
#include "host/words.h"

int main(int argc, char** argv)
{
    if (argc < 2) {
        return run_relay();
    }
    return run_word({ argv + 1, static_cast<size_t>(argc - 1) });
}

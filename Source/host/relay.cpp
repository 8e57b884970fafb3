// The dialogue as it stands is the engine's own: what comes in goes to it.
#include "host/relay.h"

#include "main/engine.h"

int run_relay()
{
    char name[] = "vesk-uci";
    char* words[] = { name, nullptr };
    return run_engine(1, words);
}

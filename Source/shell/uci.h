// The words of the UCI dialogue.
#pragma once

#include "shell/dialogue.h"

// Executes one line of the dialogue, with or without its line feed. The text may be altered; a word
// that is not known does nothing, and no argument is refused. Works in either mode, and "uci" makes
// UCI the mode. A "go" only asks for a search, which the main loop starts. Called on the main
// thread.
void uci_command(Dialogue* dialogue, char* command);

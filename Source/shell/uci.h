// The words of the UCI dialogue.
#pragma once

#include "shell/dialogue.h"

// Executes one line of the dialogue. The text may be altered; a word that is not known does
// nothing.
void uci_command(Dialogue* dialogue, char* command);

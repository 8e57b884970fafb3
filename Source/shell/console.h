// The words of the console dialogue.
#pragma once

#include "board/types.h"

// Executes one line of the dialogue. The text may be altered; what is neither a known word nor a
// legal move does nothing.
void console_command(char* command);

extern u64 tagged_key; // key of the position at the last "tag"; read by nothing

// The words of the console dialogue.
#pragma once

// Executes one line of the dialogue. The text may be altered; what is neither a known word nor a
// legal move does nothing.
void console_command(char* command);

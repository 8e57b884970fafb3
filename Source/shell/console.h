// The words of the console dialogue.
#pragma once

#include <string_view>

#include "shell/dialogue.h"
#include "shell/words.h"

// A word of the dialogue and what it does. line is the whole line. Words come in their order and
// may be altered. A routine runs on the main thread and returns soon: the clock and the reports
// wait for it.
struct ConsoleWord {
    std::string_view word;
    void (*run)(Dialogue* dialogue, Words* words, const char* line);
};

// Returns whether the position of the game cannot be worked on; the user is told why then.
[[nodiscard]] bool is_refused(Position* pos);

// Executes one line of the dialogue. The text may be altered; what is neither a known word nor a
// legal move does nothing. With or without its line feed. Looks through the console's own words
// first, then through those of the tools. Called on the main thread, in console mode alone.
void console_command(Dialogue* dialogue, char* command);

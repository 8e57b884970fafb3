// The words of the console dialogue.
#pragma once

#include <string_view>

#include "shell/dialogue.h"

inline constexpr i32 most_words = 10; // of a line; what stands behind them is not looked at
inline constexpr i32 word_size = 128; // a longer word is cut

// A line split at blanks; words that are missing are empty texts.
struct Words {
    char text[most_words][word_size + 4]; // reading a move may add a character
};

// A word of the dialogue and what it does. line is the whole line.
struct ConsoleWord {
    std::string_view word;
    void (*run)(Dialogue* dialogue, Words* words, const char* line);
};

// Whether the position of the game cannot be worked on; the user is told why.
bool is_refused(Position* pos);

// Executes one line of the dialogue. The text may be altered; what is neither a known word nor a
// legal move does nothing.
void console_command(Dialogue* dialogue, char* command);

// Words of a line, for the dialogues and the files of games. Blanks alone separate words: a tab
// belongs to its word, so a line pasted with tabs is one long word and does nothing.
#pragma once

#include <cstring>
#include <string_view>

#include "base/text.h"

// Words of a line that are split off; what stands behind them is not looked at.
inline constexpr i32 most_words = 10;
// Characters of a word with its NUL; a longer one is cut. No command, key or move is near it, only
// a path of a file may be.
inline constexpr size_t word_size = 128;

// A line split at blanks; words that are missing are empty texts.
struct Words {
    char text[most_words][word_size + 4]; // reading a move may add a character
};

// Takes the next word off a text, which stands behind the word afterwards; empty at the text's end.
// The word is a piece of the text: nothing closes it.
[[nodiscard]] inline std::string_view take_word(const char** text)
{
    const char* start = skip_blanks(*text);
    const std::string_view word(start, strcspn(start, " "));
    *text = start + word.size();
    return word;
}

// Words of a line, for the dialogues and the files of games. Blanks alone separate words: a tab
// belongs to its word, so a line pasted with tabs is one long word and does nothing.
#pragma once

#include <string_view>

#include "base/text.h"

// Takes the next word off a text, which stands behind the word afterwards; empty at the text's end.
// The word is a piece of the text: nothing closes it.
[[nodiscard]] inline std::string_view take_word(const char** text)
{
    const char* start = skip_blanks(*text);
    const std::string_view word(start, strcspn(start, " "));
    *text = start + word.size();
    return word;
}

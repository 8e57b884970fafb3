// Texts that are put together piece by piece. The count of what fits is kept here, so that no
// caller has to do arithmetic on what snprintf returns, which is the length that was wanted.
#include "base/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

void append_format(TextBuffer* text, const char* format, ...)
{
    const std::span<char> rest = text->room.subspan(text->used);
    va_list args;
    va_start(args, format);
    const int wanted = vsnprintf(rest.data(), rest.size(), format, args);
    va_end(args);
    if (wanted > 0) {
        text->used += std::min(static_cast<size_t>(wanted), rest.size() - 1);
    }
}

// Distances between words after Levenshtein (Binary codes capable of correcting deletions,
// insertions, and reversals, 1966), kept in one row of the table.
#include "base/nearest_word.h"

#include <algorithm>

#include "base/types.h"

// Letters that a word may be wrong in and still be meant.
static constexpr i32 near_enough = 2;
static constexpr size_t longest_guess = 16;

static std::string_view without_dashes(std::string_view word)
{
    return word.substr(std::min(word.find_first_not_of('-'), word.size()));
}

// How many letters must be changed, added or left out to make the one of the other; at most
// longest_guess letters are compared.
static i32 distance(std::string_view a, std::string_view b)
{
    a = a.substr(0, longest_guess);
    b = b.substr(0, longest_guess);
    i32 row[longest_guess + 1];
    for (size_t i = 0; i <= b.size(); ++i) {
        row[i] = static_cast<i32>(i);
    }
    for (size_t i = 0; i < a.size(); ++i) {
        i32 diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); ++j) {
            const i32 changed = diagonal + ((a[i] | 0x20) == (b[j] | 0x20) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({ changed, diagonal + 1, row[j] + 1 });
        }
    }
    return row[b.size()];
}

std::string_view nearest_word(std::string_view word, std::span<const std::string_view> words)
{
    const std::string_view letters = without_dashes(word);
    std::string_view best;
    i32 least = near_enough + 1;
    for (const std::string_view candidate : words) {
        const std::string_view other = without_dashes(candidate);
        const i32 steps = distance(letters, other);
        // A word of a letter or two is near to everything.
        if (steps < least && steps < static_cast<i32>(std::min(letters.size(), other.size()))) {
            least = steps;
            best = candidate;
        }
    }
    return best;
}

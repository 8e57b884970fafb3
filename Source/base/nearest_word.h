// The word that somebody meant who wrote another.
#pragma once

#include <span>
#include <string_view>

// The first of those words that differ least from word, by letters changed, added or left out;
// case and leading dashes count for nothing. Empty if all are further away than two letters, or so
// short that they are near to everything.
[[nodiscard]] std::string_view nearest_word(
    std::string_view word, std::span<const std::string_view> words);

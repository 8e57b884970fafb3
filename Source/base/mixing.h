// Numbers that tell texts and other numbers apart, the same on every machine.
#pragma once

#include "base/types.h"

// The key of an empty text.
inline constexpr u64 empty_text_key = 0xcbf29ce484222325ULL;

// The key of a text with one character more. FNV-1a (Fowler, Noll and Vo).
inline constexpr u64 add_to_text_key(u64 key, char c)
{
    return (key ^ static_cast<u8>(c)) * 0x100000001b3ULL;
}

// What numbers that follow one another are apart in the sequences of mix_bits.
inline constexpr u64 mixing_step = 0x9e3779b97f4a7c15ULL;

// A number each of whose bits hangs on all bits of word: the output of SplitMix64 (Steele, Lea and
// Flood, "Fast splittable pseudorandom number generators").
inline constexpr u64 mix_bits(u64 word)
{
    word = (word ^ (word >> 30)) * 0xbf58476d1ce4e5b9ULL;
    word = (word ^ (word >> 27)) * 0x94d049bb133111ebULL;
    return word ^ (word >> 31);
}

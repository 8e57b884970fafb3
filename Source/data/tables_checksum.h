// The checksum in the last 16 bytes of a table file. Nobody describes it; which hash it is was
// found by trying published ones on real files, and it agrees with all that were at hand, up to 8
// MB: cut into chunks, each chunk is hashed to 32 bytes by CityHashCrc256, and these together to 16
// bytes by CityHash128 (Google's CityHash, version 1.0.3).
//
// Of larger files two things are not known for sure: how long a chunk is, and whether the hash of
// very many chunks is CityHash128 or CityHashCrc128. So all that come into question are tried.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "base/types.h"

// Bytes of a file in memory.
using TableBytes = std::span<const u8>;

using TableChecksum = std::array<u64, 2>;
using ChunkDigest = std::array<u64, 4>;

// A file up to this long has been seen to agree.
inline constexpr u64 known_checksum_size = 8136912;

// Lengths that chunks may have, the most likely one first. None is less than what was seen to be
// one.
inline constexpr u64 chunk_lengths[] = { 1ULL << 24, 1ULL << 23, 1ULL << 25, 1ULL << 26, 1ULL << 27,
    1ULL << 28 };
static_assert(chunk_lengths[1] >= known_checksum_size);

// The digest of one chunk.
[[nodiscard]] ChunkDigest digest_chunk(TableBytes chunk);

// Whether the digests of all chunks, in their order, make this checksum.
[[nodiscard]] bool makes_checksum(
    const std::vector<ChunkDigest>& digests, const TableChecksum& checksum);

// The checksum of bytes in chunks of this length.
[[nodiscard]] TableChecksum checksum_of(TableBytes bytes, u64 chunk_length = chunk_lengths[0]);

// The checksum as 32 hexadecimal digits, in the order of the file.
[[nodiscard]] std::array<char, 33> checksum_text(const TableChecksum& checksum);

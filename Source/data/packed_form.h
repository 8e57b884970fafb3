// The forms of packed files that are read and written.
#pragma once

#include "base/types.h"

enum class PackedForm : u8 {
    Plain, // not packed
    Gzip,  // RFC 1952, named .gz
    Zstd   // RFC 8878, named .zst
};

// Bytes that are packed or unpacked at once, so that memory is bounded whatever a file unpacks to.
inline constexpr size_t packed_piece_size = 128 * 1024;

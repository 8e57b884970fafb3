// Lines that wait for the end of the input, in buckets: in memory as far as that goes, and then in
// a file without a name, which is gone with the process however that ends.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "data/positions_line.h"

// A line on its way from the input to the output. The text lasts as long as the call that hands it
// on.
struct CarriedLine {
    LineFacts facts;
    std::string_view text; // no line feed
};

// What takes lines; returns false to end the run.
using LineSink = std::function<bool(const CarriedLine&)>;

// Where lines can wait, and how much memory may be taken for them.
struct ScratchPlace {
    std::string folder; // of the file
    i64 memory = 0;     // bytes
};

// A bucket: full blocks, and one that is being filled.
struct Bucket {
    std::string open;
    std::vector<std::string> kept; // blocks in memory, which come first
    std::vector<i64> stored;       // places of the others in the file
    i64 bytes = 0;                 // of all of them
};

struct Scratch {
    ScratchPlace place;
    std::vector<Bucket> buckets;
    size_t block_size = 0;
    i64 kept_bytes = 0;
    int file = -1;
    i64 file_size = 0;
    int error = 0; // errno of the file; all ends with it

    Scratch() = default;
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch();
};

// Makes ready for that many buckets, all empty. Beyond place.memory a block a bucket is held.
void start_scratch(Scratch* scratch, const ScratchPlace& place, size_t buckets);

// Adds a line to a bucket. Returns false where the file takes no more, which scratch->error tells.
[[nodiscard]] bool add_to_bucket(Scratch* scratch, size_t bucket, const CarriedLine& line);

// Where the reading of a bucket stands.
struct BucketReader {
    Scratch* scratch = nullptr;
    size_t bucket = 0;
    size_t block = 0;    // the next one
    std::string current; // the block that is read
    size_t start = 0;    // in it
    std::string text;    // of the line handed out last
};

[[nodiscard]] BucketReader start_bucket(Scratch* scratch, size_t bucket);

// The next line of the bucket, in the order in which they came; its text stands until the next
// call. Returns false behind the last one, or where the file cannot be read, which scratch->error
// tells. Blocks that have been read are given back: a bucket is read once.
[[nodiscard]] bool read_from_bucket(BucketReader* reader, CarriedLine* line);

// A bucket is one stream of bytes, cut into blocks of one size; a line is its facts and its text,
// and may stand in two blocks.
#include "data/scratch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <type_traits>
#include <unistd.h>
#include <utility>

#include "data/nameless.h"

static_assert(std::is_trivially_copyable_v<LineFacts>);

static constexpr i64 least_block = 4096;
static constexpr i64 largest_block = 128 * 1024;

Scratch::~Scratch()
{
    if (file >= 0) {
        close(file);
    }
}

// A quarter of the memory is for the blocks that are being filled.
void start_scratch(Scratch* scratch, const ScratchPlace& place, size_t buckets)
{
    scratch->place = place;
    scratch->buckets.resize(buckets);
    const i64 block = place.memory / 4 / static_cast<i64>(buckets);
    scratch->block_size = static_cast<size_t>(std::clamp(block, least_block, largest_block));
}

// ---- The file

static bool fail(Scratch* scratch, int error)
{
    scratch->error = error != 0 ? error : EIO;
    return false;
}

static bool store_block(Scratch* scratch, Bucket* bucket)
{
    if (scratch->file < 0) {
        scratch->file = open_nameless(scratch->place.folder);
    }
    if (scratch->file < 0) {
        return fail(scratch, errno);
    }
    for (size_t done = 0; done < bucket->open.size();) {
        const ssize_t count = pwrite(scratch->file, bucket->open.data() + done,
            bucket->open.size() - done, scratch->file_size + static_cast<i64>(done));
        if (count < 0 && errno != EINTR) {
            return fail(scratch, errno);
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    bucket->stored.push_back(scratch->file_size);
    scratch->file_size += static_cast<i64>(bucket->open.size());
    bucket->open.clear();
    return true;
}

static bool load_block(Scratch* scratch, i64 place, std::string* block)
{
    block->resize(scratch->block_size);
    for (size_t done = 0; done < block->size();) {
        const ssize_t count = pread(scratch->file, block->data() + done, block->size() - done,
            place + static_cast<i64>(done));
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return fail(scratch, count == 0 ? EIO : errno);
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

// ---- Writing

// Once a block has gone to the file all that follow do: the order is told by that.
static bool close_block(Scratch* scratch, Bucket* bucket)
{
    const i64 size = static_cast<i64>(bucket->open.size());
    const i64 reserved = scratch->place.memory / 4;
    if (bucket->stored.empty() && scratch->kept_bytes + size <= scratch->place.memory - reserved) {
        scratch->kept_bytes += size;
        bucket->kept.push_back(std::exchange(bucket->open, std::string()));
        return true;
    }
    return store_block(scratch, bucket);
}

static bool add_bytes(Scratch* scratch, Bucket* bucket, const char* bytes, size_t size)
{
    bucket->bytes += static_cast<i64>(size);
    while (size > 0) {
        if (bucket->open.capacity() < scratch->block_size) {
            bucket->open.reserve(scratch->block_size);
        }
        const size_t count = std::min(size, scratch->block_size - bucket->open.size());
        bucket->open.append(bytes, count);
        bytes += count;
        size -= count;
        if (bucket->open.size() == scratch->block_size && !close_block(scratch, bucket)) {
            return false;
        }
    }
    return true;
}

bool add_to_bucket(Scratch* scratch, size_t bucket, const CarriedLine& line)
{
    LineFacts facts = line.facts;
    facts.length = static_cast<u32>(line.text.size());
    char bytes[sizeof facts];
    memcpy(bytes, &facts, sizeof facts);
    return add_bytes(scratch, &scratch->buckets[bucket], bytes, sizeof bytes)
        && add_bytes(scratch, &scratch->buckets[bucket], line.text.data(), line.text.size());
}

// ---- Reading

BucketReader start_bucket(Scratch* scratch, size_t bucket)
{
    BucketReader reader;
    reader.scratch = scratch;
    reader.bucket = bucket;
    return reader;
}

// Takes the next block: first those in memory, then those of the file, then the open one.
static bool next_block(BucketReader* reader)
{
    Scratch* scratch = reader->scratch;
    Bucket* bucket = &scratch->buckets[reader->bucket];
    const size_t number = reader->block++;
    reader->start = 0;
    if (number < bucket->kept.size()) {
        scratch->kept_bytes -= static_cast<i64>(bucket->kept[number].size());
        reader->current = std::exchange(bucket->kept[number], std::string());
        return true;
    }
    const size_t stored = number - bucket->kept.size();
    if (stored < bucket->stored.size()) {
        return load_block(scratch, bucket->stored[stored], &reader->current);
    }
    reader->current = std::exchange(bucket->open, std::string());
    return !reader->current.empty();
}

static bool read_bytes(BucketReader* reader, char* bytes, size_t size)
{
    while (size > 0) {
        if (reader->start == reader->current.size() && !next_block(reader)) {
            return false;
        }
        const size_t count = std::min(size, reader->current.size() - reader->start);
        memcpy(bytes, reader->current.data() + reader->start, count);
        reader->start += count;
        bytes += count;
        size -= count;
    }
    return true;
}

bool read_from_bucket(BucketReader* reader, CarriedLine* line)
{
    char bytes[sizeof line->facts];
    if (!read_bytes(reader, bytes, sizeof bytes)) {
        return false;
    }
    memcpy(&line->facts, bytes, sizeof bytes);
    reader->text.resize(line->facts.length);
    if (!read_bytes(reader, reader->text.data(), reader->text.size())) {
        return false;
    }
    line->text = reader->text;
    return true;
}

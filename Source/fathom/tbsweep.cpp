// Decoding whole blocks. What takes time is that a code's place is known only when the one before
// it has been read, so several blocks are read side by side.
#include "fathom/tbsweep.h"

#include <algorithm>

#include "fathom/tbbits.h"

static constexpr i32 lanes = 4; // blocks at a time
static constexpr i32 runs_at_once = 3;
// Bits that are sure to be there when a word has been shifted to the next bit, by seven at most.
static constexpr i32 sure_bits = 57;
static_assert(runs_at_once * most_sweep_bits <= sure_bits);
static constexpr i32 least_sweep_bits = 10;
// Of sections with fewer bytes of blocks than much_data the tables are kept smaller: they would
// take longer to make than they save.
static constexpr i32 small_sweep_bits = 13;
static constexpr u64 much_data = 1 << 18;
static constexpr u32 no_run = ~0U; // more values than any block has

// A block that is being read.
struct Lane {
    u64 block;
    const u8* start;
    u64 passed; // bits
    u32 left;   // place of the block's last value behind these
};

// Codes with their values and their length.
static inline u32 values_of(u32 codes)
{
    return codes >> 8;
}

static inline u32 length_of(u32 codes)
{
    return codes & 255;
}

// The code at the top of these bits, which are 32 at least.
static u32 find_code(const PairsData* pairs, u32 top)
{
    const i32 i = find_length(pairs, 0, top);
    const u32 values = pairs->symlen[symbol_of(pairs, i, top)] + 1U;
    return values << 8 | static_cast<u32>(pairs->min_len + i);
}

// The length of the longest code; its base is the first that is 0.
static i32 longest_code(const PairsData* pairs)
{
    return pairs->min_len + find_length(pairs, 0, 0);
}

void tb_start_sweep(TbSweep* sweep, const PairsData* pairs)
{
    const bool is_small = static_cast<u64>(pairs->blocks) << pairs->block_size < much_data;
    const i32 sweep_bits = std::clamp(
        longest_code(pairs), least_sweep_bits, is_small ? small_sweep_bits : most_sweep_bits);
    sweep->pairs = pairs;
    sweep->bits = sweep_bits;
    for (u32 next = 0; next < 1U << sweep_bits; ++next) {
        const u32 code = find_code(pairs, next << (32 - sweep_bits));
        sweep->codes[next] = length_of(code) <= static_cast<u32>(sweep_bits) ? code : no_run;
    }
    // The codes behind the first one are those of the bits that are left, with zeros behind them.
    for (u32 next = 0; next < 1U << sweep_bits; ++next) {
        u32 run = sweep->codes[next];
        u32 length = length_of(run);
        for (u32 rest = next; run != no_run;) {
            rest = rest << length & ((1U << sweep_bits) - 1);
            const u32 code = sweep->codes[rest];
            if (code == no_run || length_of(run) + length_of(code) > static_cast<u32>(sweep_bits)) {
                break;
            }
            run += code;
            length = length_of(code);
        }
        sweep->runs[next] = run;
    }
}

static Lane start_lane(const PairsData* pairs, u64 block)
{
    return { block, pairs->data + (block << pairs->block_size), 0,
        static_cast<u32>(last_value(pairs, block)) };
}

// Whether the block is sound in which the codes up to the one of its last value take so many bits:
// they are in the block, and nothing stands behind them. That last code may stand for more values
// than the block has, which nobody asks for.
static bool ends_soundly(const PairsData* pairs, const u8* start, u64 bits)
{
    const u64 size = 1ULL << pairs->block_size;
    if (bits > 8 * size) {
        return false;
    }
    // Behind the last code: the rest of its byte, then whole ones.
    const u64 byte = bits / 8;
    return byte == size
        || (static_cast<u8>(start[byte] << (bits % 8)) == 0
            && std::all_of(start + byte + 1, start + size, [](u8 rest) { return rest == 0; }));
}

enum class Step : u8 { GoesOn, Sound, Bad };

// The bits of a lane from the next one on, and zeros behind them. Returns false at the end of the
// mapping.
static inline bool load_lane(const TbSweep* sweep, const Lane* lane, u64* bits)
{
    const u8* next = lane->start + lane->passed / 8;
    if (sweep->pairs->end - next < 8) {
        return false;
    }
    *bits = big_endian_u64(next) << (lane->passed % 8);
    return true;
}

// Reads codes one by one: of those in the next bits the first that is not passed by a run, or,
// where the run holds the last value, all of them up to that one.
static Step read_codes(const TbSweep* sweep, Lane* lane, u64 bits)
{
    const bool ends_here = sweep->runs[bits >> (64 - sweep->bits)] != no_run;
    for (;;) {
        u32 code = sweep->codes[bits >> (64 - sweep->bits)];
        if (code == no_run) {
            code = find_code(sweep->pairs, static_cast<u32>(bits >> 32));
        }
        lane->passed += length_of(code);
        if (lane->left < values_of(code)) {
            return ends_soundly(sweep->pairs, lane->start, lane->passed) ? Step::Sound : Step::Bad;
        }
        lane->left -= values_of(code);
        bits <<= length_of(code);
        if (!ends_here) {
            return Step::GoesOn;
        }
    }
}

// Reads several codes of a lane. Nearly all bits are passed by runs, without a branch that hangs on
// what they are.
static inline Step step_lane(const TbSweep* sweep, Lane* lane)
{
    u64 bits;
    if (!load_lane(sweep, lane, &bits)) {
        return Step::Bad;
    }
    u64 passed = lane->passed;
    u32 left = lane->left;
    for (i32 k = 0; k < runs_at_once; ++k) {
        const u32 run = sweep->runs[bits >> (64 - sweep->bits)];
        const u32 taken = values_of(run) <= left ? run : 0;
        left -= values_of(taken);
        passed += length_of(taken);
        bits <<= length_of(taken);
    }
    const bool moved = passed != lane->passed;
    lane->passed = passed;
    lane->left = left;
    return moved ? Step::GoesOn : read_codes(sweep, lane, bits);
}

u64 tb_find_bad_block(const TbSweep* sweep, u64 begin, u64 end)
{
    Lane active[lanes];
    i32 count = 0;
    u64 next = begin;
    while (count < lanes && next < end) {
        active[count++] = start_lane(sweep->pairs, next++);
    }
    while (count > 0) {
        for (i32 k = 0; k < count; ++k) {
            const Step step = step_lane(sweep, &active[k]);
            if (step == Step::GoesOn) {
                continue;
            }
            // Blocks in front of a bad one may still be read; none behind it is begun.
            if (step == Step::Bad) {
                end = std::min(end, active[k].block);
            }
            active[k] = next < end ? start_lane(sweep->pairs, next++) : active[--count];
        }
    }
    return end;
}

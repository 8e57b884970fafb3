// Set-up and decoding of one compressed section. Everything that a decoder follows is checked once
// at the set-up; what it still checks is how far the bits of a damaged block lead.
//
// The header of a section with several values, as the file has it:
//   byte 0 flags; 1 log2 of a block's bytes; 2 log2 of the values per index entry
//   byte 3 entries of the size table beyond the blocks; 4 to 7 number of blocks
//   byte 8 longest code, 9 shortest code; from 10 on for each length its first symbol, 2 bytes
//   then the number of symbols, 2 bytes, and 3 bytes for each: its left and its right half, 12 bits
//   each; one byte more if the number is odd
//
// What a damaged file could do, and what stops it:
//   a count that leads out of the mapping: read_header compares each with the bytes left
//   symbols that contain each other or ones that are not there, which would never end or read
//   beyond the list: measure_symbol
//   values too high for the prober's tables: measure_symbol, at the leaves
//   codes that lead to symbols that are not there: codes_are_covered
//   index entries that name no block: tb_index_table_is_sound
//   block sizes that lead out of the blocks, or through gigabytes of them: find_block
//   blocks whose codes run on: load_bits, at the end of the mapping
// A wrong value inside of sound ranges cannot be told from a right one; the probes bear any.
#include "fathom/tbpairs.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fathom/tbbits.h"

static constexpr u32 leaf_mark = 0xfff;       // as right half: the left one is a value
static constexpr u32 max_symbols = leaf_mark; // so no symbol is called like the mark
static constexpr i32 max_code_length = 32;    // what find_symbol compares at once
static constexpr i32 run_bits = 8;            // that set_runs takes apart in advance
static constexpr i32 max_symbol_values = 256; // symlen holds one less in a byte
static constexpr i32 max_log2 = 31;           // of bytes per block and values per index entry
static constexpr i32 fixed_header = 10;       // bytes before the offsets
static constexpr i32 index_entry_size = 6;
static constexpr u64 padding_size = 65535; // what stands in size_table behind the blocks
static constexpr u64 longest_walk = 65536; // blocks; more than any table of 6 pieces needs

// ---- Set-up

// The header's numbers, and where its lists lie.
struct PairsHeader {
    i32 block_size;
    i32 idx_bits;
    u32 blocks;
    u32 size_entries;
    i32 min_len;
    i32 lengths; // code lengths, from min_len on
    u32 num_syms;
    const u8* offset;
    const u8* sympat;
    const u8* next;
};

// Returns false if the header is cut off or its numbers are out of range. Logarithms are limited
// lest a shift by them be undefined; idx_bits 0 would pass for a section of one value. Addresses
// are compared by differences: a sum beyond the mapping's end could wrap around.
static bool read_header(const u8* data, const u8* end, PairsHeader* header)
{
    if (end - data < fixed_header) {
        return false;
    }
    header->block_size = data[1];
    header->idx_bits = data[2];
    header->blocks = tb_u32(data + 4);
    header->size_entries = header->blocks + data[3];
    header->min_len = data[9];
    header->lengths = data[8] - data[9] + 1;
    if (header->block_size > max_log2 || header->idx_bits < 1 || header->idx_bits > max_log2
        || header->size_entries < header->blocks || header->min_len < 1 || header->lengths < 1
        || data[8] > max_code_length) {
        return false;
    }
    header->offset = data + fixed_header;
    if (end - header->offset < 2 * header->lengths + 2) {
        return false;
    }
    const u8* count = header->offset + 2 * header->lengths;
    header->num_syms = tb_u16(count);
    header->sympat = count + 2;
    const u32 bytes = 3 * header->num_syms + (header->num_syms & 1);
    header->next = header->sympat + bytes;
    return header->num_syms >= 1 && header->num_syms <= max_symbols
        && end - header->sympat >= static_cast<ptrdiff_t>(bytes);
}

static u32 left_symbol(const u8* sympat, u32 symbol)
{
    const u8* bytes = sympat + 3 * symbol;
    return (bytes[1] & 15U) << 8 | bytes[0];
}

static u32 right_symbol(const u8* sympat, u32 symbol)
{
    const u8* bytes = sympat + 3 * symbol;
    return static_cast<u32>(bytes[2]) << 4 | bytes[1] >> 4;
}

// ---- What a decoder needs of a symbol, in one word: its left half in bits 0 to 11, the symlen of
// that half in 12 to 19, its right half in 20 to 31. A leaf has its value for the left half.

static SymbolHalves pack_halves(u32 left, u32 left_symlen, u32 right)
{
    return left | left_symlen << 12 | right << 20;
}

static inline u32 left_half(SymbolHalves halves)
{
    return halves & 0xfff;
}

static inline i32 left_symlen(SymbolHalves halves)
{
    return static_cast<i32>(halves >> 12 & 255);
}

static inline u32 right_half(SymbolHalves halves)
{
    return halves >> 20;
}

// ---- Symbols and codes

// Open is a symbol whose halves are being measured.
enum SymbolState : u8 { SymbolUnseen, SymbolOpen, SymbolDone };

struct SymbolWalk {
    const u8* sympat;
    u8* symlen;
    SymbolHalves* halves;
    u32 num_syms;
    u32 highest;
    u8 state[max_symbols];
};

// Computes symlen of a symbol and of all below it. Returns false if the walk meets an open symbol
// again, a symbol that there is none of, too many values, or too high a value. A symbol is opened
// once, so the recursion is no deeper than there are symbols. What it proves, expand_symbol relies
// on: from a symbol down there are fewer values with each step, and at the end stands a sound one.
// A symbol whose values are all the same becomes a leaf for expand_symbol, which need not go down
// to find out: most of those of 256 values are such, and that spares it eight steps.
static bool measure_symbol(SymbolWalk* walk, u32 symbol)
{
    if (symbol >= walk->num_syms || walk->state[symbol] == SymbolOpen) {
        return false;
    }
    if (walk->state[symbol] == SymbolDone) {
        return true;
    }
    const u32 left = left_symbol(walk->sympat, symbol);
    const u32 right = right_symbol(walk->sympat, symbol);
    if (right == leaf_mark) {
        walk->symlen[symbol] = 0;
        walk->halves[symbol] = pack_halves(left, 0, leaf_mark);
        walk->state[symbol] = SymbolDone;
        return left <= walk->highest;
    }
    walk->state[symbol] = SymbolOpen;
    if (!measure_symbol(walk, left) || !measure_symbol(walk, right)) {
        return false;
    }
    walk->state[symbol] = SymbolDone;
    const i32 values = walk->symlen[left] + walk->symlen[right] + 2;
    walk->symlen[symbol] = static_cast<u8>(values - 1);
    const SymbolHalves half = walk->halves[left];
    const bool all_same = right_half(half) == leaf_mark && walk->halves[right] == half;
    walk->halves[symbol] = all_same ? half : pack_halves(left, walk->symlen[left], right);
    return values <= max_symbol_values;
}

static bool measure_symbols(const PairsData* pairs, const PairsHeader* header, i32 highest)
{
    SymbolWalk walk = { header->sympat, pairs->symlen, pairs->halves, header->num_syms,
        static_cast<u32>(highest), {} };
    for (u32 symbol = 0; symbol < header->num_syms; ++symbol) {
        if (!measure_symbol(&walk, symbol)) {
            return false;
        }
    }
    return true;
}

// Whether all bits that a block may hold lead to a symbol that there is. The codes of a length lie
// from its base up to the base of the next shorter one; the highest of them has the highest symbol.
// A length whose base is not below that of a shorter one is never reached.
static bool codes_are_covered(const PairsData* pairs, i32 lengths, u32 num_syms)
{
    u64 limit = 1ULL << 32; // above the codes of a length
    for (i32 i = 0; i < lengths; ++i) {
        const u64 base = pairs->base[i];
        const i32 unused = 32 - (pairs->min_len + i);
        const u64 first = tb_u16(pairs->offset + 2 * i);
        if (limit > base && first + ((limit - 1 - base) >> unused) >= num_syms) {
            return false;
        }
        limit = base;
    }
    return true;
}

// Fills base: the canonical code in which longer codes come first. Returns false if the offsets
// make no such code.
//
// The longest codes count from 0 and have the first symbols, so offset falls as the length rises,
// and a length has as many codes as its offset is below that of the next shorter one. Each pair of
// codes of a length takes up one code of the next shorter length: that one begins at half of where
// the longer ones end. The base of the longest being 0, the search for a code's length ends there.
static bool set_bases(PairsData* pairs, i32 lengths, u32 num_syms)
{
    u64 code = 0; // the smallest of a length
    for (i32 i = lengths - 1; i >= 0; --i) {
        const i32 length = pairs->min_len + i;
        const i64 first = tb_u16(pairs->offset + 2 * i);
        if (i < lengths - 1) {
            const i64 twice = static_cast<i64>(code) + first - tb_u16(pairs->offset + 2 * i + 2);
            if (twice < 0 || twice % 2 != 0) {
                return false;
            }
            code = static_cast<u64>(twice) / 2;
        }
        if (code >> length != 0) {
            return false;
        }
        pairs->base[i] = static_cast<u32>(code << (32 - length));
    }
    return codes_are_covered(pairs, lengths, num_syms);
}

// Takes apart what a block's next bits can be. The base of a length has no bits beyond that length:
// so the codes that end within these bits are the same whatever follows, and where all that follows
// is 1 the first code has the shortest length that it can have.
static void set_runs(PairsData* pairs)
{
    static constexpr u32 rest = (1U << (32 - run_bits)) - 1;
    for (u32 next = 0; next < pairs_runs; ++next) {
        u32 top = next << (32 - run_bits);
        PairsRun* run = &pairs->runs[next];
        run->shortest = static_cast<u8>(find_length(pairs, 0, top | rest));
        i32 bits = 0;
        i32 values = 0;
        for (;;) {
            const i32 i = find_length(pairs, 0, top);
            const i32 length = pairs->min_len + i;
            if (bits + length > run_bits) {
                break;
            }
            values += pairs->symlen[symbol_of(pairs, i, top)] + 1;
            bits += length;
            top <<= length;
        }
        run->bits = static_cast<u8>(bits);
        run->last = static_cast<u16>(values - 1); // without a whole code the greatest number
    }
}

// A record with room for so many bases and symbols behind it, all zero: the pointers that only a
// section of several values has stay null otherwise.
static PairsData* new_pairs(i32 lengths, u32 num_syms, u64 table_size)
{
    const size_t bases = static_cast<size_t>(lengths) * sizeof(u32);
    const size_t halves = num_syms * sizeof(SymbolHalves);
    const size_t size = sizeof(PairsData) + bases + halves + num_syms;
    void* block = malloc(size);
    if (block == nullptr) {
        return nullptr;
    }
    PairsData* pairs = static_cast<PairsData*>(block);
    memset(block, 0, size);
    pairs->base = reinterpret_cast<u32*>(pairs + 1);
    pairs->halves = pairs->base + lengths;
    pairs->symlen = reinterpret_cast<u8*>(pairs->halves + num_syms);
    pairs->table_size = table_size;
    return pairs;
}

PairsData* tb_setup_pairs(
    const u8* data, const u8* end, u64 table_size, i32 highest, u64 size[3], const u8** next)
{
    PairsHeader header;
    if (!read_header(data, end, &header)) {
        return nullptr;
    }
    PairsData* pairs = new_pairs(header.lengths, header.num_syms, table_size);
    if (pairs == nullptr) {
        return nullptr;
    }
    pairs->offset = header.offset;
    pairs->end = end;
    pairs->blocks = header.blocks;
    pairs->size_entries = header.size_entries;
    pairs->block_size = header.block_size;
    pairs->idx_bits = header.idx_bits;
    pairs->min_len = header.min_len;
    if (!measure_symbols(pairs, &header, highest)
        || !set_bases(pairs, header.lengths, header.num_syms)) {
        free(pairs);
        return nullptr;
    }
    set_runs(pairs);
    // The last stretch of the index table may be cut short by the end of the table. None of the
    // sums can wrap around: a table has less than 2^40 values, and the blocks less than 2^63 bytes.
    const u64 stretch = 1ULL << header.idx_bits;
    size[0] = index_entry_size * ((table_size + stretch - 1) >> header.idx_bits);
    size[1] = 2ULL * header.size_entries;
    size[2] = static_cast<u64>(header.blocks) << header.block_size;
    *next = header.next;
    return pairs;
}

bool tb_ends_tidily(const u8* data, const u8* next)
{
    const u8* count = data + fixed_header + 2 * (data[8] - data[9] + 1);
    return (tb_u16(count) & 1) == 0 || next[-1] == 0;
}

PairsData* tb_one_value(i32 value, u64 table_size)
{
    PairsData* pairs = new_pairs(0, 0, table_size);
    if (pairs != nullptr) {
        pairs->min_len = value;
    }
    return pairs;
}

// ---- Decoding

// Finds the block of a value and the value's place in it. The index table tells where the middle
// of its stretch lies, and the block sizes lead from there. Returns false if they lead nowhere, or
// so far that a made-up file of gigabytes would hold up every probe. An entry may name a place in
// the padding behind the blocks, from which sizes lead back to one; only a block found is read.
static inline bool find_block(const PairsData* pairs, u64 index, u64* block_found, i32* place)
{
    const u8* entry = pairs->index_table + index_entry_size * (index >> pairs->idx_bits);
    const u64 stretch = 1ULL << pairs->idx_bits;
    u64 block = tb_u32(entry);
    const u64 lowest = block - std::min(block, longest_walk);
    const u64 end = std::min<u64>(pairs->blocks, block + longest_walk + 1);
    // lit is the value's place as counted from the start of block, below 0 if it lies before it.
    i64 lit =
        static_cast<i64>(index & (stretch - 1)) - static_cast<i64>(stretch / 2) + tb_u16(entry + 4);
    while (lit < 0) {
        if (block == lowest) {
            return false;
        }
        --block;
        lit += last_value(pairs, block) + 1;
    }
    while (lit > last_value(pairs, block)) {
        lit -= last_value(pairs, block) + 1;
        ++block;
        if (block >= end) {
            return false;
        }
    }
    *block_found = block;
    *place = static_cast<i32>(lit);
    return block < end;
}

// The bits of a block behind those passed, the first on top. They come from two words of the block,
// so there are 33 at least. Returns false if the words are not all in the mapping; the checksum
// behind the data lets the first two of every block be read.
static inline bool load_bits(const PairsData* pairs, const u8* start, i32 passed, u64* bits)
{
    const u8* next = start + 4 * (passed / 32);
    if (pairs->end - next < 8) {
        return false;
    }
    *bits = big_endian_u64(next) << (passed & 31);
    return true;
}

static inline const PairsRun* next_run(const PairsData* pairs, u64 bits)
{
    return &pairs->runs[bits >> (64 - run_bits)];
}

// The symbol in a block that holds the value at *place, which becomes the place in the symbol; -1
// if the bits run on beyond the mapping. In front of the symbol there are 80 codes in the mean,
// most of one bit or two. So they are passed over by runs, as many as the bits are sure to last
// for, and only those of the last run and the long ones are looked at one by one.
static inline i32 find_symbol(const PairsData* pairs, u64 block, i32* place)
{
    static constexpr i32 runs_at_once = 33 / run_bits;
    // A block has at most 65536 values and every code has at least one, so this ends.
    const u8* start = pairs->data + (block << pairs->block_size);
    i32 lit = *place;
    i32 passed = 0;
    u64 bits;
    while (load_bits(pairs, start, passed, &bits)) {
        const PairsRun* run = next_run(pairs, bits);
        if (lit > run->last) {
            for (i32 k = 0; k < runs_at_once && lit > run->last; ++k) {
                lit -= run->last + 1;
                passed += run->bits;
                bits <<= run->bits;
                run = next_run(pairs, bits);
            }
            continue;
        }
        // Whole symbols are passed over without being taken apart.
        const u32 top = static_cast<u32>(bits >> 32);
        const i32 i = find_length(pairs, run->shortest, top);
        const u32 symbol = symbol_of(pairs, i, top);
        const i32 values = pairs->symlen[symbol] + 1;
        if (lit < values) {
            *place = lit;
            return static_cast<i32>(symbol);
        }
        lit -= values;
        passed += pairs->min_len + i;
    }
    return -1;
}

// Follows a symbol's halves down to the value at place. Which half comes next hangs on chance, so
// it is chosen without a branch.
static inline i32 expand_symbol(const PairsData* pairs, u32 symbol, i32 place)
{
    SymbolHalves halves = pairs->halves[symbol];
    while (right_half(halves) != leaf_mark) {
        const i32 values = left_symlen(halves) + 1;
        const bool right = place >= values;
        place -= right ? values : 0;
        halves = pairs->halves[right ? right_half(halves) : left_half(halves)];
    }
    return static_cast<i32>(left_half(halves));
}

i32 tb_decompress_pairs(const PairsData* pairs, u64 index)
{
    if (pairs->idx_bits == 0) {
        return pairs->min_len;
    }
    u64 block;
    i32 place;
    if (index >= pairs->table_size || !find_block(pairs, index, &block, &place)) {
        return -1;
    }
    const i32 symbol = find_symbol(pairs, block, &place);
    return symbol < 0 ? -1 : expand_symbol(pairs, static_cast<u32>(symbol), place);
}

// ---- The tables in front of the blocks

// Whether the values begin where the first block does, and end where the last one does. That holds
// for a header that stands before the blocks of another table only by chance. To add up all block
// sizes would be surer, but would read the whole size table before the first probe.
static bool values_fill_the_blocks(const PairsData* pairs)
{
    u64 block = 0;
    i32 place = 0;
    return find_block(pairs, 0, &block, &place) && block == 0 && place == 0
        && find_block(pairs, pairs->table_size - 1, &block, &place) && block + 1 == pairs->blocks
        && place == last_value(pairs, block);
}

bool tb_index_table_is_sound(const PairsData* pairs)
{
    if (pairs->idx_bits == 0) {
        return true;
    }
    const u64 stretch = 1ULL << pairs->idx_bits;
    const u64 entries = (pairs->table_size + stretch - 1) >> pairs->idx_bits;
    for (u64 q = 0; q < entries; ++q) {
        if (tb_u32(pairs->index_table + index_entry_size * q) >= pairs->size_entries) {
            return false;
        }
    }
    return values_fill_the_blocks(pairs);
}

// ---- Every size

// The padding's entries are walked like the blocks': the middle of the last stretch may lie behind
// all values, and is named as if blocks of the greatest size went on.
TbSizesFault tb_check_sizes(const PairsData* pairs, u64* place)
{
    const u64 stretch = 1ULL << pairs->idx_bits;
    const u64 entries = (pairs->table_size + stretch - 1) >> pairs->idx_bits;
    u64 sum = 0; // of the values in front of a block
    u64 q = 0;
    for (u64 block = 0; block < pairs->size_entries; ++block) {
        *place = block;
        if (block >= pairs->blocks && static_cast<u64>(last_value(pairs, block)) != padding_size) {
            return TbPaddingSize;
        }
        if (block == pairs->blocks && sum != pairs->table_size) {
            return TbSumOfSizes;
        }
        const u64 next = sum + static_cast<u64>(last_value(pairs, block)) + 1;
        for (; q < entries && (q << pairs->idx_bits) + stretch / 2 < next; ++q) {
            const u64 middle = (q << pairs->idx_bits) + stretch / 2;
            const u8* entry = pairs->index_table + index_entry_size * q;
            if (tb_u32(entry) != block || tb_u16(entry + 4) != middle - sum) {
                *place = q;
                return TbIndexEntry;
            }
        }
        sum = next;
    }
    const u64 padding = pairs->size_entries - pairs->blocks;
    if (sum != pairs->table_size + padding * (padding_size + 1)) {
        return TbSumOfSizes;
    }
    *place = q;
    return q == entries ? TbSoundSizes : TbIndexEntry;
}

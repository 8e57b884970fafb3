// CityHash 1.0.3 as far as tables need it: published by Geoff Pike and Jyrki Alakuijala of Google
// under the MIT licence. Only the arithmetic is theirs; names of single letters are those of the
// published routines, where nothing better can be said of them either.
#include "data/tables_checksum.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <utility>

#if defined(__SSE4_2__)
#include <nmmintrin.h>
#elif defined(__ARM_FEATURE_CRC32)
#include <arm_acle.h>
#endif

static constexpr u64 k0 = 0xc3a5c85c97cb3127ULL;
static constexpr u64 k1 = 0xb492b66fbe98f273ULL;
static constexpr u64 k3 = 0xc949d7c7509e6557ULL;
static constexpr u64 multiplier_16 = 0x9ddfea08eb382d69ULL;

static constexpr size_t crc_round = 240;     // bytes of the long loop
static constexpr size_t crc_step = 40;       // of one of its six steps
static constexpr size_t longest_short = 900; // CityHashCrc128 is CityHash128 up to here

// ---- Parts

// Lowest byte first, whatever the machine.
static inline u64 fetch64(const u8* bytes)
{
    u64 word;
    memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) {
        word = __builtin_bswap64(word);
    }
    return word;
}

static inline u64 rotate(u64 word, int bits)
{
    return std::rotr(word, bits);
}

static inline u64 shift_mix(u64 word)
{
    return word ^ (word >> 47);
}

static u64 hash_len_16(u64 u, u64 v)
{
    const u64 a = shift_mix((u ^ v) * multiplier_16);
    const u64 b = shift_mix((v ^ a) * multiplier_16);
    return b * multiplier_16;
}

// Eight bytes into a CRC-32C (polynomial 0x1edc6f41, reflected), as the processors' instruction
// does it: nothing inverted before or after.
#if defined(__SSE4_2__)
static inline u64 crc_of(u64 crc, u64 word)
{
    return _mm_crc32_u64(crc, word);
}
#elif defined(__ARM_FEATURE_CRC32)
static inline u64 crc_of(u64 crc, u64 word)
{
    return __crc32cd(static_cast<u32>(crc), word);
}
#else
// The CRC of each byte with so many zero bytes behind it.
struct CrcTables {
    u32 crc[8][256];
};

static constexpr CrcTables make_crc_tables()
{
    constexpr u32 reflected = 0x82f63b78;
    CrcTables tables = {};
    for (u32 i = 0; i < 256; ++i) {
        u32 crc = i;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? reflected : 0);
        }
        tables.crc[0][i] = crc;
    }
    for (int k = 1; k < 8; ++k) {
        for (u32 i = 0; i < 256; ++i) {
            const u32 crc = tables.crc[k - 1][i];
            tables.crc[k][i] = (crc >> 8) ^ tables.crc[0][crc & 255];
        }
    }
    return tables;
}

static constexpr CrcTables crc_tables = make_crc_tables();

static inline u64 crc_of(u64 crc, u64 word)
{
    word ^= static_cast<u32>(crc);
    u32 result = 0;
    for (int k = 0; k < 8; ++k) {
        result ^= crc_tables.crc[7 - k][word >> (8 * k) & 255];
    }
    return result;
}
#endif

// ---- CityHashCrc256

struct CrcState {
    u64 a, b, c, d, e, t;
    u64 f, g, h, i, j; // CRCs
};

static inline void crc_chunk(CrcState* state, const u8* s, u64 multiplier, int z)
{
    const u64 old_a = state->a;
    state->a = rotate(state->b, 41 ^ z) * multiplier + fetch64(s);
    state->b = rotate(state->c, 27 ^ z) * multiplier + fetch64(s + 8);
    state->c = rotate(state->d, 41 ^ z) * multiplier + fetch64(s + 16);
    state->d = rotate(state->e, 33 ^ z) * multiplier + fetch64(s + 24);
    state->e = rotate(state->t, 25 ^ z) * multiplier + fetch64(s + 32);
    state->t = old_a;
    state->f = crc_of(state->f, state->a);
    state->g = crc_of(state->g, state->b);
    state->h = crc_of(state->h, state->c);
    state->i = crc_of(state->i, state->d);
    state->j = crc_of(state->j, state->e);
}

// Mixes the state together.
static ChunkDigest finish_crc(CrcState state, ChunkDigest result)
{
    auto [a, b, c, d, e, t, f, g, h, i, j] = state;
    j += i << 32;
    a = hash_len_16(a, j);
    h += g << 32;
    b += h;
    c = hash_len_16(c, f) + i;
    d = hash_len_16(d, e + result[0]);
    j += e;
    i += hash_len_16(h, t);
    e = hash_len_16(a, d) + j;
    f = hash_len_16(b, c) + a;
    g = hash_len_16(j, i) + c;
    result[0] = e + f + g + h;
    a = shift_mix((a + g) * k0) * k0 + b;
    result[1] += a + result[0];
    a = shift_mix(a * k0) * k0 + c;
    result[2] = a + result[1];
    a = shift_mix((a + e) * k0) * k0;
    result[3] = a + result[2];
    return result;
}

// At least crc_round bytes.
static ChunkDigest hash_long(TableBytes bytes, u32 seed)
{
    const u8* s = bytes.data();
    size_t left = bytes.size();
    ChunkDigest result = {};
    CrcState state = {};
    state.a = fetch64(s + 56) + k0;
    state.b = fetch64(s + 96) + k0;
    state.c = result[0] = hash_len_16(state.b, left);
    state.d = result[1] = fetch64(s + 120) * k0 + left;
    state.e = fetch64(s + 184) + seed;
    state.f = seed;
    state.t = state.c + state.d;
    for (; left >= crc_round; left -= crc_round) {
        for (int pair = 0; pair < 3; ++pair) {
            crc_chunk(&state, s, 1, 1);
            crc_chunk(&state, s + crc_step, k0, 0);
            s += 2 * crc_step;
        }
    }
    for (; left >= crc_step; left -= crc_step) {
        crc_chunk(&state, s, k0, 0);
        s += crc_step;
    }
    if (left > 0) {
        crc_chunk(&state, s + left - crc_step, k0, 0);
    }
    return finish_crc(state, result);
}

ChunkDigest digest_chunk(TableBytes chunk)
{
    if (chunk.size() >= crc_round) {
        return hash_long(chunk, 0);
    }
    u8 buffer[crc_round] = {};
    std::ranges::copy(chunk, buffer);
    return hash_long(buffer, ~static_cast<u32>(chunk.size()));
}

// ---- CityHash128

// The hash of sixteen bytes, part of that of more.
static u64 hash_16_bytes(const u8* s)
{
    const u64 last = fetch64(s + 8);
    return hash_len_16(fetch64(s), rotate(last + 16, 16)) ^ last;
}

// At least 16 bytes, less than 128.
static TableChecksum city_murmur(TableBytes bytes, TableChecksum seed)
{
    const u8* s = bytes.data();
    const size_t size = bytes.size();
    auto [a, b] = seed;
    u64 c;
    u64 d;
    if (size <= 16) {
        a = shift_mix(a * k1) * k1;
        c = b * k1 + hash_16_bytes(s);
        d = shift_mix(a + fetch64(s));
    } else {
        c = hash_len_16(fetch64(s + size - 8) + k1, a);
        d = hash_len_16(b + size, c + fetch64(s + size - 16));
        a += d;
        for (size_t at = 0; at + 16 < size; at += 16) {
            a = (a ^ shift_mix(fetch64(s + at) * k1) * k1) * k1;
            b ^= a;
            c = (c ^ shift_mix(fetch64(s + at + 8) * k1) * k1) * k1;
            d ^= c;
        }
    }
    a = hash_len_16(a, c);
    b = hash_len_16(d, b);
    return { a ^ b, hash_len_16(b, a) };
}

using Pair = std::pair<u64, u64>;

static Pair weak_hash_32(const u8* s, u64 a, u64 b)
{
    const u64 z = fetch64(s + 24);
    a += fetch64(s);
    b = rotate(b + a + z, 21);
    const u64 c = a;
    a += fetch64(s + 8);
    a += fetch64(s + 16);
    b += rotate(a, 44);
    return { a + z, b + c };
}

// At least 128 bytes.
static TableChecksum hash_128_long(TableBytes bytes, TableChecksum seed)
{
    const u8* s = bytes.data();
    size_t left = bytes.size();
    auto [x, y] = seed;
    u64 z = left * k1;
    Pair v;
    Pair w;
    v.first = rotate(y ^ k1, 49) * k1 + fetch64(s);
    v.second = rotate(v.first, 42) * k1 + fetch64(s + 8);
    w.first = rotate(y + z, 35) * k1 + x;
    w.second = rotate(x + fetch64(s + 88), 53) * k1;
    for (; left >= 128; left -= 128) {
        for (int half = 0; half < 2; ++half) {
            x = rotate(x + y + v.first + fetch64(s + 16), 37) * k1;
            y = rotate(y + v.second + fetch64(s + 48), 42) * k1;
            x ^= w.second;
            y ^= v.first;
            z = rotate(z ^ w.first, 33);
            v = weak_hash_32(s, v.second * k1, x + w.first);
            w = weak_hash_32(s + 32, z + w.second, y);
            std::swap(z, x);
            s += 64;
        }
    }
    y += rotate(w.first, 37) * k0 + z;
    x += rotate(v.first + z, 49) * k0;
    for (size_t done = 0; done < left;) {
        done += 32;
        const u8* part = s + left - done;
        y = rotate(y - x, 42) * k0 + v.second;
        w.first += fetch64(part + 16);
        x = rotate(x, 49) * k0 + w.first;
        w.first += v.first;
        v = weak_hash_32(part, v.first, v.second);
    }
    x = hash_len_16(x, v.first);
    y = hash_len_16(y, w.first);
    return { hash_len_16(x + v.second, w.second) + y, hash_len_16(x + w.second, y + v.second) };
}

// At least 32 bytes.
static TableChecksum city_hash_128(TableBytes bytes)
{
    const TableChecksum seed = { fetch64(bytes.data()) ^ k3, fetch64(bytes.data() + 8) };
    const TableBytes rest = bytes.subspan(16);
    return rest.size() < 128 ? city_murmur(rest, seed) : hash_128_long(rest, seed);
}

// ---- Files

// The digests as they lie in a file: lowest byte first.
static std::vector<u8> bytes_of(const std::vector<ChunkDigest>& digests)
{
    std::vector<u8> bytes;
    bytes.reserve(digests.size() * sizeof(ChunkDigest));
    for (const ChunkDigest& digest : digests) {
        for (const u64 word : digest) {
            for (int shift = 0; shift < 64; shift += 8) {
                bytes.push_back(static_cast<u8>(word >> shift));
            }
        }
    }
    return bytes;
}

bool makes_checksum(const std::vector<ChunkDigest>& digests, const TableChecksum& checksum)
{
    if (digests.empty()) {
        return false;
    }
    const std::vector<u8> bytes = bytes_of(digests);
    if (city_hash_128(bytes) == checksum) {
        return true;
    }
    if (bytes.size() <= longest_short) {
        return false;
    }
    const ChunkDigest digest = digest_chunk(bytes);
    return TableChecksum { digest[2], digest[3] } == checksum;
}

TableChecksum checksum_of(TableBytes bytes, u64 chunk_length)
{
    std::vector<ChunkDigest> digests;
    while (!bytes.empty()) {
        const size_t length = std::min<size_t>(bytes.size(), chunk_length);
        digests.push_back(digest_chunk(bytes.first(length)));
        bytes = bytes.subspan(length);
    }
    return digests.empty() ? TableChecksum {} : city_hash_128(bytes_of(digests));
}

std::array<char, 33> checksum_text(const TableChecksum& checksum)
{
    std::array<char, 33> text = {};
    for (size_t i = 0; i < 16; ++i) {
        const unsigned byte = static_cast<u8>(checksum[i / 8] >> (8 * (i % 8)));
        snprintf(text.data() + 2 * i, 3, "%02x", byte);
    }
    return text;
}

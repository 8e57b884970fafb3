// The index of a position: a number in a mixed radix with one digit for each group of like
// pieces. The board is mirrored until the leading group stands in a corner of it.
//
// A digit is the number of its group's placement among all placements of as many pieces on the
// squares left. k like pieces on n squares have n over k placements; with the squares s1 < s2 < ...
// counted from 0, the placement's number is (s1 over 1) + (s2 over 2) + ..., which takes each value
// from 0 to (n over k) - 1 once. A factor, the weight of a digit, is the product of the numbers of
// placements of all groups below it; the product of all is the size of the table. The order nibbles
// say how many groups stand below the leading one.
//
// All of this is fixed by the files: another numbering, however good, would read other values.
#include "fathom/tbindex.h"

#include <algorithm>
#include <cassert>
#include <span>
#include <utility>

static constexpr i32 pawn_squares = 48;
static constexpr i32 lead_single = 31332; // placements of three single pieces
static constexpr i32 lead_kings = 462;    // placements of two kings

// What is XORed on a square to mirror the board left to right and bottom to top.
static constexpr i32 flip_files = 7;
static constexpr i32 flip_ranks = 56;

// Where the cases of three single pieces begin: the first off the diagonal, or the second, the
// third, none. A piece off the diagonal fixes the view: the first one is brought below it, where
// there are 6 squares of the triangle or 28 of the board. One on it has 4 squares as the first
// piece, then 7 and 6; the pieces behind the fixing one have the squares left, 63 and 62.
static constexpr i32 second_case = 6 * 63 * 62;
static constexpr i32 third_case = second_case + 4 * 28 * 62;
static constexpr i32 fourth_case = third_case + 4 * 7 * 28;
static_assert(fourth_case + 4 * 7 * 6 == lead_single);

// 0 on the diagonal a1-h8, negative below it, positive above.
static constexpr i32 off(i32 square)
{
    return rank_of(square) - file_of(square);
}

// Exchanges file and rank.
static constexpr i32 flip_diagonal(i32 square)
{
    return 8 * file_of(square) + rank_of(square);
}

// 0 for the files a and h to 3 for d and e.
static constexpr i32 edge_distance(i32 square)
{
    return std::min(file_of(square), 7 - file_of(square));
}

// ---- Constant tables

struct IndexTables {
    u32 binomial[5][64]; // [k - 1][n]: subsets of k out of n things
    u8 triangle[64];     // the squares a1-d1-d4, those off the diagonal first
    u8 lower[64];        // the 28 squares below the diagonal
    u16 kk_idx[10][64];  // [first king in the triangle][second king]
    u8 flap[64];
    u8 ptwist[64];                 // 0 to 47, greatest for the pawn nearest to leading
    u32 pawn_idx[5][24];           // [leading pawns - 1][flap of the first]
    u32 pfactor[5][tb_pawn_files]; // placements of the leading pawns
};

// Kings that stand next to each other, or of which the first is on the diagonal and the second
// above it: no sound position has them once it is mirrored.
static constexpr u16 no_pair = 0xffff;
static constexpr i32 triangle_squares[10] = { 1, 2, 3, 10, 11, 19, 0, 9, 18, 27 };

// Pascal's triangle; n over k is 0 where k is greater than n.
static constexpr void make_binomials(IndexTables* tables)
{
    for (u32 n = 0; n < 64; ++n) {
        tables->binomial[0][n] = n;
    }
    for (i32 k = 1; k < 5; ++k) {
        tables->binomial[k][0] = 0;
        for (i32 n = 1; n < 64; ++n) {
            tables->binomial[k][n] = tables->binomial[k][n - 1] + tables->binomial[k - 1][n - 1];
        }
    }
}

static constexpr bool kings_apart(i32 a, i32 b)
{
    return std::max(file_of(a) - file_of(b), file_of(b) - file_of(a)) > 1
        || std::max(rank_of(a) - rank_of(b), rank_of(b) - rank_of(a)) > 1;
}

// Pairs with both kings on the diagonal are numbered behind all others. Without the pairs of kings
// next to each other, which no position has, 462 are left.
static constexpr void make_king_pairs(IndexTables* tables)
{
    u16 number = 0;
    for (i32 both_on_diagonal = 0; both_on_diagonal < 2; ++both_on_diagonal) {
        for (i32 t = 0; t < 10; ++t) {
            for (i32 s = 0; s < 64; ++s) {
                const i32 first = triangle_squares[t];
                const bool on_diagonal = off(first) == 0 && off(s) == 0;
                if (kings_apart(first, s) && on_diagonal == (both_on_diagonal != 0)
                    && !(off(first) == 0 && off(s) > 0)) {
                    tables->kk_idx[t][s] = number++;
                }
            }
        }
    }
}

// The pawns' squares are numbered twice: flap by the files a to d alone, rising from the edge and
// from the second rank, and ptwist by all files, falling in the same order, each square of the left
// half directly before its mirror. So the pawn with the lowest flap leads, and all others of its
// group have a lower ptwist than it; the one that is its mirror has, too.
static constexpr void make_square_tables(IndexTables* tables)
{
    for (i32 t = 0; t < 10; ++t) {
        tables->triangle[triangle_squares[t]] = static_cast<u8>(t);
        for (i32 s = 0; s < 64; ++s) {
            tables->kk_idx[t][s] = no_pair;
        }
    }
    for (i32 s = 0; s < 64; ++s) {
        const i32 rank = rank_of(s);
        if (off(s) < 0) {
            tables->lower[s] = static_cast<u8>(rank * (15 - rank) / 2 + file_of(s) - rank - 1);
        }
        if (rank >= 1 && rank <= 6) {
            tables->flap[s] = static_cast<u8>(6 * edge_distance(s) + rank - 1);
            tables->ptwist[s] =
                static_cast<u8>(47 - 12 * edge_distance(s) - 2 * (rank - 1) - (file_of(s) > 3));
        }
    }
}

// Placements of the other leading pawns, all with a smaller ptwist, summed up along each file: with
// the leading pawn on a square, t others have (its ptwist over t) placements. pawn_idx is where the
// numbers of a square begin, counted anew on each file, as every file has a section of its own.
static constexpr void make_pawn_tables(IndexTables* tables)
{
    for (i32 t = 0; t < 5; ++t) {
        for (i32 file = 0; file < tb_pawn_files; ++file) {
            u32 sum = 0;
            for (i32 rank = 1; rank < 7; ++rank) {
                const i32 square = 8 * rank + file;
                tables->pawn_idx[t][tables->flap[square]] = sum;
                sum += t == 0 ? 1 : tables->binomial[t - 1][tables->ptwist[square]];
            }
            tables->pfactor[t][file] = sum;
        }
    }
}

static constexpr IndexTables make_tables()
{
    IndexTables tables = {};
    make_binomials(&tables);
    make_square_tables(&tables);
    make_king_pairs(&tables);
    make_pawn_tables(&tables);
    return tables;
}

static constexpr IndexTables tables = make_tables();

// ---- Layout of the groups

// Takes the run of like pieces at start, which must be all there are of them, and marks them as
// taken. Returns its length, or 0: also for a code that stands for no piece, of which the material
// has none. That keeps a damaged piece list from naming a piece twice or one that is not there.
static i32 take_run(const TbEntry* entry, const TbSection* section, i32 start, u8* taken)
{
    const u8 code = section->pieces[start];
    i32 end = start + 1;
    while (end < entry->num && section->pieces[end] == code) {
        ++end;
    }
    if (taken[code] || end - start != entry->count[code]) {
        return 0;
    }
    taken[code] = 1;
    return end - start;
}

// The number of pieces in the leading group (without pawns), or of all pawns.
static i32 leading_pieces(const TbEntry* entry)
{
    if (entry->has_pawns) {
        return entry->pawns[0] + entry->pawns[1];
    }
    return entry->enc_type == LeadThreeSingle ? 3 : 2;
}

// Whether the first runs are what the encoding wants in front: pawns of the leading side and
// then of the other, three single pieces, or the two kings.
static bool leads_soundly(const TbEntry* entry, const TbSection* section)
{
    const u8* pieces = section->pieces;
    if (entry->has_pawns) {
        const i32 other = entry->pawns[0];
        const i32 other_pawn = piece_code(side_of(pieces[0]) ^ 1, Pawn);
        return type_of(pieces[0]) == Pawn && entry->count[pieces[0]] == entry->pawns[0]
            && (entry->pawns[1] == 0 || pieces[other] == other_pawn);
    }
    if (entry->enc_type == LeadKings) {
        return type_of(pieces[0]) == King && type_of(pieces[1]) == King;
    }
    return entry->count[pieces[0]] == 1 && entry->count[pieces[1]] == 1
        && entry->count[pieces[2]] == 1;
}

// Fills norm. Returns false if the pieces are not those of the material in a sound order.
static bool set_norms(const TbEntry* entry, TbSection* section)
{
    u8 taken[16] = {};
    std::fill_n(section->norm, tb_max_pieces, static_cast<u8>(0));
    for (i32 i = 0; i < entry->num;) {
        const i32 length = take_run(entry, section, i, taken);
        if (length == 0) {
            return false;
        }
        section->norm[i] = static_cast<u8>(length);
        i += length;
    }
    if (!leads_soundly(entry, section)) {
        return false;
    }
    // Single pieces that lead are one group, though each is a run of its own.
    if (!entry->has_pawns) {
        section->norm[0] = static_cast<u8>(leading_pieces(entry));
    }
    return true;
}

static u64 leading_placements(const TbEntry* entry, i32 file)
{
    if (entry->has_pawns) {
        return tables.pfactor[entry->pawns[0] - 1][file];
    }
    return entry->enc_type == LeadThreeSingle ? lead_single : lead_kings;
}

// Fills factor by the places that the orders give the leading groups among the digits: the digit at
// place 0 has weight 1. Returns the number of positions, or 0 if a place is left empty or two
// groups want the same one. An order nibble goes up to 15, so a damaged one runs out of groups;
// without this test the leading group would be left with whatever factor the record had.
static u64 calc_factors(const TbEntry* entry, TbSection* section, i32 file, i32 order, i32 order2)
{
    const u8* norm = section->norm;
    u64* factor = section->factor;
    const bool second = entry->has_pawns && entry->pawns[1] != 0;
    i32 i = leading_pieces(entry);
    i32 left = 64 - i;
    u64 size = 1;
    for (i32 k = 0; i < entry->num || k <= order || (second && k <= order2); ++k) {
        if (k == order) {
            factor[0] = size;
            size *= leading_placements(entry, file);
        } else if (second && k == order2) {
            factor[norm[0]] = size;
            size *= tables.binomial[norm[norm[0]] - 1][pawn_squares - norm[0]];
        } else if (i < entry->num) {
            factor[i] = size;
            size *= tables.binomial[norm[i] - 1][left];
            left -= norm[i];
            i += norm[i];
        } else {
            return 0;
        }
    }
    return second && order == order2 ? 0 : size;
}

u64 tb_set_groups(const TbEntry* entry, TbSection* section, i32 file, i32 order, i32 order2)
{
    if (!set_norms(entry, section)) {
        return 0;
    }
    return calc_factors(entry, section, file, order, order2);
}

// ---- Indices

// The squares of a position's pieces, in table order.
using Squares = std::span<i32>;

static inline Squares squares_of(i32* squares, i32 num)
{
    return { squares, static_cast<size_t>(num) };
}

static inline void mirror_all(Squares squares, i32 mask)
{
    for (i32& square : squares) {
        square ^= mask;
    }
}

// The set bits of a position come in rising order, so most groups are in order but for a mirroring.
static inline void sort_rising(Squares squares)
{
    for (size_t i = 1; i < squares.size(); ++i) {
        const i32 square = squares[i];
        size_t place = i;
        for (; place > 0 && squares[place - 1] > square; --place) {
            squares[place] = squares[place - 1];
        }
        squares[place] = square;
    }
}

// The digit of the t like pieces from place i on, which it sorts: their squares counted among
// those that the pieces before them leave free. The first skipped squares do not count at all.
static inline u64 group_digit(i32* squares, i32 i, i32 t, i32 skipped)
{
    sort_rising(squares_of(squares + i, t));
    u64 digit = 0;
    for (i32 m = i; m < i + t; ++m) {
        // j squares below this one are taken or not counted.
        const i32 p = squares[m];
        i32 j = skipped;
        for (i32 before = 0; before < i; ++before) {
            j += squares[before] < p;
        }
        assert(m - i >= 0 && m - i < 5);
        assert(p - j >= 0 && p - j < 64);
        digit += tables.binomial[m - i][p - j];
    }
    return digit;
}

// The digits of all groups from place i on, each with its weight.
static inline u64 further_groups(i32 i, i32 num, const u8* norm, const u64* factor, i32* squares)
{
    u64 index = 0;
    for (; i < num; i += norm[i]) {
        index += group_digit(squares, i, norm[i], 0) * factor[i];
    }
    return index;
}

// Brings the first piece into the triangle a1-d1-d4, and the first one of the leading group that
// is off the diagonal below it. A leading group all on the diagonal leaves two views of the others,
// and such positions have two indices.
static void mirror_into_triangle(Squares squares, size_t lead)
{
    const i32 mask =
        (file_of(squares[0]) > 3 ? flip_files : 0) | (rank_of(squares[0]) > 3 ? flip_ranks : 0);
    mirror_all(squares, mask);
    for (const i32 leading : squares.first(lead)) {
        if (off(leading) == 0) {
            continue;
        }
        if (off(leading) > 0) {
            std::transform(squares.begin(), squares.end(), squares.begin(), flip_diagonal);
        }
        return;
    }
}

// The number of a placement of three single pieces, mirrored: in each case again a number in a
// mixed radix. A piece's digit counts the squares open to it, so those before it are subtracted
// where they stand on lower ones; i and j are how many do.
static i32 single_digit(const i32* squares)
{
    const i32 p0 = squares[0];
    const i32 p1 = squares[1];
    const i32 p2 = squares[2];
    const i32 i = p1 > p0;
    const i32 j = (p2 > p0) + (p2 > p1);
    if (off(p0) != 0) {
        return tables.triangle[p0] * 63 * 62 + (p1 - i) * 62 + p2 - j;
    }
    const i32 diag0 = file_of(p0);
    if (off(p1) != 0) {
        return second_case + diag0 * 28 * 62 + tables.lower[p1] * 62 + p2 - j;
    }
    const i32 diag1 = file_of(p1) - i;
    if (off(p2) != 0) {
        return third_case + diag0 * 7 * 28 + diag1 * 28 + tables.lower[p2];
    }
    return fourth_case + diag0 * 7 * 6 + diag1 * 6 + file_of(p2) - j;
}

u64 encode_piece(i32 num, i32 enc_type, const u8* norm, const u64* factor, i32* squares)
{
    mirror_into_triangle(squares_of(squares, num), norm[0]);
    const i32 digit = enc_type == LeadThreeSingle
        ? single_digit(squares)
        : tables.kk_idx[tables.triangle[squares[0]]][squares[1]];
    return static_cast<u64>(digit) * factor[0]
        + further_groups(norm[0], num, norm, factor, squares);
}

i32 tb_choose_leading_pawn(i32 count, i32* squares)
{
    i32 leading = 0;
    for (i32 i = 1; i < count; ++i) {
        if (tables.flap[squares[i]] < tables.flap[squares[leading]]) {
            leading = i;
        }
    }
    std::swap(squares[0], squares[leading]);
    return edge_distance(squares[0]);
}

// By insertion: there are three pawns at most behind the leading one.
static void sort_by_falling_ptwist(Squares squares)
{
    for (size_t i = 1; i < squares.size(); ++i) {
        for (size_t k = i; k > 0; --k) {
            if (tables.ptwist[squares[k - 1]] < tables.ptwist[squares[k]]) {
                std::swap(squares[k - 1], squares[k]);
            }
        }
    }
}

// The number of a placement of the leading pawns, the first of them in front: the others' like any
// group's, but counted by ptwist instead of by square.
static u64 leading_pawns_digit(i32 count, i32* squares)
{
    sort_by_falling_ptwist(squares_of(squares + 1, count - 1));
    const i32 t = count - 1;
    u64 digit = tables.pawn_idx[t][tables.flap[squares[0]]];
    for (i32 i = 1; i <= t; ++i) {
        digit += tables.binomial[t - i][tables.ptwist[squares[i]]];
    }
    return digit;
}

u64 encode_pawn(i32 num, const u8* pawns, const u8* norm, const u64* factor, i32* squares)
{
    // Pawns go one way, so there is no other mirroring than left to right.
    if (file_of(squares[0]) > 3) {
        mirror_all(squares_of(squares, num), flip_files);
    }
    u64 index = leading_pawns_digit(pawns[0], squares) * factor[0];
    i32 i = pawns[0];
    if (pawns[1] != 0) {
        // No pawn stands on the eight squares of the first rank, which are the lowest.
        index += group_digit(squares, i, pawns[1], 8) * factor[i];
        i += pawns[1];
    }
    return index + further_groups(i, num, norm, factor, squares);
}

// The board's tables against what they stand for, worked out here square by square.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "test_support.h"

struct BoardTables : testing::Test {
    void SetUp() override
    {
        test_thread();
    }
};

// The squares that a file and rank distance of (file, rank) away from square, repeated up to
// reach times, goes over; it stops on the first occupied one.
static u64 walk(i32 square, i32 file, i32 rank, i32 reach, u64 occupied = 0)
{
    u64 set = 0;
    i32 f = square % 8;
    i32 r = square / 8;
    for (i32 i = 0; i < reach; ++i) {
        f += file;
        r += rank;
        if (f < 0 || f > 7 || r < 0 || r > 7) {
            break;
        }
        set |= bit(r * 8 + f);
        if (occupied & bit(r * 8 + f)) {
            break;
        }
    }
    return set;
}

static u64 walk_diagonals(i32 square, u64 occupied)
{
    return walk(square, -1, 1, 7, occupied) | walk(square, 1, 1, 7, occupied)
        | walk(square, -1, -1, 7, occupied) | walk(square, 1, -1, 7, occupied);
}

static u64 walk_straights(i32 square, u64 occupied)
{
    return walk(square, 0, 1, 7, occupied) | walk(square, 1, 0, 7, occupied)
        | walk(square, 0, -1, 7, occupied) | walk(square, -1, 0, 7, occupied);
}

static u64 random_set(u64* state)
{
    u64 set = 0;
    for (i32 i = 0; i < 4; ++i) {
        set = (set << 16) | next_random(state, 65536);
    }
    return set;
}

TEST_F(BoardTables, PawnsAttackDiagonallyForwardWithoutWrapping)
{
    for (i32 square = 0; square < 64; ++square) {
        EXPECT_EQ(pawn_attacks[White][square], walk(square, -1, 1, 1) | walk(square, 1, 1, 1));
        EXPECT_EQ(pawn_attacks[Black][square], walk(square, -1, -1, 1) | walk(square, 1, -1, 1));
    }
    EXPECT_EQ(pawn_attacks[White][square_of("a4")], squares_of("b5"));
    EXPECT_EQ(pawn_attacks[White][square_of("h4")], squares_of("g5"));
    EXPECT_EQ(pawn_attacks[White][square_of("d8")], 0U);
    EXPECT_EQ(pawn_attacks[Black][square_of("d1")], 0U);
}

TEST_F(BoardTables, KnightsAndKingsStepWithinTheBoard)
{
    for (i32 square = 0; square < 64; ++square) {
        u64 knight = 0;
        u64 king = 0;
        for (i32 to = 0; to < 64; ++to) {
            const i32 files = std::abs(to % 8 - square % 8);
            const i32 ranks = std::abs(to / 8 - square / 8);
            if (files * ranks == 2) {
                knight |= bit(to);
            }
            if (std::max(files, ranks) == 1) {
                king |= bit(to);
            }
        }
        EXPECT_EQ(knight_attacks[square], knight) << square;
        EXPECT_EQ(king_attacks[square], king) << square;
    }
}

TEST_F(BoardTables, RaysRunToTheEdgeWithoutTheOrigin)
{
    for (i32 square = 0; square < 64; ++square) {
        EXPECT_EQ(ray_n[square], walk(square, 0, 1, 7));
        EXPECT_EQ(ray_e[square], walk(square, 1, 0, 7));
        EXPECT_EQ(ray_nw[square], walk(square, -1, 1, 7));
        EXPECT_EQ(ray_ne[square], walk(square, 1, 1, 7));
        EXPECT_EQ(ray_s[square], walk(square, 0, -1, 7));
        EXPECT_EQ(ray_w[square], walk(square, -1, 0, 7));
        EXPECT_EQ(ray_sw[square], walk(square, -1, -1, 7));
        EXPECT_EQ(ray_se[square], walk(square, 1, -1, 7));
        EXPECT_EQ(bishop_rays[square], walk_diagonals(square, 0));
        EXPECT_EQ(rook_rays[square], walk_straights(square, 0));
    }
}

TEST_F(BoardTables, BetweenHoldsTheInnerSquaresOfALine)
{
    for (i32 a = 0; a < 64; ++a) {
        for (i32 b = 0; b < 64; ++b) {
            const i32 files = b % 8 - a % 8;
            const i32 ranks = b / 8 - a / 8;
            u64 inner = 0;
            if (files == 0 || ranks == 0 || std::abs(files) == std::abs(ranks)) {
                const i32 reach = std::max(std::abs(files), std::abs(ranks)) - 1;
                inner = walk(a, (files > 0) - (files < 0), (ranks > 0) - (ranks < 0), reach);
            }
            EXPECT_EQ(between[a][b], inner) << a << " " << b;
        }
    }
    EXPECT_EQ(between[square_of("a1")][square_of("h8")], squares_of("b2 c3 d4 e5 f6 g7"));
    EXPECT_EQ(between[square_of("a1")][square_of("b3")], 0U);
    EXPECT_EQ(between[square_of("e4")][square_of("e5")], 0U);
    EXPECT_EQ(between[square_of("e4")][square_of("e4")], 0U);
    EXPECT_EQ(between[square_of("h2")][square_of("h5")], squares_of("h3 h4"));
}

TEST_F(BoardTables, PassedMaskIsWhatLiesAheadOnThreeFiles)
{
    for (i32 square = 0; square < 64; ++square) {
        u64 ahead[2] = { 0, 0 };
        for (i32 s = 0; s < 64; ++s) {
            if (std::abs(s % 8 - square % 8) > 1) {
                continue;
            }
            if (s / 8 > square / 8) {
                ahead[White] |= bit(s);
            }
            if (s / 8 < square / 8) {
                ahead[Black] |= bit(s);
            }
        }
        EXPECT_EQ(passed_mask[White][square], ahead[White]) << square;
        EXPECT_EQ(passed_mask[Black][square], ahead[Black]) << square;
    }
    EXPECT_EQ(passed_mask[White][square_of("a6")], squares_of("a7 b7 a8 b8"));
    EXPECT_EQ(passed_mask[Black][square_of("h2")], squares_of("g1 h1"));
}

TEST_F(BoardTables, FileAndRankMasks)
{
    for (i32 i = 0; i < 8; ++i) {
        u64 files = 0;
        u64 above = 0;
        u64 below = 0;
        for (i32 s = 0; s < 64; ++s) {
            if (std::abs(s % 8 - i) == 1) {
                files |= bit(s);
            }
            if (s / 8 > i) {
                above |= bit(s);
            }
            if (s / 8 < i) {
                below |= bit(s);
            }
        }
        EXPECT_EQ(adjacent_files[i], files) << i;
        EXPECT_EQ(ranks_above[i], above) << i;
        EXPECT_EQ(ranks_below[i], below) << i;
    }
    EXPECT_EQ(ranks_above[7], 0U);
    EXPECT_EQ(ranks_below[0], 0U);
}

TEST_F(BoardTables, BitHelpersCountAndScan)
{
    u64 state = 1;
    for (i32 round = 0; round < 1000; ++round) {
        const u64 set = random_set(&state) & random_set(&state);
        i32 count = 0;
        i32 first = 64;
        i32 last = -1;
        for (i32 s = 0; s < 64; ++s) {
            if ((set >> s) & 1) {
                ++count;
                first = std::min(first, s);
                last = s;
            }
        }
        ASSERT_EQ(popcount(set), count);
        if (set == 0) {
            continue;
        }
        ASSERT_EQ(lowest(set), first);
        ASSERT_EQ(highest(set), last);
        u64 rest = set;
        ASSERT_EQ(pop_lowest(&rest), first);
        ASSERT_EQ(rest, set ^ bit(first));
    }
    EXPECT_EQ(popcount(0), 0);
    EXPECT_EQ(popcount(~0ULL), 64);
}

TEST_F(BoardTables, SlidersReachTheFirstBlocker)
{
    u64 state = 2;
    for (i32 round = 0; round < 3000; ++round) {
        u64 occupied = random_set(&state);
        for (i32 thinner = round % 4; thinner > 0; --thinner) {
            occupied &= random_set(&state);
        }
        const i32 square = round % 64;
        ASSERT_EQ(bishop_attacks(square, occupied), walk_diagonals(square, occupied));
        ASSERT_EQ(rook_attacks(square, occupied), walk_straights(square, occupied));
        ASSERT_EQ(bishop_attacks_by_rays(square, occupied), walk_diagonals(square, occupied));
        ASSERT_EQ(rook_attacks_by_rays(square, occupied), walk_straights(square, occupied));
    }
}

// Every entry of the tables, where the processor looks sliders up.
TEST_F(BoardTables, EverySetOfBlockersGivesWhatTheRaysGive)
{
    if (!sliders_by_table) {
        GTEST_SKIP() << "this processor does not look sliders up";
    }
    for (i32 square = 0; square < 64; ++square) {
        u64 set = 0;
        do {
            ASSERT_EQ(bishop_attacks(square, set), bishop_attacks_by_rays(square, set));
            set = (set - bishop_rays[square]) & bishop_rays[square];
        } while (set != 0);
        do {
            ASSERT_EQ(rook_attacks(square, set), rook_attacks_by_rays(square, set));
            set = (set - rook_rays[square]) & rook_rays[square];
        } while (set != 0);
    }
}

TEST_F(BoardTables, SlidersOnAnEmptyBoardReachTheirRays)
{
    for (i32 square = 0; square < 64; ++square) {
        EXPECT_EQ(bishop_attacks(square, 0), bishop_rays[square]);
        EXPECT_EQ(rook_attacks(square, 0), rook_rays[square]);
        // The piece itself is no blocker.
        EXPECT_EQ(bishop_attacks(square, bit(square)), bishop_rays[square]);
        EXPECT_EQ(rook_attacks(square, bit(square)), rook_rays[square]);
    }
}

TEST_F(BoardTables, AnAdjacentBlockerLeavesOneSquareOfItsDirection)
{
    const i32 d4 = square_of("d4");
    EXPECT_EQ(bishop_attacks(d4, squares_of("e5")) & ray_ne[d4], squares_of("e5"));
    EXPECT_EQ(bishop_attacks(d4, squares_of("c5")) & ray_nw[d4], squares_of("c5"));
    EXPECT_EQ(bishop_attacks(d4, squares_of("c3")) & ray_sw[d4], squares_of("c3"));
    EXPECT_EQ(bishop_attacks(d4, squares_of("e3")) & ray_se[d4], squares_of("e3"));
    EXPECT_EQ(bishop_attacks(d4, squares_of("e5")) & ~ray_ne[d4], bishop_rays[d4] & ~ray_ne[d4]);
}

TEST_F(BoardTables, BlockersInTheCornersAreSeen)
{
    for (i32 square = 0; square < 64; ++square) {
        for (const i32 corner : { 0, 7, 56, 63 }) {
            EXPECT_EQ(bishop_attacks(square, bit(corner)), walk_diagonals(square, bit(corner)));
            EXPECT_EQ(rook_attacks(square, bit(corner)), walk_straights(square, bit(corner)));
        }
    }
    EXPECT_TRUE(bishop_attacks(square_of("a1"), bit(63)) & bit(63));
    EXPECT_TRUE(bishop_attacks(square_of("h8"), bit(0)) & bit(0));
}

TEST_F(BoardTables, FirstKeysOfTheFixedSequence)
{
    EXPECT_EQ(zobrist[0][0], 0xe708e34f294dde49ULL);
    EXPECT_EQ(zobrist[0][1], 0x6338ab3e8b29b46dULL);
    EXPECT_EQ(zobrist[1][1], 0x7e450fc47ef8add3ULL);
}

// The generator once more: both words step, their mix is 32 bits, two steps make a key.
TEST_F(BoardTables, KeysFollowTheCarryGeneratorWithTwentyTwoDropped)
{
    u64 z = 1;
    u64 w = 1;
    const auto step = [&]() {
        z = (36969 * (z % 65536) + z / 65536) % (1ULL << 32);
        w = (18000 * (w % 65536) + w / 65536) % (1ULL << 32);
        return (z * 65536 + w) % (1ULL << 32);
    };
    i32 dropped = 0;
    for (i32 i = 0; i < 1024;) {
        const u64 high = step();
        const u64 key = high * (1ULL << 32) + step();
        if (__builtin_popcountll(key) < 24) {
            ++dropped;
            continue;
        }
        ASSERT_EQ(zobrist[i / 64][i % 64], key) << i;
        ++i;
    }
    EXPECT_EQ(dropped, 22);
}

TEST_F(BoardTables, KeysAreDenseAndFarApart)
{
    const u64* keys = &zobrist[0][0];
    for (i32 i = 0; i < 1024; ++i) {
        EXPECT_GE(__builtin_popcountll(keys[i]), 24) << i;
        for (i32 k = 0; k < i; ++k) {
            ASSERT_GE(__builtin_popcountll(keys[i] ^ keys[k]), 6) << i << " " << k;
        }
    }
}

// The entry for a white pawn, its king and the lone king by their squares' names.
static i32 kpk_value(i32 black_moves, const char* pawn, const char* king, const char* lone)
{
    const i32 square = square_of(pawn);
    return kpk_table[black_moves][square % 8 + 4 * (square / 8)][square_of(king)][square_of(lone)];
}

TEST_F(BoardTables, KpkKnownEndings)
{
    EXPECT_EQ(kpk_value(0, "d5", "d6", "d8"), 2);
    EXPECT_EQ(kpk_value(1, "d5", "d6", "d8"), 2);
    EXPECT_EQ(kpk_value(0, "a5", "a6", "a8"), 1);
    EXPECT_EQ(kpk_value(1, "a5", "a6", "a8"), 1);
    // White to move steps aside and queens; black to move is stalemated.
    EXPECT_EQ(kpk_value(0, "d7", "d6", "d8"), 2);
    EXPECT_EQ(kpk_value(1, "d7", "d6", "d8"), 1);
    // In front of the pawn on the fourth rank whoever has the opposition decides.
    EXPECT_EQ(kpk_value(0, "d3", "d4", "d6"), 1);
    EXPECT_EQ(kpk_value(1, "d3", "d4", "d6"), 2);
    // A double step decides the race against the lone king.
    EXPECT_EQ(kpk_value(0, "a2", "h1", "g4"), 2);
    EXPECT_EQ(kpk_value(1, "a2", "h1", "g4"), 1);
}

TEST_F(BoardTables, KpkNumberOfWins)
{
    i32 wins[2] = { 0, 0 };
    for (i32 black_moves = 0; black_moves < 2; ++black_moves) {
        for (i32 pawn = 4; pawn < 28; ++pawn) {
            for (i32 kings = 0; kings < 4096; ++kings) {
                const i32 value = kpk_table[black_moves][pawn][kings / 64][kings % 64];
                ASSERT_TRUE(value == 1 || value == 2);
                wins[black_moves] += value == 2;
            }
        }
    }
    EXPECT_EQ(wins[0], 62480);
    EXPECT_EQ(wins[1], 48802);
}

static bool are_neighbours(i32 a, i32 b)
{
    return std::max(std::abs(a % 8 - b % 8), std::abs(a / 8 - b / 8)) <= 1;
}

static bool pawn_hits(i32 pawn, i32 square)
{
    return square / 8 == pawn / 8 + 1 && std::abs(square % 8 - pawn % 8) == 1;
}

// Whether a placement can occur with white (0) or black (1) to move.
static bool kpk_can_occur(i32 black_moves, i32 pawn, i32 king, i32 lone)
{
    if (pawn == king || pawn == lone || are_neighbours(king, lone)) {
        return false;
    }
    return black_moves || !pawn_hits(pawn, lone);
}

// The table that the plain rules below look positions up in: the program's, or one being solved.
static const u8 (*kpk_values)[32][64][64] = kpk_table;

static bool kpk_won(i32 black_moves, i32 pawn, i32 king, i32 lone)
{
    // A new queen wins if it is not taken at once.
    if (pawn >= 56) {
        return !are_neighbours(lone, pawn) || are_neighbours(king, pawn);
    }
    return kpk_values[black_moves][pawn % 8 + 4 * (pawn / 8)][king][lone] == 2;
}

static bool white_can_win(i32 pawn, i32 king, i32 lone)
{
    const i32 ahead = pawn + 8;
    const bool open = ahead != king && ahead != lone;
    if (open && kpk_won(1, ahead, king, lone)) {
        return true;
    }
    if (open && pawn < 16 && ahead + 8 != king && ahead + 8 != lone
        && kpk_won(1, ahead + 8, king, lone)) {
        return true;
    }
    for (i32 to = 0; to < 64; ++to) {
        if (to != king && are_neighbours(to, king) && kpk_can_occur(1, pawn, to, lone)
            && kpk_won(1, pawn, to, lone)) {
            return true;
        }
    }
    return false;
}

static bool black_is_lost(i32 pawn, i32 king, i32 lone)
{
    bool has_move = false;
    for (i32 to = 0; to < 64; ++to) {
        if (to == lone || !are_neighbours(to, lone) || are_neighbours(to, king)
            || pawn_hits(pawn, to)) {
            continue;
        }
        has_move = true;
        if (to == pawn || !kpk_won(0, pawn, king, to)) {
            return false;
        }
    }
    return has_move;
}

TEST_F(BoardTables, KpkValuesFollowFromTheValuesOneMoveOn)
{
    for (i32 pawn = 8; pawn < 56; ++pawn) {
        if (pawn % 8 > 3) {
            continue;
        }
        for (i32 kings = 0; kings < 4096; ++kings) {
            const i32 king = kings / 64;
            const i32 lone = kings % 64;
            if (kpk_can_occur(0, pawn, king, lone)) {
                ASSERT_EQ(kpk_won(0, pawn, king, lone), white_can_win(pawn, king, lone))
                    << pawn << " " << king << " " << lone;
            }
            if (kpk_can_occur(1, pawn, king, lone)) {
                ASSERT_EQ(kpk_won(1, pawn, king, lone), black_is_lost(pawn, king, lone))
                    << pawn << " " << king << " " << lone;
            }
        }
    }
}

// Marks what the rules find to be won, given the wins marked so far; whether there was any more.
static bool mark_wins(i32 pawn, u8 solved[2][32][64][64])
{
    const i32 index = pawn % 8 + 4 * (pawn / 8);
    bool changed = false;
    for (i32 kings = 0; kings < 4096; ++kings) {
        const i32 king = kings / 64;
        const i32 lone = kings % 64;
        u8* white_moves = &solved[0][index][king][lone];
        u8* black_moves = &solved[1][index][king][lone];
        if (*white_moves != 2 && kpk_can_occur(0, pawn, king, lone)
            && white_can_win(pawn, king, lone)) {
            *white_moves = 2;
            changed = true;
        }
        if (*black_moves != 2 && kpk_can_occur(1, pawn, king, lone)
            && black_is_lost(pawn, king, lone)) {
            *black_moves = 2;
            changed = true;
        }
    }
    return changed;
}

TEST_F(BoardTables, KpkIsWhatGoingThroughAllPositionsFinds)
{
    static u8 solved[2][32][64][64];
    memset(solved, 1, sizeof solved);
    kpk_values = solved;
    for (i32 pawn = 55; pawn >= 8; --pawn) {
        while (pawn % 8 <= 3 && mark_wins(pawn, solved)) { }
    }
    kpk_values = kpk_table;
    for (i32 black_moves = 0; black_moves < 2; ++black_moves) {
        for (i32 index = 4; index < 28; ++index) {
            EXPECT_EQ(memcmp(solved[black_moves][index], kpk_table[black_moves][index], 64 * 64), 0)
                << black_moves << " " << index;
        }
    }
}

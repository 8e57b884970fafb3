// The transposition table: addressing, what a store replaces, what a probe refuses, clearing.
#include <algorithm>
#include <set>
#include <string>
#include <sys/mman.h>
#include <vector>

#include "search_support.h"
#include "search/hash.h"
#include "shell/startup.h"

struct Hash : SearchTest {
    // A table of another size for one test.
    static std::string resize(i32 megabytes)
    {
        return capture_output([=] { EXPECT_TRUE(make_hash_table(megabytes)); });
    }

    // Fills the bucket of pos with entries of other positions, of the ages and depths given.
    static HashSlot* fill_bucket(const Position* pos, const i32 (&ages)[4], const i32 (&depths)[4])
    {
        HashSlot* bucket = hash_bucket(pos->key);
        for (i32 i = 0; i < 4; ++i) {
            HashEntry entry = make_entry(pos, NoMove, 0, depths[i], BoundExact);
            entry.key32 += static_cast<u32>(i) + 1;
            entry.age = static_cast<u8>(ages[i]);
            write_slot(&bucket[i], &entry);
        }
        return bucket;
    }

    // The slot of the bucket that holds pos, or -1.
    static i32 slot_of(const Position* pos)
    {
        const HashSlot* bucket = hash_bucket(pos->key);
        for (i32 i = 0; i < 4; ++i) {
            if (read_slot(&bucket[i]).key32 == static_cast<u32>(pos->key)) {
                return i;
            }
        }
        return -1;
    }

    static void store_plain(Position* pos, i32 depth)
    {
        store_hash(pos, 1, depth, NoMove, 10, -100, 100);
    }

    // Whether the table's move is refused at the position.
    static bool is_refused(const char* fen, Move move)
    {
        Position* pos = set_position(fen);
        put_entry(pos, move, 0, 5, BoundExact);
        return probe(pos).depth == HashMoveFailed;
    }
};

TEST_F(Hash, SixtyFourMegabytesAreAddressedWholeFromBothEnds)
{
    resize(64);
    EXPECT_EQ(hash.slots, 4194304u);
    EXPECT_EQ(hash.mask, 4194303u);
    EXPECT_EQ(hash.low, hash.table);
    EXPECT_EQ(hash.high, hash.table + 4194304);
    EXPECT_EQ(hash_bucket(0), hash.table);
    EXPECT_EQ(hash_bucket(4194302), hash.table + 4194302);
    EXPECT_EQ(hash_bucket(1), hash.table + 4194303);
    EXPECT_EQ(hash_bucket(4194303), hash.table + 1);
}

TEST_F(Hash, NinetySixMegabytesOverlapInTheMiddleThird)
{
    resize(96);
    EXPECT_EQ(hash.slots, 6291456u);
    EXPECT_EQ(hash.mask, 4194303u);
    EXPECT_EQ(hash_bucket(4194302) - hash.table, 4194302);
    EXPECT_EQ(hash_bucket(1) - hash.table, 6291455);
    EXPECT_EQ(hash_bucket(4194303) - hash.table, 6291456 - 4194303);
}

TEST_F(Hash, OneMegabyteHoldsSlotsOfSixteenBytesAndAReserve)
{
    EXPECT_EQ(hash.slots, 65536u);
    EXPECT_EQ(hash.mask, 65535u);
    // The last bucket of either side lies inside the block.
    EXPECT_EQ(hash_bucket(65534) + 3, hash.table + 65537);
    EXPECT_EQ(hash_bucket(~0ULL) - hash.table, 1);
}

TEST_F(Hash, TableWithoutSlotsKeepsProbesInsideItsReserve)
{
    resize(0);
    EXPECT_EQ(hash.slots, 0u);
    u64 state = 7;
    for (i32 i = 0; i < 1000; ++i) {
        const u64 key = static_cast<u64>(next_random(&state, 0x7fffffff)) << 33 ^ state;
        const HashSlot* bucket = hash_bucket(key);
        ASSERT_GE(bucket, hash.table);
        ASSERT_LE(bucket + 4, hash.table + 16);
    }
}

TEST_F(Hash, AllocationReportsItsSizeFollowedByAnEmptyLine)
{
    EXPECT_EQ(resize(2), "info string allocated 2 Mbytes for hash table\n\n");
}

TEST_F(Hash, SecondAllocationReplacesTheFirst)
{
    Position* pos = set_position(start_position);
    store_plain(pos, 5);
    resize(2);
    EXPECT_EQ(hash.slots, 131072u);
    EXPECT_EQ(probe(pos).depth, HashNotFound);
}

TEST_F(Hash, StoredEntryIsFoundWithAllItsFields)
{
    Position* pos = set_position(start_position);
    pos->cnt50 = 7;
    hash.age = 11;
    store_hash(pos, 3, 9, move_of("e2e4"), -55, -100, 100);
    const HashEntry entry = probe(pos);
    EXPECT_EQ(entry.move, move_of("e2e4"));
    EXPECT_EQ(entry.score, -55);
    EXPECT_EQ(entry.depth, 9);
    EXPECT_EQ(entry.bound, BoundExact);
    EXPECT_EQ(entry.age, 11);
    EXPECT_EQ(entry.cnt50, 7);
    EXPECT_EQ(entry.key32, static_cast<u32>(pos->key));
}

TEST_F(Hash, BoundTellsWhereTheScoreLiesInItsWindow)
{
    Position* pos = set_position(start_position);
    const struct {
        i32 score;
        HashBound bound;
    } rows[] = { { -21, BoundUpper }, { -20, BoundUpper }, { -19, BoundExact }, { 29, BoundExact },
        { 30, BoundLower }, { 31, BoundLower } };
    for (const auto& row : rows) {
        store_hash(pos, 1, 5, NoMove, row.score, -20, 30);
        EXPECT_EQ(probe(pos).bound, row.bound) << row.score;
    }
}

TEST_F(Hash, MateScoresAreStoredRelativeToThePosition)
{
    Position* pos = set_position(start_position);
    const struct {
        i32 score, stored;
    } rows[] = { { 9990, 9995 }, { 9699, 9704 }, { 9698, 9698 }, { -9699, -9699 }, { -9700, -9705 },
        { -9990, -9995 }, { 9650, 9650 }, { -9650, -9650 } };
    for (const auto& row : rows) {
        store_hash(pos, 5, 5, NoMove, row.score, -infinite_score, infinite_score);
        EXPECT_EQ(probe(pos).score, row.stored) << row.score;
    }
}

// The score with which search reads the entry, as far as a cut-off shows it: the highest beta that
// a lower bound still reaches.
static i32 score_read_at_ply(const char* fen, i32 ply, i32 stored, i32 lowest)
{
    i32 score = lowest;
    for (i32 beta = lowest; beta < 9999 - ply; ++beta) {
        Node node = make_node(fen, ply);
        put_entry(node.pos, NoMove, stored, 20, BoundLower);
        if (run_node(&node, 1, beta - 1, beta, CutNode) != beta || node_count() != 1) {
            break;
        }
        score = beta;
    }
    return score;
}

TEST_F(Hash, MateScoreIsReadRelativeToTheReadingPly)
{
    const char* fen = "6k1/5ppp/8/8/8/8/8/R5K1 w - -";
    Position* pos = set_position(fen);
    store_hash(pos, 5, 8, NoMove, 9990, -infinite_score, infinite_score);
    EXPECT_EQ(probe(pos).score, 9995);
    EXPECT_EQ(score_read_at_ply(fen, 3, 9995, 9989), 9992);
}

TEST_F(Hash, ScoreBetweenTheTwoLimitsIsAdjustedOnReadingOnly)
{
    const char* fen = "6k1/5ppp/8/8/8/8/8/R5K1 w - -";
    Position* pos = set_position(fen);
    store_hash(pos, 4, 8, NoMove, 9650, -infinite_score, infinite_score);
    EXPECT_EQ(probe(pos).score, 9650);
    EXPECT_EQ(score_read_at_ply(fen, 4, 9650, 9643), 9646);
    EXPECT_EQ(score_read_at_ply(fen, 4, 9599, 9592), 9595);
    EXPECT_EQ(score_read_at_ply(fen, 4, 9598, 9595), 9598);
}

TEST_F(Hash, DeeperEntryOfThePositionIsKeptWhileItsFiftyMoveCountStands)
{
    Position* pos = set_position(start_position);
    pos->cnt50 = 3;
    store_plain(pos, 8);
    store_plain(pos, 4);
    EXPECT_EQ(probe(pos).depth, 8);
    store_plain(pos, 5);
    EXPECT_EQ(probe(pos).depth, 5) << "a difference of three is overwritten";

    store_plain(pos, 9);
    pos->cnt50 = 4;
    store_plain(pos, 4);
    EXPECT_EQ(probe(pos).depth, 4) << "a later count is overwritten";
}

TEST_F(Hash, OwnSlotIsTakenBeforeAnOlderOne)
{
    Position* pos = set_position(start_position);
    hash.age = 2;
    HashSlot* bucket = fill_bucket(pos, { 1, 2, 2, 2 }, { 5, 5, 5, 5 });
    const HashEntry own = make_entry(pos, NoMove, 10, 5, BoundExact);
    write_slot(&bucket[2], &own);
    store_plain(pos, 6);
    EXPECT_EQ(read_slot(&bucket[2]).depth, 6);
    EXPECT_EQ(read_slot(&bucket[0]).age, 1);
}

TEST_F(Hash, FirstEntryOfAnOlderSearchIsOverwrittenWhateverItsDepth)
{
    Position* pos = set_position(start_position);
    hash.age = 2;
    fill_bucket(pos, { 2, 1, 15, 2 }, { 0, 60, 1, 3 });
    store_plain(pos, 0);
    EXPECT_EQ(slot_of(pos), 1);
}

TEST_F(Hash, ShallowestEntryOfThisSearchIsOverwrittenUnlessMuchDeeper)
{
    Position* pos = set_position(start_position);
    hash.age = 2;
    fill_bucket(pos, { 2, 2, 2, 2 }, { 12, 12, 13, 14 });
    store_plain(pos, 4);
    EXPECT_EQ(slot_of(pos), -1);
    store_plain(pos, 5);
    EXPECT_EQ(slot_of(pos), 0);

    fill_bucket(pos, { 2, 2, 2, 2 }, { 12, 13, 4, 4 });
    store_plain(pos, 0);
    EXPECT_EQ(slot_of(pos), 2);
}

TEST_F(Hash, NothingIsStoredWhileTheTableIsOff)
{
    Position* pos = set_position(start_position);
    store(hash.mode, 0);
    store_plain(pos, 5);
    EXPECT_EQ(probe(pos).depth, HashNotFound);
}

TEST_F(Hash, MissLeavesTheCopyAsTheCallerPresetIt)
{
    HashEntry entry = {};
    entry.depth = HashNotFound;
    entry.score = 77;
    probe_hash(set_position(start_position), &entry);
    EXPECT_EQ(entry.depth, HashNotFound);
    EXPECT_EQ(entry.score, 77);
}

TEST_F(Hash, OnlyTheFirstSlotOfTheKeyIsLookedAt)
{
    Position* pos = set_position(start_position);
    HashSlot* bucket = hash_bucket(pos->key);
    HashEntry entry = make_entry(pos, NoMove, 10, 5, BoundExact);
    write_slot(&bucket[3], &entry);
    entry.check ^= 1;
    write_slot(&bucket[1], &entry);
    EXPECT_EQ(probe(pos).depth, HashCheckFailed);
}

TEST_F(Hash, SlotMixedFromTwoWritersIsRejected)
{
    Position* pos = set_position(start_position);
    HashSlot* slot = hash_bucket(pos->key);
    const HashEntry first = make_entry(pos, move_of("e2e4"), 31, 5, BoundExact);
    const HashEntry second = make_entry(pos, move_of("d2d4"), 22, 9, BoundUpper);
    u64 words[2][2];
    write_slot(slot, &first);
    words[0][0] = load(slot->word[0]);
    words[0][1] = load(slot->word[1]);
    write_slot(slot, &second);
    words[1][0] = load(slot->word[0]);
    words[1][1] = load(slot->word[1]);
    for (i32 low = 0; low < 2; ++low) {
        for (i32 high = 0; high < 2; ++high) {
            store(slot->word[0], words[low][0]);
            store(slot->word[1], words[high][1]);
            const i32 stored = high == 0 ? 5 : 9;
            EXPECT_EQ(probe(pos).depth, low == high ? stored : i32 { HashCheckFailed });
        }
    }
}

TEST_F(Hash, EveryDamagedBitOfKeyMoveAndScoreIsNoticed)
{
    Position* pos = set_position(start_position);
    const HashEntry whole = make_entry(pos, move_of("e2e4"), 31, 5, BoundExact);
    HashSlot* slot = hash_bucket(pos->key);
    write_slot(slot, &whole);
    const u64 words[2] = { load(slot->word[0]), load(slot->word[1]) };
    for (i32 i = 0; i < 96; ++i) {
        store(slot->word[0], i < 64 ? words[0] ^ bit(i) : words[0]);
        store(slot->word[1], i < 64 ? words[1] : words[1] ^ bit(i - 64));
        EXPECT_LT(probe(pos).depth, HashUsable) << "bit " << i;
    }
}

TEST_F(Hash, CheckMismatchIsAMissThatTheProbeCounterHasCounted)
{
    Node node = make_node(start_position, 2);
    HashEntry entry = make_entry(node.pos, move_of("e2e4"), 31, 20, BoundLower);
    entry.check ^= 1;
    write_slot(hash_bucket(node.pos->key), &entry);
    store(node.thread->counters[CountNodes], 0);
    node.thread->node_limit = 1;
    node.thread->completed_depth = 2;
    run_node(&node, 1, -10, 10, CutNode);
    EXPECT_EQ(load(node.thread->counters[CountHashProbes]), 1u);
    EXPECT_EQ(load(node.thread->counters[CountHashHits]), 0u);
    EXPECT_EQ(node.rec->hash_move, NoMove);
}

TEST_F(Hash, EntryWhoseMoveCannotBePlayedIsNotUsedAtAll)
{
    Node node = make_node(start_position, 2);
    put_entry(node.pos, move_of("e2e5"), 9000, 20, BoundLower);
    EXPECT_NE(run_node(&node, 1, -10, 10, CutNode), 9000);
    EXPECT_EQ(load(node.thread->counters[CountHashHits]), 0u);
    EXPECT_EQ(node.rec->hash_move, NoMove);
    EXPECT_GT(node_count(), 1u);
}

TEST_F(Hash, EntryWithoutAMoveIsValid)
{
    Position* pos = set_position(start_position);
    put_entry(pos, NoMove, 12, 5, BoundExact);
    EXPECT_EQ(probe(pos).depth, 5);
}

TEST_F(Hash, MovesThatDoNotFitTheBoardAreRefused)
{
    const struct {
        const char* fen;
        const char* move;
    } rows[] = {
        { start_position, "e4e5" },                             // nothing to move
        { start_position, "e7e5" },                             // a piece of the other side
        { start_position, "e2e2" }, { start_position, "d1d2" }, // own piece on the to-square
        { "4k3/8/8/8/8/8/8/4RK2 w - -", "e1e8" },               // the king
        { start_position, "b1b3" },                             // no knight's step
        { start_position, "c1e3" },                             // a blocked bishop
        { start_position, "a1a3" }, { start_position, "d1d4" },
        { "4k3/8/8/8/8/8/8/R3K3 w Q -", "a1b2" },    // no rook's line
        { "4k3/8/8/8/8/8/8/R3K3 w Q -", "e1e3" },    // no king's step
        { "4k3/8/8/8/8/8/8/R2NK3 w Q -", "e1c1" },   // castling across a piece
        { "4k3/8/8/8/8/8/8/R3K3 w Q -", "e1g1" },    // castling without a rook
        { "4k3/8/8/8/8/8/4P3/4K3 w - -", "e2d3" },   // a pawn's capture of nothing
        { "4k3/8/8/8/8/4p3/4P3/4K3 w - -", "e2e3" }, // a blocked pawn
        { "4k3/8/8/8/8/4p3/4P3/4K3 w - -", "e2e4" },
        { "4k3/8/8/8/8/4P3/8/4K3 w - -", "e3e5" },   // a double step from the third rank
        { "4k3/8/8/3pP3/8/8/8/4K3 w - -", "e5d6" },  // en passant without its square
        { "4k3/8/8/4P3/8/8/8/4K3 w - d6", "e5d6" },  // en passant without a victim
        { "4k3/8/8/8/8/8/4P3/4K3 w - -", "e2e3q" },  // promotion on the third rank
        { "4k3/8/8/8/8/8/8/R3K3 w Q -", "a1a8q" },   // promotion of a rook
        { "4k3/4r3/8/8/8/8/4N3/4K3 w - -", "e2c3" }, // a pinned knight
        { "4k3/8/8/8/8/8/r7/4K3 w - -", "e1e2" },    // into check
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(is_refused(row.fen, move_of(row.move))) << row.fen << " " << row.move;
    }
}

TEST_F(Hash, MovesThatFitTheBoardAreTaken)
{
    const struct {
        const char* fen;
        const char* move;
    } rows[] = {
        { start_position, "e2e4" },
        { start_position, "g1f3" },
        { "4k3/8/8/8/8/8/8/R3K2R w KQ -", "e1g1" },
        { "4k3/8/8/8/8/8/8/R3K2R w - -", "e1c1" }, // the rights are not looked at
        { "4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5d6" },
        { "1n2k3/P7/8/8/8/8/8/4K3 w - -", "a7b8n" },
        { "4k3/4r3/8/8/8/8/4R3/4K3 w - -", "e2e7" },
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(is_refused(row.fen, move_of(row.move))) << row.fen << " " << row.move;
    }
}

TEST_F(Hash, RandomEntriesComeBackAsTheyWereStored)
{
    u64 state = 20;
    for (i32 game = 0; game < 20; ++game) {
        Position* pos = set_position(start_position);
        clear_hash();
        for (i32 ply = 0; ply < 60; ++ply) {
            const std::vector<Move> moves = legal_moves(pos);
            if (moves.empty()) {
                break;
            }
            const Move move = moves[next_random(&state, static_cast<u32>(moves.size()))];
            const i32 score = static_cast<i32>(next_random(&state, 19001)) - 9500;
            const i32 depth = static_cast<i32>(next_random(&state, 67));
            const i32 reading_ply = static_cast<i32>(next_random(&state, 60));
            // A new age makes room for it, whatever stands there.
            hash.age = static_cast<i16>(hash.age % 15 + 1);
            store_hash(pos, reading_ply, depth, move, score, -infinite_score, infinite_score);
            const HashEntry entry = probe(pos);
            ASSERT_EQ(entry.move, move) << fen_of(pos);
            ASSERT_EQ(entry.score, score);
            ASSERT_EQ(entry.depth, depth);
            ASSERT_EQ(entry.bound, BoundExact);
            make_move(pos, move);
        }
    }
}

TEST_F(Hash, ClearingLeavesNoEntryAndNoFill)
{
    const HashEntry entry = make_entry(set_position(start_position), NoMove, 1, 1, BoundExact);
    for (u32 i = 0; i < hash.slots + 16; ++i) {
        write_slot(&hash.table[i], &entry);
    }
    hash.fill = 0.5;
    clear_hash();
    EXPECT_EQ(hash.fill, 0.0);
    for (u32 i = 0; i < hash.slots + 16; ++i) {
        ASSERT_EQ(load(hash.table[i].word[0]) | load(hash.table[i].word[1]), 0u) << i;
    }
}

TEST_F(Hash, ClearingWithoutAWorkerClearsNothing)
{
    const HashEntry entry = make_entry(set_position(start_position), NoMove, 1, 1, BoundExact);
    write_slot(hash.table, &entry);
    hash.fill = 0.5;
    use_records(0);
    clear_hash();
    EXPECT_NE(load(hash.table->word[0]), 0u);
    EXPECT_EQ(hash.fill, 0.0);
}

TEST_F(Hash, StoringMarksTheTableAsWrittenAndClearingAllOfItAsClean)
{
    clear_hash();
    EXPECT_EQ(load(hash.written), 0);
    store_plain(set_position(start_position), 5);
    EXPECT_EQ(load(hash.written), 1);
    clear_hash();
    EXPECT_EQ(load(hash.written), 0);
}

TEST_F(Hash, SharesLeaveTheSlotsThatTheDivisionLeavesOver)
{
    use_records(3);
    const u32 all = hash.slots + 16;
    ASSERT_EQ(all % 3, 2u);
    for (u32 i = 0; i < all; ++i) {
        store(hash.table[i].word[0], 1);
    }
    store(hash.written, 1);
    for (i32 i = 0; i < 3; ++i) {
        clear_hash_share(i);
    }
    for (u32 i = 0; i < all; ++i) {
        ASSERT_EQ(load(hash.table[i].word[0]), i < all - 2 ? 0u : 1u) << i;
    }
}

// Of a table of 8 megabytes how many pages of the smallest size are resident.
static i32 resident_pages()
{
    const size_t pages = ((size_t { hash.slots } + 16) * sizeof(HashSlot) + 4095) / 4096;
    std::vector<unsigned char> resident(pages);
    EXPECT_EQ(mincore(hash.table, pages * 4096, resident.data()), 0);
    return static_cast<i32>(
        std::count_if(resident.begin(), resident.end(), [](int page) { return page & 1; }));
}

TEST_F(Hash, TouchingMakesAllOfATableResidentAndLeavesItClear)
{
    resize(8);
    EXPECT_LT(resident_pages(), 100);
    touch_hash();
    EXPECT_EQ(resident_pages(), 2049);
    EXPECT_EQ(load(hash.written), 0);
    for (u32 i = 0; i < hash.slots + 16; ++i) {
        ASSERT_EQ(load(hash.table[i].word[0]) | load(hash.table[i].word[1]), 0u) << i;
    }
}

TEST_F(Hash, SharesTouchAllButTheRest)
{
    resize(8);
    use_records(3);
    for (i32 i = 0; i < 3; ++i) {
        touch_hash_share(i);
    }
    EXPECT_GE(resident_pages(), 2048);
    use_records(1);
}

TEST_F(Hash, ClearIfIdleDoesNothingWhileTheTableIsOffOrAWorkerBusy)
{
    Position* pos = set_position(start_position);
    store_plain(pos, 5);
    store(hash.mode, 0);
    clear_hash_if_idle();
    EXPECT_EQ(probe(pos).depth, 5);

    store(hash.mode, 1);
    store(record()->command, CommandSearch);
    clear_hash_if_idle();
    EXPECT_EQ(probe(pos).depth, 5);

    store(record()->command, CommandIdle);
    clear_hash_if_idle();
    EXPECT_EQ(probe(pos).depth, HashNotFound);
}

TEST_F(Hash, FillCountsTheSlotsOfThisSearchAroundTheMiddle)
{
    hash.age = 3;
    HashEntry entry = make_entry(set_position(start_position), NoMove, 1, 1, BoundExact);
    HashSlot* sample = hash.table + hash.slots / 2 - 500;
    for (i32 i = 0; i < 250; ++i) {
        write_slot(&sample[i], &entry);
    }
    entry.age = 2;
    write_slot(&sample[500], &entry);
    entry.age = 3;
    write_slot(&sample[-1], &entry);
    write_slot(&sample[1000], &entry);
    write_slot(&sample[999], &entry);
    estimate_hash_fill();
    EXPECT_EQ(hash.fill, 251 * 0.001);
}

TEST_F(Hash, FillOfATableWithoutSlotsIsZero)
{
    resize(0);
    hash.fill = 0.5;
    estimate_hash_fill();
    EXPECT_EQ(hash.fill, 0.0);
}

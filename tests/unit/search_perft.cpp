// Leaf counts of the legal move tree.
#include <gtest/gtest.h>
#include <string>

#include <cstdlib>
#include <cstring>

#include "test_support.h"
#include "search/move_lists.h"

static constexpr u64 most_leaves = 2000000; // of one count, so that the whole file stays quick

static u64 count_leaves(Position* pos, i32 depth)
{
    SearchThread* thread = pos->thread;
    store(thread->counters[CountNodes], 0);
    perft(thread, pos->stm, 1, depth);
    return load(thread->counters[CountNodes]);
}

TEST(BoardPerft, StartPosition)
{
    Position* pos = set_position("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
    EXPECT_EQ(count_leaves(pos, 1), 20u);
    EXPECT_EQ(count_leaves(pos, 2), 400u);
    EXPECT_EQ(count_leaves(pos, 3), 8902u);
    EXPECT_EQ(count_leaves(pos, 4), 197281u);
}

TEST(BoardPerft, EveryStoredCount)
{
    const auto rows = read_tsv("perft.tsv");
    EXPECT_EQ(rows.size(), 150u);
    for (const auto& row : rows) {
        Position* pos = set_position(row[0]);
        for (i32 depth = 1; depth <= 5 && row[static_cast<size_t>(depth)] != "-"; ++depth) {
            const u64 expected = std::stoull(row[static_cast<size_t>(depth)]);
            if (expected > most_leaves) {
                break;
            }
            EXPECT_EQ(count_leaves(pos, depth), expected) << row[0] << " depth " << depth;
        }
    }
}

TEST(BoardPerft, AddsToTheCounter)
{
    Position* pos = set_position("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
    store(pos->thread->counters[CountNodes], 1000);
    perft(pos->thread, White, 1, 2);
    perft(pos->thread, White, 1, 1);
    EXPECT_EQ(load(pos->thread->counters[CountNodes]), 1420u);
}

TEST(BoardPerft, NoLegalMoveGivesNoLeaf)
{
    EXPECT_EQ(count_leaves(set_position("7k/6Q1/6K1/8/8/8/8/8 b - -"), 1), 0u);
    EXPECT_EQ(count_leaves(set_position("7k/5Q2/6K1/8/8/8/8/8 b - -"), 3), 0u);
}

TEST(BoardPerft, LeavesThePositionAsItWas)
{
    Position* pos =
        set_position("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -");
    unsigned char before[sizeof(Position)];
    memcpy(before, static_cast<const void*>(pos), sizeof before);
    count_leaves(pos, 3);
    EXPECT_EQ(memcmp(before, static_cast<const void*>(pos), sizeof before), 0);
    EXPECT_EQ(dialogue.game->ply, 1);
    EXPECT_EQ(dialogue.game->undo_count, 0);
}

TEST(BoardPerft, KeepsStateOfThePly)
{
    Position* pos = set_position("4k3/8/8/8/8/5n2/8/4K3 w - -");
    PlyRecord* rec = &dialogue.game->ply_rec[1];
    rec->hash_move = move_of("e1e2");
    EXPECT_EQ(count_leaves(pos, 1), 4u);
    EXPECT_EQ(rec->check_sq, square_of("f3"));
    EXPECT_NE(rec->in_check, 0);
    EXPECT_EQ(rec->hash_move, NoMove);
    EXPECT_EQ(rec->stage & 0xf0, UnreadStageFlag | FullSearch);

    pos = set_position("4k3/8/8/8/8/8/8/4K3 w - -");
    EXPECT_EQ(count_leaves(pos, 1), 5u);
    EXPECT_EQ(rec->check_sq, NoSquare);
    EXPECT_EQ(rec->in_check, 0);
}

// Every legal move of a position is found by making it: what the count of the last ply takes for
// legal without a look included.
static u64 count_by_making(Position* pos)
{
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    const i32 side = pos->stm;
    u64 legal = 0;
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        const i32 from = from_square(entry->move);
        const i32 to = to_square(entry->move);
        const bool castling = pos->king_sq[side] == from && std::abs(to - from) == 2;
        const bool passes = !castling
            || (!is_attacked(pos, from, side ^ 1) && !is_attacked(pos, (from + to) / 2, side ^ 1));
        make_move(pos, entry->move);
        legal += passes && !is_attacked(pos, pos->king_sq[side], side ^ 1);
        unmake_move(pos);
    }
    return legal;
}

// One move on from the stored positions there are pins, checks and en passant of all kinds.
TEST(BoardPerft, LastPlyCountsWhatMakingTheMovesFinds)
{
    for (const auto& row : read_tsv("perft.tsv")) {
        Position* pos = set_position(row[0]);
        gen_all_moves(pos); // which also gives the next ply its place for a list
        const MoveEntry* entry = dialogue.game->ply_rec[1].list_start;
        for (; entry->move != EndOfList; ++entry) {
            if (!is_legal_move(pos, pos->stm, entry->move)) {
                continue;
            }
            make_move(pos, entry->move);
            store(pos->thread->counters[CountNodes], 0);
            perft(pos->thread, pos->stm, 2, 1);
            EXPECT_EQ(load(pos->thread->counters[CountNodes]), count_by_making(pos)) << row[0];
            unmake_move(pos);
        }
    }
}

// Lines completed from the transposition table.
#include <string>
#include <vector>

#include "search_support.h"
#include "search/hash.h"
#include "search/thread.h"

struct HashLine : SearchTest {
    u16 line[ply_count] = {};

    // Stores the moves of a line from the start position, each at the given depth.
    static void store_line(const std::vector<const char*>& moves, i32 depth)
    {
        Position* pos = set_position(start_position);
        for (const char* move : moves) {
            put_entry(pos, move_of(move), 0, depth, BoundExact);
            make_move(pos, move_of(move));
        }
        set_position(start_position);
    }

    std::string extended(i32 index = 1)
    {
        Position* pos = &dialogue.game->pos;
        const std::string before = fen_of(pos);
        const i32 count = dialogue.game->undo_count;
        extend_line_from_hash(pos, index, line);
        EXPECT_EQ(fen_of(pos), before);
        EXPECT_EQ(dialogue.game->undo_count, count);
        std::string texts;
        for (i32 i = index; i < ply_count && line[i] != NoMove; ++i) {
            texts += (i > index ? " " : "") + text_of(line[i]);
        }
        return texts;
    }
};

TEST_F(HashLine, MovesOfTheTableCompleteTheLine)
{
    store_line({ "e2e4", "e7e5", "g1f3" }, 4);
    line[1] = move_of("e2e4");
    EXPECT_EQ(extended(), "e2e4 e7e5 g1f3");
}

TEST_F(HashLine, EmptyLineIsTakenFromTheTableWhole)
{
    store_line({ "d2d4", "d7d5" }, 0);
    EXPECT_EQ(extended(), "d2d4 d7d5");
}

TEST_F(HashLine, MoveOfTheLineGoesBeforeTheTablesMove)
{
    store_line({ "d2d4", "d7d5" }, 4);
    line[1] = move_of("e2e4");
    line[2] = move_of("c7c5");
    EXPECT_EQ(extended(), "e2e4 c7c5");
}

TEST_F(HashLine, NothingIsAddedWhileTheTableIsOff)
{
    store_line({ "d2d4", "d7d5" }, 4);
    store(hash.mode, 0);
    EXPECT_EQ(extended(), "");
}

TEST_F(HashLine, IllegalMoveOfTheLineEndsIt)
{
    line[1] = move_of("e1e2");
    line[2] = move_of("e7e5");
    Position* pos = set_position("4k3/8/8/8/8/8/r7/4K3 w - -");
    extend_line_from_hash(pos, 1, line);
    EXPECT_EQ(pos->thread->undo_count, 0);
    EXPECT_EQ(line[2], move_of("e7e5"));
}

TEST_F(HashLine, EntryWithoutAMoveClosesTheLine)
{
    Position* pos = set_position(start_position);
    put_entry(pos, NoMove, 0, 3, BoundExact);
    line[2] = move_of("e7e5");
    EXPECT_EQ(extended(), "");
    EXPECT_EQ(line[2], NoMove);
}

TEST_F(HashLine, MoveThatCannotBePlayedIsNotTaken)
{
    Position* pos = set_position(start_position);
    put_entry(pos, move_of("e2e5"), 0, 3, BoundExact);
    line[2] = move_of("e7e5");
    EXPECT_EQ(extended(), "");
    EXPECT_EQ(line[2], move_of("e7e5"));
}

TEST_F(HashLine, TableMoveClearsWhatStoodBehindIt)
{
    Position* pos = set_position(start_position);
    put_entry(pos, move_of("g1f3"), 0, 3, BoundExact);
    line[2] = move_of("e7e5");
    EXPECT_EQ(extended(), "g1f3");
}

TEST_F(HashLine, LineEndsWhereThePositionIsDrawn)
{
    // The start position comes up for the third time with the last move.
    const char* shuffle[] = { "g1f3", "g8f6", "f3g1", "f6g8" };
    Position* pos = set_position(start_position);
    for (i32 i = 0; i < 7; ++i) {
        put_entry(pos, move_of(shuffle[i % 4]), 0, 4, BoundExact);
        make_move(pos, move_of(shuffle[i % 4]));
    }
    set_position(start_position);
    EXPECT_EQ(extended(), "g1f3 g8f6 f3g1 f6g8 g1f3 g8f6 f3g1 f6g8");
}

TEST_F(HashLine, LineEndsAtItsLastPlaceThoughTheTableGoesOn)
{
    store_line({ "e2e4", "e7e5", "g1f3" }, 4);
    EXPECT_EQ(extended(66), "e2e4");
    line[66] = NoMove;
    EXPECT_EQ(extended(67), "");
}

// The staged selection: which moves a node gets in which order, how they are scored, and what the
// lists look like in between.
#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <utility>
#include <vector>

#include "board_support.h"
#include "search/move_lists.h"
#include "search/thread.h"

static constexpr char start_text[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";

// How the callers of next_move open a node.
static constexpr u16 interior_stage = 112;
static constexpr u16 count_stage = 96;
static constexpr u16 quiescence_stage = 160;
static constexpr u16 deep_quiescence_stage = 32;

static constexpr i16 neutral_history = 2048;
static constexpr i32 neutral_base = 8;

// A node at ply 2, or 1, below a previous and an own move that the test may set.
struct BoardNextMove : testing::Test {
    Position* pos = nullptr;
    SearchThread* thread = nullptr;
    PlyRecord* rec = nullptr;
    MoveEntry prev = {};
    MoveEntry own = {};

    void fill_history(i16 value)
    {
        std::fill_n(&thread->history[0][0][0], 8 * 16 * 64, value);
    }

    void open(const std::string& text, u16 stage, i32 ply = 2)
    {
        pos = set_position(text);
        thread = pos->thread;
        std::fill_n(thread->move_store, move_store_size, MoveEntry {});
        init_move_lists(thread);
        fill_history(neutral_history);
        memset(thread->counter_move, 0, sizeof thread->counter_move);
        memset(thread->counter_move2, 0, sizeof thread->counter_move2);
        memset(thread->follow_move, 0, sizeof thread->follow_move);
        if (ply == 2) {
            thread->ply = 1;
            publish_list(thread, thread->ply_rec[1].list_start);
            thread->ply_rec[1].list_cursor = &prev;
            thread->ply_rec[0].list_cursor = &own;
        }
        thread->ply = static_cast<i16>(ply);
        rec = &thread->ply_rec[ply];
        const u64 occ = pos->bb[White][0] | pos->bb[Black][0];
        rec->check_sq =
            static_cast<u8>(find_checker(pos, pos->king_sq[pos->stm], pos->stm ^ 1, occ));
        rec->in_check = rec->check_sq != NoSquare;
        rec->hash_move = NoMove;
        rec->killer[0] = NoMove;
        rec->killer[1] = NoMove;
        rec->evasion_killer = NoMove;
        rec->stage = stage;
    }

    // The next move's text and score, as "e2e4 8", or "end".
    std::string next()
    {
        const MoveEntry* entry = next_move(pos);
        if (entry == nullptr) {
            return "end";
        }
        EXPECT_EQ(entry, rec->list_cursor);
        return text_of(entry->move) + " " + std::to_string(entry->score);
    }

    std::vector<MoveEntry> all()
    {
        std::vector<MoveEntry> entries;
        while (const MoveEntry* entry = next_move(pos)) {
            entries.push_back(*entry);
        }
        return entries;
    }

    // The moves that are left, in order.
    std::string rest()
    {
        std::string texts;
        for (const MoveEntry& entry : all()) {
            texts += (texts.empty() ? "" : " ") + text_of(entry.move);
        }
        return texts;
    }

    i32 stage() const
    {
        return rec->stage & 15;
    }

    void TearDown() override
    {
        thread->ply = 1;
        init_move_lists(thread);
    }
};

// ---- Values

TEST_F(BoardNextMove, CaptureValuesByPieceCode)
{
    open(start_text, count_stage);
    static constexpr i32 values[16] = { 210, 220, 230, 230, 240, 250, 0, 0, 0, 220, 230, 230, 240,
        250, 0, 0 };
    for (i32 code = 0; code < 16; ++code) {
        if (code != 7 && code != 8 && code != 15) {
            EXPECT_EQ(mvv_score[code], values[code]) << code;
        }
    }
}

TEST_F(BoardNextMove, HistoryBaseTruncatesEachDivisionTowardsZero)
{
    open(start_text, count_stage);
    EXPECT_EQ(history_base(2048, 2048), 8);
    EXPECT_EQ(history_base(255, 255), 0);
    EXPECT_EQ(history_base(511, 256), 1);
    EXPECT_EQ(history_base(512, 511), 1);
    EXPECT_EQ(history_base(512, 512), 2);
    EXPECT_EQ(history_base(-255, -255), 0);
    EXPECT_EQ(history_base(-256, 0), 0);
    EXPECT_EQ(history_base(-256, -256), -1);
    EXPECT_EQ(history_base(-511, -767), -1);
    EXPECT_EQ(history_base(-768, -255), -1);
    EXPECT_EQ(history_base(32767, 32767), 127);
    EXPECT_EQ(history_base(-32768, -32768), -128);
}

TEST_F(BoardNextMove, PickBestSwapsTheEarliestOfTheHighest)
{
    open(start_text, count_stage);
    MoveEntry list[12] = { { 1, 5, 11, 21 }, { 2, 9, 12, 22 }, { 3, -7, 13, 23 }, { 4, 9, 14, 24 },
        { EndOfList, 99, 0, 0 } };
    pick_best(list);
    EXPECT_EQ(list[0].move, 2);
    EXPECT_EQ(list[0].score, 9);
    EXPECT_EQ(list[0].moved, 12);
    EXPECT_EQ(list[0].captured, 22);
    EXPECT_EQ(list[1].move, 1);
    EXPECT_EQ(list[1].score, 5);
    EXPECT_EQ(list[1].moved, 11);
    EXPECT_EQ(list[1].captured, 21);
    pick_best(list + 1);
    EXPECT_EQ(list[1].move, 4);
    EXPECT_EQ(list[3].move, 1);
    pick_best(list + 2);
    EXPECT_EQ(list[2].move, 1);
    EXPECT_EQ(list[3].move, 3);
}

TEST_F(BoardNextMove, PickBestWithTheEndTakesTheSameEntry)
{
    open(start_text, count_stage);
    u64 state = 23;
    for (i32 round = 0; round < 3000; ++round) {
        // Behind the closing entry lies what would be the best if it counted.
        const i32 count = 1 + next_random(&state, round < 1000 ? 20 : 230);
        std::vector<MoveEntry> list(static_cast<size_t>(count) + 8, { 9, 32767, 1, 2 });
        for (i32 i = 0; i < count; ++i) {
            // Few different scores, and the ends of their range.
            const i32 scores[] = { -32768, -1, 0, 1, 32767, 64, 250, -7 };
            const i32 kinds = 1 + static_cast<i32>(next_random(&state, 8));
            list[static_cast<size_t>(i)] = { static_cast<u16>(i + 1),
                static_cast<i16>(scores[next_random(&state, static_cast<u32>(kinds))]), 3, 4 };
        }
        list[static_cast<size_t>(count)].move = EndOfList;
        std::vector<MoveEntry> expected = list;
        const auto best = std::max_element(expected.begin(), expected.begin() + count,
            [](const MoveEntry& a, const MoveEntry& b) { return a.score < b.score; });
        std::swap(expected[0], *best);

        std::vector<MoveEntry> scanned = list;
        pick_best(list.data(), list.data() + count);
        pick_best(scanned.data());
        for (size_t i = 0; i < list.size(); ++i) {
            ASSERT_EQ(list[i].move, expected[i].move) << count << " entries, place " << i;
            ASSERT_EQ(list[i].score, expected[i].score);
            ASSERT_EQ(scanned[i].move, expected[i].move);
        }
    }
}

TEST_F(BoardNextMove, PublishingClosesTheListAndStartsTheNextTwo)
{
    open(start_text, count_stage);
    MoveEntry* end = rec->list_start + 7;
    *end = { 5, 6, 7, 8 };
    publish_list(thread, end);
    EXPECT_EQ(end->move, EndOfList);
    EXPECT_EQ(end->score, 6);
    EXPECT_EQ(end->moved, 7);
    EXPECT_EQ(end->captured, 8);
    EXPECT_EQ(rec[1].list_start, end + 1);
    EXPECT_EQ(rec[2].list_start, end + 2);
}

// ---- The move from the hash table

TEST_F(BoardNextMove, HashMoveComesFirstAndOnceMoreInItsPlace)
{
    open("4k3/8/8/3p4/4P3/8/8/4K3 w - -", interior_stage);
    rec->hash_move = move_of("e4d5");
    MoveEntry* start = rec->list_start;
    EXPECT_EQ(next(), "e4d5 255");
    EXPECT_EQ(start->moved, Pawn);
    EXPECT_EQ(start->captured, Pawn + 8);
    EXPECT_EQ(start[1].move, EndOfList);
    EXPECT_EQ(rec[1].list_start, start + 2);
    EXPECT_EQ(rec[2].list_start, start + 3);
    EXPECT_EQ(stage(), 1);
    EXPECT_EQ(next(), "e4d5 219");
    EXPECT_EQ(rest(), "e4e5 e1d1 e1f1 e1d2 e1e2 e1f2");
}

TEST_F(BoardNextMove, HashMoveIsLeftOutWithoutItsFlag)
{
    for (const u16 stage_word : { count_stage, quiescence_stage, deep_quiescence_stage }) {
        open("4k3/8/8/3p4/4P3/8/8/4K3 w - -", stage_word);
        rec->hash_move = move_of("e1e2");
        EXPECT_EQ(text_of(next_move(pos)->move), "e4d5");
    }
}

TEST_F(BoardNextMove, WithoutAHashMoveTheCapturesComeAtOnce)
{
    open("4k3/8/8/3p4/4P3/8/8/4K3 w - -", interior_stage);
    MoveEntry* start = rec->list_start;
    EXPECT_EQ(next(), "e4d5 219");
    EXPECT_EQ(rec->list_cursor, start);
    EXPECT_EQ(stage(), 4);
}

TEST_F(BoardNextMove, HashMoveIsTakenAsItStands)
{
    open(start_text, interior_stage);
    rec->hash_move = move_of("a1h8");
    EXPECT_EQ(next(), "a1h8 255");
    EXPECT_EQ(rec->list_cursor->captured, Rook + 8);
}

// ---- Captures with exchange values

TEST_F(BoardNextMove, CapturesAreScoredByVictimAttackerAndExchange)
{
    struct Row {
        const char* text;
        const char* best;
    };
    static constexpr Row rows[] = {
        // The victim's value less the type of the taker, if half a pawn or more is won.
        { "4k3/8/8/3q4/4P3/8/8/4K3 w - -", "e4d5 249" },
        { "4k3/8/8/3r4/4P3/8/8/4K3 w - -", "e4d5 239" },
        { "4k3/8/8/3b4/4P3/8/8/4K3 w - -", "e4d5 229" },
        { "4k3/8/8/3n4/8/4N3/8/4K3 w - -", "e3d5 228" },
        { "4k3/8/8/3n4/8/8/8/3RK3 w - -", "d1d5 226" },
        { "4k3/8/8/3p4/8/8/8/3QK3 w - -", "d1d5 215" },
        { "4k3/8/8/8/8/8/4p3/4K3 w - -", "e1e2 214" },
        // Six less for an even exchange.
        { "4k3/8/4p3/3n4/8/4N3/8/4K3 w - -", "e3d5 222" },
        { "4k3/8/4p3/3n4/4B3/8/8/4K3 w - -", "e4d5 221" },
        // En passant takes an empty square; defended, it looks like a loss.
        { "4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5d6 203" },
        { "4k3/2p5/8/3pP3/8/8/8/4K3 w - d6", "e5e6 8" },
        // Promotions: the push wins nothing by itself, the rook counts as taken.
        { "8/1P1k4/8/8/8/8/8/4K3 w - -", "b7b8q 203" },
        { "r6k/1P6/8/8/8/8/8/4K3 w - -", "b7a8q 239" },
    };
    for (const Row& row : rows) {
        open(row.text, count_stage);
        EXPECT_EQ(next(), row.best) << row.text;
    }
}

TEST_F(BoardNextMove, UnderPromotionsScoreFifteenOrLose)
{
    open("8/1P1k4/8/8/8/8/8/4K3 w - -", count_stage);
    fill_history(0);
    EXPECT_EQ(next(), "b7b8q 203");
    EXPECT_EQ(next(), "b7b8n 15");
    EXPECT_EQ(next(), "b7b8b 15");
    EXPECT_EQ(next(), "b7b8r 15");
    // With the square guarded all four lose the pawn.
    open("8/1Pk5/8/8/8/8/8/4K3 w - -", count_stage);
    fill_history(0);
    EXPECT_EQ(next(), "b7b8q 4");
    EXPECT_EQ(next(), "b7b8n 4");
    EXPECT_EQ(next(), "b7b8b 4");
    EXPECT_EQ(next(), "b7b8r 4");
    // A rook taken on the way does not raise them.
    open("r6k/1P6/8/8/8/8/8/4K3 w - -", count_stage);
    fill_history(0);
    for (const char* expected : { "b7a8q 239", "b7a8n 15", "b7a8b 15", "b7a8r 15" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, LosingCapturesWaitAmongTheQuietMoves)
{
    static constexpr char text[] = "4k3/8/3p4/4p3/8/8/8/4QK2 w - -";
    open(text, count_stage);
    fill_history(0);
    EXPECT_EQ(next(), "e1e5 5");
    EXPECT_EQ(stage(), 6);
    EXPECT_EQ(next(), "e1a1 0");
    EXPECT_EQ(stage(), 7);

    open(text, count_stage);
    EXPECT_EQ(next(), "e1a1 8");
    EXPECT_EQ(stage(), 6);
    const std::vector<MoveEntry> others = all();
    EXPECT_EQ(text_of(others.back().move), "e1e5");
    EXPECT_EQ(others.back().score, 5);
}

TEST_F(BoardNextMove, EveryCaptureGetsTheScoreOfItsExchange)
{
    for (const std::string& text : sample_positions(1)) {
        open(text, count_stage);
        for (const MoveEntry& entry : all()) {
            if (!is_plain_capture(pos, entry) && !is_promotion(entry)) {
                continue;
            }
            const i32 see = swapoff(pos, pos->stm, from_square(entry.move), to_square(entry.move));
            i32 score = mvv_score[entry.captured] - entry.moved % 8 - (see < 50 ? 6 : 0);
            if (see < -49) {
                score = entry.captured % 8 + 4;
            } else if (is_promotion(entry) && (entry.move & PromoteQueen) == 0) {
                score = 15;
            }
            ASSERT_EQ(entry.score, score) << text << " " << text_of(entry.move);
        }
    }
}

// ---- Quiet moves

TEST_F(BoardNextMove, EqualQuietMovesKeepTheirOrder)
{
    open(start_text, interior_stage);
    EXPECT_EQ(rest(),
        "a2a3 b2b3 c2c3 d2d3 e2e3 f2f3 g2g3 h2h3 "
        "a2a4 b2b4 c2c4 d2d4 e2e4 f2f4 g2g4 h2h4 b1a3 b1c3 g1f3 g1h3");
    EXPECT_EQ(stage(), 6);
}

TEST_F(BoardNextMove, APickedMoveChangesPlacesWithTheFirst)
{
    open(start_text, interior_stage);
    rec->killer[0] = move_of("g1f3");
    EXPECT_EQ(rest(),
        "g1f3 b2b3 c2c3 d2d3 e2e3 f2f3 g2g3 h2h3 "
        "a2a4 b2b4 c2c4 d2d4 e2e4 f2f4 g2g4 h2h4 b1a3 b1c3 a2a3 g1h3");
}

TEST_F(BoardNextMove, FavouredQuietMovesOutOfCheck)
{
    open(start_text, interior_stage);
    prev = { move_of("g8f6"), 0, Knight + 8, 0 };
    own = { move_of("h2h3"), 0, Pawn, 0 };
    rec->killer[0] = move_of("e2e4");
    rec->killer[1] = move_of("d2d4");
    rec->evasion_killer = move_of("b2b3");
    thread->counter_move[Knight + 8][square_of("f6")] = move_of("c2c4");
    thread->counter_move2[Knight + 8][square_of("f6")] = move_of("b1c3");
    thread->follow_move[Pawn][square_of("h3")] = move_of("g1f3");
    for (const char* expected : { "e2e4 68", "d2d4 63", "c2c4 58", "b1c3 53", "g1f3 48" }) {
        EXPECT_EQ(next(), expected);
    }
    for (const MoveEntry& entry : all()) {
        EXPECT_EQ(entry.score, neutral_base) << text_of(entry.move);
    }
}

TEST_F(BoardNextMove, OnlyTheFirstBonusThatFitsIsGiven)
{
    open(start_text, interior_stage);
    prev = { move_of("g8f6"), 0, Knight + 8, 0 };
    own = { move_of("h2h3"), 0, Pawn, 0 };
    rec->killer[0] = move_of("e2e4");
    rec->killer[1] = move_of("d2d4");
    thread->counter_move[Knight + 8][square_of("f6")] = move_of("d2d4");
    thread->counter_move2[Knight + 8][square_of("f6")] = move_of("e2e4");
    thread->follow_move[Pawn][square_of("h3")] = move_of("e2e4");
    for (const char* expected : { "e2e4 68", "d2d4 63", "c2c3 8" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, FavouredEvasions)
{
    open("4r2k/8/8/8/8/8/3P1P2/2BQKB2 w - -", interior_stage);
    ASSERT_TRUE(rec->in_check);
    prev = { move_of("a8e8"), 0, Rook + 8, 0 };
    own = { move_of("h2h3"), 0, Pawn, 0 };
    rec->killer[0] = move_of("f1e2");
    rec->killer[1] = move_of("d1e2");
    rec->evasion_killer = move_of("d1e2");
    thread->counter_move[Rook + 8][square_of("e8")] = move_of("f1e2");
    thread->counter_move2[Rook + 8][square_of("e8")] = move_of("e1e2");
    thread->follow_move[Pawn][square_of("h3")] = move_of("e1d1");
    for (const char* expected : { "d1e2 68", "f1e2 63", "e1e2 58", "end" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, FollowUpsAndKillersDoNotCountInCheck)
{
    open("4r2k/8/8/8/8/8/3P1P2/2BQKB2 w - -", interior_stage);
    prev = { move_of("a8e8"), 0, Rook + 8, 0 };
    own = { move_of("h2h3"), 0, Pawn, 0 };
    rec->killer[0] = move_of("f1e2");
    rec->killer[1] = move_of("d1e2");
    thread->follow_move[Pawn][square_of("h3")] = move_of("e1e2");
    for (const char* expected : { "f1e2 8", "d1e2 8", "e1e2 8", "end" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, BehindANullMoveNothingIsCountered)
{
    open(start_text, interior_stage);
    prev = { NoMove, 0, Knight + 8, 0 };
    own = { move_of("h2h3"), 0, Pawn, 0 };
    thread->counter_move[Knight + 8][0] = move_of("c2c4");
    thread->counter_move2[Knight + 8][0] = move_of("b1c3");
    thread->follow_move[Pawn][square_of("h3")] = move_of("g1f3");
    thread->history[Knight][Pawn][square_of("d4")] = 10000;
    rec->killer[1] = move_of("e2e4");
    // The history still goes by the piece that the slot of the null move holds.
    for (const char* expected : { "e2e4 63", "d2d4 23", "c2c3 8" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, WithoutAnOwnMoveNothingIsFollowed)
{
    open(start_text, interior_stage);
    prev = { move_of("g8f6"), 0, Knight + 8, 0 };
    own = { NoMove, 0, Pawn, 0 };
    thread->follow_move[Pawn][0] = move_of("g1f3");
    thread->counter_move2[Knight + 8][square_of("f6")] = move_of("b1c3");
    for (const char* expected : { "b1c3 53", "b2b3 8" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, AtPlyTwoTheClosingEntryBelowTheRootCountsAsOwnMove)
{
    open(start_text, interior_stage);
    prev = { move_of("g8f6"), 0, Knight + 8, 0 };
    thread->ply_rec[0].list_cursor = thread->ply_rec[0].list_start;
    thread->follow_move[0][63] = move_of("g1f3");
    EXPECT_EQ(next(), "g1f3 48");
}

TEST_F(BoardNextMove, HistoryGoesByPreviousPieceMovedPieceAndSquare)
{
    open(start_text, interior_stage);
    prev = { move_of("g8f6"), 0, Knight + 8, 0 };
    fill_history(0);
    thread->history[Knight][Knight][square_of("c3")] = 20 * 256;
    thread->history[0][Knight][square_of("c3")] = 10 * 256;
    thread->history[0][Pawn][square_of("e4")] = 24 * 256 - 1;
    thread->history[Bishop][Pawn][square_of("d4")] = 32767;
    thread->history[Knight][Pawn + 8][square_of("d4")] = 32767;
    thread->history[Knight][Pawn][square_of("a3")] = -4 * 256;
    EXPECT_EQ(next(), "b1c3 15");
    EXPECT_EQ(next(), "e2e4 11");
    const std::vector<MoveEntry> others = all();
    EXPECT_EQ(others.size(), 18U);
    for (const MoveEntry& entry : others) {
        EXPECT_EQ(entry.score, text_of(entry.move) == "a2a3" ? -2 : 0);
    }
}

TEST_F(BoardNextMove, QuietMovesAreNotScoredAtTheRoot)
{
    open(start_text, count_stage, 1);
    rec->killer[0] = move_of("e2e4");
    std::fill_n(rec->list_start, 30, MoveEntry { 0, -3, 0, 0 });
    for (const MoveEntry& entry : all()) {
        EXPECT_EQ(entry.score, -3);
    }
}

TEST_F(BoardNextMove, SortingStopsAtAScoreOfTwo)
{
    open("4k3/8/8/8/8/8/PPPPPP2/4K3 w - -", interior_stage);
    fill_history(0);
    const auto set_score = [&](const char* square, i16 score) {
        thread->history[0][Pawn][square_of(square)] = static_cast<i16>(score * 512);
        thread->history[prev.moved & 7][Pawn][square_of(square)] = static_cast<i16>(score * 512);
    };
    set_score("a3", -5);
    set_score("b3", 1);
    set_score("c3", 3);
    set_score("d3", 2);
    set_score("e3", 2);
    set_score("f3", 4);
    // 3 and 4 are picked; so is the first 2, which ends the sorting.
    for (const char* expected : { "f2f3 8", "c2c3 6", "d2d3 4", "e2e3 4", "b2b3 2" }) {
        EXPECT_EQ(next(), expected);
    }
    EXPECT_EQ(stage(), 7);
    EXPECT_EQ(text_of(next_move(pos)->move), "a2a3");
}

TEST_F(BoardNextMove, AScoreOfThreeIsStillSorted)
{
    open("4k3/8/8/8/8/8/PP6/7K w - -", interior_stage);
    fill_history(0);
    thread->history[0][Pawn][square_of("b3")] = 3 * 256;
    EXPECT_EQ(next(), "b2b3 3");
    EXPECT_EQ(stage(), 6);
    EXPECT_EQ(next(), "a2a3 0");
    EXPECT_EQ(stage(), 7);
}

// ---- Stages and sets

TEST_F(BoardNextMove, InteriorStagesInTurn)
{
    open("4k3/8/8/3p4/4P3/8/8/4K3 w - -", interior_stage);
    rec->hash_move = move_of("e1e2");
    static constexpr i32 stages[] = { 1, 4, 6, 6, 6, 6, 6, 6 };
    for (const i32 expected : stages) {
        ASSERT_NE(next_move(pos), nullptr);
        EXPECT_EQ(stage(), expected);
        EXPECT_EQ(rec->stage & ~15, interior_stage);
    }
    EXPECT_EQ(next_move(pos), nullptr);
}

TEST_F(BoardNextMove, NoCapturesLeadStraightToTheQuietMoves)
{
    open("4k3/8/8/8/8/8/8/4K3 w - -", interior_stage);
    EXPECT_EQ(next(), "e1d1 8");
    EXPECT_EQ(stage(), 6);
}

TEST_F(BoardNextMove, NoMovesEndTheList)
{
    for (const u16 stage_word :
        { interior_stage, count_stage, quiescence_stage, deep_quiescence_stage }) {
        open("4k3/8/8/8/8/8/8/8 w - -", stage_word);
        EXPECT_EQ(rest(), "") << stage_word;
    }
}

TEST_F(BoardNextMove, AKnightCheckGivesCapturesPromotionsAndKingMoves)
{
    open("4k3/2P5/8/8/1b3r2/3n3R/1PP3P1/R2QK2R w K -", interior_stage);
    const std::vector<MoveEntry> entries = all();
    for (const MoveEntry& entry : entries) {
        const bool takes_knight = to_square(entry.move) == square_of("d3");
        EXPECT_TRUE(takes_knight || is_promotion(entry) || (entry.moved & 7) == King)
            << text_of(entry.move);
    }
    EXPECT_EQ(
        sorted_texts(entries), "c2d3 c7c8b c7c8n c7c8q c7c8r d1d3 e1d2 e1e2 e1f1 e1f2 e1g1 h3d3 ");
}

TEST_F(BoardNextMove, FullSearchGivesEveryMoveOnce)
{
    u64 state = 41;
    for (const std::string& text : sample_positions(4)) {
        for (i32 plies = 0; plies < 40; plies += 8) {
            Position* game = set_position(text);
            play_random_moves(game, &state, plies);
            open(fen_of(game), count_stage);
            const std::string fen = fen_of(pos);
            const std::vector<Move> legal = legal_moves(pos);
            std::vector<MoveEntry> given = all();
            given.erase(std::remove_if(given.begin(), given.end(),
                            [&](const MoveEntry& entry) {
                                return !is_legal_move(pos, pos->stm, entry.move);
                            }),
                given.end());
            std::vector<MoveEntry> expected;
            for (const Move move : legal) {
                expected.push_back({ move, 0, 0, 0 });
            }
            ASSERT_EQ(sorted_texts(given), sorted_texts(expected)) << fen;
        }
    }
}

TEST_F(BoardNextMove, ScoresFallUntilTheTailInStoredOrder)
{
    u64 state = 42;
    for (const std::string& text : sample_positions(2)) {
        open(text, count_stage);
        for (i32 i = 0; i < 8 * 16 * 64; ++i) {
            (&thread->history[0][0][0])[i] = static_cast<i16>(next_random(&state, 6000) - 2000);
        }
        i32 last = 1000;
        bool quiets_begun = false;
        for (const MoveEntry& entry : all()) {
            quiets_begun = quiets_begun || entry.score <= 150;
            ASSERT_TRUE(!quiets_begun || entry.score <= 150);
            if (last > 2) {
                ASSERT_LE(entry.score, last) << text << " " << text_of(entry.move);
                last = entry.score;
            } else {
                ASSERT_LE(entry.score, last) << text << " " << text_of(entry.move);
            }
        }
    }
}

// ---- The quiescence search

TEST_F(BoardNextMove, QuiescenceCapturesGoByVictimAndAttackerAlone)
{
    open("4k3/8/2pn4/1p2p1q1/4N2P/2r5/1Q6/4K3 w - -", deep_quiescence_stage);
    for (const char* expected :
        { "h4g5 249", "e4g5 248", "e4c3 238", "b2c3 235", "e4d6 228", "b2b5 215", "end" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, QuiescencePromotesToQueensOnly)
{
    open("r3k3/1P6/8/8/8/8/8/4K3 w - -", deep_quiescence_stage);
    EXPECT_EQ(next(), "b7a8q 239");
    EXPECT_EQ(next(), "b7b8q 209");
    EXPECT_EQ(next(), "end");
}

TEST_F(BoardNextMove, WithoutChecksTheListEndsBehindTheLastCapture)
{
    open("6k1/8/8/3p4/4P3/8/5PPP/R3Q1K1 w - -", deep_quiescence_stage);
    MoveEntry* start = rec->list_start;
    EXPECT_EQ(next(), "e4d5 219");
    EXPECT_EQ(next(), "end");
    EXPECT_EQ(start[1].move, EndOfList);
    EXPECT_EQ(start[2].move, 0);
    EXPECT_EQ(rec[1].list_start, start + 2);
}

TEST_F(BoardNextMove, ChecksFollowTheCapturesInGeneratedOrder)
{
    open("6k1/8/8/8/8/8/5PPP/R3Q1K1 w - -", quiescence_stage);
    for (const char* expected : { "a1a8 100", "e1e6 100", "e1e8 100", "end" }) {
        EXPECT_EQ(next(), expected);
    }
    EXPECT_EQ(stage(), 7);

    open("6k1/8/8/3p4/4P3/8/5PPP/R5K1 w - -", quiescence_stage);
    for (const char* expected : { "e4d5 219", "a1a8 100", "end" }) {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(BoardNextMove, CheckingMovesComeByPiece)
{
    open("8/8/8/3k4/8/4P3/2P5/KN3B1R w - -", quiescence_stage);
    EXPECT_EQ(rest(), "e3e4 c2c4 b1c3 f1g2 f1c4 h1h5");
    open("8/8/8/3k4/8/8/8/KN2QB1R w - -", quiescence_stage);
    EXPECT_EQ(rest(), "b1c3 f1g2 f1c4 h1h5 e1d1 e1d2 e1e4 e1a5 e1e5 e1e6");
    open("7k/3p4/5p2/8/4K3/8/8/8 b - -", quiescence_stage);
    EXPECT_EQ(rest(), "f6f5 d7d5");
    // The square passed by a double step has to be empty.
    open("7k/3p4/3N4/8/4K3/8/8/8 b - -", quiescence_stage);
    EXPECT_EQ(rest(), "");
}

TEST_F(BoardNextMove, PushesToTheSeventhRankComeWithTheChecks)
{
    open("4k3/8/1P5P/8/8/8/8/4K3 w - -", quiescence_stage);
    EXPECT_EQ(rest(), "b6b7 h6h7");
    open("4k3/1r6/1P5P/8/8/8/8/4K3 w - -", quiescence_stage);
    EXPECT_EQ(rest(), "h6h7");
    open("4k3/8/8/8/8/p6p/8/4K3 b - -", quiescence_stage);
    EXPECT_EQ(rest(), "a3a2 h3h2");
}

TEST_F(BoardNextMove, APushToTheSeventhThatChecksComesTwice)
{
    open("7k/8/6P1/8/8/8/8/4K3 w - -", quiescence_stage);
    EXPECT_EQ(rest(), "g6g7 g6g7");
}

TEST_F(BoardNextMove, DiscoveredChecksAndKingMovesAreNoChecksHere)
{
    // The knight opens the rook's file; the king steps off the bishop's line.
    open("4k3/8/8/8/8/4N3/8/K3R3 w - -", quiescence_stage);
    EXPECT_EQ(rest(), "");
    open("k7/8/8/8/4K3/8/8/7B w - -", quiescence_stage);
    EXPECT_EQ(rest(), "");
    open("5k2/8/8/8/8/8/8/4K2R w K -", quiescence_stage);
    EXPECT_EQ(rest(), "h1f1 h1h8");
}

// The checks by definition: each quiet move of a piece is tried on the board.
static std::vector<MoveEntry> slow_checks(const Position* pos)
{
    const i32 side = pos->stm;
    const i32 king = pos->king_sq[side ^ 1];
    std::vector<MoveEntry> checks;
    for (const MoveEntry& entry : slow_moves(pos, side)) {
        const i32 type = entry.moved & 7;
        const i32 from = from_square(entry.move);
        const i32 to = to_square(entry.move);
        if (is_promotion(entry) || is_plain_capture(pos, entry) || type == King) {
            continue;
        }
        Position after = *pos;
        after.board[to] = after.board[from];
        after.board[from] = 0;
        if (slow_attacks(&after, type, side, to, king)) {
            checks.push_back(entry);
        }
        if (type == Pawn && to / 8 == (side == White ? 6 : 1)) {
            checks.push_back(entry);
        }
    }
    return checks;
}

TEST_F(BoardNextMove, QuiescenceGivesCapturesQueensAndDirectChecks)
{
    u64 state = 43;
    for (const std::string& text : sample_positions(2)) {
        for (i32 plies = 0; plies < 40; plies += 5) {
            Position* game = set_position(text);
            play_random_moves(game, &state, plies);
            open(fen_of(game), quiescence_stage);
            if (rec->in_check) {
                continue;
            }
            std::vector<MoveEntry> noisy;
            for (const MoveEntry& entry : slow_moves(pos, pos->stm)) {
                if (is_plain_capture(pos, entry) || (entry.move & PromoteQueen)) {
                    noisy.push_back(entry);
                }
            }
            std::vector<MoveEntry> expected = slow_checks(pos);
            expected.insert(expected.begin(), noisy.begin(), noisy.end());
            const std::vector<MoveEntry> given = all();
            ASSERT_EQ(sorted_texts(given), sorted_texts(expected)) << fen_of(pos);
            for (size_t i = noisy.size(); i < given.size(); ++i) {
                ASSERT_EQ(given[i].score, 100) << fen_of(pos);
            }
            open(fen_of(pos), deep_quiescence_stage);
            ASSERT_EQ(sorted_texts(all()), sorted_texts(noisy)) << fen_of(pos);
        }
    }
}

// The generators: their order, which other parts rely on, and their sets, against a generator that
// walks a mailbox board.
#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "board_support.h"
#include "search/move_lists.h"
#include "search/thread.h"

static constexpr char start_text[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
static constexpr i32 list_room = 1200;
static constexpr i16 old_score = -12345;

// What a generator wrote; every entry's score is checked to be the one that stood there.
struct List {
    MoveEntry entries[list_room];

    List()
    {
        std::fill(entries, entries + list_room, MoveEntry { 1, old_score, 255, 255 });
    }

    std::vector<MoveEntry> upto(const MoveEntry* end) const
    {
        EXPECT_LE(end, entries + list_room);
        for (const MoveEntry* entry = entries; entry < end; ++entry) {
            EXPECT_EQ(entry->score, old_score);
        }
        // Nothing is written behind the last move.
        EXPECT_EQ(end->move, 1);
        EXPECT_EQ(end->moved, 255);
        return { entries, const_cast<const MoveEntry*>(end) };
    }
};

static std::vector<MoveEntry> captures(const Position* pos, i32 check_sq = NoSquare)
{
    List list;
    return list.upto(gen_captures(pos, pos->stm, list.entries, check_sq));
}

static std::vector<MoveEntry> promotions(const Position* pos, i32 under)
{
    List list;
    return list.upto(gen_promotions(pos, pos->stm, under, list.entries));
}

static std::vector<MoveEntry> quiets(const Position* pos, i32 check_sq = NoSquare)
{
    List list;
    return list.upto(gen_quiets(pos, pos->stm, list.entries, check_sq));
}

static std::string texts(const std::vector<MoveEntry>& entries)
{
    std::string joined;
    for (const MoveEntry& entry : entries) {
        joined += (joined.empty() ? "" : " ") + text_of(entry.move);
    }
    return joined;
}

template <typename Test>
static std::vector<MoveEntry> filter(const std::vector<MoveEntry>& entries, Test test)
{
    std::vector<MoveEntry> kept;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(kept), test);
    return kept;
}

static bool is_quiet(const Position* pos, const MoveEntry& entry)
{
    return !is_promotion(entry) && !is_plain_capture(pos, entry);
}

// ---- Order

TEST(BoardGenerate, StartPositionInOrder)
{
    Position* pos = set_position(start_text);
    gen_all_moves(pos);
    EXPECT_EQ(texts_of(pos->thread->ply_rec[1].list_start),
        "a2a3 b2b3 c2c3 d2d3 e2e3 f2f3 g2g3 h2h3 "
        "a2a4 b2b4 c2c4 d2d4 e2e4 f2f4 g2g4 h2h4 b1a3 b1c3 g1f3 g1h3");
}

TEST(BoardGenerate, BlackStartMovesRunFromLowSquaresToHigh)
{
    const Position* pos = set_position("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq -");
    EXPECT_EQ(texts(quiets(pos)),
        "a7a6 b7b6 c7c6 d7d6 e7e6 f7f6 g7g6 h7h6 "
        "a7a5 b7b5 c7c5 d7d5 e7e5 f7f5 g7g5 h7h5 b8a6 b8c6 g8f6 g8h6");
}

TEST(BoardGenerate, PiecesComeByTypeThenSquareThenTarget)
{
    const Position* pos = set_position("4k3/8/8/8/8/N6N/P6P/R1BQKB1R w KQ -");
    EXPECT_EQ(texts(quiets(pos)),
        "a3b1 a3c2 a3c4 a3b5 h3g1 h3f2 h3f4 h3g5 "
        "c1b2 c1d2 c1e3 c1f4 c1g5 c1h6 f1e2 f1g2 f1d3 f1c4 f1b5 f1a6 "
        "a1b1 h1g1 d1c2 d1d2 d1e2 d1b3 d1d3 d1f3 d1a4 d1d4 d1g4 d1d5 d1h5 d1d6 d1d7 d1d8 "
        "e1d2 e1e2 e1f2");
}

TEST(BoardGenerate, PawnCapturesComeByDirectionTowardsTheAFileFirst)
{
    EXPECT_EQ(texts(captures(set_position("4k3/8/8/8/2p1p3/1P1P1P2/8/4K3 w - -"))),
        "d3c4 f3e4 b3c4 d3e4");
    EXPECT_EQ(texts(captures(set_position("4k3/8/1p1p1p2/2P1P3/8/8/8/4K3 b - -"))),
        "d6c5 f6e5 b6c5 d6e5");
}

TEST(BoardGenerate, CapturesComeByPieceType)
{
    const Position* pos = set_position("k3r3/8/2pp1p2/1r6/2B1Q3/1R1N4/3K1p2/8 w - -");
    EXPECT_EQ(texts(captures(pos)), "d3f2 c4b5 b3b5 e4c6 e4e8");
}

TEST(BoardGenerate, PromotionsComeByPawnThenPushThenCaptures)
{
    EXPECT_EQ(texts(promotions(set_position("r1r1k3/1P5P/8/8/8/8/8/4K3 w - -"), 1)),
        "b7b8q b7b8n b7b8b b7b8r b7a8q b7a8n b7a8b b7a8r b7c8q b7c8n b7c8b b7c8r "
        "h7h8q h7h8n h7h8b h7h8r");
    EXPECT_EQ(texts(promotions(set_position("r1r1k3/1P5P/8/8/8/8/8/4K3 w - -"), 0)),
        "b7b8q b7a8q b7c8q h7h8q");
    EXPECT_EQ(texts(promotions(set_position("4k3/8/8/8/8/8/1p4p1/R1R1K3 b - -"), 0)),
        "b2b1q b2a1q b2c1q g2g1q");
    EXPECT_EQ(texts(promotions(set_position("1r2k3/1P6/8/8/8/8/8/4K3 w - -"), 1)), "");
}

TEST(BoardGenerate, CastlingComesLastShortBeforeLong)
{
    EXPECT_EQ(texts(quiets(set_position("4k3/8/8/8/8/8/P6P/R3K2R w KQ -"))),
        "a2a3 h2h3 a2a4 h2h4 a1b1 a1c1 a1d1 h1f1 h1g1 e1d1 e1f1 e1d2 e1e2 e1f2 e1g1 e1c1");
    EXPECT_EQ(texts(filter(quiets(set_position("r3k2r/8/8/8/8/8/8/4K3 b kq -")), is_castling)),
        "e8g8 e8c8");
}

TEST(BoardGenerate, AllMovesAreCapturesThenPromotionsThenQuietMoves)
{
    Position* pos = set_position("r3k2r/1P1p4/8/4pP2/1n6/P7/8/R3K2R w KQkq e6");
    const PlyRecord* rec = &pos->thread->ply_rec[1];
    gen_all_moves(pos);
    const std::vector<MoveEntry> all = entries_of(rec->list_start);
    EXPECT_EQ(texts(all),
        texts(captures(pos)) + " " + texts(promotions(pos, 1)) + " " + texts(quiets(pos)));
    EXPECT_EQ(texts(captures(pos)), "f5e6 a3b4 h1h8");
    EXPECT_EQ(rec[0].list_cursor, rec[0].list_start);
    EXPECT_EQ(rec[1].list_start, rec[0].list_start + all.size() + 1);
    EXPECT_EQ(rec[2].list_start, rec[0].list_start + all.size() + 2);
}

// A number that rises along a list in its promised order.
static u32 rank_in_order(const MoveEntry& entry)
{
    const u32 from = static_cast<u32>(from_square(entry.move));
    const u32 to = static_cast<u32>(to_square(entry.move));
    const u32 type = entry.moved & 7U;
    if (is_castling(entry)) {
        return (7U << 16) | (to < from);
    }
    if (is_promotion(entry)) {
        const u32 way = to % 8 == from % 8 ? 0 : to % 8 < from % 8 ? 1 : 2;
        u32 kind = 0;
        if (entry.move & PromoteKnight) {
            kind = 1;
        } else if (entry.move & (PromoteBishop | PromoteRook)) {
            kind = entry.move & PromoteBishop ? 2 : 3;
        }
        return (from << 8) | (way << 4) | kind;
    }
    if (type != Pawn) {
        return (type << 16) | (from << 8) | to;
    }
    // Towards the a file before the h file; single steps before double steps.
    const u32 way = to % 8 > from % 8 || (to ^ from) == 16 ? 1 : 0;
    return (type << 16) | (way << 8) | to;
}

static void expect_order(const std::vector<MoveEntry>& entries, const std::string& context)
{
    for (size_t i = 1; i < entries.size(); ++i) {
        ASSERT_LT(rank_in_order(entries[i - 1]), rank_in_order(entries[i]))
            << context << " " << text_of(entries[i].move);
    }
}

// ---- Sets

static void expect_entries_fit(const Position* pos, const std::vector<MoveEntry>& entries)
{
    for (const MoveEntry& entry : entries) {
        ASSERT_EQ(entry.moved, pos->board[from_square(entry.move)]) << text_of(entry.move);
        ASSERT_EQ(entry.captured, pos->board[to_square(entry.move)]) << text_of(entry.move);
    }
}

static void expect_same_moves(const Position* pos)
{
    const std::string fen = fen_of(pos);
    const std::vector<MoveEntry> slow = slow_moves(pos, pos->stm);
    const std::vector<MoveEntry> lists[3] = { captures(pos), promotions(pos, 1), quiets(pos) };
    ASSERT_EQ(sorted_texts(lists[0]), sorted_texts(filter(slow, [&](const MoveEntry& entry) {
        return is_plain_capture(pos, entry);
    }))) << fen;
    ASSERT_EQ(sorted_texts(lists[1]), sorted_texts(filter(slow, is_promotion))) << fen;
    ASSERT_EQ(sorted_texts(promotions(pos, 0)),
        sorted_texts(
            filter(slow, [](const MoveEntry& entry) { return (entry.move & PromoteQueen) != 0; })))
        << fen;
    ASSERT_EQ(sorted_texts(lists[2]), sorted_texts(filter(slow, [&](const MoveEntry& entry) {
        return is_quiet(pos, entry);
    }))) << fen;
    for (const std::vector<MoveEntry>& list : lists) {
        expect_entries_fit(pos, list);
        expect_order(list, fen);
    }
}

// In check: captures of the checking piece or by the king, en passant, interpositions, the king's
// own steps and castling.
static void expect_same_evasions(const Position* pos, i32 check_sq)
{
    const std::string fen = fen_of(pos);
    const u64 blocks = slow_between(check_sq, pos->king_sq[pos->stm]);
    const std::vector<MoveEntry> slow = slow_moves(pos, pos->stm);
    const std::vector<MoveEntry> taking = captures(pos, check_sq);
    const std::vector<MoveEntry> blocking = quiets(pos, check_sq);
    ASSERT_EQ(sorted_texts(taking), sorted_texts(filter(slow, [&](const MoveEntry& entry) {
        return is_plain_capture(pos, entry)
            && ((entry.moved & 7) == King || to_square(entry.move) == check_sq
                || entry.captured == 0);
    }))) << fen;
    ASSERT_EQ(sorted_texts(blocking), sorted_texts(filter(slow, [&](const MoveEntry& entry) {
        return is_quiet(pos, entry)
            && ((entry.moved & 7) == King || (blocks & bit(to_square(entry.move))) != 0);
    }))) << fen;
    expect_entries_fit(pos, taking);
    expect_order(taking, fen);
    expect_order(blocking, fen);
}

TEST(BoardGenerate, SameMovesAsTheMailboxInRandomGames)
{
    u64 state = 17;
    for (const std::string& text : sample_positions(2)) {
        Position* pos = set_position(text);
        for (i32 ply = 0; ply < 30; ++ply) {
            expect_same_moves(pos);
            if (HasFatalFailure() || play_random_moves(pos, &state, 1) == 0) {
                break;
            }
        }
    }
}

TEST(BoardGenerate, SameMovesAsTheMailboxInTheLists)
{
    for (const std::string& text : sample_positions(1)) {
        expect_same_moves(set_position(text));
    }
}

TEST(BoardGenerate, SameMovesAsTheMailboxOnAnyBoard)
{
    Position* pos = set_position(start_text);
    u64 state = 18;
    for (i32 round = 0; round < 1500 && !HasFatalFailure(); ++round) {
        set_random_board(pos, &state, static_cast<i32>(1 + next_random(&state, 70)));
        // Several kings would make several homes; an odd square would be entered by pushes.
        pos->ep_square = NoSquare;
        expect_same_moves(pos);
    }
}

TEST(BoardGenerate, SameEvasionsAsTheMailboxInRandomGames)
{
    u64 state = 19;
    i32 checks = 0;
    for (i32 game = 0; game < 120; ++game) {
        Position* pos = set_position(game % 2 == 0
                ? "q3k2r/8/2n5/2bPp3/1Q6/8/3R1P2/R3K1N1 w Qk e6"
                : "rnbqkbnr/ppp2ppp/8/3pp3/3PP3/8/PPP2PPP/RNBQKBNR w KQkq -");
        for (i32 ply = 0; ply < 60 && play_random_moves(pos, &state, 1) == 1; ++ply) {
            const u64 occ = pos->bb[White][0] | pos->bb[Black][0];
            const i32 check_sq = find_checker(pos, pos->king_sq[pos->stm], pos->stm ^ 1, occ);
            if (check_sq == NoSquare) {
                continue;
            }
            ++checks;
            expect_same_evasions(pos, check_sq);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
    EXPECT_GT(checks, 300);
}

// ---- Single rules

TEST(BoardGenerate, AKnightCheckLeavesCapturesAndKingMoves)
{
    const Position* pos = set_position("4k3/8/8/8/1b3r2/3n3R/1PP3P1/R2QK2R w K -");
    const i32 check_sq = square_of("d3");
    EXPECT_EQ(texts(captures(pos, check_sq)), "c2d3 h3d3 d1d3");
    EXPECT_EQ(texts(quiets(pos, check_sq)), "e1f1 e1d2 e1e2 e1f2 e1g1");
}

TEST(BoardGenerate, TheKingTakesAnyNeighbourInCheck)
{
    const Position* pos = set_position("4k3/8/8/4r3/8/8/3nq3/4K3 w - -");
    EXPECT_EQ(texts(captures(pos, square_of("e2"))), "e1d2 e1e2");
}

TEST(BoardGenerate, EnPassantIsThereWhateverGivesCheck)
{
    const Position* pos = set_position("4k3/8/8/3pP3/8/8/4r3/4K3 w - d6");
    const std::vector<MoveEntry> list = captures(pos, square_of("e2"));
    EXPECT_EQ(texts(list), "e5d6 e1e2");
    EXPECT_EQ(list[0].captured, 0);
    EXPECT_EQ(list[0].moved, Pawn);
}

TEST(BoardGenerate, NoEnPassantSquareGivesNoCaptureOfA1)
{
    EXPECT_EQ(texts(captures(set_position("4k3/8/8/8/8/8/1p6/4K3 b - -"))), "");
}

TEST(BoardGenerate, EnPassantDoesNotWrapRoundTheEdge)
{
    EXPECT_EQ(texts(captures(set_position("4k3/8/8/p6P/8/8/8/4K3 w - a6"))), "");
    EXPECT_EQ(texts(captures(set_position("4k3/8/8/8/p6P/8/8/4K3 b - h3"))), "");
    EXPECT_EQ(texts(captures(set_position("4k3/8/p7/7P/8/8/8/4K3 w - -"))), "");
}

TEST(BoardGenerate, PromotionsAreNotAmongCapturesOrQuietMoves)
{
    const Position* pos = set_position("r3k3/1P6/8/8/8/8/8/4K3 w - -");
    EXPECT_EQ(texts(captures(pos)), "");
    EXPECT_EQ(texts(quiets(pos)), "e1d1 e1f1 e1d2 e1e2 e1f2");
}

TEST(BoardGenerate, InCheckADoubleStepPassesASquareThatIsNoTarget)
{
    // The rook on a4 checks along the rank; d3 is no interposition, d4 is.
    Position* pos = set_position("4k3/8/8/8/r6K/8/3P4/8 w - -");
    EXPECT_EQ(texts(filter(quiets(pos, square_of("a4")),
                  [](const MoveEntry& entry) { return entry.moved == Pawn; })),
        "d2d4");
    pos = set_position("4k3/8/8/8/r6K/3n4/3P4/8 w - -");
    EXPECT_EQ(texts(filter(quiets(pos, square_of("a4")),
                  [](const MoveEntry& entry) { return entry.moved == Pawn; })),
        "");
}

TEST(BoardGenerate, CastlingIsGeneratedInCheckAndOverAttackedSquares)
{
    Position* pos = set_position("4k3/8/8/8/8/4r3/8/R3K2R w KQ -");
    EXPECT_EQ(texts(filter(quiets(pos, square_of("e3")), is_castling)), "e1g1 e1c1");
    EXPECT_FALSE(is_legal_move(pos, White, move_of("e1g1")));
    pos = set_position("4k3/8/8/8/8/5r2/8/R3K2R w KQ -");
    EXPECT_EQ(texts(filter(quiets(pos), is_castling)), "e1g1 e1c1");
    EXPECT_FALSE(is_legal_move(pos, White, move_of("e1g1")));
}

TEST(BoardGenerate, CastlingNeedsItsRightAndEmptySquares)
{
    struct Row {
        const char* text;
        const char* moves;
    };
    static constexpr Row rows[] = {
        { "4k3/8/8/8/8/8/8/R3K2R w K -", "e1g1" },
        { "4k3/8/8/8/8/8/8/R3K2R w Q -", "e1c1" },
        { "4k3/8/8/8/8/8/8/R3K2R w - -", "" },
        { "4k3/8/8/8/8/8/8/RN2K1NR w KQ -", "" },
        { "4k3/8/8/8/8/8/8/R1B1KB1R w KQ -", "" },
        { "4k3/8/8/8/8/8/8/R2nK2R w KQ -", "e1g1" },
        { "r3k2r/8/8/8/8/8/8/R3K2R b KQ -", "" },
        { "rn2k2r/8/8/8/8/8/8/R3K2R b KQkq -", "e8g8" },
    };
    for (const Row& row : rows) {
        EXPECT_EQ(texts(filter(quiets(set_position(row.text)), is_castling)), row.moves)
            << row.text;
    }
}

TEST(BoardGenerate, APositionOfManyQueensFitsItsList)
{
    Position* pos = set_position("qqqqkqqq/2q5/8/8/8/8/5Q2/QQQQKQQQ w - -");
    gen_all_moves(pos);
    EXPECT_EQ(entries_of(pos->thread->ply_rec[1].list_start).size(), slow_moves(pos, White).size());
    // The most crowded boards: queens apart by empty squares, knights between.
    u64 state = 77;
    size_t most = 0;
    for (i32 round = 0; round < 2000; ++round) {
        clear_board(pos);
        pos->stm = White;
        const u32 density = 10 + next_random(&state, 80);
        for (i32 square = 0; square < 64; ++square) {
            if (next_random(&state, 100) < density) {
                put_piece(
                    pos, square, square / 8 == 6 && round % 2 ? Pawn : static_cast<i32>(Queen));
            } else if (next_random(&state, 3) == 0) {
                put_piece(pos, square, Pawn + 8);
            }
        }
        init_move_lists(pos->thread);
        gen_all_moves(pos);
        most = std::max(most, entries_of(pos->thread->ply_rec[1].list_start).size());
    }
    EXPECT_GT(most, 150U);
    EXPECT_LT(most, 1126U);
}

// Making and unmaking: what each kind of move changes, that unmaking restores all of it, and that
// no move out of a text can leave a board whose fields disagree.
#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "board_support.h"
#include "search/move_lists.h"
#include "search/thread.h"

static constexpr char start_text[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";

// Makes a move and expects the position text that follows, the keys of that text, and that
// unmaking brings every field back. The move is made in the end.
static void expect_move(Position* pos, const std::string& move, const std::string& text)
{
    SCOPED_TRACE(fen_of(pos) + " " + move);
    const GameState before = state_of(pos);
    make_move(pos, move_of(move));
    EXPECT_EQ(fen_of(pos), text);
    EXPECT_TRUE(fields_agree(pos));
    EXPECT_EQ(pos->key, keys_from_text(text).key);
    EXPECT_EQ(pos->pawn_key, keys_from_text(text).pawn_key);
    EXPECT_EQ(pos->thread->last_move, move_of(move));
    EXPECT_EQ(pos->thread->undo_count, before.undo_count + 1);
    EXPECT_EQ(pos->thread->ply, before.ply + 1);
    unmake_move(pos);
    EXPECT_EQ(difference(state_of(pos), before), "");
    make_move(pos, move_of(move));
}

static const UndoRecord& top_record(const Position* pos)
{
    return pos->thread->undo[pos->thread->undo_count - 1];
}

// ---- Kinds of moves

TEST(BoardMakeMove, QuietMoveRaisesTheClock)
{
    Position* pos = set_position(start_text);
    pos->cnt50 = 7;
    expect_move(pos, "g1f3", "rnbqkbnr/pppppppp/8/8/8/5N2/PPPPPPPP/RNBQKB1R b KQkq -");
    EXPECT_EQ(pos->cnt50, 8);
    EXPECT_EQ(pos->stm, Black);
}

TEST(BoardMakeMove, ClockStopsAtItsHighestValue)
{
    Position* pos = set_position(start_text);
    pos->cnt50 = 254;
    play_moves(pos, "g1f3");
    EXPECT_EQ(pos->cnt50, 255);
    play_moves(pos, "g8f6");
    EXPECT_EQ(pos->cnt50, 255);
    unmake_move(pos);
    unmake_move(pos);
    EXPECT_EQ(pos->cnt50, 254);
}

TEST(BoardMakeMove, PawnMovesAndCapturesClearTheClock)
{
    Position* pos = set_position("4k3/8/3p4/8/4N3/8/P7/R3K3 w Q -");
    pos->cnt50 = 12;
    expect_move(pos, "e4d6", "4k3/8/3N4/8/8/8/P7/R3K3 b Q -");
    EXPECT_EQ(pos->cnt50, 0);
    unmake_move(pos);
    EXPECT_EQ(pos->cnt50, 12);
    expect_move(pos, "a2a3", "4k3/8/3p4/8/4N3/P7/8/R3K3 b Q -");
    EXPECT_EQ(pos->cnt50, 0);
}

TEST(BoardMakeMove, RecordHoldsTheStateBeforeTheMove)
{
    Position* pos = set_position("r3k2r/8/8/3pP3/8/8/8/R3K2R w KQkq d6");
    pos->cnt50 = 3;
    const GameState before = state_of(pos);
    play_moves(pos, "h1h8");
    const UndoRecord& record = top_record(pos);
    EXPECT_EQ(record.key, before.pos.key);
    EXPECT_EQ(record.pawn_key, before.pos.pawn_key);
    EXPECT_EQ(record.move, move_of("h1h8"));
    // The type is kept, not the code.
    EXPECT_EQ(record.captured, Rook);
    EXPECT_EQ(record.ep_square, square_of("d6"));
    EXPECT_EQ(record.cnt50, 3);
    EXPECT_EQ(record.castle, 15);
}

TEST(BoardMakeMove, EveryCaptureIsCountedOff)
{
    static constexpr char letters[] = "pnbrq";
    static constexpr u32 counts[] = { 1, 16, 256, 4096, 65536 };
    static constexpr i32 phases[] = { 0, 3, 3, 5, 10 };
    for (i32 i = 0; i < 5; ++i) {
        const std::string text = std::string("4k3/8/8/") + letters[i] + "7/8/8/8/R3K3 w - -";
        Position* pos = set_position(text);
        EXPECT_EQ(pos->piece_count[Black], counts[i]);
        expect_move(pos, "a1a5", "4k3/8/8/R7/8/8/8/4K3 b - -");
        EXPECT_EQ(pos->piece_count[Black], 0U);
        EXPECT_EQ(pos->phase_mtl[Black], 0);
        EXPECT_EQ(pos->pawn_key, 0U);
        EXPECT_EQ(top_record(pos).captured, i + 1);
        unmake_move(pos);
        EXPECT_EQ(pos->phase_mtl[Black], phases[i]);
    }
}

TEST(BoardMakeMove, DoubleStepSetsTheSquarePassedWithoutAnEnemyPawn)
{
    Position* pos = set_position("4k3/5p2/8/8/8/8/P7/4K3 w - -");
    expect_move(pos, "a2a4", "4k3/5p2/8/8/P7/8/8/4K3 b - a3");
    EXPECT_EQ(pos->ep_square, square_of("a3"));
    expect_move(pos, "f7f5", "4k3/8/8/5p2/P7/8/8/4K3 w - f6");
    expect_move(pos, "a4a5", "4k3/8/8/P4p2/8/8/8/4K3 b - -");
    EXPECT_EQ(pos->ep_square, 64);
}

TEST(BoardMakeMove, SingleStepSetsNoSquare)
{
    expect_move(
        set_position(start_text), "e2e3", "rnbqkbnr/pppppppp/8/8/8/4P3/PPPP1PPP/RNBQKBNR b KQkq -");
}

TEST(BoardMakeMove, EnPassantTakesThePawnBehindAndRecordsNoCapture)
{
    Position* pos = set_position("4k3/8/8/3pP3/8/8/8/4K3 w - d6");
    pos->cnt50 = 9;
    expect_move(pos, "e5d6", "4k3/8/3P4/8/8/8/8/4K3 b - -");
    EXPECT_EQ(top_record(pos).captured, 0);
    EXPECT_EQ(pos->piece_count[Black], 0U);
    EXPECT_EQ(pos->cnt50, 0);
    pos = set_position("4k3/8/8/8/2pPp3/8/8/4K3 b - d3");
    expect_move(pos, "c4d3", "4k3/8/8/8/4p3/3p4/8/4K3 w - -");
    unmake_move(pos);
    expect_move(pos, "e4d3", "4k3/8/8/8/2p5/3p4/8/4K3 w - -");
    EXPECT_EQ(pos->piece_count[White], 0U);
}

TEST(BoardMakeMove, OnlyPawnsTakeEnPassant)
{
    Position* pos = set_position("4k3/8/8/3p4/1B6/8/8/4K3 w - d6");
    expect_move(pos, "b4d6", "4k3/8/3B4/3p4/8/8/8/4K3 b - -");
}

TEST(BoardMakeMove, PromotionReplacesThePawn)
{
    struct Row {
        char flag;
        char letter;
        u32 count;
        i32 phase;
    };
    static constexpr Row rows[] = { { 'q', 'Q', 65536, 10 }, { 'n', 'N', 16, 3 },
        { 'b', 'B', 256, 3 }, { 'r', 'R', 4096, 5 } };
    for (const Row& row : rows) {
        Position* pos = set_position("8/P3k3/8/8/8/8/8/4K3 w - -");
        expect_move(pos, std::string("a7a8") + row.flag,
            std::string(1, row.letter) + "7/4k3/8/8/8/8/8/4K3 b - -");
        EXPECT_EQ(pos->piece_count[White], row.count);
        EXPECT_EQ(pos->phase_mtl[White], row.phase);
        EXPECT_EQ(pos->pawn_key, 0U);
        EXPECT_EQ(pos->cnt50, 0);
    }
    expect_move(set_position("4k3/8/8/8/8/8/p7/4K3 b - -"), "a2a1n", "4k3/8/8/8/8/8/8/n3K3 w - -");
}

TEST(BoardMakeMove, PromotionWithCaptureIsTakenBackWhole)
{
    for (const char* flag : { "q", "n", "b", "r" }) {
        Position* pos = set_position("r3k3/1P6/8/8/8/8/8/4K3 w q -");
        const GameState before = state_of(pos);
        make_move(pos, move_of(std::string("b7a8") + flag));
        EXPECT_EQ(pos->phase_mtl[Black], 0);
        EXPECT_EQ(pos->castle, 0);
        EXPECT_TRUE(fields_agree(pos));
        unmake_move(pos);
        EXPECT_EQ(difference(state_of(pos), before), "");
        EXPECT_EQ(pos->board[56], Rook + 8);
        EXPECT_EQ(pos->board[49], Pawn);
        EXPECT_EQ(pos->phase_mtl[White], 0);
        EXPECT_EQ(pos->phase_mtl[Black], 5);
    }
}

TEST(BoardMakeMove, CastlingMovesTheRookAndClearsTheClock)
{
    struct Row {
        const char* side;
        const char* move;
        const char* text;
    };
    static constexpr Row rows[] = {
        { "w", "e1g1", "r3k2r/8/8/8/8/8/8/R4RK1 b kq -" },
        { "w", "e1c1", "r3k2r/8/8/8/8/8/8/2KR3R b kq -" },
        { "b", "e8g8", "r4rk1/8/8/8/8/8/8/R3K2R w KQ -" },
        { "b", "e8c8", "2kr3r/8/8/8/8/8/8/R3K2R w KQ -" },
    };
    for (const Row& row : rows) {
        Position* pos =
            set_position(std::string("r3k2r/8/8/8/8/8/8/R3K2R ") + row.side + " KQkq -");
        pos->cnt50 = 33;
        expect_move(pos, row.move, row.text);
        EXPECT_EQ(pos->cnt50, 0);
        EXPECT_EQ(pos->king_sq[pos->stm ^ 1], to_square(move_of(row.move)));
    }
}

TEST(BoardMakeMove, KingsMoveOfOneSquareMovesNoRook)
{
    Position* pos = set_position("r3k2r/8/8/8/8/8/8/R3K2R w KQkq -");
    pos->cnt50 = 5;
    expect_move(pos, "e1f1", "r3k2r/8/8/8/8/8/8/R4K1R b kq -");
    EXPECT_EQ(pos->cnt50, 6);
    EXPECT_EQ(pos->king_sq[White], 5);
}

TEST(BoardMakeMove, ARookCapturedAtHomeTakesTheRightWithIt)
{
    expect_move(
        set_position("r3k2r/8/8/8/8/8/8/R3K2R w KQkq -"), "h1h8", "r3k2R/8/8/8/8/8/8/R3K3 b Qq -");
    expect_move(set_position("r3k2r/8/8/8/4b3/8/8/R3K2R b KQkq -"), "e4h1",
        "r3k2r/8/8/8/8/8/8/R3K2b w Qkq -");
}

TEST(BoardMakeMove, OtherPiecesInTheCornerTakeNoRight)
{
    Position* pos = set_position("r3k3/8/8/8/8/8/8/R3K2R w KQq -");
    expect_move(pos, "h1h8", "r3k2R/8/8/8/8/8/8/R3K3 b Qq -");
    pos = set_position("r3k3/8/8/8/7Q/8/8/R3K2R w KQq -");
    expect_move(pos, "h4h8", "r3k2Q/8/8/8/8/8/8/R3K2R b KQq -");
}

// A lone knight goes from every square to every other, with all rights set by hand: what is left
// tells the rights that die with each square.
TEST(BoardMakeMove, RightsDieWithTheSquaresOfKingsAndRooks)
{
    i32 dying[64] = {};
    dying[square_of("a1")] = 2;
    dying[square_of("e1")] = 3;
    dying[square_of("h1")] = 1;
    dying[square_of("a8")] = 8;
    dying[square_of("e8")] = 12;
    dying[square_of("h8")] = 4;
    for (i32 from = 0; from < 64; ++from) {
        Position* pos = set_position("8/8/8/8/8/8/8/8 w - -");
        put_piece(pos, from, Knight);
        pos->castle = 15;
        set_keys(pos);
        for (i32 to = 0; to < 64; ++to) {
            if (to == from) {
                continue;
            }
            make_move(pos, make_move_code(from, to));
            ASSERT_EQ(pos->castle, 15 & ~(dying[from] | dying[to])) << from << " " << to;
            ASSERT_EQ(pos->key, compute_key(pos));
            unmake_move(pos);
            ASSERT_EQ(pos->castle, 15);
        }
    }
}

TEST(BoardMakeMove, ACapturedKingComesBack)
{
    Position* pos = set_position("4k3/8/8/8/4R3/8/8/4K3 w - -");
    const GameState before = state_of(pos);
    make_move(pos, move_of("e4e8"));
    EXPECT_EQ(pos->king_sq[Black], square_of("e8"));
    EXPECT_EQ(pos->bb[Black][0], 0U);
    EXPECT_EQ(pos->piece_count[Black], 0U);
    EXPECT_EQ(top_record(pos).captured, King);
    EXPECT_EQ(pos->key, compute_key(pos));
    pos->king_sq[Black] = 0;
    unmake_move(pos);
    EXPECT_EQ(difference(state_of(pos), before), "");
}

TEST(BoardMakeMove, LastMoveIsThatOfTheRecordBelow)
{
    Position* pos = set_position(start_text);
    play_moves(pos, "e2e4 e7e5");
    make_null_move(pos);
    EXPECT_EQ(pos->thread->last_move, 0);
    play_moves(pos, "g8f6");
    unmake_move(pos);
    EXPECT_EQ(pos->thread->last_move, 0);
    unmake_null_move(pos);
    EXPECT_EQ(pos->thread->last_move, move_of("e7e5"));
    unmake_move(pos);
    EXPECT_EQ(pos->thread->last_move, move_of("e2e4"));
    unmake_move(pos);
    EXPECT_EQ(pos->thread->last_move, 0);
    EXPECT_EQ(pos->thread->undo_count, 0);
    EXPECT_EQ(pos->thread->ply, 1);
}

// ---- Null moves

TEST(BoardMakeMove, NullMovePassesTheTurn)
{
    Position* pos = set_position("4k3/8/8/8/3pP3/8/8/4K3 b - e3");
    pos->cnt50 = 21;
    const GameState before = state_of(pos);
    make_null_move(pos);
    EXPECT_EQ(fen_of(pos), "4k3/8/8/8/3pP3/8/8/4K3 w - -");
    EXPECT_EQ(pos->key, keys_from_text(fen_of(pos)).key);
    EXPECT_EQ(pos->cnt50, 0);
    EXPECT_EQ(pos->thread->last_move, 0);
    EXPECT_EQ(pos->thread->undo_count, 1);
    EXPECT_EQ(pos->thread->ply, 2);
    unmake_null_move(pos);
    EXPECT_EQ(difference(state_of(pos), before), "");
    EXPECT_EQ(pos->cnt50, 21);
}

TEST(BoardMakeMove, NullMoveRecordLeavesThePawnKeyUnwritten)
{
    Position* pos = set_position("r3k2r/p7/8/8/3pP3/8/8/R3K2R b KQkq e3");
    pos->cnt50 = 2;
    const u64 key = pos->key;
    UndoRecord& record = pos->thread->undo[0];
    memset(&record, 0xaa, sizeof record);
    make_null_move(pos);
    EXPECT_EQ(record.pawn_key, 0xaaaaaaaaaaaaaaaaULL);
    EXPECT_EQ(record.key, key);
    EXPECT_EQ(record.move, 0);
    EXPECT_EQ(record.captured, 0);
    EXPECT_EQ(record.ep_square, square_of("e3"));
    EXPECT_EQ(record.cnt50, 2);
    EXPECT_EQ(record.castle, 15);
    unmake_null_move(pos);
}

TEST(BoardMakeMove, NullListIsOneEntryWithoutAMove)
{
    Position* pos = set_position(start_text);
    SearchThread* thread = pos->thread;
    PlyRecord* rec = &thread->ply_rec[1];
    MoveEntry* slot = rec->list_start;
    slot[0] = { 77, 88, Knight, Rook + 8 };
    slot[1] = { 66, 99, Queen, 0 };
    set_null_list(pos);
    EXPECT_EQ(rec->list_cursor, slot);
    EXPECT_EQ(slot[0].move, 0);
    EXPECT_EQ(slot[1].move, EndOfList);
    EXPECT_EQ(rec[1].list_start, slot + 2);
    EXPECT_EQ(rec[2].list_start, slot + 3);
    // The rest of both slots stays as it was.
    EXPECT_EQ(slot[0].score, 88);
    EXPECT_EQ(slot[0].moved, Knight);
    EXPECT_EQ(slot[0].captured, Rook + 8);
    EXPECT_EQ(slot[1].score, 99);
    EXPECT_EQ(slot[1].moved, Queen);
}

// ---- Long games

// Whether pos can pass without the king standing in check.
static bool can_pass(const Position* pos)
{
    return !is_attacked(pos, pos->king_sq[pos->stm], pos->stm ^ 1);
}

static void play_game_and_take_it_back(const std::string& text, u64* state, i32 plies)
{
    Position* pos = set_position(text);
    std::vector<GameState> states;
    for (i32 ply = 0; ply < plies; ++ply) {
        states.push_back(state_of(pos));
        if (next_random(state, 10) == 0 && can_pass(pos)) {
            make_null_move(pos);
        } else if (play_random_moves(pos, state, 1) == 0) {
            states.pop_back();
            break;
        }
        ASSERT_TRUE(fields_agree(pos)) << fen_of(pos);
        const KeyPair keys = keys_from_text(fen_of(pos));
        ASSERT_EQ(pos->key, keys.key) << fen_of(pos);
        ASSERT_EQ(pos->pawn_key, keys.pawn_key) << fen_of(pos);
    }
    while (!states.empty()) {
        if (pos->thread->last_move == NoMove) {
            unmake_null_move(pos);
        } else {
            unmake_move(pos);
        }
        ASSERT_EQ(difference(state_of(pos), states.back()), "") << fen_of(pos);
        states.pop_back();
    }
    EXPECT_EQ(pos->thread->undo_count, 0);
}

TEST(BoardMakeMove, RandomGamesAreTakenBackFieldByField)
{
    u64 state = 99;
    for (i32 game = 0; game < 20; ++game) {
        play_game_and_take_it_back(start_text, &state, 300);
    }
    for (const std::string& text : sample_positions(1)) {
        play_game_and_take_it_back(text, &state, 60);
    }
}

TEST(BoardMakeMove, EveryLegalMoveIsTakenBackFieldByField)
{
    for (const std::string& text : sample_positions(1)) {
        Position* pos = set_position(text);
        const GameState before = state_of(pos);
        for (const Move move : legal_moves(pos)) {
            make_move(pos, move);
            ASSERT_EQ(pos->key, keys_from_text(fen_of(pos)).key) << text << " " << text_of(move);
            unmake_move(pos);
            ASSERT_EQ(difference(state_of(pos), before), "") << text << " " << text_of(move);
        }
    }
}

// ---- Games longer than the stack

// Knights and kings around locked pawns: a game that can go on for ever.
static constexpr char locked_text[] = "1n2k1n1/7p/p1p1p3/P1P1P3/8/8/7P/1N2K1N1 w - -";

// Plays random moves of the pieces that take nothing.
static void shuffle_pieces(Position* pos, i32 plies, u64* state)
{
    for (i32 i = 0; i < plies; ++i) {
        std::vector<Move> quiet;
        for (const Move move : legal_moves(pos)) {
            if (pos->board[to_square(move)] == 0 && (pos->board[from_square(move)] & 7) != Pawn) {
                quiet.push_back(move);
            }
        }
        ASSERT_FALSE(quiet.empty());
        make_game_move(pos, quiet[next_random(state, static_cast<u32>(quiet.size()))]);
    }
}

TEST(BoardMakeMove, LongGamesDropTheirOldestRecords)
{
    Position* pos = set_position(locked_text);
    SearchThread* thread = pos->thread;
    std::vector<u64> keys;
    std::vector<Move> moves;
    u64 state = 3;
    for (i32 ply = 0; ply < 3000; ++ply) {
        keys.push_back(pos->key);
        shuffle_pieces(pos, 1, &state);
        moves.push_back(thread->last_move);
        ASSERT_LE(thread->undo_count, game_limit);
        ASSERT_EQ(thread->undo_count & 1, (ply + 1) & 1) << ply;
        ASSERT_EQ(thread->undo[thread->undo_count].move, 0);
        const i32 kept = std::min(thread->undo_count + 0, 300);
        for (i32 back = 1; back <= kept; back += 7) {
            const size_t at = keys.size() - static_cast<size_t>(back);
            ASSERT_EQ(thread->undo[thread->undo_count - back].key, keys[at]) << ply << " " << back;
            ASSERT_EQ(thread->undo[thread->undo_count - back].move, moves[at]);
        }
    }
    EXPECT_TRUE(fields_agree(pos));
    EXPECT_GE(thread->undo_count, game_keep);
}

TEST(BoardMakeMove, GameMoveDropsNothingBelowTheLimit)
{
    Position* pos = set_position(locked_text);
    SearchThread* thread = pos->thread;
    u64 state = 4;
    shuffle_pieces(pos, game_limit, &state);
    EXPECT_EQ(thread->undo_count, game_limit);
    EXPECT_EQ(thread->undo[0].key, keys_from_text(locked_text).key);
    shuffle_pieces(pos, 1, &state);
    EXPECT_EQ(thread->undo_count, game_keep + 1);
}

TEST(BoardMakeMove, AGameThatDroppedRecordsIsTakenBackAsFarAsItIsKept)
{
    Position* pos = set_position(locked_text);
    SearchThread* thread = pos->thread;
    u64 state = 6;
    shuffle_pieces(pos, 1500, &state);
    while (thread->undo_count > 0) {
        unmake_move(pos);
        ASSERT_TRUE(fields_agree(pos));
    }
    EXPECT_EQ(thread->last_move, 0);
}

TEST(BoardMakeMove, RepetitionIsFoundAcrossTheDroppedRecords)
{
    Position* pos = set_position(locked_text);
    u64 state = 8;
    shuffle_pieces(pos, game_limit - 5, &state);
    // As if a capture had just been made; a piece of each side then goes to and fro twice, over
    // the limit.
    pos->cnt50 = 0;
    std::vector<Move> round;
    for (i32 side = 0; side < 2; ++side) {
        for (const Move move : legal_moves(pos)) {
            if ((pos->board[from_square(move)] & 7) != Pawn && pos->board[to_square(move)] == 0) {
                round.push_back(move);
                break;
            }
        }
        ASSERT_EQ(round.size(), static_cast<size_t>(side + 1));
        make_game_move(pos, round.back());
    }
    for (i32 lap = 0; lap < 2; ++lap) {
        EXPECT_FALSE(is_draw_by_rule(pos, 0));
        for (i32 i = 0; i < 4; ++i) {
            const Move move = round[static_cast<size_t>(i & 1)];
            const i32 from = from_square(move);
            const i32 to = to_square(move);
            make_game_move(pos, i < 2 ? make_move_code(to, from) : make_move_code(from, to));
        }
    }
    EXPECT_LT(pos->thread->undo_count, game_limit);
    EXPECT_TRUE(is_draw_by_rule(pos, 0));
}

TEST(BoardMakeMove, GameMoveClearsTheMoveBehindTheLastRecord)
{
    Position* pos = set_position(start_text);
    pos->thread->undo[1].move = 99;
    pos->thread->undo[2].move = 98;
    make_game_move(pos, move_of("e2e4"));
    EXPECT_EQ(pos->thread->undo[1].move, 0);
    EXPECT_EQ(pos->thread->undo[2].move, 98);
}

// ---- Moves out of texts

struct MakeableRow {
    const char* text;
    const char* move;
    bool makeable;
};

static void expect_makeable(const MakeableRow& row)
{
    const Position* pos = set_position(row.text);
    const Move move = move_of(row.move);
    EXPECT_EQ(
        is_makeable(pos, from_square(move), to_square(move), move & PromotionMask), row.makeable)
        << row.text << " " << row.move;
}

TEST(BoardMakeMove, MovesThatLeaveASoundBoardAreMakeable)
{
    static constexpr MakeableRow rows[] = {
        { start_text, "e2e4", true },
        { start_text, "g1f3", true },
        // The rules of chess are not asked.
        { start_text, "a1h8", true },
        { start_text, "e1e5", true },
        { start_text, "a2h7", true },
        { start_text, "e7e5", false },
        { start_text, "e4e5", false },
        { start_text, "e2e2", false },
        { start_text, "d1e1", false },
        { start_text, "d1e8", false },
        { start_text, "g1f3q", false },
        { start_text, "e2e4q", false },
        { start_text, "e2e3n", false },
        { "4k3/P7/8/8/8/8/8/4K3 w - -", "a7a8q", true },
        { "4k3/P7/8/8/8/8/8/4K3 w - -", "a7a8n", true },
        { "4k3/P7/8/8/8/8/8/4K3 w - -", "a7a8", true },
        { "4k3/P7/8/8/8/8/8/4K3 w - -", "a7a6q", false },
        { "4k3/8/8/8/8/8/p7/4K3 b - -", "a2a1r", true },
        { "4k3/8/8/8/8/8/p7/4K3 b - -", "a2a8r", false },
    };
    for (const MakeableRow& row : rows) {
        expect_makeable(row);
    }
}

TEST(BoardMakeMove, CastlingIsMakeableWithTheRookInItsPlace)
{
    static constexpr MakeableRow rows[] = {
        { "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -", "e1g1", true },
        { "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -", "e1c1", true },
        { "r3k2r/8/8/8/8/8/8/R3K2R b KQkq -", "e8c8", true },
        { "r3k2r/8/8/8/8/8/8/R3K3 w Qkq -", "e1g1", false },
        { "r3k2r/8/8/8/8/8/8/R3K2n w Qkq -", "e1g1", false },
        { "r3k2r/8/8/8/8/8/8/R3KN1R w KQkq -", "e1g1", false },
        { "r3k2r/8/8/8/8/8/8/R3K1nR w KQkq -", "e1g1", false },
        { "r3k2r/8/8/8/8/8/8/R2K3R w kq -", "d1f1", false },
        { "4k3/8/8/8/8/8/8/3K2R1 w - -", "d1f1", false },
        { "4k3/8/8/8/8/8/8/R1K5 w - -", "c1a1", false },
        { "8/8/4k2r/8/8/8/8/4K3 b - -", "e6g6", false },
        // Two squares on in number, but round the edge of the board.
        { "4k3/8/8/8/8/8/8/7K w - -", "h1b2", false },
        { "4k3/8/8/8/8/8/1K6/8 w - -", "b2h1", false },
    };
    for (const MakeableRow& row : rows) {
        expect_makeable(row);
    }
}

TEST(BoardMakeMove, EnPassantIsMakeableWithAPawnBehind)
{
    static constexpr MakeableRow rows[] = {
        { "4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5d6", true },
        { "4k3/8/8/3nP3/8/8/8/4K3 w - d6", "e5d6", false },
        { "4k3/8/8/4P3/8/8/8/4K3 w - d6", "e5d6", false },
        { "4k3/8/8/8/8/8/4P3/4K3 w - e3", "e2e3", false },
        { "4k3/8/8/8/8/8/4P3/4K3 w - a1", "e2a1", false },
        { "4k3/8/8/8/8/8/p7/4K3 b - h8", "a2h8", false },
        { "4k3/8/8/3pP3/8/8/8/4K3 w - d6", "e5d6q", false },
        // The square passed by a double step has to be empty.
        { "4k3/8/8/8/8/4n3/4P3/4K3 w - -", "e2e4", false },
        { "4k3/8/8/8/8/8/4P3/4K3 w - e4", "e2e4", true },
    };
    for (const MakeableRow& row : rows) {
        expect_makeable(row);
    }
}

TEST(BoardMakeMove, SquaresAndFlagsBeyondTheirRangesAreNotMakeable)
{
    const Position* pos = set_position(start_text);
    for (const i32 bad : { -1, -64, 64, 65, 200, 255, 1 << 20 }) {
        EXPECT_FALSE(is_makeable(pos, 12, bad, 0)) << bad;
        EXPECT_FALSE(is_makeable(pos, bad, 28, 0)) << bad;
    }
    pos = set_position("4k3/P7/8/8/8/8/8/4K3 w - -");
    for (const i32 flags : { 1, 63, 256, 192, 64 + 16384, 16384 + 32768, 0xc0c0, 0xffff }) {
        EXPECT_FALSE(is_makeable(pos, 48, 56, static_cast<Move>(flags))) << flags;
    }
}

TEST(BoardMakeMove, ADoubleStepOntoTheEnPassantSquareInventsNoPawn)
{
    expect_move(
        set_position("4k3/8/8/8/8/8/4P3/4K3 w - e4"), "e2e4", "4k3/8/8/8/4P3/8/8/4K3 b - e3");
}

TEST(BoardMakeMove, LegalMovesAreMakeable)
{
    u64 state = 21;
    for (const std::string& text : sample_positions(3)) {
        Position* pos = set_position(text);
        for (i32 ply = 0; ply < 40; ++ply) {
            for (const Move move : legal_moves(pos)) {
                ASSERT_TRUE(
                    is_makeable(pos, from_square(move), to_square(move), move & PromotionMask))
                    << fen_of(pos) << " " << text_of(move);
            }
            if (play_random_moves(pos, &state, 1) == 0) {
                break;
            }
        }
    }
}

// Moves of any kind on boards of any kind: what is makeable leaves all fields in agreement, and
// is taken back. With several kings a side's king_sq follows the one moved last.
static void play_anything(Position* pos, u64* state, i32 tries)
{
    static constexpr Move flags[8] = { 0, 0, 0, 0, PromoteQueen, PromoteKnight, PromoteBishop,
        PromoteRook };
    for (i32 i = 0; i < tries; ++i) {
        const i32 from = static_cast<i32>(next_random(state, 66)) - 1;
        const i32 to = static_cast<i32>(next_random(state, 66)) - 1;
        const Move flag = flags[next_random(state, 8)];
        if (!is_makeable(pos, from, to, flag)) {
            continue;
        }
        const GameState before = state_of(pos);
        const Move move = make_move_code(from, to) | flag;
        make_move(pos, move);
        ASSERT_TRUE(fields_agree(pos)) << fen_of(&before.pos) << " " << text_of(move);
        ASSERT_LE(pos->ep_square, 64);
        unmake_move(pos);
        GameState after = state_of(pos);
        for (i32 side = White; side <= Black; ++side) {
            if (popcount(pos->bb[side][King]) > 1) {
                after.pos.king_sq[side] = before.pos.king_sq[side];
            }
        }
        ASSERT_EQ(difference(after, before), "") << fen_of(pos) << " " << text_of(move);
        if (next_random(state, 3) == 0) {
            make_game_move(pos, move);
        }
    }
}

TEST(BoardMakeMove, WhateverIsMakeableKeepsAllFieldsInAgreement)
{
    Position* pos = set_position(start_text);
    u64 state = 31;
    for (i32 round = 0; round < 2000 && !HasFatalFailure(); ++round) {
        set_random_board(pos, &state, static_cast<i32>(1 + next_random(&state, 80)));
        ASSERT_TRUE(fields_agree(pos)) << fen_of(pos);
        play_anything(pos, &state, 150);
    }
}

// The position's text form, its keys and derived fields, and the checks that guard a search.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "board_support.h"
#include "base/output.h"
#include "board/defect.h"
#include "search/move_lists.h"
#include "search/thread.h"

static constexpr char start_text[] = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
static constexpr char all_castling[] = "r3k2r/8/8/8/8/8/8/R3K2R";

// Sets a position and expects that its text was taken without a word.
static Position* set_clean(const std::string& text)
{
    Position* pos = &test_thread()->pos;
    i32 result = -1;
    EXPECT_EQ(capture_output([&]() { result = read_position(pos, text.c_str()); }), "") << text;
    EXPECT_EQ(result, 0) << text;
    return pos;
}

// ---- parse_epd

TEST(BoardPosition, StartTextFillsEveryField)
{
    const Position* pos = set_clean(start_text);
    EXPECT_EQ(pos->castle, 15);
    EXPECT_EQ(pos->ep_square, 64);
    EXPECT_EQ(pos->stm, White);
    EXPECT_EQ(pos->cnt50, 0);
    EXPECT_EQ(pos->phase_mtl[White], 32);
    EXPECT_EQ(pos->phase_mtl[Black], 32);
    EXPECT_EQ(pos->piece_count[White], 0x12228U);
    EXPECT_EQ(pos->piece_count[Black], 0x12228U);
    EXPECT_EQ(pos->king_sq[White], 4);
    EXPECT_EQ(pos->king_sq[Black], 60);
    EXPECT_EQ(pos->bb[White][0], 0xffffU);
    EXPECT_EQ(pos->bb[Black][Pawn], 0x00ff000000000000U);
    EXPECT_EQ(pos->board[0], Rook);
    EXPECT_EQ(pos->board[3], Queen);
    EXPECT_EQ(pos->board[59], Queen + 8);
    EXPECT_EQ(pos->board[57], Knight + 8);
    EXPECT_TRUE(fields_agree(pos));
    EXPECT_EQ(position_defect(const_cast<Position*>(pos)), nullptr);
}

TEST(BoardPosition, EveryPieceTypeIsCountedAndWeighed)
{
    struct Row {
        const char* letter;
        i32 code;
        u32 count;
        i32 phase;
    };
    static constexpr Row rows[] = { { "P", 1, 1, 0 }, { "N", 2, 16, 3 }, { "B", 3, 256, 3 },
        { "R", 4, 4096, 5 }, { "Q", 5, 65536, 10 }, { "K", 6, 0, 0 }, { "p", 9, 1, 0 },
        { "n", 10, 16, 3 }, { "b", 11, 256, 3 }, { "r", 12, 4096, 5 }, { "q", 13, 65536, 10 },
        { "k", 14, 0, 0 } };
    for (const Row& row : rows) {
        const i32 side = row.code / 8;
        const Position* pos = set_clean(std::string("8/8/8/3") + row.letter + "4/8/8/8/8 w - -");
        EXPECT_EQ(pos->board[35], row.code);
        EXPECT_EQ(pos->bb[side][0], bit(35));
        EXPECT_EQ(pos->bb[side][row.code % 8], bit(35));
        EXPECT_EQ(pos->bb[side ^ 1][0], 0U);
        EXPECT_EQ(pos->piece_count[side], row.count);
        EXPECT_EQ(pos->piece_count[side ^ 1], 0U);
        EXPECT_EQ(pos->phase_mtl[side], row.phase);
        EXPECT_EQ(pos->pawn_key, row.code % 8 == Pawn ? zobrist[row.code][35] : 0);
        EXPECT_TRUE(fields_agree(pos));
    }
}

TEST(BoardPosition, CountersOfATextAreIgnored)
{
    const u64 key = set_clean("r3k2r/8/8/8/8/8/4P3/R3K2R b KQkq -")->key;
    const Position* pos = set_clean("r3k2r/8/8/8/8/8/4P3/R3K2R b KQkq - 37 81");
    EXPECT_EQ(pos->cnt50, 0);
    EXPECT_EQ(pos->key, key);
}

TEST(BoardPosition, EmptyTextIsAnEmptyBoard)
{
    set_clean(start_text);
    const Position* pos = set_clean("");
    EXPECT_EQ(pos->bb[White][0] | pos->bb[Black][0], 0U);
    EXPECT_EQ(pos->castle, 0);
    EXPECT_EQ(pos->ep_square, 64);
    EXPECT_TRUE(fields_agree(pos));
}

TEST(BoardPosition, LostRookDropsTheRightAndReports)
{
    Position* pos = &test_thread()->pos;
    i32 result = 0;
    const std::string output = capture_output([&]() {
        result = read_position(pos, "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBN1 w KQkq - 3 17");
    });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(output, "Illegal EPD -  3 17\n");
    EXPECT_EQ(pos->castle, 14);
    EXPECT_EQ(pos->key, compute_key(pos));
    EXPECT_EQ(position_defect(pos), nullptr);
}

TEST(BoardPosition, EachRightNeedsItsKingAndRookAtHome)
{
    struct Row {
        const char* board;
        i32 castle;
    };
    static constexpr Row rows[] = {
        { "r3k2r/8/8/8/8/8/8/R3K3", 14 },
        { "r3k2r/8/8/8/8/8/8/4K2R", 13 },
        { "r3k3/8/8/8/8/8/8/R3K2R", 11 },
        { "4k2r/8/8/8/8/8/8/R3K2R", 7 },
        { "r3k2r/8/8/8/8/8/8/R2K3R", 12 },
        { "r4k1r/8/8/8/8/8/8/R3K2R", 3 },
        { "r3k2r/8/8/8/8/8/8/R3K2r", 14 },
        { "R3k2r/8/8/8/8/8/8/R3K2R", 7 },
        { "8/8/8/8/8/8/8/8", 0 },
    };
    Position* pos = &test_thread()->pos;
    for (const Row& row : rows) {
        i32 result = 0;
        const std::string text = std::string(row.board) + " w KQkq -";
        EXPECT_EQ(capture_output([&]() { result = read_position(pos, text.c_str()); }),
            "Illegal EPD - \n")
            << text;
        EXPECT_EQ(result, -1) << text;
        EXPECT_EQ(pos->castle, row.castle) << text;
        EXPECT_TRUE(fields_agree(pos)) << text;
    }
}

TEST(BoardPosition, CastlingFieldReplacesTheRights)
{
    struct Row {
        const char* fields;
        i32 castle;
    };
    static constexpr Row rows[] = { { " w - -", 0 }, { " w", 0 }, { "", 0 }, { " w K -", 1 },
        { " w Q -", 2 }, { " w k -", 4 }, { " w q -", 8 }, { " w qkQK -", 15 }, { " w KK -", 1 },
        { " w xK?q1 -", 9 }, { " w   Kk   -", 5 }, { " w - KQkq", 0 } };
    for (const Row& row : rows) {
        EXPECT_EQ(set_clean(std::string(all_castling) + row.fields)->castle, row.castle)
            << row.fields;
    }
}

TEST(BoardPosition, EnPassantFieldIsTakenAsItStands)
{
    struct Row {
        const char* field;
        i32 square;
    };
    static constexpr Row rows[] = { { "-", 64 }, { "e3", 20 }, { "d6", 43 }, { "a1", 0 },
        { "h8", 63 }, { "e", 4 }, { "5", 64 }, { "3e", 4 }, { "-e3x", 20 }, { "e9", 4 },
        { "E3", 64 }, { "h88", 64 }, { "", 64 }, { "e3 4 9", 20 } };
    for (const Row& row : rows) {
        EXPECT_EQ(
            set_clean(std::string("4k3/8/8/8/8/8/8/4K3 b - ") + row.field)->ep_square, row.square)
            << row.field;
    }
}

TEST(BoardPosition, OtherSideLetterLeavesTheSide)
{
    EXPECT_EQ(set_clean("4k3/8/8/8/8/8/8/4K3 b - -")->stm, Black);
    EXPECT_EQ(set_clean("4k3/8/8/8/8/8/8/4K3 x - -")->stm, Black);
    EXPECT_EQ(set_clean("4k3/8/8/8/8/8/8/4K3")->stm, Black);
    EXPECT_EQ(set_clean("4k3/8/8/8/8/8/8/4K3  w - -")->stm, Black);
    EXPECT_EQ(set_clean("4k3/8/8/8/8/8/8/4K3 w - -")->stm, White);
    EXPECT_EQ(set_clean("4k3/8/8/8/8/8/8/4K3 W - -")->stm, White);
}

TEST(BoardPosition, StrangeCharactersOfThePieceFieldAreSkipped)
{
    const std::string board = fen_of(set_clean("4k3/8/8/3p4/8/8/8/4K3 w - -"));
    EXPECT_EQ(fen_of(set_clean("4k3/8/x8/3!p4/8/0?8/9\x80\xff"
                               "8/4K3 w - -")),
        board);
}

TEST(BoardPosition, ShortRanksLeaveTheRestEmpty)
{
    EXPECT_EQ(fen_of(set_clean("k/p//4K w - -")), "k7/p7/8/4K3/8/8/8/8 w - -");
}

TEST(BoardPosition, PiecesBeyondTheBoardAreLeftOut)
{
    // Ten pieces on the highest rank, and a ninth rank below the lowest.
    Position* pos = set_clean("kqqqqqqqqq/8/8/8/8/8/8/K7/QQQQQQQQ w - -");
    EXPECT_EQ(fen_of(pos), "kqqqqqqq/8/8/8/8/8/8/K7 w - -");
    EXPECT_TRUE(fields_agree(pos));
    // Further down a rank that is too long runs on into the one above.
    pos = set_clean("k7/8/PPPPPPPPN/8/8/8/8/K7 w - -");
    EXPECT_EQ(fen_of(pos), "k7/N7/PPPPPPPP/8/8/8/8/K7 w - -");
    EXPECT_TRUE(fields_agree(pos));
}

TEST(BoardPosition, ASecondPieceOnASquareReplacesTheFirst)
{
    // The ninth piece of the seventh rank falls on a8, where a king stood.
    const Position* pos = set_clean("k7/pppppppprr/8/8/8/8/8/K7 w - -");
    EXPECT_EQ(fen_of(pos), "rr6/pppppppp/8/8/8/8/8/K7 w - -");
    EXPECT_EQ(pos->bb[Black][King], 0U);
    EXPECT_EQ(pos->piece_count[Black], 0x2008U);
    EXPECT_TRUE(fields_agree(pos));
}

TEST(BoardPosition, OneOfTwoKingsReplacedLeavesTheOther)
{
    const Position* pos = set_clean("7k/k7/ppppppppr/8/8/8/8/K7 w - -");
    EXPECT_EQ(fen_of(pos), "7k/r7/pppppppp/8/8/8/8/K7 w - -");
    EXPECT_EQ(pos->king_sq[Black], 63);
    EXPECT_TRUE(fields_agree(pos));
}

TEST(BoardPosition, WithoutAKingItsSquareStaysTheOldOne)
{
    set_clean("8/8/2k5/8/8/5K2/8/8 w - -");
    const Position* pos = set_clean("8/8/8/3q4/8/8/8/8 w - -");
    EXPECT_EQ(pos->king_sq[White], square_of("f3"));
    EXPECT_EQ(pos->king_sq[Black], square_of("c6"));
}

TEST(BoardPosition, OfSeveralKingsTheLastOneCounts)
{
    const Position* pos = set_clean("7k/8/8/k7/8/8/8/K6K w - -");
    EXPECT_EQ(pos->king_sq[White], square_of("h1"));
    EXPECT_EQ(pos->king_sq[Black], square_of("a5"));
    EXPECT_EQ(popcount(pos->bb[Black][King]), 2);
}

TEST(BoardPosition, ATextStartsTheGameAnew)
{
    for (const char* text : { start_text, "4k3/8/8/8/8/8/8/4K3 w KQkq -" }) {
        Position* pos = set_position(start_text);
        play_moves(pos, "e2e4 e7e5 g1f3 b8c6");
        pos->spare = 5;
        const SearchThread* thread = pos->thread;
        EXPECT_EQ(thread->undo_count, 4);
        capture_output([&]() { read_position(pos, text); });
        EXPECT_EQ(thread->ply, 1);
        EXPECT_EQ(thread->undo_count, 0);
        EXPECT_EQ(thread->last_move, 0);
        EXPECT_EQ(pos->cnt50, 0);
        EXPECT_EQ(pos->spare, 0U);
        for (i32 i = 0; i < 2; ++i) {
            EXPECT_EQ(thread->undo[i].move, 0);
            EXPECT_EQ(thread->undo[i].key, 0U);
        }
        // Only the head of the stack is cleared.
        EXPECT_EQ(thread->undo[2].move, move_of("g1f3"));
    }
}

// ---- Keys

TEST(BoardPosition, KeyIsMadeOfPiecesSquareRightsAndSide)
{
    const Position* pos = set_clean("r3k3/8/8/8/3pP3/8/8/4K3 b q e3");
    u64 key = zobrist[Rook + 8][56] ^ zobrist[King + 8][60] ^ zobrist[Pawn + 8][27]
        ^ zobrist[Pawn][28] ^ zobrist[King][4] ^ zobrist[0][20] ^ zobrist[0][8];
    EXPECT_EQ(pos->key, (key & ~1ULL) + 1);
    EXPECT_EQ(pos->pawn_key, zobrist[Pawn + 8][27] ^ zobrist[Pawn][28]);
    // The value 0 of the rights has an entry too.
    pos = set_clean("8/8/8/8/8/8/8/4K3 w - -");
    EXPECT_EQ(pos->key, (zobrist[King][4] ^ zobrist[0][0]) & ~1ULL);
    EXPECT_EQ(pos->pawn_key, 0U);
}

TEST(BoardPosition, SideToMoveIsBitZeroOfTheKeyAlone)
{
    for (const std::string& text : sample_positions(7)) {
        Position* pos = set_position(text);
        const u64 key = pos->key;
        EXPECT_EQ(key & 1, pos->stm);
        pos->stm ^= 1;
        EXPECT_EQ(compute_key(pos) ^ key, 1U) << text;
    }
}

TEST(BoardPosition, EnPassantSquareIsInTheKeyWithoutACapture)
{
    const u64 plain = set_clean("4k3/8/8/8/4P3/8/8/4K3 b - -")->key;
    const u64 with_square = set_clean("4k3/8/8/8/4P3/8/8/4K3 b - e3")->key;
    EXPECT_EQ((plain ^ with_square) & ~1ULL, zobrist[0][20] & ~1ULL);
}

TEST(BoardPosition, HalfMoveClockIsNotInTheKey)
{
    Position* pos = set_clean(start_text);
    const u64 key = pos->key;
    pos->cnt50 = 40;
    EXPECT_EQ(compute_key(pos), key);
}

// The parts of the owner stay as they are.
TEST(BoardPosition, CopiedPositionIsTheOneThatItsTextGives)
{
    Position* pos = set_position("r3k2r/8/8/3pP3/8/8/8/R3K2R w Kq d6");
    const Position wanted = *pos;
    u64 state = 3;
    play_random_moves(set_position(start_text), &state, 9);
    Position other = wanted;
    other.stack = nullptr;
    other.thread = nullptr;
    copy_position(pos, &other);
    EXPECT_EQ(fen_of(pos), fen_of(&wanted));
    EXPECT_TRUE(fields_agree(pos));
    EXPECT_EQ(pos->stack, wanted.stack);
    EXPECT_EQ(pos->thread, wanted.thread);
    EXPECT_EQ(pos->cnt50, 0);
    EXPECT_EQ(pos->stack->undo_count, 0);
    EXPECT_EQ(pos->stack->ply, 1);
    EXPECT_EQ(pos->stack->last_move, NoMove);
    EXPECT_EQ(pos->stack->undo[0].move, NoMove);
    EXPECT_EQ(pos->stack->undo[1].move, NoMove);
}

// ---- make_fen and print_board

// The position text made from the ranks that changed, beside the one made from all.
TEST(BoardPosition, NextFenIsTheFenWhateverChanged)
{
    u64 state = 11;
    RankTexts ranks;
    for (i32 game = 0; game < 20; ++game) {
        Position* pos = set_position(game % 2 == 0
                ? start_text
                : "r3k2r/pPppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -");
        // Castling, promotions and positions that are passed over among them.
        for (i32 step = 0; step < 100; ++step) {
            char text[fen_size];
            const char* end = make_next_fen(pos, &ranks, text);
            ASSERT_EQ(text, fen_of(pos));
            ASSERT_EQ(end, text + strlen(text));
            play_random_moves(pos, &state, 1 + static_cast<i32>(next_random(&state, 3)));
        }
    }
}

TEST(BoardPosition, TextOfAPositionGivesTheTextBack)
{
    for (const std::string& text : sample_positions(1)) {
        EXPECT_EQ(fen_of(set_position(text)), text);
    }
    for (const char* text : { "8/8/8/8/8/8/8/8 w - -", "k6K/1p6/8/8/8/8/8/8 b - a6",
             "r3k2r/8/8/8/8/8/8/R3K2R w Kq -", "QQQQQQQQ/qqqqqqqq/1R1R1R1R/7b/B7/8/8/8 b - h3" }) {
        EXPECT_EQ(fen_of(set_clean(text)), text);
    }
}

TEST(BoardPosition, BoardViewShowsBlackPawnsAsO)
{
    const Position* pos = set_clean("r1bqk2r/pp6/8/2pP4/8/8/PN6/R3K1BQ w Qk c6");
    EXPECT_EQ(capture_output([&]() { print_board(pos); }),
        "r1bqk2r/pp6/8/2pP4/8/8/PN6/R3K1BQ w Qk c6\n"
        "  r + b q k + - r\n"
        "  o o + - + - + -\n"
        "  - + - + - + - +\n"
        "  + - o P + - + -\n"
        "  - + - + - + - +\n"
        "  + - + - + - + -\n"
        "  P N - + - + - +\n"
        "  R - + - K - B Q\n"
        "white\n\n");
}

TEST(BoardPosition, BoardViewTellsTheSideAndReachesTheLog)
{
    char folder[] = "/tmp/vesk_test_XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    const Position* pos = set_clean("4k3/8/8/8/8/8/8/4K3 b - -");
    const bool logs = is_logging();
    ASSERT_EQ(open_log(), 1);
    set_logging(true);
    const std::string shown = capture_output([&]() { print_board(pos); });
    set_logging(logs);
    close_log();
    std::ifstream file("vesk.log", std::ios::binary);
    const std::string logged { std::istreambuf_iterator<char>(file), {} };
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
    EXPECT_EQ(shown.substr(shown.size() - 7), "black\n\n");
    EXPECT_EQ(logged, shown);
}

// ---- Records

TEST(BoardPosition, ANewRecordIsReadyForAGame)
{
    test_thread();
    const std::unique_ptr<SearchThread, void (*)(SearchThread*)> thread(
        new_thread_record(17), delete_thread_record);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(thread->thread_id, 17);
    EXPECT_EQ(thread->undo_count, 0);
    EXPECT_EQ(thread->ply, 1);
    EXPECT_EQ(thread->last_move, 0);
    EXPECT_EQ(thread->pos.thread, thread.get());
    EXPECT_EQ(thread->move_store_base, thread->move_store);
    EXPECT_EQ(load(thread->command), CommandIdle);
    for (i32 ply = 0; ply < 2; ++ply) {
        EXPECT_EQ(thread->ply_rec[ply].list_start, &thread->move_store[ply]);
        EXPECT_EQ(thread->ply_rec[ply].list_cursor, &thread->move_store[ply]);
        EXPECT_EQ(thread->move_store[ply].move, EndOfList);
        EXPECT_EQ(thread->move_store[ply].moved, 0);
    }
    EXPECT_EQ(thread->move_store[2].move, 0);
    EXPECT_EQ(thread->undo[undo_size - 1].key, 0U);
    EXPECT_EQ(load(thread->counters[CountNodes]), 0U);
}

TEST(BoardPosition, PiecesArePutAndRemovedWithAllTheirFields)
{
    Position* pos = set_clean("8/8/8/8/8/8/8/8 w - -");
    remove_piece(pos, 9);
    EXPECT_TRUE(fields_agree(pos));
    put_piece(pos, 9, Queen);
    put_piece(pos, 9, King + 8);
    set_keys(pos);
    EXPECT_TRUE(fields_agree(pos));
    EXPECT_EQ(pos->king_sq[Black], 9);
    EXPECT_EQ(pos->phase_mtl[White], 0);
    remove_piece(pos, 9);
    set_keys(pos);
    EXPECT_TRUE(fields_agree(pos));
    EXPECT_EQ(pos->bb[White][0] | pos->bb[Black][0], 0U);
}

// ---- fields_agree and position_defect

TEST(BoardPosition, EveryDisagreementOfAFieldIsSeen)
{
    using Spoil = void (*)(Position*);
    static constexpr Spoil spoils[] = {
        [](Position* pos) { pos->board[20] = Pawn; },
        [](Position* pos) { pos->board[8] = 0; },
        [](Position* pos) { pos->board[20] = 8; },
        [](Position* pos) { pos->board[20] = 7; },
        [](Position* pos) { pos->board[20] = 15; },
        [](Position* pos) { pos->board[20] = 200; },
        [](Position* pos) { pos->bb[White][0] ^= bit(20); },
        [](Position* pos) { pos->bb[Black][Queen] ^= bit(59); },
        [](Position* pos) { pos->bb[Black][King] ^= bit(30); },
        [](Position* pos) { pos->piece_count[White] += 16; },
        [](Position* pos) { pos->piece_count[Black] -= 1; },
        [](Position* pos) { pos->phase_mtl[White] = 31; },
        [](Position* pos) { pos->king_sq[White] = 5; },
        [](Position* pos) { pos->stm = Black; },
        [](Position* pos) { pos->stm = 2; },
        [](Position* pos) { pos->castle = 14; },
        [](Position* pos) { pos->castle = 16; },
        [](Position* pos) { pos->ep_square = 20; },
        [](Position* pos) { pos->ep_square = 65; },
        [](Position* pos) { pos->key ^= 1ULL << 40; },
        [](Position* pos) { pos->pawn_key ^= 2; },
    };
    for (size_t i = 0; i < std::size(spoils); ++i) {
        Position* pos = set_clean(start_text);
        ASSERT_TRUE(fields_agree(pos));
        spoils[i](pos);
        EXPECT_FALSE(fields_agree(pos)) << i;
        EXPECT_NE(position_defect(pos), nullptr) << i;
    }
}

TEST(BoardPosition, AWholeBoardIsEightRanksOfEightSquares)
{
    EXPECT_TRUE(is_whole_board("8/8/8/8/8/8/8/8"));
    EXPECT_TRUE(is_whole_board("rnbqkbnr/pppppppp/8/35/44/4P3/PPPP1PPP/RNBQKBNR"));
    static constexpr std::string_view texts[] = {
        "",
        "8/8/8/8/8/8/8",
        "8/8/8/8/8/8/8/8/",
        "8/8/8/8/8/8/8/8/8",
        "8/8/8/8/9/8/8/8",
        "8/8/8/8/8/7/8/8",
        "8/8/8/8/8/8K/8/8",
        "8/8/8/8/8/7x/8/8",
        "8/8/8/8/8/70/8/8",
    };
    for (const std::string_view text : texts) {
        EXPECT_FALSE(is_whole_board(text)) << text;
    }
    EXPECT_FALSE(is_whole_board(std::string_view("8/8/8/8/8/8/8/7\0", 17))) << "a NUL";
}

TEST(BoardPosition, PositionsThatNoSearchCanPlayAreRefused)
{
    static constexpr const char* texts[] = {
        "8/8/8/8/8/8/8/8 w - -",
        "8/8/8/8/8/8/8/4K3 w - -",
        "4k3/8/8/8/8/8/8/8 b - -",
        "4k3/8/8/8/8/8/8/K3K3 w - -",
        "k3k3/8/8/8/8/8/8/4K3 w - -",
        // The side not to move in check, by each piece.
        "4k3/3P4/8/8/8/8/8/4K3 w - -",
        "4k3/8/3N4/8/8/8/8/4K3 w - -",
        "4k3/8/8/1B6/8/8/8/4K3 w - -",
        "4k3/8/8/8/4R3/8/8/K7 w - -",
        "4k3/8/8/7Q/8/8/8/4K3 w - -",
        "8/8/8/8/8/8/3pk3/4K3 b - -",
        "8/8/8/3kK3/8/8/8/8 w - -",
        // Pawns on the outer ranks.
        "P3k3/8/8/8/8/8/8/4K3 w - -",
        "4k3/8/8/8/8/8/8/p3K3 w - -",
        "4k3/8/8/8/8/8/8/P3K3 w - -",
        "p3k3/8/8/8/8/8/8/4K3 w - -",
        // Seventeen pieces a side.
        "4k3/8/8/8/8/P7/PPPPPPPP/QRBNKBNR w - -",
        "qrbnkbnr/pppppppp/p7/8/8/8/8/4K3 w - -",
        // En-passant squares that a pawn could enter with nothing to take.
        "4k3/8/8/3P4/8/8/8/4K3 w - e6",
        "4k3/8/8/3Pn3/8/8/8/4K3 w - e6",
        "4k3/8/8/3PP3/8/8/8/4K3 w - e6",
        "4k3/8/8/8/8/8/4P3/4K3 w - e3",
        "4k3/8/8/8/8/8/4P3/4K3 w - e4",
        "4k3/8/4n3/3Pp3/8/8/8/4K3 w - e6",
        "4k3/8/8/8/3p4/8/8/4K3 b - e3",
        "4k3/4p3/8/8/8/8/8/4K3 b - e6",
        // The last rank is no place for an en-passant capture.
        "k7/3Pp3/8/8/8/8/8/4K3 w - e8",
        "4k3/8/8/8/8/8/4P1pp/4K3 b - f1",
    };
    for (const char* text : texts) {
        Position* pos = set_clean(text);
        const char* defect = position_defect(pos);
        ASSERT_NE(defect, nullptr) << text;
        EXPECT_GT(strlen(defect), 10U) << text;
        EXPECT_EQ(strpbrk(defect, "\r\n"), nullptr) << text;
    }
}

TEST(BoardPosition, ARightWithoutItsRookIsRefused)
{
    Position* pos = set_clean("4k3/8/8/8/8/8/8/4K3 w - -");
    pos->castle = 1;
    pos->key = compute_key(pos);
    EXPECT_NE(position_defect(pos), nullptr);
}

TEST(BoardPosition, LoosePositionsThatASearchCanPlayAreTaken)
{
    static constexpr const char* texts[] = {
        start_text,
        "4k3/8/8/8/8/8/8/4K3 w - -",
        "k7/8/8/8/8/8/8/K6R b - -",
        // The side to move in check, in double check, mated, stalemated.
        "4k3/8/8/8/4R3/8/8/4K3 b - -",
        "4k3/8/3N4/8/4R3/8/8/K7 b - -",
        "R5k1/5ppp/8/8/8/8/8/K7 b - -",
        "k7/1R6/K7/8/8/8/8/8 b - -",
        // Nine queens a side, fifteen of a kind, fifteen pawns.
        "qqqqkqqq/2q5/8/8/8/8/5Q2/QQQQKQQQ w - -",
        "k7/8/8/8/7K/8/NNNNNNNN/NNNNNNN1 w - -",
        "k7/8/8/PPPPPPP1/PPPPPPPP/8/8/K7 w - -",
        // En passant that can be played, and squares that no pawn can enter.
        "4k3/8/8/3Pp3/8/8/8/4K3 w - e6",
        "4k3/8/8/8/3pP3/8/8/4K3 b - e3",
        "4k3/8/8/8/8/8/8/4K3 w - e6",
        "4k3/8/8/8/4P3/8/8/4K3 b - e3",
        "4k3/8/8/8/4P3/8/8/4K3 b - a1",
        "4k3/8/8/8/4P3/8/8/4K3 w - h8",
        "4k3/8/8/8/4P3/8/8/4K3 w - h1",
        "4k3/8/8/8/4P3/8/8/4K3 b - a8",
    };
    for (const char* text : texts) {
        EXPECT_EQ(position_defect(set_clean(text)), nullptr) << text;
    }
}

TEST(BoardPosition, NoLegalGameReachesARefusedPosition)
{
    u64 state = 11;
    for (const std::string& text : sample_positions(5)) {
        Position* pos = set_position(text);
        for (i32 ply = 0; ply < 60 && play_random_moves(pos, &state, 1) == 1; ++ply) {
            ASSERT_EQ(position_defect(pos), nullptr) << fen_of(pos);
        }
    }
}

// ---- Odd texts

// A text of random characters, most of them such as a position text has.
static std::string random_text(u64* state)
{
    static constexpr char letters[] = "PNBRQKpnbrqkKk12345678/// wb-KQkqabcdefgh36";
    std::string text;
    for (u32 left = next_random(state, 120); left > 0; --left) {
        if (next_random(state, 12) == 0) {
            text += static_cast<char>(1 + next_random(state, 255));
        } else {
            text += letters[next_random(state, sizeof letters - 1)];
        }
    }
    return text;
}

// A good text with a few characters changed, dropped or doubled.
static std::string damaged_text(u64* state, std::string text)
{
    static constexpr char letters[] = "PNBRQKpnbrqk12345678/ wb-KQkqabcdefgh36";
    for (u32 left = 1 + next_random(state, 5); left > 0; --left) {
        const size_t at = next_random(state, static_cast<u32>(text.size()));
        switch (next_random(state, 3)) {
        case 0:
            text[at] = letters[next_random(state, sizeof letters - 1)];
            break;
        case 1:
            text.erase(at, 1);
            break;
        default:
            text.insert(at, text, at, next_random(state, 9));
            break;
        }
    }
    return text;
}

static void expect_sound(Position* pos, const std::string& text)
{
    ASSERT_TRUE(fields_agree(pos)) << text;
    const std::string fen = fen_of(pos);
    ASSERT_LT(fen.size(), 100U) << text;
    const KeyPair keys = keys_from_text(fen);
    ASSERT_EQ(keys.key, pos->key) << text;
    ASSERT_EQ(keys.pawn_key, pos->pawn_key) << text;

    init_move_lists(pos->thread);
    gen_all_moves(pos);
    const std::vector<MoveEntry> entries = entries_of(pos->thread->ply_rec[1].list_start);
    ASSERT_LT(entries.size(), 1126U) << text;
    for (const MoveEntry& entry : entries) {
        ASSERT_EQ(entry.moved, pos->board[from_square(entry.move)]) << text;
        ASSERT_EQ(entry.captured, pos->board[to_square(entry.move)]) << text;
    }
    static_cast<void>(position_defect(pos)); // it must only end
}

TEST(BoardPosition, AnyTextGivesABoardWhoseFieldsAgree)
{
    Position* pos = &test_thread()->pos;
    const std::vector<std::string> texts = sample_positions(10);
    u64 state = 5;
    capture_output([&]() {
        for (i32 round = 0; round < 6000 && !testing::Test::HasFailure(); ++round) {
            const std::string& good = texts[next_random(&state, static_cast<u32>(texts.size()))];
            const std::string text =
                round % 3 == 0 ? random_text(&state) : damaged_text(&state, good);
            parse_epd(pos, text.c_str());
            expect_sound(pos, text);
        }
    });
}

TEST(BoardPosition, VeryLongTextsAreReadToTheirEnd)
{
    Position* pos = &test_thread()->pos;
    const std::string pieces(20000, 'Q');
    const std::string ranks(20000, '/');
    const std::string digits(20000, '8');
    for (const std::string& text : { pieces, ranks + "k", digits + "k", "/" + pieces + " w",
             "4k3/8 w " + pieces, "4k3/8 w - " + digits, "4k3/8 w - e" + digits }) {
        capture_output([&]() { read_position(pos, text.c_str()); });
        EXPECT_TRUE(fields_agree(pos));
    }
    std::string rest = " " + std::string(19000, 'z');
    const std::string output =
        capture_output([&]() { read_position(pos, ("4k3/8 w K -" + rest).c_str()); });
    EXPECT_EQ(output.substr(0, 20), "Illegal EPD -  zzzzz");
}

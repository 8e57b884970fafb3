// The Polyglot format: constants, keys, records, codes of moves.
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "book_support.h"

struct BookPolyglot : BookTest {
};

static u64 key_of(const std::string& fen)
{
    return book_key(set_position(fen));
}

// The text with its en-passant field emptied.
static std::string without_ep(const std::string& fen)
{
    std::istringstream fields(fen);
    std::string board;
    std::string side;
    std::string castle;
    fields >> board >> side >> castle;
    return board + " " + side + " " + castle + " -";
}

TEST_F(BookPolyglot, ConstantsAreThePublishedOnes)
{
    const std::vector<std::string> lines = read_lines("random64.txt");
    ASSERT_EQ(lines.size(), static_cast<size_t>(random64_count));
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(random64[i], std::stoull(lines[i], nullptr, 16)) << i;
    }
}

TEST_F(BookPolyglot, StartPositionHasItsPublishedKey)
{
    EXPECT_EQ(key_of(start_position), 0x463b96181691fc9cULL);
}

TEST_F(BookPolyglot, KeysAgreeWithThePublishedRule)
{
    const auto rows = read_tsv("polyglot-keys.tsv");
    ASSERT_EQ(rows.size(), 300U);
    for (const auto& row : rows) {
        u64 key = 0;
        capture_output([&] { key = key_of(row[0]); }); // some texts have a false castling right
        EXPECT_EQ(key, std::stoull(row[1], nullptr, 16)) << row[0] << " " << row[2];
    }
}

TEST_F(BookPolyglot, NextKeyIsTheKeyAfterEveryMove)
{
    const char* const fens[] = { start_position,
        "r3k2r/pPppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
        "4k3/P1PP1p2/8/3pP3/1pP5/8/pP3p1p/4K3 w - d6" };
    u64 state = 21;
    for (const char* fen : fens) {
        for (i32 game = 0; game < 20; ++game) {
            Position* pos = set_position(fen);
            BookBoard board = {};
            for (i32 ply = 0; ply < 80; ++ply) {
                ASSERT_EQ(next_book_key(pos, &board), book_key(pos)) << fen_of(pos);
                play_random_moves(pos, &state, 1);
            }
        }
    }
}

TEST_F(BookPolyglot, DoubleStepWithoutACaptureLeavesTheKeyAlone)
{
    i32 tested = 0;
    for (const auto& row : read_tsv("polyglot-keys.tsv")) {
        if (row[2] != "ep-none" && row[2] != "ep-wrap") {
            continue;
        }
        ASSERT_NE(set_position(row[0])->ep_square, NoSquare) << row[0];
        EXPECT_EQ(key_of(row[0]), key_of(without_ep(row[0]))) << row[0];
        ++tested;
    }
    EXPECT_GT(tested, 20);

    Position* pos = set_position(start_position);
    play_moves(pos, "e2e4");
    EXPECT_EQ(pos->ep_square, square_of("e3"));
    EXPECT_EQ(book_key(pos), key_of("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq -"));
}

TEST_F(BookPolyglot, DoubleStepBesideAnEnemyPawnCountsEvenIfThePawnIsPinned)
{
    const std::string free = "4k3/8/8/8/3pP3/8/8/4K3 b - e3";
    EXPECT_EQ(key_of(free) ^ key_of(without_ep(free)), random64[772 + 4]);
    const std::string pinned = "3k4/8/8/8/3pP3/8/8/3RK3 b - e3";
    EXPECT_EQ(key_of(pinned) ^ key_of(without_ep(pinned)), random64[772 + 4]);
    const std::string other_side = "4k3/8/8/8/3PP3/8/8/4K3 b - e3";
    EXPECT_EQ(key_of(other_side), key_of(without_ep(other_side)));
}

TEST_F(BookPolyglot, EveryCastlingRightAndTheSideHaveTheirConstant)
{
    const u64 none = key_of("r3k2r/8/8/8/8/8/8/R3K2R w - -");
    EXPECT_EQ(none ^ key_of("r3k2r/8/8/8/8/8/8/R3K2R w K -"), random64[768]);
    EXPECT_EQ(none ^ key_of("r3k2r/8/8/8/8/8/8/R3K2R w Q -"), random64[769]);
    EXPECT_EQ(none ^ key_of("r3k2r/8/8/8/8/8/8/R3K2R w k -"), random64[770]);
    EXPECT_EQ(none ^ key_of("r3k2r/8/8/8/8/8/8/R3K2R w q -"), random64[771]);
    EXPECT_EQ(none ^ key_of("r3k2r/8/8/8/8/8/8/R3K2R b - -"), random64[780]);
}

TEST_F(BookPolyglot, RecordsAreReadHighestByteFirst)
{
    write_bytes("book",
        std::string("\x01\x23\x45\x67\x89\xab\xcd\xef\x10\x32\x54\x76\xfe\xdc\xba"
                    "\x98",
            16));
    FILE* file = fopen("book", "rb");
    ASSERT_NE(file, nullptr);
    BookEntry entry = {};
    EXPECT_EQ(read_book_entry(file, &entry), 0);
    EXPECT_EQ(entry.key, 0x0123456789abcdefULL);
    EXPECT_EQ(entry.move, 0x1032);
    EXPECT_EQ(entry.weight, 0x5476);
    EXPECT_EQ(entry.learn, 0xfedcba98U);
    EXPECT_EQ(read_book_entry(file, &entry), 1);
    fclose(file);
}

TEST_F(BookPolyglot, RecordThatIsCutShortIsTheEndOfTheFile)
{
    const std::string whole = bytes_of({ entry_of(start_position, "e2e4", 1) });
    for (size_t size = 0; size < 16; ++size) {
        write_bytes("book", whole.substr(0, size));
        FILE* file = fopen("book", "rb");
        ASSERT_NE(file, nullptr);
        BookEntry entry;
        EXPECT_EQ(read_book_entry(file, &entry), 1) << size;
        fclose(file);
    }
}

TEST_F(BookPolyglot, RecordsAreWrittenAsTheyAreRead)
{
    const BookEntry entry = { 0xfedcba9876543210ULL, 0x4fff, 60000, 0x01020304 };
    FILE* file = fopen("book", "wb");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(write_book_entry(file, &entry), 0);
    fclose(file);
    EXPECT_EQ(read_bytes("book"), bytes_of({ entry }));
}

TEST_F(BookPolyglot, FileThatTakesNothingIsReported)
{
    FILE* file = fopen("/dev/full", "wb");
    ASSERT_NE(file, nullptr);
    setvbuf(file, nullptr, _IONBF, 0);
    const BookEntry entry = {};
    EXPECT_EQ(write_book_entry(file, &entry), 1);
    fclose(file);
}

static u16 book_move_of(const char* text)
{
    return entry_of(start_position, text, 0).move;
}

TEST_F(BookPolyglot, MoveCodesCarrySquaresAndPromotion)
{
    EXPECT_EQ(book_move_to_move(book_move_of("e2e4")), move_of("e2e4"));
    EXPECT_EQ(book_move_to_move(book_move_of("a7a8n")), move_of("a7a8n"));
    EXPECT_EQ(book_move_to_move(book_move_of("a7a8b")), move_of("a7a8b"));
    EXPECT_EQ(book_move_to_move(book_move_of("a7a8r")), move_of("a7a8r"));
    EXPECT_EQ(book_move_to_move(book_move_of("a7a8q")), move_of("a7a8q"));
    EXPECT_EQ(book_move_of("a7a8q"), 4 << 12 | 48 << 6 | 56);
    EXPECT_EQ(book_move_to_move(0), NoMove);
}

TEST_F(BookPolyglot, UnusedBitsOfAMoveChangeNothing)
{
    const u16 plain = book_move_of("a7a8");
    for (i32 promotion = 5; promotion < 8; ++promotion) {
        const u16 code = static_cast<u16>(plain | promotion << 12);
        EXPECT_EQ(book_move_to_move(code), move_of("a7a8")) << promotion;
    }
    EXPECT_EQ(book_move_to_move(static_cast<u16>(plain | 0x8000)), move_of("a7a8"));
}

TEST_F(BookPolyglot, KingOntoItsRookIsCastlingWhateverStandsThere)
{
    EXPECT_EQ(book_move_to_move(book_move_of("e1h1")), move_of("e1g1"));
    EXPECT_EQ(book_move_to_move(book_move_of("e1a1")), move_of("e1c1"));
    EXPECT_EQ(book_move_to_move(book_move_of("e8h8")), move_of("e8g8"));
    EXPECT_EQ(book_move_to_move(book_move_of("e8a8")), move_of("e8c8"));
    EXPECT_EQ(book_move_to_move(book_move_of("e1h8")), move_of("e1h8"));
    EXPECT_EQ(book_move_to_move(book_move_of("e8h1")), move_of("e8h1"));
    EXPECT_EQ(book_move_to_move(book_move_of("d1h1")), move_of("d1h1"));
}

TEST_F(BookPolyglot, MoveOfTwoSquaresFromTheKingsHomeIsWrittenAsCastling)
{
    EXPECT_EQ(move_to_book_move(move_of("e1g1")), book_move_of("e1h1"));
    EXPECT_EQ(move_to_book_move(move_of("e1c1")), book_move_of("e1a1"));
    EXPECT_EQ(move_to_book_move(move_of("e8g8")), book_move_of("e8h8"));
    EXPECT_EQ(move_to_book_move(move_of("e8c8")), book_move_of("e8a8"));
    EXPECT_EQ(move_to_book_move(move_of("d1g1")), book_move_of("d1g1"));
}

TEST_F(BookPolyglot, EveryOtherMoveComesBackAsItWas)
{
    const std::string castlings = "e1g1 e1c1 e8g8 e8c8 e1h1 e1a1 e8h8 e8a8";
    for (i32 squares = 0; squares < 4096; ++squares) {
        const std::string text = book_text_of(static_cast<u16>(squares));
        if (castlings.find(text) != std::string::npos) {
            continue;
        }
        for (const char* promotion : { "", "n", "b", "r", "q" }) {
            const Move move = move_of(text + promotion);
            EXPECT_EQ(book_move_to_move(move_to_book_move(move)), move) << text << promotion;
        }
    }
}

TEST_F(BookPolyglot, RecordsSortByUnsignedKeyThenByFallingWeight)
{
    std::vector<BookEntry> entries = {
        { 0xffffffffffffffffULL, 1, 1, 0 },
        { 5, 2, 9, 0 },
        { 5, 3, 65535, 0 },
        { 0x7fffffffffffffffULL, 4, 1, 0 },
        { 5, 5, 10, 0 },
        { 0, 6, 0, 0 },
    };
    qsort(entries.data(), entries.size(), sizeof entries[0], book_entry_compare);
    std::string order;
    for (const BookEntry& entry : entries) {
        order += static_cast<char>('0' + entry.move);
    }
    EXPECT_EQ(order, "635241");
    EXPECT_EQ(book_entry_compare(&entries[2], &entries[2]), 0);
}

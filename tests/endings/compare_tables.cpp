// The tables' values against endings solved from the rules alone, every position of them with both
// sides to move; and the moves that the tables choose, played out against every defence. Only
// endings that the fifty-move rule does not touch. VESK_ENDINGS names other endings than the usual
// ones ("KRvKN KQvKP"), VESK_TABLE_DATA a folder whose folder syzygy has their tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "retrograde.h"
#include "test_support.h"
#include "fathom/tbcore.h"
#include "fathom/tbinit.h"
#include "fathom/tbmoves.h"
#include "fathom/tbprobe.h"

static std::string table_path()
{
    const char* given = getenv("VESK_TABLE_DATA");
    return (given != nullptr ? std::string(given) + "/syzygy:" : "") + data_path("syzygy");
}

static std::vector<std::string> usual_endings()
{
    const char* given = getenv("VESK_ENDINGS");
    std::istringstream names(given != nullptr ? given : "KQvK KRvK KPvK KQvKR KPvKP");
    return { std::istream_iterator<std::string>(names), {} };
}

// ---- Positions in other forms

static const char* const piece_letters[2] = { "KQRBNP", "kqrbnp" };

static std::string fen_of_board(const EndingBoard& board)
{
    std::string cells(64, ' ');
    for (i32 i = 0; i < board.count; ++i) {
        cells[board.square[i]] = piece_letters[board.side[i]][board.type[i]];
    }
    std::string fen;
    for (i32 rank = 7; rank >= 0; --rank) {
        i32 empty = 0;
        for (i32 file = 0; file < 8; ++file) {
            const char cell = cells[static_cast<size_t>(8 * rank + file)];
            if (cell == ' ') {
                ++empty;
                continue;
            }
            fen += empty > 0 ? std::to_string(empty) : "";
            fen += cell;
            empty = 0;
        }
        fen += empty > 0 ? std::to_string(empty) : "";
        fen += rank > 0 ? "/" : "";
    }
    return fen + (board.mover == 0 ? " w - -" : " b - -");
}

static TbPos table_position(const EndingBoard& board)
{
    TbPos pos = {};
    u64* const types[] = { &pos.kings, &pos.queens, &pos.rooks, &pos.bishops, &pos.knights,
        &pos.pawns };
    for (i32 i = 0; i < board.count; ++i) {
        (board.side[i] == 0 ? pos.white : pos.black) |= 1ULL << board.square[i];
        *types[board.type[i]] |= 1ULL << board.square[i];
    }
    pos.turn = board.mover == 0;
    return pos;
}

static u8 turned_square(u32 square, u32 turn)
{
    if ((turn & 1) != 0) {
        square ^= 7;
    }
    if ((turn & 2) != 0) {
        square ^= 56;
    }
    if ((turn & 4) != 0) {
        square = (square >> 3 | square << 3) & 63;
    }
    return static_cast<u8>(square);
}

// One of the images of the board with the same value: mirrored, turned, colours exchanged.
static EndingBoard turned_board(const EndingBoard& board, bool pawns, u32 turn)
{
    EndingBoard turned = board;
    const u32 mirrors = pawns ? turn & 1 : turn & 7;
    const u32 colours = turn >> 3 & 1;
    for (i32 i = 0; i < board.count; ++i) {
        turned.square[i] = turned_square(board.square[i], mirrors);
        turned.square[i] ^= colours != 0 ? 56 : 0;
        turned.side[i] ^= static_cast<u8>(colours);
    }
    turned.mover ^= static_cast<i32>(colours);
    return turned;
}

// ---- What a distance file promises, from its header

static constexpr u8 holds_second_side = 1;
static constexpr u8 counts_winning_plies = 4;
static constexpr u8 counts_losing_plies = 8;

static std::vector<u8> bytes_of_table(const std::string& file)
{
    std::istringstream folders(table_path());
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::ifstream input(folder + "/" + file, std::ios::binary);
        if (input) {
            return { std::istreambuf_iterator<char>(input), {} };
        }
    }
    return {};
}

// The flags of the section of each pawn file, all the same without pawns.
static std::array<u8, 4> section_flags(const Ending& ending)
{
    std::array<u8, 4> flags = {};
    const std::vector<u8> data = bytes_of_table(ending.name + ".rtbz");
    const size_t groups = ending.pawns > 0 ? 4 : 1;
    const size_t pieces = static_cast<size_t>(ending.pieces.count) + (ending.pawns > 1 ? 2 : 1);
    size_t at = (5 + groups * pieces + 1) / 2 * 2;
    for (size_t file = 0; file < 4; ++file) {
        if (file >= groups) {
            flags[file] = flags[0];
            continue;
        }
        flags[file] = data.at(at);
        if ((flags[file] & 128) != 0) {
            at += 2;
            continue;
        }
        const size_t lengths = static_cast<size_t>(data.at(at + 8) - data.at(at + 9) + 1);
        const size_t symbols_at = at + 10 + 2 * lengths;
        const i32 high = data.at(symbols_at + 1) << 8;
        const size_t symbols = static_cast<size_t>(data.at(symbols_at) | high);
        at = symbols_at + 2 + 3 * symbols + (symbols & 1);
    }
    return flags;
}

// How a distance read for a position may differ from the true one.
struct Promise {
    bool held; // the file holds this side to move; otherwise a move is searched
    i32 slack; // 1 if the file holds halves
};

static Promise promise_for(
    const Ending& ending, const std::array<u8, 4>& flags, const EndingBoard& board, bool win)
{
    if (ending.pawns > 1) {
        return { true, 1 };
    }
    const i32 file = board.square[0] & 7;
    const u8 section = flags[static_cast<size_t>(ending.pawns == 0 ? 0 : std::min(file, 7 - file))];
    const bool held = ((section & holds_second_side) != 0) == (board.mover == 1);
    const u8 exact = win == held ? counts_winning_plies : counts_losing_plies;
    return { held, (section & exact) != 0 ? 0 : 1 };
}

static bool wins_by_zeroing(const EndingBoard& board)
{
    for (const EndingMove& move : moves_of(board)) {
        if (is_zeroing(board, move) && is_loss(value_of(board_after(board, move)))) {
            return true;
        }
    }
    return false;
}

// The distance to expect: mate in the position counts one ply, and a quiet mating move is one ply
// and that one where the search of a move has to find it.
static i32 expected_distance(const EndingBoard& board, EndingValue value, bool held)
{
    const i32 plies = plies_of(value);
    if (is_loss(value)) {
        return -std::max(plies, 1);
    }
    return plies == 1 && !held && !wins_by_zeroing(board) ? 2 : plies;
}

// ---- Every position

struct Endings : testing::TestWithParam<std::string> {
    const Ending* ending = nullptr;

    void SetUp() override
    {
        test_thread();
        capture_output([] { tb_init(table_path().c_str()); });
        ASSERT_FALSE(bytes_of_table(GetParam() + ".rtbw").empty()) << "no such table";
        ASSERT_FALSE(bytes_of_table(GetParam() + ".rtbz").empty()) << "no such table";
        ending = solve_ending(GetParam());
    }

    void TearDown() override
    {
        tb_init("");
    }
};

// Of two positions that are mirrored in the long diagonal one is enough.
static bool is_other_image(const Ending& ending, u32 number)
{
    const i32 square = board_of(&ending, number).square[0];
    return ending.pawns == 0 && (square >> 3) > (square & 7);
}

// Calls visit for each legal position, turned and mirrored in turn, until it returns false.
template <typename Visit>
static void visit_positions(const Ending& ending, Visit visit)
{
    for (u32 number = 0; number < ending.value.size(); ++number) {
        const EndingValue value = ending.value[number];
        if (value == ending_illegal || is_other_image(ending, number)) {
            continue;
        }
        // The low bits of the number are the side to move and a square, so they are stirred.
        const u32 turn = number * 2654435761U >> 28;
        if (!visit(
                turned_board(board_of(&ending, number), ending.pawns > 0, turn), number, value)) {
            return;
        }
    }
}

static i32 wdl_of(EndingValue value)
{
    return is_win(value) ? 2 : is_loss(value) ? -2 : 0;
}

TEST_P(Endings, WinsDrawsAndLossesAreThoseOfTheRules)
{
    size_t positions = 0;
    visit_positions(*ending, [&](const EndingBoard& board, u32, EndingValue value) {
        const TbPos pos = table_position(board);
        i32 success = 1;
        const i32 wdl = tb_probe_wdl(&pos, &success);
        EXPECT_NE(success, 0) << fen_of_board(board);
        EXPECT_EQ(wdl, wdl_of(value)) << fen_of_board(board);
        ++positions;
        return !HasFailure();
    });
    printf("%s: %zu positions\n", ending->name.c_str(), positions);
}

TEST_P(Endings, DistancesAreThoseOfTheRules)
{
    const std::array<u8, 4> flags = section_flags(*ending);
    size_t positions = 0;
    size_t off_by_one = 0;
    visit_positions(*ending, [&](const EndingBoard& board, u32 number, EndingValue value) {
        if (!is_win(value) && !is_loss(value)) {
            return true;
        }
        const EndingBoard unturned = board_of(ending, number);
        const Promise promise = promise_for(*ending, flags, unturned, is_win(value));
        const i32 expected = expected_distance(unturned, value, promise.held);
        const TbPos pos = table_position(board);
        i32 success = 1;
        const i32 dtz = tb_probe_dtz(&pos, &success);
        EXPECT_NE(success, 0) << fen_of_board(board);
        EXPECT_EQ(dtz > 0, is_win(value)) << fen_of_board(board);
        EXPECT_LE(std::abs(dtz - expected), promise.slack)
            << fen_of_board(board) << " dtz " << dtz << " expected " << expected;
        ++positions;
        off_by_one += dtz != expected;
        return !HasFailure();
    });
    printf("%s: %zu distances, %zu of them one off by halving\n", ending->name.c_str(), positions,
        off_by_one);
}

// ---- The moves chosen

struct RootAnswer {
    i32 result;
    i32 dtz;
    EndingMove move;
};

static u8 promotion_of(Move move)
{
    const std::string text = text_of(move);
    const size_t type = text.size() < 5 ? 0 : std::string("kqrbn").find(text[4]);
    return static_cast<u8>(type);
}

// The root's answer for a board; the move must be a legal one.
static RootAnswer ask_root(const EndingBoard& board)
{
    Position* pos = set_position(fen_of_board(board));
    u32 wdl = 99;
    u32 dtz = 0;
    u16 move = 0;
    RootAnswer answer = {};
    answer.result = tb_probe_root(pos, &wdl, &dtz, &move);
    answer.dtz = static_cast<i32>(dtz);
    EXPECT_EQ(static_cast<u32>(answer.result), wdl) << fen_of_board(board);
    for (const EndingMove& legal : moves_of(board)) {
        if (board.square[legal.piece] == from_square(move) && legal.to == to_square(move)
            && legal.promotion == promotion_of(move)) {
            answer.move = legal;
            return answer;
        }
    }
    ADD_FAILURE() << fen_of_board(board) << ": no legal move " << text_of(move);
    return answer;
}

// The most plies in which a halved file's distances may miss the promise.
static i32 play_slack(const Ending& ending)
{
    const std::array<u8, 4> flags = section_flags(ending);
    i32 slack = 0;
    for (const u8 section : flags) {
        if ((section & counts_winning_plies) == 0 || (section & counts_losing_plies) == 0) {
            slack = 1;
        }
    }
    return slack;
}

// How long a won position can last when one side plays the root's moves and the other any.
struct PlayBook {
    std::vector<i16> plies; // by the squares of the pieces; 0 unknown, -1 being worked out
    i32 slack;
    size_t asked; // positions
};

static size_t squares_number(const EndingBoard& board)
{
    size_t number = 0;
    for (i32 i = 0; i < board.count; ++i) {
        number = 64 * number + board.square[i];
    }
    return 2 * number + static_cast<size_t>(board.mover);
}

static i32 longest_play(PlayBook* book, const EndingBoard& board);

// The same after the winning move, with the defender to move.
static i32 longest_defence(PlayBook* book, const EndingBoard& board)
{
    i32 longest = 0;
    for (const EndingMove& move : moves_of(board)) {
        const bool zeroing = is_zeroing(board, move);
        const i32 plies = zeroing ? 1 : 1 + longest_play(book, board_after(board, move));
        longest = std::max(longest, plies);
    }
    return longest;
}

static i32 longest_play(PlayBook* book, const EndingBoard& board)
{
    i16* known = &book->plies[squares_number(board)];
    EXPECT_NE(*known, -1) << "the moves go round in a circle at " << fen_of_board(board);
    if (*known != 0 || testing::Test::HasFailure()) {
        return *known;
    }
    *known = -1;
    const RootAnswer answer = ask_root(board);
    ++book->asked;
    EXPECT_EQ(answer.result, 4) << fen_of_board(board);
    if (testing::Test::HasFailure()) {
        return 1;
    }
    const EndingBoard after = board_after(board, answer.move);
    EXPECT_TRUE(is_loss(value_of(after))) << "a win is thrown away in " << fen_of_board(board);
    const i32 plies = is_zeroing(board, answer.move) ? 1 : 1 + longest_defence(book, after);
    EXPECT_LE(plies, answer.dtz + book->slack) << fen_of_board(board);
    *known = static_cast<i16>(plies);
    return plies;
}

// Every won position of three pieces, as it stands, against every defence.
TEST_P(Endings, TheRootsMovesWinWithinTheirDistance)
{
    if (ending->pieces.count != 3) {
        GTEST_SKIP() << "too many defences";
    }
    PlayBook book = { std::vector<i16>(2 * 64 * 64 * 64), play_slack(*ending), 0 };
    visit_positions(*ending, [&](const EndingBoard&, u32 number, EndingValue value) {
        if (is_win(value)) {
            longest_play(&book, board_of(ending, number));
        }
        return !HasFailure();
    });
    printf("%s: %zu root moves\n", ending->name.c_str(), book.asked);
}

// The reply that holds out longest, or one at random.
static EndingMove defence(const EndingBoard& board, bool best, u64* random)
{
    const std::vector<EndingMove> moves = moves_of(board);
    if (!best) {
        return moves[next_random(random, static_cast<u32>(moves.size()))];
    }
    EndingMove chosen = moves[0];
    i32 longest = -1;
    for (const EndingMove& move : moves) {
        const EndingValue value = value_of(board_after(board, move));
        const i32 plies = is_zeroing(board, move) ? 0 : plies_of(value);
        if (plies > longest) {
            longest = plies;
            chosen = move;
        }
    }
    return chosen;
}

// Plies that the win lasts against one defence.
static i32 play_out(EndingBoard board, bool best, u64* random)
{
    for (i32 plies = 1;; plies += 2) {
        const EndingMove move = ask_root(board).move;
        const EndingBoard after = board_after(board, move);
        EXPECT_TRUE(is_loss(value_of(after))) << "a win is thrown away in " << fen_of_board(board);
        if (testing::Test::HasFailure() || is_zeroing(board, move) || moves_of(after).empty()) {
            return plies;
        }
        const EndingMove reply = defence(after, best, random);
        if (is_zeroing(after, reply)) {
            return plies + 1;
        }
        board = board_after(after, reply);
    }
}

// The root's move in a lost position holds out as long as any, but for what halving hides.
static void check_defence(const EndingBoard& board, EndingValue value, i32 slack)
{
    const RootAnswer answer = ask_root(board);
    EXPECT_EQ(answer.result, 0) << fen_of_board(board);
    const i32 plies = is_zeroing(board, answer.move)
        ? 1
        : 1 + plies_of(value_of(board_after(board, answer.move)));
    EXPECT_GE(plies, plies_of(value) - slack) << fen_of_board(board);
}

TEST_P(Endings, ASampleOfPositionsIsPlayedOut)
{
    constexpr u32 games = 400;
    const i32 slack = play_slack(*ending);
    u64 random = 1;
    for (u32 played = 0; played < games && !HasFailure();) {
        const u32 number = next_random(&random, static_cast<u32>(ending->value.size()));
        const EndingValue value = ending->value[number];
        const EndingBoard board =
            turned_board(board_of(ending, number), ending->pawns > 0, next_random(&random, 16));
        if (is_loss(value) && plies_of(value) > 0) {
            check_defence(board, value, 2 * slack);
            ++played;
        } else if (is_win(value)) {
            const i32 promised = ask_root(board).dtz;
            EXPECT_LE(play_out(board, played % 2 == 0, &random), promised + slack)
                << fen_of_board(board);
            ++played;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Tables, Endings, testing::ValuesIn(usual_endings()),
    [](const testing::TestParamInfo<std::string>& ending) { return ending.param; });

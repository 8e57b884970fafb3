// Building a book: how games are read, what is counted, what is kept, and what happens to the
// files when something goes wrong.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "book_support.h"
#include "base/files.h"
#include "base/output.h"
#include "sanitizers.h"

struct Built {
    std::string out;
    std::string errors;
    std::vector<BookEntry> entries;
};

struct BookBuilder : BookTest {
    // Builds from a file of the current folder.
    static Built build_from(const std::string& name)
    {
        Built built;
        built.errors = capture_errors([&] {
            built.out = capture_output([&] { build_book(&dialogue.game->pos, name.c_str()); });
        });
        built.entries = entries_of_bytes(read_bytes("tmp_book.bin"));
        return built;
    }

    static Built build(const std::string& games)
    {
        write_bytes("games.pgn", games);
        return build_from("games.pgn");
    }
};

static std::string output_of(i32 games, i32 nodes, const std::string& dots = "")
{
    return " Creating file tmp_book.bin from games in games.pgn\n" + dots
        + "\nwriting book file ...\nngames= " + std::to_string(games)
        + ", nmoves= " + std::to_string(nodes) + "\ndone\n";
}

static std::string game(const std::string& result, const std::string& moves)
{
    return "[Event \"t\"]\n[Result \"" + result + "\"]\n\n" + moves + "\n\n";
}

static std::string repeat(i32 count, const std::string& text)
{
    std::string all;
    for (i32 i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

// The weight of a move in a position, -1 if the book has it not. The move as books write it.
static i32 weight_of(const Built& built, const std::string& fen, const std::string& move)
{
    const BookEntry wanted = entry_of(fen, move, 0);
    for (const BookEntry& entry : built.entries) {
        if (entry.key == wanted.key && entry.move == wanted.move) {
            return entry.weight;
        }
    }
    return -1;
}

static const std::string start = start_position;

static i32 start_weight(const Built& built, const std::string& move)
{
    return weight_of(built, start, move);
}

// The number of nodes that a text of moves gives, in a game that White has won.
static i32 nodes_of(const std::string& moves)
{
    const Built built = BookBuilder::build(game("1-0", moves));
    const size_t at = built.out.find("nmoves= ");
    EXPECT_NE(at, std::string::npos) << built.out;
    return at == std::string::npos ? -1 : std::stoi(built.out.substr(at + 8));
}

// ---- Whole files

TEST_F(BookBuilder, FilesGiveTheirExpectedBooks)
{
    const std::filesystem::path games = data_path("pgn");
    i32 tested = 0;
    for (const auto& file : std::filesystem::directory_iterator(games)) {
        const std::string stem = file.path().stem();
        if (file.path().extension() != ".pgn" || !exists(games / (stem + ".bin"))) {
            continue;
        }
        std::filesystem::copy_file(file.path(), stem + ".pgn");
        const Built built = build_from(stem + ".pgn");
        EXPECT_EQ(built.out, read_bytes(games / (stem + ".out"))) << stem;
        EXPECT_EQ(bytes_of(built.entries), read_bytes(games / (stem + ".bin"))) << stem;
        EXPECT_EQ(built.errors, "") << stem;
        ++tested;
    }
    EXPECT_EQ(tested, 15);
}

TEST_F(BookBuilder, CommentsOfRealGamesChangeNothing)
{
    const std::string games = read_bytes(data_path("pgn/games-comments.pgn"));
    std::string bare;
    bool inside = false;
    for (const char c : games) {
        inside = c == '{' || (inside && c != '}');
        if (c == '\n' || (!inside && c != '}')) {
            bare += c;
        }
    }
    ASSERT_LT(bare.size(), games.size() / 2);
    const Built with_comments = build(games);
    const Built without = build(bare);
    EXPECT_EQ(with_comments.out, output_of(148, 4095));
    EXPECT_EQ(without.out, with_comments.out);
    EXPECT_GT(with_comments.entries.size(), 50U);
    EXPECT_EQ(bytes_of(without.entries), bytes_of(with_comments.entries));
}

TEST_F(BookBuilder, RecordsRiseByKeyAndFallByWeight)
{
    write_bytes("games.pgn", read_bytes(data_path("pgn/games.pgn")));
    const Built built = build_from("games.pgn");
    ASSERT_GT(built.entries.size(), 100U);
    i32 same_key = 0;
    for (size_t i = 1; i < built.entries.size(); ++i) {
        const BookEntry& before = built.entries[i - 1];
        const BookEntry& entry = built.entries[i];
        EXPECT_LE(before.key, entry.key);
        if (before.key == entry.key) {
            EXPECT_GE(before.weight, entry.weight);
            EXPECT_NE(before.move, entry.move);
            ++same_key;
        }
        EXPECT_EQ(entry.learn, 0U);
    }
    EXPECT_GT(same_key, 10);
}

TEST_F(BookBuilder, EmptyFileGivesAnEmptyBook)
{
    const Built built = build("");
    EXPECT_EQ(built.out, output_of(0, 0));
    EXPECT_TRUE(file_exists("tmp_book.bin"));
    EXPECT_EQ(read_bytes("tmp_book.bin"), "");
}

TEST_F(BookBuilder, ADotIsPrintedForEvery1024Games)
{
    EXPECT_EQ(build(repeat(1023, game("1-0", "1. e4"))).out, output_of(1023, 1));
    EXPECT_EQ(build(repeat(1024, game("1-0", "1. e4"))).out, output_of(1024, 1, "."));
    EXPECT_EQ(build(repeat(2050, game("*", ""))).out, output_of(2050, 0, ".."));
}

// The table's lists go by the top 14 bits of the key, and few positions stand in the first of them.
// The one before the last move here does.
TEST_F(BookBuilder, KeysOfTheFirstListAreInTheBook)
{
    const Built built = build(repeat(4,
        game("0-1",
            "1. d4 d5 2. Bf4 Nf6 3. a3 Bg4 4. c3 e6 5. Qb3 Nbd7 6. e3 Bd6 7. Bxd6 cxd6 "
            "8. Be2 Bf5 9. Nf3 Qb6 10. Nfd2 Qxb3 11. Nxb3 g5 12. Na5 Ke7 13. Nd2 h5 "
            "14. h4 g4 15. a4 Rab8 16. Ba6 bxa6 17. Nc6+ Kf8 18. Nxb8 Nxb8 19. f3 Ke7 "
            "20. Ra3 Kd7")));
    ASSERT_FALSE(built.entries.empty());
    EXPECT_EQ(built.entries[0].key >> (64 - 14), 0U);
    EXPECT_EQ(built.entries.size(), 20U);
}

TEST_F(BookBuilder, MoreNodesThanTheFirstTableHoldsKeepTheirOrder)
{
    // Random games, each on a line that is read to its end.
    u64 state = 7;
    std::string games;
    for (i32 i = 0; i < 160; ++i) {
        Position* pos = set_position(start);
        std::string moves;
        for (i32 ply = 0; ply < 200; ++ply) {
            const std::vector<Move> legal = legal_moves(pos);
            if (legal.empty()) {
                break;
            }
            const Move move = legal[next_random(&state, static_cast<u32>(legal.size()))];
            moves += text_of(move) + " ";
            make_move(pos, move);
        }
        games += repeat(3, game(i % 2 == 0 ? "1-0" : "0-1", moves));
    }
    const Built built = build(games);
    EXPECT_GT(std::stoi(built.out.substr(built.out.find("nmoves= ") + 8)), 30000);
    EXPECT_GT(built.entries.size(), 14000U);
    for (size_t i = 1; i < built.entries.size(); ++i) {
        ASSERT_LE(built.entries[i - 1].key, built.entries[i].key);
    }
    // Twice the games give every record again, with twice its weight.
    std::map<std::pair<u64, u16>, i32> doubled;
    for (const BookEntry& entry : build(repeat(2, games)).entries) {
        doubled[{ entry.key, entry.move }] = entry.weight;
    }
    for (const BookEntry& entry : built.entries) {
        ASSERT_EQ((doubled[{ entry.key, entry.move }]), 2 * entry.weight);
    }
}

// ---- What is kept

TEST_F(BookBuilder, ThreeWinsAreJustEnough)
{
    EXPECT_EQ(start_weight(build(repeat(3, game("1-0", "1. e4"))), "e2e4"), 12);
    EXPECT_EQ(start_weight(build(repeat(2, game("1-0", "1. e4"))), "e2e4"), -1);
}

TEST_F(BookBuilder, TwoLossesUndoThreeWins)
{
    const std::string wins = repeat(3, game("1-0", "1. e4"));
    EXPECT_EQ(start_weight(build(wins + game("0-1", "1. e4")), "e2e4"), 10);
    EXPECT_EQ(start_weight(build(wins + repeat(2, game("0-1", "1. e4"))), "e2e4"), -1);
}

TEST_F(BookBuilder, DrawsDoNotReplaceWins)
{
    const std::string draws = repeat(10, game("1/2-1/2", "1. e4"));
    EXPECT_EQ(start_weight(build(repeat(2, game("1-0", "1. e4")) + draws), "e2e4"), -1);
    EXPECT_EQ(start_weight(build(repeat(3, game("1-0", "1. e4")) + draws), "e2e4"), 22);
}

TEST_F(BookBuilder, ResultCountsForTheSideThatMoves)
{
    const std::string after_e4 = "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq -";
    const Built built = build(repeat(4, game("0-1", "1. e4 c5")) + repeat(3, game("1-0", "1. d4")));
    EXPECT_EQ(start_weight(built, "e2e4"), -1);
    EXPECT_EQ(weight_of(built, after_e4, "c7c5"), 16);
    EXPECT_EQ(start_weight(built, "d2d4"), 12);
}

TEST_F(BookBuilder, GameWithoutAResultIsCountedAndAddsNothing)
{
    EXPECT_EQ(build(repeat(5, game("*", "1. e4 e5"))).out, output_of(5, 0));
}

TEST_F(BookBuilder, FirstResultInTheTagHolds)
{
    EXPECT_EQ(start_weight(build(repeat(3, game("0-1 1-0", "1. e4"))), "e2e4"), 12);
    EXPECT_EQ(build(repeat(3, game("1/2 0-1", "1. e4"))).entries.size(), 0U);
    EXPECT_EQ(build(repeat(3, game("1 - 0", "1. e4"))).out, output_of(3, 0));
}

TEST_F(BookBuilder, HighScoresAreScaledTo60000)
{
    const Built built =
        build(repeat(30000, "[Result \"1-0\"]\ne4\n") + repeat(7500, "[Result \"1-0\"]\nd4\n"));
    EXPECT_EQ(start_weight(built, "e2e4"), 60000);
    EXPECT_EQ(start_weight(built, "d2d4"), 15000);
    const Built below = build(repeat(15000, "[Result \"1-0\"]\ne4\n"));
    EXPECT_EQ(start_weight(below, "e2e4"), 60000);
    const Built plain =
        build(repeat(10000, "[Result \"1-0\"]\ne4\n") + repeat(3, "[Result \"1-0\"]\nd4\n"));
    EXPECT_EQ(start_weight(plain, "e2e4"), 40000); // nothing is scaled up
    EXPECT_EQ(start_weight(plain, "d2d4"), 12);
}

TEST_F(BookBuilder, ScaledWeightsAreTruncated)
{
    // 28 of 120004 is 13.9995 of 60000.
    const Built built =
        build(repeat(30001, "[Result \"1-0\"]\ne4\n") + repeat(7, "[Result \"1-0\"]\nd4\n"));
    EXPECT_EQ(start_weight(built, "e2e4"), 60000);
    EXPECT_EQ(start_weight(built, "d2d4"), 13);
}

TEST_F(BookBuilder, DroppedMovesDoNotSetTheScale)
{
    // A score of 60001 with two wins only is not kept.
    const Built built = build(repeat(59993, "[Result \"1/2-1/2\"]\ne4\n")
        + repeat(2, "[Result \"1-0\"]\ne4\n") + repeat(3, "[Result \"1-0\"]\nd4\n"));
    EXPECT_EQ(start_weight(built, "e2e4"), -1);
    EXPECT_EQ(start_weight(built, "d2d4"), 12);
}

TEST_F(BookBuilder, EqualWeightsKeepTheOrderOfTheirFirstAppearance)
{
    const std::string order[6] = { "h3", "a3", "e4", "b3", "g3", "d4" };
    std::string games;
    for (const std::string& move : order) {
        games += repeat(3, game("1-0", move));
    }
    games += repeat(4, game("1-0", "c4"));
    std::string found;
    for (const BookEntry& entry : build(games).entries) {
        found += book_text_of(entry.move) + " ";
    }
    EXPECT_EQ(found, "c2c4 h2h3 a2a3 e2e4 b2b3 g2g3 d2d4 ");
}

TEST_F(BookBuilder, TranspositionsMeetInOneRecord)
{
    const Built built = build(repeat(2, game("1-0", "1. e4 e6 2. d4"))
        + game("1-0", "1. d4 e6 2. e4") + repeat(2, game("1-0", "1. e4 e6 2. d4 d5 3. Nc3"))
        + game("1-0", "1. d4 e6 2. e4 d5 3. Nc3"));
    const std::string after = "rnbqkbnr/ppp2ppp/4p3/3p4/3PP3/8/PPP2PPP/RNBQKBNR w KQkq -";
    EXPECT_EQ(weight_of(built, after, "b1c3"), 12);
}

// ---- Reading words

// The pieces of the game before stand on squares of the same side, each in the place of another.
TEST_F(BookBuilder, GameBeginsWithTheStartWhateverTheOneBeforeLeft)
{
    const std::string moves = "1. e4 e5 2. Bc4 Bc5 3. Kf1 Kf8 4. Qe1 Qe8 5. Nf3";
    EXPECT_EQ(nodes_of(moves), 9);
    EXPECT_EQ(build(repeat(3, game("1-0", moves))).out, output_of(3, 9));
}

TEST_F(BookBuilder, CommentsAndVariationsAreLeftOut)
{
    const std::string moves = "1. e4 {best (by test)} e5 (1... c5 2. Nf3) 2. Nf3";
    const Built built = build(repeat(3, game("1-0", moves)));
    EXPECT_EQ(built.out, output_of(3, 3));
    EXPECT_EQ(start_weight(built, "e2e4"), 12);
    const std::string after = "rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq -";
    EXPECT_EQ(weight_of(built, after, "g1f3"), 12);
}

TEST_F(BookBuilder, BothWritingsOfCastlingAreEnteredAsTheKingOntoItsRook)
{
    const std::string line = "1. e4 e5 2. Nf3 Nc6 3. Bc4 Bc5 4. ";
    const std::string before = "r1bqk1nr/pppp1ppp/2n5/2b1p3/2B1P3/5N2/PPPP1PPP/RNBQK2R w KQkq -";
    for (const char* castling : { "0-0", "O-O", "o-o", "e1g1" }) {
        const Built built = build(repeat(3, game("1-0", line + castling)));
        EXPECT_EQ(weight_of(built, before, "e1h1"), 12) << castling;
    }
    const std::string long_line = "d4 d5 Nc3 Nc6 Bf4 Bf5 Qd2 Qd7 ";
    const std::string long_before = "r3kbnr/pppqpppp/2n5/3p1b2/3P1B2/2N5/PPPQPPPP/R3KBNR w KQkq -";
    for (const char* castling : { "0-0-0", "9.0-0-0", "O-O-O" }) {
        const Built built = build(repeat(3, game("1-0", long_line + castling)));
        EXPECT_EQ(weight_of(built, long_before, "e1a1"), 12) << castling;
    }
}

TEST_F(BookBuilder, MovesMayStickToTheirNumbers)
{
    EXPECT_EQ(nodes_of("1.e4 1...e5 2.Nf3 2. ... Nc6"), 4);
    EXPECT_EQ(nodes_of("1.e4e5"), 0); // e4e5 is no move of the start position
}

TEST_F(BookBuilder, WordsWithoutALetterAreIgnored)
{
    EXPECT_EQ(nodes_of("1. e4 1-0 1/2-1/2 * ... -- != 17 3.14 e5"), 2);
    EXPECT_EQ(nodes_of("1. !e4 ?!e5 ...Nf3"), 3); // what stands before a letter goes with it
}

TEST_F(BookBuilder, MoveThatCannotBeReadLosesTheRestOfTheGame)
{
    EXPECT_EQ(nodes_of("1. e4 e5 2. Nf6 Nc6 3. Nf3"), 2);
    EXPECT_EQ(nodes_of("1. e4 e5! 2. Nf3"), 1);
    EXPECT_EQ(nodes_of("1. e4 0-1 e5"), 1);
    EXPECT_EQ(nodes_of("1. e4\nXX\ne5\n2. Nf3"), 1);
    const Built built = build(game("1-0", "e4 XX e5") + game("1-0", "d4 d5"));
    EXPECT_EQ(built.out, output_of(2, 3));
}

TEST_F(BookBuilder, AmbiguousMoveIsNamedAndLosesTheRestOfTheGame)
{
    const std::string out = build(game("1-0", "Nf3 a6 d4 b6 Nd2 c6")).out;
    EXPECT_NE(out.find("\nambiguous move\n\nwriting"), std::string::npos) << out;
    EXPECT_NE(out.find("nmoves= 4\n"), std::string::npos) << out;
    EXPECT_EQ(nodes_of("Nf3 a6 d4 b6 Nbd2 c6"), 6);
}

TEST_F(BookBuilder, MarksAreWordsOfTheirOwnWhereverTheyStand)
{
    EXPECT_EQ(nodes_of("1.e4{no blanks}e5(1...d5)2.Nf3"), 3);
    EXPECT_EQ(nodes_of("e4{a}{b}e5((c5)(d5))Nf3"), 3);
}

TEST_F(BookBuilder, CommentMaySpanLines)
{
    EXPECT_EQ(nodes_of("1. e4 {a\nd4\n; b }\n[c]\n{ (\n } d5 ) e5 ( c5\nNf3 ) Nf3"), 3);
    EXPECT_EQ(nodes_of("1. e4 {never closed\ne5\nNf3"), 1);
}

TEST_F(BookBuilder, CommentsNest)
{
    EXPECT_EQ(nodes_of("e4 {outer {inner} d4 d5} e5"), 2);
}

TEST_F(BookBuilder, VariationsNestTenThousandDeep)
{
    EXPECT_EQ(nodes_of("e4\n" + repeat(10000, "(d5\n") + repeat(10000, ")\n") + "e5\nNf3"), 3);
    EXPECT_EQ(nodes_of("e4\n" + repeat(10000, "{(\n") + repeat(10000, "})\n") + " e5"), 2);
    EXPECT_EQ(nodes_of("e4\n" + repeat(10000, "(\n") + repeat(9999, ")\n") + " e5"), 1);
}

TEST_F(BookBuilder, StrayClosingMarkHidesTheRestOfTheGame)
{
    EXPECT_EQ(nodes_of("e4 ) e5 Nf3"), 1);
    EXPECT_EQ(nodes_of("e4 } e5 Nf3"), 1);
    EXPECT_EQ(nodes_of("e4 ) e5 ( Nf3"), 1); // e5 is hidden, so it is Black's Nf3
    EXPECT_EQ(nodes_of("e4 ) e5 ( c5"), 2);
    EXPECT_EQ(nodes_of("e4 {:)} e5 Nf3"), 1);
    const Built built = build(game("1-0", "e4 )") + game("1-0", "e4 e5"));
    EXPECT_EQ(built.out, output_of(2, 2));
}

TEST_F(BookBuilder, SemicolonBeginsAWordNotALineComment)
{
    EXPECT_EQ(nodes_of("e4 ;good e5"), 2);
    EXPECT_EQ(nodes_of("e4 ; Nf6 e4"), 2); // the words behind it are moves still
    EXPECT_EQ(nodes_of("e4 ;{ d5\n} e5"), 2);
    EXPECT_EQ(nodes_of("e4 $1 $e5 c5 Nf3"), 3); // $e5 is no move
}

TEST_F(BookBuilder, LineThatBeginsWithASemicolonOrABracketIsSkipped)
{
    EXPECT_EQ(nodes_of("e4\n; e5\n[e5]\nc5"), 2);
    EXPECT_EQ(nodes_of("e4\n ; e5"), 2); // only the line's very first character counts
    EXPECT_EQ(nodes_of("e4\n( d5\n; c5 )\n[c5 )]\n) e5"), 2); // inside a variation, too
}

TEST_F(BookBuilder, TabsControlsAndHighBytesAreDroppedInsideWords)
{
    EXPECT_EQ(nodes_of("e\t4 e\x7f"
                       "5 N\xc3\xa9"
                       "f3 \x01N\x1b"
                       "c6"),
        4);
    EXPECT_EQ(nodes_of("e4\te5"), 0); // one word
    EXPECT_EQ(nodes_of(std::string("e\0004 e5", 6)), 2);
    EXPECT_EQ(nodes_of("e4 \t \x80 e5"), 2);
}

TEST_F(BookBuilder, CarriageReturnsChangeNothing)
{
    std::string games = repeat(3, game("1-0", "1. e4 e5 {a\ncomment} 2. Nf3"));
    const Built plain = build(games);
    for (size_t at = 0; (at = games.find('\n', at)) != std::string::npos; at += 2) {
        games.insert(at, "\r");
    }
    const Built with_returns = build(games);
    EXPECT_EQ(with_returns.out, plain.out);
    EXPECT_EQ(bytes_of(with_returns.entries), bytes_of(plain.entries));
    EXPECT_EQ(plain.entries.size(), 2U);
}

TEST_F(BookBuilder, ByteOrderMarkAndLatinNamesChangeNothing)
{
    const Built built = build("\xef\xbb\xbf"
        + repeat(3,
            "[White \"M\xfcller, J\xf8rgen\"]\n[Result \"1-0\"]\n[Site \"\xff\xfe\"]\n\n1. e4 "
            "e5\n"));
    EXPECT_EQ(built.out, output_of(3, 2));
    EXPECT_EQ(start_weight(built, "e2e4"), 12);
}

TEST_F(BookBuilder, WordOf500CharactersIsAnUnreadableMove)
{
    EXPECT_EQ(nodes_of("e4 " + std::string(500, 'N') + " e5"), 1);
    EXPECT_EQ(nodes_of("e4 " + std::string(500, '1') + "e5"), 2);     // digits before a move
    EXPECT_EQ(nodes_of("e4 e5" + std::string(500, '+') + " Nf3"), 3); // cut at the first of them
}

// ---- Reading lines

TEST_F(BookBuilder, LineOf1022CharactersIsReadWhole)
{
    const std::string filler(1022 - 6, ' ');
    EXPECT_EQ(nodes_of("e4" + filler + "e5 \nNf3"), 3);
    EXPECT_EQ(nodes_of("e4" + filler + " e5\nNf3"), 3); // with its line feed it has 1022
}

TEST_F(BookBuilder, LongLineIsCutAndLosesTheLastCharacterOfItsPiece)
{
    // The 1022nd character is dropped, what follows it is a line of its own.
    EXPECT_EQ(nodes_of("e4 " + std::string(1022 - 4, ' ') + "Xe5"), 2);
    EXPECT_EQ(nodes_of("e4 " + std::string(1022 - 5, ' ') + "e5"), 1);   // only the e is left
    EXPECT_EQ(nodes_of("e4 " + std::string(1022 - 4, ' ') + "X[e5"), 1); // begins with a bracket
    EXPECT_EQ(nodes_of("e4 " + std::string(1022 - 4, ' ') + "X;\ne5"), 2);
}

TEST_F(BookBuilder, LastLineWithoutALineFeedLosesItsLastCharacter)
{
    EXPECT_EQ(build("[Result \"1-0\"]\ne4 e5").out, output_of(1, 1));
    EXPECT_EQ(build("[Result \"1-0\"]\ne4 e5 ").out, output_of(1, 2));
    EXPECT_EQ(build("[Result").out, output_of(0, 0));
    EXPECT_EQ(build("[Result ").out, output_of(1, 0));
}

TEST_F(BookBuilder, LineOfAMegabyteIsReadInPieces)
{
    EXPECT_EQ(nodes_of("e4 {" + std::string(1000000, 'x') + "}\ne5"), 2);
    EXPECT_EQ(nodes_of("e4\n" + std::string(1000000, ' ') + "\ne5"), 2);
}

TEST_F(BookBuilder, ResultTagStartsAGameWhereverItStands)
{
    EXPECT_EQ(build("e4 e5 [Result \"1-0\"] d4\nc4 c5\n").out, output_of(1, 2));
    EXPECT_EQ(build(game("1-0", "e4 {[Result \"1-0\"]\ne4 e5")).out, output_of(2, 2));
    EXPECT_EQ(build("[ResultX 1-0\ne4\n").out, output_of(1, 1));
    EXPECT_EQ(build("[result \"1-0\"]\ne4\n").out, output_of(0, 0));
}

TEST_F(BookBuilder, MovesBeforeTheFirstResultAreNotEntered)
{
    EXPECT_EQ(build("[Event \"a\"]\n\n1. e4 e5\n{\n").out, output_of(0, 0));
    EXPECT_EQ(build("1. e4 {\n[Result \"1-0\"]\n1. d4\n").out, output_of(1, 1));
}

TEST_F(BookBuilder, GameWithoutAResultTagContinuesTheOneBefore)
{
    const std::string untagged = "[Event \"t\"]\n\n1... e5 2. Nf3\n\n";
    EXPECT_EQ(build(game("1-0", "1. e4") + untagged).out, output_of(1, 3));
    // Played from the start, it cannot be read and adds nothing.
    EXPECT_EQ(build(game("1-0", "1. e4 e5") + "[Event \"t\"]\n\n1. e4 e5\n").out, output_of(1, 2));
}

// Coordinate texts of random moves from the start, a blank between two.
static std::string long_game(i32 plies)
{
    Position* pos = set_position(start);
    u64 state = 3;
    std::string moves;
    for (i32 ply = 0; ply < plies; ++ply) {
        const std::vector<Move> legal = legal_moves(pos);
        const Move move = legal[next_random(&state, static_cast<u32>(legal.size()))];
        moves += (moves.empty() ? "" : " ") + text_of(move);
        make_move(pos, move);
    }
    return moves;
}

TEST_F(BookBuilder, LineThatStartsBehindTheLimitIsNotRead)
{
    // Five characters for each move with its blank.
    const std::string moves = long_game(60);
    const auto broken_at = [&](size_t plies) {
        std::string text = moves;
        text[5 * plies - 1] = '\n';
        return text;
    };
    EXPECT_EQ(nodes_of(moves), 60); // one line is read to its end
    EXPECT_EQ(nodes_of(broken_at(35)), 60);
    EXPECT_EQ(nodes_of(broken_at(36)), 36);
    EXPECT_EQ(nodes_of(broken_at(50)), 50);
}

TEST_F(BookBuilder, MarksBehindTheLimitAreNotRead)
{
    const std::string moves = long_game(36);
    const Built built = build(game("1-0", moves + "\n{") + game("1-0", "e4 e5"));
    EXPECT_EQ(built.out.find("nmoves= 3"), built.out.find("nmoves= "));
}

// ---- Bad input

TEST_F(BookBuilder, RandomBytesEndSafely)
{
    u64 state = 31337;
    for (i32 round = 0; round < 200; ++round) {
        std::string bytes;
        for (u32 size = next_random(&state, 4000); size > 0; --size) {
            bytes += static_cast<char>(next_random(&state, 256));
        }
        bytes.insert(
            next_random(&state, static_cast<u32>(bytes.size()) + 1), "\n[Result \"1-0\"]\n");
        EXPECT_NE(build(bytes).out.find("\nngames= "), std::string::npos);
    }
}

TEST_F(BookBuilder, ShuffledPiecesOfGamesEndSafely)
{
    const char* pieces[] = { "e4", "e5", "Nf3", "O-O", "0-0", "{", "}", "(", ")", " ", " ", " ",
        "\n", ";", "$", "[Result \"1-0\"]\n", "[Result \"0-1\"]\n", "1.", "d4", "d5", "exd5", "ed",
        "e8=Q", "e7e8q", "a=B", "+", "o-o-o", "\t", "\xff", "Nb", "ab", "=", "Q" };
    u64 state = 12;
    for (i32 round = 0; round < 300; ++round) {
        std::string text = "[Result \"1-0\"]\n";
        for (u32 count = next_random(&state, 300); count > 0; --count) {
            text += pieces[next_random(&state, std::size(pieces))];
        }
        EXPECT_NE(build(text).out.find("\nngames= "), std::string::npos);
    }
}

TEST_F(BookBuilder, FileTruncatedAnywhereEndsSafely)
{
    const std::string games = read_bytes(data_path("pgn/book-comments.pgn"));
    for (size_t size = 0; size < games.size(); ++size) {
        EXPECT_NE(build(games.substr(0, size)).out.find("done\n"), std::string::npos) << size;
    }
}

TEST_F(BookBuilder, MissingFileIsNamedOnStandardErrorAndLeavesTheOldBook)
{
    write_bytes("tmp_book.bin", "old");
    const Built built = build_from("missing.pgn");
    EXPECT_EQ(built.out, "");
    EXPECT_EQ(built.errors, "missing.pgn: cannot be opened: No such file or directory\n");
    EXPECT_EQ(read_bytes("tmp_book.bin"), "old");
    EXPECT_EQ(exit_status, 0);
}

TEST_F(BookBuilder, NameOf143CharactersIsRead)
{
    const std::string name = std::string(139, 'g') + ".pgn";
    write_bytes(name, game("1-0", "1. e4"));
    const Built built = build_from(name);
    EXPECT_EQ(built.errors, "");
    EXPECT_NE(built.out.find("games in " + name + "\n"), std::string::npos) << built.out;
}

TEST_F(BookBuilder, FolderIsNoFileOfGames)
{
    write_bytes("tmp_book.bin", "old");
    const Built built = build_from(".");
    EXPECT_EQ(built.out, "");
    EXPECT_EQ(built.errors, ".: cannot be opened: not a regular file\n");
    EXPECT_EQ(read_bytes("tmp_book.bin"), "old");
}

TEST_F(BookBuilder, GamesUnderANameThatTheBookTakesAreLeftAlone)
{
    const std::string games = repeat(3, game("1-0", "e4"));
    for (const char* name : { "tmp_book.bin", "tmp_book.part", "./tmp_book.part" }) {
        write_bytes(name, games);
        const Built built = build_from(name);
        EXPECT_EQ(built.out, "") << name;
        EXPECT_EQ(built.errors, std::string(name) + ": would be replaced by the book\n");
        EXPECT_EQ(read_bytes(name), games) << name;
        EXPECT_EQ(exit_status, 1);
    }
}

TEST_F(BookBuilder, LinkUnderTheNameOfTheBookIsReplacedAndNotItsTarget)
{
    const std::string games = repeat(3, game("1-0", "e4"));
    write_bytes("games.pgn", games);
    std::filesystem::create_symlink("games.pgn", "tmp_book.bin");
    EXPECT_EQ(build_from("games.pgn").entries.size(), 1U);
    EXPECT_EQ(read_bytes("games.pgn"), games);
    EXPECT_FALSE(std::filesystem::is_symlink("tmp_book.bin"));
}

TEST_F(BookBuilder, FilesWithoutAnEndAreNoFilesOfGames)
{
    write_bytes("tmp_book.bin", "old");
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const std::string name : { "pipe", "/dev/zero" }) {
        const Built built = build_from(name);
        EXPECT_EQ(built.out, "");
        EXPECT_EQ(built.errors, name + ": cannot be opened: not a regular file\n");
    }
    EXPECT_EQ(read_bytes("tmp_book.bin"), "old");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(BookBuilder, OldBookIsReplacedAndNothingElseIsLeft)
{
    write_bytes("tmp_book.bin", "old");
    write_bytes("tmp_book.part", "left by a run that was killed");
    EXPECT_EQ(build(repeat(3, game("1-0", "e4"))).entries.size(), 1U);
    EXPECT_FALSE(file_exists("tmp_book.part"));
}

TEST_F(BookBuilder, BookThatCannotBeReplacedStillEndsWithTheClosingLines)
{
    std::filesystem::create_directories("tmp_book.bin/inside");
    const Built built = build(repeat(3, game("1-0", "e4")));
    EXPECT_EQ(built.out, output_of(3, 1));
    EXPECT_EQ(built.errors, "tmp_book.bin: cannot be replaced: Is a directory\n");
    EXPECT_FALSE(file_exists("tmp_book.part"));
    EXPECT_EQ(exit_status, 1);
}

TEST_F(BookBuilder, BookThatCannotBeOpenedStillEndsWithTheClosingLines)
{
    std::filesystem::create_directories("tmp_book.part/inside");
    write_bytes("tmp_book.bin", "old");
    const Built built = build(repeat(3, game("1-0", "e4")));
    EXPECT_EQ(built.out, output_of(3, 1));
    EXPECT_EQ(built.errors, "tmp_book.bin: cannot be opened for writing: File exists\n");
    EXPECT_EQ(read_bytes("tmp_book.bin"), "old");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(BookBuilder, FullDiskEndsWithAMessageAndStatus1AndLeavesTheOldBook)
{
    // The limit of a file's size stands in for the disk: what a book of games with many first
    // moves needs is more than the limit, what the engine prints is less.
    std::string games;
    for (const Move first : legal_moves(set_position(start))) {
        Position* pos = set_position(start);
        make_move(pos, first);
        for (const Move reply : legal_moves(pos)) {
            games += repeat(3, game("0-1", text_of(first) + " " + text_of(reply)));
        }
    }
    EXPECT_EQ(build(games).entries.size(), 400U);
    EXPECT_EQ(exit_status, 0);

    write_bytes("tmp_book.bin", "old");
    rlimit kept;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &kept), 0);
    const rlimit small = { 4096, kept.rlim_max };
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    signal(SIGXFSZ, SIG_IGN);
    const Built built = build_from("games.pgn");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &kept), 0);
    signal(SIGXFSZ, SIG_DFL);

    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(built.errors, "tmp_book.bin: cannot be written: File too large\n");
    EXPECT_EQ(built.out.find("done"), std::string::npos);
    EXPECT_EQ(read_bytes("tmp_book.bin"), "old");
    EXPECT_FALSE(file_exists("tmp_book.part"));
}

// ---- Into play

static void limit_address_space(rlim_t bytes)
{
    rlimit limit;
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_AS, &limit);
}

// In a child process, which may take so many bytes more than it has. What earlier tests have given
// back to the heap is used up first.
static void build_with_room(rlim_t bytes)
{
    std::ifstream sizes("/proc/self/statm");
    rlim_t pages = 0;
    sizes >> pages;
    const rlim_t size = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    limit_address_space(size);
    void* volatile used_up = nullptr;
    do {
        used_up = malloc(64 << 10);
    } while (used_up != nullptr);
    limit_address_space(size + bytes);
    build_book(&dialogue.game->pos, "games.pgn");
    exit(exit_status);
}

TEST_F(BookBuilder, MissingMemoryEndsWithAMessageAndStatus1AndLeavesTheOldBook)
{
#if defined(ADDRESS_SANITIZED)
    GTEST_SKIP() << "the sanitizer needs room itself";
#endif
    testing::FLAGS_gtest_death_test_style = "fast";
    // Random games: some twelve thousand positions.
    std::string games;
    u64 state = 11;
    for (i32 i = 0; i < 200; ++i) {
        Position* pos = set_position(start);
        std::string moves;
        for (i32 ply = 0; ply < 60; ++ply) {
            const std::vector<Move> legal = legal_moves(pos);
            if (legal.empty()) {
                break;
            }
            const Move move = legal[next_random(&state, static_cast<u32>(legal.size()))];
            moves += text_of(move) + " ";
            make_move(pos, move);
        }
        games += game("1-0", moves);
    }
    write_bytes("games.pgn", games);
    write_bytes("tmp_book.bin", "old");
    EXPECT_EXIT(build_with_room(0), testing::ExitedWithCode(1), "^no memory for a book\n$");
    EXPECT_EXIT(build_with_room(384 << 10), testing::ExitedWithCode(1),
        "^no memory for the positions of games.pgn\n$");
    EXPECT_EQ(read_bytes("tmp_book.bin"), "old");
    EXPECT_FALSE(file_exists("tmp_book.part"));
    EXPECT_EXIT(build_with_room(64 << 20), testing::ExitedWithCode(0), "^$");
}

TEST_F(BookBuilder, BuiltBookIsPlayedFrom)
{
    build(repeat(5, game("1-0", "1. e4 e5")) + repeat(3, game("1-0", "1. d4")));
    store(uci_mode, 0);
    dialogue.engine_options.own_book_variety = 0;
    Position* pos = set_position(start);
    const std::string report = capture_output([&] { ask_book(pos, "tmp_book.bin"); });
    EXPECT_EQ(report.substr(0, report.find("selecting")),
        "  e2e4  cnt=    20, weight= 62.50% -> 68.18%\n"
        "  d2d4  cnt=    12, weight= 37.50% -> 31.82%\n");
}

// The PGN scanner: how moves, comments and tags are read, the four forms, and what happens when
// the input is damaged or the output cannot be written.
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>

#include "tools_support.h"
#include "base/files.h"
#include "base/output.h"
#include "tools/tool_input.h"

static const char* const start_fen = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";

struct PgnScanTest : ToolTest {
    // Scans a text. The files are left in the folder.
    static ToolRun scan(i32 form, const std::string& text)
    {
        write_file("games.pgn", text);
        return scan_file(form, "games.pgn");
    }

    static ToolRun scan_file(i32 form, const char* name)
    {
        return run_tool([&] { scan_pgn(&dialogue, name, form); });
    }

    static std::string game(const std::string& moves, const std::string& result = "1-0")
    {
        return "[Event \"t\"]\n[Result \"" + result + "\"]\n\n" + moves + "\n\n";
    }

    // The evaluation that form 3 gives the first move behind these words of a game, the moves
    // before it being without a decision.
    static std::string last_eval(const std::string& moves)
    {
        scan(3, game(moves));
        const std::string positions = read_file("tmp.epd");
        const size_t at = positions.rfind(" ce ");
        return at == std::string::npos ? ""
                                       : positions.substr(at + 4, positions.find(';', at) - at - 4);
    }

    // The moves that form 3 writes, an evaluation of 1 behind each.
    static std::string moves_of(const std::string& text)
    {
        scan(3, text);
        return listed_moves();
    }

    static std::string listed_moves()
    {
        std::istringstream lines(read_file("tmp.epd"));
        std::string moves;
        for (std::string line; std::getline(lines, line);) {
            const size_t at = line.find(" bm ");
            if (at != std::string::npos) {
                moves += (moves.empty() ? "" : " ") + line.substr(at + 4, line.find(';') - at - 4);
            }
        }
        return moves;
    }

    // A game of so many half-moves without twenty in a row that move no pawn, a comment of
    // {+0.01/1} behind each.
    static std::string long_game(i32 plies)
    {
        static const char* const pawns[] = { "a3", "a4", "b3", "b4", "c3", "c4", "d3", "d4", "a5",
            "b5", "c5", "d5", "e3", "h3" };
        std::string moves;
        u32 pawn_moves = 0;
        bool white_out = false;
        bool black_out = false;
        for (i32 i = 0; i < plies; ++i) {
            const char* move;
            if (i % 20 == 0 && pawn_moves < std::size(pawns)) {
                move = pawns[pawn_moves++];
            } else if (i % 2 == 0) {
                move = white_out ? "Ng1" : "Nf3";
                white_out = !white_out;
            } else {
                move = black_out ? "Ng8" : "Nf6";
                black_out = !black_out;
            }
            moves += std::string(move) + " {+0.01/1}\n";
        }
        return moves;
    }
};

// ---- Whole files

TEST_F(PgnScanTest, FilesGiveTheirExpectedOutput)
{
    const std::filesystem::path folder_of_games = data_path("scan");
    i32 compared = 0;
    const auto compare = [&](const std::string& expected, const std::string& found) {
        if (!std::filesystem::exists(folder_of_games / expected)) {
            return;
        }
        EXPECT_EQ(read_file((folder_of_games / expected).c_str()), found) << expected;
        ++compared;
    };
    for (const auto& file : std::filesystem::directory_iterator(folder_of_games)) {
        const std::string name = file.path().filename();
        const std::string stem = name.substr(0, name.find('.'));
        if (name != stem + ".pgn") {
            continue;
        }
        for (i32 form = 1; form <= 4; ++form) {
            const ToolRun run = scan_file(form, file.path().c_str());
            const std::string base = stem + ".form" + std::to_string(form);
            compare(base + ".out", run.out);
            compare(
                base + (form == 1 ? ".pgn" : ".epd"), read_file(form == 1 ? "tmp.pgn" : "tmp.epd"));
            if (form == 1) {
                compare(base + ".X.epd", read_file("tmpX.epd"));
            } else {
                EXPECT_EQ(read_file("tmpX.epd"), "");
            }
        }
    }
    EXPECT_EQ(compared, 109);
}

TEST_F(PgnScanTest, FormOneCountsTheLinesOfTheSecondFile)
{
    const ToolRun run = scan_file(1, data_path("scan/blunder.pgn").c_str());
    EXPECT_EQ(run.out, "games= 9, positions= 7\n");
    EXPECT_EQ(count_lines(read_file("tmpX.epd")), 7);
}

TEST_F(PgnScanTest, CarriageReturnsChangeNothing)
{
    std::string games = read_file(data_path("scan/wrapped.pgn").c_str());
    for (i32 form = 1; form <= 4; ++form) {
        std::string with_returns = games;
        for (size_t at = 0; (at = with_returns.find('\n', at)) != std::string::npos; at += 2) {
            with_returns.insert(at, "\r");
        }
        const char* const name = form == 1 ? "tmp.pgn" : "tmp.epd";
        const ToolRun plain = scan(form, games);
        const std::string expected = read_file(name);
        const ToolRun run = scan(form, with_returns);
        EXPECT_EQ(run.out, plain.out);
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(read_file(name), expected);
    }
}

TEST_F(PgnScanTest, ByteOrderMarkChangesNothing)
{
    EXPECT_EQ(scan(3, "\xef\xbb\xbf" + game("e4 {+0.01/1}")).out, "games= 1, positions= 1\n");
}

TEST_F(PgnScanTest, EmptyFileGivesOneLineFeed)
{
    for (i32 form = 1; form <= 4; ++form) {
        EXPECT_EQ(scan(form, "").out, "games= 0, positions= 0\n");
        EXPECT_EQ(read_file(form == 1 ? "tmp.pgn" : "tmp.epd"), "\n");
        EXPECT_EQ(read_file("tmpX.epd"), "");
    }
}

TEST_F(PgnScanTest, EveryHundredthGameIsTold)
{
    EXPECT_EQ(scan(3, repeat(99, game(""))).out, "games= 99, positions= 0\n");
    EXPECT_EQ(scan(3, repeat(201, game(""))).out, "game 100\ngame 200\ngames= 201, positions= 0\n");
}

TEST_F(PgnScanTest, LogIsSwitchedOff)
{
    dialogue.engine_options.log = 1;
    publish_options(&dialogue);
    scan(3, "");
    EXPECT_EQ(dialogue.engine_options.log, 0);
    EXPECT_FALSE(is_logging());
}

// ---- Comments

TEST_F(PgnScanTest, BookCommentGivesZero)
{
    EXPECT_EQ(last_eval("e4 {book}"), "0");
    EXPECT_EQ(last_eval("e4 {+0.35/12 from a book}"), "0");
    scan(1, game("e4 {book} e5 {book}"));
    EXPECT_EQ(read_file("tmp.pgn"),
        "[Event \"t\"]\n[Result \"1-0\"]\n"
        "  1.  e4      {  0.00}\n      e5      {  0.00}\n\n\n");
}

TEST_F(PgnScanTest, ScoreInPawnsIsTheMoversInCentipawns)
{
    EXPECT_EQ(last_eval("e4 {+0.35/12 1.2s}"), "35");
    EXPECT_EQ(last_eval("e4 {+0.35/12 1.2s} e5 {-0.40/9 1s}"), "-40");
    EXPECT_EQ(last_eval("e4 {depth 3 0.12/x}"), "12");
    EXPECT_EQ(last_eval("e4 {1.5/1 9.9/9}"), "150");
}

TEST_F(PgnScanTest, ScoreIsTruncatedNotRounded)
{
    EXPECT_EQ(last_eval("e4 {0.29/1}"), "28"); // 0.29 * 100 is just below 29
    EXPECT_EQ(last_eval("e4 {-0.29/1}"), "-28");
    EXPECT_EQ(last_eval("e4 {0.999/1}"), "99");
}

TEST_F(PgnScanTest, MateScoresAreNineThousand)
{
    EXPECT_EQ(last_eval("e4 {-M5/20}"), "-9000");
    EXPECT_EQ(last_eval("e4 {+M5/20 0.004s}"), "9000");
    EXPECT_EQ(last_eval("e4 {M5/20}"), "0"); // without a sign it is no number
}

TEST_F(PgnScanTest, ScoresOutOfRangeAreTheNearest)
{
    EXPECT_EQ(last_eval("e4 {+99999.0/12}"), "32767");
    EXPECT_EQ(last_eval("e4 {-1e300/12}"), "-32768");
    EXPECT_EQ(last_eval("e4 {nan/12}"), "0");
    EXPECT_EQ(last_eval("e4 {eval 99999999999999999999, x}"), "32767");
    EXPECT_EQ(last_eval("e4 {eval 1, x} e5 {eval -99999, x}"), "32767");
}

TEST_F(PgnScanTest, NumberBehindEvalIsWhitesAndTurnedForBlack)
{
    EXPECT_EQ(last_eval("e4 {eval 25, depth 12}"), "25");
    EXPECT_EQ(last_eval("e4 {eval 25, depth 12} e5 {eval 25, depth 12}"), "-25");
    EXPECT_EQ(last_eval("e4 {eval -7}"), "-7");
    EXPECT_EQ(last_eval("e4 {eval  25, depth 12}"), "25");
    EXPECT_EQ(last_eval("e4 {eval  , depth 12}"), "0"); // a blank is a text without digits
    EXPECT_EQ(last_eval("e4 {eval 3, +0.50/12}"), "3"); // before a score in pawns
}

TEST_F(PgnScanTest, EmptyNumberBehindEvalIsNoEvaluationForBothSides)
{
    EXPECT_EQ(last_eval("e4 {eval , depth 12}"), "-29999");
    EXPECT_EQ(last_eval("e4 {eval 1, x} e5 {eval , x}"), "-29999");
    EXPECT_EQ(last_eval("e4 {eval }"), "-29999");
}

TEST_F(PgnScanTest, CommentWithoutAnEvaluationIsMarked)
{
    EXPECT_EQ(last_eval("e4 {good}"), "-29999");
    EXPECT_EQ(last_eval("e4 {}"), "-29999");
    EXPECT_EQ(last_eval("e4"), "-30000");
    EXPECT_EQ(last_eval("e4 {+0.35/12} {good}"), "-29999"); // the last comment counts
}

TEST_F(PgnScanTest, CommentBeforeTheFirstMoveIsDropped)
{
    EXPECT_EQ(last_eval("{+9.99/1} e4 {+0.01/1}"), "1");
    EXPECT_EQ(last_eval("{+9.99/1} e4"), "-30000");
}

TEST_F(PgnScanTest, MoveWithoutACommentIsPrintedWithAnEmptyOne)
{
    scan(1, game("1. e4 e5 {none here} 2. Nf3 {-0.05/1}"));
    EXPECT_EQ(read_file("tmp.pgn"),
        "[Event \"t\"]\n[Result \"1-0\"]\n"
        "  1.  e4      {}\n      e5      {}\n  2.  Nf3     { -0.05}\n\n\n");
}

TEST_F(PgnScanTest, TextOfNestedCommentsIsCollectedWithoutTheBraces)
{
    EXPECT_EQ(last_eval("e4 {{+0.2}5/1}"), "25");
    EXPECT_EQ(last_eval("e4 {a {b} +0.07/1} e5 {+0.01/1}"), "1");
}

TEST_F(PgnScanTest, CommentGoesOnOverLinesAndLookalikesOfTags)
{
    EXPECT_EQ(last_eval("e4 {x\n+0.35/12}"), "35"); // the line feed is a blank
    EXPECT_EQ(last_eval("e4 {+0.35/12\n[%clk 0:00:50]\nrest}"), "35");
    EXPECT_EQ(moves_of(game("e4 {+0.01/1\n\n d4 } e5 {+0.01/1}")), "e4 e5");
}

TEST_F(PgnScanTest, CommentIsCutBehindFourThousandCharacters)
{
    const auto filler = [](size_t size) {
        std::string text;
        while (text.size() < size) {
            text += std::string(79, 'x') + "\n";
        }
        return text.substr(0, size - 1) + " ";
    };
    EXPECT_EQ(last_eval("e4 {" + filler(3993) + "+0.35/1}"), "35");
    EXPECT_EQ(last_eval("e4 {" + filler(3994) + "+0.35/1}"), "35"); // the slash just fits
    EXPECT_EQ(last_eval("e4 {" + filler(3995) + "+0.35/1}"), "-29999");
    EXPECT_EQ(last_eval("e4 {" + filler(100000) + "} e5 {+0.02/1}"), "-29999");
}

TEST_F(PgnScanTest, UnclosedCommentEndsWithItsGame)
{
    EXPECT_EQ(moves_of(game("e4 {+0.01/1} e5 {+0.01/1 d4") + game("c4 {+0.01/1}")), "e4 e5 c4");
    EXPECT_EQ(moves_of(game("{never closed e4") + game("c4 {+0.01/1}")), "c4");
    // A tag of any kind ends a game that has moves.
    EXPECT_EQ(
        moves_of(game("e4 {+0.01/1} e5 {+0.01/1 d4") + "[Site \"s\"]\nc4 {+0.01/1}\n"), "e4 e5 c4");
    EXPECT_EQ(moves_of("[Event \"t\"]\ne4 {book 1\n[Site \"s\"]\nd4 {+0.02/1}\n"), "e4 d4");
    EXPECT_EQ(last_eval("e4 {book 1\n[Site \"s\"]\nd4 {+0.02/1}"), "2"); // nothing of it stays
}

TEST_F(PgnScanTest, StrayClosingBraceIsPassedOver)
{
    EXPECT_EQ(moves_of(game("e4 {+0.01/1} } e5 } {+0.01/1}")), "e4 e5");
}

// ---- Moves

TEST_F(PgnScanTest, MovesBeginWithALetter)
{
    EXPECT_EQ(
        moves_of(game("1.e4 {+0/1} 1...e5 {+0/1} $14 2. !Nf3 {+0/1} 1-0 * 1/2-1/2")), "e4 e5 Nf3");
    EXPECT_EQ(moves_of(game("e2e4 {+0/1} e7e5 {+0/1} Ng1f3")), "e2e4 e7e5"); // no form of a move
    EXPECT_EQ(exit_status, 1);
}

TEST_F(PgnScanTest, WordIsTakenUpToABlankAndCutAtSevenCharacters)
{
    EXPECT_EQ(moves_of(game("e4{+0/1} e5")), ""); // e4{+0/1 is the move
    EXPECT_EQ(scan(3, game("abcdefghijk")).errors,
        "games.pgn:4: move 'abcdefg' cannot be read, the game ends there\n");
    EXPECT_EQ(moves_of(game("e4 {+0/1} (c4) e5 {+0/1}")), "e4"); // c4) is Black's move
}

TEST_F(PgnScanTest, CastlingWithNoughtsIsNotSeen)
{
    const std::string opening = "e4 {+0/1} e5 {+0/1} Nf3 {+0/1} Nf6 {+0/1} Bc4 {+0/1} Bc5 {+0/1} ";
    EXPECT_EQ(moves_of(game(opening + "O-O {+0/1} O-O {+0/1} d3 {+0/1}")),
        "e4 e5 Nf3 Nf6 Bc4 Bc5 O-O O-O d3");
    const ToolRun run = scan(3, game(opening + "0-0 {+0/1}\nd6 {+0/1} d3 {+0/1}"));
    EXPECT_EQ(listed_moves(), "e4 e5 Nf3 Nf6 Bc4 Bc5");
    EXPECT_EQ(run.out, "games= 1, positions= 6\n");
    EXPECT_EQ(run.errors, "games.pgn:5: move 'd6' cannot be read, the game ends there\n");
    EXPECT_EQ(exit_status, 1);
}

TEST_F(PgnScanTest, UnreadableMoveEndsItsGameAlone)
{
    const ToolRun run = scan(3, game("e4 {+0/1}\nxx {+0/1} e5") + game("d4 {+0/1}"));
    EXPECT_EQ(listed_moves(), "e4 d4");
    EXPECT_EQ(run.out, "games= 2, positions= 2\n");
    EXPECT_EQ(run.errors, "games.pgn:5: move 'xx' cannot be read, the game ends there\n");
    scan(1, game("e4 {+0/1}\nxx {+0/1} e5") + game("d4 {+0/1}"));
    EXPECT_EQ(read_file("tmp.pgn"),
        "[Event \"t\"]\n[Result \"1-0\"]\n  1.  e4      {  0.00}\n\n"
        "[Event \"t\"]\n[Result \"1-0\"]\n  1.  d4      {  0.00}\n\n\n");
}

TEST_F(PgnScanTest, AmbiguousMoveIsNamed)
{
    const ToolRun run =
        scan(3, game("Nf3 {+0/1} a6 {+0/1} d4 {+0/1} b6 {+0/1} Nd2 {+0/1} c6 {+0/1}"));
    EXPECT_EQ(run.out, "ambiguous move\ngames= 1, positions= 4\n");
}

TEST_F(PgnScanTest, LongLineIsReadInPieces)
{
    // 254 characters with the line feed are a line; what follows them is one of its own.
    EXPECT_EQ(moves_of(game("e4 {+0/1}" + std::string(246, ' ') + "e5 {+0/1}")), "e4 e5");
    EXPECT_EQ(moves_of(game("e4 {+0/1}" + std::string(244, ' ') + "e5 {+0/1}")), "e4");
    EXPECT_EQ(moves_of(game("e4 {+0/1}" + std::string(245, ' ') + "[Site] {+0/1} e5")), "e4");
    EXPECT_EQ(moves_of(game("e4 {+0/1} {" + std::string(1000000, 'x') + "}\ne5 {+0/1}")), "e4");
}

TEST_F(PgnScanTest, GameOfTwoThousandMovesIsCut)
{
    const ToolRun run = scan(4, game(long_game(4000)) + game("e4"));
    EXPECT_EQ(run.out, "games= 2, positions= 0\n");
    EXPECT_EQ(run.errors, "games.pgn:804: the moves of a game behind half-move 800 are left out\n");
    scan(1, game(long_game(4000)));
    EXPECT_EQ(count_lines(read_file("tmp.pgn")), 2 + 800 + 2);
    // A comment behind a move that is left out is not taken for that of the last one kept.
    const std::string without = read_file("tmp.pgn");
    scan(1, game(long_game(800) + "Nf3 {+9.00/1}"));
    EXPECT_EQ(read_file("tmp.pgn"), without);
    // The comments of the next game are read again.
    const std::string next = game("e4 {+0.30/1} e5 {+0.20/1}");
    scan(1, next);
    const std::string alone = read_file("tmp.pgn");
    EXPECT_NE(alone.find("30"), std::string::npos) << alone;
    scan(1, game(long_game(801)) + next);
    EXPECT_NE(read_file("tmp.pgn").find(alone), std::string::npos);
}

// ---- Tags

TEST_F(PgnScanTest, BrokenOffGamesAreSkipped)
{
    const std::string moves = "e4 {+0/1}\n";
    const auto with_tag = [&](const std::string& tag) {
        return "[Event \"t\"]\n[Termination \"" + tag + "\"]\n\n" + moves + game("d4 {+0/1}");
    };
    EXPECT_EQ(moves_of(with_tag("time forfeit")), "d4");
    EXPECT_EQ(moves_of(with_tag("unterminated")), "d4");
    EXPECT_EQ(moves_of(with_tag("abandoned")), "d4");
    EXPECT_EQ(moves_of(with_tag("normal")), "e4 d4");
    EXPECT_EQ(scan(3, with_tag("time forfeit")).out, "games= 2, positions= 1\n");
}

TEST_F(PgnScanTest, NamesAndEventsDoNotSkip)
{
    EXPECT_EQ(moves_of("[Event \"abandoned\"]\n[White \"time forfeit\"]\n[Black \"unterminated\"]\n"
                       "[Result \"abandoned\"]\n\ne4 {+0/1}\n"),
        "e4");
}

TEST_F(PgnScanTest, OnlyTheNextEventEndsTheSkipping)
{
    EXPECT_EQ(
        moves_of("[Event \"t\"]\n[X \"abandoned\"]\n[White \"a\"]\n\ne4 {+0/1}\n[%d4]\n"), "");
}

TEST_F(PgnScanTest, ResultStaysUntilTheNextResultTag)
{
    const std::string moves = long_game(24);
    const auto results = [&](const std::string& text) {
        scan(2, text);
        std::istringstream lines(read_file("tmp.epd"));
        std::string found;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" w ") != std::string::npos) {
                found += line.substr(line.find("gr "));
            }
        }
        return found;
    };
    // Each game gives index 16 and 17, one of them with White to move.
    EXPECT_EQ(results("[Event \"a\"]\n" + moves), "gr 0.5;");
    EXPECT_EQ(results(game(moves, "1-0") + "[Event \"b\"]\n" + moves), "gr 1.0;gr 1.0;");
    EXPECT_EQ(results(game(moves, "0-1") + game(moves, "*")), "gr 0.0;gr 0.5;");
    EXPECT_EQ(results("[Event \"a\"]\n[Result \"*\"] 1-0\n" + moves), "gr 0.5;");
    EXPECT_EQ(results("[Event \"a\"]\n[Result 1-0]\n" + moves), "gr 0.5;");
}

TEST_F(PgnScanTest, FormOneCopiesTagsAndNumbersTheGames)
{
    scan(1, "[Event \"a\"]\n[Round \"7\"]\n[Custom]\n\ne4\n[Event \"b\"]\n[Round \"-\"]\n\nd4\n");
    EXPECT_EQ(read_file("tmp.pgn"),
        "[Event \"a\"]\n[Round \"7\"]\n[Tag \"game_1\"]\n[Custom]\n  1.  e4      {}\n\n"
        "[Event \"b\"]\n[Round \"-\"]\n[Tag \"game_2\"]\n  1.  d4      {}\n\n\n");
}

// ---- Forms

TEST_F(PgnScanTest, FormTwoTakesTheMiddleOfAGame)
{
    scan(2, game(long_game(40)));
    std::istringstream lines(read_file("tmp.epd"));
    i32 count = 0;
    std::string first;
    std::string last;
    for (std::string line; std::getline(lines, line) && !line.empty(); ++count) {
        first = first.empty() ? line : first;
        last = line;
    }
    EXPECT_EQ(count, 34 - 16);
    EXPECT_TRUE(contains(first, " w ")) << first; // index 16
    EXPECT_TRUE(contains(first, " gr 1.0;")) << first;
    EXPECT_TRUE(contains(last, " b ")) << last; // index 33
    EXPECT_TRUE(contains(last, " gr 0.0;")) << last;
}

TEST_F(PgnScanTest, FormTwoNeedsTwentyThreeHalfMoves)
{
    EXPECT_EQ(scan(2, game(long_game(22))).out, "games= 1, positions= 0\n");
    EXPECT_EQ(scan(2, game(long_game(23))).out, "games= 1, positions= 1\n");
    EXPECT_EQ(scan(2, game(long_game(6))).out, "games= 1, positions= 0\n");
}

TEST_F(PgnScanTest, FormTwoLooksUpToIndex220AndFormThreeUpTo200)
{
    EXPECT_EQ(scan(2, game(long_game(260))).out, "games= 1, positions= 205\n");
    EXPECT_EQ(scan(3, game(long_game(260))).out, "games= 1, positions= 201\n");
    // A move behind the last index is not read any more.
    EXPECT_EQ(scan(3, game(long_game(201) + " xx")).errors, "");
}

TEST_F(PgnScanTest, FormTwoLeavesOutSettledChecksAndQuietStretches)
{
    std::string moves = long_game(60);
    const auto count = [&](const std::string& text) { return scan(2, game(text)).out; };
    EXPECT_EQ(count(moves), "games= 1, positions= 38\n");
    // Index 20, the second pawn move, gets another evaluation.
    const size_t at = moves.find("a4 {+0.01/1}");
    const auto with_score = [&](const std::string& score) {
        return moves.substr(0, at) + "a4 {" + score + "/1}" + moves.substr(at + 12);
    };
    EXPECT_EQ(count(with_score("+49.991")), "games= 1, positions= 38\n");
    EXPECT_EQ(count(with_score("+50.001")), "games= 1, positions= 37\n");
    EXPECT_EQ(count(with_score("-50.001")), "games= 1, positions= 37\n");
    // Without pawn moves the clock passes twenty at index 21.
    EXPECT_EQ(
        count(repeat(10, "Nf3 {0/1} Nf6 {0/1} Ng1 {0/1} Ng8 {0/1}\n")), "games= 1, positions= 5\n");
}

TEST_F(PgnScanTest, FormThreeEndsBehindTheDecision)
{
    EXPECT_EQ(moves_of(game("e4 {+5.00/1} e5 {-5.05/1} d4 {0/1}")), "e4 e5");
    EXPECT_EQ(moves_of(game("e4 e5 d4")), "e4"); // no evaluation is a large one
    scan(3, game("e4 {+0.10/1} e5 {-0.20/1}"));
    EXPECT_EQ(read_file("tmp.epd"),
        std::string(start_fen)
            + " bm e4; ce 10;\n"
              "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 bm e5; ce -20;\n\n");
}

TEST_F(PgnScanTest, FormThreeLeavesOutPositionsInCheck)
{
    EXPECT_EQ(moves_of(game("e4 {0/1} f6 {0/1} Qh5+ {0/1} g6 {0/1} Qg4 {0/1}")), "e4 f6 Qh5+ Qg4");
}

TEST_F(PgnScanTest, FormFourGivesTheResultForTheSideToMove)
{
    const std::string drawn = read_file(data_path("scan/rook-ending.pgn").c_str());
    const auto with_result = [&](const std::string& result) {
        std::string games = drawn;
        for (size_t at = 0; (at = games.find("[Result ", at)) != std::string::npos; ++at) {
            games.replace(at, games.find('\n', at) - at, "[Result \"" + result + "\"]");
        }
        EXPECT_EQ(scan(4, games).out, "games= 3, positions= 63\n");
        return read_file("tmp.epd");
    };
    const std::string white = with_result("1-0");
    const std::string black = with_result("0-1");
    EXPECT_EQ(count_lines(white), 64);
    for (const std::string& found : { white, black }) {
        std::istringstream lines(found);
        for (std::string line; std::getline(lines, line) && !line.empty();) {
            const bool wins = contains(line, " w ") == (found == white);
            EXPECT_TRUE(contains(line, wins ? "; tune 1.00000;" : "; tune 0.00000;")) << line;
        }
    }
    EXPECT_TRUE(contains(with_result("*"), "; tune 0.50000;\n"));
}

TEST_F(PgnScanTest, BlunderNeedsThreeRepliesThatGainAndStayUp)
{
    // Index 13 is Black's seventh move; the evaluations of White, before it, in the reply, two
    // moves later and four moves later, decide.
    const auto annotated = [](i32 before, i32 reply, i32 second, i32 fourth, i32 plies) {
        const char* const knights[] = { "Nf3", "Nf6", "Ng1", "Ng8" };
        std::string moves;
        for (i32 i = 0; i < plies; ++i) {
            const i32 eval = i == 12 ? before
                : i == 14            ? reply
                : i == 16            ? second
                : i == 20            ? fourth
                                     : 0;
            moves += std::string(knights[i % 4]) + " {eval " + std::to_string(eval) + ", x}\n";
        }
        scan(1, game(moves));
        return read_file("tmpX.epd");
    };
    EXPECT_EQ(annotated(0, 0, 0, 0, 24), "");
    EXPECT_NE(annotated(100, 141, 141, 161, 24), "");
    EXPECT_EQ(annotated(100, 140, 141, 161, 24), "");
    EXPECT_EQ(annotated(100, 141, 140, 161, 24), "");
    EXPECT_EQ(annotated(100, 141, 141, 160, 24), "");
    EXPECT_EQ(annotated(-100, -59, -59, -40, 24), "");
    EXPECT_NE(annotated(-100, -59, -59, -39, 24), "");
    EXPECT_NE(annotated(249, 310, 310, 330, 24), "");
    EXPECT_EQ(annotated(250, 400, 400, 400, 24), "");
    EXPECT_NE(annotated(-999, 0, 0, 0, 24), "");
    EXPECT_EQ(annotated(-1000, 0, 0, 0, 24), "");
    EXPECT_EQ(annotated(100, 141, 141, 161, 23), ""); // ten moves must follow
}

TEST_F(PgnScanTest, EarlyMoveIsNoBlunder)
{
    // White's move of index 12 lets Black's evaluations rise; index 13 is the first that counts.
    const auto blunders = [](i32 index) {
        const char* const knights[] = { "Nf3", "Nf6", "Ng1", "Ng8" };
        std::string moves;
        for (i32 i = 0; i < 30; ++i) {
            const bool gains = i > index && i % 2 != index % 2;
            moves += std::string(knights[i % 4]) + (gains ? " {+2.00/1}\n" : " {0.00/1}\n");
        }
        scan(1, game(moves));
        return count_lines(read_file("tmpX.epd"));
    };
    EXPECT_EQ(blunders(11), 0);
    EXPECT_EQ(blunders(12), 0);
    EXPECT_EQ(blunders(13), 1);
    EXPECT_EQ(blunders(14), 1);
}

TEST_F(PgnScanTest, BlunderWithoutAReadableReplyIsNotRefutedByTheNextGame)
{
    const char* const knights[] = { "Nf3", "Nf6", "Ng1", "Ng8" };
    std::string moves;
    for (i32 i = 0; i < 30; ++i) {
        moves += std::string(i == 14 ? "xx" : knights[i % 4])
            + (i > 13 && i % 2 == 0 ? " {+2.00/1}\n" : " {0.00/1}\n");
    }
    scan(1, game(moves) + game("e4 {0.00/1}"));
    EXPECT_TRUE(contains(read_file("tmp.pgn"), " ? "));
    EXPECT_EQ(read_file("tmpX.epd"), "");
}

TEST_F(PgnScanTest, LargestEvaluationsArePrinted)
{
    scan(1, game("e4 {-99.99/1} e5 {+99.99/1} d4 {-100.00/1} d5 {-M1/1} c4 {+M1/1}"));
    EXPECT_EQ(read_file("tmp.pgn"),
        "[Event \"t\"]\n[Result \"1-0\"]\n"
        "  1.  e4      {-99.99}\n      e5      {-99.99}\n"
        "  2.  d4      {}\n      d5      { 90.00}\n  3.  c4      { 90.00}\n\n\n");
}

// ---- Files

TEST_F(PgnScanTest, MissingFileIsNamedAndChangesNothing)
{
    write_file("tmp.epd", "old");
    const ToolRun run = scan_file(3, "missing.pgn");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.errors, "missing.pgn: cannot be opened: No such file or directory\n");
    EXPECT_EQ(exit_status, 0);
    EXPECT_EQ(read_file("tmp.epd"), "old");
}

TEST_F(PgnScanTest, FolderOrDeviceIsNoFileOfGames)
{
    for (const char* name : { ".", "/dev/zero" }) {
        const ToolRun run = scan_file(3, name);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.errors, std::string(name) + ": cannot be opened: not a regular file\n");
        EXPECT_EQ(exit_status, 1);
    }
    EXPECT_FALSE(exists("tmp.epd"));
}

TEST_F(PgnScanTest, OutputThatCannotBeOpenedEndsTheRun)
{
    block("tmpX.epd.part");
    write_file("tmp.epd", "old");
    const ToolRun run = scan(3, game("e4"));
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.errors, "tmpX.epd: cannot be opened for writing: File exists\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("tmp.epd"), "old");
    EXPECT_FALSE(exists("tmp.epd.part"));
}

TEST_F(PgnScanTest, FolderUnderTheNameOfAnOutputEndsTheRunAtItsStart)
{
    for (const char* name : { "tmp.epd", "tmpX.epd" }) {
        block(name);
        const ToolRun run = scan(3, game("e4 {0/1}"));
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(
            run.errors, std::string(name) + ": cannot be opened for writing: Is a directory\n");
        EXPECT_EQ(exit_status, 1);
        EXPECT_FALSE(exists("tmp.epd.part"));
        EXPECT_FALSE(exists("tmpX.epd.part"));
        std::filesystem::remove_all(name);
        EXPECT_FALSE(exists("tmp.epd"));
    }
}

TEST_F(PgnScanTest, OutputThatCannotBeReplacedIsNamed)
{
    write_file("games.pgn", "");
    const ToolRun run = run_tool([] {
        static ToolInput input;
        OutputFile out;
        ASSERT_TRUE(open_input(&input, "games.pgn"));
        ASSERT_TRUE(open_tool_output(&input, &out, "tmp.epd", "tmp.epd.part"));
        block("tmp.epd"); // while the tool runs
        OutputFile* const files[] = { &out };
        finish_outputs(&input, files, 1);
        close_input(&input);
    });
    EXPECT_EQ(run.errors, "tmp.epd: cannot be replaced: Is a directory\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_FALSE(exists("tmp.epd.part"));
}

TEST_F(PgnScanTest, InputThatCannotBeReadToItsEndLeavesTheOldFiles)
{
    write_file("tmp.epd", "old");
    const ToolRun run = scan_file(3, "/proc/self/mem"); // a regular file that gives an error
    EXPECT_EQ(run.out, "games= 0, positions= 0\n");
    EXPECT_EQ(run.errors,
        "tmp.epd: not replaced, what could be made stays in tmp.epd.part\n"
        "tmpX.epd: not replaced, what could be made stays in tmpX.epd.part\n"
        "/proc/self/mem: cannot be read to its end\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("tmp.epd"), "old");
    EXPECT_EQ(read_file("tmp.epd.part"), "\n");
    EXPECT_FALSE(exists("tmpX.epd"));
}

TEST_F(PgnScanTest, FullDiskLeavesTheOldFilesAndGivesStatus1)
{
    write_file("tmp.epd", "old");
    write_file("tmpX.epd", "old too");
    write_file("games.pgn", repeat(20, game(long_game(40))));
    const ToolRun run = run_on_full_disk([] { scan_pgn(&dialogue, "games.pgn", 3); });
    EXPECT_EQ(run.out, "games= 20, positions= 800\n");
    EXPECT_EQ(run.errors, "tmp.epd: cannot be written: File too large\n");
    EXPECT_EQ(exit_status, 1);
    EXPECT_EQ(read_file("tmp.epd"), "old");
    EXPECT_EQ(read_file("tmpX.epd"), "old too");
    EXPECT_FALSE(exists("tmp.epd.part"));
    EXPECT_FALSE(exists("tmpX.epd.part"));
}

TEST_F(PgnScanTest, InputUnderTheNameOfAnOutputIsLeftAlone)
{
    const std::string games = game("e4 {+0.10/1} e5 {-0.10/1}");
    for (const char* name : { "tmp.pgn", "tmpX.epd", "tmp.pgn.part" }) {
        write_file(name, games);
        const ToolRun run = scan_file(1, name);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.errors, std::string(name) + ": would be replaced by the output\n");
        EXPECT_EQ(read_file(name), games);
        EXPECT_EQ(exit_status, 1);
        std::filesystem::remove(name);
    }
}

TEST_F(PgnScanTest, ManyMessagesAreOnlyCounted)
{
    const ToolRun run = scan(3, repeat(150, game("xx")));
    EXPECT_EQ(count_lines(run.errors), 101);
    EXPECT_TRUE(contains(run.errors, "\ngames.pgn: 50 messages more\n"));
}

TEST_F(PgnScanTest, ControlCharactersOfAMoveDoNotReachTheTerminal)
{
    EXPECT_EQ(scan(3, game("a\x1b[31m")).errors,
        "games.pgn:4: move 'a?[31m' cannot be read, the game ends there\n");
}

TEST_F(PgnScanTest, RandomBytesEndSafely)
{
    u64 state = 99;
    for (i32 round = 0; round < 100; ++round) {
        std::string bytes = "[Event \"t\"]\n";
        for (u32 size = next_random(&state, 4000); size > 0; --size) {
            bytes += static_cast<char>(next_random(&state, 256));
        }
        EXPECT_TRUE(contains(scan(1 + round % 4, bytes).out, "games= "));
    }
}

TEST_F(PgnScanTest, FileTruncatedAnywhereEndsSafely)
{
    const std::string games = read_file(data_path("scan/mates.pgn").c_str());
    for (size_t size = 0; size < games.size(); size += 3) {
        EXPECT_TRUE(contains(scan(1, games.substr(0, size)).out, "games= ")) << size;
    }
}

// Walking through the console's game, its files and the board editor.
#include <initializer_list>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "shell_test_support.h"
#include "board/defect.h"
#include "search/control.h"
#include "shell/console_game.h"

struct ConsoleGameTest : ConsoleTest {
    // What load says, without the board behind it.
    static std::string load_text(
        const std::string& games, const std::string& tag = "", std::string* after = nullptr)
    {
        write_file("in.pgn", games);
        say("new");
        const std::string output = say("load in.pgn " + tag);
        const std::string shown = board();
        EXPECT_GE(output.size(), shown.size());
        EXPECT_EQ(output.substr(output.size() - shown.size()), shown);
        const std::string head = "loading in.pgn, tag " + tag + "\n\n";
        EXPECT_EQ(output.substr(0, head.size()), head);
        if (after != nullptr) {
            *after = output.substr(head.size(), output.size() - head.size() - shown.size());
        }
        return game();
    }

    // The stored moves as coordinates.
    static std::string game()
    {
        std::string moves;
        for (i32 i = 0; i < dialogue.game->undo_count; ++i) {
            moves += (i == 0 ? "" : " ") + text_of(dialogue.game->undo[i].move);
        }
        return moves;
    }

    // Runs the editor on lines that are waiting already.
    static std::string edit(const std::string& lines)
    {
        FedInput input;
        input.feed(lines);
        input.end();
        return say("edit");
    }
};

// ---- jump

TEST_F(ConsoleGameTest, JumpOneGoesToTheStart)
{
    say_all("e2e4;e7e5;g1f3");
    expect_board(say("jump 1"));
    EXPECT_EQ(fen(), start_position);
    EXPECT_EQ(dialogue.game->undo_count, 0);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
}

TEST_F(ConsoleGameTest, JumpEndsBehindTheLastStoredMove)
{
    say_all("e2e4;e7e5;g1f3");
    const std::string end = fen();
    say("jump 1");
    expect_board(say("jump 5"));
    EXPECT_EQ(fen(), end);
    EXPECT_EQ(game(), "e2e4 e7e5 g1f3");
    EXPECT_EQ(say("]"), "");
    say("jump 2");
    EXPECT_EQ(game(), "e2e4 e7e5");
    EXPECT_TRUE(begins(say("]"), "2. move g1f3\n"));
}

TEST_F(ConsoleGameTest, JumpTakesAnyNumber)
{
    say_all("e2e4;e7e5");
    for (const char* number : { "", "0", "-1", "x", "-99999999999999" }) {
        say("jump 9");
        say(std::string("jump ") + number);
        EXPECT_EQ(dialogue.game->undo_count, 0) << number;
    }
    for (const char* number : { "2", "1000", "2147483647", "99999999999999" }) {
        say("jump 1");
        say(std::string("jump ") + number);
        EXPECT_EQ(dialogue.game->undo_count, 2) << number;
    }
}

// ---- save

TEST_F(ConsoleGameTest, SaveAppendsTheGame)
{
    EXPECT_EQ(say("save"), "");
    EXPECT_EQ(read_file("tmp.pgn"), "[Event \"Unknown\"]\n\n\n");
    say_all("e2e4;d7d5;e4d5;g8f6;f1b5");
    const std::string before = board();
    EXPECT_EQ(say("save"), "");
    EXPECT_EQ(read_file("tmp.pgn"),
        "[Event \"Unknown\"]\n\n\n[Event \"Unknown\"]\ne4 d5 exd5 Nf6 Bb5+ \n\n");
    EXPECT_EQ(board(), before);
    EXPECT_EQ(dialogue.game->undo_count, 5);
}

TEST_F(ConsoleGameTest, SaveBreaksTheLineAfterEachEleventhMove)
{
    const char* shuffle[] = { "Nf3", "Nf6", "Ng1", "Ng8" };
    for (i32 i = 0; i < 23; ++i) {
        say(shuffle[i % 4]);
    }
    say("save");
    EXPECT_EQ(read_file("tmp.pgn"),
        "[Event \"Unknown\"]\n"
        "Nf3 Nf6 Ng1 Ng8 Nf3 Nf6 Ng1 Ng8 Nf3 Nf6 Ng1 \n"
        "Ng8 Nf3 Nf6 Ng1 Ng8 Nf3 Nf6 Ng1 Ng8 Nf3 Nf6 \n"
        "Ng1 \n\n");
}

TEST_F(ConsoleGameTest, MovesTakenBackAreNotSavedButCanBeRepeated)
{
    say_all("e2e4;e7e5;g1f3;[;[;save");
    EXPECT_EQ(read_file("tmp.pgn"), "[Event \"Unknown\"]\ne4 \n\n");
    EXPECT_EQ(game(), "e2e4");
    EXPECT_TRUE(begins(say("]"), "1... move e7e5\n"));
    EXPECT_TRUE(begins(say("]"), "2. move g1f3\n"));
}

TEST_F(ConsoleGameTest, SaveWithoutAFileDoesNothing)
{
    say_all("e2e4;e7e5");
    const std::string before = board();
    ASSERT_EQ(mkdir("tmp.pgn", 0777), 0);
    EXPECT_EQ(say("save"), "");
    EXPECT_EQ(board(), before);
    ASSERT_EQ(rmdir("tmp.pgn"), 0);
    ASSERT_EQ(mkfifo("tmp.pgn", 0666), 0);
    EXPECT_EQ(say("save"), "");
    EXPECT_EQ(board(), before);
}

TEST_F(ConsoleGameTest, ASavedGameCanBeLoaded)
{
    say_all("e2e4;e7e5;Nf3;Nc6;Bb5;a6;O-O;Nf6;d4;exd4;Bxc6;dxc6;e5;d3;exf6;d2;fxg7;dxc1=Q;gxh8=N");
    const std::string moves = game();
    const std::string end = fen();
    EXPECT_EQ(dialogue.game->undo_count, 19);
    say_all("save;new");
    expect_board(say("load tmp.pgn"), "loading tmp.pgn, tag \n\n");
    EXPECT_EQ(game(), moves);
    EXPECT_EQ(fen(), end);
}

// ---- load

static constexpr char three_games[] =
    "[Event \"First\"]\n[White \"Anna\"]\n\n1. e4 e5 2. Nf3 Nc6 1-0\n\n"
    "[Event \"Second\"]\n[White \"Bert\"]\n\n1.d4 d5 2.c4 {the gambit} e6 1/2-1/2\n\n"
    "[Event \"Third\"]\n[White \"Anna\"]\n\n1. c4 *\n";

TEST_F(ConsoleGameTest, LoadTakesAGameByNumber)
{
    EXPECT_EQ(load_text(three_games), "e2e4 e7e5 g1f3 b8c6");
    EXPECT_EQ(load_text(three_games, "1"), "e2e4 e7e5 g1f3 b8c6");
    EXPECT_EQ(load_text(three_games, "2"), "d2d4 d7d5 c2c4 e7e6");
    EXPECT_EQ(load_text(three_games, "3"), "c2c4");
    EXPECT_EQ(load_text(three_games, "2x"), "d2d4 d7d5 c2c4 e7e6");
}

TEST_F(ConsoleGameTest, NumbersOutOfRangeMeanTheFirstGame)
{
    for (const char* tag : { "0", "1001", "99999999999999999999" }) {
        EXPECT_EQ(load_text(three_games, tag), "e2e4 e7e5 g1f3 b8c6") << tag;
    }
    std::string many;
    for (i32 i = 1; i <= 1001; ++i) {
        many += "[Event \"x\"]\n1. " + std::string(i == 1000 ? "h4" : "a4") + "\n";
    }
    EXPECT_EQ(load_text(many, "1000"), "h2h4");
    EXPECT_EQ(load_text(many, "1001"), "a2a4");
}

TEST_F(ConsoleGameTest, ANumberBeyondTheLastGameLeavesTheStartPosition)
{
    EXPECT_EQ(load_text(three_games, "4"), "");
    EXPECT_EQ(fen(), start_position);
    EXPECT_EQ(load_text(three_games, "1000"), "");
}

TEST_F(ConsoleGameTest, LoadFindsAGameByText)
{
    EXPECT_EQ(load_text(three_games, "Bert"), "d2d4 d7d5 c2c4 e7e6");
    EXPECT_EQ(load_text(three_games, "Anna"), "e2e4 e7e5 g1f3 b8c6");
    EXPECT_EQ(load_text(three_games, "Third"), "c2c4");
    EXPECT_EQ(load_text(three_games, "-"), "e2e4 e7e5 g1f3 b8c6");
    EXPECT_EQ(load_text(three_games, "Carl"), "");
    EXPECT_EQ(fen(), start_position);
    // The lines of the game before the text are passed over.
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4\n{here} 1. d4\n", "here"), "d2d4");
}

TEST_F(ConsoleGameTest, WithoutAHeaderThereIsNoFirstGame)
{
    EXPECT_EQ(load_text("1. e4 e5\n"), "");
    EXPECT_EQ(load_text("1. e4 e5\n", "e4"), "e2e4 e7e5");
}

TEST_F(ConsoleGameTest, LoadSetsTheClocks)
{
    dialogue.limits.tc_seconds = 12.5;
    store(dialogue.limits.clock_left[White], 1.0);
    load_text(three_games);
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 12.5);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 12.5);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
}

TEST_F(ConsoleGameTest, WithoutAFileOnlyTheClocksChange)
{
    say_all("e2e4;e7e5");
    const std::string before = board();
    ASSERT_EQ(mkdir("folder", 0777), 0);
    ASSERT_EQ(mkfifo("pipe", 0666), 0);
    dialogue.limits.tc_seconds = 33.0;
    store(stop_code, StopCode::None);
    for (const char* name : { "nothing.pgn", "folder", "pipe", "/dev/zero", "" }) {
        store(dialogue.limits.clock_left[White], 1.0);
        EXPECT_EQ(say(std::string("load ") + name), std::string("loading ") + name + ", tag \n\n");
        EXPECT_EQ(load(dialogue.limits.clock_left[White]), 33.0) << name;
        EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 33.0) << name;
        EXPECT_EQ(board(), before) << name;
        EXPECT_EQ(dialogue.game->undo_count, 2);
    }
    EXPECT_EQ(load(stop_code), StopCode::None);
}

TEST_F(ConsoleGameTest, CommentsNestAndSpanLines)
{
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 {one {two} three} e5 2. {a\nb\n[no header]\nc}Nf3\n"),
        "e2e4 e7e5 g1f3");
    // What stands before a comment is played when the comment is closed.
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 {open\nstill} e5\n"), "e2e4 e7e5");
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 e5\n2. Nf3 {never closed\n Nc6\n"), "e2e4 e7e5");
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e{4}4 e5\n"), "e2e4 e7e5");
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4{x}\n{[}e5\n"), "e2e4 e7e5");
}

TEST_F(ConsoleGameTest, AStrayBraceHidesWhatFollows)
{
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 e5\n} 2. Nf3 Nc6\n{ 2. Nc3\n"), "e2e4 e7e5 b1c3");
    // What stands before it on its line waits as for the end of a comment.
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 e5\n2. Nf3 }\n"), "e2e4 e7e5");
}

TEST_F(ConsoleGameTest, AHeaderInsideAnOpenCommentIsNoHeader)
{
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 {\n[White \"e5\"]\n} 1... c5\n"), "e2e4 c7c5");
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 {\n[White] } 1... c5\n"), "e2e4 c7c5");
}

TEST_F(ConsoleGameTest, AMoveThatCannotBeReadEndsTheLoading)
{
    std::string said;
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 e5 2. Nf6 Nc6\n", "", &said), "e2e4 e7e5");
    EXPECT_EQ(said, "can't parse move 'Nf6'\n");
    EXPECT_EQ(say("]"), "");
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 (1. d4 d5) e5\n", "", &said), "e2e4");
    EXPECT_EQ(said, "can't parse move 'd4'\n");
    EXPECT_EQ(load_text("[Event \"x\"]\n1. f3 e5 2. g4 Qh4#\n", "", &said), "f2f3 e7e5 g2g4");
    EXPECT_EQ(said, "can't parse move 'Qh4#'\n");
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4! e5\n", "", &said), "");
    EXPECT_EQ(said, "can't parse move 'e4!'\n");
}

TEST_F(ConsoleGameTest, AnAmbiguousMoveEndsTheLoading)
{
    std::string said;
    EXPECT_EQ(
        load_text("[Event \"x\"]\n1. d3 d6 2. Nd2 e6 3. Nf3\n", "", &said), "d2d3 d7d6 b1d2 e7e6");
    EXPECT_EQ(said, "ambiguous move\ncan't parse move 'Nf3'\n");
}

TEST_F(ConsoleGameTest, WordsWithoutALetterArePassedOver)
{
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 $1 ?! 1... e5 -- 2.Nf3 17. (( * 0-1 1/2-1/2 Nc6\n"),
        "e2e4 e7e5 g1f3 b8c6");
}

TEST_F(ConsoleGameTest, CastlingWithZerosIsLost)
{
    std::string said;
    const std::string start = "[Event \"x\"]\n1. e4 e5 2. Nf3 Nf6 3. Be2 Be7 ";
    EXPECT_EQ(
        load_text(start + "4. O-O o-o\n", "", &said), "e2e4 e7e5 g1f3 g8f6 f1e2 f8e7 e1g1 e8g8");
    EXPECT_EQ(said, "");
    EXPECT_EQ(load_text(start + "4. 0-0 d6\n", "", &said), "e2e4 e7e5 g1f3 g8f6 f1e2 f8e7");
    EXPECT_EQ(said, "can't parse move 'd6'\n");
}

TEST_F(ConsoleGameTest, EveryLineLosesItsLastCharacter)
{
    // Also the last line, which has no line feed.
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 e5 2. Nf3 "), "e2e4 e7e5 g1f3");
    std::string said;
    EXPECT_EQ(load_text("[Event \"x\"]\n1. e4 e5 2. Nf3", "", &said), "e2e4 e7e5");
    EXPECT_EQ(said, "can't parse move 'Nf'\n");
    EXPECT_EQ(load_text("[Event \"x\"]\r\n1. e4 e5\r\n2. Nf3\r\n"), "e2e4 e7e5 g1f3");
}

TEST_F(ConsoleGameTest, AByteOrderMarkIsNoText)
{
    std::string said;
    EXPECT_EQ(load_text("\xef\xbb\xbf[Event \"x\"]\n1. e4 e5\n", "", &said), "e2e4 e7e5");
    EXPECT_EQ(said, "");
}

TEST_F(ConsoleGameTest, LongLinesAreReadInPiecesOf1022Characters)
{
    // The 1022nd character is lost, whatever it is: here the x.
    const std::string head = "[Event \"x\"]\n";
    EXPECT_EQ(load_text(head + std::string(1018, ' ') + "e4 xe5\n"), "e2e4 e7e5");
    EXPECT_EQ(load_text(head + std::string(1017, ' ') + "e4 xe5\n"), "e2e4");
    std::string said;
    EXPECT_EQ(load_text(head + std::string(1020, ' ') + "e4 e5\n", "", &said), "");
    EXPECT_EQ(said, "can't parse move 'e'\n");
    EXPECT_EQ(load_text(head + "1. e4 " + std::string(1 << 20, ' ') + "e5\n"), "e2e4 e7e5");
    EXPECT_EQ(load_text(head + "1. e4 {" + std::string(1 << 20, 'x') + "} e5\n"), "e2e4 e7e5");
    load_text(head + std::string(1 << 20, 'N') + "\n");
    load_text(head + std::string(1 << 20, '{') + "\n");
    load_text(head + std::string(1 << 20, '[') + "\n");
}

TEST_F(ConsoleGameTest, TextThatWaitsForTheEndOfCommentsIsBounded)
{
    std::string file = "[Event \"x\"]\n{\n";
    for (i32 i = 0; i < 3000; ++i) {
        file += "} 1. e4 e5 {\n";
    }
    EXPECT_EQ(load_text(file + "}\n").substr(0, 9), "e2e4 e7e5");
}

TEST_F(ConsoleGameTest, BytesOfAnyKindAreReadWithoutHarm)
{
    u64 state = 5;
    for (i32 round = 0; round < 50; ++round) {
        std::string bytes = "[Event \"x\"]\n";
        for (i32 i = 0; i < 3000; ++i) {
            bytes += static_cast<char>(next_random(&state, 256));
        }
        load_text(bytes);
    }
    EXPECT_EQ(load_text(std::string("[Event \"x\"]\n\0\n1. e4\0 e5\nd5\n", 27)), "");
    EXPECT_EQ(load_text(""), "");
    EXPECT_EQ(load_text("[Event \"J\xf6rg\"]\n1. e4\n", "J\xf6rg"), "e2e4");
}

TEST_F(ConsoleGameTest, LongGamesAreLoadedToTheirEnd)
{
    std::string file = "[Event \"x\"]\n";
    for (i32 i = 0; i < 500; ++i) {
        file += "Nf3 Nf6 Ng1 Ng8\n";
    }
    load_text(file);
    EXPECT_EQ(fen(), start_position);
    EXPECT_LE(dialogue.game->undo_count, game_limit);
    EXPECT_GE(dialogue.game->undo_count, game_keep);
}

TEST_F(ConsoleGameTest, AnythingLoadedReplacesTheOldGame)
{
    say_all("d2d4;d7d5;c2c4;c7c5;[;[");
    write_file("in.pgn", "[Event \"x\"]\n1. e4\n");
    say("load in.pgn");
    EXPECT_EQ(game(), "e2e4");
    EXPECT_EQ(say("]"), "");
}

// ---- edit

static constexpr char help[] = "\n\n\n"
                               ".                    end edit\n"
                               "#                    clear board\n"
                               "w  Pa2 Pb2 Kc2       white, pieces\n"
                               "b  Pa7 Pb7 Kc7       black, pieces\n";

TEST_F(ConsoleGameTest, TheEditorShowsItsHelpAndThenTheBoard)
{
    expect_board(edit(".\n"), help);
    EXPECT_EQ(fen(), start_position);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    expect_board(edit(""), help);
}

TEST_F(ConsoleGameTest, PiecesAreSetOnAClearedBoard)
{
    expect_board(edit("#\nw Ke1 Qd1 Pa2\nb Ke8 Ra8\n.\n"), help);
    EXPECT_EQ(fen(), "r3k3/8/8/8/8/8/P7/3QK3 b q -");
    EXPECT_TRUE(fields_agree(&dialogue.game->pos));
    EXPECT_EQ(position_defect(&dialogue.game->pos), nullptr);
}

TEST_F(ConsoleGameTest, TheLastLineTellsWhoMoves)
{
    edit("#\nw Ka1\nb Kh8\nw\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/K7 w - -");
    edit("black\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/K7 b - -");
    edit("  white Qb2\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/1Q6/K7 w - -");
}

TEST_F(ConsoleGameTest, LettersCountInEitherCaseAndOthersEmptyASquare)
{
    edit("#\nw ka1 qb1 rc1 bd1 ne1 pf2\nb Kh8 Qg8 Rf8 Be8 Nd8 Pc7\n.\n");
    EXPECT_EQ(fen(), "3nbrqk/2p5/8/8/8/8/5P2/KQRBN3 b - -");
    edit("w xc7 .d8 ?e8 -f8 0g8\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/5P2/KQRBN3 w - -");
    EXPECT_TRUE(fields_agree(&dialogue.game->pos));
}

TEST_F(ConsoleGameTest, OtherLinesAreDropped)
{
    for (const char* line :
        { "x Ka1", "Ka1", "# w Qe4", " #", "", " ", "?", "1 Pa5", "\xff\xfe" }) {
        say("fen 7k/8/8/8/8/8/8/K7 w - -");
        edit(std::string(line) + "\n.\n");
        EXPECT_EQ(fen(), line[0] == '#' ? "8/8/8/8/8/8/8/8 w - -" : "7k/8/8/8/8/8/8/K7 w - -")
            << line;
    }
}

TEST_F(ConsoleGameTest, ASquareOffTheBoardEndsTheLine)
{
    for (const char* bad : { "Pa9", "Pa0", "Ph9", "Ph0", "Pz9", "P", "Pa", "K", "Px" }) {
        say("fen 7k/8/8/8/8/8/8/K7 w - -");
        edit(std::string("w Qb1 ") + bad + " Qc1\n.\n");
        EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/KQ6 w - -") << bad;
    }
    // The squares are counted on, round the board and in the byte: these names are some of it.
    say("fen 7k/8/8/8/8/8/8/K7 w - -");
    edit("w Qi1 Qz1 Q\xff\xff\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/1Q6/8/Q5Q1/K7 w - -");
}

TEST_F(ConsoleGameTest, APieceReplacesAnother)
{
    edit("w Qe8 Pe7\n.\n");
    EXPECT_EQ(fen(), "rnbqQbnr/ppppPppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQ -");
    const Position* pos = &dialogue.game->pos;
    EXPECT_EQ(pos->piece_count[White] & 15, 9u);
    EXPECT_EQ(pos->piece_count[Black] & 15, 7u);
    EXPECT_TRUE(fields_agree(pos));
}

TEST_F(ConsoleGameTest, FalseCastlingRightsAreDropped)
{
    edit("w xa1\nb xe8 Ke7\nw\n.\n");
    EXPECT_EQ(fen(), "rnbq1bnr/ppppkppp/8/8/8/8/PPPPPPPP/1NBQKBNR w K -");
    EXPECT_TRUE(fields_agree(&dialogue.game->pos));
    // A cleared board has all rights again.
    edit("#\nw Ke1 Ra1 Rh1\nb Ke8 Ra8 Rh8\nw\n.\n");
    EXPECT_EQ(fen(), "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -");
}

TEST_F(ConsoleGameTest, TheGameBeginsAnewBehindTheEditor)
{
    say_all("e2e4;e7e5;[");
    edit(".\n");
    EXPECT_EQ(fen(), "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3");
    EXPECT_EQ(dialogue.game->undo_count, 0);
    EXPECT_EQ(say("]"), "");
    EXPECT_EQ(say("undo"), "");
    EXPECT_TRUE(begins(say("d7d5"), "1. move d7d5\n"));
    // A move taken back that would still be possible is gone as well.
    say_all("new;e2e4;[");
    edit(".\n");
    EXPECT_EQ(say("]"), "");
}

TEST_F(ConsoleGameTest, ClearingResetsTheClockOfTheDrawRule)
{
    say_all("Nf3;Nf6;Ng1");
    EXPECT_EQ(dialogue.game->pos.cnt50, 3);
    edit("#\nw Ke1\nb Ke8\n.\n");
    EXPECT_EQ(dialogue.game->pos.cnt50, 0);
    EXPECT_EQ(dialogue.game->pos.ep_square, NoSquare);
    EXPECT_EQ(dialogue.game->ply, 1);
    EXPECT_EQ(dialogue.game->last_move, 0);
}

TEST_F(ConsoleGameTest, LinesOfTheEditorHaveAtMost77Characters)
{
    // The 77th character of a longer line is its last one and is lost.
    say("fen 7k/8/8/8/8/8/8/K7 w - -");
    edit("w" + std::string(72, ' ') + "Qb1xw Qc1\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/KQQ5 w - -");
    say("fen 7k/8/8/8/8/8/8/K7 w - -");
    edit("w" + std::string(73, ' ') + "Qb1 Qc1\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/K7 w - -");
    edit(std::string(50000, 'w') + "\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/K7 w - -");
}

TEST_F(ConsoleGameTest, WithoutALineFeedTheLastCharacterIsLost)
{
    say("fen 7k/8/8/8/8/8/8/K7 w - -");
    edit("w Qb1 Qc1");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/KQ6 w - -");
    edit("w Qd1\r\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/KQ1Q4 w - -");
}

TEST_F(ConsoleGameTest, MoreThanSixteenPiecesStayOnTheBoard)
{
    std::string lines = "#\n";
    for (char rank = '1'; rank <= '8'; ++rank) {
        lines += "w";
        for (char file = 'a'; file <= 'h'; ++file) {
            lines += std::string(" Q") + file + rank;
        }
        lines += "\n";
    }
    edit(lines + ".\n");
    EXPECT_EQ(
        fen(), "QQQQQQQQ/QQQQQQQQ/QQQQQQQQ/QQQQQQQQ/QQQQQQQQ/QQQQQQQQ/QQQQQQQQ/QQQQQQQQ w - -");
    EXPECT_TRUE(fields_agree(&dialogue.game->pos));
    EXPECT_NE(position_defect(&dialogue.game->pos), nullptr);
    EXPECT_EQ(say("a1a2"), "");
}

TEST_F(ConsoleGameTest, AKingThatGoesLeavesTheOther)
{
    edit("w Kc4 xe1\n.\n");
    EXPECT_EQ(dialogue.game->pos.king_sq[White], square_of("c4"));
    EXPECT_EQ(position_defect(&dialogue.game->pos), nullptr);
    edit("w xc4\n.\n");
    EXPECT_NE(position_defect(&dialogue.game->pos), nullptr);
}

TEST_F(ConsoleGameTest, ManyPiecesFitOnALine)
{
    edit("#\nw Ka1 Pa2 Pb2 Pc2 Pd2 Pe2 Pf2 Pg2 Ph2 Nb1 Nc3 Bd3 Be3\nb Kh8\n.\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/2NBB3/PPPPPPPP/KN6 b - -");
}

TEST_F(ConsoleGameTest, RandomLinesKeepTheFieldsInAgreement)
{
    u64 state = 3;
    const char letters[] = "wb#.PNBRQKpnbrqkx abcdefgh12345678 \n\n";
    for (i32 round = 0; round < 200; ++round) {
        std::string lines = "w ";
        for (i32 i = 0; i < 400; ++i) {
            lines += letters[next_random(&state, sizeof letters - 1)];
        }
        edit(lines);
        EXPECT_TRUE(fields_agree(&dialogue.game->pos)) << lines;
        say_all("ev;swap;pv;bd;e2e4;e7e5;undo;]");
    }
}

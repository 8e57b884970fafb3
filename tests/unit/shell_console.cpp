// The console's words, one line at a time.
#include <initializer_list>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "shell_test_support.h"
#include "base/output.h"
#include "board/trace.h"
#include "search/control.h"
#include "search/hash.h"
#include "search/strength.h"
#include "shell/console.h"

TEST_F(ConsoleTest, AMoveIsMadeAndShown)
{
    const std::string output = say("e2e4");
    EXPECT_EQ(
        output.rfind("1. move e2e4\nrnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3\n", 0),
        0u)
        << output;
    EXPECT_EQ(load(stop_code), StopCode::Silent);
    EXPECT_EQ(say("move e7e5").rfind("1. move e7e5\n", 0), 0u);
    EXPECT_EQ(say("  Nf3  ").rfind("2. move Nf3\n", 0), 0u);
    EXPECT_EQ(dialogue.game->undo_count, 3);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
}

TEST_F(ConsoleTest, WhatIsNoMoveIsDropped)
{
    for (const char* line :
        { "", " ", "hello", "e2e5", "move", "move x", "isready", "stop", "+", "e4 e5 x", "O-O" }) {
        say("fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq -");
        EXPECT_EQ(say(line), "") << line;
        EXPECT_EQ(dialogue.game->undo_count, 0) << line;
    }
    EXPECT_EQ(say(std::string(4999, 'e')), "");
}

TEST_F(ConsoleTest, TheBoardAndAFen)
{
    EXPECT_EQ(say("bd").rfind(std::string(start_position) + "\n", 0), 0u);
    EXPECT_EQ(say("fen k7/8/8/8/8/8/8/7K b - -").rfind("k7/8/8/8/8/8/8/7K b - -\n", 0), 0u);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    EXPECT_EQ(say("fen").rfind("8/8/8/8/8/8/8/8 ", 0), 0u);
}

TEST_F(ConsoleTest, QuitDoesNotWait)
{
    EXPECT_EQ(say("quit"), "");
    EXPECT_EQ(dialogue.quit_flag, 1);
    EXPECT_EQ(load(stop_code), StopCode::Silent);
}

TEST_F(ConsoleTest, PerftCountsOnTheFirstWorker)
{
    set_workers(1);
    store(noise, silent_noise);
    EXPECT_EQ(say("perft 3").rfind("visited 8902 nodes in ", 0), 0u);
    EXPECT_EQ(load(engine_state), EngineState::Thinking);
    EXPECT_EQ(load(stop_code), StopCode::None);
    EXPECT_EQ(say("perft 4").rfind("visited 197281 nodes in ", 0), 0u);
    EXPECT_EQ(say("perft").rfind("visited 0 nodes in ", 0), 0u);
    EXPECT_EQ(say("perft -3").rfind("visited 0 nodes in ", 0), 0u);
    EXPECT_EQ(fen(), start_position);
}

TEST_F(ConsoleTest, PerftWorksWithoutWorkers)
{
    store(noise, silent_noise);
    EXPECT_EQ(say("perft 3").rfind("visited 8902 nodes in ", 0), 0u);
    EXPECT_EQ(say("perft 3").rfind("visited 8902 nodes in ", 0), 0u);
    EXPECT_EQ(fen(), start_position);
}

TEST_F(ConsoleTest, PerftStopsAtDepthTwenty)
{
    store(noise, silent_noise);
    say("fen k7/8/8/8/8/p1p5/P1P5/1K6 w - -");
    const std::string deep = say("perft 5");
    say("fen 7k/5Q2/6K1/8/8/8/8/8 b - -");
    EXPECT_EQ(say("perft 25").rfind("visited 0 nodes in ", 0), 0u);
    EXPECT_EQ(deep.rfind("visited ", 0), 0u);
}

TEST_F(ConsoleTest, PerftRefusesABoardThatCannotBeSearched)
{
    say("fen 8/8/8/8/8/8/8/K7 w - -");
    const std::string output = say("perft 2");
    EXPECT_EQ(output.find("visited"), std::string::npos);
    EXPECT_NE(output, "");
}

// ---- Words and lines

TEST_F(ConsoleTest, TheFirstWordCountsAsAWhole)
{
    for (const char* line : { "newx", "New", "und", "undoo", "[]", "]]", "..", "setx", "evx" }) {
        EXPECT_EQ(say(line), "") << line;
    }
    EXPECT_EQ(load(stop_code), StopCode::None);
}

TEST_F(ConsoleTest, LongWordsAndManyWordsAreCut)
{
    EXPECT_EQ(say("set " + std::string(4000, 'x') + " 1"), "");
    EXPECT_EQ(say("set level 1 2 3 4 5 6 7 8 9 10 11 12 13"),
        "set level to 1 moves in 2.00 seconds, inc 3.00\n");
    EXPECT_EQ(say("move " + std::string(4000, 'Q')), "");
    EXPECT_EQ(say(std::string(2000, ' ') + "e2e4").substr(0, 13), "1. move e2e4\n");
}

TEST_F(ConsoleTest, NewSetsTheBoardAndTheClocks)
{
    dialogue.limits.tc_seconds = 77.5;
    say_all("e2e4;e7e5");
    expect_board(say("new"));
    EXPECT_EQ(fen(), start_position);
    EXPECT_EQ(dialogue.game->undo_count, 0);
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 77.5);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 77.5);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    EXPECT_EQ(say("]"), "");
}

TEST_F(ConsoleTest, APromotionIsWrittenWithAnEqualsSign)
{
    say("fen 8/P7/8/8/8/8/8/K1k5 w - -");
    EXPECT_TRUE(begins(say("a7a8q"), "1. move a7a8=Q\nQ7/"));
    say("[");
    EXPECT_TRUE(begins(say("a8=N"), "1. move a8=N\nN7/"));
}

TEST_F(ConsoleTest, AMarkOfACheckAloneIsNoMove)
{
    say("fen 4k3/8/8/8/8/7p/8/4K3 b - -");
    const std::string before = board();
    for (const char* line : { "+", "++", "move +", "+h2" }) {
        EXPECT_EQ(say(line), "") << line;
        EXPECT_EQ(board(), before) << line;
    }
    EXPECT_TRUE(begins(say("h2+"), "1. move h2\n"));
}

TEST_F(ConsoleTest, MoveNumbersCountPliesFromTheFirstStoredOne)
{
    say("fen 7k/8/8/8/8/8/8/K7 b - -");
    EXPECT_TRUE(begins(say("h8h7"), "1. move h8h7\n"));
    EXPECT_TRUE(begins(say("a1a2"), "1. move a1a2\n"));
    EXPECT_TRUE(begins(say("h7h6"), "2. move h7h6\n"));
}

TEST_F(ConsoleTest, AnAmbiguousMoveIsNamedSo)
{
    say("fen 4k3/8/8/8/8/8/3N4/4K1N1 w - -");
    EXPECT_EQ(say("Nf3"), "ambiguous move\n");
    EXPECT_EQ(dialogue.game->undo_count, 0);
    EXPECT_TRUE(begins(say("Ngf3"), "1. move Ngf3\n"));
}

// ---- Taking back and repeating

TEST_F(ConsoleTest, UndoAtTheStartOnlySetsTheStopCode)
{
    EXPECT_EQ(say("undo"), "");
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    EXPECT_EQ(fen(), start_position);
    EXPECT_EQ(say("["), "");
}

TEST_F(ConsoleTest, AMoveTakenBackCanBeRepeated)
{
    say_all("e2e4;e7e5");
    const std::string after = board();
    expect_board(say("undo"));
    EXPECT_EQ(dialogue.game->undo_count, 1);
    expect_board(say("["));
    EXPECT_EQ(fen(), start_position);
    EXPECT_TRUE(begins(say("]"), "1. move e2e4\nrnbqkbnr/pppppppp/8/8/4P3"));
    EXPECT_EQ(say("]"), "1... move e7e5\n" + after);
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    EXPECT_EQ(say("]"), "");
    EXPECT_EQ(dialogue.game->undo_count, 2);
}

TEST_F(ConsoleTest, ANewMoveDropsTheOnesTakenBack)
{
    say_all("e2e4;e7e5;g1f3;[;[;[;d2d4");
    EXPECT_EQ(say("]"), "");
    say("[");
    EXPECT_TRUE(begins(say("]"), "1. move d2d4\n"));
}

TEST_F(ConsoleTest, APromotionIsRepeatedAsOne)
{
    say_all("fen 8/P7/8/8/8/8/8/K1k5 w - -;a8=R;[");
    EXPECT_TRUE(begins(say("]"), "1. move a7a8=R\nR7/"));
}

TEST_F(ConsoleTest, AStoredMoveThatTheBoardForbidsIsNotRepeated)
{
    UndoRecord& record = dialogue.game->undo[0];
    for (const i32 move : { 0x3f3f, 0x2020, 0xffff, 0x0c40 | 0x1c, 0x0005 }) {
        record.move = static_cast<Move>(move);
        EXPECT_EQ(say("]"), "") << move;
        EXPECT_EQ(fen(), start_position);
    }
}

TEST_F(ConsoleTest, LongGamesCanBeTakenBackToTheirOldestMove)
{
    const char* shuffle[] = { "Nf3", "Nf6", "Ng1", "Ng8" };
    for (i32 i = 0; i < 1000; ++i) {
        ASSERT_NE(say(shuffle[i % 4]), "") << i;
    }
    EXPECT_LT(dialogue.game->undo_count, 1000);
    const i32 count = dialogue.game->undo_count;
    EXPECT_EQ(count % 2, 0);
    for (i32 i = 0; i < count; ++i) {
        ASSERT_NE(say("undo"), "") << i;
    }
    EXPECT_EQ(say("undo"), "");
    for (i32 i = 0; i < count; ++i) {
        ASSERT_NE(say("]"), "") << i;
    }
    EXPECT_EQ(say("]"), "");
    EXPECT_EQ(dialogue.game->undo_count, count);
}

// ---- Showing

TEST_F(ConsoleTest, TheEvaluationNamesTheLastMove)
{
    EXPECT_TRUE(begins(say("ev"), "           white  black"));
    say("e2e4");
    EXPECT_TRUE(begins(say("ev"), "last move was 1. e2e4\n           white  black"));
    say("e7e5");
    EXPECT_TRUE(begins(say("ev"), "last move was 1... e7e5\n           white"));
    say("g1f3");
    const std::string output = say("ev");
    EXPECT_TRUE(begins(output, "last move was 2. g1f3\n           white"));
    EXPECT_NE(output.find("\neval= "), std::string::npos);
    EXPECT_EQ(output.substr(output.size() - 2), "\n\n");
    EXPECT_EQ(output.find("mtl_pawn"), std::string::npos);
    EXPECT_NE(say("sp").find("mtl_pawn"), std::string::npos);
    EXPECT_TRUE(begins(say("sp"), "           white  black"));
}

TEST_F(ConsoleTest, TheEvaluationIsShownInCheckToo)
{
    say("fen 4k3/pppp1ppp/8/8/8/8/PPPP1PPP/4RK2 b - -");
    EXPECT_NE(say("ev").find("eval= "), std::string::npos);
}

TEST_F(ConsoleTest, TheEvaluationDoesNotReachTheLog)
{
    ASSERT_EQ(open_log(), 1);
    set_logging(true);
    say_all("e2e4;ev;swap;pv;bd");
    const std::string log = read_file("vesk.log");
    EXPECT_NE(log.find("1. move e2e4\n"), std::string::npos);
    for (const char* text : { "last move", "white  black", "eval=", "PV:" }) {
        EXPECT_EQ(log.find(text), std::string::npos) << text;
    }
}

TEST_F(ConsoleTest, ABoardThatCannotBeSearchedIsNotEvaluated)
{
    for (const char* text : { "8/8/8/8/8/8/8/8 w - -", "P7/8/8/8/8/8/8/Kk6 w - -",
             "qqqqqqqq/qqqqqqqq/qqqqqqqq/8/8/8/8/Kk6 w - -" }) {
        say(std::string("fen ") + text);
        EXPECT_EQ(say("ev").find("eval="), std::string::npos) << text;
        EXPECT_NE(say("ev"), "") << text;
        EXPECT_NE(say("sp"), "") << text;
    }
}

TEST_F(ConsoleTest, WithTheDebugFlagEveryBoardComesWithItsEvaluation)
{
    EXPECT_EQ(say("set debug 1"), "");
    EXPECT_EQ(load(search_settings.debug_flag), 1);
    EXPECT_TRUE(begins(say("bd"), "           white  black"));
    const std::string output = say("e2e4");
    EXPECT_TRUE(begins(output, "1. move e2e4\nlast move was 1. e2e4\n           white"));
    EXPECT_NE(output.find("\n\nrnbqkbnr/pppppppp/"), std::string::npos);
    EXPECT_TRUE(begins(say("undo"), "           white"));
    EXPECT_TRUE(begins(say("]"), "1. move e2e4\nlast move was 1. e2e4\n"));
    expect_board(say("new"));
    say("set debug 0");
    expect_board(say("bd"));
}

TEST_F(ConsoleTest, SwapShowsWhatCanBeWonOnAttackedSquares)
{
    EXPECT_EQ(say("swap"), "");
    say("fen 4k3/8/8/3q4/8/2N5/8/3RK3 b - -");
    EXPECT_EQ(say("swap"), "sq= d1, swap1=    0\nsq= d5, swap1= 1035\n");
    say("fen 4k3/8/4p3/3p4/4P3/8/8/4K3 w - -");
    EXPECT_EQ(say("swap"), "sq= e4, swap1=  100\nsq= d5, swap1=    0\n");
    say("fen qqqqqqqq/PPPPPPPP/qqqqqqqq/pppppppp/PPPPPPPP/QQQQQQQQ/QQQQQQQQ/QQQQQQQQ w - -");
    EXPECT_NE(say("swap"), "");
}

TEST_F(ConsoleTest, TheSearchParametersAreRebuiltAndShown)
{
    EXPECT_EQ(say("set SEP_depth 2"), "SEP_depth set to 2\n");
    const std::string output = say("lmr");
    EXPECT_TRUE(begins(output, "BP_margin= 15\n"));
    EXPECT_NE(output.find("SEP_depth= 2, margins= 75 150\n"), std::string::npos) << output;
    EXPECT_EQ(dialogue.engine_options.params_changed, 1);
}

TEST_F(ConsoleTest, TagStoresTheKey)
{
    dialogue.tagged_key = 0;
    EXPECT_EQ(say("tag"), "");
    EXPECT_EQ(dialogue.tagged_key, dialogue.game->pos.key);
}

TEST_F(ConsoleTest, TuneWithoutANameDoesNothing)
{
    EXPECT_EQ(say("tune"), "");
    EXPECT_EQ(tune_names.count, 0);
}

TEST_F(ConsoleTest, BookShowsTwoEmptyLinesWithoutBooks)
{
    EXPECT_EQ(say("book"), "\n\n");
}

TEST_F(ConsoleTest, TraceSetsTheLevel)
{
    EXPECT_EQ(say("trace 3"), "");
    EXPECT_EQ(load(trace_level), 3);
    EXPECT_EQ(say("trace"), "");
    EXPECT_EQ(load(trace_level), 0);
}

// ---- The line of the hash table

// Puts a move of the present position into the table.
static void store_move(const char* move, i32 depth)
{
    store_hash(&dialogue.game->pos, 1, depth, move_of(move), 10, -100, 100);
}

// Stores a line from the start position on, and comes back to it.
static void store_line(const std::vector<const char*>& moves)
{
    Position* pos = &dialogue.game->pos;
    for (const char* move : moves) {
        store_move(move, 5);
        make_move(pos, move_of(move));
    }
    for (size_t i = 0; i < moves.size(); ++i) {
        unmake_move(pos);
    }
}

TEST_F(ConsoleTest, PvShowsTheLineOfTheHashTable)
{
    expect_board(say("pv"), "PV: \n\n");
    store_line({ "e2e4", "d7d5", "e4d5", "g8f6", "f1b5" });
    const std::string output = say("pv");
    EXPECT_TRUE(begins(output,
        "PV: e4 d5 exd5 Nf6 Bb5+ \n\nrnbqkb1r/ppp1pppp/5n2/1B1P4/8/8/PPPP1PPP/RNBQK1NR b KQkq -\n"))
        << output;
    EXPECT_EQ(fen(), start_position);
    EXPECT_EQ(dialogue.game->undo_count, 0);
    EXPECT_EQ(dialogue.game->ply, 1);
}

TEST_F(ConsoleTest, PvNeedsAnEntryOfDepthZeroOrMore)
{
    store_move("e2e4", 0);
    EXPECT_TRUE(begins(say("pv"), "PV: e4 \n\n"));
    say("e2e4");
    store_move("e7e5", -1);
    EXPECT_TRUE(begins(say("pv"), "PV: \n\n"));
}

TEST_F(ConsoleTest, PvIsEmptyWithoutATable)
{
    store_line({ "e2e4" });
    say("set hash 0");
    EXPECT_EQ(load(hash.mode), 0);
    EXPECT_TRUE(begins(say("pv"), "PV: \n\n"));
    say("set hash 1");
    EXPECT_TRUE(begins(say("pv"), "PV: e4 \n\n"));
}

TEST_F(ConsoleTest, PvStopsAtADraw)
{
    // The position stands for the third time.
    say_all("Nf3;Nf6;Ng1;Ng8;Nf3;Nf6;Ng1;Ng8");
    store_move("e2e4", 5);
    EXPECT_TRUE(begins(say("pv"), "PV: \n\n"));
    say("new");
    EXPECT_TRUE(begins(say("pv"), "PV: e4 \n\n"));
}

TEST_F(ConsoleTest, PvLeavesTheMovesTakenBackAsTheyWere)
{
    store_line({ "e2e4", "e7e5", "g1f3" });
    say_all("d2d4;d7d5;c2c4;[;[;[");
    EXPECT_TRUE(begins(say("pv"), "PV: e4 e5 Nf3 \n\n"));
    EXPECT_TRUE(begins(say("]"), "1. move d2d4\n"));
    EXPECT_TRUE(begins(say("]"), "1... move d7d5\n"));
    EXPECT_TRUE(begins(say("]"), "2. move c2c4\n"));
    EXPECT_EQ(say("]"), "");
}

TEST_F(ConsoleTest, PvHasRoomAtAnyPlyOfAGame)
{
    store_line({ "e2e4", "e7e5", "g1f3", "b8c6" });
    dialogue.game->ply = 64;
    EXPECT_TRUE(begins(say("pv"), "PV: e4 e5 Nf3 \n\n"));
    dialogue.game->ply = 66;
    EXPECT_TRUE(begins(say("pv"), "PV: e4 \n\n"));
    for (const i32 ply : { 67, 70, 900, 32000 }) {
        dialogue.game->ply = static_cast<i16>(ply);
        EXPECT_TRUE(begins(say("pv"), "PV: \n\n")) << ply;
        EXPECT_EQ(dialogue.game->ply, ply);
    }
    for (const i32 ply : { 0, -1, -900 }) {
        dialogue.game->ply = static_cast<i16>(ply);
        EXPECT_TRUE(begins(say("pv"), "PV: e4 e5 Nf3 Nc6 \n\n")) << ply;
        EXPECT_EQ(dialogue.game->ply, ply);
    }
}

TEST_F(ConsoleTest, PvFollowsALineThatGoesInCircles)
{
    // The third time is a draw, where the line ends.
    store_line({ "g1f3", "g8f6", "f3g1", "f6g8" });
    const std::string output = say("pv");
    EXPECT_TRUE(begins(output, "PV: Nf3 Nf6 Ng1 Ng8 Nf3 Nf6 Ng1 Ng8 \n\n")) << output;
}

// ---- Searching

TEST_F(ConsoleTest, GoSetsTheDepthAndNoTimeLimit)
{
    struct Case {
        const char* line;
        i32 depth;
    };
    for (const Case& c : { Case { "go 7", 7 }, { "an 1", 1 }, { "go 65", 65 }, { "go 66", 66 },
             { "go 0", 66 }, { "go", 66 }, { "an", 66 }, { "go -3", 66 }, { "go 1000", 66 },
             { "go x", 66 }, { "go 300", 66 } }) {
        store(dialogue.limits.depth_limit, 3);
        store(dialogue.limits.tc_moves, 40);
        dialogue.limits.tc_seconds = 1.0;
        store(engine_state, EngineState::Idle);
        EXPECT_EQ(say(c.line), "") << c.line;
        EXPECT_EQ(load(dialogue.limits.depth_limit), c.depth) << c.line;
        EXPECT_EQ(dialogue.limits.tc_seconds, 99999.0);
        EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
        EXPECT_EQ(load(engine_state), EngineState::Start);
    }
}

TEST_F(ConsoleTest, GoClearsTheTableUnlessItIsKept)
{
    set_workers(1);
    for (const i32 mode : { 1, 2, 3 }) {
        say("set hash " + std::to_string(mode));
        store_line({ "e2e4" });
        say("go 1");
        EXPECT_EQ(begins(say("pv"), "PV: e4 \n\n"), mode >= 2) << mode;
    }
}

TEST_F(ConsoleTest, MvKeepsTheTimeControl)
{
    say("set level 40 5:00 2");
    EXPECT_EQ(say("mv"), "");
    EXPECT_EQ(load(engine_state), EngineState::Start);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 40);
    EXPECT_EQ(dialogue.limits.tc_seconds, 300.0);
}

TEST_F(ConsoleTest, SelfSwitchesPonderingOff)
{
    ASSERT_EQ(dialogue.engine_options.ponder, 1);
    EXPECT_EQ(say("self"), "");
    EXPECT_EQ(dialogue.engine_options.ponder, 0);
    EXPECT_EQ(dialogue.self_play, 1);
    EXPECT_EQ(load(engine_state), EngineState::Start);
}

TEST_F(ConsoleTest, ADotAsksForTheResult)
{
    EXPECT_EQ(say("."), "");
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    EXPECT_EQ(load(engine_state), EngineState::Idle);
}

// ---- Test positions

static constexpr char tests[] = "; id \"three\" in a comment\n"
                                " 8/8/8/8/8/8/8/8 w - - id \"three\"; behind a blank\n"
                                "7k/8/8/8/8/8/8/K7 w - - id \"one\";\n"
                                "7k/8/8/8/8/8/8/1K6 b - - id \"two\";\n"
                                "7k/8/8/8/8/8/8/2K5 b - - id \"three\";\r\n"
                                "id \"x\"\n";

TEST_F(ConsoleTest, GetFindsAPositionByItsId)
{
    write_file("test.epd", tests);
    EXPECT_TRUE(
        begins(say("get two"), "7k/8/8/8/8/8/8/1K6 b - - id \"two\";\n7k/8/8/8/8/8/8/1K6 b - -\n"));
    EXPECT_EQ(load(stop_code), StopCode::ReportGame);
    EXPECT_TRUE(begins(
        say("get three"), "7k/8/8/8/8/8/8/2K5 b - - id \"three\";\r\n7k/8/8/8/8/8/8/2K5 b - -\n"));
}

TEST_F(ConsoleTest, GetWithoutAPositionShowsTheOldBoard)
{
    write_file("test.epd", tests);
    say("get one");
    expect_board(say("get four"), "\n");
    expect_board(say("get thre"), "\n");
    expect_board(say("get"), "\n");
    expect_board(say("get x"), "id \"x\"\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/K7 w - -");
    // From nine characters on a line is taken for a position.
    write_file("test.epd", "7 id \"a\"\n77 id \"b\"\n7k/8/8/8/8/8/8/K7 w id \"one\"\n");
    expect_board(say("get a"), "7 id \"a\"\n");
    EXPECT_EQ(fen(), "7k/8/8/8/8/8/8/K7 w - -");
    say("get b");
    EXPECT_EQ(fen().substr(0, 17), "8/8/8/8/8/8/8/8 w");
    say("get one");
    ASSERT_EQ(remove("test.epd"), 0);
    expect_board(say("get one"), "\n");
    ASSERT_EQ(mkdir("test.epd", 0777), 0);
    expect_board(say("get one"), "\n");
}

TEST_F(ConsoleTest, GetReadsLinesInPiecesOf254Characters)
{
    const std::string text = "7k/8/8/8/8/8/8/K7 w - - ";
    // The id ends at the end of a piece, and one character behind it.
    write_file("test.epd", text + std::string(254 - text.size() - 6, 'x') + "id \"a\"\n");
    EXPECT_EQ(say("get a").substr(0, 255), read_file("test.epd").substr(0, 254) + "\n");
    write_file("test.epd", text + std::string(255 - text.size() - 6, 'x') + "id \"a\"\n");
    EXPECT_EQ(say("get a").substr(0, 1), "\n");
    write_file("test.epd", std::string(1000000, 'x') + "\nid \"a\"");
    EXPECT_EQ(say("get a").substr(0, 7), "id \"a\"\n");
    write_file("test.epd", std::string("\0\xff\n\0id \"a\"\n", 12));
    EXPECT_EQ(say("get a").substr(0, 1), "\n");
}

TEST_F(ConsoleTest, GetClearsTheTable)
{
    set_workers(1);
    store_line({ "e2e4" });
    say("get nothing");
    EXPECT_TRUE(begins(say("pv"), "PV: \n\n"));
}

// ---- set

TEST_F(ConsoleTest, EverySettingAsksForARebuild)
{
    for (const char* line : { "set nosuchkey 1", "set", "set hash 1", "set level 1 5 0", "set ss 1",
             "set multipv 2", "set LMR_depth 3" }) {
        dialogue.engine_options.params_changed = 0;
        say(line);
        EXPECT_EQ(dialogue.engine_options.params_changed, 1) << line;
    }
    EXPECT_EQ(say("set nosuchkey 1"), "");
    EXPECT_EQ(say("set"), "");
}

TEST_F(ConsoleTest, SetHashAndNoise)
{
    EXPECT_EQ(say("set hash 2"), "");
    EXPECT_EQ(load(hash.mode), 2);
    EXPECT_EQ(say("set noise 1.25"), "");
    EXPECT_EQ(load(noise), 1.25);
    EXPECT_EQ(say("set noise"), "");
    EXPECT_EQ(load(noise), 0.0);
}

TEST_F(ConsoleTest, SetMultipvByAnyKeyThatContainsIt)
{
    for (const char* key : { "multipv", "xmultipvx", "multipv=" }) {
        dialogue.engine_options.multi_pv = 1;
        EXPECT_EQ(say(std::string("set ") + key + " 3"), "") << key;
        EXPECT_EQ(dialogue.engine_options.multi_pv, 3) << key;
        EXPECT_EQ(load(search_settings.multi_pv), 3) << key;
    }
    EXPECT_EQ(say("set MultiPV 5"), "");
    EXPECT_EQ(dialogue.engine_options.multi_pv, 3);
    say("set multipv 0");
    EXPECT_EQ(dialogue.engine_options.multi_pv, 1);
    say("set multipv -7");
    EXPECT_EQ(dialogue.engine_options.multi_pv, 1);
    say("set multipv 256");
    EXPECT_EQ(dialogue.engine_options.multi_pv, 255);
    say("set multipv 99999999999999");
    EXPECT_EQ(dialogue.engine_options.multi_pv, 255);
}

TEST_F(ConsoleTest, OnlyTheFirst31CharactersOfAKeyCount)
{
    say("set " + std::string(24, 'x') + "multipv 4");
    EXPECT_EQ(dialogue.engine_options.multi_pv, 4);
    say("set " + std::string(25, 'x') + "multipv 5");
    EXPECT_EQ(dialogue.engine_options.multi_pv, 4);
}

TEST_F(ConsoleTest, SetLevel)
{
    EXPECT_EQ(say("set level 40 5:00 2"), "set level to 40 moves in 300.00 seconds, inc 2.00\n");
    EXPECT_EQ(load(dialogue.limits.tc_moves), 40);
    EXPECT_EQ(dialogue.limits.tc_seconds, 300.0);
    EXPECT_EQ(dialogue.limits.tc_increment, 2.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 300.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 300.0);
    EXPECT_EQ(say("set level 0 90 0.25"), "set level to 0 moves in 90.00 seconds, inc 0.25\n");
    EXPECT_EQ(say("set level 1 1:30 0"), "set level to 1 moves in 90.00 seconds, inc 0.00\n");
    EXPECT_EQ(say("set level 1 5 nan"), "set level to 1 moves in 5.00 seconds, inc 0.00\n");
    EXPECT_EQ(say("set level 1 :7"), "set level to 1 moves in 7.00 seconds, inc 0.00\n");
    EXPECT_EQ(say("set level"), "set level to 0 moves in 0.00 seconds, inc 0.00\n");
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 0.0);
    EXPECT_NE(say("set level 99999999999 99999999999:99999999999 1e999"), "");
    EXPECT_NE(say("set level -1 -5:x nan"), "");
}

TEST_F(ConsoleTest, SetDepth)
{
    struct Case {
        const char* value;
        i32 depth;
    };
    for (const Case& c : { Case { "5", 5 }, { "66", 66 }, { "67", 66 }, { "300", 66 }, { "0", 0 },
             { "-5", -5 }, { "-1000", -128 }, { "", 0 } }) {
        EXPECT_EQ(say(std::string("set depth ") + c.value), "");
        EXPECT_EQ(load(dialogue.limits.depth_limit), c.depth) << c.value;
    }
}

TEST_F(ConsoleTest, SetTargetNps)
{
    EXPECT_EQ(say("set target_nps 25000"), "target_nps set to 25000\n");
    EXPECT_EQ(load(strength.target_nps), 25000.0);
    EXPECT_EQ(dialogue.engine_options.limit_strength, 1);
}

TEST_F(ConsoleTest, SetSsSwitchesSelectivityOffAndOn)
{
    dialogue.engine_options.contempt = 17;
    EXPECT_EQ(say("set ss 0"), "selectivity set to OFF\n");
    EXPECT_EQ(dialogue.engine_options.search.NMP_depth, 99);
    EXPECT_EQ(dialogue.engine_options.search.SEP_depth, 0);
    EXPECT_EQ(dialogue.engine_options.search.LMP_depth, 0);
    EXPECT_EQ(dialogue.engine_options.search.LMR_depth, 99);
    EXPECT_EQ(dialogue.engine_options.search.FP_depth, 3);
    EXPECT_EQ(dialogue.engine_options.contempt, 17);
    EXPECT_EQ(say("set ss 1"), "set default personality\n");
    EXPECT_EQ(dialogue.engine_options.search.NMP_depth, 3);
    EXPECT_EQ(dialogue.engine_options.search.LMR_depth, 3);
    EXPECT_EQ(dialogue.engine_options.contempt, 0);
    EXPECT_EQ(dialogue.engine_options.params_changed, 1);
    EXPECT_EQ(say("set ss"), "selectivity set to OFF\n");
    EXPECT_EQ(say("set ss 2"), "selectivity set to OFF\n");
}

TEST_F(ConsoleTest, SetWritesTheNumberedFields)
{
    struct Case {
        const char* key;
        i16* field;
    };
    for (const Case& c : { Case { "NMP_depth", &dialogue.engine_options.search.NMP_depth },
             { "SEP_depth", &dialogue.engine_options.search.SEP_depth },
             { "FP_depth", &dialogue.engine_options.search.FP_depth },
             { "ProbCut_depth", &dialogue.engine_options.search.ProbCut_depth },
             { "LMP_depth", &dialogue.engine_options.search.LMP_depth },
             { "LMR_depth", &dialogue.engine_options.search.LMR_depth },
             { "Selectivity", &dialogue.engine_options.selectivity },
             { "ponder", &dialogue.engine_options.ponder } }) {
        const std::string key = c.key;
        EXPECT_EQ(say("set " + key + " 12"), key + " set to 12\n");
        EXPECT_EQ(*c.field, 12) << key;
        EXPECT_EQ(say("set " + key + " 99999999"), key + " set to 32767\n");
        EXPECT_EQ(say("set " + key), key + " set to 0\n");
    }
    EXPECT_EQ(say("set FP_margin 3"), "");
    EXPECT_EQ(say("set nmp_depth 3"), "");
}

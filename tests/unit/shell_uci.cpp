// The words of the UCI dialogue, as far as they can be told without a running search.
#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <string>

#include "shell_test_support.h"
#include "base/output.h"
#include "search/clock.h"
#include "search/control.h"
#include "search/hash.h"
#include "shell/think_loop.h"
#include "shell/uci.h"

struct UciTest : ShellTest {
    static std::string say(const std::string& line)
    {
        std::string text = line;
        return capture_output([&] { uci_command(&dialogue, text.data()); });
    }

    static std::string fen()
    {
        return fen_of(&dialogue.game->pos);
    }
};

TEST_F(UciTest, BlankAndUnknownLinesDoNothing)
{
    for (const char* line : { "", " ", "      ", "foo", "uci2", "Uci", "isready2", "readyok", "\t",
             "\tisready", "_sho", "bestmove e2e4" }) {
        EXPECT_EQ(say(line), "") << line;
    }
    EXPECT_EQ(say(std::string(4999, 'g')), "");
    EXPECT_EQ(say("isready" + std::string(200, 'x')), "");
    EXPECT_EQ(load(engine_state), EngineState::Idle);
}

TEST_F(UciTest, ACommandEndsAtItsLineFeed)
{
    EXPECT_EQ(say("isready\nuci"), "readyok\n");
    EXPECT_EQ(say("isready\r\n"), "readyok\n");
    EXPECT_EQ(say("\nisready"), "");
}

TEST_F(UciTest, CommandsAreLoggedAsTheyCame)
{
    dialogue.engine_options.log = 1;
    publish_options(&dialogue);
    ASSERT_EQ(open_log(), 1);
    say("  foo bar ");
    dialogue.log_cmd = 0;
    say("not logged");
    say("debug off");
    say("isready");
    EXPECT_EQ(dialogue.log_cmd, 1u);
    EXPECT_EQ(read_file("vesk.log"), "CMD:   foo bar \nCMD: isready\nreadyok\n");
}

TEST_F(UciTest, SetoptionSavesAndAsksForNewTables)
{
    dialogue.engine_options.params_changed = 0;
    EXPECT_EQ(say("setoption name Contempt value 12"), "info string Contempt set to 12\n");
    EXPECT_EQ(dialogue.engine_options.contempt, 12);
    EXPECT_EQ(dialogue.saved_options.contempt, 12);
    EXPECT_EQ(dialogue.engine_options.params_changed, 1);
    EXPECT_EQ(dialogue.saved_options.params_changed, 0);
}

TEST_F(UciTest, SetoptionWithoutItsWordsChangesNothingButTheFlag)
{
    for (const char* line :
        { "setoption", "setoption name", "setoption value", "setoption name Contempt",
            "setoption value 5 name Contempt", "setoption Contempt value 5",
            "setoption name value 5", "setoption namevalue", "setoption name Contemptvalue 5" }) {
        dialogue.engine_options.params_changed = 0;
        EXPECT_EQ(say(line), "") << line;
        EXPECT_EQ(dialogue.engine_options.params_changed, 1) << line;
    }
    EXPECT_EQ(dialogue.engine_options.contempt, 0);
}

TEST_F(UciTest, SetoptionTakesBlanksAroundNameAndValue)
{
    EXPECT_EQ(
        say("setoption    name    Contempt    value    7"), "info string Contempt set to 7\n");
    EXPECT_EQ(say("   setoption name Contempt value 8"), "info string Contempt set to 8\n");
    EXPECT_EQ(say("setoption name OwnBook_File value  my book.bin "),
        "info string OwnBook_File set to 'my book.bin '\n");
    EXPECT_EQ(say("setoption name OwnBook_File value"), "info string OwnBook_File set to ''\n");
    EXPECT_EQ(say("setoption name OwnBook_File value "), "info string OwnBook_File set to ''\n");
    EXPECT_EQ(say("setoption name OwnBook_File value=x"), "info string OwnBook_File set to 'x'\n");
}

TEST_F(UciTest, SetoptionCutsLongTexts)
{
    EXPECT_EQ(say("setoption name OwnBook_File value " + std::string(4900, 'b')),
        "info string OwnBook_File set to '" + std::string(143, 'b') + "'\n");
    EXPECT_EQ(say("setoption name " + std::string(4900, 'n') + " value 3"), "");
}

TEST_F(UciTest, PositionSetsTheGame)
{
    say("position startpos moves e2e4 e7e5");
    EXPECT_EQ(fen(), "rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq e6");
    EXPECT_EQ(dialogue.game->undo_count, 2);
    EXPECT_EQ(dialogue.game->undo[2].move, 0);
    EXPECT_EQ(load(search_clock.clock_side), White);
    say("position startpos moves e2e4");
    EXPECT_EQ(load(search_clock.clock_side), Black);
    EXPECT_EQ(dialogue.game->undo[1].move, 0);
    say("position startpos");
    EXPECT_EQ(fen(), start_position);
    EXPECT_EQ(dialogue.game->undo_count, 0);
}

TEST_F(UciTest, PositionTakesAFen)
{
    const std::string text = "r3k2r/8/8/8/8/8/8/R3K2R b Kq -";
    say("position fen " + text);
    EXPECT_EQ(fen(), text);
    say("position fen " + text + " 3 17");
    EXPECT_EQ(fen(), text);
    say("position fen " + text + " moves e8c8 e1g1");
    EXPECT_EQ(fen(), "2kr3r/8/8/8/8/8/8/R4RK1 b - -");
}

TEST_F(UciTest, PositionNeedsItsWords)
{
    say("position startpos moves e2e4");
    const std::string before = fen();
    for (const char* line : { "position", "position ", "position x", "position moves e7e5",
             "position start pos", "position fe n" }) {
        say(line);
        EXPECT_EQ(fen(), before) << line;
    }
    EXPECT_EQ(dialogue.game->undo_count, 1);
}

TEST_F(UciTest, StartposMayStandAnywhereInTheArguments)
{
    say("position fen 8/8/8/8/8/8/8/K1k5 w - - startpos");
    EXPECT_EQ(fen(), start_position);
    say("  position   startpos   moves   e2e4   ");
    EXPECT_EQ(dialogue.game->undo_count, 1);
    say("position moves startpos e2e4");
    EXPECT_EQ(dialogue.game->undo_count, 1);
}

TEST_F(UciTest, ALeadingBlankMovesTheStartOfThePositionText)
{
    // The text begins with the blank behind fen, and a blank ends the pieces.
    capture_output([] { say(" position fen r3k2r/8/8/8/8/8/8/R3K2R w - -"); });
    EXPECT_EQ(fen().substr(0, 15), "8/8/8/8/8/8/8/8");
    say(" position fenr3k2r/8/8/8/8/8/8/R3K2R w - -");
    EXPECT_EQ(fen(), "r3k2r/8/8/8/8/8/8/R3K2R w - -");
}

TEST_F(UciTest, WordsThatTheBoardCannotTakeArePassedOver)
{
    say("position startpos moves e9e4 e2e4 x a1 e7 abcd e7e5 i2i4 a3a4 e8e1 g1f3 0000 b8c6");
    EXPECT_EQ(dialogue.game->undo_count, 4);
    EXPECT_EQ(fen(), "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq -");
}

TEST_F(UciTest, MovesOfAPieceThatCouldNotMakeThemAreMadeAllTheSame)
{
    say("position startpos moves a1a5");
    EXPECT_EQ(dialogue.game->undo_count, 1);
    EXPECT_EQ(fen(), "rnbqkbnr/pppppppp/8/R7/8/8/PPPPPPPP/1NBQKBNR b Kkq -");
}

TEST_F(UciTest, PromotionLettersAreRead)
{
    const struct {
        const char* move;
        const char* board;
    } rows[] = { { "a7a8q", "Q7" }, { "a7a8n", "N7" }, { "a7a8b", "B7" }, { "a7a8r", "R7" },
        { "a7a8qx", "Q7" } };
    for (const auto& row : rows) {
        say(std::string("position fen 8/P6k/8/8/8/8/8/K7 w - - moves ") + row.move);
        EXPECT_EQ(fen().substr(0, 2), row.board) << row.move;
    }
}

TEST_F(UciTest, AGameLongerThanTheStackKeepsItsEnd)
{
    std::string line = "position startpos moves";
    for (i32 i = 0; i < 2500; ++i) {
        line += " g1f3 g8f6 f3g1 f6g8";
    }
    say(line + " e2e4");
    EXPECT_LE(dialogue.game->undo_count, game_limit);
    EXPECT_GE(dialogue.game->undo_count, 100);
    EXPECT_EQ(dialogue.game->undo[dialogue.game->undo_count].move, 0);
    EXPECT_EQ(fen(), "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3");
}

TEST_F(UciTest, GoReadsItsWords)
{
    dialogue.limits.tc_increment = 0.5;
    say("go wtime 61000 btime 62000 winc 1000 binc 2000");
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 61.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 62.0);
    EXPECT_EQ(dialogue.limits.tc_increment, 1.0);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 0);
    EXPECT_EQ(load(engine_state), EngineState::Start);
    EXPECT_EQ(load(stop_code), StopCode::Silent);
    say("position startpos moves e2e4");
    say("go binc 3000 winc 4000 ponder");
    EXPECT_EQ(dialogue.limits.tc_increment, 3.0);
    EXPECT_EQ(load(engine_state), EngineState::StartPonder);
    say("go wtime -5 btime -5");
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 0.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 0.0);
    EXPECT_EQ(dialogue.limits.tc_increment, 3.0);
}

TEST_F(UciTest, GoMovestogoLiftsTheLimits)
{
    store(dialogue.limits.depth_limit, 5);
    dialogue.limits.node_limit_total = 77;
    say("go movestogo 12");
    EXPECT_EQ(load(dialogue.limits.tc_moves), 40);
    EXPECT_EQ(dialogue.limits.moves_to_go, 12);
    EXPECT_EQ(load(dialogue.limits.depth_limit), 66);
    EXPECT_EQ(dialogue.limits.node_limit_total, 0);
}

TEST_F(UciTest, GoDepth)
{
    const struct {
        const char* text;
        i32 depth;
    } rows[] = { { "7", 7 }, { "66", 66 }, { "67", 66 }, { "100", 66 }, { "300", 44 },
        { "128", -128 }, { "", 0 }, { "x", 0 } };
    for (const auto& row : rows) {
        say(std::string("go depth ") + row.text);
        EXPECT_EQ(load(dialogue.limits.depth_limit), row.depth) << row.text;
        EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
        EXPECT_EQ(dialogue.limits.tc_seconds, 10000000.0);
    }
}

TEST_F(UciTest, GoNodesVariesTheLimitByFourPerCent)
{
    i64 lowest = 1000000;
    i64 highest = 0;
    for (i32 i = 0; i < 300; ++i) {
        say("go nodes 100000");
        lowest = std::min(lowest, dialogue.limits.node_limit_total);
        highest = std::max(highest, dialogue.limits.node_limit_total);
        EXPECT_EQ(dialogue.limits.node_limit_total % 100, 0);
    }
    EXPECT_GE(lowest, 96100);
    EXPECT_LE(highest, 104000);
    EXPECT_LT(lowest, 98000);
    EXPECT_GT(highest, 102000);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_seconds, 10000000.0);
    for (const char* text : { "0", "-1", "2147483647", "-2147483648", "99999999999999" }) {
        say(std::string("go nodes ") + text);
    }
}

TEST_F(UciTest, GoMovetimeAndInfinite)
{
    dialogue.limits.tc_increment = 2.0;
    say("go movetime 1500");
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_increment, 0.0);
    EXPECT_EQ(dialogue.limits.tc_seconds, 1.5);
    dialogue.limits.tc_increment = 2.0;
    store(dialogue.limits.depth_limit, 4);
    dialogue.limits.node_limit_total = 5;
    say("go infinite");
    EXPECT_EQ(load(dialogue.limits.tc_moves), 1);
    EXPECT_EQ(dialogue.limits.tc_increment, 0.0);
    EXPECT_EQ(dialogue.limits.tc_seconds, 10000000.0);
    EXPECT_EQ(load(dialogue.limits.depth_limit), 66);
    EXPECT_EQ(dialogue.limits.node_limit_total, 0);
}

TEST_F(UciTest, GoKeepsWhatItsWordsDoNotChange)
{
    say("go depth 5");
    say("go wtime 9000 btime 8000");
    EXPECT_EQ(load(dialogue.limits.depth_limit), 5);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 0);
    say("go");
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 9.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 8.0);
}

TEST_F(UciTest, WordsAtTheEndOfTheLineHaveNoValue)
{
    for (const char* word : { "wtime", "btime", "winc", "binc", "movestogo", "depth", "nodes",
             "movetime", "infinite", "ponder" }) {
        say(std::string("go ") + word);
        say(std::string("  go ") + word + " ");
    }
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 0.0);
}

static constexpr EngineState all_states[] = { EngineState::Idle, EngineState::Start,
    EngineState::StartPonder, EngineState::Thinking, EngineState::Pondering };

TEST_F(UciTest, PonderhitActsOnlyOnAPonderingSearch)
{
    for (const EngineState state : all_states) {
        store(engine_state, state);
        say("ponderhit");
        EXPECT_EQ(
            load(engine_state), state == EngineState::Pondering ? EngineState::Thinking : state);
    }
}

TEST_F(UciTest, StopAsksForAReportUnlessIdle)
{
    for (const EngineState state : all_states) {
        store(engine_state, state);
        store(stop_code, StopCode::None);
        say("stop");
        EXPECT_EQ(load(engine_state),
            state == EngineState::Idle ? EngineState::Idle : EngineState::Thinking);
        EXPECT_EQ(load(stop_code), StopCode::Report);
    }
}

TEST_F(UciTest, QuitEndsTheLoop)
{
    EXPECT_EQ(say("quit"), "");
    EXPECT_EQ(dialogue.quit_flag, 1);
    EXPECT_EQ(load(stop_code), StopCode::Silent);
}

TEST_F(UciTest, ANewGameResetsTheClocksAndTheTable)
{
    set_workers(1);
    Position* pos = set_position(start_position);
    store_hash(pos, 1, 5, move_of("e2e4"), 10, -100, 100);
    say("position startpos moves e2e4");
    dialogue.limits.tc_increment = 3.0;
    hash.age = 9;
    const std::string before = fen();
    EXPECT_EQ(say("ucinewgame"), "");
    EXPECT_EQ(load(stop_code), StopCode::Silent);
    EXPECT_EQ(load(dialogue.limits.tc_moves), 0);
    EXPECT_EQ(dialogue.limits.tc_seconds, 60.0);
    EXPECT_EQ(dialogue.limits.tc_increment, 0.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[White]), 60.0);
    EXPECT_EQ(load(dialogue.limits.clock_left[Black]), 60.0);
    EXPECT_EQ(dialogue.game->undo_count, 0);
    EXPECT_EQ(hash.age, 0);
    EXPECT_EQ(fen(), before);
    set_position(start_position);
    HashEntry entry {};
    entry.depth = HashNotFound;
    probe_hash(pos, &entry);
    EXPECT_EQ(entry.depth, HashNotFound);
}

TEST_F(UciTest, UciTurnsTheDialogue)
{
    store(uci_mode, 0);
    const std::string output = say("uci");
    EXPECT_EQ(load(uci_mode), 1);
    EXPECT_EQ(
        output.rfind("id name Vesk 4.50\nid author Brin Tolvey\noption name ConfigFilePath", 0),
        0u);
    EXPECT_EQ(output.substr(output.size() - 6), "uciok\n");
}

TEST_F(UciTest, AnyBytesAreHarmless)
{
    static const char* words[] = { "position", "fen", "startpos", "moves", "go", "depth", "1",
        "wtime", "setoption", "name", "value", "Contempt", "MultiPV", "e2e4", "a7a8q", "stop",
        "ponder", "k7/8/8/8/8/8/8/K7", "w", "-", "isready", "ucinewgame", "\xff\x80", "  " };
    u64 state = 17;
    for (i32 i = 0; i < 3000; ++i) {
        std::string line;
        const u32 count = next_random(&state, 9);
        for (u32 k = 0; k < count; ++k) {
            line += words[next_random(&state, std::size(words))];
            line +=
                next_random(&state, 4) == 0 ? static_cast<char>(1 + next_random(&state, 255)) : ' ';
        }
        say(line);
        store(engine_state, EngineState::Idle);
    }
}

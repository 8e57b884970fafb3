// Moves as the world writes them, and as Vesk's tools read them.
#include "data/games_moves.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "board/notation.h"
#include "board/tables.h"
#include "data/games_write.h"

// The text that a move gets, or why it has none.
static std::string written(const char* fen, const char* text)
{
    init_board_tables();
    const std::unique_ptr<GameBoard> board = make_game_board();
    if (fen != nullptr) {
        parse_epd(&board->pos, fen);
    }
    NamedMove named;
    if (const char* why = find_named_move(&board->pos, text, &named)) {
        return why;
    }
    std::string out;
    const std::unique_ptr<GameBoard> other = make_game_board();
    Position& before = other->pos;
    copy_position(&before, &board->pos);
    play_and_write(&board->pos, named, &out);
    Move read = NoMove;
    EXPECT_EQ(find_move(&before, out, &read), 1) << out;
    EXPECT_EQ(read, named.move) << out;
    return out;
}

static const char illegal[] = "move that cannot be played";
static const char ambiguous[] = "move that fits two pieces";

TEST(DataGamesMoves, TakeAnyNotation)
{
    for (const char* text : { "Nf3", "Ngf3", "N1f3", "Ng1f3", "Ng1-f3", "g1f3", "g1-f3", "Nf3+",
             "\xe2\x99\x98"
             "f3" }) {
        EXPECT_EQ(written(nullptr, text), "Nf3") << text;
    }
    for (const char* text : { "e4", "e2e4", "e2-e4", "Pe4", "e4=" }) {
        EXPECT_EQ(written(nullptr, text), "e4") << text;
    }
}

TEST(DataGamesMoves, TakeAnyCapture)
{
    const char fen[] = "rnbqkbnr/ppp1pppp/8/3p4/4P3/2N5/PPPP1PPP/R1BQKBNR w KQkq -";
    for (const char* text : { "exd5", "ed5", "ed", "exd", "e4d5", "e4xd5", "e4:d5" }) {
        EXPECT_EQ(written(fen, text), "exd5") << text;
    }
    for (const char* text : { "Nxd5", "Nd5", "N:d5", "Nc3xd5", "c3d5" }) {
        EXPECT_EQ(written(fen, text), "Nxd5") << text;
    }
    EXPECT_EQ(written(fen, "d5"), illegal); // what steps there is no capture
    EXPECT_EQ(written(fen, "Nxe2"), illegal);
    EXPECT_EQ(written(fen, "exf5"), illegal);
}

TEST(DataGamesMoves, TakeAnyCastling)
{
    const char fen[] = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -";
    for (const char* text : { "O-O", "0-0", "o-o", "O-O+", "e1g1", "Ke1g1", "Ke1-g1", "e1h1" }) {
        EXPECT_EQ(written(fen, text), "O-O") << text;
    }
    for (const char* text : { "O-O-O", "0-0-0", "e1c1", "e1a1", "O-O-O#" }) {
        EXPECT_EQ(written(fen, text), "O-O-O") << text;
    }
    EXPECT_EQ(written("r3k2r/8/8/8/8/8/8/R3K2R w Qkq -", "O-O"), illegal);
    EXPECT_EQ(written("r3k2r/8/8/8/8/8/8/R2K3R w - -", "O-O"), illegal);
    EXPECT_EQ(written("4k1r1/8/8/8/8/8/8/R3K2R w KQ -", "O-O"), illegal);
    EXPECT_EQ(written(fen, "Kg1"), illegal);
}

TEST(DataGamesMoves, TakeAnyPromotion)
{
    const char open[] = "3r1n1k/4P3/8/8/8/8/8/4K3 w - -";
    for (const char* text : { "e8=Q", "e8Q", "e8q", "e8(Q)", "e8/Q", "e7e8q", "e7-e8=Q" }) {
        EXPECT_EQ(written(open, text), "e8=Q") << text;
    }
    for (const char* text : { "exd8=N", "ed8N", "edN", "e7xd8n" }) {
        EXPECT_EQ(written(open, text), "exd8=N") << text;
    }
    EXPECT_EQ(written(open, "exf8=R+"), "exf8=R+");
    EXPECT_EQ(written(open, "e8"), "promotion without its piece");
    EXPECT_EQ(written(open, "e8=K"), "not a move");
    EXPECT_EQ(written(nullptr, "e4=Q"), illegal);
}

TEST(DataGamesMoves, TakeCapturesInPassing)
{
    const char fen[] = "4k3/8/8/3pP3/8/8/8/4K3 w - d6";
    for (const char* text : { "exd6", "ed6", "ed", "e5d6", "e5xd6" }) {
        EXPECT_EQ(written(fen, text), "exd6") << text;
    }
    EXPECT_EQ(written(fen, "d6"), illegal);
    EXPECT_EQ(written("4k3/8/8/3pP3/8/8/8/4K3 w - -", "exd6"), illegal);
}

// The rook on c8 is pinned by the one on h8, so the other needs no letter by the rules.
TEST(DataGamesMoves, TellAPieceFromItsPinnedTwin)
{
    const char line[] = "k1r4R/8/8/8/2r5/8/8/K7 b - -";
    EXPECT_EQ(written(line, "Rc6"), "R4c6");
    EXPECT_EQ(written(line, "R4c6"), "R4c6");
    EXPECT_EQ(written(line, "Rcc6"), "R4c6");
    const char rank[] = "k7/8/8/8/r1r5/8/8/R6K b - -";
    EXPECT_EQ(written(rank, "Rb4"), "Rcb4");
    const char knights[] = "4k3/8/8/8/1b6/2N5/8/4K1N1 w - -";
    EXPECT_EQ(written(knights, "Ne2"), "Ne2");
    EXPECT_EQ(written(knights, "Nge2"), "Ne2");
}

TEST(DataGamesMoves, TellAPieceFromItsTwins)
{
    const char knights[] = "4k3/8/8/8/8/5N2/8/1N2K3 w - -";
    EXPECT_EQ(written(knights, "Nbd2"), "Nbd2");
    EXPECT_EQ(written(knights, "N1d2"), "Nbd2");
    EXPECT_EQ(written(knights, "Nd2"), ambiguous);
    const char queens[] = "1k6/8/8/8/4Q2Q/8/8/K6Q w - -";
    EXPECT_EQ(written(queens, "Qh4e1"), "h4e1"); // the tools read no letter with both
    EXPECT_EQ(written(queens, "Qhe1"), ambiguous);
    EXPECT_EQ(written(queens, "Qee1"), "Qee1");
    EXPECT_EQ(written(queens, "Q1e1"), "Q1e1");
}

TEST(DataGamesMoves, RefuseWhatIsNone)
{
    for (const char* text : { "--", "Z0", "null", "0000", "@@@@", "pass" }) {
        EXPECT_EQ(written(nullptr, text), "null move") << text;
    }
    for (const char* text : { "", "Sf3", "i4", "e9", "e", "N", "Nf", "Nf3f", "e4e5e6", "hello",
             "O-O-O-O", "0", "\xe2\x99",
             "\xe2\x99\x60"
             "f3",
             "x", "exd5Q9" }) {
        EXPECT_EQ(written(nullptr, text), "not a move") << text;
    }
    for (const char* text : { "e5", "Nf4", "e2e5", "d8d7", "a3b4", "e7e5", "Ke2", "e1e2" }) {
        EXPECT_EQ(written(nullptr, text), illegal) << text;
    }
    const char check[] = "4k3/8/8/8/7b/8/8/4K2R w K -";
    EXPECT_EQ(written(check, "O-O"), illegal);
    EXPECT_EQ(written(check, "Rg1"), illegal);
    EXPECT_EQ(written(check, "Rxh4"), "Rxh4");
}

TEST(DataGamesMoves, MarkChecks)
{
    EXPECT_EQ(written("k7/8/8/8/8/8/8/K6R w - -", "Rh8#"), "Rh8+");
    EXPECT_EQ(written("k7/8/8/8/8/8/B7/RK6 w - -", "Bd5"), "Bd5+");
    EXPECT_EQ(written("3k4/8/8/8/8/8/8/R3K3 w Q -", "O-O-O"), "O-O-O"); // as Vesk writes it itself
}

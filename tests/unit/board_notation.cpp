// Moves as text, text as moves, and single words.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"
#include "base/output.h"
#include "search/thread.h"

struct Forms {
    std::string coord;
    std::string san;
    std::string file;
    std::string rank;
};

static std::string plain_text_of(Move move, i16 mode)
{
    test_thread();
    char text[8];
    const i16 before = load(uci_mode);
    store(uci_mode, mode);
    move_text(move, text);
    store(uci_mode, before);
    return text;
}

static Forms forms_of_move(const std::string& fen, Move move, i16 mode)
{
    Position* pos = set_position(fen);
    char text[4][16];
    const i16 before = load(uci_mode);
    store(uci_mode, mode);
    make_san(pos, move, text[0], text[1], text[2], text[3]);
    store(uci_mode, before);
    EXPECT_TRUE(fields_agree(pos)) << fen;
    return { text[0], text[1], text[2], text[3] };
}

static Forms forms_of(const std::string& fen, const char* move)
{
    return forms_of_move(fen, move_of(move), 1);
}

// The move that a text stands for, "0" if none, or what was printed. The buffer has room for
// the one character that may be put in, and no more.
static std::string parse_on_board(const std::string& text)
{
    char* buffer = new char[text.size() + 2];
    memcpy(buffer, text.c_str(), text.size() + 1);
    Move move = EndOfList;
    bool found = false;
    const std::string printed =
        capture_output([&] { found = read_move(&dialogue.game->pos, buffer, &move); });
    delete[] buffer;
    if (!printed.empty()) {
        return printed;
    }
    return found ? text_of(move) : "0";
}

static std::string parse(const std::string& fen, const std::string& text)
{
    set_position(fen);
    return parse_on_board(text);
}

static constexpr const char* start_fen = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
static constexpr const char* promotion_fen = "3r4/4P3/8/8/8/7k/8/4K3 w - -";
static constexpr const char* knights_fen = "4k3/8/8/8/8/8/3N4/4K1N1 w - -";

// ---- Coordinate text

TEST(BoardNotation, CoordinateTextIsTheTwoSquares)
{
    EXPECT_EQ(plain_text_of(move_of("a1h8"), 1), "a1h8");
    EXPECT_EQ(plain_text_of(move_of("h8a1"), 0), "h8a1");
    EXPECT_EQ(plain_text_of(move_of("e1g1"), 1), "e1g1");
}

TEST(BoardNotation, PromotionTextDependsOnTheMode)
{
    const struct {
        Move flag;
        const char* uci;
        const char* console;
    } cases[] = {
        { PromoteQueen, "e7e8q", "e7e8=Q" },
        { PromoteKnight, "e7e8n", "e7e8=N" },
        { PromoteBishop, "e7e8b", "e7e8=B" },
        { PromoteRook, "e7e8r", "e7e8=R" },
    };
    for (const auto& row : cases) {
        const Move move = static_cast<Move>(move_of("e7e8") | row.flag);
        EXPECT_EQ(plain_text_of(move, 1), row.uci);
        EXPECT_EQ(plain_text_of(move, 0), row.console);
    }
}

TEST(BoardNotation, NoMoveIsNull)
{
    char text[16];
    EXPECT_EQ(move_text_or_null(NoMove, text), text);
    EXPECT_STREQ(text, "null");
    EXPECT_EQ(move_text_or_null(move_of("e2e4"), text), text);
    EXPECT_STREQ(text, "e2e4");
}

// ---- The four forms

TEST(BoardNotation, EveryStoredForm)
{
    i32 count = 0;
    for (const auto& row : read_tsv("notation.tsv")) {
        if (row[0] != "san") {
            continue;
        }
        ++count;
        const Forms forms = forms_of(row[1], row[2].c_str());
        const auto text = [](const std::string& form) { return form.empty() ? "-" : form; };
        EXPECT_EQ(text(forms.coord), row[3]) << row[1] << ' ' << row[2];
        EXPECT_EQ(text(forms.san), row[4]) << row[1] << ' ' << row[2];
        EXPECT_EQ(text(forms.file), row[5]) << row[1] << ' ' << row[2];
        EXPECT_EQ(text(forms.rank), row[6]) << row[1] << ' ' << row[2];
    }
    EXPECT_GT(count, 100);
}

TEST(BoardNotation, FormsOfNoMove)
{
    const Forms forms = forms_of_move(start_fen, NoMove, 1);
    EXPECT_EQ(forms.coord, "null");
    EXPECT_EQ(forms.san + forms.file + forms.rank, "");
}

TEST(BoardNotation, KnightCaptureWithCheck)
{
    const Forms forms = forms_of("3k4/5p2/8/4N3/8/8/8/4K3 w - -", "e5f7");
    EXPECT_EQ(forms.coord, "e5f7+");
    EXPECT_EQ(forms.san, "Nxf7+");
    EXPECT_EQ(forms.file, "Nexf7+");
    EXPECT_EQ(forms.rank, "N5xf7+");
}

TEST(BoardNotation, TwinOnNeitherFileNorRankLeavesSanBare)
{
    const Forms forms = forms_of(knights_fen, "g1f3");
    EXPECT_EQ(forms.coord, "g1f3");
    EXPECT_EQ(forms.san, "Nf3");
    EXPECT_EQ(forms.file, "Ngf3");
    EXPECT_EQ(forms.rank, "N1f3");
}

TEST(BoardNotation, TwinOnTheFileAsksForTheRank)
{
    EXPECT_EQ(forms_of("4k3/8/8/R7/8/8/8/R3K3 w - -", "a1a3").san, "R1a3");
    EXPECT_EQ(forms_of("4k3/8/8/R7/8/8/8/R3K3 w - -", "a5a3").san, "R5a3");
}

TEST(BoardNotation, TwinOnTheRankAsksForTheFile)
{
    EXPECT_EQ(forms_of("4k3/8/8/8/8/8/4K3/R6R w - -", "a1d1").san, "Rad1");
    EXPECT_EQ(forms_of("4k3/8/8/8/8/8/4K3/R6R w - -", "h1d1").san, "Rhd1");
}

TEST(BoardNotation, TwinOnTheFileCountsBeforeOneOnTheRank)
{
    // Queens on a1, a5 and e1 all reach e5; the mover on a1 shares a file and a rank.
    EXPECT_EQ(forms_of("8/7k/8/Q7/8/8/8/Q3Q2K w - -", "a1e5").san, "Q1e5");
    EXPECT_EQ(forms_of("8/7k/8/Q7/8/8/8/Q3Q2K w - -", "a5e5").san, "Q5e5");
    EXPECT_EQ(forms_of("8/7k/8/Q7/8/8/8/Q3Q2K w - -", "e1e5").san, "Qee5");
}

TEST(BoardNotation, TwinBehindTheMoverDoesNotReachTheSquare)
{
    EXPECT_EQ(forms_of("4k3/8/8/8/8/R7/R7/4K3 w - -", "a3a5").san, "Ra5");
    EXPECT_EQ(forms_of("4k3/8/8/8/8/R7/R7/4K3 w - -", "a2b2").san, "Rb2");
}

TEST(BoardNotation, PinnedTwinOnTheRankStillAsksForTheFile)
{
    // The knight on e4 is pinned, yet the one on c4 is told apart from it.
    EXPECT_EQ(forms_of("4r1k1/8/8/8/2N1N3/8/8/4K3 w - -", "c4d2").san, "Ncd2");
}

TEST(BoardNotation, CastlingHasThreeForms)
{
    const char* const fen = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -";
    Forms forms = forms_of(fen, "e1g1");
    EXPECT_EQ(forms.coord, "e1g1");
    EXPECT_EQ(forms.san, "o-o");
    EXPECT_EQ(forms.file, "O-O");
    EXPECT_EQ(forms.rank, "0-0");
    forms = forms_of("r3k2r/8/8/8/8/8/8/R3K2R b KQkq -", "e8c8");
    EXPECT_EQ(forms.coord, "e8c8");
    EXPECT_EQ(forms.san, "o-o-o");
    EXPECT_EQ(forms.file, "O-O-O");
    EXPECT_EQ(forms.rank, "0-0-0");
}

TEST(BoardNotation, PawnPushHasOnlyItsSquare)
{
    const Forms forms = forms_of(start_fen, "e2e4");
    EXPECT_EQ(forms.coord, "e2e4");
    EXPECT_EQ(forms.san, "e4");
    EXPECT_EQ(forms.file, "");
    EXPECT_EQ(forms.rank, "");
}

TEST(BoardNotation, PawnCapture)
{
    Forms forms = forms_of("4k3/8/8/3p4/4P3/8/8/4K3 w - -", "e4d5");
    EXPECT_EQ(forms.coord, "e4d5");
    EXPECT_EQ(forms.san, "exd5");
    EXPECT_EQ(forms.file, "ed");
    EXPECT_EQ(forms.rank, "");
    forms = forms_of("4k3/8/8/8/3pP3/8/8/4K3 b - e3", "d4e3");
    EXPECT_EQ(forms.san, "dxe3");
    EXPECT_EQ(forms.file, "de");
}

TEST(BoardNotation, PromotionIsWrittenTheSameWayInBothModes)
{
    for (const i16 mode : { i16 { 0 }, i16 { 1 } }) {
        Forms forms = forms_of_move(promotion_fen, move_of("e7e8n"), mode);
        EXPECT_EQ(forms.coord, "e7e8=N");
        EXPECT_EQ(forms.san, "e8=N");
        EXPECT_EQ(forms.file, "=N");
        EXPECT_EQ(forms.rank, "");
        forms = forms_of_move(promotion_fen, move_of("e7d8q"), mode);
        EXPECT_EQ(forms.coord, "e7d8=Q");
        EXPECT_EQ(forms.san, "exd8=Q");
        EXPECT_EQ(forms.file, "ed=Q");
        EXPECT_EQ(forms.rank, "");
    }
}

TEST(BoardNotation, CheckIsMarkedOnEveryForm)
{
    const Forms forms = forms_of("8/8/8/3k4/8/8/4P3/4K3 w - -", "e2e4");
    EXPECT_EQ(forms.coord, "e2e4+");
    EXPECT_EQ(forms.san, "e4+");
    EXPECT_EQ(forms.file, "+");
    EXPECT_EQ(forms.rank, "+");
}

TEST(BoardNotation, CheckByThePromotedPiece)
{
    EXPECT_EQ(forms_of("7k/4P3/8/8/8/8/8/K7 w - -", "e7e8q").san, "e8=Q+");
    EXPECT_EQ(forms_of("7k/4P3/8/8/8/8/8/K7 w - -", "e7e8r").san, "e8=R+");
    EXPECT_EQ(forms_of("7k/4P3/8/8/8/8/8/K7 w - -", "e7e8b").san, "e8=B");
    EXPECT_EQ(forms_of("8/4P1k1/8/8/8/8/8/K7 w - -", "e7e8n").san, "e8=N+");
}

TEST(BoardNotation, DiscoveredCheckIsMarked)
{
    EXPECT_EQ(forms_of("4k3/8/8/8/8/4N3/8/4R1K1 w - -", "e3c4").san, "Nc4+");
    EXPECT_EQ(forms_of("4k3/8/8/8/8/8/4K3/4R3 w - -", "e2d2").san, "Kd2+");
    EXPECT_EQ(forms_of("4k3/8/8/8/8/8/4K3/4R3 w - -", "e2e3").san, "Ke3");
}

TEST(BoardNotation, MateIsMarkedAsCheck)
{
    EXPECT_EQ(forms_of("7k/8/6K1/8/8/8/8/R7 w - -", "a1a8").san, "Ra8+");
}

TEST(BoardNotation, CheckByTheCastlingRookOrPastTheEnPassantVictimIsNotMarked)
{
    EXPECT_EQ(forms_of("5k2/8/8/8/8/8/8/4K2R w K -", "e1g1").san, "o-o");
    EXPECT_EQ(forms_of("8/8/8/R2pP2k/8/8/8/6K1 w - d6", "e5d6").san, "exd6");
    EXPECT_EQ(forms_of("4k3/8/8/3pP3/8/8/8/4R1K1 w - d6", "e5d6").san, "exd6+");
}

// ---- Text as moves

TEST(BoardNotation, EveryStoredText)
{
    i32 count = 0;
    for (const auto& row : read_tsv("notation.tsv")) {
        if (row[0] != "parse") {
            continue;
        }
        ++count;
        const std::string expected = row[3] == "ambiguous" ? "ambiguous move\n" : row[3];
        EXPECT_EQ(parse(row[1], row[2] == "-" ? "" : row[2]), expected) << row[1] << ' ' << row[2];
    }
    EXPECT_EQ(count, 150);
}

TEST(BoardNotation, AllFormsOfAMoveAreUnderstood)
{
    for (const char* text : { "e2e4", "e4" }) {
        EXPECT_EQ(parse(start_fen, text), "e2e4") << text;
    }
    for (const char* text : { "Nf3", "Ngf3", "N1f3", "g1f3" }) {
        EXPECT_EQ(parse(start_fen, text), "g1f3") << text;
    }
    for (const char* text : { "exd5", "ed", "e4d5" }) {
        EXPECT_EQ(parse("4k3/8/8/3p4/4P3/8/8/4K3 w - -", text), "e4d5") << text;
    }
}

TEST(BoardNotation, AllFormsOfCastlingAreTheSame)
{
    const char* const fen = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq -";
    for (const char* text : { "O-O", "0-0", "o-o", "O-0", "e1g1" }) {
        EXPECT_EQ(parse(fen, text), "e1g1") << text;
    }
    for (const char* text : { "O-O-O", "0-0-0", "o-o-o", "o-0-O", "e1c1" }) {
        EXPECT_EQ(parse(fen, text), "e1c1") << text;
    }
}

TEST(BoardNotation, PromotionNeedsItsPiece)
{
    for (const char* text : { "e8=Q+", "e8=Q", "e8=q", "e8q", "e8Q", "e7e8q", "e7e8=Q", "e7e8Q" }) {
        EXPECT_EQ(parse(promotion_fen, text), "e7e8q") << text;
    }
    for (const char* text : { "exd8n", "ed=N", "edn", "e7d8N", "ed=N+" }) {
        EXPECT_EQ(parse(promotion_fen, text), "e7d8n") << text;
    }
    for (const char* text : { "e8", "e7e8", "exd8", "ed", "e8=K", "e8==Q", "e8k", "e8p" }) {
        EXPECT_EQ(parse(promotion_fen, text), "0") << text;
    }
}

TEST(BoardNotation, TextThatEndsInALowerCaseBIsTakenForAPromotion)
{
    const char* const fen = "4k3/8/8/1p6/P7/8/8/4K3 w - -";
    EXPECT_EQ(parse(fen, "ab"), "0");
    EXPECT_EQ(parse(fen, "axb5"), "a4b5");
}

TEST(BoardNotation, CheckMarksAndAllBehindThemAreCut)
{
    EXPECT_EQ(parse(start_fen, "e4+"), "e2e4");
    EXPECT_EQ(parse(start_fen, "Nf3+!? with an idea"), "g1f3");
    EXPECT_EQ(parse(start_fen, "e4#"), "0");
    EXPECT_EQ(parse(start_fen, "e4!"), "0");
}

TEST(BoardNotation, CaseMatters)
{
    for (const char* text : { "nf3", "NF3", "E4", "E2E4", "ngf3" }) {
        EXPECT_EQ(parse(start_fen, text), "0") << text;
    }
}

TEST(BoardNotation, TwoMatchesAreAmbiguous)
{
    EXPECT_EQ(parse(knights_fen, "Nf3"), "ambiguous move\n");
    EXPECT_EQ(parse(knights_fen, "Ngf3"), "g1f3");
    EXPECT_EQ(parse(knights_fen, "Ndf3"), "d2f3");
    EXPECT_EQ(parse(knights_fen, "N1f3"), "g1f3");
}

TEST(BoardNotation, PinnedTwinDoesNotMakeATextAmbiguous)
{
    EXPECT_EQ(parse("4k3/8/8/8/1b6/8/3N4/4K1N1 w - -", "Nf3"), "g1f3");
    EXPECT_EQ(parse("4k3/8/8/8/1b6/8/3N4/4K1N1 w - -", "Ndf3"), "0");
}

TEST(BoardNotation, ThreeMatchesAreSilent)
{
    // Knights on d2, g1 and h4 all reach f3 and share neither file nor rank.
    EXPECT_EQ(parse("4k3/8/8/8/7N/8/3N4/4K1N1 w - -", "Nf3"), "0");
}

TEST(BoardNotation, IllegalMovesAreNotFound)
{
    EXPECT_EQ(parse("4r1k1/8/8/8/8/8/4N3/4K3 w - -", "Nc3"), "0");
    EXPECT_EQ(parse("5rk1/8/8/8/8/8/8/4K2R w K -", "O-O"), "0");
    EXPECT_EQ(parse(start_fen, "e7e5"), "0");
}

TEST(BoardNotation, OddTextsFindNothing)
{
    for (const char* text : { "", "+", "++", "e", "=", "==", "Q", "b", "x", "0", "-", " ", "e2",
             "e2e", "e2e4 ", " e2e4", "e2e4e", "e2-e4", "null", "0000", "\xff\xfe", "\t" }) {
        EXPECT_EQ(parse(start_fen, text), "0") << text;
    }
    for (const char fill : { 'e', 'Q', 'b', '0', '+', ' ', '\x80' }) {
        EXPECT_EQ(parse(start_fen, std::string(500, fill)), "0") << fill;
    }
    EXPECT_EQ(parse(start_fen, "e4" + std::string(498, '+')), "e2e4");
}

TEST(BoardNotation, FormsOfPawnsCanBeTheEmptyTextOrASuffix)
{
    // The file and rank forms of a push are empty; with one such move the empty text means it.
    EXPECT_EQ(parse("4k3/8/8/8/8/p7/P1P5/2b1K3 w - -", ""), "ambiguous move\n");
    EXPECT_EQ(parse("4k3/8/8/8/8/4P3/8/4K3 w - -", "+"), "e3e4");
    EXPECT_EQ(parse("8/4P3/8/8/8/7k/8/4K3 w - -", "q"), "e7e8q");
    EXPECT_EQ(parse("8/4P3/8/8/8/7k/8/4K3 w - -", "=N"), "e7e8n");
}

TEST(BoardNotation, ParsingWorksDeepInAGameAndKeepsThePly)
{
    set_position(start_fen);
    dialogue.game->ply = 500;
    EXPECT_EQ(parse_on_board("Nf3"), "g1f3");
    EXPECT_EQ(dialogue.game->ply, 500);
    set_position(start_fen);
}

TEST(BoardNotation, EveryLegalMoveIsFoundByItsCoordinates)
{
    u64 state = 11;
    for (i32 game = 0; game < 10; ++game) {
        Position* pos =
            set_position("r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq -");
        play_random_moves(pos, &state, 8 * game);
        for (const Move move : legal_moves(pos)) {
            EXPECT_EQ(parse_on_board(text_of(move)), text_of(move)) << fen_of(pos);
        }
    }
}

// ---- Text as moves, against a slow reader

// The text as a person would bring it into the forms that moves are written in.
static std::string normalised(std::string text)
{
    text = text.substr(0, text.find('+'));
    const size_t size = text.size();
    const char letter = size > 0 ? static_cast<char>(toupper(text[size - 1])) : ' ';
    if (std::string("BNQR").find(letter) != std::string::npos) {
        text.pop_back();
        if (text.empty() || text.back() != '=') {
            text += '=';
        }
        text += letter;
    }
    std::replace(text.begin(), text.end(), 'O', 'o');
    std::replace(text.begin(), text.end(), '0', 'o');
    return text;
}

// A legal move and the four forms that it is written in, without their check signs.
struct WrittenMove {
    Move move;
    std::string forms[4];
};

static std::vector<WrittenMove> write_legal_moves(Position* pos)
{
    static MoveEntry list[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, list);
    std::vector<WrittenMove> moves;
    for (const MoveEntry* entry = list; entry < end; ++entry) {
        if (entry->move == NoMove || !is_legal_move(pos, pos->stm, entry->move)) {
            continue;
        }
        char forms[4][16];
        make_san(pos, entry->move, forms[0], forms[1], forms[2], forms[3]);
        WrittenMove& written = moves.emplace_back(WrittenMove { entry->move, {} });
        for (i32 form = 0; form < 4; ++form) {
            const std::string text = forms[form];
            written.forms[form] = text.substr(0, text.find('+'));
        }
    }
    return moves;
}

// The result of looking at every form of every legal move, told as parse_on_board does.
static std::string parse_slowly(const std::vector<WrittenMove>& moves, const std::string& text)
{
    const std::string wanted = normalised(text);
    i32 matches = 0;
    Move found = NoMove;
    for (const WrittenMove& written : moves) {
        if (std::count(written.forms, written.forms + 4, wanted) > 0) {
            ++matches;
            found = written.move;
        }
    }
    return matches == 2 ? "ambiguous move\n" : matches == 1 ? text_of(found) : "0";
}

// What find_move gives, told the same way. It says nothing to the user.
static std::string find_on_board(Position* pos, const std::string& text)
{
    Move move = NoMove;
    const i32 matches = find_move(pos, text, &move);
    return matches == 2 ? "ambiguous move\n" : matches == 1 ? text_of(move) : "0";
}

// Both readers beside the slow one.
static void compare_readers_of(
    Position* pos, const std::vector<WrittenMove>& moves, const std::string& text)
{
    const std::string expected = parse_slowly(moves, text);
    EXPECT_EQ(expected, parse_on_board(text)) << fen_of(pos) << ' ' << text;
    EXPECT_EQ(expected, find_on_board(pos, text)) << fen_of(pos) << ' ' << text;
}

// Every form of every move and some texts near them.
static void compare_readers(Position* pos, u64* state)
{
    std::vector<std::string> texts = { "", "=Q", "o-o", "O-O-O", "e4", "d5", "ed", "cd=N", "Kf1",
        "Nf3", "Qd1", "P", "x", "Pe4", "e9", "i4", "e", "4", "+", "Nf3++", "e4+d5", "e8=Q+", "exd6",
        "xe4", "Nxx4", "N9f3", "Ni4f3", "a1", "h8", std::string(40, 'N'),
        "Nf3" + std::string(40, '!') };
    const std::vector<WrittenMove> moves = write_legal_moves(pos);
    static MoveEntry list[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, list);
    for (const MoveEntry* entry = list; entry < end; ++entry) {
        char forms[4][16];
        make_san(pos, entry->move, forms[0], forms[1], forms[2], forms[3]);
        for (const char* form : forms) {
            texts.emplace_back(form);
        }
    }
    for (const std::string& text : texts) {
        compare_readers_of(pos, moves, text);
        if (text.empty() || next_random(state, 8) != 0) {
            continue;
        }
        std::string other = text;
        other[next_random(state, static_cast<u32>(other.size()))] =
            "abcdefgh12345678NBRQKxo=+-"[next_random(state, 26)];
        compare_readers_of(pos, moves, other);
    }
}

TEST(BoardNotation, SlowReaderUnderstandsTheSameTexts)
{
    for (const auto& row : read_tsv("notation.tsv")) {
        if (row[0] != "parse") {
            continue;
        }
        const std::string expected = row[3] == "ambiguous" ? "ambiguous move\n" : row[3];
        const auto moves = write_legal_moves(set_position(row[1]));
        const std::string text = row[2] == "-" ? "" : row[2];
        EXPECT_EQ(parse_slowly(moves, text), expected) << row[1] << ' ' << text;
    }
}

TEST(BoardNotation, ReaderAgreesWithTheSlowOneInRandomGames)
{
    u64 state = 5;
    const char* const fens[] = {
        start_fen,
        "r3k2r/pPppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
        "1n2k3/P1PP1p2/8/3pP3/1pP5/8/pP3p1p/1N2K1N1 w - d6",
        "QQQ1k3/8/1QQQ4/8/8/nnn5/8/K3qqq1 b - -",
    };
    for (const char* fen : fens) {
        for (i32 game = 0; game < 3; ++game) {
            Position* pos = set_position(fen);
            for (i32 ply = 0; ply < 40; ++ply) {
                compare_readers(pos, &state);
                if (play_random_moves(pos, &state, 1) == 0) {
                    break;
                }
            }
        }
    }
}

TEST(BoardNotation, ReaderAgreesWithTheSlowOneOnBoardsThatNoGameReaches)
{
    u64 state = 17;
    for (i32 round = 0; round < 60; ++round) {
        std::string fen;
        for (i32 square = 0; square < 64; ++square) {
            if (square > 0 && square % 8 == 0) {
                fen += '/';
            }
            fen += "PNBRQKpnbrqkPp111111111111111111"[next_random(&state, 32)];
        }
        fen += round % 2 == 0 ? " w KQkq " : " b KQkq ";
        fen += square_name[next_random(&state, 64)];
        Position* pos = nullptr;
        capture_output([&] { pos = set_position(fen); });
        compare_readers(pos, &state);
    }
}

TEST(BoardNotation, ReaderLeavesTheListsAlone)
{
    Position* pos = set_position(start_fen);
    MoveEntry* first = pos->thread->ply_rec[1].list_start;
    const MoveEntry before = *first;
    EXPECT_EQ(parse_on_board("Nf3"), "g1f3");
    EXPECT_EQ(parse_on_board("O-O"), "0");
    EXPECT_EQ(pos->thread->ply_rec[1].list_start, first);
    EXPECT_EQ(first->move, before.move);
}

// ---- Words

TEST(BoardNotation, FirstWordEndsAtBlankOrEndOfLine)
{
    EXPECT_STREQ(next_word("depth 12"), "depth");
    EXPECT_STREQ(next_word("   12 13"), "12");
    EXPECT_STREQ(next_word("go\n"), "go");
    EXPECT_STREQ(next_word("go\r\n"), "go");
    EXPECT_STREQ(next_word("a\tb c"), "a\tb");
    EXPECT_STREQ(next_word("last"), "last");
}

TEST(BoardNotation, TextWithoutAWordGivesAnEmptyOne)
{
    EXPECT_STREQ(next_word("word before"), "word");
    for (const char* text : { "", "    ", "\n", "  \r\n", "\nword" }) {
        EXPECT_STREQ(next_word(text), "") << text;
    }
}

TEST(BoardNotation, LongWordIsCutAt127Characters)
{
    const std::string text(5000, 'x');
    EXPECT_EQ(next_word(text.c_str()), std::string(127, 'x'));
    EXPECT_EQ(next_word(text.substr(0, 127).c_str()), std::string(127, 'x'));
    EXPECT_EQ(next_word(text.substr(0, 126).c_str()), std::string(126, 'x'));
    EXPECT_EQ(next_word(("  " + text + " y").c_str()), std::string(127, 'x'));
    EXPECT_STREQ(next_word("y"), "y");
}

// Probing a book: what is found, what is chosen and how often, what is reported, and books that
// are none.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "book_support.h"
#include "base/output.h"

struct BookProbe : BookTest {
    // Chooses without a word.
    static void use_silent_console()
    {
        store(uci_mode, 0);
        store(noise, silent_noise);
    }
};

static const std::string start = start_position;
static constexpr i32 book_limit = 128;

static std::string report_of(const std::string& fen, const char* book, Move* move = nullptr)
{
    Position* pos = set_position(fen);
    Move found = NoMove;
    const std::string text = capture_output([&] { found = ask_book(pos, book); });
    EXPECT_TRUE(fields_agree(pos)) << fen;
    if (move != nullptr) {
        *move = found;
    }
    return text;
}

static std::string probe(const std::string& fen, const char* book)
{
    Move move = NoMove;
    report_of(fen, book, &move);
    return text_of(move);
}

static void write_book(const std::vector<BookEntry>& entries)
{
    write_bytes("book", bytes_of(entries));
}

static const std::vector<BookEntry> three_moves()
{
    return { entry_of(start, "e2e4", 100), entry_of(start, "d2d4", 50),
        entry_of(start, "c2c4", 50) };
}

// A start value of rand() whose first draw is wanted.
static unsigned seed_for_draw(u32 wanted)
{
    for (unsigned seed = 1;; ++seed) {
        srand(seed);
        if ((static_cast<u32>(rand()) * 98765U + 123456789U) % 1000U == wanted) {
            return seed;
        }
    }
}

static std::string probe_with_draw(u32 draw, i32 variety)
{
    dialogue.engine_options.own_book_variety = static_cast<i16>(variety);
    const unsigned seed = seed_for_draw(draw);
    set_position(start);
    srand(seed);
    return probe(start, "book");
}

// ---- The weights

static std::vector<i32> adjusted_of(const std::vector<BookEntry>& entries, i32 variety)
{
    std::vector<u16> adjusted(entries.size());
    const i32 count = static_cast<i32>(entries.size());
    const u32 sum = adjust_book_weights(entries.data(), count, variety, adjusted.data());
    u32 total = 0;
    for (const u16 value : adjusted) {
        total += value;
    }
    EXPECT_EQ(sum, total);
    return { adjusted.begin(), adjusted.end() };
}

static std::vector<BookEntry> weights(const std::vector<i32>& values)
{
    std::vector<BookEntry> entries;
    for (const i32 value : values) {
        entries.push_back({ 0, 0, static_cast<u16>(value), 0 });
    }
    return entries;
}

TEST_F(BookProbe, NeutralVarietyKeepsTheProportions)
{
    EXPECT_EQ(adjusted_of(weights({ 100, 50, 50 }), 25), (std::vector<i32> { 5000, 2500, 2500 }));
}

TEST_F(BookProbe, LowVarietyTakesAShareOfTheFirstWeightAway)
{
    EXPECT_EQ(adjusted_of(weights({ 100, 50, 50 }), 0), (std::vector<i32> { 3750, 1250, 1250 }));
}

TEST_F(BookProbe, HighVarietyEvensTheWeightsOut)
{
    EXPECT_EQ(adjusted_of(weights({ 100, 50, 50 }), 100), (std::vector<i32> { 8750, 6250, 6250 }));
}

TEST_F(BookProbe, NoVarietyCutsOffBelowAQuarterOfTheFirstWeight)
{
    EXPECT_EQ(adjusted_of(weights({ 100, 26, 25, 24, 1 }), 0),
        (std::vector<i32> { 75 * 10000 / 176, 10000 / 176, 0, 0, 0 }));
}

TEST_F(BookProbe, BonusAndSharesAreTruncated)
{
    // The bonus is 7 * 0.35, the shares are of a sum of 12.
    EXPECT_EQ(adjusted_of(weights({ 7, 5 }), 60), (std::vector<i32> { 90000 / 12, 70000 / 12 }));
    // Towards zero for a negative bonus too: -1.75 is -1.
    EXPECT_EQ(adjusted_of(weights({ 7, 5 }), 0), (std::vector<i32> { 60000 / 12, 40000 / 12 }));
}

TEST_F(BookProbe, BonusIsThatOfTheFractionAsItCanBeHeld)
{
    // 116 * 0.01 is a little less than 1.16, so the bonus is -28 and not -29.
    EXPECT_EQ(adjusted_of(weights({ 116, 84 }), 0), (std::vector<i32> { 88 * 50, 56 * 50 }));
    EXPECT_EQ(adjusted_of(weights({ 116, 84 }), 50), (std::vector<i32> { 144 * 50, 112 * 50 }));
}

TEST_F(BookProbe, GreatestWeightsDoNotOverflow)
{
    const std::vector<BookEntry> entries = weights(std::vector<i32>(book_limit, 65535));
    EXPECT_EQ(adjusted_of(entries, 100), std::vector<i32>(book_limit, 136));
    EXPECT_EQ(adjusted_of(weights({ 65535 }), 100), std::vector<i32> { 17499 });
}

TEST_F(BookProbe, WeightsOfNothingButZeroAreRefused)
{
    u16 adjusted[2] = { 7, 7 };
    EXPECT_EQ(adjust_book_weights(weights({ 0, 0 }).data(), 2, 100, adjusted), 0U);
}

// ---- The choice

TEST_F(BookProbe, DrawPicksTheLastEntryThatStartsBelowTheThreshold)
{
    write_book(three_moves());
    EXPECT_EQ(probe_with_draw(0, 25), "e2e4");
    EXPECT_EQ(probe_with_draw(499, 25), "e2e4");
    EXPECT_EQ(probe_with_draw(500, 25), "e2e4"); // 5000 is not above 5000
    EXPECT_EQ(probe_with_draw(501, 25), "d2d4");
    EXPECT_EQ(probe_with_draw(749, 25), "d2d4");
    EXPECT_EQ(probe_with_draw(751, 25), "c2c4");
    EXPECT_EQ(probe_with_draw(999, 25), "c2c4");
}

TEST_F(BookProbe, VarietyMovesTheBordersOfTheChoice)
{
    write_book(three_moves());
    EXPECT_EQ(probe_with_draw(600, 0), "e2e4"); // 3750 of 6250
    EXPECT_EQ(probe_with_draw(601, 0), "d2d4");
    EXPECT_EQ(probe_with_draw(801, 0), "c2c4");
    EXPECT_EQ(probe_with_draw(411, 100), "e2e4"); // 8750 of 21250
    EXPECT_EQ(probe_with_draw(412, 100), "d2d4");
    EXPECT_EQ(probe_with_draw(706, 100), "c2c4");
}

static std::map<i32, i32> choices_of_all_draws(const std::vector<BookEntry>& entries, i32 variety)
{
    std::vector<u16> adjusted(entries.size());
    const i32 count = static_cast<i32>(entries.size());
    const u32 sum = adjust_book_weights(entries.data(), count, variety, adjusted.data());
    std::map<i32, i32> choices;
    for (u32 draw = 0; draw < 1000; ++draw) {
        ++choices[choose_book_entry(entries.data(), count, adjusted.data(), sum, draw)];
    }
    return choices;
}

TEST_F(BookProbe, EntryOfWeightZeroIsNeverChosen)
{
    EXPECT_EQ(choices_of_all_draws(weights({ 100, 0, 50 }), 100).count(1), 0U);
    EXPECT_EQ(choices_of_all_draws(weights({ 0, 100, 50 }), 25).count(0), 0U);
    EXPECT_EQ(choices_of_all_draws(weights({ 0, 0, 1 }), 25), (std::map<i32, i32> { { 2, 1000 } }));
}

TEST_F(BookProbe, ThresholdIsThatOfTheFractionAsItCanBeHeld)
{
    // 577 * 0.001 * 13000 is a little less than 7501, so it is not above the first share, 7500.
    const std::vector<BookEntry> entries = weights({ 24, 16 });
    u16 adjusted[2];
    const u32 sum = adjust_book_weights(entries.data(), 2, 53, adjusted);
    ASSERT_EQ(sum, 13000U);
    ASSERT_EQ(adjusted[0], 7500);
    EXPECT_EQ(choose_book_entry(entries.data(), 2, adjusted, sum, 577), 0);
    EXPECT_EQ(choose_book_entry(entries.data(), 2, adjusted, sum, 578), 1);
}

TEST_F(BookProbe, EntryCutOffByVarietyIsNotChosenBetweenTwoOthers)
{
    const std::map<i32, i32> choices = choices_of_all_draws(weights({ 100, 20, 80 }), 0);
    EXPECT_EQ(choices.count(1), 0U);
    EXPECT_GT(choices.at(0), 0);
    EXPECT_GT(choices.at(2), 0);
}

TEST_F(BookProbe, EntryCutOffByVarietyIsNotChosenAtTheEnd)
{
    EXPECT_EQ(choices_of_all_draws(weights({ 100, 20 }), 0), (std::map<i32, i32> { { 0, 1000 } }));
}

// Chi-square of many choices against the shares that the weights promise.
static f64 chi_square(i32 variety, const std::vector<std::pair<std::string, i32>>& moves)
{
    constexpr i32 trials = 20000;
    std::vector<BookEntry> entries;
    for (const auto& [move, weight] : moves) {
        entries.push_back(entry_of(start, move, weight));
    }
    write_book(entries);
    dialogue.engine_options.own_book_variety = static_cast<i16>(variety);

    std::map<std::string, i32> counts;
    Position* pos = set_position(start);
    srand(20240607);
    for (i32 i = 0; i < trials; ++i) {
        ++counts[text_of(ask_book(pos, "book"))];
    }

    f64 total = 0;
    std::vector<f64> shares;
    for (const auto& [move, weight] : moves) {
        const f64 share = weight + moves[0].second * 0.01 * (variety - 25);
        shares.push_back(weight > 0 && share > 0 ? share : 0);
        total += shares.back();
    }
    f64 chi = 0;
    i32 seen = 0;
    for (size_t i = 0; i < moves.size(); ++i) {
        const f64 expected = trials * shares[i] / total;
        const i32 found = counts[moves[i].first];
        seen += found;
        if (expected == 0) {
            EXPECT_EQ(found, 0) << moves[i].first;
        } else {
            chi += (found - expected) * (found - expected) / expected;
        }
    }
    EXPECT_EQ(seen, trials);
    return chi;
}

// Each limit is passed by one fair choice in a thousand.
TEST_F(BookProbe, ChoicesFollowTheWeightsAtEveryVariety)
{
    use_silent_console();
    const std::vector<std::pair<std::string, i32>> moves = { { "e2e4", 400 }, { "d2d4", 300 },
        { "c2c4", 200 }, { "g1f3", 80 } };
    EXPECT_LT(chi_square(0, moves), 13.82);  // one move is cut off: two degrees of freedom
    EXPECT_LT(chi_square(25, moves), 16.27); // three
    EXPECT_LT(chi_square(60, moves), 16.27);
    EXPECT_LT(chi_square(100, moves), 16.27);
}

TEST_F(BookProbe, WrongSharesWouldBeNoticed)
{
    use_silent_console();
    // What one setting promises, judged by the measure of another.
    const std::vector<std::pair<std::string, i32>> moves = { { "e2e4", 400 }, { "d2d4", 300 } };
    dialogue.engine_options.own_book_variety = 25;
    EXPECT_LT(chi_square(25, moves), 10.83);
    Position* pos = set_position(start);
    i32 first = 0;
    dialogue.engine_options.own_book_variety = 100;
    for (i32 i = 0; i < 20000; ++i) {
        first += ask_book(pos, "book") == move_of("e2e4");
    }
    const f64 expected = 20000 * 400.0 / 700;
    EXPECT_GT((first - expected) * (first - expected) / expected, 16.27);
}

// ---- What is found

// "g8f6 42, e7e5 21" as pairs; castling, named there by the king's way, as a book names it.
static std::vector<std::pair<std::string, i32>> listed_moves(
    const Position* pos, const std::string& text)
{
    std::vector<std::pair<std::string, i32>> moves;
    std::istringstream words(text);
    std::string move;
    for (i32 weight; words >> move >> weight; words.ignore(1)) {
        if ((pos->board[square_of(move.c_str())] & 7) == King) {
            move = book_text_of(move_to_book_move(move_of(move)));
        }
        moves.emplace_back(move, weight);
    }
    return moves;
}

TEST_F(BookProbe, BookOfManyPositionsGivesItsMovesInTheirOrder)
{
    const std::string book = data_path("small.bin");
    i32 with_zero = 0;
    for (const auto& row : read_tsv("small-book.tsv")) {
        const auto moves = listed_moves(set_position(row[0]), row[1]);
        std::string uci = "info string ( book moves are: ";
        i32 total = 0;
        for (const auto& [move, weight] : moves) {
            total += weight;
            with_zero += weight == 0;
            if (weight > 0) {
                uci += move + " ";
            }
        }
        Move move = NoMove;
        const std::string report = report_of(row[0], book.c_str(), &move);
        if (total == 0) {
            EXPECT_EQ(report, "") << row[0];
            EXPECT_EQ(move, NoMove) << row[0];
            continue;
        }
        EXPECT_EQ(report, uci + " )\n") << row[0];
        EXPECT_TRUE(is_legal_text(set_position(row[0]), text_of(move).c_str())) << row[0];
        EXPECT_NE(
            uci.find(book_text_of(move_to_book_move(move)).substr(0, 4) + " "), std::string::npos)
            << row[0];
    }
    EXPECT_GT(with_zero, 0);
}

TEST_F(BookProbe, ConsoleShowsCountsAndSharesBeforeAndAfterVariety)
{
    store(uci_mode, 0);
    write_book(three_moves());
    const std::string head = "  e2e4  cnt=   100, weight= 50.00% -> ";
    EXPECT_EQ(report_of(start, "book").substr(0, head.size()), head);

    dialogue.engine_options.own_book_variety = 0;
    srand(seed_for_draw(0));
    EXPECT_EQ(report_of(start, "book"),
        "  e2e4  cnt=   100, weight= 50.00% -> 60.00%\n"
        "  d2d4  cnt=    50, weight= 25.00% -> 20.00%\n"
        "  c2c4  cnt=    50, weight= 25.00% -> 20.00%\n"
        "selecting e2e4\n");
    dialogue.engine_options.own_book_variety = 100;
    srand(seed_for_draw(999));
    EXPECT_EQ(report_of(start, "book"),
        "  e2e4  cnt=   100, weight= 50.00% -> 41.18%\n"
        "  d2d4  cnt=    50, weight= 25.00% -> 29.41%\n"
        "  c2c4  cnt=    50, weight= 25.00% -> 29.41%\n"
        "selecting c2c4\n");
}

TEST_F(BookProbe, ConsoleIsSilentAtSilentNoise)
{
    write_book(three_moves());
    use_silent_console();
    Move move = NoMove;
    EXPECT_EQ(report_of(start, "book", &move), "");
    EXPECT_NE(move, NoMove);
    store(noise, silent_noise - 1);
    EXPECT_NE(report_of(start, "book"), "");
}

TEST_F(BookProbe, UciModeReportsAtAnyNoise)
{
    write_book(three_moves());
    store(noise, silent_noise);
    EXPECT_EQ(report_of(start, "book"), "info string ( book moves are: e2e4 d2d4 c2c4  )\n");
}

TEST_F(BookProbe, EntryOfWeightZeroIsNotReported)
{
    write_book({ entry_of(start, "e2e4", 3), entry_of(start, "d2d4", 0) });
    EXPECT_EQ(report_of(start, "book"), "info string ( book moves are: e2e4  )\n");
    store(uci_mode, 0);
    EXPECT_EQ(report_of(start, "book"),
        "  e2e4  cnt=     3, weight= 100.00% -> 100.00%\nselecting e2e4\n");
}

TEST_F(BookProbe, BonusOfAnEntryOfWeightZeroCountsInTheShares)
{
    store(uci_mode, 0);
    dialogue.engine_options.own_book_variety = 100;
    // 11666, 5000 and 8333: the last entry has what the one of weight 0 cannot take.
    write_book(
        { entry_of(start, "e2e4", 100), entry_of(start, "d2d4", 0), entry_of(start, "c2c4", 50) });
    srand(seed_for_draw(467));
    EXPECT_EQ(report_of(start, "book"),
        "  e2e4  cnt=   100, weight= 66.67% -> 46.67%\n"
        "  c2c4  cnt=    50, weight= 33.33% -> 33.33%\n"
        "selecting c2c4\n");
}

TEST_F(BookProbe, EntryCutOffByVarietyIsReported)
{
    store(uci_mode, 0);
    dialogue.engine_options.own_book_variety = 0;
    write_book({ entry_of(start, "e2e4", 100), entry_of(start, "d2d4", 20) });
    EXPECT_EQ(report_of(start, "book"),
        "  e2e4  cnt=   100, weight= 83.33% -> 100.00%\n"
        "  d2d4  cnt=    20, weight= 16.67% ->  0.00%\n"
        "selecting e2e4\n");
}

TEST_F(BookProbe, ReportLeavesThePromotionLetterOut)
{
    const std::string fen = "7k/P7/8/8/8/8/8/K7 w - -";
    write_book({ entry_of(fen, "a7a8r", 1) });
    EXPECT_EQ(report_of(fen, "book"), "info string ( book moves are: a7a8  )\n");
    EXPECT_EQ(probe(fen, "book"), "a7a8r");
}

TEST_F(BookProbe, CastlingIsGivenIfItIsLegal)
{
    const std::string fen = "4k3/8/8/8/8/8/8/4K2R w K -";
    write_book({ entry_of(fen, "e1h1", 1) });
    EXPECT_EQ(report_of(fen, "book"), "info string ( book moves are: e1h1  )\n");
    EXPECT_EQ(probe(fen, "book"), "e1g1");

    const std::string no_right = "4k3/8/8/8/8/8/8/4K2R w - -";
    write_book({ entry_of(no_right, "e1h1", 1) });
    EXPECT_EQ(probe(no_right, "book"), "null");

    const std::string through_check = "4kr2/8/8/8/8/8/8/4K2R w K -";
    write_book({ entry_of(through_check, "e1h1", 1) });
    EXPECT_EQ(probe(through_check, "book"), "null");

    // The king's own way is a castling too, for books that hold it so.
    write_book({ entry_of(fen, "e1g1", 1) });
    EXPECT_EQ(probe(fen, "book"), "e1g1");
}

TEST_F(BookProbe, RookFromTheKingsHomeToTheCornerIsTakenForCastlingAndRefused)
{
    const std::string fen = "4k3/8/8/8/8/8/8/K3R3 w - -";
    write_book({ entry_of(fen, "e1h1", 1) });
    EXPECT_EQ(probe(fen, "book"), "e1g1"); // a rook's move by chance
    const std::string blocked = "4k3/8/8/8/8/8/8/K3R1N1 w - -";
    write_book({ entry_of(blocked, "e1h1", 1) });
    EXPECT_EQ(probe(blocked, "book"), "null");
}

TEST_F(BookProbe, IllegalChoiceGivesNoMoveAndNoSecondChoice)
{
    const std::string pinned = "4r1k1/8/8/8/8/8/4N3/4K3 w - -";
    write_book({ entry_of(pinned, "e2c3", 60000), entry_of(pinned, "e1d1", 1) });
    srand(seed_for_draw(0));
    Move move = move_of("a1a2");
    EXPECT_EQ(report_of(pinned, "book", &move), "info string ( book moves are: e2c3 e1d1  )\n");
    EXPECT_EQ(move, NoMove);
}

TEST_F(BookProbe, NumberThatIsNoMoveHereIsRefused)
{
    const std::string fen = "7k/P7/8/8/8/8/8/K7 w - -";
    for (const char* move : { "a1a1", "a1h8", "c4c5", "h8h7", "a7a8", "a7b8q", "a1b1q", "a7a6" }) {
        write_book({ entry_of(fen, move, 1) });
        EXPECT_EQ(probe(fen, "book"), "null") << move;
    }
}

TEST_F(BookProbe, ConsoleNamesTheSquaresOfARefusedChoiceAsNoMove)
{
    store(uci_mode, 0);
    write_book({ entry_of(start, "e2e5", 1) });
    EXPECT_EQ(report_of(start, "book"),
        "  e2e5  cnt=     1, weight= 100.00% -> 100.00%\nselecting a1a1\n");
}

TEST_F(BookProbe, PositionAfterADoubleStepIsFoundWithAndWithoutItsSquare)
{
    const std::string with_square = "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3";
    write_book({ entry_of(with_square, "e7e5", 1) });
    EXPECT_EQ(probe("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq -", "book"), "e7e5");
    EXPECT_EQ(probe(with_square, "book"), "e7e5");
}

TEST_F(BookProbe, EveryPlaceInABookIsFound)
{
    // Eleven keys of one to four records, the wanted one at each place in turn.
    const u64 key = entry_of(start, "e2e4", 1).key;
    for (i32 place = 0; place <= 10; ++place) {
        std::vector<BookEntry> entries;
        for (i32 i = 0; i <= 10; ++i) {
            const u64 shift = static_cast<u64>(i - place);
            for (i32 copy = 0; copy <= i % 4; ++copy) {
                entries.push_back({ key + shift, entry_of(start, "e2e4", 1).move, 1, 0 });
            }
        }
        write_book(entries);
        std::string report = "info string ( book moves are: ";
        for (i32 copy = 0; copy <= place % 4; ++copy) {
            report += "e2e4 ";
        }
        EXPECT_EQ(report_of(start, "book"), report + " )\n") << place;
    }
}

TEST_F(BookProbe, PositionOutsideTheBookGivesNothing)
{
    const BookEntry entry = entry_of(start, "e2e4", 1);
    for (const u64 key : { 0ULL, static_cast<unsigned long long>(entry.key - 1),
             static_cast<unsigned long long>(entry.key + 1), 0xffffffffffffffffULL }) {
        write_book({ { key, entry.move, 1, 0 } });
        Move move = move_of("a1a2");
        EXPECT_EQ(report_of(start, "book", &move), "") << key;
        EXPECT_EQ(move, NoMove);
    }
}

TEST_F(BookProbe, EntriesBeyondTheLimitAreNotSeen)
{
    std::vector<BookEntry> entries;
    for (i32 i = 0; i < book_limit; ++i) {
        entries.push_back(entry_of(start, "e2e4", 1));
    }
    entries.push_back(entry_of(start, "d2d4", 65535));
    write_book(entries);
    for (const u32 draw : { 0U, 999U }) {
        EXPECT_EQ(probe_with_draw(draw, 25), "e2e4");
    }
    const std::string report = report_of(start, "book");
    EXPECT_EQ(report.find("d2d4"), std::string::npos);
    EXPECT_EQ(report.size(),
        std::string("info string ( book moves are:  )\n").size() + 1 + 5 * book_limit - 1);
    entries.erase(entries.begin());
    write_book(entries);
    EXPECT_NE(report_of(start, "book").find("d2d4"), std::string::npos);
}

TEST_F(BookProbe, BookThatIsReplacedIsReadAnew)
{
    write_book({ entry_of(start, "e2e4", 1) });
    EXPECT_EQ(probe(start, "book"), "e2e4");
    write_bytes("next", bytes_of({ entry_of(start, "d2d4", 1) }));
    std::filesystem::rename("next", "book");
    EXPECT_EQ(probe(start, "book"), "d2d4");
    std::filesystem::remove("book");
    EXPECT_EQ(probe(start, "book"), "null");
}

// ---- Books that are none

static i32 open_descriptors()
{
    i32 count = 0;
    for ([[maybe_unused]] const auto& entry :
        std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

static void expect_nothing(const std::string& book)
{
    const i32 before = open_descriptors();
    Move move = move_of("a1a2");
    EXPECT_EQ(report_of(start, book.c_str(), &move), "") << book;
    EXPECT_EQ(move, NoMove) << book;
    EXPECT_EQ(open_descriptors(), before) << book;
}

TEST_F(BookProbe, EmptyNameIsNotOpened)
{
    Position* pos = set_position(start);
    errno = 0;
    EXPECT_EQ(ask_book(pos, ""), NoMove);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(ask_book(pos, "missing"), NoMove);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(BookProbe, FilesThatAreNoBookGiveNothing)
{
    expect_nothing("missing");
    expect_nothing("missing/book");
    expect_nothing(".");
    expect_nothing("/dev/null");
    expect_nothing("/dev/zero");
    expect_nothing(std::string(5000, 'x'));
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    expect_nothing("pipe");
    const std::string bytes = bytes_of(three_moves());
    for (size_t size = 0; size < 16; ++size) {
        write_bytes("short", bytes.substr(0, size));
        expect_nothing("short");
    }
}

TEST_F(BookProbe, UnreadableFileGivesNothing)
{
    write_book(three_moves());
    ASSERT_EQ(chmod("book", 0), 0);
    if (access("book", R_OK) == 0) {
        GTEST_SKIP() << "this user may read everything";
    }
    expect_nothing("book");
}

TEST_F(BookProbe, SumOfZeroCountsAsNotFound)
{
    write_book({ entry_of(start, "e2e4", 0), entry_of(start, "d2d4", 0) });
    for (const i32 variety : { 0, 25, 100 }) {
        dialogue.engine_options.own_book_variety = static_cast<i16>(variety);
        expect_nothing("book");
    }
}

TEST_F(BookProbe, OddRestHidesTheLastRecordOnly)
{
    const BookEntry first = entry_of(start, "e2e4", 1);
    const BookEntry last = { first.key + 1, first.move, 1, 0 };
    for (size_t rest = 1; rest < 16; ++rest) {
        write_bytes("book", bytes_of({ first, last }) + std::string(rest, '\x55'));
        EXPECT_EQ(probe(start, "book"), "e2e4") << rest;
        write_bytes(
            "book", bytes_of({ { first.key - 1, 0, 0, 0 }, first }) + std::string(rest, '\x55'));
        expect_nothing("book");
    }
}

TEST_F(BookProbe, RandomBytesAndUnsortedRecordsEndSafely)
{
    u64 state = 4711;
    for (i32 round = 0; round < 300; ++round) {
        std::string bytes;
        for (u32 size = next_random(&state, 700); size > 0; --size) {
            bytes += static_cast<char>(next_random(&state, 256));
        }
        write_bytes("book", bytes);
        expect_nothing("book");
    }
    std::vector<BookEntry> entries;
    for (i32 i = 0; i < 50; ++i) {
        entries.push_back({ static_cast<u64>(next_random(&state, 0x7fffffff)) << 33, 796, 1, 0 });
        entries.push_back(entry_of(start, "e2e4", static_cast<i32>(next_random(&state, 65536))));
    }
    for (i32 round = 0; round < 300; ++round) {
        std::swap(entries[next_random(&state, 100)], entries[next_random(&state, 100)]);
        write_book(entries);
        const std::string move = probe(start, "book");
        EXPECT_TRUE(move == "e2e4" || move == "null") << move;
    }
}

TEST_F(BookProbe, UnsortedWeightsOfOneKeyAreChosenSafely)
{
    u64 state = 99;
    for (i32 round = 0; round < 2000; ++round) {
        std::vector<i32> values;
        for (u32 i = next_random(&state, 20); i < 20; ++i) {
            const u32 kind = next_random(&state, 3);
            values.push_back(
                kind == 0 ? 0 : static_cast<i32>(next_random(&state, kind == 1 ? 65536 : 4)));
        }
        const std::vector<BookEntry> entries = weights(values);
        std::vector<u16> adjusted(entries.size());
        const i32 count = static_cast<i32>(entries.size());
        const i32 variety = static_cast<i32>(next_random(&state, 101));
        const u32 sum = adjust_book_weights(entries.data(), count, variety, adjusted.data());
        if (sum == 0) {
            continue;
        }
        const u32 draw = next_random(&state, 1000);
        const i32 chosen = choose_book_entry(entries.data(), count, adjusted.data(), sum, draw);
        ASSERT_GE(chosen, 0);
        ASSERT_LT(chosen, count);
        EXPECT_GT(entries[static_cast<size_t>(chosen)].weight, 0);
    }
}

// ---- What a probe costs

// Reads by this process since its start, as the system counts them.
static i64 read_calls()
{
    std::ifstream file("/proc/self/io");
    std::string name;
    for (i64 value; file >> name >> value;) {
        if (name == "syscr:") {
            return value;
        }
    }
    return -1;
}

TEST_F(BookProbe, ProbeReadsLittleAndOpensTheBookOnce)
{
    constexpr size_t records = 1000000;
    const std::string record = bytes_of({ entry_of(start, "e2e4", 1) });
    std::string bytes;
    for (size_t i = 0; i < records; ++i) {
        bytes += record;
    }
    write_bytes("book", bytes);
    if (read_calls() < 0) {
        GTEST_SKIP() << "the system does not count reads";
    }
    const i64 own = read_calls();
    const i64 cost_of_counting = read_calls() - own;

    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, "book", IN_OPEN | IN_CLOSE), 0);
    use_silent_console();
    Position* pos = set_position(start);
    const i64 before = read_calls();
    EXPECT_EQ(ask_book(pos, "book"), move_of("e2e4"));
    const i64 reads = read_calls() - before - cost_of_counting;
    EXPECT_GT(reads, 0);
    EXPECT_LE(reads, static_cast<i64>(2 * std::log2(records)) + 130);

    i32 opened = 0;
    i32 closed = 0;
    for (inotify_event event; read(watch, &event, sizeof event) == sizeof event;) {
        opened += (event.mask & IN_OPEN) != 0;
        closed += (event.mask & IN_CLOSE) != 0;
    }
    close(watch);
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(closed, 1);
}

// What is in a book: its size and order, the positions that the start leads to, moves that cannot
// be played, weights.
#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "data/book_words.h"

static constexpr char word[] = "book check";

struct CheckSettings {
    CommonOptions common;
    bool strict = false;
    std::string start;
};

// The numbers of one book, in the order of the report.
struct BookNumbers {
    std::string name;
    std::vector<Count> counts;
};

// What the records tell by themselves.
struct RecordNumbers {
    u64 positions = 0;
    u64 most_moves = 0; // of a position
    u64 zeros = 0;
    u64 repeated = 0;
    u64 impossible = 0;
    u64 unseen = 0; // behind the last one that the engine looks at
    u64 weights = 0;
    u64 least = ~0ULL; // of the weights above 0
    u64 greatest = 0;
};

struct Checker {
    const CheckSettings* settings;
    Report* report;
    const BookFile* book;
};

// What is wrong, and what is only worth knowing.
static void tell(
    const Checker& checker, bool is_wrong, const char* reason, std::string detail, u64 index)
{
    const Refusal refusal {
        .reason = reason, .detail = std::move(detail), .entry = entry_number(*checker.book, index)
    };
    if (is_wrong || checker.settings->strict) {
        refuse_item(checker.report, checker.book->name, refusal);
    } else {
        note_item(checker.report, checker.book->name, refusal);
    }
}

static std::string key_text(u64 key)
{
    char text[24];
    snprintf(text, sizeof text, "key %016" PRIx64, key);
    return text;
}

// One record of a group; seen holds the index of the first record of each move, by move.
static void check_record(const Checker& checker, const BookEntry& entry, u64 index, u64 place,
    std::vector<u64>* seen, RecordNumbers* numbers)
{
    const std::string text = book_move_text(entry.move);
    if (const char* defect = book_move_defect(entry.move)) {
        ++numbers->impossible;
        tell(checker, true, defect, text, index);
    }
    u64* first = &(*seen)[entry.move];
    if (*first != 0) {
        ++numbers->repeated;
        tell(checker, true, "move of an entry before",
            text + ", entry " + std::to_string(entry_number(*checker.book, *first - 1)), index);
    } else {
        *first = index + 1;
    }
    if (place == max_book_entries) {
        tell(checker, true, "more entries of a position than are looked at", key_text(entry.key),
            index);
    }
    numbers->unseen += place >= max_book_entries;
    if (entry.weight == 0) {
        ++numbers->zeros;
        tell(checker, false, "weight 0, never played", text, index);
    } else {
        numbers->weights += entry.weight;
        numbers->least = std::min<u64>(numbers->least, entry.weight);
        numbers->greatest = std::max<u64>(numbers->greatest, entry.weight);
    }
}

// Goes over the records of a book that is in order.
static bool check_records(const Checker& checker, RecordNumbers* numbers)
{
    std::vector<u64> seen(65536, 0);
    std::vector<u16> moves; // of the position, those marked in seen
    BookCursor cursor = make_cursor(*checker.book);
    BookEntry entry;
    u64 key = 0;
    u64 place = 0;
    start_progress_stage(&checker.report->progress, static_cast<i64>(checker.book->count));
    while (next_entry(&cursor, &entry)) {
        show_stage_progress(&checker.report->progress, "entries checked", cursor.next);
        const u64 index = cursor.next - 1;
        if (index == 0 || entry.key != key) {
            ++numbers->positions;
            for (const u16 move : moves) {
                seen[move] = 0;
            }
            moves.clear();
            key = entry.key;
            place = 0;
        }
        if (seen[entry.move] == 0) {
            moves.push_back(entry.move);
        }
        check_record(checker, entry, index, place, &seen, numbers);
        ++place;
        numbers->most_moves = std::max<u64>(numbers->most_moves, moves.size());
    }
    return check_cursor(cursor, checker.report);
}

// What the walk tells.
struct ReachNumbers {
    u64 by_both = 0;
    u64 by_replies = 0; // more than by both
    u64 not_reached = 0;
    u64 illegal = 0;
    i64 deepest = 0; // half-moves
};

static bool count_reached(const Checker& checker, const BookReach& reach, ReachNumbers* numbers)
{
    GroupReader reader = make_group_reader(*checker.book);
    BookGroup group;
    RunProgress* progress = &checker.report->progress;
    start_progress_stage(progress, static_cast<i64>(checker.book->count));
    while (next_group(&reader, &group)) {
        show_stage_progress(progress, "entries counted", group.first + group.count);
        const u8 modes = reach.modes[group.first] & all_walks;
        if (modes == 0) {
            ++numbers->not_reached;
            tell(checker, false, "position that the start does not lead to",
                key_text(group.key) + ", " + std::to_string(group.count) + " entries", group.first);
            continue;
        }
        ++((modes & BothKeep) != 0 ? numbers->by_both : numbers->by_replies);
        numbers->deepest = std::max<i64>(numbers->deepest, reach.plies[group.first]);
    }
    return check_cursor(reader.cursor, checker.report);
}

static bool walk_and_count(const Checker& checker, const BookBench& start, ReachNumbers* numbers)
{
    BookIndex index;
    if (!make_index(&index, *checker.book, checker.report)) {
        return false;
    }
    BookWalk walk;
    walk.book = checker.book;
    walk.index = &index;
    walk.start = start.pos;
    walk.jobs = checker.settings->common.jobs;
    walk.tell_odd = [&](const OddEntry& odd) {
        numbers->illegal += odd.is_illegal;
        if (book_move_defect(odd.book_move) == nullptr) {
            tell(checker, odd.is_illegal, odd.reason, odd.detail, odd.index);
        }
    };
    BookReach reach;
    return walk_book(walk, &reach, checker.report) && count_reached(checker, reach, numbers);
}

static bool check_file(const CheckSettings& settings, const std::string& name,
    const BookBench& start, BookNumbers* numbers, Report* report)
{
    BookFile book;
    if (!open_book(&book, name, OrderTelling::EachEntry, report)) {
        return false;
    }
    if (book.count == 0) {
        note_item(report, book.name, { .reason = "holds no entry", .detail = {} });
    }
    const Checker checker = { &settings, report, &book };
    RecordNumbers records;
    ReachNumbers reach;
    if (!check_records(checker, &records) || !walk_and_count(checker, start, &reach)) {
        return false;
    }
    const auto number = [](u64 value) { return static_cast<i64>(value); };
    numbers->name = name;
    numbers->counts = {
        { "bytes", number(book.size) },
        { "entries", number(book.count) },
        { "positions", number(records.positions) },
        { "positions on the book's own lines", number(reach.by_both) },
        { "positions where one side keeps to the book", number(reach.by_replies) },
        { "positions that the start does not lead to", number(reach.not_reached) },
        { "half-moves to the deepest position", reach.deepest },
        { "most moves of a position", number(records.most_moves) },
        { "entries out of order", number(book.unsorted + book.unsorted_weights) },
        { "entries with illegal moves", number(reach.illegal) },
        { "entries with impossible moves", number(records.impossible) },
        { "entries with moves of others", number(records.repeated) },
        { "entries that are not looked at", number(records.unseen) },
        { "entries of weight 0", number(records.zeros) },
        { "least weight above 0", records.greatest > 0 ? number(records.least) : 0 },
        { "greatest weight", number(records.greatest) },
        { "sum of weights", number(records.weights) },
    };
    return true;
}

// For scripts the names are words without blanks or marks.
static std::string as_json(const std::vector<BookNumbers>& books)
{
    std::string json = "\"books\":[";
    for (const BookNumbers& book : books) {
        json += &book != books.data() ? ",{\"file\":" : "{\"file\":";
        append_json_string(&json, book.name);
        for (const Count& count : book.counts) {
            std::string name = count.name;
            std::erase(name, '\'');
            std::ranges::replace(name, ' ', '_');
            std::ranges::replace(name, '-', '_');
            json += ",\"" + name + "\":" + std::to_string(count.value);
        }
        json += '}';
    }
    return json + ']';
}

static void print_help()
{
    puts(
        "vesk-data book check [OPTIONS] BOOK...\n"
        "\n"
        "Looks through opening books in the Polyglot format: size, order, moves, weights, and\n"
        "which positions can be reached. What is wrong is told with the number of its entry and\n"
        "makes the status 1:\n"
        "\n"
        "  an entry out of order, which the engine may not find; a cut last entry; moves that no\n"
        "  piece can make, or that are illegal in their position; a move given twice; more than\n"
        "  128 entries of a position\n"
        "\n"
        "What is only worth knowing is told, too, and counted as noted:\n"
        "\n"
        "  weight 0; castling as a king's move of two squares, which other programs may not read;\n"
        "  positions that the start does not lead to: neither along the book's own lines nor when\n"
        "  one side keeps to the book and the other makes any moves\n"
        "\n"
        "  --start FEN   the position from which the book is reached; default: that of chess\n"
        "  --strict      what is only worth knowing counts as wrong\n"
        "\n"
        "Memory: about a third of the book. Options for all words: vesk-data --help");
}

int run_book_check(Arguments arguments)
{
    CheckSettings settings;
    const WordOption options[] = {
        { .name = "--start", .text = &settings.start },
        { .name = "--strict", .flag = &settings.strict },
    };
    std::vector<std::string> files;
    if (!read_arguments(arguments, options, &settings.common, &files)) {
        return usage_status;
    }
    if (settings.common.help) {
        print_help();
        return 0;
    }
    if (files.empty()) {
        return refuse_data_words(word, "names no book");
    }
    BookBench start;
    if (const char* defect = read_start(settings.start, &start)) {
        return refuse_data_words(word, "--start '%s': %s", settings.start.c_str(), defect);
    }
    if (settings.common.output != "-") {
        return refuse_data_words(word, "nothing is made; --report names a file for the report");
    }
    Report report = start_report(word, settings.common);
    start_run_progress(&report.progress, settings.common, 0, false);
    std::vector<BookNumbers> books;
    for (const std::string& file : files) {
        BookNumbers numbers;
        if (!check_file(settings, file, start, &numbers, &report)) {
            continue;
        }
        if (!settings.common.json) {
            // A book that is named twice is counted twice, but not together.
            std::string heading = file;
            while (std::ranges::find(report.groups, heading, &CountGroup::name)
                != report.groups.end()) {
                heading += " again";
            }
            for (const Count& count : numbers.counts) {
                add_count(&report, heading, count.name, count.value);
            }
        }
        books.push_back(std::move(numbers));
    }
    return finish_report(&report, settings.common, true, as_json(books));
}

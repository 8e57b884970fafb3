// What one book has and the other has not. Both are joined into a book for the time of the run,
// whose records hold both weights where books have their learning data.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "book/polyglot.h"
#include "data/book_words.h"

static constexpr char word[] = "book diff";

struct DiffSettings {
    CommonOptions common;
    std::string start;
    std::string moves = "san";
};

// Records with both weights, -1 where a book has no such move.
struct TwoWeights {
    i32 first = -1;
    i32 second = -1;
};

// Which books have the move, in the weight of a joined record: a move of weight 0 is another thing
// than none.
enum : u16 { InFirst = 1, InSecond = 2 };

struct DiffCounts {
    u64 positions = 0; // with a difference
    u64 only_first = 0;
    u64 only_second = 0;
    u64 weights = 0;
};

struct Differ {
    const DiffSettings* settings;
    Report* report;
    BookFile both; // weight: InFirst and InSecond; learn: both weights
    BookReach reach;
    DiffCounts counts;
    FILE* out;
};

static TwoWeights weights_of(const BookEntry& entry)
{
    return { (entry.weight & InFirst) != 0 ? static_cast<i32>(entry.learn >> 16) : -1,
        (entry.weight & InSecond) != 0 ? static_cast<i32>(entry.learn & 0xffff) : -1 };
}

// ---- Joining

// Adds the moves of a group to records; both must have been settled.
static void add_moves(
    const BookGroup& group, u16 which, std::vector<i32>* slots, std::vector<BookEntry>* records)
{
    for (const BookMove& move : group.moves) {
        i32* slot = &(*slots)[move.move];
        if (*slot < 0) {
            *slot = static_cast<i32>(records->size());
            records->push_back({ group.key, move.move, 0, 0 });
        }
        BookEntry* record = &(*records)[static_cast<size_t>(*slot)];
        record->weight |= which;
        record->learn |= static_cast<u32>(move.weight << (which == InFirst ? 16 : 0));
    }
}

struct DiffInput {
    GroupReader reader;
    BookGroup group;
    bool has_group;
};

static void advance(DiffInput* input)
{
    input->has_group = next_group(&input->reader, &input->group);
    settle_moves(&input->group.moves);
}

static bool join_books(Differ* differ, const BookFile& first, const BookFile& second)
{
    DiffInput inputs[2] = { { make_group_reader(first), {}, false },
        { make_group_reader(second), {}, false } };
    advance(&inputs[0]);
    advance(&inputs[1]);
    std::vector<i32> slots(65536, -1);
    std::vector<BookEntry> records;
    u64 written = 0;
    start_progress_stage(&differ->report->progress, static_cast<i64>(first.count + second.count));
    while (inputs[0].has_group || inputs[1].has_group) {
        const bool take_first = inputs[0].has_group
            && (!inputs[1].has_group || inputs[0].group.key <= inputs[1].group.key);
        const bool take_second = inputs[1].has_group
            && (!inputs[0].has_group || inputs[1].group.key <= inputs[0].group.key);
        records.clear();
        if (take_first) {
            add_moves(inputs[0].group, InFirst, &slots, &records);
            advance(&inputs[0]);
        }
        if (take_second) {
            add_moves(inputs[1].group, InSecond, &slots, &records);
            advance(&inputs[1]);
        }
        for (const BookEntry& record : records) {
            slots[record.move] = -1;
            write_book_entry(differ->both.file.get(), &record);
            ++written;
        }
        show_stage_progress(&differ->report->progress, "entries compared",
            inputs[0].reader.cursor.next + inputs[1].reader.cursor.next);
    }
    return check_cursor(inputs[0].reader.cursor, differ->report)
        && check_cursor(inputs[1].reader.cursor, differ->report)
        && finish_scratch_book(&differ->both, written, differ->report);
}

// ---- Telling

static std::string weight_text(i32 weight, u64 total)
{
    if (weight < 0) {
        return "-";
    }
    return std::to_string(weight) + " (" + percent_of(static_cast<u64>(weight), total) + ')';
}

static void count_difference(const TwoWeights& weights, DiffCounts* counts)
{
    if (weights.second < 0) {
        ++counts->only_first;
    } else if (weights.first < 0) {
        ++counts->only_second;
    } else {
        ++counts->weights;
    }
}

// Tells of the position whose first record stands at first, if its moves differ. pos is null where
// it is known by its key alone.
static void tell_position(Differ* differ, Position* pos, u16 ply, u64 first)
{
    BookCursor cursor = make_cursor(differ->both, first, differ->both.count);
    std::vector<BookEntry> records;
    BookEntry entry;
    u64 totals[2] = {};
    bool differs = false;
    while (next_entry(&cursor, &entry) && (records.empty() || entry.key == records[0].key)) {
        const TwoWeights weights = weights_of(entry);
        totals[0] += static_cast<u64>(std::max(weights.first, 0));
        totals[1] += static_cast<u64>(std::max(weights.second, 0));
        differs |= weights.first != weights.second;
        records.push_back(entry);
    }
    if (!differs) {
        return;
    }
    ++differ->counts.positions;
    if (pos != nullptr) {
        char fen[fen_size];
        make_fen(pos, fen);
        fprintf(differ->out, "%s  after %d half-moves\n", fen, ply);
    } else {
        fprintf(differ->out, "key %016" PRIx64 "\n", records[0].key);
    }
    for (const BookEntry& record : records) {
        const TwoWeights weights = weights_of(record);
        if (weights.first == weights.second) {
            continue;
        }
        count_difference(weights, &differ->counts);
        Move move = NoMove;
        if (pos != nullptr) {
            (void)judge_entry(pos, record.move, &move);
        }
        const std::string name = move != NoMove
            ? name_move(pos, move, differ->settings->moves == "squares")
            : book_move_text(record.move);
        fprintf(differ->out, "  %-8s %s -> %s\n", name.c_str(),
            weight_text(weights.first, totals[0]).c_str(),
            weight_text(weights.second, totals[1]).c_str());
    }
}

// First what the start leads to, in the order of half-moves; then the rest, in the order of keys.
static bool tell_all(Differ* differ, const BookBench& start)
{
    BookIndex index;
    if (!make_index(&index, differ->both, differ->report)) {
        return false;
    }
    BookWalk walk;
    walk.book = &differ->both;
    walk.index = &index;
    walk.start = start.pos;
    walk.jobs = differ->settings->common.jobs;
    walk.visit = [&](Position* pos, u16 ply, u64 first) { tell_position(differ, pos, ply, first); };
    if (!walk_book(walk, &differ->reach, differ->report)) {
        return false;
    }
    GroupReader reader = make_group_reader(differ->both);
    BookGroup group;
    RunProgress* progress = &differ->report->progress;
    start_progress_stage(progress, static_cast<i64>(differ->both.count));
    while (next_group(&reader, &group)) {
        show_stage_progress(progress, "entries told", group.first + group.count);
        if (differ->reach.plies[group.first] == never_reached) {
            tell_position(differ, nullptr, 0, group.first);
        }
    }
    return check_cursor(reader.cursor, differ->report);
}

static bool diff_books(const DiffSettings& settings, const std::vector<std::string>& files,
    const BookBench& start, Report* report)
{
    Differ differ {};
    differ.settings = &settings;
    differ.report = report;
    BookFile first;
    BookFile second;
    OutputStream out;
    if (!open_sink(&out, settings.common.output, files, report)
        || !open_book(&first, files[0], OrderTelling::OncePerFile, report)
        || !open_book(&second, files[1], OrderTelling::OncePerFile, report)
        || !start_scratch_book(&differ.both, files[0] + " and " + files[1], report)
        || !join_books(&differ, first, second)) {
        return false;
    }
    differ.out = out.file;
    if (!tell_all(&differ, start)) {
        return false;
    }
    const DiffCounts& counts = differ.counts;
    add_count(report, "differences", "positions", static_cast<i64>(counts.positions));
    add_count(
        report, "differences", "moves of the first alone", static_cast<i64>(counts.only_first));
    add_count(
        report, "differences", "moves of the second alone", static_cast<i64>(counts.only_second));
    add_count(report, "differences", "moves of other weight", static_cast<i64>(counts.weights));
    return finish_sink(&out, report);
}

static void print_help()
{
    puts("vesk-data book diff [OPTIONS] BOOK BOOK\n"
         "\n"
         "Prints the positions in which two books differ, and the moves with their weights and\n"
         "shares in the first and in the second; - where a book does not have the move. Positions\n"
         "that the start leads to in either book come first, those near to it before others; of "
         "the\n"
         "rest only the keys are known.\n"
         "\n"
         "  --moves san    algebraic notation, the default; or squares\n"
         "  --start FEN    where games begin; default: the position of chess\n"
         "\n"
         "The status is 0 whether they differ or not; the report has the counts. Options for all\n"
         "words: vesk-data --help");
}

int run_book_diff(Arguments arguments)
{
    DiffSettings settings;
    static constexpr std::string_view moves[] = { "san", "squares" };
    const WordOption options[] = {
        { .name = "--moves", .text = &settings.moves, .choices = moves },
        { .name = "--start", .text = &settings.start },
    };
    std::vector<std::string> files;
    if (!read_arguments(arguments, options, &settings.common, &files)) {
        return usage_status;
    }
    if (settings.common.help) {
        print_help();
        return 0;
    }
    if (files.size() != 2) {
        return refuse_data_words(word, "needs two books");
    }
    BookBench start;
    if (const char* defect = read_start(settings.start, &start)) {
        return refuse_data_words(word, "--start '%s': %s", settings.start.c_str(), defect);
    }
    Report report = start_report(word, settings.common);
    start_run_progress(&report.progress, settings.common, 0, true);
    (void)diff_books(settings, files, start, &report);
    return finish_report(&report, settings.common, settings.common.output != "-");
}

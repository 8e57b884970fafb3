// One book out of several, in one pass over all of them in the order of their keys.
#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "data/book_words.h"

static constexpr char word[] = "book merge";

// What a book's weights of a position add up to where each book counts alike.
static constexpr u64 equal_total = 10000;

struct MergeSettings {
    CommonOptions common;
    std::string rule = "sum";
};

// A book that is merged, with the group that comes next.
struct MergeInput {
    BookFile book;
    GroupReader reader;
    BookGroup group;
    bool has_group = false;
};

struct Merger {
    const MergeSettings* settings;
    Report* report;
    std::vector<MergeInput> inputs {};
    std::vector<i32> slots {}; // by move: index into moves, -1
    std::vector<BookMove> moves {};
    u64 entries = 0;
    u64 positions = 0;
    u64 shared = 0; // positions of several books
};

// Takes the next group with a move that can be made.
static void advance(MergeInput* input, Report* report)
{
    do {
        input->has_group = next_group(&input->reader, &input->group);
        if (input->has_group) {
            refuse_impossible(input->book, &input->group, report);
        }
    } while (input->has_group && input->group.moves.empty());
}

// Adds the moves of a book's group. A weight above 0 stays above it.
static void add_group(Merger* merger, const BookGroup& group)
{
    for (BookMove move : group.moves) {
        if (merger->settings->rule == "share" && move.weight > 0) {
            move.weight = std::max<u64>(move.weight * equal_total / group.total, 1);
        }
        i32* slot = &merger->slots[move.move];
        if (*slot < 0) {
            *slot = static_cast<i32>(merger->moves.size());
            merger->moves.push_back(move);
        } else {
            merger->moves[static_cast<size_t>(*slot)].weight += move.weight;
        }
    }
}

// Writes the position of the lowest key that is left. Returns false if there is none.
static bool merge_position(Merger* merger, FILE* out)
{
    u64 key = 0;
    bool is_any = false;
    for (const MergeInput& input : merger->inputs) {
        if (input.has_group && (!is_any || input.group.key < key)) {
            key = input.group.key;
            is_any = true;
        }
    }
    if (!is_any) {
        return false;
    }
    u64 books = 0;
    for (MergeInput& input : merger->inputs) {
        if (!input.has_group || input.group.key != key) {
            continue;
        }
        if (books == 0 || merger->settings->rule != "first") {
            add_group(merger, input.group);
        }
        ++books;
        advance(&input, merger->report);
    }
    for (const BookMove& move : merger->moves) {
        merger->slots[move.move] = -1;
    }
    settle_moves(&merger->moves);
    merger->entries += write_moves(key, merger->moves, out);
    merger->moves.clear();
    ++merger->positions;
    merger->shared += books > 1;
    return true;
}

static u64 count_entries(const Merger& merger)
{
    u64 count = 0;
    for (const MergeInput& input : merger.inputs) {
        count += input.book.count;
    }
    return count;
}

static u64 entries_taken(const Merger& merger)
{
    u64 count = 0;
    for (const MergeInput& input : merger.inputs) {
        count += input.reader.cursor.next;
    }
    return count;
}

static bool open_inputs(Merger* merger, const std::vector<std::string>& files)
{
    merger->inputs.reserve(files.size());
    for (const std::string& file : files) {
        MergeInput* input = &merger->inputs.emplace_back();
        if (!open_book(&input->book, file, OrderTelling::OncePerFile, merger->report)) {
            return false;
        }
        input->reader = make_group_reader(input->book);
        add_count(merger->report, "books", "entries read", static_cast<i64>(input->book.count));
        advance(input, merger->report);
    }
    return true;
}

static bool merge_books(
    const MergeSettings& settings, const std::vector<std::string>& files, Report* report)
{
    Merger merger { .settings = &settings, .report = report };
    merger.slots.assign(65536, -1);
    OutputStream out;
    if (!open_sink(&out, settings.common.output, files, report) || !open_inputs(&merger, files)) {
        return false;
    }
    start_progress_stage(&report->progress, static_cast<i64>(count_entries(merger)));
    while (is_sink_well(out) && merge_position(&merger, out.file)) {
        show_run_progress(&report->progress, "positions merged", static_cast<i64>(merger.positions),
            static_cast<i64>(entries_taken(merger)));
    }
    for (const MergeInput& input : merger.inputs) {
        if (!check_cursor(input.reader.cursor, report)) {
            return false;
        }
    }
    add_count(report, "books", "entries written", static_cast<i64>(merger.entries));
    add_count(report, "books", "positions written", static_cast<i64>(merger.positions));
    add_count(report, "books", "positions of several books", static_cast<i64>(merger.shared));
    return finish_counted_sink(&out, static_cast<i64>(merger.entries), "entry", report);
}

static void print_help()
{
    puts(
        "vesk-data book merge [OPTIONS] BOOK BOOK... --output BOOK\n"
        "\n"
        "Makes one book out of several, sorted, each move of a position once. What the weights of\n"
        "a position become:\n"
        "\n"
        "  --rule sum     weights of the same move are added, as polyglot does; the default. A "
        "book\n"
        "                 whose weights are large, as those that are scaled up, outweighs others\n"
        "  --rule share   the same, after the weights of each book are brought to a total of\n"
        "                 10000 in the position: every book counts alike\n"
        "  --rule first   a position comes from the first book that has it alone\n"
        "\n"
        "Where a sum is beyond 65535 all weights of the position are scaled down together; a\n"
        "weight above 0 never becomes 0. Of the learning data that of the first book is kept. "
        "Moves\n"
        "that no piece can make are refused with their entry and left out. If a book cannot be\n"
        "read nothing is written.\n"
        "Options for all words: vesk-data --help");
}

int run_book_merge(Arguments arguments)
{
    MergeSettings settings;
    static constexpr std::string_view rules[] = { "sum", "share", "first" };
    const WordOption options[] = {
        { .name = "--rule", .text = &settings.rule, .choices = rules },
    };
    std::vector<std::string> files;
    if (!read_arguments(arguments, options, &settings.common, &files)) {
        return usage_status;
    }
    if (settings.common.help) {
        print_help();
        return 0;
    }
    if (files.size() < 2) {
        return refuse_data_words(word, "needs two books at least");
    }
    if (!can_take_book(word, settings.common)) {
        return usage_status;
    }
    Report report = start_report(word, settings.common);
    start_run_progress(&report.progress, settings.common, 0, true);
    (void)merge_books(settings, files, &report);
    return finish_report(&report, settings.common, settings.common.output != "-");
}

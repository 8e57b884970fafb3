// A book without what its owner does not want in it. Moves go by their weights first; where the
// start leads is found out in the book that is left then.
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "data/book_words.h"

static constexpr char word[] = "book prune";
static constexpr f64 most_weight = 65535.0;
static constexpr f64 most_share = 100.0; // percent
static constexpr f64 most_ply = 65000.0;

struct PruneSettings {
    CommonOptions common;
    i64 min_weight = 0;
    f64 min_share = 0.0; // percent of the position's weights
    i64 max_ply = -1;    // half-moves from the start, -1 for all
    bool drop_unreachable = false;
    bool drop_illegal = false;
    std::string reach = "replies";
    std::string start;
};

static bool needs_walk(const PruneSettings& settings)
{
    return settings.max_ply >= 0 || settings.drop_unreachable || settings.drop_illegal;
}

static void count_drop(Report* report, const char* reason, u64 entries)
{
    if (entries > 0) {
        add_count(report, "dropped", reason, static_cast<i64>(entries));
    }
}

// Drops the moves of a position that weigh too little.
static void drop_light(const PruneSettings& settings, BookGroup* group, Report* report)
{
    std::erase_if(group->moves, [&](const BookMove& move) {
        if (move.weight < static_cast<u64>(settings.min_weight)) {
            count_drop(report, "weight below the least", 1);
            return true;
        }
        const f64 percent = group->total == 0
            ? 0.0
            : 100.0 * static_cast<f64>(move.weight) / static_cast<f64>(group->total);
        if (percent < settings.min_share) {
            count_drop(report, "share below the least", 1);
            return true;
        }
        return false;
    });
}

// Copies the book without what is impossible, repeated or too light.
static bool copy_heavy(
    const PruneSettings& settings, const BookFile& from, BookFile* to, Report* report)
{
    GroupReader reader = make_group_reader(from);
    BookGroup group;
    u64 written = 0;
    start_progress_stage(&report->progress, static_cast<i64>(from.count));
    while (next_group(&reader, &group)) {
        count_drop(report, "joined with the same move", group.count - group.moves.size());
        refuse_impossible(from, &group, report);
        drop_light(settings, &group, report);
        settle_moves(&group.moves);
        written += write_moves(group.key, group.moves, to->file.get());
        show_stage_progress(&report->progress, "entries weighed", group.first + group.count);
    }
    return check_cursor(reader.cursor, report) && finish_scratch_book(to, written, report);
}

// Why the entry goes, or null.
static const char* find_reason(
    const PruneSettings& settings, const BookReach& reach, u64 first, u64 index)
{
    if (settings.drop_illegal && (reach.modes[index] & illegal_entry) != 0) {
        return "illegal move";
    }
    const u16 ply = reach.plies[first];
    if (settings.drop_unreachable && ply == never_reached) {
        return "position that the start does not lead to";
    }
    if (settings.max_ply >= 0 && ply != never_reached && ply >= settings.max_ply) {
        return "position deeper than wanted";
    }
    return nullptr;
}

struct PruneCounts {
    u64 written = 0;
    u64 positions = 0;
    u64 not_reached = 0; // entries that are kept all the same
};

static bool write_kept(const PruneSettings& settings, const BookFile& book, const BookReach* reach,
    OutputStream* out, PruneCounts* counts, Report* report)
{
    BookCursor cursor = make_cursor(book);
    BookEntry entry;
    u64 first = 0;
    u64 key = 0;
    u64 last_key = 0;
    start_progress_stage(&report->progress, static_cast<i64>(book.count));
    while (is_sink_well(*out) && next_entry(&cursor, &entry)) {
        show_stage_progress(&report->progress, "entries sifted", cursor.next);
        const u64 index = cursor.next - 1;
        if (index == 0 || entry.key != key) {
            first = index;
            key = entry.key;
        }
        if (reach != nullptr) {
            if (const char* reason = find_reason(settings, *reach, first, index)) {
                count_drop(report, reason, 1);
                continue;
            }
            counts->not_reached += reach->plies[first] == never_reached;
        }
        counts->positions += counts->written == 0 || key != last_key;
        last_key = key;
        ++counts->written;
        write_moves(key, { { entry.move, entry.learn, entry.weight, 0, 0 } }, out->file);
    }
    return check_cursor(cursor, report);
}

// Whether the start leads into the book at all. Where it does not, the user has probably named
// another start than the one that the book was made for, and would lose all of it.
static bool is_reached(const BookReach& reach)
{
    for (const u16 ply : reach.plies) {
        if (ply != never_reached) {
            return true;
        }
    }
    return false;
}

static bool walk_heavy(const PruneSettings& settings, const BookFile& book, const BookBench& start,
    BookReach* reach, Report* report)
{
    BookIndex index;
    if (!make_index(&index, book, report)) {
        return false;
    }
    BookWalk walk;
    walk.book = &book;
    walk.index = &index;
    walk.start = start.pos;
    walk.modes = settings.reach == "lines" ? u8 { BothKeep } : all_walks;
    walk.jobs = settings.common.jobs;
    if (!walk_book(walk, reach, report)) {
        return false;
    }
    if (!is_reached(*reach) && book.count > 0) {
        fail_file(
            report, book.name, "has no position that the start leads to; nothing is written", 0);
        return false;
    }
    return true;
}

static bool prune_book(
    const PruneSettings& settings, const std::string& file, const BookBench& start, Report* report)
{
    BookFile book;
    BookFile heavy;
    OutputStream out;
    if (!open_sink(&out, settings.common.output, { file }, report)
        || !open_book(&book, file, OrderTelling::OncePerFile, report)
        || !start_scratch_book(&heavy, book.name, report)
        || !copy_heavy(settings, book, &heavy, report)) {
        return false;
    }
    add_count(report, "book", "entries read", static_cast<i64>(book.count));
    const bool walks = needs_walk(settings);
    BookReach reach;
    PruneCounts counts;
    if ((walks && !walk_heavy(settings, heavy, start, &reach, report))
        || !write_kept(settings, heavy, walks ? &reach : nullptr, &out, &counts, report)) {
        return false;
    }
    add_count(report, "book", "entries written", static_cast<i64>(counts.written));
    add_count(report, "book", "positions written", static_cast<i64>(counts.positions));
    if (walks) {
        add_count(report, "book", "entries kept that the start does not lead to",
            static_cast<i64>(counts.not_reached));
    }
    return finish_counted_sink(&out, static_cast<i64>(counts.written), "entry", report);
}

static void print_help()
{
    puts(
        "vesk-data book prune [OPTIONS] BOOK --output BOOK\n"
        "\n"
        "Writes the book without what is not wanted, sorted, each move of a position once.\n"
        "\n"
        "  --min-weight N      drops moves of a lower weight; 1 drops those that are never played\n"
        "  --min-share P       drops moves with less than so many percent of their position's\n"
        "                      weights\n"
        "  --drop-illegal      drops moves that are illegal in their position, as far as the "
        "start\n"
        "                      leads there: a position is known by its moves alone\n"
        "  --max-ply N         keeps the first N half-moves; of positions that the start does not\n"
        "                      lead to nobody can tell, so they are kept, and counted\n"
        "  --drop-unreachable  drops positions that the start does not lead to, after all the\n"
        "                      other options have done their work\n"
        "  --reach replies     what leads to a position: one side keeps to the book and the other\n"
        "                      makes any moves; the default\n"
        "  --reach lines       both sides keep to the book. A book for one side loses nearly all\n"
        "                      of its positions by that\n"
        "  --start FEN         where a game begins; default: the position of chess\n"
        "\n"
        "Moves that no piece can make are refused with their entry and left out. If the start "
        "leads\n"
        "to none of the positions nothing is written. Options for all words: vesk-data --help");
}

int run_book_prune(Arguments arguments)
{
    PruneSettings settings;
    static constexpr std::string_view reaches[] = { "replies", "lines" };
    const WordOption options[] = {
        { .name = "--min-weight", .whole = &settings.min_weight, .greatest = most_weight },
        { .name = "--min-share", .real = &settings.min_share, .greatest = most_share },
        { .name = "--max-ply", .whole = &settings.max_ply, .greatest = most_ply },
        { .name = "--drop-unreachable", .flag = &settings.drop_unreachable },
        { .name = "--drop-illegal", .flag = &settings.drop_illegal },
        { .name = "--reach", .text = &settings.reach, .choices = reaches },
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
    if (files.size() != 1) {
        return refuse_data_words(word, "needs one book");
    }
    BookBench start;
    if (const char* defect = read_start(settings.start, &start)) {
        return refuse_data_words(word, "--start '%s': %s", settings.start.c_str(), defect);
    }
    if (!can_take_book(word, settings.common)) {
        return usage_status;
    }
    Report report = start_report(word, settings.common);
    start_run_progress(&report.progress, settings.common, 0, true);
    (void)prune_book(settings, files[0], start, &report);
    return finish_report(&report, settings.common, settings.common.output != "-");
}

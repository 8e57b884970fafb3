// A book as text: its lines as a tree, or its entries as they stand.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "board/moves.h"
#include "book/polyglot.h"
#include "data/book_words.h"

static constexpr char word[] = "book dump";
static constexpr f64 most_ply = 65000.0;
static constexpr u8 shown_position = 64; // beside the WalkMode bits

struct DumpSettings {
    CommonOptions common;
    std::string form = "tree";
    std::string moves = "san";
    std::string side = "both";
    std::string start;
    i64 max_ply = static_cast<i64>(most_ply);
};

// A move of the tree.
struct TreeMove {
    Move move = NoMove; // NoMove for one that is not legal
    u16 book_move = 0;
    bool is_reply = false; // of the side that does not keep to the book: it has no weight
    u64 weight = 0;
    i64 target = -1; // index of the first record of the position behind it, -1: not in the book
};

// A position on the way from the start.
struct TreeNode {
    PackedPosition position;
    std::vector<TreeMove> moves;
    size_t next = 0; // of moves
    u64 total = 0;   // of the weights
};

struct Tree {
    const DumpSettings* settings;
    const BookFile* book;
    BookIndex index;
    BookReach reach;
    u8 mode;        // WalkMode
    i32 first_side; // to move at the start
    BookBench bench;
    std::vector<TreeNode> way;
    u64 shown = 0; // positions
    FILE* out;
};

// Whether the side to move keeps to the book.
static bool keeps_to_book(const Tree& tree, i32 side)
{
    return tree.mode == BothKeep || (tree.mode == WhiteKeeps) == (side == White);
}

static i64 target_of(Tree* tree, Move move)
{
    Position* pos = &tree->bench.pos;
    make_move(pos, move);
    const i64 target = find_key(tree->index, *tree->book, book_key(pos));
    unmake_move(pos);
    return target;
}

// The moves of the book in the position on the bench.
static void list_book_moves(Tree* tree, u64 first, TreeNode* node)
{
    BookEntry entries[max_book_entries];
    const i32 count = read_group(*tree->book, first, entries);
    for (i32 i = 0; i < count; ++i) {
        TreeMove move;
        (void)judge_entry(&tree->bench.pos, entries[i].move, &move.move);
        move.book_move = entries[i].move;
        move.weight = entries[i].weight;
        node->total += move.weight;
        if (move.move != NoMove && move.weight > 0) {
            move.target = target_of(tree, move.move);
        }
        node->moves.push_back(move);
    }
}

// The moves of the other side that lead into the book.
static void list_replies(Tree* tree, TreeNode* node)
{
    Position* pos = &tree->bench.pos;
    MoveEntry moves[max_list_moves];
    const MoveEntry* end = gen_moves_into(pos, moves);
    for (const MoveEntry* entry = moves; entry < end; ++entry) {
        if (!is_legal_move(pos, pos->stm, entry->move)) {
            continue;
        }
        TreeMove move;
        move.move = entry->move;
        move.is_reply = true;
        move.target = target_of(tree, entry->move);
        if (move.target >= 0) {
            node->moves.push_back(move);
        }
    }
}

// Goes on from the position on the bench; first is the index of its first record, if it has any.
static void push_node(Tree* tree, i64 first)
{
    TreeNode node;
    node.position = pack_position(&tree->bench.pos);
    if (!keeps_to_book(*tree, tree->bench.pos.stm)) {
        list_replies(tree, &node);
    } else if (first >= 0) {
        tree->reach.modes[static_cast<size_t>(first)] |= shown_position;
        ++tree->shown;
        list_book_moves(tree, static_cast<u64>(first), &node);
    }
    tree->way.push_back(std::move(node));
}

static void print_move(Tree* tree, const TreeNode& node, const TreeMove& move, const char* mark)
{
    const i64 ply = static_cast<i64>(tree->way.size()) - 1;
    Position* pos = &tree->bench.pos;
    const std::string name = move.move != NoMove
        ? name_move(pos, move.move, tree->settings->moves == "squares")
        : book_move_text(move.book_move);
    std::string line(static_cast<size_t>(2 * ply), ' ');
    line += name_ply(ply, tree->first_side) + ' ' + name;
    if (!move.is_reply) {
        line +=
            "  " + percent_of(move.weight, node.total) + " (" + std::to_string(move.weight) + ')';
        line += move.weight == 0 ? " never" : "";
        line += move.move == NoMove ? " illegal" : "";
    }
    line += mark;
    line += '\n';
    fwrite(line.data(), 1, line.size(), tree->out);
}

// Prints the next move of the last position of the way, and goes on behind it where nothing else
// leads there in fewer moves, or has led there.
static void print_next(Tree* tree)
{
    TreeNode* node = &tree->way.back();
    const TreeMove move = node->moves[node->next++];
    unpack_position(node->position, &tree->bench);
    Position* pos = &tree->bench.pos;
    const i64 ply_behind = static_cast<i64>(tree->way.size());
    const bool is_deep = ply_behind >= tree->settings->max_ply;
    // Positions where the other side moves are not in the walk: they are gone through each time.
    const bool is_between = tree->mode != BothKeep && !move.is_reply && move.move != NoMove;
    const char* mark = "";
    bool goes_on = false;
    if (is_between) {
        goes_on = !is_deep && move.weight > 0;
    } else if (move.target >= 0 && !is_deep) {
        const size_t target = static_cast<size_t>(move.target);
        const bool is_shown = (tree->reach.modes[target] & shown_position) != 0;
        goes_on = !is_shown && tree->reach.plies[target] == ply_behind;
        mark = is_shown ? "  (as above)" : goes_on ? "" : "  (as below)";
    }
    print_move(tree, *node, move, mark);
    if (goes_on) {
        make_move(pos, move.move);
        push_node(tree, is_between ? -1 : move.target);
    }
}

static bool prepare_tree(Tree* tree, const BookBench& start, Report* report)
{
    if (!make_index(&tree->index, *tree->book, report)) {
        return false;
    }
    BookWalk walk;
    walk.book = tree->book;
    walk.index = &tree->index;
    walk.start = start.pos;
    walk.modes = tree->mode;
    walk.max_ply = tree->settings->max_ply;
    walk.jobs = tree->settings->common.jobs;
    return walk_book(walk, &tree->reach, report);
}

static bool print_tree(const DumpSettings& settings, const BookFile& book, const BookBench& start,
    OutputStream* out, Report* report)
{
    Tree tree {};
    tree.settings = &settings;
    tree.book = &book;
    tree.mode = settings.side == "both" ? BothKeep
        : settings.side == "white"      ? WhiteKeeps
                                        : BlackKeeps;
    tree.first_side = start.pos.stm;
    tree.out = out->file;
    if (!prepare_tree(&tree, start, report)) {
        return false;
    }
    const i64 reached =
        std::ranges::count_if(tree.reach.plies, [](u16 ply) { return ply != never_reached; });
    start_progress_stage(&report->progress, reached);
    unpack_position(pack_position(&start.pos), &tree.bench);
    if (settings.max_ply > 0) {
        push_node(&tree, find_key(tree.index, book, book_key(&tree.bench.pos)));
    }
    while (!tree.way.empty() && is_sink_well(*out)) {
        if (tree.way.back().next < tree.way.back().moves.size()) {
            print_next(&tree);
        } else {
            tree.way.pop_back();
        }
        show_stage_progress(&report->progress, "positions shown", tree.shown);
    }
    u64 positions = 0;
    BookCursor cursor = make_cursor(book);
    BookEntry entry;
    u64 key = 0;
    while (next_entry(&cursor, &entry)) {
        positions += cursor.next == 1 || entry.key != key;
        key = entry.key;
    }
    add_count(report, "positions", "in the book", static_cast<i64>(positions));
    add_count(report, "positions", "in the tree", static_cast<i64>(tree.shown));
    return check_cursor(cursor, report);
}

static bool print_entries(const BookFile& book, OutputStream* out, Report* report)
{
    BookCursor cursor = make_cursor(book);
    BookEntry entry;
    fputs("entry\tkey\tmove\tweight\tlearn\n", out->file);
    start_progress_stage(&report->progress, static_cast<i64>(book.count));
    while (is_sink_well(*out) && next_entry(&cursor, &entry)) {
        fprintf(out->file, "%" PRIu64 "\t%016" PRIx64 "\t%s\t%d\t%" PRIu32 "\n", cursor.next,
            entry.key, book_move_text(entry.move).c_str(), entry.weight, entry.learn);
        show_stage_progress(&report->progress, "entries shown", cursor.next);
    }
    add_count(report, "entries", "in the book", static_cast<i64>(book.count));
    return check_cursor(cursor, report);
}

static bool dump_book(
    const DumpSettings& settings, const std::string& file, const BookBench& start, Report* report)
{
    BookFile book;
    const bool is_tree = settings.form == "tree";
    OutputStream out;
    if (!open_sink(&out, settings.common.output, { file }, report)) {
        return false;
    }
    const bool is_open = is_tree ? open_book(&book, file, OrderTelling::OncePerFile, report)
                                 : open_unsorted_book(&book, file, report);
    if (!is_open) {
        return false;
    }
    const bool is_done = is_tree ? print_tree(settings, book, start, &out, report)
                                 : print_entries(book, &out, report);
    return is_done && finish_sink(&out, report);
}

static void print_help()
{
    puts(
        "vesk-data book dump [OPTIONS] BOOK\n"
        "\n"
        "Prints the lines of a book as a tree: a move on each line, its share of the weights of\n"
        "its position, and the weight. A position that several lines lead to is gone on from "
        "once,\n"
        "where it needs the fewest moves; the other lines say \"as above\" or \"as below\".\n"
        "\n"
        "  --for both     both sides keep to the book; the default\n"
        "  --for white    White keeps to the book, Black makes any moves that White has an answer\n"
        "                 to; likewise black. A book for one side shows its lines so\n"
        "  --moves san    algebraic notation, the default; or squares: e2e4, castling as the book\n"
        "                 has it, e1h1\n"
        "  --max-ply N    the first N half-moves\n"
        "  --start FEN    where the lines begin; default: the position of chess\n"
        "  --form tree    the default; or entries: a table of all entries as they stand, a tab\n"
        "                 between the columns\n"
        "\n"
        "Positions that the start does not lead to are not in the tree; the report counts them.\n"
        "Options for all words: vesk-data --help");
}

int run_book_dump(Arguments arguments)
{
    DumpSettings settings;
    static constexpr std::string_view forms[] = { "tree", "entries" };
    static constexpr std::string_view moves[] = { "san", "squares" };
    static constexpr std::string_view sides[] = { "both", "white", "black" };
    const WordOption options[] = {
        { .name = "--form", .text = &settings.form, .choices = forms },
        { .name = "--moves", .text = &settings.moves, .choices = moves },
        { .name = "--for", .text = &settings.side, .choices = sides },
        { .name = "--start", .text = &settings.start },
        { .name = "--max-ply", .whole = &settings.max_ply, .greatest = most_ply },
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
    Report report = start_report(word, settings.common);
    start_run_progress(&report.progress, settings.common, 0, true);
    (void)dump_book(settings, files[0], start, &report);
    return finish_report(&report, settings.common, settings.common.output != "-");
}

// The choices that a book gives in a position, with their chances: found, weighed and drawn by the
// engine's own routines.
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "board/moves.h"
#include "book/polyglot.h"
#include "data/book_line.h"
#include "data/book_words.h"

static constexpr char word[] = "book play";
static constexpr f64 most_variety = 100.0;

struct PlaySettings {
    CommonOptions common;
    std::string start;
    i64 variety = 25; // the engine's default
};

// What the engine finds in a position, with the number of draws that choose each entry.
struct BookChances {
    i32 count = 0;
    BookEntry entries[max_book_entries];
    std::array<u32, max_book_entries> draws {};
    std::array<bool, max_book_entries> is_legal {};
    u64 total = 0; // of the weights
};

// All draws are tried: there are only a thousand, each as likely as the others but for less than a
// millionth.
static void find_chances(BookChances* chances, const BookFile& book, Position* pos, i64 variety)
{
    chances->count = find_book_entries(book.file.get(), book_key(pos), chances->entries);
    if (chances->count == 0) {
        return;
    }
    for (i32 i = 0; i < chances->count; ++i) {
        const size_t at = static_cast<size_t>(i);
        chances->total += chances->entries[i].weight;
        chances->is_legal[at] = is_playable(pos, book_move_to_move(chances->entries[i].move));
    }
    u16 adjusted[max_book_entries];
    const u32 sum =
        adjust_book_weights(chances->entries, chances->count, static_cast<i32>(variety), adjusted);
    if (sum == 0) {
        return;
    }
    for (u32 draw = 0; draw < book_draw_limit; ++draw) {
        ++chances->draws[static_cast<size_t>(
            choose_book_entry(chances->entries, chances->count, adjusted, sum, draw))];
    }
}

static std::string name_entry(Position* pos, u16 book_move, bool is_legal)
{
    return is_legal ? name_move(pos, book_move_to_move(book_move), false)
                    : book_move_text(book_move);
}

// The draws after which the engine searches: a move that is not legal was chosen, or there is none.
static u32 draws_without_move(const BookChances& chances)
{
    u32 with_move = 0;
    for (size_t i = 0; i < static_cast<size_t>(chances.count); ++i) {
        with_move += chances.is_legal[i] ? chances.draws[i] : 0;
    }
    return book_draw_limit - with_move;
}

static void print_choices(Position* pos, const BookChances& chances, i64 variety, FILE* out)
{
    char fen[fen_size];
    make_fen(pos, fen);
    fprintf(out, "%s\n", fen);
    if (chances.count == 0) {
        fputs("The book does not have this position.\n", out);
        return;
    }
    fprintf(out, "%-8s %-6s %6s %8s %8s  at variety %lld\n", "move", "", "weight", "share",
        "chance", static_cast<long long>(variety));
    for (i32 i = 0; i < chances.count; ++i) {
        const size_t at = static_cast<size_t>(i);
        const BookEntry& entry = chances.entries[i];
        const std::string name = name_entry(pos, entry.move, chances.is_legal[at]);
        fprintf(out, "%-8s %-6s %6d %8s %7.1f%%%s%s\n", name.c_str(),
            book_move_text(entry.move).c_str(), entry.weight,
            percent_of(entry.weight, chances.total).c_str(), chances.draws[at] / 10.0,
            entry.weight == 0 ? "  never" : "", chances.is_legal[at] ? "" : "  illegal");
    }
    const u32 without = draws_without_move(chances);
    if (without > 0) {
        fprintf(out, "%-8s %-6s %6s %8s %7.1f%%  the engine searches\n", "none", "", "", "",
            without / 10.0);
    }
}

static std::string choices_as_json(Position* pos, const BookChances& chances, i64 variety)
{
    char fen[fen_size];
    make_fen(pos, fen);
    std::string json = "\"fen\":";
    append_json_string(&json, fen);
    json += ",\"variety\":" + std::to_string(variety) + ",\"choices\":[";
    for (i32 i = 0; i < chances.count; ++i) {
        const size_t at = static_cast<size_t>(i);
        const BookEntry& entry = chances.entries[i];
        json += i > 0 ? ",{\"move\":" : "{\"move\":";
        append_json_string(&json, name_entry(pos, entry.move, chances.is_legal[at]));
        json += ",\"squares\":";
        append_json_string(&json, book_move_text(entry.move));
        json += ",\"weight\":" + std::to_string(entry.weight)
            + ",\"draws_of_1000\":" + std::to_string(chances.draws[at])
            + ",\"legal\":" + (chances.is_legal[at] ? "true" : "false") + '}';
    }
    return json + "],\"draws_without_move\":" + std::to_string(draws_without_move(chances));
}

static void print_help()
{
    puts(
        "vesk-data book play [OPTIONS] BOOK [MOVES...]\n"
        "\n"
        "Shows what the engine chooses from after these moves, and how likely each choice is: the\n"
        "book is searched, weighed and drawn from by the engine's own routines. MOVES are in\n"
        "algebraic notation or squares, with or without numbers: \"1. e4 e5 2. Nf3\" or e2e4 "
        "e7e5.\n"
        "\n"
        "  --variety N   the option OwnBook_Variety, 0 to 100; default: 25\n"
        "  --start FEN   the position before the moves; default: that of chess\n"
        "\n"
        "A move of weight 0 is never chosen. Where a move is chosen that is not legal, or the "
        "book\n"
        "has none, the engine searches; how likely that is stands in the last line. With --json\n"
        "there is no table: the choices are part of the report. Options for all words: vesk-data "
        "--help");
}

// The table goes where the output does; for scripts all is in the report.
static int show_choices(const PlaySettings& settings, const std::string& file, Position* pos)
{
    Report report = start_report(word, settings.common);
    BookFile book;
    if (!open_unsorted_book(&book, file, &report)) {
        return finish_report(&report, settings.common, false);
    }
    BookChances chances;
    find_chances(&chances, book, pos, settings.variety);
    if (settings.common.json) {
        return finish_report(
            &report, settings.common, true, choices_as_json(pos, chances, settings.variety));
    }
    OutputStream out;
    if (open_sink(&out, settings.common.output, { file }, &report)) {
        print_choices(pos, chances, settings.variety, out.file);
        (void)finish_sink(&out, &report);
    }
    return finish_report(&report, settings.common, false);
}

int run_book_play(Arguments arguments)
{
    PlaySettings settings;
    const WordOption options[] = {
        { .name = "--variety", .whole = &settings.variety, .greatest = most_variety },
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
    if (files.empty()) {
        return refuse_data_words(word, "names no book");
    }
    BookBench bench;
    if (const char* defect = read_start(settings.start, &bench)) {
        return refuse_data_words(word, "--start '%s': %s", settings.start.c_str(), defect);
    }
    std::vector<Move> line;
    for (size_t i = 1; i < files.size(); ++i) {
        std::string problem;
        if (!play_line(&bench.pos, files[i], &line, &problem)) {
            return refuse_data_words(word, "%s", problem.c_str());
        }
    }
    return show_choices(settings, files[0], &bench.pos);
}

// The word `games`: files of games in, games out. Pieces of the files are read apart, played
// through and written by several threads; what is told, counted and dropped as a duplicate goes
// through the caller's thread, in the order of the input.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "board/tables.h"
#include "data/arguments.h"
#include "data/blocks.h"
#include "data/games_blocks.h"
#include "data/games_filter.h"
#include "data/games_text.h"
#include "data/games_write.h"
#include "data/report.h"
#include "data/sinks.h"
#include "data/words.h"

static constexpr i64 default_unique_megabytes = 1024;
static constexpr size_t bytes_of_key = 56; // of a game that is remembered, its place in the set too

// ---- Options

struct GamesOptions {
    GameRules rules;
    bool unique = false;
    i64 unique_megabytes = default_unique_megabytes;
    // As they were given, to be read below.
    std::string view = "auto";
    std::string broken_off = "mark";
    std::string tags = "all";
    std::string classes;
    std::string results;
};

static void print_help()
{
    puts(
        "vesk-data games, games of any program for the tools of Vesk\n"
        "\n"
        "  vesk-data games [OPTIONS] FILES\n"
        "\n"
        "Reads PGN files, plays each game through and writes those that are whole as -scan_pgn1 "
        "to\n"
        "-scan_pgn4 and -mkbook of vesk take them: short lines, plain moves, nothing but scores "
        "in\n"
        "comments. Each game that cannot be used is named with its line and the reason.\n"
        "\n"
        "Scores, as written by Lichess and ChessBase ([%eval 1.23], [%eval #-4], [%eval 35,12]),\n"
        "match programs and GUIs ({+0.35/12 1.2s}, {eval 25, depth 12}, {(eval) 35}, {+0.35}) and\n"
        "TCEC (wv=0.35, ev=0.35):\n"
        "\n"
        "  --view white|mover|auto  whose gain a positive score is; auto, the default: White's "
        "for\n"
        "                           [%eval], and told by the games for the others, where scores\n"
        "                           that change their sign with each move are the mover's\n"
        "\n"
        "Games from a set-up position, of variants and without a result are refused.\n"
        "\n"
        "  --keep-fen         keeps those from a position; the scanner and -mkbook cannot use "
        "them\n"
        "  --broken-off WHAT  games that ended on time or were abandoned, by their Termination:\n"
        "                     mark (the default): -mkbook uses them, the scanner passes over "
        "them;\n"
        "                     keep: both use them; drop: they are left out\n"
        "  --unique           drops games whose moves came before, whoever played them\n"
        "  --unique-memory N  megabytes for that, 1024 unless told; about 19000 games each\n"
        "  --tags all|roster  all tags, or the seven that every game has\n"
        "\n"
        "What is wanted; a game whose tags do not tell is left out:\n"
        "\n"
        "  --min-rating N, --max-rating N         of both players\n"
        "  --class LIST                           ultrabullet, bullet, blitz, rapid, classical,\n"
        "                                         correspondence; with commas between them\n"
        "  --min-base S, --max-base S             seconds for the game\n"
        "  --min-increment S, --max-increment S   seconds a move\n"
        "  --result LIST                          1-0, 0-1, 1/2-1/2, * (unfinished; the scanner\n"
        "                                         takes these for draws)\n"
        "  --min-length N, --max-length N         half-moves\n"
        "  --from DATE, --to DATE                 2024, 2024.05 or 2024.05.17\n"
        "\n"
        "FILES may be - for standard input, and packed as .gz or .zst. For all words:\n"
        "vesk-data --help.\n"
        "\n"
        "Status: 0 all games were used or left out as told, 1 games were refused or a file "
        "failed,\n"
        "2 wrong command line.");
}

static bool read_options(Arguments arguments, GamesOptions* options, CommonOptions* common,
    std::vector<std::string>* files)
{
    static constexpr std::string_view views[] = { "auto", "white", "mover" };
    static constexpr std::string_view broken_off[] = { "mark", "keep", "drop" };
    static constexpr std::string_view tags[] = { "all", "roster" };
    constexpr f64 most = 1e9;
    GameFilter* filter = &options->rules.filter;
    const WordOption table[] = {
        { .name = "--view", .text = &options->view, .choices = views },
        { .name = "--broken-off", .text = &options->broken_off, .choices = broken_off },
        { .name = "--tags", .text = &options->tags, .choices = tags },
        { .name = "--keep-fen", .flag = &options->rules.keeps_fen },
        { .name = "--unique", .flag = &options->unique },
        { .name = "--unique-memory",
            .whole = &options->unique_megabytes,
            .least = 1.0,
            .greatest = most },
        { .name = "--class", .text = &options->classes },
        { .name = "--result", .text = &options->results },
        { .name = "--from", .text = &filter->from },
        { .name = "--to", .text = &filter->to },
        { .name = "--min-rating", .whole = &filter->min_rating, .greatest = most },
        { .name = "--max-rating", .whole = &filter->max_rating, .greatest = most },
        { .name = "--min-base", .real = &filter->min_base, .greatest = most },
        { .name = "--max-base", .real = &filter->max_base, .greatest = most },
        { .name = "--min-increment", .real = &filter->min_increment, .greatest = most },
        { .name = "--max-increment", .real = &filter->max_increment, .greatest = most },
        { .name = "--min-length", .whole = &filter->min_length, .greatest = most },
        { .name = "--max-length", .whole = &filter->max_length, .greatest = most },
    };
    return read_arguments(arguments, table, common, files);
}

// Reads what is more than a number or a word. Returns 0, or the status after a message.
static int settle_options(GamesOptions* options)
{
    static constexpr std::string_view results[] = { "1-0", "0-1", "1/2-1/2", "*" };
    GameRules* rules = &options->rules;
    GameFilter* filter = &rules->filter;
    rules->first_views = views_of_forms(options->view == "white" ? ScoreView::White
            : options->view == "mover"                           ? ScoreView::Mover
                                                                 : ScoreView::Unknown);
    rules->broken_off = options->broken_off == "mark" ? BrokenOff::Marked
        : options->broken_off == "keep"               ? BrokenOff::Kept
                                                      : BrokenOff::LeftOut;
    rules->only_roster = options->tags == "roster";
    const std::string no_class =
        read_name_list(options->classes, time_class_names, &filter->classes);
    if (!no_class.empty()) {
        return refuse_data_words("games", "there is no class '%s'", no_class.c_str());
    }
    const std::string no_result = read_name_list(options->results, results, &filter->results);
    if (!no_result.empty()) {
        return refuse_data_words("games", "'%s' is no result", no_result.c_str());
    }
    for (const std::string* date : { &filter->from, &filter->to }) {
        if (!date->empty() && !is_date(*date)) {
            return refuse_data_words("games", "'%s' is no date such as 2024.05.17", date->c_str());
        }
    }
    return 0;
}

// ---- Work

// A game of a piece.
struct PieceGame {
    GameOutcome outcome;
    i64 line = 0; // of what is refused, or of the game
    size_t begin = 0;
    size_t end = 0; // of its text among those of the piece
};

struct PieceResult {
    size_t file = 0;
    i64 position = 0;
    bool is_too_long = false;
    i64 first_line = 0;
    std::string text;
    std::vector<PieceGame> games;
    std::vector<Telling> kept; // before the games
};

// Counts lines on from the place that was asked for last: places come in their order.
struct LineCounter {
    const char* place;
    i64 line;
};

static i64 line_at(LineCounter* counter, const char* place)
{
    if (place > counter->place) {
        counter->line += std::count(counter->place, place, '\n');
        counter->place = place;
    }
    return counter->line;
}

static void work_on_piece(const GameRules& rules, GamesPiece* piece, PieceResult* result)
{
    result->file = piece->file;
    result->position = piece->position;
    result->is_too_long = piece->is_too_long;
    result->first_line = piece->first_line;
    result->kept = std::move(piece->kept);
    const std::unique_ptr<GameBoard> board = make_game_board();
    const char* end = piece->text.data() + piece->text.size();
    LineCounter counter = { piece->text.data(), piece->first_line };
    GameText game;
    result->text.reserve(piece->text.size());
    for (const char* p = piece->text.data(); (p = read_game(p, end, &game)) != nullptr;) {
        PieceGame* done = &result->games.emplace_back();
        done->begin = result->text.size();
        write_game(game, rules, piece->views, board.get(), &result->text, &done->outcome);
        done->end = result->text.size();
        const bool is_refused = done->outcome.fate == GameFate::Refused;
        if (is_refused || done->outcome.lacks_view || done->outcome.takes_view) {
            done->line = line_at(&counter, is_refused ? done->outcome.place : game.start);
        }
    }
}

// ---- The run

struct GameKey {
    u64 first;
    u64 second;
    bool operator==(const GameKey&) const = default;
};

struct HashOfKey {
    size_t operator()(const GameKey& key) const
    {
        return key.first;
    }
};

struct GamesRun {
    const GamesOptions* options = nullptr;
    Report report;
    OutputStream out;
    std::unordered_set<GameKey, HashOfKey> keys;
    i64 read = 0;
    i64 used = 0;
    i64 duplicates = 0;
    i64 not_remembered = 0;      // games
    std::vector<Count> left_out; // by reason
    std::vector<Count> views;    // files
    GameTally tally;
};

// Whether the game came before. The set may be full: then a game that comes twice is used twice,
// which is told at the end.
static bool is_duplicate(GamesRun* run, const GameOutcome& outcome)
{
    const GameKey key = { outcome.key[0], outcome.key[1] };
    const size_t most =
        static_cast<size_t>(run->options->unique_megabytes) * (1 << 20) / bytes_of_key;
    if (run->keys.size() < most) {
        return !run->keys.insert(key).second;
    }
    if (run->keys.contains(key)) {
        return true;
    }
    ++run->not_remembered;
    return false;
}

static void add_to_counts(std::vector<Count>* counts, std::string_view name)
{
    const auto row = std::ranges::find(*counts, name, &Count::name);
    if (row != counts->end()) {
        ++row->value;
    } else {
        counts->push_back({ std::string(name), 1 });
    }
}

static void take_game(
    GamesRun* run, const std::string& file, const PieceResult& piece, const PieceGame& game)
{
    const GameOutcome& outcome = game.outcome;
    ++run->read;
    if (outcome.fate == GameFate::Refused) {
        refuse_item(&run->report, file, { game.line, outcome.reason, outcome.detail });
        return;
    }
    if (outcome.fate == GameFate::LeftOut) {
        add_to_counts(&run->left_out, outcome.reason);
        return;
    }
    if (run->options->unique && is_duplicate(run, outcome)) {
        ++run->duplicates;
        return;
    }
    if (outcome.lacks_view) {
        refuse_item(&run->report, file,
            { game.line, "scores whose view nothing tells", "--view white or --view mover" });
    }
    if (outcome.takes_view) {
        note_item(&run->report, file,
            { game.line, "scores whose view nothing tells, taken for the mover's",
                "--view white or --view mover" });
    }
    ++run->used;
    add_tally(&run->tally, outcome.tally);
    fwrite(piece.text.data() + game.begin, 1, game.end - game.begin, run->out.file);
}

// ---- The report

// Counts of nothing say nothing, but for the main ones.
static void add_found(Report* report, const char* group, const char* name, i64 value)
{
    if (value > 0) {
        add_count(report, group, name, value);
    }
}

static void add_tally_counts(Report* report, const GameTally& tally)
{
    add_count(report, "moves", "half-moves written", tally.moves);
    for (size_t form = NoScore + 1; form < tally.scores.size(); ++form) {
        add_found(report, "scores", score_form_names[form], tally.scores[form]);
    }
    add_found(report, "scores", "dropped, view not known", tally.scores_without_view);
    add_found(report, "scores", "taken for the mover's", tally.scores_of_taken_view);
    add_found(report, "scores", "[%eval] that is no score", tally.unreadable_scores);
    add_found(report, "dropped or changed", "clock times", tally.clocks);
    add_found(report, "dropped or changed", "comments", tally.comments);
    add_found(report, "dropped or changed", "variations", tally.variations);
    add_found(report, "dropped or changed", "marks and NAGs", tally.marks);
    add_found(report, "dropped or changed", "odd tags", tally.odd_tags);
    add_found(report, "dropped or changed", "tags reworded or cut", tally.changed_tags);
    add_found(report, "noticed", "games without a result behind the moves", tally.without_mark);
    add_found(report, "noticed", "games broken off", tally.broken_off);
}

static int finish_run(GamesRun* run, const CommonOptions& common, bool is_output_free)
{
    Report* report = &run->report;
    i64 left_out = 0;
    for (const Count& count : run->left_out) {
        left_out += count.value;
    }
    add_count(report, "games", "read", run->read);
    add_count(report, "games", "used", run->used);
    add_count(report, "games", "refused", run->read - run->used - left_out - run->duplicates);
    add_count(report, "games", "left out", left_out);
    add_count(report, "games", "dropped as duplicates", run->duplicates);
    for (const Count& count : run->left_out) {
        add_count(report, "left out", count.name, count.value);
    }
    add_tally_counts(report, run->tally);
    for (const Count& count : run->views) {
        add_count(report, "files by the view of scores", count.name, count.value);
    }
    if (run->not_remembered > 0) {
        fail_file(report, "--unique",
            "there was no memory for the later games; --unique-memory gives more", 0);
        add_count(
            report, "noticed", "games that later ones were not compared with", run->not_remembered);
    }
    return finish_report(report, common, is_output_free);
}

// Tells how the views were settled where there was something to settle, and of [%eval] whose data
// speak against what is usual.
static void note_views(
    GamesRun* run, Report* report, const std::string& file, const GamesPiece& piece)
{
    const ViewTable& first = run->options->rules.first_views;
    for (size_t form = 0; form < first.size(); ++form) {
        if (first[form] == ScoreView::Unknown && piece.views[form] != ScoreView::Unknown) {
            const bool is_whites = piece.views[form] == ScoreView::White;
            add_to_counts(&run->views,
                std::string(score_form_names[form])
                    + (is_whites ? " is White's" : " is the mover's"));
        }
    }
    for (const ScoreForm form : { PawnEval, CentipawnEval }) {
        if (run->options->view == "auto" && piece.told[form] == ScoreView::Mover) {
            refuse_item(report, file,
                { 0, "scores that look like the mover's, taken for White's",
                    std::string(score_form_names[form]) + ", --view mover or --view white" });
        }
    }
}

static std::string name_of_file(const std::string& file)
{
    return file == "-" ? "standard input" : file;
}

// Takes the next piece, with what is to be told before its games.
static bool take_noted_piece(GamesRun* run, GamesReader* reader, GamesPiece* piece)
{
    if (!take_piece(reader, piece)) {
        return false;
    }
    if (piece->is_first) {
        note_views(run, reader->report, name_of_file((*reader->files)[piece->file]), *piece);
    }
    piece->kept = std::exchange(reader->report->kept, {});
    return true;
}

// Writes a piece and tells of it. Returns false where no more can be written.
static bool hand_on_piece(GamesRun* run, const std::string& file, PieceResult* piece)
{
    tell_kept(&run->report, &piece->kept);
    if (piece->is_too_long) {
        ++run->read;
        refuse_item(&run->report, file, { piece->first_line, "game of more than a megabyte", {} });
    }
    for (const PieceGame& game : piece->games) {
        take_game(run, file, *piece, game);
    }
    show_run_progress(&run->report.progress, "games", run->read, piece->position);
    return is_sink_well(run->out);
}

int run_games(Arguments arguments)
{
    GamesOptions options;
    CommonOptions common;
    std::vector<std::string> files;
    if (!read_options(arguments, &options, &common, &files)) {
        return usage_status;
    }
    if (common.help) {
        print_help();
        return 0;
    }
    if (const int status = settle_options(&options)) {
        return status;
    }
    if (files.empty()) {
        return refuse_data_words("games", "there is no file of games");
    }
    init_board_tables();

    GamesRun run;
    run.options = &options;
    run.report = start_report("games", common);
    add_count(&run.report, "games", "read", 0);
    if (!open_sink(&run.out, common.output, files, &run.report)) {
        return finish_run(&run, common, common.output != "-");
    }
    Report ahead;
    ahead.keeps = true;
    GamesReader reader;
    reader.files = &files;
    reader.report = &ahead;
    reader.views = options.rules.first_views;
    start_run_progress(&run.report.progress, common, total_size(files), true);
    work_in_order<GamesPiece, PieceResult>(
        common.jobs, [&](GamesPiece* piece) { return take_noted_piece(&run, &reader, piece); },
        [&](GamesPiece* piece, PieceResult* result) {
            work_on_piece(options.rules, piece, result);
        },
        [&](PieceResult* piece) {
            return hand_on_piece(&run, name_of_file(files[piece->file]), piece);
        });
    tell_kept(&run.report, &ahead.kept); // behind the last piece
    hide_run_progress(&run.report.progress);
    // A failure is in the report.
    static_cast<void>(finish_counted_sink(&run.out, run.used, "game", &run.report));
    return finish_run(&run, common, common.output != "-");
}

// The user's options by name: one table with a row per option, in the order of announcement.
// Whatever way a setting comes, from the dialogue or from the configuration file, it goes through
// set_option, which keeps it inside its range and tells the user what it has become. A value is
// never refused: a number out of range becomes the nearest, and what is no number becomes 0 first.
#include "shell/options.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "base/files.h"
#include "base/output.h"
#include "base/text.h"
#include "search/hash.h"
#include "search/strength.h"
#include "search/threads.h"
#include "shell/input.h"
#include "shell/search_fields.h"
#include "shell/startup.h"

static constexpr i32 name_size = 101; // a line's name and value, with their NUL
static constexpr i32 value_size = 201;
static constexpr i32 config_line_size = 255;
// Characters with the line feed; no shorter one can hold a name, the sign and a value.
static constexpr size_t shortest_config_line = 4;
static constexpr i32 deepest_config_file = 8; // files that name each other end here
static constexpr i32 most_config_files = 64;  // and here, if they do so on many lines

// How an option is read and announced. The log is a check that opens a file, a scale a text of two
// numbers.
enum OptionKind { TextOption, SpinOption, CheckOption, ButtonOption, LogOption, ScaleOption };

// One option. The field of its kind is set, number, text or scale; the ranges are a spin's.
struct OptionRow {
    const char* name;
    OptionKind kind;
    i16 EngineOptions::*number;
    char (EngineOptions::*text)[file_option_size];
    WeightScale WeightScales::*scale;
    i32 announced_min;
    i32 announced_max; // machine_elo: the estimate of this machine
    i32 lowest;
    i32 highest;
    void (*apply)(Dialogue* dialogue); // what the new value calls for, or null
};

// Announced as the greatest UCI_Elo: what this machine was measured at. A higher one may be set all
// the same and then limits nothing.
static constexpr i32 machine_elo = -1;

// Rows by kind, so that a row names what differs and no field lands in another's place.
static constexpr OptionRow text_row(const char* name, char (EngineOptions::*text)[file_option_size],
    void (*apply)(Dialogue*) = nullptr)
{
    return { name, TextOption, nullptr, text, nullptr, 0, 0, 0, 0, apply };
}

static constexpr OptionRow spin_row(const char* name, i16 EngineOptions::*number, i32 lowest,
    i32 highest, void (*apply)(Dialogue*) = nullptr)
{
    return { name, SpinOption, number, nullptr, nullptr, lowest, highest, lowest, highest, apply };
}

static constexpr OptionRow check_row(const char* name, OptionKind kind, i16 EngineOptions::*number)
{
    return { name, kind, number, nullptr, nullptr, 0, 0, 0, 0, nullptr };
}

static constexpr OptionRow scale_row(const char* name, WeightScale WeightScales::*scale)
{
    return { name, ScaleOption, nullptr, nullptr, scale, 0, 0, 0, 0, nullptr };
}

// The file may set this very option again and so name another; see load_config_file for the end.
static void load_named_config(Dialogue* dialogue)
{
    load_config_file(dialogue);
}

// A running search uses the table, so it ends first. It is not reported now, but the "stop" that
// its sender owes it is answered with the best move found. A size that stands already costs nothing
// and keeps the table's content. Without the memory the old table is gone, and the process cannot
// go on.
static void resize_hash(Dialogue* dialogue)
{
    if (dialogue->engine_options.hash == hash.megabytes) {
        return;
    }
    end_search_silently();
    if (!make_hash_table(dialogue->engine_options.hash)) {
        exit(-1);
    }
    touch_hash();
}

// Ending the workers leaves a stop code of its own behind; the result of a search that is over but
// not reported yet must not get lost by it. 0 leaves no worker: a search then finds nothing and
// answers when it is stopped.
static void restart_workers(Dialogue* dialogue)
{
    if (dialogue->engine_options.threads == num_threads) {
        return;
    }
    end_search_silently();
    const StopCode stop = load(stop_code);
    destroy_workers(num_threads);
    num_threads = dialogue->engine_options.threads;
    if (const i32 error = create_workers(num_threads); error != 0) {
        print_line("error!");
        complain("threads", "cannot be started", error);
        exit(-1);
    }
    store(stop_code, stop);
}

// The search reads the registered tables without a lock, so it ends first, as with the table.
static void find_tables(Dialogue* dialogue)
{
    end_search_silently();
    register_tables(dialogue->engine_options.syzygy_path);
}

// The order is that of the announcement, which chess programs show as it comes. Ranges: megabytes
// for Hash, milliseconds for MoveOverhead, plies for depths, centipawns for Contempt, per cent for
// Variety, Selectivity and scales.
static constexpr OptionRow option_rows[] = {
    text_row("ConfigFilePath", &EngineOptions::config_file_path, load_named_config),
    spin_row("Hash", &EngineOptions::hash, 0, 16384, resize_hash),
    // Announced from 1, though 0 is taken.
    { "Threads", SpinOption, &EngineOptions::threads, nullptr, nullptr, 1, max_workers, 0,
        max_workers, restart_workers },
    check_row("Clear_Hash", ButtonOption, nullptr),
    check_row("OwnBook", CheckOption, &EngineOptions::own_book),
    text_row("OwnBook_File", &EngineOptions::own_book_file),
    spin_row("OwnBook_Depth", &EngineOptions::own_book_depth, 0, 60),
    text_row("OwnBook2_File", &EngineOptions::own_book2_file),
    spin_row("OwnBook2_Depth", &EngineOptions::own_book2_depth, 0, 60),
    spin_row("OwnBook_Variety", &EngineOptions::own_book_variety, 0, 100),
    text_row("SyzygyPath", &EngineOptions::syzygy_path, find_tables),
    spin_row("SyzygyProbeDepth5", &EngineOptions::syzygy_probe_depth5, -5, 100),
    spin_row("SyzygyProbeDepth6", &EngineOptions::syzygy_probe_depth6, -5, 100),
    check_row("Log", LogOption, &EngineOptions::log),
    check_row("Ponder", CheckOption, &EngineOptions::ponder),
    spin_row("MultiPV", &EngineOptions::multi_pv, 1, 255),
    spin_row("MoveOverhead", &EngineOptions::move_overhead, 0, 5000),
    check_row("UCI_LimitStrength", CheckOption, &EngineOptions::limit_strength),
    // Its default is the machine's estimate as long as nothing has set it.
    { "UCI_Elo", SpinOption, &EngineOptions::elo, nullptr, nullptr, 1500, machine_elo, 1500, 3300,
        nullptr },
    spin_row("Contempt", &EngineOptions::contempt, -150, 150),
    spin_row("Selectivity", &EngineOptions::selectivity, 0, 200),
    scale_row("Mtl_Pawn", &WeightScales::Mtl_Pawn),
    scale_row("Mtl_Knight", &WeightScales::Mtl_Knight),
    scale_row("Mtl_Bishop", &WeightScales::Mtl_Bishop),
    scale_row("Mtl_Rook", &WeightScales::Mtl_Rook),
    scale_row("Mtl_Queen", &WeightScales::Mtl_Queen),
    scale_row("Activity_Knight", &WeightScales::Activity_Knight),
    scale_row("Activity_Bishop", &WeightScales::Activity_Bishop),
    scale_row("Activity_Rook", &WeightScales::Activity_Rook),
    scale_row("Activity_Queen", &WeightScales::Activity_Queen),
    scale_row("Pawn_Structure", &WeightScales::Pawn_Structure),
    scale_row("Passed_Pawns", &WeightScales::Passed_Pawns),
    scale_row("King_Safety", &WeightScales::King_Safety),
    scale_row("Threats", &WeightScales::Threats),
};

static constexpr size_t scale_option_count =
    std::ranges::count(option_rows, ScaleOption, &OptionRow::kind);

std::span<const NamedScale> scale_options()
{
    static constexpr auto list = [] {
        std::array<NamedScale, scale_option_count> found = {};
        size_t count = 0;
        for (const OptionRow& row : option_rows) {
            if (row.kind == ScaleOption) {
                found[count++] = { row.name, row.scale };
            }
        }
        return found;
    }();
    return list;
}

bool is_option_name(std::string_view name)
{
    return std::ranges::any_of(
        option_rows, [name](const OptionRow& row) { return name == row.name; });
}

// ---- Setting

// The answer shows the value kept, so a user sees that a number was out of range.
static i32 set_spin_option(const char* name, const char* text, i32 lowest, i32 highest)
{
    const i32 value = std::clamp(read_i32(text), lowest, highest);
    print_line_format("info string %s set to %d", name, value);
    return value;
}

// The number at the start of text, in the range of a scale.
static i16 scale_value(const char* text)
{
    return static_cast<i16>(std::clamp(read_i32(text), lowest_scale, highest_scale));
}

// A number that was left as it was may stem from code that did not keep the range.
static i16 clamped_scale(i16 value)
{
    return std::clamp(value, static_cast<i16>(lowest_scale), static_cast<i16>(highest_scale));
}

// Reads "first,second": per cent of the middle game's and of the end game's weights. A part that is
// missing leaves its number as it was.
static void set_weight_pair(i16* field, const char* name, const char* text)
{
    const char* comma = strchr(text, ',');
    if (*text != '\0' && comma != text) {
        field[0] = scale_value(text);
    }
    const char* second = comma != nullptr ? skip_blanks(comma + 1) : "";
    if (*second != '\0' && *second != '\n') {
        field[1] = scale_value(second);
    }
    field[0] = clamped_scale(field[0]);
    field[1] = clamped_scale(field[1]);
    print_line_format("info string %s set to %d,%d", name, field[0], field[1]);
}

// Switches the log on or off. The file stays open when it is switched off, and a later switch on
// goes on writing to it: opening it anew would throw away what it holds. Where it cannot be opened
// the option stays off.
static void set_log(Dialogue* dialogue, bool on)
{
    print_line_format("info string Log set to %d", on ? 1 : 0);
    dialogue->engine_options.log = on ? 1 : 0;
    if (on && !open_log()) {
        print_line("log file in use.");
        dialogue->engine_options.log = 0;
    }
}

// The value is published before the row's own routine runs, which may take long and may set other
// options itself. A check is on if "true" stands anywhere in the value.
static void set_row(Dialogue* dialogue, const OptionRow& row, const char* value)
{
    const bool is_true = strstr(value, "true") != nullptr;
    switch (row.kind) {
    case TextOption:
        copy_text(dialogue->engine_options.*row.text, file_option_size, value);
        print_line_format(
            "info string %s set to '%s'", row.name, dialogue->engine_options.*row.text);
        break;
    case SpinOption:
        dialogue->engine_options.*row.number =
            static_cast<i16>(set_spin_option(row.name, value, row.lowest, row.highest));
        break;
    case CheckOption:
        print_line_format("info string %s set to %d", row.name, is_true ? 1 : 0);
        dialogue->engine_options.*row.number = is_true ? 1 : 0;
        break;
    case ButtonOption:
        clear_hash_if_idle();
        print_line("info string Hash table cleared");
        break;
    case LogOption:
        set_log(dialogue, is_true);
        break;
    case ScaleOption:
        set_weight_pair(dialogue->engine_options.scales.*row.scale, row.name, value);
        break;
    }
    publish_options(dialogue);
    if (row.apply != nullptr) {
        row.apply(dialogue);
    }
}

// The tuning program's options of the search, which hold from the next one on.
static void set_search_field(Dialogue* dialogue, std::string_view name, const char* value)
{
    for (const SearchField& row : search_fields) {
        if (name == row.name) {
            dialogue->engine_options.search.*row.param =
                static_cast<i16>(set_spin_option(row.name, value, row.lowest, row.highest));
            return;
        }
    }
}

// Names are compared as they are, capitals and small letters apart, without blanks behind them.
void set_option(Dialogue* dialogue, const char* name, char* value)
{
    for (const OptionRow& row : option_rows) {
        if (std::string_view(name) == row.name) {
            set_row(dialogue, row, value);
            return;
        }
    }
    if (tuning) {
        set_search_field(dialogue, name, value);
    }
}

// ---- Announcing

static void announce_spin_line(const char* name, i32 value, i32 lowest, i32 highest)
{
    print_line_format(
        "option name %s type spin default %d min %d max %d", name, value, lowest, highest);
}

// An Elo that nobody has set gets the machine's estimate as its default, and keeps it until a
// setting is made.
static void announce_spin(Dialogue* dialogue, const OptionRow& row)
{
    i32 highest = row.announced_max;
    if (highest == machine_elo) {
        highest = narrow_to_i16(strength.estimated_elo);
        if (dialogue->saved_options.*row.number == 0) {
            dialogue->saved_options.*row.number = static_cast<i16>(highest);
        }
    }
    announce_spin_line(row.name, dialogue->saved_options.*row.number, row.announced_min, highest);
}

// The defaults are the settings as they stand, so a program that restores "defaults" gets what the
// command line and the configuration file have set.
void announce_options(Dialogue* dialogue)
{
    for (const OptionRow& row : option_rows) {
        switch (row.kind) {
        case TextOption:
            print_line_format("option name %s type string default %s", row.name,
                dialogue->saved_options.*row.text);
            break;
        case SpinOption:
            announce_spin(dialogue, row);
            break;
        case CheckOption:
        case LogOption:
            print_line_format("option name %s type check default %s", row.name,
                dialogue->saved_options.*row.number != 0 ? "true" : "false");
            break;
        case ButtonOption:
            print_line_format("option name %s type button", row.name);
            break;
        case ScaleOption:
            print_line_format("option name %s type string default %d,%d", row.name,
                (dialogue->saved_options.scales.*row.scale)[0],
                (dialogue->saved_options.scales.*row.scale)[1]);
            break;
        }
    }
    if (!tuning) {
        return;
    }
    for (const SearchField& row : search_fields) {
        announce_spin_line(
            row.name, dialogue->saved_options.search.*row.param, row.lowest, row.highest);
    }
}

// ---- The configuration file

// One line of the file, "name = value # comment"; line is changed. The last character goes, as it
// is the line feed; a last line without one loses a letter of its value. A line with blanks before
// its name sets nothing.
static void read_config_line(Dialogue* dialogue, char* line)
{
    const size_t length = strlen(line);
    if (length < shortest_config_line) {
        return;
    }
    line[length - 1] = '\0';
    line[strcspn(line, "#")] = '\0';
    char* equals = strchr(line, '=');
    if (equals == nullptr) {
        return;
    }
    char* name_end = equals;
    while (name_end > line && name_end[-1] == ' ') {
        --name_end;
    }
    *name_end = '\0';

    char name[name_size];
    char value[value_size];
    copy_text(name, sizeof name, line);
    copy_text(value, sizeof value, skip_blanks(equals + 1));
    set_option(dialogue, name, value);
}

// The values count as defaults from here on, and the tables are rebuilt before the next search. A
// file may name another, or itself: the counts end that, and begin anew with each file that is
// named from outside.
i32 load_config_file(Dialogue* dialogue)
{
    static i32 open_files = 0;
    static i32 loaded_files = 0;
    if (open_files == 0) {
        loaded_files = 0;
    }
    const bool allowed = open_files < deepest_config_file && loaded_files < most_config_files;
    FILE* file = allowed ? open_regular_file(dialogue->engine_options.config_file_path) : nullptr;
    if (file == nullptr) {
        return 0;
    }
    ++open_files;
    ++loaded_files;
    print_line_format(
        "info string loading parameters from %s", dialogue->engine_options.config_file_path);
    char line[config_line_size];
    while (fgets(line, sizeof line, file) != nullptr) {
        read_config_line(dialogue, line);
    }
    fclose(file);
    --open_files;

    dialogue->engine_options.params_changed = 1;
    dialogue->saved_options = dialogue->engine_options;
    publish_options(dialogue);
    return 1;
}

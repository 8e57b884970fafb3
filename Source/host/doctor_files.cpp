// The doctor's look at files: endgame tables, books, weights.
#include <cstdio>
#include <cstring>

#include "base/text.h"
#include "host/book_check.h"
#include "host/doctor.h"
#include "host/table_check.h"
#include "host/weights_check.h"
#include "shell/dialogue.h"

static constexpr size_t path_size = 4096;
static constexpr f64 megabyte = 1 << 20;
static constexpr i32 complete_set = 5; // pieces: the set that is usually taken as a whole

// ---- Endgame tables

static void examine_folder(Report* report, const char* folder)
{
    char below[path_size];
    switch (look_at_folder(folder)) {
    case FolderKind::Missing:
        print_finding(report, Mark::Wrong, "%s: there is no such folder.%s", folder,
            strchr(folder, ';') != nullptr ? " Folders are parted by a colon, not by a semicolon."
                                           : "");
        break;
    case FolderKind::NoFolder:
        print_finding(
            report, Mark::Wrong, "%s is a file; the folder that it lies in is wanted.", folder);
        break;
    case FolderKind::Closed:
        print_finding(report, Mark::Wrong, "%s: you may not read this folder.", folder);
        break;
    case FolderKind::Readable:
        if (find_folder_with_tables(folder, below, sizeof below)) {
            print_finding(report, Mark::Note,
                "%s holds tables too, but folders within a folder are not looked into. Name each, "
                "with a colon between them.",
                below);
        }
        break;
    }
}

// "KQvKR.rtbw, KRvK.rtbw (empty) and 3 more"
static void list_names(const TableList* list, TextBuffer* text)
{
    for (i32 i = 0; i < list->count && i < shown_tables; ++i) {
        append_format(text, "%s%s", i > 0 ? ", " : "", list->names[i]);
        if (list->reasons[i][0] != '\0') {
            append_format(text, " (%s)", list->reasons[i]);
        }
    }
    if (list->count > shown_tables) {
        append_format(text, " and %d more", list->count - shown_tables);
    }
}

static void print_counts(const TableCheck* check)
{
    print_row("pieces    results (.rtbw)           distances (.rtbz)");
    for (i32 pieces = fewest_table_pieces; pieces <= most_table_pieces; ++pieces) {
        const TableCount* results = &check->counts[pieces][TbWdlFile];
        const TableCount* distances = &check->counts[pieces][TbDtzFile];
        print_row("%6d    %3d of %3d %9.1f MB     %3d of %3d %9.1f MB", pieces, results->found,
            results->wanted, static_cast<f64>(results->bytes) / megabyte, distances->found,
            distances->wanted, static_cast<f64>(distances->bytes) / megabyte);
    }
}

// What is there in part is a copy that was not ended; what is not there at all may be meant so.
static void examine_count(Report* report, i32 pieces, const TableCount* count, const char* kind)
{
    if (count->found == count->wanted) {
        return;
    }
    if (count->found == 0) {
        print_finding(report, Mark::Note, "There are no %s for %d pieces.", kind, pieces);
        return;
    }
    char names[1024];
    TextBuffer text = { names };
    list_names(&count->missing, &text);
    print_finding(report, Mark::Wrong, "Of the %s for %d pieces %d are missing: %s.", kind, pieces,
        count->missing.count, names);
}

static void examine_counts(Report* report, const TableCheck* check)
{
    bool complete = true;
    for (i32 pieces = fewest_table_pieces; pieces <= complete_set; ++pieces) {
        const TableCount* counts = check->counts[pieces];
        examine_count(report, pieces, &counts[TbWdlFile], "results");
        examine_count(report, pieces, &counts[TbDtzFile], "distances");
        for (i32 kind = 0; kind < tb_kinds; ++kind) {
            complete &= counts[kind].found == counts[kind].wanted;
        }
    }
    if (complete) {
        print_finding(report, Mark::Good, "The set of three to five pieces is complete.");
    }
}

void examine_tables(Report* report, const char* path)
{
    print_heading(report, "Endgame tables");
    const char* rest = path;
    char folder[path_size];
    while (next_folder(&rest, folder, sizeof folder)) {
        examine_folder(report, folder);
    }
    if (strlen(path) >= static_cast<size_t>(file_option_size)) {
        print_finding(report, Mark::Wrong,
            "The path is too long: Vesk reads %d characters of it. A link with a short name helps.",
            file_option_size - 1);
    }
    static TableCheck check;
    check_tables(path, &check);
    i32 found = 0;
    for (const auto& counts : check.counts) {
        found += counts[TbWdlFile].found;
    }
    if (found == 0) {
        print_finding(report, Mark::Wrong, "There are no endgame tables in %s.", path);
    } else {
        print_finding(report, Mark::Good, "Vesk finds %d tables there.", found);
        print_counts(&check);
        examine_counts(report, &check);
    }
    if (check.broken.count > 0) {
        char names[1024];
        TextBuffer text = { names };
        list_names(&check.broken, &text);
        print_finding(report, Mark::Wrong, "Files that cannot be used: %s.", names);
    }
    if (check.others > 0) {
        print_finding(report, Mark::Note,
            "Vesk has no use for %d other files, %s among them: it reads up to %d pieces, and "
            "names as they were given.",
            check.others, check.other, most_table_pieces);
    }
}

// ---- Books

void examine_book(Report* report, const char* path)
{
    constexpr u64 record_size = 16;
    print_heading(report, "Opening book");
    const BookCheck check = check_book(path);
    const i32 wrong_before = report->wrong;
    if (check.error != 0) {
        print_finding(report, Mark::Wrong, "%s cannot be read: %s.", path, strerror(check.error));
        return;
    }
    if (!check.regular) {
        print_finding(report, Mark::Wrong, "%s is no file that could hold a book.", path);
        return;
    }
    if (strlen(path) >= static_cast<size_t>(file_option_size)) {
        print_finding(report, Mark::Wrong, "The name is too long: Vesk reads %d characters of it.",
            file_option_size - 1);
    }
    if (check.records == 0) {
        print_finding(report, Mark::Wrong, "%s is empty.", path);
        return;
    }
    if (check.bytes % record_size != 0) {
        print_finding(report, Mark::Wrong,
            "%s is no book in the Polyglot format, or was not copied to its end: its %llu bytes "
            "are "
            "no multiple of %llu.",
            path, static_cast<unsigned long long>(check.bytes),
            static_cast<unsigned long long>(record_size));
    }
    if (check.first_unsorted != 0) {
        print_finding(report, Mark::Wrong,
            "%s is not in order from entry %llu on, so that moves in it are not found.", path,
            static_cast<unsigned long long>(check.first_unsorted));
    }
    if (report->wrong == wrong_before) {
        print_finding(report, Mark::Good, "%s is in order: %llu moves for %llu positions.", path,
            static_cast<unsigned long long>(check.records),
            static_cast<unsigned long long>(check.positions));
        if (!check.start_position) {
            print_finding(report, Mark::Note,
                "It has no move for the start of the game, so that a game may never come to it.");
        }
    }
}

// ---- Weights

void examine_weights(Report* report)
{
    print_heading(report, "Evaluation");
    const WeightsCheck check = check_weights();
    switch (check.state) {
    case WeightsFile::None:
        print_finding(report, Mark::Good,
            "Vesk plays with its own weights: there is no %s in this folder.", check.name);
        return;
    case WeightsFile::Unread:
        print_finding(report, Mark::Wrong,
            "There is a %s in this folder that cannot be read as a file; Vesk plays with its own "
            "weights.",
            check.name);
        return;
    case WeightsFile::Unknown:
        print_finding(report, Mark::Wrong,
            "There is a %s in this folder, and what it does could not be found out.", check.name);
        return;
    case WeightsFile::Used:
        break;
    }
    print_finding(report, Mark::Note,
        "Vesk takes %s from the folder that it is started in. This folder has one: %d of %d "
        "weights are not Vesk's own. To play with those, start it elsewhere or rename the file.",
        check.name, check.differing, check.total);
    if (check.misplaced > 0) {
        print_finding(report, Mark::Wrong,
            "%d lines of it name another weight than the one whose turn it is; the first: %s.",
            check.misplaced, check.first_misplaced);
    }
    if (check.read != check.total) {
        print_finding(
            report, Mark::Wrong, "It sets %d weights, and there are %d.", check.read, check.total);
    }
}

// The word "tables": whether the files of endgame tables are what they should be.
#include "data/tables.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <span>
#include <string>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include "data/arguments.h"
#include "data/blocks.h"
#include "data/progress.h"
#include "data/tables_map.h"
#include "data/words.h"
#include "fathom/tbcore.h"
#include "fathom/tbtable.h"

static constexpr char help_text[] =
    "vesk-data tables, whether the files of endgame tables are sound\n"
    "\n"
    "  vesk-data tables [OPTIONS] PATH...\n"
    "\n"
    "A PATH is what the option SyzygyPath takes: a folder, or several with a colon between them.\n"
    "Its tables are checked together. Or it is one file, which is checked by itself.\n"
    "\n"
    "  --quick      files whose checksum agrees are not decoded\n"
    "  --sample N   positions of each table that are compared with those their moves lead to\n"
    "               (200; 0: none); a tenth of them for their distance too\n"
    "  --seed N     by which they are drawn (1)\n"
    "  --json       all that was found, a member of \"tables\" for each file\n"
    "\n"
    "Of each file: its name, the number it begins with, its header, whether it is as long as the\n"
    "header makes it, the checksum at its end, whether sizes and index of its blocks agree, and\n"
    "whether every block can be decoded. Then, of files that are sound, whether the tables fit\n"
    "together: results to those that captures, promotions and quiet moves lead to, distances to\n"
    "results and to each other. And which tables are missing that others lead to: without them\n"
    "the engine has no answer for many positions.\n"
    "\n"
    "Each file is one job: --jobs N. Tables of seven pieces, which the engine does not read, are\n"
    "checked by their checksum alone, and so is what has a name that no table has.\n"
    "\n"
    "What is wrong:\n"
    "\n"
    "  checksum does not agree          bytes are not as they were written: take the file anew\n"
    "  cut short or too long            as by a download that was not finished\n"
    "  holds another table              a file under the name of another\n"
    "  holds the other file of a table  .rtbw and .rtbz are mixed up\n"
    "  no table inside                  another kind of file, such as a page of a web server\n"
    "  damaged header, damaged index,\n"
    "  block does not decode, bytes between its parts that are not zero\n"
    "  results contradict each other, distances contradict each other\n"
    "                                   tables of different makers, or badly made ones\n"
    "  tables it leads to are missing   and need not be if another folder has them: name both,\n"
    "                                   joined by a colon\n"
    "  no results beside the distances  the .rtbw file is missing: the .rtbz is never used\n"
    "  name of no table                 KRvKQ is called KQvKR; upper and lower case count\n"
    "  changed while it was read        somebody writes to it\n"
    "  path too long for the engine     255 characters with the file's name\n"
    "\n"
    "Members of an element of \"tables\": file, material, pieces, kind (rtbw, rtbz), sound,\n"
    "readable, shadowed (an earlier folder has a file of this name, which is taken), bytes,\n"
    "checksum (agrees, differs, not read), stored_checksum, header (is sound), sections, blocks,\n"
    "values (positions in its index), decoded (every block), positions (compared), missing\n"
    "(tables it leads to), faults of the file itself and set_faults, what else keeps the engine\n"
    "from using it or all of it; each with reason and detail.\n"
    "\n"
    "Status: 0 all files are sound, 1 some are not or cannot be read, 2 wrong command line.";

// Where the files of an argument stand in the list of all.
struct TablePath {
    std::string text;    // as it was given
    bool is_set = false; // folders, not a file
    size_t begin = 0;
    size_t end = 0;
};

struct TablesRun {
    CommonOptions common;
    TablesSettings settings;
    Report report;
    std::vector<TableFile> files;
    std::vector<TablePath> paths;
    i64 done = 0;       // files
    i64 bytes_done = 0; // of the files
};

// ---- Finding files

// Upper and lower case are one here: a file that the engine does not find for its letters is to be
// told of.
static bool has_table_ending(std::string_view name)
{
    return std::ranges::any_of(tb_suffixes, [name](std::string_view suffix) {
        return name.size() >= suffix.size()
            && strncasecmp(name.data() + name.size() - suffix.size(), suffix.data(), suffix.size())
            == 0;
    });
}

static void add_file(TablesRun* run, const std::string& path, const std::string& folder)
{
    TableFile file;
    file.path = path;
    file.folder = folder;
    file.name = path.substr(path.rfind('/') + 1);
    read_table_name(&file);
    run->files.push_back(std::move(file));
}

// Adds the table files of a folder, sorted by name.
static void add_folder(TablesRun* run, const std::string& folder)
{
    DIR* listing = opendir(folder.c_str());
    if (listing == nullptr) {
        fail_file(&run->report, folder, "cannot be opened", errno);
        return;
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = readdir(listing)) {
        if (has_table_ending(entry->d_name)) {
            names.emplace_back(entry->d_name);
        }
        errno = 0;
    }
    if (errno != 0) {
        fail_file(&run->report, folder, "cannot be read to its end", errno);
    }
    closedir(listing);
    std::ranges::sort(names);
    const std::string prefix = folder.ends_with('/') ? folder : folder + '/';
    for (const std::string& name : names) {
        add_file(run, prefix + name, folder);
    }
}

// Marks the files whose name an earlier folder of the same path has.
static void mark_shadowed(TablesRun* run, const TablePath& path)
{
    std::vector<std::string> seen;
    for (size_t i = path.begin; i < path.end; ++i) {
        TableFile* file = &run->files[i];
        const auto place = std::ranges::lower_bound(seen, file->name);
        if (place != seen.end() && *place == file->name) {
            file->shadowed = true;
        } else {
            seen.insert(place, file->name);
        }
    }
}

static void add_path(TablesRun* run, const std::string& text)
{
    TablePath path = { text, true, run->files.size(), 0 };
    const i64 failed = run->report.failed;
    struct stat status;
    if (stat(text.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
        path.is_set = false;
        add_file(run, text, "");
    } else {
        for (size_t begin = 0; begin <= text.size();) {
            const size_t end = std::min(text.find(':', begin), text.size());
            if (end > begin) {
                add_folder(run, text.substr(begin, end - begin));
            }
            begin = end + 1;
        }
    }
    path.end = run->files.size();
    // The name of another folder may be meant: nothing was checked, and that is not sound.
    if (path.begin == path.end && run->report.failed == failed) {
        fail_file(&run->report, text, "holds no table", 0);
    }
    mark_shadowed(run, path);
    run->paths.push_back(path);
}

// ---- Checking

static void tell_faults(TablesRun* run, const TableFile& file, std::span<const Refusal> faults)
{
    for (const Refusal& fault : faults) {
        refuse_item(&run->report, file.path, fault);
    }
}

static void hand_on_file(TablesRun* run, const TableFile& file)
{
    if (file.error != 0) {
        const bool is_regular = file.error != ENOTSUP;
        fail_file(&run->report, file.path, is_regular ? "cannot be read" : "is no regular file",
            is_regular ? file.error : 0);
    }
    tell_faults(run, file, file.faults);
    ++run->done;
    run->bytes_done += static_cast<i64>(file.bytes);
    show_run_progress(&run->report.progress, "files", run->done, run->bytes_done);
}

static void check_all_files(TablesRun* run)
{
    size_t next = 0;
    const auto take = [run, &next](TableFile** file) {
        *file = next < run->files.size() ? &run->files[next++] : nullptr;
        return *file != nullptr;
    };
    const auto work = [run](TableFile** file, TableFile** done) {
        check_table_file(run->settings, *file);
        *done = *file;
    };
    const auto hand_on = [run](TableFile** file) {
        hand_on_file(run, **file);
        return true;
    };
    work_in_order<TableFile*, TableFile*>(run->common.jobs, take, work, hand_on);
}

static bool is_path_short(const TableFile& file)
{
    return file.folder.size() + 1 + file.name.size() < tb_path_size;
}

static void compare_path(TablesRun* run, const TablePath& path)
{
    std::vector<TableFile*> files;
    std::vector<size_t> told;
    for (size_t i = path.begin; i < path.end; ++i) {
        files.push_back(&run->files[i]);
        told.push_back(run->files[i].faults.size());
        if (path.is_set && !is_path_short(run->files[i])) {
            run->files[i].set_faults.push_back({ .reason = fault_folder, .detail = {} });
        }
    }
    if (path.is_set) {
        compare_tables(run->settings, path.text, files, &run->report.progress);
    }
    for (size_t i = 0; i < files.size(); ++i) {
        tell_faults(run, *files[i], std::span(files[i]->faults).subspan(told[i]));
        tell_faults(run, *files[i], files[i]->set_faults);
    }
    const bool is_only_one = run->paths.size() == 1;
    count_tables(&run->report, is_only_one || !path.is_set ? "" : path.text, files);
}

int run_tables(Arguments arguments)
{
    TablesRun run;
    std::vector<std::string> words;
    const WordOption options[] = {
        { .name = "--quick", .flag = &run.settings.quick },
        { .name = "--sample", .whole = &run.settings.sample, .greatest = 1e9 },
        { .name = "--seed", .whole = &run.settings.seed, .greatest = 1e15 },
    };
    if (!read_arguments(arguments, options, &run.common, &words)) {
        return usage_status;
    }
    if (run.common.help) {
        puts(help_text);
        return 0;
    }
    if (words.empty()) {
        return refuse_data_words("tables", "there is no folder to look into");
    }
    if (std::ranges::find(words, "-") != words.end()) {
        return refuse_data_words("tables", "tables cannot come by standard input");
    }
    if (run.common.output != "-") {
        return refuse_data_words("tables", "nothing is made; --report names a file for the report");
    }
    run.report = start_report("tables", run.common);
    for (const std::string& word : words) {
        add_path(&run, word);
    }
    std::vector<std::string> names;
    for (const TableFile& file : run.files) {
        names.push_back(file.path);
    }
    survive_failed_reads();
    start_run_progress(&run.report.progress, run.common, total_size(names), false);
    check_all_files(&run);
    for (const TablePath& path : run.paths) {
        compare_path(&run, path);
    }
    return finish_report(&run.report, run.common, true, tables_as_json(run.files));
}

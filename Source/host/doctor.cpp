// The doctor: looks at all that decides how well the engine runs here, and ends with what to put
// into a chess program.
#include "host/doctor.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/auxv.h>
#include <unistd.h>

#include "base/text.h"
#include "base/version.h"
#include "host/table_check.h"
#include "host/version.h"
#include "host/words.h"

static constexpr i32 most_books = 2; // that the engine asks

struct DoctorWords {
    const char* tables; // null without
    const char* books[most_books];
    i32 book_count;
};

// Both "--tables PATH" and "--tables=PATH". Returns null for another word; missing is set where the
// value is.
static const char* take_value(
    Arguments arguments, size_t* i, std::string_view option, bool* missing)
{
    const std::string_view text = arguments[*i];
    if (!text.starts_with(option)) {
        return nullptr;
    }
    const char* rest = arguments[*i] + option.size();
    if (*rest == '=') {
        *missing = rest[1] == '\0';
        return rest + 1;
    }
    if (*rest != '\0') {
        return nullptr;
    }
    *missing = *i + 1 >= arguments.size() || arguments[*i + 1][0] == '\0';
    return *missing ? "" : arguments[++*i];
}

// Returns 0, or 2 once the user has been told what is wrong.
static int read_words(Arguments arguments, DoctorWords* words)
{
    for (size_t i = 0; i < arguments.size(); ++i) {
        bool missing = false;
        if (const char* path = take_value(arguments, &i, "--tables", &missing)) {
            if (missing) {
                return refuse_words("--tables needs a folder behind it");
            }
            if (words->tables != nullptr) {
                return refuse_words("--tables is there twice; folders have a colon between them");
            }
            words->tables = path;
        } else if (const char* book = take_value(arguments, &i, "--book", &missing)) {
            if (missing) {
                return refuse_words("--book needs a file behind it");
            }
            if (words->book_count == most_books) {
                return refuse_words("there are more than %d books", most_books);
            }
            words->books[words->book_count++] = book;
        } else {
            return refuse_words(
                "doctor knows --tables PATH and --book FILE, not '%s'", arguments[i]);
        }
    }
    return 0;
}

// The path of this program, which the system knows in two places.
static void find_program(char* path, size_t size)
{
    const ssize_t length = readlink("/proc/self/exe", path, size - 1);
    if (length > 0) {
        path[length] = '\0';
        return;
    }
    char whole[PATH_MAX];
    const char* name = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    if (name != nullptr && realpath(name, whole) != nullptr) {
        copy_text(path, size, whole);
    } else {
        copy_text(path, size, "vesk-uci, with the whole path of its folder");
    }
}

// A chess program starts its engine in a folder of its own, so a path must be a whole one. What is
// not there stays as it was written.
static void append_whole_path(TextBuffer* text, const char* path)
{
    char whole[PATH_MAX];
    append_format(text, "%s", realpath(path, whole) != nullptr ? whole : path);
}

static void print_setting(const char* name, const char* value)
{
    print_row("%-16s %s", name, value);
}

static void print_number(const char* name, i32 value)
{
    print_row("%-16s %d", name, value);
}

struct Advice {
    i32 hash;
    i32 threads;
    i32 overhead;
};

static void print_settings(const Report* report, const Advice* settings, const DoctorWords* words)
{
    char buffer[4 * PATH_MAX];
    print_heading(report, "What to put into a chess program");
    find_program(buffer, PATH_MAX);
    print_setting("Program", buffer);
    print_setting("Protocol", "UCI; no words or parameters behind the program");
    print_number("Threads", settings->threads);
    print_number("Hash", settings->hash);
    print_number("Move Overhead", settings->overhead);
    if (words->tables != nullptr) {
        TextBuffer text = { buffer };
        buffer[0] = '\0';
        char folder[PATH_MAX];
        for (const char* rest = words->tables; next_folder(&rest, folder, sizeof folder);) {
            append_format(&text, "%s", text.used > 0 ? ":" : "");
            append_whole_path(&text, folder);
        }
        print_setting("SyzygyPath", buffer);
    } else {
        print_setting("SyzygyPath",
            "the folders of your endgame tables, if you have any (doctor --tables PATH)");
    }
    static constexpr const char* book_options[most_books] = { "OwnBook_File", "OwnBook2_File" };
    for (i32 i = 0; i < words->book_count; ++i) {
        TextBuffer text = { buffer };
        append_whole_path(&text, words->books[i]);
        if (i == 0) {
            print_setting("OwnBook", "on");
        }
        print_setting(book_options[i], buffer);
    }
}

int run_doctor(Arguments arguments)
{
    DoctorWords words = {};
    if (const int status = read_words(arguments, &words); status != 0) {
        return status;
    }
    Report report = start_report();
    printf("%s, built for %s by %s, commit %s\n", version_string, build_level, build_compiler,
        build_commit);
    Advice settings = {};
    examine_processor(&report);
    settings.hash = examine_memory(&report);
    settings.threads = examine_threads(&report);
    settings.overhead = examine_clock(&report);
    if (words.tables != nullptr) {
        examine_tables(&report, words.tables);
    }
    for (i32 i = 0; i < words.book_count; ++i) {
        examine_book(&report, words.books[i]);
    }
    examine_weights(&report);
    print_settings(&report, &settings, &words);
    if (report.wrong > 0) {
        printf("\n%d thing%s wrong, marked above.\n", report.wrong,
            report.wrong == 1 ? " is" : "s are");
    } else {
        puts("\nAll is well.");
    }
    return finish_output(report.wrong > 0 ? 1 : 0);
}

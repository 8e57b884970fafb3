// The layout of the doctor's report.
#include "host/doctor_report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

static constexpr i32 widest = 96;
static constexpr i32 narrowest = 40;
static constexpr i32 usual_width = 80;
static constexpr i32 indent = 9; // of a finding's text, behind its mark
static constexpr size_t finding_size = 4096;

// By mark: its word and its colour.
static constexpr const char* mark_words[] = { "ok", "note", "wrong" };
static constexpr const char* mark_colours[] = { "\033[32m", "\033[33m", "\033[31m" };

Report start_report()
{
    Report report = {};
    if (isatty(STDOUT_FILENO) == 0) {
        return report;
    }
    winsize size = {};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    report.width =
        std::clamp(known ? static_cast<i32>(size.ws_col) : usual_width, narrowest, widest);
    const char* terminal = getenv("TERM");
    report.coloured =
        getenv("NO_COLOR") == nullptr && terminal != nullptr && strcmp(terminal, "dumb") != 0;
    return report;
}

void print_heading(const Report* report, const char* text)
{
    printf(report->coloured ? "\n\033[1m%s\033[0m\n" : "\n%s\n", text);
}

// Prints a text whose first line goes on behind column indent. A word longer than a line stands on
// one of its own.
static void print_broken(std::string_view text, i32 width)
{
    i32 column = indent;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        const i32 length = static_cast<i32>(word.size());
        if (column > indent && width > 0 && column + 1 + length >= width) {
            printf("\n%*s", indent, "");
            column = indent;
        } else if (column > indent) {
            putchar(' ');
            ++column;
        }
        printf("%.*s", length, word.data());
        column += length;
    }
    putchar('\n');
}

void print_finding(Report* report, Mark mark, const char* format, ...)
{
    char text[finding_size];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    for (char* c = text; *c != '\0'; ++c) {
        const u8 byte = static_cast<u8>(*c);
        *c = byte < ' ' || byte == 0x7f ? '?' : *c; // bytes above are letters of other alphabets
    }
    report->wrong += mark == Mark::Wrong ? 1 : 0;
    const i32 index = static_cast<i32>(mark);
    if (report->coloured) {
        printf("  %s%-5s\033[0m  ", mark_colours[index], mark_words[index]);
    } else {
        printf("  %-5s  ", mark_words[index]);
    }
    print_broken(text, report->width);
}

void print_row(const char* format, ...)
{
    printf("%*s", indent, "");
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    putchar('\n');
}

// Counting and telling.
#include "data/report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/files.h"
#include "data/places.h"

Report start_report(std::string_view word, const CommonOptions& common)
{
    Report report;
    report.word = word;
    report.max_messages = common.max_messages;
    return report;
}

static CountGroup* find_group(Report* report, std::string_view name)
{
    const auto found = std::ranges::find(report->groups, name, &CountGroup::name);
    if (found != report->groups.end()) {
        return &*found;
    }
    return &report->groups.emplace_back(CountGroup { std::string(name), {} });
}

void add_count(Report* report, std::string_view group, std::string_view name, i64 value)
{
    std::vector<Count>& counts = find_group(report, group)->counts;
    const auto found = std::ranges::find(counts, name, &Count::name);
    if (found != counts.end()) {
        found->value += value;
    } else {
        counts.push_back({ std::string(name), value });
    }
}

// The length of the UTF-8 character at the start of text, 0 if there is none: RFC 3629.
static size_t character_length(std::string_view text)
{
    const auto byte = [&](size_t i) { return static_cast<u8>(i < text.size() ? text[i] : 0); };
    const auto follows = [&](size_t i) { return (byte(i) & 0xc0) == 0x80; };
    const u8 first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xc2 && first <= 0xdf) {
        return follows(1) ? 2 : 0;
    }
    if (first >= 0xe0 && first <= 0xef) {
        const bool overlong = first == 0xe0 && byte(1) < 0xa0;
        const bool surrogate = first == 0xed && byte(1) > 0x9f;
        return follows(1) && follows(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (first >= 0xf0 && first <= 0xf4) {
        const bool overlong = first == 0xf0 && byte(1) < 0x90;
        const bool beyond = first == 0xf4 && byte(1) > 0x8f;
        return follows(1) && follows(2) && follows(3) && !overlong && !beyond ? 4 : 0;
    }
    return 0;
}

// Whether a terminal may take a character for a command: the controls of ASCII and, as two bytes of
// UTF-8, those of ISO 6429 from U+0080 to U+009F.
static bool is_control(std::string_view character)
{
    const u8 first = static_cast<u8>(character[0]);
    return first < 0x20 || first == 0x7f || (first == 0xc2 && static_cast<u8>(character[1]) < 0xa0);
}

// What a file holds may stand in a message: ? stands for what might command a terminal, and for
// bytes that are no UTF-8.
static void print_safely(std::string_view text)
{
    std::string safe;
    while (!text.empty()) {
        const size_t length = character_length(text);
        const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
        safe += length == 0 || is_control(character) ? "?" : character;
        text.remove_prefix(character.size());
    }
    fwrite(safe.data(), 1, safe.size(), stderr); // at once: the stream has no buffer
}

static void append_member(std::string* json, std::string_view name, std::string_view text)
{
    *json += ',';
    append_json_string(json, name);
    *json += ':';
    append_json_string(json, text);
}

// Adds to the list for scripts what is told of a file; kind tells whether it was refused.
static void list_message(
    Report* report, std::string_view kind, std::string_view file, const Refusal& what)
{
    if (report->messages.size() > most_message_bytes) {
        return;
    }
    std::string* json = &report->messages;
    *json += json->empty() ? "{\"kind\":" : ",{\"kind\":";
    append_json_string(json, kind);
    append_member(json, "file", file);
    if (what.line > 0) {
        *json += ",\"line\":" + std::to_string(what.line);
    }
    if (what.entry > 0) {
        *json += ",\"entry\":" + std::to_string(what.entry);
    }
    append_member(json, "reason", what.reason);
    if (!what.detail.empty()) {
        append_member(json, "detail", what.detail);
    }
    *json += '}';
}

// Tells of a refusal or a note unless enough have been told; told counts those of its kind.
static void tell_item(
    Report* report, std::string_view kind, i64* told, std::string_view file, const Refusal& refusal)
{
    if (*told == report->max_messages) {
        return;
    }
    hide_run_progress(&report->progress);
    ++*told;
    list_message(report, kind, file, refusal);
    print_safely(file);
    if (refusal.line > 0) {
        fprintf(stderr, ":%lld", static_cast<long long>(refusal.line));
    }
    fputs(": ", stderr);
    if (refusal.entry > 0) {
        fprintf(stderr, "entry %lld: ", static_cast<long long>(refusal.entry));
    }
    print_safely(refusal.reason);
    if (!refusal.detail.empty()) {
        fputs(": ", stderr);
        print_safely(refusal.detail);
    }
    fputc('\n', stderr);
    if (*told == report->max_messages && report->max_messages > 0) {
        fprintf(stderr, "what else is %.*s is only counted; --max-messages tells more\n",
            static_cast<int>(kind.size()), kind.data());
    }
}

void refuse_item(Report* report, std::string_view file, const Refusal& refusal)
{
    if (report->keeps) {
        report->kept.push_back({ Telling::Refused, std::string(file), refusal });
        return;
    }
    ++report->refused;
    add_count(report, "refused", refusal.reason);
    tell_item(report, "refused", &report->told, file, refusal);
}

void note_item(Report* report, std::string_view file, const Refusal& refusal)
{
    if (report->keeps) {
        report->kept.push_back({ Telling::Noted, std::string(file), refusal });
        return;
    }
    add_count(report, "noted", refusal.reason);
    tell_item(report, "noted", &report->told_notes, file, refusal);
}

void fail_file(Report* report, std::string_view file, std::string_view what, int error)
{
    if (report->keeps) {
        report->kept.push_back({ Telling::Failed, std::string(file),
            { .reason = std::string(what), .detail = {} }, error });
        return;
    }
    hide_run_progress(&report->progress);
    ++report->failed;
    const char* detail = error != 0 ? strerror(error) : "";
    list_message(report, "failed", file, { .reason = std::string(what), .detail = detail });
    print_safely(file);
    fputs(": ", stderr);
    print_safely(what);
    if (error != 0) {
        fprintf(stderr, ": %s", detail);
    }
    fputc('\n', stderr);
}

void tell_kept(Report* report, std::vector<Telling>* kept)
{
    for (const Telling& telling : *kept) {
        switch (telling.kind) {
        case Telling::Refused:
            refuse_item(report, telling.file, telling.what);
            break;
        case Telling::Noted:
            note_item(report, telling.file, telling.what);
            break;
        case Telling::Failed:
            fail_file(report, telling.file, telling.what.reason, telling.error);
        }
    }
    kept->clear();
}

bool is_utf8(std::string_view text)
{
    while (!text.empty()) {
        const size_t length = character_length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

void append_json_string(std::string* json, std::string_view text)
{
    json->push_back('"');
    while (!text.empty()) {
        const size_t length = character_length(text);
        const char c = text.front();
        if (length == 0) {
            json->append("\xef\xbf\xbd");
        } else if (static_cast<u8>(c) < 0x20 || c == 0x7f) {
            char escape[8];
            snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(static_cast<u8>(c)));
            json->append(escape);
        } else {
            if (c == '"' || c == '\\') {
                json->push_back('\\');
            }
            json->append(text.substr(0, length));
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    json->push_back('"');
}

static std::string report_as_json(const Report& report, std::string_view extra)
{
    std::string json = "{\"word\":";
    append_json_string(&json, report.word);
    json += ",\"refusals\":" + std::to_string(report.refused);
    json += ",\"failed_files\":" + std::to_string(report.failed);
    for (const CountGroup& group : report.groups) {
        json += ',';
        append_json_string(&json, group.name);
        json += ":{";
        for (size_t i = 0; i < group.counts.size(); ++i) {
            json += i > 0 ? "," : "";
            append_json_string(&json, group.counts[i].name);
            json += ':' + std::to_string(group.counts[i].value);
        }
        json += '}';
    }
    json += ",\"messages\":[" + report.messages + ']';
    if (!extra.empty()) {
        json += ',';
        json += extra;
    }
    return json + "}\n";
}

static std::string report_as_table(const Report& report)
{
    size_t width = 0;
    for (const CountGroup& group : report.groups) {
        for (const Count& count : group.counts) {
            width = std::max(width, count.name.size());
        }
    }
    std::string table;
    for (const CountGroup& group : report.groups) {
        table += group.name + '\n';
        for (const Count& count : group.counts) {
            const std::string value = std::to_string(count.value);
            table += "  " + count.name + std::string(width - count.name.size() + 2, ' ');
            table += std::string(value.size() < 12 ? 12 - value.size() : 0, ' ') + value + '\n';
        }
    }
    return table;
}

// Opens what the user has named for the report: a device or a pipe is written to, a file replaced.
static int open_report(FILE** file, const char* name)
{
    if (!is_plain_place(name)) {
        *file = open_place(name);
        return *file == nullptr ? errno : 0;
    }
    return open_new_file(file, name);
}

// Standard output is for what the word makes. Only where it makes nothing, or makes it elsewhere,
// or the user wants it there, is the report found there.
int finish_report(
    Report* report, const CommonOptions& common, bool is_output_free, std::string_view extra)
{
    hide_run_progress(&report->progress);
    const std::string text =
        common.json ? report_as_json(*report, extra) : report_as_table(*report);
    const bool is_named = !common.report.empty() && common.report != "-";
    const bool is_output = is_output_free || common.report == "-";
    FILE* file = is_output ? stdout : stderr;
    const char* name = is_output ? "standard output" : "standard error";
    if (is_named) {
        name = common.report.c_str();
        const int error = open_report(&file, name);
        if (error != 0) {
            fail_file(report, name, "cannot be opened for writing", error);
            return 1;
        }
    }
    fwrite(text.data(), 1, text.size(), file);
    const int error = is_named ? close_written_file(file) : flush_written_file(file);
    if (error != 0) {
        fail_file(report, name, "cannot be written", error);
    }
    return report->refused > 0 || report->failed > 0 ? 1 : 0;
}

// What "tables" tells: counts by number of pieces, and an object of JSON for each file.
#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data/tables.h"
#include "fathom/tbnames.h"
#include "fathom/tbtable.h"

static i64 count_names(i32 pieces)
{
    i64 count = 0;
    tb_visit_names(
        pieces, [](const char* /*name*/, void* context) { ++*static_cast<i64*>(context); }, &count);
    return count;
}

static void count_pieces(
    Report* report, const std::string& group, i32 pieces, std::span<TableFile* const> files)
{
    static constexpr const char* kinds[tb_kinds] = { "results", "distances" };
    for (const TbKind kind : { TbWdlFile, TbDtzFile }) {
        const std::string name = kinds[kind];
        const i64 all = count_names(pieces);
        i64 found = 0;
        for (const TableFile* file : files) {
            if (file->pieces != pieces || file->kind != kind || file->shadowed) {
                continue;
            }
            ++found;
            add_count(report, group, name + ", sound", is_sound(*file) ? 1 : 0);
            add_count(report, group, name + ", bytes", static_cast<i64>(file->bytes));
        }
        add_count(report, group, name + ", missing", all - found);
    }
}

// A number of pieces of which there is no file is passed over.
void count_tables(Report* report, std::string_view path, std::span<TableFile* const> files)
{
    for (const TableFile* file : files) {
        add_count(report, "files", "all");
        add_count(report, "files", "sound", is_sound(*file) ? 1 : 0);
        add_count(
            report, "files", "checksum agrees", file->checksum == ChecksumState::Agrees ? 1 : 0);
        add_count(report, "files", "all blocks decoded", file->decoded ? 1 : 0);
        add_count(report, "files", "in the shade of an earlier folder", file->shadowed ? 1 : 0);
        add_count(report, "files", "positions compared", file->positions);
    }
    for (i32 pieces = tb_fewest_named; pieces <= tb_most_named; ++pieces) {
        const auto has_so_many = [pieces](const TableFile* file) { return file->pieces == pieces; };
        if (std::ranges::any_of(files, has_so_many)) {
            std::string group = std::to_string(pieces) + " pieces";
            group += path.empty() ? "" : " in " + std::string(path);
            count_pieces(report, group, pieces, files);
        }
    }
}

// ---- JSON

static void append_member(std::string* json, std::string_view name, std::string_view text)
{
    append_json_string(json, name);
    *json += ':';
    append_json_string(json, text);
    *json += ',';
}

static void append_number(std::string* json, std::string_view name, u64 value)
{
    append_json_string(json, name);
    *json += ':' + std::to_string(value) + ',';
}

static void append_truth(std::string* json, std::string_view name, bool value)
{
    append_json_string(json, name);
    *json += value ? ":true," : ":false,";
}

// Takes the comma behind the last member or element away and closes with this.
static void close_list(std::string* json, char end)
{
    if (json->back() == ',') {
        json->pop_back();
    }
    *json += end;
}

static void append_faults(
    std::string* json, std::string_view name, const std::vector<Refusal>& faults)
{
    append_json_string(json, name);
    *json += ":[";
    for (const Refusal& fault : faults) {
        *json += '{';
        append_member(json, "reason", fault.reason);
        append_member(json, "detail", fault.detail);
        close_list(json, '}');
        *json += ',';
    }
    close_list(json, ']');
}

static void append_file(std::string* json, const TableFile& file)
{
    static constexpr const char* states[] = { "not read", "agrees", "differs" };
    *json += '{';
    append_member(json, "file", file.path);
    append_member(json, "material", file.material);
    append_number(json, "pieces", static_cast<u64>(file.pieces));
    append_member(json, "kind", tb_suffixes[file.kind] + 1);
    append_truth(json, "sound", is_sound(file));
    append_truth(json, "readable", file.error == 0);
    append_truth(json, "shadowed", file.shadowed);
    append_number(json, "bytes", file.bytes);
    append_member(json, "checksum", states[static_cast<i32>(file.checksum)]);
    append_member(json, "stored_checksum", file.stored);
    append_truth(json, "header", file.has_header);
    append_number(json, "sections", file.sections);
    append_number(json, "blocks", file.blocks);
    append_number(json, "values", file.values);
    append_truth(json, "decoded", file.decoded);
    append_number(json, "positions", static_cast<u64>(file.positions));
    *json += "\"missing\":[";
    for (const std::string& name : file.missing) {
        append_json_string(json, name);
        *json += ',';
    }
    close_list(json, ']');
    *json += ',';
    append_faults(json, "faults", file.faults);
    *json += ',';
    append_faults(json, "set_faults", file.set_faults);
    *json += '}';
}

std::string tables_as_json(const std::vector<TableFile>& files)
{
    std::string json = "\"tables\":[";
    for (const TableFile& file : files) {
        append_file(&json, file);
        json += ',';
    }
    close_list(&json, ']');
    return json;
}

// What the parts of the word "tables" share: the record of a file, and the steps of a run.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "data/report.h"
#include "fathom/tbheader.h"

// Classes of what is wrong with a file.
inline constexpr const char* fault_name = "name of no table";
inline constexpr const char* fault_no_table = "no table inside";
inline constexpr const char* fault_other_kind = "holds the other file of a table";
inline constexpr const char* fault_other_table = "holds another table";
inline constexpr const char* fault_header = "damaged header";
inline constexpr const char* fault_length = "cut short or too long";
inline constexpr const char* fault_checksum = "checksum does not agree";
inline constexpr const char* fault_index = "damaged index";
inline constexpr const char* fault_block = "block does not decode";
inline constexpr const char* fault_gap = "bytes between its parts that are not zero";
inline constexpr const char* fault_changed = "changed while it was read";
inline constexpr const char* fault_result = "results contradict each other";
inline constexpr const char* fault_distance = "distances contradict each other";
inline constexpr const char* fault_alone = "no results beside the distances";
inline constexpr const char* fault_missing = "tables it leads to are missing";
inline constexpr const char* fault_folder = "path too long for the engine";

enum class ChecksumState : u8 { NotRead, Agrees, Differs };

// One file and what was found.
struct TableFile {
    std::string path;
    std::string folder;   // as given; empty for a file that was named itself
    std::string name;     // of the file
    std::string material; // by its name, such as "KQvKR"; empty if that is none
    TbKind kind = TbWdlFile;
    i32 pieces = 0;
    bool shadowed = false; // an earlier folder has a file of this name, which the engine takes
    int error = 0;         // errno where it could not be read; then nothing below is known
    u64 bytes = 0;
    std::string stored; // the checksum in it, in hexadecimal digits
    ChecksumState checksum = ChecksumState::NotRead;
    bool has_header = false; // the header was read and is sound
    u64 sections = 0;
    u64 blocks = 0;
    u64 values = 0;
    bool decoded = false;             // every block was
    i64 positions = 0;                // that were compared
    std::vector<Refusal> faults;      // of the file itself
    std::vector<std::string> missing; // tables that it leads to
    std::vector<Refusal> set_faults;  // what keeps a sound file from being of full use
};

[[nodiscard]] inline bool is_sound(const TableFile& file)
{
    return file.error == 0 && file.faults.empty();
}

// Adds what is wrong with a file.
void add_fault(TableFile* file, const char* reason, std::string detail);

struct TablesSettings {
    bool quick = false; // blocks of a file whose checksum agrees are not decoded
    i64 sample = 200;   // positions of a table that are compared with those their moves lead to
    i64 seed = 1;       // by which they are drawn
};

// Fills in what the file's name tells. Upper and lower case count.
void read_table_name(TableFile* file);

// Checks one file by itself. Several threads may do so.
void check_table_file(const TablesSettings& settings, TableFile* file);

// Compares the tables of one path with each other, files being all those that were found there, by
// the engine's own routines: which are missing, and whether values, on a sample, fit together.
// folders as the engine gets them, separated by ':'. The comparison is a stage of its own of
// progress.
void compare_tables(const TablesSettings& settings, const std::string& folders,
    std::span<TableFile* const> files, RunProgress* progress);

// The tables that those of a material lead to by one capture or promotion, bare kings not among
// them; names in their usual form.
[[nodiscard]] std::vector<std::string> tables_below(std::string_view material);

// Counts by number of pieces for the report, and everything for its JSON.
void count_tables(Report* report, std::string_view path, std::span<TableFile* const> files);
[[nodiscard]] std::string tables_as_json(const std::vector<TableFile>& files);

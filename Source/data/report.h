// What a run tells of itself: refusals as they come, and at the end its counts, as a table for
// people or as JSON for scripts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/types.h"
#include "data/arguments.h"
#include "data/progress.h"

// Something that was refused.
struct Refusal {
    i64 line = 0;       // in its file, the first is 1; 0 where lines mean nothing
    std::string reason; // a short class of refusals, counted as one: "no such move"
    std::string detail; // what of this one, may be empty: "Nf9"
    i64 entry = 0;      // in a file of records, the first is 1; 0 where there are lines
};

// A line of the closing table.
struct Count {
    std::string name;
    i64 value;
};

// Something that is to be told of a file when its turn comes.
struct Telling {
    enum Kind : u8 { Refused, Noted, Failed } kind = Refused;
    std::string file;
    Refusal what;  // of a failed file only the reason
    int error = 0; // of a failed file, an errno or 0
};

// Counts that belong together, under a heading; in JSON an object of that name.
struct CountGroup {
    std::string name;
    std::vector<Count> counts; // in the order of their first mention
};

// The report of a run. Kept by one thread: what others find reaches it in the order of the input.
struct Report {
    std::string word;
    i64 max_messages = 0;
    i64 told = 0;       // refusals told singly
    i64 told_notes = 0; // and notes
    i64 refused = 0;    // all of them
    i64 failed = 0;     // files that could not be read or written
    std::vector<CountGroup> groups;
    std::string messages; // what was told singly, each an object of JSON, commas between them
    RunProgress progress;
    bool keeps = false; // all that is told waits in kept, and nothing is counted
    std::vector<Telling> kept;
};

// Starts the report of a word. Of refusals and of notes as many are told singly as the options
// want, each for itself: else what is only worth knowing would hide what is wrong.
[[nodiscard]] Report start_report(std::string_view word, const CommonOptions& common);

// The report lists for scripts what it told singly, as long as that takes up no more than this.
inline constexpr size_t most_message_bytes = 16 << 20;

// Adds to a count, which begins with 0 when it is named first.
void add_count(Report* report, std::string_view group, std::string_view name, i64 value = 1);

// Counts a refusal by its reason in the group "refused", and tells of it on standard error as
// "FILE:LINE: REASON: DETAIL", or "FILE: entry ENTRY: REASON: DETAIL", unless enough have been
// told.
void refuse_item(Report* report, std::string_view file, const Refusal& refusal);

// The same for what is used all the same and only worth knowing: counted in the group "noted", and
// no reason for the status to be 1.
void note_item(Report* report, std::string_view file, const Refusal& refusal);

// Counts and tells of a file that cannot be read or written; error is an errno, or 0 where what
// says it all.
void fail_file(Report* report, std::string_view file, std::string_view what, int error);

// Tells what another report has kept, in its order, and empties the list. Who reads ahead of the
// results keeps what is to be told until the results before it have been handed on, so that the
// order, and what --max-messages leaves out, is the same for any number of jobs.
void tell_kept(Report* report, std::vector<Telling>* kept);

// Ends the run: the report goes where the options want it, and what is returned is the status of
// the process. is_output_free tells whether standard output holds nothing else. extra is put into
// the JSON object as it stands, members with a comma between them; empty for none.
[[nodiscard]] int finish_report(
    Report* report, const CommonOptions& common, bool is_output_free, std::string_view extra = {});

// Whether text is UTF-8 as a whole (RFC 3629).
[[nodiscard]] bool is_utf8(std::string_view text);

// Adds text as a string of JSON, quoted. Bytes that are no UTF-8 become U+FFFD.
void append_json_string(std::string* json, std::string_view text);

// Runs that fit into memory are sorted one by one, then merged.
#include "data/book_sort.h"

#include <algorithm>
#include <cstdio>
#include <queue>
#include <string>
#include <utility>
#include <vector>

#include "book/polyglot.h"
#include "book/scan.h"

static constexpr u64 usual_run = 1 << 21;      // 48 MB of them
static constexpr size_t merged_at_once = 4096; // records of a run that are in memory while merging

struct NumberedEntry {
    BookEntry entry;
    u64 number;
};

// By key, the highest weight first, then as they stood.
static bool stands_before(const NumberedEntry& a, const NumberedEntry& b)
{
    const int order = book_entry_compare(&a.entry, &b.entry);
    return order != 0 ? order < 0 : a.number < b.number;
}

// A sorted run in the file of runs.
struct SortedRun {
    u64 next; // index of its next record in the file
    u64 end;
    size_t used = 0;
    std::vector<NumberedEntry> block;
};

static bool write_sorted(std::vector<NumberedEntry>* run, FILE* out)
{
    std::ranges::sort(*run, stands_before);
    return fwrite(run->data(), sizeof(NumberedEntry), run->size(), out) == run->size();
}

static bool write_runs(
    const BookFile& book, u64 run_records, FILE* out, std::vector<SortedRun>* runs, Report* report)
{
    BookCursor cursor = make_cursor(book);
    std::vector<NumberedEntry> run;
    run.reserve(std::min(run_records, book.count));
    u64 written = 0;
    BookEntry entry;
    bool more = true;
    while (more) {
        more = next_entry(&cursor, &entry);
        if (more) {
            run.push_back({ entry, cursor.next });
        }
        if (run.size() == run_records || (!more && !run.empty())) {
            runs->push_back({ written, written + run.size(), 0, {} });
            written += run.size();
            if (!write_sorted(&run, out)) {
                break;
            }
            run.clear();
        }
    }
    return flush_nameless(out, report) && check_cursor(cursor, report);
}

// Makes the next record of a run stand at its place in block. Returns false at the run's end.
static bool fill_run(SortedRun* run, FILE* file)
{
    if (run->used < run->block.size()) {
        return true;
    }
    run->used = 0;
    run->block.resize(std::min<u64>(merged_at_once, run->end - run->next));
    const size_t size = run->block.size() * sizeof(NumberedEntry);
    const i64 offset = static_cast<i64>(run->next * sizeof(NumberedEntry));
    run->block.resize(read_at(file, offset, run->block.data(), size) / sizeof(NumberedEntry));
    run->next += run->block.size();
    return !run->block.empty();
}

static void merge_runs(
    std::vector<SortedRun>* runs, FILE* from, FILE* records, FILE* numbers, RunProgress* progress)
{
    using Head = std::pair<NumberedEntry, size_t>; // of a run
    const auto comes_later = [](const Head& a, const Head& b) {
        return stands_before(b.first, a.first);
    };
    std::priority_queue<Head, std::vector<Head>, decltype(comes_later)> heads(comes_later);
    const auto push_head = [&](size_t i) {
        SortedRun* run = &(*runs)[i];
        if (fill_run(run, from)) {
            heads.push({ run->block[run->used++], i });
        }
    };
    for (size_t i = 0; i < runs->size(); ++i) {
        push_head(i);
    }
    start_progress_stage(progress, static_cast<i64>(runs->empty() ? 0 : runs->back().end));
    u64 written = 0;
    while (!heads.empty()) {
        const Head head = heads.top();
        heads.pop();
        write_book_entry(records, &head.first.entry);
        fwrite(&head.first.number, sizeof head.first.number, 1, numbers);
        push_head(head.second);
        show_stage_progress(progress, "entries sorted", ++written);
    }
}

bool sort_book(BookFile* book, u64 run_records, Report* report)
{
    const OwnedFile runs_file = open_nameless_file(report);
    OwnedFile records = open_nameless_file(report);
    OwnedFile numbers = open_nameless_file(report);
    if (runs_file == nullptr || records == nullptr || numbers == nullptr) {
        return false;
    }
    std::vector<SortedRun> runs;
    if (!write_runs(*book, run_records, runs_file.get(), &runs, report)) {
        return false;
    }
    merge_runs(&runs, runs_file.get(), records.get(), numbers.get(), &report->progress);
    if (!flush_nameless(records.get(), report) || !flush_nameless(numbers.get(), report)) {
        return false;
    }
    book->file = std::move(records);
    book->numbers = std::move(numbers);
    return true;
}

// Goes through the records as they stand.
static bool scan_order(BookFile* book, OrderTelling telling, Report* report)
{
    BookScan scan = {};
    BookCursor cursor = make_cursor(*book);
    BookEntry entry;
    start_progress_stage(&report->progress, static_cast<i64>(book->count));
    while (next_entry(&cursor, &entry)) {
        show_stage_progress(&report->progress, "entries read", cursor.next);
        const BookOrder order = scan_book_entry(&scan, entry);
        if (order == BookOrder::Sorted) {
            continue;
        }
        const bool by_key = order == BookOrder::LowerKey;
        ++(by_key ? book->unsorted : book->unsorted_weights);
        if (telling == OrderTelling::EachEntry) {
            refuse_item(report, book->name,
                { .reason = by_key ? "lower key than the entry before"
                                   : "higher weight than the entry before of its position",
                    .detail = "",
                    .entry = static_cast<i64>(scan.records) });
        }
    }
    return check_cursor(cursor, report);
}

bool open_book(BookFile* book, const std::string& name, OrderTelling telling, Report* report)
{
    if (!open_unsorted_book(book, name, report) || !scan_order(book, telling, report)) {
        return false;
    }
    if (book->unsorted == 0 && book->unsorted_weights == 0) {
        return true;
    }
    if (telling == OrderTelling::OncePerFile) {
        note_item(report, book->name,
            { .reason = "not in order, sorted for this run",
                .detail = std::to_string(book->unsorted) + " entries by key, "
                    + std::to_string(book->unsorted_weights) + " by weight" });
    }
    return sort_book(book, usual_run, report);
}

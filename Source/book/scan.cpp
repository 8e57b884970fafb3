// The order of a book's records, as the engine's search by halving needs it.
#include "book/scan.h"

static constexpr u64 start_key = 0x463b96181691fc9c; // of the position before the first move

BookOrder scan_book_entry(BookScan* scan, const BookEntry& entry)
{
    const bool is_first = scan->records == 0;
    const BookEntry last = scan->last;
    scan->last = entry;
    ++scan->records;
    scan->positions += is_first || entry.key != last.key ? 1 : 0;
    scan->start_position |= entry.key == start_key;
    if (is_first || entry.key > last.key) {
        return BookOrder::Sorted;
    }
    if (entry.key == last.key) {
        return entry.weight > last.weight ? BookOrder::HigherWeight : BookOrder::Sorted;
    }
    if (scan->first_unsorted == 0) {
        scan->first_unsorted = scan->records;
    }
    return BookOrder::LowerKey;
}

// Making the record of a search thread: the pointers that a zeroed record lacks. They point into
// the record itself, so a copy of a record is not one that can be searched with.
#include "search/thread.h"

#include <new>
#include <type_traits>

#include "base/pages.h"

// A whole huge page at least, or the system would not give one. What of it lies behind the record
// is the price: some hundred kilobytes for each thread.
static constexpr size_t record_bytes =
    (sizeof(SearchThread) + huge_page - 1) / huge_page * huge_page;
static_assert(std::is_trivially_destructible_v<SearchThread>);

SearchThread* new_thread_record(i32 thread_id)
{
    void* block = map_pages(record_bytes);
    if (block == nullptr) {
        return nullptr;
    }
    SearchThread* thread = new (block) SearchThread();
    thread->thread_id = static_cast<i8>(thread_id);
    thread->ply = 1;
    thread->move_store_base = thread->move_store;
    thread->pos.thread = thread;
    thread->pos.stack = thread;
    thread->pos.ep_square = NoSquare;
    thread->eval_work.pos = &thread->pos;
    thread->eval_work.state = thread;
    // Of use in the tuning build: the console's record evaluates for the sake of the terms.
    thread->fills_coef = thread_id < 0;
    init_move_lists(thread);
    return thread;
}

void delete_thread_record(SearchThread* thread)
{
    if (thread != nullptr) {
        unmap_pages(thread, record_bytes);
    }
}

// Two lists of no move, one behind the other: the moves of ply 1 will be put over the second.
void init_move_lists(SearchThread* thread)
{
    for (i32 ply = 0; ply < 2; ++ply) {
        thread->move_store[ply].move = EndOfList;
        thread->ply_rec[ply].list_start = &thread->move_store[ply];
        thread->ply_rec[ply].list_cursor = &thread->move_store[ply];
    }
}

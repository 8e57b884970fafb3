// Making the record of a search thread.
#include "search/thread.h"

#include <new>

SearchThread* new_thread_record(i32 thread_id)
{
    SearchThread* thread = new (std::nothrow) SearchThread();
    if (thread == nullptr) {
        return nullptr;
    }
    thread->thread_id = static_cast<i8>(thread_id);
    thread->ply = 1;
    thread->move_store_base = thread->move_store;
    thread->pos.thread = thread;
    thread->pos.stack = thread;
    thread->pos.ep_square = NoSquare;
    thread->eval_work.pos = &thread->pos;
    thread->eval_work.state = thread;
    thread->fills_coef = thread_id < 0;
    init_move_lists(thread);
    return thread;
}

void init_move_lists(SearchThread* thread)
{
    for (i32 ply = 0; ply < 2; ++ply) {
        thread->move_store[ply].move = EndOfList;
        thread->ply_rec[ply].list_start = &thread->move_store[ply];
        thread->ply_rec[ply].list_cursor = &thread->move_store[ply];
    }
}

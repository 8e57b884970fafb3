// Work on pieces of an input by several threads, with the results in the order of the pieces.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "base/types.h"

// Takes pieces by take(Piece*), which returns false when there are no more, turns each into a
// result by work(Piece*, Result*) on one of `jobs` threads, and hands the results in the order of
// the pieces to hand_on(Result*), which returns false to end the run early. take and hand_on are
// called by the caller's thread alone; work is called by several at once and touches nothing that
// they share. With one job all is done by the caller's thread. No more than four pieces a job are
// held at a time.
template <typename Piece, typename Result, typename Take, typename Work, typename HandOn>
void work_in_order(i64 jobs, Take take, Work work, HandOn hand_on)
{
    if (jobs <= 1) {
        Piece piece;
        while (take(&piece)) {
            Result result;
            work(&piece, &result);
            if (!hand_on(&result)) {
                return;
            }
            piece = Piece();
        }
        return;
    }

    struct Slot {
        Piece piece;
        Result result;
        bool done = false;
    };
    std::mutex mutex;
    std::condition_variable wanted;   // there is a piece, or there will be none
    std::condition_variable finished; // a result is there
    std::deque<Slot> slots;           // a deque keeps its members where they are
    std::deque<Slot*> waiting;
    bool ended = false;

    const auto serve = [&] {
        std::unique_lock lock(mutex);
        for (;;) {
            wanted.wait(lock, [&] { return ended || !waiting.empty(); });
            if (waiting.empty()) {
                return;
            }
            Slot* slot = waiting.front();
            waiting.pop_front();
            lock.unlock();
            work(&slot->piece, &slot->result);
            lock.lock();
            slot->done = true;
            finished.notify_one();
        }
    };
    std::vector<std::thread> threads;
    for (i64 i = 0; i < jobs; ++i) {
        threads.emplace_back(serve);
    }

    const size_t most = static_cast<size_t>(4 * jobs);
    bool more = true;
    bool going = true;
    while (going && (more || !slots.empty())) {
        // Reading comes first, so that the others never wait for a piece while there is room.
        while (more && slots.size() < most) {
            Piece piece;
            more = take(&piece);
            if (more) {
                const std::lock_guard lock(mutex);
                slots.push_back({ std::move(piece), Result(), false });
                waiting.push_back(&slots.back());
                wanted.notify_one();
                if (slots.front().done) {
                    break;
                }
            }
        }
        if (slots.empty()) {
            break;
        }
        {
            std::unique_lock lock(mutex);
            finished.wait(lock, [&] { return slots.front().done; });
        }
        going = hand_on(&slots.front().result);
        const std::lock_guard lock(mutex);
        slots.pop_front();
    }
    {
        const std::lock_guard lock(mutex);
        ended = true;
        waiting.clear();
        wanted.notify_all();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

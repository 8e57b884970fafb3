// Threads that share the parts of one job after the other. Which thread does which part is left to
// chance, so a job must not let its result depend on it. The caller's thread is the first member;
// all calls come from it.
#pragma once

#include <atomic>
#include <pthread.h>

#include "board/types.h"

// As many as the option Threads allows.
inline constexpr i32 largest_team = 128;

// Does part number part of a job on thread number worker (0 is the caller's). Parts run at the same
// time: each writes to places of its own, by part or by worker.
using TeamJob = void (*)(void* context, i32 worker, i32 part);

// One thread of a team and its way back to it.
struct TeamMember {
    struct Team* team;
    i32 worker;
    pthread_t thread;
};

// The fields of a job are written by the caller before round is raised, and read by the members
// behind it. A team must not move in memory while it has threads.
struct Team {
    i32 size; // threads, the caller's among them
    TeamJob job;
    void* context;
    i32 parts;
    std::atomic<i32> next_part;
    std::atomic<u32> round;   // raised to begin a job
    std::atomic<i32> working; // members that have not finished the job
    std::atomic<bool> leave;
    TeamMember members[largest_team]; // from index 1 on
};

// Starts size - 1 threads; fewer if the system has no more to give, which team->size tells. size is
// 1 to largest_team. To be followed by end_team.
void start_team(Team* team, i32 size);

// Runs a job of so many parts (0 and more) on all threads and returns when it is done. What the
// parts have written can be read then. context is handed to each part as it is.
void run_team(Team* team, i32 parts, TeamJob job, void* context);

// Ends the threads and waits for them; a team of one is left.
void end_team(Team* team);

// A job is announced by raising round; members then take parts until there are none. Nobody owns a
// part beforehand, so that a thread without a processor of its own holds the others up by one part
// at most. A round ends when every member has been through, even one that found no part left: the
// next job could else be announced to a member that is still in this one.
#include "tools/trainer/team.h"

// The order among the threads is of no matter: what parts write is handed over by working.
static void take_parts(Team* team, i32 worker)
{
    for (;;) {
        const i32 part = team->next_part.fetch_add(1, std::memory_order_relaxed);
        if (part >= team->parts) {
            return;
        }
        team->job(team->context, worker, part);
    }
}

// Counts the rounds it has done, so that none is missed while it was busy with the one before.
static void* work(void* argument)
{
    TeamMember* member = static_cast<TeamMember*>(argument);
    Team* team = member->team;
    for (u32 done = 0;;) {
        // Acquire: the job's fields were written before the round was raised.
        team->round.wait(done, std::memory_order_acquire);
        ++done;
        if (team->leave.load(std::memory_order_relaxed)) {
            return nullptr;
        }
        take_parts(team, member->worker);
        // The last one wakes the caller; it alone, as each call costs a trip to the system.
        if (team->working.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            team->working.notify_one();
        }
    }
}

// A system that gives fewer threads only makes the training slower, and changes none of its
// numbers.
void start_team(Team* team, i32 size)
{
    team->size = 1;
    team->round = 0;
    team->working = 0;
    team->leave = false;
    while (team->size < size) {
        TeamMember* member = &team->members[team->size];
        *member = { team, team->size, {} };
        if (pthread_create(&member->thread, nullptr, work, member) != 0) {
            return;
        }
        ++team->size;
    }
}

static void announce(Team* team)
{
    team->round.fetch_add(1, std::memory_order_release);
    team->round.notify_all();
}

// The caller takes parts like the others, so a team of one needs no thread at all.
void run_team(Team* team, i32 parts, TeamJob job, void* context)
{
    team->job = job;
    team->context = context;
    team->parts = parts;
    team->next_part.store(0, std::memory_order_relaxed);
    team->working.store(team->size - 1, std::memory_order_relaxed);
    if (team->size > 1) {
        announce(team);
    }
    take_parts(team, 0);
    // The value waited for must be the one just looked at: a member may finish in between.
    for (i32 left; (left = team->working.load(std::memory_order_acquire)) > 0;) {
        team->working.wait(left, std::memory_order_acquire);
    }
}

// Members look at leave behind the rise of the round only, which makes it visible to them.
void end_team(Team* team)
{
    team->leave = true;
    announce(team);
    for (i32 i = 1; i < team->size; ++i) {
        pthread_join(team->members[i].thread, nullptr);
    }
    team->size = 1;
}

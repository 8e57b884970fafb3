// A job is announced by raising round; members then take parts until there are none.
#include "tools/trainer/team.h"

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

static void* work(void* argument)
{
    TeamMember* member = static_cast<TeamMember*>(argument);
    Team* team = member->team;
    for (u32 done = 0;;) {
        team->round.wait(done, std::memory_order_acquire);
        ++done;
        if (team->leave.load(std::memory_order_relaxed)) {
            return nullptr;
        }
        take_parts(team, member->worker);
        if (team->working.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            team->working.notify_one();
        }
    }
}

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
    for (i32 left; (left = team->working.load(std::memory_order_acquire)) > 0;) {
        team->working.wait(left, std::memory_order_acquire);
    }
}

void end_team(Team* team)
{
    team->leave = true;
    announce(team);
    for (i32 i = 1; i < team->size; ++i) {
        pthread_join(team->members[i].thread, nullptr);
    }
    team->size = 1;
}

// Words that are no part of UCI and take their time: a score table, a count of leaves, a benchmark.
// Each runs in a process of its own, so that it can be stopped and harms nothing.
#pragma once

#include <string>
#include <vector>

#include "host/process.h"
#include "host/settings.h"

enum class JobKind { Evaluation, Perft, Benchmark };

struct Job {
    JobKind kind = JobKind::Evaluation;
    Process process;
    // Of a count: the moves, what was counted behind those that are done, and the sum.
    std::vector<std::string> moves;
    size_t done = 0;
    u64 leaves = 0;
    bool shows = false; // of a score table: its first line has come
    int config = -1;    // the engine's options as a file in memory
};

struct HostGame;

// Starts a job on a game without a defect; depth is that of a count or a benchmark. Returns 0 or
// the error.
[[nodiscard]] int start_evaluation(Job* job, const HostSettings* settings, const HostGame* game);
[[nodiscard]] int start_perft(Job* job, HostGame* game, i32 depth);
[[nodiscard]] int start_benchmark(Job* job, i32 depth);

// What the host is shown for a line of the job; empty for nothing.
[[nodiscard]] std::vector<std::string> shown_lines(Job* job, const std::string& line);

// Whether the job has shown all that it is for, though its process may still run.
[[nodiscard]] bool is_done(const Job* job);

void end_job(Job* job);

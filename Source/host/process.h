// Processes that this one forks to run a part of the engine, each behind a pair of pipes. They end
// with this process, however it ends.
#pragma once

#include <sys/types.h>

#include "host/lines.h"

struct Process {
    pid_t pid = -1; // -1: none
    LineSource from;
    LineSink to;
};

inline bool is_running(const Process* process)
{
    return process->pid > 0;
}

// Forks a process whose standard input and output are pipes to this one, and which ends with the
// status that run(context) returns there. Its standard error stays ours, all other descriptors are
// closed in it. Returns 0 or the error.
[[nodiscard]] int start_process(Process* process, int (*run)(void* context), void* context);

// Kills the process, waits for its end and closes the pipes. What it had sent and nobody has read
// is lost. Returns the status of waitpid, or 0 if there was no process.
int end_process(Process* process);
